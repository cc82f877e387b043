// A track's curves as saved in a property bag: one curve's text with its
// segments joined, and the key times that text holds.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "IQMXProperties.h"
#include "QMXKeyFrame.h"
#include "keyframe_process.h"

namespace testing_support {

inline std::wstring SegmentName(int key, int segment)
{
    return KEYFRAMENAME[key] + std::wstring(L"Segment_") + std::to_wstring(segment);
}

// Segments up to the saved count, which must be there.
inline std::wstring SavedCurveText(IQMXProperties* bag, int key)
{
    int segments = 0;
    EXPECT_EQ(bag->GetInt(KEYFRAMENAME[key], &segments), S_OK) << "curve " << key;
    std::wstring text;
    for (int i = 0; i < segments; ++i) {
        CQMXValue value;
        bag->GetProperty(SegmentName(key, i).c_str(), &value);
        text += value.m_strValue;
    }
    return text;
}

// The key times of curve `key` alone, read back through a curve of its own.
inline std::vector<double> SavedCurveTimes(IQMXProperties* bag, int key)
{
    const std::wstring wide = SavedCurveText(bag, key);
    core::Parameter curve(nullptr);
    curve.Desialize(std::string(wide.begin(), wide.end()).c_str());
    std::vector<double> times;
    for (int i = 0; i < curve.GetKeyFramesCount(); ++i)
        times.push_back(curve.GetPointTime(i));
    return times;
}

}  // namespace testing_support
