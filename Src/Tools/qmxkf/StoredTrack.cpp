#include "StoredTrack.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>

#include "CurveText.h"
#include "Properties.h"
#include "QMXPropertyBag.h"

namespace qmxkf {

namespace {

// A track stores each curve text, with its terminating zero, in segments of
// this many wide characters, the count of them under the property's name and
// segment n under "<name>Segment_<n>".
constexpr size_t kSegmentLength = 51200;

std::wstring SegmentName(int property, int segment)
{
    return std::wstring(kProperties[property].bagName) + L"Segment_" + std::to_wstring(segment);
}

std::string Count(long long n, const char* what)
{
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

// One property's stored text, joined from its segments as the track joins
// them; `problem` says why it is not a text the track stores.
struct PropertyText {
    bool present = true;
    std::string text;
    std::string problem;
};

PropertyText ReadText(IQMXProperties* bag, int property, long long fileSize)
{
    const wchar_t* name = kProperties[property].bagName;
    int count = 0;
    if (FAILED(bag->GetInt(name, &count))) {
        CQMXValue value;
        if (FAILED(bag->GetProperty(name, &value)))
            return {false, "", ""};
        return {true, "", "its segment count is not a whole number"};
    }
    if (count <= 0)
        return {true, "", "its segment count is " + std::to_string(count)};
    // Every segment but the last is 51200 characters of a byte or more, and a
    // count in the billions would keep the track reading for many minutes.
    if (fileSize >= 0 && count > fileSize / static_cast<long long>(kSegmentLength) + 1) {
        return {true, "",
                "it names " + Count(count, "segment") + "; a file of " + Count(fileSize, "byte") + " holds at most " +
                    std::to_string(fileSize / kSegmentLength + 1)};
    }
    std::wstring wide;
    std::vector<long long> lengths;  // -1 for a missing segment
    for (int segment = 0; segment < count; ++segment) {
        CQMXValue value;
        if (FAILED(bag->GetProperty(SegmentName(property, segment).c_str(), &value))) {
            lengths.push_back(-1);
            continue;
        }
        if (value.m_strType != L"string")
            return {true, "", "segment " + std::to_string(segment) + " is not text"};
        lengths.push_back(static_cast<long long>(value.m_strValue.size()));
        wide += value.m_strValue;
    }
    // The layout a save of this text writes: its count, and each segment's
    // length (none past the terminating zero, which the count may name).
    const size_t stored = wide.size() + 1;
    if (static_cast<size_t>(count) != stored / kSegmentLength + 1) {
        return {true, "",
                "its segment count is " + std::to_string(count) + " where its text of " +
                    Count(static_cast<long long>(wide.size()), "character") + " is stored in " +
                    std::to_string(stored / kSegmentLength + 1)};
    }
    for (int segment = 0; segment < count; ++segment) {
        const size_t start = segment * kSegmentLength;
        const long long want =
            start < stored ? static_cast<long long>(std::min(kSegmentLength, wide.size() - start)) : -1;
        if (lengths[segment] == want)
            continue;
        const std::string which = "segment " + std::to_string(segment);
        if (lengths[segment] < 0)
            return {true, "", which + " is missing"};
        return {true, "",
                which + " holds " + Count(lengths[segment], "character") + " where a save writes " +
                    (want < 0 ? std::string("none") : std::to_string(want))};
    }
    PropertyText result;
    for (size_t i = 0; i < wide.size(); ++i) {
        if (static_cast<uint32_t>(wide[i]) > 0x7F)  // curve texts are ASCII
            return {true, "", "its text holds a character no curve text has, at character " + std::to_string(i + 1)};
        result.text += static_cast<char>(wide[i]);
    }
    return result;
}

// The curve the module reads from `text`, or null with `problem` set when it
// does not read back whole: writing that curve must give the text again.
QMXComPtr<core::IKeyFrame> ReadCurve(const ModuleHost& module, const std::string& text, std::string& problem)
{
    QMXComPtr<core::IKeyFrame> curve = module.CreateCurve();
    std::string rewritten;
    try {
        curve->Desialize(text.c_str());
        rewritten = curve->Serialize();
    } catch (const std::exception& e) {
        problem = std::string("its text does not read (") + e.what() + ")";
        return {};
    }
    if (rewritten != text) {
        problem = DescribeUnreadable(text, rewritten);
        return {};
    }
    if (curve->GetParameterType() != core::eParameterTypeDouble) {
        problem = "it is a curve of type " + std::to_string(curve->GetParameterType()) +
                  "; a track's curves hold real numbers (type 0)";
        return {};
    }
    for (int key = 0, count = curve->GetKeyFramesCount(); key < count; ++key) {
        const int kind = curve->GetInterpolationType(key);
        if (kind < 0 || kind >= int(std::size(kKindNames))) {
            problem = "key " + std::to_string(key) + " has kind " + std::to_string(kind) + ", which is no kind of key";
            return {};
        }
    }
    return curve;
}

// The checks across curves: the six in lockstep with the angle curve (the
// track reads counts and times from it), and every segment one the module
// can evaluate.
void CheckAcross(StoredTrack& track)
{
    core::IKeyFrame* reference = track.curves[0].Get();
    if (reference == nullptr)
        return;
    const int count = reference->GetKeyFramesCount();
    for (int p = 1; p < 6; ++p) {
        core::IKeyFrame* curve = track.curves[p].Get();
        if (curve == nullptr)
            continue;
        const std::string title = kProperties[p].title;
        if (curve->GetKeyFramesCount() != count) {
            track.problems.push_back(title + ": it has " + Count(curve->GetKeyFramesCount(), "key") + " where " +
                                     kProperties[0].title + " has " + std::to_string(count));
            continue;
        }
        for (int key = 0; key < count; ++key) {
            if (curve->GetPointTime(key) != reference->GetPointTime(key)) {
                track.problems.push_back(title + ": key " + std::to_string(key) + " is not at the time of " +
                                         kProperties[0].title + "'s key " + std::to_string(key));
                break;
            }
        }
    }
    if (!track.problems.empty())
        return;
    // A segment's shape scales its tangents by its length: both must stay
    // finite, or every value sampled in it is infinite or not a number.
    for (int key = 0; key + 1 < count; ++key) {
        const double span = reference->GetPointTime(key + 1) - reference->GetPointTime(key);
        const std::string keys = "keys " + std::to_string(key) + " and " + std::to_string(key + 1);
        if (!std::isfinite(span)) {
            track.problems.push_back(keys + " are too far apart: the time between them overflows");
            return;
        }
        for (int p = 0; p < 6; ++p) {
            double left = 0.0, right = 0.0, ignored = 0.0;
            track.curves[p]->GetPointControlParam(key, ignored, right);
            track.curves[p]->GetPointControlParam(key + 1, left, ignored);
            if (!std::isfinite(right * span) || !std::isfinite(left * span)) {
                track.problems.push_back(std::string(kProperties[p].title) + ": the curve between " + keys +
                                         " overflows; keys this far apart cannot hold slopes this steep");
            }
        }
    }
}

}  // namespace

StoredTrack ReadStoredTrack(const ModuleHost& module, IQMXProperties* bag, long long fileSize)
{
    StoredTrack track;
    PropertyText texts[6];
    int present = 0;
    for (int p = 0; p < 6; ++p) {
        texts[p] = ReadText(bag, p, fileSize);
        present += texts[p].present ? 1 : 0;
    }
    track.absent = present == 0;
    for (int p = 0; p < 6; ++p) {
        const std::string title = kProperties[p].title;
        if (track.absent) {
            track.curves[p] = module.CreateCurve();
            continue;
        }
        std::string problem = texts[p].present ? texts[p].problem : "it is missing";
        if (problem.empty())
            track.curves[p] = ReadCurve(module, texts[p].text, problem);
        if (!problem.empty())
            track.problems.push_back(title + ": " + problem);
    }
    CheckAcross(track);
    return track;
}

namespace {

void RemoveSegmentsOf(IQMXProperties* bag, int property)
{
    for (int segment = 0; QMXRemoveProperty(bag, SegmentName(property, segment).c_str()) == S_OK; ++segment) {
    }
}

}  // namespace

void RemoveSegments(IQMXProperties* bag)
{
    for (int p = 0; p < 6; ++p)
        RemoveSegmentsOf(bag, p);
}

void WriteCurveText(IQMXProperties* bag, int property, const std::string& text)
{
    RemoveSegmentsOf(bag, property);
    const std::wstring wide(text.begin(), text.end());  // curve texts are ASCII
    const size_t stored = wide.size() + 1;              // with the terminating zero
    const int count = static_cast<int>(stored / kSegmentLength + 1);
    bag->SetInt(kProperties[property].bagName, count);
    for (int segment = 0; segment < count; ++segment) {
        const size_t start = segment * kSegmentLength;
        if (start < stored)
            bag->SetString(SegmentName(property, segment).c_str(), wide.substr(start, kSegmentLength).c_str());
    }
}

}  // namespace qmxkf
