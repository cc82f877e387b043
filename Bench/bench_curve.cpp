// Curve costs through core::IKeyFrame, as a host sees them: evaluation at
// sequential frame times and at random times, each edit by index, and the
// JSON round trip, for curves of 4, 64, 1024 and 36000 keys (one key per
// frame of ten minutes at 60 fps).
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QMXKeyFrameGuids.h"
#include "keyframe_process.h"

namespace {

constexpr double kFrame = 1.0 / 60.0;

// A curve of `count` smooth keys one frame apart, owned through its interface.
class Curve {
public:
    explicit Curve(int count)
    {
        scombase::CUnknown* object = CreateKeyFrameKVInstance(nullptr, nullptr);
        object->NonDelegatingQueryInterface(IID_IQMXKeyFrameKV, reinterpret_cast<void**>(&curve));
        object->NonDelegatingRelease();
        curve->SetValueRange(core::ValAny(-1e9), core::ValAny(1e9));
        for (int i = 0; i < count; ++i)
            curve->AddPointWithoutIndex(i * kFrame, core::ValAny(50.0 * std::sin(i * 0.05)), core::eKeyframeTypeSmooth);
    }
    ~Curve() { curve->Release(); }
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

}  // namespace

BENCHMARK_MAIN();
