/// @file
/// The parameter curve's interface, core::IKeyFrame.
#pragma once

#include <string>

#include "keyframe_types.h"
#include "qmx_unknown.h"
#include "val_any.h"

namespace core {

/// core::IKeyFrame: one keyframed parameter curve, answered for
/// IID_IQMXKeyFrameKV. Keys are addressed by index in time order, from 0.
/// Slot numbers count from 0 (QueryInterface); the order is binary contract.
class IKeyFrame : public IUnknown {
public:
    /// Value at `time`, typed by the curve's parameter type; clamped to the
    /// value range when `clamp` is true. An empty curve gives int 0.
    virtual ValAny GetValue(double time, bool clamp) const = 0;                              ///< slot 3
    /// Adds a key (replacing one at the same time); returns its index.
    virtual int AddPoint(double time, ValAny value, KeyframeInterpolationType kind) = 0;       ///< slot 4
    virtual void AddPointWithoutIndex(double time, ValAny value, KeyframeInterpolationType kind) = 0;  ///< slot 5
    virtual void SetValueRange(ValAny minValue, ValAny maxValue) = 0;                          ///< slot 6
    virtual void RemovePoint(int index) = 0;                                                   ///< slot 7
    virtual ValAny GetPointValue(int index) const = 0;                                         ///< slot 8
    virtual double GetPointTime(int index) const = 0;                                          ///< slot 9
    virtual KeyframeInterpolationType GetInterpolationType(int index) const = 0;               ///< slot 10
    virtual void GetPointControlParam(int index, double& left, double& right) const = 0;       ///< slot 11
    virtual void SetPointValue(int index, ValAny value) = 0;                                   ///< slot 12
    virtual void SetPointTime(int index, double time) = 0;                                     ///< slot 13
    virtual void SetPointInterpolationType(int index, KeyframeInterpolationType kind) = 0;     ///< slot 14
    virtual void SetPointControlParam(int index, double left, double right) = 0;               ///< slot 15
    virtual int GetKeyFramesCount() const = 0;                                                 ///< slot 16
    virtual void SetParameterType(ParameterTypeEnum type) = 0;                                 ///< slot 17
    virtual ParameterTypeEnum GetParameterType() const = 0;                                    ///< slot 18
    virtual void GetValueRange(ValAny& minValue, ValAny& maxValue) const = 0;                  ///< slot 19
    /// The curve as one line of JSON text.
    virtual std::string Serialize() const = 0;                                                 ///< slot 20
    /// Merges keys, type and range from JSON text; always returns 0.
    virtual HRESULT Desialize(const char* text) = 0;                                           ///< slot 21
    /// Takes over another curve's keys, range and type; always returns true.
    virtual bool CopyFrom(const IKeyFrame* other) = 0;                                         ///< slot 22
    virtual void Clear() = 0;                                                                  ///< slot 23
    /// Index of the key at exactly `time`, or -1.
    virtual int getTimeValuePairIndex(double time) = 0;                                        ///< slot 24
};

}  // namespace core
