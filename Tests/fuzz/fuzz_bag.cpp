// The input as the contents of a property bag that a track is read from: the
// track must load exactly what its counts and segments name, answer queries,
// and write texts that a second track reads back to the same keys.
//
// Input: one entry per line, "<op> <name> <value>". Ops: 'i' SetInt (a
// decimal value), 's' SetString (UTF-8, "\n" stands for a line feed), 'w'
// SetString with each byte made one wide unit (bytes from 0x80 become
// surrogates or units past U+10FFFF). Names are UTF-8 and end at the blank.
#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "QMXPropertyBag.h"
#include "TrackProperties.h"
#include "fuzz_common.h"

namespace {

// Bag names of the track's six curves and of their text segments.
const wchar_t* CurveName(int curve) { return qmx::kTrackProperties[curve].bagName; }
std::wstring SegmentName(int curve, int segment)
{
    return CurveName(curve) + std::wstring(L"Segment_") + std::to_wstring(segment);
}

// The text that a track reads for `curve` from `bag`: the segments its count
// names joined, then narrowed into one byte per wide character plus one.
std::string Joined(IQMXProperties* bag, int curve)
{
    int count = 0;
    bag->GetInt(CurveName(curve), &count);
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

std::wstring Widen(const std::string& text)
{
    std::vector<wchar_t> wide(text.size() + 1);
    QMXCommon::Char2WChar(text.c_str(), wide.data(), static_cast<int>(wide.size()));
    return wide.data();
}

// At most 64 entries. Counts stored under a curve's name are capped at 64 too:
// the reader asks for every segment its count names, so a huge count would
// only make the run long.
void Fill(IQMXProperties* bag, const std::string& input)
{
    std::istringstream lines(input);
    std::string line;
    for (int entries = 0; entries < 64 && std::getline(lines, line); ++entries) {
        const size_t blank = line.find(' ', 2);
        if (line.size() < 2 || blank == std::string::npos)
            continue;
        const std::wstring name = Widen(line.substr(2, blank - 2));
        std::string value = line.substr(blank + 1);
        if (line[0] == 'i') {
            bool count = false;
            for (int curve = 0; curve < 6; ++curve)
                count = count || name == CurveName(curve);
            const long long number = std::clamp<long long>(std::strtoll(value.c_str(), nullptr, 10), INT32_MIN, count ? 64 : INT32_MAX);
            bag->SetInt(name.c_str(), int(number));
        } else if (line[0] == 's') {
            for (size_t at; (at = value.find("\\n")) != std::string::npos;)
                value.replace(at, 2, "\n");
            bag->SetString(name.c_str(), Widen(value).c_str());
        } else if (line[0] == 'w') {
            std::wstring units;
            for (unsigned char b : value)
                units += static_cast<wchar_t>(b < 0x80 ? b : b < 0xC0 ? 0xD800 + b : 0x110000 + b);
            bag->SetString(name.c_str(), units.c_str());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QMXComPtr<IQMXProperties> input, first, second;
    input.Attach(QMXCreateMemoryProperties());
    first.Attach(QMXCreateMemoryProperties());
    second.Attach(QMXCreateMemoryProperties());
    Fill(input.Get(), std::string(reinterpret_cast<const char*>(data), size));

    QMXComPtr<IQMXKeyFrame> track = fuzz::NewTrack(), copy = fuzz::NewTrack();
    FUZZ_CHECK(fuzz::Storage(track.Get())->ReadFrom(input.Get()) == S_OK);  // reports no failure, never throws
    // Queries on the loaded track. Its curves may differ in length and value
    // kinds (the track does not repair them): reading a key index that a later
    // curve lacks throws std::out_of_range, a non-numeric value core::AnyBadAccess.
    const std::string keys = fuzz::Keys(track.Get());
    for (int i = 0, frame = 0, found = 0; i < track->GetKeyFrameCount(); ++i) {
        KeyFrameParam p{};
        try {
            track->GetKeyFrame(i, p);
        } catch (const std::exception&) {
        }
        // Key times and frames are the first curve's (its time is written before any value is read).
        FUZZ_CHECK(track->GetKeyFrameIndex(p.dPosition) == i);
        track->CaculateKeyFrameIndex(i, 30, frame);
        FUZZ_CHECK(frame == QMXCommon::KeyFrame::CaculateKeyFrameIndex(p.dPosition, 30));
        FUZZ_CHECK(track->GetKeyFrameIndex(frame, 30, found) && found <= i);
        try {
            for (int key = 0; key < 6; ++key)
                track->GetKeyFrameValue(key, p.dPosition);
            track->GetKeyFrame(p.dPosition + 0.25, p);
        } catch (const std::exception&) {
        }
    }
    FUZZ_CHECK(fuzz::Storage(track.Get())->WriteTo(first.Get()) == S_OK);
    FUZZ_CHECK(fuzz::Storage(copy.Get())->ReadFrom(first.Get()) == S_OK);
    FUZZ_CHECK(fuzz::Storage(copy.Get())->WriteTo(second.Get()) == S_OK);
    FUZZ_CHECK(fuzz::Keys(track.Get()) == keys && fuzz::Keys(copy.Get()) == keys);

    // Each curve holds what its own text gave (nothing when the text made the
    // reader throw), or stays new when its count is missing or not positive;
    // the second track writes the same texts.
    for (int curve = 0; curve < 6; ++curve) {
        QMXComPtr<core::IKeyFrame> expected = fuzz::NewCurve();
        int count = 0;
        if (SUCCEEDED(input->GetInt(CurveName(curve), &count)) && count > 0) {
            try {
                expected->Desialize(Joined(input.Get(), curve).c_str());
            } catch (const std::exception&) {
                expected = fuzz::NewCurve();
            }
        }
        FUZZ_CHECK(Joined(first.Get(), curve) == expected->Serialize());
        FUZZ_CHECK(Joined(second.Get(), curve) == expected->Serialize());
    }
    return 0;
}
