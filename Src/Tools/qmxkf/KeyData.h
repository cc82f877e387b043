// A project's keys as plain data, property by property: what `export` and
// `list --format csv|json` write, what `import` reads, and what the web
// exports are made from.
#pragma once

#include <array>
#include <vector>

#include "Properties.h"

namespace qmxkf {

// One key of one property's curve, as the curve stores it: the kind
// (core::KeyframeInterpolationType) and the left and right derivatives in
// value units per second.
struct KeyRecord {
    double time;
    double value;
    int kind;
    double left;
    double right;
};

// The keys of each property, in kProperties order; all six hold the same
// times (the track keeps its curves in lockstep).
using TrackKeys = std::array<std::vector<KeyRecord>, qmx::kTrackPropertyCount>;

}  // namespace qmxkf
