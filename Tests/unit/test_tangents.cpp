// Automatic tangents of one key from its neighbours, rule by rule.
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include "Interpolation.h"

namespace {

using core::ValAny;
using K = core::KeyframeInterpolationType;
using D = std::pair<double, double>;  // left and right derivative
constexpr K kConst = core::eKeyframeTypeConstant, kLin = core::eKeyframeTypeLinear,
            kClamp = core::eKeyframeTypeSmoothClamped, kSmooth = core::eKeyframeTypeSmooth,
            kSpline = core::eKeyframeTypeSpline, kFlat = core::eKeyframeTypeFlat,
            kFree = core::eKeyframeTypeFree, kNone = core::eKeyframeTypeNone;
constexpr double J = 1e6, JV = -123.0;  // time and value of a missing neighbour: ignored
constexpr double kTol = 1e-12;

D Derivs(K prev, K kind, K next, double tP, ValAny vP, double tC, ValAny vC, double tN, ValAny vN,
         double dP = 0, double dN = 0)
{
    D d{-99.0, -99.0};
    Interpolation::autoComputeDerivatives(prev, kind, next, tP, vP, tC, vC, tN, vN, dP, dN, &d.first,
                                          &d.second);
    return d;
}

}  // namespace

// A lone key is flat for every kind, eKeyframeTypeNone included (no throw); Free and
// kinds beyond the last one (8, 42; kept out of enum variables) are flat between keys.
TEST(AutoTangentTest, LoneFreeAndUnknownKindsGiveZero)
{
    for (int k : {0, 1, 2, 3, 4, 5, 6, 7, 8, 42}) {
        EXPECT_EQ(Derivs(kNone, static_cast<K>(k), kNone, J, JV, 2, 5.0, -J, 7.0, 9, 9), D(0, 0)) << k;
        if (k == kFree || k > kNone) {
            EXPECT_EQ(Derivs(kLin, static_cast<K>(k), kLin, 0, 0.0, 1, 2.0, 3, 5.0, 1, 1), D(0, 0)) << k;
        }
    }
}

// A key between its neighbours (times, values, stored slopes dP and dN) and the expected
// derivatives; tol 0 demands exact equality.
TEST(AutoTangentTest, WorkedRules)
{
    const struct {
        const char* name;
        K prev, kind, next;
        double tP, vP, tC, vC, tN, vN, dP, dN, left, right, tol = 0;
    } rows[] = {
        // linear: chord towards a linear neighbour (its slope unused), natural end towards a curved one
        {"chords (0,0),(1,1),(3,2)", kLin, kLin, kLin, 0, 0, 1, 1, 3, 2, 5, -4, 1.0, 0.5},
        {"natural right", kNone, kLin, kSmooth, J, JV, 0, 0, 2, 3, 9, 1, 0.0, 1.75},
        {"natural left", kSpline, kLin, kNone, -2, 1, 0, 4, J, JV, 0.5, 9, 2.0, 0.0},
        {"constant: left = dP", kSmooth, kConst, kLin, 0, 0, 2, 5, 3, 1, 0.75, 9, 0.75, 0.0},
        {"smooth, unequal", kSpline, kSmooth, kConst, 0, 1, 1, 7, 4, 3, 5, 5, 0.5, 0.5},
        // clamped smooth: flat at a strict peak or dip, else handles kept within each segment
        {"strict peak", kLin, kClamp, kLin, 0, 0, 1, 1, 2, 0, 0, 0, 0.0, 0.0},
        {"strict dip", kLin, kClamp, kLin, 0, 1, 1, 0, 3, 1, 0, 0, 0.0, 0.0},
        {"plateau", kLin, kClamp, kLin, 0, 0, 1, 1, 2, 1, 0, 0, 0.0, 0.0},
        {"left limited", kLin, kClamp, kLin, 0, 0, 1, 0.1, 2, 1, 0, 0, 0.3, 0.3, kTol},
        {"right limited", kLin, kClamp, kLin, 0, 0, 2, 0.9, 3, 1, 0, 0, 0.3, 0.3, kTol},
        {"no overshoot", kLin, kClamp, kLin, 0, 0, 1, 1, 4, 2, 0, 0, 0.5, 0.5, kTol},
        // spline forms with hL != hR, so that a swapped or mixed-up form shows
        {"both linear", kLin, kSpline, kLin, 0, 0, 1, 1, 3, 5, 7, 3, 4.0 / 3, 4.0 / 3, kTol},
        {"prev linear", kLin, kSpline, kSmooth, 0, 0, 1, 1, 3, 5, 7, 1, 1.6, 1.6, kTol},
        {"prev curved", kSmooth, kSpline, kLin, 0, 0, 2, 1, 3, 5, 0.5, 3, 2.6, 2.6, kTol}};
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
    for (const End& e : {End{kSmooth, {1.5, 1.5}, {0.5, 0.5}}, End{kSpline, {1.5, 1.5}, {0.5, 0.5}},
                         End{kLin, {1.5, 0}, {0, 0.5}}, End{kConst, {1.5, 0}, {0, 0.5}},
                         End{kClamp, {1.5, 0}, {0, 0.5}}, End{kFlat, {0, 0}, {0, 0}}}) {
        EXPECT_EQ(Derivs(kLin, e.kind, kNone, 0, 0.0, 2, 3.0, J, JV, 5, 9), e.last) << e.kind;
        EXPECT_EQ(Derivs(kNone, e.kind, kLin, J, JV, 1, 1.0, 5, 3.0, 9, 5), e.first) << e.kind;
    }
}

// Values are read as numbers: booleans 1/0, empty and text (even "5") 0. A key of no kind between
// two neighbours is an error that writes nothing.
TEST(AutoTangentTest, ValueReadingAndNoneBetweenNeighbours)
{
    EXPECT_EQ(Derivs(kLin, kLin, kLin, 0, ValAny(false), 1, ValAny(true), 3, ValAny(false)), D(1.0, -0.5));
    EXPECT_EQ(Derivs(kLin, kLin, kLin, 0, ValAny("5"), 1, ValAny(), 2, ValAny(3.0)), D(0.0, 3.0));
    EXPECT_EQ(Derivs(kLin, kLin, kLin, 0, ValAny(2.0), 1, ValAny("x"), 2, ValAny()), D(-2.0, 0.0));
    double l = -42.0, r = -42.0;
    try {
        Interpolation::autoComputeDerivatives(kLin, kNone, kLin, 0, 0.0, 1, 1.0, 2, 2.0, 0, 0, &l, &r);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Cannot compute derivatives at eKeyframeTypeNone");
    }
    EXPECT_EQ(D(l, r), D(-42.0, -42.0));
}
