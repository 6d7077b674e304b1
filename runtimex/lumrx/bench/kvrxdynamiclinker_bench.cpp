// The linker's load and unload of a minimal module against a bare open and close of
// the same library, and isModuleLoaded with 100 modules in the table against one
// realpath and a hash look-up of the result (same run); each pair prints its goal row.
#include "kvdbhostappservices.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/text.h"
#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

class QuietRuntime : public KvDbHostRuntime {
public:
    bool acceptNonMdiModule() override { return true; }
    void nonMdiModulesGone() override {}
    KvRxDynLoadModuleProxy* currentModule() override { return current; }
    KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) override {
        KvRxDynLoadModuleProxy* previous = current;
        current = proxy;
        return previous;
    }
    void* resourceInstance() override { return nullptr; }
    LumCrashRecorder* crashRecorder() override { return nullptr; }
    KvRxDynLoadModuleProxy* current = nullptr;
};

class QuietHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t*, int, const char16_t*, void*, int) override { return -1; }
    void fatalError(const char16_t*) override { std::abort(); }
    void displayMessage(const char16_t*, int) override {}
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return u"Software\\Lumora\\Bench"; }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return &runtime; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return -1; }
    QuietRuntime runtime;
};

QuietHost gHost;
const std::u16string kModule = lumplatform::fromUtf8(LUMRX_BENCH_MODULE);

KvRxDynamicLinkerImp* linker() {
    static bool started = false;
    if (!started) {
        started = true;
        InitializeKvRxSystem();
        kvdbSetHostApplicationServices(&gHost);
    }
    return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

void BM_BareOpenAndClose(benchmark::State& state) {
    for (auto _ : state) {
        void* handle = lumplatform::openLibrary(kModule);
        benchmark::DoNotOptimize(handle);
        lumplatform::closeLibrary(handle);
    }
}
BENCHMARK(BM_BareOpenAndClose);

void BM_LinkerLoadAndUnload(benchmark::State& state) {
    KvRxDynamicLinkerImp* l = linker();
    for (auto _ : state) {
        if (!l->loadModule(kModule.c_str(), false, false)) state.SkipWithError("load failed");
        if (!l->unloadModule(kModule.c_str(), false)) state.SkipWithError("unload failed");
    }
}
BENCHMARK(BM_LinkerLoadAndUnload);

// 100 copies of the minimal module, loaded under their own names.
std::vector<std::u16string> hundredModules() {
    static std::vector<std::u16string> paths;
    if (!paths.empty()) return paths;
    char folder[] = "/tmp/lumrx-linkerbench-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    for (int i = 0; i < 100; ++i) {
        std::filesystem::path copy = std::filesystem::path(folder) / ("module" + std::to_string(i) + ".krx");
        std::filesystem::copy_file(LUMRX_BENCH_MODULE, copy);
        paths.push_back(lumplatform::fromUtf8(copy.string()));
        if (!linker()->loadModule(paths.back().c_str(), false, false)) std::abort();
    }
    return paths;
}

// The peer of isModuleLoaded: the system's canonical path of the name, then a hash find.
void BM_RealpathAndHashFind(benchmark::State& state) {
    std::vector<std::u16string> paths = hundredModules();
    std::vector<std::string> names;
    std::unordered_set<std::string> table;
    for (const std::u16string& p : paths) {
        names.push_back(lumplatform::toUtf8(p));
        table.insert(names.back());
    }
    char real[PATH_MAX];
    size_t i = 0;
    for (auto _ : state) {
        const char* full = ::realpath(names[i++ % names.size()].c_str(), real);
        benchmark::DoNotOptimize(full && table.count(full));
    }
}
BENCHMARK(BM_RealpathAndHashFind);

void BM_HashLookupOfAPath(benchmark::State& state) {
    std::vector<std::u16string> paths = hundredModules();
    std::unordered_set<std::u16string> table(paths.begin(), paths.end());
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(table.count(paths[i++ % paths.size()]));
}
BENCHMARK(BM_HashLookupOfAPath);

// The share of the look-up that makes the table key: the normal full path.
void BM_FullPathOfAPath(benchmark::State& state) {
    std::vector<std::u16string> paths = hundredModules();
    char16_t full[LUM_MAX_PATH];
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(LumPathMaker::getFullFileName(paths[i++ % paths.size()].c_str(), full));
}
BENCHMARK(BM_FullPathOfAPath);

void BM_IsModuleLoadedAmong100(benchmark::State& state) {
    std::vector<std::u16string> paths = hundredModules();
    KvRxDynamicLinkerImp* l = linker();
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(l->isModuleLoaded(paths[i++ % paths.size()].c_str()));
}
BENCHMARK(BM_IsModuleLoadedAmong100);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printGoal("module load + unload (minimal module)", "bare dlopen + dlclose of it",
                       "BM_LinkerLoadAndUnload", "BM_BareOpenAndClose", 1.3);
    reporter.printGoal("isModuleLoaded among 100 loaded modules", "one realpath + hash find",
                       "BM_IsModuleLoadedAmong100", "BM_RealpathAndHashFind", 2.0);
    benchmark::Shutdown();
    return 0;
}
