// What passes between the linker and modules: messages to entry points, services and
// their owners' exports, and the numbered user messages.
#include "kvrxdynamiclinkerimp.h"

#include "kernel/kvrxmoduleglobal.h"
#include "kvdbhostappservices.h"
#include "kvrxdictionary.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/resources.h"
#include "lumuinfo.h"

#include <cstdarg>
#include <cstdint>
#include <string>

namespace {

using EntryPoint = KvRx::AppRetCode (*)(KvRx::AppMsgCode, void*);

constexpr int kMessageUnits = 1024;

KvRxDictionary* serviceDictionary() {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
}

}  // namespace

bool KvRxDynamicLinkerImp::sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                                              void* packet) {
    if (!proxy) return false;
    void* previousHandle = currentModuleHandle;
    RxKDSAppTableEntryType* previousKds = setCurKdsData(proxy->kdsAppData());
    currentModuleHandle = proxy->moduleHandle();
    auto entry = reinterpret_cast<EntryPoint>(proxy->entryPoint());
    if (!entry) {
        currentModuleHandle = previousHandle;
        setCurKdsData(previousKds);
        KvRxModuleGlobal::fatalError(u"Cannot find KRX entry point from module: \"%s\"!!!",
                                     proxy->moduleName());
    }
    KvDbHostRuntime* runtime = kvrxHostRuntime();
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

// A message from outside the module's life: the module is in a message meanwhile (so
// it can't be unloaded), and its reply is dropped.
void KvRxDynamicLinkerImp::deliverToModule(KvDbHostRuntime* runtime, KvRxDynLoadModuleProxy* proxy,
                                           KvRx::AppMsgCode code, void* packet) {
    bool wasInMessage = proxy->inMessage();
    proxy->setInMessage(true);
    KvRxDynLoadModuleProxy* previous = runtime->setCurrentModule(proxy);
    sendMessageToProxy(proxy, code, packet);
    runtime->setCurrentModule(previous);
    if (!wasInMessage) proxy->setInMessage(false);
}

bool KvRxDynamicLinkerImp::sendMessageToModule(const char16_t* moduleName, KvRx::AppMsgCode code,
                                               void* packet) {
    if (!moduleName || !*moduleName) return false;
    KvDbHostRuntime* runtime = kvrxHostRuntime();
    if (!runtime) return false;
    // The whole path counts: a bare file name matches only a module stored under it.
    KvRxDynLoadModuleProxy* target = nullptr;
    KvRxDictionaryIterator* it = modules->newIterator(kDictById);
    for (; !target && !it->done(); it->next()) {
        auto* proxy = KvRxDynLoadModuleProxy::cast(it->object());
        if (!proxy || !proxy->moduleName()) continue;
        char16_t full[LUM_MAX_PATH];
        if (LumCharOp::compareNoCase(proxy->moduleName(), moduleName) == 0 ||
            (LumPathMaker::getFullFileName(proxy->moduleName(), full) &&
             LumCharOp::compareNoCase(full, moduleName) == 0))
            target = proxy;
    }
    delete it;
    if (!target) return false;
    deliverToModule(runtime, target, code, packet);
    return true;
}

bool KvRxDynamicLinkerImp::sendMessageToAllModules(KvRx::AppMsgCode code, void* packet) {
    KvDbHostRuntime* runtime = kvrxHostRuntime();
    if (!runtime) return false;
    KvArray<KvRxDynLoadModuleProxy*> all;
    getLoadedModules(all);
    for (int i = 0; i < all.length(); ++i) {
        KvRxDynLoadModuleProxy* proxy = all[i];
        // A module that an earlier message unloaded is only compared, never reached.
        if (inTable(proxy)) deliverToModule(runtime, proxy, code, packet);
    }
    return false;
}

void* KvRxDynamicLinkerImp::registerService(const char16_t* serviceName, KvRxService* service) {
    if (!serviceName || !*serviceName || !service || !currentModuleHandle) return nullptr;
    KvRxDictionary* services = serviceDictionary();
    if (services->has(serviceName))
        KvRxModuleGlobal::fatalError(u"Register service : \"%s\" repeatedly!", serviceName);
    service->setSysInfo(ownerOf(currentModuleHandle));
    unsigned id = 0;
    services->atPut(serviceName, service, id);
    return nullptr;
}

void* KvRxDynamicLinkerImp::getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) {
    if (!serviceName || !*serviceName) return nullptr;
    auto* service = KvRxService::cast(serviceDictionary()->at(serviceName));
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

bool KvRxLinkerMessage::loadMessageText(unsigned id, char16_t* out) {
    // The resource library: the product prefix's own, else the system's.
    std::u16string library = kvrxProductLibraryName(u"RxRes.dll", u"LumRxRes.dll");
    void* handle = lumplatform::mappedLibrary(library);
    if (!handle) handle = LoadResourceDll(library.c_str());
    // One unit more than the caller's buffer tells a text that fits from one cut.
    char16_t text[kMessageUnits + 1] = {};
    int units = handle ? lumplatform::loadResourceString(handle, id, text, kMessageUnits + 1) : 0;
    bool whole = units < kMessageUnits;
    if (!whole) text[kMessageUnits - 1] = 0;
    LumCharOp::copy(out, text, unsigned(whole ? units : kMessageUnits - 1));
    out[whole ? units : kMessageUnits - 1] = 0;
    return whole;
}

void KvRxLinkerMessage::showMessage(unsigned id, ...) {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (!host) return;
    char16_t format[kMessageUnits];
    loadMessageText(id, format);
    va_list args;
    va_start(args, id);
    char16_t* text = kvrxFormatAlloc(nullptr, format, args);
    va_end(args);
    if (!text) return;
    // The host sees at most one buffer's worth.
    int length = int(LumCharOp::length(text));
    if (length >= kMessageUnits) {
        length = kMessageUnits - 1;
        text[length] = 0;
    }
    host->displayMessage(text, length);
    _lumFree(text);
}
