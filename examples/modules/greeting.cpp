// greeting.krx: registers the class "GreetingPhrase" and the service "GreetingService"
// in its first message, and exports greetingText for modules that link against it or
// find it through the service.
//
// Owns the service object it registered (kvrxRegisterService gives it to the caller);
// it lives as long as the image, since the linker takes it out of the service dictionary
// only after the unload message. The class belongs to the runtime and is doomed at
// unload.
#include "greeting.h"

#include "examplelog.h"
#include "kvrxclass.h"
#include "kvrxdynamiclinker.h"

#include <memory>

namespace {

// An object of the registered class, made by the class's factory.
class GreetingPhrase : public KvRxObject {
public:
    KvRxClass* isA() const override { return gClass; }
    static KvRxObject* make() { return new GreetingPhrase; }
    static KvRxClass* gClass;
};
KvRxClass* GreetingPhrase::gClass = nullptr;

std::unique_ptr<KvRxService> gService;

}  // namespace

KVRX_MODULE_EXPORT const char* greetingText() { return "Hello from greeting.krx"; }

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    switch (code) {
    case KvRx::kInitAppMsg:
        GreetingPhrase::gClass = newKvRxClass(u"GreetingPhrase", u"OvRxObject", 0, &GreetingPhrase::make);
        gService.reset(static_cast<KvRxService*>(kvrxRegisterService(u"GreetingService")));
        kvrxUnlockApplication(packet);
        kvrxRegisterAppMDIAware(packet);
        example::say("greeting", code, "registered class GreetingPhrase and service GreetingService");
        break;
    case KvRx::kUnloadAppMsg:
        deleteKvRxClass(GreetingPhrase::gClass);
        GreetingPhrase::gClass = nullptr;
        example::say("greeting", code, "class GreetingPhrase doomed");
        break;
    default:
        example::say("greeting", code);
        break;
    }
    return KvRx::kRetOK;
}
