// Cubic Hermite segment evaluation, integration, automatic tangents and the
// inverse of integration.
#include "Interpolation.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "SegmentMath.h"
#include "qmx_check.h"

namespace Interpolation {

using core::eKeyframeTypeConstant;
using core::eKeyframeTypeFlat;
using core::eKeyframeTypeFree;
using core::eKeyframeTypeLinear;
using core::eKeyframeTypeNone;
using core::eKeyframeTypeSmooth;
using core::eKeyframeTypeSmoothClamped;
using core::eKeyframeTypeSpline;
using core::KeyframeInterpolationType;

namespace {

inline bool IsZero(double x)
{
    return x == 0.0 || (x > -1e-9 && x < 1e-9);
}

// Smooth clamped slopes per whole segment, both neighbours present: flat at a
// strict peak or dip; otherwise the Bezier handles a third of a segment away
// are kept within each segment's values (left first, then right), scaling the
// other handle so that both sides keep one slope.
void ClampedSmooth(double vPrev, double vCur, double vNext, double S, double hL, double hR,
                   double* L, double* R)
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

constexpr double kThird = 1.0 / 3.0;
constexpr double kTwoOver27 = 0.07407407407407407;
constexpr double kPiOver3 = 1.0471975511965976;

}  // namespace

double cubicEval(double c0, double c1, double c2, double c3, double t)
{
    return cubicAt(c0, c1, c2, c3, t);
}

void hermiteToCubicCoeffs(double p0, double m0, double m1, double p1, double* c0, double* c1,
                          double* c2, double* c3)
{
    *c0 = p0;
    *c1 = m0;
    *c2 = 3.0 * (p1 - p0) - 2.0 * m0 - m1;
    *c3 = m0 - 2.0 * (p1 - p0) + m1;
}

double cubicIntegrate(double c0, double c1, double c2, double c3, double t)
{
    const double t2 = t * t;
    const double t3 = t2 * t;
    return term(c0, t) + term(c1, t2 * 0.5) + term(c2, t3 / 3.0) + term(c3, t3 * t * 0.25);
}

double interpolate(double tcur, core::ValAny vcur, double vcurDerivRight, double vnextDerivLeft,
                   double tnext, core::ValAny vnext, double time, KeyframeInterpolationType interp,
                   KeyframeInterpolationType interpNext)
{
    return valueAt(cubicSegment(tcur, numberOf(vcur), vcurDerivRight, vnextDerivLeft, tnext, numberOf(vnext), interp,
                                interpNext),
                   time);
}

double integrate(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft,
                 double tnext, double vnext, double time1, double time2,
                 KeyframeInterpolationType interp, KeyframeInterpolationType interpNext)
{
    QMX_CHECK(((interp == eKeyframeTypeNone) || (tcur <= time1)) && (time1 <= time2) &&
              ((time2 <= tnext) || (interpNext == eKeyframeTypeNone)));
    const HermiteSegment seg =
        normaliseSegment(tcur, vcur, vcurDerivRight, vnextDerivLeft, tnext, vnext, interp, interpNext);
    const double length = seg.t1 - seg.t0;
    const double c2 = curvatureCoeff(seg);
    const double c3 = cubicCoeff(seg);
    const auto area = [&](double s) {
        const double s2 = s * s;
        const double s3 = s2 * s;
        return term(seg.p0, s) + term(seg.m0, s2 * 0.5) + term(c2, s3 / 3.0) + term(c3, s3 * s * 0.25);
    };
    const double upper = area((time2 - seg.t0) / length);
    if (time1 == seg.t0)
        return length * upper;
    return length * (upper - area((time1 - seg.t0) / length));
}

void autoComputeDerivatives(KeyframeInterpolationType interpPrev, KeyframeInterpolationType interp,
                            KeyframeInterpolationType interpNext, double tPrev, core::ValAny vPrevAny,
                            double tCur, core::ValAny vCurAny, double tNext, core::ValAny vNextAny,
                            double vPrevDerivRight, double vNextDerivLeft, double* left, double* right)
{
    const double vCur = numberOf(vCurAny);
    const double vPrev = numberOf(vPrevAny);
    const double vNext = numberOf(vNextAny);
    const bool hasPrev = interpPrev != eKeyframeTypeNone;
    const bool hasNext = interpNext != eKeyframeTypeNone;
    // A missing side is one time unit long.
    if (!hasNext)
        tNext = tCur + 1.0;
    if (!hasPrev)
        tPrev = tCur - 1.0;
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
        if (interpPrev == eKeyframeTypeLinear)
            return vCur - vPrev;
        return 1.5 * vCur - 0.5 * mL - 1.5 * vPrev;
    };
    const auto oneSidedRight = [&] {
        if (!hasNext)
            return 0.0;
        if (interpNext == eKeyframeTypeLinear)
            return vNext - vCur;
        return 1.5 * vNext - 1.5 * vCur - 0.5 * mR;
    };

    double L = 0.0;
    double R = 0.0;
    if (interp == eKeyframeTypeFlat || (hasPrev && hasNext)) {
        // Chord slope of the two neighbours (non-uniform Catmull-Rom).
        const double S = (vNext - vPrev) / (tNext - tPrev);
        switch (interp) {
        case eKeyframeTypeConstant:
            L = mL;
            R = 0.0;
            break;
        case eKeyframeTypeLinear:
            L = oneSidedLeft();
            R = oneSidedRight();
            break;
        case eKeyframeTypeSmoothClamped:
            ClampedSmooth(vPrev, vCur, vNext, S, hL, hR, &L, &R);
            break;
        case eKeyframeTypeSmooth:
            L = S * hL;
            R = S * hR;
            break;
        case eKeyframeTypeSpline: {
            // One slope with equal curvature on both sides; the far ends are
            // natural (zero curvature) or the neighbour's stored slope, in a
            // deliberately asymmetric choice.
            double d;
            if (interpPrev == eKeyframeTypeLinear && interpNext == eKeyframeTypeLinear)
                d = ((vCur - vPrev) / (hL * hL) + (vNext - vCur) / (hR * hR)) / (1.0 / hL + 1.0 / hR);
            else if (interpPrev == eKeyframeTypeLinear)
                d = (3.0 * (vCur - vPrev) / (hL * hL) + (6.0 * (vNext - vCur) - 2.0 * mR) / (hR * hR)) /
                    (3.0 / hL + 4.0 / hR);
            else
                d = ((6.0 * (vCur - vPrev) - 2.0 * mL) / (hL * hL) + 3.0 * (vNext - vCur) / (hR * hR)) /
                    (4.0 / hL + 3.0 / hR);
            L = d * hL;
            R = d * hR;
            break;
        }
        case eKeyframeTypeNone:
            throw std::runtime_error("Cannot compute derivatives at eKeyframeTypeNone");
        case eKeyframeTypeFlat:
        case eKeyframeTypeFree:
        default:
            break;
        }
    } else {
        // At a curve end every kind takes the one-sided rule; smooth and
        // spline keys mirror the existing side onto the missing one.
        L = oneSidedLeft();
        R = oneSidedRight();
        if (interp == eKeyframeTypeSmooth || interp == eKeyframeTypeSpline) {
            if (!hasNext)
                R = L / hL;
            else if (!hasPrev)
                L = R / hR;
        }
    }
    *left = L / hL;
    *right = R / hR;
}

double solve(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft, double tnext,
             double vnext, double value, KeyframeInterpolationType interp,
             KeyframeInterpolationType interpNext)
{
    const HermiteSegment seg =
        normaliseSegment(tcur, vcur, vcurDerivRight, vnextDerivLeft, tnext, vnext, interp, interpNext);
    // Running integral p0 x + m0/(2 (t1 - t0)) x^2 + c2/3 x^3 = value: the
    // segment's cubic term is left out so the equation stays of degree three.
    const double c3 = curvatureCoeff(seg) / 3.0;
    const double c2 = seg.m0 / (seg.t1 - seg.t0) * 0.5;
    const double c1 = seg.p0;
    const double c0 = -value;
    double roots[3];
    if (solveCubic(c0, c1, c2, c3, roots) > 0)
        return roots[0];
    return value;
}

int solveCubic(double c0, double c1, double c2, double c3, double roots[3])
{
    QMX_CHECK(c0 == c0 && c1 == c1 && c2 == c2 && c3 == c3);
    if (IsZero(c3)) {
        if (IsZero(c2)) {
            if (IsZero(c1))
                return 0;
            roots[0] = -c0 / c1;
            return 1;
        }
        const double h = c1 / (2.0 * c2);
        const double k = c0 / c2;
        const double delta = h * h - k;
        if (IsZero(delta)) {
            roots[0] = -h;
            return 1;
        }
        if (delta < 0.0)
            return 0;
        const double root = std::sqrt(delta);
        roots[0] = root - h;
        roots[1] = -root - h;
        return 2;
    }

    // Depressed cubic z^3 + 3p z + 2q = 0 with x = z - shift.
    const double B = c2 / c3;
    const double C = c1 / c3;
    const double E = c0 / c3;
    const double p = (C - B * B * kThird) * kThird;
    const double q = (B * B * (B * kTwoOver27) - (B * kThird) * C + E) * 0.5;
    const double delta = q * q + p * p * p;
    const double shift = B * kThird;

    if (IsZero(delta)) {
        if (IsZero(q)) {
            roots[0] = -shift;
            return 1;
        }
        const double u = std::cbrt(-q);
        roots[0] = 2.0 * u - shift;
        roots[1] = -u - shift;
        return 2;
    }
    if (delta > 0.0) {
        const double A = std::cbrt(std::fabs(q) + std::sqrt(delta));
        const double z = q > 0.0 ? p / A - A : A - p / A;
        roots[0] = z - shift;
        return 1;
    }
    const double theta = std::acos(-q / std::sqrt(-(p * p * p)));
    const double r = 2.0 * std::sqrt(-p);
    roots[0] = r * std::cos(theta * kThird) - shift;
    roots[1] = -r * std::cos(theta * kThird + kPiOver3) - shift;
    roots[2] = -r * std::cos(theta * kThird - kPiOver3) - shift;
    return 3;
}

}  // namespace Interpolation
