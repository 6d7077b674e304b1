// The record of one loaded module, and the module's identity towards itself.
// Owns its names (from _lumStrdup), its KDS record (from _lumMalloc) and, after a
// successful loadImage, a reference to its image. The linker owns the proxies it makes
// (a proxy flushed while its load road runs belongs to that road until it ends); the
// dependency tracker owns the node the proxy points to.
#pragma once

#include "kvore.h"
#include "kvoreappinfo.h"
#include "kvrxobject.h"
#include "kvrxservice.h"

#include <atomic>
#include <cstdint>

class KvRxDynLoadModuleProxy;
struct KvRxDependencyNode;

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

    // Proxies are equal when they stand for the same image; anything but a proxy is
    // fatal.
    bool isEqualTo(const KvRxObject* other) const override;
    KvRx::Ordering comparedTo(const KvRxObject* other) const override;

    void* moduleHandle() const { return m_moduleHandle; }
    // The module's file name as the loader used it; null before it is set.
    const char16_t* moduleName() const { return m_moduleName; }
    // Stores a copy; null clears.
    void setModuleName(const char16_t* name);
    // The application record the module was loaded for; null for a load by file name.
    const char16_t* appName() const { return m_appName; }
    void setAppName(const char16_t* name);
    KvoreApp::LoadReasons loadReason() const { return m_loadReason; }
    void setLoadReason(KvoreApp::LoadReasons reason) { m_loadReason = reason; }
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
    void setInMessage(bool value) { m_inMessage = value; }
    // The module works with several open documents.
    bool mdiAware() const { return m_mdiAware; }
    void setMdiAware(bool value) { m_mdiAware = value; }
    // Set while observers hear of a load nested in another module's load.
    bool nestedLoad() const { return m_nestedLoad; }
    void setNestedLoad(bool value) { m_nestedLoad = value; }
    // 1 loaded on command, 2 by a non-command load, 3 on command and later asked for by
    // a non-command load.
    uint8_t loadOrigin() const { return m_loadOrigin; }
    void setLoadOrigin(uint8_t origin) { m_loadOrigin = origin; }
    // The module's node in the dependency graph, null when it has none.
    KvRxDependencyNode* dependencyNode() const { return m_dependencyNode; }
    void setDependencyNode(KvRxDependencyNode* node) { m_dependencyNode = node; }
    // Neither locked nor in a message, and no reference left.
    bool isUnloadable() const { return !m_locked && !m_inMessage && m_refCount == 0; }
    // Set once the linker's unload has passed its guards: the module is on its way out
    // (its unload under way, or waiting for its release), whatever its count says.
    bool goingOut() const { return m_goingOut; }
    void setGoingOut() { m_goingOut = true; }
    // Set while the load road that made the proxy runs: the linker's flush then releases
    // the image and the table entry but leaves the object to that road (`flushed`).
    bool heldByLoad() const { return m_heldByLoad; }
    void setHeldByLoad(bool value) { m_heldByLoad = value; }
    bool flushed() const { return m_flushed; }
    void setFlushed() { m_flushed = true; }
    // Set when a class takes the module as its owner; while it is clear no class names
    // the module, and the unload has no class to take back.
    bool mayOwnClasses() const { return m_mayOwnClasses; }
    void setMayOwnClasses() { m_mayOwnClasses = true; }

    // Loads the image named by moduleName with the module's directory current for the
    // call. 0 on success or if an image is there already, -1 without a name, else the
    // loader's error (126 missing, 193 not loadable). With `asFullName`, only if
    // moduleName is the file's own full name; else nothing is loaded and the result is
    // lumplatform::kNotItsFullName.
    int loadImage(bool asFullName = false);
    // Releases the image if loadImage loaded it.
    void unloadImage();
    // The module's record, made on first use.
    RxKDSAppTableEntryType* kdsAppData() const;

    // The module's export, null without an image.
    void* getProc(const char* symbol) const;
    // The export "kvrxEntryPoint", looked up once per image; null without one.
    void* entryPoint() const;
    // Delivers a message through the linker; false if it fails or throws.
    bool sendMessageToApp(KvRx::AppMsgCode code, void* packet);

private:
    explicit KvRxDynLoadModuleProxy(void* handle);

    mutable RxKDSAppTableEntryType* m_kdsData;
    KvRxDependencyNode* m_dependencyNode;
    void* m_moduleHandle;
    // The entry point of the image `m_moduleHandle` once found, else null: cleared
    // whenever the handle goes, so it always belongs to the image held.
    mutable void* m_entryPoint;
    char16_t* m_moduleName;
    char16_t* m_appName;
    KvoreApp::LoadReasons m_loadReason;  // 16 until a record says otherwise
    std::atomic<int> m_refCount;
    bool m_locked;  // every module starts locked
    bool m_inMessage;
    bool m_mdiAware;
    bool m_ownsImage;  // only then is the image released with the proxy
    bool m_nestedLoad;
    uint8_t m_loadOrigin;
    bool m_initialising;
    bool m_goingOut;
    bool m_heldByLoad;
    bool m_flushed;
    bool m_mayOwnClasses;
};
