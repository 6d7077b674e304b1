// The platform's string family: KvString, the text class of the whole platform;
// KvUniqueString, interned lower-case texts; KvStringBuf, line reading from a stream.
#pragma once

#include "kvrxobject.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

class KvRxResourceInstance;
class KvString;
class LumStreamBuf;

// A database handle value: 64 bits in two 32-bit words, low word first.
class KvDbHandle {
public:
    KvDbHandle() = default;
    explicit KvDbHandle(uint64_t value) : mLow(uint32_t(value)), mHigh(uint32_t(value >> 32)) {}
    uint64_t value() const { return (uint64_t(mHigh) << 32) | mLow; }

private:
    uint32_t mLow = 0;
    uint32_t mHigh = 0;
};

// KvString holds its text in one of six forms and moves between them on demand, also
// inside the const accessors: narrow (bytes in the process ANSI code page, which may
// carry the escapes "\U+XXXX" and "\M+dXXXX" for characters the page lacks), wide
// (16-bit units), or both at once. Text of up to 6 bytes or 2 units lives inside the
// object. A KvString shared between threads needs outside protection even for reading,
// and every pointer an accessor gives dies at the next change of form.
//
// Layout: the form byte heads each view of one overlay, so the narrow view starts at
// byte 1, the wide view at byte 2 and the pointer view at the next pointer boundary;
// behind the overlay comes the UTF-8 cache pointer.
//
// Ownership: every block comes from _lumMalloc and is owned by the string. The pointer
// view owns a narrow block (heap narrow form), a wide buffer (heap wide form) or a
// KvStringPair record together with the wide buffer it names (pair form). mUtf8Cache
// owns the last text utf8Ptr gave. Nothing is shared or reference counted.
class KvString {
public:
    // Encodings of char text for the overloads that take one. Only UTF-8 converts; any
    // other value makes the text count as absent.
    enum Encoding { kUtf8 = 0 };
    // The meaning of the number of KvString(eFormat, unsigned); any other value gives empty.
    enum eFormat { kResourceId = 1, kSignedDecimal = 2, kUnsignedDecimal = 3, kHex = 4 };
    // Flags of the number parsers.
    enum ParseFlags { kAsErrorMinusOne = 1, kAsEmptyIsError = 8 };

    KvString();
    KvString(char c);
    KvString(char16_t c);
    // Text of up to 6 bytes (2 units) is stored inline here, with no call into the
    // library; longer text goes through SetFromMBCS (the wide setter).
    KvString(const char* s) {
        clearAll();
        size_t n = s ? shortLength(s, 7) : 0;
        if (n == 7) setNarrowText(s);
        else if (n) setInline(kFormInlineAnsi, mText.narrow.text, s, n);
    }
    KvString(const char* s, Encoding e);
    KvString(const char16_t* s) {
        clearAll();
        size_t n = s ? shortLength(s, 3) : 0;
        if (n == 3) setWideText(s);
        else if (n) setInline(kFormInlineWide, mText.wide.text, s, n);
    }
    KvString(const char16_t* s, unsigned n);
    KvString(const KvString& o);
    KvString(KvString&& o) noexcept;
    KvString(eFormat f, unsigned v);
    KvString(char16_t c, unsigned n);
    explicit KvString(const KvDbHandle& h);
    KvString(const KvRxResourceInstance& instance, unsigned id);
    // Loads string `id` from the resource library `instance` (a library handle).
    KvString(void* instance, unsigned id);
    ~KvString() {
        if (form() >= kFormHeapAnsi || mUtf8Cache) release();
        setForm(kFormEmpty);
    }

    KvString& assign(const char* s);
    KvString& assign(const char16_t* s);
    KvString& assign(const char* s, Encoding e);
    KvString& assign(const KvString& o);
    KvString& assign(char c);
    KvString& assign(char16_t c);
    KvString& assign(const KvDbHandle& h);
    KvString& operator=(const char* s) { return assign(s); }
    KvString& operator=(const char16_t* s) { return assign(s); }
    KvString& operator=(const KvString& o) { return assign(o); }
    KvString& operator=(KvString&& o) noexcept;
    KvString& operator=(char c) { return assign(c); }
    KvString& operator=(char16_t c) { return assign(c); }
    KvString& operator=(const KvDbHandle& h) { return assign(h); }
    KvString& setEmpty();

    // The narrow text, built if needed; null only if the conversion failed.
    const char* ansiPtr() const;
    const char* kszPtr() const { return ansiPtr(); }
    operator const char*() const { return ansiPtr(); }
    // The wide text, built if needed.
    const char16_t* kwszPtr() const;
    const char16_t* constPtr() const { return kwszPtr(); }
    const char16_t* kACharPtr() const { return kwszPtr(); }
    const char16_t* kTCharPtr() const { return kwszPtr(); }
    operator const char16_t*() const { return kwszPtr(); }
    // The text as UTF-8, valid until the next utf8Ptr or until the storage is released.
    const char* utf8Ptr() const;

    bool isEmpty() const { return form() == kFormEmpty; }
    // Characters: units of the wide text, or for a narrow string characters of the narrow
    // text (an escape or a lead-byte pair counts one).
    int length() const {
        if (form() == kFormInlineWide) return !mText.wide.text[0] ? 0 : !mText.wide.text[1] ? 1 : 2;
        return form() == kFormInlineAnsi ? inlineNarrowLength() : heapLength();
    }
    int tcharLength() const { return length(); }
    // Inline forms: the size of the view (7 or 3) with the terminator; heap forms: units
    // (or, narrow, characters) without it.
    int capacity() const;
    bool reserve(unsigned n);
    bool isAscii() const;
    // Direct access to a wide buffer of at least `n` units; null for an impossible size.
    char16_t* getBuffer(int n);
    // Ends direct access; `n` is the new length, -1 to measure it.
    bool releaseBuffer(int n = -1);

    // Search: zero-based positions in units, -1 if absent.
    int find(const char16_t* s) const;
    int find(const KvString& s) const;
    int find(char16_t c) const;
    int find(char16_t c, int start) const;
    int findOneOf(const char16_t* set) const;
    int findRev(const char16_t* s) const;
    int findRev(const KvString& s) const;
    int findRev(char16_t c) const;
    int findOneOfRev(const char16_t* set) const;

    // Cutting: narrow strings are cut in bytes (start) and characters (count).
    KvString substr(int start, int count) const;
    KvString substr(int n) const { return substr(0, n); }
    KvString mid(int start, int count) const { return substr(start, count); }
    KvString mid(int start) const { return substr(start, -1); }
    KvString left(int n) const { return substr(0, n); }
    KvString right(int n) const { return substrRev(n); }
    KvString substrRev(int n) const;
    KvString spanExcluding(const char16_t* set) const;

    // Trimming; the default set is the blank alone.
    KvString& trimLeft();
    KvString& trimLeft(char16_t c);
    KvString& trimLeft(const char16_t* set);
    KvString& trimRight();
    KvString& trimRight(char16_t c);
    KvString& trimRight(const char16_t* set);
    KvString& trim();
    KvString& trim(char16_t c);
    KvString& trim(const char16_t* set);

    KvString& append(const char16_t* s);
    KvString& append(const char* s);
    KvString& append(const char* s, Encoding e);
    KvString& append(const KvString& o);
    KvString& append(char c);
    KvString& append(char16_t c);
    KvString& operator+=(const char16_t* s) { return append(s); }
    KvString& operator+=(const char* s) { return append(s); }
    KvString& operator+=(const KvString& o) { return append(o); }
    KvString& operator+=(char c) { return append(c); }
    KvString& operator+=(char16_t c) { return append(c); }
    KvString concat(char c) const;
    KvString concat(char16_t c) const;
    KvString concat(const char* s) const;
    KvString concat(const char16_t* s) const;
    KvString concat(const KvString& o) const;
    KvString concat(const char* s, Encoding e) const;
    KvString operator+(char c) const { return concat(c); }
    KvString operator+(char16_t c) const { return concat(c); }
    KvString operator+(const char* s) const { return concat(s); }
    KvString operator+(const char16_t* s) const { return concat(s); }
    KvString operator+(const KvString& o) const { return concat(o); }
    KvString precat(char16_t c) const;
    KvString precat(const char* s) const;
    KvString precat(const char16_t* s) const;
    KvString precat(const char* s, Encoding e) const;

    // Comparison: -1, 0 or 1.
    int compare(const char* s) const;
    int compare(const char16_t* s) const;
    int compare(const KvString& o) const;
    int compare(char16_t c) const;
    int compare(const char* s, Encoding e) const;
    int compareNoCase(const char* s) const;
    int compareNoCase(const char16_t* s) const;
    int compareNoCase(const KvString& o) const;
    int compareNoCase(char16_t c) const;
    int compareNoCase(const char* s, Encoding e) const;
    static bool equalsNoCase(const KvString& a, const KvString& b);
    // Locale order; sets the process's collation locale from the configured language.
    int collate(const char16_t* s) const;
    int collate(const KvString& o) const;
    int collateNoCase(const char16_t* s) const;
    int collateNoCase(const KvString& o) const;

    bool operator==(char16_t c) const { return compare(c) == 0; }
    bool operator==(const char* s) const { return compare(s) == 0; }
    bool operator==(const char16_t* s) const { return compare(s) == 0; }
    bool operator==(const KvString& o) const { return compare(o) == 0; }
    bool operator!=(char16_t c) const { return compare(c) != 0; }
    bool operator!=(const char* s) const { return compare(s) != 0; }
    bool operator!=(const char16_t* s) const { return compare(s) != 0; }
    bool operator!=(const KvString& o) const { return compare(o) != 0; }
    bool operator<(char16_t c) const { return compare(c) < 0; }
    bool operator<(const char* s) const { return compare(s) < 0; }
    bool operator<(const char16_t* s) const { return compare(s) < 0; }
    bool operator<(const KvString& o) const { return compare(o) < 0; }
    bool operator<=(char16_t c) const { return compare(c) <= 0; }
    bool operator<=(const char* s) const { return compare(s) <= 0; }
    bool operator<=(const char16_t* s) const { return compare(s) <= 0; }
    bool operator<=(const KvString& o) const { return compare(o) <= 0; }
    // The byte, sign-extended to a unit.
    bool operator<=(char c) const { return compare(char16_t(int16_t(int8_t(c)))) <= 0; }
    bool operator>(char16_t c) const { return compare(c) > 0; }
    bool operator>(const char* s) const { return compare(s) > 0; }
    bool operator>(const char16_t* s) const { return compare(s) > 0; }
    bool operator>(const KvString& o) const { return compare(o) > 0; }
    bool operator>=(char16_t c) const { return compare(c) >= 0; }
    bool operator>=(const char* s) const { return compare(s) >= 0; }
    bool operator>=(const char16_t* s) const { return compare(s) >= 0; }
    bool operator>=(const KvString& o) const { return compare(o) >= 0; }

    // Prefix match: the number of leading elements in common (bytes on a narrow walk).
    int match(const char* s) const;
    int match(const char16_t* s) const;
    int match(const KvString& o) const;
    int match(const char* s, Encoding e) const;
    int matchNoCase(const char* s) const;
    int matchNoCase(const char16_t* s) const;
    int matchNoCase(const KvString& o) const;
    int matchNoCase(const char* s, Encoding e) const;

    // Case and order; a narrow string stays narrow.
    KvString& makeUpper();
    KvString& makeLower();
    KvString& makeReverse();

    // In-place edits on the wide text; they end in the heap wide or inline wide form.
    int remove(char16_t c);
    int remove() { return remove(char16_t(0)); }
    int replace(char16_t a, char16_t b);
    int replace(const char16_t* a, const char16_t* b);
    int deleteAtIndex(int index, int count = 1);
    KvString& insert(int index, const char16_t* s);
    KvString& insert(int index, char16_t c);
    // Both throw LumErrorStatus* (status 3) for an index outside the text.
    KvString& setAt(int i, char16_t c);
    char16_t getAt(int i) const;
    // The next token at unit `pos`, which moves on; start with 0, stop at an empty token
    // or when `pos` exceeds length().
    KvString tokenize(const char16_t* delims, int& pos) const;

    // Numbers: the whole text must be digits (with a leading '-' for the signed ones).
    int32_t asDeci(int flags = 0) const;
    int32_t asHex(int flags = 0) const;
    uint32_t asUDeci(int flags = 0) const;
    uint32_t asUHex(int flags = 0) const;
    int64_t asDeci64(int flags = 0) const;
    int64_t asHex64(int flags = 0) const;
    uint64_t asUDeci64(int flags = 0) const;
    uint64_t asUHex64(int flags = 0) const;
    KvDbHandle asKvDbHandle(int flags = 0) const;

    KvString& format(const char16_t* fmt, ...);
    KvString& formatV(const char16_t* fmt, va_list args);
    KvString& appendFormat(const char16_t* fmt, ...);
    bool loadString(void* instance, unsigned id);
    bool loadString(unsigned id);
    bool loadString(const KvRxResourceInstance& instance, unsigned id);

private:
    friend class KvStringImp;

    enum Form {
        kFormEmpty = 0,
        kFormInlineAnsi = 1,
        kFormInlineWide = 2,
        kFormHeapAnsi = 3,
        kFormHeapWide = 4,
        kFormPair = 5,
    };
    struct NarrowView {
        uint8_t form;
        char text[7];
    };
    struct WideView {
        uint8_t form;
        char16_t text[3];
    };
    struct PointerView {
        uint8_t form;
        void* block;
    };
    union Overlay {
        NarrowView narrow;
        WideView wide;
        PointerView pointer;
    };

    int form() const { return mText.narrow.form; }
    void setForm(int f) { mText.narrow.form = uint8_t(f); }
    void setBlock(int f, void* block);
    // Inline, as every construction and every narrow read starts with them.
    const char* narrowText() const {
        return form() == kFormInlineAnsi ? mText.narrow.text : static_cast<const char*>(mText.pointer.block);
    }
    void clearAll() {
        std::memset(&mText, 0, sizeof mText);
        mUtf8Cache = nullptr;
    }
    template <class C>
    static size_t shortLength(const C* s, size_t limit) {
        size_t n = 0;
        while (n < limit && s[n]) ++n;
        return n;
    }
    template <class C>
    void setInline(int f, C* view, const C* s, size_t n) {
        setForm(f);
        std::memcpy(view, s, n * sizeof(C));
    }
    // No page of this system has a lead byte below 0x80, so ASCII bytes other than the
    // backslash are one character each; anything else takes the full count.
    int inlineNarrowLength() const {
        int n = 0;
        for (char c = mText.narrow.text[0]; c; c = mText.narrow.text[++n])
            if (c == '\\' || (unsigned char)c >= 0x80) return heapLength();
        return n;
    }
    void setNarrowText(const char* s);
    void setWideText(const char16_t* s);
    int heapLength() const;
    void release();
    void dropNarrowForm();
    char16_t* editableWide();
    bool storeNarrow(const char* text, size_t bytes);
    bool setWide(const char16_t* text, int start, int count);
    bool wideAppend(const char16_t* s);
    bool narrowAppend(const char* s, bool mayHoldEscapes);
    bool joinNarrow(const char* head, const char* s, size_t n);
    const char16_t* widenNarrowForm();
    const char* narrowWideForm();
    void renderNumber(eFormat f, unsigned v);
    void renderHandle(const KvDbHandle& h);
    void installWide(char16_t* buffer);
    KvString& trimWith(const char16_t* set, bool left, bool right);
    int compareNarrowArg(const char* s, bool fold) const;
    int compareWideArg(const char16_t* s, bool fold) const;
    int collateWith(const char16_t* s, bool fold) const;
    int matchNarrowArg(const char* s, bool fold) const;
    int matchWideArg(const char16_t* s, bool fold) const;
    template <class T>
    T parseNumber(int flags, int base, bool isSigned, uint64_t limit, uint64_t negLimit) const;

    Overlay mText;
    char* mUtf8Cache;
};

// Helpers on KvString's representation that other parts of the system call.
class KvStringImp {
public:
    // The shared empty wide text of the library; never freed or written.
    static const char16_t* const kEmptyStrW;
    // True for the narrow-only forms (inline narrow and heap narrow).
    static bool isUnicodeNotInSync(const KvString& s);
    // Stores narrow text without conversion: `start` bytes in, `count` characters (-1 for
    // all). False for null text or a failed allocation, `s` then unchanged.
    static bool SetFromMBCS(KvString& s, const char* text, int start, int count);
    // Resolves the escapes of a wide text in place; returns minus the units saved.
    // `text` must not be null.
    static int MIFCIFStrToUniStr(char16_t* text);
    // The form number (0 empty, 1 inline narrow, 2 inline wide, 3 heap narrow, 4 heap
    // wide, 5 pair), for diagnostics.
    static int form(const KvString& s) { return s.form(); }
};

// An interned, lower-cased text: two pointers are equal exactly when the texts are equal
// ignoring case. The table is process-wide, kept until the library unloads, and is for
// one thread at a time.
class KvUniqueString {
public:
    // The table's pointer for the lower-cased `s`, added if new; null for null.
    static const KvUniqueString* Intern(const char16_t* s);
    const char16_t* text() const { return reinterpret_cast<const char16_t*>(this); }

    KvUniqueString() = delete;
};

// Reads a byte stream line by line, in the encoding its first bytes name. Registered
// as "KvStringBuf" by whoever registers it; isA finds the class by that name.
// Ownership: the stream given to init is owned and destroyed with the object.
class KvStringBuf : public KvRxObject {
public:
    enum StreamEncoding {
        kStreamNone = 0,     // nothing could be read
        kStreamPlain = 1,    // bytes in code page 1252
        kStreamUtf8 = 2,     // EF BB BF
        kStreamUtf16Le = 3,  // FF FE
        kStreamUtf16Be = 4,  // FE FF
        kStreamUtf32Le = 5,  // FF FE 00 00
        kStreamUtf32Be = 6,  // 00 00 FE FF
    };

    static KvRxClass* gpDesc;
    static KvRxClass* desc();
    static KvStringBuf* cast(const KvRxObject* object);
    KvRxClass* isA() const override;

    KvStringBuf();
    ~KvStringBuf() override;
    // Takes `stream` and works out its encoding; a stream given earlier is not destroyed.
    void init(LumStreamBuf* stream);
    // The next line without its line end (CR, LF, or any two of them); empty at the end.
    virtual KvString getString();
    int encoding() const { return mEncoding; }

private:
    uint32_t readElement(int size);
    bool atLineEnd(uint32_t element, int size);

    LumStreamBuf* mStream;
    int32_t mEncoding;
};
