// The six animated properties of a track (the shared table, under the
// tool's names), the kinds of its keys and the neutral key: every place of
// the tool that names, stores, prints or takes a property or a kind uses
// these tables.
#pragma once

#include "IQMXKeyFrame.h"
#include "TrackProperties.h"

namespace qmxkf {

using Property = qmx::TrackProperty;
inline constexpr const auto& kProperties = qmx::kTrackProperties;

// Key kinds by their number in a curve: the six automatic kinds, then free
// (tangents kept as given) and none, which the module never recomputes
// (core::eKeyframeTypeFree and core::eKeyframeTypeNone).
inline constexpr const char* kKindNames[8] = {"constant", "linear", "smooth-clamped", "smooth",
                                              "spline",   "flat",   "free",           "none"};
// The kinds the tool sets: the automatic ones, whose tangents the module keeps.
inline constexpr int kAutomaticKindCount = 6;

// Identity transform: the values of a first key where none are given.
inline constexpr KeyFrameParam kNeutral = {0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0};

}  // namespace qmxkf
