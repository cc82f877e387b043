// One key of a curve: time, value, interpolation kind and the two tangent
// slopes (value units per unit of time). Keys are ordered by time only.
#pragma once

#include "keyframe_types.h"
#include "val_any.h"

namespace core {

class TimeValuePair {
public:
    // Time 0.0, int value 0, kind eKeyframeTypeNone, derivatives 0.0.
    TimeValuePair() : TimeValuePair(0.0, ValAny(0), eKeyframeTypeNone) {}
    TimeValuePair(double time, ValAny value, KeyframeInterpolationType interp)
        : TimeValuePair(time, value, interp, 0.0, 0.0)
    {
    }
    TimeValuePair(double time, ValAny value, KeyframeInterpolationType interp, double left,
                  double right)
        : time(time), value(value), interpolation(interp), leftDerivative(left), rightDerivative(right)
    {
    }

    double GetTime() const { return time; }
    ValAny GetValue() const { return value; }
    const ValAny& StoredValue() const { return value; }  // without a copy
    KeyframeInterpolationType GetInterpolation() const { return interpolation; }
    double GetLeftDerivative() const { return leftDerivative; }
    double GetRightDerivative() const { return rightDerivative; }

    // Each setter changes its own field only; nothing is recomputed.
    void SetTime(double t) { time = t; }
    void SetValue(ValAny v) { value = v; }
    void SetInterpolation(KeyframeInterpolationType interp) { interpolation = interp; }
    void SetLeftDerivative(double left) { leftDerivative = left; }
    void SetRightDerivative(double right) { rightDerivative = right; }

private:
    double time;
    ValAny value;
    KeyframeInterpolationType interpolation;
    double leftDerivative;   // slope arriving at the key
    double rightDerivative;  // slope leaving the key
};

// Strict ordering by time alone: keys with equal times are the same key.
struct TimeValuePair_compare_time {
    bool operator()(const TimeValuePair& a, const TimeValuePair& b) const
    {
        return a.GetTime() < b.GetTime();
    }
};

}  // namespace core
