// The record of one loaded module, and the module's identity towards itself.
// Owns its name (from _lumStrdup). The linker owns the proxies it makes.
#pragma once

#include "kvore.h"
#include "kvrxobject.h"

class KvRxDynLoadModuleProxy : public KvRxObject, public KvBaseClassWithNew {
    KVRX_DECLARE_MEMBERS(KvRxDynLoadModuleProxy);

public:
    using KvBaseClassWithNew::operator new;
    using KvBaseClassWithNew::operator delete;

    // A new proxy for the image `handle` (null before the image is loaded).
    static KvRxDynLoadModuleProxy* makeProxy(void* handle);
    ~KvRxDynLoadModuleProxy() override;

    // The module's file name as the loader used it; null before it is set.
    const char16_t* moduleName() const { return m_moduleName; }
    // Stores a copy; null clears.
    void setModuleName(const char16_t* name);
    // True while the first message is under way: classes registered meanwhile belong
    // to this module.
    bool initialising() const { return m_initialising; }
    void setInitialising(bool value) { m_initialising = value; }

private:
    explicit KvRxDynLoadModuleProxy(void* handle);

    void* m_moduleHandle;
    char16_t* m_moduleName;
    bool m_initialising;
};
