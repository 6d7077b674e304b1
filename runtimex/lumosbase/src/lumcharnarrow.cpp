#include "lumosbase.h"

#include "lumescape.h"

namespace {

// The bytes of the character at `p`: an escape, a lead-byte pair or one byte. A lead
// byte before the terminator is a character of its own.
int charSize(const char* p, LumCodePageMapper::code_page_id page) {
    if (int n = lumescape::escapeSize(p)) return n;
    if (p[1] && LumCharMapper::isLeadByte((unsigned char)p[0], page)) return 2;
    return 1;
}

LumCodePageMapper::code_page_id acpId() { return LumCodePageMapper::ansiCpToKvoreCp(lumGetACP()); }

// A narrow text as wide, its escapes resolved.
LumVector<char16_t> widen(const char* text) {
    LumVector<char16_t> wide;
    if (!text) text = "";
    LumCharMapper::multiByteToWideChar(acpId(), text, int(std::strlen(text)), wide);
    return wide;
}

}  // namespace

unsigned LumCharOp::length(const char* text) {
    if (!text) return 0;
    auto page = acpId();
    unsigned n = 0;
    for (const char* p = text; *p; p += charSize(p, page)) ++n;
    return n;
}

const char* LumCharOp::next(const char* text, unsigned n) {
    if (!text) return nullptr;
    auto page = acpId();
    const char* p = text;
    for (; n && *p; --n) p += charSize(p, page);
    return p;
}

int LumCharOp::collate(const char* a, const char* b) {
    return collate(widen(a).asArrayPtr(), widen(b).asArrayPtr());
}

int LumCharOp::collateNoCase(const char* a, const char* b) {
    return collateNoCase(widen(a).asArrayPtr(), widen(b).asArrayPtr());
}
