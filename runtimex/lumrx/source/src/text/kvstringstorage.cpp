#include "kvstringstorage.h"

#include "lumplatform/codepage.h"

#include <climits>
#include <cstring>

namespace kvtext {

namespace {

constexpr size_t kHeaderBytes = sizeof(uint32_t);

// The text through the mapper, copied into a buffer of its own length.
char16_t* widenedByMapper(const char* text, size_t bytes) {
    LumVector<char16_t> units;
    int converted = LumCharMapper::multiByteToWideChar(acpId(), text, int(bytes), units);
    size_t n = converted > 0 ? size_t(converted) : 0;
    char16_t* wide = allocWide(n);
    if (wide) std::memcpy(wide, units.asArrayPtr(), (n + 1) * sizeof(char16_t));
    return wide;
}

}  // namespace

char16_t* allocWide(size_t units) {
    if (units > size_t(kMaxBufferUnits)) return nullptr;
    size_t bytes = (units + 1) * sizeof(char16_t);
    auto* block = static_cast<uint32_t*>(_lumMalloc(bytes + kHeaderBytes));
    if (!block) return nullptr;
    *block = uint32_t(bytes / 2 - 1);
    return reinterpret_cast<char16_t*>(block + 1);
}

void freeWide(char16_t* text) {
    if (text) _lumFree(reinterpret_cast<uint32_t*>(text) - 1);
}

uint32_t& header(char16_t* text) { return *(reinterpret_cast<uint32_t*>(text) - 1); }

int wideCapacity(const char16_t* text) {
    uint32_t cap = header(const_cast<char16_t*>(text)) & kCapacityMask;
    return cap == kCapacityMask ? 0 : int(cap);
}

KvStringPair* allocPair(size_t ansiBytes) {
    return static_cast<KvStringPair*>(_lumMalloc(offsetof(KvStringPair, ansi) + ansiBytes));
}

void raise(Kvore::ErrorStatus status) { lumThrowErrorStatus(status, "\"\"", 0); }

LumCodePageMapper::code_page_id acpId() { return LumCodePageMapper::ansiCpToKvoreCp(lumGetACP()); }

void plainWiden(const char* text, LumVector<char16_t>& out) {
    size_t n = std::strlen(text);
    if (n > size_t(INT_MAX / 2 - 1)) lumThrowErrorStatus(Kvore::eOutOfMemory, __FILE__, __LINE__);
    out.resize(int(2 * n + 1));
    char16_t* d = out.asArrayPtr();
    int units = lumplatform::codePageToWide(lumGetACP(), text, int(n), d, int(2 * n));
    if (units < 0) units = 0;
    d[units] = 0;
    out.resize(units + 1);
}

char16_t* widenedBuffer(const char* text, size_t bytes) {
    // A byte gives at most one unit on the pages of this system, so the text converts
    // straight into a buffer of `bytes` units; a page or text that needs more room takes
    // the mapper's road.
    unsigned cp = LumCodePageMapper::kvoreCpToAnsiCp(acpId());
    char16_t* wide = cp && bytes <= size_t(INT_MAX / 2 - 1) ? allocWide(bytes) : nullptr;
    int n = wide ? lumplatform::codePageToWide(cp, text, int(bytes), wide, int(bytes)) : -1;
    if (n < 0) {
        freeWide(wide);
        return widenedByMapper(text, bytes);
    }
    wide[n] = 0;
    n += LumCharMapper::resolveEscapes(wide, n);
    header(wide) = uint32_t(n);  // the capacity is the length, as for any converted text
    return wide;
}

}  // namespace kvtext
