// Curve evaluation, clamping and type conversion, key lookups and range reset.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <utility>

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

// Booleans as 0/1, text as its first character (0 when empty), numbers as themselves.
double Num(const V& v)
{
    return v.GetTypeTag() == V::kText   ? v.Get<const char*>()[0]
           : v.GetTypeTag() == V::kBool ? v.Get<bool>()
                                        : v.Get<double>();
}

}  // namespace

// An empty curve evaluates to int 0 for every type; its neighbour queries find
// nothing and leave the caller's record alone.
TEST(CurveEval, EmptyCurve)
{
    for (int type : {0, 1, 2, 3, 7}) {
        Parameter c(0.0, V(2.0), kLin, static_cast<ParameterTypeEnum>(type));  // makes no key
        for (double t : {-1e9, 0.0, 3.5, kNaN}) {
            for (bool clamp : {false, true})
                EXPECT_EQ(std::make_pair(c.GetValue(t, clamp).GetTypeTag(), c.GetValue(t, clamp).Get<int>()),
                          std::make_pair(+V::kInt32, 0)) << type << " " << t;
            TimeValuePair rec(4.0, V(9), eKeyframeTypeSpline, 1.0, 2.0);
            for (Query q : {kNearest, kPrev, kNext})
                EXPECT_FALSE((c.*q)(t, &rec));
            EXPECT_EQ(std::make_pair(rec.GetTime(), rec.GetValue().Get<int>()), std::make_pair(4.0, 9));
        }
    }
}

// One key at 0 with value 0 and slope s on both sides gives the line s*t; it is
// clamped (types 0 and 1 only, unless the range is the exact sentinel), then
// converted by type. An empty range keeps the default; tag kEmpty means AnyBadAccess.
TEST(CurveEval, ConversionAndClampByType)
{
    const struct { int type; double slope, t; bool clamp; V lo, hi; V::Tag tag; double want; } cases[] = {
        {0, 150, 1, false, {}, {}, V::kDouble, 150},  {0, 150, 1, true, {}, {}, V::kDouble, 100},
        {0, 150, -1, true, {}, {}, V::kDouble, -100}, {0, 50, 1, true, {}, {}, V::kDouble, 50},
        {0, 150, 1, true, V(-DBL_MAX), V(DBL_MAX), V::kDouble, 150},
        {0, 150, 1, true, V(-DBL_MAX), V(120.0), V::kDouble, 120},
        {0, 150, 1, true, V(400.0), V(10.0), V::kDouble, 10},  // inverted: the top is tested first
        {0, 150, 1, true, V(400.0), V(300.0), V::kDouble, 400},
        {1, 2.9, 1, false, {}, {}, V::kInt32, 2},     {1, -2.9, 1, false, {}, {}, V::kInt32, -2},
        {1, 2.9, 1, true, {}, {}, V::kEmpty, 0},      {1, 2.9, 1, true, V(INT_MIN), V(INT_MAX), V::kEmpty, 0},
        {1, 2.9, 1, true, V(-2147483647), V(2147483647), V::kInt32, 2},
        {2, 0.25, 1, true, {}, {}, V::kBool, 1},      {2, -0.25, 1, false, {}, {}, V::kBool, 1},
        {2, 0.25, 0, true, V(true), V(true), V::kBool, 0},
        {3, 150, 1, true, {}, {}, V::kDouble, 150},   {7, 150, -1, true, {}, {}, V::kDouble, -150}};
    for (const auto& k : cases) {
        SCOPED_TRACE(testing::Message() << "type " << k.type << " slope " << k.slope << " t " << k.t);
        Parameter c(nullptr);
        OneKey(c, 0.0, 0.0, kLin, k.slope, k.slope);
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        if (k.lo.GetTypeTag() != V::kEmpty)
            c.SetValueRange(k.lo, k.hi);
        if (k.tag == V::kEmpty) {
            EXPECT_THROW(c.GetValue(k.t, k.clamp), AnyBadAccess);
            continue;
        }
        const V v = c.GetValue(k.t, k.clamp);
        EXPECT_EQ(std::make_pair(v.GetTypeTag(), Num(v)), std::make_pair(+k.tag, k.want));
    }
}

// One key at 2 with value 5: a line with the left slope before it and the right
// slope after it, the key's value at it; a constant key stays flat after itself.
TEST(CurveEval, PhantomKeysBeyondTheEnds)
{
    const struct { KeyframeInterpolationType kind; double left, right, t, want; } cases[] = {
        {kLin, 0, 0, -100, 5}, {kLin, 0, 0, 1e6, 5}, {kLin, 0, 2, 3, 7},   {kLin, 0, 2, 1, 5},
        {kLin, 2, 0, 1, 3},    {kLin, 2, 0, 3, 5},   {kConst, 2, 2, 3, 5}, {kConst, 2, 2, 1, 3},
        {kLin, 2, 2, 2, 5},    {kConst, 2, 2, 2, 5}};
    for (const auto& k : cases) {
        Parameter c(nullptr);
        OneKey(c, 2.0, 5.0, k.kind, k.left, k.right);
        EXPECT_EQ(c.GetValue(k.t, false).Get<double>(), k.want) << k.kind << " " << k.left << k.right << " t=" << k.t;
    }
}

// Each segment's power-basis cubic in s matches the evaluated curve (exactly at
// its start key), the phantom segments one time unit beyond the ends included.
TEST(CurveEval, KeysAndCubicCoefficients)
{
    Parameter c(nullptr);
    const double times[] = {0, 3, 7}, values[] = {1.0, -4.0, 2.5};
    const KeyframeInterpolationType kinds[] = {eKeyframeTypeSmooth, eKeyframeTypeSpline, kConst};
    for (int i = 0; i < 3; ++i)
        c.AddPoint(times[i], V(values[i]), kinds[i]);
    c.SetPointControlParam(0, 1.5, -2.0);  // a non-zero slope into the segment before 0
    const double starts[] = {-1, 0, 3, 7}, ends[] = {0, 3, 7, 8};
    for (int seg = 0; seg < 4; ++seg) {
        double c0, c1, c2, c3;
        c.GetCubicCoeffs(0.5 * (starts[seg] + ends[seg]), c0, c1, c2, c3);
        for (double s : {0.0, 0.25, 0.5, 0.75})
            EXPECT_NEAR(c0 + c1 * s + c2 * s * s + c3 * s * s * s,
                        c.GetValue(starts[seg] + s * (ends[seg] - starts[seg]), false).Get<double>(), s ? 1e-12 : 0)
                << "segment " << seg << " s " << s;
    }
    // No key lies after NaN: it evaluates the flat segment from the last (constant) key.
    EXPECT_EQ(c.GetValue(kNaN, false).Get<double>(), 2.5);
}

TEST(CurveEvalDeathTest, CubicCoefficientsOfEmptyCurve)
{
    Parameter c(nullptr);
    double c0, c1, c2, c3;
    EXPECT_DEATH(c.GetCubicCoeffs(1.0, c0, c1, c2, c3),
                 R"(Fatal check failed: \(keyFrames\.size\(\) >= 1\), function interParams)");
}

// Keys at 0, 10, 20 holding 1, 2, 3: index accessors, neighbour queries (nearest
// is the first key at or after t, else the last), range counts and exact lookup.
// NaN behaves as a walk over the keys with exact comparisons would.
TEST(CurveEval, IndexAndTimeLookups)
{
    Parameter c(nullptr);
    for (int i = 0; i < 3; ++i)
        c.AddPoint(10.0 * i, V(1.0 + i), kLin);
    EXPECT_EQ(c.atIndex(2)->GetTime(), 20.0);
    double l, r;
    const std::function<void()> calls[] = {
        [&] { c.atIndex(3); }, [&] { static_cast<const Parameter&>(c).atIndex(3); }, [&] { c.GetPointValue(3); },
        [&] { c.GetPointTime(3); }, [&] { c.GetInterpolationType(3); }, [&] { c.GetPointControlParam(3, l, r); }};
    for (const auto& call : calls) {
        try {
            call();
            ADD_FAILURE() << "no exception from accessor " << &call - calls;
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
        EXPECT_EQ(std::make_pair(rec.GetTime(), rec.GetValue().Get<double>()),  // the whole key is copied
                  found ? std::make_pair(k.want, 1.0 + k.want / 10) : std::make_pair(-7.0, -7.0));
        EXPECT_EQ(rec.GetInterpolation(), found ? kLin : eKeyframeTypeFlat);
    }
    const double ranges[][3] = {{0, 20, 3},   {0.5, 19.5, 1}, {20, 0, 0},      {10, 10, 1},
                                {-1e9, 1e9, 3}, {0, kNaN, 0}, {kNaN, 20, 3}, {kNaN, kNaN, 0}};
    for (const auto& k : ranges)
        EXPECT_EQ(c.GetNKeyFramesInRange(k[0], k[1]), k[2]) << k[0] << ".." << k[1];
    const double indexes[][2] = {{0, 0}, {10, 1}, {20, 2}, {10.5, -1}, {-10, -1}, {kNaN, -1}};
    for (const auto& k : indexes)
        EXPECT_EQ(c.getTimeValuePairIndex(k[0]), k[1]) << k[0];
}

// Types 0-3 reset the range to their defaults (empty text for 3), other types keep
// it; keys are never touched.
TEST(CurveEval, ParameterTypeResetsRange)
{
    Parameter c(nullptr);
    OneKey(c, 1.0, 150.0, kLin, 0.5, -0.5);
    const struct { int type; V::Tag tag; double lo, hi; } cases[] = {
        {1, V::kInt32, -100, 100},  {2, V::kBool, 0, 1},          {7, V::kBool, 0, 1},
        {0, V::kDouble, -100, 100}, {7, V::kDouble, -100, 100}, {3, V::kText, 0, 0}};
    for (const auto& k : cases) {
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        V lo, hi;
        c.GetValueRange(lo, hi);
        EXPECT_EQ(c.GetParameterType(), k.type);
        ASSERT_EQ(std::make_pair(lo.GetTypeTag(), hi.GetTypeTag()), std::make_pair(+k.tag, +k.tag)) << k.type;
        EXPECT_EQ(std::make_pair(Num(lo), Num(hi)), std::make_pair(k.lo, k.hi)) << k.type;
    }
    double l, r;
    c.GetPointControlParam(0, l, r);
    EXPECT_EQ(c.GetPointValue(0).GetTypeTag(), V::kDouble);
    EXPECT_EQ(std::make_tuple(c.GetPointValue(0).Get<double>(), l, r), std::make_tuple(150.0, 0.5, -0.5));
}
