// The curve: evaluation, clamping and type conversion, key lookups, editing with tangent maintenance,
// indexes and collisions, value equality by type, and its fatal stops.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "QMXKeyFrameGuids.h"
#include "keyframe_process.h"

namespace {

using namespace core;
using V = ValAny;
using Tans = std::vector<std::pair<double, double>>;  // left and right derivative of each key
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr KeyframeInterpolationType kConst = eKeyframeTypeConstant, kLin = eKeyframeTypeLinear,
    kSmooth = eKeyframeTypeSmooth, kFree = eKeyframeTypeFree, kNone = eKeyframeTypeNone;
using Query = bool (Parameter::*)(double, TimeValuePair*) const;
const Query kNearest = &Parameter::GetNearestKeyFrameWithTime, kPrev = &Parameter::GetPreviousKeyframeTime,
            kNext = &Parameter::GetNextKeyframeTime;

// The tag and the value: booleans as 0/1, text as its first character, numbers as themselves.
std::pair<uint32_t, double> Num(const V& v)
{
    const uint32_t tag = v.GetTypeTag();
    return {tag, tag == V::kText ? v.Get<const char*>()[0] : tag == V::kBool ? v.Get<bool>() : v.Get<double>()};
}

// A double curve read from JSON nodes [time, value, kind, left, right]: tangents stored as given.
std::unique_ptr<Parameter> Load(const std::string& nodes)
{
    auto p = std::make_unique<Parameter>(nullptr);
    p->Desialize(("{\"ParamType\":0,\"MinValue\":-100.0,\"MaxValue\":100.0,\"nodes\":" + nodes + "}")
                     .c_str());
    return p;
}

void ExpectTangents(const Parameter& p, const Tans& want)
{
    ASSERT_EQ(p.GetKeyFramesCount(), static_cast<int>(want.size()));
    for (int i = 0; i < p.GetKeyFramesCount(); ++i) {
        double l = 0, r = 0;
        p.GetPointControlParam(i, l, r);
        EXPECT_NEAR(l, want[i].first, 1e-12) << "key " << i;
        EXPECT_NEAR(r, want[i].second, 1e-12) << "key " << i;
    }
}

// The text, and so Load, names kinds and types by these numbers.
static_assert(kConst == 0 && kLin == 1 && eKeyframeTypeSmoothClamped == 2 && kSmooth == 3 && eKeyframeTypeSpline == 4 &&
              eKeyframeTypeFlat == 5 && kFree == 6 && kNone == 7 && eParameterTypeDouble == 0 &&
              eParameterTypeInt == 1 && eParameterTypeBool == 2 && eParameterTypeString == 3);
const char* const kRefreshCheck =
    "Fatal check failed: \\(key != timeValueSets\\.end\\(\\) && "
    "key->GetInterpolation\\(\\) != eKeyframeTypeNone &&key->GetInterpolation\\(\\) != eKeyframeTypeFree\\), "
    "function refreshDerivatives, file .*keyframe_process";

}  // namespace

// An empty curve evaluates to int 0 for every type; its neighbour queries find
// nothing and leave the caller's record alone. Its interface query checks the out pointer.
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
    // (Queries, counts and aggregation of the curve's interfaces: the module tests and the tool's check.)
    EXPECT_EQ(Parameter(nullptr).NonDelegatingQueryInterface(IID_IQMXKeyFrameKV, nullptr), E_POINTER);
}

// One key at 0 with value 0 and slope s gives the line s*t; it is clamped (types 0 and 1 only,
// unless the range is the exact sentinel), then converted by type. An empty range keeps the default.
// (The segments beyond the end keys are checked against a plain model with the edits.)
TEST(CurveEval, ConversionAndClamp)
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
        c.AddPoint(0.0, V(0.0), kLin);
        c.SetPointControlParam(0, k.slope, k.slope);  // a lone key keeps hand-set slopes
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        if (k.lo.GetTypeTag() != V::kEmpty)
            c.SetValueRange(k.lo, k.hi);
        if (k.tag == kX)
            EXPECT_THROW(c.GetValue(k.t, k.clamp), AnyBadAccess) << &k - cases;
        else
            EXPECT_EQ(Num(c.GetValue(k.t, k.clamp)), std::make_pair(+k.tag, k.want)) << &k - cases;
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
        [&](int i) { c.GetInterpolationType(i); }, [&](int i) { c.GetPointControlParam(i, l, r); },
        [&](int) { c.RemovePoint(3); }};  // removal: only the count itself throws
    for (const auto& call : calls)
        for (int bad : {-1, 3})
            try {
                call(bad);
                ADD_FAILURE() << "no exception from accessor " << &call - calls << " at " << bad;
            } catch (const std::out_of_range& e) {
                EXPECT_STREQ(e.what(), "keyframe index out of range");
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
    c.AddPoint(1.0, V(150.0), kLin);
    c.SetPointControlParam(0, 0.5, -0.5);
    const struct { int type; V::Tag tag; double lo, hi; } cases[] = {
        {1, V::kInt32, -100, 100}, {7, V::kInt32, -100, 100}, {0, V::kDouble, -100, 100},
        {3, V::kText, 0, 0}};
    for (const auto& k : cases) {
        c.SetParameterType(static_cast<ParameterTypeEnum>(k.type));
        V lo, hi;
        c.GetValueRange(lo, hi);
        EXPECT_EQ(std::make_tuple(c.GetParameterType(), Num(lo), Num(hi)),
                  std::make_tuple(k.type, std::make_pair(+k.tag, k.lo), std::make_pair(+k.tag, k.hi)));
    }
    double l, r;
    c.GetPointControlParam(0, l, r);
    EXPECT_EQ(std::make_tuple(Num(c.GetPointValue(0)), l, r), std::make_tuple(Num(V(150.0)), 0.5, -0.5));
}

// A key at an existing time replaces the old one whole, even through the raw insert (which says it
// added nothing); bool curves force constant keys when adding only. (Indexes returned by adding and
// collisions among the automatic kinds: the plain model's edit sequences.)
TEST(CurveEditTest, CollisionsAndForcedKinds)
{
    Parameter p(nullptr);
    p.AddPoint(10, 1.0, kLin);
    EXPECT_FALSE(p.addTimeValuePair(TimeValuePair(10, 7.0, kFree, 3, 4)).second);
    EXPECT_EQ(std::make_tuple(p.GetKeyFramesCount(), p.GetPointValue(0).Get<double>(), p.GetInterpolationType(0)),
              std::make_tuple(1, 7.0, kFree));
    Parameter c(0.0, ValAny(), kLin, eParameterTypeBool);  // no key; adding forces constant keys
    c.AddPointWithoutIndex(1, true, kFree);  // or refreshing a free key would stop the program
    c.SetPointInterpolationType(0, kSmooth);  // only adding forces the kind
    EXPECT_EQ(c.GetInterpolationType(0), kSmooth);
}

// An equal value leaves a lone key (and its hand-set tangents 7, 8) alone, a different one replaces it,
// and a stored value the curve's type cannot read throws before anything changes.
TEST(CurveEditTest, SetPointValueEqualityByType)
{
    enum Outcome { kKeeps, kReplaces, kThrows };
    constexpr ParameterTypeEnum D = eParameterTypeDouble, I = eParameterTypeInt, B = eParameterTypeBool;
    const int64_t low5 = (int64_t{1} << 32) + 5;  // low 32 bits: 5
    struct Row { ParameterTypeEnum type; ValAny stored, value; Outcome outcome; };
    const std::vector<Row> rows = {
        {D, 5.0, 5, kKeeps}, {D, 5, 5.0f, kKeeps}, {D, 5.0, 5.5, kReplaces}, {D, 5.0, "5", kReplaces},
        {D, "x", 2.0, kThrows}, {I, 5, low5, kKeeps}, {I, 5, uint32_t{5}, kKeeps}, {I, 5, low5 + 1, kReplaces},
        {I, 5, 5.0, kReplaces}, {I, low5, 2, kThrows}, {B, true, true, kKeeps}, {B, true, false, kReplaces},
        {B, true, 1, kReplaces}, {B, 1, 2.0, kThrows}, {eParameterTypeString, "a", 3.0, kKeeps}};
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &r - rows.data());
        Parameter p(0.0, ValAny(), kLin, r.type);  // no key yet
        p.AddPoint(0, r.stored, kLin);
        p.SetPointControlParam(0, 7, 8);
        if (r.outcome == kThrows)
            EXPECT_THROW(p.SetPointValue(0, r.value), AnyBadAccess);
        else
            p.SetPointValue(0, r.value);
        const ValAny& kept = r.outcome == kReplaces ? r.value : r.stored;
        EXPECT_EQ(p.GetPointValue(0).GetTypeTag(), kept.GetTypeTag());
        ExpectTangents(p, {r.outcome == kReplaces ? std::pair(0.0, 0.0) : std::pair(7.0, 8.0)});
    }
}

// Keys of kind free or none are never refreshed: adding or switching to them, or editing a key or a
// key's tangents next to them, stops the program; removal does not skip a none neighbour either. The
// change handlers stop at the end iterator; an empty curve has no cubic.
TEST(CurveDeathTest, FatalStops)
{
    for (KeyframeInterpolationType k : {kFree, kNone}) {
        auto p = Load("[[0,1,1,0,0]]");
        EXPECT_DEATH(p->AddPoint(1, 1.0, k), kRefreshCheck);
        EXPECT_DEATH(p->SetPointInterpolationType(0, k), kRefreshCheck);
    }
    auto p = Load("[[0.0,1.0,6,0.5,0.5],[1.0,2.0,1,0.0,0.0]]");
    EXPECT_DEATH(p->SetPointValue(1, 5.0), kRefreshCheck);
    EXPECT_DEATH(p->SetPointControlParam(1, 1.0, 1.0), kRefreshCheck);
    EXPECT_DEATH(Load("[[0,1,7,0,0],[1,2,1,0,0],[2,3,1,0,0]]")->RemovePoint(1), kRefreshCheck);
    Parameter c(nullptr);  // the one key's successor is the end
    const Parameter::iterator end = std::next(c.addTimeValuePair(TimeValuePair(0, 1.0, kLin)).first);
    EXPECT_DEATH(c.evaluateCurveChanged(Parameter::eChangedReasonKeyframe, end),
                 "Fatal check failed: \\(key != timeValueSets\\.end\\(\\)\\), function evaluateCurveChanged");
    EXPECT_DEATH(c.refreshDerivatives(Parameter::eChangedReasonDerivatives, end), kRefreshCheck);
    double c0, c1, c2, c3;
    EXPECT_DEATH(Parameter(nullptr).GetCubicCoeffs(1.0, c0, c1, c2, c3),
                 R"(Fatal check failed: \(keyFrames\.size\(\) >= 1\), function interParams)");
}
