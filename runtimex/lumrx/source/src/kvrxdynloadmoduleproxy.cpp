#include "kvrxdynloadmoduleproxy.h"

#include "lumosbase.h"

KVRX_DEFINE_MEMBERS(KvRxDynLoadModuleProxy, u"OvRxGenHand", u"OvRxObject");

KvRxDynLoadModuleProxy* KvRxDynLoadModuleProxy::makeProxy(void* handle) {
    return new KvRxDynLoadModuleProxy(handle);
}

KvRxDynLoadModuleProxy::KvRxDynLoadModuleProxy(void* handle)
    : m_moduleHandle(handle), m_moduleName(nullptr), m_initialising(false) {}

KvRxDynLoadModuleProxy::~KvRxDynLoadModuleProxy() { _lumStrdupFree(m_moduleName); }

void KvRxDynLoadModuleProxy::setModuleName(const char16_t* name) {
    _lumStrdupFree(m_moduleName);
    m_moduleName = _lumStrdup(name);
}
