// The curve against a deliberately plain reference: keys in a sorted vector,
// the editing and refresh rules written out step by step, the same segment
// mathematics. Long seeded sequences of every edit must leave both with the
// same keys, bit for bit, the same values everywhere sampled and texts that
// read back to those keys; the curve's storage may change freely underneath
// as long as this holds.
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
        std::vector<double> neighbours;
        if (i > 0 || keys.size() > 2)
            neighbours.push_back(i > 0 ? keys[i - 1].t : keys.back().t);
        if (i + 1 < keys.size())
            neighbours.push_back(keys[i + 1].t);
        keys.erase(keys.begin() + static_cast<long>(i));
        for (double t : neighbours)
            Refresh(Find(t));
    }
    void SetPointValue(size_t i, double v)
    {
        if (keys[i].v == v)
            return;
        keys[i].v = v;
        Changed(i, true);
    }
    void SetPointTime(size_t i, double t)
    {
        if (keys[i].t == t)
            return;
        Key moved = keys[i];
        moved.t = t;
        keys.erase(keys.begin() + static_cast<long>(i));
        Changed(Insert(moved), true);
    }
    void SetPointInterpolationType(size_t i, KeyframeInterpolationType kind)
    {
        if (keys[i].kind == kind)
            return;
        keys[i].kind = kind;
        Changed(i, true);
    }
    void SetPointControlParam(size_t i, double left, double right)
    {
        if (keys[i].left == left && keys[i].right == right)
            return;
        keys[i].left = left;
        keys[i].right = right;
        Changed(i, false);
    }
    // The segment around t; a phantom key one unit beyond either end, of kind none.
    double Value(double t) const
    {
        const auto up = std::upper_bound(keys.begin(), keys.end(), t, [](double x, const Key& k) { return x < k.t; });
        if (up == keys.begin())
            return Interpolation::interpolate(up->t - 1.0, ValAny(up->v), 0.0, up->left, up->t, ValAny(up->v), t,
                                              eKeyframeTypeNone, up->kind);
        const Key& cur = *std::prev(up);
        if (up == keys.end())
            return Interpolation::interpolate(cur.t, ValAny(cur.v), cur.right, 0.0, cur.t + 1.0, ValAny(cur.v), t,
                                              cur.kind, eKeyframeTypeNone);
        return Interpolation::interpolate(cur.t, ValAny(cur.v), cur.right, up->left, up->t, ValAny(up->v), t,
                                          cur.kind, up->kind);
    }

private:
    // Inserts by time, replacing a key at the same time; returns its index.
    size_t Insert(const Key& key)
    {
        const auto at = std::lower_bound(keys.begin(), keys.end(), key.t, [](const Key& k, double x) { return k.t < x; });
        if (at != keys.end() && at->t == key.t) {
            *at = key;
            return static_cast<size_t>(at - keys.begin());
        }
        const size_t index = static_cast<size_t>(at - keys.begin());
        keys.insert(at, key);
        return index;
    }
    size_t Find(double t) const
    {
        return static_cast<size_t>(std::find_if(keys.begin(), keys.end(), [&](const Key& k) { return k.t == t; }) -
                                   keys.begin());
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
// that keys collide and replace each other), with the six automatic kinds and hand-set tangents.
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
            const size_t i = count == 0 ? 0 : static_cast<size_t>(pick(count));
            const std::string when = "seed " + std::to_string(seed) + ", step " + std::to_string(step);
            if (op <= 1) {
                const double t = time(), v = value();
                const KeyframeInterpolationType k = kind();
                ASSERT_EQ(curve.AddPoint(t, ValAny(v), k), reference.AddPoint(t, v, k)) << when;
            } else if (op == 2) {
                curve.RemovePoint(static_cast<int>(i));
                reference.RemovePoint(i);
            } else if (op == 3) {
                const double v = pick(4) == 0 ? reference.keys[i].v : value();
                curve.SetPointValue(static_cast<int>(i), ValAny(v));
                reference.SetPointValue(i, v);
            } else if (op == 4) {
                const double t = pick(3) == 0 ? reference.keys[i].t + 0.01 : time();
                curve.SetPointTime(static_cast<int>(i), t);
                reference.SetPointTime(i, t);
            } else if (op == 5) {
                const KeyframeInterpolationType k = kind();
                curve.SetPointInterpolationType(static_cast<int>(i), k);
                reference.SetPointInterpolationType(i, k);
            } else {
                const double left = value() / 10, right = pick(2) == 0 ? left : value() / 10;
                curve.SetPointControlParam(static_cast<int>(i), left, right);
                reference.SetPointControlParam(i, left, right);
            }
            ExpectSame(curve, reference, when);
            if (step % 50 == 49) {  // the text carries exactly these keys, and writes back the same
                const std::string text = curve.Serialize();
                Parameter read(nullptr);
                read.Desialize(text.c_str());
                ExpectSame(read, reference, when + ", read from its text");
                ASSERT_EQ(read.Serialize(), text) << when;
            }
            if (HasFatalFailure())
                return;
        }
    }
}
