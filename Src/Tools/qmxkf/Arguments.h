// What the command line and `apply` scripts take: numbers as people type
// them, and the options of the edit commands, defined once for both.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Edits.h"

namespace qmxkf {

// An option (or positional, without dashes) taking a plain decimal number:
// a sign, digits, a fraction and an exponent, finite. An empty or blank text,
// hex, blanks around it or anything left over is a usage error.
CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<double>& target,
                       const std::string& help);
// The same for a whole number in decimal, within `int`.
CLI::Option* AddInteger(CLI::App* command, const std::string& name, int& target, const std::string& help);
// A project file's name (not empty).
CLI::Option* AddFile(CLI::App* command, std::string& file);

// Adds add, set, move, delete and clear to `app`. The one parsed fills `edit`
// (and `file`, which each then takes first, when given) and calls `chosen`.
void AddEditCommands(CLI::App& app, Edit& edit, std::string* file, const std::function<void()>& chosen);

// The edits of an `apply` script (a file, or standard input for "-"), one
// per line with the edit commands' words, blank lines and lines starting
// with '#' left out; each with its line number. Throws ToolError naming the
// first line that does not parse.
std::vector<std::pair<int, Edit>> ReadEditScript(const std::string& script);

}  // namespace qmxkf
