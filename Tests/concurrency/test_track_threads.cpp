// Several threads on one track: edits, sampling and saving interleave under the track's lock, and the
// six curves end in lockstep.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXLogger.h"
#include "QMXPropertyBag.h"
#include "keyframe_process.h"
#include "saved_curve.h"

namespace {

using testing_support::SavedCurveTimes;

constexpr int kIterations = 2000;

}  // namespace

TEST(TrackThreads, EditsSamplingAndSavingKeepCurvesInLockstep)
{
    IQMXKeyFrame* t = nullptr;
    IQMXStorage* s = nullptr;
    ASSERT_EQ(QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame,
                                      reinterpret_cast<void**>(&t)), S_OK);
    ASSERT_EQ(t->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&s)), S_OK);
    IQMXLogger* previous = QMXSetDefaultLogger(nullptr);  // stale indexes are expected: no reports
    std::vector<std::thread> threads;
    for (int id = 0; id < 2; ++id)
        threads.emplace_back([t, id] {  // editors, each at times of its own
            // Every record holds v, v+1, ..., v+5 (angle, position X and Y, scale X and Y, opacity):
            // interpolation keeps these offsets, so a sample mixing curves mid-edit would show.
            for (int i = 0; i < kIterations; ++i) {
                const double time = 100.0 * id + i % 20, v = i;
                KeyFrameParam p = {time, v, v + 1, v + 2, v + 3, v + 4, v + 5};
                int index = -1;
                t->AddKeyFrame(p, index);
                p.dPosition = time + 0.5;
                t->SetKeyFrame(index, p);  // the index may be stale by now
                t->ChangeKeyFramePosition(t->GetKeyFrameIndex(time + 0.5), time + 0.25);
                if (i % 3 == 0)
                    t->DeleteKeyFrame(t->GetKeyFrameIndex(100.0 * id + i * 7 % 20 + 0.25));
            }
        });
    threads.emplace_back([t] {  // sampler
        for (int i = 0; i < kIterations; ++i) {
            KeyFrameParam p{};
            const double at = i % 160 * 0.8;
            if (t->GetKeyFrame(at, p)) {
                EXPECT_EQ(p.dPosition, at);
                EXPECT_NEAR(p.dOpacity - p.dAngle, 5.0, 1e-6) << at;
                EXPECT_NEAR(p.dScaleY - p.dPositionX, 3.0, 1e-6) << at;
            }
            EXPECT_GE(t->GetKeyFrameCount(), 0);
            t->InKeyFrameRange(at);
            t->HasKeyFrame(i % 6);
        }
    });
    threads.emplace_back([s] {  // saver
        IQMXProperties* bag = QMXCreateMemoryProperties();
        for (int i = 0; i < kIterations / 4; ++i)
            EXPECT_EQ(s->WriteTo(bag), S_OK);
        bag->Release();
    });
    for (std::thread& thread : threads)
        thread.join();
    QMXSetDefaultLogger(previous);

    // Same key count and times on all six saved curves, matching the track's keys, each a whole record.
    IQMXProperties* bag = QMXCreateMemoryProperties();
    EXPECT_EQ(s->WriteTo(bag), S_OK);
    const std::vector<double> times = SavedCurveTimes(bag, 0);
    EXPECT_GT(times.size(), 0u);
    ASSERT_EQ(static_cast<int>(times.size()), t->GetKeyFrameCount());
    for (int key = 1; key < 6; ++key)
        EXPECT_EQ(SavedCurveTimes(bag, key), times) << "curve " << key;
    for (int i = 0; i < t->GetKeyFrameCount(); ++i) {
        KeyFrameParam p{};
        EXPECT_TRUE(t->GetKeyFrame(i, p));
        EXPECT_EQ(p.dPosition, times[i]);
        EXPECT_TRUE(p.dOpacity == p.dAngle + 5 && p.dScaleY == p.dPositionX + 3) << "key " << i;
    }
    EXPECT_EQ(bag->Release(), 0u);
    EXPECT_EQ(s->Release(), 1u);
    EXPECT_EQ(t->Release(), 0u);
}

// Several threads read one bare curve at once, each walking its own times in order (so each moves the
// curve's shared search hint its own way) and one scrubbing at random: every value is what a lone reader
// gets.
TEST(CurveThreads, ConcurrentReadsOfOneCurveAgreeWithALoneReader)
{
    core::Parameter curve(nullptr);
    curve.SetValueRange(core::ValAny(-1e9), core::ValAny(1e9));
    for (int i = 0; i < 3000; ++i)
        curve.AddPointWithoutIndex(i / 60.0, core::ValAny((i * 7919 % 1000) / 10.0), core::eKeyframeTypeSmooth);
    std::vector<double> times;
    for (int i = -10; i < 3010 * 4; ++i)
        times.push_back(i / 240.0);
    std::vector<double> alone;
    for (double t : times)
        alone.push_back(curve.GetValue(t, false).Get<double>());
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r)
        readers.emplace_back([&, r] {
            for (size_t n = 0; n < times.size(); ++n) {
                const size_t i = r == 3 ? (n * 2654435761u) % times.size() : (n + r * times.size() / 3) % times.size();
                if (curve.GetValue(times[i], false).Get<double>() != alone[i])
                    ++mismatches[static_cast<size_t>(r)];
            }
        });
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
