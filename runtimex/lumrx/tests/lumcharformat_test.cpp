// Wide formatted printing: the narrow snprintf is the oracle wherever the two share
// behaviour; 16-bit specifics are checked directly. Every successful case also checks that
// counting equals writing and that nothing lands past the counted length.

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "lumosbase.h"
#include "lumplatform/text.h"

namespace {

constexpr char16_t kGuardUnit = 0xBEEF;

std::u16string widen(const std::string& s) { return std::u16string(s.begin(), s.end()); }
std::string utf8(const std::u16string& s) { return lumplatform::toUtf8(s); }

std::u16string format16(const char16_t* fmt, ...) {
    va_list args, copy;
    va_start(args, fmt);
    va_copy(copy, args);
    int n = LumCharOp::formattedLength(fmt, copy);
    va_end(copy);
    EXPECT_GE(n, 0) << utf8(fmt);
    std::vector<char16_t> buf(size_t(n < 0 ? 0 : n) + 9, kGuardUnit);
    int written = n < 0 ? n : LumCharOp::format(buf.data(), fmt, args);
    va_end(args);
    EXPECT_EQ(written, n) << utf8(fmt);
    if (n < 0) return u"<malformed>";
    EXPECT_EQ(buf[size_t(n)], u'\0') << utf8(fmt);
    EXPECT_EQ(std::u16string(buf.begin() + n + 1, buf.end()), std::u16string(8, kGuardUnit))
        << "written past the counted length: " << utf8(fmt);
    return std::u16string(buf.data(), size_t(n));
}

template <class... A>
std::string narrowPrintf(const std::string& fmt, A... args) {
    std::string out(size_t(std::snprintf(nullptr, 0, fmt.c_str(), args...)), '\0');
    std::snprintf(&out[0], out.size() + 1, fmt.c_str(), args...);
    return out;
}

template <class... A>
void expectLikePrintf(const std::string& fmt, A... args) {
    EXPECT_EQ(format16(widen(fmt).c_str(), args...), widen(narrowPrintf(fmt, args...))) << fmt;
}

const char* const kFlags[] = {"", "-", "+", " ", "#", "0", "-+", "+0", " 0", "#0", "-#0", "+ "};

// Unsigned conversions take the unsigned type of the same size.
template <class T>
void expectValue(const std::string& fmt, T v) {
    if constexpr (std::is_integral_v<T>) {
        if (fmt.back() != 'd' && fmt.back() != 'i')
            return expectLikePrintf(fmt, std::make_unsigned_t<T>(v));
    }
    expectLikePrintf(fmt, v);
}

// Every flag set, width and precision against every value, in conversions `convs`.
template <class T>
void checkTable(const std::string& length, const std::string& convs,
                const std::vector<T>& values, std::initializer_list<const char*> widths,
                std::initializer_list<const char*> precisions) {
    for (const char* flags : kFlags)
        for (const char* width : widths)
            for (const char* precision : precisions)
                for (char conv : convs)
                    for (T v : values)
                        expectValue(std::string("%") + flags + width + precision + length + conv,
                                    v);
}

template <class T>
void checkIntegers(const std::string& length, const std::vector<T>& values) {
    checkTable(length, "diuxXo", values, {"", "1", "9", "24"},
               {"", ".", ".0", ".1", ".6", ".22"});
}

template <class F>
void checkFloats(const std::string& length, const std::vector<F>& values) {
    checkTable(length, "eEfFgG", values, {"", "3", "14", "40"}, {"", ".", ".0", ".3", ".17"});
}

TEST(LumCharFormat, IntegersMatchPrintfForEveryFlagWidthPrecisionAndLength) {
    checkIntegers<int>("", {0, 1, -1, 7, 8, 255, -4096, 123456, INT_MAX, INT_MIN});
    // Values that do not fit the converted type must be truncated the way printf does.
    checkIntegers<int>("hh", {0, 5, -1, 127, -128, 200, 0x1234});
    checkIntegers<int>("h", {0, 9, -1, 32767, -32768, 40000, 0x12345});
    checkIntegers<long>("l", {0, -1, LONG_MAX, LONG_MIN});
    checkIntegers<long long>("ll", {0, 1, -1, 1234567890123LL, LLONG_MAX, LLONG_MIN});
    checkIntegers<intmax_t>("j", {0, -77, INTMAX_MAX, INTMAX_MIN});
    checkIntegers<ptrdiff_t>("t", {0, -5, PTRDIFF_MAX, PTRDIFF_MIN});
    checkIntegers<std::make_signed_t<size_t>>("z", {0, 3, -1, PTRDIFF_MAX});
    expectLikePrintf("%zu %zx %llo %llX", SIZE_MAX, SIZE_MAX, ULLONG_MAX, ULLONG_MAX);
}

TEST(LumCharFormat, StarsTakeArgumentsNegativeWidthLeftAlignsNegativePrecisionVanishes) {
    for (int star : {6, -6, 0, -1}) {
        for (const char* fmt : {"[%*d]", "[%-*d]", "[%.*d]", "[%0.*d]", "[%*c]"})
            expectLikePrintf(fmt, star, 42);
        expectLikePrintf("[%.*e|%0*f]", star, 1234.5678, star, -0.5);
    }
    expectLikePrintf("[%*.*x|%d|%*.*f]", 10, 6, 0xabcu, 99, -12, 2, 3.14159);
    EXPECT_EQ(format16(u"[%*.*s|%-*hs]", 7, 2, u"text", 5, "ab"), u"[     te|ab   ]");
}

TEST(LumCharFormat, FloatsMatchPrintfIncludingInfinitiesAndHugeValues) {
    double inf = HUGE_VAL, nan = std::nan("");
    checkFloats<double>("", {0.0, -0.0, 1.0, -2.5, 0.1, 1e-10, 123456789.0, 9.9999996, 1e21,
                             5e-324, inf, -inf, nan, -nan});
    checkFloats<double>("l", {-1.25, 6.02e23});
    checkFloats<long double>("L", {0.0L, -3.75L, 1e-4000L, 1e300L, HUGE_VALL});
    // Hundreds or thousands of digits: the digit buffer must follow the value.
    for (const char* fmt : {"%f", "%+.3f", "%#0400.0f", "%-400e", "%.400f", "%g"}) {
        expectLikePrintf(fmt, DBL_MAX);
        expectLikePrintf(fmt, -DBL_MIN);
    }
    expectLikePrintf("%Lf|%.5000Le|%LG", LDBL_MAX, LDBL_MAX, LDBL_MAX);
    // Precisions past the last nonzero digit any double or long double can have.
    for (const char* fmt : {"%.20000f", "%.16501e", "%+.20000E", "%#.17000g", "%.17000g",
                            "%#.17000G", "%40.16600f", "%020.17000f"})
        for (double v : {1.0 / 3, -0.1, 5e-324, 1e300, 0.0, inf, nan}) expectLikePrintf(fmt, v);
    expectLikePrintf("%.20000Lf|%#.20000Lg", 1.0L / 3, -1e-4000L);
}

TEST(LumCharFormat, PointersTextsAndCharactersMatchPrintf) {
    int object = 0;
    for (const char* fmt : {"%p", "%20p", "%-20p", "%020p", "%+p", "% p", "%.20p", "%#p"}) {
        expectLikePrintf(fmt, static_cast<void*>(&object));
        expectLikePrintf(fmt, static_cast<void*>(nullptr));
    }
    expectLikePrintf("%p|100%% of %d%%", reinterpret_cast<void*>(UINTPTR_MAX), 7);
    for (const char* flags : {"", "-", "0", "-0", "#", "+ "})
        for (const char* width : {"", "1", "5", "16"})
            for (const char* precision : {"", ".", ".0", ".2", ".12"})
                for (const char* text : {"", "a", "abc", "hello, world"}) {
                    std::string spec = std::string("[%") + flags + width + precision;
                    std::u16string expected = widen(narrowPrintf(spec + "s]", text));
                    std::u16string wide = widen(text);
                    EXPECT_EQ(format16(widen(spec + "s]").c_str(), wide.c_str()), expected);
                    EXPECT_EQ(format16(widen(spec + "ls]").c_str(), wide.c_str()), expected);
                    EXPECT_EQ(format16(widen(spec + "hs]").c_str(), text), expected);
                    EXPECT_EQ(format16(widen(spec + "S]").c_str(), text), expected);
                    expected = widen(narrowPrintf(spec + "c]", 'x'));
                    for (const char* conv : {"c]", "lc]", "hc]", "C]"})
                        EXPECT_EQ(format16(widen(spec + conv).c_str(), 'x'), expected) << conv;
                }
}

TEST(LumCharFormat, SurrogatePairsCountAsTwoUnitsAndAreNeverSplit) {
    const char16_t* face = u"a\U0001F600b";
    EXPECT_EQ(format16(u"%.1s|%.2s|%.3s|%.4s", face, face, face, face),
              u"a|a|a\U0001F600|a\U0001F600b");
    EXPECT_EQ(format16(u"[%5s][%-4.1s]", u"\U0001F600", u"\U0001F600"), u"[   \U0001F600][    ]");
    // Precision alone bounds the read: the text need not be terminated.
    const char16_t unterminated[3] = {u'x', u'y', 0xD83D};
    EXPECT_EQ(format16(u"%.3s|%.2s", unterminated, unterminated), u"xy|xy");
    // Units of the format and of %c pass through as they are, lone surrogates and 0 included.
    EXPECT_EQ(format16(u"\u00E4%c\U0001F600%lc\xDC00%c", char16_t(0xD800), u'\u20AC', 0),
              std::u16string(u"\u00E4\xD800\U0001F600\u20AC\xDC00\0", 7));
}

TEST(LumCharFormat, NarrowTextsAreDecodedAsUtf8) {
    const char* mixed = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // é € 😀 z
    EXPECT_EQ(format16(u"%hs|%S", mixed, mixed),
              u"\u00E9\u20AC\U0001F600z|\u00E9\u20AC\U0001F600z");
    // Precision counts output units and stops before a pair that does not fit.
    EXPECT_EQ(format16(u"%.2hs|%.3hs|%.4S", mixed, mixed, mixed),
              u"\u00E9\u20AC|\u00E9\u20AC|\u00E9\u20AC\U0001F600");
    EXPECT_EQ(format16(u"[%6S][%-7hs]", mixed, mixed),
              u"[ \u00E9\u20AC\U0001F600z][\u00E9\u20AC\U0001F600z  ]");
    // Broken input agrees with the platform's decoder: one U+FFFD per maximal broken part.
    for (const char* bytes : {"\xC3", "a\xFF" "b", "\xE2\x82x", "\xC0\xAF", "\xED\xA0\x80",
                              "\xF4\x90\x80\x80", "\xF0\x9F\x98", "\x80\x80", "\xF5\xBF",
                              "\xE0\x9F\x80", "\xEF\xBF\xBF\xF4\x8F\xBF\xBF", "\xC2\x80\xDF"})
        EXPECT_EQ(format16(u"%hs", bytes), lumplatform::fromUtf8(bytes)) << utf8(widen(bytes));
    EXPECT_EQ(format16(u"%hc%C%hc", 'A', char(0xE9), 0), std::u16string(u"A\uFFFD\0", 3));
}

TEST(LumCharFormat, NullTextsPrintNullAndPrecisionCutsThatToo) {
    const char16_t* wideNull = nullptr;
    const char* narrowNull = nullptr;
    EXPECT_EQ(format16(u"%s|%ls|%hs|%S", wideNull, wideNull, narrowNull, narrowNull),
              u"(null)|(null)|(null)|(null)");
    EXPECT_EQ(format16(u"[%.3s][%.3hs][%8s][%-8S][%.0s]", wideNull, narrowNull, wideNull,
                       narrowNull, wideNull),
              u"[(nu][(nu][  (null)][(null)  ][]");
}

// Both entry points give -1 and format leaves an empty text, writing nothing else.
void expectMalformed(const char16_t* fmt, ...) {
    va_list args, copy;
    va_start(args, fmt);
    va_copy(copy, args);
    EXPECT_EQ(LumCharOp::formattedLength(fmt, copy), -1) << utf8(fmt ? fmt : u"null");
    va_end(copy);
    std::u16string buf(8, kGuardUnit);
    EXPECT_EQ(LumCharOp::format(&buf[0], fmt, args), -1);
    va_end(args);
    EXPECT_EQ(buf, u'\0' + std::u16string(7, kGuardUnit)) << utf8(fmt ? fmt : u"null");
}

TEST(LumCharFormat, MalformedFormatsAndOversizedTotalsGiveMinusOne) {
    expectMalformed(u"%", 1);
    expectMalformed(u"ok %d then %-08.3", 1, 2);
    expectMalformed(u"%k", 1);
    expectMalformed(u"%n", nullptr);
    expectMalformed(u"%a", 1.0);
    expectMalformed(u"%5%");
    expectMalformed(u"%Ld", 1LL);
    expectMalformed(u"%hf", 1.0);
    expectMalformed(u"%llc", 1);
    expectMalformed(u"%hhs", "x");
    expectMalformed(u"%lS", "x");
    expectMalformed(u"%lp", nullptr);
    expectMalformed(u"%3000000000d", 1);
    expectMalformed(u"%.3000000000d", 1);
    expectMalformed(nullptr);
    expectMalformed(u"%*d%*d", INT_MAX, 1, INT_MAX, 1);
    expectMalformed(u"%*d", INT_MIN, 1);
}

int measure(const char16_t* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int n = LumCharOp::formattedLength(fmt, args);
    va_end(args);
    return n;
}

TEST(LumCharFormat, CountingReachesIntMaxWithoutWriting) {
    EXPECT_EQ(measure(u"%2147483647d", 1), INT_MAX);
    EXPECT_EQ(measure(u"%.2147483646d!", 5), INT_MAX);
    EXPECT_EQ(measure(u"%*s", INT_MAX - 2, u"ab"), INT_MAX - 2);
    EXPECT_EQ(format16(u""), u"");
}

}  // namespace
