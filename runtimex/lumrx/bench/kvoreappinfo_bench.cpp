// Application records over 1 000 records in a temporary hive: the read of one record
// and a full scan, each against the bare store reads it is made of (same run).
#include "kvoreappinfo.h"
#include "kvrxruntime.h"
#include "lumplatform/registry.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

constexpr int kRecords = 1000;
const std::u16string kApps = u"\\Applications\\";

std::u16string appName(int i) { return u"App" + std::u16string(std::to_string(i).begin(), std::to_string(i).end()); }

void setUp() {
    static bool done = false;
    if (done) return;
    done = true;
    char folder[] = "/tmp/lumrx-appbench-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    setenv("LUMRX_REGISTRY_USER", (std::string(folder) + "/user.db").c_str(), 1);
    setenv("LUMRX_REGISTRY_MACHINE", (std::string(folder) + "/machine.db").c_str(), 1);
    InitializeKvRxSystem();
    for (int i = 0; i < kRecords; ++i) {
        std::u16string name = appName(i), module = name + u".krx";
        KvoreAppInfo info;
        info.setAppName(name.c_str());
        info.setModuleName(module.c_str());
        info.setAppDesc(u"benchmark record");
        if (info.writeToRegistry() != 0) std::abort();
    }
}

// Baseline: open the record key and read its two values, no record object.
void BM_StoreReadOfOneRecord(benchmark::State& state) {
    setUp();
    std::u16string path = kApps + appName(kRecords / 2);
    for (auto _ : state) {
        lumplatform::RegistryKey key;
        uint32_t type = 0, reason = 0, size = 4;
        key.open(lumplatform::RegistryHive::machine, path.c_str(), lumplatform::RegistryAccess::read);
        key.readValue(u"LOADCTRLS", &type, &reason, &size);
        char16_t loader[260];
        size = sizeof loader;
        key.readValue(u"LOADER", &type, loader, &size);
        benchmark::DoNotOptimize(loader);
    }
}
BENCHMARK(BM_StoreReadOfOneRecord);

void BM_ReadFromRegistryOneOfThousand(benchmark::State& state) {
    setUp();
    std::u16string name = appName(kRecords / 2);
    KvoreAppInfo info;
    info.setAppName(name.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(info.readFromRegistry());
    if (info.status() != 0) state.SkipWithError("record not found");
}
BENCHMARK(BM_ReadFromRegistryOneOfThousand);

// Baseline of the scan: enumerate the record keys only.
void BM_StoreEnumerationOfThousand(benchmark::State& state) {
    setUp();
    for (auto _ : state) {
        lumplatform::RegistryKey parent;
        parent.open(lumplatform::RegistryHive::machine, kApps.c_str(), lumplatform::RegistryAccess::read);
        char16_t name[256];
        uint32_t length = 256;
        for (uint32_t i = 0; parent.subKeyAt(i, name, &length) == 0; ++i) length = 256;
        benchmark::DoNotOptimize(name);
    }
}
BENCHMARK(BM_StoreEnumerationOfThousand)->Unit(benchmark::kMillisecond);

void BM_FullScanOfThousandRecords(benchmark::State& state) {
    setUp();
    for (auto _ : state) {
        lumplatform::RegistryKey parent;
        parent.open(lumplatform::RegistryHive::machine, kApps.c_str(), lumplatform::RegistryAccess::read);
        char16_t name[256];
        uint32_t length = 256;
        int found = 0;
        for (uint32_t i = 0; parent.subKeyAt(i, name, &length) == 0; ++i, length = 256) {
            KvoreAppInfo info;
            info.setAppName(name);
            found += info.readFromRegistry() == 0;
        }
        if (found != kRecords) state.SkipWithError("records missing");
    }
}
BENCHMARK(BM_FullScanOfThousandRecords)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
