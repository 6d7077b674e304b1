#include "lumplatform/codepage.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <iconv.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace lumplatform {

namespace {

constexpr unsigned kJohab = 1361;

// The pages known here and the ICU converter behind each; Johab has none in ICU.
struct PageName {
    unsigned codePage;
    const char* icuName;
};

constexpr PageName kPages[] = {
    {874, "windows-874"},     {932, "windows-932"},     {936, "windows-936"},
    {949, "windows-949"},     {950, "windows-950"},     {1250, "windows-1250"},
    {1251, "windows-1251"},   {1252, "windows-1252"},   {1253, "windows-1253"},
    {1254, "windows-1254"},   {1255, "windows-1255"},   {1256, "windows-1256"},
    {1257, "windows-1257"},   {1258, "windows-1258"},   {kJohab, nullptr},
    {20936, "GB2312"},        {51949, "windows-51949"},
};
constexpr int kPageCount = int(sizeof kPages / sizeof kPages[0]);

int pageIndex(unsigned codePage) {
    for (int i = 0; i < kPageCount; ++i)
        if (kPages[i].codePage == codePage) return i;
    return -1;
}

void formatEscape(char16_t unit, char* out) {
    static const char kHex[] = "0123456789ABCDEF";
    out[0] = '\\';
    out[1] = 'U';
    out[2] = '+';
    for (int i = 0; i < 4; ++i) out[3 + i] = kHex[(unit >> (12 - 4 * i)) & 0xF];
}

// One open converter for one page. Converters keep state, so each thread has its own.
class PageConverter {
public:
    virtual ~PageConverter() = default;
    virtual int toWide(const char* in, int inBytes, char16_t* out, int outUnits) = 0;
    virtual int toNarrowEscaped(const char16_t* in, int inUnits, char* out, int outBytes) = 0;
    virtual bool charToUnit(const unsigned char* bytes, int count, char16_t& out) = 0;
    virtual void leadBytes(bool lead[256]) = 0;
};

// From-Unicode callback: every unit that can't be written becomes its escape.
void U_CALLCONV writeEscapes(const void*, UConverterFromUnicodeArgs* args, const UChar* units,
                             int32_t length, UChar32, UConverterCallbackReason reason,
                             UErrorCode* err) {
    if (reason > UCNV_IRREGULAR) return;
    *err = U_ZERO_ERROR;
    for (int32_t i = 0; i < length && U_SUCCESS(*err); ++i) {
        char escape[7];
        formatEscape(char16_t(units[i]), escape);
        ucnv_cbFromUWriteBytes(args, escape, 7, 0, err);
    }
}

class IcuPage : public PageConverter {
public:
    explicit IcuPage(UConverter* converter) : m_converter(converter) {}
    ~IcuPage() override { ucnv_close(m_converter); }

    static std::unique_ptr<PageConverter> open(const char* name) {
        UErrorCode err = U_ZERO_ERROR;
        UConverter* c = ucnv_open(name, &err);
        if (U_FAILURE(err)) return nullptr;
        ucnv_setFromUCallBack(c, writeEscapes, nullptr, nullptr, nullptr, &err);
        if (U_FAILURE(err)) {
            ucnv_close(c);
            return nullptr;
        }
        return std::make_unique<IcuPage>(c);
    }

    int toWide(const char* in, int inBytes, char16_t* out, int outUnits) override {
        UErrorCode err = U_ZERO_ERROR;
        int n = ucnv_toUChars(m_converter, reinterpret_cast<UChar*>(out), outUnits, in, inBytes, &err);
        return U_FAILURE(err) ? -1 : n;
    }

    int toNarrowEscaped(const char16_t* in, int inUnits, char* out, int outBytes) override {
        std::u16string escaped;
        if (escapeOneWayUnits(in, inUnits, escaped)) {
            in = escaped.c_str();
            inUnits = int(escaped.size());
        }
        UErrorCode err = U_ZERO_ERROR;
        int n = ucnv_fromUChars(m_converter, out, outBytes, reinterpret_cast<const UChar*>(in),
                                inUnits, &err);
        return U_FAILURE(err) ? -1 : n;
    }

    // Converts with the stop callback, so that an undefined or broken code fails.
    bool charToUnit(const unsigned char* bytes, int count, char16_t& out) override {
        UErrorCode err = U_ZERO_ERROR;
        ucnv_setToUCallBack(m_converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &err);
        UChar units[4];
        int n = ucnv_toUChars(m_converter, units, 4, reinterpret_cast<const char*>(bytes), count, &err);
        UErrorCode restore = U_ZERO_ERROR;
        ucnv_setToUCallBack(m_converter, UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr,
                            &restore);
        if (U_FAILURE(err) || n != 1) return false;
        out = char16_t(units[0]);
        return true;
    }

    void leadBytes(bool lead[256]) override {
        std::memset(lead, 0, 256 * sizeof(bool));
        if (ucnv_getMaxCharSize(m_converter) < 2) return;
        UBool starters[256];
        UErrorCode err = U_ZERO_ERROR;
        ucnv_getStarters(m_converter, starters, &err);
        if (U_FAILURE(err)) return;
        for (int i = 0; i < 256; ++i) lead[i] = starters[i];
    }

private:
    static constexpr char16_t kPrivateFirst = 0xE000, kPrivateLast = 0xF8FF;

    // The converter maps private-use units by one-way fallbacks whatever its fallback
    // switch says, and those don't come back as the same unit. Such units are written
    // as their escapes here, before the conversion; false if the text has none.
    bool escapeOneWayUnits(const char16_t* in, int inUnits, std::u16string& escaped) {
        size_t n = inUnits >= 0 ? size_t(inUnits) : std::char_traits<char16_t>::length(in);
        size_t i = 0;
        while (i < n && roundTrips(in[i])) ++i;
        if (i == n) return false;
        escaped.assign(in, i);
        for (; i < n; ++i) {
            if (roundTrips(in[i])) {
                escaped.push_back(in[i]);
                continue;
            }
            char escape[7];
            formatEscape(in[i], escape);
            escaped.append(escape, escape + 7);
        }
        return true;
    }

    // True for every unit outside the private-use area; inside it, true if the unit
    // converts to bytes that convert back to it. Answers are kept per unit.
    bool roundTrips(char16_t unit) {
        if (unit < kPrivateFirst || unit > kPrivateLast) return true;
        size_t k = size_t(unit - kPrivateFirst);
        if (!m_privateKnown[k]) {
            m_privateRoundTrips[k] = convertsBack(unit);
            m_privateKnown[k] = true;
        }
        return m_privateRoundTrips[k];
    }

    bool convertsBack(char16_t unit) {
        UErrorCode err = U_ZERO_ERROR;
        UChar one = unit, back[4];
        char bytes[8];
        int n = ucnv_fromUChars(m_converter, bytes, sizeof bytes, &one, 1, &err);
        if (U_FAILURE(err) || n <= 0) return false;
        int m = ucnv_toUChars(m_converter, back, 4, bytes, n, &err);
        return U_SUCCESS(err) && m == 1 && back[0] == one;
    }

    UConverter* m_converter;
    std::vector<bool> m_privateKnown = std::vector<bool>(kPrivateLast - kPrivateFirst + 1);
    std::vector<bool> m_privateRoundTrips = std::vector<bool>(kPrivateLast - kPrivateFirst + 1);
};

// Johab through iconv. Bytes below 0x80 are ASCII, as Windows has them (iconv would
// give the won sign for 0x5C, which would break every escape); the rest goes one
// character at a time through iconv.
class JohabPage : public PageConverter {
public:
    JohabPage(iconv_t toWide, iconv_t fromWide) : m_toWide(toWide), m_fromWide(fromWide) {}
    ~JohabPage() override {
        iconv_close(m_toWide);
        iconv_close(m_fromWide);
    }

    static std::unique_ptr<PageConverter> open() {
        iconv_t to = iconv_open(kUtf16, "JOHAB");
        if (to == iconv_t(-1)) return nullptr;
        iconv_t from = iconv_open("JOHAB", kUtf16);
        if (from == iconv_t(-1)) {
            iconv_close(to);
            return nullptr;
        }
        return std::make_unique<JohabPage>(to, from);
    }

    static bool isLead(unsigned char b) {
        return (b >= 0x84 && b <= 0xD3) || (b >= 0xD8 && b <= 0xDE) || (b >= 0xE0 && b <= 0xF9);
    }

    int toWide(const char* in, int inBytes, char16_t* out, int outUnits) override {
        auto* p = reinterpret_cast<const unsigned char*>(in);
        int written = 0;
        for (int i = 0; i < inBytes; ++written) {
            if (written == outUnits) return -1;
            int size = (isLead(p[i]) && i + 1 < inBytes) ? 2 : 1;
            if (p[i] < 0x80) out[written] = p[i];
            else if (!charToUnit(p + i, size, out[written])) out[written] = 0xFFFD;
            i += size;
        }
        return written;
    }

    int toNarrowEscaped(const char16_t* in, int inUnits, char* out, int outBytes) override {
        int written = 0;
        for (int i = 0; i < inUnits; ++i) {
            char bytes[7];
            int size = unitToBytes(in[i], bytes);
            if (size == 0) {
                formatEscape(in[i], bytes);
                size = 7;
            }
            if (written + size > outBytes) return -1;
            std::memcpy(out + written, bytes, size_t(size));
            written += size;
        }
        return written;
    }

    bool charToUnit(const unsigned char* bytes, int count, char16_t& out) override {
        if (count == 1 && bytes[0] < 0x80) {
            out = bytes[0];
            return true;
        }
        if (count != 2 || !isLead(bytes[0])) return false;
        char16_t unit[2];
        char* src = const_cast<char*>(reinterpret_cast<const char*>(bytes));
        size_t srcLeft = 2, outLeft = sizeof unit;
        char* dst = reinterpret_cast<char*>(unit);
        iconv(m_toWide, nullptr, nullptr, nullptr, nullptr);
        if (iconv(m_toWide, &src, &srcLeft, &dst, &outLeft) == size_t(-1) || outLeft != 2) return false;
        out = unit[0];
        return true;
    }

    void leadBytes(bool lead[256]) override {
        for (int i = 0; i < 256; ++i) lead[i] = isLead((unsigned char)i);
    }

private:
    static constexpr const char* kUtf16 =
        __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "UTF-16LE" : "UTF-16BE";

    // The bytes of one unit, or 0 when the page lacks it.
    int unitToBytes(char16_t unit, char* out) {
        if (unit < 0x80) {
            out[0] = char(unit);
            return 1;
        }
        char* src = reinterpret_cast<char*>(&unit);
        size_t srcLeft = 2, outLeft = 7;
        char* dst = out;
        iconv(m_fromWide, nullptr, nullptr, nullptr, nullptr);
        if (iconv(m_fromWide, &src, &srcLeft, &dst, &outLeft) == size_t(-1)) return 0;
        return int(7 - outLeft);
    }

    iconv_t m_toWide;
    iconv_t m_fromWide;
};

// The converters this thread has opened, by index in kPages; closed at thread end.
PageConverter* converterFor(unsigned codePage) {
    thread_local std::unique_ptr<PageConverter> open[kPageCount];
    int i = pageIndex(codePage);
    if (i < 0) return nullptr;
    if (!open[i]) open[i] = kPages[i].icuName ? IcuPage::open(kPages[i].icuName) : JohabPage::open();
    return open[i].get();
}

// The page Windows gives a locale such as "ja_JP.UTF-8".
unsigned codePageOfLocale(const std::string& name) {
    std::string lang = name.substr(0, name.find_first_of("_.@"));
    std::string region;
    size_t sep = name.find('_');
    if (sep != std::string::npos) region = name.substr(sep + 1, 2);
    struct Rule {
        const char* langs;
        unsigned codePage;
    };
    static const Rule kRules[] = {
        {" ja ", 932},
        {" ko ", 949},
        {" ru uk bg be sr mk ", 1251},
        {" pl cs sk hu ro hr sl ", 1250},
        {" el ", 1253},
        {" tr ", 1254},
        {" he ", 1255},
        {" ar fa ", 1256},
        {" lt lv et ", 1257},
        {" vi ", 1258},
        {" th ", 874},
    };
    if (lang == "zh") return (region == "TW" || region == "HK") ? 950 : 936;
    if (lang.empty()) return 1252;
    for (const Rule& r : kRules)
        if (std::strstr(r.langs, (" " + lang + " ").c_str())) return r.codePage;
    return 1252;
}

std::string localeName() {
    for (const char* var : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* v = std::getenv(var);
        if (v && *v) return v;
    }
    return "";
}

}  // namespace

unsigned processAnsiCodePage() {
    const char* forced = std::getenv("LUMRX_ACP");
    if (forced && *forced) {
        char* end = nullptr;
        unsigned long cp = std::strtoul(forced, &end, 10);
        if (end && !*end && isKnownCodePage(unsigned(cp))) return unsigned(cp);
    }
    return codePageOfLocale(localeName());
}

bool isKnownCodePage(unsigned codePage) { return pageIndex(codePage) >= 0; }

int codePageToWide(unsigned codePage, const char* in, int inBytes, char16_t* out, int outUnits) {
    PageConverter* c = converterFor(codePage);
    if (!c || inBytes < 0 || outUnits < 0) return -1;
    return c->toWide(in, inBytes, out, outUnits);
}

int wideToCodePageEscaped(unsigned codePage, const char16_t* in, int inUnits, char* out,
                          int outBytes) {
    PageConverter* c = converterFor(codePage);
    if (!c || inUnits < 0 || outBytes < 0) return -1;
    return c->toNarrowEscaped(in, inUnits, out, outBytes);
}

bool codePageCharToUnit(unsigned codePage, const unsigned char* bytes, int count, char16_t& out) {
    PageConverter* c = converterFor(codePage);
    return c && count > 0 && count <= 2 && c->charToUnit(bytes, count, out);
}

bool codePageLeadBytes(unsigned codePage, bool lead[256]) {
    PageConverter* c = converterFor(codePage);
    if (!c) return false;
    c->leadBytes(lead);
    return true;
}

}  // namespace lumplatform
