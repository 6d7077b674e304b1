// Code pages: conversions between Windows code pages and 16-bit text, lead bytes, and
// the ANSI code page of the process. Pages are named by their Windows numbers.
#pragma once

#include <cstddef>

namespace lumplatform {

// The ANSI code page the process has: LUMRX_ACP if it names a page known here, else the
// page Windows would choose for the language of the locale (LC_ALL, LC_CTYPE, LANG).
unsigned processAnsiCodePage();

// True if `codePage` can be converted here.
bool isKnownCodePage(unsigned codePage);

// Converts `inBytes` bytes into `out` (room for `outUnits` units; no terminator is
// added). A byte sequence the page doesn't define becomes one substitute unit. Returns
// the units written, or -1 for an unknown page or too small an output.
int codePageToWide(unsigned codePage, const char* in, int inBytes, char16_t* out, int outUnits);

// Converts `inUnits` units into `out` (room for `outBytes` bytes; no terminator is
// added). Each unit the page lacks, a lone surrogate included, and each unit whose bytes
// would read back as another unit, comes out as the 7-byte escape "\U+XXXX" (upper-case
// digits). Returns the bytes written, or -1 for an unknown
// page or too small an output.
int wideToCodePageEscaped(unsigned codePage, const char16_t* in, int inUnits, char* out,
                          int outBytes);

// Converts one character of `bytes` bytes (1 or 2) to its unit. False when the bytes are
// no single character of the page or the page doesn't define it.
bool codePageCharToUnit(unsigned codePage, const unsigned char* bytes, int count, char16_t& out);

// Fills `lead` with the lead bytes of a multi-byte page (all false for a single-byte
// page). False for an unknown page.
bool codePageLeadBytes(unsigned codePage, bool lead[256]);

}  // namespace lumplatform
