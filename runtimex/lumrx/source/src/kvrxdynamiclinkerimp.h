// The dynamic linker's one implementation.
//
// Owns: `modules` (the table of modules' proxies, keyed by full file name) and the
// proxies in it, with `m_index` beside it (kvrxmoduleindex.h, changed with it); `pendingDelete` (unloaded proxies whose library waits for the
// outermost unload; they stay in `modules` until then); the dependency tracker; and the
// kernel's own proxy, which it deletes with itself. Reactors are not owned.
//
// Everything runs on the host's main thread. Loads and unloads nest through module
// entry points and reactors: `loadDepth` and `unloadDepth` count that nesting, and only
// the outermost unload releases libraries.
#pragma once

#include "kvrxdynamiclinker.h"
#include "kvrxmoduleindex.h"

#include <string>

class KvRxDictionary;
class KvRxDictionaryIterator;
class KvDbHostRuntime;
class KvRxLinkedList;
class KvRxModuleDependencyTracker;
struct RxKDSAppTableEntryType;

class KvRxDynamicLinkerImp : public KvRxDynamicLinker {
    KVRX_DECLARE_MEMBERS(KvRxDynamicLinkerImp);

public:
    // The kernel's own module proxy; it must exist, as a static of the library does.
    static KvRxDynLoadModuleProxy* kernelProxy();

    // The record of the module whose entry point runs (an all-zero one before any
    // message); the setter gives the previous one.
    static RxKDSAppTableEntryType* setCurKdsData(RxKDSAppTableEntryType* data);
    static RxKDSAppTableEntryType* getCurKdsData();

    KvRxDynamicLinkerImp();
    ~KvRxDynamicLinkerImp() override;
    KvRxDynamicLinkerImp(const KvRxDynamicLinkerImp&) = delete;
    KvRxDynamicLinkerImp& operator=(const KvRxDynamicLinkerImp&) = delete;

    void* getServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol) override;
    void* getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) override;
    bool loadListedModules(const char16_t* listFileName) override;
    bool loadModule(const char16_t* fileName, bool verbose, bool asCommand) override;
    bool loadApp(const char16_t* appName, KvoreApp::LoadReasons reason, bool verbose,
                 bool asCommand) override;
    void* registerService(const char16_t* serviceName, KvRxService* service) override;
    bool unloadModule(const char16_t* fileName, bool asCommand) override;
    bool unloadApp(const char16_t* appName, bool asCommand) override;
    void addReactor(KvRxDLinkerReactor* reactor) override;
    void removeReactor(KvRxDLinkerReactor* reactor) override;
    bool applicationIsLocked(const char16_t* moduleName) override;
    bool lockApplication(void* moduleId) override;
    bool unlockApplication(void* moduleId) override;
    bool isAppMDIAware(const char16_t* moduleName) override;
    bool registerAppMDIAware(void* moduleId) override;
    bool registerAppNotMDIAware(void* moduleId) override;
    bool isAppInNestedLoad(const char16_t* moduleName) override;
    void setAppInNestedLoad(const char16_t* moduleName, bool value) override;
    KvLocale productLocale() override;
    int32_t reservedOperationA(uintptr_t, uintptr_t, uintptr_t) override { return 10; }
    int32_t reservedOperationB(uintptr_t) override { return 10; }
    bool loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason, bool verbose,
                         bool asCommand) override;
    uint32_t productLCID() override;
    bool isModuleLoaded(const char16_t* moduleName) override;
    bool sendMessageToModule(const char16_t* moduleName, KvRx::AppMsgCode code,
                             void* packet) override;
    bool sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                            void* packet) override;
    bool sendMessageToAllModules(KvRx::AppMsgCode code, void* packet) override;
    void getLoadedModules(KvArray<KvRxDynLoadModuleProxy*>& out) override;

    // The proxy stored under the full file name of `name`. A missing one is null, or
    // fatal ("Cannot find module") if `mustExist`.
    KvRxDynLoadModuleProxy* findRxModuleProxyByModuleName(const char16_t* name,
                                                          bool mustExist) const;
    // False when the table of no linker holds a module: every linker's
    // findRxModuleProxyByModuleName(name, false) is null then.
    static bool anyModuleStored() { return KvRxModuleIndex::anyHeld(); }
    int loadedModuleCount() const;
    Kvore::ErrorStatus newIterator(KvRxDictionaryIterator*& out);
    // Unloads every module with messages. `forced` unlocks each candidate first and
    // goes by the tracker's next candidate; otherwise one pass in unload order, and
    // locked modules stay. `quitting` sends the quit message first and keeps the
    // libraries until the linker goes.
    void unloadAllKrxModule(bool quitting, bool forced);

    // Database-aware reactors hear first; clearAllRxReactor drops the reactors whose
    // class is exactly `cls` (all of them for null).
    void addDbAppAware(KvRxDLinkerReactor* reactor);
    void removeDbAppAware(KvRxDLinkerReactor* reactor);
    void clearAllRxReactor(const KvRxClass* cls);

    // The tracker, for hosts that show the graph.
    const KvRxModuleDependencyTracker& dependencyTracker() const { return *m_tracker; }

private:
    using ReactorCall = void (KvRxDLinkerReactor::*)(const char16_t*);

    KvRxDynLoadModuleProxy* ownerOf(void* moduleHandle) const;
    KvRxDynLoadModuleProxy* proxyByAppName(const char16_t* appName) const;
    bool anyNonMdiModule() const;
    bool inTable(KvRxDynLoadModuleProxy* proxy) const;

    void storeModule(const std::u16string& key, KvRxDynLoadModuleProxy* proxy);
    KvRxDynLoadModuleProxy* openModule(const std::u16string& name, const std::u16string& full,
                                       bool verbose, bool asCommand, bool& fresh);
    bool mappedUnderFullName(void* mapped, const std::u16string& name, const std::u16string& full,
                             bool verbose);
    bool openAsFullName(const std::u16string& name, bool verbose, bool asCommand,
                        KvRxDynLoadModuleProxy*& proxy);
    KvRxDynLoadModuleProxy* openImage(const std::u16string& name, const std::u16string& full,
                                      bool verbose, bool asCommand, bool* notFullName = nullptr);
    bool initModule(KvRxDynLoadModuleProxy* proxy, bool verbose);
    bool unloadProxy(KvRxDynLoadModuleProxy* proxy, bool asCommand, bool quitting);
    bool finishUnload(bool asCommand, KvRxDynLoadModuleProxy* proxy, bool quitting);
    void unloadFailedLoad(KvRxDynLoadModuleProxy* proxy);
    void dropServicesOf(KvRxDynLoadModuleProxy* proxy);
    void flushPendingModules();
    void loadStartupApps();
    void notify(ReactorCall call, const char16_t* moduleName);
    void deliverToModule(KvDbHostRuntime* runtime, KvRxDynLoadModuleProxy* proxy,
                         KvRx::AppMsgCode code, void* packet);

    KvRxDictionary* modules;
    KvRxModuleIndex m_index;  // the keys of `modules`, hashed
    KvRxLinkedList* pendingDelete;
    KvArray<KvRxDLinkerReactor*> reactors;
    KvRxModuleDependencyTracker* m_tracker;
    void* currentModuleHandle;  // handle of the module whose entry point runs
    int unloadDepth;
    int appAwareCount;  // reactors added by addDbAppAware
    int loadDepth;
};

// Helpers that the linker's sources share.
// The host's runtime object; null without a host or runtime.
KvDbHostRuntime* kvrxHostRuntime();
// The local file for a caller's module name: remote names are fetched by the host.
// False without a host or if the fetch fails.
bool kvrxResolveModuleName(const char16_t* name, std::u16string& out);
// The name of a library that the product may rename: its prefix followed by `suffix`,
// else `standard` for a product without prefix.
std::u16string kvrxProductLibraryName(const char16_t* suffix, const char16_t* standard);

// The user messages of the linker, by the numbers of the resource library's texts.
namespace KvRxLinkerMessage {
enum Id {
    kLoadFailed = 1001,
    kAlreadyLoaded = 1002,
    kNoEntryPoint = 1004,
    kUnloadRefused = 1005,
    kNotAModule = 1006,
    kLoaded = 1007,
    kDependencyMissing = 1008,
    kFileMissing = 1010,
    kOtherMachine = 1012,
    kWrongApiVersion = 1015,
};
// The text of `id` from the resource library into `out` (1024 units); false if it
// was cut. A missing library or text gives the empty text.
bool loadMessageText(unsigned id, char16_t* out);
// Formats text `id` with the arguments and shows it through the host.
void showMessage(unsigned id, ...);
}  // namespace KvRxLinkerMessage
