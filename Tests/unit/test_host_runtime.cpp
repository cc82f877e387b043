#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "QMXCommon.h"
#include "QMXLogger.h"

using namespace QMXCommon;

TEST(HostTest, IdentifiersAndGetInterface)
{
    const uint8_t unknown[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};
    const uint8_t factory[16] = {1, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};
    EXPECT_EQ(std::memcmp(&IID_IUnknown, unknown, 16), 0);
    EXPECT_EQ(std::memcmp(&IID_IClassFactory, factory, 16), 0);
    void* p = &p;
    EXPECT_EQ(GetInterface(IID_IClassFactory, nullptr, 0, IID_IUnknown, &p), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(p, nullptr);
}

// Returns the new value; concurrent increments and decrements balance out.
TEST(HostTest, InterlockedCounts)
{
    volatile int32_t n = -1;
    EXPECT_EQ(InterlockedIncrement(&n), 0);
    EXPECT_EQ(InterlockedIncrement(&n), 1);
    EXPECT_EQ(InterlockedDecrement(&n), 0);
    EXPECT_EQ(InterlockedDecrement(&n), -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&n, t] {
            for (int i = 0; i < 20000; ++i) t % 2 ? InterlockedDecrement(&n) : InterlockedIncrement(&n);
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(n, -1);
}

TEST(LoggerTest, DefaultLoggerWritesFormattedLine)
{
    IQMXLogger* logger = QMXGetDefaultLogger();
    ASSERT_NE(logger, nullptr);
    if (std::getenv("QMX_LOG_LEVEL") != nullptr) GTEST_SKIP() << "threshold set by the environment";
    EXPECT_TRUE(logger->IsLevelEnabled(80));
    testing::internal::CaptureStderr();
    logger->WriteLog(80, L"key %d of %ls", 42, L"Ä€");
    logger->WriteLog(80, L"done\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "key 42 of \xC3\x84\xE2\x82\xAC\ndone\n");
}

TEST(LoggerTest, SetDefaultLoggerSwapsAndRemoves)
{
    struct Recorder : IQMXLogger {
        int lastLevel = -1;
        bool IsLevelEnabled(int) override { return true; }
        void WriteLog(int level, const wchar_t*, ...) override { lastLevel = level; }
    } recorder;
    IQMXLogger* original = QMXGetDefaultLogger();
    EXPECT_EQ(QMXSetDefaultLogger(&recorder), original);
    QMXGetDefaultLogger()->WriteLog(7, L"x");
    EXPECT_EQ(recorder.lastLevel, 7);
    EXPECT_EQ(QMXSetDefaultLogger(nullptr), &recorder);
    EXPECT_EQ(QMXGetDefaultLogger(), nullptr);
    EXPECT_EQ(QMXSetDefaultLogger(original), nullptr);
    EXPECT_EQ(QMXGetDefaultLogger(), original);
}

TEST(ConvertTest, AsciiOneToOneAndUnicodeRoundTrip)
{
    std::string ascii;
    for (int c = 1; c < 128; ++c) ascii += static_cast<char>(c);
    wchar_t wide[200];
    char back[200];
    ASSERT_EQ(Char2WChar(ascii.c_str(), wide, 200), 127);
    for (int i = 0; i < 127; ++i) EXPECT_EQ(wide[i], static_cast<wchar_t>(i + 1));
    EXPECT_EQ(WChar2Char(wide, back, 200), 127);
    EXPECT_EQ(back, ascii);
    EXPECT_EQ(WChar2Char(L"Ä€😀", back, 200), 9);
    EXPECT_STREQ(back, "\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(Char2WChar(back, wide, 200), 3);
    EXPECT_STREQ(wide, L"Ä€😀");
}

// Short buffers: cut at a character boundary, terminated, and the sentinels past the end untouched.
TEST(ConvertTest, TruncationStaysInsideBuffer)
{
    const char full[] = "\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80";
    for (int len = 1; len <= 11; ++len) {
        char buf[16];
        std::memset(buf, 0x7F, sizeof buf);
        const int expected = len > 9 ? 9 : len > 5 ? 5 : len > 2 ? 2 : 0;  // character boundaries
        EXPECT_EQ(WChar2Char(L"Ä€😀", buf, len), expected) << "len " << len;
        EXPECT_EQ(std::string(buf, expected + 1), std::string(full, expected) + '\0');
        EXPECT_EQ(std::string(buf + len, 16 - len), std::string(16 - len, 0x7F)) << "len " << len;
    }
    wchar_t wbuf[3] = {L'#', L'#', L'#'};
    EXPECT_EQ(Char2WChar("abc", wbuf, 2), 1);
    EXPECT_EQ(std::wstring(wbuf, 3), std::wstring(L"a\0#", 3));
}

TEST(ConvertTest, InvalidInputAndArguments)
{
    wchar_t wide[8];
    char narrow[8] = "keep";
    EXPECT_EQ(Char2WChar("a\xFFz", wide, 8), 3);
    EXPECT_STREQ(wide, L"a\xFFFDz");
    for (int len : {0, -3}) {
        EXPECT_EQ(Char2WChar("a", wide, len), -1);
        EXPECT_EQ(WChar2Char(L"a", narrow, len), -1);
    }
    EXPECT_EQ(Char2WChar(nullptr, wide, 8), -1);
    EXPECT_EQ(Char2WChar("a", nullptr, 8), -1);
    EXPECT_EQ(WChar2Char(nullptr, narrow, 8), -1);
    EXPECT_EQ(WChar2Char(L"a", nullptr, 8), -1);
    EXPECT_STREQ(narrow, "keep");
}

// A frame's exact position converts back to the same frame, at every rate (rate <= 0 counts as 1).
TEST(FrameTest, PositionRoundTrip)
{
    for (int rate : {1, 24, 25, 30, 60, 1000, 0, -24})
        for (int f : {0, 1, -1, 2, 23, 24, 25, 59, 1001, -12345, 1 << 24, INT_MAX, INT_MIN}) {
            const auto [num, den] = KeyFrame::CaculateKeyFramePosition(f, rate);
            EXPECT_EQ(num, f);
            EXPECT_EQ(den, rate > 0 ? rate : 1);
            EXPECT_EQ(KeyFrame::CaculateKeyFrameIndex(double(num) / double(den), rate), f) << f << " @ " << rate;
        }
}

// Nearest frame, halves away from zero, saturating; NaN gives 0.
TEST(FrameTest, IndexRounding)
{
    const struct { double position; int rate; int frame; } rows[] = {
        {0.25, 2, 1}, {-0.25, 2, -1}, {0.24, 2, 0}, {2.5, 1, 3}, {-2.5, 1, -3}, {0.34, 10, 3},
        {0.36, 10, 4}, {0.31, 25, 8}, {0.3, 24, 7}, {5.0, 0, 5}, {5.4, -30, 5}, {1e10, 1, INT_MAX},
        {-1e10, 1, INT_MIN}, {3e6, 1000, INT_MAX}, {INFINITY, 24, INT_MAX}, {-INFINITY, 24, INT_MIN},
        {NAN, 24, 0},
    };
    for (const auto& r : rows)
        EXPECT_EQ(KeyFrame::CaculateKeyFrameIndex(r.position, r.rate), r.frame) << r.position << " @ " << r.rate;
}
