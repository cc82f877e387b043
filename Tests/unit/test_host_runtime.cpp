// The host runtime: the logger, text and frame conversions. (Identifiers, atomic counts and the registry:
// qmxkf validate and the module tests.)
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "QMXCommon.h"
#include "QMXLogger.h"

using namespace QMXCommon;

// Setting a logger returns the old one, null removes it; the default logger writes each formatted line
// as UTF-8 to standard error, adding a missing newline. (Another logger swapped in: the track's tests.)
TEST(LoggerTest, DefaultLoggerAndSwapping)
{
    IQMXLogger* logger = QMXGetDefaultLogger();
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(QMXSetDefaultLogger(nullptr), logger);
    EXPECT_EQ(QMXSetDefaultLogger(logger), nullptr);  // null was stored: no logger
    if (std::getenv("QMX_LOG_LEVEL") != nullptr) GTEST_SKIP() << "threshold set by the environment";
    testing::internal::CaptureStderr();
    logger->WriteLog(80, L"key %d of %ls", 42, L"Ä€");
    logger->WriteLog(80, L"done\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "key 42 of \xC3\x84\xE2\x82\xAC\ndone\n");
}

// ASCII converts one to one both ways and longer forms decode to single units; malformed input
// becomes U+FFFD; bad arguments give -1 and write nothing. Short buffers: cut at a character
// boundary, terminated, and the sentinels past the end untouched.
TEST(ConvertTest, RoundTripsInvalidInputArgumentsAndTruncation)
{
    const char full[] = "\xC3\x84\xE2\x82\xAC\xF0\x9F\x98\x80";  // 2-, 3- and 4-byte forms
    wchar_t wide[200];
    char back[8], narrow[8] = "keep";
    EXPECT_TRUE(Char2WChar(full, wide, 200) == 3 && std::wstring(wide) == L"Ä€😀");
    EXPECT_TRUE(Char2WChar("\x01~\x7F\xFF", wide, 8) == 4 && std::wstring(wide) == L"\x01~\x7F\xFFFD");  // ASCII's ends
    EXPECT_TRUE(WChar2Char(wide, back, 8) == 6 && std::string(back) == "\x01~\x7F\xEF\xBF\xBD");
    const std::pair<int, int> kBad(-1, -1);
    for (int len : {0, -3})
        EXPECT_EQ(std::make_pair(Char2WChar("a", wide, len), WChar2Char(L"a", narrow, len)), kBad) << len;
    EXPECT_EQ(std::make_pair(Char2WChar(nullptr, wide, 8), Char2WChar("a", nullptr, 8)), kBad);
    EXPECT_EQ(std::make_pair(WChar2Char(nullptr, narrow, 8), WChar2Char(L"a", nullptr, 8)), kBad);
    EXPECT_STREQ(narrow, "keep");
    for (int len = 1; len <= 11; ++len) {
        char buf[16];
        std::memset(buf, 0x7F, sizeof buf);
        const int expected = len > 9 ? 9 : len > 5 ? 5 : len > 2 ? 2 : 0;  // character boundaries
        EXPECT_EQ(WChar2Char(L"Ä€😀", buf, len), expected) << "len " << len;
        EXPECT_EQ(std::string(buf, expected + 1), std::string(full, expected) + '\0');
        EXPECT_EQ(std::string(buf + len, 16 - len), std::string(16 - len, 0x7F)) << "len " << len;
    }
    wchar_t wbuf[3] = {L'#', L'#', L'#'};
    EXPECT_TRUE(Char2WChar("abc", wbuf, 2) == 1 && std::wstring(wbuf, 3) == std::wstring(L"a\0#", 3));
}

// A frame's exact position converts back to the same frame, at every rate (rate <= 0 counts as 1);
// other positions give the nearest frame, halves away from zero, saturating; NaN gives 0.
TEST(FrameTest, PositionRoundTripAndRounding)
{
    for (int rate : {1, 24, 25, 30, 60, 1000, 0, -24})
        for (int f : {0, 1, -1, 2, 23, 24, 25, 59, 1001, -12345, 1 << 24, INT_MAX, INT_MIN}) {
            const auto [num, den] = KeyFrame::CaculateKeyFramePosition(f, rate);
            EXPECT_EQ(std::make_pair(num, den), std::make_pair(int64_t{f}, int64_t{rate > 0 ? rate : 1}));
            EXPECT_EQ(KeyFrame::CaculateKeyFrameIndex(double(num) / den, rate), f) << f << "@" << rate;
        }
    const struct { double position; int rate; int frame; } rows[] = {
        {0.25, 2, 1}, {-0.25, 2, -1}, {0.24, 2, 0}, {0.36, 10, 4}, {0.3, 24, 7}, {5.0, 0, 5}, {5.4, -30, 5},
        {3e6, 1000, INT_MAX}, {-1e10, 1, INT_MIN}, {INFINITY, 24, INT_MAX}, {-INFINITY, 24, INT_MIN},
        {NAN, 24, 0}};
    for (const auto& r : rows)
        EXPECT_EQ(KeyFrame::CaculateKeyFrameIndex(r.position, r.rate), r.frame) << &r - rows;
}
