// The record of one loaded module, and the module's identity towards itself.
// Owns its name (from _lumStrdup). The linker owns the proxies it makes.
#pragma once

#include "kvore.h"
#include "kvrxobject.h"
#include "kvrxservice.h"

#include <atomic>

class KvRxDynLoadModuleProxy : public KvRxObject, public KvBaseClassWithNew {
    KVRX_DECLARE_MEMBERS(KvRxDynLoadModuleProxy);

public:
    using KvBaseClassWithNew::operator new;
    using KvBaseClassWithNew::operator delete;

    // A new proxy for the image `handle` (null before the image is loaded).
    static KvRxDynLoadModuleProxy* makeProxy(void* handle);
    ~KvRxDynLoadModuleProxy() override;

    void* moduleHandle() const { return m_moduleHandle; }
    // The module's file name as the loader used it; null before it is set.
    const char16_t* moduleName() const { return m_moduleName; }
    // Stores a copy; null clears.
    void setModuleName(const char16_t* name);
    // True while the first message is under way: classes registered meanwhile belong
    // to this module.
    bool initialising() const { return m_initialising; }
    void setInitialising(bool value) { m_initialising = value; }

    // Outstanding loads and service dependencies; each gives the new count.
    int addRef() { return ++m_refCount; }
    int release() { return --m_refCount; }
    int refCount() const { return m_refCount; }
    bool locked() const { return m_locked; }
    void setLocked(bool value) { m_locked = value; }
    // Neither locked nor in a message, and no reference left.
    bool isUnloadable() const { return !m_locked && !m_inMessage && m_refCount == 0; }

    // The module's export, null without an image.
    void* getProc(const char* symbol) const;
    // Delivers a message through the linker; false if it fails or throws.
    bool sendMessageToApp(KvRx::AppMsgCode code, void* packet);

private:
    explicit KvRxDynLoadModuleProxy(void* handle);

    void* m_moduleHandle;
    char16_t* m_moduleName;
    std::atomic<int> m_refCount;
    bool m_locked;  // every module starts locked
    bool m_inMessage;
    bool m_initialising;
};
