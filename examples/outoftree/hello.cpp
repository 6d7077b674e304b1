// hello.krx: the smallest useful extension module. It registers one class in its first
// message, unlocks itself so that it can be unloaded, and dooms the class in its unload
// message.
#include "kvrxclass.h"
#include "kvrxdynamiclinker.h"
#include "kvrxmodule.h"

#include <cstdio>

namespace {
KvRxClass* gHelloClass = nullptr;  // owned by the runtime; doomed at unload
}

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    switch (code) {
    case KvRx::kInitAppMsg:
        gHelloClass = newKvRxClass(u"HelloThing", u"OvRxObject");
        kvrxUnlockApplication(packet);
        std::printf("hello: initialised, class HelloThing registered\n");
        break;
    case KvRx::kUnloadAppMsg:
        deleteKvRxClass(gHelloClass);
        gHelloClass = nullptr;
        std::printf("hello: unloaded\n");
        break;
    default:
        std::printf("hello: message %d\n", int(code));
        break;
    }
    return KvRx::kRetOK;
}
