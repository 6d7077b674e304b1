// The class tree and the dictionary on their hot paths, each beside a baseline
// measured in the same run: an std::unordered_map look-up for name look-ups, and a
// plain pointer compare for kind tests.
#include "collections/kvrxdictionaryimp.h"
#include "kvrxruntime.h"

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace {

const int kDepths[] = {1, 8, 32};
const int kNamedClasses = 300;

class BenchObject : public KvRxObject {
public:
    explicit BenchObject(KvRxClass* c) : m_class(c) {}
    KvRxClass* isA() const override { return m_class; }

private:
    KvRxClass* m_class;
};

std::u16string nameOf(const char16_t* stem, int i) {
    std::u16string name = stem;
    for (char c : std::to_string(i)) name.push_back(char16_t(c));
    return name;
}

// Starts the runtime once and registers a chain of classes 32 deep plus a few hundred
// others, so that the class dictionary has a realistic size.
struct Runtime {
    std::vector<KvRxClass*> chain;  // chain[d] is at depth d below the root
    Runtime() {
        InitializeKvRxSystem();
        chain.push_back(KvRxObject::desc());
        for (int d = 1; d <= 32; ++d) {
            std::u16string parent = d == 1 ? u"OvRxObject" : nameOf(u"BenchDepth", d - 1);
            chain.push_back(newKvRxClass(nameOf(u"BenchDepth", d).c_str(), parent.c_str()));
        }
        for (int i = 0; i < kNamedClasses; ++i)
            newKvRxClass(nameOf(u"BenchNamed", i).c_str(), u"OvRxObject");
        kvrxBuildClassHierarchy();
    }
    ~Runtime() { UninitializeKvRxSystem(); }
};

Runtime& runtime() {
    static Runtime r;
    return r;
}

void BM_FindClass(benchmark::State& state) {
    runtime();
    std::u16string name = nameOf(u"BenchNamed", kNamedClasses / 2);
    for (auto _ : state) benchmark::DoNotOptimize(kvrxFindKvRxClass(name.c_str()));
}
BENCHMARK(BM_FindClass);

void BM_FindClass_Baseline_UnorderedMap(benchmark::State& state) {
    std::unordered_map<std::u16string, void*> map;
    for (int i = 0; i < kNamedClasses + 50; ++i) map[nameOf(u"BenchNamed", i)] = &map;
    std::u16string name = nameOf(u"BenchNamed", kNamedClasses / 2);
    for (auto _ : state) benchmark::DoNotOptimize(map.find(name));
}
BENCHMARK(BM_FindClass_Baseline_UnorderedMap);

void BM_IsKindOf(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[size_t(state.range(0))]);
    KvRxClass* root = KvRxObject::desc();
    for (auto _ : state) benchmark::DoNotOptimize(object.isKindOf(root));
}
BENCHMARK(BM_IsKindOf)->Arg(kDepths[0])->Arg(kDepths[1])->Arg(kDepths[2]);

void BM_Cast(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[size_t(state.range(0))]);
    for (auto _ : state) benchmark::DoNotOptimize(kvrxCastTo(&object, r.chain[1]));
}
BENCHMARK(BM_Cast)->Arg(kDepths[0])->Arg(kDepths[1])->Arg(kDepths[2]);

void BM_Kind_Baseline_PointerCompare(benchmark::State& state) {
    Runtime& r = runtime();
    KvRxClass* volatile mine = r.chain[8];
    KvRxClass* wanted = r.chain[8];
    for (auto _ : state) benchmark::DoNotOptimize(mine == wanted);
}
BENCHMARK(BM_Kind_Baseline_PointerCompare);

// A dictionary of `entries` keys, sorted or not, looked up by a key in its middle.
void dictionaryLookup(benchmark::State& state, bool sorted) {
    runtime();
    int entries = int(state.range(0));
    KvRxDictionaryImp* d = KvRxDictionaryImp::createDictionary(0, false, sorted, true, nullptr);
    unsigned id = 0;
    for (int i = 0; i < entries; ++i) d->atPut(nameOf(u"Key", i).c_str(), nullptr, id);
    std::u16string key = nameOf(u"KEY", entries / 2);
    for (auto _ : state) benchmark::DoNotOptimize(d->has(key.c_str()));
    delete d;
}

void BM_DictionaryAt_Sorted(benchmark::State& state) { dictionaryLookup(state, true); }
BENCHMARK(BM_DictionaryAt_Sorted)->Arg(16)->Arg(256)->Arg(4096);

void BM_DictionaryAt_Unsorted(benchmark::State& state) { dictionaryLookup(state, false); }
BENCHMARK(BM_DictionaryAt_Unsorted)->Arg(16)->Arg(256)->Arg(4096);

void BM_DictionaryAt_Baseline_UnorderedMap(benchmark::State& state) {
    int entries = int(state.range(0));
    std::unordered_map<std::u16string, void*> map;
    for (int i = 0; i < entries; ++i) map[nameOf(u"Key", i)] = nullptr;
    std::u16string key = nameOf(u"Key", entries / 2);
    for (auto _ : state) benchmark::DoNotOptimize(map.find(key));
}
BENCHMARK(BM_DictionaryAt_Baseline_UnorderedMap)->Arg(16)->Arg(256)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
