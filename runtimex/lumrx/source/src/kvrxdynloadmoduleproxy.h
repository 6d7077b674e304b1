// The record of one loaded module, and the module's identity towards itself.
// Owns its name (from _lumStrdup), its KDS record (from _lumMalloc) and, after a
// successful loadImage, a reference to its image. The linker owns the proxies it makes.
#pragma once

#include "kvore.h"
#include "kvrxobject.h"
#include "kvrxservice.h"

#include <atomic>

class KvRxDynLoadModuleProxy;

// The per-module record that code outside this library reads through the current KDS
// pointer; this library fills only `moduleName` and `proxy`.
struct RxKDSAppTableEntryType {
    void* reserved0;
    const char16_t* moduleName;  // as it was when the record was made
    void* reserved2[5];
    KvRxDynLoadModuleProxy* proxy;
    void* reserved8[2];
};

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
    bool inMessage() const { return m_inMessage; }
    // Neither locked nor in a message, and no reference left.
    bool isUnloadable() const { return !m_locked && !m_inMessage && m_refCount == 0; }

    // Loads the image named by moduleName with the module's directory current for the
    // call. 0 on success or if an image is there already, -1 without a name, else the
    // loader's error (126 missing, 193 not loadable).
    int loadImage();
    // Releases the image if loadImage loaded it.
    void unloadImage();
    // The module's record, made on first use.
    RxKDSAppTableEntryType* kdsAppData() const;

    // The module's export, null without an image.
    void* getProc(const char* symbol) const;
    // Delivers a message through the linker; false if it fails or throws.
    bool sendMessageToApp(KvRx::AppMsgCode code, void* packet);

private:
    explicit KvRxDynLoadModuleProxy(void* handle);

    mutable RxKDSAppTableEntryType* m_kdsData;
    void* m_moduleHandle;
    char16_t* m_moduleName;
    std::atomic<int> m_refCount;
    bool m_locked;  // every module starts locked
    bool m_inMessage;
    bool m_ownsImage;
    bool m_initialising;
};
