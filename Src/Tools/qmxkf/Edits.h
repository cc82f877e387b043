// Edits of a project's keys, as the commands add, set, move, delete and clear
// and the lines of an `apply` script give them. An edit that would lose a key
// without being asked to, or reach one of the module's fatal stops, is
// refused before the track is touched.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "Project.h"

namespace qmxkf {

// Values given for the six properties, in key order; the others come from
// the track.
struct ValueOptions {
    std::optional<double> values[6];
    void ApplyTo(KeyFrameParam& key) const;
    bool Given(int property) const { return values[property].has_value(); }
};

// Kinds given for the six properties (core::KeyframeInterpolationType, one
// of the automatic kinds); the others stay as they are.
using KindOptions = std::array<std::optional<int>, 6>;

struct Edit {
    enum class Verb { Add, Set, Move, Delete, Clear };
    Verb verb = Verb::Add;
    int index = 0;             // set, move, delete: the key
    std::optional<double> at;  // add: the key's time; set: its new time; move: --to
    ValueOptions values;       // add, set
    KindOptions kinds;         // add, set
    bool replace = false;      // set, move: a key already at the new time may be replaced
};

// Applies `edit` to the project's track (the file is saved separately) and
// returns what was done, in one line. Throws ToolError, with the track as it
// was, for an edit the tool refuses.
std::string ApplyEdit(Project& project, const Edit& edit);

}  // namespace qmxkf
