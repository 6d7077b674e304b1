// The class tree on its hot paths, each against a peer measured in the same run: kind
// tests and casts from deep against shallow classes and against the language's own
// dynamic_cast, the look-up by name against a hash map, and registration, linking and
// shut-down of 40 000 classes against an ordered map of their names. A run can start
// and end only once per process, so the last two run in a child process each, and so
// do their peers.
#include "collections/kvrxdictionarykeyindex.h"
#include "kernel/kvrximpclass.h"
#include "kvrxruntime.h"
#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

const int kDeep = 32;
const int kNamedClasses = 4000;
const int kManyClasses = 40000;

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

// A chain of C++ classes 32 deep, for dynamic_cast.
struct Level0 {
    virtual ~Level0() = default;
};
template <int N>
struct Level : Level<N - 1> {};
template <>
struct Level<0> : Level0 {};

// ---------------------------------------------------------------------------
// Registration, linking and shut-down of 40 000 classes, children first: class i is
// below class i / 8, class 0 below the root. Each measurement runs in a child.

std::vector<std::u16string> manyNames() {
    std::vector<std::u16string> names;
    for (int i = 0; i < kManyClasses; ++i) names.push_back(nameOf(u"BenchMany", i));
    return names;
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Runs `measure` in a child process and returns the seconds it reports; negative if
// the child failed.
template <class Measure>
double inChild(Measure measure) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return -1;
    pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        double taken = measure();
        ssize_t written = write(pipeEnds[1], &taken, sizeof taken);
        _exit(written == sizeof taken ? 0 : 1);
    }
    close(pipeEnds[1]);
    double taken = -1;
    if (read(pipeEnds[0], &taken, sizeof taken) != sizeof taken) taken = -1;
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? taken : -1;
}

void registerMany(const std::vector<std::u16string>& names) {
    for (int i = kManyClasses - 1; i >= 0; --i) {
        const char16_t* parent = i == 0 ? u"OvRxObject" : names[size_t(i / 8)].c_str();
        newKvRxClass(names[size_t(i)].c_str(), parent);
    }
    kvrxBuildClassHierarchy();
}

void BM_Register40000ChildrenFirstAndLink(benchmark::State& state) {
    std::vector<std::u16string> names = manyNames();
    for (auto _ : state) {
        double taken = inChild([&] {
            InitializeKvRxSystem();
            auto start = std::chrono::steady_clock::now();
            registerMany(names);
            return seconds(start);
        });
        if (taken < 0) state.SkipWithError("the child failed");
        state.SetIterationTime(taken);
    }
}
BENCHMARK(BM_Register40000ChildrenFirstAndLink)->UseManualTime()->Unit(benchmark::kMillisecond);

// The peers run in a child too, so that both sides start from a fresh process's heap
// and pay for the pages they touch, not one side only.
void BM_Peer_MapInsert40000Names(benchmark::State& state) {
    std::vector<std::u16string> names = manyNames();
    for (auto _ : state) {
        double taken = inChild([&] {
            std::map<std::u16string, void*> map;
            auto start = std::chrono::steady_clock::now();
            for (int i = kManyClasses - 1; i >= 0; --i) map.emplace(names[size_t(i)], nullptr);
            double insertTime = seconds(start);
            benchmark::DoNotOptimize(map.size());
            return insertTime;
        });
        if (taken < 0) state.SkipWithError("the child failed");
        state.SetIterationTime(taken);
    }
}
BENCHMARK(BM_Peer_MapInsert40000Names)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_ShutDown40000(benchmark::State& state) {
    std::vector<std::u16string> names = manyNames();
    for (auto _ : state) {
        double taken = inChild([&] {
            InitializeKvRxSystem();
            registerMany(names);
            auto start = std::chrono::steady_clock::now();
            UninitializeKvRxSystem();
            return seconds(start);
        });
        if (taken < 0) state.SkipWithError("the child failed");
        state.SetIterationTime(taken);
    }
}
BENCHMARK(BM_ShutDown40000)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_Peer_MapDestroy40000(benchmark::State& state) {
    std::vector<std::u16string> names = manyNames();
    for (auto _ : state) {
        double taken = inChild([&] {
            auto* map = new std::map<std::u16string, void*>();
            for (const std::u16string& name : names) map->emplace(name, nullptr);
            auto start = std::chrono::steady_clock::now();
            delete map;
            return seconds(start);
        });
        if (taken < 0) state.SkipWithError("the child failed");
        state.SetIterationTime(taken);
    }
}
BENCHMARK(BM_Peer_MapDestroy40000)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// Kind tests and look-ups, in this process's own run.

// A chain of classes 32 deep below the root, a class beside it, and 4 000 others.
struct Runtime {
    std::vector<KvRxClass*> chain;  // chain[d] is at depth d below the root
    KvRxClass* beside = nullptr;    // below chain[1], no ancestor of the chain's end
    Runtime() {
        InitializeKvRxSystem();
        chain.push_back(KvRxObject::desc());
        for (int d = 1; d <= kDeep; ++d) {
            std::u16string parent = d == 1 ? u"OvRxObject" : nameOf(u"BenchDepth", d - 1);
            chain.push_back(newKvRxClass(nameOf(u"BenchDepth", d).c_str(), parent.c_str()));
        }
        beside = newKvRxClass(u"BenchBeside", u"BenchDepth1");
        for (int i = 0; i < kNamedClasses; ++i)
            newKvRxClass(nameOf(u"BenchNamed", i).c_str(), u"OvRxObject");
        kvrxBuildClassHierarchy();
    }
};

Runtime& runtime() {
    static Runtime r;
    return r;
}

void BM_IsKindOf_Hit(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[size_t(state.range(0))]);
    for (auto _ : state) benchmark::DoNotOptimize(object.isKindOf(r.chain[1]));
}
BENCHMARK(BM_IsKindOf_Hit)->Arg(1)->Arg(kDeep);

void BM_IsKindOf_Miss(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[size_t(state.range(0))]);
    for (auto _ : state) benchmark::DoNotOptimize(object.isKindOf(r.beside));
}
BENCHMARK(BM_IsKindOf_Miss)->Arg(1)->Arg(kDeep);

void BM_Cast(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[size_t(state.range(0))]);
    for (auto _ : state) benchmark::DoNotOptimize(kvrxCastTo(&object, r.chain[1]));
}
BENCHMARK(BM_Cast)->Arg(1)->Arg(kDeep);

void BM_IsDerivedFrom(benchmark::State& state) {
    Runtime& r = runtime();
    KvRxClass* cls = r.chain[size_t(state.range(0))];
    for (auto _ : state) benchmark::DoNotOptimize(cls->isDerivedFrom(r.chain[1]));
}
BENCHMARK(BM_IsDerivedFrom)->Arg(1)->Arg(kDeep);

void BM_Peer_DynamicCastDepth32(benchmark::State& state) {
    Level<kDeep> object;
    Level0* volatile base = &object;
    for (auto _ : state) benchmark::DoNotOptimize(dynamic_cast<Level<1>*>(base));
}
BENCHMARK(BM_Peer_DynamicCastDepth32);

void BM_FindClassAmong4000(benchmark::State& state) {
    runtime();
    std::u16string name = nameOf(u"BenchNamed", kNamedClasses / 2);
    for (auto _ : state) benchmark::DoNotOptimize(kvrxFindKvRxClass(name.c_str()));
}
BENCHMARK(BM_FindClassAmong4000);

void BM_Peer_UnorderedMapFindBuiltKey(benchmark::State& state) {
    std::unordered_map<std::u16string, void*> map;
    for (int i = 0; i < kNamedClasses + kDeep; ++i) map[nameOf(u"BenchNamed", i)] = &map;
    std::u16string name = nameOf(u"BenchNamed", kNamedClasses / 2);
    const char16_t* text = name.c_str();
    for (auto _ : state) benchmark::DoNotOptimize(map.find(std::u16string(text)));
}
BENCHMARK(BM_Peer_UnorderedMapFindBuiltKey);

// Bytes per class of a class linked at `depth` with a name of 12 units, and of its
// entry's key in the class dictionary. Before: a table of the names beside the
// dictionary (a hash node and a bucket per class), a child's place in its parent's
// list as a node of its own (as many bytes as the sibling links in the state now
// take), and a key as a string object with its text apart. The state then also held
// the heads of its twelve overrule lists (now a pointer to them, made with the first
// overrule), the values most classes leave 0 or null (now behind the state, only when
// one is set: 40 bytes for a pointer) and pointers to three of its names (now their
// places in units), and its fields took 12 bytes more padding. It held neither the
// last answer of its protocol map (the map did) nor the overrule family of its line
// (a byte, 8 with its padding).
const unsigned long kNameTableBytes = 5 * sizeof(void*);
const unsigned long kStateBytesGivenUp =
    11 * sizeof(void*) + 32 + 3 * 4 + 12 - sizeof(KvRxPEQueryCache) - 8;

void printMemoryNotes() {
    Runtime& r = runtime();
    for (int depth : {1, 8, kDeep}) {
        const KvRxClassState* state = KvRxClassState::of(r.chain[size_t(depth)]);
        unsigned long after = state->footprint();
        RatioReporter::printNote("bytes per class at depth " + std::to_string(depth) +
                                 " (kernel's own, dictionary entry apart): before " +
                                 std::to_string(after + kNameTableBytes + kStateBytesGivenUp) + ", after " +
                                 std::to_string(after));
    }
    unsigned long text = 13 * sizeof(char16_t);
    RatioReporter::printNote("bytes per class dictionary key of 12 units: before " +
                             std::to_string(sizeof(KvRxString) + text) + " in two blocks, after " +
                             std::to_string(sizeof(KvRxDictionaryKey) + text) + " in one");
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // The console reporter leaves a colour reset behind its last row.
    std::printf("\nGoals (same run):\n");
    const std::string d1 = "/1", d32 = "/" + std::to_string(kDeep);
    reporter.printGoal("isKindOf from depth 32 (hit)", "isKindOf from depth 1", "BM_IsKindOf_Hit" + d32,
                       "BM_IsKindOf_Hit" + d1, 1.2);
    reporter.printGoal("isKindOf from depth 32 (miss)", "isKindOf from depth 1 (hit)",
                       "BM_IsKindOf_Miss" + d32, "BM_IsKindOf_Hit" + d1, 1.2);
    reporter.printGoal("cast from depth 32", "cast from depth 1", "BM_Cast" + d32, "BM_Cast" + d1, 1.2);
    reporter.printGoal("isDerivedFrom from depth 32", "isDerivedFrom from depth 1",
                       "BM_IsDerivedFrom" + d32, "BM_IsDerivedFrom" + d1, 1.2);
    reporter.printGoal("isKindOf from depth 32", "dynamic_cast in a C++ chain of depth 32",
                       "BM_IsKindOf_Hit" + d32, "BM_Peer_DynamicCastDepth32", 0.1);
    reporter.printGoal("kvrxFindKvRxClass among 4 000 classes", "unordered_map<u16string> find, key built",
                       "BM_FindClassAmong4000", "BM_Peer_UnorderedMapFindBuiltKey", 1.5);
    reporter.printGoal("register 40 000 classes, children first, and link", "std::map inserts of the names",
                       "BM_Register40000ChildrenFirstAndLink/manual_time",
                       "BM_Peer_MapInsert40000Names/manual_time", 2);
    reporter.printGoal("shut-down with 40 000 classes", "destroying a std::map of them",
                       "BM_ShutDown40000/manual_time", "BM_Peer_MapDestroy40000/manual_time", 3);
    printMemoryNotes();
    benchmark::Shutdown();
    return 0;
}
