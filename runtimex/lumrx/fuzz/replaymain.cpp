// Runs a fuzz target's entry point over files and folders named on the command line,
// without libFuzzer: the committed corpus of every target replays as an ordinary test
// in the plain and the sanitizer builds, so a fixed finding stays fixed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replayFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
    }
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int failures = 0, inputs = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path arg(argv[i]);
        if (!std::filesystem::is_directory(arg)) {
            failures += replayFile(arg);
            ++inputs;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(arg))
            if (entry.is_regular_file()) {
                failures += replayFile(entry.path());
                ++inputs;
            }
    }
    std::printf("%d inputs replayed\n", inputs);
    // An empty corpus is a missing corpus: the test must not pass on nothing.
    return failures || inputs == 0 ? 1 : 0;
}
