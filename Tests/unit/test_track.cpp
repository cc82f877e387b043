// The keyframe track: queries, edits, sampling, frames, read order, out-of-range reports; the bag's values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "QMXPropertyBag.h"
#include "TrackProperties.h"

namespace {

using Fields = std::vector<double>;  // the record's fields in declaration order
using Keys = std::vector<Fields>;

// Interface `iid` of `from`, or of a new track when `from` is null; the caller owns the reference.
template <typename T = IQMXKeyFrame>
T* Query(IUnknown* from, const _GUID& iid = IID_IQMXKeyFrame)
{
    void* p = nullptr;
    EXPECT_EQ(from ? from->QueryInterface(iid, &p)
                   : QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, iid, &p), S_OK);
    return static_cast<T*>(p);
}

// Property key k holds b + k + 1: angle 1, position X 2, position Y 3, scale X 5, scale Y 6, opacity 4.
KeyFrameParam Rec(double x, double b) { return {x, b + 1, b + 2, b + 3, b + 5, b + 6, b + 4}; }
Fields F(const KeyFrameParam& p) { Fields f(7); std::memcpy(f.data(), &p, sizeof p); return f; }
void Add(IQMXKeyFrame* t, std::initializer_list<double> xs, KeyFrameParam p = {})  // keys Rec(x, 10 x)
{
    for (double x : xs) EXPECT_TRUE(t->AddKeyFrame(p = Rec(x, 10 * x)));
}
Keys All(IQMXKeyFrame* t)  // every keyframe in index order
{
    Keys keys;
    for (KeyFrameParam p{}; static_cast<int>(keys.size()) < t->GetKeyFrameCount(); keys.push_back(F(p)))
        EXPECT_TRUE(t->GetKeyFrame(static_cast<int>(keys.size()), p));
    return keys;
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

// Counts references without ever destroying itself; `text` is its address as an interface-typed value has it.
struct Counted : IUnknown {
    int refs = 1;  // the reference a value built field by field hands back when it goes
    wchar_t text[64];
    Counted() { std::swprintf(text, 64, L"Interface:%p", static_cast<void*>(this)); }
    HRESULT QueryInterface(const _GUID&, void** ppv) override { *ppv = nullptr; return E_NOINTERFACE; }
    uint32_t AddRef() override { return static_cast<uint32_t>(++refs); }
    uint32_t Release() override { return static_cast<uint32_t>(--refs); }
};

// Sets type t and text s directly: no reference is taken, yet one is released when `v` goes if t matches.
auto& Fill(CQMXValue& v, const wchar_t* t, const wchar_t* s) { return v.m_strType = t, v.m_strValue = s, v; }

}  // namespace

// One reference from creation; both interfaces are faces of one object, each query adds one. Keyframes go
// into the curves by property key, sorted by position; linear samples are exact; edits keep fields with their
// key. Frames of keys (nearest), the lowest key on a frame, frame positions; a bad index throws.
TEST(TrackOps, QueriesEditsSamplingAndFrames)
{
    IQMXKeyFrame* t = Query(nullptr);
    auto* s = Query<IQMXStorage>(t, IID_IQMXStorage);
    EXPECT_EQ(t->AddRef(), 3u);
    EXPECT_EQ(Query(s), t);
    EXPECT_EQ(s->Release(), 3u);
    EXPECT_EQ(t->Release(), 2u);
    for (const _GUID* iid : {&IID_IQMXKeyFrame, &IID_IQMXStorage, &IID_IQMXKeyFrameKV})
        EXPECT_EQ(t->QueryInterface(*iid, nullptr), E_POINTER);
    KeyFrameParam p;
    const std::pair<double, int> adds[] = {{2.0, 0}, {0.0, 0}, {4.0, 2}, {1.0, 1}};  // position, its index
    for (const auto& [x, at] : adds) {  // x + 0.25 is no key's position
        int index = -5;
        EXPECT_TRUE(t->AddKeyFrame(p = Rec(x, 10 * x), index) && index == at) << x;
        EXPECT_TRUE(t->GetKeyFrameIndex(x) == at && t->GetKeyFrameIndex(x + 0.25) == -1) << x;
    }
    EXPECT_EQ(All(t), Keys({F(Rec(0, 0)), F(Rec(1, 10)), F(Rec(2, 20)), F(Rec(4, 40))}));
    for (int key = 0; key < 6; ++key)
        EXPECT_TRUE(t->HasKeyFrame(key) && t->GetKeyFrameValue(key, 3.0).Get<double>() == 31.0 + key) << key;
    EXPECT_TRUE(t->GetKeyFrame(0.5, p = Rec(-1, -100)) && F(p) == F(Rec(0.5, 5)));
    // Key 1 moves past the key at 2; key 0 gets its values, then moves last.
    EXPECT_TRUE(t->SetKeyFrame(1, Rec(3.0, 30)) && t->SetKeyFrame(0, Rec(5.0, 50)));
    EXPECT_EQ(All(t), Keys({F(Rec(2, 20)), F(Rec(3, 30)), F(Rec(4, 40)), F(Rec(5, 50))}));
    EXPECT_TRUE(t->ChangeKeyFramePosition(3, 1.0) && t->DeleteKeyFrame(1));
    EXPECT_EQ(All(t), Keys({F(Rec(1, 50)), F(Rec(3, 30)), F(Rec(4, 40))}));
    EXPECT_TRUE(t->GetKeyFrame(2.0, p) && F(p) == F(Rec(2.0, 40)));
    const std::pair<double, bool> range[] = {{1.0, true}, {4.0, true}, {2.5, true},  // both ends inclusive
        {std::nextafter(1.0, 0.0), false}, {std::nextafter(4.0, 5.0), false}, {NAN, false}};
    for (const auto& [x, in] : range) EXPECT_EQ(t->InKeyFrameRange(x), in) << x;
    t->CleanAllKeyFrame();
    for (int key = 0; key < 6; ++key) EXPECT_FALSE(t->HasKeyFrame(key));
    Add(t, {7.0});
    EXPECT_FALSE(t->InKeyFrameRange(7.0));  // a single key is never in range
    for (int key : {7, -1, 7}) EXPECT_FALSE(t->HasKeyFrame(key));  // adds no slot: WriteTo would stop at it
    IQMXProperties* bag = QMXCreateMemoryProperties();
    EXPECT_EQ(s->WriteTo(bag), S_OK);
    EXPECT_EQ(bag->Release(), 0u);
    t->CleanAllKeyFrame();
    Add(t, {0.0, 0.5, 0.52, 1.0});  // frames 0, 13 (half away from zero), 13, 25 at rate 25
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
    const std::pair<int, int> at[] = {{13, 25}, {7, 0}, {-3, 4}};  // frame, rate
    Fields positions(3, 99);
    for (int i = 0; i < 3; ++i) t->CaculateKeyFramePosition(at[i].first, at[i].second, positions[i]);
    EXPECT_EQ(positions, Fields({0.52, 7, -0.75}));
    EXPECT_THROW(t->CaculateKeyFrameIndex(4, 25, frame), std::out_of_range);
    EXPECT_THROW(t->CaculateKeyFrameIndex(-1, 25, frame), std::out_of_range);
    EXPECT_TRUE(frame == -9 && t->GetKeyFrameCount() == 4);
    EXPECT_EQ(s->Release(), 1u);
    EXPECT_EQ(t->Release(), 0u);
}

// Curves are read angle, scale X, scale Y, position X, position Y, opacity: a boolean curve loaded from a
// bag stops both reads after exactly the fields before it; the lock is released.
TEST(TrackOps, UnreadableValueStopsInValueOrder)
{
    const int order[6] = {0, 4, 5, 1, 2, 3}, field[6] = {1, 2, 3, 6, 4, 5};  // the record's field of each key
    for (int boolKey = 0; boolKey < 6; ++boolKey) {
        const std::wstring name = qmx::kTrackProperties[boolKey].bagName;
        IQMXKeyFrame* t = Query(nullptr);
        Add(t, {0.0, 2.0});
        IQMXProperties* bag = QMXCreateMemoryProperties();
        bag->SetInt(name.c_str(), 1);
        bag->SetString((name + L"Segment_0").c_str(),
                       L"{\"ParamType\":2,\"nodes\":[[0.0,true,0,0.0,0.0],[2.0,false,0,0.0,0.0]]}");
        auto* s = Query<IQMXStorage>(t, IID_IQMXStorage);
        EXPECT_EQ(s->ReadFrom(bag), S_OK);
        for (double at : {-1.0, 1.0}) {  // key 0, then sampling at 1.0
            KeyFrameParam p = {-7, -7, -7, -7, -7, -7, -7};
            Fields want = F(p);
            want[0] = at < 0 ? 0.0 : at;
            for (int i = 0; order[i] != boolKey; ++i) want[field[order[i]]] = (at < 0 ? 1 : 11) + order[i];
            EXPECT_THROW(at < 0 ? t->GetKeyFrame(0, p) : t->GetKeyFrame(at, p), core::AnyBadAccess);
            EXPECT_EQ(F(p), want) << "boolean curve " << boolKey << " at " << at;
        }
        EXPECT_TRUE(t->GetKeyFrameCount() == 2 && t->GetKeyFrameValue(boolKey, 0.0).Get<bool>());
        EXPECT_EQ(bag->Release(), 0u);
        EXPECT_EQ(s->Release(), 1u);
        EXPECT_EQ(t->Release(), 0u);
    }
}

// Sampling a track in frame order after every kind of change gives what each curve evaluates itself,
// bit for bit: the segments that playback keeps between samples never outlive a change.
TEST(TrackOps, SamplesFollowEveryEdit)
{
    IQMXKeyFrame* t = Query(nullptr);
    auto* s = Query<IQMXStorage>(t, IID_IQMXStorage);
    IQMXProperties* bag = QMXCreateMemoryProperties();  // opacity as an int curve
    bag->SetInt(L"KeyFrameOpacity", 1);
    bag->SetString(L"KeyFrameOpacitySegment_0",
                   L"{\"MaxValue\":100,\"MinValue\":-100,\"ParamType\":1,\"nodes\":[[0.0,5,3,0.0,0.0],[4.0,8,3,0.0,0.0]]}");
    IQMXProperties* plain = QMXCreateMemoryProperties();
    Add(t, {0.0, 1.0, 2.0, 3.0});
    EXPECT_EQ(s->WriteTo(plain), S_OK);
    const std::function<void()> changes[] = {
        [&] { Add(t, {0.0, 1.0, 2.0, 3.0}); },
        [&] { KeyFrameParam p = Rec(1.0, 70); t->SetKeyFrame(1, p); },
        [&] { t->ChangeKeyFramePosition(2, 2.5); },
        [&] { t->DeleteKeyFrame(0); },
        [&] { Add(t, {0.5}); },
        [&] { s->ReadFrom(bag); },
        [&] { s->ReadFrom(plain); },  // six double curves again
        [&] { t->CleanAllKeyFrame(); Add(t, {1.0, 3.0}); },
    };
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
    EXPECT_EQ(bag->Release() + plain->Release(), 0u);
    EXPECT_EQ(s->Release(), 1u);
    EXPECT_EQ(t->Release(), 0u);
}

// The four checked operations report a bad index at level 80 with index, count, file and line (one statement
// each), change nothing and return false; none without a logger, with level 80 disabled, or for sampling.
TEST(TrackLog, OutOfRangeReports)
{
    IQMXKeyFrame* t = Query(nullptr);
    KeyFrameParam p = Rec(-1, -100);
    const std::pair<std::string, std::function<bool(int)>> ops[] = {
        {"SetKeyFrame", [&](int i) { return t->SetKeyFrame(i, Rec(9, 90)); }},
        {"GetKeyFrame", [&](int i) { return t->GetKeyFrame(i, p); }},
        {"DeleteKeyFrame", [&](int i) { return t->DeleteKeyFrame(i); }},
        {"ChangeKeyFramePosition", [&](int i) { return t->ChangeKeyFramePosition(i, 9); }}};
    Recorder rec;
    IQMXLogger* previous = QMXSetDefaultLogger(&rec);
    EXPECT_TRUE(!t->GetKeyFrame(1.0, p) && rec.lines.empty());  // sampling an empty track
    std::set<std::string> statements, numbers;  // name and line, line
    for (int count : {0, 2}) {
        if (count > 0) Add(t, {0, 1});
        for (const auto& [name, call] : ops)
            for (int index : {-1, count}) {
                rec.lines.clear();
                const std::string head = "80:" + name + " index is out of range! index:" +
                                         std::to_string(index) + ", count:" + std::to_string(count) +
                                         "  [QMXKeyFrame.cpp, ";
                EXPECT_FALSE(call(index));
                const size_t close = rec.lines.rfind("]\n");
                const bool closed = close != std::string::npos && close >= head.size();
                const std::string line = closed ? rec.lines.substr(head.size(), close - head.size()) : "";
                EXPECT_TRUE(rec.lines.compare(0, head.size(), head) == 0 && close + 2 == rec.lines.size() &&
                            !line.empty() && line.find_first_not_of("0123456789") == std::string::npos)
                    << name << rec.lines;
                statements.insert(name + line);
                numbers.insert(line);
            }
    }
    EXPECT_EQ(std::make_pair(statements.size(), numbers.size()), std::make_pair(size_t{4}, size_t{4}));
    rec.enabled = false;
    rec.lines.clear();
    for (const auto& op : ops) EXPECT_FALSE(op.second(5));
    QMXSetDefaultLogger(nullptr);
    for (const auto& op : ops) EXPECT_FALSE(op.second(5));
    QMXSetDefaultLogger(previous);
    EXPECT_EQ(rec.asked, std::vector<int>(20, 80));  // once per report, and for the disabled level
    EXPECT_TRUE(rec.lines.empty() && F(p) == F(Rec(-1, -100)));
    EXPECT_EQ(All(t), Keys({F(Rec(0, 0)), F(Rec(1, 10))}));
    EXPECT_EQ(t->Release(), 0u);
}

// A key outside 0..5 names no curve: the lookup stops the process.
TEST(TrackOpsDeathTest, CurveOutsideTheTrack)
{
    EXPECT_DEATH(Query(nullptr)->GetKeyFrameValue(7, 0.0), "curve != nullptr");
}

// An interface-typed value owns one reference: assignment and copying add one, destruction and
// reassignment drop it; release ignores the type's case, referencing does not; equality by text only.
TEST(TrackValue, InterfaceReferences)
{
    const wchar_t* kType = L"CQMXPtr<IUnknown>";
    Counted a, b;
    {
        CQMXValue rawA, rawB, v, other;
        const CQMXValue& self = (v = Fill(rawA, kType, a.text));
        v = self;
        EXPECT_EQ(a.refs, 2);
        EXPECT_TRUE([&] { const CQMXValue copy(v); return a.refs == 3 && copy == v; }());  // while it lives
        v = Fill(rawB, kType, b.text);
        EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(1, 2));
        v = Fill(other, L"int", L"5");
        EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(1, 1));
        EXPECT_EQ(v.m_strType + L"=" + v.m_strValue, L"int=5");
        EXPECT_TRUE(v == Fill(other, L"string", L"5") && !(v == Fill(other, L"int", a.text)));
        v = Fill(other, kType, L"5");  // no pointer in the text: nothing referenced or released
    }
    EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(0, 0));
    a.refs = 2;
    EXPECT_TRUE(([&] { CQMXValue lo, v; v = Fill(lo, L"cqmxptr<iunknown>", a.text); return a.refs == 2; }()));
    EXPECT_EQ(a.refs, 0);  // not referenced by the assignment, yet released by both values
}
