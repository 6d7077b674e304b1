#include "kvrxdynloadmoduleproxy.h"

#include "kernel/kvrxmoduleglobal.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"

#include <cstring>

#include <cstdint>

KVRX_DEFINE_MEMBERS(KvRxDynLoadModuleProxy, u"OvRxGenHand", u"OvRxObject");

KvRxDynLoadModuleProxy* KvRxDynLoadModuleProxy::makeProxy(void* handle) {
    return new KvRxDynLoadModuleProxy(handle);
}

KvRxDynLoadModuleProxy::KvRxDynLoadModuleProxy(void* handle)
    : m_kdsData(nullptr), m_dependencyNode(nullptr), m_moduleHandle(handle), m_entryPoint(nullptr),
      m_moduleName(nullptr), m_appName(nullptr), m_loadReason(KvoreApp::kDisabled),
      m_refCount(0), m_locked(true), m_inMessage(false), m_mdiAware(false), m_ownsImage(false),
      m_nestedLoad(false), m_loadOrigin(0), m_initialising(false), m_goingOut(false),
      m_heldByLoad(false), m_flushed(false), m_mayOwnClasses(false) {}

KvRxDynLoadModuleProxy::~KvRxDynLoadModuleProxy() {
    unloadImage();
    _lumFree(m_kdsData);
    _lumStrdupFree(m_moduleName);
    _lumStrdupFree(m_appName);
}

namespace {
const KvRxDynLoadModuleProxy* otherProxy(const KvRxObject* other) {
    auto* proxy = KvRxDynLoadModuleProxy::cast(other);
    if (!proxy) KvRxModuleGlobal::fatalStatus();
    return proxy;
}
}  // namespace

bool KvRxDynLoadModuleProxy::isEqualTo(const KvRxObject* other) const {
    if (!other) return false;
    return otherProxy(other)->m_moduleHandle == m_moduleHandle;
}

KvRx::Ordering KvRxDynLoadModuleProxy::comparedTo(const KvRxObject* other) const {
    if (!other) return KvRx::kGreaterThan;
    auto mine = reinterpret_cast<uintptr_t>(m_moduleHandle);
    auto theirs = reinterpret_cast<uintptr_t>(otherProxy(other)->m_moduleHandle);
    if (mine < theirs) return KvRx::kLessThan;
    return mine == theirs ? KvRx::kEqual : KvRx::kGreaterThan;
}

int KvRxDynLoadModuleProxy::loadImage(bool asFullName) {
    if (m_moduleHandle) return 0;
    if (!m_moduleName || !*m_moduleName) return -1;
    int error = 0;
    m_moduleHandle = asFullName ? lumplatform::openImageAsFullName(m_moduleName, error)
                                : lumplatform::openImageInFolder(m_moduleName, error);
    m_ownsImage = m_moduleHandle != nullptr;
    return error;
}

void KvRxDynLoadModuleProxy::unloadImage() {
    if (!m_ownsImage || !m_moduleHandle) return;
    lumplatform::closeLibrary(m_moduleHandle);
    m_moduleHandle = nullptr;
    m_entryPoint = nullptr;
    m_ownsImage = false;
}

RxKDSAppTableEntryType* KvRxDynLoadModuleProxy::kdsAppData() const {
    if (m_kdsData) return m_kdsData;
    m_kdsData = static_cast<RxKDSAppTableEntryType*>(_lumMalloc(sizeof(RxKDSAppTableEntryType)));
    if (!m_kdsData) KvRxModuleGlobal::fatalStatus();
    std::memset(m_kdsData, 0, sizeof *m_kdsData);
    m_kdsData->moduleName = m_moduleName;
    m_kdsData->proxy = const_cast<KvRxDynLoadModuleProxy*>(this);
    return m_kdsData;
}

void KvRxDynLoadModuleProxy::setModuleName(const char16_t* name) {
    _lumStrdupFree(m_moduleName);
    m_moduleName = _lumStrdup(name);
}

void KvRxDynLoadModuleProxy::setAppName(const char16_t* name) {
    _lumStrdupFree(m_appName);
    m_appName = _lumStrdup(name);
}

void* KvRxDynLoadModuleProxy::getProc(const char* symbol) const {
    // Shared objects have no export ordinals: a symbol that is one finds nothing.
    if (!m_moduleHandle || reinterpret_cast<uintptr_t>(symbol) <= 0xFFFF) return nullptr;
    return lumplatform::librarySymbol(m_moduleHandle, symbol);
}

void* KvRxDynLoadModuleProxy::entryPoint() const {
    if (!m_entryPoint) m_entryPoint = getProc("kvrxEntryPoint");
    return m_entryPoint;
}

bool KvRxDynLoadModuleProxy::sendMessageToApp(KvRx::AppMsgCode code, void* packet) {
    m_inMessage = true;
    if (code == KvRx::kInitAppMsg) kdsAppData()->proxy = this;
    bool ok = false;
    try {
        auto* linker = KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
        ok = linker && linker->sendMessageToProxy(this, code, packet);
    } catch (LumException* e) {
        delete e;  // already reported by whoever threw it
    } catch (...) {
    }
    m_inMessage = false;
    return ok;
}
