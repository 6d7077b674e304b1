// Reading the two inline escapes of narrow text, on narrow or wide text alike.
// Each test reads its positions in order and stops at the first that fails, so it never
// reads past a terminator.
#pragma once

#include "lumosbase.h"

namespace lumescape {

template <class C>
int hexDigit(C c) {
    if (c >= '0' && c <= '9') return int(c - '0');
    if (c >= 'a' && c <= 'f') return int(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return int(c - 'A' + 10);
    return -1;
}

// Four hexadecimal digits at p, the first the most significant.
template <class C>
bool parseHex4(const C* p, unsigned& value) {
    value = 0;
    for (int i = 0; i < 4; ++i) {
        int d = hexDigit(p[i]);
        if (d < 0) return false;
        value = (value << 4) | unsigned(d);
    }
    return true;
}

template <class C>
bool isEscapeHead(const C* p, char upper) {
    return p[0] == '\\' && (p[1] == C(upper) || p[1] == C(upper + 32)) && p[2] == '+';
}

// "\U+XXXX": one unit.
template <class C>
bool parseCif(const C* p, unsigned& value) {
    return isEscapeHead(p, 'U') && parseHex4(p + 3, value);
}

// "\M+dXXXX" with d from 1 to 5: a double-byte code and the id of its page.
template <class C>
bool parseMif(const C* p, unsigned& value, LumCodePageMapper::code_page_id& id) {
    static const LumCodePageMapper::code_page_id kPages[] = {
        LumCodePageMapper::CODE_PAGE_ANSI_932, LumCodePageMapper::CODE_PAGE_ANSI_950,
        LumCodePageMapper::CODE_PAGE_ANSI_949, LumCodePageMapper::CODE_PAGE_ANSI_1361,
        LumCodePageMapper::CODE_PAGE_ANSI_936};
    if (!isEscapeHead(p, 'M') || !p[3] || !parseHex4(p + 4, value)) return false;
    if (p[3] < '1' || p[3] > '5') return false;
    id = kPages[p[3] - '1'];
    return true;
}

// The bytes of an escape at p as a character count sees it (the MIF digit may be 0 to 5
// there), or 0 when p holds none.
inline int escapeSize(const char* p) {
    unsigned value;
    if (parseCif(p, value)) return 7;
    if (isEscapeHead(p, 'M') && p[3] >= '0' && p[3] <= '5' && parseHex4(p + 4, value)) return 8;
    return 0;
}

}  // namespace lumescape
