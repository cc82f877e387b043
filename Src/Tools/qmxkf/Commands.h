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
enum class ExportFormat { Csv, Json, Css, Waapi, Lottie };

void CommandNew(const ModuleHost& module, const std::string& file);
// One edit, in one locked, verified save.
void CommandEdit(const ModuleHost& module, const std::string& file, const Edit& edit, int waitMilliseconds);
// Every edit of a script in one locked, verified save, or none of them.
void CommandApply(const ModuleHost& module, const std::string& file, const std::vector<std::pair<int, Edit>>& edits,
                  const std::string& scriptName, int waitMilliseconds);
// Prints every fault of the file; returns the exit status (1 when any).
int CommandCheck(const ModuleHost& module, const std::string& file);
// The keys: a table (kinds shown once where all six properties agree), or
// CSV or JSON with every property's kind.
void CommandList(const ModuleHost& module, const std::string& file, int rate, SampleFormat format);
// Every property's keys as data (CSV, JSON) or the track as a web animation
// (CSS, Web Animations, Lottie at `rate` frames per second), on standard output.
void CommandExport(const ModuleHost& module, const std::string& file, ExportFormat format, double rate);
// Replaces the project's keys by those of `data` (a file written by export
// as CSV or JSON, or - for standard input), in one locked, verified save.
void CommandImport(const ModuleHost& module, const std::string& file, const std::string& data,
                   int waitMilliseconds);
void CommandSample(const ModuleHost& module, const std::string& file, int rate, std::optional<double> from,
                   std::optional<double> to, SampleFormat format);

}  // namespace qmxkf
