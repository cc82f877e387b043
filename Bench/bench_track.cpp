// Track costs through IQMXKeyFrame and IQMXStorage, as a host sees them:
// sampling whole keyframes at sequential frame times for tracks of 4, 64,
// 1024 and 36000 keys, building a ten-minute track key by key at 60 fps, and
// saving it into and loading it from the host's in-memory property bag.
#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"

namespace {

constexpr double kFrame = 1.0 / 60.0;
constexpr int kLongTrack = 36000;

// Key `i`: one frame after key i - 1, with six different smooth values.
KeyFrameParam Key(int i)
{
    KeyFrameParam p;
    p.dPosition = i * kFrame;
    p.dAngle = 45.0 * std::sin(i * 0.05);
    p.dPositionX = 100.0 + 0.5 * i;
    p.dPositionY = 30.0 * std::cos(i * 0.03);
    p.dScaleX = 1.0 + 0.2 * std::sin(i * 0.07);
    p.dScaleY = 1.0 + 0.2 * std::cos(i * 0.11);
    p.dOpacity = 0.5 + 0.5 * std::sin(i * 0.01);
    return p;
}

// A track from the host's object creation holding `count` keys, owned through
// its interface.
class Track {
public:
    explicit Track(int count = 0)
    {
        QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame, reinterpret_cast<void**>(&track));
        if (track == nullptr)
            throw std::runtime_error("the track class is not registered");
        Fill(count);
    }
    ~Track() { track->Release(); }
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    void Fill(int count)
    {
        int index = -1;
        for (int i = 0; i < count; ++i) {
            KeyFrameParam p = Key(i);
            track->AddKeyFrame(p, index);
        }
    }
    IQMXKeyFrame* operator->() const { return track; }
    // The track's persistence face; the reference taken is returned at once,
    // the track's own keeps it alive.
    IQMXStorage* Storage() const
    {
        IQMXStorage* storage = nullptr;
        track->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&storage));
        storage->Release();
        return storage;
    }

private:
    IQMXKeyFrame* track = nullptr;
};

// The filled track of `count` keys, built once for every benchmark and
// repetition that reads it.
Track& FilledTrack(int count)
{
    static std::map<int, std::unique_ptr<Track>> tracks;
    std::unique_ptr<Track>& track = tracks[count];
    if (!track)
        track = std::make_unique<Track>(count);
    return *track;
}

// A new in-memory bag, released with its holder.
struct Bag {
    IQMXProperties* props = QMXCreateMemoryProperties();
    ~Bag() { props->Release(); }
};

void BM_TrackGetKeyFrameSequential(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    Track& track = FilledTrack(count);
    const double span = count * kFrame;
    double t = 0.0;
    KeyFrameParam param{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(track->GetKeyFrame(t, param));
        benchmark::DoNotOptimize(param);
        t += kFrame;
        if (t > span)
            t = 0.0;
    }
}

// The whole build of a ten-minute track per iteration; creating the empty
// track and releasing the full one are not timed.
void BM_TrackBuild36000(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto track = std::make_unique<Track>();
        state.ResumeTiming();
        track->Fill(kLongTrack);
        state.PauseTiming();
        track.reset();
        state.ResumeTiming();
    }
}

// Which of the two persistence calls an iteration times.
enum Timed { kWrite = 1, kRead = 2, kBoth = kWrite | kRead };

// Each iteration writes the track into a new bag and reads that bag into a
// new empty track; only the calls named by `timed` are timed.
void BM_TrackPersist36000(benchmark::State& state, int timed)
{
    Track& source = FilledTrack(kLongTrack);
    for (auto _ : state) {
        state.PauseTiming();
        auto bag = std::make_unique<Bag>();
        auto target = std::make_unique<Track>();
        if (timed & kWrite)
            state.ResumeTiming();
        source.Storage()->WriteTo(bag->props);
        if (timed == kWrite)
            state.PauseTiming();
        if (timed == kRead)
            state.ResumeTiming();
        target->Storage()->ReadFrom(bag->props);
        if (timed & kRead)
            state.PauseTiming();
        if ((*target)->GetKeyFrameCount() != kLongTrack)
            state.SkipWithError("the loaded track lost keys");
        target.reset();
        bag.reset();
        state.ResumeTiming();
    }
}

BENCHMARK(BM_TrackGetKeyFrameSequential)->Arg(4)->Arg(64)->Arg(1024)->Arg(kLongTrack)
    ->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2);
BENCHMARK(BM_TrackBuild36000)->Unit(benchmark::kMillisecond)->Iterations(2)
    ->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, WriteToReadFrom, kBoth)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, WriteTo, kWrite)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, ReadFrom, kRead)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
