// The smallest useful module: it unlocks itself in its first message so that it can be
// unloaded, and answers every message with success.
#include "kvrxdynamiclinker.h"

#include <cstdint>

extern "C" __attribute__((visibility("default"))) uint32_t kvrxGetApiVersion(uintptr_t) {
    return 0x07E50000u;
}

extern "C" __attribute__((visibility("default"))) int kvrxEntryPoint(int code, void* packet) {
    if (code == 1) kvrxUnlockApplication(packet);
    return 0;
}
