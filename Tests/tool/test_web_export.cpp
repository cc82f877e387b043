// The web exports against the module's own segment arithmetic: each kind of segment shape is written as Web
// Animations and as Lottie keyframes, whose Bezier pieces, evaluated as a browser or a player does, give the
// segment's values; the stylesheet's conventions; the static exports; refusals name the key.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Interpolation.h"
#include "ToolError.h"
#include "WebExport.h"

namespace {

using qmxkf::KeyRecord;
using qmxkf::WebFormat;

Json::Value Export(const std::vector<KeyRecord>& keys, WebFormat format, const std::string& source = "t.qmxbag")
{
    qmxkf::TrackKeys track;
    track.fill(keys);
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    Json::Value root;
    std::string errors;
    std::istringstream in(WriteWebExport(track, format, 25, source));
    EXPECT_TRUE(Json::parseFromStream(builder, in, &root, &errors)) << errors;
    return root;
}

// A keyframe as a player reads it: position, value, and the easing of the segment it starts (x1, y1, x2, y2).
struct Knot {
    double at, value;
    bool hold;
    std::array<double, 4> ease;
};

double Eval(const std::vector<Knot>& knots, double at)
{
    size_t i = 0;
    while (i + 2 < knots.size() && knots[i + 1].at <= at)
        ++i;
    const Knot &a = knots[i], &b = knots[i + 1];
    const auto bezier = [](double p, double q, double u) {
        return 3 * (1 - u) * u * ((1 - u) * p + u * q) + u * u * u;
    };
    const double x = (at - a.at) / (b.at - a.at);
    double low = 0, high = 1;
    for (int step = 0; step < 100; ++step)
        (bezier(a.ease[0], a.ease[2], (low + high) / 2) < x ? low : high) = (low + high) / 2;
    return a.hold ? a.value : a.value + (b.value - a.value) * bezier(a.ease[1], a.ease[3], (low + high) / 2);
}

std::vector<Knot> WaapiKnots(const Json::Value& property)
{
    std::vector<Knot> knots;
    for (const Json::Value& frame : property["keyframes"]) {
        Knot knot{frame["offset"].asDouble(), frame[property["name"].asString()].asDouble(), false, {0, 0, 1, 1}};
        const std::string easing = frame.get("easing", "linear").asString();
        knot.hold = easing == "steps(1, jump-end)";
        std::sscanf(easing.c_str(), "cubic-bezier(%lf, %lf, %lf, %lf)", &knot.ease[0], &knot.ease[1], &knot.ease[2],
                    &knot.ease[3]);
        knots.push_back(knot);
    }
    return knots;
}

// dim: the place of the values in a pair whose other dimension stays 100 under flat handles; -1: a scalar.
std::vector<Knot> LottieKnots(const Json::Value& property, int dim, double factor)
{
    std::vector<Knot> knots;
    const int d = std::max(dim, 0);
    for (const Json::Value& frame : property["k"]) {
        const Json::Value &out = frame["o"], &in = frame["i"];
        Knot knot{frame["t"].asDouble(), frame["s"][d].asDouble() / factor, frame.isMember("h"), {0, 0, 1, 1}};
        if (frame.isMember("o"))
            knot.ease = {out["x"][d].asDouble(), out["y"][d].asDouble(), in["x"][d].asDouble(), in["y"][d].asDouble()};
        knots.push_back(knot);
        const int other = 1 - d;  // the static dimension of a pair
        EXPECT_TRUE(dim < 0 || (frame["s"][other].asDouble() == 100 && in["y"].get(other, 2.0 / 3) == 2.0 / 3));
    }
    return knots;
}

}  // namespace

// One segment of each shape on all six properties, from key 0 at 0.5 s to key 1 at 2 s (37.5 frames at 25).
TEST(WebExport, EverySegmentShapeIsExact)
{
    struct Row {
        const char* shape;
        int kind;
        double from, to, right, left;
        size_t knots;        // 3 where the segment is split
        const char* easing;  // of the first keyframe, where it is not split
    } const rows[] = {
        {"held", 0, 2, 5, 7, -3, 2, "steps(1, jump-end)"},
        {"straight", 1, 2, 5, 2, 2, 2,
         "cubic-bezier(0.3333333333333333, 0.3333333333333333, 0.6666666666666666, 0.6666666666666666)"},
        {"overshooting", 3, 2, 5, 20, 20, 2,
         "cubic-bezier(0.3333333333333333, 3.3333333333333335, 0.6666666666666666, -2.3333333333333335)"},
        {"S between equal values", 6, 1, 1, 4, 4, 3, nullptr},
        {"bump between equal values", 4, -1, -1, 4, -4, 3, nullptr},
        {"flat between equal values", 5, 1, 1, 0, 0, 2, "linear"},
        {"ease in and out", 2, -400, 0, 0, 0, 2, "cubic-bezier(0.3333333333333333, 0, 0.6666666666666666, 1)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.shape);
        const std::vector<KeyRecord> keys = {{0.5, row.from, row.kind, 0, row.right}, {2, row.to, 1, row.left, 0}};
        const Json::Value waapi = Export(keys, WebFormat::Waapi), lottie = Export(keys, WebFormat::Lottie);
        EXPECT_EQ(waapi["start"].asDouble(), 0.5);
        EXPECT_EQ(waapi["duration"].asDouble(), 1500);
        EXPECT_EQ(lottie["op"].asDouble(), 38);
        if (row.easing) {
            EXPECT_EQ(waapi["properties"][0]["keyframes"][0]["easing"].asString(), row.easing);
        }
        const Json::Value &frame = lottie["layers"][0]["ks"], &card = lottie["layers"][1]["ks"];
        const std::vector<Knot> knots[] = {WaapiKnots(waapi["properties"][0]), WaapiKnots(waapi["properties"][5]),
                                           LottieKnots(frame["p"]["x"], -1, 1), LottieKnots(frame["r"], -1, 1),
                                           LottieKnots(frame["s"], 0, 100),     LottieKnots(card["s"], 1, 100),
                                           LottieKnots(card["o"], -1, 100)};
        const double tolerance = 1e-12 * (1 + std::fabs(row.from) + std::fabs(row.to) + std::fabs(row.right));
        for (size_t k = 0; k < std::size(knots); ++k) {
            ASSERT_EQ(knots[k].size(), row.knots) << k;
            EXPECT_EQ(knots[k].back().value, row.to) << k;
            for (int j = 0; j < 200; ++j) {
                const double want = Interpolation::interpolate(
                    0.5, core::ValAny(row.from), row.right, row.left, 2, core::ValAny(row.to), 0.5 + 1.5 * j / 200,
                    core::KeyframeInterpolationType(row.kind), core::eKeyframeTypeLinear);
                EXPECT_NEAR(Eval(knots[k], (k < 2 ? 1 : 37.5) * j / 200), want, tolerance) << k << " " << j;
            }
        }
    }
}

TEST(WebExport, StylesheetConventions)
{
    qmxkf::TrackKeys track;
    track.fill({{0, -400, 2, 0, 0}, {0.25, 0, 0, 0, 0}, {1, 5, 1, 0, 0}});
    const std::string css = WriteWebExport(track, WebFormat::Css, 30, "title.qmxbag");
    for (const char* text :
         {"/* The keyframe track of title.qmxbag, keys 0 s to 1 s",
          "\n@property --qmx-scale-y { syntax: '<number>'; inherits: false; initial-value: 1; }\n",
          "\n@keyframes qmx-x {\n  0% { --qmx-x: -400; animation-timing-function: cubic-bezier(0.3333333333333333, 0, "
          "0.6666666666666666, 1); }\n  25% { --qmx-x: 0; animation-timing-function: steps(1, jump-end); }\n"
          "  100% { --qmx-x: 5; }\n}\n",
          "\n  animation: qmx-angle 1s linear both, qmx-x 1s linear both, qmx-y 1s linear both, qmx-opacity 1s linear "
          "both, qmx-scale-x 1s linear both, qmx-scale-y 1s linear both;\n",
          "\n  transform: translate(calc(var(--qmx-x) * 1px), calc(var(--qmx-y) * 1px)) rotate(calc(var(--qmx-angle) "
          "* 1deg)) scale(var(--qmx-scale-x), var(--qmx-scale-y));\n  opacity: var(--qmx-opacity);\n}\n"})
        EXPECT_NE(css.find(text), std::string::npos) << text << css;
}

// Fewer than two keys: each property holds one value for 0 s. The source name stays valid text.
TEST(WebExport, StaticTracks)
{
    for (size_t count : {0, 1}) {
        const std::vector<KeyRecord> keys(count, KeyRecord{3, 7, 3, 1, 1});
        const Json::Value waapi = Export(keys, WebFormat::Waapi, "a \"b\"\\c\xff.qmxbag");
        const Json::Value lottie = Export(keys, WebFormat::Lottie);
        EXPECT_EQ(waapi["source"].asString(), "a \"b\"\\c\xEF\xBF\xBD.qmxbag");
        EXPECT_EQ(waapi["duration"].asDouble(), 0);
        EXPECT_EQ(lottie["op"].asDouble(), 1);
        const double value = count ? 7 : 1;
        for (const Json::Value& frame : waapi["properties"][3]["keyframes"])
            EXPECT_EQ(frame["--qmx-opacity"].asDouble(), value);
        EXPECT_EQ(lottie["layers"][1]["ks"]["o"]["a"].asDouble(), 0);
        EXPECT_EQ(lottie["layers"][1]["ks"]["o"]["k"].asDouble(), 100 * value);
        EXPECT_EQ(lottie["layers"][0]["ks"]["s"]["k"][0].asDouble(), 100 * value);
    }
}

TEST(WebExport, RefusesWhatHasNoExactForm)
{
    struct Row {
        int property, key;
        KeyRecord record;
        double rate;
        const char* message;
    } const rows[] = {
        {2, 1, {1, 1, 7, 1, 0}, 30, "t.qmxbag: key 1 of position y is of kind none"},
        {3, 2, {2, NAN, 1, 0, 0}, 30, "t.qmxbag: key 2 of opacity holds a number that is not finite"},
        {4, 1, {1.5, 1, 1, 1, 0}, 30, "t.qmxbag: key 1 of scale x is at 1.5 s and key 1 of angle at 1 s"},
        {0, 2, {1, 0, 1, 0, 0}, 30, "t.qmxbag: key 2 of angle is not later than key 1"},
        {1, 1, {1, 1, 9, 1, 0}, 30, "t.qmxbag: key 1 of position x is of unknown kind 9"},
        {5, 0, {0, 1e307, 1, 0, 1}, 30, "t.qmxbag: key 0 of scale y starts a segment whose numbers are too large"},
        {0, 0, {0, 0, 1, 0, 1}, 0, "--rate 0: the frame rate must be a positive number"},
    };
    for (const Row& row : rows) {
        qmxkf::TrackKeys track;
        track.fill({{0, 0, 1, 0, 1}, {1, 1, 1, 1, 0}, {2, 0, 1, 0, 0}});
        track[row.property][row.key] = row.record;
        try {
            WriteWebExport(track, WebFormat::Lottie, row.rate, "t.qmxbag");
            ADD_FAILURE() << row.message;
        } catch (const qmxkf::ToolError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(row.message, 0), 0u) << e.what();
        }
    }
}
