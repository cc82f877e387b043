#include "Commands.h"

#include <climits>
#include <cmath>
#include <cstdio>

#include "Output.h"
#include "Project.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

// Identity transform for the first key of an empty track.
constexpr KeyFrameParam kNeutral = {0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0};

// The six values in the order the tool shows them.
std::vector<std::string> Values(const KeyFrameParam& key, std::string (*text)(double) = Number)
{
    return {text(key.dAngle),   text(key.dPositionX), text(key.dPositionY),
            text(key.dOpacity), text(key.dScaleX),    text(key.dScaleY)};
}

const std::vector<std::string> kValueNames = {"angle", "x", "y", "opacity", "scale-x", "scale-y"};

std::vector<std::string> Header(std::vector<std::string> leading)
{
    leading.insert(leading.end(), kValueNames.begin(), kValueNames.end());
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

void RequireFinite(double value, const char* what)
{
    if (!std::isfinite(value))
        throw ToolError(std::string(what) + " must be a finite number");
}

}  // namespace

void ValueOptions::ApplyTo(KeyFrameParam& key) const
{
    const std::pair<const std::optional<double>&, double KeyFrameParam::*> fields[] = {
        {angle, &KeyFrameParam::dAngle},     {x, &KeyFrameParam::dPositionX},  {y, &KeyFrameParam::dPositionY},
        {opacity, &KeyFrameParam::dOpacity}, {scaleX, &KeyFrameParam::dScaleX}, {scaleY, &KeyFrameParam::dScaleY}};
    for (const auto& [value, field] : fields) {
        if (value) {
            RequireFinite(*value, "a value");
            key.*field = *value;
        }
    }
}

void CommandNew(const ModuleHost& module, const std::string& file)
{
    Project(module, file, Project::Open::New).Save();
    std::printf("created %s (no keys)\n", file.c_str());
}

void CommandAdd(const ModuleHost& module, const std::string& file, double at, const ValueOptions& values)
{
    RequireFinite(at, "--at");
    Project project(module, file, Project::Open::Existing);
    KeyFrameParam key = kNeutral;
    project.Track().GetKeyFrame(at, key);  // leaves the neutral values on an empty track
    key.dPosition = at;
    values.ApplyTo(key);
    int index = -1;
    project.Track().AddKeyFrame(key, index);
    project.Save();
    std::printf("added key %d at %s s\n", index, Number(at).c_str());
}

void CommandSet(const ModuleHost& module, const std::string& file, int index, std::optional<double> at,
                const ValueOptions& values)
{
    Project project(module, file, Project::Open::Existing);
    KeyFrameParam key = project.Key(index);
    if (at) {
        RequireFinite(*at, "--at");
        key.dPosition = *at;
    }
    values.ApplyTo(key);
    project.Track().SetKeyFrame(index, key);
    project.Save();
    std::printf("set key %d (now key %d at %s s)\n", index, project.Track().GetKeyFrameIndex(key.dPosition),
                Number(key.dPosition).c_str());
}

void CommandMove(const ModuleHost& module, const std::string& file, int index, double to)
{
    RequireFinite(to, "--to");
    Project project(module, file, Project::Open::Existing);
    project.Key(index);
    project.Track().ChangeKeyFramePosition(index, to);
    project.Save();
    std::printf("moved key %d to %s s (now key %d)\n", index, Number(to).c_str(),
                project.Track().GetKeyFrameIndex(to));
}

void CommandDelete(const ModuleHost& module, const std::string& file, int index)
{
    Project project(module, file, Project::Open::Existing);
    project.Key(index);
    project.Track().DeleteKeyFrame(index);
    project.Save();
    std::printf("deleted key %d (%d left)\n", index, project.KeyCount());
}

void CommandClear(const ModuleHost& module, const std::string& file)
{
    Project project(module, file, Project::Open::Existing);
    const int count = project.KeyCount();
    project.Track().CleanAllKeyFrame();
    project.Save();
    std::printf("cleared %d keys\n", count);
}

void CommandList(const ModuleHost& module, const std::string& file, int rate)
{
    Project project(module, file, Project::Open::Existing);
    Table table(Header({"index", "time", "frame"}));
    for (int i = 0, count = project.KeyCount(); i < count; ++i) {
        const KeyFrameParam key = project.Key(i);
        int frame = 0;
        project.Track().CaculateKeyFrameIndex(i, rate, frame);
        std::vector<std::string> row = {std::to_string(i), Number(key.dPosition), std::to_string(frame)};
        for (std::string& value : Values(key))
            row.push_back(std::move(value));
        table.Add(std::move(row));
    }
    table.Print(stdout);
}

void CommandSample(const ModuleHost& module, const std::string& file, int rate, std::optional<double> from,
                   std::optional<double> to, SampleFormat format)
{
    Project project(module, file, Project::Open::Existing);
    IQMXKeyFrame& track = project.Track();
    const int count = project.KeyCount();
    if (count == 0 && (!from || !to))
        throw ToolError(file + " has no keys: give --from and --to to sample it");
    const double first = from ? *from : project.Key(0).dPosition;
    const double last = to ? *to : project.Key(count - 1).dPosition;
    RequireFinite(first, "--from");
    RequireFinite(last, "--to");
    const long long begin = FrameAtOrAfter(first, rate), end = FrameAtOrBefore(last, rate);
    if (begin < INT_MIN || end > INT_MAX)
        throw ToolError("the frames to sample lie outside the frame number range");

    Table table(Header({"frame", "time"}));
    std::string text;
    if (format == SampleFormat::Csv)
        text = "frame,time,angle,x,y,opacity,scale-x,scale-y\n";
    else if (format == SampleFormat::Json)
        text = "[";
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
                text += ",\"" + kValueNames[i] + "\":" + values[i];
            text += '}';
        }
        if (text.size() > (1u << 16)) {
            std::fwrite(text.data(), 1, text.size(), stdout);
            text.clear();
        }
    }
    if (format == SampleFormat::Table) {
        table.Print(stdout);
        return;
    }
    if (format == SampleFormat::Json)
        text += begin <= end ? "\n]\n" : "]\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace qmxkf
