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

// A fatal report to the host: "!" and the formatted text go to the host's fatalError,
// and the call returns if that returns. Without a host it throws as a fatal error.
void kvrx_abort(const char16_t* format, ...);
