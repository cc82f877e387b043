/// @file
/// Always-on fatal checks: active in every build type, independent of NDEBUG.
/// A failed check prints its condition, function, file and line, then aborts.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace qmx {

[[noreturn]] inline void FatalCheckFailed(const char* condition, const char* function,
                                          const char* file, int line) noexcept
{
    std::fprintf(stderr, "Fatal check failed: (%s), function %s, file %s, line %d.\n",
                 condition, function, file, line);
    std::fflush(stderr);
    std::abort();
}

}  // namespace qmx

#define QMX_CHECK(condition)                                                  \
    do {                                                                      \
        if (!(condition))                                                     \
            ::qmx::FatalCheckFailed(#condition, __func__, __FILE__, __LINE__); \
    } while (0)
