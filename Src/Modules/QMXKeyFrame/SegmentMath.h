// The arithmetic of one segment that every evaluation shares, and the
// automatic tangent rule on plain numbers, inline so that the curve's and
// the track's sampling and editing paths pay no calls for them. The exported functions of Interpolation.h
// are written with these; module internal, not exported.
#pragma once

#include <algorithm>
#include <stdexcept>

#include "keyframe_types.h"
#include "val_any.h"

namespace Interpolation {

// The missing-neighbour rule. The first key has no key before it and the last
// none after it. Wherever a neighbour is missing, the curve acts as if a
// phantom key stood one time unit away on that side, of kind none, holding the
// end key's value with slope 0: evaluation then continues the end key's slope
// across that unit (normaliseSegment), and the tangent rule measures the
// missing side as one unit long (autoComputeDerivativesOfNumbers). Callers
// pass a missing neighbour as kind eKeyframeTypeNone.
constexpr double kPhantomKeyDistance = 1.0;
inline double phantomTimeBefore(double firstTime) { return firstTime - kPhantomKeyDistance; }
inline double phantomTimeAfter(double lastTime) { return lastTime + kPhantomKeyDistance; }

// A value as interpolate reads it: booleans 1.0 or 0.0, numeric kinds
// converted, anything else 0.0 without error.
inline double numberOf(const core::ValAny& value)
{
    if (value.GetTypeTag() == core::ValAny::kDouble)  // what curves hold
        return value.Get<double>();
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
        // Before the first key: the phantom's unit ending at it, along its left slope.
        s.t0 = phantomTimeBefore(tnext);
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
        // After the last key: the phantom's unit, continuing its right slope.
        s.t1 = phantomTimeAfter(s.t0);
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

// Integral of c0 + c1 t + c2 t^2 + c3 t^3 from 0 to t (cubicIntegrate).
inline double cubicIntegralAt(double c0, double c1, double c2, double c3, double t)
{
    const double t2 = t * t;
    const double t3 = t2 * t;
    return term(c0, t) + term(c1, t2 * 0.5) + term(c2, t3 / 3.0) + term(c3, t3 * t * 0.25);
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

// autoComputeDerivatives with the three values already read as numbers,
// returning the two slopes.
struct Slopes {
    double left, right;
};

// Smooth clamped slopes per whole segment, both neighbours present: flat at a
// strict peak or dip; otherwise the Bezier handles a third of a segment away
// are kept within each segment's values (left first, then right), scaling the
// other handle so that both sides keep one slope.
inline void clampedSmooth(double vPrev, double vCur, double vNext, double S, double hL, double hR, double* L,
                          double* R)
{
    if ((vPrev > vCur && vNext > vCur) || (vPrev < vCur && vNext < vCur)) {
        *L = 0.0;
        *R = 0.0;
        return;
    }
    double hl = vCur - S * hL / 3.0;
    double hr = vCur + S * hR / 3.0;
    const double lowL = std::min(vPrev, vCur);
    const double highL = std::max(vPrev, vCur);
    if (hl < lowL || hl > highL) {
        const double c = std::max(std::min(hl, highL), lowL);
        hr = vCur + (vCur - c) * (hr - vCur) / (vCur - hl);
        hl = c;
    }
    const double lowR = std::min(vCur, vNext);
    const double highR = std::max(vCur, vNext);
    if (hr < lowR || hr > highR) {
        const double c = std::max(std::min(hr, highR), lowR);
        hl = vCur - (vCur - hl) * (c - vCur) / (hr - vCur);
        hr = c;
    }
    *L = 3.0 * (vCur - hl);
    *R = 3.0 * (hr - vCur);
}

// Inlined into the tangent upkeep, whose slopes then stay in registers.
[[gnu::always_inline]] inline Slopes autoComputeDerivativesOfNumbers(
    core::KeyframeInterpolationType interpPrev, core::KeyframeInterpolationType interp,
    core::KeyframeInterpolationType interpNext, double tPrev, double vPrev, double tCur, double vCur, double tNext,
    double vNext, double vPrevDerivRight, double vNextDerivLeft)
{
    const bool hasPrev = interpPrev != core::eKeyframeTypeNone;
    const bool hasNext = interpNext != core::eKeyframeTypeNone;
    if (!hasNext)
        tNext = phantomTimeAfter(tCur);
    if (!hasPrev)
        tPrev = phantomTimeBefore(tCur);
    const double hL = tCur - tPrev;
    const double hR = tNext - tCur;
    // Neighbour slopes per whole segment.
    const double mL = vPrevDerivRight * hL;
    const double mR = vNextDerivLeft * hR;

    // Each side from its own neighbour only: none, a linear chord, or the
    // slope giving the segment zero curvature at this key.
    const auto oneSidedLeft = [&] {
        if (!hasPrev)
            return 0.0;
        if (interpPrev == core::eKeyframeTypeLinear)
            return vCur - vPrev;
        return 1.5 * vCur - 0.5 * mL - 1.5 * vPrev;
    };
    const auto oneSidedRight = [&] {
        if (!hasNext)
            return 0.0;
        if (interpNext == core::eKeyframeTypeLinear)
            return vNext - vCur;
        return 1.5 * vNext - 1.5 * vCur - 0.5 * mR;
    };

    double L = 0.0;
    double R = 0.0;
    if (interp == core::eKeyframeTypeFlat || (hasPrev && hasNext)) {
        // Chord slope of the two neighbours (non-uniform Catmull-Rom).
        const double S = (vNext - vPrev) / (tNext - tPrev);
        switch (interp) {
        case core::eKeyframeTypeConstant:
            L = mL;
            R = 0.0;
            break;
        case core::eKeyframeTypeLinear:
            L = oneSidedLeft();
            R = oneSidedRight();
            break;
        case core::eKeyframeTypeSmoothClamped:
            clampedSmooth(vPrev, vCur, vNext, S, hL, hR, &L, &R);
            break;
        case core::eKeyframeTypeSmooth:
            L = S * hL;
            R = S * hR;
            break;
        case core::eKeyframeTypeSpline: {
            // One slope with equal curvature on both sides; the far ends are
            // natural (zero curvature) or the neighbour's stored slope, in a
            // deliberately asymmetric choice.
            double d;
            if (interpPrev == core::eKeyframeTypeLinear && interpNext == core::eKeyframeTypeLinear)
                d = ((vCur - vPrev) / (hL * hL) + (vNext - vCur) / (hR * hR)) / (1.0 / hL + 1.0 / hR);
            else if (interpPrev == core::eKeyframeTypeLinear)
                d = (3.0 * (vCur - vPrev) / (hL * hL) + (6.0 * (vNext - vCur) - 2.0 * mR) / (hR * hR)) /
                    (3.0 / hL + 4.0 / hR);
            else
                d = ((6.0 * (vCur - vPrev) - 2.0 * mL) / (hL * hL) + 3.0 * (vNext - vCur) / (hR * hR)) /
                    (4.0 / hL + 3.0 / hR);
            L = d * hL;
            R = d * hR;
            break;
        }
        case core::eKeyframeTypeNone:
            throw std::runtime_error("Cannot compute derivatives at eKeyframeTypeNone");
        case core::eKeyframeTypeFlat:
        case core::eKeyframeTypeFree:
        default:
            break;
        }
    } else {
        // At a curve end every kind takes the one-sided rule; smooth and
        // spline keys mirror the existing side onto the missing one.
        L = oneSidedLeft();
        R = oneSidedRight();
        if (interp == core::eKeyframeTypeSmooth || interp == core::eKeyframeTypeSpline) {
            if (!hasNext)
                R = L / hL;
            else if (!hasPrev)
                L = R / hR;
        }
    }
    return {L / hL, R / hR};
}

}  // namespace Interpolation
