// Helpers the command files of lumrx-host share: argument checks, numbers, names and
// the texts of load reasons and record statuses.
#pragma once

#include "interpreter.h"
#include "kvoreappinfo.h"

#include <string>
#include <vector>

class KvRxDictionary;
class KvRxDynamicLinker;

namespace lumrxhost {

// Ends the command with an error.
[[noreturn]] void failWith(const std::string& text);
// Between `least` and `most` arguments, else an error showing `usage`.
void expectArgs(const std::vector<std::string>& args, size_t least, size_t most, const char* usage);
// A whole number in decimal, or in hex after "0x", with an optional '-', within
// [least, most]; else an error naming `what`.
long long parseNumber(const std::string& text, long long least, long long most, const char* what);
// The part of a path after its last '/'.
std::u16string baseName(const std::u16string& path);
// Equality with ASCII letters compared without case, as the linker's table keys are.
bool sameTextNoCase(const std::u16string& a, const std::u16string& b);
// "12 (command, request)".
std::string reasonsText(KvoreApp::LoadReasons reasons);
std::string statusText(KvoreApp::ErrorStatus status);
// The entry `key` of the system registry as a dictionary, or null.
KvRxDictionary* systemEntry(const char16_t* key);
// The runtime's linker; an error if there is none.
KvRxDynamicLinker* linker();

}  // namespace lumrxhost
