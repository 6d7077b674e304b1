#include "lumplatform/codepage.h"

#include "codepagetables.h"

#include <unicode/ucnv.h>

#include <algorithm>
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

const CodePageTables* tablesFor(unsigned codePage) {
    int i = pageIndex(codePage);
    return i < 0 ? nullptr : codePageTables(i, kPages[i].icuName);
}

struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};

// The system converter of an ICU page, for the irregular bytes the tables leave to it.
// Converters keep state, so each thread opens its own; closed at thread end.
UConverter* icuConverterFor(unsigned codePage) {
    thread_local std::unique_ptr<UConverter, ConverterCloser> open[kPageCount];
    int i = pageIndex(codePage);
    if (i < 0 || !kPages[i].icuName) return nullptr;
    if (!open[i]) {
        UErrorCode err = U_ZERO_ERROR;
        UConverter* c = ucnv_open(kPages[i].icuName, &err);
        if (U_FAILURE(err)) return nullptr;
        open[i].reset(c);
    }
    return open[i].get();
}

// The rest of the text from a character boundary, through the system converter with its
// substitution of irregular bytes.
int icuToWide(unsigned codePage, const char* in, int inBytes, char16_t* out, int outUnits) {
    UConverter* c = icuConverterFor(codePage);
    if (!c) return -1;
    UErrorCode err = U_ZERO_ERROR;
    int n = ucnv_toUChars(c, reinterpret_cast<UChar*>(out), outUnits, in, inBytes, &err);
    return U_FAILURE(err) ? -1 : n;
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

// The leading elements of in[0..n) that map one for one through `table`, converted into
// out, and their count; a mapped value for which `ends` is true ends the run. With
// `blocks` (a single-byte page) sixteen go at a time with no branch per element: a block
// is written whole, and one that holds an ending value is walked again one by one, which
// stops there. Double-byte text has a lead byte every few bytes, so there the walk is
// one by one throughout.
template <class In, class Value, class Out, class Ends>
int oneForOneRun(bool blocks, const Value* table, const In* in, int n, Out* out, Ends ends) {
    constexpr int kBlock = 16;
    int i = 0;
    for (; blocks && i + kBlock <= n; i += kBlock) {
        bool ended = false;
        for (int k = 0; k < kBlock; ++k) {
            Value value = table[in[i + k]];
            out[i + k] = Out(value);
            ended |= ends(value);
        }
        if (ended) break;
    }
    for (; i < n; ++i) {
        Value value = table[in[i]];
        if (ends(value)) break;
        out[i] = Out(value);
    }
    return i;
}

// The leading bytes of p[0..n) that are one character each (a lead byte has no unit
// alone), converted into out, and their count.
int singleByteRun(const CodePageTables& t, const unsigned char* p, int n, char16_t* out) {
    return oneForOneRun(t.pairs.empty(), t.single, p, n, out,
                        [](char16_t unit) { return unit == CodePageTables::kNoUnit; });
}

// The leading units of in[0..n) whose codes are one byte each, converted into out, and
// their count; a code of 0x100 or more (a pair, an escape) ends the run.
int singleByteCodeRun(const CodePageTables& t, const char16_t* in, int n, char* out) {
    return oneForOneRun(t.pairs.empty(), t.narrow.data(), in, n, out,
                        [](uint16_t code) { return code >= 0x100; });
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
    const CodePageTables* t = tablesFor(codePage);
    if (!t || inBytes < 0 || outUnits < 0) return -1;
    auto* p = reinterpret_cast<const unsigned char*>(in);
    int written = 0;
    for (int i = 0, size; i < inBytes; i += size, ++written) {
        int run = singleByteRun(*t, p + i, std::min(inBytes - i, outUnits - written), out + written);
        i += run;
        written += run;
        if (i == inBytes) break;
        char16_t unit = t->unitAt(p + i, inBytes - i, size);
        if (unit == CodePageTables::kNoUnit) {
            if (!t->substitutesItself) {
                int rest = icuToWide(codePage, in + i, inBytes - i, out + written, outUnits - written);
                return rest < 0 ? -1 : written + rest;
            }
            unit = 0xFFFD;
        }
        if (written == outUnits) return -1;
        out[written] = unit;
    }
    return written;
}

int wideToCodePageEscaped(unsigned codePage, const char16_t* in, int inUnits, char* out,
                          int outBytes) {
    const CodePageTables* t = tablesFor(codePage);
    if (!t || inUnits < 0 || outBytes < 0) return -1;
    int written = 0;
    for (int i = 0; i < inUnits; ++i) {
        int run = singleByteCodeRun(*t, in + i, std::min(inUnits - i, outBytes - written), out + written);
        i += run;
        written += run;
        if (i == inUnits) break;
        uint16_t code = t->narrow[in[i]];
        int size = code < 0x100 ? 1 : code == CodePageTables::kEscape ? 7 : 2;
        if (size > outBytes - written) return -1;
        if (size == 1) out[written] = char(code);
        else if (size == 2) out[written] = char(code >> 8), out[written + 1] = char(code);
        else formatEscape(in[i], out + written);
        written += size;
    }
    return written;
}

bool codePageCharToUnit(unsigned codePage, const unsigned char* bytes, int count, char16_t& out) {
    const CodePageTables* t = tablesFor(codePage);
    if (!t || count < 1 || count > 2) return false;
    int size = 0;
    char16_t unit = t->unitAt(bytes, count, size);
    if (unit == CodePageTables::kNoUnit || size != count) return false;
    out = unit;
    return true;
}

bool codePageLeadBytes(unsigned codePage, bool lead[256]) {
    const CodePageTables* t = tablesFor(codePage);
    if (!t) return false;
    std::memcpy(lead, t->lead, sizeof t->lead);
    return true;
}

}  // namespace lumplatform
