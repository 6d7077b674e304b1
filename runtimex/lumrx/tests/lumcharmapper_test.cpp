// Code pages, escapes and byte streams of the LumOsBase stand-in.
#include "lumosbase.h"
#include "lumplatform/codepage.h"
#include "lumstreambuf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

using Id = LumCodePageMapper::code_page_id;

// The page of this run, unless the run names one.
[[maybe_unused]] const int kForcePage = setenv("LUMRX_ACP", "1252", 0);

std::u16string toWide(Id id, const std::string& bytes) {
    LumVector<char16_t> out;
    int n = LumCharMapper::multiByteToWideChar(id, bytes.data(), int(bytes.size()), out);
    EXPECT_EQ(n < 0 ? 1 : n + 1, out.length());
    EXPECT_EQ(0, out[out.length() - 1]);
    return n < 0 ? u"<failed>" : std::u16string(out.asArrayPtr(), size_t(n));
}

std::string toNarrow(unsigned cp, const std::u16string& wide) {
    std::string out(7 * wide.size() + 1, '#');
    int n = LumCharOp::WideCharToMultiByteCIF(cp, 0, wide.c_str(), -1, &out[0], int(out.size()), 0);
    if (n <= 0) return "<failed>";
    EXPECT_EQ(0, out[size_t(n) - 1]);
    return out.substr(0, size_t(n) - 1);
}

std::u16string resolved(std::u16string text, int* result = nullptr) {
    int r = LumCharMapper::resolveEscapes(&text[0]);
    if (result) *result = r;
    return text.c_str();
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old, m_had = true;
        if (value) setenv(name, value, 1);
        else unsetenv(name);
    }
    ~ScopedEnv() {
        if (m_had) setenv(m_name, m_old.c_str(), 1);
        else unsetenv(m_name);
    }

private:
    const char* m_name;
    std::string m_old;
    bool m_had = false;
};

}  // namespace

TEST(CodePages, ProcessPageFollowsTheForcedPageOrTheLocaleLanguage) {
    ScopedEnv acp("LUMRX_ACP", nullptr);
    ScopedEnv ctype("LC_CTYPE", nullptr);
    ScopedEnv lang("LANG", nullptr);
    struct Case {
        const char* locale;
        unsigned page;
    } cases[] = {{"ja_JP.UTF-8", 932}, {"zh_TW.UTF-8", 950}, {"zh_HK", 950}, {"zh_CN.GB2312", 936},
                 {"zh_SG", 936},       {"ko_KR.EUC-KR", 949}, {"uk_UA", 1251},  {"cs_CZ", 1250},
                 {"el_GR", 1253},      {"tr_TR", 1254},       {"he_IL", 1255},  {"fa_IR", 1256},
                 {"et_EE", 1257},      {"vi_VN", 1258},       {"th_TH", 874},   {"de_DE.UTF-8", 1252},
                 {"C.UTF-8", 1252},    {"", 1252}};
    for (const Case& c : cases) {
        ScopedEnv all("LC_ALL", c.locale);
        EXPECT_EQ(c.page, lumplatform::processAnsiCodePage()) << c.locale;
    }
    ScopedEnv all("LC_ALL", "ja_JP.UTF-8");
    {
        ScopedEnv forced("LUMRX_ACP", "1251");
        EXPECT_EQ(1251u, lumplatform::processAnsiCodePage());
    }
    for (const char* unknown : {"65001", "12x", "-1"}) {
        ScopedEnv forced("LUMRX_ACP", unknown);
        EXPECT_EQ(932u, lumplatform::processAnsiCodePage()) << unknown;
    }
}

TEST(CodePages, IdsOfThePagesTheEscapesName) {
    EXPECT_EQ(38, LumCodePageMapper::ansiCpToKvoreCp(932));
    EXPECT_EQ(41, LumCodePageMapper::ansiCpToKvoreCp(950));
    EXPECT_EQ(40, LumCodePageMapper::ansiCpToKvoreCp(949));
    EXPECT_EQ(42, LumCodePageMapper::ansiCpToKvoreCp(1361));
    EXPECT_EQ(39, LumCodePageMapper::ansiCpToKvoreCp(936));
    EXPECT_EQ(46, LumCodePageMapper::ansiCpToKvoreCp(1252));
    EXPECT_EQ(LumCodePageMapper::CODE_PAGE_UNDEFINED, LumCodePageMapper::ansiCpToKvoreCp(65001));
    // Every page with an id converts, and ids are distinct.
    for (unsigned cp : {874u, 932u, 936u, 949u, 950u, 1250u, 1251u, 1252u, 1253u, 1254u, 1255u, 1256u,
                        1257u, 1258u, 1361u, 20936u, 51949u}) {
        Id id = LumCodePageMapper::ansiCpToKvoreCp(cp);
        EXPECT_EQ(cp, LumCodePageMapper::kvoreCpToAnsiCp(id));
        EXPECT_EQ(u"abc", toWide(id, "abc")) << cp;
    }
    EXPECT_EQ(u"<failed>", toWide(LumCodePageMapper::CODE_PAGE_DBCS_25, "abc"));
}

TEST(CodePages, LeadBytesComeFromThePage) {
    EXPECT_TRUE(LumCharMapper::isLeadByte(0x81, LumCodePageMapper::CODE_PAGE_ANSI_932));
    EXPECT_TRUE(LumCharMapper::isLeadByte(0xE0, LumCodePageMapper::CODE_PAGE_ANSI_932));
    EXPECT_FALSE(LumCharMapper::isLeadByte(0xA1, LumCodePageMapper::CODE_PAGE_ANSI_932));  // half-width kana
    EXPECT_FALSE(LumCharMapper::isLeadByte('\\', LumCodePageMapper::CODE_PAGE_ANSI_932));
    EXPECT_TRUE(LumCharMapper::isLeadByte(0xB0, LumCodePageMapper::CODE_PAGE_ANSI_949));
    EXPECT_TRUE(LumCharMapper::isLeadByte(0x84, LumCodePageMapper::CODE_PAGE_ANSI_1361));
    EXPECT_FALSE(LumCharMapper::isLeadByte(0xD4, LumCodePageMapper::CODE_PAGE_ANSI_1361));
    EXPECT_TRUE(LumCharMapper::isLeadByte(0xF9, LumCodePageMapper::CODE_PAGE_ANSI_1361));
    for (int b = 0; b < 256; ++b) EXPECT_FALSE(LumCharMapper::isLeadByte((unsigned char)b, LumCodePageMapper::CODE_PAGE_ANSI_1252));
    EXPECT_FALSE(LumCharMapper::isLeadByte(0x81, LumCodePageMapper::CODE_PAGE_DBCS_31));
}

TEST(CodePages, MultiByteTextResolvesEscapesButNotTrailBytes) {
    const Id sjis = LumCodePageMapper::CODE_PAGE_ANSI_932, latin = LumCodePageMapper::CODE_PAGE_ANSI_1252;
    EXPECT_EQ(u"A\u3042\u00e9", toWide(sjis, "\\U+0041\x82\xA0\\u+00e9"));
    // 0x83 0x5C is one character in 932, so the backslash of the pair starts no escape.
    EXPECT_EQ(u"\u30BDU+0041", toWide(sjis, "\x83\x5CU+0041"));
    EXPECT_EQ(u"\u0192A", toWide(latin, "\x83\\U+0041"));
    // MIF: a double-byte code of the named page, in either case.
    EXPECT_EQ(u"x\u3042y", toWide(latin, "x\\M+182A0y"));
    EXPECT_EQ(u"\u3042", toWide(latin, "\\m+182a0"));
    // Truncated and undefined double-byte sequences become substitutes, nothing more.
    std::u16string cut = toWide(sjis, "ab\x82");
    EXPECT_EQ(3u, cut.size());
    EXPECT_EQ(u"ab", cut.substr(0, 2));
    EXPECT_EQ(u"", toWide(sjis, ""));
    // The byte count may include the terminator; the text ends there.
    EXPECT_EQ(u"ab", toWide(latin, std::string("ab\0cd", 5)));
}

TEST(CodePages, WideToMultiByteEscapesWhatThePageLacks) {
    EXPECT_EQ("A\xE9\\U+0100", toNarrow(1252, u"A\u00e9\u0100"));
    EXPECT_EQ("\x82\xA0\\U+00E9", toNarrow(932, u"\u3042\u00e9"));
    // Lone surrogates and pairs outside the page: one escape per unit.
    EXPECT_EQ("\\U+D800x\\U+DC00", toNarrow(1252, u"\xD800x\xDC00"));
    EXPECT_EQ("\\U+D83D\\U+DE00", toNarrow(932, u"\U0001F600"));
    // A unit the page writes as bytes that read back as another unit gets its escape.
    EXPECT_EQ("\\U+F86F", toNarrow(932, u"\uF86F"));
    // Every unit of a text fits in 7 bytes, and the result always survives the trip back.
    std::u16string all;
    for (char16_t u = 1; u < 0x3000; u += 7) all += u;
    // The whole private-use area: some of it maps only one way in double-byte pages.
    for (char16_t u = 0xE000; u <= 0xF8FF; ++u) all += u;
    all += u"\xDBFF\xFFFF";
    for (unsigned cp : {1252u, 932u, 949u, 1251u, 1361u}) {
        Id id = LumCodePageMapper::ansiCpToKvoreCp(cp);
        std::string narrow = toNarrow(cp, all);
        EXPECT_LE(narrow.size(), 7 * all.size());
        EXPECT_EQ(all, toWide(id, narrow)) << cp;
    }
    char small[4];
    EXPECT_EQ(0, LumCharOp::WideCharToMultiByteCIF(1252, 0, u"\u0100", -1, small, 4, 0));
    EXPECT_EQ(0, LumCharOp::WideCharToMultiByteCIF(65001, 0, u"a", -1, small, 4, 0));
    EXPECT_EQ(0, LumCharOp::WideCharToMultiByteCIF(1252, 0, nullptr, -1, small, 4, 0));
}

TEST(CodePages, JohabKeepsAsciiAsWindowsHasIt) {
    EXPECT_EQ("a\\b\x88\x61", toNarrow(1361, u"a\\b\uAC00"));
    EXPECT_EQ(u"a\\b\uAC00\u00e9", toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, "a\\b\x88\x61\\U+00E9"));
    std::u16string cut = toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, "\x88\x61\x88");
    EXPECT_EQ(2u, cut.size());
    EXPECT_EQ(u'\uAC00', cut[0]);
}

TEST(CodePages, EveryUnitOfThePlaneSurvivesTheNarrowFormOfEveryPage) {
    // Each unit followed by the text of an escape: a unit written as a backslash would
    // take the escape along (the won sign of Johab is byte 0x5C). The backslash itself
    // is plain text of the page and starts the escape, so it is left out here.
    std::u16string text;
    for (unsigned u = 1; u < 0x10000; ++u)
        if (u != '\\') text += char16_t(u), text += u"U+0041";
    for (unsigned cp : {932u, 936u, 949u, 950u, 1361u, 20936u, 51949u, 874u, 1250u, 1251u, 1252u, 1253u,
                        1254u, 1255u, 1256u, 1257u, 1258u}) {
        Id id = LumCodePageMapper::ansiCpToKvoreCp(cp);
        std::u16string back = toWide(id, toNarrow(cp, text));
        auto diff = std::mismatch(text.begin(), text.end(), back.begin(), back.end());
        EXPECT_TRUE(diff.first == text.end() && diff.second == back.end())
            << cp << ": unit " << std::hex << unsigned(diff.first == text.end() ? 0 : *diff.first);
    }
    EXPECT_EQ("\\U+20A9U+0041", toNarrow(1361, u"\u20A9U+0041"));
    EXPECT_EQ(u"\u20A9U+0041", toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, toNarrow(1361, u"\u20A9U+0041")));
}

TEST(CodePages, JohabReadsTheFullWidthSpaceAndTheStandaloneFinals) {
    const std::pair<unsigned, char16_t> codes[] = {
        {0x8441, 0x3000}, {0x8442, 0x3131}, {0x8443, 0x3132}, {0x8445, 0x3134}, {0x8448, 0x3137},
        {0x8449, 0x3139}, {0x8451, 0x3141}, {0x8453, 0x3142}, {0x8455, 0x3145}, {0x8456, 0x3146},
        {0x8457, 0x3147}, {0x8458, 0x3148}, {0x8459, 0x314A}, {0x845A, 0x314B}, {0x845B, 0x314C},
        {0x845C, 0x314D}, {0x845D, 0x314E}};
    for (const auto& c : codes) {
        char16_t out = 0;
        EXPECT_TRUE(LumCharMapper::codepageToUnicode(c.first, 8, LumCodePageMapper::CODE_PAGE_ANSI_1361, out));
        EXPECT_EQ(c.second, out) << std::hex << c.first;
        std::string bytes = {char(c.first >> 8), char(c.first & 0xFF), 'x'};
        EXPECT_EQ(std::u16string({c.second, u'x'}), toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, bytes));
        // The unit itself is written with its own code, which reads back as the unit.
        std::string narrow = toNarrow(1361, std::u16string(1, c.second));
        EXPECT_EQ(std::u16string(1, c.second), toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, narrow));
    }
    EXPECT_EQ(u"\u3000", resolved(u"\\M+48441"));
    // Codes beside them that the page had already, and one it still lacks.
    EXPECT_EQ(u"\u3133", toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, "\x84\x44"));
    EXPECT_EQ(u"\xFFFD", toWide(LumCodePageMapper::CODE_PAGE_ANSI_1361, "\x84\x5E"));
}

TEST(Escapes, ResolveInPlace) {
    int r = 1;
    EXPECT_EQ(u"plain text", resolved(u"plain text", &r));
    EXPECT_EQ(0, r);
    EXPECT_EQ(u"A", resolved(u"\\U+0041", &r));
    EXPECT_EQ(-6, r);
    EXPECT_EQ(u"xAyBz", resolved(u"x\\u+0041y\\U+0042z", &r));
    EXPECT_EQ(-12, r);
    // Malformed escapes stay unit by unit.
    for (const char16_t* same : {u"\\", u"ab\\", u"\\U", u"\\U+", u"\\U+12G4", u"\\U+123", u"\\X+0041",
                                 u"\\U-0041", u"\\M+6ABCD", u"\\M+0ABCD", u"\\M+1", u"\\M+1ABC", u"\\M\0"}) {
        EXPECT_EQ(std::u16string(same), resolved(same, &r));
        EXPECT_EQ(0, r);
    }
    EXPECT_EQ(u"\u3042!", resolved(u"\\m+182a0!", &r));
    EXPECT_EQ(-7, r);
    // A code its page can't map stands as its raw value; the code 0 leaves the escape.
    EXPECT_EQ(u"\xFFFF", resolved(u"\\M+1FFFF"));
    EXPECT_EQ(u"\\M+10000", resolved(u"\\M+10000"));
    EXPECT_EQ(u"\uAC00", resolved(u"\\M+48861"));
}

TEST(Escapes, SingleCodesOfTheDoubleBytePages) {
    char16_t out = 0;
    EXPECT_TRUE(LumCharMapper::codepageToUnicode(0x82A0, 8, LumCodePageMapper::CODE_PAGE_ANSI_932, out));
    EXPECT_EQ(u'\u3042', out);
    EXPECT_TRUE(LumCharMapper::codepageToUnicode(0xB0A1, 8, LumCodePageMapper::CODE_PAGE_ANSI_949, out));
    EXPECT_EQ(u'\uAC00', out);
    EXPECT_TRUE(LumCharMapper::codepageToUnicode(0x4141, 8, LumCodePageMapper::CODE_PAGE_ANSI_936, out));
    EXPECT_EQ(u'?', out);
    out = 0;
    EXPECT_FALSE(LumCharMapper::codepageToUnicode(0x82A0, 8, LumCodePageMapper::CODE_PAGE_DBCS_26, out));
    EXPECT_EQ(0, out);
}

TEST(Utf8, BothWaysWithReplacementOfBrokenInput) {
    LumVector<char16_t> wide;
    const std::string text = "a\xC3\xA9\xF0\x9F\x98\x80";
    EXPECT_EQ(4, LumCharMapper::utf8ToUnicode(text.data(), int(text.size()), wide));
    EXPECT_EQ(std::u16string(u"a\u00e9\U0001F600"), wide.asArrayPtr());
    for (const char* bad : {"\xC3", "\xFF", "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80"}) {
        LumCharMapper::utf8ToUnicode(bad, int(std::strlen(bad)), wide);
        std::u16string got = wide.asArrayPtr();
        EXPECT_FALSE(got.empty());
        EXPECT_EQ(std::u16string::npos, got.find_first_not_of(u'\xFFFD')) << bad;
    }
    LumVector<char> narrow;
    EXPECT_EQ(5, LumCharMapper::unicodeToUtf8(u"\xD800" u"ab", 3, narrow));
    EXPECT_STREQ("\xEF\xBF\xBD" "ab", narrow.asArrayPtr());
    EXPECT_EQ(0, LumCharMapper::unicodeToUtf8(nullptr, 5, narrow));
    EXPECT_STREQ("", narrow.asArrayPtr());
}

TEST(NarrowText, CharactersCountEscapesAndPairsOnce) {
    // The process page is what the run set (1252 or 932).
    const bool dbcs = lumGetACP() == 932;
    EXPECT_EQ(2u, LumCharOp::length("\\U+0041B"));
    EXPECT_EQ(2u, LumCharOp::length("\\M+24E4Fx"));
    EXPECT_EQ(2u, LumCharOp::length("\\M+04E4Fx"));
    EXPECT_EQ(7u, LumCharOp::length("\\U+00G1"));
    EXPECT_EQ(dbcs ? 2u : 3u, LumCharOp::length("\x82\xA0z"));
    EXPECT_EQ(1u, LumCharOp::length("\x82"));
    const char* text = "a\x82\xA0\\U+0041b";
    EXPECT_EQ(dbcs ? text + 3 : text + 2, LumCharOp::next(text, 2));
    EXPECT_EQ(text + std::strlen(text), LumCharOp::next(text, 100));
    EXPECT_EQ(0u, LumCharOp::length(static_cast<const char*>(nullptr)));
}

TEST(Streams, MemoryAndFileReadSeekAndEnd) {
    const char bytes[] = "0123456789";
    char path[] = "/tmp/lumstreamXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(10, write(fd, bytes, 10));
    close(fd);
    std::u16string wpath(path, path + std::strlen(path));
    LumStreamBuf* streams[] = {new LumMemoryStreamBuf(bytes, 10), LumFileStreamBuf::open(wpath.c_str())};
    for (LumStreamBuf* s : streams) {
        ASSERT_NE(nullptr, s);
        EXPECT_EQ('0', s->getByte());
        char buf[4];
        EXPECT_EQ(4u, s->read(buf, 4));
        EXPECT_EQ(0, std::memcmp(buf, "1234", 4));
        EXPECT_EQ(5, s->position());
        EXPECT_FALSE(s->seek(-6, LumStreamBuf::kFromCurrent));
        EXPECT_FALSE(s->seek(11, LumStreamBuf::kFromStart));
        EXPECT_FALSE(s->seek(0, 2));
        EXPECT_EQ(5, s->position());
        EXPECT_TRUE(s->seek(-1, LumStreamBuf::kFromCurrent));
        EXPECT_EQ('4', s->getByte());
        EXPECT_TRUE(s->seek(9, LumStreamBuf::kFromStart));
        EXPECT_EQ(1u, s->read(buf, 4));
        EXPECT_TRUE(s->atEnd());
        EXPECT_EQ(-1, s->getByte());
        EXPECT_EQ(0u, s->read(buf, 4));
        delete s;
    }
    std::remove(path);
    EXPECT_EQ(nullptr, LumFileStreamBuf::open(u"/nonexistent/lumstream"));
    LumMemoryStreamBuf empty(nullptr, 0);
    EXPECT_TRUE(empty.atEnd());
    EXPECT_EQ(-1, empty.getByte());
}
