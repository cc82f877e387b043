// qmxkf: animate, inspect and sample keyframe tracks from the command line,
// through the keyframe module loaded as a host engine loads it.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "Commands.h"
#include "Demo.h"
#include "ModuleHost.h"
#include "Plot.h"
#include "ToolError.h"
#include "Validate.h"

namespace {

using namespace qmxkf;

void AddValueOptions(CLI::App* command, ValueOptions& values)
{
    command->add_option("--angle", values.angle, "rotation angle");
    command->add_option("--x", values.x, "position X");
    command->add_option("--y", values.y, "position Y");
    command->add_option("--opacity", values.opacity, "opacity (1 is opaque)");
    command->add_option("--scale-x", values.scaleX, "horizontal scale (1 is unscaled)");
    command->add_option("--scale-y", values.scaleY, "vertical scale (1 is unscaled)");
}

CLI::Option* AddFile(CLI::App* command, std::string& file)
{
    return command->add_option("FILE", file, "project file (a property bag)")->required();
}

CLI::Option* AddIndex(CLI::App* command, int& index)
{
    return command->add_option("INDEX", index, "key index, from 0 in time order")->required();
}

CLI::Option* AddRate(CLI::App* command, int& rate)
{
    return command->add_option("--rate", rate, "frames per second")->check(CLI::Range(1, 1000000));
}

// A picture's file (.svg or .png) and its size in pixels.
void AddPicture(CLI::App* command, std::string& out, std::string& size)
{
    command->add_option("-o,--output", out, "picture to write: .svg or .png")->required();
    command->add_option("--size", size, "picture size in pixels, WIDTHxHEIGHT")->capture_default_str();
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Animate, inspect and sample keyframe tracks through the keyframe module.", "qmxkf");
    app.require_subcommand(1);
    app.fallthrough();
    std::string modulePath = ModuleHost::DefaultPath();
    app.add_option("--module", modulePath, "the keyframe module to load")->capture_default_str();

    std::string file;
    int index = 0, rate = 30;
    double at = 0.0, to = 0.0;
    std::optional<double> maybeAt, from, until;
    ValueOptions values;
    std::string format = "table", out, size = "1200x900", validated, demoDir = "demo-out";
    // The chosen command; most need the module loaded first.
    std::function<void(const ModuleHost&)> run;
    std::function<int()> runAlone;

    CLI::App* cmd = app.add_subcommand("new", "create an empty project file");
    AddFile(cmd, file);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandNew(m, file); }; });

    cmd = app.add_subcommand("add", "add a key; values not given are sampled from the track (or neutral)");
    AddFile(cmd, file);
    cmd->add_option("--at", at, "key time in seconds")->required();
    AddValueOptions(cmd, values);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandAdd(m, file, at, values); }; });

    cmd = app.add_subcommand("set", "change a key's values (and, with --at, its time)");
    AddFile(cmd, file);
    AddIndex(cmd, index);
    cmd->add_option("--at", maybeAt, "new key time in seconds");
    AddValueOptions(cmd, values);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandSet(m, file, index, maybeAt, values); }; });

    cmd = app.add_subcommand("move", "move a key to another time");
    AddFile(cmd, file);
    AddIndex(cmd, index);
    cmd->add_option("--to", to, "new key time in seconds")->required();
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandMove(m, file, index, to); }; });

    cmd = app.add_subcommand("delete", "delete a key");
    AddFile(cmd, file);
    AddIndex(cmd, index);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandDelete(m, file, index); }; });

    cmd = app.add_subcommand("clear", "delete every key");
    AddFile(cmd, file);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandClear(m, file); }; });

    cmd = app.add_subcommand("list", "print the keys: index, time, frame and the six values");
    AddFile(cmd, file);
    AddRate(cmd, rate)->capture_default_str();
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandList(m, file, rate); }; });

    cmd = app.add_subcommand("sample", "print every frame's six values");
    AddFile(cmd, file);
    AddRate(cmd, rate)->required();
    cmd->add_option("--from", from, "first time in seconds (default: the first key)");
    cmd->add_option("--to", until, "last time in seconds (default: the last key)");
    const std::map<std::string, SampleFormat> formats = {
        {"table", SampleFormat::Table}, {"csv", SampleFormat::Csv}, {"json", SampleFormat::Json}};
    cmd->add_option("--format", format, "table, csv or json")->check(CLI::IsMember({"table", "csv", "json"}))
        ->capture_default_str();
    cmd->callback([&] {
        run = [&](const ModuleHost& m) { CommandSample(m, file, rate, from, until, formats.at(format)); };
    });

    cmd = app.add_subcommand("plot", "draw the six curves, one panel each, with their keys");
    AddFile(cmd, file);
    AddPicture(cmd, out, size);
    AddRate(cmd, rate)->capture_default_str();
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandPlot(m, file, out, ParseSize(size), rate); }; });

    cmd = app.add_subcommand("kinds", "draw one set of keys under each interpolation kind");
    AddPicture(cmd, out, size);
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandKinds(m, out, ParseSize(size)); }; });

    cmd = app.add_subcommand("validate", "check a build of the module against the host contract");
    cmd->add_option("MODULE", validated, "the module to check (default: --module)");
    cmd->callback([&] {
        runAlone = [&] { return CommandValidate(validated.empty() ? modulePath : validated) == 0 ? 0 : 1; };
    });

    cmd = app.add_subcommand("demo", "animate a title card; save, print and draw it");
    cmd->add_option("--out", demoDir, "directory for the project and the pictures")->capture_default_str();
    cmd->callback([&] { run = [&](const ModuleHost& m) { CommandDemo(m, demoDir); }; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "qmxkf: %s (see qmxkf --help)\n", e.what());
        return 2;
    }
    try {
        if (runAlone)
            return runAlone();
        const ModuleHost module(modulePath);
        run(module);
    } catch (const std::exception& e) {  // ToolError, and anything else the tool did not foresee
        std::fflush(stdout);
        std::fprintf(stderr, "qmxkf: %s\n", e.what());
        return 1;
    }
    return 0;
}
