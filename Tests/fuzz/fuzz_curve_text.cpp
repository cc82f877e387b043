// The input as a curve's JSON text: the fast and the library reader must agree;
// the curve read is evaluated and queried, and its text must read back exactly.
// (The writer against the library, copying and clearing: the unit tests.)
// Documents of unexpected JSON types make the reader throw (JsonCpp's
// exceptions or core::AnyBadAccess pass through Desialize): that is its
// contract, so the outcome is compared, never treated as a crash.
#include <stdexcept>
#include <typeinfo>
#include <vector>

#include "CurveCodecLibrary.h"
#include "fuzz_common.h"

namespace {

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

double Number(const core::ValAny& v) { return v.IsNumber() ? v.Get<double>() : NAN; }

// Evaluation and queries at, between, beside and far from the keys, with and
// without clamping, for the sanitizers to watch; a clamped value stays within
// the range. Values that cannot be read throw core::AnyBadAccess.
void Evaluate(core::Parameter& c)
{
    const int count = c.GetKeyFramesCount();
    core::ValAny low, high;
    c.GetValueRange(low, high);
    std::vector<double> times = {-1e300, 0.0, NAN, INFINITY, -INFINITY};
    for (int i = 0; i < count; ++i) {
        const double t = c.GetPointTime(i);
        times.insert(times.end(), {t, t - 0.5, t + 0.5, std::nextafter(t, INFINITY)});
        if (i + 1 < count)
            times.push_back(t + (c.GetPointTime(i + 1) - t) / 2);
    }
    for (double t : times) {
        core::TimeValuePair key;
        double c0, c1, c2, c3;
        c.GetValue(t, false);  // never throws: no clamping, and the result is a number
        c.GetNKeyFramesInRange(t, t + 1.0);
        c.GetNextKeyframeTime(t, &key);
        c.GetPreviousKeyframeTime(t, &key);
        c.GetNearestKeyFrameWithTime(t, &key);
        try {
            // A real curve with keys that clamps to an ordered range stays within it.
            const double clamped = Number(c.GetValue(t, true));  // throws for an integer curve that clamps
            if (count > 0 && c.GetParameterType() == core::eParameterTypeDouble && c.mustClamp() &&
                Number(low) <= Number(high) && !std::isnan(clamped))
                FUZZ_CHECK(Number(low) <= clamped && clamped <= Number(high));
            if (count > 0)
                c.GetCubicCoeffs(t, c0, c1, c2, c3);  // throws for keys without numeric values
        } catch (const core::AnyBadAccess&) {
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
                c->AddPoint(1.0, core::ValAny(9.0), core::eKeyframeTypeSmooth);
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
        QMXComPtr<core::IKeyFrame> again = fuzz::NewCurve();
        FUZZ_CHECK(again->Desialize(written.c_str()) == 0 && again->Serialize() == written);
        FUZZ_CHECK(fuzz::Describe(*again) == outcome && fuzz::Describe(curve) == outcome);
    }
    return 0;
}
