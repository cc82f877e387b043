// A project's keys as plain data, property by property: what `export` and
// `list --format csv|json` write, what `import` reads, and what the web
// exports are made from.
#pragma once

#include <array>
#include <string>
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

// The keys as CSV (a header, then one row per property and key: property,
// index, time, value, kind, left, right) or as JSON ({"format": "qmx-keys",
// "version": 1, "properties": {"angle": [{"time", "value", "kind", "left",
// "right"}, ...], ...}}); numbers in their shortest exact spelling, kinds by
// name.
std::string WriteKeysCsv(const TrackKeys& keys);
std::string WriteKeysJson(const TrackKeys& keys);

// Refuses, with ToolError naming `source`, the property and the key, keys
// that are no track's: a number that is not finite, an unknown kind, times
// that do not rise, or properties whose key times differ.
void CheckTrackKeys(const TrackKeys& keys, const std::string& source);

// Reads keys written in either form (JSON when the text starts with '{').
// Throws ToolError naming `source`, the line or property and the key for
// anything that is not such keys (see CheckTrackKeys).
TrackKeys ReadKeys(const std::string& text, const std::string& source);

}  // namespace qmxkf
