// Cubic segment primitives: power-basis helpers, segment evaluation and area.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "Interpolation.h"

using namespace Interpolation;
using namespace core;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr auto C = eKeyframeTypeConstant, L = eKeyframeTypeLinear, S = eKeyframeTypeSmooth,
               N = eKeyframeTypeNone;

// Power-basis helpers, integrate(tcur, vcur, dRight, dLeft, tnext, vnext, time1, time2, interp, interpNext)
// and interpolate, with holders read as numbers.
TEST(InterpSegment, WorkedValues)
{
    EXPECT_EQ(cubicIntegrate(1, 2, 3, 4, 2), 30.0);
    EXPECT_EQ(cubicEval(2.5, 0, 0, 0, kNaN), 2.5);  // zero coefficients give 0.0 even for a NaN power
    EXPECT_EQ(cubicIntegrate(0, 0, 0, 0, kNaN), 0.0);
    double c[4];  // Hermite data (p0, m0, m1, p1) -> c0..c3
    hermiteToCubicCoeffs(1, 2, 3, 4, &c[0], &c[1], &c[2], &c[3]);
    EXPECT_EQ(std::vector<double>(c, c + 4), std::vector<double>({1, 2, 2, -1}));
    EXPECT_EQ(integrate(0, 1, 2, 2, 4, 9, 2, 2, L, L), 0.0);     // empty interval
    EXPECT_EQ(integrate(1, 2.5, 9, 9, 5, 7, 1, 5, C, L), 10.0);  // constant: vcur*(tnext-tcur)
    EXPECT_EQ(integrate(0, 0, 0, 0, 1, 1, 0, 1, S, S), 0.5);     // smoothstep
    EXPECT_EQ(integrate(0, 1, 2, 2, 4, 9, 0, 4, L, L), 20.0);    // line 1+2t on [0,4]
    EXPECT_EQ(integrate(0, 1, 2, 2, 4, 9, 1, 3, L, L), 10.0);    // inner interval
    EXPECT_EQ(integrate(0, 1, 2, 0, 1, 0, 0, 3, L, N), 12.0);    // past the last key: 1+2t on [0,3]
    EXPECT_EQ(integrate(-1, 0, 0, 1, 0, 1, -3, 0, N, L), -1.5);  // before the first key: 1+t on [-3,0]
    EXPECT_EQ(integrate(0, 0, 0, 0, 1, 0, 0, kInf, L, N), 0.0);  // zero coefficients, infinite time
    // interpolate(tcur, vcur, dRight, dLeft, tnext, vnext, time, interp, interpNext)
    const struct { double tcur, vcur, dr, dl, tnext, vnext, time; decltype(L) a, b; double want; }
        cases[] = {
        // chord slopes: straight line between the keys; smoothstep midpoint; the cubic continues beyond
        {0, 1, 2, 2, 4, 9, 1, L, L, 3}, {0, 0, 0, 0, 1, 1, 0.5, S, S, 0.5}, {0, 0, 0, 0, 1, 1, 2, S, S, -4},
        // constant holds vcur outside the segment too; zero length: s infinite, zero terms stay 0
        {1, 7, 9, 9, 3, 5, -10, C, S, 7}, {1, 7, 9, 9, 1, 5, 50, C, L, 7},
        // after the last key: vcur + dRight*D*(time-tcur) with D = tnext-tcur; D = 0 gives a flat line
        {1, 5, 3, 0, 3, 0, 4, L, N, 23}, {1, 5, 3, 0, 1, 0, 40, L, N, 5},
        // before the first key: vnext + dLeft*D*(time-tnext); no neighbours: the line through the only key
        {3, 0, 0, 2, 5, 3, 2, N, L, -9}, {4, 0, 0, 2, 5, 3, 7, N, N, 7}};
    for (const auto& k : cases)
        EXPECT_EQ(interpolate(k.tcur, k.vcur, k.dr, k.dl, k.tnext, k.vnext, k.time, k.a, k.b), k.want)
            << &k - cases;
    // Holders read as numbers: booleans 1/0, numeric kinds converted, anything else 0.
    const struct { ValAny v; double want; } holders[] = {
        {ValAny(true), 1}, {ValAny(false), 0}, {ValAny(), 0}, {ValAny("7"), 0}, {ValAny(int32_t{-3}), -3},
        {ValAny(uint64_t{1} << 63), 0x1p63}, {ValAny(1.5f), 1.5}, {ValAny(2.25), 2.25}};
    for (const auto& k : holders) {
        EXPECT_EQ(interpolate(0, k.v, 0, 0, 1, ValAny(9.0), 0.5, C, L), k.want);  // as vcur
        EXPECT_EQ(interpolate(0, ValAny(9.0), 0, 0, 1, k.v, 1, N, L), k.want);    // as vnext
    }
}

// Seeded random smooth segments: end values, area against Simpson (exact for cubics), additivity.
TEST(InterpSegment, RandomSegmentIdentities)
{
    std::mt19937 rng(20240611);
    std::uniform_real_distribution<double> u(-10.0, 10.0), len(0.1, 5.0);
    for (int i = 0; i < 200; ++i) {
        const double t0 = u(rng), t1 = t0 + len(rng), v0 = u(rng), v1 = u(rng), d0 = u(rng), d1 = u(rng);
        const auto f = [&](double t) { return interpolate(t0, v0, d0, d1, t1, v1, t, S, S); };
        const auto area = [&](double x, double y) { return integrate(t0, v0, d0, d1, t1, v1, x, y, S, S); };
        // scale bounds every Hermite term; k=8 allows a few roundings (seen <2)
        const double scale = std::fabs(v0) + std::fabs(v1) + (std::fabs(d0) + std::fabs(d1)) * (t1 - t0);
        EXPECT_EQ(f(t0), v0);
        EXPECT_NEAR(f(t1), v1, 8 * DBL_EPSILON * scale);
        const double h = (t1 - t0) / 64, a = t0 + 0.2 * (t1 - t0), b = t0 + 0.7 * (t1 - t0);
        double simpson = f(t0) + f(t1);
        for (int j = 1; j < 64; ++j)
            simpson += (j % 2 ? 4 : 2) * f(t0 + j * h);
        const double tol = 16 * DBL_EPSILON * scale * (t1 - t0);
        EXPECT_NEAR(area(t0, t1), simpson * h / 3, tol);
        EXPECT_NEAR(area(t0, t1), area(t0, a) + area(a, b) + area(b, t1), tol);  // additive
    }
}

TEST(InterpIntegrateDeathTest, PreconditionViolations)
{
    const char* re =
        R"re(Fatal check failed: \(\(\(interp == eKeyframeTypeNone\) \|\| \(tcur <= time1\)\) && )re"
        R"re(\(time1 <= time2\) && \(\(time2 <= tnext\) \|\| \(interpNext == eKeyframeTypeNone\)\)\), )re"
        R"re(function integrate, file .*Interpolation)re";
    EXPECT_DEATH(integrate(0, 1, 2, 2, 4, 9, 1, 4.5, L, L), re);   // time2 > tnext
    EXPECT_DEATH(integrate(0, 1, 2, 2, 4, 9, -1, 2, L, L), re);    // time1 < tcur
    EXPECT_DEATH(integrate(0, 1, 2, 2, 4, 9, 3, 2, N, N), re);     // time1 > time2, even unbounded
    EXPECT_DEATH(integrate(0, 1, 2, 2, 4, 9, 1, kNaN, N, N), re);  // NaN time2
}
