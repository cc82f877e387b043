// The input as the contents of a property bag that a track is read from: the
// track must load exactly what its counts and segments name, answer queries,
// and write texts that a second track reads back to the same keys.
//
// Input: one entry per line, "<op> <name> <value>". Ops: 'i' SetInt (a
// decimal value), 's' SetString (UTF-8, "\n" stands for a line feed), 'w'
// SetString with each byte made one wide unit (bytes from 0x80 become
// surrogates or units past U+10FFFF). Names are UTF-8 and end at the blank.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "QMXPropertyBag.h"
#include "fuzz_common.h"

namespace {

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
    size_t start = 0;
    for (int entries = 0; entries < 64 && start < input.size(); ++entries) {
        size_t end = input.find('\n', start);
        end = end == std::string::npos ? input.size() : end;
        const std::string line = input.substr(start, end - start);
        start = end + 1;
        const size_t blank = line.find(' ', 2);
        if (line.size() < 2 || blank == std::string::npos)
            continue;
        const std::wstring name = Widen(line.substr(2, blank - 2));
        std::string value = line.substr(blank + 1);
        if (line[0] == 'i') {
            const long long number = std::strtoll(value.c_str(), nullptr, 10);
            const bool count = std::find(std::begin(fuzz::kCurveNames), std::end(fuzz::kCurveNames), name) !=
                               std::end(fuzz::kCurveNames);
            bag->SetInt(name.c_str(), int(std::clamp<long long>(number, INT32_MIN, count ? 64 : INT32_MAX)));
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

// Queries on a loaded track. Its curves may differ in length and value kinds
// (the track does not repair them): reading a key index that a later curve
// lacks throws std::out_of_range, a non-numeric value core::AnyBadAccess.
void Query(IQMXKeyFrame* track)
{
    const int count = track->GetKeyFrameCount();
    FUZZ_CHECK(!track->HasKeyFrame(-1) && !track->HasKeyFrame(6) && track->HasKeyFrame(0) == (count > 0));
    for (int i = -1; i <= count; ++i) {
        KeyFrameParam p{NAN, 0, 0, 0, 0, 0, 0};
        try {
            FUZZ_CHECK(track->GetKeyFrame(i, p) == (i >= 0 && i < count));
        } catch (const std::exception&) {
        }
        if (i < 0 || i >= count)
            continue;
        const double time = p.dPosition;  // written before any value is read
        FUZZ_CHECK(track->GetKeyFrameIndex(time) == i && track->InKeyFrameRange(time) == (count >= 2));
        for (int key = 0; key < 6; ++key)
            track->GetKeyFrameValue(key, time);
        for (double at : {time, time + 0.25, time - 1.0}) {
            try {
                FUZZ_CHECK(track->GetKeyFrame(at, p) && p.dPosition == at);
            } catch (const core::AnyBadAccess&) {
            }
        }
        for (int rate : {0, 30, 1000}) {
            int frame = -1, found = -1;
            track->CaculateKeyFrameIndex(i, rate, frame);
            FUZZ_CHECK(frame == QMXCommon::KeyFrame::CaculateKeyFrameIndex(time, rate));
            FUZZ_CHECK(track->GetKeyFrameIndex(frame, rate, found) && found >= 0 && found <= i);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::InstallQuietLogger();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QMXComPtr<IQMXProperties> input, first, second;
    input.Attach(QMXCreateMemoryProperties());
    first.Attach(QMXCreateMemoryProperties());
    second.Attach(QMXCreateMemoryProperties());
    Fill(input.Get(), std::string(reinterpret_cast<const char*>(data), size));

    QMXComPtr<IQMXKeyFrame> track = fuzz::NewTrack(), copy = fuzz::NewTrack();
    FUZZ_CHECK(fuzz::Storage(track.Get())->ReadFrom(input.Get()) == S_OK);  // reports no failure, never throws
    Query(track.Get());
    FUZZ_CHECK(fuzz::Storage(track.Get())->WriteTo(first.Get()) == S_OK);

    // Each curve holds what its own text gave (nothing when the text made the
    // reader throw), or stays new when its count is missing or not positive.
    for (int curve = 0; curve < 6; ++curve) {
        QMXComPtr<core::IKeyFrame> expected = fuzz::NewCurve();
        int count = 0;
        if (SUCCEEDED(input->GetInt(fuzz::kCurveNames[curve], &count)) && count > 0) {
            try {
                expected->Desialize(fuzz::Joined(input.Get(), curve).c_str());
            } catch (const std::exception&) {
                expected = fuzz::NewCurve();
            }
        }
        FUZZ_CHECK(fuzz::Joined(first.Get(), curve) == expected->Serialize());
    }

    // Written texts read back exactly.
    FUZZ_CHECK(fuzz::Storage(copy.Get())->ReadFrom(first.Get()) == S_OK);
    FUZZ_CHECK(fuzz::Storage(copy.Get())->WriteTo(second.Get()) == S_OK);
    FUZZ_CHECK(fuzz::TrackEntries(first.Get()) == fuzz::TrackEntries(second.Get()));
    FUZZ_CHECK(fuzz::Keys(track.Get()) == fuzz::Keys(copy.Get()));
    return 0;
}
