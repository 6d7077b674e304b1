#include "codepagetables.h"

#include <unicode/ucnv.h>

#include <iconv.h>

#include <memory>
#include <mutex>

namespace lumplatform {

namespace {

using Tables = CodePageTables;

constexpr int kMaxPages = 32;

// Codes of the Johab table of KS C 5601 that the system converter lacks: the full-width
// space and the standalone final consonants, which read as the compatibility jamo.
struct JohabExtra {
    uint16_t code;
    char16_t unit;
};
constexpr JohabExtra kJohabExtras[] = {
    {0x8441, 0x3000}, {0x8442, 0x3131}, {0x8443, 0x3132}, {0x8445, 0x3134}, {0x8448, 0x3137},
    {0x8449, 0x3139}, {0x8451, 0x3141}, {0x8453, 0x3142}, {0x8455, 0x3145}, {0x8456, 0x3146},
    {0x8457, 0x3147}, {0x8458, 0x3148}, {0x8459, 0x314A}, {0x845A, 0x314B}, {0x845B, 0x314C},
    {0x845C, 0x314D}, {0x845D, 0x314E},
};

bool johabLead(unsigned b) {
    return (b >= 0x84 && b <= 0xD3) || (b >= 0xD8 && b <= 0xDE) || (b >= 0xE0 && b <= 0xF9);
}

// Keeps the code of `unit` when it reads back as the unit; the unit is escaped otherwise.
void offerNarrow(Tables& t, char16_t unit, const unsigned char* bytes, size_t size) {
    uint16_t code = size == 1 ? bytes[0] : size == 2 ? uint16_t(bytes[0] << 8 | bytes[1]) : Tables::kEscape;
    if (code != Tables::kEscape && t.readsBack(code, unit)) t.narrow[unit] = code;
}

struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using IcuConverter = std::unique_ptr<UConverter, ConverterCloser>;

// One character of `count` bytes with the stop callback: its unit, or kNoUnit when the
// bytes are no single character the page defines.
char16_t icuUnit(UConverter* c, const unsigned char* bytes, int count) {
    UErrorCode err = U_ZERO_ERROR;
    UChar units[4];
    int n = ucnv_toUChars(c, units, 4, reinterpret_cast<const char*>(bytes), count, &err);
    return (U_SUCCESS(err) && n == 1) ? char16_t(units[0]) : Tables::kNoUnit;
}

// The narrow codes of the whole plane in one pass: the offsets tie each output byte to
// the unit it came from; units the page lacks write nothing.
void icuNarrow(UConverter* c, Tables& t) {
    std::vector<UChar> units;
    for (unsigned u = 1; u < 0x10000; ++u)
        if (u < 0xD800 || u > 0xDFFF) units.push_back(UChar(u));
    std::vector<char> bytes(units.size() * size_t(ucnv_getMaxCharSize(c)));
    std::vector<int32_t> offsets(bytes.size());
    UErrorCode err = U_ZERO_ERROR;
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_SKIP, nullptr, nullptr, nullptr, &err);
    const UChar* src = units.data();
    char* dst = bytes.data();
    ucnv_fromUnicode(c, &dst, dst + bytes.size(), &src, src + units.size(), offsets.data(), true, &err);
    if (U_FAILURE(err)) return;
    size_t n = size_t(dst - bytes.data());
    for (size_t i = 0, j; i < n; i = j) {
        for (j = i + 1; j < n && offsets[j] == offsets[i];) ++j;
        offerNarrow(t, char16_t(units[size_t(offsets[i])]), reinterpret_cast<unsigned char*>(&bytes[i]), j - i);
    }
}

bool buildFromIcu(const char* name, Tables& t) {
    UErrorCode err = U_ZERO_ERROR;
    IcuConverter c(ucnv_open(name, &err));
    if (U_FAILURE(err)) return false;
    ucnv_setToUCallBack(c.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &err);
    if (ucnv_getMaxCharSize(c.get()) >= 2) {
        UBool starters[256];
        ucnv_getStarters(c.get(), starters, &err);
        if (U_FAILURE(err)) return false;
        for (int b = 0; b < 256; ++b) t.lead[b] = starters[b];
    }
    bool anyLead = false;
    for (unsigned b = 0; b < 256; ++b) {
        unsigned char byte = (unsigned char)b;
        t.single[b] = t.lead[b] ? Tables::kNoUnit : icuUnit(c.get(), &byte, 1);
        anyLead |= t.lead[b];
    }
    if (anyLead) {
        t.pairs.assign(0x10000, Tables::kNoUnit);
        for (unsigned code = 0x100; code < 0x10000; ++code) {
            if (!t.lead[code >> 8]) continue;
            unsigned char pair[2] = {(unsigned char)(code >> 8), (unsigned char)code};
            t.pairs[code] = icuUnit(c.get(), pair, 2);
        }
    }
    icuNarrow(c.get(), t);
    return true;
}

// One conversion of `inBytes` bytes through iconv; the output size, or -1.
long iconvOnce(iconv_t cd, const void* in, size_t inBytes, void* out, size_t outBytes) {
    char* src = const_cast<char*>(static_cast<const char*>(in));
    char* dst = static_cast<char*>(out);
    size_t outLeft = outBytes;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &src, &inBytes, &dst, &outLeft) == size_t(-1) || inBytes) return -1;
    return long(outBytes - outLeft);
}

// Johab through iconv, except that bytes below 0x80 are ASCII as Windows has them (iconv
// gives the won sign for 0x5C, which would break every escape).
bool buildJohab(Tables& t) {
    static const char* const kUtf16 = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "UTF-16LE" : "UTF-16BE";
    iconv_t toWide = iconv_open(kUtf16, "JOHAB");
    if (toWide == iconv_t(-1)) return false;
    iconv_t fromWide = iconv_open("JOHAB", kUtf16);
    if (fromWide == iconv_t(-1)) {
        iconv_close(toWide);
        return false;
    }
    t.substitutesItself = true;
    for (unsigned b = 0; b < 256; ++b) {
        t.lead[b] = johabLead(b);
        t.single[b] = b < 0x80 ? char16_t(b) : Tables::kNoUnit;
    }
    t.pairs.assign(0x10000, Tables::kNoUnit);
    for (unsigned code = 0x100; code < 0x10000; ++code) {
        if (!t.lead[code >> 8]) continue;
        unsigned char pair[2] = {(unsigned char)(code >> 8), (unsigned char)code};
        char16_t unit[2];
        if (iconvOnce(toWide, pair, 2, unit, sizeof unit) == 2) t.pairs[code] = unit[0];
    }
    for (const JohabExtra& e : kJohabExtras) t.pairs[e.code] = e.unit;
    for (unsigned u = 1; u < 0x10000; ++u) {
        if (u >= 0xD800 && u <= 0xDFFF) continue;
        char16_t unit = char16_t(u);
        unsigned char bytes[8];
        if (u < 0x80) bytes[0] = (unsigned char)u;
        long n = u < 0x80 ? 1 : iconvOnce(fromWide, &unit, 2, bytes, sizeof bytes);
        if (n > 0) offerNarrow(t, unit, bytes, size_t(n));
    }
    iconv_close(toWide);
    iconv_close(fromWide);
    return true;
}

}  // namespace

const CodePageTables* codePageTables(int index, const char* icuName) {
    struct Slot {
        std::once_flag once;
        std::unique_ptr<Tables> tables;
    };
    static Slot slots[kMaxPages];
    if (index < 0 || index >= kMaxPages) return nullptr;
    Slot& slot = slots[index];
    std::call_once(slot.once, [&slot, icuName] {
        auto t = std::make_unique<Tables>();
        t->narrow.assign(0x10000, Tables::kEscape);
        t->narrow[0] = 0;
        if (icuName ? buildFromIcu(icuName, *t) : buildJohab(*t)) slot.tables = std::move(t);
    });
    return slot.tables.get();
}

}  // namespace lumplatform
