// Threads hammer one track and many tracks with edits, samples, saves and reads for QMX_STRESS_SECONDS
// (default 3) per case; then every track's curves are in lockstep, a save read into a fresh track gives
// the same keys bit for bit, and every object made was destroyed exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrame.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "QMXPropertyBag.h"
#include "keyframe_process.h"
#include "saved_curve.h"

namespace {

using testing_support::SavedCurveText;
using testing_support::SavedCurveTimes;

// Objects the host counts as made (last releases): a track is its factory, itself and six curves,
// each curve with its factory; a read of a saved track makes six new curves with their factories.
constexpr int kObjectsPerTrack = 14, kObjectsPerRead = 12;
// Of those, the ones born with count 0 take a counted first reference: the track and its curves.
constexpr int kFirstsPerTrack = 7, kFirstsPerRead = 6;

// Out-of-range indexes are expected; their reports go nowhere.
struct QuietLogger : IQMXLogger {
    bool IsLevelEnabled(int) override { return true; }
    void WriteLog(int, const wchar_t*, ...) override {}
};

IQMXKeyFrame* NewTrack()
{
    IQMXKeyFrame* track = nullptr;
    EXPECT_EQ(QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame,
                                      reinterpret_cast<void**>(&track)), S_OK);
    return track;
}

IQMXStorage* Storage(IQMXKeyFrame* track)
{
    IQMXStorage* storage = nullptr;
    EXPECT_EQ(track->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&storage)), S_OK);
    return storage;
}

// A whole record: v, v+1, ..., v+5 (angle, position X and Y, scale X and Y, opacity). Linear keys keep
// these offsets, so a sample or key mixing records shows.
KeyFrameParam Record(double time, double v) { return {time, v, v + 1, v + 2, v + 3, v + 4, v + 5}; }
bool IsWhole(const KeyFrameParam& p) { return p.dOpacity == p.dAngle + 5 && p.dScaleY == p.dPositionX + 3; }

// One thread's share: random operations on random tracks until `deadline`. Returns the number of
// operations; counts reads that made new curves and records that were not whole.
long Hammer(std::vector<IQMXKeyFrame*>& tracks, std::vector<IQMXStorage*>& stores, unsigned seed,
            std::chrono::steady_clock::time_point deadline, std::atomic<int>& reads, std::atomic<int>& torn)
{
    std::mt19937 random(seed);
    IQMXProperties* bag = QMXCreateMemoryProperties();
    bool saved = false;
    long ops = 0;
    for (; std::chrono::steady_clock::now() < deadline; ++ops) {
        const size_t which = random() % tracks.size();
        IQMXKeyFrame* t = tracks[which];
        const double time = random() % 400 * 0.1, v = static_cast<int>(random() % 2001) * 0.1 - 100;
        const int index = static_cast<int>(random() % 40) - 2;  // sometimes outside the track
        KeyFrameParam p = Record(time, v);
        const unsigned op = random() % 200;  // per 200: 40 adds, 20 sets, 20 deletes, 20 moves, 1 clear,
        if (op < 40) {                       // 40 samples, 30 key reads, 20 saves, 9 reads of a save
            int added = -1;
            op < 20 ? t->AddKeyFrame(p, added) : t->AddKeyFrame(p);
        } else if (op < 60) {
            t->SetKeyFrame(index, p);
        } else if (op < 80) {
            t->DeleteKeyFrame(index);
        } else if (op < 100) {
            t->ChangeKeyFramePosition(index, time);
        } else if (op < 101) {
            t->CleanAllKeyFrame();
        } else if (op < 141) {
            if (t->GetKeyFrame(time, p) && (p.dPosition != time || std::fabs(p.dOpacity - p.dAngle - 5) > 1e-6
                                            || std::fabs(p.dScaleY - p.dPositionX - 3) > 1e-6))
                ++torn;
        } else if (op < 171) {
            if (t->GetKeyFrame(index, p) && !IsWhole(p))
                ++torn;
        } else if (op < 191) {
            stores[which]->WriteTo(bag);
            saved = true;
        } else if (saved) {  // a save of any track read into this one: six new curves
            stores[which]->ReadFrom(bag);
            ++reads;
        }
    }
    bag->Release();
    return ops;
}

// Lockstep: the six curves as saved have the same times, those of the track's whole records. Round
// trip: a fresh track reading the save holds the same keys bit for bit and saves the same texts.
// Returns the key count; makes a track, reads one save and makes two bags, all released.
int CheckLockstepAndRoundTrip(IQMXKeyFrame* track, IQMXStorage* store)
{
    IQMXProperties *bag = QMXCreateMemoryProperties(), *again = QMXCreateMemoryProperties();
    IQMXKeyFrame* copy = NewTrack();
    IQMXStorage* copyStore = Storage(copy);
    EXPECT_EQ(store->WriteTo(bag), S_OK);
    const std::vector<double> times = SavedCurveTimes(bag, 0);
    const int count = track->GetKeyFrameCount();
    EXPECT_EQ(static_cast<int>(times.size()), count);
    for (int key = 1; key < 6; ++key)
        EXPECT_EQ(SavedCurveTimes(bag, key), times) << "curve " << key;
    EXPECT_EQ(copyStore->ReadFrom(bag), S_OK);
    EXPECT_EQ(copy->GetKeyFrameCount(), count);
    for (int k = 0; k < count && k < static_cast<int>(times.size()); ++k) {
        KeyFrameParam p{}, q{};
        EXPECT_TRUE(track->GetKeyFrame(k, p) && copy->GetKeyFrame(k, q));
        EXPECT_EQ(p.dPosition, times[k]);
        EXPECT_TRUE(IsWhole(p)) << "key " << k;
        EXPECT_EQ(std::memcmp(&p, &q, sizeof p), 0) << "key " << k;
    }
    EXPECT_EQ(copyStore->WriteTo(again), S_OK);
    for (int key = 0; key < 6; ++key)
        EXPECT_EQ(SavedCurveText(again, key), SavedCurveText(bag, key)) << "curve " << key;
    EXPECT_EQ(copyStore->Release(), 1u);
    EXPECT_EQ(copy->Release(), 0u);
    EXPECT_EQ(again->Release(), 0u);
    EXPECT_EQ(bag->Release(), 0u);
    return count;
}

}  // namespace

TEST(Stress, TracksUnderThreadsStayInLockstepRoundTripAndBalanceReferences)
{
    struct Case { const char* name; int tracks, threads; };
    const Case cases[] = {{"one_track", 1, 4}, {"many_tracks", 16, 4}};
    const char* env = std::getenv("QMX_STRESS_SECONDS");
    const double seconds = env != nullptr && std::atof(env) > 0 ? std::atof(env) : 3.0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QMXReferenceCounts before{}, after{};
        QMXGetReferenceCounts(&before);
        std::vector<IQMXKeyFrame*> tracks;
        std::vector<IQMXStorage*> stores;
        for (int i = 0; i < c.tracks; ++i) {
            tracks.push_back(NewTrack());
            ASSERT_NE(tracks.back(), nullptr);
            stores.push_back(Storage(tracks.back()));
        }
        QuietLogger quiet;
        IQMXLogger* previous = QMXSetDefaultLogger(&quiet);
        std::atomic<int> reads{0}, torn{0};
        std::atomic<long> ops{0};
        const auto start = std::chrono::steady_clock::now();
        const auto deadline = start + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
        std::vector<std::thread> threads;
        for (int id = 0; id < c.threads; ++id)
            threads.emplace_back([&, id] { ops += Hammer(tracks, stores, id + 1u, deadline, reads, torn); });
        for (std::thread& thread : threads)
            thread.join();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        QMXSetDefaultLogger(previous);
        EXPECT_EQ(torn.load(), 0) << "samples or keys mixing records";
        const long perSecond = static_cast<long>(ops / elapsed.count());
        RecordProperty(std::string(c.name) + "_threads", c.threads);
        RecordProperty(std::string(c.name) + "_operations_per_second", std::to_string(perSecond));

        int made = kObjectsPerTrack * c.tracks + kObjectsPerRead * reads + c.threads;  // + threads' bags
        int firsts = kFirstsPerTrack * c.tracks + kFirstsPerRead * reads, keys = 0;
        for (size_t i = 0; i < tracks.size(); ++i) {
            SCOPED_TRACE("track " + std::to_string(i));
            keys += CheckLockstepAndRoundTrip(tracks[i], stores[i]);
            made += kObjectsPerTrack + kObjectsPerRead + 2;  // the copy, its read and two bags
            firsts += kFirstsPerTrack + kFirstsPerRead;
            EXPECT_EQ(stores[i]->Release(), 1u);
            EXPECT_EQ(tracks[i]->Release(), 0u);
        }
        std::printf("[ stress   ] %s: %d threads, %ld operations per second (%ld in %.2f s); %d tracks, "
                    "%d keys at the end, %d reads, %d objects made\n", c.name, c.threads, perSecond,
                    ops.load(), elapsed.count(), c.tracks, keys, reads.load(), made);

        // Every object made was destroyed once. Factories and bags are born holding their reference,
        // so they count a last release without a first reference.
        QMXGetReferenceCounts(&after);
        EXPECT_EQ(after.lastReleases - before.lastReleases, made);
        EXPECT_EQ(after.firstReferences - before.firstReferences, firsts);
        const int64_t unmatched = after.decrements - before.decrements - after.increments + before.increments;
        EXPECT_EQ(unmatched, made - firsts) << "reference steps out of balance";
    }
}
