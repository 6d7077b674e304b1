// KvString: forms, construction, assignment, the text accessors, buffers, and the
// narrow and wide appends.
#include "kvstring.h"

#include "kvstringstorage.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <utility>

using namespace kvtext;

namespace {

const char kEmptyNarrow[1] = {0};
const char16_t kEmptyWide[1] = {0};

size_t wideLength(const char16_t* s) { return unitCount(s); }

}  // namespace

const char16_t* const KvStringImp::kEmptyStrW = kEmptyWide;

// ---------------------------------------------------------------------------
// Storage
// ---------------------------------------------------------------------------

void KvString::setBlock(int f, void* block) {
    setForm(f);
    mText.pointer.block = block;
}

void KvString::release() {
    switch (form()) {
    case kFormHeapAnsi:
        _lumFree(mText.pointer.block);
        break;
    case kFormHeapWide:
        freeWide(static_cast<char16_t*>(mText.pointer.block));
        break;
    case kFormPair: {
        auto* pair = static_cast<KvStringPair*>(mText.pointer.block);
        freeWide(pair->wide);
        _lumFree(pair);
        break;
    }
    default:
        break;
    }
    if (form() >= kFormHeapAnsi) mText.pointer.block = nullptr;
    if (form() != kFormEmpty && mUtf8Cache) {
        _lumFree(mUtf8Cache);
        mUtf8Cache = nullptr;
    }
    setForm(kFormEmpty);
}

void KvString::dropNarrowForm() {
    if (form() != kFormInlineAnsi && form() != kFormHeapAnsi && form() != kFormPair) return;
    char16_t* wide = const_cast<char16_t*>(kwszPtr());
    if (form() != kFormPair) return;  // the conversion failed; the narrow text stays
    auto* pair = static_cast<KvStringPair*>(mText.pointer.block);
    pair->wide = nullptr;
    _lumFree(pair);
    setBlock(kFormHeapWide, wide);
}

// The wide text to edit in place, or null when there is none to write (the empty form,
// or a conversion that failed).
char16_t* KvString::editableWide() {
    const char16_t* p = kwszPtr();
    return p == KvStringImp::kEmptyStrW ? nullptr : const_cast<char16_t*>(p);
}

// Puts a new wide buffer in the place of the current wide text: in the record for the
// pair form, else as the heap wide form (the old heap buffer is freed).
void KvString::installWide(char16_t* buffer) {
    if (form() == kFormPair) {
        auto* pair = static_cast<KvStringPair*>(mText.pointer.block);
        freeWide(pair->wide);
        pair->wide = buffer;
        return;
    }
    if (form() == kFormHeapWide) freeWide(static_cast<char16_t*>(mText.pointer.block));
    setBlock(kFormHeapWide, buffer);
}

// The text is copied before the old storage goes, so it may lie inside it.
bool KvString::storeNarrow(const char* text, size_t bytes) {
    if (bytes == 0) {
        release();
        clearAll();
        return true;
    }
    if (bytes >= 7) {
        auto* block = static_cast<char*>(_lumMalloc(bytes + 1));
        if (!block) return false;
        std::memcpy(block, text, bytes);
        block[bytes] = 0;
        release();
        setBlock(kFormHeapAnsi, block);
    } else {
        char local[7];
        std::memcpy(local, text, bytes);
        release();
        setForm(kFormInlineAnsi);
        std::memcpy(mText.narrow.text, local, bytes);
        mText.narrow.text[bytes] = 0;
    }
    mUtf8Cache = nullptr;
    return true;
}

// The wide setter: `start` and `count` in units; a count with bit 30 set, or beyond the
// text, means all.
bool KvString::setWide(const char16_t* text, int start, int count) {
    if (!text) return false;
    for (int i = 0; i < start && *text; ++i) ++text;
    size_t left = wideLength(text);
    size_t n = ((count & 0x40000000) || size_t(unsigned(count)) > left) ? left : size_t(unsigned(count));
    if (n == 0) {
        release();
        clearAll();
        return true;
    }
    if (n >= 3) {
        char16_t* buffer = allocWide(n);
        if (!buffer) return false;
        std::memcpy(buffer, text, n * sizeof(char16_t));
        buffer[n] = 0;
        release();
        setBlock(kFormHeapWide, buffer);
    } else {
        char16_t local[2];
        std::memcpy(local, text, n * sizeof(char16_t));
        release();
        setForm(kFormInlineWide);
        std::memcpy(mText.wide.text, local, n * sizeof(char16_t));
        mText.wide.text[n] = 0;
    }
    mUtf8Cache = nullptr;
    return true;
}

// ---------------------------------------------------------------------------
// Construction and assignment
// ---------------------------------------------------------------------------

KvString::KvString() {
    static_assert(offsetof(NarrowView, text) == 1 && offsetof(WideView, text) == 2 &&
                      offsetof(PointerView, block) == alignof(void*) &&
                      sizeof(KvString) == sizeof(Overlay) + sizeof(char*),
                  "the overlay's views start at bytes 1, 2 and the pointer boundary");
    clearAll();
}

KvString::KvString(char c) {
    clearAll();
    setForm(kFormInlineAnsi);
    mText.narrow.text[0] = c;
}

KvString::KvString(char16_t c) {
    clearAll();
    setForm(kFormInlineWide);
    mText.wide.text[0] = c;
}

void KvString::setNarrowText(const char* s) { KvStringImp::SetFromMBCS(*this, s, 0, -1); }

void KvString::setWideText(const char16_t* s) { setWide(s, 0, -1); }

KvString::KvString(const char* s, Encoding e) {
    clearAll();
    if (!s || e != kUtf8) return;
    LumVector<char16_t> wide;
    LumCharMapper::utf8ToUnicode(s, int(std::strlen(s)), wide);
    setWide(wide.asArrayPtr(), 0, -1);
}

KvString::KvString(const char16_t* s, unsigned n) {
    clearAll();
    setWide(s, 0, int(n));
}

// A copy of a pair-form string is narrow.
KvString::KvString(const KvString& o) {
    clearAll();
    if (o.form() == kFormInlineWide || o.form() == kFormHeapWide) setWide(o.kwszPtr(), 0, -1);
    else KvStringImp::SetFromMBCS(*this, o.ansiPtr(), 0, -1);
}

KvString::KvString(KvString&& o) noexcept : mText(o.mText), mUtf8Cache(o.mUtf8Cache) { o.clearAll(); }

KvString::KvString(eFormat f, unsigned v) {
    clearAll();
    if (f == kResourceId) loadString(v);
    else renderNumber(f, v);
}

KvString::KvString(char16_t c, unsigned n) {
    clearAll();
    if (n == 0) return;
    if (n <= 2) {
        setForm(kFormInlineWide);
        for (unsigned i = 0; i < n; ++i) mText.wide.text[i] = c;
        return;
    }
    char16_t* buffer = allocWide(n);
    if (!buffer) return;
    for (unsigned i = 0; i < n; ++i) buffer[i] = c;
    buffer[n] = 0;
    setBlock(kFormHeapWide, buffer);
}

KvString::KvString(const KvDbHandle& h) {
    clearAll();
    renderHandle(h);
}

KvString::KvString(const KvRxResourceInstance&, unsigned) { clearAll(); }

KvString::KvString(void* instance, unsigned id) {
    clearAll();
    loadString(instance, id);
}

void KvString::renderNumber(eFormat f, unsigned v) {
    if (f != kSignedDecimal && f != kUnsignedDecimal && f != kHex) return;
    bool negative = f == kSignedDecimal && int32_t(v) < 0;
    if (negative) v = 0u - v;
    unsigned base = f == kHex ? 16 : 10;
    char digits[32];
    char* p = digits + sizeof digits;
    *--p = 0;
    do {
        unsigned d = v % base;
        *--p = char(d < 10 ? '0' + d : 'a' + d - 10);
        v /= base;
    } while (v);
    if (negative) *--p = '-';
    KvStringImp::SetFromMBCS(*this, p, 0, -1);
}

// Upper-case hexadecimal without leading zeros; the handle 0 leaves the string empty.
void KvString::renderHandle(const KvDbHandle& h) {
    static const char16_t kDigits[] = u"0123456789ABCDEF";
    char16_t digits[17];
    char16_t* p = digits + 16;
    *p = 0;
    for (uint64_t v = h.value(); v; v >>= 4) *--p = kDigits[v & 0xF];
    setWide(p, 0, -1);
}

KvString& KvString::assign(const char* s) {
    if (s == ansiPtr()) return *this;
    // SetFromMBCS copies before it frees the old text, so `s` may lie inside it.
    if (!KvStringImp::SetFromMBCS(*this, s, 0, -1)) setEmpty();
    return *this;
}

KvString& KvString::assign(const char16_t* s) {
    if (s == kwszPtr()) return *this;
    if (!setWide(s, 0, -1)) setEmpty();
    return *this;
}

KvString& KvString::assign(const char* s, Encoding e) {
    if (!s || e != kUtf8) return setEmpty();
    LumVector<char16_t> wide;
    LumCharMapper::utf8ToUnicode(s, int(std::strlen(s)), wide);
    if (!setWide(wide.asArrayPtr(), 0, -1)) setEmpty();
    return *this;
}

// Unlike the copy constructor, assignment gives a pair-form source as wide text.
KvString& KvString::assign(const KvString& o) {
    if (&o == this) return *this;
    bool ok = (o.form() == kFormInlineAnsi || o.form() == kFormHeapAnsi)
                  ? KvStringImp::SetFromMBCS(*this, o.narrowText(), 0, -1)
                  : setWide(o.kwszPtr(), 0, -1);
    if (!ok) setEmpty();
    return *this;
}

KvString& KvString::operator=(KvString&& o) noexcept {
    if (&o == this) return *this;
    setEmpty();
    mText = o.mText;
    mUtf8Cache = o.mUtf8Cache;
    o.clearAll();
    return *this;
}

KvString& KvString::assign(char c) {
    const char text[2] = {c, 0};
    return assign(text);
}

KvString& KvString::assign(char16_t c) {
    const char16_t text[2] = {c, 0};
    return assign(text);
}

KvString& KvString::assign(const KvDbHandle& h) {
    release();
    renderHandle(h);
    return *this;
}

KvString& KvString::setEmpty() {
    release();
    clearAll();
    return *this;
}

// ---------------------------------------------------------------------------
// Accessors
// ---------------------------------------------------------------------------

const char16_t* KvString::kwszPtr() const {
    auto* self = const_cast<KvString*>(this);
    switch (form()) {
    case kFormInlineWide:
        return mText.wide.text;
    case kFormHeapWide:
        return static_cast<const char16_t*>(mText.pointer.block);
    case kFormPair:
        return static_cast<KvStringPair*>(mText.pointer.block)->wide;
    case kFormInlineAnsi:
    case kFormHeapAnsi:
        return self->widenNarrowForm();
    default:
        return KvStringImp::kEmptyStrW;
    }
}

// Converts the narrow text, resolving its escapes, and keeps both texts in a record.
// A failed allocation leaves the string as it was and gives the empty text.
const char16_t* KvString::widenNarrowForm() {
    const char* text = narrowText();
    size_t bytes = std::strlen(text);
    char16_t* wide = widenedBuffer(text, bytes);
    KvStringPair* pair = wide ? allocPair(bytes + 1) : nullptr;
    if (!pair) {
        freeWide(wide);
        return KvStringImp::kEmptyStrW;
    }
    std::memcpy(pair->ansi, text, bytes + 1);
    pair->wide = wide;
    release();
    setBlock(kFormPair, pair);
    return wide;
}

const char* KvString::ansiPtr() const {
    auto* self = const_cast<KvString*>(this);
    switch (form()) {
    case kFormInlineAnsi:
    case kFormHeapAnsi:
        return narrowText();
    case kFormPair:
        return static_cast<KvStringPair*>(mText.pointer.block)->ansi;
    case kFormInlineWide:
    case kFormHeapWide:
        return self->narrowWideForm();
    default:
        return kEmptyNarrow;
    }
}

// Renders the wide text in the code page, each unit it lacks as an escape (7 bytes at
// most per unit), and keeps both texts in a record. Null if that fails.
const char* KvString::narrowWideForm() {
    if (form() == kFormInlineWide) {
        size_t n = wideLength(mText.wide.text);
        char16_t* buffer = allocWide(n);
        if (!buffer) return nullptr;
        std::memcpy(buffer, mText.wide.text, (n + 1) * sizeof(char16_t));
        setBlock(kFormHeapWide, buffer);
    }
    auto* wide = static_cast<char16_t*>(mText.pointer.block);
    size_t units = wideLength(wide);
    size_t size = 7 * units + 1;
    if (size > size_t(INT_MAX)) return nullptr;
    // The terminator is converted too, as a count of -1 would have it. Text of one or two
    // bytes a unit fits the local buffer; text whose escapes don't fit is converted again
    // into room for the worst case.
    auto toAcp = [wide, units](char* out, size_t room) {
        return LumCharOp::WideCharToMultiByteCIF(lumGetACP(), 0, wide, int(units + 1), out, int(room), 0);
    };
    char local[4096];
    char* out = local;
    int r = 2 * units + 1 <= sizeof local ? toAcp(local, sizeof local) : 0;
    if (r == 0) {
        out = static_cast<char*>(_lumMalloc(size));
        if (!out) return nullptr;
        r = toAcp(out, size);
    }
    KvStringPair* pair = r > 0 ? allocPair(size_t(r)) : nullptr;
    if (pair) {
        pair->wide = wide;
        std::memcpy(pair->ansi, out, size_t(r));
        setBlock(kFormPair, pair);
    }
    if (out != local) _lumFree(out);
    return pair ? pair->ansi : nullptr;
}

// Converted afresh on every call; the new text replaces the cached one.
const char* KvString::utf8Ptr() const {
    if (form() == kFormEmpty) return kEmptyNarrow;
    const char16_t* wide = kwszPtr();
    LumVector<char> bytes;
    LumCharMapper::unicodeToUtf8(wide, int(wideLength(wide)), bytes);
    size_t n = std::strlen(bytes.asArrayPtr());
    auto* text = static_cast<char*>(_lumMalloc(n + 1));
    if (!text) return nullptr;
    std::memcpy(text, bytes.asArrayPtr(), n);
    text[n] = 0;
    auto* self = const_cast<KvString*>(this);
    if (self->mUtf8Cache) _lumFree(self->mUtf8Cache);
    self->mUtf8Cache = text;
    return text;
}

// The narrow count treats an escape and a lead-byte pair as one character each; the
// lead-byte pages of this system are exactly its double-byte page ids.
// The narrow count treats an escape and a lead-byte pair as one character each; the
// lead-byte pages of this system are exactly its double-byte page ids. A leading run of
// ASCII bytes without a backslash is one character per byte (no page has a lead byte
// below 0x80), so only the rest takes the full count.
int KvString::heapLength() const {
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        const char* text = narrowText();
        const char* p = text;
        while (*p && *p != '\\' && (unsigned char)*p < 0x80) ++p;
        return int(p - text) + (*p ? int(LumCharOp::length(p)) : 0);
    }
    return int(wideLength(kwszPtr()));
}

int KvString::capacity() const {
    switch (form()) {
    case kFormInlineAnsi:
        return 7;
    case kFormInlineWide:
        return 3;
    case kFormHeapAnsi:
        return length();
    case kFormHeapWide:
        return wideCapacity(static_cast<const char16_t*>(mText.pointer.block));
    case kFormPair:
        return wideCapacity(static_cast<KvStringPair*>(mText.pointer.block)->wide);
    default:
        return 0;
    }
}

bool KvString::reserve(unsigned n) {
    if (n >= 0x3FFFFFFF || int(n) <= capacity()) return false;
    return getBuffer(int(n)) != nullptr;
}

bool KvString::isAscii() const {
    if (form() == kFormEmpty) return false;
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        for (const char* p = narrowText(); *p; ++p)
            if (int8_t(*p) < 32) return false;
        return true;
    }
    for (const char16_t* p = kwszPtr(); *p; ++p)
        if (*p < 0x20 || *p > 0x7F) return false;
    return true;
}

char16_t* KvString::getBuffer(int n) {
    if (n < 0 || n > kMaxBufferUnits) {
        if (form() == kFormHeapWide || form() == kFormPair) {
            uint32_t& h = header(const_cast<char16_t*>(kwszPtr()));
            h = (h & kCapacityMask) | kBadBufferRequest;
        }
        return nullptr;
    }
    auto* p = const_cast<char16_t*>(kwszPtr());
    int cap = capacity();
    int len = length();
    if (form() == kFormInlineWide) {
        if (n < cap) n = cap;
    } else if (n <= cap) {
        return p;
    }
    char16_t* buffer = allocWide(size_t(n));
    if (!buffer) return nullptr;
    std::memcpy(buffer, p, size_t(len) * sizeof(char16_t));
    buffer[len] = 0;
    if (form() == kFormPair) {
        // The record goes; its wide text is the old buffer replaced below.
        auto* pair = static_cast<KvStringPair*>(mText.pointer.block);
        _lumFree(pair);
        setBlock(kFormHeapWide, p);
    }
    if (form() == kFormHeapWide) freeWide(p);
    setBlock(kFormHeapWide, buffer);
    return buffer;
}

bool KvString::releaseBuffer(int n) {
    if (form() != kFormHeapWide && form() != kFormPair) return false;
    auto* p = const_cast<char16_t*>(kwszPtr());
    uint32_t& h = header(p);
    if (h & kBadBufferRequest) return false;
    if (n == -1) n = length();
    if (n < 0 || n > capacity()) return false;
    p[n] = 0;
    h &= ~kUnusedBit;
    dropNarrowForm();
    return true;
}

// ---------------------------------------------------------------------------
// Appends
// ---------------------------------------------------------------------------

KvString& KvString::append(const char16_t* s) {
    if (!s || !*s) return *this;
    if (form() == kFormEmpty) setWide(s, 0, -1);
    else wideAppend(s);
    return *this;
}

KvString& KvString::append(const char* s) {
    if (s && *s) narrowAppend(s, false);
    return *this;
}

KvString& KvString::append(const char* s, Encoding e) {
    if (!s || !*s || e != kUtf8) return *this;
    LumVector<char16_t> wide;
    LumCharMapper::utf8ToUnicode(s, int(std::strlen(s)), wide);
    return append(wide.asArrayPtr());
}

KvString& KvString::append(const KvString& o) {
    if (o.isEmpty()) return *this;
    if (isEmpty()) return assign(o);
    if (o.form() == kFormInlineAnsi || o.form() == kFormHeapAnsi) narrowAppend(o.narrowText(), true);
    else append(o.kwszPtr());
    return *this;
}

KvString& KvString::append(char c) {
    const char text[2] = {c, 0};
    return append(text);
}

KvString& KvString::append(char16_t c) {
    const char16_t text[2] = {c, 0};
    return append(text);
}

// Joins the current text, taken as wide, and `s` into the inline wide view or a new
// wide buffer of exact size. Both texts are copied before the old storage goes.
bool KvString::wideAppend(const char16_t* s) {
    LumVector<char16_t> converted;
    const char16_t* current;
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        const char* narrow = narrowText();
        LumCharMapper::multiByteToWideChar(acpId(), narrow, int(std::strlen(narrow)), converted);
        current = converted.asArrayPtr();
    } else {
        current = kwszPtr();
    }
    size_t len = wideLength(current), n = wideLength(s), total = len + n;
    if (total < 3) {
        char16_t local[3] = {};
        std::memcpy(local, current, len * sizeof(char16_t));
        std::memcpy(local + len, s, n * sizeof(char16_t));
        release();
        setForm(kFormInlineWide);
        std::memcpy(mText.wide.text, local, sizeof local);
        return true;
    }
    char16_t* buffer = allocWide(total);
    if (!buffer) return false;
    std::memcpy(buffer, current, len * sizeof(char16_t));
    std::memcpy(buffer + len, s, n * sizeof(char16_t));
    buffer[total] = 0;
    release();
    setBlock(kFormHeapWide, buffer);
    return true;
}

// Narrow strings stay narrow and the bytes are joined, so escapes in either part stay
// escapes. Wide strings take `s` converted: fully (escapes resolved) when it may hold
// escapes and is long enough for one, else plainly.
bool KvString::narrowAppend(const char* s, bool mayHoldEscapes) {
    if (form() == kFormEmpty) return KvStringImp::SetFromMBCS(*this, s, 0, -1);
    size_t n = std::strlen(s);
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) return joinNarrow(narrowText(), s, n);
    if (form() == kFormPair && !mayHoldEscapes)
        return joinNarrow(static_cast<KvStringPair*>(mText.pointer.block)->ansi, s, n);
    LumVector<char16_t> wide;
    if (mayHoldEscapes && (form() != kFormInlineWide || n >= 7))
        LumCharMapper::multiByteToWideChar(acpId(), s, int(n), wide);
    else
        plainWiden(s, wide);
    const char16_t* units = wide.asArrayPtr();
    return !*units || wideAppend(units);
}

bool KvString::joinNarrow(const char* head, const char* s, size_t n) {
    size_t len = std::strlen(head);
    if (form() == kFormInlineAnsi && len + n <= 6) {
        std::memmove(mText.narrow.text + len, s, n);
        mText.narrow.text[len + n] = 0;
        return true;
    }
    auto* block = static_cast<char*>(_lumMalloc(len + n + 1));
    if (!block) return false;
    std::memcpy(block, head, len);
    std::memcpy(block + len, s, n);
    block[len + n] = 0;
    release();
    setBlock(kFormHeapAnsi, block);
    return true;
}

// The copy of the string keeps the copy constructor's forms: a pair becomes narrow.
template <class T>
static KvString joined(const KvString& head, const T& tail) {
    KvString r(head);
    r.append(tail);
    return r;
}

KvString KvString::concat(char c) const { return joined(*this, c); }
KvString KvString::concat(char16_t c) const { return joined(*this, c); }
KvString KvString::concat(const char* s) const { return joined(*this, s); }
KvString KvString::concat(const char16_t* s) const { return joined(*this, s); }
KvString KvString::concat(const KvString& o) const { return joined(*this, o); }

KvString KvString::concat(const char* s, Encoding e) const {
    KvString r(*this);
    r.append(s, e);
    return r;
}

KvString KvString::precat(char16_t c) const { return joined(KvString(c), *this); }
KvString KvString::precat(const char* s) const { return joined(KvString(s), *this); }
KvString KvString::precat(const char16_t* s) const { return joined(KvString(s), *this); }

KvString KvString::precat(const char* s, Encoding e) const {
    if (!s || !*s || e != kUtf8) return KvString(*this);
    return joined(KvString(s, e), *this);
}

// ---------------------------------------------------------------------------
// KvStringImp
// ---------------------------------------------------------------------------

bool KvStringImp::isUnicodeNotInSync(const KvString& s) {
    return s.form() == KvString::kFormInlineAnsi || s.form() == KvString::kFormHeapAnsi;
}

bool KvStringImp::SetFromMBCS(KvString& s, const char* text, int start, int count) {
    if (!text) return false;
    for (int i = 0; i < start && *text; ++i) ++text;
    size_t bytes = std::strlen(text);
    if (count >= 0 && size_t(count) <= bytes) bytes = size_t(LumCharOp::next(text, unsigned(count)) - text);
    return s.storeNarrow(text, bytes);
}

int KvStringImp::MIFCIFStrToUniStr(char16_t* text) { return LumCharMapper::resolveEscapes(text); }
