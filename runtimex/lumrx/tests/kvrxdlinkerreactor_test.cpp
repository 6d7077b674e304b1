// Observers of loads and unloads: the order they hear in, changes to the array during
// a notification, the events of failed and refused loads, and clearing by class.
#include "kvrxclass.h"
#include "kvrxmoduledependencytracker.h"
#include "lumplatform/loader.h"
#include "moduletest.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using lumtest::utf8;

namespace {

std::vector<std::string> gHeard;

// Writes "<tag> <event> <module file>" for every call; a hook may act on a call.
class Reactor : public KvRxDLinkerReactor {
public:
    explicit Reactor(std::string tag) : tag(std::move(tag)) {}
    void rxAppWillBeLoaded(const char16_t* m) override { hear("willLoad", m); }
    void rxAppLoaded(const char16_t* m) override { hear("loaded", m); }
    void rxAppLoadAborted(const char16_t* m) override { hear("loadAborted", m); }
    void rxAppWillBeUnloaded(const char16_t* m) override { hear("willUnload", m); }
    void rxAppUnloaded(const char16_t* m) override { hear("unloaded", m); }

    std::string tag;
    std::function<void(const std::string& event, const char16_t* module)> hook;

private:
    void hear(const char* event, const char16_t* module) {
        std::string file = utf8(module);
        gHeard.push_back(tag + " " + event + " " + file.substr(file.rfind('/') + 1));
        if (hook) hook(event, module);
    }
};

class Reactors : public lumtest::ModuleTest {
protected:
    void SetUp() override {
        lumtest::ModuleTest::SetUp();
        gHeard.clear();
    }
    void TearDown() override {
        linker()->clearAllRxReactor(nullptr);
        lumtest::ModuleTest::TearDown();
    }
    std::vector<std::string> heard() {
        std::vector<std::string> all;
        all.swap(gHeard);
        return all;
    }
};

}  // namespace

TEST_F(Reactors, AppAwareReactorsHearFirstAndEachHearsOnce) {
    Reactor a("A"), b("B"), c("C");
    linker()->addReactor(&a);
    linker()->addReactor(&b);
    linker()->addReactor(&a);  // twice in the array, told once
    linker()->addDbAppAware(&c);
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"C willLoad krxfree.krx", "A willLoad krxfree.krx",
                                                 "B willLoad krxfree.krx", "C loaded krxfree.krx",
                                                 "A loaded krxfree.krx", "B loaded krxfree.krx"}));
    // A further load tells nobody.
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_TRUE(heard().empty());
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    EXPECT_TRUE(heard().empty());

    // One removal leaves A's second entry; C goes by the app-aware door.
    linker()->removeReactor(&a);
    linker()->removeDbAppAware(&c);
    ASSERT_TRUE(linker()->unloadModule(free.c_str(), false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"B willUnload krxfree.krx", "A willUnload krxfree.krx",
                                                 "B unloaded krxfree.krx", "A unloaded krxfree.krx"}));
}

TEST_F(Reactors, ChangesDuringANotification) {
    Reactor a("A"), b("B"), late("L"), front("F");
    // A removes itself while hearing of the load: B, behind it, misses that one call.
    a.hook = [&](const std::string& event, const char16_t*) {
        if (event == "loaded") linker()->removeReactor(&a);
    };
    // B adds one reactor at the end, told in the same turn, and one at the front,
    // which shifts the array without anyone hearing twice.
    b.hook = [&](const std::string& event, const char16_t*) {
        if (event != "willLoad") return;
        linker()->addReactor(&late);
        linker()->addDbAppAware(&front);
    };
    linker()->addReactor(&a);
    linker()->addReactor(&b);
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"A willLoad krxfree.krx", "B willLoad krxfree.krx",
                                                 "L willLoad krxfree.krx", "F loaded krxfree.krx",
                                                 "A loaded krxfree.krx", "L loaded krxfree.krx"}));
    linker()->removeDbAppAware(&front);
    ASSERT_TRUE(linker()->unloadModule(free.c_str(), false));
}

TEST_F(Reactors, FailedAndRefusedLoadsAndNestedLoads) {
    Reactor r("R");
    bool nestedSeen = false, outerNested = true;
    r.hook = [&](const std::string& event, const char16_t* module) {
        if (event != "loaded") return;
        bool nested = linker()->isAppInNestedLoad(module);
        if (utf8(module).find("krxfree") != std::string::npos) nestedSeen = nested;
        else outerNested = nested;
    };
    linker()->addReactor(&r);

    EXPECT_FALSE(linker()->loadModule(modulePath("krxfailinit.krx").c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"R willLoad krxfailinit.krx", "R loadAborted krxfailinit.krx",
                                                 "R willUnload krxfailinit.krx", "R unloaded krxfailinit.krx"}));
    events();
    EXPECT_EQ(host.runtime.nonMdiGoneCalls, 1);  // no module that isn't MDI aware is left

    // A module that isn't MDI aware, refused by the host: the unload road comes first.
    host.runtime.acceptNonMdi = false;
    std::u16string free = modulePath("krxfree.krx");
    EXPECT_FALSE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"R willLoad krxfree.krx", "R willUnload krxfree.krx",
                                                 "R unloaded krxfree.krx", "R loadAborted krxfree.krx"}));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxfree mapped " + moduleDir().string(),
                                                  "krxfree message 1", "krxfree message 2"}));
    EXPECT_EQ(proxyOf(free), nullptr);
    EXPECT_EQ(host.runtime.nonMdiGoneCalls, 2);
    std::u16string mdi = modulePath("krxmdi.krx");
    ASSERT_TRUE(linker()->loadModule(mdi.c_str(), false, false));
    EXPECT_TRUE(linker()->isAppMDIAware(mdi.c_str()));
    ASSERT_TRUE(linker()->unloadModule(mdi.c_str(), false));
    EXPECT_EQ(host.runtime.nonMdiGoneCalls, 2);
    host.runtime.acceptNonMdi = true;

    // The module loaded inside another's first message is flagged while reactors hear.
    std::u16string outer = modulePath("krxouter.krx");
    heard();
    ASSERT_TRUE(linker()->loadModule(outer.c_str(), false, false));
    EXPECT_TRUE(nestedSeen);
    EXPECT_FALSE(outerNested);
    EXPECT_FALSE(linker()->isAppInNestedLoad(free.c_str()));
    linker()->unloadAllKrxModule(false, false);
    EXPECT_EQ(linker()->loadedModuleCount(), 0);
}

TEST_F(Reactors, AThrowingReactorStopsNeitherLoadNorUnload) {
    Reactor thrower("T"), after("A");
    thrower.hook = [](const std::string&, const char16_t*) { throw 42; };
    linker()->addReactor(&thrower);
    linker()->addReactor(&after);
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    ASSERT_NE(proxyOf(free), nullptr);
    EXPECT_FALSE(proxyOf(free)->initialising());
    ASSERT_TRUE(linker()->unloadModule(free.c_str(), false));
    EXPECT_EQ(proxyOf(free), nullptr);
    EXPECT_EQ(heard().size(), 8u);  // both heard all four events
    EXPECT_EQ(recorder.faults.size(), 4u);
}

namespace {

KvRxClass* gBaseReactorClass = nullptr;
KvRxClass* gDerivedReactorClass = nullptr;

class BaseReactor : public Reactor {
public:
    using Reactor::Reactor;
    KvRxClass* isA() const override { return gBaseReactorClass; }
};

class DerivedReactor : public BaseReactor {
public:
    using BaseReactor::BaseReactor;
    KvRxClass* isA() const override { return gDerivedReactorClass; }
};

}  // namespace

TEST_F(Reactors, ClearingByClassLeavesDerivedClasses) {
    gBaseReactorClass = newKvRxClass(u"TestBaseLinkerReactor", u"OvRxDLinkerReactor");
    gDerivedReactorClass = newKvRxClass(u"TestDerivedLinkerReactor", u"TestBaseLinkerReactor");
    ASSERT_TRUE(gBaseReactorClass && gDerivedReactorClass);
    BaseReactor base1("B1"), base2("B2");
    DerivedReactor derived("D");
    linker()->addReactor(&base1);
    linker()->addReactor(&derived);
    linker()->addReactor(&base2);
    linker()->clearAllRxReactor(gBaseReactorClass);
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"D willLoad krxfree.krx", "D loaded krxfree.krx"}));
    linker()->clearAllRxReactor(nullptr);
    ASSERT_TRUE(linker()->unloadModule(free.c_str(), false));
    EXPECT_TRUE(heard().empty());
    deleteKvRxClass(gDerivedReactorClass);
    deleteKvRxClass(gBaseReactorClass);
}

TEST_F(Reactors, AReactorMayUnloadTheModuleWhoseLoadItHears) {
    std::u16string free = modulePath("krxfree.krx");
    Reactor r("R");
    // The proxy made right after the unload takes the memory of a proxy that is freed
    // there: the load road, still running, must not write into it.
    KvRxDynLoadModuleProxy* successor = nullptr;
    r.hook = [&](const std::string& event, const char16_t* module) {
        if (event != "loaded") return;
        EXPECT_TRUE(linker()->unloadModule(module, false));
        EXPECT_EQ(proxyOf(free), nullptr);
        successor = KvRxDynLoadModuleProxy::makeProxy(nullptr);
        successor->setInitialising(true);
    };
    linker()->addReactor(&r);
    EXPECT_TRUE(linker()->loadModule(free.c_str(), false, false));
    ASSERT_NE(successor, nullptr);
    EXPECT_TRUE(successor->initialising());
    delete successor;
    EXPECT_EQ(heard(), (std::vector<std::string>{"R willLoad krxfree.krx", "R loaded krxfree.krx",
                                                 "R willUnload krxfree.krx", "R unloaded krxfree.krx"}));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxfree mapped " + moduleDir().string(),
                                                  "krxfree message 1", "krxfree message 2"}));
    EXPECT_EQ(proxyOf(free), nullptr);
    EXPECT_EQ(lumplatform::mappedImage(free), nullptr);
    EXPECT_EQ(linker()->dependencyTracker().nodeCount(), 0);

    // The same by application record; and a module unlocked and unloaded before its first
    // message never gets one, and its load fails.
    KvoreAppInfo info;
    info.setAppName(u"FreeApp");
    info.setModuleName(free.c_str());
    info.setLoadReason(KvoreApp::kOnRequest);
    EXPECT_TRUE(linker()->loadAppFromInfo(&info, KvoreApp::kOnRequest, false, false));
    EXPECT_EQ(proxyOf(free), nullptr);
    delete successor;
    heard();
    events();
    r.hook = [&](const std::string& event, const char16_t* module) {
        if (event != "willLoad") return;
        linker()->unlockApplication(proxyOf(module));
        EXPECT_TRUE(linker()->unloadModule(module, false));
    };
    EXPECT_FALSE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(heard(), (std::vector<std::string>{"R willLoad krxfree.krx", "R willUnload krxfree.krx",
                                                 "R unloaded krxfree.krx", "R loadAborted krxfree.krx"}));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxfree mapped " + moduleDir().string(),
                                                  "krxfree message 2"}));
    EXPECT_EQ(proxyOf(free), nullptr);
    EXPECT_EQ(linker()->loadedModuleCount(), 0);
    EXPECT_EQ(linker()->dependencyTracker().nodeCount(), 0);
}

TEST_F(Reactors, AForcedUnloadOfEverythingEndsWhileAReactorLoadsAgain) {
    std::u16string free = modulePath("krxfree.krx"), mdi = modulePath("krxmdi.krx");
    Reactor r("R");
    int reloads = 0;
    r.hook = [&](const std::string& event, const char16_t* module) {
        if (event != "unloaded") return;
        ++reloads;
        linker()->loadModule(module, false, false);
    };
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    ASSERT_TRUE(linker()->loadModule(mdi.c_str(), false, false));
    linker()->addReactor(&r);
    linker()->unloadAllKrxModule(false, true);
    // Each module went once; what the reactor loaded again stays.
    EXPECT_EQ(reloads, 2);
    EXPECT_NE(proxyOf(free), nullptr);
    EXPECT_NE(proxyOf(mdi), nullptr);
    linker()->removeReactor(&r);
    linker()->unloadAllKrxModule(false, true);
    EXPECT_EQ(linker()->loadedModuleCount(), 0);
}
