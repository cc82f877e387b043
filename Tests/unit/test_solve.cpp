// Inverse evaluation of a segment and the closed-form real cubic root finder.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "Interpolation.h"

using namespace Interpolation;
using namespace core;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr auto C = eKeyframeTypeConstant, L = eKeyframeTypeLinear, S = eKeyframeTypeSmooth;

// solveCubic(c0, c1, c2, c3): count, roots in their documented order, and
// entries beyond the count left at the sentinel 99.
TEST(SolveCubic, RootsCountAndOrder)
{
    const struct { double c0, c1, c2, c3; std::vector<double> want; } cases[] = {
        // linear; no unknown at all; quadratic: larger root first
        {-3, 2, 0, 0, {1.5}}, {1, 0, 0, 0, {}}, {-2, -1, 1, 0, {2, -1}},
        // leading 5e-10 counts as zero: quadratic; quadratic double root; complex pair only
        {-1e-8, 0, 1e-8, 5e-10, {1, -1}}, {1, -2, 1, 0, {1}}, {1, 0, 1, 0, {}},
        // three roots: largest first; double root: simple root 0 first, then 1; one real root
        {0, -1, 0, 1, {1, 0, -1}}, {0, 1, -2, 1, {0, 1}}, {-2, 0, 0, 1, {std::cbrt(2.0)}}};
    for (const auto& k : cases) {
        double r[3] = {99, 99, 99};
        const int n = solveCubic(k.c0, k.c1, k.c2, k.c3, r);
        ASSERT_EQ(n, static_cast<int>(k.want.size())) << "case " << (&k - cases);
        for (int i = 0; i < 3; ++i)  // roots of unit size: a few ulps
            EXPECT_NEAR(r[i], i < n ? k.want[i] : 99.0, i < n ? 4 * DBL_EPSILON : 0.0) << "entry " << i;
    }
    double r[3];  // leading 2e-9 is above the tolerance: x^3 + 5x^2 - 5 (scaled) has three roots
    ASSERT_EQ(solveCubic(-1e-8, 0, 1e-8, 2e-9, r), 3);
    for (double x : r)
        EXPECT_NEAR(cubicEval(-5, 0, 5, 1, x), 0.0, 1e-12);  // well-conditioned roots of size <= 5
}

// Seeded sweep: every reported root satisfies its cubic.
TEST(SolveCubic, RootsSatisfyCubic)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-10.0, 10.0), lead(0.5, 5.0);
    for (int i = 0; i < 500; ++i) {
        const double c[4] = {u(rng), u(rng), u(rng), (i % 2 ? 1 : -1) * lead(rng)};
        double r[3];
        const int n = solveCubic(c[0], c[1], c[2], c[3], r);
        ASSERT_GE(n, 1);  // an odd-degree real polynomial has a real root
        for (int j = 0; j < n; ++j) {
            // scale: sum of |c_d| |x|^d; cbrt/acos lose digits near double roots: k=1e4 (seen ~1.2e3)
            const double x = std::fabs(r[j]);
            const double scale =
                std::fabs(c[0]) + x * (std::fabs(c[1]) + x * (std::fabs(c[2]) + x * std::fabs(c[3])));
            EXPECT_NEAR(cubicEval(c[0], c[1], c[2], c[3], r[j]), 0.0, 1e4 * DBL_EPSILON * scale)
                << "case " << i << " root " << j;
        }
    }
}

// solve(tcur, vcur, dRight, dLeft, tnext, vnext, value, interp, interpNext): the first root of the
// running-integral equation in normalised units, neither clamped nor converted to a time.
TEST(Solve, WorkedValues)
{
    const struct { double tcur, vcur, dr, dl, tnext, vnext, value; KeyframeInterpolationType a; double want; }
        cases[] = {
        // constant: 2x = 4, not scaled to a time; constant 0: no root, the target itself
        {10, 2, 5, 5, 30, 9, 4, C, 2}, {0, 0, 5, 5, 1, 9, 4, C, 4},
        // 0.5 x^2 = -0.5 has no real root: the target itself; x^3 - x = 0: largest of -1, 0, 1;
        // x^3 - 2x^2 + x = 0: double-root case gives 0
        {0, 0, 1, 1, 1, 1, -0.5, L, -0.5}, {0, -1, 0, 0, 1, 0, 0, S, 1}, {0, 1, -4, 2, 1, 0, 0, S, 0}};
    for (const auto& k : cases)  // exact or a few ulps of a unit root
        EXPECT_NEAR(solve(k.tcur, k.vcur, k.dr, k.dl, k.tnext, k.vnext, k.value, k.a, k.a), k.want,
                    4 * DBL_EPSILON) << "vcur=" << k.vcur << " value=" << k.value << " kind " << k.a;
    // Smooth segment (0,1)-(2,3) with slopes 0.5 and 1.5: x + x^2/4 + x^3/3 = value, even far beyond it.
    for (double value : {-3.0, 0.1, 1.7, 40.0}) {
        const double x = solve(0, 1, 0.5, 1.5, 2, 3, value, S, S);
        const double scale = std::fabs(value) + std::fabs(x) + 0.25 * x * x + std::fabs(x * x * x) / 3;
        EXPECT_NEAR(x + 0.25 * x * x + x * x * x / 3, value, 16 * DBL_EPSILON * scale) << value;
    }
}

TEST(SolveCubicDeathTest, NaNCoefficient)
{
    const char* re = R"re(Fatal check failed: \(c0 == c0 && c1 == c1 && c2 == c2 && c3 == c3\), )re"
                     R"re(function solveCubic, file .*Interpolation)re";
    for (int i = 0; i < 4; ++i) {
        double c[4] = {0, 1, 2, 3}, r[3];
        c[i] = kNaN;
        EXPECT_DEATH(solveCubic(c[0], c[1], c[2], c[3], r), re) << "coefficient " << i;
    }
    EXPECT_DEATH(solve(1, 0, 1, 1, 1, 1, 0.5, L, L), re);   // zero-length segment: slope term 0/0
}
