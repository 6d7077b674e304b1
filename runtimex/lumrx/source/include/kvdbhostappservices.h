// The host application as the runtime reaches it. The host makes one services object
// and hands it over with kvdbSetHostApplicationServices; the runtime never owns it.
// Every caller tests for a null host, and for hostRuntime() giving null.
#pragma once

#include "kvore.h"

class KvRxDynLoadModuleProxy;
class LumCrashRecorder;

class KvDbHostRuntime {
public:
    virtual ~KvDbHostRuntime() = default;
    // True if a module without multi-document awareness may stay loaded.
    virtual bool acceptNonMdiModule() = 0;
    // Told once when no such module remains.
    virtual void nonMdiModulesGone() = 0;
    // The module set last by setCurrentModule.
    virtual KvRxDynLoadModuleProxy* currentModule() = 0;
    // Stores `proxy` (null allowed) and gives the previous value.
    virtual KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) = 0;
    // The handle of the resource module, or null.
    virtual void* resourceInstance() = 0;
    virtual LumCrashRecorder* crashRecorder() = 0;
};

class KvDbHostApplicationServices {
public:
    virtual ~KvDbHostApplicationServices() = default;
    // 0 if found, with the path in `out` (`outSize` units); any other value if not.
    virtual int findFile(char16_t* out, int outSize, const char16_t* name, void* database,
                         int hint) = 0;
    // A finished text, or null. May return.
    virtual void fatalError(const char16_t* text) = 0;
    virtual void displayMessage(const char16_t* text, int length) = 0;
    // 4 means that only the engine key is tried for records and watches.
    virtual int productCode() = 0;
    // The product's root key in the registry.
    virtual const char16_t* productRegistryKey() = 0;
    virtual unsigned hostLCID() = 0;
    virtual KvDbHostRuntime* hostRuntime() = 0;
    // True if `name` must be fetched before it can be opened.
    virtual bool isRemoteName(const char16_t* name) = 0;
    // 20000 or 20001 when a local copy's path is in `out`.
    virtual int fetchRemoteFile(const char16_t* name, char16_t* out, int outSize, int flags) = 0;
};

// Stores the host services pointer (null allowed); always 0.
Kvore::ErrorStatus kvdbSetHostApplicationServices(KvDbHostApplicationServices* host);
KvDbHostApplicationServices* kvdbHostApplicationServices();
