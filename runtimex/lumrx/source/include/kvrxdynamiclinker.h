// The dynamic linker of extension modules, found in the system registry under
// "DynamicLinker"; the observers of its loads and unloads; and the flat functions
// through which hosts and modules reach it.
//
// A module is a shared library exporting "kvrxGetApiVersion" (its high 16 bits must be
// 0x07E5) and "kvrxEntryPoint", which receives every message. The packet of the first
// message is the module's own identity (`moduleId` below).
#pragma once

#include "kvarray.h"
#include "kvoreappinfo.h"
#include "kvrxservice.h"

#include <cstdint>

class KvRxDynLoadModuleProxy;
class KvRxDLinkerReactor;

class KvRxDynamicLinker : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxDynamicLinker);

public:
    // The export `symbol` of the module owning the service; null for a service without
    // owner. A wide symbol whose pointer value fits 16 bits is an ordinal.
    virtual void* getServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol) = 0;
    virtual void* getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) = 0;
    // Loads the applications registered for start-up, then every module named in the
    // list file (one per line; lines starting with ";" or "//" are comments). False if
    // the file or a listed module can't be found.
    virtual bool loadListedModules(const char16_t* listFileName) = 0;
    // Loads the module `fileName` (searched for unless the host calls it remote) and
    // sends it its first message; a module loaded already only gains a reference, or,
    // `asCommand`, is reported as loaded.
    virtual bool loadModule(const char16_t* fileName, bool verbose, bool asCommand) = 0;
    // Loads the module of the application record `appName` (up to a first "|") if the
    // record's load reasons share a bit with `reason`.
    virtual bool loadApp(const char16_t* appName, KvoreApp::LoadReasons reason, bool verbose,
                         bool asCommand) = 0;
    // Puts `service` into "ServiceDictionary", owned by the module whose entry point runs
    // (the kernel outside any message). A name registered already is fatal. Always null.
    virtual void* registerService(const char16_t* serviceName, KvRxService* service) = 0;
    // Drops one reference to a loaded, unlocked module outside its messages; the last
    // one sends the unload message and releases the module, unless a module that needs
    // it is loaded.
    virtual bool unloadModule(const char16_t* fileName, bool asCommand) = 0;
    // unloadModule of the module loaded for the application record `appName`.
    virtual bool unloadApp(const char16_t* appName, bool asCommand) = 0;
    // Observers, not owned: a reactor must be removed before it is destroyed.
    virtual void addReactor(KvRxDLinkerReactor* reactor) = 0;
    virtual void removeReactor(KvRxDLinkerReactor* reactor) = 0;
    virtual bool applicationIsLocked(const char16_t* moduleName) = 0;
    // A locked module refuses unloads; every module starts locked. `moduleId` is the
    // packet of the module's first message; anything but a module identity is fatal.
    virtual bool lockApplication(void* moduleId) = 0;
    virtual bool unlockApplication(void* moduleId) = 0;
    // True for a module that isn't loaded.
    virtual bool isAppMDIAware(const char16_t* moduleName) = 0;
    virtual bool registerAppMDIAware(void* moduleId) = 0;
    virtual bool registerAppNotMDIAware(void* moduleId) = 0;
    // Set while observers hear of a load nested in another module's load.
    virtual bool isAppInNestedLoad(const char16_t* moduleName) = 0;
    virtual void setAppInNestedLoad(const char16_t* moduleName, bool value) = 0;
    virtual KvLocale productLocale() = 0;
    virtual int32_t reservedOperationA(uintptr_t, uintptr_t, uintptr_t) = 0;
    virtual int32_t reservedOperationB(uintptr_t) = 0;
    // Loads the module of a filled application record for `reason`.
    virtual bool loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason, bool verbose,
                                 bool asCommand) = 0;
    virtual uint32_t productLCID() = 0;
    virtual bool isModuleLoaded(const char16_t* moduleName) = 0;
    // Delivers `code` to the module stored under `moduleName` (its whole path); true
    // if the module was found, whatever it replied.
    virtual bool sendMessageToModule(const char16_t* moduleName, KvRx::AppMsgCode code,
                                     void* packet) = 0;
    // Calls the module's entry point with the module made current; false if it fails.
    virtual bool sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                                    void* packet) = 0;
    // Delivers `code` to every module in the table; always false.
    virtual bool sendMessageToAllModules(KvRx::AppMsgCode code, void* packet) = 0;
    // Appends the table's modules, including those waiting for their release.
    virtual void getLoadedModules(KvArray<KvRxDynLoadModuleProxy*>& out) = 0;
};

// Hears of every module load and unload, by the module's file name. The defaults do
// nothing; observers derive from it.
class KvRxDLinkerReactor : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxDLinkerReactor);

public:
    KvRxDLinkerReactor();
    ~KvRxDLinkerReactor() override;

    // A new module is about to get its first message.
    virtual void rxAppWillBeLoaded(const char16_t* moduleName);
    // Its first message succeeded and its classes are linked.
    virtual void rxAppLoaded(const char16_t* moduleName);
    // The load failed after rxAppWillBeLoaded.
    virtual void rxAppLoadAborted(const char16_t* moduleName);
    // An unload has passed its guards.
    virtual void rxAppWillBeUnloaded(const char16_t* moduleName);
    // The module had its unload message and lost its services; its image is mapped.
    virtual void rxAppUnloaded(const char16_t* moduleName);
    // Never called by the linker.
    virtual void rxAppUnloadAborted(const char16_t* moduleName);
};

bool kvrxLoadModule(const char16_t* fileName, bool verbose, bool asCommand);
// Loads the application record `appName` for a request by name (load reason 8).
bool kvrxLoadApp(const char16_t* appName, bool verbose);
bool kvrxUnloadModule(const char16_t* fileName, bool asCommand);
bool kvrxUnloadApp(const char16_t* appName, bool asCommand);
bool kvrxApplicationIsLocked(const char16_t* moduleName);
bool kvrxLockApplication(void* moduleId);
bool kvrxUnlockApplication(void* moduleId);
bool kvrxIsAppMDIAware(const char16_t* moduleName);
bool kvrxRegisterAppMDIAware(void* moduleId);
bool kvrxRegisterAppNotMDIAware(void* moduleId);
// Whether the module with the file name `moduleName` is in the linker's table.
bool kvrxAppIsLoaded(const char16_t* moduleName);
// The file names (with extension, without directory) of the modules in the table. The
// caller owns the array and each name, a block of 260 units from _lumMalloc.
KvArray<char16_t*, KvArrayMemCopyReallocator<char16_t*>>* kvrxLoadedApps();
// Unloads every module with its messages, dependents before what they need: the host's
// shut-down (`quitting`: the quit message first, and the libraries stay mapped until
// the runtime shuts down). `forced` unlocks each module first; otherwise locked
// modules stay.
void kvrxUnloadAllModules(bool quitting, bool forced);
bool kvrxLoadAutoloadApps(const char16_t*);    // always false
bool kvrxUnloadAutoloadApps(const char16_t*);  // always false

// What a host shows of the linker's state. The names are borrowed from the linker and
// stay valid until the next load or unload.
struct KvRxModuleState {
    const char16_t* moduleName;  // the table key: the module's full file name
    const char16_t* appName;     // the application record it was loaded for, or null
    int refCount;
    bool locked;
    bool mdiAware;
    bool pendingRelease;  // unloaded, its library not yet released
};
struct KvRxModuleDependency {
    const char16_t* moduleName;  // the module that needs...
    const char16_t* dependsOn;   // ...this one
    bool isStatic;               // linked against it, rather than loaded from its first message
};
// Who owns a service: none (no such service, or registered without a module), the
// kernel, or a module, whose full file name then goes to `moduleName` (borrowed, valid
// until the next unload).
enum class KvRxServiceOwner { kNone, kKernel, kModule };
KvRxServiceOwner kvrxServiceOwner(const char16_t* serviceName, const char16_t** moduleName);
// Appends the state of every module in the table, in table order.
void kvrxGetModuleStates(KvArray<KvRxModuleState>& out);
// Appends every edge of the dependency graph.
void kvrxGetModuleDependencies(KvArray<KvRxModuleDependency>& out);
