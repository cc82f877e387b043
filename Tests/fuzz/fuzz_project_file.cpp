// The input as a project file, through the command-line host's own project
// code. A file that the tool refuses stays byte for byte as it was (that every
// edit refuses it too is the tool tests'). A file that it loads takes a few
// edits chosen by the input: each is applied or refused with the track
// unchanged, never stopping the program; then the save is refused with the
// file unchanged, or the file loads again, its six curves in lockstep, to
// exactly the keys that were saved.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>

#include "Edits.h"
#include "Project.h"
#include "ToolError.h"
#include "fuzz_common.h"

namespace {

std::string g_path;  // the scratch project file, on a memory file system when there is one

std::string Contents()
{
    std::ifstream in(g_path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// This program links the module's objects and exports them.
const qmxkf::ModuleHost& Module()
{
    static const qmxkf::ModuleHost module(dlopen(nullptr, RTLD_NOW), "the module linked in");
    return module;
}

// An edit of the kinds that reach the edge cases: indexes just outside the
// track, times on, between and far from its keys, values near the limits,
// a key's kind changed on some properties.
qmxkf::Edit RandomEdit(std::mt19937_64& random, qmxkf::Project& project)
{
    const auto pick = [&](int n) { return static_cast<int>(random() % unsigned(n)); };
    const int count = project.KeyCount();
    const auto time = [&] {
        const double extremes[] = {0.0, 1e-6, 4e-324, 1e308, -1e308, 1.7e308};
        if (count == 0 || pick(3) == 0)
            return extremes[pick(6)];
        const double t = project.Key(pick(count)).dPosition;
        return pick(2) == 0 ? t : t + (pick(2) == 0 ? 0.5 : 1e-9);
    };
    qmxkf::Edit edit;
    edit.verb = static_cast<qmxkf::Edit::Verb>(pick(5));
    edit.index = pick(count + 2) - 1;
    edit.replace = pick(2) == 0;
    if (edit.verb != qmxkf::Edit::Verb::Set || pick(2) == 0)
        edit.at = time();
    const double values[] = {0.0, 1.0, -1.0, 0.5, 1e305, -1e305, 1e308, -1e308};
    for (auto& value : edit.values.values)
        if (pick(3) == 0)
            value = values[pick(8)];
    for (auto& kind : edit.kinds)
        if (pick(4) == 0)
            kind = pick(qmxkf::kAutomaticKindCount);
    return edit;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    const char* tmp = std::getenv("TMPDIR");
    const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : tmp != nullptr ? tmp : "/tmp";
    g_path = std::string(dir) + "/qmx-fuzz-" + std::to_string(::getpid()) + ".qmxbag";
    std::atexit([] { ::unlink(g_path.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using qmxkf::Project;
    const std::string input(reinterpret_cast<const char*>(data), size);
    ::unlink(g_path.c_str());
    std::ofstream(g_path, std::ios::binary) << input;
    const bool loads = Project::Check(Module(), g_path).empty();
    FUZZ_CHECK(Contents() == input);
    if (!loads)
        return 0;

    std::string saved;
    {
        Project project(Module(), g_path, Project::Open::Edit, 0);
        std::mt19937_64 random(std::hash<std::string>()(input));
        for (int step = 0; step < 4; ++step) {
            const qmxkf::Edit edit = RandomEdit(random, project);
            const std::string before = fuzz::Keys(&project.Track());
            try {
                qmxkf::ApplyEdit(project, edit);
            } catch (const qmxkf::ToolError&) {
                FUZZ_CHECK(fuzz::Keys(&project.Track()) == before);
            }
        }
        saved = fuzz::Keys(&project.Track());
        try {
            project.Save();
        } catch (const qmxkf::ToolError&) {
            FUZZ_CHECK(Contents() == input);
            return 0;
        }
    }
    FUZZ_CHECK(Project::Check(Module(), g_path).empty());
    Project reopened(Module(), g_path, Project::Open::Read);
    FUZZ_CHECK(fuzz::Keys(&reopened.Track()) == saved);
    return 0;
}
