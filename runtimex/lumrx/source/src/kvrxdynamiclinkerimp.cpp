// The linker's tables and the load and unload roads of one module.
#include "kvrxdynamiclinkerimp.h"

#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrxcrashrecord.h"
#include "kernel/kvrximpclass.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvdbhostappservices.h"
#include "kvrxclass.h"
#include "kvrxcollection.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxmoduledependencytracker.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/files.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"
#include "lumuinfo.h"

#include <cstdint>
#include <vector>

KVRX_DEFINE_MEMBERS(KvRxDynamicLinker, u"OvRxDynamicLinker", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxDynamicLinkerImp, u"KvRxDynamicLinkerImp", u"OvRxDynamicLinker");

namespace {

// The kernel library's own handle, taken without adding a reference: the library is
// mapped while this code runs.
void* kernelHandle() {
    void* handle = lumplatform::openLibrary(u"liblumrx.so");
    if (handle) lumplatform::closeLibrary(handle);
    return handle;
}

KvRxDynLoadModuleProxy* gKernelProxy = KvRxDynLoadModuleProxy::makeProxy(kernelHandle());

RxKDSAppTableEntryType gNoKdsData{};
RxKDSAppTableEntryType* gCurKdsData = &gNoKdsData;

// Set when a module that isn't MDI aware is unloaded; cleared once the host has heard
// that no such module is left.
bool gNonMdiUnloadPending = false;

using ApiVersion = uint32_t (*)(uintptr_t);

constexpr uint32_t kApiVersionHigh = 0x07E5;

// The normal full path of `name`, the key of the module table; empty if there is none.
std::u16string fullFileName(const char16_t* name) {
    // What LumPathMaker::getFullFileName gives, without its buffer: no name for a
    // path that doesn't fit one.
    std::u16string full = name && *name ? lumplatform::fullPathName(name) : std::u16string();
    return full.size() < LUM_MAX_PATH ? full : std::u16string();
}

// Writes "krx <module> <event>" to the host's crash record.
void recordModuleEvent(const char16_t* moduleName, const char16_t* event) {
    KvDbHostRuntime* runtime = kvrxHostRuntime();
    if (!runtime || !runtime->crashRecorder()) return;
    std::u16string line = u"krx " + std::u16string(moduleName ? moduleName : u"") + u" " + event;
    runtime->crashRecorder()->recordMessage(line.c_str(), 0, 0, 0);
}

// The classes that module `proxy` owns lose their owner.
void disownClassesOf(KvRxDynLoadModuleProxy* proxy) {
    KvRxClassState::disownClassesOf(proxy);
}

// The product name of the messages that name it.
const char16_t* productName() {
    const char16_t* name = GetOemProductName();
    return name ? name : u"";
}

// Raises a depth counter for the scope, also when an exception passes.
class DepthScope {
public:
    explicit DepthScope(int& depth) : m_depth(depth) { ++m_depth; }
    ~DepthScope() { --m_depth; }
    DepthScope(const DepthScope&) = delete;
    DepthScope& operator=(const DepthScope&) = delete;

private:
    int& m_depth;
};

// Gives the host runtime's current module back when the scope ends, also when an
// exception passes.
class CurrentModuleScope {
public:
    CurrentModuleScope(KvDbHostRuntime* runtime, KvRxDynLoadModuleProxy* proxy)
        : m_runtime(runtime), m_previous(runtime ? runtime->setCurrentModule(proxy) : nullptr) {}
    ~CurrentModuleScope() {
        if (m_runtime) m_runtime->setCurrentModule(m_previous);
    }
    CurrentModuleScope(const CurrentModuleScope&) = delete;
    CurrentModuleScope& operator=(const CurrentModuleScope&) = delete;

private:
    KvDbHostRuntime* m_runtime;
    KvRxDynLoadModuleProxy* m_previous;
};

// Keeps a proxy alive while the load road that made it runs: a reactor may unload
// the module meanwhile, and the flush then leaves the object to this road, which
// deletes it when it ends.
class LoadRoadHold {
public:
    explicit LoadRoadHold(KvRxDynLoadModuleProxy* proxy) : m_proxy(proxy) {
        m_proxy->setHeldByLoad(true);
    }
    ~LoadRoadHold() {
        m_proxy->setHeldByLoad(false);
        if (m_proxy->flushed()) delete m_proxy;
    }
    LoadRoadHold(const LoadRoadHold&) = delete;
    LoadRoadHold& operator=(const LoadRoadHold&) = delete;

private:
    KvRxDynLoadModuleProxy* m_proxy;
};

}  // namespace

KvDbHostRuntime* kvrxHostRuntime() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    return host ? host->hostRuntime() : nullptr;
}

std::u16string kvrxProductLibraryName(const char16_t* suffix, const char16_t* standard) {
    char16_t prefix[1024] = {};
    return GetKvoreProductPreName(prefix) > 0 ? std::u16string(prefix) + suffix
                                              : std::u16string(standard);
}

bool kvrxResolveModuleName(const char16_t* name, std::u16string& out) {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (!host) return false;
    if (!host->isRemoteName(name)) {
        out = name;
        return true;
    }
    char16_t local[LUM_MAX_PATH] = {};
    int status = host->fetchRemoteFile(name, local, int(LUM_MAX_PATH), 0);
    out = local;
    return status == 20000 || status == 20001;
}

KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::kernelProxy() { return gKernelProxy; }

RxKDSAppTableEntryType* KvRxDynamicLinkerImp::setCurKdsData(RxKDSAppTableEntryType* data) {
    RxKDSAppTableEntryType* previous = gCurKdsData;
    gCurKdsData = data;
    return previous;
}

RxKDSAppTableEntryType* KvRxDynamicLinkerImp::getCurKdsData() { return gCurKdsData; }

KvRxDynamicLinkerImp::KvRxDynamicLinkerImp()
    : modules(KvRxDictionaryImp::createDictionary(20, false, false, true,
                                                  KvRxDynLoadModuleProxy::desc())),
      pendingDelete(new KvRxLinkedList),
      reactors(0, 8),
      m_tracker(new KvRxModuleDependencyTracker),
      currentModuleHandle(gKernelProxy->moduleHandle()),
      unloadDepth(0),
      appAwareCount(0),
      loadDepth(0) {}

// Modules still loaded get no message: their proxies go, and with them their images.
KvRxDynamicLinkerImp::~KvRxDynamicLinkerImp() {
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    for (; !it->done(); it->next()) {
        KvRxObject* proxy = it->object();
        if (proxy == gKernelProxy) continue;
        try {
            delete proxy;
        } catch (...) {
            if (LumCrashRecorder* recorder = kvrxCrashRecorder())
                recorder->recordFault(0, nullptr, u"" __FILE__, __LINE__);
        }
    }
    delete it;
    delete m_tracker;
    delete gKernelProxy;
    gKernelProxy = nullptr;
    delete modules;
    delete pendingDelete;
}

KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::ownerOf(void* moduleHandle) const {
    if (moduleHandle == gKernelProxy->moduleHandle()) return gKernelProxy;
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    KvRxDynLoadModuleProxy* owner = nullptr;
    for (; !owner && !it->done(); it->next()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(it->object());
        if (proxy && proxy->moduleHandle() == moduleHandle) owner = proxy;
    }
    delete it;
    return owner;
}

KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::proxyByAppName(const char16_t* appName) const {
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    KvRxDynLoadModuleProxy* found = nullptr;
    for (; !found && !it->done(); it->next()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(it->object());
        if (proxy && proxy->appName() && LumCharOp::compareNoCase(proxy->appName(), appName) == 0)
            found = proxy;
    }
    delete it;
    return found;
}

bool KvRxDynamicLinkerImp::anyNonMdiModule() const {
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    bool found = false;
    for (; !found && !it->done(); it->next()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(it->object());
        found = proxy && !proxy->mdiAware();
    }
    delete it;
    return found;
}

bool KvRxDynamicLinkerImp::inTable(KvRxDynLoadModuleProxy* proxy) const {
    return m_index.holds(proxy);
}

// The table takes `proxy` under `key`, and the index with it.
void KvRxDynamicLinkerImp::storeModule(const std::u16string& key, KvRxDynLoadModuleProxy* proxy) {
    unsigned id = 0;
    modules->atPut(key.c_str(), proxy, id);
    m_index.put(key, proxy);
}

KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::findRxModuleProxyByModuleName(
    const char16_t* name, bool mustExist) const {
    KvRxDynLoadModuleProxy* proxy = nullptr;
    // An empty table answers without making the full name, which costs a walk of the
    // file system; hosts ask this for every record that offers a command.
    if (name && *name && !m_index.empty()) {
        std::u16string full = fullFileName(name);
        if (!full.empty()) proxy = m_index.find(full);
    }
    if (!proxy && mustExist)
        KvRxModuleGlobal::fatalError(u"Cannot find module: \"%s\"", name ? name : u"");
    return proxy;
}

int KvRxDynamicLinkerImp::loadedModuleCount() const { return int(modules->numEntries()); }

Kvore::ErrorStatus KvRxDynamicLinkerImp::newIterator(KvRxDictionaryIterator*& out) {
    if (!modules) return Kvore::eInvalidInput;
    out = modules->newIterator(kDictSorted);
    return Kvore::eOk;
}

void KvRxDynamicLinkerImp::getLoadedModules(KvArray<KvRxDynLoadModuleProxy*>& out) {
    KvRxDictionaryIterator* it = modules->newIterator(kDictSorted);
    for (; !it->done(); it->next())
        if (auto* proxy = KvRxDynLoadModuleProxy::cast(it->object())) out.append(proxy);
    delete it;
}

bool KvRxDynamicLinkerImp::isModuleLoaded(const char16_t* moduleName) {
    if (!moduleName || !*moduleName) return false;
    std::u16string resolved;
    if (!kvrxResolveModuleName(moduleName, resolved)) return false;
    return findRxModuleProxyByModuleName(moduleName, false) != nullptr;
}

bool KvRxDynamicLinkerImp::loadModule(const char16_t* fileName, bool verbose, bool asCommand) {
    if (!fileName || !*fileName) return false;
    std::u16string name, full;
    if (!kvrxResolveModuleName(fileName, name)) return false;
    bool local = !kvdbHostApplicationServices()->isRemoteName(fileName);
    bool fresh = false;
    KvRxDynLoadModuleProxy* proxy = nullptr;
    if (local && openAsFullName(name, verbose, asCommand, proxy)) {
        full = name;
        fresh = proxy != nullptr;
    } else {
        if (local) {
            // The search gives the full file name, which is the table key already.
            name = lumplatform::searchFile(name);
            if (name.empty()) return false;
            if (name.size() < LUM_MAX_PATH) full = name;
        } else {
            full = fullFileName(name.c_str());
        }
        proxy = openModule(name, full, verbose, asCommand, fresh);
    }
    if (!proxy) return asCommand && isModuleLoaded(name.c_str());
    if (!fresh) return true;  // loaded already: one more reference
    storeModule(full, proxy);
    DepthScope depth(loadDepth);
    return initModule(proxy, verbose);
}

// A local name that no module of the table holds, and that may be its own full name,
// is opened as that straight away: the open makes sure of it on its way, which spares
// the search. True if that decided the load (`proxy` the new proxy, or null if the
// module can't be opened, its messages shown); false if the name has to go through the
// search.
bool KvRxDynamicLinkerImp::openAsFullName(const std::u16string& name, bool verbose, bool asCommand,
                                          KvRxDynLoadModuleProxy*& proxy) {
    proxy = nullptr;
    if (name.size() >= LUM_MAX_PATH || name[0] != u'/' || m_index.find(name)) return false;
    bool notFullName = false;
    proxy = openImage(name, name, verbose, asCommand, &notFullName);
    return !notFullName;
}

// The table's proxy of a loaded module with one more reference, or a new proxy of a
// freshly opened image with its first (`fresh` says which); null if the module can't
// be opened.
KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::openModule(const std::u16string& name,
                                                         const std::u16string& full, bool verbose,
                                                         bool asCommand, bool& fresh) {
    fresh = false;
    if (full.empty()) return nullptr;
    KvRxDynLoadModuleProxy* existing = m_index.find(full);
    // A proxy whose unload has begun is on its way out: a new load gets a proxy of its
    // own, which keeps the table entry when the old one is flushed. Its count alone
    // doesn't tell: service dependencies move it too.
    if (existing && existing->goingOut()) existing = nullptr;
    if (!existing) {
        // Nothing of the table holds the image: it is loaded straight away. Had the system
        // mapped it already (as another module's import, say), the load hands that image
        // back, and the name it is mapped under tells whether it may get a proxy.
        KvRxDynLoadModuleProxy* proxy = openImage(name, full, verbose, asCommand);
        fresh = proxy != nullptr;
        return proxy;
    }
    if (void* mapped = lumplatform::mappedImage(full)) {
        if (!mappedUnderFullName(mapped, name, full, verbose)) return nullptr;
        if (asCommand) {
            if (verbose) KvRxLinkerMessage::showMessage(KvRxLinkerMessage::kAlreadyLoaded, name.c_str());
            return nullptr;
        }
        if (!(existing->loadOrigin() & 2)) existing->setLoadOrigin(3);
        existing->addRef();
        return existing;
    }
    KvRxDynLoadModuleProxy* proxy = openImage(name, full, verbose, asCommand);
    fresh = proxy != nullptr;
    return proxy;
}

// True if the mapped image `mapped` is the file of the full name `full`. An image whose
// path can't be had fails too, with the load-failure message if `verbose`.
bool KvRxDynamicLinkerImp::mappedUnderFullName(void* mapped, const std::u16string& name,
                                               const std::u16string& full, bool verbose) {
    std::u16string path = lumplatform::imagePath(mapped);
    if (path.empty()) {
        if (verbose) KvRxLinkerMessage::showMessage(KvRxLinkerMessage::kLoadFailed, name.c_str());
        return false;
    }
    // The loader keeps the name it was given; the full name made just before is its own
    // normal form.
    if (path == full) return true;
    std::u16string normal = fullFileName(path.c_str());
    if (!normal.empty()) path = normal;
    return LumCharOp::compareNoCase(path.c_str(), full.c_str()) == 0;
}

// A new proxy over the loaded image `name` with one reference, or null (and nothing
// kept) if the image fails to load, lacks an entry point or has the wrong version. The
// messages about the file itself name it by its full name `full`. With `notFullName`,
// `full` is `name` as given and the image is opened only if that is its full name; if
// it isn't, `*notFullName` is set and nothing is shown.
KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::openImage(const std::u16string& name,
                                                        const std::u16string& full, bool verbose,
                                                        bool asCommand, bool* notFullName) {
    using namespace KvRxLinkerMessage;
    KvRxDynLoadModuleProxy* proxy = KvRxDynLoadModuleProxy::makeProxy(nullptr);
    proxy->setModuleName(name.c_str());
    const char16_t* text = name.c_str();
    int error = proxy->loadImage(notFullName != nullptr);
    if (error == lumplatform::kNotItsFullName) {
        *notFullName = true;
        delete proxy;
        return nullptr;
    }
    if (error == 0 && !mappedUnderFullName(proxy->moduleHandle(), name, full, verbose)) {
        delete proxy;  // mapped before under another name: its reference goes back
        return nullptr;
    }
    if (error != 0) {
        delete proxy;
        if (!verbose) return nullptr;
        if (error == lumplatform::kImageMissing) {
            bool exists = lumplatform::fileAttributes(name) != lumplatform::kNoAttributes;
            showMessage(exists ? kDependencyMissing : kFileMissing, text);
        } else if (error == lumplatform::kImageNotLoadable) {
            unsigned machine = lumplatform::probeImageMachine(name);
            if (machine == 0x0200 || machine == lumplatform::kMachineAmd64)
                showMessage(kOtherMachine, full.c_str(), productName(), productName());
            else
                showMessage(kNotAModule, full.c_str());
        }
        showMessage(kLoadFailed, text);
        return nullptr;
    }
    proxy->setLoadOrigin(asCommand ? 1 : 2);
    auto version = reinterpret_cast<ApiVersion>(proxy->getProc("kvrxGetApiVersion"));
    unsigned refusal = 0;
    if (!version)
        refusal = kNotAModule;
    else if (!proxy->entryPoint())
        refusal = kNoEntryPoint;
    else if (version(0) >> 16 != kApiVersionHigh)  // the low half is the module's own
        refusal = kWrongApiVersion;
    if (refusal) {
        delete proxy;
        if (verbose) {
            if (refusal == kWrongApiVersion)
                showMessage(refusal, text, productName());
            else
                showMessage(refusal, refusal == kNotAModule ? full.c_str() : text);
            showMessage(kLoadFailed, text);
        }
        return nullptr;
    }
    proxy->addRef();
    return proxy;
}

// The first message, with the module current and its new classes owned by it. A
// failed start goes down the unload road, unload message included.
bool KvRxDynamicLinkerImp::initModule(KvRxDynLoadModuleProxy* proxy, bool verbose) {
    KvDbHostRuntime* runtime = kvrxHostRuntime();
    if (!runtime) return false;
    LoadRoadHold hold(proxy);
    std::u16string name = proxy->moduleName();
    notify(&KvRxDLinkerReactor::rxAppWillBeLoaded, name.c_str());
    if (proxy->goingOut()) {
        // A reactor unloaded the module before its first message: the load ends there.
        notify(&KvRxDLinkerReactor::rxAppLoadAborted, name.c_str());
        recordModuleEvent(name.c_str(), u"load failure");
        return false;
    }
    m_tracker->beginLoad(proxy);
    bool started;
    {
        CurrentModuleScope current(runtime, proxy);
        proxy->setInitialising(true);
        started = proxy->sendMessageToApp(KvRx::kInitAppMsg, proxy);
    }
    if (!started) {
        m_tracker->abortLoad(proxy);
        notify(&KvRxDLinkerReactor::rxAppLoadAborted, name.c_str());
        proxy->setInitialising(false);
        recordModuleEvent(name.c_str(), u"load failure");
        KvRxLinkerMessage::showMessage(KvRxLinkerMessage::kLoadFailed, name.c_str());
        unloadFailedLoad(proxy);
        return false;
    }
    if (!proxy->mdiAware() && !runtime->acceptNonMdiModule()) {
        m_tracker->abortLoad(proxy);
        proxy->setInitialising(false);
        unloadFailedLoad(proxy);
        notify(&KvRxDLinkerReactor::rxAppLoadAborted, name.c_str());
        return false;
    }
    try {
        kvrxBuildClassHierarchy();
    } catch (...) {
        // A fatal error of the class tree: the module goes down the failure road, so
        // that nothing of it stays behind the error.
        m_tracker->abortLoad(proxy);
        notify(&KvRxDLinkerReactor::rxAppLoadAborted, name.c_str());
        proxy->setInitialising(false);
        recordModuleEvent(name.c_str(), u"load failure");
        unloadFailedLoad(proxy);
        throw;
    }
    bool nested = loadDepth > 1;
    if (nested) setAppInNestedLoad(name.c_str(), true);
    notify(&KvRxDLinkerReactor::rxAppLoaded, name.c_str());
    if (nested) setAppInNestedLoad(name.c_str(), false);
    proxy->setInitialising(false);
    recordModuleEvent(name.c_str(), u"load success");
    m_tracker->endLoad(proxy);
    if (verbose && loadDepth == 1) KvRxLinkerMessage::showMessage(KvRxLinkerMessage::kLoaded, name.c_str());
    return true;
}

// A load that failed takes its module down whole: references it gained during its first
// message (loading itself, say) belong to a load that never happened.
void KvRxDynamicLinkerImp::unloadFailedLoad(KvRxDynLoadModuleProxy* proxy) {
    while (proxy->refCount() > 1) proxy->release();
    finishUnload(false, proxy, false);
}

bool KvRxDynamicLinkerImp::unloadModule(const char16_t* fileName, bool asCommand) {
    if (!fileName || !*fileName) return false;
    return unloadProxy(findRxModuleProxyByModuleName(fileName, false), asCommand, false);
}

bool KvRxDynamicLinkerImp::unloadApp(const char16_t* appName, bool asCommand) {
    if (!appName || !*appName) return false;
    KvRxDynLoadModuleProxy* proxy = proxyByAppName(appName);
    return proxy && unloadModule(proxy->moduleName(), asCommand);
}

bool KvRxDynamicLinkerImp::unloadProxy(KvRxDynLoadModuleProxy* proxy, bool asCommand,
                                       bool quitting) {
    // A pointer from an older list may name a proxy that is gone: it is only compared.
    if (!proxy || !inTable(proxy)) return false;
    // One whose unload has begun is on its way out (after a quit it waits for its
    // release until the linker goes): it has no reference left to drop.
    if (proxy->goingOut()) return false;
    if (proxy->locked() || proxy->inMessage()) {
        KvRxLinkerMessage::showMessage(KvRxLinkerMessage::kUnloadRefused, proxy->moduleName());
        return false;
    }
    return finishUnload(asCommand, proxy, quitting);
}

// Drops a reference; the last one takes the module down unless dependents pin it. Its
// library goes when the outermost unload ends, so that nested unloads never run into
// a released image.
bool KvRxDynamicLinkerImp::finishUnload(bool asCommand, KvRxDynLoadModuleProxy* proxy,
                                        bool quitting) {
    // One on its way out already (unloaded by a reactor during its own load) has no
    // reference left to drop.
    if (proxy->goingOut()) return false;
    if (proxy->release() > 0) return false;
    if (!m_tracker->canUnload(proxy)) {
        proxy->addRef();
        return !asCommand;
    }
    proxy->setGoingOut();
    if (quitting) proxy->sendMessageToApp(KvRx::kQuitMsg, proxy);
    std::u16string name = proxy->moduleName() ? proxy->moduleName() : u"";
    recordModuleEvent(name.c_str(), u"unload");
    ++unloadDepth;
    notify(&KvRxDLinkerReactor::rxAppWillBeUnloaded, name.c_str());
    m_tracker->beginUnload(proxy);
    proxy->sendMessageToApp(KvRx::kUnloadAppMsg, proxy);
    dropServicesOf(proxy);
    disownClassesOf(proxy);
    m_tracker->endUnload(proxy);
    notify(&KvRxDLinkerReactor::rxAppUnloaded, name.c_str());
    if (!proxy->mdiAware()) gNonMdiUnloadPending = true;
    pendingDelete->append(proxy);
    if (unloadDepth == 1 && !quitting) flushPendingModules();
    if (gNonMdiUnloadPending && !anyNonMdiModule()) {
        if (KvDbHostRuntime* runtime = kvrxHostRuntime()) runtime->nonMdiModulesGone();
        gNonMdiUnloadPending = false;
    }
    if (--unloadDepth == 0) KvRxClassState::destroyDoomedRxClasses(true);
    return true;
}

// The module's services leave the dictionary; the service objects stay.
void KvRxDynamicLinkerImp::dropServicesOf(KvRxDynLoadModuleProxy* proxy) {
    auto* services = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
    std::vector<unsigned> owned;
    KvRxDictionaryIterator* it = services->newIterator(kDictById);
    for (; !it->done(); it->next()) {
        auto* service = KvRxService::cast(it->object());
        if (service && service->getSysInfo() == proxy) owned.push_back(it->id());
    }
    delete it;
    for (unsigned id : owned) services->remove(id);
}

// The table entry goes with the proxy, unless a newer load of the module holds it.
void KvRxDynamicLinkerImp::flushPendingModules() {
    while (!pendingDelete->isEmpty()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(pendingDelete->removeHead());
        proxy->unloadImage();
        // Not in the table any more if a newer load of the module took its key over.
        if (const std::u16string* key = m_index.keyOf(proxy)) {
            modules->remove(key->c_str());
            m_index.remove(proxy);
        }
        if (proxy->heldByLoad())
            proxy->setFlushed();
        else
            delete proxy;
    }
}

void KvRxDynamicLinkerImp::unloadAllKrxModule(bool quitting, bool forced) {
    if (!forced) {
        KvArray<KvRxDynLoadModuleProxy*> order;
        m_tracker->computeUnloadOrder(order);
        for (int i = 0; i < order.length(); ++i) unloadProxy(order[i], false, quitting);
        return;
    }
    // Each turn that takes something down drops one of the references standing now;
    // reactors or messages that load modules again as others go can't keep the loop
    // going beyond those.
    long turns = 0;
    KvArray<KvRxDynLoadModuleProxy*> standing;
    getLoadedModules(standing);
    for (int i = 0; i < standing.length(); ++i)
        turns += standing[i]->refCount() > 1 ? standing[i]->refCount() : 1;
    while (turns-- > 0 && m_tracker->nodeCount() > 0) {
        KvRxDynLoadModuleProxy* candidate = m_tracker->nextUnloadCandidate();
        if (!candidate) break;
        candidate->setLocked(false);
        int nodes = m_tracker->nodeCount();
        int count = candidate->refCount();
        unloadProxy(candidate, false, quitting);
        // A turn that changed nothing (a module inside its own message, or one that
        // dependents pin) would come back the same: the loop ends there.
        if (m_tracker->nodeCount() == nodes && inTable(candidate) && candidate->refCount() >= count)
            break;
    }
}
