// Random sequences of operations on two curves, each checked against what it
// promises; a documented exception leaves the curve untouched, and keys stay
// strictly ordered. (The track's edits are fuzzed through the command-line
// host's project code, fuzz_project_file.) Operations whose documented
// outcome is a fatal stop are skipped, by these rules:
//  1. a NaN key time (AddPoint, SetPointTime):
//     the insertion stops on "newKey.second" once other keys exist, and with
//     none it stores a key that no later edit can order;
//  2. an edit that recomputes a key's own tangents (AddPoint; SetPointValue,
//     SetPointTime, SetPointInterpolationType) on a key of kind Free or None,
//     or with a Free neighbour at its place;
//  3. SetPointControlParam with new tangents next to a Free key;
//  4. RemovePoint of a key whose remembered neighbours (the previous key, or the
//     last key for the first of more than two; the next key) are Free or None;
//  5. GetCubicCoeffs on an empty curve.
// Bad indexes and unreadable values throw instead: those operations are run.
#include <cfloat>
#include <climits>
#include <stdexcept>

#include "fuzz_common.h"

namespace {

using namespace core;
constexpr int kNoKey = INT_MIN;  // "no neighbour" (kinds may be any int)

struct Blob : ValAnyObject {  // a copyable heap value (copying other objects is fatal)
    bool Copyable() const override { return true; }
    ValAnyObject* Clone() const override { return new Blob; }
};

// Operands decoded from the front of the input; zeros once it is used up.
struct Input {
    const uint8_t* data;
    size_t size, pos = 0;
    uint8_t Byte() { return pos < size ? data[pos++] : 0; }
    double Time()  // mostly quarters from -2 to 5.75, so that keys collide
    {
        static const double special[] = {-0.0, 0.1, 1.0 / 3, 1e15, -1e300, DBL_MAX, -DBL_MAX,
                                         INFINITY, -INFINITY, NAN, 5e-324, 2.5e-310, 1e-9, 1e21};
        const uint8_t b = Byte();
        uint64_t bits = 0;
        for (int i = 0; b >= 238 && i < 8; ++i)
            bits = bits << 8 | Byte();
        double raw;
        std::memcpy(&raw, &bits, sizeof raw);
        return b < 224 ? (b % 32) * 0.25 - 2.0 : b < 238 ? special[b - 224] : raw;
    }
    int Index(int count)  // just outside the keys too, and the int limits
    {
        const uint8_t b = Byte();
        return b < 250 ? b % (count + 3) - 1 : b == 250 ? INT_MIN : INT_MAX;
    }
    ValAny Value()
    {
        static const char* const texts[] = {"", "a", "0.5"};
        switch (Byte() % 10) {
        case 0: case 1: return ValAny(Time());
        case 2: return ValAny(int32_t(int8_t(Byte())));
        case 3: return ValAny(bool(Byte() & 1));
        case 4: return ValAny(int64_t(int8_t(Byte())) * (int64_t{1} << 33));
        case 5: return ValAny(uint32_t(0x7FFFFFF0u + Byte()));
        case 6: return ValAny(float(Time()));
        case 7: return ValAny(texts[Byte() % 3]);
        case 8: return ValAny(new Blob, ValAny::kObject + Byte() % 2);
        default: return ValAny();
        }
    }
};

bool Same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }
bool Fixed(int kind) { return kind == eKeyframeTypeFree || kind == eKeyframeTypeNone; }

// One operation's operands and the curve's state before it.
struct Operands {
    Input& in;
    IKeyFrame &c, &other;
    const int count = c.GetKeyFramesCount(), i = in.Index(count), kind = in.Byte() % 10 - 1, type = in.Byte() % 6;
    const double time = in.Time(), l = in.Time(), r = in.Time();
    const ValAny v = in.Value(), w = in.Value();
    const bool valid = i >= 0 && i < count, known = c.getTimeValuePairIndex(time) >= 0;
    const double at = valid ? c.GetPointTime(i) : 0.0;
    const std::string before = fuzz::Describe(c);

    int KindAt(int k) const { return k >= 0 && k < count ? c.GetInterpolationType(k) : kNoKey; }
    // Whether the key just before or just after `t` is Free, once key `skip` is
    // out; a key at `t` itself would be replaced, so it is no neighbour.
    bool FreeAround(double t, int skip) const
    {
        int previous = kNoKey, next = kNoKey;
        for (int k = 0; k < count; ++k) {
            if (k != skip && c.GetPointTime(k) < t)
                previous = c.GetInterpolationType(k);
            else if (k != skip && c.GetPointTime(k) > t && next == kNoKey)
                next = c.GetInterpolationType(k);
        }
        return previous == eKeyframeTypeFree || next == eKeyframeTypeFree;
    }
    static bool Never(const Operands&) { return false; }
    static bool AddFatal(const Operands& o)  // the kind is forced to constant on boolean and text curves
    {
        const int t = o.c.GetParameterType();
        return std::isnan(o.time) || (Fixed(o.kind) && t != eParameterTypeBool && t != eParameterTypeString) ||
               o.FreeAround(o.time, -1);
    }
    void Added(int index) const
    {
        const int found = c.getTimeValuePairIndex(time);
        FUZZ_CHECK(c.GetKeyFramesCount() == count + !known && (index < 0 || index == found));
        FUZZ_CHECK(fuzz::Describe(c.GetPointValue(found)) == fuzz::Describe(v));
    }
    void Unchanged() const { FUZZ_CHECK(fuzz::Describe(c) == before); }
};

// Merges a node of any kind and tangents in through the reader, which stores it
// unchecked: the way keys of kinds Free and None (and unknown kinds) enter a curve.
void InsertRaw(const Operands& o)
{
    const int type = o.c.GetParameterType();
    if (type > 2 || !std::isfinite(o.time) || !std::isfinite(o.l) || !std::isfinite(o.r))
        return;  // no keys are read for other types; JSON has no NaN
    std::string text = o.c.Serialize();  // AnyBadAccess for an unwritable value
    const size_t at = text.find("\"nodes\":") + 8;
    const std::string node = "[" + std::to_string(o.time) + "," + (type == 0 ? "1.5" : type == 1 ? "-3" : "true") +
                             "," + std::to_string(o.kind) + "," + std::to_string(o.l) + "," + std::to_string(o.r) + "]";
    if (text.compare(at, 4, "null") == 0)
        text.replace(at, 4, "[" + node + "]");
    else
        text.insert(at + 1, node + ",");
    FUZZ_CHECK(o.c.Desialize(text.c_str()) == 0);
}

// Each operation: whether its documented outcome is a fatal stop (by the rules
// above), and the operation with what it promises.
using Row = std::pair<bool (*)(const Operands&), void (*)(const Operands&)>;
const Row kOps[] = {
    {Operands::AddFatal, [](const Operands& o) { o.Added(o.c.AddPoint(o.time, o.v, KeyframeInterpolationType(o.kind))); }},
    {Operands::AddFatal,
     [](const Operands& o) { o.c.AddPointWithoutIndex(o.time, o.v, KeyframeInterpolationType(o.kind)); o.Added(-1); }},
    {[](const Operands& o) { return o.valid && (Fixed(o.KindAt(o.i)) || o.FreeAround(o.at, o.i)); },
     [](const Operands& o) { o.c.SetPointValue(o.i, o.v); }},
    {[](const Operands& o) {
         return o.valid && o.at != o.time && (std::isnan(o.time) || Fixed(o.KindAt(o.i)) || o.FreeAround(o.time, o.i));
     },
     [](const Operands& o) {  // a key moved onto another one replaces it
         const std::string moved = fuzz::Describe(o.c.GetPointValue(o.i));
         o.c.SetPointTime(o.i, o.time);
         FUZZ_CHECK(o.c.GetKeyFramesCount() == o.count - (o.known && o.at != o.time));
         FUZZ_CHECK(fuzz::Describe(o.c.GetPointValue(o.c.getTimeValuePairIndex(o.time))) == moved);
     }},
    {[](const Operands& o) { return o.valid && o.KindAt(o.i) != o.kind && (Fixed(o.kind) || o.FreeAround(o.at, o.i)); },
     [](const Operands& o) { o.c.SetPointInterpolationType(o.i, KeyframeInterpolationType(o.kind)); }},
    {[](const Operands& o) {
         double left = 0, right = 0;
         return o.valid && (o.c.GetPointControlParam(o.i, left, right), left != o.l || right != o.r) &&
                o.FreeAround(o.at, o.i);
     },
     [](const Operands& o) {  // the key keeps its hand-set tangents; only its neighbours are refreshed
         double left, right;
         o.c.SetPointControlParam(o.i, o.l, o.r);
         o.c.GetPointControlParam(o.i, left, right);
         FUZZ_CHECK(Same(left, o.l) && Same(right, o.r));
     }},
    {[](const Operands& o) {
         return o.valid && (Fixed(o.KindAt(o.i + 1)) || Fixed(o.KindAt(o.i > 0 ? o.i - 1 : o.count > 2 ? o.count - 1 : -1)));
     },
     [](const Operands& o) { o.c.RemovePoint(o.i); FUZZ_CHECK(o.c.GetKeyFramesCount() == o.count - o.valid); }},
    {Operands::Never, [](const Operands& o) { o.c.Clear(); }},
    {Operands::Never, [](const Operands& o) { o.c.SetValueRange(o.v, o.w); }},
    {Operands::Never, [](const Operands& o) { o.c.SetParameterType(ParameterTypeEnum(o.type)); }},
    {Operands::Never, [](const Operands& o) { FUZZ_CHECK(o.c.CopyFrom(&o.other) && fuzz::Describe(o.c) == fuzz::Describe(o.other)); }},
    {Operands::Never,
     [](const Operands& o) {  // queries
         TimeValuePair key;
         o.c.GetValue(o.time, false);
         fuzz::Impl(&o.c).GetNearestKeyFrameWithTime(o.time, &key);
         o.c.GetValue(o.time, true);  // AnyBadAccess for some ranges
         o.Unchanged();
     }},
    {[](const Operands& o) { return o.count == 0; },
     [](const Operands& o) {
         double c0, c1, c2, c3;
         fuzz::Impl(&o.c).GetCubicCoeffs(o.time, c0, c1, c2, c3);  // AnyBadAccess for non-numbers
         o.Unchanged();
     }},
    {Operands::Never, InsertRaw},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in{data, size};
    QMXComPtr<IKeyFrame> curves[2] = {fuzz::NewCurve(), fuzz::NewCurve()};
    for (int step = 0; step < 256 && in.pos < in.size; ++step) {
        const uint8_t b = in.Byte(), op = (b & 0x7F) % std::size(kOps);  // the high bit picks the curve
        const Operands o{in, *curves[b >> 7], *curves[1 - (b >> 7)]};
        if (kOps[op].first(o))
            continue;
        try {
            kOps[op].second(o);
        } catch (const std::out_of_range&) {  // a bad index, refused before any change
            FUZZ_CHECK(!o.valid);
            o.Unchanged();
        } catch (const AnyBadAccess&) {  // an unreadable value, refused before any change
            o.Unchanged();
        }
        fuzz::CheckOrder(o.c);
    }
    return 0;
}
