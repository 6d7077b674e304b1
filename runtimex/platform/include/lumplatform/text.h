// Unicode services of the platform: case mapping, collation and UTF conversions.
#pragma once

#include <string>

namespace lumplatform {

char16_t toUpperUnit(char16_t c);
char16_t toLowerUnit(char16_t c);
// Simple case folding of one unit, the key of case-insensitive comparison.
char16_t foldCaseUnit(char16_t c);

// Orders two texts by the collation of the current locale; the sign is the result.
int collate(const char16_t* a, const char16_t* b, bool ignoreCase);

// UTF-16 to UTF-8 and back. Unpaired surrogates and invalid bytes become U+FFFD.
std::string toUtf8(const std::u16string& text);
std::u16string fromUtf8(const std::string& text);

}  // namespace lumplatform
