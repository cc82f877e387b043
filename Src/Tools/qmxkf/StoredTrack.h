// The track a project file's bag holds, read property by property exactly as
// the module's track reads it, and everything that keeps the tool from
// loading it, editing it or saving it: the same checks run when a file is
// opened and before an edit is saved.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "IKeyFrame.h"
#include "IQMXProperties.h"
#include "ModuleHost.h"
#include "QMXComPtr.h"

namespace qmxkf {

struct StoredTrack {
    // Each property's curve as the module reads its text; null where the
    // text is missing or does not read back whole.
    std::array<QMXComPtr<core::IKeyFrame>, 6> curves;
    // One line per fault, naming the property and the key where there is one.
    std::vector<std::string> problems;
    // No property is stored at all: a bag that holds no track yet.
    bool absent = false;
};

// Reads and checks the track in `bag`. `fileSize` (bytes, or -1 when the bag
// is not read from a file) bounds the segment counts a file can back.
StoredTrack ReadStoredTrack(const ModuleHost& module, IQMXProperties* bag, long long fileSize);

// Removes every property's segments from `bag`, so that the track's next
// save leaves none of an earlier, longer save behind.
void RemoveSegments(IQMXProperties* bag);

// Stores `text` as property `property`'s curve text, in the layout the track
// writes (its segments of that property removed first).
void WriteCurveText(IQMXProperties* bag, int property, const std::string& text);

}  // namespace qmxkf
