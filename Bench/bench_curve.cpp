// Curve costs through core::IKeyFrame, as a host sees them: evaluation at
// sequential frame times and at random times, each edit by index, and the
// JSON round trip, for curves of 4, 64, 1024 and 36000 keys (one key per
// frame of ten minutes at 60 fps). Then the rows of the curve's performance
// targets, each beside a flat-array floor doing the same work (flat_floor.h).
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "QMXKeyFrameGuids.h"
#include "flat_floor.h"
#include "keyframe_process.h"

namespace {

constexpr double kFrame = 1.0 / 60.0;

// A curve owned through its interface: empty, of `count` smooth keys one
// frame apart, or of the smooth keys of a key set.
class Curve {
public:
    Curve()
    {
        scombase::CUnknown* object = CreateKeyFrameKVInstance(nullptr, nullptr);
        object->NonDelegatingQueryInterface(IID_IQMXKeyFrameKV, reinterpret_cast<void**>(&curve));
        object->NonDelegatingRelease();
        curve->SetValueRange(core::ValAny(-1e9), core::ValAny(1e9));
    }
    explicit Curve(int count) : Curve()
    {
        for (int i = 0; i < count; ++i)
            curve->AddPointWithoutIndex(i * kFrame, core::ValAny(50.0 * std::sin(i * 0.05)), core::eKeyframeTypeSmooth);
    }
    explicit Curve(const qmxbench::KeySet& keys) : Curve() { Add(keys); }
    ~Curve() { curve->Release(); }
    Curve(const Curve&) = delete;
    Curve& operator=(const Curve&) = delete;

    // Adds the keys in time order, as a host building a curve does.
    void Add(const qmxbench::KeySet& keys)
    {
        for (size_t i = 0; i < keys.times.size(); ++i)
            curve->AddPointWithoutIndex(keys.times[i], core::ValAny(keys.values[i]), core::eKeyframeTypeSmooth);
    }
    core::IKeyFrame* operator->() const { return curve; }
    core::IKeyFrame* get() const { return curve; }

private:
    core::IKeyFrame* curve = nullptr;
};

std::vector<int> RandomIndexes(int count)
{
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pick(1, count - 2);
    std::vector<int> indexes(4096);
    for (int& i : indexes)
        i = pick(rng);
    return indexes;
}

void BM_GetValueSequential(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    Curve curve(count);
    const double span = count * kFrame;
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(curve->GetValue(t, false));
        t += kFrame;
        if (t > span)
            t = 0.0;
    }
}

void BM_GetValueRandom(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    Curve curve(count);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> pick(-1.0, count * kFrame + 1.0);
    std::vector<double> times(1 << 16);
    for (double& t : times)
        t = pick(rng);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(curve->GetValue(times[i], false));
        i = (i + 1) & (times.size() - 1);
    }
}

// One edit by index per iteration at random keys; each key alternates between
// two states, so that every edit really changes the curve and keeps its shape.
template <typename Edit>
void RunEdit(benchmark::State& state, Edit edit)
{
    const int count = static_cast<int>(state.range(0));
    Curve curve(count);
    const std::vector<int> indexes = RandomIndexes(count);
    std::vector<char> flipped(static_cast<size_t>(count), 0);
    size_t i = 0;
    for (auto _ : state) {
        const int index = indexes[i];
        flipped[index] ^= 1;
        edit(curve.get(), index, flipped[index] != 0);
        i = (i + 1) % indexes.size();
    }
}

void BM_SetPointValue(benchmark::State& state)
{
    RunEdit(state, [](core::IKeyFrame* c, int index, bool flip) {
        c->SetPointValue(index, core::ValAny(flip ? 1.0 : -1.0));
    });
}

void BM_SetPointTime(benchmark::State& state)
{
    // Moves the key a quarter frame and back on alternate passes.
    RunEdit(state, [](core::IKeyFrame* c, int index, bool flip) {
        c->SetPointTime(index, index * kFrame + (flip ? 0.0 : 0.25 * kFrame));
    });
}

void BM_SetPointInterpolationType(benchmark::State& state)
{
    RunEdit(state, [](core::IKeyFrame* c, int index, bool flip) {
        c->SetPointInterpolationType(index, flip ? core::eKeyframeTypeSmooth : core::eKeyframeTypeSpline);
    });
}

void BM_SetPointControlParam(benchmark::State& state)
{
    RunEdit(state, [](core::IKeyFrame* c, int index, bool flip) {
        c->SetPointControlParam(index, flip ? 0.5 : 1.5, flip ? -0.5 : 2.5);
    });
}

// Adds a key between two keys and removes it again: two edits per iteration.
void BM_AddThenRemovePoint(benchmark::State& state)
{
    RunEdit(state, [](core::IKeyFrame* c, int index, bool) {
        c->RemovePoint(c->AddPoint((index + 0.5) * kFrame, core::ValAny(3.0), core::eKeyframeTypeLinear));
    });
}

void BM_Serialize(benchmark::State& state)
{
    Curve curve(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(curve->Serialize());
}

void BM_Desialize(benchmark::State& state)
{
    const std::string text = Curve(static_cast<int>(state.range(0)))->Serialize();
    for (auto _ : state) {
        Curve fresh(0);
        fresh->Desialize(text.c_str());
        benchmark::DoNotOptimize(fresh->GetKeyFramesCount());
    }
}

// The rows of the performance targets. Each module row works on a curve of
// the target keys (qmxbench::TargetKeys) and reports, as a counter, the time
// of its flat-array floor doing the same work, measured just before in the
// same process; the floor's own row shows that figure under the benchmark's
// timing.

// Skips the row, naming the fault, when the curve does not give each key's
// value at the key's time, or when the floor built from the keys is faulty.
bool Sound(benchmark::State& state, const Curve& curve, const qmxbench::KeySet& keys,
           const qmxbench::FlatCurve& floor)
{
    const char* fault = qmxbench::FloorFault(floor, keys);
    if (fault == nullptr && curve->GetKeyFramesCount() != static_cast<int>(keys.times.size()))
        fault = "the curve does not hold every key";
    for (size_t i = 0; fault == nullptr && i < keys.times.size(); ++i)
        if (curve->GetValue(keys.times[i], false).Get<double>() != keys.values[i])
            fault = "the curve misses a key's value at its time";
    if (fault != nullptr)
        state.SkipWithError(fault);
    return fault == nullptr;
}

// Evaluations at `times` in turn (a power of two of them), one per iteration.
void RunEval(benchmark::State& state, const std::vector<double>& times)
{
    const qmxbench::KeySet keys = qmxbench::TargetKeys(static_cast<int>(state.range(0)));
    const Curve curve(keys);
    const qmxbench::FlatCurve floor = qmxbench::MakeFlatCurve(keys);
    if (!Sound(state, curve, keys, floor))
        return;
    const size_t mask = times.size() - 1;
    constexpr int kFloorCalls = 1 << 19;
    const double floorSeconds = qmxbench::MedianSeconds([&] {
        size_t i = 0;
        for (int call = 0; call < kFloorCalls; ++call) {
            benchmark::DoNotOptimize(floor.Value(times[i]));
            i = (i + 1) & mask;
        }
    });
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(curve->GetValue(times[i], false));
        i = (i + 1) & mask;
    }
    state.counters["floor_ns"] = floorSeconds / kFloorCalls * 1e9;
}

void RunFloorEval(benchmark::State& state, const std::vector<double>& times)
{
    const qmxbench::FlatCurve floor = qmxbench::MakeFlatCurve(qmxbench::TargetKeys(static_cast<int>(state.range(0))));
    const size_t mask = times.size() - 1;
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(floor.Value(times[i]));
        i = (i + 1) & mask;
    }
}

// Playback: frames walked in order.
void BM_CurveEvalSequential(benchmark::State& state) { RunEval(state, qmxbench::SequentialTimes()); }
void BM_FloorCurveEvalSequential(benchmark::State& state) { RunFloorEval(state, qmxbench::SequentialTimes()); }

// Scrubbing: frames in random order.
void BM_CurveEvalRandom(benchmark::State& state) { RunEval(state, qmxbench::RandomTimes()); }
void BM_FloorCurveEvalRandom(benchmark::State& state) { RunFloorEval(state, qmxbench::RandomTimes()); }

// A new value for the middle key, one of eight in turn, so that every edit
// changes the curve (and the tangents of the key's neighbours).
void BM_CurveEditValueMiddle(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const Curve curve(qmxbench::TargetKeys(count));
    const int middle = count / 2;
    int i = 0;
    for (auto _ : state)
        curve->SetPointValue(middle, core::ValAny(static_cast<double>(i++ & 7)));
    if (curve->GetKeyFramesCount() != count || curve->GetPointValue(middle).Get<double>() != ((i - 1) & 7))
        state.SkipWithError("the edited value is not the middle key's");
}

// The middle key moved a quarter frame later and back on alternate edits; it
// stays between its neighbours, so its index stays the same.
void BM_CurveEditTimeMiddle(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const Curve curve(qmxbench::TargetKeys(count));
    const int middle = count / 2;
    const double home = curve->GetPointTime(middle);
    const double moved = home + 0.25 / qmxbench::kRate;
    bool away = false;
    for (auto _ : state) {
        away = !away;
        curve->SetPointTime(middle, away ? moved : home);
    }
    if (curve->GetKeyFramesCount() != count || curve->GetPointTime(middle) != (away ? moved : home))
        state.SkipWithError("the moved key is not at the middle index");
}

// A whole curve built key by key in time order per iteration; the keys are
// made beforehand, and creating the empty curve and releasing the full one
// are not timed.
void BM_CurveBuildAscending(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const qmxbench::KeySet keys = qmxbench::TargetKeys(count);
    const double floorSeconds = qmxbench::MedianSeconds([&] {
        benchmark::DoNotOptimize(qmxbench::MakeFlatCurve(keys).Size());
    });
    for (auto _ : state) {
        state.PauseTiming();
        auto curve = std::make_unique<Curve>();
        state.ResumeTiming();
        curve->Add(keys);
        state.PauseTiming();
        const bool whole = (*curve)->GetKeyFramesCount() == count;
        curve.reset();
        if (!whole) {
            state.SkipWithError("the built curve lost keys");
            break;
        }
        state.ResumeTiming();
    }
    state.counters["floor_ms"] = floorSeconds * 1e3;
}

void BM_FloorCurveBuildAscending(benchmark::State& state)
{
    const qmxbench::KeySet keys = qmxbench::TargetKeys(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        auto floor = std::make_unique<qmxbench::FlatCurve>();
        for (size_t i = 0; i < keys.times.size(); ++i)
            floor->Append(keys.times[i], keys.values[i]);
        state.PauseTiming();
        floor.reset();
        state.ResumeTiming();
    }
}

// The curve to its text and the text into a new curve, per iteration; the
// new curve is released within the iteration.
void BM_CurveTextRoundTrip(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const qmxbench::KeySet keys = qmxbench::TargetKeys(count);
    const Curve curve(keys);
    const qmxbench::FlatCurve floor = qmxbench::MakeFlatCurve(keys);
    {
        const Curve back;
        back->Desialize(curve->Serialize().c_str());
        if (!Sound(state, back, keys, floor))
            return;
    }
    const double floorSeconds = qmxbench::MedianSeconds([&] {
        const std::string text = floor.Text();
        qmxbench::FlatCurve back;
        back.Parse(text);
        benchmark::DoNotOptimize(back.Size());
    });
    for (auto _ : state) {
        const std::string text = curve->Serialize();
        const Curve back;
        back->Desialize(text.c_str());
        benchmark::DoNotOptimize(back->GetKeyFramesCount());
    }
    state.counters["floor_ms"] = floorSeconds * 1e3;
}

void BM_FloorCurveTextRoundTrip(benchmark::State& state)
{
    const qmxbench::FlatCurve floor = qmxbench::MakeFlatCurve(qmxbench::TargetKeys(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        const std::string text = floor.Text();
        qmxbench::FlatCurve back;
        back.Parse(text);
        benchmark::DoNotOptimize(back.Size());
    }
}

void Sizes(benchmark::internal::Benchmark* b)
{
    for (int n : {4, 64, 1024, 36000})
        b->Arg(n);
}

BENCHMARK(BM_GetValueSequential)->Apply(Sizes);
BENCHMARK(BM_GetValueRandom)->Apply(Sizes);
BENCHMARK(BM_SetPointValue)->Apply(Sizes);
BENCHMARK(BM_SetPointTime)->Apply(Sizes);
BENCHMARK(BM_SetPointInterpolationType)->Apply(Sizes);
BENCHMARK(BM_SetPointControlParam)->Apply(Sizes);
BENCHMARK(BM_AddThenRemovePoint)->Apply(Sizes);
BENCHMARK(BM_Serialize)->Apply(Sizes)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Desialize)->Apply(Sizes)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_CurveEvalSequential)->Arg(64);
BENCHMARK(BM_FloorCurveEvalSequential)->Arg(64);
BENCHMARK(BM_CurveEvalRandom)->Arg(qmxbench::kClipFrames);
BENCHMARK(BM_FloorCurveEvalRandom)->Arg(qmxbench::kClipFrames);
BENCHMARK(BM_CurveEditValueMiddle)->Arg(qmxbench::kClipFrames);
BENCHMARK(BM_CurveEditTimeMiddle)->Arg(qmxbench::kClipFrames);
BENCHMARK(BM_CurveBuildAscending)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloorCurveBuildAscending)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CurveTextRoundTrip)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloorCurveTextRoundTrip)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv)
{
    return qmxbench::RunWithWarmHeap(argc, argv);
}
