// Helpers shared by the fuzz targets: object creation through the host's
// class registry, exact descriptions of curve and track state, no logging.
#pragma once

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "IQMXKeyFrame.h"
#include "QMXComPtr.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "keyframe_process.h"

// A broken property: say which, then stop so that the fuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                             \
    do {                                                                                  \
        if (!(condition)) {                                                               \
            std::fprintf(stderr, "fuzz check failed: %s (line %d)\n", #condition, __LINE__); \
            __builtin_trap();                                                             \
        }                                                                                 \
    } while (0)

namespace fuzz {

// Interface `iid` of a new object of class `clsid` (or of `from`), owned by the result.
template <typename T>
QMXComPtr<T> Create(const _GUID& clsid, const _GUID& iid, IUnknown* from = nullptr)
{
    QMXComPtr<T> object;
    void** out = reinterpret_cast<void**>(&object);
    FUZZ_CHECK((from ? from->QueryInterface(iid, out) : QMXCommon::GetInterface(clsid, nullptr, 0, iid, out)) == S_OK);
    FUZZ_CHECK(object.Get() != nullptr);
    return object;
}
inline QMXComPtr<core::IKeyFrame> NewCurve() { return Create<core::IKeyFrame>(CLSID_QMXKeyFrameKV, IID_IQMXKeyFrameKV); }
inline QMXComPtr<IQMXKeyFrame> NewTrack() { return Create<IQMXKeyFrame>(CLSID_QMXKeyFrame, IID_IQMXKeyFrame); }
inline QMXComPtr<IQMXStorage> Storage(IQMXKeyFrame* track) { return Create<IQMXStorage>({}, IID_IQMXStorage, track); }
// The curve class behind the interface (the module's only implementation).
inline core::Parameter& Impl(core::IKeyFrame* curve) { return *static_cast<core::Parameter*>(curve); }

inline std::string Bits(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return std::to_string(bits);
}

// A value's kind and content, exact for every plain kind.
inline std::string Describe(const core::ValAny& v)
{
    using core::ValAny;
    const int tag = v.GetTypeTag();
    std::string out = std::to_string(tag) + ":";
    if (tag == ValAny::kBool)
        return out + (v.Get<bool>() ? "t" : "f");
    if (tag == ValAny::kText)
        return out + v.Get<const char*>();
    if (v.IsInteger())
        out += std::to_string(v.GetLow32()) + "/";
    return v.IsNumber() ? out + Bits(v.Get<double>()) : out;
}

// Everything a curve holds: type, range and every key with all its fields.
inline std::string Describe(const core::IKeyFrame& c)
{
    core::ValAny low, high;
    c.GetValueRange(low, high);
    std::string out = std::to_string(c.GetParameterType()) + " " + Describe(low) + " " + Describe(high);
    for (int i = 0; i < c.GetKeyFramesCount(); ++i) {
        double left = 0, right = 0;
        c.GetPointControlParam(i, left, right);
        out += " [" + Bits(c.GetPointTime(i)) + " " + Describe(c.GetPointValue(i)) + " " +
               std::to_string(c.GetInterpolationType(i)) + " " + Bits(left) + " " + Bits(right) + "]";
    }
    return out;
}

// Keys in strictly increasing time, each found again by its own time.
inline void CheckOrder(core::IKeyFrame& c)
{
    for (int i = 0; i < c.GetKeyFramesCount(); ++i) {
        FUZZ_CHECK(i == 0 || c.GetPointTime(i - 1) < c.GetPointTime(i));
        FUZZ_CHECK(c.getTimeValuePairIndex(c.GetPointTime(i)) == i);
    }
}

// Every keyframe of a track by index, exactly, or the exception that reading it threw.
inline std::string Keys(IQMXKeyFrame* track)
{
    std::string out;
    for (int i = 0; i < track->GetKeyFrameCount(); ++i) {
        KeyFrameParam p{};
        try {
            FUZZ_CHECK(track->GetKeyFrame(i, p));
            for (double field : {p.dPosition, p.dAngle, p.dPositionX, p.dPositionY, p.dScaleX, p.dScaleY, p.dOpacity})
                out += Bits(field) + " ";
        } catch (const std::exception& e) {
            out += std::string("threw ") + e.what();
        }
        out += "\n";
    }
    return out;
}

// The track's reports of bad indexes are dropped (the unit tests check their
// text); installed before any target runs.
inline const bool kQuiet = (QMXSetDefaultLogger(nullptr), true);

}  // namespace fuzz
