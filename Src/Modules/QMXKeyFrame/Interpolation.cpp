// Cubic Hermite segment evaluation, integration, automatic tangents and the
// inverse of integration.
#include "Interpolation.h"

#include <cmath>

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
    const HermiteSegment segment{0.0, 1.0, p0, p1, m0, m1};
    *c0 = p0;
    *c1 = m0;
    *c2 = curvatureCoeff(segment);
    *c3 = cubicCoeff(segment);
}

double cubicIntegrate(double c0, double c1, double c2, double c3, double t)
{
    return cubicIntegralAt(c0, c1, c2, c3, t);
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
    const auto area = [&](double s) { return cubicIntegralAt(seg.p0, seg.m0, c2, c3, s); };
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
    const Slopes slopes =
        autoComputeDerivativesOfNumbers(interpPrev, interp, interpNext, tPrev, numberOf(vPrevAny), tCur,
                                        numberOf(vCurAny), tNext, numberOf(vNextAny), vPrevDerivRight, vNextDerivLeft);
    *left = slopes.left;
    *right = slopes.right;
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
