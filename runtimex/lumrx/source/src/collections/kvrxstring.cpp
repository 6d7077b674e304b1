#include "kvrxdictionary.h"

#include "lumosbase.h"

#include <cstdint>
#include <cstring>

KVRX_DEFINE_MEMBERS(KvRxString, u"KvRxString", u"OvRxObject");

namespace {

// The shared empty text: stands for "no text"; never written, never freed.
char16_t gEmptyText[1] = {0};

// How many units from the start `a` and `b` share, four at a time, within their first
// `n` units (both hold at least that many): the shared run stops before a group that
// differs or holds a zero unit, so the comparison of the rest, which starts there,
// answers as the comparison of the whole texts would.
size_t sharedUnits(const char16_t* a, const char16_t* b, size_t n) {
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        uint64_t wa, wb;
        std::memcpy(&wa, a + i, sizeof wa);
        std::memcpy(&wb, b + i, sizeof wb);
        bool holdsZero = ((wa - 0x0001000100010001ull) & ~wa & 0x8000800080008000ull) != 0;
        if (wa != wb || holdsZero) break;
    }
    return i;
}

}  // namespace

KvRxString::KvRxString() : mText(gEmptyText), mLength(0), mCapacity(0), mIgnoreCase(false) {}

KvRxString::KvRxString(const KvRxString& o) : KvRxString() { assign(o); }

KvRxString::KvRxString(const char16_t* s, bool ignoreCase) : KvRxString() {
    mIgnoreCase = ignoreCase;
    *this = s;
}

KvRxString::KvRxString(const char16_t* s, int n, bool ignoreCase) : KvRxString() {
    mIgnoreCase = ignoreCase;
    if (!s || !*s || n < 1) return;
    if (!ensure(n, false)) return;
    // Copies up to the text's end and pads with zeros, as a counted copy does.
    int i = 0;
    for (; i < n && s[i]; ++i) mText[i] = s[i];
    for (; i < n; ++i) mText[i] = 0;
    mText[n] = 0;
    mLength = n;
}

KvRxString::KvRxString(const char16_t* s, char16_t stop, bool ignoreCase) : KvRxString() {
    mIgnoreCase = ignoreCase;
    if (!s || !*s) return;
    int n = 0;
    while (s[n] && s[n] != stop) ++n;
    // With `stop` first the object still owns a block, holding an empty text.
    if (!ensure(n > 0 ? n : 1, false)) return;
    LumCharOp::copy(mText, s, unsigned(n));
    mText[n] = 0;
    mLength = n;
}

KvRxString::~KvRxString() { release(); }

bool KvRxString::hasText() const { return mText && mText != gEmptyText; }

char16_t* KvRxString::ensure(int n, bool keep) {
    if (n < 1 || n <= mCapacity) return mText;
    auto* block = static_cast<char16_t*>(_lumMalloc((size_t(n) + 1) * sizeof(char16_t)));
    if (!block) return nullptr;
    if (keep && hasText()) {
        LumCharOp::copy(block, mText, unsigned(mLength) + 1);
    } else {
        block[0] = 0;
        mLength = 0;
    }
    if (hasText()) _lumFree(mText);
    mText = block;
    mCapacity = n;
    return mText;
}

void KvRxString::release() {
    if (hasText()) _lumFree(mText);
    mText = gEmptyText;
    mLength = 0;
    mCapacity = 0;
}

KvRxString& KvRxString::operator=(const char16_t* s) {
    if (s == mText) return *this;
    if (!s || !*s) {
        release();
        return *this;
    }
    int n = int(LumCharOp::length(s));
    if (!ensure(n, false)) return *this;
    LumCharOp::copy(mText, s, unsigned(n) + 1);
    mLength = n;
    return *this;
}

KvRxString& KvRxString::operator=(const KvRxString& other) {
    assign(other);
    return *this;
}

void KvRxString::assign(const KvRxString& o) {
    *this = o.mText;
    mIgnoreCase = o.mIgnoreCase;
}

void KvRxString::append(const char16_t* s) {
    if (!hasText()) {
        *this = s;
        return;
    }
    if (!s || !*s) return;
    // `s` may point into this text, whose block can move: note its offset first.
    bool inside = s >= mText && s <= mText + mLength;
    ptrdiff_t offset = inside ? s - mText : 0;
    int n = int(LumCharOp::length(s));
    if (!ensure(mLength + n, true)) return;
    if (inside) s = mText + offset;
    LumCharOp::copy(mText + mLength, s, unsigned(n));
    mLength += n;
    mText[mLength] = 0;
}

char16_t* KvRxString::getBuffer(int n) {
    if (n < 0) return nullptr;
    if (n == 0 && !hasText()) return mText;
    if (!ensure(n, false)) return nullptr;
    mLength = n;
    return mText;
}

void KvRxString::releaseBuffer(int n) {
    if (!hasText()) return;
    if (n >= 0 && n <= mLength) {
        mLength = n;
        mText[n] = 0;
    } else if (n > mLength) {
        mLength = 0;
        mText[0] = 0;
    } else if (mLength == 0) {
        mText[0] = 0;
    } else {
        int k = 0;
        while (k <= mLength && mText[k]) ++k;
        if (k < mLength) {
            mLength = k;
        } else if (k == mLength) {
            release();  // the text fills the announced length exactly
        } else {
            mText[mLength] = 0;
        }
    }
}

Kvore::ErrorStatus KvRxString::copyFrom(const KvRxObject* o) {
    const KvRxString* other = KvRxString::cast(o);
    if (!other) return Kvore::eWrongObjectType;
    assign(*other);
    return Kvore::eOk;
}

bool KvRxString::isEqualTo(const KvRxObject* o) const {
    const KvRxString* other = KvRxString::cast(o);
    return other && isEqualTo(other->mText);
}

bool KvRxString::isEqualTo(const char16_t* r) const {
    if (r == mText) return true;
    if (!r) return false;
    if (!hasText()) return *r == 0;
    if (int(LumCharOp::length(r)) != mLength) return false;
    if (!mIgnoreCase) return LumCharOp::compare(mText, r) == 0;
    return LumCharOp::compareNoCase(mText, r) == 0;
}

static KvRx::Ordering signOf(int v) {
    return v < 0 ? KvRx::kLessThan : (v > 0 ? KvRx::kGreaterThan : KvRx::kEqual);
}

KvRx::Ordering KvRxString::comparedTo(const KvRxObject* o) const {
    if (!o) return KvRx::kGreaterThan;
    const KvRxString* other = KvRxString::cast(o);
    return other ? compareText(*other) : KvRx::kNotOrderable;
}

KvRx::Ordering KvRxString::compareText(const KvRxString& o) const {
    const KvRxString* other = &o;
    if (other->mText == mText) return KvRx::kEqual;
    if (!hasText()) return other->hasText() ? KvRx::kLessThan : KvRx::kEqual;
    if (!other->hasText()) return KvRx::kGreaterThan;
    return signOf(mIgnoreCase ? LumCharOp::compareNoCase(mText, other->mText)
                              : LumCharOp::compare(mText, other->mText));
}

bool KvRxString::less(const KvRxString* a, const KvRxString* b) {
    if (a == b) return false;
    if (!a) return true;
    if (!b) return false;
    if (a->mText == b->mText) return false;
    // Keys in a sorted index often share a long start: it is passed over a group of
    // units at a time.
    size_t shared = sharedUnits(a->mText, b->mText, size_t(a->mLength < b->mLength ? a->mLength : b->mLength));
    const char16_t* restA = a->mText + shared;
    const char16_t* restB = b->mText + shared;
    if (a->mIgnoreCase) return LumCharOp::compareNoCase(restA, restB) < 0;
    return LumCharOp::compare(restA, restB) < 0;
}
