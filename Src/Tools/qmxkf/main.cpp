// qmxkf: animate, inspect and sample keyframe tracks from the command line,
// through the keyframe module loaded as a host engine loads it.
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Demo.h"
#include "ModuleHost.h"
#include "Plot.h"
#include "Project.h"
#include "QMXRuntime.h"
#include "ToolError.h"
#include "Validate.h"
#include "qmx_version.h"

namespace {

using namespace qmxkf;

CLI::Option* AddRate(CLI::App* command, int& rate)
{
    return AddInteger(command, "--rate", rate, "frames per second")->check(CLI::Range(1, 1000000));
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
    app.set_version_flag("--version", std::string("qmxkf ") + QMX_VERSION + " (host runtime " + QMXRuntimeVersion() + ")",
                         "print the tool's and the host runtime's versions and exit");
    std::string modulePath;
    app.add_option("--module", modulePath,
                   "the keyframe module to load (default: libQMXKeyFrame.so from the folders of "
                   "QMX_MODULE_PATH, else the plug-in folder, else beside the host runtime)");
    std::optional<double> waitSeconds;
    AddNumber(&app, "--wait", waitSeconds, "seconds an edit waits for another edit of the same file (default 10)")
        ->check(CLI::Range(0.0, 86400.0));

    std::string file, script = "-";
    int rate = 30;
    std::optional<double> from, until;
    Edit edit;
    std::string format = "table", out, size = "1200x900", validated, demoDir = "demo-out";
    // The chosen command; most need the module loaded first.
    std::function<int(const ModuleHost&)> run;
    std::function<int()> runAlone;
    const auto wait = [&] {
        return waitSeconds ? static_cast<int>(std::lround(*waitSeconds * 1000)) : Project::kDefaultWaitMilliseconds;
    };

    CLI::App* cmd = app.add_subcommand("new", "create an empty project file");
    AddFile(cmd, file);
    cmd->callback([&] { run = [&](const ModuleHost& m) { return CommandNew(m, file), 0; }; });

    AddEditCommands(app, edit, &file, [&] {
        run = [&](const ModuleHost& m) { return CommandEdit(m, file, edit, wait()), 0; };
    });

    cmd = app.add_subcommand("apply", "apply a script of edit lines (add, set, move, delete, clear; no file) "
                                      "in one save, or none of them");
    AddFile(cmd, file);
    cmd->add_option("SCRIPT", script, "the script, or - for standard input")->capture_default_str();
    cmd->callback([&] {
        run = [&](const ModuleHost& m) {
            const auto edits = ReadEditScript(script);
            return CommandApply(m, file, edits, script == "-" ? "standard input" : script, wait()), 0;
        };
    });

    cmd = app.add_subcommand("check", "report everything that keeps a project file from loading");
    AddFile(cmd, file);
    cmd->callback([&] { run = [&](const ModuleHost& m) { return CommandCheck(m, file); }; });

    const std::map<std::string, SampleFormat> formats = {
        {"table", SampleFormat::Table}, {"csv", SampleFormat::Csv}, {"json", SampleFormat::Json}};
    cmd = app.add_subcommand("list", "print the keys: index, time, frame, the six values and their kinds");
    AddFile(cmd, file);
    AddRate(cmd, rate)->capture_default_str();
    cmd->add_option("--format", format, "table, csv or json")->check(CLI::IsMember({"table", "csv", "json"}))
        ->capture_default_str();
    cmd->callback([&] {
        run = [&](const ModuleHost& m) { return CommandList(m, file, rate, formats.at(format)), 0; };
    });

    const std::map<std::string, ExportFormat> exportFormats = {
        {"csv", ExportFormat::Csv}, {"json", ExportFormat::Json}, {"css", ExportFormat::Css},
        {"waapi", ExportFormat::Waapi}, {"lottie", ExportFormat::Lottie}};
    std::string exportFormat;
    std::optional<double> exportRate;
    cmd = app.add_subcommand("export", "write every property's keys (csv, json: time, value, kind, tangents), or the "
                                       "track as a web animation (css, waapi: Web Animations JSON, lottie)");
    AddFile(cmd, file);
    cmd->add_option("--format", exportFormat, "csv, json, css, waapi or lottie")
        ->required()
        ->check(CLI::IsMember({"csv", "json", "css", "waapi", "lottie"}));
    AddNumber(cmd, "--rate", exportRate, "frames per second of a lottie export (default 30)")
        ->check(CLI::Range(1e-3, 1e6));
    cmd->callback([&] {
        run = [&](const ModuleHost& m) {
            return CommandExport(m, file, exportFormats.at(exportFormat), exportRate.value_or(30.0)), 0;
        };
    });

    std::string data;
    cmd = app.add_subcommand("import", "replace the keys by those of a csv or json file written by export, in one "
                                       "save");
    AddFile(cmd, file);
    cmd->add_option("DATA", data, "the keys, or - for standard input")->required();
    cmd->callback([&] { run = [&](const ModuleHost& m) { return CommandImport(m, file, data, wait()), 0; }; });

    cmd = app.add_subcommand("sample", "print every frame's six values");
    AddFile(cmd, file);
    AddRate(cmd, rate)->required();
    AddNumber(cmd, "--from", from, "first time in seconds (default: the first key)");
    AddNumber(cmd, "--to", until, "last time in seconds (default: the last key)");
    cmd->add_option("--format", format, "table, csv or json")->check(CLI::IsMember({"table", "csv", "json"}))
        ->capture_default_str();
    cmd->callback([&] {
        run = [&](const ModuleHost& m) { return CommandSample(m, file, rate, from, until, formats.at(format)), 0; };
    });

    cmd = app.add_subcommand("plot", "draw the six curves, one panel each, with their keys");
    AddFile(cmd, file);
    AddPicture(cmd, out, size);
    AddRate(cmd, rate)->capture_default_str();
    cmd->callback([&] {
        run = [&](const ModuleHost& m) { return CommandPlot(m, file, out, ParseSize(size), rate), 0; };
    });

    cmd = app.add_subcommand("kinds", "draw one set of keys under each interpolation kind");
    AddPicture(cmd, out, size);
    cmd->callback([&] { run = [&](const ModuleHost& m) { return CommandKinds(m, out, ParseSize(size)), 0; }; });

    cmd = app.add_subcommand("validate", "check a build of the module against the host contract");
    cmd->add_option("MODULE", validated, "the module to check (default: --module)");
    cmd->callback([&] {
        runAlone = [&] { return CommandValidate(validated.empty() ? modulePath : validated) == 0 ? 0 : 1; };
    });

    cmd = app.add_subcommand("demo", "animate a title card; save, print and draw it");
    cmd->add_option("--out", demoDir, "directory for the project and the pictures")->capture_default_str();
    cmd->callback([&] { run = [&](const ModuleHost& m) { return CommandDemo(m, demoDir), 0; }; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "qmxkf: %s (see qmxkf --help)\n", e.what());
        return 2;
    }
    int status = 1;
    try {
        if (runAlone) {
            status = runAlone();
        } else {
            const ModuleHost module(modulePath);
            status = run(module);
        }
    } catch (const std::exception& e) {  // ToolError, and anything else the tool did not foresee
        std::fflush(stdout);
        std::fprintf(stderr, "qmxkf: %s\n", e.what());
        return 1;
    }
    // What was printed must have reached its file: a full disk is a failure.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fprintf(stderr, "qmxkf: cannot write the output: %s\n", std::strerror(errno));
        return 1;
    }
    return status;
}
