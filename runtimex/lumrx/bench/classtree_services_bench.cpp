// Protocol extensions and overrules on their hot paths, each beside a peer measured in
// the same run: an std::unordered_map look-up for queryX and hasOverrule, and one
// std::unordered_map store per class for an addX that reaches 1 000 descendants.
#include "kernel/kvrxpeclassmap.h"
#include "kvrxoverrule.h"
#include "kvrxruntime.h"
#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace {

const int kDepth = 32;
const int kChildren = 10;
const int kGrandchildrenEach = 99;  // 10 + 10 * 99 = 1 000 descendants
const int kDescendants = kChildren + kChildren * kGrandchildrenEach;
// Protocols that the chain holds extensions for. A pointer-keyed hash find costs more
// for a key behind another one in its bucket, which depends on where the heap put the
// classes; so each look-up is timed for every protocol in turn, and compared as a mean.
const int kProtocols = 8;

class BenchObject : public KvRxObject {
public:
    explicit BenchObject(KvRxClass* c) : m_class(c) {}
    KvRxClass* isA() const override { return m_class; }

private:
    KvRxClass* m_class;
};

class BenchOverrule : public KvRxOverrule {
public:
    explicit BenchOverrule(KvRxClass* c) : m_class(c) {}
    KvRxClass* isA() const override { return m_class; }
    bool isApplicable(const KvRxObject*) const override { return true; }

private:
    KvRxClass* m_class;
};

std::u16string nameOf(const char16_t* stem, int i) {
    std::u16string name = stem;
    for (char c : std::to_string(i)) name.push_back(char16_t(c));
    return name;
}

// Starts the runtime once with: a chain 32 deep that holds an extension of its top and
// an overrule; a root with 1 000 descendants; and a few protocol classes.
struct Runtime {
    std::vector<KvRxClass*> chain;  // chain[d] is at depth d below the root
    std::vector<KvRxClass*> protocols;
    KvRxClass* wideRoot = nullptr;
    KvRxClass* overruleClass = nullptr;
    BenchObject extension{nullptr}, otherExtension{nullptr};

    Runtime() {
        InitializeKvRxSystem();
        chain.push_back(KvRxObject::desc());
        for (int d = 1; d <= kDepth; ++d) {
            std::u16string parent = d == 1 ? u"OvRxObject" : nameOf(u"BenchDepth", d - 1);
            chain.push_back(newKvRxClass(nameOf(u"BenchDepth", d).c_str(), parent.c_str()));
        }
        for (int p = 0; p < kProtocols; ++p)
            protocols.push_back(newKvRxClass(nameOf(u"BenchProtocol", p).c_str(), u"OvRxObject"));
        wideRoot = newKvRxClass(u"BenchWide", u"OvRxObject");
        for (int c = 0; c < kChildren; ++c) {
            std::u16string child = nameOf(u"BenchWide", c);
            newKvRxClass(child.c_str(), u"BenchWide");
            for (int g = 0; g < kGrandchildrenEach; ++g)
                newKvRxClass((child + u"_" + nameOf(u"", g)).c_str(), child.c_str());
        }
        newKvRxClass(u"OvDbObjectOverrule", u"OvRxOverrule");
        newKvRxClass(u"BenchOverrule", u"OvDbObjectOverrule");
        kvrxBuildClassHierarchy();

        // Every class of the chain holds a few extensions, so the look-up isn't trivial.
        for (KvRxClass* protocol : protocols) chain[1]->addX(protocol, &extension);
        overruleClass = kvrxFindKvRxClass(u"BenchOverrule");
        static BenchOverrule overrule(overruleClass);
        KvRxOverrule::addOverrule(chain[1], &overrule, false);
    }
    ~Runtime() { UninitializeKvRxSystem(); }
};

Runtime& runtime() {
    static Runtime r;
    return r;
}

void BM_QueryX_Depth32(benchmark::State& state) {
    Runtime& r = runtime();
    KvRxClass* deep = r.chain[kDepth];
    KvRxClass* protocol = r.protocols[state.range(0)];
    for (auto _ : state) benchmark::DoNotOptimize(deep->queryX(protocol));
}
BENCHMARK(BM_QueryX_Depth32)->DenseRange(0, kProtocols - 1);

void BM_ObjectQueryX_Depth32(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[kDepth]);
    KvRxClass* protocol = r.protocols[state.range(0)];
    for (auto _ : state) benchmark::DoNotOptimize(object.queryX(protocol));
}
BENCHMARK(BM_ObjectQueryX_Depth32)->DenseRange(0, kProtocols - 1);

// What every query of an object costs before it reaches the class: the object's own
// virtual isA().
void BM_ObjectIsA_Depth32(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject object(r.chain[kDepth]);
    KvRxObject* subject = &object;
    for (auto _ : state) {
        benchmark::DoNotOptimize(subject);
        benchmark::DoNotOptimize(subject->isA());
    }
}
BENCHMARK(BM_ObjectIsA_Depth32);

void BM_HasOverrule_Depth32(benchmark::State& state) {
    Runtime& r = runtime();
    BenchObject subject(r.chain[kDepth]);
    for (auto _ : state)
        benchmark::DoNotOptimize(KvRxOverrule::hasOverrule(&subject, r.overruleClass));
}
BENCHMARK(BM_HasOverrule_Depth32);

void BM_Lookup_Baseline_UnorderedMap(benchmark::State& state) {
    Runtime& r = runtime();
    std::unordered_map<const void*, void*> map;
    for (KvRxClass* protocol : r.protocols) map[protocol] = &r.extension;
    const void* key = r.protocols[state.range(0)];
    for (auto _ : state) benchmark::DoNotOptimize(map.find(key));
}
BENCHMARK(BM_Lookup_Baseline_UnorderedMap)->DenseRange(0, kProtocols - 1);

void BM_AddX_Root1000Descendants(benchmark::State& state) {
    Runtime& r = runtime();
    KvRxClass* protocol = r.protocols[0];
    bool flip = false;
    for (auto _ : state) {
        flip = !flip;
        KvRxObject* value = flip ? &r.extension : &r.otherExtension;
        benchmark::DoNotOptimize(r.wideRoot->addX(protocol, value));
    }
}
BENCHMARK(BM_AddX_Root1000Descendants);

// The same number of per-class stores, into one hash map per class.
void BM_AddX_Baseline_UnorderedMapPerClass(benchmark::State& state) {
    Runtime& r = runtime();
    std::vector<std::unordered_map<const void*, void*>> maps(kDescendants + 1);
    const void* key = r.protocols[0];
    bool flip = false;
    for (auto _ : state) {
        flip = !flip;
        for (auto& map : maps) map[key] = flip ? &r.extension : &r.otherExtension;
        benchmark::DoNotOptimize(maps.data());
    }
}
BENCHMARK(BM_AddX_Baseline_UnorderedMapPerClass);

// Bytes a protocol map takes per class that has one, and per extension it holds.
void printMemoryNotes() {
    RatioReporter::printNote("protocol map per class that has one: 56 bytes before, " +
                             std::to_string(sizeof(KvRxPEClassMapImp)) + " after, and its last answer (" +
                             std::to_string(sizeof(KvRxPEQueryCache)) +
                             " bytes) in every class's state; per extension one tree node either way");
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // The console reporter leaves a colour reset behind its last row.
    std::printf("\nGoals (same run):\n");
    const std::string peer = reporter.mean("BM_Lookup_Baseline_UnorderedMap", kProtocols);
    reporter.printGoal("queryX of a class at depth 32", "unordered_map<const void*> find",
                       reporter.mean("BM_QueryX_Depth32", kProtocols), peer, 1.5);
    reporter.printGoal("queryX of an object at depth 32", "unordered_map<const void*> find",
                       reporter.mean("BM_ObjectQueryX_Depth32", kProtocols), peer, 1.5);
    reporter.printGoal("hasOverrule at depth 32", "unordered_map<const void*> find",
                       "BM_HasOverrule_Depth32", peer, 1.5);
    printMemoryNotes();
    if (reporter.times.count("BM_ObjectIsA_Depth32") && reporter.times.count(peer)) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "an object's isA() alone, the virtual call that queryX of an object and hasOverrule "
                      "make first, costs %.2f of the unordered_map find",
                      reporter.times["BM_ObjectIsA_Depth32"] / reporter.times[peer]);
        RatioReporter::printNote(text);
    }
    benchmark::Shutdown();
    return 0;
}
