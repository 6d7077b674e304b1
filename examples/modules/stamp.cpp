// stamp.krx: a module meant to be loaded on demand. Its application record offers the
// command STAMP; the host loads it when the command is run and sends it
// LumRxHost::kRunCommandMsg with the command's name. If greeting.krx is loaded, stamp
// finds its greetingText through the service "GreetingService", without linking
// against it.
#include "examplelog.h"
#include "kvrxdynamiclinker.h"
#include "kvrxmodule.h"
#include "kvstring.h"
#include "lumrxhost.h"

#include <string>

namespace {
int gRuns = 0;
}

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    if (code == KvRx::kInitAppMsg) {
        kvrxUnlockApplication(packet);
        kvrxRegisterAppMDIAware(packet);
        example::say("stamp", code);
        return KvRx::kRetOK;
    }
    if (code != LumRxHost::kRunCommandMsg) {
        example::say("stamp", code);
        return KvRx::kRetOK;
    }
    const auto* command = static_cast<const char16_t*>(packet);
    if (!command) return KvRx::kRetError;
    KvString name(command);
    std::string detail = std::string("command ") + name.utf8Ptr() + ", run " + std::to_string(++gRuns);
    using GreetingText = const char* (*)();
    if (auto greet = reinterpret_cast<GreetingText>(
            kvrxGetServiceSymbolAddr(u"GreetingService", "greetingText")))
        detail += std::string(", greeting service says \"") + greet() + "\"";
    example::say("stamp", code, detail.c_str());
    return KvRx::kRetOK;
}
