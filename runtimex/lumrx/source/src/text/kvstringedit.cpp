// KvString: search, cutting, trimming, case and order, in-place edits and tokens.
#include "kvstring.h"

#include "kvstringstorage.h"

#include <cstring>

using namespace kvtext;

namespace {

int wideLength(const char16_t* s) { return int(LumCharOp::length(s)); }

// A null set is taken as empty.
bool inSet(char16_t c, const char16_t* set) {
    for (; set && *set; ++set)
        if (*set == c) return true;
    return false;
}

// The first unit at or after p that is `c` or the terminator; four units a round, each
// read only after the one before it was neither.
const char16_t* scanFor(const char16_t* p, char16_t c) {
    for (;; p += 4) {
        if (p[0] == c || !p[0]) return p;
        if (p[1] == c || !p[1]) return p + 1;
        if (p[2] == c || !p[2]) return p + 2;
        if (p[3] == c || !p[3]) return p + 3;
    }
}

// The first occurrence of the non-empty `what` in `text`, or null: a scan for its first
// unit, then a comparison of the rest at each candidate.
const char16_t* firstOccurrence(const char16_t* text, const char16_t* what) {
    const char16_t first = what[0];
    for (const char16_t* p = text;; ++p) {
        p = scanFor(p, first);
        if (!*p) return nullptr;
        const char16_t *a = p + 1, *b = what + 1;
        while (*b && *a == *b) ++a, ++b;
        if (!*b) return p;
        if (!*a) return nullptr;
    }
}

void reverseUnits(char16_t* text) {
    for (char16_t *a = text, *b = text + wideLength(text) - 1; a < b; ++a, --b) {
        char16_t t = *a;
        *a = *b;
        *b = t;
    }
}

// Reverses the order of the characters of a narrow text; the bytes of each character
// (a lead-byte pair, an escape) keep their order.
void reverseNarrow(char* text) {
    size_t n = std::strlen(text);
    char* copy = static_cast<char*>(_lumMalloc(n + 1));
    if (!copy) return;
    char* w = copy + n;
    for (const char* p = text; *p;) {
        const char* next = LumCharOp::next(p, 1);
        w -= next - p;
        std::memcpy(w, p, size_t(next - p));
        p = next;
    }
    std::memcpy(text, copy, n);
    _lumFree(copy);
}

// Maps the ASCII letters of a narrow text, leaving the bytes after a lead byte alone.
void mapNarrowCase(char* text, bool upper) {
    auto page = acpId();
    for (char* p = text; *p; ++p) {
        if (p[1] && LumCharMapper::isLeadByte((unsigned char)*p, page)) {
            ++p;
            continue;
        }
        if (upper && *p >= 'a' && *p <= 'z') *p = char(*p - 32);
        if (!upper && *p >= 'A' && *p <= 'Z') *p = char(*p + 32);
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Search
// ---------------------------------------------------------------------------

int KvString::find(const char16_t* s) const {
    if (!s) return -1;
    if (!*s) return length();
    if (isEmpty()) return -1;
    const char16_t* text = kwszPtr();
    const char16_t* hit = firstOccurrence(text, s);
    return hit ? int(hit - text) : -1;
}

int KvString::find(const KvString& s) const {
    if (s.isEmpty()) return length();
    return find(s.kwszPtr());
}

int KvString::find(char16_t c) const {
    const char16_t set[2] = {c, 0};
    return findOneOf(set);
}

int KvString::find(char16_t c, int start) const {
    if (isEmpty() || start < 0) return -1;
    const char16_t* text = kwszPtr();
    if (start != 0 && start >= wideLength(text)) return -1;
    for (const char16_t* p = text + start; *p; ++p)
        if (*p == c) return int(p - text);
    return -1;
}

int KvString::findOneOf(const char16_t* set) const {
    if (isEmpty() || !set || !*set) return -1;
    const char16_t* text = kwszPtr();
    for (const char16_t* p = text; *p; ++p)
        if (inSet(*p, set)) return int(p - text);
    return -1;
}

// Searches the reversed texts forward.
int KvString::findRev(const char16_t* s) const {
    if (!s) return -1;
    if (!*s) return length();
    if (isEmpty()) return -1;
    const char16_t* text = kwszPtr();
    int n = wideLength(text), m = wideLength(s);
    auto* rtext = static_cast<char16_t*>(LumCharOp::zalloc((size_t(n) + 1) * sizeof(char16_t)));
    auto* rs = static_cast<char16_t*>(LumCharOp::zalloc((size_t(m) + 1) * sizeof(char16_t)));
    int result = -1;
    if (rtext && rs) {
        std::memcpy(rtext, text, size_t(n) * sizeof(char16_t));
        std::memcpy(rs, s, size_t(m) * sizeof(char16_t));
        reverseUnits(rtext);
        reverseUnits(rs);
        if (const char16_t* hit = LumCharOp::find(rtext, rs)) result = n - int(hit - rtext) - m;
    }
    LumCharOp::zfree(rtext);
    LumCharOp::zfree(rs);
    return result;
}

int KvString::findRev(const KvString& s) const {
    if (s.isEmpty()) return length();
    return findRev(s.kwszPtr());
}

int KvString::findRev(char16_t c) const {
    const char16_t set[2] = {c, 0};
    return findOneOfRev(set);
}

int KvString::findOneOfRev(const char16_t* set) const {
    if (isEmpty() || !set || !*set) return -1;
    const char16_t* text = kwszPtr();
    for (int i = wideLength(text) - 1; i >= 0; --i)
        if (inSet(text[i], set)) return i;
    return -1;
}

// ---------------------------------------------------------------------------
// Cutting
// ---------------------------------------------------------------------------

// Wide sources are cut in units; narrow ones (and pairs) in bytes for `start` and
// characters for `count`, giving a narrow result.
KvString KvString::substr(int start, int count) const {
    KvString r;
    if (isEmpty()) return r;
    if (start < 0) start = 0;
    if (count < -1) count = -1;
    if (form() == kFormInlineWide || form() == kFormHeapWide) r.setWide(kwszPtr(), start, count);
    else KvStringImp::SetFromMBCS(r, ansiPtr(), start, count);
    return r;
}

// The last `n` characters. A negative `n` starts beyond the end, so nothing is left; it
// is answered before the start is worked out, as len - n would overflow for the
// extreme counts.
KvString KvString::substrRev(int n) const {
    KvString r;
    if (n < 0) return r;
    int len = length();
    int start = n < len ? len - n : 0;
    int count = n;
    if (form() == kFormInlineWide || form() == kFormHeapWide) {
        r.setWide(kwszPtr(), start, count);
    } else if (!isEmpty()) {
        const char* text = ansiPtr();
        int offset = int(LumCharOp::next(text, unsigned(start)) - text);
        KvStringImp::SetFromMBCS(r, text, offset, count);
    }
    return r;
}

KvString KvString::spanExcluding(const char16_t* set) const {
    const char16_t* text = kwszPtr();
    int n = 0;
    while (text[n] && !inSet(text[n], set)) ++n;
    return substr(0, n);
}

// ---------------------------------------------------------------------------
// Trimming
// ---------------------------------------------------------------------------

KvString& KvString::trimWith(const char16_t* set, bool left, bool right) {
    if (!set || !*set) set = u" ";
    if (char16_t* text = editableWide()) {
        if (right) {
            for (int i = wideLength(text) - 1; i >= 0 && inSet(text[i], set); --i) text[i] = 0;
        }
        if (left) {
            int skip = 0;
            while (text[skip] && inSet(text[skip], set)) ++skip;
            if (skip) std::memmove(text, text + skip, (size_t(wideLength(text + skip)) + 1) * sizeof(char16_t));
        }
    }
    dropNarrowForm();
    return *this;
}

KvString& KvString::trimLeft() { return trimWith(nullptr, true, false); }
KvString& KvString::trimRight() { return trimWith(nullptr, false, true); }
KvString& KvString::trim() { return trimWith(nullptr, true, true); }
KvString& KvString::trimLeft(const char16_t* set) { return trimWith(set, true, false); }
KvString& KvString::trimRight(const char16_t* set) { return trimWith(set, false, true); }
KvString& KvString::trim(const char16_t* set) { return trimWith(set, true, true); }

KvString& KvString::trimLeft(char16_t c) {
    const char16_t set[2] = {c, 0};
    return trimWith(set, true, false);
}

KvString& KvString::trimRight(char16_t c) {
    const char16_t set[2] = {c, 0};
    return trimWith(set, false, true);
}

KvString& KvString::trim(char16_t c) {
    const char16_t set[2] = {c, 0};
    return trimWith(set, true, true);
}

// ---------------------------------------------------------------------------
// Case and order
// ---------------------------------------------------------------------------

KvString& KvString::makeUpper() {
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        mapNarrowCase(const_cast<char*>(narrowText()), true);
    } else if (char16_t* text = editableWide()) {
        for (; *text; ++text) *text = LumCharOp::toUpper(*text);
        dropNarrowForm();
    }
    return *this;
}

KvString& KvString::makeLower() {
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        mapNarrowCase(const_cast<char*>(narrowText()), false);
    } else if (char16_t* text = editableWide()) {
        for (; *text; ++text) *text = LumCharOp::toLower(*text);
        dropNarrowForm();
    }
    return *this;
}

KvString& KvString::makeReverse() {
    if (form() == kFormInlineAnsi || form() == kFormHeapAnsi) {
        reverseNarrow(const_cast<char*>(narrowText()));
    } else if (char16_t* text = editableWide()) {
        reverseUnits(text);
        dropNarrowForm();
    }
    return *this;
}

// ---------------------------------------------------------------------------
// In-place edits
// ---------------------------------------------------------------------------

int KvString::remove(char16_t c) {
    if (isEmpty()) return 0;
    if (c == 0) c = u' ';
    int removed = 0;
    if (char16_t* text = editableWide()) {
        char16_t* w = text;
        for (const char16_t* r = text; *r; ++r) {
            if (*r == c) ++removed;
            else *w++ = *r;
        }
        *w = 0;
    }
    dropNarrowForm();
    return removed;
}

int KvString::replace(char16_t a, char16_t b) {
    char16_t* text = isEmpty() ? nullptr : editableWide();
    int len = text ? wideLength(text) : 0;
    if (len < 1) return 0;
    int count = 0;
    for (int i = len - 1; i >= 0; --i) {
        if (text[i] == a) {
            text[i] = b;
            ++count;
        }
    }
    dropNarrowForm();
    return count;
}

namespace {

// Writes `text` (length `len`) with each hit of `m` units replaced by `b` (`k` units)
// into `dst`, piece by piece from the front; in place when `k` <= `m`.
void buildReplaced(char16_t* dst, const char16_t* text, int len, const LumVector<int>& hits, int m,
                   const char16_t* b, int k) {
    int r = 0, w = 0;
    for (int i = 0; i < hits.length(); ++i) {
        int hit = hits[i];
        std::memmove(dst + w, text + r, size_t(hit - r) * sizeof(char16_t));
        w += hit - r;
        if (k) std::memcpy(dst + w, b, size_t(k) * sizeof(char16_t));
        w += k;
        r = hit + m;
    }
    std::memmove(dst + w, text + r, size_t(len - r) * sizeof(char16_t));
    dst[w + len - r] = 0;
}

}  // namespace

int KvString::replace(const char16_t* a, const char16_t* b) {
    if (isEmpty() || !a || !*a) return 0;
    char16_t* text = editableWide();
    if (!text) return 0;
    int len = wideLength(text), m = wideLength(a), k = b ? wideLength(b) : 0;
    LumVector<int> hits;
    for (const char16_t* p = LumCharOp::find(text, a); p; p = LumCharOp::find(p + m, a))
        hits.append(int(p - text));
    if (hits.isEmpty()) return 0;
    int64_t total = len + int64_t(k - m) * hits.length();
    if (total > len && form() == kFormInlineWide && total < 3) {
        char16_t local[3] = {};
        std::memcpy(local, text, size_t(len) * sizeof(char16_t));
        buildReplaced(mText.wide.text, local, len, hits, m, b, k);
        return hits.length();
    }
    if (total > len) {
        char16_t* buffer = total <= kMaxBufferUnits ? allocWide(size_t(total)) : nullptr;
        if (!buffer) return 0;
        buildReplaced(buffer, text, len, hits, m, b, k);
        installWide(buffer);
    } else {
        buildReplaced(text, text, len, hits, m, b, k);
    }
    dropNarrowForm();
    return hits.length();
}

// The index is checked against the wide text that is edited.
int KvString::deleteAtIndex(int index, int count) {
    const char16_t* text = kwszPtr();
    int len = wideLength(text);
    if (index < 0 || index >= len || count <= 0) return len;
    char16_t* p = editableWide();
    if (count <= len - index) {
        std::memmove(p + index, p + index + count, size_t(len - index - count + 1) * sizeof(char16_t));
        dropNarrowForm();
        return len - count;
    }
    p[index] = 0;
    dropNarrowForm();
    return len - index - 1;
}

KvString& KvString::insert(int index, const char16_t* s) {
    const char16_t* text = kwszPtr();
    int len = wideLength(text);
    if (index < 0 || index > len || !s || !*s) return *this;
    int n = wideLength(s);
    int64_t total = int64_t(len) + n;
    if (form() == kFormInlineWide && total <= 2) {
        std::memmove(mText.wide.text + index + n, mText.wide.text + index, size_t(len - index + 1) * sizeof(char16_t));
        std::memcpy(mText.wide.text + index, s, size_t(n) * sizeof(char16_t));
        return *this;
    }
    if (total < capacity()) {
        char16_t* p = const_cast<char16_t*>(text);
        std::memmove(p + index + n, p + index, size_t(len - index + 1) * sizeof(char16_t));
        std::memcpy(p + index, s, size_t(n) * sizeof(char16_t));
    } else {
        char16_t* buffer = total <= kMaxBufferUnits ? allocWide(size_t(total)) : nullptr;
        if (!buffer) return *this;
        std::memcpy(buffer, text, size_t(index) * sizeof(char16_t));
        std::memcpy(buffer + index, s, size_t(n) * sizeof(char16_t));
        std::memcpy(buffer + index + n, text + index, size_t(len - index + 1) * sizeof(char16_t));
        installWide(buffer);
    }
    dropNarrowForm();
    return *this;
}

KvString& KvString::insert(int index, char16_t c) {
    const char16_t text[2] = {c, 0};
    return insert(index, text);
}

KvString& KvString::setAt(int i, char16_t c) {
    if (i < 0 || i >= wideLength(kwszPtr())) raise(Kvore::eInvalidInput);
    editableWide()[i] = c;
    dropNarrowForm();
    return *this;
}

char16_t KvString::getAt(int i) const {
    const char16_t* text = kwszPtr();
    if (i < 0 || i >= wideLength(text)) raise(Kvore::eInvalidInput);
    return text[i];
}

// A token ends at a delimiter, or runs to the end of the text when the unit after it
// is the last one (that unit is taken even if it is a delimiter).
KvString KvString::tokenize(const char16_t* delims, int& pos) const {
    const char16_t* text = kwszPtr();
    int len = wideLength(text);
    if (pos < 0 || pos >= len) return KvString();
    while (text[pos] && inSet(text[pos], delims)) ++pos;
    if (!text[pos]) return KvString();
    int start = pos;
    for (;;) {
        int unit = pos++;
        if (unit >= len - 2) {
            pos = len + 1;
            return KvString(text + start, unsigned(len - start));
        }
        if (inSet(text[pos], delims)) {
            ++pos;
            return KvString(text + start, unsigned(unit + 1 - start));
        }
    }
}
