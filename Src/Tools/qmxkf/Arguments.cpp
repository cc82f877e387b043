#include "Arguments.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>

#include "Properties.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// The value of a plain decimal number, or nothing. from_chars reads no
// blanks, no hex (in this format) and no leading '+', which is allowed here.
std::optional<double> PlainNumber(const std::string& text)
{
    const size_t start = !text.empty() && text[0] == '+' ? 1 : 0;
    if (text.size() == start || text.find_first_not_of("0123456789.eE+-", start) != std::string::npos)
        return std::nullopt;  // also refuses "inf" and "nan"
    double value = 0.0;
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data() + start, end, value);
    if (read.ec != std::errc() || read.ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<int> PlainInteger(const std::string& text)
{
    if (text.empty() || text.find_first_not_of("0123456789-") != std::string::npos)
        return std::nullopt;
    int value = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, value);
    if (read.ec != std::errc() || read.ptr != end)
        return std::nullopt;
    return value;
}

std::string Refusal(const std::string& text, const char* what)
{
    if (text.find_first_not_of(" \t\n") == std::string::npos)
        return "an empty argument is not " + std::string(what);
    return Quoted(text) + " is not " + what;
}

const CLI::Validator kNumber(
    [](std::string& text) { return PlainNumber(text) ? std::string() : Refusal(text, "a plain decimal number"); },
    "");
const CLI::Validator kInteger(
    [](std::string& text) { return PlainInteger(text) ? std::string() : Refusal(text, "a whole decimal number"); },
    "");

// Reads "KIND" (every property) or "PROPERTY=KIND" into `kinds`; the
// refusal in words otherwise.
std::string ReadKind(const std::string& text, KindOptions& kinds)
{
    const size_t equals = text.find('=');
    const std::string name = equals == std::string::npos ? text : text.substr(equals + 1);
    int property = -1;
    if (equals != std::string::npos) {
        const std::string given = text.substr(0, equals);
        for (int p = 0; p < 6; ++p)
            if (given == kProperties[p].option)
                property = p;
        if (property < 0)
            return Quoted(given) + " is no property (angle, x, y, opacity, scale-x, scale-y)";
    }
    for (int kind = 0; kind < int(std::size(kKindNames)); ++kind) {
        if (name != kKindNames[kind])
            continue;
        if (kind >= kAutomaticKindCount)
            return "kind " + name + " keeps tangents as a file gives them; the tool sets only the kinds whose "
                                    "tangents the module computes";
        for (int p = 0; p < 6; ++p)
            if (property < 0 || p == property)
                kinds[p] = kind;
        return "";
    }
    return Quoted(name) + " is no kind (constant, linear, smooth-clamped, smooth, spline, flat)";
}

}  // namespace

CLI::Option* AddNumber(CLI::App* command, const std::string& name, std::optional<double>& target,
                       const std::string& help)
{
    return command
        ->add_option_function<std::string>(
            name, [&target](const std::string& text) { target = PlainNumber(text); }, help)
        ->check(kNumber)
        ->type_name("NUMBER");
}

CLI::Option* AddInteger(CLI::App* command, const std::string& name, int& target, const std::string& help)
{
    return command
        ->add_option_function<std::string>(
            name, [&target](const std::string& text) { target = PlainInteger(text).value(); }, help)
        ->check(kInteger)
        ->type_name("INTEGER");
}

CLI::Option* AddFile(CLI::App* command, std::string& file)
{
    return command->add_option("FILE", file, "project file (a property bag)")
        ->required()
        ->check(CLI::Validator(
            [](std::string& text) { return text.empty() ? std::string("the file name is empty") : std::string(); },
            ""))
        ->type_name("FILE");
}

void AddEditCommands(CLI::App& app, Edit& edit, std::string* file, const std::function<void()>& chosen)
{
    const auto command = [&](const char* name, Edit::Verb verb, const char* help) {
        CLI::App* cmd = app.add_subcommand(name, help);
        if (file != nullptr)
            AddFile(cmd, *file);
        cmd->callback([&edit, verb, chosen] {
            edit.verb = verb;
            chosen();
        });
        return cmd;
    };
    const auto values = [&](CLI::App* cmd) {
        for (int p = 0; p < 6; ++p)
            AddNumber(cmd, std::string("--") + kProperties[p].option, edit.values.values[p], kProperties[p].title);
    };
    const auto kinds = [&](CLI::App* cmd) {
        cmd->add_option_function<std::vector<std::string>>(
               "--kind",
               [&edit](const std::vector<std::string>& texts) {
                   for (const std::string& text : texts)
                       ReadKind(text, edit.kinds);
               },
               "the key's kind on every property (KIND) or on one (PROPERTY=KIND); repeatable. Kinds: constant, "
               "linear, smooth-clamped, smooth, spline, flat")
            ->check(CLI::Validator(
                [](std::string& text) {
                    KindOptions ignored;
                    return ReadKind(text, ignored);
                },
                ""))
            ->type_name("[PROPERTY=]KIND");
    };
    const auto index = [&](CLI::App* cmd) {
        AddInteger(cmd, "INDEX", edit.index, "key index, from 0 in time order")->required();
    };
    const char* replace = "replace a key already at the new time (otherwise refused)";

    CLI::App* cmd = command("add", Edit::Verb::Add,
                            "add a key (or replace the key at that time); values not given are sampled from the "
                            "track (or neutral)");
    AddNumber(cmd, "--at", edit.at, "key time in seconds")->required();
    values(cmd);
    kinds(cmd);

    cmd = command("set", Edit::Verb::Set, "change a key's values (and, with --at, its time)");
    index(cmd);
    AddNumber(cmd, "--at", edit.at, "new key time in seconds");
    values(cmd);
    kinds(cmd);
    cmd->add_flag("--replace", edit.replace, replace);

    cmd = command("move", Edit::Verb::Move, "move a key to another time");
    index(cmd);
    AddNumber(cmd, "--to", edit.at, "new key time in seconds")->required();
    cmd->add_flag("--replace", edit.replace, replace);

    cmd = command("delete", Edit::Verb::Delete, "delete a key");
    index(cmd);

    command("clear", Edit::Verb::Clear, "delete every key");
}

std::vector<std::pair<int, Edit>> ReadEditScript(const std::string& script)
{
    std::ifstream file;
    if (script != "-") {
        file.open(script);
        if (!file)
            throw ToolError(script + ": " + std::strerror(errno));
    }
    std::istream& in = script == "-" ? std::cin : file;
    const std::string name = script == "-" ? "standard input" : script;

    Edit edit;
    CLI::App parser("an edit line", "");
    parser.require_subcommand(1, 1);
    AddEditCommands(parser, edit, nullptr, [] {});
    std::vector<std::pair<int, Edit>> edits;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r')  // a script saved with DOS line ends
            line.pop_back();
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        edit = Edit();
        parser.clear();
        try {
            parser.parse(line, false);
        } catch (const CLI::Error& e) {
            throw ToolError(name + ", line " + std::to_string(number) + ": " +
                            (e.get_name() == "CallForHelp" ? "help is not an edit" : e.what()));
        }
        edits.emplace_back(number, edit);
    }
    if (in.bad())
        throw ToolError(name + ": " + std::strerror(errno));
    return edits;
}

}  // namespace qmxkf
