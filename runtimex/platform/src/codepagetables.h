// The conversion tables of one code page, built once per process from the system
// converter (ICU, or iconv for Johab) and read-only afterwards, so every thread shares
// them without a lock. Internal to the platform library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumplatform {

// Invariants, kept by the builders in codepagetables.cpp:
// - single[b] is the unit of the byte b read alone, or kNoUnit when b is a lead byte or
//   the page gives no one unit for it.
// - pairs (double-byte pages only) maps lead << 8 | trail to the unit of that pair, or
//   kNoUnit when the pair is no single character of the page.
// - narrow[u] is the code of unit u (one byte, or lead << 8 | trail) only when that code
//   reads back through single or pairs as u itself; every other unit is kEscape and is
//   written as its escape. So a unit never comes back from its narrow form as another.
struct CodePageTables {
    static constexpr char16_t kNoUnit = 0xFFFF;
    static constexpr uint16_t kEscape = 0xFFFF;

    bool lead[256] = {};
    char16_t single[256] = {};
    std::vector<char16_t> pairs;
    std::vector<uint16_t> narrow;
    // Johab has no system converter that agrees with it on irregular bytes; those read
    // as U+FFFD here. The other pages pass them to the system converter.
    bool substitutesItself = false;

    // The unit of the character at p (`left` bytes remain) and its size in bytes;
    // kNoUnit when the character is irregular.
    char16_t unitAt(const unsigned char* p, int left, int& size) const {
        if (!lead[p[0]]) {
            size = 1;
            return single[p[0]];
        }
        if (left < 2) {
            size = 1;
            return kNoUnit;
        }
        size = 2;
        return pairs[size_t(p[0]) << 8 | p[1]];
    }

    bool readsBack(uint16_t code, char16_t unit) const {
        if (code < 0x100) return !lead[code] && single[code] == unit;
        return lead[code >> 8] && !pairs.empty() && pairs[code] == unit;
    }
};

// The tables of the page at `index` in the page list of codepage.cpp, built at first use;
// null when the system converter of the page can't be opened.
const CodePageTables* codePageTables(int index, const char* icuName);

}  // namespace lumplatform
