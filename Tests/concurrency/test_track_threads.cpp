// Threads on tracks and on one curve. For QMX_STRESS_SECONDS per case (a short default keeps the quick run
// quick; the ThreadSanitizer run asks for more), threads hammer one track, then many, with every edit,
// samples, key reads, queries, saves and reads of saves, out-of-range indexes included. Afterwards each
// track's six curves are in lockstep, and every object made was destroyed exactly once.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "QMXLogger.h"
#include "StoredTrack.h"
#include "track_fixture.h"

using namespace testing_support;

namespace {

// Objects the host counts as made (last releases): a track is its factory, itself and six curves, each
// curve with its factory; a read of a save makes six new curves with their factories. Of those, the track
// and its curves are born with count 0 and take a counted first reference.
constexpr int kObjectsPerTrack = 14, kObjectsPerRead = 12, kFirstsPerTrack = 7, kFirstsPerRead = 6;
constexpr unsigned kThreads = 4;

// Takes every report of a stale index, and writes none.
struct QuietLogger : IQMXLogger {
    bool IsLevelEnabled(int) override { return true; }
    void WriteLog(int, const wchar_t*, ...) override {}
};

double Seconds()
{
    const char* env = std::getenv("QMX_STRESS_SECONDS");
    return env != nullptr && std::atof(env) > 0 ? std::atof(env) : 0.3;
}

// One thread's share: random operations on random tracks until `deadline`. Counts the reads of a save, and
// the samples and keys that mix records.
void Hammer(std::vector<Track>& tracks, unsigned seed, std::chrono::steady_clock::time_point deadline,
            std::atomic<int>& reads, std::atomic<int>& torn)
{
    std::mt19937 random(seed);
    IQMXProperties* bag = QMXCreateMemoryProperties();
    bool saved = false;
    while (std::chrono::steady_clock::now() < deadline) {
        Track& t = tracks[random() % tracks.size()];
        const double time = random() % 400 * 0.1;
        int index = static_cast<int>(random() % 40) - 2, frame = 0;  // sometimes outside the track
        KeyFrameParam p = Rec(time, static_cast<int>(random() % 2001) - 1000.0);  // exact offsets
        switch (random() % 20) {
        case 0: case 1: t->AddKeyFrame(p, index); break;
        case 2: case 3: t->AddKeyFrame(p); break;
        case 4: case 5: t->SetKeyFrame(index, p); break;
        case 6: case 7: index < 0 ? t->CleanAllKeyFrame() : void(t->DeleteKeyFrame(index)); break;
        case 8: case 9: t->ChangeKeyFramePosition(index, time); break;
        case 10: case 11: case 12:  // linear samples keep the offsets up to rounding
            torn += t->GetKeyFrame(time, p) && (p.dPosition != time || !IsWhole(p, 1e-6));
            break;
        case 13: case 14: torn += t->GetKeyFrame(index, p) && !IsWhole(p); break;
        case 15:  // with a reference of its own, as a host that hands the track to another thread
            t->AddRef(), t->GetKeyFrameIndex(time), t->InKeyFrameRange(time), t->HasKeyFrame(index % 8);
            t->GetKeyFrameIndex(index, 5, frame), t->GetKeyFrameCount();
            try { t->CaculateKeyFrameIndex(index, 25, frame); } catch (const std::out_of_range&) {}
            t->Release();
            break;
        case 16: case 17: case 18: saved = t.store->WriteTo(bag) == S_OK; break;
        default:  // a save of any track read into this one: six new curves
            if (saved) t.store->ReadFrom(bag), ++reads;
        }
    }
    bag->Release();
}

// The module as this program serves it, for the command-line host's own reading of a saved track.
const qmxkf::ModuleHost& Module()
{
    static const qmxkf::ModuleHost module(dlopen(nullptr, RTLD_NOW), "the module linked in");
    return module;
}

// Lockstep: the save passes the checks of the command-line host (the six curves at the angle curve's times),
// and each key of the track is a whole record at its saved time. (Round trips of saves: the persistence tests
// and the bag replays.) Reads a save and makes a bag.
void CheckLockstep(const Track& track)
{
    IQMXProperties* bag = QMXCreateMemoryProperties();
    EXPECT_EQ(track.store->WriteTo(bag), S_OK);
    const qmxkf::StoredTrack saved = qmxkf::ReadStoredTrack(Module(), bag, -1);
    EXPECT_EQ(saved.problems, std::vector<std::string>());
    const int count = track->GetKeyFrameCount();
    ASSERT_TRUE(saved.curves[0] && saved.curves[0]->GetKeyFramesCount() == count);
    for (int k = 0; k < count; ++k) {
        KeyFrameParam p{};
        EXPECT_TRUE(track->GetKeyFrame(k, p) && p.dPosition == saved.curves[0]->GetPointTime(k) && IsWhole(p))
            << "key " << k;
    }
    EXPECT_EQ(bag->Release(), 0u);
}

}  // namespace

TEST(TrackThreads, HammeredTracksStayInLockstepAndBalanceReferences)
{
    for (int count : {1, 16}) {
        SCOPED_TRACE(std::to_string(count) + " tracks");
        QMXReferenceCounts before{}, after{};
        QMXGetReferenceCounts(&before);
        std::atomic<int> reads{0}, torn{0};
        {
            std::vector<Track> tracks(static_cast<size_t>(count));
            QuietLogger quiet;
            IQMXLogger* previous = QMXSetDefaultLogger(&quiet);
            const auto deadline = std::chrono::steady_clock::now() +
                                  std::chrono::microseconds(static_cast<long>(Seconds() * 1e6));
            std::vector<std::thread> threads;
            for (unsigned id = 1; id <= kThreads; ++id)
                threads.emplace_back([&, id] { Hammer(tracks, id, deadline, reads, torn); });
            for (std::thread& thread : threads)
                thread.join();
            QMXSetDefaultLogger(previous);
            for (const Track& t : tracks)
                CheckLockstep(t);
        }
        EXPECT_EQ(torn.load(), 0) << "samples or keys mixing records";
        // Every object made was destroyed once. Factories and bags are born holding their reference, so they
        // count a last release without a first reference.
        const int made = (kObjectsPerTrack + kObjectsPerRead + 1) * count + kObjectsPerRead * reads + kThreads;
        const int firsts = (kFirstsPerTrack + kFirstsPerRead) * count + kFirstsPerRead * reads;
        QMXGetReferenceCounts(&after);
        EXPECT_EQ(after.lastReleases - before.lastReleases, made);
        EXPECT_EQ(after.firstReferences - before.firstReferences, firsts);
        EXPECT_EQ(after.decrements - before.decrements - after.increments + before.increments, made - firsts)
            << "reference steps out of balance";
    }
}

// Several threads read one bare curve at once, three walking its times in order from different places (so
// each moves the curve's shared search hint its own way) and one scrubbing at random: every value is what a
// lone reader gets.
TEST(CurveThreads, ConcurrentReadsOfOneCurveAgreeWithALoneReader)
{
    core::Parameter curve(nullptr);
    curve.SetValueRange(core::ValAny(-1e9), core::ValAny(1e9));
    for (int i = 0; i < 3000; ++i)
        curve.AddPointWithoutIndex(i / 60.0, core::ValAny((i * 7919 % 1000) / 10.0), core::eKeyframeTypeSmooth);
    std::vector<double> times, alone;
    for (int i = -10; i < 3010 * 4; ++i)
        times.push_back(i / 240.0), alone.push_back(curve.GetValue(times.back(), false).Get<double>());
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> readers;
    for (size_t r = 0; r < 4; ++r)
        readers.emplace_back([&, r] {
            for (size_t n = 0; n < times.size(); ++n) {
                const size_t i = (r == 3 ? n * 2654435761u : n + r * times.size() / 3) % times.size();
                mismatches[r] += curve.GetValue(times[i], false).Get<double>() != alone[i];
            }
        });
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
