// Start-up and shut-down of the runtime, and its roots.
//
// The host calls InitializeKvRxSystem once and UninitializeKvRxSystem once per
// process; a second start is fatal. The host services object is the host's own and
// may be set before or after start-up.
#pragma once

#include "kvdbhostappservices.h"
#include "kvrxclass.h"
#include "kvrxdictionary.h"

void InitializeKvRxSystem();
void UninitializeKvRxSystem();

// The root dictionary of named objects: "ClassDictionary", "DynamicLinker",
// "ServiceDictionary". Only between start-up and shut-down.
KvRxDictionary* kvrxSysRegistry();

// The class registered under `name`, in any case; null if absent, empty or null.
KvRxClass* kvrxFindKvRxClass(const char16_t* name);

// The holder of the runtime's roots, and its fatal paths. There is at most one
// instance, made by InitializeKvRxSystem and freed by UninitializeKvRxSystem; its
// roots are reached through kvrxSysRegistry.
class KvRxModuleGlobal {
public:
    // The instance, or null before start-up and after shut-down.
    static KvRxModuleGlobal* GetInstance();
    // Formats the message, reports the exception to the crash recorder and throws it as
    // a LumExceptionWithMsg*. A null format gives "Error abort!".
    [[noreturn]] static void fatalError(const char16_t* format, ...);
    // fatalError for an object of the wrong class: "Rx module fatal error, code is 46".
    [[noreturn]] static void fatalStatus();

    KvRxModuleGlobal(const KvRxModuleGlobal&) = delete;
    KvRxModuleGlobal& operator=(const KvRxModuleGlobal&) = delete;

private:
    friend class KvRxModuleGlobalImp;
    KvRxModuleGlobal() = default;
};

// A fatal report to the host: "!" and the formatted text go to the host's fatalError,
// and the call returns if that returns. Without a host it throws as a fatal error.
void kvrx_abort(const char16_t* format, ...);
