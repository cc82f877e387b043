#include "Commands.h"

#include <climits>
#include <cmath>
#include <cstdio>

#include "Output.h"
#include "Project.h"
#include "Properties.h"
#include "ToolError.h"

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

void CommandList(const ModuleHost& module, const std::string& file, int rate)
{
    Project project(module, file, Project::Open::Read);
    Table table(stdout, Header({"index", "time", "frame"}));
    for (int i = 0, count = project.KeyCount(); i < count; ++i) {
        const KeyFrameParam key = project.Key(i);
        int frame = 0;
        project.Track().CaculateKeyFrameIndex(i, rate, frame);
        std::vector<std::string> row = {std::to_string(i), Number(key.dPosition), std::to_string(frame)};
        for (std::string& value : Values(key))
            row.push_back(std::move(value));
        table.Add(std::move(row));
    }
    table.Finish();
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
