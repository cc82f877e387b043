// The tool's commands; each throws ToolError for a failure to report.
#pragma once

#include <optional>
#include <string>

#include "ModuleHost.h"

namespace qmxkf {

// Values given on the command line; the others come from the track.
struct ValueOptions {
    std::optional<double> angle, x, y, opacity, scaleX, scaleY;
    void ApplyTo(KeyFrameParam& key) const;
};

enum class SampleFormat { Table, Csv, Json };

void CommandNew(const ModuleHost& module, const std::string& file);
void CommandAdd(const ModuleHost& module, const std::string& file, double at, const ValueOptions& values);
void CommandSet(const ModuleHost& module, const std::string& file, int index, std::optional<double> at,
                const ValueOptions& values);
void CommandMove(const ModuleHost& module, const std::string& file, int index, double to);
void CommandDelete(const ModuleHost& module, const std::string& file, int index);
void CommandClear(const ModuleHost& module, const std::string& file);
void CommandList(const ModuleHost& module, const std::string& file, int rate);
void CommandSample(const ModuleHost& module, const std::string& file, int rate, std::optional<double> from,
                   std::optional<double> to, SampleFormat format);

}  // namespace qmxkf
