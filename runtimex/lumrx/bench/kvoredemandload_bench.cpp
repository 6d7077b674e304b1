// Demand-load lists over 1 000 records in temporary hives, each figure given at the
// end as a ratio to baselines measured in the same run:
// - the look-up of a command with getRegisterKrxAppInfoList, plain and group-qualified,
//   against a std::unordered_map look-up (a linear scan of the names is shown too);
// - a poll that finds no change, against a stat of the hive file (one
//   registryChangeCounter is shown too).
#include "kvdbhostappservices.h"
#include "kvoreappinfo.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/registry.h"

#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <malloc.h>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

using namespace lumplatform;
namespace fs = std::filesystem;

namespace {

constexpr int kRecords = 1000;
const std::u16string kProduct = u"Software\\Lumora\\Bench";

std::u16string numbered(const char16_t* prefix, int i) {
    std::u16string text = prefix;
    for (char c : std::to_string(10000 + i).substr(1)) text.push_back(char16_t(c));
    return text;
}

// A host that finds no files and names the product key above.
class BenchHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t*, int, const char16_t*, void*, int) override { return -1; }
    void fatalError(const char16_t*) override { std::abort(); }
    void displayMessage(const char16_t*, int) override {}
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return kProduct.c_str(); }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return nullptr; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return -1; }
};

bool writeText(RegistryKey& key, const char16_t* name, const std::u16string& text) {
    return key.writeValue(name, kRegistryString, text.c_str(), uint32_t(text.size() + 1) * 2) == kRegistryOk;
}

// Both hives in a folder of their own: the machine hive with 1 000 records, each with
// one group and one command, written in one batch; the user hive with the records'
// parent key only, so that both hives are watched.
struct Hives {
    fs::path folder = fs::temp_directory_path() / ("lumrx-demandload-bench-" + std::to_string(std::random_device{}()));
    fs::path machine = folder / "machine.db";
    BenchHost host;

    Hives() {
        fs::create_directories(folder);
        setenv("LUMRX_REGISTRY_USER", (folder / "user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", machine.c_str(), 1);
        kvdbSetHostApplicationServices(&host);
        std::u16string apps = kProduct + u"\\Applications";
        RegistryBatch batch;
        RegistryKey key;
        bool ok = batch.begin(RegistryHive::machine) == kRegistryOk;
        for (int i = 0; ok && i < kRecords; ++i) {
            std::u16string record = apps + u"\\" + numbered(u"App", i);
            uint32_t reason = 4;
            ok = key.create(RegistryHive::machine, record.c_str()) == kRegistryOk &&
                 key.writeValue(u"LOADCTRLS", kRegistryNumber, &reason, 4) == kRegistryOk &&
                 writeText(key, u"LOADER", numbered(u"App", i) + u".krx") &&
                 key.create(RegistryHive::machine, (record + u"\\Groups").c_str()) == kRegistryOk &&
                 writeText(key, numbered(u"GROUP", i).c_str(), numbered(u"GROUP", i)) &&
                 key.create(RegistryHive::machine, (record + u"\\Commands").c_str()) == kRegistryOk &&
                 writeText(key, numbered(u"CMD", i).c_str(), numbered(u"_CMD", i));
        }
        ok = ok && batch.commit() == kRegistryOk && key.create(RegistryHive::user, apps.c_str()) == kRegistryOk;
        key.close();
        InitializeKvRxSystem();
        if (!ok || !initDemandLoadKrxList()) {
            std::fprintf(stderr, "kvoredemandload_bench: can't set up the hives in %s\n", folder.c_str());
            std::exit(1);
        }
    }
    ~Hives() {
        uninitDemandLoadKrxList();
        UninitializeKvRxSystem();
        kvdbSetHostApplicationServices(nullptr);
        fs::remove_all(folder);
    }
};

Hives* gHives = nullptr;

// The command names looked up, in a scattered order over all records.
std::vector<std::u16string> lookUps() {
    std::vector<std::u16string> names;
    for (int i = 0; i < kRecords; ++i) names.push_back(numbered(u"CMD", (i * 7919) % kRecords));
    return names;
}

// Every name is compared, as every record offering the command is wanted.
void BM_Baseline_LinearScanOfNames(benchmark::State& state) {
    std::vector<std::u16string> commands, wanted = lookUps();
    for (int i = kRecords - 1; i >= 0; --i) commands.push_back(numbered(u"CMD", i));  // the tree's order
    std::vector<const std::u16string*> found;
    size_t next = 0;
    for (auto _ : state) {
        found.clear();
        for (const std::u16string& command : commands)
            if (LumCharOp::compareNoCase(command.c_str(), wanted[next].c_str()) == 0) found.push_back(&command);
        if (found.size() != 1) state.SkipWithError("name missing");
        benchmark::DoNotOptimize(found.data());
        next = (next + 1) % wanted.size();
    }
}
BENCHMARK(BM_Baseline_LinearScanOfNames);

void BM_Baseline_HashMapLookUp(benchmark::State& state) {
    std::unordered_map<std::u16string, int> commands;
    std::vector<std::u16string> wanted = lookUps();
    for (int i = 0; i < kRecords; ++i) commands[numbered(u"CMD", i)] = i;
    size_t next = 0;
    for (auto _ : state) {
        auto found = commands.find(wanted[next]);
        if (found == commands.end()) state.SkipWithError("name missing");
        benchmark::DoNotOptimize(found);
        next = (next + 1) % wanted.size();
    }
}
BENCHMARK(BM_Baseline_HashMapLookUp);

// A look-up by `names`, one after the other; each must find one record.
void lookUpEach(benchmark::State& state, const std::vector<std::u16string>& names) {
    KvArray<KvoreRegisterKrxInfo*> found;
    size_t next = 0;
    for (auto _ : state) {
        if (!getRegisterKrxAppInfoList(names[next].c_str(), found, false) || found.length() != 1)
            state.SkipWithError("record missing");
        benchmark::DoNotOptimize(found.asArrayPtr());
        next = (next + 1) % names.size();
    }
}

void BM_GetRegisterKrxAppInfoList_Among1000(benchmark::State& state) { lookUpEach(state, lookUps()); }
BENCHMARK(BM_GetRegisterKrxAppInfoList_Among1000);

// "GROUP0042.CMD0042": the command within its record's group.
void BM_GetRegisterKrxAppInfoList_GroupQualified_Among1000(benchmark::State& state) {
    std::vector<std::u16string> names;
    for (const std::u16string& command : lookUps()) names.push_back(u"GROUP" + command.substr(3) + u"." + command);
    lookUpEach(state, names);
}
BENCHMARK(BM_GetRegisterKrxAppInfoList_GroupQualified_Among1000);

void BM_Baseline_StatOfHiveFile(benchmark::State& state) {
    std::error_code error;
    for (auto _ : state) benchmark::DoNotOptimize(fs::status(gHives->machine, error));
}
BENCHMARK(BM_Baseline_StatOfHiveFile);

void BM_Baseline_ChangeCounter(benchmark::State& state) {
    uint64_t counter = 0;
    for (auto _ : state) {
        if (registryChangeCounter(RegistryHive::machine, counter) != kRegistryOk) state.SkipWithError("poll failed");
        benchmark::DoNotOptimize(counter);
    }
}
BENCHMARK(BM_Baseline_ChangeCounter);

// The first poll after set-up reports the set-up; the second arms the watches again.
void BM_ReLoadIfModified_NoChange(benchmark::State& state) {
    reLoadKrxListFromRegisterIfModified();
    reLoadKrxListFromRegisterIfModified();
    for (auto _ : state)
        if (reLoadKrxListFromRegisterIfModified()) state.SkipWithError("a change without one");
}
BENCHMARK(BM_ReLoadIfModified_NoChange);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Hives hives;
    gHives = &hives;
    // The first look-up builds the index of the tree: what it takes from the heap.
    size_t heapBefore = mallinfo2().uordblks;
    KvArray<KvoreRegisterKrxInfo*> found;
    getRegisterKrxAppInfoList(u"CMD0000", found, false);
    size_t indexBytes = mallinfo2().uordblks - heapBefore;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");  // the console's last colour code has no line of its own
    reporter.printGoal("getRegisterKrxAppInfoList among 1 000 records, by command", "hash find",
                       "BM_GetRegisterKrxAppInfoList_Among1000", "BM_Baseline_HashMapLookUp", 3);
    reporter.printGoal("getRegisterKrxAppInfoList among 1 000 records, by group-qualified command", "hash find",
                       "BM_GetRegisterKrxAppInfoList_GroupQualified_Among1000", "BM_Baseline_HashMapLookUp", 3);
    RatioReporter::printNote("demand-load command index: " + std::to_string(indexBytes / kRecords) +
                             " bytes per record (one group, one command; before: none)");
    reporter.printGoal("reLoadKrxListFromRegisterIfModified without a change", "one stat of the hive file",
                       "BM_ReLoadIfModified_NoChange", "BM_Baseline_StatOfHiveFile", 1.5);
    benchmark::Shutdown();
    return 0;
}
