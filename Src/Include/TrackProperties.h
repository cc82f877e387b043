/// @file
/// The six animated properties of a keyframe track, by property key (the
/// track's curve slots 0 to 5): the name of each curve in a property bag, its
/// field in a KeyFrameParam record, and how people see it (title) and give it
/// (command-line option and column, without dashes). The module, the tools
/// and the tests take every property fact from this one table.
#pragma once

#include "IQMXKeyFrame.h"

namespace qmx {

struct TrackProperty {
    const wchar_t* bagName;
    double KeyFrameParam::*field;
    const char* title;
    const char* option;
};

inline constexpr int kTrackPropertyCount = 6;

inline constexpr TrackProperty kTrackProperties[kTrackPropertyCount] = {
    {L"KeyFrameAngle", &KeyFrameParam::dAngle, "angle", "angle"},
    {L"KeyFramePositionX", &KeyFrameParam::dPositionX, "position x", "x"},
    {L"KeyFramePositionY", &KeyFrameParam::dPositionY, "position y", "y"},
    {L"KeyFrameOpacity", &KeyFrameParam::dOpacity, "opacity", "opacity"},
    {L"KeyFrameScaleX", &KeyFrameParam::dScaleX, "scale x", "scale-x"},
    {L"KeyFrameScaleY", &KeyFrameParam::dScaleY, "scale y", "scale-y"},
};

}  // namespace qmx
