// The default logger: enabled lines go to standard error, one write per line.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

#include "QMXLogger.h"
#include "TextConvert.h"

namespace {

// Levels at or above the threshold are written; the threshold is 0 (every
// ordinary level) unless QMX_LOG_LEVEL names another integer.
int LevelThreshold()
{
    static const int threshold = [] {
        const char* text = std::getenv("QMX_LOG_LEVEL");
        return text != nullptr ? std::atoi(text) : 0;
    }();
    return threshold;
}

// Formats with vswprintf, growing the buffer until the line fits (up to 1 Mi
// units; a longer line is cut there).
std::wstring FormatLine(const wchar_t* format, va_list args)
{
    std::vector<wchar_t> buffer(256);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        const int n = std::vswprintf(buffer.data(), buffer.size(), format, copy);
        va_end(copy);
        if (n >= 0)
            return std::wstring(buffer.data(), static_cast<size_t>(n));
        if (buffer.size() >= (1u << 20))
            return std::wstring(buffer.data());
        buffer.assign(buffer.size() * 4, L'\0');
    }
}

class StderrLogger final : public IQMXLogger {
public:
    bool IsLevelEnabled(int level) override { return level >= LevelThreshold(); }

    void WriteLog(int level, const wchar_t* format, ...) override
    {
        if (format == nullptr || !IsLevelEnabled(level))
            return;
        va_list args;
        va_start(args, format);
        const std::wstring line = FormatLine(format, args);
        va_end(args);
        std::string text;
        text.reserve(line.size() + 1);
        for (wchar_t ch : line)
            qmxhost::AppendUtf8(text, ch);
        if (text.empty() || text.back() != '\n')
            text.push_back('\n');
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
    }
};

StderrLogger g_stderrLogger;
std::atomic<IQMXLogger*> g_defaultLogger{&g_stderrLogger};

}  // namespace

extern "C" IQMXLogger* QMXGetDefaultLogger()
{
    return g_defaultLogger.load();
}

extern "C" IQMXLogger* QMXSetDefaultLogger(IQMXLogger* logger)
{
    return g_defaultLogger.exchange(logger);
}
