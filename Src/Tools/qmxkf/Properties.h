// The six animated properties of a track, in key order (the track's curve
// slots 0 to 5), and the kinds of its keys: every place of the tool that
// names, stores, prints or takes a property or a kind uses these tables.
#pragma once

#include "IQMXKeyFrame.h"

namespace qmxkf {

struct Property {
    const wchar_t* bagName;        // the track's entry in a project file
    double KeyFrameParam::*field;  // its value in a key record
    const char* title;             // as messages and pictures name it
    const char* option;            // command-line option and column, without dashes
};

inline constexpr Property kProperties[6] = {
    {L"KeyFrameAngle", &KeyFrameParam::dAngle, "angle", "angle"},
    {L"KeyFramePositionX", &KeyFrameParam::dPositionX, "position x", "x"},
    {L"KeyFramePositionY", &KeyFrameParam::dPositionY, "position y", "y"},
    {L"KeyFrameOpacity", &KeyFrameParam::dOpacity, "opacity", "opacity"},
    {L"KeyFrameScaleX", &KeyFrameParam::dScaleX, "scale x", "scale-x"},
    {L"KeyFrameScaleY", &KeyFrameParam::dScaleY, "scale y", "scale-y"},
};

// Key kinds by their number in a curve: the six automatic kinds, then free
// (tangents kept as given) and none, which the module never recomputes
// (core::eKeyframeTypeFree and core::eKeyframeTypeNone).
inline constexpr const char* kKindNames[8] = {"constant", "linear", "smooth clamped", "smooth",
                                              "spline",   "flat",   "free",           "none"};

// Identity transform: the values of a first key where none are given.
inline constexpr KeyFrameParam kNeutral = {0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0};

}  // namespace qmxkf
