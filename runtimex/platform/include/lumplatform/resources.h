// Numbered texts of a resource library.
#pragma once

namespace lumplatform {

// The symbol a resource library exports for its texts:
//   extern "C" const char16_t* lumResourceString(unsigned id);
// giving the text of message `id`, or null if it has none.
constexpr const char* kResourceStringSymbol = "lumResourceString";

// Copies text `id` of the resource library `library` (an open library handle) into
// `out`, at most `outUnits` - 1 units and a terminator, and returns the units copied;
// 0 if the library or the text is missing.
int loadResourceString(void* library, unsigned id, char16_t* out, int outUnits);

}  // namespace lumplatform
