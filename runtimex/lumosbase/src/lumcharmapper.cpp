#include "lumosbase.h"

#include "lumescape.h"
#include "lumplatform/codepage.h"
#include "lumplatform/text.h"

#include <atomic>
#include <climits>
#include <mutex>
#include <string>

namespace {

// Gives `out` the `n` units (or bytes) of `data` and a terminating zero.
template <class T>
int fill(LumVector<T>& out, const T* data, size_t n) {
    if (n >= size_t(INT_MAX)) lumThrowErrorStatus(6, __FILE__, __LINE__);
    out.resize(int(n) + 1);
    T* d = out.asArrayPtr();
    if (n) std::memcpy(d, data, n * sizeof(T));
    d[n] = 0;
    return int(n);
}

// Writes the character of an escape at `r` to `*w` and moves `r` past the escape; false
// when `r` holds none, or a MIF code its page can't give.
bool resolveEscapeAt(const char16_t*& r, char16_t* w) {
    if (r[0] != u'\\' || r[1] == 0 || r[2] != u'+') return false;
    unsigned value;
    LumCodePageMapper::code_page_id id;
    if ((r[1] == u'U' || r[1] == u'u') && lumescape::parseCif(r, value)) {
        *w = char16_t(value);
        r += 7;
        return true;
    }
    if ((r[1] == u'M' || r[1] == u'm') && lumescape::parseMif(r, value, id)) {
        char16_t out = 0;
        bool ok = LumCharMapper::codepageToUnicode(value, 8, id, out);
        if (out == u'?') out = char16_t(value);  // unmappable: the raw code stands in
        else if (!ok || out == 0) return false;
        *w = out;
        r += 8;
        return true;
    }
    return false;
}

// The read and write positions where resolving in place ended.
struct Resolved {
    const char16_t* read;
    char16_t* written;
};

Resolved resolveAll(char16_t* text) {
    const char16_t* r = text;
    char16_t* w = text;
    while (*r) {
        if (!resolveEscapeAt(r, w)) *w = *r++;
        ++w;
    }
    *w = 0;
    return {r, w};
}

// The first backslash or zero unit of the n units at p (p[n] is zero). Blocks of 32
// units are tested whole, a test the compiler runs in vector registers; the block with
// a hit, and the tail, are walked unit by unit.
char16_t* firstBackslash(char16_t* p, size_t n) {
    constexpr size_t kBlock = 32;
    size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        uint16_t hit = 0;  // a 16-bit flag, so that the test stays in vector lanes
        for (size_t k = 0; k < kBlock; ++k) {
            uint16_t unit = p[i + k];
            hit |= uint16_t((unit == u'\\') | (unit == 0));
        }
        if (hit) break;
    }
    while (p[i] && p[i] != u'\\') ++i;
    return p + i;
}

}  // namespace

int LumCharMapper::resolveEscapes(char16_t* text) {
    Resolved end = resolveAll(text);
    return int(end.written - end.read);
}

int LumCharMapper::resolveEscapes(char16_t* text, int units) {
    char16_t* rest = firstBackslash(text, size_t(units));
    return *rest ? resolveEscapes(rest) : 0;
}

int LumCharMapper::multiByteToWideChar(LumCodePageMapper::code_page_id id, const char* text,
                                       int byteCount, LumVector<char16_t>& out) {
    unsigned cp = LumCodePageMapper::kvoreCpToAnsiCp(id);
    if (!cp || !text || byteCount < 0 || byteCount > (INT_MAX - 1) / 2) {
        fill<char16_t>(out, nullptr, 0);
        return -1;
    }
    // A byte gives at most one unit, except for pages that map a pair to a surrogate pair.
    out.resize(2 * byteCount + 1);
    char16_t* d = out.asArrayPtr();
    int n = lumplatform::codePageToWide(cp, text, byteCount, d, 2 * byteCount);
    if (n < 0) {
        fill<char16_t>(out, nullptr, 0);
        return -1;
    }
    d[n] = 0;
    // Text up to the first backslash has no escape to resolve.
    char16_t* rest = firstBackslash(d, size_t(n));
    int units = int((*rest ? resolveAll(rest).written : rest) - d);
    out.resize(units + 1);
    return units;
}

int LumCharMapper::utf8ToUnicode(const char* text, int byteCount, LumVector<char16_t>& out) {
    std::u16string wide;
    if (text && byteCount > 0) wide = lumplatform::fromUtf8(std::string(text, size_t(byteCount)));
    return fill(out, wide.c_str(), std::char_traits<char16_t>::length(wide.c_str()));
}

int LumCharMapper::unicodeToUtf8(const char16_t* wide, int unitCount, LumVector<char>& out) {
    std::string bytes;
    if (wide && unitCount > 0) bytes = lumplatform::toUtf8(std::u16string(wide, size_t(unitCount)));
    return fill(out, bytes.c_str(), std::strlen(bytes.c_str()));
}

bool LumCharMapper::codepageToUnicode(unsigned code, int /*codeBytes*/,
                                      LumCodePageMapper::code_page_id id, char16_t& out) {
    unsigned cp = LumCodePageMapper::kvoreCpToAnsiCp(id);
    if (!cp || !lumplatform::isKnownCodePage(cp)) return false;
    unsigned char bytes[2] = {(unsigned char)(code >> 8), (unsigned char)code};
    bool single = bytes[0] == 0;
    if (!lumplatform::codePageCharToUnit(cp, single ? bytes + 1 : bytes, single ? 1 : 2, out))
        out = u'?';
    return true;
}

// The lead-byte table of each page id, filled at first use. Invariant: a table is read
// only after its `ready` flag is seen set, and it is never written after that; the flag
// is tested without a lock, since this runs for every byte a narrow walk steps over.
bool LumCharMapper::isLeadByte(unsigned char byte, LumCodePageMapper::code_page_id id) {
    struct Table {
        std::atomic<bool> ready{false};
        bool lead[256];
    };
    static Table tables[64];
    static std::mutex filling;
    if (int(id) <= 0 || int(id) >= 64) return false;
    Table& t = tables[id];
    if (!t.ready.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(filling);
        if (!t.ready.load(std::memory_order_relaxed)) {
            unsigned cp = LumCodePageMapper::kvoreCpToAnsiCp(id);
            if (!cp || !lumplatform::codePageLeadBytes(cp, t.lead)) std::memset(t.lead, 0, sizeof t.lead);
            t.ready.store(true, std::memory_order_release);
        }
    }
    return t.lead[byte];
}

int LumCharOp::WideCharToMultiByteCIF(unsigned codePage, unsigned /*flags*/, const char16_t* wide,
                                      int wideCount, char* out, int outSize, int /*reserved*/) {
    if (!wide || !out || outSize <= 0) return 0;
    // With -1 the terminator is converted too, and counted.
    long units = wideCount < 0 ? long(LumCharOp::length(wide)) + 1 : wideCount;
    if (units > INT_MAX) return 0;
    int n = lumplatform::wideToCodePageEscaped(codePage, wide, int(units), out, outSize);
    return n < 0 ? 0 : n;
}
