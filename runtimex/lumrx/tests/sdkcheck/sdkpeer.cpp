// sdkpeer.krx: a module that does nothing but unlock itself; sdkcheck.krx loads it.
#include "kvrxdynamiclinker.h"
#include "kvrxmodule.h"

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    if (code == KvRx::kInitAppMsg) kvrxUnlockApplication(packet);
    return KvRx::kRetOK;
}
