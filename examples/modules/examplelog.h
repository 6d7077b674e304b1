// Shared by the example modules: one short line for each message a module gets, so that
// the host's output shows the road every module takes.
#pragma once

#include "kvrxservice.h"
#include "lumrxhost.h"

#include <cstdio>

namespace example {

inline const char* messageName(KvRx::AppMsgCode code) {
    switch (int(code)) {
    case KvRx::kInitAppMsg: return "initialise";
    case KvRx::kUnloadAppMsg: return "unload";
    case KvRx::kQuitMsg: return "quit";
    case KvRx::kDependencyMsg: return "first dependency";
    case KvRx::kNoDependencyMsg: return "no dependency";
    case LumRxHost::kRunCommandMsg: return "run command";
    default: return "other";
    }
}

// "  [module] message N (name): detail"
inline void say(const char* module, KvRx::AppMsgCode code, const char* detail = nullptr) {
    std::printf("  [%s] message %d (%s)%s%s\n", module, int(code), messageName(code),
                detail ? ": " : "", detail ? detail : "");
}

}  // namespace example
