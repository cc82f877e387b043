// Refuses project files whose segment counts no save could have written.
// Header-only: the project-file fuzz target applies the same rule.
#pragma once

#include <string>

#include "IQMXProperties.h"

namespace qmxkf {

// Every segment of a saved curve text but the last is 51200 characters of at
// least one byte each, so a file of `fileSize` bytes never backs more than
// fileSize / 51200 + 1. The track asks for every segment a count names, so a
// count in the billions (a damaged or hand-edited file) would keep it busy
// for many minutes. Returns the refusal, or nothing when the counts fit.
inline std::string CheckSegmentCounts(IQMXProperties* bag, long long fileSize)
{
    static const char* const names[6] = {"KeyFrameAngle",   "KeyFramePositionX", "KeyFramePositionY",
                                         "KeyFrameOpacity", "KeyFrameScaleX",    "KeyFrameScaleY"};
    const long long most = fileSize / 51200 + 1;
    for (const char* name : names) {
        const std::wstring wide(name, name + std::char_traits<char>::length(name));
        int count = 0;
        if (SUCCEEDED(bag->GetInt(wide.c_str(), &count)) && count > most) {
            return std::string(name) + " names " + std::to_string(count) + " segments; a file of " +
                   std::to_string(fileSize) + " bytes holds at most " + std::to_string(most);
        }
    }
    return {};
}

}  // namespace qmxkf
