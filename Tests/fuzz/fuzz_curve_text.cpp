// The input as a curve's JSON text: the fast and the library reader must agree;
// the curve read is evaluated and queried, and its text must read back exactly.
// Documents of unexpected JSON types make the reader throw (JsonCpp's
// exceptions or core::AnyBadAccess pass through Desialize): that is its
// contract, so the outcome is compared, never treated as a crash.
#include <climits>
#include <exception>
#include <stdexcept>
#include <typeinfo>
#include <vector>

#include "CurveCodecLibrary.h"
#include "fuzz_common.h"

namespace {

using core::ValAny;

// A curve's state after reading `text`, or the exception the reader threw.
std::string Read(core::Parameter& curve, const std::string& text, bool library)
{
    try {
        core::CurveTextContent content;
        std::string error;
        if (!library)
            FUZZ_CHECK(curve.Desialize(text.c_str()) == 0);
        else if (core::ReadCurveTextWithLibrary(text.c_str(), content, error))
            curve.Apply(content);
        return fuzz::Describe(curve);
    } catch (const std::exception& e) {
        return std::string("threw ") + typeid(e).name() + ": " + e.what();
    }
}

// A key value as evaluation reads it: booleans 1 or 0, other non-numbers 0.
double Number(const ValAny& v)
{
    if (v.GetTypeTag() == ValAny::kBool)
        return v.Get<bool>() ? 1.0 : 0.0;
    return v.IsNumber() ? v.Get<double>() : 0.0;
}

// Whether every number of the curve is small enough that evaluating at a key
// involves no overflow, so that the key's own value must come back exactly.
bool Moderate(core::IKeyFrame& c)
{
    for (int i = 0; i < c.GetKeyFramesCount(); ++i) {
        double left = 0, right = 0;
        c.GetPointControlParam(i, left, right);
        if (!(std::fabs(c.GetPointTime(i)) < 1e15 && std::fabs(Number(c.GetPointValue(i))) < 1e100 &&
              std::fabs(left) < 1e100 && std::fabs(right) < 1e100))
            return false;
    }
    return true;
}

// Whether `got`, the value exactly at a key, is that key's value `v` typed as the curve gives it.
bool IsKeyValue(const ValAny& got, const ValAny& v, int type)
{
    const double n = Number(v);
    if (type == core::eParameterTypeBool)
        return got.Get<bool>() == (n != 0.0);
    if (type == core::eParameterTypeInt)
        return got.Get<int>() == (n >= INT_MAX ? INT_MAX : n <= INT_MIN ? INT_MIN : int(n));
    return got.Get<double>() == n;
}

void Evaluate(core::Parameter& c)
{
    const int count = c.GetKeyFramesCount();
    const bool exact = Moderate(c);
    std::vector<double> times = {-1e300, 0.0, NAN, INFINITY, -INFINITY};
    for (int i = 0; i < count; ++i) {
        const double t = c.GetPointTime(i);
        times.insert(times.end(), {t, t - 0.5, t + 0.5, std::nextafter(t, INFINITY)});
        if (i + 1 < count)
            times.push_back(t + (c.GetPointTime(i + 1) - t) / 2);
        if (exact && c.GetInterpolationType(i) != core::eKeyframeTypeNone)
            FUZZ_CHECK(IsKeyValue(c.GetValue(t, false), c.GetPointValue(i), c.GetParameterType()));
        core::TimeValuePair next, previous, nearest;
        FUZZ_CHECK(c.GetNextKeyframeTime(t, &next) == (i + 1 < count));
        FUZZ_CHECK(i + 1 == count || next.GetTime() == c.GetPointTime(i + 1));
        FUZZ_CHECK(c.GetPreviousKeyframeTime(t, &previous) == (i > 0));
        FUZZ_CHECK(i == 0 || previous.GetTime() == c.GetPointTime(i - 1));
        FUZZ_CHECK(c.GetNearestKeyFrameWithTime(t, &nearest) && nearest.GetTime() == t);
    }
    if (count > 0)
        FUZZ_CHECK(c.GetNKeyFramesInRange(c.GetPointTime(0), c.GetPointTime(count - 1)) == count);
    for (int bad : {-1, count, INT_MIN}) {
        try {
            c.GetPointTime(bad);
            FUZZ_CHECK(!"an index outside the keys is refused");
        } catch (const std::out_of_range&) {
        }
    }
    for (double t : times) {
        c.GetValue(t, false);  // never throws: no clamping, and the result is a number
        c.GetNKeyFramesInRange(t, t + 1.0);
        c.getTimeValuePairIndex(t);
        try {
            const ValAny clamped = c.GetValue(t, true);  // throws for an integer curve that clamps
            ValAny low, high;
            c.GetValueRange(low, high);
            if (count > 0 && c.GetParameterType() == core::eParameterTypeDouble && c.mustClamp() &&
                low.Get<double>() <= high.Get<double>() && !std::isnan(clamped.Get<double>()))
                FUZZ_CHECK(low.Get<double>() <= clamped.Get<double>() &&
                           clamped.Get<double>() <= high.Get<double>());
        } catch (const core::AnyBadAccess&) {
        }
        if (count > 0) {
            try {
                double c0, c1, c2, c3;
                c.GetCubicCoeffs(t, c0, c1, c2, c3);  // throws for keys without numeric values
            } catch (const core::AnyBadAccess&) {
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // Both readers into a fresh curve, then into a curve that already has a
    // key (existing keys win over the document's).
    for (int pass = 0; pass < 2; ++pass) {
        QMXComPtr<core::IKeyFrame> fast = fuzz::NewCurve(), library = fuzz::NewCurve();
        for (core::IKeyFrame* c : {fast.Get(), library.Get()})
            if (pass == 1)
                c->AddPoint(1.0, ValAny(9.0), core::eKeyframeTypeSmooth);
        const std::string outcome = Read(fuzz::Impl(fast.Get()), text, false);
        const std::string reference = Read(fuzz::Impl(library.Get()), text, true);
        if (outcome != reference)
            std::fprintf(stderr, "fast reader: %s\nlibrary:     %s\n", outcome.c_str(), reference.c_str());
        FUZZ_CHECK(outcome == reference);
        if (pass == 1 || outcome.rfind("threw ", 0) == 0)
            continue;
        core::Parameter& curve = fuzz::Impl(fast.Get());
        fuzz::CheckOrder(curve);
        Evaluate(curve);
        // The text read back gives the same state and the same text again.
        const std::string written = curve.Serialize();
        FUZZ_CHECK(written == core::WriteCurveTextWithLibrary(curve.TextHeader(), curve.Keys()));
        QMXComPtr<core::IKeyFrame> again = fuzz::NewCurve(), copy = fuzz::NewCurve();
        FUZZ_CHECK(again->Desialize(written.c_str()) == 0);
        FUZZ_CHECK(again->Serialize() == written);
        FUZZ_CHECK(fuzz::Describe(*again) == outcome);
        FUZZ_CHECK(copy->CopyFrom(fast.Get()) && fuzz::Describe(*copy) == outcome);
        const std::string before = fuzz::Describe(*copy);
        copy->Clear();
        FUZZ_CHECK(copy->GetKeyFramesCount() == 0 &&
                   fuzz::Describe(*copy) == before.substr(0, before.find(" [")));  // type and range stay
    }
    return 0;
}
