// The storage behind KvString: wide buffers with their header word, the pair record,
// and raising errors. Internal to the text subsystem.
#pragma once

#include "kvore.h"
#include "lumosbase.h"

#include <cstddef>
#include <cstdint>

namespace kvtext {

// Header bits of a wide buffer.
constexpr uint32_t kCapacityMask = 0x3FFFFFFF;
constexpr uint32_t kBadBufferRequest = 0x40000000;
constexpr uint32_t kUnusedBit = 0x80000000;
constexpr int kMaxBufferUnits = 0x3FFFFFFE;

// A wide buffer for `units` units and the terminator, or null; the header holds the
// capacity. Refused above 0x3FFFFFFE units.
char16_t* allocWide(size_t units);
void freeWide(char16_t* text);
uint32_t& header(char16_t* text);
// Capacity in units, terminator not counted; the value 0x3FFFFFFF reads as 0.
int wideCapacity(const char16_t* text);

// One text in both renderings: an owned wide buffer and the narrow bytes behind it.
struct KvStringPair {
    char16_t* wide;
    char ansi[1];
};
// A record with room for `ansiBytes` narrow bytes, terminator included; null if none.
KvStringPair* allocPair(size_t ansiBytes);

// Units of a wide text before its terminator, four units a round.
inline size_t unitCount(const char16_t* text) {
    const char16_t* p = text;
    for (;; p += 4) {
        if (!p[0]) return size_t(p - text);
        if (!p[1]) return size_t(p - text) + 1;
        if (!p[2]) return size_t(p - text) + 2;
        if (!p[3]) return size_t(p - text) + 3;
    }
}

// Raises a Kvore::ErrorStatus: records it with the crash recorder and throws a
// LumErrorStatus*, which the catcher owns.
[[noreturn]] void raise(Kvore::ErrorStatus status);

// The id of the process code page, for the narrow conversions.
LumCodePageMapper::code_page_id acpId();

// Narrow text of `bytes` bytes in the process code page as a new wide buffer whose
// capacity is its length, with its escapes resolved, as
// LumCharMapper::multiByteToWideChar renders it (text the page can't convert gives the
// empty text); null when memory runs out.
char16_t* widenedBuffer(const char* text, size_t bytes);

// Narrow text in the process code page to wide, without resolving escapes (a backslash
// stays a backslash). The vector ends with a zero unit.
void plainWiden(const char* text, LumVector<char16_t>& out);

}  // namespace kvtext
