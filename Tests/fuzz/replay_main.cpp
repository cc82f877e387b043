// Replays fuzz inputs without libFuzzer: every file named on the command line,
// and every file in a folder named there, goes once through the target's
// LLVMFuzzerTestOneInput. Built with each target into a ctest program, so that
// every build (gcc, plain and sanitized) replays the corpora and regressions.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files;
    for (int a = 1; a < argc; ++a) {
        if (std::filesystem::is_directory(argv[a]))
            for (const auto& entry : std::filesystem::directory_iterator(argv[a]))
                files.push_back(entry.path());
        else
            files.push_back(argv[a]);
    }
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        const std::string input{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        std::printf("replaying %s\n", file.c_str());
        std::fflush(stdout);  // a failing input is the last one named
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
