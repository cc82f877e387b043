// The curve against a deliberately plain reference: keys in a sorted vector,
// the editing and refresh rules written out step by step, the same segment
// mathematics. Long seeded sequences of every edit must leave both with the
// same keys, bit for bit, and the same values everywhere sampled; the curve's
// storage may change freely underneath as long as this holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

#include "Interpolation.h"
#include "keyframe_process.h"

namespace {

using namespace core;

struct Key {
    double t, v;
    KeyframeInterpolationType kind;
    double left, right;
};

class ReferenceCurve {
public:
    std::vector<Key> keys;

    int AddPoint(double t, double v, KeyframeInterpolationType kind)
    {
        const size_t i = Insert({t, v, kind, 0.0, 0.0});
        Changed(i, true);
        return static_cast<int>(i);
    }
    void RemovePoint(size_t i)
    {
        // The first key's neighbour before it is the last key when more than two remain.
        const bool before = i > 0 || keys.size() > 2, after = i + 1 < keys.size();
        keys.erase(keys.begin() + static_cast<long>(i));
        if (before)
            Refresh(i > 0 ? i - 1 : keys.size() - 1);
        if (after)
            Refresh(i);
    }
    // Puts `k` in the place of key i unless they are equal, as each Set operation does: a new time
    // moves the key (replacing one at that time); hand-set tangents refresh only the neighbours.
    void Edit(size_t i, const Key& k, bool own)
    {
        const Key& was = keys[i];
        if (was.t == k.t && was.v == k.v && was.kind == k.kind && was.left == k.left && was.right == k.right)
            return;
        keys.erase(keys.begin() + static_cast<long>(i));
        Changed(Insert(k), own);
    }
    // The segment around t; a phantom key one unit beyond either end, of kind none.
    double Value(double t) const
    {
        const auto up = std::upper_bound(keys.begin(), keys.end(), t, [](double x, const Key& k) { return x < k.t; });
        const Key from = up == keys.begin() ? Key{up->t - 1.0, up->v, eKeyframeTypeNone, 0.0, 0.0} : *std::prev(up);
        const Key to = up == keys.end() ? Key{from.t + 1.0, from.v, eKeyframeTypeNone, 0.0, 0.0} : *up;
        return Interpolation::interpolate(from.t, ValAny(from.v), from.right, to.left, to.t, ValAny(to.v), t, from.kind,
                                          to.kind);
    }

private:
    // Inserts by time, replacing a key at the same time; returns its index.
    size_t Insert(const Key& key)
    {
        const auto at =
            std::lower_bound(keys.begin(), keys.end(), key.t, [](const Key& k, double x) { return k.t < x; });
        if (at != keys.end() && at->t == key.t) {
            *at = key;
            return static_cast<size_t>(at - keys.begin());
        }
        const size_t index = static_cast<size_t>(at - keys.begin());
        keys.insert(at, key);
        return index;
    }
    // The key's own tangents first (when it changed), then its neighbours' unless of kind none.
    void Changed(size_t i, bool own)
    {
        if (own)
            Refresh(i);
        if (i > 0 && keys[i - 1].kind != eKeyframeTypeNone)
            Refresh(i - 1);
        if (i + 1 < keys.size() && keys[i + 1].kind != eKeyframeTypeNone)
            Refresh(i + 1);
    }
    // Tangents from the neighbours; a missing one is the key itself with kind none, and the curve's end
    // keys count as linear neighbours.
    void Refresh(size_t i)
    {
        const Key& k = keys[i];
        const bool first = i == 0, last = i + 1 == keys.size();
        const Key& prev = first ? k : keys[i - 1];
        const Key& next = last ? k : keys[i + 1];
        const auto kindOf = [&](const Key& n, bool missing, bool end) {
            return missing ? eKeyframeTypeNone : end ? eKeyframeTypeLinear : n.kind;
        };
        Interpolation::autoComputeDerivatives(
            kindOf(prev, first, i == 1), k.kind, kindOf(next, last, i + 2 == keys.size()), prev.t, ValAny(prev.v),
            k.t, ValAny(k.v), next.t, ValAny(next.v), first ? 0.0 : prev.right, last ? 0.0 : next.left,
            &keys[i].left, &keys[i].right);
    }
};

bool Same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void ExpectSame(const Parameter& curve, const ReferenceCurve& reference, const std::string& when)
{
    ASSERT_EQ(curve.GetKeyFramesCount(), static_cast<int>(reference.keys.size())) << when;
    for (int i = 0; i < curve.GetKeyFramesCount(); ++i) {
        const Key& k = reference.keys[i];
        double left = 0.0, right = 0.0;
        curve.GetPointControlParam(i, left, right);
        ASSERT_TRUE(Same(curve.GetPointTime(i), k.t) && Same(curve.GetPointValue(i).Get<double>(), k.v) &&
                    curve.GetInterpolationType(i) == k.kind && Same(left, k.left) && Same(right, k.right))
            << when << ": key " << i;
    }
    if (reference.keys.empty())
        return;
    for (double t : {-1.5, 0.0, 0.3, 1.0, 2.7, 4.0, 6.25, 9.0, 12.5})
        ASSERT_TRUE(Same(curve.GetValue(t, false).Get<double>(), reference.Value(t))) << when << ": at " << t;
}

}  // namespace

// Every edit through the component's operations, at random indexes and on a coarse grid of times (so
// that keys collide and replace each other), with the six automatic kinds and hand-set tangents; edits
// that change nothing (stale tangents stay stale) and removals at indexes outside the keys.
TEST(CurveReference, LongRandomEditSequencesMatchThePlainAlgorithms)
{
    for (unsigned seed = 1; seed <= 24; ++seed) {
        std::mt19937 random(seed);
        const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
        const auto time = [&] { return pick(4) == 0 ? pick(1000) / 97.0 : pick(40) / 4.0; };
        const auto value = [&] { return pick(3) == 0 ? double(pick(5)) : (pick(2000) - 1000) / 7.0; };
        const auto kind = [&] { return static_cast<KeyframeInterpolationType>(pick(6)); };
        Parameter curve(nullptr);
        ReferenceCurve reference;
        for (int step = 0; step < 400; ++step) {
            const int count = curve.GetKeyFramesCount();
            const int op = count == 0 ? 0 : pick(7);
            const int at = count == 0 ? 0 : pick(count);
            const size_t i = static_cast<size_t>(at);
            const std::string when = "seed " + std::to_string(seed) + ", step " + std::to_string(step);
            if (op <= 1) {
                const double t = time(), v = value();
                const KeyframeInterpolationType k = kind();
                ASSERT_EQ(curve.AddPoint(t, ValAny(v), k), reference.AddPoint(t, v, k)) << when;
            } else if (op == 2 && pick(5) == 0) {  // indexes below the keys or past the count are ignored
                curve.RemovePoint(pick(2) == 0 ? -1 - pick(4) : count + 1 + pick(4));
            } else if (op == 2) {
                curve.RemovePoint(at);
                reference.RemovePoint(i);
            } else {
                Key k = reference.keys[i];
                const int same = pick(4);  // 0: the key's own value, time or tangents, which changes nothing
                if (op == 3)
                    curve.SetPointValue(at, ValAny(k.v = same == 0 ? k.v : value()));
                else if (op == 4)  // 1: a time next to the key's own
                    curve.SetPointTime(at, k.t = same == 0 ? k.t : same == 1 ? k.t + 0.01 : time());
                else if (op == 5)
                    curve.SetPointInterpolationType(at, k.kind = kind());
                else {
                    if (same != 0) {
                        k.left = value() / 10;
                        k.right = pick(2) == 0 ? k.left : value() / 10;
                    }
                    if (same == 1)  // the inner step, asked for no index
                        curve.setKeyFrameDerivativesInternal(k.left, k.right, at, nullptr);
                    else
                        curve.SetPointControlParam(at, k.left, k.right);
                }
                reference.Edit(i, k, op != 6);
            }
            ExpectSame(curve, reference, when);
            if (HasFatalFailure())
                return;
        }
    }
}
