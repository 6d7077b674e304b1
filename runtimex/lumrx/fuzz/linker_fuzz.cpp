// Sequences of linker actions over a fixed set of real modules (linker_fuzz.cmake):
// loads, unloads, locks, service dependencies, messages, reactors that load and unload
// modules from inside notifications, and modules that do so from inside messages.
// After every step the module table, the dependency graph and the service dictionary
// must agree; unloading everything at the end must leave all three empty.
#include "kvdbhostappservices.h"
#include "kvrxdictionary.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxmoduledependencytracker.h"
#include "kvrxruntime.h"
#include "kvrxservice.h"
#include "lumosbase.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const char* const kModules[] = {"fzfree", "fzlocked", "fzouter", "fzfail", "fzthrow",
                                "fzfull", "fzselfload", "fzdep",  "fzuser", "fzmover"};
constexpr int kModuleCount = int(sizeof kModules / sizeof *kModules);
const KvRx::AppMsgCode kMessages[] = {KvRx::AppMsgCode(50), KvRx::AppMsgCode(51),
                                      KvRx::AppMsgCode(77), KvRx::AppMsgCode(99)};

std::u16string modulePath(int k) {
    return lumplatform::fromUtf8(std::string(LUMRX_FUZZ_MODULE_DIR) + "/" + kModules[k] + ".krx");
}

void fail(const char* what) {
    std::fprintf(stderr, "linker_fuzz: %s\n", what);
    std::abort();
}

class FuzzRuntime : public KvDbHostRuntime {
public:
    bool acceptNonMdiModule() override { return acceptNonMdi; }
    void nonMdiModulesGone() override {}
    KvRxDynLoadModuleProxy* currentModule() override { return current; }
    KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) override {
        KvRxDynLoadModuleProxy* previous = current;
        current = proxy;
        return previous;
    }
    void* resourceInstance() override { return nullptr; }
    LumCrashRecorder* crashRecorder() override { return nullptr; }
    bool acceptNonMdi = true;
    KvRxDynLoadModuleProxy* current = nullptr;
};

// Fatal errors are the linker's ordinary answer to some of these sequences (a class
// registered twice, for one): they reach the caller as exceptions, not the end.
class FuzzHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t*, int, const char16_t*, void*, int) override { return -1; }
    void fatalError(const char16_t*) override {}
    void displayMessage(const char16_t*, int) override {}
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return u"Software\\Lumora\\LinkerFuzz"; }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return &runtime; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return -1; }
    FuzzRuntime runtime;
};

KvRxDynamicLinkerImp* linker() {
    return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

KvRxDictionary* services() {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
}

FuzzHost* gHost = nullptr;
unsigned gBaselineServices = 0;
int gNesting = 0;  // actions taken from inside notifications, bounded

void act(int op, int k, int message, bool flag);

// A reactor that takes one action when it hears one kind of event.
class FuzzReactor : public KvRxDLinkerReactor {
public:
    void rxAppWillBeLoaded(const char16_t*) override { hear(0); }
    void rxAppLoaded(const char16_t*) override { hear(1); }
    void rxAppLoadAborted(const char16_t*) override { hear(2); }
    void rxAppWillBeUnloaded(const char16_t*) override { hear(3); }
    void rxAppUnloaded(const char16_t*) override { hear(4); }

    int event = -1, op = 0, module = 0, message = 0;
    bool flag = false;
    bool appAware = false;  // added by addDbAppAware
    bool added = false;

private:
    void hear(int which) {
        if (which != event || gNesting >= 3) return;
        ++gNesting;
        act(op, module, message, flag);
        --gNesting;
    }
};

FuzzReactor gReactors[3];

void removeReactor(FuzzReactor& r) {
    if (!r.added) return;
    if (r.appAware) linker()->removeDbAppAware(&r);
    else linker()->removeReactor(&r);
    r.added = false;
}

void setUp() {
    static bool done = false;
    if (done) return;
    done = true;
    char folder[] = "/tmp/lumrx-linkerfuzz-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    std::string dir = folder;
    setenv("LUMRX_REGISTRY_USER", (dir + "/user.db").c_str(), 1);
    setenv("LUMRX_REGISTRY_MACHINE", (dir + "/machine.db").c_str(), 1);
    unsetenv("LUMRX_TEST_MODULE_LOG");
    InitializeKvRxSystem();
    gHost = new FuzzHost;
    kvdbSetHostApplicationServices(gHost);
    gBaselineServices = services()->numEntries();
}

// The table, the graph and the service dictionary agree. Between steps no unload is
// under way, so nothing waits for its release: every proxy in the table has its node,
// every node's proxy is in the table, and each service belongs to the kernel, to no
// one, or to a module in the table.
void checkAgreement() {
    KvRxDynamicLinkerImp* l = linker();
    KvArray<KvRxDynLoadModuleProxy*> loaded;
    l->getLoadedModules(loaded);
    if (loaded.length() != l->loadedModuleCount()) fail("table walk and count differ");
    const KvRxModuleDependencyTracker& tracker = l->dependencyTracker();
    if (tracker.nodeCount() != loaded.length()) fail("graph and table differ in size");
    for (int i = 0; i < loaded.length(); ++i) {
        KvRxDynLoadModuleProxy* proxy = loaded[i];
        if (proxy->goingOut()) fail("an unloaded module stays in the table");
        if (!proxy->dependencyNode() || proxy->dependencyNode()->proxy != proxy)
            fail("a loaded module without its node");
        if (l->findRxModuleProxyByModuleName(proxy->moduleName(), false) != proxy)
            fail("a loaded module isn't found by its name");
    }
    const KvArray<KvRxDependencyNode*>& nodes = tracker.nodes();
    for (int i = 0; i < nodes.length(); ++i)
        if (!loaded.contains(nodes[i]->proxy)) fail("a node of a module not in the table");
    KvRxDictionaryIterator* it = services()->newIterator(kDictById);
    for (; !it->done(); it->next()) {
        auto* service = KvRxService::cast(it->object());
        KvRxObject* owner = service ? service->getSysInfo() : nullptr;
        if (owner && owner != KvRxDynamicLinkerImp::kernelProxy() &&
            !loaded.contains(KvRxDynLoadModuleProxy::cast(owner)))
            fail("a service of a module not in the table");
    }
    delete it;
}

KvRxDynLoadModuleProxy* proxyOf(int k) {
    return linker()->findRxModuleProxyByModuleName(modulePath(k).c_str(), false);
}

void act(int op, int k, int message, bool flag) {
    KvRxDynamicLinkerImp* l = linker();
    std::u16string path = modulePath(k % kModuleCount);
    switch (op) {
        case 0: l->loadModule(path.c_str(), flag, false); break;
        case 1: l->loadModule(path.c_str(), true, true); break;
        case 2: l->unloadModule(path.c_str(), flag); break;
        case 3:
            if (KvRxDynLoadModuleProxy* p = proxyOf(k % kModuleCount)) {
                if (flag) l->lockApplication(p);
                else l->unlockApplication(p);
            }
            break;
        case 4:
            if (auto* s = KvRxService::cast(services()->at(u"KrxFullService"))) {
                if (flag) s->addDependency();
                else s->removeDependency();
            }
            break;
        case 5: l->sendMessageToModule(path.c_str(), kMessages[message % 4], nullptr); break;
        case 6: l->sendMessageToAllModules(kMessages[message % 4], nullptr); break;
        case 7: l->unloadAllKrxModule(false, flag); break;
        case 8: l->isModuleLoaded(path.c_str()); l->applicationIsLocked(path.c_str()); break;
        default: break;
    }
}

// Every module goes, locked or not; counts that dependencies raised go one turn each.
void unloadEverything() {
    for (FuzzReactor& r : gReactors) removeReactor(r);
    gHost->runtime.acceptNonMdi = true;
    for (int turn = 0; turn < 64 && linker()->loadedModuleCount() > 0; ++turn)
        linker()->unloadAllKrxModule(false, true);
    if (linker()->loadedModuleCount() != 0) fail("modules left after unloading everything");
    if (linker()->dependencyTracker().nodeCount() != 0) fail("graph nodes left");
    if (services()->numEntries() != gBaselineServices) fail("services left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setUp();
    // Each step is three bytes: the action (its top bit a flag), a module and a message.
    for (size_t i = 0; i + 2 < size && i < 768; i += 3) {
        int op = data[i] % 12, a = data[i + 1], b = data[i + 2];
        bool flag = (data[i] >> 7) & 1;
        try {
            if (op <= 8) {
                act(op, a, b, flag);
            } else if (op == 9) {
                // Reactor a%3 hears one kind of event and then acts: action b%9 on
                // module b/9, with message a/15.
                FuzzReactor& r = gReactors[a % 3];
                r.event = (a / 3) % 5;
                r.op = b % 9;
                r.module = b / 9;
                r.message = a / 15;
                r.flag = flag;
                removeReactor(r);
                r.appAware = flag;
                if (flag) linker()->addDbAppAware(&r);
                else linker()->addReactor(&r);
                r.added = true;
            } else if (op == 10) {
                removeReactor(gReactors[a % 3]);
            } else {
                gHost->runtime.acceptNonMdi = flag;
            }
        } catch (LumException* e) {
            delete e;
        }
        checkAgreement();
    }
    try {
        unloadEverything();
    } catch (LumException* e) {
        delete e;
        unloadEverything();
    }
    return 0;
}
