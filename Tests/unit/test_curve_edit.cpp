// Curve editing: tangent maintenance after each edit, indexes and collisions, value equality by type.
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "keyframe_process.h"

namespace {

using namespace core;
using Tans = std::vector<std::pair<double, double>>;  // left and right derivative of each key
constexpr KeyframeInterpolationType kConst = eKeyframeTypeConstant, kLin = eKeyframeTypeLinear,
    kSmooth = eKeyframeTypeSmooth, kFree = eKeyframeTypeFree, kNone = eKeyframeTypeNone;

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

const char* kJ3 = "[[0,0,1,9,9],[1,1,1,9,9],[2,3,1,9,9]]";
const char* kBump5 = "[[0,0,1,9,9],[1,4,1,9,9],[2,0,1,9,9],[3,0,1,9,9],[4,0,1,9,9]]";
const char* kSmooth3 = "[[0,0,1,9,9],[1,10,3,9,9],[2,4,1,9,9]]";
const char* kRefreshCheck =
    "Fatal check failed: \\(key != timeValueSets\\.end\\(\\) && "
    "key->GetInterpolation\\(\\) != eKeyframeTypeNone &&key->GetInterpolation\\(\\) != eKeyframeTypeFree\\), "
    "function refreshDerivatives, file .*keyframe_process";

}  // namespace

// Tangents after edits of curves with stale tangents (9): the edited key is recomputed first, then its
// neighbours with its fresh tangents; other keys keep theirs. End keys act as linear neighbours.
TEST(CurveEditTest, TangentsAfterEdits)
{
    using P = Parameter;
    struct Row { const char* nodes; void (*edit)(P&); Tans want; };
    const std::vector<Row> rows = {
        // end keys: the missing side is 0; flat ends count as linear neighbours (chords 1 and 3)
        {"[[0,0,1,9,9],[3,2,1,9,9]]", [](P& p) { p.AddPoint(1, 1.0, kLin); }, {{0, 1}, {1, 0.5}, {0.5, 0}}},
        {"[[0,0,5,9,9],[2,4,5,9,9]]", [](P& p) { p.AddPoint(1, 1.0, kLin); }, {{0, 0}, {1, 3}, {0, 0}}},
        {"[[0,0,1,9,9]]", [](P& p) { p.AddPoint(1, 2.0, kSmooth); }, {{0, 2}, {2, 2}}},  // L mirrored to R
        // the second edit uses key1's old slope for key2; key0, two away, keeps 7/6
        {"[[0,0,1,9,9],[1,1,1,9,9],[3,2,1,9,9]]", [](P& p) { p.SetPointInterpolationType(1, kSmooth);
            p.SetPointValue(2, 5.0); }, {{0, 7.0 / 6}, {5.0 / 3, 5.0 / 3}, {8.0 / 3, 0}}},
        // moving a key: the old neighbours keep their tangents; onto t=20 it replaces that key
        {kBump5, [](P& p) { p.SetPointTime(1, 3.5); }, {{9, 9}, {9, 9}, {0, 8}, {8, -8}, {-8, 0}}},
        {"[[0,1,1,9,9],[10,2,1,9,9],[20,3,1,9,9]]", [](P& p) { p.SetPointTime(0, 20); },
            {{0, -0.1}, {-0.1, 0}}},
        // hand-set tangents feed the neighbours, and are lost when a neighbour changes
        {kSmooth3, [](P& p) { p.SetPointControlParam(1, 1, 3); }, {{0, 14.5}, {1, 3}, {-10.5, 0}}},
        {kSmooth3, [](P& p) { p.SetPointControlParam(1, 1, 3); p.SetPointValue(0, 0.5); },
            {{0, 13.75}, {1.75, 1.75}, {-10.5, 0}}},
        // equal tangents, time or kind change nothing; new ones (no index wanted) refresh only the neighbours
        {kJ3, [](P& p) { p.SetPointControlParam(1, 9, 9); }, {{9, 9}, {9, 9}, {9, 9}}},
        {kJ3, [](P& p) { p.setKeyFrameDerivativesInternal(6, 6.5, 1, nullptr); }, {{0, 1}, {6, 6.5}, {2, 0}}},
        {"[[0,0,1,7,8]]", [](P& p) { p.SetPointTime(0, 0); p.SetPointInterpolationType(0, kLin); }, {{7, 8}}},
        // a neighbour of kind none is skipped
        {"[[0,1,7,4,4],[1,2,1,9,9],[2,3,1,9,9]]", [](P& p) { p.SetPointValue(1, 5.0); },
            {{4, 4}, {4, -2}, {-2, 0}}},
        // removal: bad indexes ignored; removing the first of more than two keys also refreshes the last
        {kJ3, [](P& p) { p.RemovePoint(-1); p.RemovePoint(-5); p.RemovePoint(4); }, {{9, 9}, {9, 9}, {9, 9}}},
        {kJ3, [](P& p) { p.RemovePoint(0); }, {{0, 2}, {2, 0}}},
        {"[[0,0,1,9,9],[1,1,1,9,9],[2,3,1,9,9],[3,6,1,9,9]]", [](P& p) { p.RemovePoint(1); },
            {{0, 1.5}, {1.5, 3}, {9, 9}}},
        {"[[0,0,1,9,9],[1,1,1,9,9]]", [](P& p) { p.RemovePoint(0); }, {{0, 0}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows.data());
        auto p = Load(row.nodes);
        row.edit(*p);
        ExpectTangents(*p, row.want);
    }
}

// Indexes, collisions (the new key replaces the old one whole) and kinds forced on bool curves.
TEST(CurveEditTest, IndexesCollisionsAndForcedKinds)
{
    Parameter p(nullptr);
    const std::vector<int> indexes{p.AddPoint(10, 1.0, kLin), p.AddPoint(0, 2.0, kLin),
                                   p.AddPoint(5, 3.0, kLin), p.AddPoint(5, 4.0, kSmooth)};
    EXPECT_EQ(indexes, std::vector<int>({0, 0, 1, 1}));
    EXPECT_EQ(std::make_tuple(p.GetKeyFramesCount(), p.GetPointValue(1).Get<double>(),
                              p.GetInterpolationType(1)), std::make_tuple(3, 4.0, kSmooth));
    EXPECT_FALSE(p.addTimeValuePair(TimeValuePair(10, 7.0, kFree, 3, 4)).second);
    EXPECT_TRUE(p.addTimeValuePair(TimeValuePair(20, 7.0, kLin, 3, 4)).second);
    EXPECT_EQ(p.GetInterpolationType(2), kFree);
    EXPECT_THROW(p.RemovePoint(4), std::out_of_range);
    EXPECT_EQ(p.GetKeyFramesCount(), 4);
    Parameter c(0.0, ValAny(), kLin, eParameterTypeBool);  // no key; adding forces constant keys
    c.AddPointWithoutIndex(1, true, kFree);  // refreshing a free key would stop the program
    EXPECT_EQ(c.GetInterpolationType(0), kConst);
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
        {D, "x", 2.0, kThrows}, {I, 5, low5, kKeeps}, {I, 5, uint32_t{5}, kKeeps},
        {I, 5, low5 + 1, kReplaces},
        {I, 5, 5.0, kReplaces}, {I, low5, 2, kThrows}, {B, true, true, kKeeps}, {B, true, false, kReplaces},
        {B, true, 1, kReplaces},
        {B, 1, 2.0, kThrows}, {eParameterTypeString, "a", 3.0, kKeeps}};
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
// key's tangents next to them, stops the program; removal does not skip a none neighbour either.
TEST(CurveEditDeathTest, FreeOrNoneKeyReachingRefresh)
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
}

TEST(CurveEditDeathTest, EndIterator)
{
    Parameter p(nullptr);  // the one key's successor is the end
    const Parameter::iterator end = std::next(p.addTimeValuePair(TimeValuePair(0, 1.0, kLin)).first);
    EXPECT_DEATH(p.evaluateCurveChanged(Parameter::eChangedReasonKeyframe, end),
                 "Fatal check failed: \\(key != timeValueSets\\.end\\(\\)\\), function evaluateCurveChanged");
    EXPECT_DEATH(p.refreshDerivatives(Parameter::eChangedReasonDerivatives, end), kRefreshCheck);
}
