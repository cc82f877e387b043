// Random sequences of curve and track operations. Each operation is checked
// against what it promises (counts, stored fields, untouched state after a
// documented exception), and the keys stay strictly ordered and the track's
// six curves in lockstep. Operations whose documented outcome is a fatal stop
// are skipped: Fatal() lists those rules.
#include <cfloat>
#include <climits>
#include <stdexcept>

#include "QMXPropertyBag.h"
#include "fuzz_common.h"

namespace {

using namespace core;
constexpr int kNoKey = INT_MIN;  // "no neighbour" (kinds may be any int)

struct Blob : ValAnyObject {  // a copyable heap value (copying others is fatal)
    bool Copyable() const override { return true; }
    ValAnyObject* Clone() const override { return new Blob; }
};

// Operands decoded from the front of the input; zeros once it is used up.
struct Input {
    const uint8_t* data;
    size_t size, pos = 0;
    uint8_t Byte() { return pos < size ? data[pos++] : 0; }
    double Raw() { uint64_t b = 0; for (int i = 0; i < 8; ++i) b = b << 8 | Byte(); double d; std::memcpy(&d, &b, 8); return d; }
    double Time()
    {
        static const double special[] = {-0.0, 0.1, 1.0 / 3, 1e15, -1e300, DBL_MAX, -DBL_MAX, INFINITY,
                                         -INFINITY, NAN, 5e-324, 2.5e-310, 1e-9, 1e21};
        const uint8_t b = Byte();
        return b < 224 ? (b % 32) * 0.25 - 2.0 : b < 238 ? special[b - 224] : Raw();
    }
    KeyframeInterpolationType Kind() { return KeyframeInterpolationType(Byte() % 10 - 1); }  // -1 .. 8
    int Index(int count) { const uint8_t b = Byte(); return b < 250 ? b % (count + 3) - 1 : b == 250 ? INT_MIN : INT_MAX; }
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

bool Fixed(int kind) { return kind == eKeyframeTypeFree || kind == eKeyframeTypeNone; }
int KindAt(IKeyFrame& c, int i) { return i >= 0 && i < c.GetKeyFramesCount() ? c.GetInterpolationType(i) : kNoKey; }
bool Valid(IKeyFrame& c, int i) { return i >= 0 && i < c.GetKeyFramesCount(); }

// Kinds of the keys just before and just after `time` once key `skip` is out;
// a key at `time` itself would be replaced, so it is no neighbour.
std::pair<int, int> Around(IKeyFrame& c, double time, int skip)
{
    std::pair<int, int> kinds{kNoKey, kNoKey};
    for (int i = 0; i < c.GetKeyFramesCount(); ++i) {
        if (i != skip && c.GetPointTime(i) < time)
            kinds.first = c.GetInterpolationType(i);
        else if (i != skip && c.GetPointTime(i) > time && kinds.second == kNoKey)
            kinds.second = c.GetInterpolationType(i);
    }
    return kinds;
}
bool FreeAround(IKeyFrame& c, double time, int skip)
{
    const auto [before, after] = Around(c, time, skip);
    return before == eKeyframeTypeFree || after == eKeyframeTypeFree;
}

// Whether SetPointValue replaces the key (it does not for an equal value and on
// text curves); reading an unreadable stored value throws AnyBadAccess first.
bool Changes(IKeyFrame& c, int i, const ValAny& v)
{
    const ValAny stored = c.GetPointValue(i);
    switch (c.GetParameterType()) {
    case eParameterTypeDouble: { const double s = stored.Get<double>(); return !(v.IsNumber() && v.Get<double>() == s); }
    case eParameterTypeInt: { const int s = stored.Get<int>(); return !(v.IsInteger() && v.GetLow32() == s); }
    case eParameterTypeBool: { const bool s = stored.Get<bool>(); return !(v.GetTypeTag() == ValAny::kBool && v.Get<bool>() == s); }
    case eParameterTypeString: return false;
    default: return true;
    }
}

// The operations whose documented outcome is a fatal check, by rule:
//  1. a NaN key time (AddPoint, SetPointTime of a key; the track's add, set and
//     move): NaN breaks the time ordering of the key set;
//  2. an edit that recomputes a key's own tangents (AddPoint, and SetPointValue,
//     SetPointTime, SetPointInterpolationType when they change the key) on a
//     key of kind Free or None, or with a neighbour of kind Free at its place;
//  3. SetPointControlParam with new tangents next to a key of kind Free;
//  4. RemovePoint of a key whose remembered neighbours (the previous key, or the
//     last key for the first of more than two; the next key) are Free or None;
//  5. GetCubicCoeffs on an empty curve; a track curve outside 0..5 (its empty
//     slot: see TrackStep, whose curves hold only the track's own linear keys).
// Index errors and unreadable values throw instead, and are run.
bool Fatal(IKeyFrame& c, int op, int i, double time, int kind, const ValAny& v, double l, double r)
{
    const int count = c.GetKeyFramesCount();
    switch (op) {
    case 0: case 1:
        if (c.GetParameterType() == eParameterTypeBool || c.GetParameterType() == eParameterTypeString)
            kind = eKeyframeTypeConstant;
        return std::isnan(time) || Fixed(kind) || FreeAround(c, time, -1);
    case 2:
        try { return Valid(c, i) && Changes(c, i, v) && (Fixed(KindAt(c, i)) || FreeAround(c, c.GetPointTime(i), i)); }
        catch (const AnyBadAccess&) { return false; }
    case 3: return Valid(c, i) && c.GetPointTime(i) != time && (std::isnan(time) || Fixed(KindAt(c, i)) || FreeAround(c, time, i));
    case 4: return Valid(c, i) && KindAt(c, i) != kind && (Fixed(kind) || FreeAround(c, c.GetPointTime(i), i));
    case 5: {
        double left = 0, right = 0;
        if (Valid(c, i))
            c.GetPointControlParam(i, left, right);
        return Valid(c, i) && !(left == l && right == r) && FreeAround(c, c.GetPointTime(i), i);
    }
    case 6: return Valid(c, i) && (Fixed(KindAt(c, i + 1)) || Fixed(KindAt(c, i > 0 ? i - 1 : count > 2 ? count - 1 : -1)));
    case 12: return count == 0;
    default: return false;
    }
}

// Merges a node of any kind and tangents in through the reader, which stores it
// unchecked: the way keys of kinds Free and None (and unknown kinds) enter a curve.
void InsertRaw(IKeyFrame& c, double time, int kind, double l, double r)
{
    std::string text;
    try { text = c.Serialize(); } catch (const AnyBadAccess&) { return; }
    const int type = c.GetParameterType();
    if (type > 2 || !std::isfinite(time) || !std::isfinite(l) || !std::isfinite(r))
        return;  // no keys are read for other types; JSON has no NaN
    const size_t at = text.find("\"nodes\":") + 8;
    const std::string node = "[" + std::to_string(time) + "," + (type == 0 ? "1.5" : type == 1 ? "-3" : "true") +
                             "," + std::to_string(kind) + "," + std::to_string(l) + "," + std::to_string(r) + "]";
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
    if (Fatal(c, op, i, time, kind, v, l, r))
        return;
    const std::string before = fuzz::Describe(c);
    const bool known = c.getTimeValuePairIndex(time) >= 0;
    try {
        switch (op) {
        case 0: {
            const int at = c.AddPoint(time, v, KeyframeInterpolationType(kind));
            FUZZ_CHECK(c.GetKeyFramesCount() == count + !known && c.getTimeValuePairIndex(time) == at);
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(at)) == fuzz::Describe(v));
            FUZZ_CHECK(c.GetInterpolationType(at) == (c.GetParameterType() == eParameterTypeBool ||
                       c.GetParameterType() == eParameterTypeString ? eKeyframeTypeConstant : kind));
            break;
        }
        case 1:
            c.AddPointWithoutIndex(time, v, KeyframeInterpolationType(kind));
            FUZZ_CHECK(c.GetKeyFramesCount() == count + !known);
            break;
        case 2: {
            const bool changes = Changes(c, i, v);  // may throw as SetPointValue does
            const std::string old = fuzz::Describe(c.GetPointValue(i));
            c.SetPointValue(i, v);
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(i)) == (changes ? fuzz::Describe(v) : old));
            break;
        }
        case 3: {
            const std::string moved = fuzz::Describe(c.GetPointValue(i));
            const bool replaces = known && c.GetPointTime(i) != time;
            c.SetPointTime(i, time);
            FUZZ_CHECK(c.GetKeyFramesCount() == count - replaces);
            FUZZ_CHECK(fuzz::Describe(c.GetPointValue(c.getTimeValuePairIndex(time))) == moved);
            break;
        }
        case 4: c.SetPointInterpolationType(i, KeyframeInterpolationType(kind)); FUZZ_CHECK(c.GetInterpolationType(i) == kind); break;
        case 5: {
            double left, right;
            c.SetPointControlParam(i, l, r);
            c.GetPointControlParam(i, left, right);
            FUZZ_CHECK(fuzz::Same(left, l) && fuzz::Same(right, r));
            break;
        }
        case 6: c.RemovePoint(i); FUZZ_CHECK(c.GetKeyFramesCount() == count - (i >= 0 && i < count)); break;
        case 7: c.Clear(); FUZZ_CHECK(c.GetKeyFramesCount() == 0); break;
        case 8: {
            ValAny low, high;
            c.SetValueRange(v, w);
            c.GetValueRange(low, high);
            FUZZ_CHECK(fuzz::Describe(low) == fuzz::Describe(v) && fuzz::Describe(high) == fuzz::Describe(w));
            break;
        }
        case 9: c.SetParameterType(ParameterTypeEnum(type)); FUZZ_CHECK(c.GetParameterType() == type); break;
        case 10: FUZZ_CHECK(c.CopyFrom(&other) && fuzz::Describe(c) == fuzz::Describe(other)); break;
        case 11: {
            TimeValuePair key;
            c.GetValue(time, false);
            fuzz::Impl(&c).GetNearestKeyFrameWithTime(time, &key);
            c.GetValue(time, true);  // AnyBadAccess for some ranges
            break;
        }
        case 12: {
            double c0, c1, c2, c3;
            fuzz::Impl(&c).GetCubicCoeffs(time, c0, c1, c2, c3);  // AnyBadAccess for non-numeric keys
            break;
        }
        case 13: InsertRaw(c, time, kind, l, r); break;
        default: {  // types 0 to 2 without NaN (written "null") read back to the same text
            const std::string text = c.Serialize();
            QMXComPtr<IKeyFrame> back = fuzz::NewCurve();
            back->Desialize(text.c_str());
            FUZZ_CHECK(c.GetParameterType() > 2 || text.find("null,") != std::string::npos ||
                       text.find("null]") != std::string::npos || fuzz::Unreadable(text) || back->Serialize() == text);
        }
        }
    } catch (const std::out_of_range&) {
        FUZZ_CHECK(!Valid(c, i) && fuzz::Describe(c) == before);
    } catch (const AnyBadAccess&) {
        FUZZ_CHECK(fuzz::Describe(c) == before);
    }
    if (op == 11 || op == 12 || op == 14)
        FUZZ_CHECK(fuzz::Describe(c) == before);
    fuzz::CheckOrder(c);
}

// The six curves hold the same key times (seen through their written texts),
// those of the keys the track hands out.
void CheckTrack(IQMXKeyFrame* track)
{
    QMXComPtr<IQMXProperties> bag;
    bag.Attach(QMXCreateMemoryProperties());
    FUZZ_CHECK(fuzz::Storage(track)->WriteTo(bag.Get()) == S_OK);
    std::string times;
    for (int i = 0; i < track->GetKeyFrameCount(); ++i) {
        KeyFrameParam p{};
        FUZZ_CHECK(track->GetKeyFrame(i, p));
        times += fuzz::Bits(p.dPosition) + " ";
    }
    for (int curve = 0; curve < 6; ++curve) {  // texts with infinities cannot be read back
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
    return fuzz::Same(a.dPosition, b.dPosition) && fuzz::Same(a.dAngle, b.dAngle) && fuzz::Same(a.dPositionX, b.dPositionX) &&
           fuzz::Same(a.dPositionY, b.dPositionY) && fuzz::Same(a.dScaleX, b.dScaleX) &&
           fuzz::Same(a.dScaleY, b.dScaleY) && fuzz::Same(a.dOpacity, b.dOpacity);
}

// One track operation, checked. The track's curves only ever get its own linear
// keys here, so of the rules in Fatal only 1 (NaN positions) and 5 apply.
void TrackStep(Input& in, int op, IQMXKeyFrame* track)
{
    const int count = track->GetKeyFrameCount(), i = in.Index(count), key = in.Byte() % 8;
    static const int rates[] = {0, 1, 24, 25, 30, 60, -5, 1000};
    const int rate = rates[in.Byte() % 8], frame = int8_t(in.Byte());
    KeyFrameParam p{in.Time(), in.Time(), in.Time(), in.Time(), in.Time(), in.Time(), in.Time()}, old{}, got{};
    const double time = in.Time();
    const bool valid = i >= 0 && i < count;
    if ((std::isnan(p.dPosition) && (op == 0 || (op == 1 && valid))) || (op == 3 && valid && std::isnan(time)) ||
        (op == 5 && key > 5))
        return;
    if (valid)
        FUZZ_CHECK(track->GetKeyFrame(i, old));
    const std::string before = fuzz::Keys(track);
    const double at = op == 3 ? time : p.dPosition;
    const bool replaces = track->GetKeyFrameIndex(at) >= 0 && (op == 0 || (valid && old.dPosition != at));
    switch (op) {
    case 0: {
        int index = -2;
        FUZZ_CHECK(track->AddKeyFrame(p, index) && track->GetKeyFrameCount() == count + !replaces);
        FUZZ_CHECK(track->GetKeyFrame(index, got) && SameKey(got, p));
        break;
    }
    case 1: case 3:
        FUZZ_CHECK((op == 1 ? track->SetKeyFrame(i, p) : track->ChangeKeyFramePosition(i, time)) == valid);
        if (op == 3)
            (p = old).dPosition = time;
        FUZZ_CHECK(!valid || (track->GetKeyFrameCount() == count - replaces &&
                              track->GetKeyFrame(track->GetKeyFrameIndex(p.dPosition), got) && SameKey(got, p)));
        break;
    case 2: FUZZ_CHECK(track->DeleteKeyFrame(i) == valid && track->GetKeyFrameCount() == count - valid); break;
    case 4: track->CleanAllKeyFrame(); FUZZ_CHECK(track->GetKeyFrameCount() == 0); break;
    case 5: track->GetKeyFrameValue(key, time); break;
    case 6: {
        const bool inside = count >= 2 && track->GetKeyFrame(0, got) && got.dPosition <= time &&
                            track->GetKeyFrame(count - 1, got) && time <= got.dPosition;
        FUZZ_CHECK(track->InKeyFrameRange(time) == inside && track->HasKeyFrame(key) == (key < 6 && count > 0));
        FUZZ_CHECK(track->GetKeyFrame(time, got) == (count > 0) && (count == 0 || fuzz::Same(got.dPosition, time)));
        break;
    }
    default: {
        int f = -1, index = -7;
        double position = 0;
        try {
            track->CaculateKeyFrameIndex(i, rate, f);  // std::out_of_range for a bad index
            FUZZ_CHECK(valid && f == QMXCommon::KeyFrame::CaculateKeyFrameIndex(old.dPosition, rate));
            FUZZ_CHECK(track->GetKeyFrameIndex(f, rate, index) && index >= 0 && index <= i);
        } catch (const std::out_of_range&) {
            FUZZ_CHECK(!valid);
        }
        const std::pair<int64_t, int64_t> exact = QMXCommon::KeyFrame::CaculateKeyFramePosition(frame, rate);
        track->CaculateKeyFramePosition(frame, rate, position);
        FUZZ_CHECK(position == double(exact.first) / double(exact.second));
    }
    }
    if (!valid && op != 0 && op != 4)
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
        const uint8_t b = in.Byte(), op = (b & 0x7F) % 23;
        if (op < 15)
            CurveStep(in, op, *curves[b >> 7], *curves[1 - (b >> 7)]);
        else
            TrackStep(in, op - 15, track.Get());
    }
    return 0;
}
