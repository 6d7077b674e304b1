// KvString: number parsing, formatted text and resource strings.
#include "kvstring.h"

#include "kvdbhostappservices.h"
#include "kvstringstorage.h"
#include "lumplatform/resources.h"

#include <cstring>

using namespace kvtext;

namespace {

template <class C>
int digitValue(C c, int base) {
    if (c >= '0' && c <= '9') return int(c - '0');
    if (base == 16 && c >= 'a' && c <= 'f') return int(c - 'a' + 10);
    if (base == 16 && c >= 'A' && c <= 'F') return int(c - 'A' + 10);
    return -1;
}

// All of `p` as digits of `base` up to `limit`; false for a bad character or overflow.
template <class C>
bool parseDigits(const C* p, int base, uint64_t limit, uint64_t& value) {
    value = 0;
    for (; *p; ++p) {
        int d = digitValue(*p, base);
        if (d < 0) return false;
        if (base == 16 ? value > limit / 16 : double(value) > double(limit) / 10.0) return false;
        // value * base > limit - d, without overflowing
        if (value > (limit - uint64_t(d)) / uint64_t(base)) return false;
        value = value * uint64_t(base) + uint64_t(d);
    }
    return true;
}

enum class Parsed { kValue, kEmpty, kError };

// Parses `text`: an optional '-' when signed, then digits only.
template <class C>
Parsed parseText(const C* text, int base, bool isSigned, uint64_t limit, uint64_t negLimit,
                 uint64_t& value, bool& negative) {
    negative = isSigned && *text == '-';
    if (negative && !*++text) return Parsed::kEmpty;
    if (!*text) {
        value = 0;
        return Parsed::kValue;
    }
    return parseDigits(text, base, negative ? negLimit : limit, value) ? Parsed::kValue : Parsed::kError;
}

}  // namespace

// On error the result is -1 with kAsErrorMinusOne, else 0; with kAsEmptyIsError an empty
// string or a lone '-' is an error, else it gives 0.
template <class T>
T KvString::parseNumber(int flags, int base, bool isSigned, uint64_t limit, uint64_t negLimit) const {
    const T error = (flags & kAsErrorMinusOne) ? T(-1) : T(0);
    const T empty = (flags & kAsEmptyIsError) ? error : T(0);
    if (isEmpty()) return empty;
    uint64_t value = 0;
    bool negative = false;
    Parsed r = (form() == kFormInlineWide || form() == kFormHeapWide)
                   ? parseText(kwszPtr(), base, isSigned, limit, negLimit, value, negative)
                   : parseText(ansiPtr(), base, isSigned, limit, negLimit, value, negative);
    if (r == Parsed::kEmpty) return empty;
    if (r == Parsed::kError) return error;
    return negative ? T(0 - value) : T(value);
}

int32_t KvString::asDeci(int flags) const {
    return parseNumber<int32_t>(flags, 10, true, 0x7FFFFFFF, 0x80000000);
}

int32_t KvString::asHex(int flags) const {
    return parseNumber<int32_t>(flags, 16, true, 0x7FFFFFFF, 0x80000000);
}

uint32_t KvString::asUDeci(int flags) const { return parseNumber<uint32_t>(flags, 10, false, 0xFFFFFFFF, 0); }

uint32_t KvString::asUHex(int flags) const { return parseNumber<uint32_t>(flags, 16, false, 0xFFFFFFFF, 0); }

int64_t KvString::asDeci64(int flags) const {
    return parseNumber<int64_t>(flags, 10, true, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000);
}

int64_t KvString::asHex64(int flags) const {
    return parseNumber<int64_t>(flags, 16, true, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000);
}

uint64_t KvString::asUDeci64(int flags) const {
    return parseNumber<uint64_t>(flags, 10, false, 0xFFFFFFFFFFFFFFFF, 0);
}

uint64_t KvString::asUHex64(int flags) const {
    return parseNumber<uint64_t>(flags, 16, false, 0xFFFFFFFFFFFFFFFF, 0);
}

KvDbHandle KvString::asKvDbHandle(int flags) const { return KvDbHandle(asUHex64(flags)); }

// ---------------------------------------------------------------------------
// Formatted text
// ---------------------------------------------------------------------------

KvString& KvString::format(const char16_t* fmt, ...) {
    setEmpty();
    if (!fmt) return *this;
    va_list args;
    va_start(args, fmt);
    formatV(fmt, args);
    va_end(args);
    return *this;
}

// Renders into a local array for ordinary text, a heap block beyond 1023 units. A text
// of length 0, or a malformed format, leaves the string as it was.
KvString& KvString::formatV(const char16_t* fmt, va_list args) {
    va_list measure;
    va_copy(measure, args);
    int n = LumCharOp::formattedLength(fmt, measure);
    va_end(measure);
    if (n <= 0) return *this;
    char16_t local[1024];
    auto* out = n < 1024 ? local : static_cast<char16_t*>(_lumMalloc((size_t(n) + 1) * sizeof(char16_t)));
    if (!out) return *this;
    if (LumCharOp::format(out, fmt, args) > 0) assign(out);
    if (out != local) _lumFree(out);
    return *this;
}

KvString& KvString::appendFormat(const char16_t* fmt, ...) {
    if (!fmt) return *this;
    KvString text;
    va_list args;
    va_start(args, fmt);
    text.formatV(fmt, args);
    va_end(args);
    return append(text);
}

// ---------------------------------------------------------------------------
// Resource strings
// ---------------------------------------------------------------------------

// A text of 1023 units or more counts as cut off and fails.
bool KvString::loadString(void* instance, unsigned id) {
    if (!instance || instance == reinterpret_cast<void*>(~uintptr_t(0))) return false;
    char16_t text[1024];
    int n = lumplatform::loadResourceString(instance, id, text, 1024);
    if (n == 0 || n >= 1023) return false;
    assign(text);
    return true;
}

bool KvString::loadString(unsigned id) {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    KvDbHostRuntime* runtime = host ? host->hostRuntime() : nullptr;
    void* instance = runtime ? runtime->resourceInstance() : nullptr;
    return instance && loadString(instance, id);
}

bool KvString::loadString(const KvRxResourceInstance&, unsigned) { return false; }
