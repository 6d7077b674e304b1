#include "kvrxdynamiclinkerimp.h"

#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrximpclass.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvdbhostappservices.h"
#include "kvrxclass.h"
#include "kvrxcollection.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"

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

using EntryPoint = KvRx::AppRetCode (*)(KvRx::AppMsgCode, void*);
using ApiVersion = uint32_t (*)(uintptr_t);

constexpr uint32_t kApiVersionHigh = 0x07E5;

KvDbHostRuntime* hostRuntime() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    return host ? host->hostRuntime() : nullptr;
}

// The normal full path of `name`, the key of the module table; empty if there is none.
std::u16string fullFileName(const char16_t* name) {
    char16_t full[LUM_MAX_PATH];
    return LumPathMaker::getFullFileName(name, full) ? std::u16string(full) : std::u16string();
}

// Writes "krx <module> <event>" to the host's crash record.
void recordModuleEvent(const char16_t* moduleName, const char16_t* event) {
    KvDbHostRuntime* runtime = hostRuntime();
    if (!runtime) return;
    std::u16string line = u"krx " + std::u16string(moduleName) + u" " + event;
    runtime->crashRecorder()->recordMessage(line.c_str(), 0, 0, 0);
}

// The local file for a caller's name: remote names are fetched by the host.
bool resolveModuleName(const char16_t* name, std::u16string& out) {
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

// The classes that module `proxy` owns lose their owner.
void disownClassesOf(KvRxDynLoadModuleProxy* proxy) {
    auto* classes = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ClassDictionary"));
    KvRxDictionaryIterator* it = classes->newIterator(kDictById);
    for (; !it->done(); it->next()) {
        KvRxImpClass* imp = KvRxImpClass::getImplRxClass(KvRxClass::cast(it->object()));
        if (imp && imp->module() == proxy) imp->setModule(nullptr);
    }
    delete it;
}

}  // namespace

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
      currentModuleHandle(gKernelProxy->moduleHandle()),
      unloadDepth(0),
      loadDepth(0) {}

KvRxDynamicLinkerImp::~KvRxDynamicLinkerImp() {
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    for (; !it->done(); it->next()) {
        KvRxObject* proxy = it->object();
        if (proxy != gKernelProxy) delete proxy;
    }
    delete it;
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

void* KvRxDynamicLinkerImp::registerService(const char16_t* serviceName, KvRxService* service) {
    if (!serviceName || !*serviceName || !service || !currentModuleHandle) return nullptr;
    auto* services = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
    if (services->has(serviceName))
        KvRxModuleGlobal::fatalError(u"Register service : \"%s\" repeatedly!", serviceName);
    service->setSysInfo(ownerOf(currentModuleHandle));
    unsigned id = 0;
    services->atPut(serviceName, service, id);
    return nullptr;
}

void* KvRxDynamicLinkerImp::getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) {
    if (!serviceName || !*serviceName) return nullptr;
    auto* services = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
    auto* service = KvRxService::cast(services->at(serviceName));
    KvRxObject* owner = service ? service->getSysInfo() : nullptr;
    if (!owner) return nullptr;
    auto* proxy = KvRxDynLoadModuleProxy::cast(owner);
    if (!proxy) KvRxModuleGlobal::fatalStatus();
    return proxy->getProc(symbol);
}

void* KvRxDynamicLinkerImp::getServiceSymbolAddr(const char16_t* serviceName,
                                                 const char16_t* symbol) {
    if (!serviceName) return nullptr;
    // An ordinal passes through as it is.
    if (reinterpret_cast<uintptr_t>(symbol) <= 0xFFFF)
        return getServiceSymbolAddr(serviceName, reinterpret_cast<const char*>(symbol));
    // Room for the worst case: every unit a 7-byte escape.
    int size = int(LumCharOp::length(symbol)) * 7 + 1;
    auto* narrow = static_cast<char*>(_lumMalloc(size_t(size)));
    if (!narrow) return nullptr;
    if (LumCharOp::WideCharToMultiByteCIF(lumGetACP(), 0, symbol, -1, narrow, size, 0) <= 0)
        *narrow = 0;
    void* address = nullptr;
    try {
        address = getServiceSymbolAddr(serviceName, narrow);
    } catch (...) {
        _lumFree(narrow);
        throw;
    }
    _lumFree(narrow);
    return address;
}

KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::findRxModuleProxyByModuleName(
    const char16_t* name) const {
    if (!name || !*name) return nullptr;
    std::u16string full = fullFileName(name);
    return full.empty() ? nullptr : KvRxDynLoadModuleProxy::cast(modules->at(full.c_str()));
}

bool KvRxDynamicLinkerImp::inTable(KvRxDynLoadModuleProxy* proxy) const {
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    bool found = false;
    for (; !found && !it->done(); it->next()) found = it->object() == proxy;
    delete it;
    return found;
}

bool KvRxDynamicLinkerImp::loadModule(const char16_t* fileName, bool, bool asCommand) {
    if (!fileName || !*fileName) return false;
    std::u16string name;
    if (!resolveModuleName(fileName, name)) return false;
    if (!kvdbHostApplicationServices()->isRemoteName(fileName)) {
        name = lumplatform::searchFile(name);
        if (name.empty()) return false;
    }
    KvRxDynLoadModuleProxy* proxy = openModule(name, asCommand);
    if (!proxy) return asCommand && findRxModuleProxyByModuleName(name.c_str());
    if (proxy->refCount() > 1) return true;
    unsigned id = 0;
    modules->atPut(fullFileName(proxy->moduleName()).c_str(), proxy, id);
    ++loadDepth;
    bool loaded = initModule(proxy);
    --loadDepth;
    return loaded;
}

// The table's proxy of a loaded module with one more reference, or a new proxy of a
// freshly opened image with its first; null if the module can't be opened.
KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::openModule(const std::u16string& name,
                                                         bool asCommand) {
    std::u16string full = fullFileName(name.c_str());
    if (full.empty()) return nullptr;
    auto* existing = KvRxDynLoadModuleProxy::cast(modules->at(full.c_str()));
    if (void* mapped = lumplatform::mappedImage(full)) {
        std::u16string path = lumplatform::imagePath(mapped);
        if (path.empty()) return nullptr;
        std::u16string normal = fullFileName(path.c_str());
        if (!normal.empty()) path = normal;
        if (LumCharOp::compareNoCase(path.c_str(), full.c_str()) != 0) return nullptr;
        if (existing && asCommand) return nullptr;
        if (existing) {
            existing->addRef();
            return existing;
        }
        // Mapped by the system, e.g. as another module's import: it gets its proxy now.
    }
    return openImage(name);
}

// A new proxy over the loaded image `name` with one reference, or null (and nothing
// kept) if the image fails to load, lacks an entry point or has the wrong version.
KvRxDynLoadModuleProxy* KvRxDynamicLinkerImp::openImage(const std::u16string& name) {
    KvRxDynLoadModuleProxy* proxy = KvRxDynLoadModuleProxy::makeProxy(nullptr);
    proxy->setModuleName(name.c_str());
    auto version = reinterpret_cast<ApiVersion>(
        proxy->loadImage() == 0 ? proxy->getProc("kvrxGetApiVersion") : nullptr);
    if (!version || !proxy->getProc("kvrxEntryPoint") || version(0) >> 16 != kApiVersionHigh) {
        delete proxy;
        return nullptr;
    }
    proxy->addRef();
    return proxy;
}

// The first message, with the module current and its new classes owned by it. A
// failed start goes down the unload road, unload message included.
bool KvRxDynamicLinkerImp::initModule(KvRxDynLoadModuleProxy* proxy) {
    KvDbHostRuntime* runtime = hostRuntime();
    if (!runtime) return false;
    KvRxDynLoadModuleProxy* previous = runtime->setCurrentModule(proxy);
    proxy->setInitialising(true);
    bool started = proxy->sendMessageToApp(KvRx::kInitAppMsg, proxy);
    runtime->setCurrentModule(previous);
    if (!started) {
        proxy->setInitialising(false);
        recordModuleEvent(proxy->moduleName(), u"load failure");
        finishUnload(proxy);
        return false;
    }
    kvrxBuildClassHierarchy();
    proxy->setInitialising(false);
    recordModuleEvent(proxy->moduleName(), u"load success");
    return true;
}

bool KvRxDynamicLinkerImp::unloadModule(const char16_t* fileName, bool) {
    return unloadProxy(findRxModuleProxyByModuleName(fileName));
}

bool KvRxDynamicLinkerImp::unloadProxy(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy || !inTable(proxy)) return false;
    if (proxy->locked() || proxy->inMessage()) return false;
    return finishUnload(proxy);
}

// Drops a reference; the last one takes the module down. Its library goes when the
// outermost unload ends, so that nested unloads never run into a released image.
bool KvRxDynamicLinkerImp::finishUnload(KvRxDynLoadModuleProxy* proxy) {
    if (proxy->release() > 0) return false;
    recordModuleEvent(proxy->moduleName(), u"unload");
    ++unloadDepth;
    proxy->sendMessageToApp(KvRx::kUnloadAppMsg, proxy);
    dropServicesOf(proxy);
    disownClassesOf(proxy);
    pendingDelete->append(proxy);
    if (unloadDepth == 1) flushPendingModules();
    if (--unloadDepth == 0) KvRxImpClass::destroyDoomedRxClasses(true);
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

void KvRxDynamicLinkerImp::flushPendingModules() {
    while (!pendingDelete->isEmpty()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(pendingDelete->removeHead());
        proxy->unloadImage();
        modules->remove(fullFileName(proxy->moduleName()).c_str());
        delete proxy;
    }
}

// Loading module images comes with the module loader; until then no record loads.
bool KvRxDynamicLinkerImp::loadAppFromInfo(KvoreAppInfo*, KvoreApp::LoadReasons, bool, bool) {
    return false;
}

bool KvRxDynamicLinkerImp::sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                                              void* packet) {
    if (!proxy) return false;
    void* previousHandle = currentModuleHandle;
    RxKDSAppTableEntryType* previousKds = setCurKdsData(proxy->kdsAppData());
    currentModuleHandle = proxy->moduleHandle();
    auto entry = reinterpret_cast<EntryPoint>(proxy->getProc("kvrxEntryPoint"));
    if (!entry) {
        currentModuleHandle = previousHandle;
        setCurKdsData(previousKds);
        KvRxModuleGlobal::fatalError(u"Cannot find KRX entry point from module: \"%s\"!!!",
                                     proxy->moduleName());
    }
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    KvDbHostRuntime* runtime = host ? host->hostRuntime() : nullptr;
    KvRxDynLoadModuleProxy* previousModule = runtime ? runtime->setCurrentModule(proxy) : nullptr;
    bool ok = false;
    try {
        ok = entry(code, packet) == KvRx::kRetOK;
    } catch (LumException* e) {
        delete e;
    } catch (...) {
    }
    if (runtime) runtime->setCurrentModule(previousModule);
    currentModuleHandle = previousHandle;
    setCurKdsData(previousKds);
    return ok;
}
