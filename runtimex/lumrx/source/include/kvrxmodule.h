// What an extension module (*.krx) exports for the dynamic linker, for module authors
// to include in the one source file that defines the two entry points:
//
//     #include "kvrxmodule.h"
//     KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }
//     KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
//         if (code == KvRx::kInitAppMsg) kvrxUnlockApplication(packet);
//         return KvRx::kRetOK;
//     }
//
// The linker calls kvrxGetApiVersion once, with 0, when it opens the module: the high 16
// bits of the answer must be 0x07E5, the low 16 bits are the module's own. Every message
// then goes to kvrxEntryPoint; 0 (kRetOK) is success. The packet of the first message
// (kInitAppMsg) is the module's identity, which it gives back to kvrxUnlockApplication
// to become unloadable and to kvrxRegisterAppMDIAware.
#pragma once

#include "kvrxservice.h"

#include <cstdint>

namespace KvRx {
constexpr uint32_t kModuleApiVersion = 0x07E50000u;
}  // namespace KvRx

// Marks a definition as exported with C linkage, also when the module is compiled with
// hidden symbol visibility.
#define KVRX_MODULE_EXPORT extern "C" __attribute__((visibility("default")))

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t);
KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet);
