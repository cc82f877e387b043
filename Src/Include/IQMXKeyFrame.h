/// @file
/// The keyframe track's interfaces: IQMXKeyFrame exchanges whole transform
/// keyframes, IQMXStorage saves the track into a host property bag.
/// Slot numbers count from 0 (QueryInterface); the order is binary contract.
#pragma once

#include "IQMXProperties.h"
#include "qmx_unknown.h"
#include "val_any.h"

/// One whole keyframe of a clip's transform. The field order differs from the
/// track's property keys (angle 0, position X 1, position Y 2, opacity 3,
/// scale X 4, scale Y 5); it is binary contract.
struct KeyFrameParam {
    double dPosition;   ///< key time on all six curves
    double dAngle;      ///< curve 0
    double dPositionX;  ///< curve 1
    double dPositionY;  ///< curve 2
    double dScaleX;     ///< curve 4
    double dScaleY;     ///< curve 5
    double dOpacity;    ///< curve 3
};

/// Edits report false (and log at level 80) for a key index outside the track.
class IQMXKeyFrame : public IUnknown {
public:
    virtual int GetKeyFrameCount() = 0;                                                   ///< slot 3
    /// Adds a linear key on every curve (replacing keys at that time); `index`
    /// receives its index, -1 if it cannot be found again.
    virtual bool AddKeyFrame(KeyFrameParam& param, int& index) = 0;                        ///< slot 4
    virtual bool AddKeyFrame(KeyFrameParam& param) = 0;                                    ///< slot 5
    virtual bool GetKeyFrame(int index, KeyFrameParam& param) = 0;                         ///< slot 6
    virtual bool DeleteKeyFrame(int index) = 0;                                            ///< slot 7
    /// Writes all six values, then moves the key to `param.dPosition`.
    virtual bool SetKeyFrame(int index, const KeyFrameParam& param) = 0;                   ///< slot 8
    virtual void CleanAllKeyFrame() = 0;                                                   ///< slot 9
    /// Frame of key `index` at `nRate`; an index outside the track throws
    /// std::out_of_range.
    virtual void CaculateKeyFrameIndex(int index, int nRate, int& nFrameIndex) = 0;        ///< slot 10
    /// Lowest key index on frame `nFrameIndex`; false (index untouched) if none.
    virtual bool GetKeyFrameIndex(int nFrameIndex, int nRate, int& index) = 0;             ///< slot 11
    virtual bool ChangeKeyFramePosition(int index, double position) = 0;                   ///< slot 12
    virtual void CaculateKeyFramePosition(int nFrameIndex, int nRate, double& position) = 0;  ///< slot 13
    /// Whether curve `key` exists and has keys.
    virtual bool HasKeyFrame(int key) = 0;                                                 ///< slot 14
    /// Value of curve `key` (0..5 only) at `position`, unclamped.
    virtual core::ValAny GetKeyFrameValue(int key, double position) = 0;                   ///< slot 15
    /// Samples all six curves at `position`; false on an empty track.
    virtual bool GetKeyFrame(double position, KeyFrameParam& param) = 0;                   ///< slot 16
    /// Index of the key at exactly `position`, or -1.
    virtual int GetKeyFrameIndex(double position) = 0;                                     ///< slot 17
    /// Whether `position` lies between the first and last key (two keys or more).
    virtual bool InKeyFrameRange(double position) = 0;                                     ///< slot 18
};

/// Persistence of a track; both operations always return 0.
class IQMXStorage : public IUnknown {
public:
    virtual HRESULT WriteTo(IQMXProperties* props) = 0;   ///< slot 3
    virtual HRESULT ReadFrom(IQMXProperties* props) = 0;  ///< slot 4
};
