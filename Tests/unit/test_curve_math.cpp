// The curve mathematics called directly: segment integration, the inverse of integration with its
// cubic root finder, and automatic tangents rule by rule. Segment values are checked through the curve.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Interpolation.h"

namespace {

using namespace Interpolation;
using core::ValAny;
using K = core::KeyframeInterpolationType;
using D = std::pair<double, double>;  // left and right derivative
constexpr K C = core::eKeyframeTypeConstant, L = core::eKeyframeTypeLinear, kClamp = core::eKeyframeTypeSmoothClamped,
            S = core::eKeyframeTypeSmooth, kSpline = core::eKeyframeTypeSpline, kFlat = core::eKeyframeTypeFlat,
            kFree = core::eKeyframeTypeFree, N = core::eKeyframeTypeNone;
constexpr double kInf = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double J = 1e6, JV = -123.0;  // time and value of a missing neighbour: ignored

D Derivs(K prev, K kind, K next, double tP, ValAny vP, double tC, ValAny vC, double tN, ValAny vN, double dP = 0,
         double dN = 0)
{
    D d{-99.0, -99.0};
    autoComputeDerivatives(prev, kind, next, tP, vP, tC, vC, tN, vN, dP, dN, &d.first, &d.second);
    return d;
}

}  // namespace

// integrate(tcur, vcur, dRight, dLeft, tnext, vnext, time1, time2, interp, interpNext): exact areas.
// interpolate (same first six, then time, interp, interpNext): the Hermite segment in exact values, and
// spans the curve never passes: a missing neighbour's slope is scaled by the given span, even a zero one.
TEST(InterpSegment, ValuesAndAreas)
{
    const struct { double tc, vc, dr, dl, tn, vn, t1, t2; K a, b; double want; } cases[] = {
        {0, 1, 2, 2, 4, 9, 2, 2, L, L, 0},       {1, 2.5, 9, 9, 5, 7, 1, 5, C, L, 10},  // empty; constant
        {0, 0, 0, 0, 1, 1, 0, 1, S, S, 0.5},     {0, 1, 2, 2, 4, 9, 0, 4, L, L, 20},    // smoothstep; 1+2t
        {0, 1, 2, 2, 4, 9, 1, 3, L, L, 10},                                             // inner interval
        {0, 1, 2, 0, 1, 0, 0, 3, L, N, 12},      {-1, 0, 0, 1, 0, 1, -3, 0, N, L, -1.5},  // beyond either end
        {0, 0, 0, 0, 1, 0, 0, kInf, L, N, 0}};  // zero coefficients at an infinite time
    for (const auto& k : cases)
        EXPECT_EQ(integrate(k.tc, k.vc, k.dr, k.dl, k.tn, k.vn, k.t1, k.t2, k.a, k.b), k.want) << &k - cases;
    const struct { double tc, vc, dr, dl, tn, vn, t; K a, b; double want; } spans[] = {
        // after the last key: vcur + dRight*D*(t-tcur) with D = tnext-tcur; D = 0 gives a flat line
        {1, 5, 3, 0, 3, 0, 4, L, N, 23}, {1, 5, 3, 0, 1, 0, 40, L, N, 5},
        // before the first key: vnext + dLeft*D*(t-tnext); no neighbours: the line through the only key
        {3, 0, 0, 2, 5, 3, 2, N, L, -9}, {4, 0, 0, 2, 5, 3, 7, N, N, 7},
        // constant holds vcur on a zero-length segment too
        {1, 7, 9, 9, 1, 5, 50, C, L, 7},
        // inside a segment of span 2, slopes 1 and 3 (m0 = 2, m1 = 6): 2s - 7s^2 + 6s^3 at s = 1/4, 1/2, 1
        {0, 0, 1, 3, 2, 1, 0.5, S, S, 0.15625}, {0, 0, 1, 3, 2, 1, 1, S, S, 0}, {0, 0, 1, 3, 2, 1, 2, S, S, 1}};
    for (const auto& k : spans)
        EXPECT_EQ(interpolate(k.tc, k.vc, k.dr, k.dl, k.tn, k.vn, k.t, k.a, k.b), k.want) << &k - spans;
}

// solveCubic(c0, c1, c2, c3): count, roots in their documented order, entries beyond the count left
// alone; the threshold below which a leading coefficient counts as zero.
TEST(SolveCubic, RootsCountAndOrder)
{
    const struct { double c0, c1, c2, c3; std::vector<double> want; } cases[] = {
        // linear; no unknown at all; quadratic: larger root first
        {-3, 2, 0, 0, {1.5}}, {1, 0, 0, 0, {}}, {-2, -1, 1, 0, {2, -1}},
        // leading 5e-10 counts as zero: quadratic; quadratic double root; complex pair only
        {-1e-8, 0, 1e-8, 5e-10, {1, -1}}, {1, -2, 1, 0, {1}}, {1, 0, 1, 0, {}},
        // three roots: largest first; double root: simple root 0 first, then 1; one real root
        {0, -1, 0, 1, {1, 0, -1}}, {0, 1, -2, 1, {0, 1}}, {-2, 0, 0, 1, {std::cbrt(2.0)}},
        // the same with a shifted unknown: (x-1)(x-2)(x-3); (x-1)(x^2+1); (x+1)(x^2+1)
        {-6, 11, -6, 1, {3, 2, 1}}, {-1, 1, -1, 1, {1}}, {1, 1, 1, 1, {-1}}};
    for (const auto& k : cases) {
        double r[3] = {99, 99, 99};
        const int n = solveCubic(k.c0, k.c1, k.c2, k.c3, r);
        ASSERT_EQ(n, static_cast<int>(k.want.size())) << "case " << (&k - cases);
        for (int i = 0; i < 3; ++i)  // roots of size <= 3: a few ulps
            EXPECT_NEAR(r[i], i < n ? k.want[i] : 99.0, i < n ? 16 * DBL_EPSILON : 0.0) << "entry " << i;
    }
    double r[3];  // leading 2e-9 is above the tolerance: x^3 + 5x^2 - 5 (scaled) has three roots
    ASSERT_EQ(solveCubic(-1e-8, 0, 1e-8, 2e-9, r), 3);
    for (double x : r)
        EXPECT_NEAR(cubicEval(-5, 0, 5, 1, x), 0.0, 1e-12);  // well-conditioned roots of size <= 5
}

// solve(tcur, vcur, dRight, dLeft, tnext, vnext, value, interp, interpNext): the first root of the
// running-integral equation in normalised units, neither clamped nor converted to a time.
TEST(Solve, WorkedValues)
{
    const struct { double tcur, vcur, dr, dl, tnext, vnext, value; K a; double want; } cases[] = {
        // constant: 2x = 4, not scaled to a time; constant 0: no root, the target itself
        {10, 2, 5, 5, 30, 9, 4, C, 2}, {0, 0, 5, 5, 1, 9, 4, C, 4},
        // 0.5 x^2 = -0.5 has no real root: the target itself; x^3 - x = 0: largest of -1, 0, 1;
        // x^3 - 2x^2 + x = 0: double-root case gives 0
        {0, 0, 1, 1, 1, 1, -0.5, L, -0.5}, {0, -1, 0, 0, 1, 0, 0, S, 1}, {0, 1, -4, 2, 1, 0, 0, S, 0}};
    for (const auto& k : cases)  // exact or a few ulps of a unit root
        EXPECT_NEAR(solve(k.tcur, k.vcur, k.dr, k.dl, k.tnext, k.vnext, k.value, k.a, k.a), k.want, 4 * DBL_EPSILON)
            << &k - cases;
    // Smooth segment (0,1)-(2,3) with slopes 0.5 and 1.5: x + x^2/4 + x^3/3 = value, even far beyond it.
    for (double value : {-3.0, 0.1, 1.7, 40.0}) {
        const double x = solve(0, 1, 0.5, 1.5, 2, 3, value, S, S);
        const double scale = std::fabs(value) + std::fabs(x) + 0.25 * x * x + std::fabs(x * x * x) / 3;
        EXPECT_NEAR(x + 0.25 * x * x + x * x * x / 3, value, 16 * DBL_EPSILON * scale) << value;
    }
}

// integrate's preconditions on the interval; a NaN coefficient for the root finder.
TEST(CurveMathDeathTest, PreconditionsAndNaNCoefficients)
{
    const char* re =
        R"re(Fatal check failed: \(\(\(interp == eKeyframeTypeNone\) \|\| \(tcur <= time1\)\) && )re"
        R"re(\(time1 <= time2\) && \(\(time2 <= tnext\) \|\| \(interpNext == eKeyframeTypeNone\)\)\), )re"
        R"re(function integrate, file .*Interpolation)re";
    // time2 > tnext; time1 < tcur; time1 > time2 even unbounded; NaN time2
    const struct { double t1, t2; K kind; } bad[] = {{1, 4.5, L}, {-1, 2, L}, {3, 2, N}, {1, kNaN, N}};
    for (const auto& b : bad)
        EXPECT_DEATH(integrate(0, 1, 2, 2, 4, 9, b.t1, b.t2, b.kind, b.kind), re) << &b - bad;
    re = R"re(Fatal check failed: \(c0 == c0 && c1 == c1 && c2 == c2 && c3 == c3\), )re"
         R"re(function solveCubic, file .*Interpolation)re";
    for (int i = 0; i < 4; ++i) {
        double c[4] = {0, 1, 2, 3}, r[3];
        c[i] = kNaN;
        EXPECT_DEATH(solveCubic(c[0], c[1], c[2], c[3], r), re) << "coefficient " << i;
    }
    EXPECT_DEATH(solve(1, 0, 1, 1, 1, 1, 0.5, L, L), re);  // zero-length segment: slope term 0/0
}

// A lone key is flat for every kind, eKeyframeTypeNone included (no throw); Free and
// kinds beyond the last one (8, 42; kept out of enum variables) are flat between keys.
TEST(AutoTangentTest, LoneFreeAndUnknownKindsGiveZero)
{
    for (int k : {0, 1, 2, 3, 4, 5, 6, 7, 8, 42}) {
        EXPECT_EQ(Derivs(N, static_cast<K>(k), N, J, JV, 2, 5.0, -J, 7.0, 9, 9), D(0, 0)) << k;
        if (k == kFree || k > N) {
            EXPECT_EQ(Derivs(L, static_cast<K>(k), L, 0, 0.0, 1, 2.0, 3, 5.0, 1, 1), D(0, 0)) << k;
        }
    }
}

// A key between its neighbours (times, values, stored slopes dP and dN) and the expected
// derivatives; tol 0 demands exact equality.
TEST(AutoTangentTest, WorkedRules)
{
    constexpr double kTol = 1e-12;
    const struct {
        const char* name;
        K prev, kind, next;
        double tP, vP, tC, vC, tN, vN, dP, dN, left, right, tol = 0;
    } rows[] = {
        // linear: chord towards a linear neighbour (its slope unused), natural end towards a curved one
        {"chords (0,0),(1,1),(3,2)", L, L, L, 0, 0, 1, 1, 3, 2, 5, -4, 1.0, 0.5},
        {"natural right", N, L, S, J, JV, 0, 0, 2, 3, 9, 1, 0.0, 1.75},
        {"natural left", kSpline, L, N, -2, 1, 0, 4, J, JV, 0.5, 9, 2.0, 0.0},
        {"constant: left = dP", S, C, L, 0, 0, 2, 5, 3, 1, 0.75, 9, 0.75, 0.0},
        {"smooth, unequal", kSpline, S, C, 0, 1, 1, 7, 4, 3, 5, 5, 0.5, 0.5},
        // clamped smooth: flat at a strict peak or dip, else handles kept within each segment
        {"strict peak", L, kClamp, L, 0, 0, 1, 1, 2, 0, 0, 0, 0.0, 0.0},
        {"strict dip", L, kClamp, L, 0, 1, 1, 0, 3, 1, 0, 0, 0.0, 0.0},
        {"plateau", L, kClamp, L, 0, 0, 1, 1, 2, 1, 0, 0, 0.0, 0.0},
        {"left limited", L, kClamp, L, 0, 0, 1, 0.1, 2, 1, 0, 0, 0.3, 0.3, kTol},
        {"right limited", L, kClamp, L, 0, 0, 2, 0.9, 3, 1, 0, 0, 0.3, 0.3, kTol},
        {"no overshoot", L, kClamp, L, 0, 0, 1, 1, 4, 2, 0, 0, 0.5, 0.5, kTol},
        // spline forms with hL != hR, so that a swapped or mixed-up form shows
        {"both linear", L, kSpline, L, 0, 0, 1, 1, 3, 5, 7, 3, 4.0 / 3, 4.0 / 3, kTol},
        {"prev linear", L, kSpline, S, 0, 0, 1, 1, 3, 5, 7, 1, 1.6, 1.6, kTol},
        {"prev curved", S, kSpline, L, 0, 0, 2, 1, 3, 5, 0.5, 3, 2.6, 2.6, kTol}};
    for (const auto& c : rows) {
        const D d = Derivs(c.prev, c.kind, c.next, c.tP, c.vP, c.tC, c.vC, c.tN, c.vN, c.dP, c.dN);
        EXPECT_NEAR(d.first, c.left, c.tol) << c.name;
        EXPECT_NEAR(d.second, c.right, c.tol) << c.name;
    }
}

// At a curve end every kind takes the one-sided rule (Constant ignores the stored
// slope there); only Smooth and Spline copy the existing side to the missing one.
TEST(AutoTangentTest, CurveEndsMirrorOnlySmoothAndSpline)
{
    struct End { K kind; D last, first; };
    for (const End& e : {End{S, {1.5, 1.5}, {0.5, 0.5}}, End{kSpline, {1.5, 1.5}, {0.5, 0.5}},
                         End{L, {1.5, 0}, {0, 0.5}}, End{C, {1.5, 0}, {0, 0.5}},
                         End{kClamp, {1.5, 0}, {0, 0.5}}, End{kFlat, {0, 0}, {0, 0}}}) {
        EXPECT_EQ(Derivs(L, e.kind, N, 0, 0.0, 2, 3.0, J, JV, 5, 9), e.last) << e.kind;
        EXPECT_EQ(Derivs(N, e.kind, L, J, JV, 1, 1.0, 5, 3.0, 9, 5), e.first) << e.kind;
    }
}

// Values are read as numbers: booleans 1/0, wide integers and floats converted, empty and text (even "5")
// 0. A key of no kind between two neighbours is an error that writes nothing.
TEST(AutoTangentTest, ValueReadingAndNoneBetweenNeighbours)
{
    EXPECT_EQ(Derivs(L, L, L, 0, ValAny(false), 1, ValAny(true), 3, ValAny(false)), D(1.0, -0.5));
    EXPECT_EQ(Derivs(L, L, L, 0, ValAny("5"), 1, ValAny(), 2, ValAny(3.0)), D(0.0, 3.0));
    EXPECT_EQ(Derivs(L, L, L, 0, ValAny(uint64_t{1} << 63), 1, ValAny(1.5f), 2, ValAny(int32_t{-3})),
              D(1.5 - 0x1p63, -4.5));
    double l = -42.0, r = -42.0;
    try {
        autoComputeDerivatives(L, N, L, 0, 0.0, 1, 1.0, 2, 2.0, 0, 0, &l, &r);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Cannot compute derivatives at eKeyframeTypeNone");
    }
    EXPECT_EQ(D(l, r), D(-42.0, -42.0));
}
