// launcher.krx: loads welcome.krx from inside its own first message, which makes
// welcome a dynamic dependency of launcher unless it was loaded before, and unloads it
// again in its unload message, except when the host quits and unloads everything.
// The file is found through the host, as the module's own directory is current only
// while its image is being opened.
#include "examplelog.h"
#include "kvdbhostappservices.h"
#include "kvrxdynamiclinker.h"
#include "kvrxmodule.h"

#include <string>

namespace {

const char16_t* const kWelcome = u"welcome.krx";
char16_t gWelcomePath[260];  // the name welcome.krx was loaded under; empty if it wasn't

bool loadWelcome() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (!host || host->findFile(gWelcomePath, 260, kWelcome, nullptr, 7) != 0) {
        gWelcomePath[0] = 0;
        return false;
    }
    if (!kvrxLoadModule(gWelcomePath, true, false)) {
        gWelcomePath[0] = 0;
        return false;
    }
    return true;
}

}  // namespace

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    switch (code) {
    case KvRx::kInitAppMsg:
        example::say("launcher", code, "loading welcome.krx");
        if (!loadWelcome()) {
            example::say("launcher", code, "welcome.krx could not be loaded, so launcher refuses to start");
            return KvRx::kRetError;
        }
        kvrxUnlockApplication(packet);
        kvrxRegisterAppMDIAware(packet);
        break;
    case KvRx::kQuitMsg:
        // The host is taking every module down, welcome.krx too: it is not ours to unload.
        gWelcomePath[0] = 0;
        example::say("launcher", code);
        break;
    case KvRx::kUnloadAppMsg:
        example::say("launcher", code, gWelcomePath[0] ? "unloading welcome.krx" : nullptr);
        if (gWelcomePath[0]) kvrxUnloadModule(gWelcomePath, false);
        gWelcomePath[0] = 0;
        break;
    default:
        example::say("launcher", code);
        break;
    }
    return KvRx::kRetOK;
}
