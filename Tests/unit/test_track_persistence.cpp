// Track persistence: the layout WriteTo gives a bag (counts, segments), ReadFrom of hand-made bags.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "track_fixture.h"

using namespace testing_support;

namespace {

// The saved layout's names, spelled out: a change to them breaks every saved project.
const std::wstring kNames[6] = {L"KeyFrameAngle",   L"KeyFramePositionX", L"KeyFramePositionY",
                                L"KeyFrameOpacity", L"KeyFrameScaleX",    L"KeyFrameScaleY"};
using Entries = std::vector<std::pair<std::wstring, std::wstring>>;  // name, text; "#n" is the integer n

std::wstring Widen(const std::string& s) { return std::wstring(s.begin(), s.end()); }
std::wstring Seg(int key, size_t s) { return kNames[key] + L"Segment_" + std::to_wstring(s); }
const std::wstring kFresh = Widen(core::Parameter(nullptr).Serialize());

// Records every store and every GetProperty name, in order; keeps the entries in a memory bag.
struct Recorder final : IQMXProperties {
    IQMXProperties* bag = QMXCreateMemoryProperties();
    Entries sets;
    std::vector<std::wstring> gets;
    explicit Recorder(const Entries& entries = {}) { for (const auto& [n, v] : entries) Set(n.c_str(), v); }
    ~Recorder() { EXPECT_EQ(bag->Release(), 0u); }
    HRESULT QueryInterface(const _GUID&, void** ppv) override { *ppv = nullptr; return E_NOINTERFACE; }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    HRESULT GetInt(const wchar_t* n, int* v) override { return bag->GetInt(n, v); }
    HRESULT SetInt(const wchar_t* n, int v) override { return Set(n, L"#" + std::to_wstring(v)); }
    HRESULT SetString(const wchar_t* n, const wchar_t* v) override { return Set(n, v); }
    HRESULT GetProperty(const wchar_t* n, CQMXValue* v) override { return gets.push_back(n), bag->GetProperty(n, v); }
    HRESULT Set(const wchar_t* n, const std::wstring& v)
    {
        sets.emplace_back(n, v);
        return v[0] == L'#' ? bag->SetInt(n, std::stoi(v.substr(1))) : bag->SetString(n, v.c_str());
    }
};
// Reads a bag of `in` into `t`; what `t` writes.
const Track& Read(const Track& t, const Entries& in) { Recorder r(in); EXPECT_EQ(t.store->ReadFrom(&r), 0); return t; }
Entries Written(const Track& t) { Recorder out; EXPECT_EQ(t.store->WriteTo(&out), S_OK); return out.sets; }

// A canonical curve text of exactly `length` bytes: linear keys at whole times; the last key's value
// and tangents are powers of ten whose digits pad the text (up to 10^14 each, written exactly).
std::string TextOfLength(size_t length)
{
    const auto pad = [](size_t e) { return e == 0 ? std::string("0.0") : "1" + std::string(e, '0') + ".0"; };
    const auto node = [&](int t, size_t a, size_t b, size_t c) {
        return "[" + std::to_string(t) + ".0," + pad(a) + ",1," + pad(b) + "," + pad(c) + "]";
    };
    std::string text = "{\"MaxValue\":100.0,\"MinValue\":-100.0,\"ParamType\":0,\"nodes\":[";
    int t = 0;
    while (length - text.size() > 64)
        text += node(t++, 0, 0, 0) + ",";
    const size_t extra = length - text.size() - 3 - node(t, 0, 0, 0).size();
    const size_t a = extra < 14 ? extra : 14, b = extra - a < 14 ? extra - a : 14;
    return text + node(t, a, b, extra - a - b) + "]}\n";
}

}  // namespace

// Per key in key order, the count, then 51200-wide-character segments of the text and its terminator, each
// stored up to its zero (count (L + 1) / 51200 + 1 for L bytes), read back in order to the same text; old
// segments a shorter save leaves are not read.
TEST(TrackStorage, LongTextsAreCutIntoSegments)
{
    Entries fresh;  // what an empty track writes; then segment 0 of each key
    std::vector<std::wstring> firsts;
    for (int key = 0; key < 6; firsts.push_back(Seg(key++, 0)))
        fresh.insert(fresh.end(), {{kNames[key], L"#1"}, {Seg(key, 0), kFresh}});
    const struct { size_t length; int count; std::vector<size_t> visible; } rows[] = {
        {51198, 1, {51198}}, {51199, 2, {51199}}, {51200, 2, {51200, 0}}, {60000, 2, {51200, 8800}},
        {102399, 3, {51200, 51199}}, {102400, 3, {51200, 51200, 0}}, {120000, 3, {51200, 51200, 17600}}};
    for (const auto& r : rows) {
        const std::string text = TextOfLength(r.length);
        ASSERT_EQ(text.size(), r.length);  // and canonical: compared with what WriteTo stores below
        Track back;
        Recorder rec(Written(Read(Track(), {{kNames[0], L"#1"}, {firsts[0], Widen(text)}})));
        Entries want = {{kNames[0], L"#" + std::to_wstring(r.count)}};
        for (size_t s = 0, at = 0; s < r.visible.size(); at += r.visible[s++])
            want.emplace_back(Seg(0, s), Widen(text.substr(at, r.visible[s])));
        want.insert(want.end(), fresh.begin() + 2, fresh.end());  // the untouched keys
        EXPECT_TRUE(rec.sets == want) << r.length;
        EXPECT_EQ(back.store->ReadFrom(&rec), S_OK);
        EXPECT_TRUE(Written(back) == rec.sets) << r.length;
        EXPECT_EQ(Track().store->WriteTo(&rec), S_OK);  // an empty track saved over it
        rec.gets.clear();
        EXPECT_EQ(back.store->ReadFrom(&rec), S_OK);
        EXPECT_EQ(rec.gets, firsts);
        EXPECT_TRUE(Written(back) == fresh) << r.length;
    }
}

// Only keys with a positive integer count are read, each into a new curve (creation defaults plus what the
// text sets); the others stay. An unparsable or empty text leaves the curve empty; a non-ASCII character
// overflows the 8-bit buffer and cuts the text. (Joining the counted segments: the long texts above and the
// bag fuzz target's replays.)
TEST(TrackStorage, ReadFromHandMadeBags)
{
    const std::wstring in = L"{\"ParamType\":1,\"MinValue\":-5,\"MaxValue\":9,\"nodes\":",
                       out = L"{\"MaxValue\":9,\"MinValue\":-5,\"ParamType\":1,\"nodes\":",
                       one = in + L"[[9,1,5,0,0]]}", oneOut = out + L"[[9.0,1,5,0.0,0.0]]}\n";
    const struct { Entries entries; std::vector<std::pair<int, std::wstring>> changed; } rows[] = {
        {{{kNames[3], L"#1"}, {Seg(3, 0), one}}, {{3, oneOut}}},
        {{{kNames[0], L"#1"}, {Seg(0, 0), L"{\"ParamType\":1,"}, {kNames[2], L"#1"}, {kNames[5], L"#1"},
          {Seg(5, 0), L"x"}}, {{0, kFresh}, {2, kFresh}, {5, kFresh}}},
        {{{kNames[0], L"#0"}, {Seg(0, 0), one}, {kNames[1], L"#-1"}, {Seg(1, 0), one}, {kNames[2], L"1"},
          {Seg(2, 0), one}, {kNames[4], L"#-2147483648"}, {Seg(4, 0), one}, {Seg(5, 0), one}}, {}},
        {{{kNames[3], L"#1"}, {Seg(3, 0), in + L"null,\"note\":\"e\"}"}}, {{3, out + L"null}\n"}}},
        {{{kNames[3], L"#1"}, {Seg(3, 0), in + L"null,\"note\":\"\u00e9\"}"}}, {{3, kFresh}}},
        // Texts of the wrong shape make the curve's reader throw part-way, the last one after the type is
        // set but not the range (an int curve with real bounds could not be written): each gives a new curve.
        {{{kNames[3], L"#1"}, {Seg(3, 0), L"[1,2]"}, {kNames[4], L"#1"}, {Seg(4, 0), in + L"[{}]}"},
          {kNames[2], L"#1"}, {Seg(2, 0), L"{\"ParamType\":1,\"MinValue\":-1e12,\"MaxValue\":9}"}},
         {{2, kFresh}, {3, kFresh}, {4, kFresh}}}};
    for (const auto& r : rows) {
        Track t;  // two keys on every curve, curve 5 read as an int curve; want: count, segment 0 per key
        Add(t.keys, {0.0, 4.0});
        Entries want = Written(Read(t, {{kNames[5], L"#1"}, {Seg(5, 0), in + L"[[7.0,3,1,0,0]]}"}}));
        EXPECT_TRUE(want[11].second == out + L"[[7.0,3,1,0.0,0.0]]}\n" && want[7].second != kFresh);
        for (const auto& [key, text] : r.changed)
            want[2 * key + 1].second = text;
        EXPECT_EQ(Written(Read(t, r.entries)), want) << "row " << &r - rows;
    }
}

// A track edit stores a real in a curve read as an int curve, which then cannot be written: WriteTo throws
// before it touches the bag, so no save is left half written, and the lock is released.
TEST(TrackStorage, UnwritableCurveLeavesTheBagUntouched)
{
    Track t;
    Read(t, {{kNames[5], L"#1"}, {Seg(5, 0), L"{\"ParamType\":1,\"nodes\":[[7.0,3,1,0,0]]}"}});
    Add(t.keys, {1.0});
    Recorder rec;
    EXPECT_THROW(t.store->WriteTo(&rec), core::AnyBadAccess);
    EXPECT_TRUE(rec.sets.empty() && t->GetKeyFrameCount() == 1);
}
