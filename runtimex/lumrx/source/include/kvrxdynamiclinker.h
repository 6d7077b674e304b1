// The dynamic linker of extension modules, found in the system registry under
// "DynamicLinker".
#pragma once

#include "kvoreappinfo.h"
#include "kvrxservice.h"

class KvRxDynLoadModuleProxy;

class KvRxDynamicLinker : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxDynamicLinker);

public:
    // The export `symbol` of the module owning the service; null for a service without
    // owner. A wide symbol whose pointer value fits 16 bits is an ordinal.
    virtual void* getServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol) = 0;
    virtual void* getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) = 0;
    // Loads the module `fileName` (searched for unless the host calls it remote) and
    // sends it its first message; a module loaded already only gains a reference.
    virtual bool loadModule(const char16_t* fileName, bool verbose, bool asCommand) = 0;
    // Puts `service` into "ServiceDictionary", owned by the module whose entry point runs
    // (the kernel outside any message). A name registered already is fatal. Always null.
    virtual void* registerService(const char16_t* serviceName, KvRxService* service) = 0;
    // Drops one reference to a loaded, unlocked module outside its messages; the last
    // one sends the unload message and releases the module.
    virtual bool unloadModule(const char16_t* fileName, bool asCommand) = 0;
    // Loads the module of a filled application record for `reason`.
    virtual bool loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason, bool verbose,
                                 bool asCommand) = 0;
    // Calls the module's entry point with the module made current; false if it fails.
    virtual bool sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                                    void* packet) = 0;
};
