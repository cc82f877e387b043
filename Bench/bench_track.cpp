// Track costs through IQMXKeyFrame and IQMXStorage, as a host sees them:
// sampling whole keyframes at sequential frame times for tracks of 4, 64,
// 1024 and 36000 keys; then the rows of the track's performance targets,
// each beside a flat-array floor doing the same work (flat_floor.h):
// sampling in playback order, building a ten-minute track key by key at
// 60 fps, saving it into and loading it from the host's in-memory property
// bag, and the heap it takes.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"
#include "flat_floor.h"

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
    // Adds whole records in the order given, as a host building a track does.
    void Fill(const std::vector<KeyFrameParam>& records)
    {
        int index = -1;
        for (KeyFrameParam p : records)
            track->AddKeyFrame(p, index);
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

// The rows of the performance targets. Their tracks hold the target keys
// (qmxbench::TargetTrackKeys, one key on every frame at 36000 keys) as whole
// records; curve i of the floor holds property i of the track (angle,
// position X and Y, opacity, scale X and Y). Module rows report the floor's
// time for the same work as counters, measured just before in the same
// process; the floor rows show it under the benchmark's timing.

// The target keys as the track's records.
std::vector<KeyFrameParam> TargetRecords(const std::array<qmxbench::KeySet, qmxbench::FlatTrack::kCurves>& keys)
{
    std::vector<KeyFrameParam> records(keys[0].times.size());
    for (size_t k = 0; k < records.size(); ++k) {
        KeyFrameParam& p = records[k];
        p.dPosition = keys[0].times[k];
        p.dAngle = keys[0].values[k];
        p.dPositionX = keys[1].values[k];
        p.dPositionY = keys[2].values[k];
        p.dOpacity = keys[3].values[k];
        p.dScaleX = keys[4].values[k];
        p.dScaleY = keys[5].values[k];
    }
    return records;
}

// The floor of a track built from `records`, record by record in time order,
// property i into curve i.
void FillFloor(qmxbench::FlatTrack& floor, const std::vector<KeyFrameParam>& records)
{
    for (const KeyFrameParam& p : records)
        floor.Append(p.dPosition, {p.dAngle, p.dPositionX, p.dPositionY, p.dOpacity, p.dScaleX, p.dScaleY});
}

// A target track and its floor, built once for every row and repetition that
// reads them.
struct Target {
    std::array<qmxbench::KeySet, qmxbench::FlatTrack::kCurves> keys;
    std::vector<KeyFrameParam> records;
    Track track;
    qmxbench::FlatTrack floor;
    // What is wrong with the track or the floor, or null.
    const char* fault = nullptr;

    explicit Target(int count) : keys(qmxbench::TargetTrackKeys(count)), records(TargetRecords(keys))
    {
        track.Fill(records);
        FillFloor(floor, records);
        fault = Fault(track, records);
        for (int i = 0; fault == nullptr && i < qmxbench::FlatTrack::kCurves; ++i)
            fault = qmxbench::FloorFault(floor.Curve(i), keys[static_cast<size_t>(i)]);
    }

    // Whether `track` holds exactly `records`: each sampled whole at its time.
    static const char* Fault(Track& track, const std::vector<KeyFrameParam>& records)
    {
        if (track->GetKeyFrameCount() != static_cast<int>(records.size()))
            return "the track does not hold every key";
        for (const KeyFrameParam& record : records) {
            KeyFrameParam sample{};
            if (!track->GetKeyFrame(record.dPosition, sample) || std::memcmp(&sample, &record, sizeof sample) != 0)
                return "the track misses a record at its time";
        }
        return nullptr;
    }
};

Target& TargetTrack(int count)
{
    static std::map<int, std::unique_ptr<Target>> targets;
    std::unique_ptr<Target>& target = targets[count];
    if (!target)
        target = std::make_unique<Target>(count);
    return *target;
}

// Skips the row, naming the fault, unless the target track and floor are sound.
Target* SoundTarget(benchmark::State& state)
{
    Target& target = TargetTrack(static_cast<int>(state.range(0)));
    if (target.fault != nullptr) {
        state.SkipWithError(target.fault);
        return nullptr;
    }
    return &target;
}

// Nanoseconds per floor sample over the playback frames, with or without
// the remembered segments.
double FloorSampleNs(const qmxbench::FlatTrack& floor, const std::vector<double>& times, bool hinted)
{
    constexpr int kSamples = 1 << 17;
    const size_t mask = times.size() - 1;
    const double seconds = qmxbench::MedianSeconds([&] {
        qmxbench::FlatTrack::Values values{};
        qmxbench::FlatTrack::Hints hints{};
        size_t i = 0;
        for (int sample = 0; sample < kSamples; ++sample) {
            if (hinted)
                floor.Sample(times[i], values, hints);
            else
                floor.Sample(times[i], values);
            benchmark::DoNotOptimize(values);
            i = (i + 1) & mask;
        }
    });
    return seconds / kSamples * 1e9;
}

// Playback: all six values at frames walked in order.
void BM_TrackSampleSequential(benchmark::State& state)
{
    Target* target = SoundTarget(state);
    if (target == nullptr)
        return;
    const std::vector<double> times = qmxbench::SequentialTimes();
    const double floorNs = FloorSampleNs(target->floor, times, false);
    const double hintedNs = FloorSampleNs(target->floor, times, true);
    const size_t mask = times.size() - 1;
    size_t i = 0;
    KeyFrameParam param{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(target->track->GetKeyFrame(times[i], param));
        benchmark::DoNotOptimize(param);
        i = (i + 1) & mask;
    }
    state.counters["floor_ns"] = floorNs;
    state.counters["hinted_ns"] = hintedNs;
}

void RunFloorSample(benchmark::State& state, bool hinted)
{
    Target* target = SoundTarget(state);
    if (target == nullptr)
        return;
    const std::vector<double> times = qmxbench::SequentialTimes();
    const size_t mask = times.size() - 1;
    size_t i = 0;
    qmxbench::FlatTrack::Values values{};
    qmxbench::FlatTrack::Hints hints{};
    for (auto _ : state) {
        if (hinted)
            target->floor.Sample(times[i], values, hints);
        else
            target->floor.Sample(times[i], values);
        benchmark::DoNotOptimize(values);
        i = (i + 1) & mask;
    }
}

void BM_FloorTrackSample(benchmark::State& state) { RunFloorSample(state, false); }
// The floor with each curve's last segment remembered: what playback can reach.
void BM_FloorTrackSampleHinted(benchmark::State& state) { RunFloorSample(state, true); }

// The whole build of a track per iteration, record by record in time order;
// the records are made beforehand, and creating the empty track and releasing
// the full one are not timed.
void BM_TrackBuildAscending(benchmark::State& state)
{
    Target* target = SoundTarget(state);
    if (target == nullptr)
        return;
    const double floorSeconds = qmxbench::MedianSeconds([&] {
        qmxbench::FlatTrack floor;
        FillFloor(floor, target->records);
        benchmark::DoNotOptimize(floor.Curve(0).Size());
    });
    for (auto _ : state) {
        state.PauseTiming();
        auto track = std::make_unique<Track>();
        state.ResumeTiming();
        track->Fill(target->records);
        state.PauseTiming();
        const char* fault = Target::Fault(*track, target->records);
        track.reset();
        if (fault != nullptr) {
            state.SkipWithError(fault);
            break;
        }
        state.ResumeTiming();
    }
    state.counters["floor_ms"] = floorSeconds * 1e3;
}

void BM_FloorTrackBuildAscending(benchmark::State& state)
{
    Target* target = SoundTarget(state);
    if (target == nullptr)
        return;
    for (auto _ : state) {
        auto floor = std::make_unique<qmxbench::FlatTrack>();
        FillFloor(*floor, target->records);
        state.PauseTiming();
        floor.reset();
        state.ResumeTiming();
    }
}

// Which of the two persistence calls an iteration times.
enum Timed { kWrite = 1, kRead = 2, kBoth = kWrite | kRead };

// Each iteration writes the track into a new bag and reads that bag into a
// new empty track; only the calls named by `timed` are timed. The floor's
// counterpart writes its six texts into a vector and reads them back.
void BM_TrackPersist36000(benchmark::State& state, int timed)
{
    Target& source = TargetTrack(qmxbench::kClipFrames);
    if (source.fault != nullptr) {
        state.SkipWithError(source.fault);
        return;
    }
    std::vector<std::string> floorBag;
    source.floor.WriteTo(floorBag);
    const double floorWrite = qmxbench::MedianSeconds([&] {
        std::vector<std::string> bag;
        source.floor.WriteTo(bag);
        benchmark::DoNotOptimize(bag.data());
    });
    const double floorRead = qmxbench::MedianSeconds([&] {
        qmxbench::FlatTrack back;
        benchmark::DoNotOptimize(back.ReadFrom(floorBag));
    });
    for (auto _ : state) {
        state.PauseTiming();
        auto bag = std::make_unique<Bag>();
        auto target = std::make_unique<Track>();
        if (timed & kWrite)
            state.ResumeTiming();
        source.track.Storage()->WriteTo(bag->props);
        if (timed == kWrite)
            state.PauseTiming();
        if (timed == kRead)
            state.ResumeTiming();
        target->Storage()->ReadFrom(bag->props);
        if (timed & kRead)
            state.PauseTiming();
        const char* fault = Target::Fault(*target, source.records);
        target.reset();
        bag.reset();
        if (fault != nullptr) {
            state.SkipWithError(fault);
            break;
        }
        state.ResumeTiming();
    }
    state.counters["floor_ms"] = ((timed & kWrite ? floorWrite : 0.0) + (timed & kRead ? floorRead : 0.0)) * 1e3;
}

void BM_FloorTrackWriteRead(benchmark::State& state)
{
    Target* source = SoundTarget(state);
    if (source == nullptr)
        return;
    for (auto _ : state) {
        std::vector<std::string> bag;
        source->floor.WriteTo(bag);
        auto back = std::make_unique<qmxbench::FlatTrack>();
        const bool read = back->ReadFrom(bag);
        state.PauseTiming();
        const bool same = read && *back == source->floor;
        back.reset();
        bag.clear();
        if (!same) {
            state.SkipWithError("the floor's texts did not come back exactly");
            break;
        }
        state.ResumeTiming();
    }
}

// Heap bytes per key per curve that the records add to an empty track (the
// track's bytes / 6 / keys), beside the floor's; the row's time is the build's.
void BM_TrackMemory(benchmark::State& state)
{
    Target* target = SoundTarget(state);
    if (target == nullptr)
        return;
    const double points = qmxbench::FlatTrack::kCurves * static_cast<double>(target->records.size());
    double bytes = 0.0;
    double floorBytes = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        auto track = std::make_unique<Track>();
        const size_t before = qmxbench::HeapInUse();
        state.ResumeTiming();
        track->Fill(target->records);
        state.PauseTiming();
        bytes = static_cast<double>(qmxbench::HeapInUse()) - static_cast<double>(before);
        track.reset();
        const size_t floorBefore = qmxbench::HeapInUse();
        auto floor = std::make_unique<qmxbench::FlatTrack>();
        FillFloor(*floor, target->records);
        floorBytes = static_cast<double>(qmxbench::HeapInUse()) - static_cast<double>(floorBefore);
        floor.reset();
        state.ResumeTiming();
    }
    state.counters["B/point"] = bytes / points;
    state.counters["floor_B/point"] = floorBytes / points;
}

BENCHMARK(BM_TrackGetKeyFrameSequential)->Arg(4)->Arg(64)->Arg(1024)->Arg(kLongTrack)
    ->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2);
BENCHMARK(BM_TrackSampleSequential)->Arg(64)->Arg(qmxbench::kClipFrames)
    ->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2);
BENCHMARK(BM_FloorTrackSample)->Arg(64)->Arg(qmxbench::kClipFrames)
    ->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2);
BENCHMARK(BM_FloorTrackSampleHinted)->Arg(64)->Arg(qmxbench::kClipFrames)
    ->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.2);
BENCHMARK(BM_TrackBuildAscending)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond)->Iterations(2)
    ->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_FloorTrackBuildAscending)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond)
    ->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, WriteToReadFrom, kBoth)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, WriteTo, kWrite)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_TrackPersist36000, ReadFrom, kRead)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_FloorTrackWriteRead)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond)
    ->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_TrackMemory)->Arg(qmxbench::kClipFrames)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv)
{
    return qmxbench::RunWithWarmHeap(argc, argv);
}
