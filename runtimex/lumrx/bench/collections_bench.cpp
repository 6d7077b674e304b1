// The dictionary on its hot paths, each beside a standard container measured in the
// same run: look-ups by key against std::unordered_map<std::u16string> with the key
// already built, look-ups by id against a vector index, and putting and removing many
// new keys against std::map inserts and erases.
#include "collections/kvrxdictionaryimp.h"
#include "kvrxruntime.h"
#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

const int kSizes[] = {1000, 100000};
const int kQueries = 4096;

std::u16string keyOf(int i, bool upper) {
    std::u16string key = upper ? u"BENCHKEY_" : u"BenchKey_";
    for (char c : std::to_string(i * 7919 % 1000003)) key.push_back(char16_t(c));
    return key;
}

// Keys as stored, and a shuffled list of look-up keys (in upper case when the
// dictionary ignores case, so that the look-up folds).
struct KeySet {
    std::vector<std::u16string> stored, queries;
    std::vector<int> queryIndex;
    KeySet(int n, bool upperQueries) {
        for (int i = 0; i < n; ++i) stored.push_back(keyOf(i, false));
        std::mt19937 random(42);
        for (int q = 0; q < kQueries; ++q) {
            int i = int(random() % unsigned(n));
            queryIndex.push_back(i);
            queries.push_back(keyOf(i, upperQueries));
        }
    }
};

KvRxDictionaryImp* filled(const KeySet& keys, bool sorted, bool ignoreCase) {
    KvRxDictionaryImp* d = KvRxDictionaryImp::createDictionary(0, false, sorted, ignoreCase, nullptr);
    unsigned id = 0;
    for (const auto& k : keys.stored) d->atPut(k.c_str(), nullptr, id);
    return d;
}

// at, has and idAt by key in turn; range(0) sorted, range(1) ignore case, range(2) size.
void BM_DictionaryByKey(benchmark::State& state) {
    bool sorted = state.range(0) != 0, ignoreCase = state.range(1) != 0;
    KeySet keys(int(state.range(2)), ignoreCase);
    KvRxDictionaryImp* d = filled(keys, sorted, ignoreCase);
    size_t q = 0;
    unsigned found = 0;
    for (auto _ : state) {
        const char16_t* key = keys.queries[q % kQueries].c_str();
        switch (q++ % 3) {
            case 0: benchmark::DoNotOptimize(d->at(key)); ++found; break;
            case 1: found += d->has(key); break;
            default: found += d->idAt(key) != 0; break;
        }
    }
    if (found != q) state.SkipWithError("a key was not found");
    delete d;
}

void BM_UnorderedMapFind(benchmark::State& state) {
    KeySet keys(int(state.range(2)), false);
    std::unordered_map<std::u16string, void*> map;
    for (const auto& k : keys.stored) map.emplace(k, nullptr);
    size_t q = 0, found = 0;
    for (auto _ : state) found += map.find(keys.queries[q++ % kQueries]) != map.end();
    if (found != q) state.SkipWithError("a key was not found");
}

void lookupArgs(benchmark::internal::Benchmark* b) {
    for (int sorted = 0; sorted < 2; ++sorted)
        for (int ignoreCase = 0; ignoreCase < 2; ++ignoreCase)
            for (int n : kSizes) b->Args({sorted, ignoreCase, n});
}
BENCHMARK(BM_DictionaryByKey)->Apply(lookupArgs);
BENCHMARK(BM_UnorderedMapFind)->Apply(lookupArgs);

// at(id) in a shuffled order; range(0) size.
void BM_DictionaryById(benchmark::State& state) {
    KeySet keys(int(state.range(0)), false);
    KvRxDictionaryImp* d = filled(keys, false, false);
    std::vector<unsigned> ids;
    for (int i : keys.queryIndex) ids.push_back(unsigned(i) + 1);
    size_t q = 0;
    for (auto _ : state) {
        KvRxObject* value = d->at(ids[q++ % kQueries]);
        benchmark::DoNotOptimize(value);
    }
    delete d;
}
BENCHMARK(BM_DictionaryById)->Arg(kSizes[0])->Arg(kSizes[1]);

// The vector is reached through a pointer, as the dictionary is, so that both read
// their header again after each escaped value.
void BM_VectorIndex(benchmark::State& state) {
    KeySet keys(int(state.range(0)), false);
    auto holder = std::make_unique<std::vector<KvRxObject*>>(keys.stored.size() + 1);
    std::vector<KvRxObject*>* vector = holder.get();
    benchmark::DoNotOptimize(vector);
    std::vector<KvRxObject*>& values = *vector;
    std::vector<unsigned> ids;
    for (int i : keys.queryIndex) ids.push_back(unsigned(i) + 1);
    size_t q = 0;
    for (auto _ : state) {
        KvRxObject* value = values[ids[q++ % kQueries]];
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_VectorIndex)->Arg(kSizes[0])->Arg(kSizes[1]);

const int kManyKeys = 100000;

// Puts 100 000 new keys, then removes them; range(0) sorted. Each is timed apart.
void BM_DictionaryPutMany(benchmark::State& state) {
    KeySet keys(kManyKeys, false);
    for (auto _ : state) {
        KvRxDictionaryImp* d = KvRxDictionaryImp::createDictionary(0, false, state.range(0) != 0, true, nullptr);
        unsigned id = 0;
        for (const auto& k : keys.stored) d->atPut(k.c_str(), nullptr, id);
        state.PauseTiming();
        delete d;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_DictionaryPutMany)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_DictionaryRemoveMany(benchmark::State& state) {
    KeySet keys(kManyKeys, false);
    for (auto _ : state) {
        state.PauseTiming();
        KvRxDictionaryImp* d = filled(keys, state.range(0) != 0, true);
        state.ResumeTiming();
        for (const auto& k : keys.stored) d->remove(k.c_str());
        state.PauseTiming();
        delete d;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_DictionaryRemoveMany)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_MapInsertMany(benchmark::State& state) {
    KeySet keys(kManyKeys, false);
    for (auto _ : state) {
        auto* map = new std::map<std::u16string, void*>();
        for (const auto& k : keys.stored) map->emplace(k, nullptr);
        state.PauseTiming();
        delete map;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MapInsertMany)->Unit(benchmark::kMillisecond);

void BM_MapEraseMany(benchmark::State& state) {
    KeySet keys(kManyKeys, false);
    for (auto _ : state) {
        state.PauseTiming();
        auto* map = new std::map<std::u16string, void*>();
        for (const auto& k : keys.stored) map->emplace(k, nullptr);
        state.ResumeTiming();
        for (const auto& k : keys.stored) map->erase(k);
        state.PauseTiming();
        delete map;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MapEraseMany)->Unit(benchmark::kMillisecond);

// Bytes per entry of an unsorted case-blind dictionary of 100 000 keys. Before: the
// entry array and a string object with its own text block per key. After: the entry
// array, one key block per key (its length and text, in the key pool's 16-byte size
// classes), and the key index and free-slot map beside them.
void printEntryBytes() {
    KeySet keys(kManyKeys, false);
    KvRxDictionaryImp* d = filled(keys, false, true);
    size_t keyBytesBefore = 0, keyBytesAfter = 0;
    for (const auto& k : keys.stored) {
        size_t text = (k.size() + 1) * sizeof(char16_t);
        keyBytesBefore += sizeof(KvRxString) + text;
        keyBytesAfter += (sizeof(KvRxDictionaryKey) + text + 15) / 16 * 16;
    }
    double n = double(d->numEntries());
    double entries = double(d->capacity()) * sizeof(KvRxDictionaryImp::Entry);
    double index = double(d->indexBytes()) / n;
    char text[240];
    std::snprintf(text, sizeof text,
                  "dictionary bytes per entry (100 000 keys, heap headers and pool chunks' slack not "
                  "counted): before %.1f, after %.1f (of which %.1f for the key index and free-slot map)",
                  (entries + double(keyBytesBefore)) / n, (entries + double(keyBytesAfter)) / n + index, index);
    RatioReporter::printNote(text);
    delete d;
}

void printGoals(RatioReporter& r) {
    for (int sorted = 0; sorted < 2; ++sorted)
        for (int ignoreCase = 0; ignoreCase < 2; ++ignoreCase)
            for (int n : kSizes) {
                std::string args = "/" + std::to_string(sorted) + "/" + std::to_string(ignoreCase) + "/" +
                                   std::to_string(n);
                std::string what = std::string("dictionary at/has/idAt by key, ") +
                                   (sorted ? "sorted" : "unsorted") + (ignoreCase ? ", case-blind, " : ", ") +
                                   std::to_string(n) + " entries";
                r.printGoal(what, "unordered_map<u16string> find", "BM_DictionaryByKey" + args,
                            "BM_UnorderedMapFind" + args, 2);
            }
    for (int n : kSizes)
        r.printGoal("dictionary at(id), " + std::to_string(n) + " entries", "vector index",
                    "BM_DictionaryById/" + std::to_string(n), "BM_VectorIndex/" + std::to_string(n), 2);
    r.printGoal("100 000 new keys into an unsorted dictionary", "std::map inserts",
                "BM_DictionaryPutMany/0", "BM_MapInsertMany", 2);
    r.printGoal("100 000 new keys into a sorted dictionary", "std::map inserts", "BM_DictionaryPutMany/1",
                "BM_MapInsertMany", 2);
    r.printGoal("removing 100 000 keys from an unsorted dictionary", "std::map erases",
                "BM_DictionaryRemoveMany/0", "BM_MapEraseMany", 2);
    r.printGoal("removing 100 000 keys from a sorted dictionary", "std::map erases",
                "BM_DictionaryRemoveMany/1", "BM_MapEraseMany", 2);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    InitializeKvRxSystem();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printGoals(reporter);
    printEntryBytes();
    UninitializeKvRxSystem();
    benchmark::Shutdown();
    return 0;
}
