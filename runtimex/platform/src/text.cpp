#include "lumplatform/text.h"

#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <clocale>
#include <mutex>
#include <string>

namespace lumplatform {

char16_t toUpperUnit(char16_t c) {
    if (U16_IS_SURROGATE(c)) return c;
    UChar32 u = u_toupper(c);
    return u <= 0xFFFF ? char16_t(u) : c;
}

char16_t toLowerUnit(char16_t c) {
    if (U16_IS_SURROGATE(c)) return c;
    UChar32 u = u_tolower(c);
    return u <= 0xFFFF ? char16_t(u) : c;
}

char16_t foldCaseUnit(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
    if (U16_IS_SURROGATE(c)) return c;
    UChar32 u = u_foldCase(c, U_FOLD_CASE_DEFAULT);
    return u <= 0xFFFF ? char16_t(u) : c;
}

// One collator per locale name; made again when the process locale changes.
static int collateWith(const char16_t* a, const char16_t* b, bool ignoreCase) {
    static std::mutex lock;
    static std::string localeName;
    static UCollator* collator = nullptr;
    std::lock_guard<std::mutex> guard(lock);
    const char* now = std::setlocale(LC_COLLATE, nullptr);
    std::string name = now ? now : "C";
    if (!collator || name != localeName) {
        if (collator) ucol_close(collator);
        UErrorCode status = U_ZERO_ERROR;
        // The C locale takes the root order, in which case is a tertiary difference only.
        std::string icuName = (name == "C" || name == "POSIX") ? "" : name.substr(0, name.find('.'));
        collator = ucol_open(icuName.c_str(), &status);
        if (U_FAILURE(status)) {
            status = U_ZERO_ERROR;
            collator = ucol_open("", &status);
        }
        localeName = name;
    }
    if (!collator) return u_strcmp(reinterpret_cast<const UChar*>(a), reinterpret_cast<const UChar*>(b));
    ucol_setStrength(collator, ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY);
    return ucol_strcoll(collator, reinterpret_cast<const UChar*>(a), -1, reinterpret_cast<const UChar*>(b), -1);
}

int collate(const char16_t* a, const char16_t* b, bool ignoreCase) {
    return collateWith(a ? a : u"", b ? b : u"", ignoreCase);
}

std::string toUtf8(const std::u16string& text) {
    // A leading ASCII run, as most of a path is, goes across unit for byte.
    size_t ascii = 0;
    while (ascii < text.size() && text[ascii] < 0x80) ++ascii;
    std::string out(ascii, '\0');
    for (size_t i = 0; i < ascii; ++i) out[i] = char(text[i]);
    if (ascii == text.size()) return out;
    out.reserve(text.size() + 8);
    for (size_t i = ascii; i < text.size();) {
        UChar32 c;
        U16_NEXT(text.data(), i, text.size(), c);
        if (U_IS_SURROGATE(c)) c = 0xFFFD;
        uint8_t buf[4];
        int32_t n = 0;
        UBool err = false;  // cannot fail: the buffer holds any code point
        U8_APPEND(buf, n, 4, c, err);
        (void)err;
        out.append(reinterpret_cast<char*>(buf), size_t(n));
    }
    return out;
}

std::u16string fromUtf8(const std::string& text) {
    // A leading ASCII run goes across byte for unit.
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    size_t ascii = 0;
    while (ascii < text.size() && s[ascii] < 0x80) ++ascii;
    std::u16string out(ascii, u'\0');
    for (size_t i = 0; i < ascii; ++i) out[i] = char16_t(s[i]);
    if (ascii == text.size()) return out;
    out.reserve(text.size());
    int32_t len = int32_t(text.size());
    for (int32_t i = int32_t(ascii); i < len;) {
        UChar32 c;
        U8_NEXT(s, i, len, c);
        if (c < 0) c = 0xFFFD;
        if (c <= 0xFFFF) {
            out.push_back(char16_t(c));
        } else {
            out.push_back(char16_t(U16_LEAD(c)));
            out.push_back(char16_t(U16_TRAIL(c)));
        }
    }
    return out;
}

}  // namespace lumplatform
