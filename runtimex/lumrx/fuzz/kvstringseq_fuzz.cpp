// Sequences of the whole KvString interface on narrow, wide and UTF-8 text, checked
// against a plain std::u16string model of the wide content. The process code page is
// LUMRX_ACP, 932 unless given (run it under 1252, 932, 949, 950 and 1361); the page
// converters of all five pages are checked on every input besides.
//
// The model holds what kwszPtr() must give. Operations whose result the model can
// work out (wide edits, searches, cuts of wide strings, indexed access) update it and
// are checked; the others (narrow cuts and joins, case mapping beyond ASCII) run for
// their crash checks and the model takes the string's text afterwards, read through a
// copy so that the narrow forms stay narrow.
#include "kvstring.h"

#include "lumosbase.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Names the line of a failed check, then stops.
void checkAt(bool ok, int line) {
    if (ok) return;
    std::fprintf(stderr, "kvstringseq_fuzz: check failed at line %d\n", line);
    std::abort();
}
#define check(ok) checkAt((ok), __LINE__)

enum { kEmpty = 0, kInlineAnsi = 1, kInlineWide = 2, kHeapAnsi = 3, kHeapWide = 4, kPair = 5 };

class Input {
public:
    Input(const uint8_t* data, size_t size) : m_p(data), m_end(data + size) {}
    bool more() const { return m_p < m_end; }
    uint8_t byte() { return m_p < m_end ? *m_p++ : 0; }
    int count() { return int(byte() % 24) - 4; }

    // Extreme and ordinary counts and positions.
    int position() {
        uint8_t b = byte();
        switch (b % 8) {
        case 0: return INT_MIN;
        case 1: return INT_MAX;
        case 2: return -1 - int(byte() % 3);
        default: return int(byte() % 40);
        }
    }

    // A unit from an alphabet that makes hits, escapes and odd units likely, or a raw one.
    char16_t unit() {
        static const char16_t kAlphabet[] = {u'a', u'b', u'A', u' ', u'\\', u'U', u'+', u'0', u'4', u'1',
                                             u'M', 0xE9, 0x3042, 0xD800, 0x20A9, 0xAC00};
        uint8_t b = byte();
        if (b < 0xF0) return kAlphabet[b % 16];
        char16_t u = char16_t(byte() | byte() << 8);
        return u ? u : u'z';
    }

    std::u16string wide() {
        std::u16string text;
        for (int n = byte() % 20; n > 0 && more(); --n) text += unit();
        return text;
    }

    // Bytes up to the first zero: escapes, ASCII and bytes of double-byte pages.
    std::string narrow() {
        static const char* const kPieces[] = {"a", "b", "\\", "\\U+0041", "\\u+3042", "\\M+182A0", "\\M+48441",
                                              "\\U+00G1", " ", "\x82\xA0", "\x88\x61", "\xA4\x40", "\x84", "\x5C"};
        std::string text;
        for (int n = byte() % 12; n > 0 && more(); --n) {
            uint8_t b = byte();
            if (b < 0xC0) text += kPieces[b % 14];
            else text += char(byte() | 1);
        }
        return text;
    }

private:
    const uint8_t* m_p;
    const uint8_t* m_end;
};

// The wide text a narrow text stands for: the full conversion of the process page.
std::u16string widened(const std::string& narrow) {
    LumVector<char16_t> out;
    LumCharMapper::multiByteToWideChar(LumCodePageMapper::ansiCpToKvoreCp(lumGetACP()), narrow.c_str(),
                                       int(std::strlen(narrow.c_str())), out);
    return out.asArrayPtr();
}

std::u16string fromUtf8(const std::string& bytes) {
    LumVector<char16_t> out;
    LumCharMapper::utf8ToUnicode(bytes.c_str(), int(std::strlen(bytes.c_str())), out);
    return out.asArrayPtr();
}

// The text of the string without changing its form: a narrow string is read through
// a narrow copy.
std::u16string textOf(const KvString& s) {
    int form = KvStringImp::form(s);
    if (form == kInlineAnsi || form == kHeapAnsi) return KvString(s).kwszPtr();
    return s.kwszPtr();
}

bool isWideForm(const KvString& s) {
    int form = KvStringImp::form(s);
    return form == kInlineWide || form == kHeapWide;
}

// Status of the LumErrorStatus* that `f` throws (deleted here), or -1.
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

size_t replaceAll(std::u16string& text, const std::u16string& a, const std::u16string& b) {
    size_t hits = 0;
    for (size_t at = text.find(a); at != std::u16string::npos; at = text.find(a, at + b.size())) {
        text.replace(at, a.size(), b);
        ++hits;
    }
    return hits;
}

class Sequence {
public:
    explicit Sequence(Input& in) : m_in(in) {}

    void run() {
        // KVSTRINGSEQ_TRACE=1 prints each step for a reproduction.
        static const bool trace = std::getenv("KVSTRINGSEQ_TRACE") != nullptr;
        for (int step = 0; step < 64 && m_in.more(); ++step) {
            int op = m_in.byte() % 30;
            operate(op);
            if (trace) {
                std::fprintf(stderr, "op %d -> form %d, model", op, KvStringImp::form(m_s));
                for (char16_t u : m_w) std::fprintf(stderr, " %04X", unsigned(u));
                std::fprintf(stderr, "\n");
            }
            verify();
        }
    }

private:
    void operate(int op) {
        switch (op) {
        case 0: { std::u16string t = m_in.wide(); m_s = KvString(t.c_str()); m_w = t; break; }
        case 1: { std::string t = m_in.narrow(); m_s = KvString(t.c_str()); m_w = widened(t); break; }
        case 2: { std::string t = m_in.narrow(); m_s.assign(t.c_str(), KvString::kUtf8); m_w = fromUtf8(t); break; }
        case 3: { std::u16string t = m_in.wide(); m_s.append(t.c_str()); m_w += t; break; }
        case 4: { std::string t = m_in.narrow(); m_s.append(t.c_str()); resync(); break; }
        case 5: { KvString o(m_in.narrow().c_str()); m_s.append(o); resync(); break; }
        case 6: cut(); break;
        case 7: search(); break;
        case 8: compareAndMatch(); break;
        case 9: edit(); break;
        case 10: replace(); break;
        case 11: insert(); break;
        case 12: indexed(); break;
        case 13: trim(); break;
        case 14: caseAndOrder(); break;
        case 15: buffers(); break;
        case 16: copyAndAssign(); break;
        case 17: { KvString moved(std::move(m_s)); check(m_s.isEmpty()); m_s = std::move(moved); break; }
        case 18: narrowTrip(); break;
        case 19: utf8Trip(); break;
        case 20: numbers(); break;
        case 21: tokens(); break;
        case 22: { m_s.kwszPtr(); break; }
        case 23: { m_s.ansiPtr(); break; }
        case 24: { std::u16string t = m_in.wide(); m_s = m_s.precat(t.c_str()); m_w = t + m_w; break; }
        case 25: { std::string t = m_in.narrow(); m_s = m_s.concat(t.c_str()); resync(); break; }
        case 26: { char16_t c = m_in.unit(); m_s.append(c); m_w += c; break; }
        case 27: { m_s.setEmpty(); m_w.clear(); break; }
        case 28: {
            int n = m_in.byte() % 5;
            char16_t c = m_in.unit();
            m_s = KvString(c, unsigned(n));
            m_w = std::u16string(size_t(n), c);
            break;
        }
        default: {
            int v = m_in.position();
            m_s = KvString(KvString::kSignedDecimal, unsigned(v));
            std::string digits = std::to_string(v);
            m_w.assign(digits.begin(), digits.end());
            break;
        }
        }
    }

    // A copy of a pair is narrow: its text is the wide reading of the narrow rendering,
    // which differs where the wide text holds what reads as an escape.
    void copyAndAssign() {
        bool pair = KvStringImp::form(m_s) == kPair;
        if (pair) m_w = widened(m_s.ansiPtr());
        KvString copy(m_s);
        int form = KvStringImp::form(copy);
        if (pair) check(form == kInlineAnsi || form == kHeapAnsi || (form == kEmpty && m_w.empty()));
        m_s = copy;
    }

    // Narrow forms may have been joined byte-wise; the model takes their text.
    void resync() { m_w = textOf(m_s); }

    void verify() {
        int form = KvStringImp::form(m_s);
        check(form >= kEmpty && form <= kPair);
        check(m_s.isEmpty() == (form == kEmpty));
        check(textOf(m_s) == m_w);
        if (form != kInlineAnsi && form != kHeapAnsi) check(m_s.length() == int(m_w.size()));
        if (form == kHeapWide || form == kPair) check(m_s.capacity() >= int(m_w.size()));
    }

    void cut() {
        int a = m_in.position(), b = m_in.position();
        bool wide = isWideForm(m_s);
        int len = int(m_w.size());
        KvString r = m_s.right(a);
        if (a < 0) check(r.isEmpty());
        KvString l = m_s.left(a);
        KvString m = m_s.mid(a, b);
        KvString m1 = m_s.mid(b);
        if (!wide) return;
        // Wide strings cut in units.
        check(std::u16string(r.kwszPtr()) == (a < 0 ? u"" : m_w.substr(size_t(std::max(0, len - a)))));
        size_t start = size_t(std::max(0, a));
        std::u16string whole = start < m_w.size() ? m_w.substr(start) : u"";
        check(std::u16string(m.kwszPtr()) ==
              (b < -1 || b == -1 || (b & 0x40000000) ? whole : whole.substr(0, size_t(unsigned(b)))));
        check(std::u16string(l.kwszPtr()) == (a < -1 || a == -1 ? m_w : m_w.substr(0, size_t(unsigned(a)))));
        size_t s1 = size_t(std::max(0, b));
        check(std::u16string(m1.kwszPtr()) == (s1 < m_w.size() ? m_w.substr(s1) : u""));
    }

    void search() {
        std::u16string needle = m_in.wide();
        if (needle.empty()) needle = u"a";
        auto expected = [](std::u16string::size_type at) { return at == std::u16string::npos ? -1 : int(at); };
        bool empty = m_s.isEmpty();
        check(m_s.find(needle.c_str()) == (empty ? -1 : expected(m_w.find(needle))));
        check(m_s.findRev(needle.c_str()) == (empty ? -1 : expected(m_w.rfind(needle))));
        check(m_s.findOneOf(needle.c_str()) == (empty ? -1 : expected(m_w.find_first_of(needle))));
        check(m_s.findOneOfRev(needle.c_str()) == (empty ? -1 : expected(m_w.find_last_of(needle))));
        char16_t c = needle[0];
        int start = m_in.position();
        int found = m_s.find(c, start);
        if (empty || start < 0 || (start != 0 && start >= int(m_w.size()))) check(found == -1);
        else check(found == expected(m_w.find(c, size_t(start))));
        check(m_s.find(KvString(needle.c_str())) == (empty ? -1 : expected(m_w.find(needle))));
    }

    void compareAndMatch() {
        bool empty = m_s.isEmpty(), wide = isWideForm(m_s);
        // A narrow side reads a backslash as the possible start of an escape, so a wide
        // text holding one need not equal the narrow rendering of itself.
        if (wide || m_w.find(u'\\') == std::u16string::npos) {
            int same = empty || !m_w.empty() ? 0 : 1;
            check(m_s.compare(m_w.c_str()) == same);
            check(m_s.compareNoCase(m_w.c_str()) == same);
            check(m_s.compare(KvString(m_w.c_str())) == same);
        }
        if (wide || KvStringImp::form(m_s) == kPair) check(m_s.match(m_w.c_str()) == (empty ? 0 : int(m_w.size())));
        // Against other text only the relation between the two orders is fixed.
        std::u16string other = m_in.wide();
        int ab = m_s.compare(other.c_str());
        check(ab >= -1 && ab <= 1);
        if (wide && !other.empty()) check(KvString(other.c_str()).compare(m_w.c_str()) == (m_w.empty() ? 1 : -ab));
        std::string narrow = m_in.narrow();
        int an = m_s.compare(narrow.c_str());
        check(an >= -1 && an <= 1);
        if (wide && !narrow.empty() && widened(narrow) == m_w) check(an == 0);
        m_s.compareNoCase(narrow.c_str());
        m_s.matchNoCase(narrow.c_str());
        m_s.match(narrow.c_str());
        m_s.compare(narrow.c_str(), KvString::kUtf8);
    }

    void edit() {
        char16_t c = m_in.unit();
        bool wasEmpty = m_s.isEmpty();
        int removed = m_s.remove(c);
        char16_t gone = c ? c : u' ';
        size_t before = m_w.size();
        if (!wasEmpty) m_w.erase(std::remove(m_w.begin(), m_w.end(), gone), m_w.end());
        check(removed == int(before - m_w.size()));
        int index = m_in.position(), count = std::max(0, m_in.count());
        int len = int(m_w.size());
        int r = m_s.deleteAtIndex(index, count);
        if (index < 0 || index >= len || count == 0) {
            check(r == len);
        } else if (count <= len - index) {
            m_w.erase(size_t(index), size_t(count));
            check(r == int(m_w.size()));
        } else {
            m_w.resize(size_t(index));
        }
    }

    void replace() {
        if (m_in.byte() & 1) {
            char16_t a = m_in.unit(), b = m_in.unit();
            int hits = m_s.replace(a, b);
            check(hits == (m_s.isEmpty() ? 0 : int(std::count(m_w.begin(), m_w.end(), a))));
            std::replace(m_w.begin(), m_w.end(), a, b);
            m_w = m_w.c_str();  // a zero unit ends the text
            return;
        }
        std::u16string a = m_in.wide(), b = m_in.wide();
        int hits = m_s.replace(a.c_str(), b.c_str());
        size_t expected = (m_s.isEmpty() || a.empty()) ? 0 : replaceAll(m_w, a, b);
        check(hits == int(expected));
    }

    void insert() {
        int index = m_in.position();
        std::u16string t = m_in.wide();
        int len = m_s.length();
        bool narrow = !isWideForm(m_s) && KvStringImp::form(m_s) != kPair && !m_s.isEmpty();
        m_s.insert(index, t.c_str());
        if (narrow) {
            resync();
            return;
        }
        if (index >= 0 && index <= len && !t.empty()) m_w.insert(size_t(index), t);
    }

    void indexed() {
        int i = m_in.position();
        bool inside = i >= 0 && i < int(m_w.size());
        char16_t got = 0;
        int status = thrownStatus([&] { got = m_s.getAt(i); });
        check(inside ? status == -1 && got == m_w[size_t(i)] : status == 3);
        char16_t c = (m_in.byte() % 8) ? m_in.unit() : 0;
        status = thrownStatus([&] { m_s.setAt(i, c); });
        check(inside ? status == -1 : status == 3);
        if (inside && !m_s.isEmpty()) m_w[size_t(i)] = c, m_w = m_w.c_str();
    }

    void trim() {
        bool empty = m_s.isEmpty();
        switch (m_in.byte() % 3) {
        case 0: m_s.trimLeft(); if (!empty) m_w.erase(0, m_w.find_first_not_of(u' ') == std::u16string::npos ? m_w.size() : m_w.find_first_not_of(u' ')); break;
        case 1: m_s.trimRight(); if (!empty) m_w.erase(m_w.find_last_not_of(u' ') == std::u16string::npos ? 0 : m_w.find_last_not_of(u' ') + 1); break;
        default: {
            std::u16string set = m_in.wide();
            m_s.trim(set.c_str());
            if (set.empty()) set = u" ";
            if (empty) break;
            size_t last = m_w.find_last_not_of(set);
            m_w.erase(last == std::u16string::npos ? 0 : last + 1);
            size_t first = m_w.find_first_not_of(set);
            m_w.erase(0, first == std::u16string::npos ? m_w.size() : first);
        }
        }
    }

    void caseAndOrder() {
        switch (m_in.byte() % 3) {
        case 0: m_s.makeUpper(); break;
        case 1: m_s.makeLower(); break;
        default:
            if (isWideForm(m_s)) {
                m_s.makeReverse();
                std::reverse(m_w.begin(), m_w.end());
                return;
            }
            m_s.makeReverse();
        }
        resync();
    }

    void buffers() {
        int n = m_in.position();
        char16_t* p = m_s.getBuffer(n);
        int form = KvStringImp::form(m_s);
        if (!p) {
            check(n < 0 || n > 0x3FFFFFFE);
            check(!m_s.releaseBuffer());
            m_badRequest |= form == kHeapWide || form == kPair;
            return;
        }
        check(m_s.capacity() >= n);
        check(std::u16string(p) == m_w);
        if (form != kHeapWide && form != kPair) {
            check(!m_s.releaseBuffer());
            return;
        }
        // Once a release may be refused, nothing is written: a pair would keep a narrow
        // text that no longer matches.
        int len = int(m_w.size());
        if (len > 0 && !m_badRequest && (m_in.byte() & 1)) p[len - 1] = u'q', m_w[size_t(len - 1)] = u'q';
        int keep = m_in.byte() % 4 == 0 ? -1 : std::min(len, int(m_in.byte() % 8));
        // A refused request earlier keeps its buffer refusing until a new one replaces it.
        if (!m_s.releaseBuffer(keep)) {
            check(m_badRequest);
            return;
        }
        if (keep >= 0) m_w.resize(size_t(keep));
    }

    // Every text survives the narrow form unless it holds a backslash, which may read as
    // the start of an escape.
    void narrowTrip() {
        bool rendered = isWideForm(m_s);  // the narrow text is made here, one character per unit
        const char* narrow = m_s.ansiPtr();
        check(narrow != nullptr);
        KvString back(narrow);
        if (m_w.find(u'\\') == std::u16string::npos) {
            check(std::u16string(back.kwszPtr()) == m_w);
            if (rendered) check(KvString(narrow).length() == int(m_w.size()));
        }
        check(m_s.compare(narrow) == (m_s.isEmpty() || *narrow ? 0 : 1) || m_w.find(u'\\') != std::u16string::npos);
    }

    void utf8Trip() {
        const char* utf8 = m_s.utf8Ptr();
        check(utf8 != nullptr);
        bool loneSurrogate = std::any_of(m_w.begin(), m_w.end(), [](char16_t u) { return u >= 0xD800 && u <= 0xDFFF; });
        if (!loneSurrogate) check(fromUtf8(utf8) == m_w);
    }

    void numbers() {
        int flags = m_in.byte() % 16;
        m_s.asDeci(flags), m_s.asHex(flags), m_s.asUDeci(flags), m_s.asUHex(flags);
        m_s.asDeci64(flags), m_s.asHex64(flags), m_s.asUDeci64(flags), m_s.asUHex64(flags);
        KvDbHandle h = m_s.asKvDbHandle(flags);
        KvString rendered(h);
        check(rendered.isEmpty() == (h.value() == 0));
        resync();
    }

    void tokens() {
        std::u16string delims = m_in.wide();
        if (delims.empty()) delims = u",";
        int pos = 0;
        for (int i = 0; i < 64 && pos <= m_s.length(); ++i) {
            int before = pos;
            KvString token = m_s.tokenize(delims.c_str(), pos);
            if (token.isEmpty()) break;
            check(pos > before);
        }
        check(textOf(m_s) == m_w);
    }

    Input& m_in;
    KvString m_s;
    std::u16string m_w;
    bool m_badRequest = false;
};

// The converters of the five pages: a wide text without a backslash survives the
// narrow form of each, and narrow text read, written and read again stays as read.
void pageTrips(const uint8_t* data, size_t size) {
    std::u16string wide;
    for (size_t i = 0; i + 1 < size; i += 2) wide += char16_t(data[i] | data[i + 1] << 8);
    wide = wide.c_str();
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bytes = bytes.c_str();
    for (unsigned cp : {1252u, 932u, 949u, 950u, 1361u}) {
        auto id = LumCodePageMapper::ansiCpToKvoreCp(cp);
        std::string narrow(7 * wide.size() + 1, '\0');
        int n = LumCharOp::WideCharToMultiByteCIF(cp, 0, wide.c_str(), -1, &narrow[0], int(narrow.size()), 0);
        check(n > 0 && size_t(n) <= narrow.size() && narrow[size_t(n) - 1] == 0);
        LumVector<char16_t> back;
        LumCharMapper::multiByteToWideChar(id, narrow.c_str(), n - 1, back);
        if (wide.find(u'\\') == std::u16string::npos) check(std::u16string(back.asArrayPtr()) == wide);

        LumVector<char16_t> read;
        LumCharMapper::multiByteToWideChar(id, bytes.c_str(), int(bytes.size()), read);
        std::u16string first = read.asArrayPtr();
        std::string written(7 * first.size() + 1, '\0');
        int m = LumCharOp::WideCharToMultiByteCIF(cp, 0, first.c_str(), -1, &written[0], int(written.size()), 0);
        check(m > 0);
        LumVector<char16_t> again;
        LumCharMapper::multiByteToWideChar(id, written.c_str(), m - 1, again);
        if (first.find(u'\\') == std::u16string::npos) check(std::u16string(again.asArrayPtr()) == first);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int page = setenv("LUMRX_ACP", "932", 0);
    (void)page;
    Input in(data, size);
    Sequence(in).run();
    pageTrips(data, size < 512 ? size : 512);
    return 0;
}
