// Replays fuzz inputs without libFuzzer: every file named on the command line,
// or found directly under a folder named there, goes once through the target's
// LLVMFuzzerTestOneInput. Built with each target into a ctest program, so that
// every build (gcc, plain and sanitized) replays the corpora and regressions.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    const auto run = [&replayed](const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        std::printf("replaying %s\n", file.c_str());
        std::fflush(stdout);  // a failing input is the last one named
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        ++replayed;
    };
    for (int a = 1; a < argc; ++a) {
        const std::filesystem::path given(argv[a]);
        if (std::filesystem::is_directory(given)) {
            for (const auto& entry : std::filesystem::directory_iterator(given))
                if (entry.is_regular_file())
                    run(entry.path());
        } else if (std::filesystem::is_regular_file(given)) {
            run(given);
        } else {
            std::fprintf(stderr, "no such input: %s\n", argv[a]);
            return 1;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
