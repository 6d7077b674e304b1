#include "lumosbase.h"

#include <cstdlib>

void* _lumMalloc(size_t size) { return std::malloc(size ? size : 1); }

void _lumFree(void* p) { std::free(p); }

char16_t* _lumStrdup(const char16_t* text) {
    if (!text) return nullptr;
    size_t n = LumCharOp::length(text);
    auto* copy = static_cast<char16_t*>(_lumMalloc((n + 1) * sizeof(char16_t)));
    if (!copy) return nullptr;
    std::memcpy(copy, text, (n + 1) * sizeof(char16_t));
    return copy;
}

void _lumStrdupFree(char16_t* copy) { _lumFree(copy); }

void* LumCharOp::zalloc(size_t bytes) { return std::calloc(1, bytes ? bytes : 1); }

void LumCharOp::zfree(void* p) { std::free(p); }

// The empty body starts with one reference that no handle owns, so it is never freed.
LumVectorBody gpEmptyVectorData{{1}, 0, 0, 8};
