// The curve's key storage against std::map over long sequences of inserts,
// erasures and re-timings, large enough to grow, split, merge and shrink a
// tree of three levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <vector>

#include "KeyStore.h"

namespace {

using core::KeyStore;
using core::TimeValuePair;
using Reference = std::map<double, int>;

TimeValuePair Key(double time, int tag)
{
    return TimeValuePair(time, core::ValAny(tag), core::eKeyframeTypeLinear);
}

// Every key in both directions, every index both ways, and the searches at
// and between the keys, as std::map answers them.
void ExpectSame(const KeyStore& store, const Reference& reference)
{
    ASSERT_EQ(store.size(), reference.size());
    ASSERT_EQ(store.empty(), reference.empty());
    size_t index = 0;
    auto it = store.begin();
    for (const auto& [time, tag] : reference) {
        ASSERT_NE(it, store.end());
        ASSERT_EQ(it->GetTime(), time);
        ASSERT_EQ(it->GetValue().Get<int>(), tag);
        ASSERT_EQ(store.find_by_order(index), it);
        ASSERT_EQ(store.order_of(it), index);
        ++it, ++index;
    }
    ASSERT_EQ(it, store.end());
    ASSERT_EQ(store.order_of(store.end()), reference.size());
    for (auto back = reference.rbegin(); back != reference.rend(); ++back)
        ASSERT_EQ((--it)->GetTime(), back->first);
    std::vector<double> times;
    for (const auto& entry : reference)
        times.push_back(entry.first);
    const auto at = [&](std::vector<double>::const_iterator found) {
        return found == times.end() ? store.end() : store.find_by_order(static_cast<size_t>(found - times.begin()));
    };
    // Probes on a quarter grid hit keys and the gaps between them, in order
    // and then backwards, so that the remembered place is both kept and lost.
    for (int pass = 0; pass < 2; ++pass)
        for (int q = -4; q <= 4 * 2100; ++q) {
            const double t = (pass == 0 ? q : 4 * 2100 - q) / 4.0;
            const auto after = at(std::upper_bound(times.begin(), times.end(), t));
            ASSERT_EQ(store.lower_bound(t), at(std::lower_bound(times.begin(), times.end(), t))) << t;
            ASSERT_EQ(store.upper_bound(t), after) << t;
            ASSERT_EQ(store.upper_bound_near(t), after) << t;
        }
}

struct Mix {
    const char* name;
    int steps;
    int insertPercent, erasePercent;  // the rest re-time a key
    bool ascending;                   // inserts at increasing times
};

TEST(KeyStore, MatchesAnOrderedMapThroughGrowthAndShrinking)
{
    const Mix mixes[] = {
        {"appends then random edits", 12000, 60, 20, true},
        {"random inserts", 12000, 80, 10, false},
        {"shrinking to empty", 16000, 30, 70, false},
    };
    for (const Mix& mix : mixes) {
        SCOPED_TRACE(mix.name);
        std::mt19937 rng(7);
        KeyStore store;
        Reference reference;
        int next = 0;
        if (mix.steps > 14000)  // start full, then mostly erase
            for (int i = 0; i < 8000; ++i) {
                store.insert(Key(i / 4.0, i));
                reference.emplace(i / 4.0, i);
            }
        for (int step = 0; step < mix.steps; ++step) {
            const int what = static_cast<int>(rng() % 100);
            if (what < mix.insertPercent || reference.empty()) {
                const double t = mix.ascending && step < 9000 ? next++ / 4.0 : static_cast<int>(rng() % 8400) / 4.0;
                const auto [it, added] = store.insert(Key(t, step));
                const bool expected = reference.emplace(t, step).second;
                ASSERT_EQ(added, expected);
                ASSERT_EQ(it->GetTime(), t);
                ASSERT_EQ(it->GetValue().Get<int>(), reference[t]);
            } else {
                const KeyStore::iterator it = store.find_by_order(rng() % reference.size());
                const auto ref = reference.find(it->GetTime());
                ASSERT_NE(ref, reference.end());
                if (what < mix.insertPercent + mix.erasePercent) {
                    store.erase(it);
                    reference.erase(ref);
                } else {
                    // Halfway to the neighbour before (or one unit before the first key).
                    const double low = ref == reference.begin() ? ref->first - 1.0 : std::prev(ref)->first;
                    const double t = (low + ref->first) / 2.0;
                    if (t == low || t == ref->first)
                        continue;
                    store.retime(it, t);
                    const int tag = ref->second;
                    reference.erase(ref);
                    reference.emplace(t, tag);
                }
            }
            if (step % 3000 == 2999 || step == mix.steps - 1) {
                ASSERT_NO_FATAL_FAILURE(ExpectSame(store, reference)) << "step " << step;
            }
        }
        const KeyStore copy(store);
        KeyStore assigned;
        assigned.insert(Key(-5.0, 0));
        assigned = copy;
        ASSERT_NO_FATAL_FAILURE(ExpectSame(assigned, reference));
        store.clear();
        ASSERT_NO_FATAL_FAILURE(ExpectSame(store, {}));
    }
}

}  // namespace
