#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "keyframe_process.h"

namespace {

using namespace core;
using Tans = std::vector<std::pair<double, double>>;  // left and right derivative of each key
constexpr KeyframeInterpolationType kConst = eKeyframeTypeConstant, kLin = eKeyframeTypeLinear,
    kClamp = eKeyframeTypeSmoothClamped, kSmooth = eKeyframeTypeSmooth, kSpline = eKeyframeTypeSpline,
    kFree = eKeyframeTypeFree, kNone = eKeyframeTypeNone;

// A double curve read from JSON nodes [time, value, kind, left, right]: tangents stored as given.
std::unique_ptr<Parameter> Load(const std::string& nodes)
{
    auto p = std::make_unique<Parameter>(nullptr);
    p->Desialize(("{\"ParamType\":0,\"MinValue\":-100.0,\"MaxValue\":100.0,\"nodes\":" + nodes + "}").c_str());
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

// Linear keys at times 0, 1, 2, 3 with values 0, 1, 3, 6 and stale tangents 9.
const char* kJ4 = "[[0,0,1,9,9],[1,1,1,9,9],[2,3,1,9,9],[3,6,1,9,9]]";
const char* kJ3 = "[[0,0,1,9,9],[1,1,1,9,9],[2,3,1,9,9]]";
const char* kJ2 = "[[0,0,1,9,9],[1,1,1,9,9]]";
const char* kFlat5 = "[[0,0,1,9,9],[1,0,1,9,9],[2,0,1,9,9],[3,0,1,9,9],[4,0,1,9,9]]";
const char* kBump5 = "[[0,0,1,9,9],[1,4,1,9,9],[2,0,1,9,9],[3,0,1,9,9],[4,0,1,9,9]]";
const char* kSmooth3 = "[[0,0,1,9,9],[1,10,3,9,9],[2,4,1,9,9]]";

}  // namespace

// Tangents after edits of curves with stale tangents (9): the edited key is recomputed first, then its
// neighbours with its fresh tangents; other keys keep theirs. End keys act as linear neighbours.
TEST(CurveEditTest, TangentsAfterEdits)
{
    struct Row { const char* nodes; void (*edit)(Parameter&); Tans want; };
    const std::vector<Row> rows = {
        // chords 1/1 and (2-1)/2; at the ends the missing side is 0
        {"[[0,0,1,9,9],[3,2,1,9,9]]", [](Parameter& p) { p.AddPoint(1, 1.0, kLin); }, {{0, 1}, {1, 0.5}, {0.5, 0}}},
        // flat ends are passed as linear: chords 1 and 3 (a flat prev would give 1.5*1)
        {"[[0,0,5,9,9],[2,4,5,9,9]]", [](Parameter& p) { p.AddPoint(1, 1.0, kLin); }, {{0, 0}, {1, 3}, {0, 0}}},
        // S=(4-0)/2=2; key0 R=1.5*10-0.5*(2*1)=14; key2 L=1.5*4-0.5*(2*1)-1.5*10=-10
        {"[[0,0,1,9,9],[2,4,1,9,9]]", [](Parameter& p) { p.AddPoint(1, 10.0, kSmooth); }, {{0, 14}, {2, 2}, {-10, 0}}},
        // no next key (none): L=2-0 mirrored to R; key0 sees the last key as linear: R=2
        {"[[0,0,1,9,9]]", [](Parameter& p) { p.AddPoint(1, 2.0, kSmooth); }, {{0, 2}, {2, 2}}},
        // d=((3-0)/1+(2-3)/1)/(1+1)=1; key0 R=1.5*3-0.5*1=4; key2 L=1.5*2-0.5*1-1.5*3=-2
        {"[[0,0,1,9,9],[2,2,1,9,9]]", [](Parameter& p) { p.AddPoint(1, 3.0, kSpline); }, {{0, 4}, {1, 1}, {-2, 0}}},
        // L=key0's R 2*1, R=0; key0 R=1.5*1-0.5*2=0.5; key2 L=1.5*4-0-1.5*1=4.5
        {"[[0,0,1,0,2],[2,4,1,2,0]]", [](Parameter& p) { p.AddPoint(1, 1.0, kConst); }, {{0, 0.5}, {2, 0}, {4.5, 0}}},
        // handle 0.1-0.5/3<0 limited to 0, right one scaled: 0.3 both; key0 R=0.15-0.15; key2 L=1.5-0.15-0.15
        {"[[0,0,1,9,9],[2,1,1,9,9]]", [](Parameter& p) { p.AddPoint(1, 0.1, kClamp); }, {{0, 0}, {0.3, 0.3}, {1.2, 0}}},
        // S=2/3, key0 R=1.5-0.5*2/3=7/6, key2 L=(3-0.5*4/3-1.5)/2=5/12; then key2 L=(7.5-2/3-1.5)/2=8/3 with
        // key1's old slope, key1 S=5/3, key0 (two away) keeps 7/6
        {"[[0,0,1,9,9],[1,1,1,9,9],[3,2,1,9,9]]", [](Parameter& p) { p.SetPointInterpolationType(1, kSmooth);
            p.SetPointValue(2, 5.0); }, {{0, 7.0 / 6}, {5.0 / 3, 5.0 / 3}, {8.0 / 3, 0}}},
        {kFlat5, [](Parameter& p) { p.SetPointValue(2, 4.0); }, {{9, 9}, {0, 4}, {4, -4}, {-4, 0}, {9, 9}}},
        // the old neighbours (t 0 and 2) keep their tangents; around 3.5 the chords are 4/0.5
        {kBump5, [](Parameter& p) { p.SetPointTime(1, 3.5); }, {{9, 9}, {9, 9}, {0, 8}, {8, -8}, {-8, 0}}},
        // moved onto t=20, replacing that key: (10,2), (20,1) with chord -1/10
        {"[[0,1,1,9,9],[10,2,1,9,9],[20,3,1,9,9]]", [](Parameter& p) { p.SetPointTime(0, 20); }, {{0, -0.1}, {-0.1, 0}}},
        // hand-set tangents feed the neighbours: key0 R=15-0.5*1=14.5, key2 L=6-0.5*3-15=-10.5
        {kSmooth3, [](Parameter& p) { p.SetPointControlParam(1, 1, 3); }, {{0, 14.5}, {1, 3}, {-10.5, 0}}},
        // ...and are lost when a neighbour changes: key0 R=15-0.75-0.5*1, key1 S=(4-0.5)/2
        {kSmooth3, [](Parameter& p) { p.SetPointControlParam(1, 1, 3); p.SetPointValue(0, 0.5); },
            {{0, 13.75}, {1.75, 1.75}, {-10.5, 0}}},
        {kJ3, [](Parameter& p) { p.SetPointControlParam(1, 9, 9); }, {{9, 9}, {9, 9}, {9, 9}}},
        {kJ3, [](Parameter& p) { p.setKeyFrameDerivativesInternal(6, 6.5, 1, nullptr); }, {{0, 1}, {6, 6.5}, {2, 0}}},
        {"[[0,0,1,7,8]]", [](Parameter& p) { p.SetPointTime(0, 0.0); p.SetPointInterpolationType(0, kLin); }, {{7, 8}}},
        // a neighbour of kind none is skipped: key1 chords 4 and -2
        {"[[0,1,7,4,4],[1,2,1,9,9],[2,3,1,9,9]]", [](Parameter& p) { p.SetPointValue(1, 5.0); }, {{4, 4}, {4, -2}, {-2, 0}}},
        {kJ3, [](Parameter& p) { p.RemovePoint(-1); p.RemovePoint(-5); p.RemovePoint(4); }, {{9, 9}, {9, 9}, {9, 9}}},
        // removing the first of more than two keys also refreshes the last key (wrap-around)
        {kJ3, [](Parameter& p) { p.RemovePoint(0); }, {{0, 2}, {2, 0}}},
        {kJ4, [](Parameter& p) { p.RemovePoint(0); }, {{0, 2}, {9, 9}, {3, 0}}},
        {kJ4, [](Parameter& p) { p.RemovePoint(1); }, {{0, 1.5}, {1.5, 3}, {9, 9}}},
        {kJ2, [](Parameter& p) { p.RemovePoint(0); }, {{0, 0}}},  // two keys: no wrap-around
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "row " << i);
        auto p = Load(rows[i].nodes);
        rows[i].edit(*p);
        ExpectTangents(*p, rows[i].want);
    }
}

// Indexes, collisions (the new key replaces the old one whole) and kinds forced on bool/text curves.
TEST(CurveEditTest, IndexesCollisionsAndForcedKinds)
{
    Parameter p(nullptr);
    EXPECT_EQ(p.AddPoint(10, 1.0, kLin), 0);
    EXPECT_EQ(p.AddPoint(0, 2.0, kLin), 0);
    EXPECT_EQ(p.AddPoint(5, 3.0, kLin), 1);
    EXPECT_EQ(p.AddPoint(5, 4.0, kSmooth), 1);
    EXPECT_EQ(p.GetKeyFramesCount(), 3);
    EXPECT_EQ(p.GetPointValue(1).Get<double>(), 4.0);
    EXPECT_EQ(p.GetInterpolationType(1), kSmooth);
    EXPECT_FALSE(p.addTimeValuePair(TimeValuePair(10, 7.0, kFree, 3, 4)).second);
    EXPECT_TRUE(p.addTimeValuePair(TimeValuePair(20, 7.0, kLin, 3, 4)).second);
    EXPECT_EQ(p.GetInterpolationType(2), kFree);
    EXPECT_THROW(p.RemovePoint(4), std::out_of_range);
    EXPECT_EQ(p.GetKeyFramesCount(), 4);

    for (ParameterTypeEnum type : {eParameterTypeBool, eParameterTypeString}) {
        Parameter c(nullptr);
        c.SetParameterType(type);
        c.AddPoint(0, true, kSmooth);
        c.AddPointWithoutIndex(1, "a", kFree);  // would stop the program if not forced
        c.SetPointInterpolationType(1, kSmooth);
        EXPECT_EQ(c.GetInterpolationType(0), kConst);
        EXPECT_EQ(c.GetInterpolationType(1), kSmooth);
    }
}

// An equal value leaves a lone key (and its hand-set tangents 7, 8) alone, a different one replaces it,
// and a stored value the curve's type cannot read throws before anything changes.
TEST(CurveEditTest, SetPointValueEqualityByType)
{
    enum Outcome { kKeeps, kReplaces, kThrows };
    const int64_t low5 = (int64_t{1} << 32) + 5;  // low 32 bits: 5
    struct Row { ParameterTypeEnum type; ValAny stored, value; Outcome outcome; };
    const std::vector<Row> rows = {
        {eParameterTypeDouble, 5.0, 5, kKeeps}, {eParameterTypeDouble, 5, 5.0f, kKeeps},
        {eParameterTypeDouble, 5.0, 5.5, kReplaces}, {eParameterTypeDouble, 5.0, "5", kReplaces},
        {eParameterTypeDouble, "x", 2.0, kThrows}, {eParameterTypeInt, 5, low5, kKeeps},
        {eParameterTypeInt, 5, uint32_t{5}, kKeeps}, {eParameterTypeInt, 5, low5 + 1, kReplaces},
        {eParameterTypeInt, 5, 5.0, kReplaces}, {eParameterTypeInt, low5, 2, kThrows},
        {eParameterTypeBool, true, true, kKeeps}, {eParameterTypeBool, true, 1, kReplaces},
        {eParameterTypeBool, 1, 2.0, kThrows}, {eParameterTypeString, "a", "b", kKeeps},
        {eParameterTypeString, "a", 3.0, kKeeps},
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "row " << i);
        const Row& r = rows[i];
        Parameter p(nullptr);
        p.SetParameterType(r.type);
        p.AddPoint(0, r.stored, kLin);
        p.SetPointControlParam(0, 7, 8);
        if (r.outcome == kThrows)
            EXPECT_THROW(p.SetPointValue(0, r.value), AnyBadAccess);
        else
            p.SetPointValue(0, r.value);
        EXPECT_EQ(p.GetPointValue(0).GetTypeTag(), (r.outcome == kReplaces ? r.value : r.stored).GetTypeTag());
        ExpectTangents(p, {r.outcome == kReplaces ? std::pair(0.0, 0.0) : std::pair(7.0, 8.0)});
    }
}

namespace {
const char* kRefreshCheck =
    "Fatal check failed: \\(key != timeValueSets\\.end\\(\\) && key->GetInterpolation\\(\\) != eKeyframeTypeNone "
    "&&key->GetInterpolation\\(\\) != eKeyframeTypeFree\\), function refreshDerivatives, file .*keyframe_process";
}  // namespace

// Keys of kind free or none are never refreshed: adding, switching to, editing them or their
// neighbours stops the program (removal does not skip a none neighbour either).
TEST(CurveEditDeathTest, FreeOrNoneKeyReachingRefresh)
{
    for (KeyframeInterpolationType k : {kFree, kNone}) {
        auto p = Load("[[0,1,1,0,0]]");
        EXPECT_DEATH(p->AddPoint(1, 1.0, k), kRefreshCheck);
        EXPECT_DEATH(p->AddPointWithoutIndex(1, 1.0, k), kRefreshCheck);
        EXPECT_DEATH(p->SetPointInterpolationType(0, k), kRefreshCheck);
    }
    auto p = Load("[[0.0,1.0,6,0.5,0.5],[1.0,2.0,1,0.0,0.0]]");
    EXPECT_DEATH(p->SetPointValue(1, 5.0), kRefreshCheck);
    EXPECT_DEATH(p->SetPointTime(1, 2.0), kRefreshCheck);
    EXPECT_DEATH(p->SetPointInterpolationType(1, kSmooth), kRefreshCheck);
    EXPECT_DEATH(p->SetPointControlParam(1, 1.0, 1.0), kRefreshCheck);
    EXPECT_DEATH(p->AddPoint(0.5, 1.0, kLin), kRefreshCheck);
    EXPECT_DEATH(p->RemovePoint(1), kRefreshCheck);
    EXPECT_DEATH(p->SetPointValue(0, 3.0), kRefreshCheck);
    EXPECT_DEATH(Load("[[0,1,7,0,0],[1,2,1,0,0],[2,3,1,0,0]]")->RemovePoint(1), kRefreshCheck);
}

TEST(CurveEditDeathTest, EndIterator)
{
    Parameter p(nullptr);  // the one key's successor is the end
    const Parameter::iterator end = std::next(p.addTimeValuePair(TimeValuePair(0, 1.0, kLin)).first);
    EXPECT_DEATH(p.evaluateCurveChanged(Parameter::eChangedReasonKeyframe, end),
                 "Fatal check failed: \\(key != timeValueSets\\.end\\(\\)\\), function evaluateCurveChanged");
    EXPECT_DEATH(p.refreshDerivatives(Parameter::eChangedReasonDerivatives, end), kRefreshCheck);
}
