// What the lumrx-host program sends to modules beyond the kernel's own messages. A
// module that offers commands through its application record answers kRunCommandMsg.
#pragma once

#include "kvrxservice.h"

namespace LumRxHost {

// `run COMMAND`: the packet is the command's name as the user gave it, a
// const char16_t*, valid for the length of the call. The module's answer is shown.
constexpr KvRx::AppMsgCode kRunCommandMsg = static_cast<KvRx::AppMsgCode>(100);

}  // namespace LumRxHost
