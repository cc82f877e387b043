// Track persistence: the in-memory bag, the layout WriteTo gives (counts, segments), ReadFrom of bags.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"
#include "keyframe_process.h"

namespace {

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
    HRESULT GetProperty(const wchar_t* n, CQMXValue* v) override { return Ask(n)->GetProperty(n, v); }
    IQMXProperties* Ask(const wchar_t* n) { return gets.push_back(n), bag; }
    HRESULT Set(const wchar_t* n, const std::wstring& v)
    {
        sets.emplace_back(n, v);
        return v[0] == L'#' ? bag->SetInt(n, std::stoi(v.substr(1))) : bag->SetString(n, v.c_str());
    }
};

struct Track {  // a new track through both interfaces; the last release destroys it
    IQMXKeyFrame* keys = nullptr;
    IQMXStorage* store = nullptr;
    Track()
    {
        QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame,
                                reinterpret_cast<void**>(&keys));
        keys->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&store));
    }
    ~Track() { EXPECT_EQ(store->Release(), 1u); EXPECT_EQ(keys->Release(), 0u); }
    Track& Read(const Entries& e) { Recorder in(e); EXPECT_EQ(store->ReadFrom(&in), S_OK); return *this; }
    Entries Written() { Recorder rec; EXPECT_EQ(store->WriteTo(&rec), S_OK); return rec.sets; }
};

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

// Counting from 1. Names and texts come back exactly (non-ASCII, outside the BMP, empty, case kept), integers
// at their limits; storing replaces value and kind; a miss, or GetInt on a text, is E_FAIL, value untouched.
TEST(MemoryBag, KeepsEntriesExactly)
{
    Recorder owner;
    IQMXProperties* bag = owner.bag;
    EXPECT_EQ(bag->AddRef(), 2u);
    EXPECT_EQ(bag->Release(), 1u);
    using R = std::tuple<HRESULT, std::wstring, std::wstring, HRESULT, int>;
    const auto get = [&](const std::wstring& name) {  // GetProperty: result, type, text; GetInt: result, n
        CQMXValue v;
        v.m_strType = L"t", v.m_strValue = L"keep";
        int n = 7;
        const HRESULT hr = bag->GetProperty(name.c_str(), &v), hi = bag->GetInt(name.c_str(), &n);
        return R(hr, v.m_strType, v.m_strValue, hi, n);
    };
    const Entries texts = {{L"Ünïcødé €", L"\U0001F600 Ünïcødé €"}, {L"ünïcødé €", L""},
                           {L"\U0001D11E", L"a\U0001D11Eb"}, {L"", L"KeyFrameAngleSegment_0"}};
    for (const auto& [name, text] : texts)
        EXPECT_EQ(bag->SetString(name.c_str(), text.c_str()), S_OK);
    for (const auto& [name, text] : texts)
        EXPECT_EQ(get(name), R(S_OK, L"string", text, E_FAIL, 7));
    const std::pair<int, const wchar_t*> ints[] = {{INT_MIN, L"-2147483648"}, {INT_MAX, L"2147483647"}};
    for (const auto& [value, text] : ints) {  // replaces the text stored there
        EXPECT_EQ(bag->SetInt(L"\U0001D11E", value), S_OK);
        EXPECT_EQ(get(L"\U0001D11E"), R(S_OK, L"int", text, S_OK, value));
    }
    EXPECT_EQ(bag->SetString(L"\U0001D11E", L"5"), S_OK);  // and back to a text
    EXPECT_EQ(get(L"\U0001D11E"), R(S_OK, L"string", L"5", E_FAIL, 7));
    for (const wchar_t* missing : {L"Ünïcødé", L"\U0001D11F", L"KeyFrameAngle"})
        EXPECT_EQ(get(missing), R(E_FAIL, L"t", L"keep", E_FAIL, 7));
}

// Per key in key order, the count, then 51200-wide-character segments of the text and its terminator, each
// stored up to its zero (count (L + 1) / 51200 + 1 for L bytes), read back in order to the same text; old
// segments a shorter save leaves are not read. Arbitrary values come back bit for bit, as do samples.
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
        Recorder rec(Track().Read({{kNames[0], L"#1"}, {firsts[0], Widen(text)}}).Written());
        Entries want = {{kNames[0], L"#" + std::to_wstring(r.count)}};
        for (size_t s = 0, at = 0; s < r.visible.size(); at += r.visible[s++])
            want.emplace_back(Seg(0, s), Widen(text.substr(at, r.visible[s])));
        want.insert(want.end(), fresh.begin() + 2, fresh.end());  // the untouched keys
        EXPECT_TRUE(rec.sets == want) << r.length;
        EXPECT_EQ(back.store->ReadFrom(&rec), S_OK);
        EXPECT_TRUE(back.Written() == rec.sets) << r.length;
        EXPECT_EQ(Track().store->WriteTo(&rec), S_OK);  // an empty track saved over it
        rec.gets.clear();
        EXPECT_EQ(back.store->ReadFrom(&rec), S_OK);
        EXPECT_EQ(rec.gets, firsts);
        EXPECT_TRUE(back.Written() == fresh) << r.length;
    }
    Track first, second;
    for (int i = 0; i < 3000; ++i) {
        KeyFrameParam p{i * 0.04,          std::sin(i) * 360.0,     i * 1.5 - 700.0,   std::cos(i) * 250.0,
                        1 + i % 7 * 0.125, 0.5 + std::sin(i * 0.3), (i % 101) / 100.0};
        ASSERT_TRUE(first.keys->AddKeyFrame(p));
    }
    EXPECT_TRUE(second.Read(first.Written()).Written() == first.Written());
    const auto same = [&](auto at) {  // key `at` (an index) or the sample at `at`
        KeyFrameParam a{}, b{};
        EXPECT_TRUE(first.keys->GetKeyFrame(at, a) && second.keys->GetKeyFrame(at, b));
        return std::memcmp(&a, &b, sizeof a) == 0;
    };
    for (int i : {0, 1, 1499, 2999, -1})  // key i, then a sample near it (-1: before the first key)
        EXPECT_TRUE((i < 0 || same(i)) && same(i * 0.04 + 0.013)) << i;
}

// Only keys with a positive integer count are read, each into a new curve (creation defaults plus what the
// text sets); the others stay. Counted segments are joined, a missing one adds nothing; an unparsable or
// empty text leaves the curve empty; a non-ASCII character overflows the 8-bit buffer and cuts the text.
TEST(TrackStorage, ReadFromHandMadeBags)
{
    const std::wstring in = L"{\"ParamType\":1,\"MinValue\":-5,\"MaxValue\":9,\"nodes\":",
                       out = L"{\"MaxValue\":9,\"MinValue\":-5,\"ParamType\":1,\"nodes\":",
                       one = in + L"[[9,1,5,0,0]]}", oneOut = out + L"[[9.0,1,5,0.0,0.0]]}\n";
    const struct { Entries entries; std::vector<std::pair<int, std::wstring>> changed; } rows[] = {
        {{{kNames[3], L"#1"}, {Seg(3, 0), one}}, {{3, oneOut}}},
        {{{kNames[0], L"#2"}, {Seg(0, 0), one}}, {{0, oneOut}}},  // segment 1 missing
        {{{kNames[1], L"#2"}, {Seg(1, 0), one.substr(0, 20)}, {Seg(1, 1), one.substr(20)}}, {{1, oneOut}}},
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
        KeyFrameParam p{0.0, 10, 20, 30, 1.5, 2.5, 0.5}, q{4.0, -10, 2, 3, 1, 2, 1};
        EXPECT_TRUE(t.keys->AddKeyFrame(p) && t.keys->AddKeyFrame(q));
        Entries want = t.Read({{kNames[5], L"#1"}, {Seg(5, 0), in + L"[[7.0,3,1,0,0]]}"}}).Written();
        EXPECT_TRUE(want[11].second == out + L"[[7.0,3,1,0.0,0.0]]}\n" && want[7].second != kFresh);
        for (const auto& [key, text] : r.changed)
            want[2 * key + 1].second = text;
        EXPECT_EQ(t.Read(r.entries).Written(), want) << "row " << &r - rows;
    }
}

// A track edit stores a real in a curve read as an int curve, which then cannot be written: WriteTo throws
// before it touches the bag, so no save is left half written, and the lock is released.
TEST(TrackStorage, UnwritableCurveLeavesTheBagUntouched)
{
    Track t;
    t.Read({{kNames[5], L"#1"}, {Seg(5, 0), L"{\"ParamType\":1,\"nodes\":[[7.0,3,1,0,0]]}"}});
    KeyFrameParam p{1.0, 10, 20, 30, 1.5, 2.5, 0.5};
    EXPECT_TRUE(t.keys->AddKeyFrame(p));
    Recorder rec;
    EXPECT_THROW(t.store->WriteTo(&rec), core::AnyBadAccess);
    EXPECT_TRUE(rec.sets.empty());
    EXPECT_EQ(t.keys->GetKeyFrameCount(), 1);
}
