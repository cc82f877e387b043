// The track's property names in a project file, and the refusal of segment
// counts no save could have written. Header-only: the project-file fuzz
// target applies the same rule.
#pragma once

#include <string>

#include "IQMXProperties.h"

namespace qmxkf {

// The track's six properties in key order, as the bag names them.
inline const wchar_t* const kCurveNames[6] = {L"KeyFrameAngle",   L"KeyFramePositionX", L"KeyFramePositionY",
                                              L"KeyFrameOpacity", L"KeyFrameScaleX",    L"KeyFrameScaleY"};

// Every segment of a saved curve text but the last is 51200 characters of at
// least one byte each, so a file of `fileSize` bytes never backs more than
// fileSize / 51200 + 1. The track asks for every segment a count names, so a
// count in the billions (a damaged or hand-edited file) would keep it busy
// for many minutes. Returns the refusal, or nothing when the counts fit.
inline std::string CheckSegmentCounts(IQMXProperties* bag, long long fileSize)
{
    const long long most = fileSize / 51200 + 1;
    for (const wchar_t* name : kCurveNames) {
        int count = 0;
        if (SUCCEEDED(bag->GetInt(name, &count)) && count > most) {
            return std::string(name, name + std::char_traits<wchar_t>::length(name)) + " names " + std::to_string(count) + " segments; a file of " +
                   std::to_string(fileSize) + " bytes holds at most " + std::to_string(most);
        }
    }
    return {};
}

}  // namespace qmxkf
