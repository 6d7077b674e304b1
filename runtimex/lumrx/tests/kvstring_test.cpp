// KvString: forms and their transitions, escapes through the narrow form, operations.
// The program runs once under code page 1252 and once under 932 (see text.cmake).
#include "kvstring.h"

#include "lumosbase.h"
#include "lumplatform/library.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

namespace {

// The page of this run, unless the run names one.
[[maybe_unused]] const int kForcePage = setenv("LUMRX_ACP", "1252", 0);

enum { kEmpty = 0, kInlineAnsi = 1, kInlineWide = 2, kHeapAnsi = 3, kHeapWide = 4, kPair = 5 };

int form(const KvString& s) { return KvStringImp::form(s); }
std::u16string wide(const KvString& s) { return s.kwszPtr(); }
bool dbcs() { return lumGetACP() == 932; }

// The status of the LumErrorStatus* that `f` throws (deleted here), or -1.
template <class F>
int thrownStatus(F f) {
    try {
        f();
    } catch (LumErrorStatus* e) {
        int status = e->status();
        delete e;
        return status;
    }
    return -1;
}

void formatInto(KvString& s, const char16_t* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    s.formatV(fmt, args);
    va_end(args);
}

}  // namespace

TEST(KvStringForms, ConstructionPicksInlineOrHeapByTheLimits) {
    EXPECT_EQ(kEmpty, form(KvString()));
    EXPECT_EQ(kInlineAnsi, form(KvString("abcdef")));
    EXPECT_EQ(kHeapAnsi, form(KvString("abcdefg")));
    EXPECT_EQ(kInlineWide, form(KvString(u"ab")));
    EXPECT_EQ(kHeapWide, form(KvString(u"abc")));
    EXPECT_EQ(kEmpty, form(KvString(u'x', 0u)));
    EXPECT_EQ(kInlineWide, form(KvString(u'x', 2u)));
    KvString three(u'x', 3u);
    EXPECT_EQ(kHeapWide, form(three));
    EXPECT_EQ(3, three.capacity());
    EXPECT_EQ(u"xxx", wide(three));
    EXPECT_EQ(7, KvString("a").capacity());
    EXPECT_EQ(3, KvString(u"a").capacity());
    EXPECT_EQ(u"bcd", wide(KvString(u"abcdef", 4u).substr(1, 3)));
    EXPECT_EQ(kEmpty, form(KvString(static_cast<const char*>(nullptr))));
    EXPECT_EQ(kEmpty, form(KvString("x", KvString::Encoding(1))));
    EXPECT_EQ(u"\u00e9t\u00e9", wide(KvString("\xC3\xA9t\xC3\xA9", KvString::kUtf8)));

    KvString zeroChar('\0');
    EXPECT_FALSE(zeroChar.isEmpty());
    EXPECT_EQ(0, zeroChar.length());
    KvString assigned;
    assigned = '\0';
    EXPECT_TRUE(assigned.isEmpty());
    EXPECT_EQ(sizeof(void*) == 8 ? 24u : 12u, sizeof(KvString));
}

TEST(KvStringForms, AccessorsMoveBetweenFormsAndCopiesFollowTheirOwnRules) {
    KvString narrow("hello world");
    EXPECT_TRUE(KvStringImp::isUnicodeNotInSync(narrow));
    EXPECT_EQ(u"hello world", wide(narrow));
    EXPECT_EQ(kPair, form(narrow));
    EXPECT_FALSE(KvStringImp::isUnicodeNotInSync(narrow));
    EXPECT_EQ(kHeapAnsi, form(KvString(narrow)));  // a copy of a pair is narrow
    KvString assigned;
    assigned = narrow;
    EXPECT_EQ(kHeapWide, form(assigned));  // an assigned pair is wide

    KvString small("ab");
    small.kwszPtr();
    EXPECT_EQ(kPair, form(small));
    KvString w(u"xy");
    EXPECT_STREQ("xy", w.ansiPtr());
    EXPECT_EQ(kPair, form(w));

    KvString moved(std::move(narrow));
    EXPECT_EQ(kPair, form(moved));
    EXPECT_TRUE(narrow.isEmpty());
    moved = std::move(moved);
    EXPECT_EQ(u"hello world", wide(moved));
    w = std::move(moved);
    EXPECT_STREQ("hello world", w.ansiPtr());

    // Assigning a string its own text, or a text inside it, keeps it whole.
    KvString self(u"abcdefgh");
    self = self.kwszPtr();
    EXPECT_EQ(u"abcdefgh", wide(self));
    self = self.kwszPtr() + 2;
    EXPECT_EQ(u"cdefgh", wide(self));
    KvString selfNarrow("abcdefgh");
    selfNarrow = selfNarrow.ansiPtr() + 5;
    EXPECT_STREQ("fgh", selfNarrow.ansiPtr());
}

TEST(KvStringForms, UnitsOutsideThePageSurviveTheNarrowForm) {
    const std::u16string text = u"A\u0100\u4E8C\xD800z\u00e9\U0001F600";
    KvString s(text.c_str());
    std::string narrow = s.ansiPtr();
    EXPECT_NE(std::string::npos, narrow.find("\\U+0100"));
    EXPECT_NE(std::string::npos, narrow.find("\\U+D800"));
    KvString back(narrow.c_str());
    EXPECT_EQ(kHeapAnsi, form(back));
    EXPECT_EQ(int(text.size()), back.length());
    EXPECT_EQ(text, wide(back));
    EXPECT_EQ(0, back.compare(text.c_str()));
    EXPECT_EQ(0, s.compare(narrow.c_str()));
    // All units in the page: no escape at all.
    EXPECT_EQ(std::string::npos, std::string(KvString(u"plain \\ text").ansiPtr()).find("\\U+"));
}

TEST(KvStringForms, EveryUnitOfThePlaneSurvivesTheNarrowForm) {
    for (unsigned u = 1; u < 0x10000; ++u) {
        if (u == '\\') continue;  // plain text of the page, which opens the escape behind it
        const char16_t text[] = {char16_t(u), u'U', u'+', u'0', u'0', u'4', u'1', 0};
        KvString s(text);
        const char* narrow = s.ansiPtr();
        ASSERT_NE(nullptr, narrow);
        KvString back(narrow);
        ASSERT_EQ(std::u16string(text), wide(back)) << std::hex << u;
        ASSERT_EQ(7, back.length()) << std::hex << u;
    }
}

// Long texts are converted a block at a time where the page allows; each piece of one
// must come out as it does alone, units at the edges of the tables included.
TEST(KvStringForms, LongTextsConvertAsTheirPiecesDo) {
    const std::u16string pieces[] = {u"plain text of twenty", u"\u0001", u"\u007F", u"\u0080", u"\u00FF",
                                     u"\u0100", u"\u20AC", u"\u3042", u"\uFF61", u"\uFFFF", u"\xD800",
                                     u"\\", u"x"};
    std::u16string text;
    std::string narrow;
    for (int round = 0; round < 3; ++round)
        for (const std::u16string& piece : pieces) {
            text += piece;
            narrow += KvString(piece.c_str()).ansiPtr();
        }
    KvString s(text.c_str());
    EXPECT_EQ(narrow, s.ansiPtr());
    KvString back(narrow.c_str());
    EXPECT_EQ(text, wide(back));
    EXPECT_EQ(int(text.size()), back.length());
    EXPECT_EQ(back.length(), back.capacity());  // a converted text has no spare room

    // Bytes of a single-byte page that it gives no unit of its own, inside a long run of
    // plain bytes, beside bytes at the edge of its table.
    for (const char* odd : {"\x81", "\x8D", "\x9D\xFF", "\xA0", "\xFF", "\x01"}) {
        if (dbcs()) break;
        std::string run(40, 'a');
        std::string bytes = run + odd + run;
        EXPECT_EQ(std::u16string(wide(KvString(run.c_str()))) + wide(KvString(odd)) + wide(KvString(run.c_str())),
                  wide(KvString(bytes.c_str())));
    }

    // Escapes beyond any room a plain text of the length would need.
    std::u16string outside(700, u'\u0100');
    std::string escapes;
    for (size_t i = 0; i < outside.size(); ++i) escapes += "\\U+0100";
    EXPECT_EQ(escapes, KvString(outside.c_str()).ansiPtr());
    KvString escaped(escapes.c_str());
    EXPECT_EQ(outside, wide(escaped));
    EXPECT_EQ(700, escaped.capacity());
}

TEST(KvStringForms, NarrowLengthCountsEscapesAndPairs) {
    EXPECT_EQ(2, KvString("\\U+0041B").length());
    EXPECT_EQ(2, KvString("\\M+24E4Fx").length());
    EXPECT_EQ(7, KvString("\\U+00G1").length());
    EXPECT_EQ(dbcs() ? 2 : 3, KvString("\x82\xA0z").length());
    // A trail byte 0x5C in 932 starts no escape.
    KvString trail("\x83\x5CU+0041");
    EXPECT_EQ(dbcs() ? 7 : 2, trail.length());
    EXPECT_EQ(trail.length(), int(wide(trail).size()));
    // A lead byte cut off at the end.
    KvString cut("ab\x82");
    EXPECT_EQ(3, cut.length());
    EXPECT_EQ(3u, wide(cut).size());
}

TEST(KvStringForms, Utf8IsMadeAfreshAndEmptyCostsNothing) {
    KvString empty;
    EXPECT_STREQ("", empty.utf8Ptr());
    EXPECT_EQ(empty.utf8Ptr(), KvString().utf8Ptr());
    KvString s(u"\u00e9\u4E8C");
    const char* first = s.utf8Ptr();
    EXPECT_STREQ("\xC3\xA9\xE4\xBA\x8C", first);
    EXPECT_STREQ(first, KvString(s).utf8Ptr());
    EXPECT_STREQ("\xC3\xA9\xE4\xBA\x8C", s.utf8Ptr());
}

TEST(KvStringForms, NumbersAndHandlesRender) {
    EXPECT_STREQ("-1", KvString(KvString::kSignedDecimal, 0xFFFFFFFFu).ansiPtr());
    EXPECT_STREQ("4294967295", KvString(KvString::kUnsignedDecimal, 0xFFFFFFFFu).ansiPtr());
    EXPECT_STREQ("ffffffff", KvString(KvString::kHex, 0xFFFFFFFFu).ansiPtr());
    EXPECT_STREQ("-2147483648", KvString(KvString::kSignedDecimal, 0x80000000u).ansiPtr());
    EXPECT_STREQ("0", KvString(KvString::kHex, 0).ansiPtr());
    EXPECT_EQ(kInlineAnsi, form(KvString(KvString::kSignedDecimal, 7)));
    EXPECT_TRUE(KvString(KvString::eFormat(9), 5).isEmpty());
    EXPECT_EQ(u"1A2B00000000F", wide(KvString(KvDbHandle(0x1A2B00000000Full))));
    EXPECT_TRUE(KvString(KvDbHandle(0)).isEmpty());
    EXPECT_EQ(0x1A2B00000000Full, KvString(u"1a2b00000000f").asKvDbHandle().value());
}

TEST(KvStringBuffers, GetBufferReserveAndRelease) {
    KvString empty;
    EXPECT_TRUE(empty.reserve(10));
    EXPECT_FALSE(empty.isEmpty());
    EXPECT_EQ(kHeapWide, form(empty));
    EXPECT_EQ(0, empty.length());
    EXPECT_FALSE(empty.reserve(5));
    EXPECT_FALSE(empty.reserve(0x3FFFFFFF));

    char16_t* p = empty.getBuffer(2);
    EXPECT_EQ(p, empty.getBuffer(10));
    p[0] = u'a', p[1] = u'b', p[2] = u'c', p[3] = u'd', p[4] = u'e', p[5] = u'f';
    EXPECT_TRUE(empty.releaseBuffer(5));
    EXPECT_EQ(u"abcde", wide(empty));
    EXPECT_FALSE(empty.releaseBuffer(11));
    EXPECT_TRUE(empty.releaseBuffer(0));
    EXPECT_EQ(0, empty.length());
    EXPECT_FALSE(empty.isEmpty());
    EXPECT_EQ(1, empty.compare(""));

    // A bad request blocks releaseBuffer until a new buffer replaces the old one.
    KvString s(u"abcdef");
    for (int bad : {-1, 0x3FFFFFFF, INT32_MIN}) {
        EXPECT_EQ(nullptr, s.getBuffer(bad));
        EXPECT_FALSE(s.releaseBuffer());
    }
    EXPECT_NE(nullptr, s.getBuffer(3));
    EXPECT_FALSE(s.releaseBuffer());
    char16_t* grown = s.getBuffer(40);
    ASSERT_NE(nullptr, grown);
    EXPECT_TRUE(s.releaseBuffer());
    EXPECT_EQ(u"abcdef", wide(s));

    KvString inlineWide(u"ab");
    EXPECT_EQ(nullptr, inlineWide.getBuffer(-5));
    EXPECT_FALSE(inlineWide.releaseBuffer());
    ASSERT_NE(nullptr, inlineWide.getBuffer(0));
    EXPECT_EQ(kHeapWide, form(inlineWide));
    EXPECT_EQ(3, inlineWide.capacity());
    KvString narrow("abcdefghij");
    ASSERT_NE(nullptr, narrow.getBuffer(20));
    EXPECT_EQ(kHeapWide, form(narrow));
    EXPECT_EQ(u"abcdefghij", wide(narrow));
    KvString pair("abcdefghij");
    EXPECT_FALSE(pair.releaseBuffer(3));  // no wide buffer yet
    pair.kwszPtr();
    EXPECT_TRUE(pair.releaseBuffer(3));
    EXPECT_EQ(u"abc", wide(pair));
    EXPECT_EQ(kHeapWide, form(pair));
}

TEST(KvStringSearch, FindAndFindRevWithTheirEdges) {
    KvString abc(u"abc");
    EXPECT_EQ(3, abc.find(u""));
    EXPECT_EQ(3, abc.findRev(u""));
    EXPECT_EQ(-1, abc.find(static_cast<const char16_t*>(nullptr)));
    EXPECT_EQ(-1, abc.findRev(static_cast<const char16_t*>(nullptr)));
    EXPECT_EQ(-1, abc.find(u'c', 5));
    EXPECT_EQ(2, abc.find(u'c', 2));
    EXPECT_EQ(-1, abc.find(u'a', -1));
    EXPECT_EQ(-1, abc.find(char16_t(0)));
    EXPECT_EQ(-1, KvString().find(u"a"));
    EXPECT_EQ(0, KvString().find(KvString()));
    // Hits and near misses at every offset, and needles that run past the end.
    for (size_t len = 1; len < 12; ++len) {
        std::u16string hay(len, u'a');
        for (size_t at = 0; at < len; ++at) {
            std::u16string t = hay;
            t[at] = u'b';
            for (const char16_t* needle : {u"b", u"ba", u"ab", u"bab", u"aab", u"baaaaaaaaaaaaa", u"c"}) {
                std::u16string::size_type expected = t.find(needle);
                EXPECT_EQ(expected == std::u16string::npos ? -1 : int(expected), KvString(t.c_str()).find(needle))
                    << std::string(t.begin(), t.end());
            }
        }
    }

    KvString text("abcabcab");
    EXPECT_EQ(1, text.find(u"bc"));
    EXPECT_EQ(4, text.findRev(u"bc"));
    EXPECT_EQ(6, text.findRev(KvString("ab")));
    EXPECT_EQ(-1, text.findRev(u"abcabcabc"));
    EXPECT_EQ(7, text.findRev(u'b'));
    EXPECT_EQ(2, text.findOneOf(u"xc"));
    EXPECT_EQ(5, text.findOneOfRev(u"xc"));
    EXPECT_EQ(-1, text.findOneOfRev(u""));
    EXPECT_EQ(1, KvString("x\\U+0100yz").find(u"\u0100yz"));
}

TEST(KvStringCut, SubstrLeftMidRightOnWideAndNarrow) {
    for (KvString abc : {KvString(u"abc"), KvString("abc")}) {
        EXPECT_TRUE(abc.left(0).isEmpty());
        EXPECT_EQ(u"bc", wide(abc.mid(1)));
        EXPECT_EQ(u"abc", wide(abc.right(10)));
        EXPECT_TRUE(abc.right(-1).isEmpty());
        EXPECT_EQ(u"ab", wide(abc.mid(-3, 2)));
        EXPECT_EQ(u"c", wide(abc.right(1)));
        EXPECT_TRUE(abc.mid(3).isEmpty());
        EXPECT_EQ(u"ab", wide(abc.spanExcluding(u"c")));
    }
    EXPECT_EQ(kInlineAnsi, form(KvString("abc").mid(1)));
    EXPECT_EQ(kInlineWide, form(KvString(u"abc").mid(1)));
    // Narrow counts are characters: an escape is one.
    KvString escaped("a\\U+0100bc");
    EXPECT_EQ(u"a\u0100", wide(escaped.left(2)));
    EXPECT_EQ(u"\u0100bc", wide(escaped.right(3)));
    if (dbcs()) {
        EXPECT_EQ(u"\u3042", wide(KvString("\x82\xA0z").left(1)));
    }
    EXPECT_TRUE(KvString().substr(0, 5).isEmpty());
}

TEST(KvStringCut, ExtremeCountsInEveryForm) {
    const KvString sources[] = {KvString(u"ab"), KvString(u"abcdefgh"), KvString("ab"),
                                KvString("abcdefgh"), KvString("abcdefgh")};
    sources[4].kwszPtr();  // pair form
    for (const KvString& s : sources) {
        std::u16string all = wide(s);
        for (int n : {INT_MIN, INT_MIN + 1, -2, -1}) {
            EXPECT_TRUE(s.right(n).isEmpty()) << n;
            EXPECT_TRUE(s.substrRev(n).isEmpty()) << n;
        }
        EXPECT_EQ(all, wide(s.right(INT_MAX)));
        EXPECT_EQ(all, wide(s.left(INT_MAX)));
        EXPECT_EQ(all, wide(s.left(INT_MIN)));
        EXPECT_EQ(all, wide(s.mid(INT_MIN, INT_MAX)));
        EXPECT_EQ(all, wide(s.mid(INT_MIN, INT_MIN)));
        EXPECT_TRUE(s.mid(INT_MAX).isEmpty());
        EXPECT_TRUE(s.mid(INT_MAX, INT_MAX).isEmpty());
        EXPECT_EQ(all.substr(1), wide(s.mid(1, INT_MAX)));
    }
}

TEST(KvStringEdit, TrimRemoveAndTheirFormChange) {
    KvString tabs(u"\tx\t");
    tabs.trim();
    EXPECT_EQ(u"\tx\t", wide(tabs));
    KvString blanks("  ab  ");
    blanks.trim();
    EXPECT_EQ(u"ab", wide(blanks));
    EXPECT_EQ(kHeapWide, form(blanks));
    KvString nothing("ab");
    nothing.trimLeft(u'x');
    EXPECT_EQ(kHeapWide, form(nothing));
    KvString all(u"   ");
    all.trimRight();
    EXPECT_EQ(0, all.length());
    EXPECT_FALSE(all.isEmpty());
    EXPECT_EQ(1, all.compare(""));
    KvString set(u"xyabyx");
    set.trimLeft(u"xy").trimRight(char16_t(0));
    EXPECT_EQ(u"abyx", wide(set));
    set.trim(u"xy");
    EXPECT_EQ(u"ab", wide(set));

    KvString spaced("a b c");
    EXPECT_EQ(2, spaced.remove());
    EXPECT_EQ(u"abc", wide(spaced));
    EXPECT_EQ(0, KvString().remove(u'a'));
    KvString inl(u"aa");
    EXPECT_EQ(2, inl.remove(u'a'));
    EXPECT_EQ(kInlineWide, form(inl));
}

TEST(KvStringEdit, ReplaceGrowsShrinksAndStaysInline) {
    KvString aa(u"aa");
    EXPECT_EQ(2, aa.replace(u"a", u"bb"));
    EXPECT_EQ(u"bbbb", wide(aa));
    KvString aaa("aaa");
    EXPECT_EQ(1, aaa.replace(u"aa", u"b"));
    EXPECT_EQ(u"ba", wide(aaa));
    KvString one(u"a");
    EXPECT_EQ(1, one.replace(u"a", u"xy"));
    EXPECT_EQ(kInlineWide, form(one));
    EXPECT_EQ(u"xy", wide(one));
    KvString miss("abc");
    EXPECT_EQ(0, miss.replace(u"x", u"y"));
    EXPECT_EQ(kPair, form(miss));  // read as wide, but no narrow form dropped
    KvString gone(u"abcabc");
    EXPECT_EQ(2, gone.replace(u"b", nullptr));
    EXPECT_EQ(u"acac", wide(gone));
    KvString pair("one two one");
    pair.kwszPtr();
    EXPECT_EQ(2, pair.replace(u"one", u"three"));
    EXPECT_EQ(u"three two three", wide(pair));
    EXPECT_EQ(kHeapWide, form(pair));
    EXPECT_EQ(0, pair.replace(nullptr, u"x"));

    KvString units(u"abab");
    EXPECT_EQ(2, units.replace(u'b', u'c'));
    EXPECT_EQ(u"acac", wide(units));
    EXPECT_EQ(0, KvString().replace(u'a', u'b'));
}

TEST(KvStringEdit, InsertDeleteAndIndexedAccess) {
    KvString abc(u"abc");
    abc.insert(3, u'd');
    EXPECT_EQ(u"abcd", wide(abc));
    abc.insert(5, u"x");
    EXPECT_EQ(u"abcd", wide(abc));
    abc.insert(0, u"12");
    EXPECT_EQ(u"12abcd", wide(abc));
    KvString empty;
    empty.insert(0, u"xy");
    EXPECT_EQ(kHeapWide, form(empty));
    EXPECT_EQ(u"xy", wide(empty));
    KvString inl(u"a");
    inl.insert(0, u'z');
    EXPECT_EQ(kInlineWide, form(inl));
    EXPECT_EQ(u"za", wide(inl));
    KvString roomy(u"ab");
    roomy.reserve(10);
    roomy.insert(1, u"XY");
    EXPECT_EQ(u"aXYb", wide(roomy));
    EXPECT_EQ(10, roomy.capacity());
    KvString narrow("abcdefgh");
    narrow.insert(8, u"!");
    EXPECT_EQ(u"abcdefgh!", wide(narrow));
    EXPECT_EQ(kHeapWide, form(narrow));

    KvString d(u"abcdef");
    EXPECT_EQ(6, d.deleteAtIndex(6, 1));
    EXPECT_EQ(6, d.deleteAtIndex(-1, 1));
    EXPECT_EQ(6, d.deleteAtIndex(2, 0));
    EXPECT_EQ(6, d.deleteAtIndex(2, -3));
    EXPECT_EQ(4, d.deleteAtIndex(1, 2));
    EXPECT_EQ(u"adef", wide(d));
    d.deleteAtIndex(1, 100);
    EXPECT_EQ(u"a", wide(d));
    d.deleteAtIndex(0, 1);
    EXPECT_EQ(0, d.length());
    EXPECT_FALSE(d.isEmpty());

    KvString s("xyz");
    EXPECT_EQ(u'z', s.getAt(2));
    s.setAt(1, u'\u0100');
    EXPECT_EQ(u"x\u0100z", wide(s));
    EXPECT_EQ(kHeapWide, form(s));
    s.setAt(1, char16_t(0));
    EXPECT_EQ(1, s.length());
    lumtest::RecordingCrashRecorder recorder;
    for (int bad : {-1, 1, 1000}) {
        EXPECT_EQ(3, thrownStatus([&] { s.getAt(bad); }));
        EXPECT_EQ(3, thrownStatus([&] { s.setAt(bad, u'a'); }));
    }
    EXPECT_EQ(3, thrownStatus([&] { KvString().setAt(0, u'a'); }));
    EXPECT_EQ(7u, recorder.exceptions.size());
}

TEST(KvStringEdit, CaseAndOrderKeepNarrowStringsNarrow) {
    KvString narrow("abC\\u+00e9");
    narrow.makeUpper();
    EXPECT_TRUE(KvStringImp::isUnicodeNotInSync(narrow));
    EXPECT_STREQ("ABC\\U+00E9", narrow.ansiPtr());
    narrow.makeLower();
    EXPECT_STREQ("abc\\u+00e9", narrow.ansiPtr());
    KvString w(u"\u00e9a");
    w.makeUpper();
    EXPECT_EQ(u"\u00c9A", wide(w));
    KvString pair("abcdefgh");
    pair.kwszPtr();
    pair.makeReverse();
    EXPECT_EQ(u"hgfedcba", wide(pair));
    EXPECT_EQ(kHeapWide, form(pair));
    KvString rev("ab\\U+0100c");
    rev.makeReverse();
    EXPECT_EQ(u"c\u0100ba", wide(rev));
    if (dbcs()) {
        KvString jp("a\x82\xA0\x83\x61");  // 0x83 0x61 holds a trail byte in a-z
        jp.makeUpper().makeReverse();
        EXPECT_EQ(u"\u30C2\u3042A", wide(jp));
    }
    KvString().makeUpper().makeReverse();
}

TEST(KvStringTokens, TokenizeTakesTheLastUnitWithTheToken) {
    KvString s(u"a,bb");
    int pos = 0;
    EXPECT_EQ(u"a", wide(s.tokenize(u",", pos)));
    EXPECT_EQ(2, pos);
    EXPECT_EQ(u"bb", wide(s.tokenize(u",", pos)));
    EXPECT_EQ(5, pos);
    KvString trailing("ab,");
    pos = 0;
    EXPECT_EQ(u"ab,", wide(trailing.tokenize(u",", pos)));
    EXPECT_EQ(4, pos);
    KvString delims(u",,,");
    pos = 0;
    EXPECT_TRUE(delims.tokenize(u",", pos).isEmpty());
    EXPECT_EQ(3, pos);
    KvString words(u" one  two three ");
    pos = 0;
    std::u16string joined;
    for (KvString t = words.tokenize(u" ", pos); !t.isEmpty(); t = words.tokenize(u" ", pos))
        joined += wide(t) + u"|";
    EXPECT_EQ(u"one|two|three |", joined);
    pos = 99;
    EXPECT_TRUE(words.tokenize(nullptr, pos).isEmpty());
}

TEST(KvStringConcat, AppendsFollowTheFormTable) {
    // Narrow strings stay narrow and escapes stay escapes.
    KvString n("ab");
    n.append("\\U+0100");
    EXPECT_EQ(kHeapAnsi, form(n));
    EXPECT_EQ(u"ab\u0100", wide(n));
    KvString small("ab");
    small += "cd";
    EXPECT_EQ(kInlineAnsi, form(small));
    // A wide string takes a plain char text plainly: the backslash stays.
    KvString w(u"x");
    w.append("\\U+0041");
    EXPECT_EQ(u"x\\U+0041", wide(w));
    EXPECT_EQ(kHeapWide, form(w));
    // ... and a narrow KvString of 7 bytes or more fully, resolving escapes.
    KvString w2(u"x");
    w2.append(KvString("\\U+0041"));
    EXPECT_EQ(u"xA", wide(w2));
    EXPECT_EQ(kInlineWide, form(w2));
    KvString w3(u"x");
    w3.append(KvString("\\ab"));  // too short for an escape
    EXPECT_EQ(u"x\\ab", wide(w3));
    // Pair form: plain text joins the narrow side; escaped text the wide side.
    KvString p("abcdefgh");
    p.kwszPtr();
    p.append("ij");
    EXPECT_EQ(kHeapAnsi, form(p));
    EXPECT_EQ(u"abcdefghij", wide(p));
    KvString q("a");
    q.kwszPtr();
    q.append(KvString("\\U+0042"));
    EXPECT_EQ(kInlineWide, form(q));
    EXPECT_EQ(u"aB", wide(q));
    // Wide appends onto narrow text convert it first.
    KvString mixed("\\U+0100");
    mixed.append(u"z");
    EXPECT_EQ(u"\u0100z", wide(mixed));
    EXPECT_EQ(kInlineWide, form(mixed));
    KvString selfish("abcd");
    selfish += selfish;
    EXPECT_EQ(u"abcdabcd", wide(selfish));
    KvString selfWide(u"abcd");
    selfWide += selfWide;
    EXPECT_EQ(u"abcdabcd", wide(selfWide));

    KvString e;
    e.append("").append(static_cast<const char*>(nullptr)).append(u"").append(KvString());
    EXPECT_TRUE(e.isEmpty());
    e.append('\0');
    EXPECT_TRUE(e.isEmpty());
    e.append("\xC3\xA9", KvString::kUtf8).append("zz", KvString::Encoding(3));
    EXPECT_EQ(u"\u00e9", wide(e));

    KvString base(u"mid");
    EXPECT_EQ(u"midX", wide(base + u'X'));
    EXPECT_EQ(u"mid!", wide(base.concat('!')));
    EXPECT_EQ(u"<mid", wide(base.precat(u'<')));
    EXPECT_EQ(u"<<mid", wide(base.precat("<<")));
    EXPECT_EQ(u"\u00e9mid", wide(base.precat("\xC3\xA9", KvString::kUtf8)));
    EXPECT_EQ(u"mid", wide(base.precat("x", KvString::Encoding(2))));
    EXPECT_EQ(u"mid\u00e9", wide(base.concat("\xC3\xA9", KvString::kUtf8)));
}

TEST(KvStringCompare, ResultsAndEdgesOfThreeWalks) {
    KvString empty, abc("abc"), ABC(u"ABC");
    EXPECT_EQ(0, empty.compare(""));
    EXPECT_EQ(0, empty.compare(static_cast<const char16_t*>(nullptr)));
    EXPECT_EQ(1, abc.compare(u""));
    EXPECT_EQ(-1, empty.compare("a"));
    EXPECT_EQ(-1, empty.compare(u'a'));
    EXPECT_EQ(1, abc.compare(char16_t(0)));
    for (const KvString& a : {KvString("abc"), KvString(u"abc")}) {
        for (const KvString& b : {KvString("ABC"), KvString(u"ABC"), KvString("abd"), KvString(u"abd")}) {
            EXPECT_EQ(a.compare(b), b.compare(a) * -1);
        }
        EXPECT_EQ(0, a.compareNoCase(KvString("ABC")));
        EXPECT_EQ(0, a.compareNoCase(KvString(u"ABC")));
        EXPECT_EQ(0, a.compareNoCase("aBc"));
        EXPECT_EQ(0, a.compareNoCase(u"AbC"));
        EXPECT_EQ(1, a.compare("ABC"));
        EXPECT_EQ(-1, a.compare(u"abd"));
        EXPECT_EQ(1, a.compare(u"ab"));
        EXPECT_EQ(-1, a.compare("abcd"));
        EXPECT_TRUE(KvString::equalsNoCase(a, ABC));
    }
    // Narrow escapes are the characters they stand for.
    EXPECT_EQ(0, KvString("x\\U+0100").compare(u"x\u0100"));
    EXPECT_EQ(0, KvString(u"x\u0100").compare("x\\u+0100"));
    EXPECT_EQ(0, KvString("x\\U+0100").compareNoCase(KvString(u"X\u0100")));
    EXPECT_NE(0, KvString("x\\U+0100").compare(u"x\u0101"));
    // A wide backslash that meets a narrow escape is no match for it, though the two
    // sides agree up to there: the narrow text is the one character the escape names.
    EXPECT_NE(0, KvString(u"\\U+0041").compare("\\U+0041"));
    EXPECT_EQ(KvString(u"\\U+0041").compare("\\U+0041"), -KvString("\\U+0041").compare(u"\\U+0041"));
    EXPECT_FALSE(KvString("\\U+0041") == u"\\U+0041");
    EXPECT_TRUE(KvString("\\U+0041") == u"A");
    EXPECT_NE(0, KvString(u"x\\m+14E4F").compareNoCase("X\\M+14E4F"));
    EXPECT_EQ(0, KvString(u"a\\b").compare("a\\b"));
    EXPECT_EQ(0, KvString(u"a\\U+004").compare("a\\U+004"));
    // A byte from 0x80 up is no unit of the same extended value.
    EXPECT_NE(0, KvString(u"\uFFE9").compare("\xE9"));
    EXPECT_NE(0, KvString(u"a\uFFFD").compareNoCase("a\xFD"));
    EXPECT_NE(0, KvString("a\xFD").compare(u"a\uFFFD"));
    if (!dbcs()) {
        EXPECT_EQ(0, KvString(u"\u00E9").compare("\xE9"));
        EXPECT_EQ(0, KvString("x\xE9").compare(u"x\u00E9"));
    }

    EXPECT_EQ(-1, empty.compare("x", KvString::Encoding(5)));
    EXPECT_EQ(0, empty.compareNoCase("x", KvString::Encoding(5)));
    EXPECT_EQ(1, abc.compare("x", KvString::Encoding(5)));
    EXPECT_EQ(0, abc.compare("abc", KvString::kUtf8));
    EXPECT_EQ(0, KvString(u"\u00e9").compareNoCase("\xC3\x89", KvString::kUtf8));

    EXPECT_TRUE(abc == "abc");
    EXPECT_TRUE(abc != u"abd");
    EXPECT_TRUE(abc < KvString(u"abd"));
    EXPECT_TRUE(abc > u'a');
    EXPECT_TRUE(abc >= "abc");
    EXPECT_TRUE(KvString(u"a") <= 'a');
    EXPECT_FALSE(KvString(u"b") <= 'a');
}

TEST(KvStringCompare, CollateUsesTheConfiguredLanguage) {
    KvString a(u"a");
    EXPECT_EQ(1, a.collate(u""));
    EXPECT_EQ(0, KvString().collate(u""));
    EXPECT_EQ(-1, KvString().collate(u"a"));
    EXPECT_EQ(-1, a.collate(u"b"));
    EXPECT_EQ(1, KvString(u"b").collate(KvString("a")));
    EXPECT_EQ(0, KvString(u"abc").collateNoCase(u"abc"));
    EXPECT_NE(0, KvString(u"abc").collate(KvString(u"ABC")));
    EXPECT_EQ(-1, KvString("\\U+00e9").collate(u"f"));
}

TEST(KvStringMatch, CountsCommonLeadingElements) {
    for (const KvString& s : {KvString("abcd"), KvString(u"abcd")}) {
        EXPECT_EQ(2, s.match("abxy"));
        EXPECT_EQ(2, s.match(u"abxy"));
        EXPECT_EQ(4, s.match(KvString("abcd")));
        EXPECT_EQ(0, s.match("xbcd"));
        EXPECT_EQ(0, s.match(""));
        EXPECT_EQ(0, s.match(KvString()));
        EXPECT_EQ(3, s.matchNoCase("ABCx"));
        EXPECT_EQ(3, s.matchNoCase(u"ABCx"));
        EXPECT_EQ(4, s.matchNoCase(KvString(u"ABCD")));
        EXPECT_EQ(2, s.match("abz", KvString::kUtf8));
        EXPECT_EQ(0, s.match("abz", KvString::Encoding(4)));
        EXPECT_EQ(2, s.matchNoCase("ABz", KvString::Encoding(4)));
    }
    EXPECT_EQ(3, KvString("abc").match("abc"));
    EXPECT_EQ(2, KvString("abc").match("abd"));
    EXPECT_EQ(0, KvString().match("a"));
    // The narrow argument of a wide walk is converted plainly: the escape stays text.
    EXPECT_EQ(1, KvString(u"a\u0100").match("a\\U+0100"));
    EXPECT_EQ(3, KvString("a\\U+0100").match("a\\UX"));  // narrow walk counts bytes
}

TEST(KvStringNumbers, ParsersWithTheirFlags) {
    EXPECT_EQ(0, KvString("12a").asDeci());
    EXPECT_EQ(-1, KvString(u"12a").asDeci(KvString::kAsErrorMinusOne));
    EXPECT_EQ(0, KvString("2147483648").asDeci());
    EXPECT_EQ(INT32_MIN, KvString("-2147483648").asDeci());
    EXPECT_EQ(INT32_MAX, KvString(u"2147483647").asDeci());
    EXPECT_EQ(0u, KvString("-1").asUDeci());
    EXPECT_EQ(0xFFFFFFFFu, KvString("4294967295").asUDeci());
    EXPECT_EQ(0u, KvString("4294967296").asUDeci(0));
    EXPECT_EQ(0, KvString("0x10").asHex());
    EXPECT_EQ(255, KvString("ff").asHex());
    EXPECT_EQ(-255, KvString(u"-FF").asHex());
    EXPECT_EQ(0xFFFFFFFFu, KvString("FFFFFFFF").asUHex());
    EXPECT_EQ(0u, KvString("100000000").asUHex());
    EXPECT_EQ(0, KvString("80000000").asHex());
    for (const char* bad : {" 1", "+1", "1 ", "--1", "1-"}) EXPECT_EQ(-1, KvString(bad).asDeci(1)) << bad;
    KvString none;
    EXPECT_EQ(0, none.asDeci(0));
    EXPECT_EQ(0, none.asDeci(1));
    EXPECT_EQ(0, none.asDeci(8));
    EXPECT_EQ(-1, none.asDeci(9));
    EXPECT_EQ(0, KvString("-").asDeci(1));
    EXPECT_EQ(-1, KvString(u"-").asDeci(9));
    EXPECT_EQ(-1, KvString(u"").asDeci(9));  // no text: the empty form
    KvString zeroLength(u"x");
    zeroLength.remove(u'x');
    EXPECT_EQ(0, zeroLength.asDeci(9));
    EXPECT_EQ(INT64_MAX, KvString("9223372036854775807").asDeci64());
    EXPECT_EQ(INT64_MIN, KvString("-9223372036854775808").asDeci64());
    EXPECT_EQ(0, KvString("9223372036854775808").asDeci64());
    EXPECT_EQ(UINT64_MAX, KvString(u"18446744073709551615").asUDeci64());
    // Just above the limit, where a double can't tell the values apart.
    EXPECT_EQ(0u, KvString("18446744073709551616").asUDeci64());
    EXPECT_EQ(0u, KvString("18446744073709551620").asUDeci64());
    EXPECT_EQ(UINT64_MAX, KvString("ffffffffffffffff").asUHex64());
    EXPECT_EQ(0u, KvString("10000000000000000").asUHex64());
    EXPECT_EQ(INT64_MIN, KvString("-8000000000000000").asHex64());
    EXPECT_EQ(-1, KvString("8000000000000000").asHex64(1));
    EXPECT_EQ(-1, KvString("\\U+0031").asDeci(1));  // an escape is no digit
}

TEST(KvStringFormat, FormatAndAppendFormat) {
    KvString s("old");
    s.format(u"%d-%s", 42, u"x");
    EXPECT_EQ(u"42-x", wide(s));
    s.appendFormat(u"/%04x", 0xBEEFu);
    EXPECT_EQ(u"42-x/beef", wide(s));
    s.format(nullptr);
    EXPECT_TRUE(s.isEmpty());
    std::u16string big(3000, u'z');
    s.format(u"<%s>", big.c_str());
    EXPECT_EQ(u"<" + big + u">", wide(s));
    KvString keep(u"keep");
    formatInto(keep, u"%s", u"");
    EXPECT_EQ(u"keep", wide(keep));
    formatInto(keep, u"%q");
    EXPECT_EQ(u"keep", wide(keep));
}

TEST(KvStringResources, LoadStringThroughTheHostOrAHandle) {
    KvString s(u"before");
    EXPECT_FALSE(s.loadString(nullptr, 1));
    EXPECT_FALSE(s.loadString(reinterpret_cast<void*>(~uintptr_t(0)), 1));
    EXPECT_FALSE(s.loadString(7));  // no host
    EXPECT_EQ(u"before", wide(s));
    lumtest::FakeHost host;
    EXPECT_FALSE(s.loadString(7));  // no resource instance
    host.withRuntime = false;
    EXPECT_FALSE(s.loadString(7));
    host.withRuntime = true;

    void* library = lumplatform::openLibrary(u"" KVSTRING_TEST_RESOURCES);
    ASSERT_NE(nullptr, library);
    host.runtime.resource = library;
    EXPECT_TRUE(s.loadString(1));
    EXPECT_EQ(u"first message", wide(s));
    EXPECT_EQ(u"first message", wide(KvString(KvString::kResourceId, 1)));
    EXPECT_EQ(u"first message", wide(KvString(library, 1)));
    EXPECT_FALSE(s.loadString(library, 9));  // no such text
    EXPECT_TRUE(s.loadString(library, 3));   // 1022 units
    EXPECT_EQ(1022, s.length());
    EXPECT_FALSE(s.loadString(library, 2));  // 1023 units: taken as cut off
    EXPECT_EQ(1022, s.length());
    lumplatform::closeLibrary(library);
}

TEST(KvUniqueStrings, InternFoldsCaseToOnePointer) {
    const KvUniqueString* a = KvUniqueString::Intern(u"ABC");
    const KvUniqueString* b = KvUniqueString::Intern(u"abc");
    ASSERT_NE(nullptr, a);
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::u16string(u"abc"), a->text());
    EXPECT_NE(a, KvUniqueString::Intern(u"abcd"));
    EXPECT_EQ(KvUniqueString::Intern(u"\u00c9T\u00c9"), KvUniqueString::Intern(u"\u00e9t\u00e9"));
    const KvUniqueString* e = KvUniqueString::Intern(u"");
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(u'\0', e->text()[0]);
    EXPECT_EQ(e, KvUniqueString::Intern(u""));
    EXPECT_EQ(nullptr, KvUniqueString::Intern(nullptr));
}
