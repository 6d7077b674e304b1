#include "lumplatform/resources.h"

#include "lumplatform/library.h"

namespace lumplatform {

int loadResourceString(void* library, unsigned id, char16_t* out, int outUnits) {
    if (!library || !out || outUnits <= 0) return 0;
    using Lookup = const char16_t* (*)(unsigned);
    auto lookup = reinterpret_cast<Lookup>(librarySymbol(library, kResourceStringSymbol));
    const char16_t* text = lookup ? lookup(id) : nullptr;
    int n = 0;
    for (; text && text[n] && n < outUnits - 1; ++n) out[n] = text[n];
    out[n] = 0;
    return n;
}

}  // namespace lumplatform
