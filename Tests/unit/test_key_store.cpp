// The curve's key storage against std::map over long sequences of inserts,
// erasures and re-timings, large enough to grow, split, merge and shrink a
// tree of three levels. (Copying, clearing and emptiness: the curve tests
// and the fuzz replays, which copy and clear curves.)
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <vector>

#include "KeyStore.h"

namespace {

using core::KeyStore;
using Reference = std::map<double, int>;

// Every key in both directions, every index both ways, and the searches at and between the keys on a
// quarter grid, in order and then backwards (so that the remembered place is both kept and lost).
void ExpectSame(const KeyStore& store, const Reference& reference)
{
    ASSERT_EQ(store.size(), reference.size());
    std::vector<double> times;
    auto it = store.begin();
    for (const auto& [time, tag] : reference) {
        ASSERT_TRUE(it != store.end() && it->GetTime() == time && it->GetValue().Get<int>() == tag);
        ASSERT_EQ(store.find_by_order(times.size()), it);
        ASSERT_EQ(store.order_of(it++), times.size());
        times.push_back(time);
    }
    ASSERT_TRUE(it == store.end() && store.order_of(it) == times.size());
    for (auto back = times.rbegin(); back != times.rend(); ++back)
        ASSERT_EQ((--it)->GetTime(), *back);
    const auto at = [&](std::vector<double>::const_iterator found) {
        return found == times.end() ? store.end() : store.find_by_order(static_cast<size_t>(found - times.begin()));
    };
    for (int q = -4; q <= 2 * 4 * 2100 + 4; ++q) {
        const double t = (q <= 4 * 2100 ? q : 2 * 4 * 2100 - q) / 4.0;
        const auto after = at(std::upper_bound(times.begin(), times.end(), t));
        ASSERT_EQ(store.lower_bound(t), at(std::lower_bound(times.begin(), times.end(), t))) << t;
        ASSERT_TRUE(store.upper_bound(t) == after && store.upper_bound_near(t) == after) << t;
    }
}

TEST(KeyStore, MatchesAnOrderedMapThroughGrowthAndShrinking)
{
    const struct { const char* name; int prefill, steps, insertPercent, erasePercent; bool ascending; } mixes[] = {
        {"appends then random edits", 0, 12000, 60, 20, true},  // the rest re-time a key
        {"random inserts", 0, 12000, 80, 10, false},
        {"shrinking to empty", 8000, 16000, 30, 70, false}};
    for (const auto& mix : mixes) {
        SCOPED_TRACE(mix.name);
        std::mt19937 rng(7);
        KeyStore store;
        Reference reference;
        const auto insert = [&](double t, int tag) {
            const auto [it, added] = store.insert(core::TimeValuePair(t, core::ValAny(tag), core::eKeyframeTypeLinear));
            ASSERT_EQ(added, reference.emplace(t, tag).second);
            ASSERT_TRUE(it->GetTime() == t && it->GetValue().Get<int>() == reference[t]);
        };
        for (int i = 0; i < mix.prefill; ++i)
            insert(i / 4.0, i);
        for (int step = 0, next = 0; step < mix.steps; ++step) {
            const int what = static_cast<int>(rng() % 100);
            if (what < mix.insertPercent || reference.empty()) {
                ASSERT_NO_FATAL_FAILURE(
                    insert(mix.ascending && step < 9000 ? next++ / 4.0 : static_cast<int>(rng() % 8400) / 4.0, step));
            } else {
                const KeyStore::iterator it = store.find_by_order(rng() % reference.size());
                const auto ref = reference.find(it->GetTime());
                ASSERT_NE(ref, reference.end());
                // A re-timed key moves halfway to the neighbour before (or one unit before the first key).
                const double low = ref == reference.begin() ? ref->first - 1.0 : std::prev(ref)->first;
                const double t = (low + ref->first) / 2.0;
                const int tag = ref->second;
                if (what < mix.insertPercent + mix.erasePercent) {
                    store.erase(it);
                    reference.erase(ref);
                } else if (t != low && t != ref->first) {
                    store.retime(it, t);
                    reference.erase(ref);
                    reference.emplace(t, tag);
                }
            }
            if (step % 3000 == 2999 || step == mix.steps - 1) {
                ASSERT_NO_FATAL_FAILURE(ExpectSame(store, reference)) << "step " << step;
            }
        }
    }
}

}  // namespace
