// Hostile text through the escape parser, MIFCIFStrToUniStr, the narrow and wide forms
// of KvString and KvStringBuf, under code page 932 unless LUMRX_ACP names another. The
// input is taken as narrow text, as wide text (pairs of bytes) and as a stream. A wide
// text without backslashes must survive a trip through the narrow form (one with them
// may hold text that reads as an escape).
#include "kvstring.h"

#include "lumosbase.h"
#include "lumstreambuf.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

void escapesInPlace(const std::u16string& wide) {
    std::u16string text = wide;
    int r = KvStringImp::MIFCIFStrToUniStr(&text[0]);
    check(r <= 0);
    check(std::char_traits<char16_t>::length(text.c_str()) ==
          std::char_traits<char16_t>::length(wide.c_str()) + size_t(r));
}

void wideRoundTrip(const std::u16string& wide) {
    KvString s(wide.c_str());
    const char* narrow = s.ansiPtr();
    check(narrow != nullptr);
    if (wide.find(u'\\') != std::u16string::npos) return;
    KvString back(narrow);
    check(back.length() == s.length());
    check(std::u16string(back.kwszPtr()) == std::u16string(s.kwszPtr()));
    check(back.compare(s) == 0);
}

void narrowOperations(const std::string& bytes) {
    KvString s(bytes.c_str());
    int len = s.length();
    KvString copy(s);
    copy.append(KvString(bytes.c_str()));
    s.substrRev(len / 2);
    s.left(len / 3);
    s.utf8Ptr();
    s.compareNoCase(bytes.c_str());
    s.match(bytes.c_str());
    s.asDeci(1);
    KvString upper(bytes.c_str());
    upper.makeUpper().makeReverse();
    s.kwszPtr();
    s.replace(u"\\", u"\\U+005C");
    s.trim();
    if (s.length() > 0) s.getAt(s.length() - 1);
}

void streamLines(const std::string& bytes) {
    KvStringBuf buf;
    auto* stream = new LumMemoryStreamBuf(bytes.data(), bytes.size());
    buf.init(stream);
    for (int i = 0; i < 10000 && !stream->atEnd(); ++i) buf.getString();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int page = setenv("LUMRX_ACP", "932", 0);
    (void)page;
    if (size == 0) return 0;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string text = bytes.c_str();  // narrow texts end at the first zero
    std::u16string wide;
    for (size_t i = 0; i + 1 < size; i += 2) wide += char16_t(data[i] | data[i + 1] << 8);
    wide = wide.c_str();
    escapesInPlace(wide);
    wideRoundTrip(wide);
    narrowOperations(text);
    streamLines(bytes);
    return 0;
}
