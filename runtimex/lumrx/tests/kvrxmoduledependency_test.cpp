// Who needs whom among loaded modules: static edges from linked modules, dynamic ones
// from loads inside a first message, the pins they set, the reports of wrong orders
// and cycles, and the orders for unloading everything.
#include "kvrxmoduledependencytracker.h"
#include "lumplatform/loader.h"
#include "moduletest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using lumtest::utf8;

namespace {

struct Edge {
    std::string from, to;
    bool isStatic;
    bool operator==(const Edge& o) const {
        return from == o.from && to == o.to && isStatic == o.isStatic;
    }
};

std::ostream& operator<<(std::ostream& out, const Edge& e) {
    return out << e.from << (e.isStatic ? " =static=> " : " =dynamic=> ") << e.to;
}

// The graph's edges by the modules' file names.
std::vector<Edge> edges() {
    KvArray<KvRxModuleDependency> all;
    kvrxGetModuleDependencies(all);
    std::vector<Edge> out;
    for (int i = 0; i < all.length(); ++i) {
        auto base = [](const char16_t* path) {
            std::string text = utf8(path);
            return text.substr(text.rfind('/') + 1);
        };
        out.push_back({base(all[i].moduleName), base(all[i].dependsOn), all[i].isStatic});
    }
    return out;
}

class Dependencies : public lumtest::ModuleTest {
protected:
    std::vector<std::u16string> reportsContaining(const char16_t* word) {
        std::vector<std::u16string> found;
        for (const std::u16string& line : recorder.lines)
            if (line.find(word) != std::u16string::npos) found.push_back(line);
        return found;
    }
};

}  // namespace

TEST_F(Dependencies, AModuleLinkedAgainstALoadedOneIsPinnedByIt) {
    std::u16string dep = modulePath("krxdep.krx"), user = modulePath("krxuser.krx");
    ASSERT_TRUE(linker()->loadModule(dep.c_str(), false, false));
    ASSERT_TRUE(linker()->loadModule(user.c_str(), false, false));
    EXPECT_EQ(edges(), (std::vector<Edge>{{"krxuser.krx", "krxdep.krx", true}}));
    EXPECT_TRUE(reportsContaining(u"wrong order").empty());

    // Pinned: the count comes back, and only a command hears of the refusal.
    EXPECT_FALSE(linker()->unloadModule(dep.c_str(), true));
    EXPECT_TRUE(linker()->unloadModule(dep.c_str(), false));
    ASSERT_NE(proxyOf(dep), nullptr);
    EXPECT_EQ(proxyOf(dep)->refCount(), 1);
    events();

    EXPECT_TRUE(linker()->unloadModule(user.c_str(), false));
    EXPECT_TRUE(edges().empty());
    EXPECT_TRUE(linker()->unloadModule(dep.c_str(), false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxuser message 2", "krxdep message 2"}));
    EXPECT_EQ(proxyOf(dep), nullptr);
}

TEST_F(Dependencies, LoadingTheDependentFirstIsReportedAndPinsNothing) {
    std::u16string dep = modulePath("krxdep.krx"), user = modulePath("krxuser.krx");
    ASSERT_TRUE(linker()->loadModule(user.c_str(), false, false));
    std::vector<std::u16string> reports = reportsContaining(u"wrong order");
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(utf8(reports[0]), "Loading KRX module by wrong order! \r\nLoading module name: " + utf8(user) +
                                    " \r\nDepend on module: krxdep.krx \r\nDepend type: Static");
    EXPECT_TRUE(edges().empty());

    // The import the system mapped gets its proxy and first message now.
    events();
    ASSERT_TRUE(linker()->loadModule(dep.c_str(), false, false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxdep message 1"});
    EXPECT_TRUE(edges().empty());
    EXPECT_TRUE(linker()->unloadModule(dep.c_str(), false));  // no edge, no pin
    EXPECT_EQ(proxyOf(dep), nullptr);
    EXPECT_NE(lumplatform::mappedImage(dep), nullptr);  // the dependent still maps it
    EXPECT_TRUE(linker()->unloadModule(user.c_str(), false));
    EXPECT_EQ(lumplatform::mappedImage(dep), nullptr);
}

TEST_F(Dependencies, ALoadInsideAFirstMessageIsNestedAndPinned) {
    std::u16string outer = modulePath("krxouter.krx"), inner = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(outer.c_str(), true, false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxouter mapped " + moduleDir().string(),
                                                  "krxouter message 1",
                                                  "krxfree mapped " + moduleDir().string(),
                                                  "krxfree message 1", "krxouter inner loaded"}));
    // One success message, for the load that was asked for.
    EXPECT_EQ(host.messages, std::vector<std::u16string>{u"Module " + outer + u" loaded."});
    EXPECT_EQ(edges(), (std::vector<Edge>{{"krxouter.krx", "krxfree.krx", false}}));
    EXPECT_FALSE(linker()->unloadModule(inner.c_str(), true));

    EXPECT_TRUE(linker()->unloadModule(outer.c_str(), false));
    EXPECT_NE(proxyOf(inner), nullptr);  // what it loaded stays, now free
    EXPECT_TRUE(linker()->unloadModule(inner.c_str(), true));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxouter message 2", "krxfree message 2"}));
}

TEST_F(Dependencies, ACycleIsReportedAndItsStaticEdgeLeftOut) {
    std::u16string a = modulePath("krxcyclea.krx"), b = modulePath("krxcycleb.krx");
    ASSERT_TRUE(linker()->loadModule(a.c_str(), false, false));
    std::vector<std::u16string> reports = reportsContaining(u"Cycle");
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(utf8(reports[0]), "Cycle dependency is found! Module \"krxcyclea.krx\" is dynamic depend on module \"" +
                                    utf8(b) + "\" when \"" + utf8(b) +
                                    "\" is static depend on \"krxcyclea.krx\".");
    EXPECT_EQ(edges(), (std::vector<Edge>{{"krxcyclea.krx", "krxcycleb.krx", false}}));
    EXPECT_TRUE(linker()->unloadModule(a.c_str(), false));
    EXPECT_TRUE(linker()->unloadModule(b.c_str(), false));
    EXPECT_EQ(linker()->loadedModuleCount(), 0);
}

TEST_F(Dependencies, UnloadingEverythingGoesFromDependentsToWhatTheyNeed) {
    std::u16string outer = modulePath("krxouter.krx"), locked = modulePath("krxgood.krx");
    ASSERT_TRUE(linker()->loadModule(locked.c_str(), false, false));
    ASSERT_TRUE(linker()->loadModule(outer.c_str(), false, false));
    events();
    // A plain pass leaves the locked module, with the message that says so.
    linker()->unloadAllKrxModule(false, false);
    EXPECT_EQ(events(), (std::vector<std::string>{"krxouter message 2", "krxfree message 2"}));
    EXPECT_EQ(linker()->loadedModuleCount(), 1);
    ASSERT_EQ(host.messages.size(), 1u);
    EXPECT_NE(host.messages[0].find(locked), std::u16string::npos);
    // Forced, it goes too.
    linker()->unloadAllKrxModule(false, true);
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood message 2"});
    EXPECT_EQ(linker()->loadedModuleCount(), 0);
}

TEST_F(Dependencies, QuittingSendsQuitFirstAndKeepsTheLibrariesUntilTheEnd) {
    std::u16string outer = modulePath("krxouter.krx"), inner = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(outer.c_str(), false, false));
    events();
    linker()->unloadAllKrxModule(true, true);
    EXPECT_EQ(events(), (std::vector<std::string>{"krxouter message 8", "krxouter message 2",
                                                  "krxfree message 8", "krxfree message 2"}));
    // Still in the table, waiting for their release, and counted by the name list.
    KvArray<KvRxModuleState> states;
    kvrxGetModuleStates(states);
    ASSERT_EQ(states.length(), 2);
    EXPECT_TRUE(states[0].pendingRelease && states[1].pendingRelease);
    auto* names = kvrxLoadedApps();
    EXPECT_EQ(names->length(), 2);
    for (int i = 0; i < names->length(); ++i) _lumFree((*names)[i]);
    delete names;
    EXPECT_NE(lumplatform::mappedImage(inner), nullptr);
}

namespace {

// The tracker alone, on proxies without images.
class Tracker : public lumtest::RuntimeTest {
protected:
    KvRxDynLoadModuleProxy* proxy(const char16_t* name) {
        KvRxDynLoadModuleProxy* p = KvRxDynLoadModuleProxy::makeProxy(nullptr);
        p->setModuleName(name);
        p->addRef();
        proxies.push_back(p);
        return p;
    }
    // `outer` loads each of `inner` from inside its first message.
    void load(KvRxDynLoadModuleProxy* outer, std::vector<KvRxDynLoadModuleProxy*> inner = {}) {
        tracker.beginLoad(outer);
        for (KvRxDynLoadModuleProxy* p : inner) {
            tracker.beginLoad(p);
            tracker.endLoad(p);
        }
        tracker.endLoad(outer);
    }
    std::vector<std::string> unloadOrder() {
        KvArray<KvRxDynLoadModuleProxy*> order;
        tracker.computeUnloadOrder(order);
        std::vector<std::string> names;
        for (int i = 0; i < order.length(); ++i) names.push_back(utf8(order[i]->moduleName()));
        return names;
    }
    void TearDown() override {
        for (KvRxDynLoadModuleProxy* p : proxies) {
            p->setDependencyNode(nullptr);  // the tracker's nodes go with the tracker
            delete p;
        }
    }

    KvRxModuleDependencyTracker tracker;
    std::vector<KvRxDynLoadModuleProxy*> proxies;
    lumtest::RecordingCrashRecorder recorder;
};

}  // namespace

TEST_F(Tracker, OrdersPinsAndReports) {
    KvRxDynLoadModuleProxy *a = proxy(u"A"), *b = proxy(u"B"), *c = proxy(u"C");
    load(c);
    load(b, {c});
    load(a, {b});
    EXPECT_EQ(tracker.nodeCount(), 3);
    EXPECT_EQ(unloadOrder(), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(tracker.unloadBlocker(b), KvRxModuleDependencyTracker::kDependents);
    EXPECT_EQ(tracker.unloadBlocker(a), KvRxModuleDependencyTracker::kFree);
    EXPECT_EQ(tracker.nextUnloadCandidate(), a);
    b->addRef();
    EXPECT_EQ(tracker.unloadBlocker(b), KvRxModuleDependencyTracker::kReferenced);
    b->release();

    // Unloading B while A needs it is reported, and a dependent on the unload stack
    // holds nothing.
    tracker.beginUnload(b);
    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines[0]),
              "Unloading KRX module by wrong order! \r\nUnloading module name: B \r\nDepend by "
              "module: A \r\nDepend type: Dynamic");
    EXPECT_EQ(tracker.unloadBlocker(c), KvRxModuleDependencyTracker::kFree);
    tracker.endUnload(b);
    EXPECT_EQ(b->dependencyNode(), nullptr);
    EXPECT_EQ(tracker.nodeCount(), 2);
    EXPECT_EQ(tracker.unloadBlocker(c), KvRxModuleDependencyTracker::kFree);
}

TEST_F(Tracker, ModulesThatLostADependentGoLast) {
    KvRxDynLoadModuleProxy *a = proxy(u"A"), *b = proxy(u"B"), *c = proxy(u"C");
    load(b);
    load(c);
    load(a, {b});
    tracker.beginUnload(a);
    tracker.endUnload(a);  // B has lost its dependent
    EXPECT_EQ(unloadOrder(), (std::vector<std::string>{"C", "B"}));
}

TEST_F(Tracker, WithEveryModuleHeldTheLastOneIsTheCandidate) {
    KvRxDynLoadModuleProxy *a = proxy(u"A"), *b = proxy(u"B");
    load(a, {b});
    load(b, {a});  // a loop of dynamic loads: each holds the other
    EXPECT_EQ(tracker.unloadBlocker(a), KvRxModuleDependencyTracker::kDependents);
    EXPECT_EQ(tracker.unloadBlocker(b), KvRxModuleDependencyTracker::kDependents);
    KvRxDynLoadModuleProxy* last = tracker.nodes()[tracker.nodeCount() - 1]->proxy;
    EXPECT_EQ(tracker.nextUnloadCandidate(), last);
    // A failed start takes the node at once.
    KvRxDynLoadModuleProxy* failed = proxy(u"F");
    tracker.beginLoad(failed);
    tracker.abortLoad(failed);
    EXPECT_EQ(failed->dependencyNode(), nullptr);
    EXPECT_EQ(tracker.nodeCount(), 2);
    EXPECT_EQ(tracker.unloadBlocker(failed), KvRxModuleDependencyTracker::kFree);
}

TEST_F(Dependencies, AnUnloadedModuleWaitingForItsReleaseIsNotUnloadedAgain) {
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    linker()->unloadAllKrxModule(true, false);
    events();
    // After a quit its proxy stays in the table, without references.
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    linker()->unloadAllKrxModule(true, true);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(proxyOf(free)->refCount(), 0);
}

TEST_F(Dependencies, AFatalClassTreeErrorDuringALoadLeavesNothing) {
    std::u16string orphan = modulePath("krxorphan.krx");
    EXPECT_LUM_THROW(linker()->loadModule(orphan.c_str(), true, false), "Regist rx class with wrong order!!!");
    EXPECT_EQ(events(), (std::vector<std::string>{"krxorphan mapped " + moduleDir().string(),
                                                  "krxorphan message 1", "krxorphan message 2"}));
    EXPECT_EQ(proxyOf(orphan), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"KrxOrphanClass"), nullptr);
    // The next load is an outermost one again, with its own node.
    host.messages.clear();
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), true, false));
    EXPECT_EQ(host.messages, std::vector<std::u16string>{u"Module " + free + u" loaded."});
    EXPECT_TRUE(edges().empty());
    EXPECT_TRUE(linker()->unloadModule(free.c_str(), false));
}
