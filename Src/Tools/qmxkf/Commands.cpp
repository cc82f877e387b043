#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "KeyData.h"
#include "Output.h"
#include "Project.h"
#include "Properties.h"
#include "ToolError.h"
#include "WebExport.h"

namespace qmxkf {

namespace {

// The six values in the order the tool shows them.
std::vector<std::string> Values(const KeyFrameParam& key, std::string (*text)(double) = Number)
{
    std::vector<std::string> values;
    for (const Property& property : kProperties)
        values.push_back(text(key.*property.field));
    return values;
}

std::vector<std::string> Header(std::vector<std::string> leading)
{
    for (const Property& property : kProperties)
        leading.push_back(property.option);
    return leading;
}

// First and last frame whose time lies in [from, to]; a bound within a
// nanosecond of a frame counts as that frame.
long long FrameAtOrAfter(double seconds, int rate)
{
    const double frames = seconds * rate;
    const double nearest = std::round(frames);
    return static_cast<long long>(std::fabs(frames - nearest) < 1e-9 * rate ? nearest : std::ceil(frames));
}

long long FrameAtOrBefore(double seconds, int rate)
{
    const double frames = seconds * rate;
    const double nearest = std::round(frames);
    return static_cast<long long>(std::fabs(frames - nearest) < 1e-9 * rate ? nearest : std::floor(frames));
}

std::string Join(const std::vector<std::string>& cells, const char* separator)
{
    std::string text;
    for (const std::string& cell : cells)
        text += (text.empty() ? "" : separator) + cell;
    return text;
}

// The kind most properties have, then the others' own ("smooth,
// opacity=constant"); one word where all six agree.
std::string CompactKinds(const std::vector<std::string>& kinds)
{
    const auto count = [&](const std::string& kind) { return std::count(kinds.begin(), kinds.end(), kind); };
    const std::string most = *std::max_element(kinds.begin(), kinds.end(),
                                               [&](const auto& a, const auto& b) { return count(a) < count(b); });
    std::vector<std::string> cells = {most};
    for (size_t p = 0; p < kinds.size(); ++p)
        if (kinds[p] != most)
            cells.push_back(std::string(kProperties[p].option) + "=" + kinds[p]);
    return Join(cells, ", ");
}

}  // namespace

void CommandNew(const ModuleHost& module, const std::string& file)
{
    Project(module, file, Project::Open::New).Save();
    std::printf("created %s (no keys)\n", file.c_str());
}

void CommandEdit(const ModuleHost& module, const std::string& file, const Edit& edit, int waitMilliseconds)
{
    Project project(module, file, Project::Open::Edit, waitMilliseconds);
    const std::string done = ApplyEdit(project, edit);
    project.Save();
    std::printf("%s\n", done.c_str());
}

void CommandApply(const ModuleHost& module, const std::string& file, const std::vector<std::pair<int, Edit>>& edits,
                  const std::string& scriptName, int waitMilliseconds)
{
    Project project(module, file, Project::Open::Edit, waitMilliseconds);
    for (const auto& [line, edit] : edits) {
        try {
            ApplyEdit(project, edit);
        } catch (const ToolError& e) {
            throw ToolError(scriptName + ", line " + std::to_string(line) + ": " + e.what() +
                            " (no edit was saved)");
        }
    }
    project.Save();
    std::printf("applied %zu edits to %s (%d keys)\n", edits.size(), file.c_str(), project.KeyCount());
}

int CommandCheck(const ModuleHost& module, const std::string& file)
{
    const std::vector<std::string> problems = Project::Check(module, file);
    for (const std::string& problem : problems)
        std::printf("%s\n", problem.c_str());
    if (problems.empty())
        std::printf("%s: no problems found\n", file.c_str());
    return problems.empty() ? 0 : 1;
}

void CommandList(const ModuleHost& module, const std::string& file, int rate, SampleFormat format)
{
    Project project(module, file, Project::Open::Read);
    const TrackKeys keys = project.Keys();
    std::vector<std::string> header = Header({"index", "time", "frame"});
    if (format == SampleFormat::Table)
        header.push_back("kind");
    else
        for (const Property& property : kProperties)
            header.push_back(std::string(property.option) + "-kind");
    Table table(stdout, header);
    std::string text = format == SampleFormat::Csv ? Join(header, ",") + "\n" : "[";
    for (int i = 0, count = project.KeyCount(); i < count; ++i) {
        const KeyFrameParam key = project.Key(i);
        int frame = 0;
        project.Track().CaculateKeyFrameIndex(i, rate, frame);
        std::vector<std::string> row = {std::to_string(i), Number(key.dPosition), std::to_string(frame)};
        for (std::string& value : Values(key))
            row.push_back(std::move(value));
        std::vector<std::string> kinds;
        for (int p = 0; p < 6; ++p)
            kinds.push_back(kKindNames[keys[p][i].kind]);
        if (format == SampleFormat::Table) {
            row.push_back(CompactKinds(kinds));
            table.Add(std::move(row));
            continue;
        }
        row.insert(row.end(), kinds.begin(), kinds.end());
        if (format == SampleFormat::Csv) {
            text += Join(row, ",") + "\n";
            continue;
        }
        text += std::string(i == 0 ? "\n" : ",\n") + "  {";
        for (size_t c = 0; c < row.size(); ++c) {
            const bool quoted = c >= header.size() - 6;  // the kinds
            text += (c == 0 ? "\"" : ",\"") + header[c] + "\":" + (quoted ? "\"" + row[c] + "\"" : row[c]);
        }
        text += "}";
    }
    if (format == SampleFormat::Table) {
        table.Finish();
        return;
    }
    if (format == SampleFormat::Json)
        text += project.KeyCount() > 0 ? "\n]\n" : "]\n";
    Write(stdout, text);
}

void CommandExport(const ModuleHost& module, const std::string& file, ExportFormat format, double rate)
{
    Project project(module, file, Project::Open::Read);
    const TrackKeys keys = project.Keys();
    switch (format) {
    case ExportFormat::Csv:
        return Write(stdout, WriteKeysCsv(keys));
    case ExportFormat::Json:
        return Write(stdout, WriteKeysJson(keys));
    case ExportFormat::Css:
        return Write(stdout, WriteWebExport(keys, WebFormat::Css, rate, file));
    case ExportFormat::Waapi:
        return Write(stdout, WriteWebExport(keys, WebFormat::Waapi, rate, file));
    case ExportFormat::Lottie:
        return Write(stdout, WriteWebExport(keys, WebFormat::Lottie, rate, file));
    }
}

void CommandImport(const ModuleHost& module, const std::string& file, const std::string& data, int waitMilliseconds)
{
    const std::string source = data == "-" ? "standard input" : data;
    std::string text;
    if (data == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
        std::ifstream in(data, std::ios::binary);
        if (!in)
            throw ToolError(data + ": " + std::strerror(errno));
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const TrackKeys keys = ReadKeys(text, source);
    Project project(module, file, Project::Open::Edit, waitMilliseconds);
    project.EditCurves([&](const Project::Curves& curves) {
        for (int p = 0; p < 6; ++p) {
            core::ValAny low, high;
            curves[p]->GetValueRange(low, high);
            std::string nodes;
            for (const KeyRecord& key : keys[p])
                nodes += (nodes.empty() ? "[" : ",[") + Number(key.time) + "," + Number(key.value) + "," +
                         std::to_string(key.kind) + "," + Number(key.left) + "," + Number(key.right) + "]";
            const std::string curve = "{\"MaxValue\":" + Number(high.Get<double>()) + ",\"MinValue\":" +
                                      Number(low.Get<double>()) + ",\"ParamType\":0,\"nodes\":" +
                                      (nodes.empty() ? "null" : "[" + nodes + "]") + "}\n";
            curves[p]->Clear();
            curves[p]->Desialize(curve.c_str());
        }
    });
    project.Save();
    std::printf("imported %zu keys into %s from %s\n", keys[0].size(), file.c_str(), source.c_str());
}

void CommandSample(const ModuleHost& module, const std::string& file, int rate, std::optional<double> from,
                   std::optional<double> to, SampleFormat format)
{
    Project project(module, file, Project::Open::Read);
    IQMXKeyFrame& track = project.Track();
    const int count = project.KeyCount();
    if (count == 0 && (!from || !to))
        throw ToolError(file + " has no keys: give --from and --to to sample it");
    const double first = from ? *from : project.Key(0).dPosition;
    const double last = to ? *to : project.Key(count - 1).dPosition;
    const long long begin = FrameAtOrAfter(first, rate), end = FrameAtOrBefore(last, rate);
    if (begin < INT_MIN || end > INT_MAX)
        throw ToolError("the frames to sample lie outside the frame number range");

    const std::vector<std::string> header = Header({"frame", "time"});
    Table table(stdout, header);
    std::string text;
    if (format == SampleFormat::Csv) {
        for (const std::string& name : header)
            text += (text.empty() ? "" : ",") + name;
        text += '\n';
    } else if (format == SampleFormat::Json) {
        text = "[";
    }
    for (long long frame = begin; frame <= end; ++frame) {
        double time = 0.0;
        track.CaculateKeyFramePosition(static_cast<int>(frame), rate, time);
        KeyFrameParam key = kNeutral;
        track.GetKeyFrame(time, key);
        // Tables are read by people; CSV and JSON keep every digit.
        const std::vector<std::string> values = Values(key, format == SampleFormat::Table ? Rounded : Number);
        if (format == SampleFormat::Table) {
            std::vector<std::string> row = {std::to_string(frame), Number(time)};
            row.insert(row.end(), values.begin(), values.end());
            table.Add(std::move(row));
            continue;
        }
        if (format == SampleFormat::Csv) {
            text += std::to_string(frame) + ',' + Number(time);
            for (const std::string& value : values)
                text += ',' + value;
            text += '\n';
        } else {
            text += frame == begin ? "\n" : ",\n";
            text += "  {\"frame\":" + std::to_string(frame) + ",\"time\":" + Number(time);
            for (size_t i = 0; i < values.size(); ++i)
                text += ",\"" + header[i + 2] + "\":" + values[i];
            text += '}';
        }
        if (text.size() > (1u << 16)) {
            Write(stdout, text);
            text.clear();
        }
    }
    if (format == SampleFormat::Table) {
        table.Finish();
        return;
    }
    if (format == SampleFormat::Json)
        text += begin <= end ? "\n]\n" : "]\n";
    Write(stdout, text);
}

}  // namespace qmxkf
