// Translation of a drive name to its POSIX path, beside a baseline measured in the same
// run: the plain std::string concatenation of the drive's directory and the rest of the
// name that any translation must at least do.
#include "lumplatform/drives.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace {

const char* const kDirectory = "/srv/lumora/c";

// A name `depth` components deep below the drive: "dir0\dir1\...\file.dwg".
std::u16string driveName(int depth) {
    std::u16string name = u"C:";
    for (int i = 0; i < depth; ++i) name += u"\\dir" + std::u16string(1, char16_t(u'0' + i % 10));
    return name + u"\\file.dwg";
}

void BM_PosixPathOf(benchmark::State& state) {
    setenv("LUMRX_DRIVES", (std::string("C=") + kDirectory).c_str(), 1);
    std::u16string name = driveName(int(state.range(0)));
    std::u16string path;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lumplatform::posixPathOf(name, path));
        benchmark::DoNotOptimize(path.data());
    }
}
BENCHMARK(BM_PosixPathOf)->Arg(1)->Arg(8)->Arg(32);

void BM_PosixPathOf_Baseline_Concat(benchmark::State& state) {
    std::string directory = kDirectory;
    std::u16string name = driveName(int(state.range(0)));
    std::string rest(name.begin() + 2, name.end());  // the same length, slashes aside
    for (auto _ : state) {
        std::string path = directory + rest;
        benchmark::DoNotOptimize(path.data());
    }
}
BENCHMARK(BM_PosixPathOf_Baseline_Concat)->Arg(1)->Arg(8)->Arg(32);

}  // namespace

BENCHMARK_MAIN();
