// welcome.krx: links against greeting.krx (a static dependency, found beside it) and
// calls its export in the first message; registers "WelcomeBanner", a class below
// greeting's "GreetingPhrase", so greeting.krx must have had its first message before.
// The class belongs to the runtime and is doomed at unload.
#include "examplelog.h"
#include "greeting.h"
#include "kvrxclass.h"
#include "kvrxdynamiclinker.h"
#include "kvrxruntime.h"

#include <string>

namespace {
KvRxClass* gBanner = nullptr;
}

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    switch (code) {
    case KvRx::kInitAppMsg: {
        // A class whose parent isn't registered would break the linking of the class
        // tree: without greeting's first message, welcome refuses to start.
        if (!kvrxFindKvRxClass(u"GreetingPhrase")) {
            example::say("welcome", code, "class GreetingPhrase is missing: load greeting.krx first");
            return KvRx::kRetError;
        }
        gBanner = newKvRxClass(u"WelcomeBanner", u"GreetingPhrase");
        kvrxUnlockApplication(packet);
        kvrxRegisterAppMDIAware(packet);
        std::string detail = std::string("greeting.krx says \"") + greetingText() + "\"";
        example::say("welcome", code, detail.c_str());
        break;
    }
    case KvRx::kUnloadAppMsg:
        deleteKvRxClass(gBanner);
        gBanner = nullptr;
        example::say("welcome", code);
        break;
    default:
        example::say("welcome", code);
        break;
    }
    return KvRx::kRetOK;
}
