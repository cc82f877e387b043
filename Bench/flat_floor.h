// What the target rows of the curve and track programs share: the keys they
// are built from, the frames they are read at, and a flat-array floor that
// does the same work on plain sorted arrays (a binary search and one cubic
// segment, without virtual calls, value holders or locks). A row's time over
// its floor's shows what the module's own structure costs on top of the data
// and the arithmetic.
//
// Keys sit on integer frames of a ten-minute 60 fps clip (36000 frames), at
// frame / 60 seconds, spread evenly over it: 36000 keys put one key on every
// frame. Values are random walks, the same on every run.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace qmxbench {

constexpr int kClipFrames = 36000;
constexpr double kRate = 60.0;

// Times and values of one curve's keys, in time order.
struct KeySet {
    std::vector<double> times;
    std::vector<double> values;
};

// `count` keys spread evenly over the clip's frames, with a random walk
// seeded by `seed` (each of a track's curves takes its own seed).
inline KeySet TargetKeys(int count, unsigned seed = 12345)
{
    KeySet keys;
    keys.times.resize(static_cast<size_t>(count));
    keys.values.resize(static_cast<size_t>(count));
    std::mt19937 rng(seed);
    std::normal_distribution<double> step(0.0, 3.0);
    double value = 0.0;
    for (int i = 0; i < count; ++i) {
        const long frame = count == 1 ? 0 : std::lround(i * double(kClipFrames - 1) / (count - 1));
        keys.times[static_cast<size_t>(i)] = static_cast<double>(frame) / kRate;
        value += step(rng);
        keys.values[static_cast<size_t>(i)] = value;
    }
    return keys;
}

// Seed of curve `curve` (0..5) of a track.
inline unsigned TrackSeed(int curve) { return 1000u + 17u * static_cast<unsigned>(curve); }

// Playback: 4096 consecutive frames from the middle of the clip, in order; a
// row walks them and starts over (a power of two, so an index wraps by mask).
inline std::vector<double> SequentialTimes()
{
    std::vector<double> times(4096);
    const int first = (kClipFrames - static_cast<int>(times.size())) / 2;
    for (size_t i = 0; i < times.size(); ++i)
        times[i] = (first + static_cast<int>(i)) / kRate;
    return times;
}

// Scrubbing: 65536 frames of the clip in random order.
inline std::vector<double> RandomTimes()
{
    std::mt19937_64 rng(4242);
    std::uniform_int_distribution<int> frame(0, kClipFrames - 1);
    std::vector<double> times(1 << 16);
    for (double& t : times)
        t = frame(rng) / kRate;
    return times;
}

// Bytes in use on the heap (allocations and mapped chunks alike).
inline size_t HeapInUse()
{
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

// Keeps every allocation in the heap and every freed page in the process, so
// that a row that repeats a build reuses pages it has touched before. By
// default the allocator maps large arrays afresh and hands freed memory back
// to the system depending on what ran earlier in the process; a build then
// pays for page faults (about 600 for a 36000-key floor curve) or not, and
// its figure swung several-fold between rows and runs. Call it first in main.
inline void KeepHeapWarm()
{
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);  // the largest the allocator accepts
    mallopt(M_TRIM_THRESHOLD, -1);                 // never give freed memory back
}

// A benchmark program's main: the heap kept warm, then the rows.
inline int RunWithWarmHeap(int argc, char** argv)
{
    KeepHeapWarm();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// Median seconds of five runs of `work`: the floor's figure that a module row
// reports beside its own, measured in the same process just before it.
template <typename Work>
double MedianSeconds(Work work)
{
    std::array<double, 5> runs{};
    for (double& seconds : runs) {
        const auto start = std::chrono::steady_clock::now();
        work();
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    std::sort(runs.begin(), runs.end());
    return runs[runs.size() / 2];
}

// One curve of smooth keys in time order: the sorted times, searched alone,
// and beside them a parallel array of each key's value and tangents. A key's
// tangent is the slope between its neighbours (one-sided at either end), the
// same on both sides; a segment is the cubic Hermite between its two keys.
// Before the first key and after the last the curve holds that key's value.
//
// A key's value and tangents sit together rather than in three arrays of
// their own: when the allocator maps large arrays, they all start at the same
// offset within a page, and playback of six curves then walks 24 streams that
// land in the same cache sets at the same moment and evict one another. The
// floor's figure then depended on where the allocator put the arrays: 58 ns
// a track sample with a remembered segment at 36000 keys, against 22 ns with
// the values and tangents together, wherever they are.
class FlatCurve {
public:
    size_t Size() const { return times_.size(); }
    double Time(size_t i) const { return times_[i]; }
    double ValueAt(size_t i) const { return points_[i].value; }

    // Appends a key after the last one and refreshes the two tangents it
    // changes, as building a curve in time order does.
    void Append(double time, double value)
    {
        times_.push_back(time);
        // Filled in place: a whole Point pushed from a temporary was put
        // together on the stack and read back in one wider load, which the
        // processor cannot forward from the narrower stores (a stall per key
        // that made the build more than three times slower).
        points_.emplace_back().value = value;
        const size_t n = times_.size();
        if (n >= 2)
            RefreshTangent(n - 2);
        RefreshTangent(n - 1);
    }

    double Value(double time) const
    {
        const size_t after = static_cast<size_t>(std::upper_bound(times_.begin(), times_.end(), time) - times_.begin());
        return Outside(after) ? Held(after) : Segment(after - 1, time);
    }

    // Value at `time` starting from the segment of the previous call: playback
    // stays in that segment or steps into the next, and searches only on a jump.
    double Value(double time, size_t& hint) const
    {
        const size_t n = times_.size();
        if (hint + 1 < n && times_[hint] <= time && time < times_[hint + 1])
            return Segment(hint, time);
        if (hint + 2 < n && times_[hint + 1] <= time && time < times_[hint + 2])
            return Segment(++hint, time);
        const size_t after = static_cast<size_t>(std::upper_bound(times_.begin(), times_.end(), time) - times_.begin());
        if (Outside(after))
            return Held(after);
        hint = after - 1;
        return Segment(hint, time);
    }

    // The keys as text, one line of time, value, left and right tangent each,
    // every number written shortest and exactly.
    std::string Text() const
    {
        std::string text;
        text.reserve(times_.size() * 80);
        char line[4 * 32];
        for (size_t i = 0; i < times_.size(); ++i) {
            char* p = line;
            for (double x : {times_[i], points_[i].value, points_[i].left, points_[i].right}) {
                p = std::to_chars(p, line + sizeof line, x).ptr;
                *p++ = ' ';
            }
            p[-1] = '\n';
            text.append(line, p);
        }
        return text;
    }

    // Replaces the keys with those of `text` (as Text writes it); false, with
    // the curve empty, when the text is not such a list.
    bool Parse(const std::string& text)
    {
        Clear();
        const size_t lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
        times_.reserve(lines);
        points_.reserve(lines);
        const char* p = text.data();
        const char* const end = p + text.size();
        while (p < end) {
            double x[4];
            for (int k = 0; k < 4; ++k) {
                const auto r = std::from_chars(p, end, x[k]);
                if (r.ec != std::errc() || r.ptr == end || *r.ptr != (k == 3 ? '\n' : ' ')) {
                    Clear();
                    return false;
                }
                p = r.ptr + 1;
            }
            times_.push_back(x[0]);
            Point& point = points_.emplace_back();
            point.value = x[1];
            point.left = x[2];
            point.right = x[3];
        }
        return true;
    }

    bool operator==(const FlatCurve& other) const
    {
        if (times_ != other.times_ || points_.size() != other.points_.size())
            return false;
        for (size_t i = 0; i < points_.size(); ++i) {
            const Point& a = points_[i];
            const Point& b = other.points_[i];
            if (a.value != b.value || a.left != b.left || a.right != b.right)
                return false;
        }
        return true;
    }

private:
    void Clear()
    {
        times_.clear();
        points_.clear();
    }

    void RefreshTangent(size_t i)
    {
        const size_t n = times_.size();
        const size_t a = i > 0 ? i - 1 : i;
        const size_t b = i + 1 < n ? i + 1 : i;
        const double slope = a == b ? 0.0 : (points_[b].value - points_[a].value) / (times_[b] - times_[a]);
        points_[i].left = slope;
        points_[i].right = slope;
    }

    // Whether a time whose first later key is `after` lies before the first
    // key or at or after the last one.
    bool Outside(size_t after) const { return after == 0 || after >= times_.size(); }
    double Held(size_t after) const
    {
        return after == 0 ? (points_.empty() ? 0.0 : points_.front().value) : points_.back().value;
    }

    double Segment(size_t i, double time) const
    {
        const Point& a = points_[i];
        const Point& b = points_[i + 1];
        const double span = times_[i + 1] - times_[i];
        const double s = (time - times_[i]) / span;
        const double m0 = a.right * span;
        const double m1 = b.left * span;
        const double rise = b.value - a.value;
        const double c2 = 3.0 * rise - 2.0 * m0 - m1;
        const double c3 = m0 + m1 - 2.0 * rise;
        return a.value + s * (m0 + s * (c2 + s * c3));
    }

    struct Point {
        double value;
        double left;   // slope arriving at the key
        double right;  // slope leaving it
    };

    std::vector<double> times_;
    std::vector<Point> points_;
};

inline FlatCurve MakeFlatCurve(const KeySet& keys)
{
    FlatCurve curve;
    for (size_t i = 0; i < keys.times.size(); ++i)
        curve.Append(keys.times[i], keys.values[i]);
    return curve;
}

// Six flat curves with keys at the same times, one per transform property,
// numbered as the track numbers its curves.
class FlatTrack {
public:
    static constexpr int kCurves = 6;
    using Values = std::array<double, kCurves>;
    using Hints = std::array<size_t, kCurves>;

    const FlatCurve& Curve(int i) const { return curves_[static_cast<size_t>(i)]; }

    void Append(double time, const Values& values)
    {
        for (int i = 0; i < kCurves; ++i)
            curves_[static_cast<size_t>(i)].Append(time, values[static_cast<size_t>(i)]);
    }

    void Sample(double time, Values& out) const
    {
        for (size_t i = 0; i < curves_.size(); ++i)
            out[i] = curves_[i].Value(time);
    }

    // Sampling with each curve's remembered segment.
    void Sample(double time, Values& out, Hints& hints) const
    {
        for (size_t i = 0; i < curves_.size(); ++i)
            out[i] = curves_[i].Value(time, hints[i]);
    }

    // Saving: one text per curve into `bag`; loading: back from it.
    void WriteTo(std::vector<std::string>& bag) const
    {
        bag.resize(curves_.size());
        for (size_t i = 0; i < curves_.size(); ++i)
            bag[i] = curves_[i].Text();
    }
    bool ReadFrom(const std::vector<std::string>& bag)
    {
        if (bag.size() != curves_.size())
            return false;
        for (size_t i = 0; i < curves_.size(); ++i)
            if (!curves_[i].Parse(bag[i]))
                return false;
        return true;
    }

    bool operator==(const FlatTrack& other) const { return curves_ == other.curves_; }

private:
    std::array<FlatCurve, kCurves> curves_;
};

// The six key sets of a track of `count` keys.
inline std::array<KeySet, FlatTrack::kCurves> TargetTrackKeys(int count)
{
    std::array<KeySet, FlatTrack::kCurves> keys;
    for (int i = 0; i < FlatTrack::kCurves; ++i)
        keys[static_cast<size_t>(i)] = TargetKeys(count, TrackSeed(i));
    return keys;
}

// Faults of the floor built from `keys` that would make a ratio against it
// meaningless: keys other than those given, a key not found at its own time,
// a segment that does not join its two keys, a remembered segment that
// disagrees with a search or falls behind playback (and so searches every
// time), a text that does not come back exactly. Returns what is wrong, or
// null.
inline const char* FloorFault(const FlatCurve& curve, const KeySet& keys)
{
    const size_t n = curve.Size();
    if (n != keys.times.size())
        return "the floor does not hold every key";
    size_t hint = 0;
    for (size_t i = 0; i < n; ++i) {
        if (curve.Time(i) != keys.times[i] || curve.ValueAt(i) != keys.values[i])
            return "the floor holds other keys than it was given";
        if (curve.Value(curve.Time(i)) != curve.ValueAt(i))
            return "the floor misses a key at its own time";
        if (curve.Value(curve.Time(i), hint) != curve.ValueAt(i))
            return "the floor's remembered segment misses a key";
        if (i + 1 < n && hint != i)
            return "the floor's remembered segment does not follow playback";
        if (i + 1 < n) {
            const double end = std::nextafter(curve.Time(i + 1), curve.Time(i));
            const double reach = curve.Value(end);
            if (std::abs(reach - curve.ValueAt(i + 1)) > 1e-6 * (1.0 + std::abs(curve.ValueAt(i + 1))))
                return "a floor segment does not reach its next key";
            const double mid = 0.5 * (curve.Time(i) + curve.Time(i + 1));
            size_t fresh = i;
            if (curve.Value(mid, fresh) != curve.Value(mid))
                return "the floor's remembered segment disagrees with a search";
        }
    }
    FlatCurve back;
    if (!back.Parse(curve.Text()) || !(back == curve))
        return "the floor's text does not come back exactly";
    return nullptr;
}

}  // namespace qmxbench
