#include "lumosbase.h"

#include "lumplatform/text.h"

char* LumCharOp::copy(char* dst, const char* src) { return std::strcpy(dst, src); }

char16_t* LumCharOp::copy(char16_t* dst, const char16_t* src, unsigned n) {
    std::memmove(dst, src, size_t(n) * sizeof(char16_t));
    return dst;
}

char16_t* LumCharOp::copy(char16_t* dst, unsigned dstSize, const char16_t* src, unsigned n) {
    return copy(dst, src, n < dstSize ? n : dstSize);
}

unsigned LumCharOp::length(const char16_t* text) {
    if (!text) return 0;
    const char16_t* p = text;
    while (*p) ++p;
    return unsigned(p - text);
}

const char16_t* LumCharOp::find(const char16_t* text, const char16_t* what) {
    if (!text || !what) return nullptr;
    if (!*what) return text;
    for (const char16_t* p = text; *p; ++p) {
        const char16_t *a = p, *b = what;
        while (*a && *b && *a == *b) ++a, ++b;
        if (!*b) return p;
    }
    return nullptr;
}

const char* LumCharOp::find(const char* text, const char* what) {
    if (!text || !what) return nullptr;
    return std::strstr(text, what);
}

int LumCharOp::compare(const char16_t* a, const char16_t* b) {
    if (!a) a = u"";
    if (!b) b = u"";
    while (*a && *a == *b) ++a, ++b;
    return int(*a) - int(*b);
}

// ASCII folds here; only other units ask the platform's Unicode tables.
static inline char16_t foldUnit(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
    return lumplatform::foldCaseUnit(c);
}

int LumCharOp::compareNoCase(const char16_t* a, const char16_t* b) {
    if (!a) a = u"";
    if (!b) b = u"";
    for (;; ++a, ++b) {
        if (*a == *b) {
            if (!*a) return 0;
            continue;
        }
        char16_t ca = foldUnit(*a), cb = foldUnit(*b);
        if (ca != cb) return int(ca) - int(cb);
    }
}

int LumCharOp::compareNoCase(const char* a, const char* b) {
    if (!a) a = "";
    if (!b) b = "";
    for (;; ++a, ++b) {
        unsigned char ca = static_cast<unsigned char>(*a), cb = static_cast<unsigned char>(*b);
        if (ca >= 'A' && ca <= 'Z') ca = ca + 32;
        if (cb >= 'A' && cb <= 'Z') cb = cb + 32;
        if (ca != cb || !ca) return int(ca) - int(cb);
    }
}

int LumCharOp::collate(const char16_t* a, const char16_t* b) { return lumplatform::collate(a, b, false); }

int LumCharOp::collateNoCase(const char16_t* a, const char16_t* b) {
    return lumplatform::collate(a, b, true);
}

char16_t LumCharOp::toUpper(char16_t c) { return lumplatform::toUpperUnit(c); }

char16_t LumCharOp::toLower(char16_t c) { return lumplatform::toLowerUnit(c); }
