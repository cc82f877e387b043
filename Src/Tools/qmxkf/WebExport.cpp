#include "WebExport.h"

#include <algorithm>
#include <cmath>

#include "Output.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

constexpr int kConstant = 0, kNone = 7;
constexpr double kThird = 1.0 / 3, kTwoThirds = 2.0 / 3;
const char* const kTransform =
    "translate(calc(var(--qmx-x) * 1px), calc(var(--qmx-y) * 1px)) rotate(calc(var(--qmx-angle) * 1deg)) "
    "scale(var(--qmx-scale-x), var(--qmx-scale-y))";

enum class Ease { Hold, Linear, Bezier };

// A keyframe of the export: a value at a time, and the shape of the segment to
// the next stop (unused on the last): held, a straight line, or the cubic
// Bezier with time handles at 1/3 and 2/3 of the segment and value handles y1
// and y2 of the way from its first value to its last.
struct Stop {
    double time;
    double value;
    Ease ease;
    double y1, y2;
    size_t key;  // the key whose segment this is, for messages
};

[[noreturn]] void Refuse(const std::string& source, size_t key, int p, const std::string& what)
{
    throw ToolError(source + ": key " + std::to_string(key) + " of " + kProperties[p].title + " " + what);
}

// Refuses what has no exact web form: what is no track's keys, and kind
// none, whose segment takes its shape from outside the curve.
void CheckKeys(const TrackKeys& keys, const std::string& source)
{
    CheckTrackKeys(keys, source);
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
        for (size_t i = 0; i < keys[p].size(); ++i)
            if (keys[p][i].kind == kNone)
                Refuse(source, i, p, "is of kind none, which has no segment shape to export");
}

// Splits the cubic Bezier `v` at `s` by de Casteljau's construction into the
// Beziers of its two parts.
void Split(const double (&v)[4], double s, double (&left)[4], double (&right)[4])
{
    const auto mix = [s](double a, double b) { return a + (b - a) * s; };
    const double q0 = mix(v[0], v[1]), q1 = mix(v[1], v[2]), q2 = mix(v[2], v[3]);
    const double r0 = mix(q0, q1), r1 = mix(q1, q2), middle = mix(r0, r1);
    left[0] = v[0], left[1] = q0, left[2] = r0, left[3] = middle;
    right[0] = middle, right[1] = r1, right[2] = q2, right[3] = v[3];
}

// The stops of property p, values times `factor`; a track of fewer than two
// keys gives two stops holding its one value. A key's segment is the Hermite
// cubic of its kind, or held for kind constant. With time running linearly
// the Hermite cubic is exactly the Bezier with value handles p0 + m0/3 and
// p1 - m1/3 (m: tangent times the segment's length). When its ends are equal
// and its shape is not flat its easing cannot be normalised: it is split
// where it strays furthest from its ends among a quarter, a half and three
// quarters of the way (such a cubic meets them at most once inside), and each
// part is again a Bezier in linear time. A bump too small to move the ends'
// value in double precision is flat.
std::vector<Stop> Stops(const TrackKeys& keys, int p, double factor, const std::string& source)
{
    const std::vector<KeyRecord>& curve = keys[p];
    std::vector<Stop> stops;
    if (curve.size() < 2) {
        const double value = factor * (curve.empty() ? kNeutral.*kProperties[p].field : curve[0].value);
        if (!std::isfinite(value))
            Refuse(source, 0, p, "holds a value too large to export");
        stops.assign(2, Stop{curve.empty() ? 0.0 : curve[0].time, value, Ease::Linear, kThird, kTwoThirds, 0});
        return stops;
    }
    const auto bezier = [&](double time, const double (&v)[4], size_t key) {
        const double delta = v[3] - v[0];
        Stop stop{time, v[0], Ease::Linear, kThird, kTwoThirds, key};
        if (delta != 0)  // + 0.0: no negative zeros in the text
            stop = {time, v[0], Ease::Bezier, (v[1] - v[0]) / delta + 0.0, (v[2] - v[0]) / delta + 0.0, key};
        if (!std::isfinite(stop.y1) || !std::isfinite(stop.y2))
            Refuse(source, key, p, "starts a segment too steep to export");
        stops.push_back(stop);
    };
    for (size_t i = 0; i + 1 < curve.size(); ++i) {
        const KeyRecord &a = curve[i], &b = curve[i + 1];
        const double span = b.time - a.time, p0 = factor * a.value, p1 = factor * b.value;
        const double v[4] = {p0, p0 + factor * a.right * span / 3, p1 - factor * b.left * span / 3, p1};
        if (!std::isfinite(p0) || !std::isfinite(p1) || (a.kind != kConstant && !std::isfinite(v[1] + v[2])))
            Refuse(source, i, p, "starts a segment whose numbers are too large to export");
        if (a.kind == kConstant) {
            stops.push_back({a.time, p0, Ease::Hold, 0, 0, i});
            continue;
        }
        double at = 0, farthest = 0, left[4], right[4];
        for (double s : {0.5, 0.25, 0.75}) {
            if (p0 != p1)
                break;
            Split(v, s, left, right);
            if (std::fabs(left[3] - p0) > farthest)
                farthest = std::fabs(left[3] - p0), at = s;
        }
        if (at == 0) {
            bezier(a.time, v, i);
            continue;
        }
        Split(v, at, left, right);
        bezier(a.time, left, i);
        bezier(a.time + at * span, right, i);
    }
    stops.push_back({curve.back().time, factor * curve.back().value, Ease::Linear, 0, 0, curve.size() - 1});
    return stops;
}

// Where the stops fall on the output's time axis: (time - t0) / span * scale,
// or 0 and scale when the span is 0. Refuses stops that fall together there.
std::vector<double> Positions(const std::vector<Stop>& stops, double t0, double span, double scale,
                              const std::string& source, int p)
{
    std::vector<double> at;
    for (const Stop& stop : stops) {
        at.push_back(span > 0 ? (stop.time - t0) / span * scale : static_cast<double>(at.size()) * scale);
        if (!std::isfinite(at.back()) || (at.size() > 1 && !(at.back() > at[at.size() - 2])))
            Refuse(source, stop.key, p, "is too close to its neighbour to tell apart in the export");
    }
    return at;
}

// `text` as valid UTF-8 without control characters, each offending byte
// replaced by U+FFFD, so that it can stand in a JSON string or a comment.
std::string CleanText(const std::string& text)
{
    std::string clean;
    for (size_t i = 0; i < text.size();) {
        const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
        const unsigned first = byte(i);
        size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : first >> 3 == 30 ? 4 : 0;
        if (length == 0 || i + length > text.size() || first < 0x20 || first == 0x7F) {
            length = 0;
        } else {
            unsigned point = length == 1 ? first : first & (0x7Fu >> length);
            for (size_t k = 1; k < length && length > 0; ++k)
                if (byte(i + k) >> 6 == 2)
                    point = point << 6 | (byte(i + k) & 0x3Fu);
                else
                    length = 0;
            static const unsigned kLeast[5] = {0, 0, 0x80, 0x800, 0x10000};
            if (length > 0 && (point < kLeast[length] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000)))
                length = 0;
        }
        clean += length > 0 ? text.substr(i, length) : "\xEF\xBF\xBD";
        i += length > 0 ? length : 1;
    }
    return clean;
}

std::string Quote(const std::string& text)
{
    std::string quoted = "\"";
    for (char c : CleanText(text))
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return quoted + "\"";
}

// What every export says of itself: its source, its span, and where it
// differs from the track.
std::string Notes(const TrackKeys& keys, const std::string& source, const std::string& separator)
{
    const std::vector<KeyRecord>& any = keys[0];
    std::string notes = "The keyframe track of " + CleanText(source);
    if (any.size() >= 2)
        notes += ", keys " + Number(any.front().time) + " s to " + Number(any.back().time) +
                 " s; the animation starts at the first key." + separator +
                 "Values between keys are exact: each segment is the cubic Bezier it is, in linear time (handles "
                 "at 1/3 and 2/3 of the segment); a curved segment between equal values is split in two, "
                 "exactly.";
    else
        notes += any.empty() ? " has no keys: each property holds the identity (angle, x and y 0, opacity and "
                               "scale 1) for 0 s."
                             : " has one key, at " + Number(any[0].time) + " s: each property holds its value "
                               "there for 0 s.";
    return notes + separator +
           "Before the first key and after the last the track extrapolates; this animation holds the end values.";
}

std::string EasingText(const Stop& stop)
{
    if (stop.ease == Ease::Hold)
        return "steps(1, jump-end)";
    if (stop.ease == Ease::Linear)
        return "linear";
    return "cubic-bezier(" + Number(kThird) + ", " + Number(stop.y1) + ", " + Number(kTwoThirds) + ", " +
           Number(stop.y2) + ")";
}

std::string Css(const TrackKeys& keys, double t0, double span, const std::string& source)
{
    std::string notes = Notes(keys, source, "\n   ");
    for (size_t at = notes.find("*/"); at != std::string::npos; at = notes.find("*/", at))
        notes.replace(at, 2, "* /");
    std::string css = "/* " + notes + " */\n";
    for (const Property& property : kProperties)
        css += std::string("@property --qmx-") + property.option + " { syntax: '<number>'; inherits: false; " +
               "initial-value: " + Number(kNeutral.*property.field) + "; }\n";
    std::string animation;
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        const std::string name = std::string("qmx-") + kProperties[p].option;
        const std::vector<Stop> stops = Stops(keys, p, 1, source);
        const std::vector<double> at = Positions(stops, t0, span, 100, source, p);
        css += "@keyframes " + name + " {\n";
        for (size_t i = 0; i < stops.size(); ++i)
            css += "  " + Number(at[i]) + "% { --" + name + ": " + Number(stops[i].value) +
                   (i + 1 < stops.size() ? "; animation-timing-function: " + EasingText(stops[i]) : "") + "; }\n";
        css += "}\n";
        animation += (p > 0 ? ", " : "") + name + " " + Number(span) + "s linear both";
    }
    return css + ".qmx-track {\n  animation: " + animation + ";\n  transform: " + kTransform +
           ";\n  opacity: var(--qmx-opacity);\n}\n";
}

std::string Waapi(const TrackKeys& keys, double t0, double span, const std::string& source)
{
    std::string json = "{\n  \"format\": \"qmx-web-animation\",\n  \"version\": 1,\n  \"notes\": " +
                       Quote(Notes(keys, source, " ")) + ",\n  \"source\": " + Quote(source) +
                       ",\n  \"start\": " + Number(t0) + ",\n  \"duration\": " + Number(span * 1000) +
                       ",\n  \"transform\": \"" + kTransform + "\",\n  \"opacity\": \"var(--qmx-opacity)\"" +
                       ",\n  \"properties\": [";
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        const std::string name = std::string("--qmx-") + kProperties[p].option;
        const std::vector<Stop> stops = Stops(keys, p, 1, source);
        const std::vector<double> at = Positions(stops, t0, span, 1, source, p);
        json += std::string(p > 0 ? "," : "") + "\n    {\"name\": \"" + name +
                "\", \"syntax\": \"<number>\", \"initialValue\": \"" + Number(kNeutral.*kProperties[p].field) +
                "\", \"keyframes\": [";
        for (size_t i = 0; i < stops.size(); ++i)
            json += std::string(i > 0 ? "," : "") + "\n      {\"offset\": " + Number(at[i]) +
                    (i + 1 < stops.size() ? ", \"easing\": \"" + EasingText(stops[i]) + "\"" : "") + ", \"" +
                    name + "\": " + Number(stops[i].value) + "}";
        json += "]}";
    }
    return json + "]\n}\n";
}

// A Lottie property from stops at `frames` (none: static, the first stop's
// value). dim -1 is a scalar; dim 0 or 1 places the values in that dimension
// of a pair whose other one stays 100 (%) under flat handles.
std::string LottieProperty(const std::vector<Stop>& stops, const std::vector<double>& frames, int dim)
{
    const auto values = [dim](double value, double other) {
        if (dim < 0)
            return "[" + Number(value) + "]";
        return "[" + Number(dim == 0 ? value : other) + ", " + Number(dim == 0 ? other : value) + "]";
    };
    if (frames.empty())
        return "{\"a\": 0, \"k\": " + (dim < 0 ? Number(stops[0].value) : values(stops[0].value, 100)) + "}";
    std::string k;
    for (size_t i = 0; i < stops.size(); ++i) {
        const Stop& stop = stops[i];
        k += std::string(i > 0 ? "," : "") + "\n          {\"t\": " + Number(frames[i]) +
             ", \"s\": " + values(stop.value, 100);
        if (i + 1 < stops.size() && stop.ease == Ease::Hold)
            k += ", \"h\": 1";
        else if (i + 1 < stops.size())
            k += ", \"o\": {\"x\": " + values(kThird, kThird) + ", \"y\": " + values(stop.y1, kThird) +
                 "}, \"i\": {\"x\": " + values(kTwoThirds, kTwoThirds) + ", \"y\": " + values(stop.y2, kTwoThirds) +
                 "}";
        k += "}";
    }
    return "{\"a\": 1, \"k\": [" + k + "]}";
}

// Two layers, so that each property keeps its own keyframes, easing and hold
// flags: a null layer "transform" with position (split into x and y),
// rotation and scale x, and its child "card", a filled rectangle, with scale
// y and opacity. Child after parent composes as translate, rotate, scale.
std::string Lottie(const TrackKeys& keys, double t0, double span, double rate, const std::string& source)
{
    if (!(rate > 0) || !std::isfinite(rate))
        throw ToolError("--rate " + Number(rate) + ": the frame rate must be a positive number");
    // The out point lies past the last key's frame: a player stops updating
    // a layer at its out point, so the last key must fall before it.
    const double op = std::floor(span * rate) + 1;
    if (!std::isfinite(op))
        throw ToolError(source + ": the track's span of " + Number(span) + " s holds too many frames to export");
    const bool animated = keys[0].size() >= 2;
    std::string property[qmx::kTrackPropertyCount];
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        const std::string option = kProperties[p].option;
        const bool percent = option == "opacity" || option == "scale-x" || option == "scale-y";
        const std::vector<Stop> stops = Stops(keys, p, percent ? 100 : 1, source);
        const std::vector<double> frames = animated ? Positions(stops, t0, 1, rate, source, p) : std::vector<double>();
        property[p] = LottieProperty(stops, frames, option == "scale-x" ? 0 : option == "scale-y" ? 1 : -1);
    }
    const auto of = [&](const char* option) {
        for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
            if (std::string(kProperties[p].option) == option)
                return property[p];
        return std::string();
    };
    const std::string layer = "\"ip\": 0, \"op\": " + Number(op) +
                              ", \"st\": 0, \"sr\": 1, \"ao\": 0, \"bm\": 0, \"ddd\": 0,\n";
    const std::string origin = "{\"a\": 0, \"k\": [0, 0]}";
    return "{\"v\": \"5.7.4\", \"fr\": " + Number(rate) + ", \"ip\": 0, \"op\": " + Number(op) +
           ", \"w\": 1920, \"h\": 1080, \"nm\": " + Quote(source) + ", \"ddd\": 0, \"assets\": [],\n" +
           " \"meta\": {\"notes\": " + Quote(Notes(keys, source, " ")) + "},\n \"layers\": [\n" +
           "  {\"ind\": 1, \"ty\": 3, \"nm\": \"transform\", " + layer + "   \"ks\": {\n" +
           "      \"a\": " + origin + ",\n      \"p\": {\"s\": true,\n        \"x\": " + of("x") +
           ",\n        \"y\": " + of("y") + "},\n      \"r\": " + of("angle") + ",\n      \"s\": " + of("scale-x") +
           ",\n      \"o\": {\"a\": 0, \"k\": 100}}},\n" +
           "  {\"ind\": 2, \"ty\": 4, \"nm\": \"card\", \"parent\": 1, " + layer + "   \"ks\": {\n" +
           "      \"a\": " + origin + ",\n      \"p\": " + origin + ",\n      \"r\": {\"a\": 0, \"k\": 0},\n" +
           "      \"s\": " + of("scale-y") + ",\n      \"o\": " + of("opacity") + "},\n" +
           "   \"shapes\": [{\"ty\": \"gr\", \"nm\": \"card\", \"it\": [\n" +
           "     {\"ty\": \"rc\", \"nm\": \"box\", \"d\": 1, \"p\": " + origin +
           ", \"s\": {\"a\": 0, \"k\": [320, 180]}, \"r\": {\"a\": 0, \"k\": 0}},\n" +
           "     {\"ty\": \"fl\", \"nm\": \"paint\", \"c\": {\"a\": 0, \"k\": [0.2, 0.4, 0.8, 1]}, " +
           "\"o\": {\"a\": 0, \"k\": 100}, \"r\": 1},\n" +
           "     {\"ty\": \"tr\", \"a\": " + origin + ", \"p\": " + origin +
           ", \"s\": {\"a\": 0, \"k\": [100, 100]}, \"r\": {\"a\": 0, \"k\": 0}, \"o\": {\"a\": 0, \"k\": 100}}]}]}\n" +
           " ]}\n";
}

}  // namespace

std::string WriteWebExport(const TrackKeys& keys, WebFormat format, double rate, const std::string& source)
{
    CheckKeys(keys, source);
    const std::vector<KeyRecord>& any = keys[0];
    const double t0 = any.empty() ? 0.0 : any.front().time;
    const double span = any.size() < 2 ? 0.0 : any.back().time - t0;
    if (!std::isfinite(span))
        throw ToolError(source + ": the track's keys span more seconds than a number holds");
    if (format == WebFormat::Css)
        return Css(keys, t0, span, source);
    if (format == WebFormat::Waapi)
        return Waapi(keys, t0, span, source);
    return Lottie(keys, t0, span, rate, source);
}

}  // namespace qmxkf
