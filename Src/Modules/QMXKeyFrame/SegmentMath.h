// The arithmetic of one segment that every evaluation shares, inline so that
// the curve's and the track's sampling paths pay no calls for it. The
// exported functions of Interpolation.h are written with these; module
// internal, not exported.
#pragma once

#include "keyframe_types.h"
#include "val_any.h"

namespace Interpolation {

// A value as interpolate reads it: booleans 1.0 or 0.0, numeric kinds
// converted, anything else 0.0 without error.
inline double numberOf(const core::ValAny& value)
{
    if (value.GetTypeTag() == core::ValAny::kBool)
        return value.Get<bool>() ? 1.0 : 0.0;
    return value.IsNumber() ? value.Get<double>() : 0.0;
}

// A segment in normalised form: times t0..t1, end values p0, p1 and end
// slopes m0, m1 per whole segment, derived from the two keys' data (see
// Interpolation.h for the order of the arguments and the missing keys).
struct HermiteSegment {
    double t0, t1, p0, p1, m0, m1;
};

inline HermiteSegment normaliseSegment(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft,
                                       double tnext, double vnext, core::KeyframeInterpolationType interp,
                                       core::KeyframeInterpolationType interpNext)
{
    const double length = tnext - tcur;
    HermiteSegment s;
    s.m1 = vnextDerivLeft * length;
    if (interp == core::eKeyframeTypeNone) {
        // Before the first key: one time unit ending at it, along its left slope.
        s.t0 = tnext - 1.0;
        s.p0 = vnext - s.m1;
        s.p1 = vnext;
        s.m0 = s.m1;
    } else {
        s.t0 = tcur;
        s.p0 = vcur;
        if (interp == core::eKeyframeTypeConstant) {
            s.p1 = vcur;
            s.m0 = 0.0;
            s.m1 = 0.0;
        } else {
            s.p1 = vnext;
            s.m0 = vcurDerivRight * length;
        }
    }
    s.t1 = tnext;
    if (interpNext == core::eKeyframeTypeNone) {
        // After the last key: one time unit continuing its right slope.
        s.t1 = s.t0 + 1.0;
        s.p1 = s.p0 + s.m0;
        s.m1 = s.m0;
    }
    return s;
}

// s^2 and s^3 coefficients of the normalised segment.
inline double curvatureCoeff(const HermiteSegment& s)
{
    return 3.0 * (s.p1 - s.p0) - 2.0 * s.m0 - s.m1;
}

inline double cubicCoeff(const HermiteSegment& s)
{
    return s.m0 - 2.0 * (s.p1 - s.p0) + s.m1;
}

// One polynomial term: exactly 0.0 for a zero coefficient, whatever the power.
inline double term(double coefficient, double power)
{
    return coefficient == 0.0 ? 0.0 : power * coefficient;
}

// c0 + c1 t + c2 t^2 + c3 t^3 (cubicEval).
inline double cubicAt(double c0, double c1, double c2, double c3, double t)
{
    const double t2 = t * t;
    return c0 + term(c1, t) + term(c2, t2) + term(c3, t2 * t);
}

// A segment ready to be evaluated at many times: its start and length, and
// its power-basis coefficients in the normalised parameter.
struct CubicSegment {
    double t0, length, c0, c1, c2, c3;
};

inline CubicSegment cubicSegment(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft,
                                 double tnext, double vnext, core::KeyframeInterpolationType interp,
                                 core::KeyframeInterpolationType interpNext)
{
    const HermiteSegment seg =
        normaliseSegment(tcur, vcur, vcurDerivRight, vnextDerivLeft, tnext, vnext, interp, interpNext);
    return {seg.t0, seg.t1 - seg.t0, seg.p0, seg.m0, curvatureCoeff(seg), cubicCoeff(seg)};
}

// The segment's value at `time` (interpolate's arithmetic).
inline double valueAt(const CubicSegment& c, double time)
{
    return cubicAt(c.c0, c.c1, c.c2, c.c3, (time - c.t0) / c.length);
}

}  // namespace Interpolation
