// KvStringBuf: encodings from the byte order mark, line ends, streams that end early.
#include "kvstring.h"

#include "lumstreambuf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

[[maybe_unused]] const int kForcePage = setenv("LUMRX_ACP", "1252", 0);

struct Read {
    int encoding;
    std::vector<std::u16string> lines;
};

// Every line of `bytes` until the stream's end; a call past the end gives empty text.
Read readAll(const std::string& bytes) {
    KvStringBuf buf;
    auto* stream = new LumMemoryStreamBuf(bytes.data(), bytes.size());
    buf.init(stream);
    Read r{buf.encoding(), {}};
    while (!stream->atEnd()) r.lines.push_back(buf.getString().kwszPtr());
    EXPECT_TRUE(buf.getString().isEmpty());
    return r;
}

std::string utf16le(const std::u16string& s) {
    std::string out;
    for (char16_t u : s) out += char(u & 0xFF), out += char(u >> 8);
    return out;
}

std::string utf16be(const std::u16string& s) {
    std::string out;
    for (char16_t u : s) out += char(u >> 8), out += char(u & 0xFF);
    return out;
}

std::string utf32(const std::u32string& s, bool little) {
    std::string out;
    for (char32_t c : s)
        for (int i = 0; i < 4; ++i) out += char(c >> (8 * (little ? i : 3 - i)));
    return out;
}

}  // namespace

TEST(KvStringBufEncoding, TheFirstBytesNameTheEncoding) {
    struct Case {
        std::string bytes;
        int encoding;
    } cases[] = {
        {"", KvStringBuf::kStreamNone},
        {std::string("\x01\0\0\0", 4), KvStringBuf::kStreamNone},
        {"abc", KvStringBuf::kStreamPlain},
        {"a", KvStringBuf::kStreamPlain},
        {"\xEF\xBB\xBFx", KvStringBuf::kStreamUtf8},
        {"\xFF\xFEx\0", KvStringBuf::kStreamUtf16Le},
        {"\xFE\xFF\0x", KvStringBuf::kStreamUtf16Be},
        {std::string("\xFF\xFE\0\0", 4), KvStringBuf::kStreamUtf32Le},
        {std::string("\0\0\xFE\xFF", 4), KvStringBuf::kStreamUtf32Be},
        {"\xFF\xFE", KvStringBuf::kStreamUtf32Le},  // the preset word fills the missing bytes
    };
    for (const Case& c : cases) {
        KvStringBuf buf;
        auto* stream = new LumMemoryStreamBuf(c.bytes.data(), c.bytes.size());
        buf.init(stream);
        EXPECT_EQ(c.encoding, buf.encoding()) << c.bytes;
        EXPECT_EQ(0, stream->position());
    }
    KvStringBuf none;
    EXPECT_TRUE(none.getString().isEmpty());
    none.init(nullptr);
    EXPECT_TRUE(none.getString().isEmpty());
}

TEST(KvStringBufLines, LineEndsInEveryCombination) {
    EXPECT_EQ((std::vector<std::u16string>{u"a", u"b", u"c"}), readAll("a\r\nb\r\nc\r\n").lines);
    EXPECT_EQ((std::vector<std::u16string>{u"a", u"b", u"c", u"d"}), readAll("a\n\rb\r\rc\rd").lines);
    // Two empty lines in LF form lose one.
    EXPECT_EQ((std::vector<std::u16string>{u"a", u"", u"b"}), readAll("a\n\n\nb").lines);
    EXPECT_EQ((std::vector<std::u16string>{u"last"}), readAll("last").lines);
    EXPECT_EQ((std::vector<std::u16string>{std::u16string(5000, u'x')}), readAll(std::string(5000, 'x') + "\n").lines);
    // Plain lines are code page 1252, whatever the process page.
    EXPECT_EQ((std::vector<std::u16string>{u"\u00e9\u20ac"}), readAll("\xE9\x80").lines);
}

TEST(KvStringBufLines, UnicodeStreams) {
    Read u8 = readAll("\xEF\xBB\xBF\xC3\xA9t\xC3\xA9\n\nx\xFF");
    EXPECT_EQ(KvStringBuf::kStreamUtf8, u8.encoding);
    EXPECT_EQ((std::vector<std::u16string>{u"\u00e9t\u00e9", u"x\uFFFD"}), u8.lines);

    Read le = readAll("\xFF\xFE" + utf16le(u"one\r\ntwo\u0D0A!\n"));
    EXPECT_EQ((std::vector<std::u16string>{u"one", u"two\u0D0A!"}), le.lines);
    Read be = readAll("\xFE\xFF" + utf16be(u"\u4E8C\n\xD800z"));
    EXPECT_EQ((std::vector<std::u16string>{u"\u4E8C", u"\xD800z"}), be.lines);

    Read l32 = readAll(std::string("\xFF\xFE\0\0", 4) + utf32(U"a\U0001F600b\n\uFFFFc", true));
    EXPECT_EQ((std::vector<std::u16string>{u"a?b", u"?c"}), l32.lines);
    Read b32 = readAll(std::string("\0\0\xFE\xFF", 4) + utf32(U"x\ry", false));
    EXPECT_EQ((std::vector<std::u16string>{u"x", u"y"}), b32.lines);
}

TEST(KvStringBufLines, StreamsThatEndMidElement) {
    Read le = readAll("\xFF\xFE" + utf16le(u"ab") + "c");
    EXPECT_EQ((std::vector<std::u16string>{u"abc"}), le.lines);
    // The look-ahead behind a line end reads 1 of 4 bytes and steps back a whole
    // element, so the last line starts 3 bytes early.
    Read l32 = readAll(std::string("\xFF\xFE\0\0", 4) + utf32(U"a\n", true) + "b");
    EXPECT_EQ((std::vector<std::u16string>{u"a", u"?"}), l32.lines);
    Read be = readAll("\xFE\xFF" + utf16be(u"x\r") + "\0");
    EXPECT_EQ((std::vector<std::u16string>{u"x"}), be.lines);
    Read u8 = readAll("\xEF\xBB\xBF" "ab\xE4\xBA");
    EXPECT_EQ(1u, u8.lines.size());
    EXPECT_EQ(u"ab", u8.lines[0].substr(0, 2));
}
