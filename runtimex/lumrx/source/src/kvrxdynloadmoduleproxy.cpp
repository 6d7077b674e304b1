#include "kvrxdynloadmoduleproxy.h"

#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/library.h"

#include <cstdint>

KVRX_DEFINE_MEMBERS(KvRxDynLoadModuleProxy, u"OvRxGenHand", u"OvRxObject");

KvRxDynLoadModuleProxy* KvRxDynLoadModuleProxy::makeProxy(void* handle) {
    return new KvRxDynLoadModuleProxy(handle);
}

KvRxDynLoadModuleProxy::KvRxDynLoadModuleProxy(void* handle)
    : m_moduleHandle(handle), m_moduleName(nullptr), m_refCount(0), m_locked(true),
      m_inMessage(false), m_initialising(false) {}

KvRxDynLoadModuleProxy::~KvRxDynLoadModuleProxy() { _lumStrdupFree(m_moduleName); }

void KvRxDynLoadModuleProxy::setModuleName(const char16_t* name) {
    _lumStrdupFree(m_moduleName);
    m_moduleName = _lumStrdup(name);
}

void* KvRxDynLoadModuleProxy::getProc(const char* symbol) const {
    // Shared objects have no export ordinals: a symbol that is one finds nothing.
    if (!m_moduleHandle || reinterpret_cast<uintptr_t>(symbol) <= 0xFFFF) return nullptr;
    return lumplatform::librarySymbol(m_moduleHandle, symbol);
}

bool KvRxDynLoadModuleProxy::sendMessageToApp(KvRx::AppMsgCode code, void* packet) {
    m_inMessage = true;
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
