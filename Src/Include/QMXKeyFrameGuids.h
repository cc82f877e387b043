/// @file
/// Class and interface identifiers defined and exported by the keyframe module.
#pragma once

#include "qmx_export.h"
#include "qmx_unknown.h"

QMX_EXPORT extern const _GUID CLSID_QMXKeyFrame;    ///< the keyframe track
QMX_EXPORT extern const _GUID IID_IQMXKeyFrame;     ///< the track's keyframe interface
QMX_EXPORT extern const _GUID CLSID_QMXKeyFrameKV;  ///< the parameter curve
QMX_EXPORT extern const _GUID IID_IQMXKeyFrameKV;   ///< core::IKeyFrame
QMX_EXPORT extern const _GUID IID_IQMXStorage;      ///< the track's persistence interface
