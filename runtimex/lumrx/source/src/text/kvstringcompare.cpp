// KvString: comparison, collation and prefix match. The walks decide plain ASCII text
// themselves and hand anything else to the locale's collation.
#include "kvstring.h"

#include "kvstringstorage.h"
#include "lumuinfo.h"

#include <clocale>
#include <cstring>

using namespace kvtext;

namespace {

int sign(int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; }

bool isPlain(char16_t u) { return u >= 0x20 && u <= 0x7F; }

template <class C>
C foldAscii(C c) {
    return (c >= 'A' && c <= 'Z') ? C(c + 32) : c;
}

// Narrow against narrow; `a` is the string's side.
int walkNarrow(const char* a, const char* b, bool fold) {
    for (;; ++a, ++b) {
        char ca = *a, cb = *b;
        if (ca == cb) {
            if (!ca) return 0;
            continue;
        }
        if (int8_t(ca) < 32 || int8_t(cb) < 32)
            return sign(fold ? LumCharOp::collateNoCase(a, b) : LumCharOp::collate(a, b));
        if (fold) {
            ca = foldAscii(ca);
            cb = foldAscii(cb);
            if (ca == cb) continue;
        }
        return ca > cb ? 1 : -1;
    }
}

// Wide against wide with case folding. Two different units that fold to the same are an
// upper- and a lower-case ASCII letter, so the walk goes on without the range test; only
// a difference left after folding asks whether both units are plain.
int walkWideFolding(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        char16_t ca = *a, cb = *b;
        if (ca == cb) {
            if (!ca) return 0;
            continue;
        }
        char16_t fa = foldAscii(ca), fb = foldAscii(cb);
        if (fa == fb) continue;
        if (!isPlain(ca) || !isPlain(cb)) return sign(LumCharOp::compareNoCase(a, b));
        return fa > fb ? 1 : -1;
    }
}

// Wide against wide.
int walkWide(const char16_t* a, const char16_t* b, bool fold) {
    if (fold) return walkWideFolding(a, b);
    for (;; ++a, ++b) {
        char16_t ca = *a, cb = *b;
        if (ca == cb) {
            if (!ca) return 0;
            continue;
        }
        return ca < cb ? -1 : 1;
    }
}

bool escapeMayFollow(const char* n) {
    return n[0] == '\\' && (n[1] == 'U' || n[1] == 'u' || n[1] == 'M' || n[1] == 'm') && n[2] == '+';
}

// Wide against narrow, the byte sign-extended to a unit. The rest of the narrow text is
// converted, escapes resolved, only once the walk can't decide on plain ASCII. Every
// backslash of the narrow side may open an escape, so it ends the walk even where the
// wide side holds a backslash too: the escape stands for one other character. A byte
// from 0x80 up is no character by itself, so it ends the walk even where its extended
// value equals the unit (0xE9 and U+FFE9).
int walkWideNarrow(const char16_t* w, const char* n, bool fold) {
    for (;; ++w, ++n) {
        char16_t cw = *w, cn = char16_t(int16_t(int8_t(*n)));
        if (cw == cn && int8_t(*n) >= 0 && !escapeMayFollow(n)) {
            if (!cw) return 0;
            continue;
        }
        if (!isPlain(cw) || int8_t(*n) < 32 || escapeMayFollow(n)) {
            KvString rest(n);
            const char16_t* wide = rest.kwszPtr();
            return sign(fold ? LumCharOp::collateNoCase(w, wide) : LumCharOp::collate(w, wide));
        }
        if (fold) {
            cw = foldAscii(cw);
            cn = foldAscii(cn);
            if (cw == cn) continue;
        }
        return cw > cn ? 1 : -1;
    }
}

// Leading elements in common; with folding, plain elements equal after A-Z folding count.
template <class C>
int walkMatch(const C* a, const C* b, bool fold) {
    int n = 0;
    for (; *a && *b; ++a, ++b, ++n) {
        if (*a == *b) continue;
        bool plain = sizeof(C) == 1 ? (int8_t(*a) >= 32 && int8_t(*b) >= 32) : (isPlain(*a) && isPlain(*b));
        if (!fold || !plain || foldAscii(*a) != foldAscii(*b)) break;
    }
    return n;
}

int matchConverted(const char16_t* wide, const char* narrow, bool fold) {
    LumVector<char16_t> converted;
    plainWiden(narrow, converted);
    return walkMatch(wide, converted.asArrayPtr(), fold);
}

bool isNarrowForm(int form) { return form == 1 || form == 3; }
bool isWideForm(int form) { return form == 2 || form == 4; }

}  // namespace

// ---------------------------------------------------------------------------
// Comparison
// ---------------------------------------------------------------------------

int KvString::compareNarrowArg(const char* s, bool fold) const {
    if (!s || !*s) return isEmpty() ? 0 : 1;
    if (isEmpty()) return -1;
    if (isNarrowForm(form())) return walkNarrow(narrowText(), s, fold);
    return walkWideNarrow(kwszPtr(), s, fold);
}

int KvString::compareWideArg(const char16_t* s, bool fold) const {
    if (!s || !*s) return isEmpty() ? 0 : 1;
    if (isEmpty()) return -1;
    if (isWideForm(form())) return walkWide(kwszPtr(), s, fold);
    return -walkWideNarrow(s, ansiPtr(), fold);
}

int KvString::compare(const char* s) const { return compareNarrowArg(s, false); }
int KvString::compare(const char16_t* s) const { return compareWideArg(s, false); }
int KvString::compareNoCase(const char* s) const { return compareNarrowArg(s, true); }
int KvString::compareNoCase(const char16_t* s) const { return compareWideArg(s, true); }

int KvString::compare(const KvString& o) const {
    return isNarrowForm(o.form()) ? compare(o.narrowText()) : compare(o.kwszPtr());
}

int KvString::compareNoCase(const KvString& o) const {
    return isNarrowForm(o.form()) ? compareNoCase(o.narrowText()) : compareNoCase(o.kwszPtr());
}

int KvString::compare(char16_t c) const {
    const char16_t text[2] = {c, 0};
    return compare(text);
}

int KvString::compareNoCase(char16_t c) const {
    const char16_t text[2] = {c, 0};
    return compareNoCase(text);
}

// An argument in another encoding counts as empty, after the form-0 test.
int KvString::compare(const char* s, Encoding e) const {
    if (!s || !*s) return isEmpty() ? 0 : 1;
    if (isEmpty()) return -1;
    if (e != kUtf8) return 1;
    return compare(KvString(s, e).kwszPtr());
}

// An argument in another encoding counts as empty, before the form-0 test.
int KvString::compareNoCase(const char* s, Encoding e) const {
    if (e != kUtf8 || !s || !*s) return isEmpty() ? 0 : 1;
    if (isEmpty()) return -1;
    return compareNoCase(KvString(s, e).kwszPtr());
}

bool KvString::equalsNoCase(const KvString& a, const KvString& b) { return a.compareNoCase(b) == 0; }

// ---------------------------------------------------------------------------
// Collation
// ---------------------------------------------------------------------------

// Sets the process's collation locale to the configured language, then collates.
int KvString::collateWith(const char16_t* s, bool fold) const {
    if (!s || !*s) return isEmpty() ? 0 : 1;
    if (isEmpty()) return -1;
    LumoraConfig* config = kvoreConfig();
    if (!config) return 0;
    KvString name(config->language().shortName());
    name.append(".utf8");
    if (const char* locale = name.ansiPtr()) std::setlocale(LC_COLLATE, locale);
    return sign(fold ? LumCharOp::collateNoCase(kwszPtr(), s) : LumCharOp::collate(kwszPtr(), s));
}

int KvString::collate(const char16_t* s) const { return collateWith(s, false); }
int KvString::collate(const KvString& o) const { return collateWith(o.kwszPtr(), false); }
int KvString::collateNoCase(const char16_t* s) const { return collateWith(s, true); }
int KvString::collateNoCase(const KvString& o) const { return collateWith(o.kwszPtr(), true); }

// ---------------------------------------------------------------------------
// Prefix match
// ---------------------------------------------------------------------------

// Wide strings walk against `s` converted plainly (no escapes resolved); for matchNoCase
// only the inline wide and pair forms do, the others walk narrow.
int KvString::matchNarrowArg(const char* s, bool fold) const {
    if (!s || !*s || isEmpty()) return 0;
    bool wideWalk = fold ? (form() == 2 || form() == 5) : isWideForm(form());
    if (wideWalk) return matchConverted(kwszPtr(), s, fold);
    return walkMatch(ansiPtr(), s, fold);
}

int KvString::matchWideArg(const char16_t* s, bool fold) const {
    if (!s || !*s || isEmpty()) return 0;
    if (fold && isNarrowForm(form())) return matchConverted(s, narrowText(), fold);
    return walkMatch(kwszPtr(), s, fold);
}

int KvString::match(const char* s) const { return matchNarrowArg(s, false); }
int KvString::match(const char16_t* s) const { return matchWideArg(s, false); }
int KvString::matchNoCase(const char* s) const { return matchNarrowArg(s, true); }
int KvString::matchNoCase(const char16_t* s) const { return matchWideArg(s, true); }

int KvString::match(const KvString& o) const {
    if (isEmpty() || o.isEmpty()) return 0;
    bool narrowSides = form() != 2 && form() != 4 && form() != 5 && o.form() != 2 && o.form() != 4 &&
                       o.form() != 5;
    return narrowSides ? match(o.ansiPtr()) : match(o.kwszPtr());
}

int KvString::matchNoCase(const KvString& o) const {
    if (isEmpty() || o.isEmpty()) return 0;
    return isNarrowForm(o.form()) ? matchNoCase(o.narrowText()) : matchNoCase(o.kwszPtr());
}

int KvString::match(const char* s, Encoding e) const {
    if (!s || !*s || e != kUtf8) return 0;
    return match(KvString(s, e).kwszPtr());
}

// The argument is taken as UTF-8 whatever `e` says.
int KvString::matchNoCase(const char* s, Encoding) const {
    if (!s || !*s) return 0;
    return matchNoCase(KvString(s, kUtf8).kwszPtr());
}
