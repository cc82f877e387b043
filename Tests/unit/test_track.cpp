// The keyframe track: lookups, clearing, frames, read order, samples after edits, out-of-range reports.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <functional>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "QMXLogger.h"
#include "track_fixture.h"

using namespace testing_support;

// What the module's conformance check (`qmxkf validate`) leaves out: a query without a place for its answer
// is refused; clearing empties all six curves; a single key is never in range; asking for a curve outside
// 0..5 adds none. The frame of a key is the nearest (halves away from zero), a frame's key the lowest on it;
// a bad key index throws.
TEST(TrackOps, LookupsClearingAndFrames)
{
    Track t;
    for (const _GUID* iid : {&IID_IQMXKeyFrame, &IID_IQMXStorage, &IID_IQMXKeyFrameKV})
        EXPECT_EQ(t->QueryInterface(*iid, nullptr), E_POINTER);
    Add(t.keys, {0.0, 1.0, 2.0});
    t->CleanAllKeyFrame();
    for (int key = 0; key < 6; ++key) EXPECT_FALSE(t->HasKeyFrame(key));
    Add(t.keys, {7.0});
    EXPECT_FALSE(t->InKeyFrameRange(7.0));
    for (int key : {7, -1, 7}) EXPECT_FALSE(t->HasKeyFrame(key));  // adds no slot: WriteTo would stop at it
    IQMXProperties* bag = QMXCreateMemoryProperties();
    EXPECT_TRUE(t.store->WriteTo(bag) == S_OK && bag->Release() == 0);
    t->CleanAllKeyFrame();
    Add(t.keys, {0.0, 0.5, 0.52, 1.0});  // frames 0, 13 (half away from zero), 13, 25 at rate 25
    // Key index, rate, its frame, the lowest key on that frame (rate 0 counts as 1: frames 0, 1, 1, 1).
    const struct { int index, rate, frame, lowest; } frames[] = {
        {0, 25, 0, 0}, {1, 25, 13, 1}, {2, 25, 13, 1}, {3, 25, 25, 3}, {2, 30, 16, 2}, {3, 0, 1, 1}};
    for (const auto& r : frames) {
        int frame = -9, index = -9;
        t->CaculateKeyFrameIndex(r.index, r.rate, frame);
        EXPECT_TRUE(t->GetKeyFrameIndex(frame, r.rate, index));
        EXPECT_EQ(std::make_pair(frame, index), std::make_pair(r.frame, r.lowest)) << &r - frames;
    }
    int index = -7, frame = -9;
    EXPECT_TRUE(!t->GetKeyFrameIndex(12, 25, index) && index == -7);
    for (int bad : {4, -1}) EXPECT_THROW(t->CaculateKeyFrameIndex(bad, 25, frame), std::out_of_range);
    EXPECT_TRUE(frame == -9 && t->GetKeyFrameCount() == 4);
}

// Curves are read angle, scale X, scale Y, position X, position Y, opacity: a boolean curve loaded from a
// bag stops both reads after exactly the fields before it; the lock is released.
TEST(TrackOps, UnreadableValueStopsInValueOrder)
{
    const int order[6] = {0, 4, 5, 1, 2, 3}, field[6] = {1, 2, 3, 6, 4, 5};  // the record's field of each key
    for (int boolKey = 0; boolKey < 6; ++boolKey) {
        const std::wstring name = qmx::kTrackProperties[boolKey].bagName;
        Track t;
        Add(t.keys, {0.0, 2.0});
        IQMXProperties* bag = QMXCreateMemoryProperties();
        bag->SetInt(name.c_str(), 1);
        bag->SetString((name + L"Segment_0").c_str(),
                       L"{\"ParamType\":2,\"nodes\":[[0.0,true,0,0.0,0.0],[2.0,false,0,0.0,0.0]]}");
        EXPECT_TRUE(t.store->ReadFrom(bag) == S_OK && bag->Release() == 0);
        for (double at : {-1.0, 1.0}) {  // key 0, then sampling at 1.0
            KeyFrameParam p = {-7, -7, -7, -7, -7, -7, -7};
            Fields want = F(p);
            want[0] = at < 0 ? 0.0 : at;
            for (int i = 0; order[i] != boolKey; ++i) want[field[order[i]]] = (at < 0 ? 1 : 11) + order[i];
            EXPECT_THROW(at < 0 ? t->GetKeyFrame(0, p) : t->GetKeyFrame(at, p), core::AnyBadAccess);
            EXPECT_EQ(F(p), want) << "boolean curve " << boolKey << " at " << at;
        }
        EXPECT_TRUE(t->GetKeyFrameCount() == 2 && t->GetKeyFrameValue(boolKey, 0.0).Get<bool>());
    }
}

// Sampling a track in frame order after every kind of change gives what each curve evaluates itself,
// bit for bit: the segments that playback keeps between samples never outlive a change.
TEST(TrackOps, SamplesFollowEveryEdit)
{
    Track t;
    IQMXProperties *intCurve = QMXCreateMemoryProperties(), *plain = QMXCreateMemoryProperties();
    intCurve->SetInt(L"KeyFrameOpacity", 1);
    intCurve->SetString(L"KeyFrameOpacitySegment_0",
        L"{\"MaxValue\":100,\"MinValue\":-100,\"ParamType\":1,\"nodes\":[[0.0,5,3,0.0,0.0],[4.0,8,3,0.0,0.0]]}");
    Add(t.keys, {0.0, 1.0, 2.0, 3.0});
    EXPECT_EQ(t.store->WriteTo(plain), S_OK);
    const std::function<void()> changes[] = {
        [&] { Add(t.keys, {0.0, 1.0, 2.0, 3.0}); }, [&] { t->SetKeyFrame(1, Rec(1.0, 70)); },
        [&] { t->ChangeKeyFramePosition(2, 2.5); }, [&] { t->DeleteKeyFrame(0); }, [&] { Add(t.keys, {0.5}); },
        [&] { t.store->ReadFrom(intCurve); }, [&] { t.store->ReadFrom(plain); },  // six double curves again
        [&] { t->CleanAllKeyFrame(); Add(t.keys, {1.0, 3.0}); }};
    const int field[6] = {1, 2, 3, 6, 4, 5};  // the record's field of each key
    // At each time: a sample (which the track may keep), a change, and the same sample again.
    for (int step = -4; step <= 20; ++step)
        for (const auto& change : changes) {
            const double x = step / 4.0;
            KeyFrameParam p{};
            t->GetKeyFrame(x, p);
            change();
            ASSERT_TRUE(t->GetKeyFrame(x, p));
            const Fields got = F(p);
            for (int key = 0; key < 6; ++key) {
                const double want = t->GetKeyFrameValue(key, x).Get<double>();
                ASSERT_EQ(std::memcmp(&got[field[key]], &want, sizeof want), 0)
                    << "change " << &change - changes << " key " << key << " at " << x;
            }
        }
    EXPECT_EQ(intCurve->Release() + plain->Release(), 0u);
}

// Keeps every line as the host's logger formats it ("level:text\n", ASCII), and the levels asked for.
struct Recorder : IQMXLogger {
    bool enabled = true;
    std::vector<int> asked;
    std::string lines;
    bool IsLevelEnabled(int level) override { asked.push_back(level); return enabled; }
    void WriteLog(int level, const wchar_t* format, ...) override
    {
        wchar_t buffer[512];
        va_list args;
        va_start(args, format);
        std::vswprintf(buffer, 512, format, args);
        va_end(args);
        lines += std::to_string(level) + ":" + std::string(buffer, buffer + std::wcslen(buffer)) + "\n";
    }
};

// The four checked operations report a bad index at level 80 with index, count, file and line (one statement
// each), change nothing and return false; none without a logger, with level 80 disabled, or for sampling.
TEST(TrackLog, OutOfRangeReports)
{
    Track t;
    KeyFrameParam p = Rec(-1, -100);
    const std::pair<std::string, std::function<bool(int)>> ops[] = {
        {"SetKeyFrame", [&](int i) { return t->SetKeyFrame(i, Rec(9, 90)); }},
        {"GetKeyFrame", [&](int i) { return t->GetKeyFrame(i, p); }},
        {"DeleteKeyFrame", [&](int i) { return t->DeleteKeyFrame(i); }},
        {"ChangeKeyFramePosition", [&](int i) { return t->ChangeKeyFramePosition(i, 9); }}};
    Recorder rec;
    IQMXLogger* previous = QMXSetDefaultLogger(&rec);
    EXPECT_TRUE(!t->GetKeyFrame(1.0, p) && rec.lines.empty());  // sampling an empty track
    std::set<std::string> statements, lines;  // name and source line, source line
    for (int count : {0, 2}) {
        if (count > 0) Add(t.keys, {0, 1});
        for (const auto& [name, call] : ops)
            for (int index : {-1, count}) {
                rec.lines.clear();
                EXPECT_FALSE(call(index));
                std::smatch line;
                EXPECT_TRUE(std::regex_match(rec.lines, line, std::regex("80:" + name + " index is out of range! "
                    "index:" + std::to_string(index) + ", count:" + std::to_string(count) +
                    "  \\[QMXKeyFrame\\.cpp, ([0-9]+)\\]\n"))) << rec.lines;
                statements.insert(name + line.str(1)), lines.insert(line.str(1));
            }
    }
    EXPECT_EQ(std::make_pair(statements.size(), lines.size()), std::make_pair(size_t{4}, size_t{4}));
    rec.enabled = false;
    rec.lines.clear();
    for (const auto& op : ops) EXPECT_FALSE(op.second(5));
    QMXSetDefaultLogger(nullptr);
    for (const auto& op : ops) EXPECT_FALSE(op.second(5));
    QMXSetDefaultLogger(previous);
    EXPECT_EQ(rec.asked, std::vector<int>(20, 80));  // once per report, and for the disabled level
    EXPECT_TRUE(rec.lines.empty() && F(p) == F(Rec(-1, -100)));
    EXPECT_EQ(All(t.keys), Keys({F(Rec(0, 0)), F(Rec(1, 10))}));
}

// A key outside 0..5 names no curve: the lookup stops the process.
TEST(TrackOpsDeathTest, CurveOutsideTheTrack)
{
    Track t;
    EXPECT_DEATH(t->GetKeyFrameValue(7, 0.0), "curve != nullptr");
}
