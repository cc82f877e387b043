// Random sequences of curve and track operations. Each one is checked against
// what it promises (counts, stored fields, untouched state after a documented
// exception); keys stay strictly ordered and the track's six curves in
// lockstep. Operations whose documented outcome is a fatal stop are skipped:
// Fatal() lists those rules.
#include <cfloat>
#include <climits>
#include <stdexcept>

#include "QMXPropertyBag.h"
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
    int Kind() { return Byte() % 10 - 1; }  // -1 to 8: every kind and two unknown ones
    int Index(int count)
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

bool Valid(IKeyFrame& c, int i) { return i >= 0 && i < c.GetKeyFramesCount(); }
int KindAt(IKeyFrame& c, int i) { return Valid(c, i) ? c.GetInterpolationType(i) : kNoKey; }
bool Fixed(int kind) { return kind == eKeyframeTypeFree || kind == eKeyframeTypeNone; }

// Whether the key just before or just after `time` is Free, once key `skip` is
// out; a key at `time` itself would be replaced, so it is no neighbour.
bool FreeAround(IKeyFrame& c, double time, int skip)
{
    int before = kNoKey, after = kNoKey;
    for (int i = 0; i < c.GetKeyFramesCount(); ++i) {
        if (i != skip && c.GetPointTime(i) < time)
            before = c.GetInterpolationType(i);
        else if (i != skip && c.GetPointTime(i) > time && after == kNoKey)
            after = c.GetInterpolationType(i);
    }
    return before == eKeyframeTypeFree || after == eKeyframeTypeFree;
}

// Whether SetPointValue replaces key `i` (not for an equal value, nor on text
// curves); the stored value is read first and throws AnyBadAccess, as there.
bool Changes(IKeyFrame& c, int i, const ValAny& v)
{
    const ValAny s = c.GetPointValue(i);
    switch (c.GetParameterType()) {
    case eParameterTypeDouble: {
        const double d = s.Get<double>();
        return !(v.IsNumber() && v.Get<double>() == d);
    }
    case eParameterTypeInt: {
        const int n = s.Get<int>();
        return !(v.IsInteger() && v.GetLow32() == n);
    }
    case eParameterTypeBool: {
        const bool b = s.Get<bool>();
        return !(v.GetTypeTag() == ValAny::kBool && v.Get<bool>() == b);
    }
    case eParameterTypeString: return false;
    default: return true;
    }
}

// The operations whose outcome is a fatal check, by rule:
//  1. a NaN key time (AddPoint, SetPointTime; the track's add, set and move):
//     the insertion stops on "newKey.second" once other keys exist, and with
//     none it stores a key that no later edit can order;
//  2. an edit that recomputes a key's own tangents (AddPoint; SetPointValue,
//     SetPointTime, SetPointInterpolationType when they change the key) on a
//     key of kind Free or None, or with a Free neighbour at its place;
//  3. SetPointControlParam with new tangents next to a Free key;
//  4. RemovePoint of a key whose remembered neighbours (the previous key, or the
//     last key for the first of more than two; the next key) are Free or None;
//  5. GetCubicCoeffs on an empty curve; a track curve outside 0..5 (TrackStep).
// Bad indexes and unreadable values throw instead: those operations are run.
bool Fatal(IKeyFrame& c, int op, int i, double time, int kind, const ValAny& v, double l, double r)
{
    const int count = c.GetKeyFramesCount(), type = c.GetParameterType();
    const double at = Valid(c, i) ? c.GetPointTime(i) : 0.0;
    double left = 0, right = 0;
    switch (op) {
    case 0: case 1:
        kind = type == eParameterTypeBool || type == eParameterTypeString ? eKeyframeTypeConstant : kind;
        return std::isnan(time) || Fixed(kind) || FreeAround(c, time, -1);
    case 2:
        try {
            return Valid(c, i) && Changes(c, i, v) && (Fixed(KindAt(c, i)) || FreeAround(c, at, i));
        } catch (const AnyBadAccess&) {
            return false;
        }
    case 3:
        return Valid(c, i) && at != time &&
               (std::isnan(time) || Fixed(KindAt(c, i)) || FreeAround(c, time, i));
    case 4: return Valid(c, i) && KindAt(c, i) != kind && (Fixed(kind) || FreeAround(c, at, i));
    case 5:
        if (Valid(c, i))
            c.GetPointControlParam(i, left, right);
        return Valid(c, i) && !(left == l && right == r) && FreeAround(c, at, i);
    case 6:
        return Valid(c, i) &&
               (Fixed(KindAt(c, i + 1)) || Fixed(KindAt(c, i > 0 ? i - 1 : count > 2 ? count - 1 : -1)));
    case 12: return count == 0;
    default: return false;
    }
}

// Merges a node of any kind and tangents in through the reader, which stores it
// unchecked: the way keys of kinds Free and None (and unknown kinds) enter a curve.
void InsertRaw(IKeyFrame& c, double time, int kind, double l, double r)
{
    std::string text;
    try {
        text = c.Serialize();
    } catch (const AnyBadAccess&) {
        return;
    }
    const int type = c.GetParameterType();
    if (type > 2 || !std::isfinite(time) || !std::isfinite(l) || !std::isfinite(r))
        return;  // no keys are read for other types; JSON has no NaN
    const size_t at = text.find("\"nodes\":") + 8;
    const std::string value = type == 0 ? "1.5" : type == 1 ? "-3" : "true";
    const std::string node = "[" + std::to_string(time) + "," + value + "," + std::to_string(kind) + "," +
                             std::to_string(l) + "," + std::to_string(r) + "]";
    if (text.compare(at, 4, "null") == 0)
        text.replace(at, 4, "[" + node + "]");
    else
        text.insert(at + 1, node + ",");
    FUZZ_CHECK(c.Desialize(text.c_str()) == 0);
}

// One curve operation `op` on `c` (the other curve is `other`), checked.
void CurveStep(Input& in, int op, IKeyFrame& c, IKeyFrame& other)
{
    const int count = c.GetKeyFramesCount(), i = in.Index(count), kind = in.Kind(), type = in.Byte() % 6;
    const double time = in.Time(), l = in.Time(), r = in.Time();
    const ValAny v = in.Value(), w = in.Value();
    const auto K = KeyframeInterpolationType(kind);
    if (Fatal(c, op, i, time, kind, v, l, r))
        return;
    const std::string before = fuzz::Describe(c);
    const bool known = c.getTimeValuePairIndex(time) >= 0;
    double c0, c1, c2, c3;
    ValAny low, high;
    TimeValuePair key;
    try {
        switch (op) {
        case 0: case 1: {  // the kind is forced to constant on boolean and text curves
            const int at = op == 0 ? c.AddPoint(time, v, K) : (c.AddPointWithoutIndex(time, v, K), -1);
            const int index = c.getTimeValuePairIndex(time), curveType = c.GetParameterType();
            FUZZ_CHECK(c.GetKeyFramesCount() == count + !known && (op == 1 || index == at));
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(index)) == fuzz::Describe(v));
            FUZZ_CHECK(c.GetInterpolationType(index) == (curveType == 2 || curveType == 3 ? 0 : kind));
            break;
        }
        case 2: {  // an unreadable stored value throws before anything changes
            const std::string old = fuzz::Describe(c.GetPointValue(i));
            bool changes = false, unreadable = false;
            try {
                changes = Changes(c, i, v);
            } catch (const AnyBadAccess&) {
                unreadable = true;
            }
            try {
                c.SetPointValue(i, v);
                FUZZ_CHECK(!unreadable);
            } catch (const AnyBadAccess&) {
                FUZZ_CHECK(unreadable);
            }
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(i)) == (changes ? fuzz::Describe(v) : old));
            break;
        }
        case 3: {  // a key moved onto another one replaces it
            const std::string moved = fuzz::Describe(c.GetPointValue(i));
            const bool replaces = known && c.GetPointTime(i) != time;
            c.SetPointTime(i, time);
            FUZZ_CHECK(c.GetKeyFramesCount() == count - replaces);
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(c.getTimeValuePairIndex(time))) == moved);
            break;
        }
        case 4: c.SetPointInterpolationType(i, K); FUZZ_CHECK(c.GetInterpolationType(i) == kind); break;
        case 5:  // the key keeps its hand-set tangents; only its neighbours are refreshed
            c.SetPointControlParam(i, l, r);
            c.GetPointControlParam(i, c0, c1);
            FUZZ_CHECK(fuzz::Same(c0, l) && fuzz::Same(c1, r));
            break;
        case 6: c.RemovePoint(i); FUZZ_CHECK(c.GetKeyFramesCount() == count - (i >= 0 && i < count)); break;
        case 7: c.Clear(); FUZZ_CHECK(c.GetKeyFramesCount() == 0); break;
        case 8:
            c.SetValueRange(v, w);
            c.GetValueRange(low, high);
            FUZZ_CHECK(fuzz::Describe(low) == fuzz::Describe(v) && fuzz::Describe(high) == fuzz::Describe(w));
            break;
        case 9: c.SetParameterType(ParameterTypeEnum(type)); FUZZ_CHECK(c.GetParameterType() == type); break;
        case 10: FUZZ_CHECK(c.CopyFrom(&other) && fuzz::Describe(c) == fuzz::Describe(other)); break;
        case 11:
            c.GetValue(time, false);
            fuzz::Impl(&c).GetNearestKeyFrameWithTime(time, &key);
            c.GetValue(time, true);  // AnyBadAccess for some ranges
            break;
        case 12: fuzz::Impl(&c).GetCubicCoeffs(time, c0, c1, c2, c3); break;  // AnyBadAccess for non-numbers
        default: InsertRaw(c, time, kind, l, r);
        }
    } catch (const std::out_of_range&) {
        FUZZ_CHECK(!Valid(c, i) && fuzz::Describe(c) == before);
    } catch (const AnyBadAccess&) {
        FUZZ_CHECK(fuzz::Describe(c) == before);
    }
    if (op == 11 || op == 12)
        FUZZ_CHECK(fuzz::Describe(c) == before);
    fuzz::CheckOrder(c);
}

// The six curves hold the times of the keys the track hands out, as their
// written texts show (a text holding an infinity cannot be read back).
void CheckTrack(IQMXKeyFrame* track)
{
    QMXComPtr<IQMXProperties> bag;
    bag.Attach(QMXCreateMemoryProperties());
    FUZZ_CHECK(fuzz::Storage(track)->WriteTo(bag.Get()) == S_OK);
    std::string times;
    KeyFrameParam p{};
    for (int i = 0; i < track->GetKeyFrameCount(); ++i)
        times += (track->GetKeyFrame(i, p), fuzz::Bits(p.dPosition)) + " ";
    for (int curve = 0; curve < 6; ++curve) {
        QMXComPtr<IKeyFrame> c = fuzz::NewCurve();
        c->Desialize(fuzz::Joined(bag.Get(), curve).c_str());
        fuzz::CheckOrder(*c);
        std::string own;
        for (int i = 0; i < c->GetKeyFramesCount(); ++i)
            own += fuzz::Bits(c->GetPointTime(i)) + " ";
        FUZZ_CHECK(own == times || fuzz::Unreadable(fuzz::Joined(bag.Get(), curve)));
    }
}

bool SameKey(const KeyFrameParam& a, const KeyFrameParam& b)
{
    double x[7], y[7];
    std::memcpy(x, &a, sizeof x);
    std::memcpy(y, &b, sizeof y);
    return std::equal(x, x + 7, y, fuzz::Same);
}

// One track operation, checked. The track's curves only ever get its own linear
// keys here, so of the rules in Fatal only 1 (NaN positions) and 5 apply.
void TrackStep(Input& in, int op, IQMXKeyFrame* track)
{
    static const int rates[] = {0, 1, 24, 25, 30, 60, -5, 1000};
    const int count = track->GetKeyFrameCount(), i = in.Index(count), key = in.Byte() % 8;
    const int rate = rates[in.Byte() % 8], frame = int8_t(in.Byte());
    KeyFrameParam old{}, got{};
    KeyFrameParam p{in.Time(), in.Time(), in.Time(), in.Time(), in.Time(), in.Time(), in.Time()};
    const double time = in.Time();
    const bool valid = i >= 0 && i < count;
    if ((std::isnan(p.dPosition) && (op == 0 || (op == 1 && valid))) ||
        (op == 3 && valid && std::isnan(time)) || (op == 5 && key > 5))
        return;
    FUZZ_CHECK(!valid || track->GetKeyFrame(i, old));
    const std::string before = fuzz::Keys(track);
    const double to = op == 3 ? time : p.dPosition;
    const bool replaces = track->GetKeyFrameIndex(to) >= 0 && (op == 0 || (valid && old.dPosition != to));
    int index = -2, f = -1;
    double position = 0;
    switch (op) {
    case 0:
        FUZZ_CHECK(track->AddKeyFrame(p, index) && track->GetKeyFrameCount() == count + !replaces);
        FUZZ_CHECK(track->GetKeyFrame(index, got) && SameKey(got, p));
        break;
    case 1: case 3:  // the key at its new time holds the new (or its old) values
        FUZZ_CHECK((op == 1 ? track->SetKeyFrame(i, p) : track->ChangeKeyFramePosition(i, time)) == valid);
        if (op == 3)
            (p = old).dPosition = time;
        FUZZ_CHECK(!valid || (track->GetKeyFrameCount() == count - replaces &&
                              track->GetKeyFrame(track->GetKeyFrameIndex(to), got) && SameKey(got, p)));
        break;
    case 2:
        FUZZ_CHECK(track->DeleteKeyFrame(i) == valid && track->GetKeyFrameCount() == count - valid);
        break;
    case 4: track->CleanAllKeyFrame(); FUZZ_CHECK(track->GetKeyFrameCount() == 0); break;
    case 5: track->GetKeyFrameValue(key, time); break;
    case 6: {
        const bool inside = count >= 2 && track->GetKeyFrame(0, got) && got.dPosition <= time &&
                            track->GetKeyFrame(count - 1, got) && time <= got.dPosition;
        FUZZ_CHECK(track->InKeyFrameRange(time) == inside);
        FUZZ_CHECK(track->HasKeyFrame(key) == (key < 6 && count > 0));
        FUZZ_CHECK(track->GetKeyFrame(time, got) == (count > 0));
        FUZZ_CHECK(count == 0 || fuzz::Same(got.dPosition, time));
        break;
    }
    default:
        try {
            track->CaculateKeyFrameIndex(i, rate, f);  // std::out_of_range for a bad index
            FUZZ_CHECK(valid && f == QMXCommon::KeyFrame::CaculateKeyFrameIndex(old.dPosition, rate));
            FUZZ_CHECK(track->GetKeyFrameIndex(f, rate, index) && index >= 0 && index <= i);
        } catch (const std::out_of_range&) {
            FUZZ_CHECK(!valid);
        }
        track->CaculateKeyFramePosition(frame, rate, position);
        const std::pair<int64_t, int64_t> exact = QMXCommon::KeyFrame::CaculateKeyFramePosition(frame, rate);
        FUZZ_CHECK(position == double(exact.first) / double(exact.second));
    }
    if (op >= 5 || (!valid && op != 0 && op != 4))  // queries, and edits of a bad index
        FUZZ_CHECK(fuzz::Keys(track) == before);
    CheckTrack(track);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::InstallQuietLogger();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in{data, size};
    QMXComPtr<IKeyFrame> curves[2] = {fuzz::NewCurve(), fuzz::NewCurve()};
    QMXComPtr<IQMXKeyFrame> track = fuzz::NewTrack();
    for (int step = 0; step < 256 && in.pos < in.size; ++step) {
        const uint8_t b = in.Byte(), op = (b & 0x7F) % 22;  // the high bit picks the curve
        if (op < 14)
            CurveStep(in, op, *curves[b >> 7], *curves[1 - (b >> 7)]);
        else
            TrackStep(in, op - 14, track.Get());
    }
    return 0;
}
