// The registry store on its hot paths, each given at the end as a ratio to a bare
// stat of the hive file measured in the same run: the change-counter poll when
// nothing changed, a key open with a value read among 1 000 application keys, and a
// full enumeration of those 1 000 keys.
#include "lumplatform/registry.h"

#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace lumplatform;
namespace fs = std::filesystem;

namespace {

constexpr int kKeys = 1000;
const char16_t* const kParent = u"\\Lumora\\Applications";

std::u16string appPath(int i) {
    std::u16string path = std::u16string(kParent) + u"\\App";
    for (char c : std::to_string(10000 + i).substr(1)) path.push_back(char16_t(c));
    return path;
}

// A user hive in a folder of its own with 1 000 application keys, each with a
// LOADER value, written in one batch.
struct Hive {
    fs::path folder = fs::temp_directory_path() / ("lumrx-registry-bench-" + std::to_string(std::random_device{}()));
    fs::path file = folder / "user.db";

    Hive() {
        fs::create_directories(folder);
        setenv("LUMRX_REGISTRY_USER", file.c_str(), 1);
        RegistryBatch batch;
        RegistryKey key;
        bool ok = batch.begin(RegistryHive::user) == kRegistryOk;
        std::u16string loader = u"C:\\Program Files\\Lumora\\Applications\\module.krx";
        for (int i = 0; ok && i < kKeys; ++i) {
            ok = key.create(RegistryHive::user, appPath(i).c_str()) == kRegistryOk &&
                 key.writeValue(u"LOADER", kRegistryString, loader.c_str(), uint32_t(loader.size() + 1) * 2) == kRegistryOk;
        }
        if (!ok || batch.commit() != kRegistryOk) {
            std::fprintf(stderr, "registrystore_bench: can't fill the hive %s\n", file.c_str());
            std::exit(1);
        }
    }
    ~Hive() { fs::remove_all(folder); }
};

Hive* gHive = nullptr;

void BM_Baseline_StatOfHiveFile(benchmark::State& state) {
    std::error_code error;
    for (auto _ : state) benchmark::DoNotOptimize(fs::status(gHive->file, error));
}
BENCHMARK(BM_Baseline_StatOfHiveFile);

void BM_ChangeCounterPoll_NoChange(benchmark::State& state) {
    uint64_t counter = 0;
    for (auto _ : state) {
        if (registryChangeCounter(RegistryHive::user, counter) != kRegistryOk) state.SkipWithError("poll failed");
        benchmark::DoNotOptimize(counter);
    }
}
BENCHMARK(BM_ChangeCounterPoll_NoChange);

void BM_OpenKeyAndReadValue_Among1000(benchmark::State& state) {
    std::vector<std::u16string> paths;
    for (int i = 0; i < kKeys; ++i) paths.push_back(appPath((i * 7919) % kKeys));
    char buffer[520];
    size_t next = 0;
    for (auto _ : state) {
        RegistryKey key;
        uint32_t size = sizeof buffer;
        if (key.open(RegistryHive::user, paths[next].c_str(), RegistryAccess::read) != kRegistryOk ||
            key.readValue(u"loader", nullptr, buffer, &size) != kRegistryOk)
            state.SkipWithError("read failed");
        next = (next + 1) % paths.size();
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_OpenKeyAndReadValue_Among1000);

void BM_EnumerateSubKeys_1000(benchmark::State& state) {
    for (auto _ : state) {
        RegistryKey key;
        RegistryKeyInfo info;
        if (key.open(RegistryHive::user, kParent, RegistryAccess::read) != kRegistryOk || key.info(info) != kRegistryOk)
            state.SkipWithError("open failed");
        std::vector<char16_t> name(info.longestSubKeyName + 1);
        uint32_t count = 0;
        for (uint32_t length = uint32_t(name.size()); key.subKeyAt(count, name.data(), &length) == kRegistryOk;
             length = uint32_t(name.size()))
            ++count;
        if (count != kKeys) state.SkipWithError("enumeration incomplete");
    }
}
BENCHMARK(BM_EnumerateSubKeys_1000);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Hive hive;
    gHive = &hive;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const std::string baseline = "BM_Baseline_StatOfHiveFile";
    std::printf("\nRatios to the baseline (same run):\n");
    for (const auto& entry : reporter.times)
        if (entry.first != baseline) reporter.printRatio(entry.first, baseline);
    benchmark::Shutdown();
    return 0;
}
