// Wide formatted printing: printf conversions on 16-bit formats and texts.
//
// Every call runs the format twice over copies of the arguments: a counting pass that
// also validates, then the writing pass, which never writes past what the counting pass
// measured. A malformed format is therefore reported before a single unit is written.

#include "lumosbase.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

// ---------------------------------------------------------------------------
// Output: counts every unit, stores it only while below the limit.
// ---------------------------------------------------------------------------

class Sink {
public:
    Sink(char16_t* out, uint64_t limit) : m_out(out), m_limit(out ? limit : 0) {}

    void put(char16_t c) {
        if (m_count < m_limit) m_out[m_count] = c;
        ++m_count;
    }
    // Counts `n` units of `c` at once: widths up to INT_MAX cost nothing while counting.
    void fill(char16_t c, uint64_t n) {
        uint64_t room = m_count < m_limit ? m_limit - m_count : 0;
        for (uint64_t i = 0; i < n && i < room; ++i) m_out[m_count + i] = c;
        m_count += n;
    }
    void putAscii(const char* s, size_t n) {
        for (size_t i = 0; i < n; ++i) put(char16_t(static_cast<unsigned char>(s[i])));
    }
    void fail() { m_failed = true; }
    bool failed() const { return m_failed || m_count > uint64_t(INT_MAX); }
    uint64_t count() const { return m_count; }
    uint64_t written() const { return m_count < m_limit ? m_count : m_limit; }

private:
    char16_t* m_out;
    uint64_t m_limit;
    uint64_t m_count = 0;
    bool m_failed = false;
};

// A va_list held by value so that it can be passed on by reference on every ABI.
struct Args {
    va_list ap;
};

// ---------------------------------------------------------------------------
// Conversion specifications
// ---------------------------------------------------------------------------

enum class Length { None, hh, h, l, ll, z, t, j, L };

struct Spec {
    bool left = false, plus = false, space = false, alt = false, zero = false;
    int64_t width = 0;     // INT_MIN from '*' turns into a width above INT_MAX
    int precision = -1;    // -1: none given
    Length length = Length::None;
    char16_t conv = 0;
    bool decorated = false;  // anything between '%' and the conversion character
};

bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Digits of a width or precision; false when the number does not fit an int.
bool parseNumber(const char16_t*& p, int& value) {
    int64_t v = 0;
    for (; isDigit(*p); ++p) {
        v = v * 10 + (*p - u'0');
        if (v > INT_MAX) return false;
    }
    value = int(v);
    return true;
}

void parseFlags(const char16_t*& p, Spec& spec) {
    for (;; ++p) {
        switch (*p) {
            case u'-': spec.left = true; break;
            case u'+': spec.plus = true; break;
            case u' ': spec.space = true; break;
            case u'#': spec.alt = true; break;
            case u'0': spec.zero = true; break;
            default: return;
        }
    }
}

bool parseWidth(const char16_t*& p, Spec& spec, Args& args) {
    if (*p != u'*') {
        int w = 0;
        if (!parseNumber(p, w)) return false;
        spec.width = w;
        return true;
    }
    ++p;
    int64_t w = va_arg(args.ap, int);
    if (w < 0) spec.left = true;
    spec.width = w < 0 ? -w : w;
    return true;
}

bool parsePrecision(const char16_t*& p, Spec& spec, Args& args) {
    if (*p != u'.') return true;
    ++p;
    if (*p != u'*') return parseNumber(p, spec.precision);
    ++p;
    int v = va_arg(args.ap, int);
    spec.precision = v < 0 ? -1 : v;
    return true;
}

void parseLength(const char16_t*& p, Spec& spec) {
    switch (*p) {
        case u'h':
            spec.length = p[1] == u'h' ? Length::hh : Length::h;
            break;
        case u'l':
            spec.length = p[1] == u'l' ? Length::ll : Length::l;
            break;
        case u'z': spec.length = Length::z; break;
        case u't': spec.length = Length::t; break;
        case u'j': spec.length = Length::j; break;
        case u'L': spec.length = Length::L; break;
        default: return;
    }
    p += (spec.length == Length::hh || spec.length == Length::ll) ? 2 : 1;
}

// Parses one conversion after its '%'; false for a malformed one.
bool parseSpec(const char16_t*& p, Spec& spec, Args& args) {
    const char16_t* start = p;
    parseFlags(p, spec);
    if (!parseWidth(p, spec, args) || !parsePrecision(p, spec, args)) return false;
    parseLength(p, spec);
    spec.decorated = p != start;
    spec.conv = *p;
    if (*p) ++p;
    return true;
}

// ---------------------------------------------------------------------------
// Padding around a converted value
// ---------------------------------------------------------------------------

// [spaces][head][zeros][body][spaces]: head is a sign or radix prefix, zeros come from a
// precision, zeroPad turns the width padding into zeros after the head.
struct Layout {
    const char* head = "";
    size_t headLen = 0;
    uint64_t zeros = 0;
    bool zeroPad = false;
};

template <class Body>
void emitPadded(Sink& sink, const Spec& spec, const Layout& layout, uint64_t bodyLen,
                Body body) {
    uint64_t total = layout.headLen + layout.zeros + bodyLen;
    uint64_t pad = uint64_t(spec.width) > total ? uint64_t(spec.width) - total : 0;
    if (!spec.left && !layout.zeroPad) sink.fill(u' ', pad);
    sink.putAscii(layout.head, layout.headLen);
    if (layout.zeroPad) sink.fill(u'0', pad);
    sink.fill(u'0', layout.zeros);
    body();
    if (spec.left) sink.fill(u' ', pad);
}

void emitAscii(Sink& sink, const Spec& spec, const Layout& layout, const char* s, size_t n) {
    emitPadded(sink, spec, layout, n, [&] { sink.putAscii(s, n); });
}

// ---------------------------------------------------------------------------
// Integers
// ---------------------------------------------------------------------------

bool validIntegerLength(Length length) { return length != Length::L; }

int64_t fetchSigned(Length length, Args& args) {
    switch (length) {
        case Length::hh: return static_cast<signed char>(va_arg(args.ap, int));
        case Length::h: return static_cast<short>(va_arg(args.ap, int));
        case Length::l: return va_arg(args.ap, long);
        case Length::ll: return va_arg(args.ap, long long);
        case Length::z: return va_arg(args.ap, std::make_signed_t<size_t>);
        case Length::t: return va_arg(args.ap, ptrdiff_t);
        case Length::j: return va_arg(args.ap, intmax_t);
        default: return va_arg(args.ap, int);
    }
}

uint64_t fetchUnsigned(Length length, Args& args) {
    switch (length) {
        case Length::hh: return static_cast<unsigned char>(va_arg(args.ap, unsigned));
        case Length::h: return static_cast<unsigned short>(va_arg(args.ap, unsigned));
        case Length::l: return va_arg(args.ap, unsigned long);
        case Length::ll: return va_arg(args.ap, unsigned long long);
        case Length::z: return va_arg(args.ap, size_t);
        case Length::t: return va_arg(args.ap, std::make_unsigned_t<ptrdiff_t>);
        case Length::j: return va_arg(args.ap, uintmax_t);
        default: return va_arg(args.ap, unsigned);
    }
}

// Writes the digits of `v` just before `bufEnd`; returns where they start.
char* toDigits(uint64_t v, unsigned base, bool upper, char* bufEnd) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char* p = bufEnd;
    do {
        *--p = digits[v % base];
        v /= base;
    } while (v);
    return p;
}

unsigned radixOf(char16_t conv) {
    if (conv == u'o') return 8;
    return (conv == u'x' || conv == u'X' || conv == u'p') ? 16 : 10;
}

const char* signOf(const Spec& spec, bool negative) {
    if (negative) return "-";
    if (spec.plus) return "+";
    return spec.space ? " " : "";
}

const char* prefixOf(const Spec& spec, uint64_t magnitude) {
    if (!spec.alt || magnitude == 0) return "";
    if (spec.conv == u'x' || spec.conv == u'p') return "0x";
    return spec.conv == u'X' ? "0X" : "";
}

uint64_t precisionZeros(const Spec& spec, size_t digits) {
    return spec.precision > 0 && uint64_t(spec.precision) > digits ? spec.precision - digits : 0;
}

// `sign` is empty for unsigned conversions, which ignore '+' and ' '.
void emitInteger(Sink& sink, const Spec& spec, uint64_t magnitude, const char* sign) {
    char buf[24];
    char* end = buf + sizeof buf;
    char* first = toDigits(magnitude, radixOf(spec.conv), spec.conv == u'X', end);
    size_t n = (spec.precision == 0 && magnitude == 0) ? 0 : size_t(end - first);
    char head[4] = {};
    std::strcat(std::strcpy(head, sign), prefixOf(spec, magnitude));
    Layout layout;
    layout.head = head;
    layout.headLen = std::strlen(head);
    layout.zeros = precisionZeros(spec, n);
    // '#' on octal: the first digit shown must be a zero.
    if (spec.conv == u'o' && spec.alt && layout.zeros == 0 && (n == 0 || *first != '0'))
        layout.zeros = 1;
    layout.zeroPad = spec.zero && !spec.left && spec.precision < 0;
    emitAscii(sink, spec, layout, first, n);
}

void convertSigned(Sink& sink, const Spec& spec, Args& args) {
    int64_t v = fetchSigned(spec.length, args);
    uint64_t magnitude = v < 0 ? 0 - uint64_t(v) : uint64_t(v);
    emitInteger(sink, spec, magnitude, signOf(spec, v < 0));
}

void convertUnsigned(Sink& sink, const Spec& spec, Args& args) {
    emitInteger(sink, spec, fetchUnsigned(spec.length, args), "");
}

// A pointer prints as %#lx that honours '+' and ' ', and a null one as "(nil)".
void convertPointer(Sink& sink, const Spec& spec, Args& args) {
    const void* p = va_arg(args.ap, const void*);
    if (!p) return emitAscii(sink, spec, Layout(), "(nil)", 5);
    Spec hex = spec;
    hex.alt = true;
    emitInteger(sink, hex, uintptr_t(p), signOf(spec, false));
}

// ---------------------------------------------------------------------------
// Floating point, digits by the C library
// ---------------------------------------------------------------------------

// Beyond this precision every further digit of a double or long double is a zero, so
// larger precisions are printed at this one and the zeros are appended by count.
constexpr int kExactDigits = 16500;

bool validFloatLength(Length length) {
    return length == Length::None || length == Length::l || length == Length::L;
}

// The narrow format "%<flags>.*<L?><conv>" without width, which is applied later.
void narrowFloatFormat(const Spec& spec, char* fmt) {
    *fmt++ = '%';
    if (spec.plus) *fmt++ = '+';
    if (spec.space) *fmt++ = ' ';
    if (spec.alt) *fmt++ = '#';
    *fmt++ = '.';
    *fmt++ = '*';
    if (spec.length == Length::L) *fmt++ = 'L';
    *fmt++ = char(spec.conv);
    *fmt = 0;
}

// The C library's digits and the zeros owed past kExactDigits, which go before any exponent.
struct FloatText {
    const char* digits;
    size_t length;
    uint64_t extraZeros;
};

bool isExponentChar(char c) { return c == 'e' || c == 'E'; }

void emitFloatText(Sink& sink, const Spec& spec, const FloatText& text, bool finite) {
    Layout layout;
    const char* s = text.digits;
    size_t n = text.length;
    bool signed_ = n > 0 && (*s == '-' || *s == '+' || *s == ' ');
    layout.head = s;
    layout.headLen = signed_ ? 1 : 0;
    layout.zeroPad = spec.zero && !spec.left && finite;
    s += layout.headLen;
    n -= layout.headLen;
    size_t mantissa = 0;
    while (mantissa < n && !isExponentChar(s[mantissa])) ++mantissa;
    emitPadded(sink, spec, layout, n + text.extraZeros, [&] {
        sink.putAscii(s, mantissa);
        sink.fill(u'0', text.extraZeros);
        sink.putAscii(s + mantissa, n - mantissa);
    });
}

// Zeros owed past kExactDigits: %g drops trailing zeros unless '#' keeps them.
uint64_t extraZerosOf(const Spec& spec, bool finite) {
    if (!finite || spec.precision <= kExactDigits) return 0;
    bool general = spec.conv == u'g' || spec.conv == u'G';
    return (general && !spec.alt) ? 0 : uint64_t(spec.precision - kExactDigits);
}

template <class F>
void emitFloat(Sink& sink, const Spec& spec, F value) {
    char fmt[16];
    narrowFloatFormat(spec, fmt);
    bool finite = std::isfinite(value);
    int precision = spec.precision > kExactDigits ? kExactDigits : spec.precision;
    char small[128];
    int n = std::snprintf(small, sizeof small, fmt, precision, value);
    if (n < 0) return sink.fail();
    std::unique_ptr<char[]> large;
    const char* digits = small;
    if (size_t(n) >= sizeof small) {
        large.reset(new (std::nothrow) char[size_t(n) + 1]);
        if (!large) return sink.fail();
        std::snprintf(large.get(), size_t(n) + 1, fmt, precision, value);
        digits = large.get();
    }
    emitFloatText(sink, spec, FloatText{digits, size_t(n), extraZerosOf(spec, finite)}, finite);
}

void convertFloat(Sink& sink, const Spec& spec, Args& args) {
    if (spec.length == Length::L)
        emitFloat(sink, spec, va_arg(args.ap, long double));
    else
        emitFloat(sink, spec, va_arg(args.ap, double));
}

// ---------------------------------------------------------------------------
// Texts and characters
// ---------------------------------------------------------------------------

bool isLead(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }

// Units of a wide text up to `precision`. Units past the precision may not exist, so a
// lead unit at the cut is dropped without looking at what follows it.
uint64_t wideLength(const char16_t* s, int precision) {
    uint64_t n = 0;
    if (precision < 0) {
        while (s[n]) ++n;
        return n;
    }
    while (n < uint64_t(precision) && s[n]) ++n;
    if (n == uint64_t(precision) && n > 0 && isLead(s[n - 1])) --n;
    return n;
}

void convertWideText(Sink& sink, const Spec& spec, const char16_t* s) {
    if (!s) s = u"(null)";
    uint64_t n = wideLength(s, spec.precision);
    emitPadded(sink, spec, Layout(), n, [&] {
        for (uint64_t i = 0; i < n; ++i) sink.put(s[i]);
    });
}

bool inRange(unsigned char b, unsigned char lo, unsigned char hi) { return b >= lo && b <= hi; }

// Bounds of the first continuation byte after lead byte `b`, and how many follow;
// 0 continuation bytes for a byte that cannot start a sequence.
int sequenceShape(unsigned char b, unsigned char& lo, unsigned char& hi) {
    lo = 0x80;
    hi = 0xBF;
    if (inRange(b, 0xC2, 0xDF)) return 1;
    if (b == 0xE0) lo = 0xA0;
    if (b == 0xED) hi = 0x9F;
    if (inRange(b, 0xE0, 0xEF)) return 2;
    if (b == 0xF0) lo = 0x90;
    if (b == 0xF4) hi = 0x8F;
    return inRange(b, 0xF0, 0xF4) ? 3 : 0;
}

// Decodes one code point and advances past it. A broken sequence yields U+FFFD and
// consumes its longest valid prefix (at least one byte), never the terminator.
char32_t decodeUtf8(const unsigned char*& p) {
    unsigned char b = *p++;
    if (b < 0x80) return b;
    unsigned char lo, hi;
    int more = sequenceShape(b, lo, hi);
    if (more == 0) return 0xFFFD;
    char32_t cp = b & (0x3F >> more);
    for (int i = 0; i < more; ++i, lo = 0x80, hi = 0xBF) {
        if (!inRange(*p, lo, hi)) return 0xFFFD;
        cp = (cp << 6) | (*p++ & 0x3F);
    }
    return cp;
}

int unitsOf(char32_t cp) { return cp > 0xFFFF ? 2 : 1; }

void putCodePoint(Sink& sink, char32_t cp) {
    if (cp <= 0xFFFF) return sink.put(char16_t(cp));
    cp -= 0x10000;
    sink.put(char16_t(0xD800 + (cp >> 10)));
    sink.put(char16_t(0xDC00 + (cp & 0x3FF)));
}

// Walks a UTF-8 text, handing each code point to `each`, up to `precision` units
// (-1: no limit) and never splitting a pair; returns the units walked.
template <class Each>
uint64_t walkUtf8(const char* text, int precision, Each each) {
    auto p = reinterpret_cast<const unsigned char*>(text);
    uint64_t units = 0;
    while (*p) {
        char32_t cp = decodeUtf8(p);
        if (precision >= 0 && units + unitsOf(cp) > uint64_t(precision)) break;
        units += unitsOf(cp);
        each(cp);
    }
    return units;
}

void convertNarrowText(Sink& sink, const Spec& spec, const char* s) {
    if (!s) return convertWideText(sink, spec, nullptr);
    uint64_t n = walkUtf8(s, spec.precision, [](char32_t) {});
    emitPadded(sink, spec, Layout(), n, [&] {
        walkUtf8(s, spec.precision, [&](char32_t cp) { putCodePoint(sink, cp); });
    });
}

void emitUnit(Sink& sink, const Spec& spec, char16_t unit) {
    emitPadded(sink, spec, Layout(), 1, [&] { sink.put(unit); });
}

bool isNarrowText(const Spec& spec) {
    return spec.conv == u'S' || (spec.conv == u's' && spec.length == Length::h);
}

bool isNarrowChar(const Spec& spec) {
    return spec.conv == u'C' || (spec.conv == u'c' && spec.length == Length::h);
}

bool validTextLength(const Spec& spec) {
    if (spec.conv == u'S' || spec.conv == u'C') return spec.length == Length::None;
    return spec.length == Length::None || spec.length == Length::h || spec.length == Length::l;
}

void convertText(Sink& sink, const Spec& spec, Args& args) {
    if (isNarrowText(spec))
        convertNarrowText(sink, spec, va_arg(args.ap, const char*));
    else
        convertWideText(sink, spec, va_arg(args.ap, const char16_t*));
}

void convertChar(Sink& sink, const Spec& spec, Args& args) {
    int v = va_arg(args.ap, int);
    if (!isNarrowChar(spec)) return emitUnit(sink, spec, char16_t(v));
    // A lone narrow byte is a whole UTF-8 sequence only below 0x80.
    unsigned char b = static_cast<unsigned char>(v);
    emitUnit(sink, spec, b < 0x80 ? char16_t(b) : char16_t(0xFFFD));
}

// ---------------------------------------------------------------------------
// Driver
// ---------------------------------------------------------------------------

bool convert(Sink& sink, const Spec& spec, Args& args) {
    switch (spec.conv) {
        case u'd': case u'i':
            if (!validIntegerLength(spec.length)) return false;
            convertSigned(sink, spec, args);
            return true;
        case u'u': case u'x': case u'X': case u'o':
            if (!validIntegerLength(spec.length)) return false;
            convertUnsigned(sink, spec, args);
            return true;
        case u'e': case u'E': case u'f': case u'F': case u'g': case u'G':
            if (!validFloatLength(spec.length)) return false;
            convertFloat(sink, spec, args);
            return true;
        case u's': case u'S':
            if (!validTextLength(spec)) return false;
            convertText(sink, spec, args);
            return true;
        case u'c': case u'C':
            if (!validTextLength(spec)) return false;
            convertChar(sink, spec, args);
            return true;
        case u'p':
            if (spec.length != Length::None) return false;
            convertPointer(sink, spec, args);
            return true;
        case u'%':
            if (spec.decorated) return false;
            sink.put(u'%');
            return true;
        default:
            return false;
    }
}

// One pass over the format; -1 for a malformed format or a total above INT_MAX.
int run(Sink& sink, const char16_t* fmt, Args& args) {
    if (!fmt) return -1;
    for (const char16_t* p = fmt; *p;) {
        if (*p != u'%') {
            sink.put(*p++);
            continue;
        }
        Spec spec;
        if (!parseSpec(++p, spec, args) || !convert(sink, spec, args)) return -1;
    }
    return sink.failed() ? -1 : int(sink.count());
}

int measure(const char16_t* fmt, va_list args) {
    Args copy;
    va_copy(copy.ap, args);
    Sink sink(nullptr, 0);
    int n = run(sink, fmt, copy);
    va_end(copy.ap);
    return n;
}

int write(char16_t* out, uint64_t room, const char16_t* fmt, va_list args) {
    Args copy;
    va_copy(copy.ap, args);
    Sink sink(out, room);
    int n = run(sink, fmt, copy);
    va_end(copy.ap);
    uint64_t written = n < 0 ? 0 : sink.written();
    out[written] = 0;
    return n < 0 ? -1 : int(written);
}

}  // namespace

int LumCharOp::formattedLength(const char16_t* fmt, va_list args) { return measure(fmt, args); }

int LumCharOp::format(char16_t* out, const char16_t* fmt, va_list args) {
    int n = measure(fmt, args);
    if (!out) return n;
    if (n < 0) {
        *out = 0;
        return -1;
    }
    return write(out, uint64_t(n), fmt, args);
}

int LumCharOp::format(char16_t* out, const char16_t* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int n = format(out, fmt, args);
    va_end(args);
    return n;
}
