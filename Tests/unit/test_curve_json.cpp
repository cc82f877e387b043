// Curve JSON text: exact golden output, round trips, merging, failures, copying.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <tuple>

#include "keyframe_process.h"

using namespace core;
using V = ValAny;

namespace {

Parameter& Typed(Parameter& c, int type)
{
    c.SetParameterType(static_cast<ParameterTypeEnum>(type));
    return c;
}

}  // namespace

// Exact texts per type (bool and text curves force constant keys; text curves write no values);
// a range end or key value the type cannot write throws.
TEST(CurveJson, GoldenTextsAndUnwritableValues)
{
    Parameter fresh(nullptr), i(nullptr), b(nullptr), s(nullptr), d(nullptr), badRange(nullptr),
        badKey(nullptr);
    Typed(i, 1).AddPoint(1.0, V(5), eKeyframeTypeSmooth);
    Typed(b, 2).AddPoint(2.0, V(false), eKeyframeTypeLinear);  // kinds forced to constant
    b.AddPoint(0.0, V(true), eKeyframeTypeSmooth);
    Typed(s, 3).AddPoint(1.0, V("a"), eKeyframeTypeLinear);
    d.SetValueRange(V(-2.5), V(2048.75));
    d.AddPoint(-3.0, V(0.25), eKeyframeTypeLinear);
    d.SetPointControlParam(0, -1.5, 8.0);
    const struct { const Parameter* curve; const char* text; } cases[] = {
        {&fresh, "{\"MaxValue\":100.0,\"MinValue\":-100.0,\"ParamType\":0,\"nodes\":null}\n"},
        {&i, "{\"MaxValue\":100,\"MinValue\":-100,\"ParamType\":1,\"nodes\":[[1.0,5,3,0.0,0.0]]}\n"},
        {&b, "{\"MaxValue\":true,\"MinValue\":false,\"ParamType\":2,"
             "\"nodes\":[[0.0,true,0,0.0,-0.5],[2.0,false,0,-0.5,0.0]]}\n"},
        {&s, "{\"ParamType\":3,\"nodes\":[[1.0,0,0.0,0.0]]}\n"},
        {&d, "{\"MaxValue\":2048.75,\"MinValue\":-2.5,\"ParamType\":0,"
             "\"nodes\":[[-3.0,0.25,1,-1.5,8.0]]}\n"}};
    for (const auto& k : cases)
        EXPECT_EQ(k.curve->Serialize(), k.text);
    Parameter back(nullptr);  // type-3 keys are not read back; the (double) range stays
    back.Desialize(s.Serialize().c_str());
    V lo, hi;
    back.GetValueRange(lo, hi);
    EXPECT_EQ(std::make_tuple(back.GetParameterType(), back.GetKeyFramesCount(), lo.Get<double>(),
                              hi.Get<double>()),
              std::make_tuple(eParameterTypeString, 0, -100.0, 100.0));
    Typed(badRange, 2).SetValueRange(V(0), V(true));
    Typed(badKey, 1).AddPoint(0.0, V(int64_t{1} << 40), eKeyframeTypeLinear);
    EXPECT_THROW(badRange.Serialize(), AnyBadAccess);
    EXPECT_THROW(badKey.Serialize(), AnyBadAccess);
}

// Written and read into a fresh curve: the same text (exact numbers) and value kinds, including the
// hand-set tangents of a free key that entered through text.
TEST(CurveJson, RoundTrips)
{
    const V values[3][3] = {{V(1.5), V(-4.0), V(7.25)}, {V(3), V(-8), V(40)}, {V(true), V(false), V(true)}};
    const char* loaded[3] = {  // a free key with hand-set tangents, and a range
        "{\"ParamType\":0,\"MinValue\":-9.5,\"MaxValue\":9,\"nodes\":[[10,2.5,6,-1.5,3.25]]}",
        "{\"ParamType\":1,\"MinValue\":-9,\"MaxValue\":9,\"nodes\":[[10,2,6,-1.5,3.25]]}",
        "{\"ParamType\":2,\"MinValue\":true,\"MaxValue\":true,\"nodes\":[[10,false,6,-1.5,3.25]]}"};
    for (int type = 0; type < 3; ++type) {
        Parameter src(nullptr), dst(nullptr);
        for (int k = 0; k < 3; ++k)
            Typed(src, type).AddPoint(4.0 * k, values[type][k], k == 1 ? eKeyframeTypeSpline
                                                                       : eKeyframeTypeSmooth);
        src.Desialize(loaded[type]);
        ASSERT_EQ(src.GetInterpolationType(3), eKeyframeTypeFree) << type;
        const std::string text = src.Serialize();
        EXPECT_EQ(dst.Desialize(text.c_str()), 0);
        EXPECT_EQ(dst.Serialize(), text);  // with the value kinds read back as written:
        V lo, hi;
        dst.GetValueRange(lo, hi);
        const uint32_t tag = values[type][0].GetTypeTag();
        EXPECT_EQ(std::make_tuple(lo.GetTypeTag(), hi.GetTypeTag(), dst.GetPointValue(3).GetTypeTag()),
                  std::make_tuple(tag, tag, tag));
    }
}

// "{}" reads as type 0 with range 0..0; keys merge by time, an existing key (or the
// first of two equal nodes) wins; unparsable text and null change nothing.
TEST(CurveJson, ReadingDefaultsMergingAndBadText)
{
    Parameter c(0.0, V(), eKeyframeTypeNone, eParameterTypeBool);
    EXPECT_EQ(c.Desialize("{}"), 0);
    EXPECT_EQ(c.Serialize(), "{\"MaxValue\":0.0,\"MinValue\":0.0,\"ParamType\":0,\"nodes\":null}\n");
    c.AddPoint(2.0, V(7.0), eKeyframeTypeLinear);
    c.Desialize("{\"ParamType\":0,\"MinValue\":-1,\"MaxValue\":1,\"nodes\":[[1.0,1.0,1,0.0,0.0],"
                "[2.0,99.0,5,9.0,9.0],[3.0,3.0,5,0.0,0.0],[3.0,4.0,5,0.0,0.0]]}");
    const std::string merged = c.Serialize();
    EXPECT_EQ(merged, "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,1.0,1,0.0,0.0],"
                      "[2.0,7.0,1,0.0,0.0],[3.0,3.0,5,0.0,0.0]]}\n");
    for (const char* bad : {"{", "[1,", "nodes", "{\"ParamType\":1,}x", static_cast<const char*>(nullptr)})
        EXPECT_EQ(c.Desialize(bad), 0) << (bad ? bad : "null");
    EXPECT_EQ(c.Serialize(), merged);
    // The same merge from text in the writer's own form.
    c.Desialize("{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[2.0,50.0,1,0.0,0.0],"
                "[4.0,4.0,1,0.0,0.0],[4.0,5.0,1,0.0,0.0]]}\n");
    EXPECT_EQ(c.Serialize(), "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,1.0,1,0.0,0.0],"
                             "[2.0,7.0,1,0.0,0.0],[3.0,3.0,5,0.0,0.0],[4.0,4.0,1,0.0,0.0]]}\n");
}

// CopyFrom takes keys (kinds 6 and 7 included), range and type; from itself it
// changes nothing. Clear drops the keys only.
TEST(CurveJson, CopyFromAndClear)
{
    Parameter src(nullptr), dst(nullptr);
    src.Desialize("{\"ParamType\":1,\"MinValue\":-5,\"MaxValue\":9,"
                  "\"nodes\":[[1.0,2,6,0.5,-0.5],[3.0,4,7,1.0,2.0]]}");
    Typed(dst, 2).AddPoint(8.0, V(true), eKeyframeTypeConstant);
    EXPECT_TRUE(dst.CopyFrom(&src));
    EXPECT_EQ(dst.Serialize(), src.Serialize());
    EXPECT_TRUE(src.CopyFrom(&src));
    EXPECT_EQ(src.Serialize(), dst.Serialize());
    dst.Clear();
    EXPECT_EQ(dst.Serialize(), "{\"MaxValue\":9,\"MinValue\":-5,\"ParamType\":1,\"nodes\":null}\n");
}

// The direct writer and the canonical reader against the JsonCpp document that
// defines the text: same bytes for seeded random curves with awkward numbers,
// and the same outcome (state, value kinds, or exception) for every text.
TEST(CurveJson, DirectTextMatchesTheLibrary)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double awkward[] = {0.0, -0.0, 0.1, 1e21, 1e-7, 123456789012345678.0, 5e-324, 1.7976931348623157e308,
                              -inf, std::nan(""), 2.5e-310, 1.0 / 3.0};
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pick(0, std::size(awkward) - 1), kind(0, 5);
    std::vector<std::string> texts;
    for (int type = 0; type < 4; ++type) {
        Parameter c(nullptr);
        Typed(c, type);
        for (int k = 0; k < 40; ++k) {
            const double number = k % 3 == 0 ? awkward[pick(rng)] : std::ldexp(double(rng()), -int(rng() % 60));
            const V value = type == 0 ? V(number) : type == 1 ? V(int(rng())) : V(rng() % 2 == 0);
            const double time = k % 5 == 0 ? awkward[pick(rng)] : number;  // NaN times break the ordering
            c.AddPoint(std::isnan(time) ? -1.0 : time, value, KeyframeInterpolationType(kind(rng)));
            c.SetPointControlParam(0, awkward[pick(rng)], number);
        }
        EXPECT_EQ(c.Serialize(), c.SerializeWithLibrary()) << type;
        texts.push_back(c.Serialize());
    }
    for (const char* variant :
         {"{\"MaxValue\":1,\"MinValue\":-0,\"ParamType\":0,\"nodes\":[[1,2,3,4,5]]}",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[5e-324,1e+9999,3,null,1.0]]}",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":1,\"nodes\":[[1.0,2147483648,1,0.0,0.0]]}",
          "{\"MaxValue\":true,\"MinValue\":1,\"ParamType\":2,\"nodes\":[[1.0,false,1,0.0,0.0]]} x",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,2.0,1,0.0,0.0] ]}\n",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,2.0,1,0.0]]}",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[]}",
          "{\"MaxValue\":01.5,\"MinValue\":-.5,\"ParamType\":0,\"nodes\":[[1E2,+2.0,1,0.0,0.0]]}",
          // Found by fuzzing: numbers outside JSON's grammar, junk inside a range token.
          "{\"MaxValue\":67,\"MinValue\":8,\"ParamType\":1,\"nodes\":[[0.0,9,3,.5,1.0]]}",
          "{\"MaxValue\":6s7,\"MinValue\":8,\"ParamType\":1,\"nodes\":null}",
          "{\"MaxValue\":1.,\"MinValue\":-1e,\"ParamType\":0,\"nodes\":[[00.0,1.0,1,0.0,0.0]]}",
          "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,2.0,1,0.0,1.5e-]]}"})
        texts.push_back(variant);
    for (const std::string& text : texts) {
        Parameter direct(nullptr), library(nullptr);
        for (Parameter* c : {&direct, &library})
            c->AddPoint(1.0, V(9.0), eKeyframeTypeSmooth);  // merging: an existing key wins
        std::string outcome[2];
        int i = 0;
        for (Parameter* c : {&direct, &library}) {
            try {
                c == &direct ? c->Desialize(text.c_str()) : c->DesializeWithLibrary(text.c_str());
                V lo, hi;
                c->GetValueRange(lo, hi);
                outcome[i] = c->SerializeWithLibrary() + std::to_string(lo.GetTypeTag()) +
                             std::to_string(c->GetPointValue(c->GetKeyFramesCount() - 1).GetTypeTag());
            } catch (const std::exception& e) {
                outcome[i] = std::string("threw ") + typeid(e).name();
            }
            ++i;
        }
        EXPECT_EQ(outcome[0], outcome[1]) << text;
    }
}
