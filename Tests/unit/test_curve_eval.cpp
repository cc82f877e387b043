// Curve evaluation, clamping and type conversion, key lookups and range reset.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "keyframe_process.h"

using namespace core;
using V = ValAny;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr auto kLin = eKeyframeTypeLinear, kConst = eKeyframeTypeConstant;
using Query = bool (Parameter::*)(double, TimeValuePair*) const;
const Query kNearest = &Parameter::GetNearestKeyFrameWithTime, kPrev = &Parameter::GetPreviousKeyframeTime,
            kNext = &Parameter::GetNextKeyframeTime;

// A lone key keeps hand-set slopes: no neighbour is refreshed.
void OneKey(Parameter& c, double time, double v, KeyframeInterpolationType k, double left, double right)
{
    c.AddPoint(time, V(v), k);
    c.SetPointControlParam(0, left, right);
}

// The tag and the value: booleans as 0/1, text as its first character, numbers as themselves.
std::pair<uint32_t, double> Num(const V& v)
{
    const uint32_t tag = v.GetTypeTag();
    return {tag, tag == V::kText ? v.Get<const char*>()[0]
                 : tag == V::kBool ? v.Get<bool>() : v.Get<double>()};
}

}  // namespace

// An empty curve evaluates to int 0 for every type; its neighbour queries find
// nothing and leave the caller's record alone.
TEST(CurveEval, EmptyCurve)
{
    for (int type : {0, 1, 2, 3, 7}) {
        Parameter c(0.0, V(2.0), kLin, static_cast<ParameterTypeEnum>(type));  // makes no key
        TimeValuePair rec(4.0, V(9), eKeyframeTypeSpline, 1.0, 2.0);
        for (double t : {-1e9, 0.0, 3.5, kNaN}) {
            for (bool clamp : {false, true})
                EXPECT_EQ(Num(c.GetValue(t, clamp)), std::make_pair(+V::kInt32, 0.0)) << type << " " << t;
            for (Query q : {kNearest, kPrev, kNext})
                EXPECT_FALSE((c.*q)(t, &rec));
        }
        EXPECT_EQ(std::make_pair(rec.GetTime(), rec.GetValue().Get<int>()), std::make_pair(4.0, 9));
    }
}

// One key at 0 with value 0 and slope s gives the line s*t; it is clamped (types 0 and 1 only,
// unless the range is the exact sentinel), then converted by type. An empty range keeps the default.
// One key at 2 with value 5 (kind, left, right slopes): a line with the left slope before it and the
// right one after it; a constant key stays flat after itself.
TEST(CurveEval, ConversionClampAndPhantomKeys)
{
    constexpr V::Tag kD = V::kDouble, kI = V::kInt32, kB = V::kBool, kX = V::kEmpty;  // kX: throws
    const V kMax(DBL_MAX), kMin(-DBL_MAX);
    const struct { int type; double slope, t; bool clamp; V lo, hi; V::Tag tag; double want; } cases[] = {
        {0, 150, 1, false, {}, {}, kD, 150}, {0, 150, 1, true, {}, {}, kD, 100},
        {0, 50, 1, true, {}, {}, kD, 50}, {0, 150, -1, true, {}, {}, kD, -100},
        {0, 150, 1, true, kMin, kMax, kD, 150},
        // the exact sentinel on one side only clamps; an inverted range: the top is tested first
        {0, 150, 1, true, kMin, V(120.0), kD, 120}, {0, 150, 1, true, V(400.0), V(10.0), kD, 10},
        {1, 2.9, 1, false, {}, {}, kI, 2}, {1, -2.9, 1, false, {}, {}, kI, -2},
        {1, 2.9, 1, true, {}, {}, kX, 0}, {1, 2.9, 1, true, V(INT_MIN), V(INT_MAX), kX, 0},
        {1, 2.9, 1, true, V(-2147483647), V(2147483647), kI, 2}, {2, 0.25, 1, true, {}, {}, kB, 1},
        {2, -0.25, 1, false, {}, {}, kB, 1}, {2, 0.25, 0, true, true, true, kB, 0},
        {3, 150, 1, true, {}, {}, kD, 150}, {7, 150, -1, true, {}, {}, kD, -150}};
    for (const auto& k : cases) {
        Parameter c(nullptr);
        OneKey(c, 0.0, 0.0, kLin, k.slope, k.slope);
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        if (k.lo.GetTypeTag() != V::kEmpty)
            c.SetValueRange(k.lo, k.hi);
        if (k.tag == kX)
            EXPECT_THROW(c.GetValue(k.t, k.clamp), AnyBadAccess) << &k - cases;
        else
            EXPECT_EQ(Num(c.GetValue(k.t, k.clamp)), std::make_pair(+k.tag, k.want)) << &k - cases;
    }
    const struct { KeyframeInterpolationType kind; double left, right, t, want; } phantoms[] = {
        {kLin, 0, 2, 3, 7}, {kLin, 0, 2, 1, 5}, {kLin, 2, 0, -100, -199}, {kLin, 2, 0, 1e6, 5},
        {kConst, 2, 2, 3, 5}, {kConst, 2, 2, 1, 3}, {kLin, 2, 2, 2, 5}};
    for (const auto& k : phantoms) {
        Parameter c(nullptr);
        OneKey(c, 2.0, 5.0, k.kind, k.left, k.right);
        EXPECT_EQ(c.GetValue(k.t, false).Get<double>(), k.want) << "phantom row " << &k - phantoms;
    }
}

// Each segment's power-basis cubic in s matches the evaluated curve (exactly at its start key),
// the phantom segments one time unit beyond the ends included.
TEST(CurveEval, KeysAndCubicCoefficients)
{
    Parameter c(nullptr);
    c.AddPoint(0, V(1.0), eKeyframeTypeSmooth);
    c.AddPoint(3, V(-4.0), eKeyframeTypeSpline);
    c.AddPoint(7, V(2.5), kConst);
    c.SetPointControlParam(0, 1.5, -2.0);  // a non-zero slope into the segment before 0
    const double starts[] = {-1, 0, 3, 7, 8};
    for (int seg = 0; seg < 4; ++seg) {
        const double t0 = starts[seg], len = starts[seg + 1] - t0;
        double c0, c1, c2, c3;
        c.GetCubicCoeffs(t0 + 0.5 * len, c0, c1, c2, c3);
        for (double s : {0.0, 0.25, 0.5, 0.75})
            EXPECT_NEAR(c0 + s * (c1 + s * (c2 + s * c3)), c.GetValue(t0 + s * len, false).Get<double>(),
                        s ? 1e-12 : 0) << "segment " << seg << " s " << s;
    }
    EXPECT_EQ(c.GetValue(kNaN, false).Get<double>(), 2.5);  // no key after NaN: flat from the last key
}

TEST(CurveEvalDeathTest, CubicCoefficientsOfEmptyCurve)
{
    Parameter c(nullptr);
    double c0, c1, c2, c3;
    EXPECT_DEATH(c.GetCubicCoeffs(1.0, c0, c1, c2, c3),
                 R"(Fatal check failed: \(keyFrames\.size\(\) >= 1\), function interParams)");
}

// Keys at 0, 10, 20 holding 1, 2, 3: index accessors, neighbour queries (nearest is the first key at
// or after t, else the last), range counts and exact lookup. NaN acts as in a walk with exact compares.
TEST(CurveEval, IndexAndTimeLookups)
{
    Parameter c(nullptr);
    for (int i = 0; i < 3; ++i)
        c.AddPoint(10.0 * i, V(1.0 + i), kLin);
    double l, r;
    const std::function<void(int)> calls[] = {
        [&](int i) { c.atIndex(i); }, [&](int i) { c.GetPointValue(i); }, [&](int i) { c.GetPointTime(i); },
        [&](int i) { c.GetInterpolationType(i); }, [&](int i) { c.GetPointControlParam(i, l, r); }};
    for (const auto& call : calls)
        for (int bad : {-1, 3}) {
            try {
                call(bad);
                ADD_FAILURE() << "no exception from accessor " << &call - calls << " at " << bad;
            } catch (const std::out_of_range& e) {
                EXPECT_STREQ(e.what(), "keyframe index out of range");
            }
        }
    const struct { Query q; double t, want; } queries[] = {  // want NaN: nothing found
        {kNearest, 11, 20}, {kNearest, 25, 20}, {kNearest, 10, 10}, {kNearest, -5, 0}, {kNearest, kNaN, 20},
        {kPrev, 10, 0},     {kPrev, 0, kNaN},   {kPrev, 25, 20},    {kPrev, kNaN, kNaN},
        {kNext, 10, 20},    {kNext, 20, kNaN},  {kNext, -1, 0},     {kNext, kNaN, kNaN}};
    for (const auto& k : queries) {
        TimeValuePair rec(-7.0, V(-7.0), eKeyframeTypeFlat, -7.0, -7.0);
        const bool found = !std::isnan(k.want);
        ASSERT_EQ((c.*k.q)(k.t, &rec), found) << "query row " << &k - queries;
        EXPECT_EQ(std::make_tuple(rec.GetTime(), rec.GetValue().Get<double>(), rec.GetInterpolation()),
                  found ? std::make_tuple(k.want, 1.0 + k.want / 10, kLin)  // the whole key is copied
                        : std::make_tuple(-7.0, -7.0, eKeyframeTypeFlat));
    }
    const double ranges[][3] = {{0, 20, 3},   {0.5, 19.5, 1}, {20, 0, 0},      {10, 10, 1},
                                {-1e9, 1e9, 3}, {0, kNaN, 0}, {kNaN, 20, 3}, {kNaN, kNaN, 0}};
    for (const auto& k : ranges)
        EXPECT_EQ(c.GetNKeyFramesInRange(k[0], k[1]), k[2]) << k[0] << ".." << k[1];
    const double indexes[][2] = {{0, 0}, {10, 1}, {20, 2}, {10.5, -1}, {-10, -1}, {kNaN, -1}};
    for (const auto& k : indexes)
        EXPECT_EQ(c.getTimeValuePairIndex(k[0]), k[1]) << k[0];
}

// Types 0-3 reset the range to their defaults (empty text for 3), other types keep it; keys are
// never touched.
TEST(CurveEval, ParameterTypeResetsRange)
{
    Parameter c(nullptr);
    OneKey(c, 1.0, 150.0, kLin, 0.5, -0.5);
    const struct { int type; V::Tag tag; double lo, hi; } cases[] = {
        {1, V::kInt32, -100, 100}, {7, V::kInt32, -100, 100}, {0, V::kDouble, -100, 100},
        {3, V::kText, 0, 0}};
    for (const auto& k : cases) {
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        V lo, hi;
        c.GetValueRange(lo, hi);
        EXPECT_EQ(c.GetParameterType(), k.type);
        EXPECT_EQ(Num(lo), std::make_pair(+k.tag, k.lo)) << k.type;
        EXPECT_EQ(Num(hi), std::make_pair(+k.tag, k.hi)) << k.type;
    }
    double l, r;
    c.GetPointControlParam(0, l, r);
    EXPECT_EQ(std::make_tuple(Num(c.GetPointValue(0)), l, r), std::make_tuple(Num(V(150.0)), 0.5, -0.5));
}
