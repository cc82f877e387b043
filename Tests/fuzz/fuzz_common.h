// Helpers shared by the fuzz targets: object creation through the host's
// class registry, exact descriptions of curve state, and bag comparison.
#pragma once

#include <cmath>
#include <cstdarg>
#include <cwchar>
#include <exception>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "QMXComPtr.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "TrackProperties.h"
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

// Interface `iid` of a new object of class `clsid`, owned by the result.
template <typename T>
QMXComPtr<T> Create(const _GUID& clsid, const _GUID& iid)
{
    QMXComPtr<T> object;
    FUZZ_CHECK(QMXCommon::GetInterface(clsid, nullptr, 0, iid, reinterpret_cast<void**>(&object)) == S_OK);
    FUZZ_CHECK(object.Get() != nullptr);
    return object;
}
inline QMXComPtr<core::IKeyFrame> NewCurve()
{
    return Create<core::IKeyFrame>(CLSID_QMXKeyFrameKV, IID_IQMXKeyFrameKV);
}
inline QMXComPtr<IQMXKeyFrame> NewTrack()
{
    return Create<IQMXKeyFrame>(CLSID_QMXKeyFrame, IID_IQMXKeyFrame);
}
inline QMXComPtr<IQMXStorage> Storage(IQMXKeyFrame* track)
{
    QMXComPtr<IQMXStorage> storage;
    FUZZ_CHECK(track->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&storage)) == S_OK);
    return storage;
}
// The curve class behind the interface (the module's only implementation).
inline core::Parameter& Impl(core::IKeyFrame* curve) { return *static_cast<core::Parameter*>(curve); }

inline std::string Bits(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return std::to_string(bits);
}

inline bool Same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// A value's kind and content, exact for every plain kind.
inline std::string Describe(const core::ValAny& v)
{
    using core::ValAny;
    std::string out = std::to_string(v.GetTypeTag()) + ":";
    switch (v.GetTypeTag()) {
    case ValAny::kBool: return out + (v.Get<bool>() ? "t" : "f");
    case ValAny::kInt32: case ValAny::kUInt32: case ValAny::kInt64: case ValAny::kUInt64:
        return out + std::to_string(v.GetLow32()) + "/" + Bits(v.Get<double>());
    case ValAny::kFloat: case ValAny::kDouble: return out + Bits(v.Get<double>());
    case ValAny::kText: return out + v.Get<const char*>();
    default: return out;
    }
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
    const int count = c.GetKeyFramesCount();
    FUZZ_CHECK(count >= 0);
    for (int i = 0; i < count; ++i) {
        FUZZ_CHECK(i == 0 || c.GetPointTime(i - 1) < c.GetPointTime(i));
        FUZZ_CHECK(c.getTimeValuePairIndex(c.GetPointTime(i)) == i);
    }
}

// Whether a curve text holds an infinity. The writer spells it as JsonCpp's
// writer does (1e+9999), which JsonCpp's reader rejects: such a text reads as
// unparsable and leaves the curve unchanged.
inline bool Unreadable(const std::string& text) { return text.find("e+9999") != std::string::npos; }

// Property names of the track's six curves and of their text segments.
inline const wchar_t* const kCurveNames[6] = {
    qmx::kTrackProperties[0].bagName, qmx::kTrackProperties[1].bagName, qmx::kTrackProperties[2].bagName,
    qmx::kTrackProperties[3].bagName, qmx::kTrackProperties[4].bagName, qmx::kTrackProperties[5].bagName};
inline std::wstring SegmentName(int curve, int segment)
{
    return kCurveNames[curve] + std::wstring(L"Segment_") + std::to_wstring(segment);
}

// One bag entry as the bag answers for it: result codes, type and text.
inline std::wstring Entry(IQMXProperties* bag, const std::wstring& name)
{
    CQMXValue value;
    int number = 0;
    const HRESULT got = bag->GetProperty(name.c_str(), &value), gotInt = bag->GetInt(name.c_str(), &number);
    return std::to_wstring(got) + L"|" + value.m_strType + L"|" + value.m_strValue + L"|" +
           std::to_wstring(gotInt) + L"|" + std::to_wstring(SUCCEEDED(gotInt) ? number : 0);
}

// The six counts and every segment they name (at most `limit` each).
inline std::wstring TrackEntries(IQMXProperties* bag, int limit = 64)
{
    std::wstring out;
    for (int curve = 0; curve < 6; ++curve) {
        int count = 0;
        out += Entry(bag, kCurveNames[curve]) + L"\n";
        if (SUCCEEDED(bag->GetInt(kCurveNames[curve], &count)))
            for (int segment = 0; segment < count && segment < limit; ++segment)
                out += Entry(bag, SegmentName(curve, segment)) + L"\n";
    }
    return out;
}

// The text that a track reads for `curve` from `bag`: the segments its count
// names joined, then narrowed into one byte per wide character plus one.
inline std::string Joined(IQMXProperties* bag, int curve)
{
    int count = 0;
    bag->GetInt(kCurveNames[curve], &count);
    std::wstring wide;
    for (int segment = 0; segment < count; ++segment) {
        CQMXValue value;
        bag->GetProperty(SegmentName(curve, segment).c_str(), &value);
        wide += value.m_strValue;
    }
    std::string narrow(wide.size() + 1, '\0');
    QMXCommon::WChar2Char(wide.c_str(), narrow.data(), static_cast<int>(narrow.size()));
    return narrow.c_str();
}

// Every keyframe of a track by index, exactly, or the exception that reading it threw.
inline std::string Keys(IQMXKeyFrame* track)
{
    std::string out;
    const int count = track->GetKeyFrameCount();
    for (int i = 0; i < count; ++i) {
        KeyFrameParam p{};
        try {
            FUZZ_CHECK(track->GetKeyFrame(i, p));
            double fields[7];
            std::memcpy(fields, &p, sizeof fields);
            for (double field : fields)
                out += Bits(field) + " ";
        } catch (const std::exception& e) {
            out += std::string("threw ") + e.what();
        }
        out += "\n";
    }
    return out;
}

// Takes every report and formats it (so the arguments are used), then drops it.
struct QuietLogger : IQMXLogger {
    bool IsLevelEnabled(int) override { return true; }
    void WriteLog(int, const wchar_t* format, ...) override
    {
        wchar_t line[512];
        va_list args;
        va_start(args, format);
        std::vswprintf(line, 512, format, args);
        va_end(args);
    }
};
inline void InstallQuietLogger()
{
    static QuietLogger logger;
    QMXSetDefaultLogger(&logger);
}

}  // namespace fuzz
