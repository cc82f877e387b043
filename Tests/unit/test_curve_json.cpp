// Curve JSON text: exact output and reading per type, copying, the merge rule, and the canonical
// codec against the JsonCpp document that defines the text.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "CurveCodecLibrary.h"
#include "keyframe_process.h"

using namespace core;
using V = ValAny;

// Texts of other spellings read into a fresh curve and written back: reals where integers are written,
// missing fields as the library reads them, a text curve (type 3) with only its type (the range stays as
// it was), an empty text as nothing. (The writer's own texts of every type, copies and Clear: the replay
// of the curve-text fuzz corpus, which holds both readers and both writers to each other.)
TEST(CurveJson, ReadAndWrittenBack)
{
    const std::pair<const char*, const char*> rows[] = {
        // Free and none keys (kinds 6, 7) with hand-set tangents enter through text.
        {"{\"ParamType\":0,\"MinValue\":-9.5,\"MaxValue\":9,\"nodes\":[[10,2.5,6,-1.5,3.25],[11,1,7,2,2]]}",
         "{\"MaxValue\":9.0,\"MinValue\":-9.5,\"ParamType\":0,\"nodes\":"
         "[[10.0,2.5,6,-1.5,3.25],[11.0,1.0,7,2.0,2.0]]}\n"},
        {"{}", "{\"MaxValue\":0.0,\"MinValue\":0.0,\"ParamType\":0,\"nodes\":null}\n"},
        {"", "{\"MaxValue\":100.0,\"MinValue\":-100.0,\"ParamType\":0,\"nodes\":null}\n"},  // as made
        {"{\"ParamType\":3,\"nodes\":[[1.0,0,0.0,0.0]]}\n", "{\"ParamType\":3,\"nodes\":null}\n"}};
    for (const auto& [in, out] : rows) {
        Parameter c(nullptr);
        EXPECT_EQ(c.Desialize(in), 0);
        EXPECT_TRUE(c.CopyFrom(&c));  // from itself, CopyFrom changes nothing
        EXPECT_EQ(c.Serialize(), out) << in;
        V lo, hi;
        c.GetValueRange(lo, hi);  // real, and for a type-3 text still the fresh curve's
        EXPECT_TRUE(lo.GetTypeTag() == V::kDouble && hi.GetTypeTag() == V::kDouble) << in;
    }
}

// Keys merge in by time, whichever way the text is spelled: the curve's own key wins, then the
// first of two equal nodes. Unparsable text and null change nothing (the library says why, on one
// line); a document of the wrong JSON types throws, and changes nothing either.
TEST(CurveJson, MergingAndBadText)
{
    const std::string nodes =
        "\"nodes\":[[1.0,1.0,1,0.0,0.0],[2.0,99.0,5,9.0,9.0],[3.0,3.0,5,0.0,0.0],[3.0,4.0,5,0.0,0.0]]}";
    for (const std::string& text : {"{\"ParamType\":0,\"MinValue\":-1,\"MaxValue\":1," + nodes,
                                   "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0," + nodes + "\n"}) {
        Parameter c(nullptr);
        c.AddPoint(2.0, V(7.0), eKeyframeTypeLinear);
        EXPECT_EQ(c.Desialize(text.c_str()), 0);
        for (const char* bad : {"{", "[1,", "nodes", "{\"ParamType\":1,}x", static_cast<const char*>(nullptr)})
            EXPECT_EQ(c.Desialize(bad), 0) << (bad ? bad : "null");
        EXPECT_ANY_THROW(c.Desialize("{\"ParamType\":0,\"nodes\":[[\"x\"]]}"));  // passed on, nothing read
        EXPECT_EQ(c.Serialize(), "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,1.0,1,0.0,0.0],"
                                 "[2.0,7.0,1,0.0,0.0],[3.0,3.0,5,0.0,0.0]]}\n")
            << text;
    }
    CurveTextContent content;
    std::string error;
    EXPECT_FALSE(ReadCurveTextWithLibrary("{\n  \"a\" 1}", content, error));
    EXPECT_EQ(error, "line 2, column 7: Missing ':' after object member name");
}

// The canonical writer and reader against the library: the same bytes (or the same refusal of a
// value the type cannot write) for seeded random keys, with awkward numbers or only those the fast
// reader takes, which it must then take; the same content and value kinds wherever it takes a text.
TEST(CurveJson, CanonicalCodecMatchesTheLibrary)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double awkward[] = {0.0, -0.0, 0.1, 1e21, 1e-7, 123456789012345678.0, 5e-324, 1.7976931348623157e308,
                              -inf, std::nan(""), 2.5e-310, 1.0 / 3.0};
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pick(0, std::size(awkward) - 1), kind(0, 7);
    const auto described = [](const CurveTextContent& c) {
        std::string kinds = std::to_string(c.header.minValue.GetTypeTag() * 16 + c.header.maxValue.GetTypeTag());
        for (const TimeValuePair& key : c.keys)
            kinds += std::to_string(key.StoredValue().GetTypeTag());
        return WriteCurveTextWithLibrary(c.header, c.keys) + kinds;
    };
    // Texts the fast reader must refuse (the fuzz corpus holds the others): numbers outside JSON's grammar,
    // an integer key value beyond int, which the library does not read either.
    std::vector<std::string> texts = {
        "{\"MaxValue\":9,\"MinValue\":-9,\"ParamType\":1,\"nodes\":[[1.0,2147483648,1,0.0,0.0]]}",
        "{\"MaxValue\":1.0,\"MinValue\":-1.0,\"ParamType\":0,\"nodes\":[[1.0,2.0,1,0.0,1.5e-]]}",
        "{\"MaxValue\":1.,\"MinValue\":-1e,\"ParamType\":0,\"nodes\":[[00.0,1.0,1,0.0,0.0]]}"};
    for (int type = 0; type < 4; ++type)
        for (const bool tame : {false, true}) {
            const auto number = [&] {
                return !tame && rng() % 3 == 0 ? awkward[pick(rng)] : std::ldexp(double(rng()), -int(rng() % 60));
            };
            const auto value = [&] { return type == 1 ? V(int(rng())) : type == 2 ? V(rng() % 2 == 0) : V(number()); };
            KeyStore keys;
            for (int k = 0; k < 40; ++k) {
                const double time = number();  // NaN times break the ordering
                keys.insert(TimeValuePair(std::isnan(time) ? -1.0 : time, value(), KeyframeInterpolationType(kind(rng)),
                                          number(), number()));
            }
            const CurveTextHeader header{ParameterTypeEnum(type), value(), value()};
            texts.push_back(WriteCurveText(header, keys));
            EXPECT_EQ(texts.back(), WriteCurveTextWithLibrary(header, keys)) << type;
            CurveTextContent content;
            std::string error;
            EXPECT_EQ(ReadCanonicalCurveText(texts.back(), content, error), tame && type < 3) << type << error;
        }
    KeyStore wide;  // a range end or key value the type cannot write throws, from either writer
    wide.insert(TimeValuePair(0.0, V(int64_t{1} << 40), eKeyframeTypeLinear));
    for (auto write : {&WriteCurveText, &WriteCurveTextWithLibrary}) {
        EXPECT_THROW(write({eParameterTypeBool, V(0), V(true)}, KeyStore()), AnyBadAccess);
        EXPECT_THROW(write({eParameterTypeInt, V(0), V(1)}, wide), AnyBadAccess);
    }
    for (const std::string& text : texts) {
        CurveTextContent fast, library;
        std::string error;
        if (!ReadCanonicalCurveText(text, fast, error))
            continue;  // the library's to read
        EXPECT_EQ(described(fast), ReadCurveTextWithLibrary(text.c_str(), library, error) ? described(library) : error)
            << text;
    }
}
