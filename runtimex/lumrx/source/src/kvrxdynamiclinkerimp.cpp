#include "kvrxdynamiclinkerimp.h"

#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvdbhostappservices.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"

#include <cstdint>

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
      currentModuleHandle(gKernelProxy->moduleHandle()) {}

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
