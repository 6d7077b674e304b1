// Shared libraries: open, look up, close.
#pragma once

#include <string>

namespace lumplatform {

// Opens a library by path or by bare name (then the dynamic loader's own search
// applies); a name ending in ".dll" is taken as the same name ending in ".so".
// Null if it can't be opened.
void* openLibrary(const std::u16string& name);
// As openLibrary, for a name in UTF-8.
void* openLibraryUtf8(const std::string& name);
// Opens the library `name` (named as for openLibrary) from the folder of the loaded
// object that holds `anchor`, else as openLibrary does.
void* openLibraryBeside(const void* anchor, const std::u16string& name);
void closeLibrary(void* handle);
// The handle of the library `name` (named as for openLibrary) if the process has it
// mapped already, else null. Adds no reference.
void* mappedLibrary(const std::u16string& name);
void* librarySymbol(void* handle, const char* symbol);

}  // namespace lumplatform
