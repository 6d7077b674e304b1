// LumOsBase: memory, exceptions, the crash recorder and 16-bit text helpers that
// the runtime kernel and every module build on.
//
// Text is held in 16-bit units (char16_t) throughout. Exceptions are always thrown
// by pointer; whoever catches one deletes it.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

// ---------------------------------------------------------------------------
// Memory
// ---------------------------------------------------------------------------

// Raw blocks for objects, nodes and text. _lumMalloc gives null when no memory is left.
void* _lumMalloc(size_t size);
void _lumFree(void* p);

// An own copy of a wide text (null for null) and its release.
char16_t* _lumStrdup(const char16_t* text);
void _lumStrdupFree(char16_t* copy);

// ---------------------------------------------------------------------------
// Exceptions, thrown by pointer
// ---------------------------------------------------------------------------

class LumException {
public:
    virtual ~LumException();
    virtual int code() const;
    virtual const char16_t* className() const;
    virtual const char16_t* description() const;

protected:
    LumException() = default;
    LumException(const LumException&) = delete;
    LumException& operator=(const LumException&) = delete;
};

// An exception that carries a finished message. Owns a copy of `file` and `message`.
class LumExceptionWithMsg : public LumException {
public:
    LumExceptionWithMsg(const char* file, int line, const char16_t* message);
    ~LumExceptionWithMsg() override;
    int code() const override;
    const char16_t* className() const override;
    const char16_t* description() const override;

    const char16_t* message() const { return m_message; }
    const char* file() const { return m_file; }
    int line() const { return m_line; }

private:
    char* m_file;
    int m_line;
    char16_t* m_message;
};

// An exception that carries a status number (a Kvore::ErrorStatus value).
class LumErrorStatus : public LumException {
public:
    LumErrorStatus(int status, const char* file, int line);
    ~LumErrorStatus() override;
    int code() const override;
    const char16_t* className() const override;
    const char16_t* description() const override;

    int status() const { return m_status; }
    const char* file() const { return m_file; }
    int line() const { return m_line; }

private:
    int m_status;
    char* m_file;
    int m_line;
    char16_t* m_description;
};

// Records the exception with the crash recorder, then throws it by pointer.
[[noreturn]] void lumThrowErrorStatus(int status, const char* file, int line);

// ---------------------------------------------------------------------------
// Crash recorder
// ---------------------------------------------------------------------------

// Receives diagnostic lines. None of its operations fails in a way the caller sees.
class LumCrashRecorder {
public:
    virtual ~LumCrashRecorder();
    // A finished line for the record; the three numbers are passed through.
    virtual void recordMessage(const char16_t* text, int a, int b, int c) = 0;
    // Called before every throw of a LumException.
    virtual void recordException(const LumException* exception) = 0;
    // A fault caught by a guard: its code and data, a text and the source line.
    virtual void recordFault(unsigned faultCode, const void* faultData, const char16_t* text,
                             int line) = 0;
    virtual void flushRecord() = 0;
};

// The crash recorder of the process. By default a recorder that appends each line with a
// time stamp to the file named by LUMRX_CRASH_RECORD, else to standard error.
LumCrashRecorder* kvoreGetCrashRecorder();

// Test and host hook: installs `recorder` (null restores the default) and returns the
// recorder that was installed before (null for the default). Not owned.
LumCrashRecorder* lumSetCrashRecorder(LumCrashRecorder* recorder);

// ---------------------------------------------------------------------------
// LumVector: a handle on a reference-counted body. A shared body is cloned before a
// write. Failed allocations raise status 6, the last element of an empty vector 2, a
// bad index 24 (all as LumErrorStatus*). T must be trivially copyable.
// ---------------------------------------------------------------------------

struct LumVectorBody {
    std::atomic<int> refs;
    int length;
    int capacity;
    int growLength;
    // element data follows the header
};

// The shared empty body every vector starts from; its count is never taken to zero.
extern LumVectorBody gpEmptyVectorData;

template <class T>
struct LumDefaultMemAllocator {
    static void* allocate(size_t bytes) { return _lumMalloc(bytes); }
    static void release(void* p) { _lumFree(p); }
};

struct LumRefCounter {
    static void addRef(std::atomic<int>& c) { c.fetch_add(1, std::memory_order_relaxed); }
    // True when the last reference went.
    static bool release(std::atomic<int>& c) {
        return c.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }
};

struct LumVectorDefaultGrowPolicy {
    // New capacity for a body of `capacity` elements that must hold `needed`.
    static int grow(int capacity, int growLength, int needed) {
        int next = capacity + (growLength > 0 ? growLength : 8);
        return next > needed ? next : needed;
    }
};

template <class T, class A = LumDefaultMemAllocator<T>, class R = LumRefCounter,
          class G = LumVectorDefaultGrowPolicy>
class LumVector {
public:
    LumVector() : m_body(&gpEmptyVectorData) { R::addRef(m_body->refs); }
    LumVector(const LumVector& o) : m_body(o.m_body) { R::addRef(m_body->refs); }
    LumVector& operator=(const LumVector& o) {
        if (m_body != o.m_body) {
            R::addRef(o.m_body->refs);
            drop();
            m_body = o.m_body;
        }
        return *this;
    }
    ~LumVector() { drop(); }

    int length() const { return m_body->length; }
    int logicalLength() const { return m_body->length; }
    int physicalLength() const { return m_body->capacity; }
    bool isEmpty() const { return m_body->length == 0; }
    const T* asArrayPtr() const { return data(m_body); }
    // Writable data: unshares the body first.
    T* asArrayPtr() { makeOwn(m_body->capacity); return data(m_body); }

    const T& at(int i) const { check(i); return data(m_body)[i]; }
    const T& operator[](int i) const { return at(i); }
    void setAt(int i, const T& v) { check(i); makeOwn(m_body->capacity); data(m_body)[i] = v; }
    const T& last() const {
        if (m_body->length == 0) lumThrowErrorStatus(2, __FILE__, __LINE__);
        return data(m_body)[m_body->length - 1];
    }

    void append(const T& v) {
        T copy = v;  // `v` may live in this body, which can move below
        reserveFor(m_body->length + 1);
        data(m_body)[m_body->length++] = copy;
    }
    void insertAt(int i, const T& v) {
        if (i < 0 || i > m_body->length) lumThrowErrorStatus(24, __FILE__, __LINE__);
        T copy = v;
        reserveFor(m_body->length + 1);
        T* d = data(m_body);
        std::memmove(d + i + 1, d + i, sizeof(T) * size_t(m_body->length - i));
        d[i] = copy;
        ++m_body->length;
    }
    void removeAt(int i) {
        check(i);
        makeOwn(m_body->capacity);
        T* d = data(m_body);
        std::memmove(d + i, d + i + 1, sizeof(T) * size_t(m_body->length - i - 1));
        --m_body->length;
    }
    // Sets the element count; new elements are zeroed.
    void resize(int n) {
        if (n < 0) lumThrowErrorStatus(24, __FILE__, __LINE__);
        reserveFor(n);
        if (n > m_body->length)
            std::memset(static_cast<void*>(data(m_body) + m_body->length), 0,
                        sizeof(T) * size_t(n - m_body->length));
        if (m_body != &gpEmptyVectorData) m_body->length = n;
    }
    void reserve(int n) { if (n > m_body->capacity) makeOwn(n); }
    void clear() { if (m_body->length) { makeOwn(m_body->capacity); m_body->length = 0; } }
    void setGrowLength(int n) {
        if (m_body == &gpEmptyVectorData) cloneBody(0);  // the shared empty body is never written
        else makeOwn(m_body->capacity);
        m_body->growLength = n;
    }
    int find(const T& v) const {
        for (int i = 0; i < m_body->length; ++i)
            if (std::memcmp(&data(m_body)[i], &v, sizeof(T)) == 0) return i;
        return -1;
    }
    bool isShared() const { return m_body->refs.load() > 1; }

private:
    static T* data(LumVectorBody* b) {
        return reinterpret_cast<T*>(reinterpret_cast<char*>(b) + bodyHeader());
    }
    static constexpr size_t bodyHeader() {
        return (sizeof(LumVectorBody) + alignof(T) - 1) / alignof(T) * alignof(T);
    }
    void check(int i) const {
        if (i < 0 || i >= m_body->length) lumThrowErrorStatus(24, __FILE__, __LINE__);
    }
    void reserveFor(int needed) {
        int cap = m_body->capacity;
        if (needed > cap) cap = G::grow(cap, m_body->growLength, needed);
        makeOwn(cap);
    }
    // Gives this handle a body of its own, not shared, with room for `capacity` elements.
    // The shared empty body stays in place while nothing needs to be stored.
    void makeOwn(int capacity) {
        bool own = m_body != &gpEmptyVectorData && m_body->refs.load() == 1;
        if (own && capacity <= m_body->capacity) return;
        if (capacity < m_body->length) capacity = m_body->length;
        if (capacity == 0 && m_body == &gpEmptyVectorData) return;
        cloneBody(capacity);
    }
    // Replaces the body by a copy of its own with room for `capacity` elements.
    void cloneBody(int capacity) {
        if (capacity < 0 || size_t(capacity) > size_t(INT32_MAX) / sizeof(T))
            lumThrowErrorStatus(6, __FILE__, __LINE__);
        auto* nb = static_cast<LumVectorBody*>(A::allocate(bodyHeader() + sizeof(T) * size_t(capacity)));
        if (!nb) lumThrowErrorStatus(6, __FILE__, __LINE__);
        new (&nb->refs) std::atomic<int>(1);
        bool fromEmpty = m_body == &gpEmptyVectorData;
        nb->length = fromEmpty ? 0 : m_body->length;
        nb->capacity = capacity;
        nb->growLength = fromEmpty ? 8 : m_body->growLength;
        if (nb->length)
            std::memcpy(static_cast<void*>(data(nb)), data(m_body), sizeof(T) * size_t(m_body->length));
        drop();
        m_body = nb;
    }
    void drop() {
        if (R::release(m_body->refs)) {
            if (m_body == &gpEmptyVectorData) { R::addRef(m_body->refs); return; }
            m_body->refs.~atomic<int>();
            A::release(m_body);
        }
    }

    LumVectorBody* m_body;
};

// ---------------------------------------------------------------------------
// LumCharOp: text helpers for narrow and 16-bit text
// ---------------------------------------------------------------------------

struct LumCharOp {
    // Copies. The narrow form copies through the terminator; the wide forms copy `n`
    // units and leave the terminator to the caller. The sized form copies at most
    // dstSize units.
    static char* copy(char* dst, const char* src);
    static char16_t* copy(char16_t* dst, const char16_t* src, unsigned n);
    static char16_t* copy(char16_t* dst, unsigned dstSize, const char16_t* src, unsigned n);

    // Characters of a narrow text in the process code page: a lead-byte pair is one, and
    // so is each escape (see LumCharMapper). 0 for null.
    static unsigned length(const char* text);
    // Units of a wide text; 0 for null.
    static unsigned length(const char16_t* text);
    // The address `n` characters on in a narrow text, counted as `length` counts them
    // (stops at the terminator).
    static const char* next(const char* text, unsigned n);

    // The first occurrence of `what` in `text`, or null. An empty `what` is found at `text`.
    static const char16_t* find(const char16_t* text, const char16_t* what);
    static const char* find(const char* text, const char* what);

    // Comparisons: only the sign counts. compare is by unit value; compareNoCase folds
    // case by Unicode simple case folding; collate follows the current locale's order.
    static int compare(const char16_t* a, const char16_t* b);
    static int compareNoCase(const char16_t* a, const char16_t* b);
    static int compareNoCase(const char* a, const char* b);
    static int collate(const char16_t* a, const char16_t* b);
    static int collate(const char* a, const char* b);
    static int collateNoCase(const char16_t* a, const char16_t* b);
    static int collateNoCase(const char* a, const char* b);

    // Wide formatted printing, with the conversions of printf:
    //   %d %i %u %x %X %o %c %s %p %e %E %f %F %g %G %%, flags "-+ #0", width and
    //   precision (also *), length modifiers hh h l ll z t j L.
    //   %s and %ls take const char16_t*; %hs and %S take a narrow const char* (UTF-8);
    //   %c and %lc take a 16-bit unit; %hc and %C a narrow char. A null text prints "(null)".
    // format writes into `out`, which must hold formattedLength + 1 units, and returns
    // the units written (terminator not counted). formattedLength counts without writing.
    // Returns -1 for a malformed conversion.
    // Note: the va_list form is chosen for an argument that converts to va_list; pass
    // texts, not literal 0, through the variadic form.
    static int format(char16_t* out, const char16_t* fmt, ...);
    static int format(char16_t* out, const char16_t* fmt, va_list args);
    static int formattedLength(const char16_t* fmt, va_list args);

    // Unicode simple case mapping of one unit.
    static char16_t toUpper(char16_t c);
    static char16_t toLower(char16_t c);

    // Zeroed block or null; release, null allowed.
    static void* zalloc(size_t bytes);
    static void zfree(void* p);

    // Wide to multi-byte in Windows code page `codePage`; every unit the page lacks comes
    // out as a 7-byte escape. Returns the bytes written with the terminator when
    // `wideCount` is -1, or 0 or less on failure.
    static int WideCharToMultiByteCIF(unsigned codePage, unsigned flags, const char16_t* wide,
                                      int wideCount, char* out, int outSize, int reserved);
};

// ---------------------------------------------------------------------------
// Code pages
// ---------------------------------------------------------------------------

struct LumCodePageMapper {
    // Ids of code pages. The double-byte pages the escapes name have fixed values; 22 is
    // GB2312 (20936) and 24 EUC-KR (51949); 25, 26 and 31 are double-byte ids with no
    // page here. Each other page known here has an id of its own.
    enum code_page_id {
        CODE_PAGE_UNDEFINED = 0,
        CODE_PAGE_DBCS_22 = 22,
        CODE_PAGE_DBCS_24 = 24,
        CODE_PAGE_DBCS_25 = 25,
        CODE_PAGE_DBCS_26 = 26,
        CODE_PAGE_DBCS_31 = 31,
        CODE_PAGE_ANSI_932 = 38,
        CODE_PAGE_ANSI_936 = 39,
        CODE_PAGE_ANSI_949 = 40,
        CODE_PAGE_ANSI_950 = 41,
        CODE_PAGE_ANSI_1361 = 42,
        CODE_PAGE_ANSI_874 = 43,
        CODE_PAGE_ANSI_1250 = 44,
        CODE_PAGE_ANSI_1251 = 45,
        CODE_PAGE_ANSI_1252 = 46,
        CODE_PAGE_ANSI_1253 = 47,
        CODE_PAGE_ANSI_1254 = 48,
        CODE_PAGE_ANSI_1255 = 49,
        CODE_PAGE_ANSI_1256 = 50,
        CODE_PAGE_ANSI_1257 = 51,
        CODE_PAGE_ANSI_1258 = 52,
    };
    // The id of a Windows code page number; CODE_PAGE_UNDEFINED for a page without one.
    static code_page_id ansiCpToKvoreCp(unsigned codePage);
    // The Windows code page number of an id; 0 for an id without a page.
    static unsigned kvoreCpToAnsiCp(code_page_id id);
};

// The process ANSI code page: LUMRX_ACP if set to a known page, else chosen from the
// locale's language. Read once; it doesn't change while the process runs.
unsigned lumGetACP();

// Conversions between multi-byte text in a code page and 16-bit text. The output vectors
// always hold a zero-terminated text; their element count includes that zero.
//
// Narrow text may carry escapes that stand for one character each:
//   "\U+XXXX"   one 16-bit unit, four hexadecimal digits (either case, also "\u+")
//   "\M+dXXXX"  a double-byte code XXXX of the page named by digit d: 1 is 932, 2 is 950,
//               3 is 949, 4 is 1361, 5 is 936 (also "\m+")
struct LumCharMapper {
    // Multi-byte text of `byteCount` bytes in page `id` to wide text in `out`, each escape
    // resolved to its character. Returns the units before the terminator, -1 for a page
    // that can't be converted (`out` is then the empty text).
    static int multiByteToWideChar(LumCodePageMapper::code_page_id id, const char* text,
                                   int byteCount, LumVector<char16_t>& out);
    // UTF-8 (invalid bytes become U+FFFD) to wide, and wide (lone surrogates become
    // U+FFFD) to UTF-8. Return the elements before the terminator.
    static int utf8ToUnicode(const char* text, int byteCount, LumVector<char16_t>& out);
    static int unicodeToUtf8(const char16_t* wide, int unitCount, LumVector<char>& out);
    // One double-byte code of page `id` (`codeBytes` is always 8 here) to its unit. A code
    // the page doesn't define gives true with '?'; false for a page that can't be converted.
    static bool codepageToUnicode(unsigned code, int codeBytes, LumCodePageMapper::code_page_id id,
                                  char16_t& out);
    static bool isLeadByte(unsigned char byte, LumCodePageMapper::code_page_id id);
    // Resolves the escapes of a wide text in place; the text can only shrink. Returns
    // minus the units saved (0 when nothing was resolved). `text` must not be null.
    static int resolveEscapes(char16_t* text);
    // The same for a text of `units` units (text[units] is zero): the units before the
    // first backslash are passed over a block at a time.
    static int resolveEscapes(char16_t* text, int units);
};

// ---------------------------------------------------------------------------
// Files
// ---------------------------------------------------------------------------

constexpr unsigned LUM_MAX_PATH = 260;
constexpr unsigned INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;
constexpr unsigned LUM_FILE_ATTRIBUTE_READONLY = 0x01;
constexpr unsigned LUM_FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr unsigned LUM_FILE_ATTRIBUTE_NORMAL = 0x80;

struct LumPathMaker {
    // The normal full path of `name` into `out` (LUM_MAX_PATH units): absolute, with "."
    // and ".." resolved and symbolic links followed where the file exists, so that one
    // file always gives one text. False if it doesn't fit or `name` is null or empty.
    static bool getFullFileName(const char16_t* name, char16_t* out);
    // The base name of `path` (after the last separator, without its extension) into
    // `out` (LUM_MAX_PATH units).
    static bool getFileName(const char16_t* path, char16_t* out, char16_t* ext);
    // The extension of `path` with its dot, or empty, into `out` (LUM_MAX_PATH units).
    static bool getExtFileName(char16_t* out, const char16_t* path);
};

struct LumFileSystem {
    static bool isFileExisting(const char16_t* name);
    // The attribute word, INVALID_FILE_ATTRIBUTES if the file can't be asked.
    static unsigned getFileAttributes(const char16_t* path);
};
