// The tool's commands; each throws ToolError for a failure to report.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Edits.h"
#include "ModuleHost.h"

namespace qmxkf {

enum class SampleFormat { Table, Csv, Json };

void CommandNew(const ModuleHost& module, const std::string& file);
// One edit, in one locked, verified save.
void CommandEdit(const ModuleHost& module, const std::string& file, const Edit& edit, int waitMilliseconds);
// Every edit of a script in one locked, verified save, or none of them.
void CommandApply(const ModuleHost& module, const std::string& file, const std::vector<std::pair<int, Edit>>& edits,
                  const std::string& scriptName, int waitMilliseconds);
// Prints every fault of the file; returns the exit status (1 when any).
int CommandCheck(const ModuleHost& module, const std::string& file);
void CommandList(const ModuleHost& module, const std::string& file, int rate);
void CommandSample(const ModuleHost& module, const std::string& file, int rate, std::optional<double> from,
                   std::optional<double> to, SampleFormat format);

}  // namespace qmxkf
