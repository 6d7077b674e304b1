#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrxkernelserviceimp.h"
#include "kvrxcollection.h"
#include "kvrxdynamiclinker.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxmap.h"
#include "kvrxruntime.h"

KVRX_DEFINE_MEMBERS(KvRxService, u"OvRxService", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxKernel, u"OvRxKernel", u"OvRxService");
KVRX_DEFINE_MEMBERS(KvRxKernelServiceImp, u"KvRxKernelServiceImp", u"OvRxKernel");

struct KvRxServiceHolder : KvBaseClassWithNew {
    KvRxObject* owner = nullptr;
};

KvRxService::KvRxService() : sysData(nullptr) {}

KvRxService::~KvRxService() { delete sysData; }

KvRxService::KvRxService(const KvRxService& other) : KvRxObject(other), sysData(nullptr) {
    setSysInfo(other.getSysInfo());
}

KvRxService& KvRxService::operator=(const KvRxService& other) {
    if (this != &other) {
        KvRxObject* owner = other.getSysInfo();
        delete sysData;
        sysData = nullptr;
        setSysInfo(owner);
    }
    return *this;
}

KvRxObject* KvRxService::getSysInfo() const { return sysData ? sysData->owner : nullptr; }

void KvRxService::setSysInfo(KvRxObject* owner) {
    if (!owner) return;
    if (!sysData) sysData = new KvRxServiceHolder;
    sysData->owner = KvRxDynLoadModuleProxy::cast(owner);
}

void KvRxService::addDependency() {
    auto* owner = static_cast<KvRxDynLoadModuleProxy*>(getSysInfo());
    if (owner && owner->addRef() == 1) owner->sendMessageToApp(KvRx::kDependencyMsg, this);
}

void KvRxService::removeDependency() {
    auto* owner = static_cast<KvRxDynLoadModuleProxy*>(getSysInfo());
    if (owner && owner->release() == 0) owner->sendMessageToApp(KvRx::kNoDependencyMsg, this);
}

bool KvRxService::unloadable() const {
    auto* owner = static_cast<KvRxDynLoadModuleProxy*>(getSysInfo());
    return !owner || owner->isUnloadable();
}

KvRx::AppRetCode (*KvRxService::dependencyFunctionPtr())(KvRx::AppMsgCode, void*) { return nullptr; }

void KvRxService::setDependencyFunctionPtr(KvRx::AppRetCode (*)(KvRx::AppMsgCode, void*)) {}

KvRxDictionary* KvRxKernelServiceImp::newDictionary(const KvRxClass* filter) {
    return KvRxDictionaryImp::createDictionary(0, false, false, false, filter);
}

KvRxDictionary* KvRxKernelServiceImp::newDictionary(unsigned length, bool deleteObjects, bool sorted,
                                                    bool ignoreCase) {
    return KvRxDictionaryImp::createDictionary(length, deleteObjects, sorted, ignoreCase, nullptr);
}

KvRxDictionary* KvRxKernelServiceImp::newDictionary(bool sorted, bool ignoreCase) {
    return newDictionary(0u, false, sorted, ignoreCase);
}

KvRxLinkedList* KvRxKernelServiceImp::newLinkedList() { return new KvRxLinkedList; }

KvRxMap* KvRxKernelServiceImp::newMap() { return new KvRxMap; }

namespace {

KvRxDynamicLinker* linker() {
    return KvRxDynamicLinker::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

}  // namespace

void* kvrxRegisterService(const char16_t* serviceName) {
    auto* service = new KvRxService;
    try {
        linker()->registerService(serviceName, service);
    } catch (...) {
        delete service;  // a name registered already is fatal; the new object isn't kept
        throw;
    }
    return service;
}

bool kvrxServiceIsRegistered(const char16_t* serviceName) {
    if (!serviceName || !*serviceName) return false;
    return KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"))->has(serviceName);
}

void* kvrxGetServiceSymbolAddr(const char16_t* serviceName, const char* symbol) {
    return linker()->getServiceSymbolAddr(serviceName, symbol);
}

void* kvrxGetServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol) {
    return linker()->getServiceSymbolAddr(serviceName, symbol);
}
