// The text format of `lumrx-reg export` and `import` (README.md describes it), and
// the conversions between a value's stored bytes and its text.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace lumrxreg {

// A value as the store holds it.
struct Value {
    std::u16string name;
    uint32_t type = 0;
    std::string data;
};

// One line of a file that says something: a key (`isKey`) or a value of the last key.
struct Entry {
    int line = 0;
    bool isKey = false;
    std::u16string path;  // the key's path, names joined by '\'
    Value value;
};

extern const char* const kHeader;

std::string keyLine(const std::u16string& path);
std::string valueLine(const Value& value);
// Parses a whole file; false with "line N: why" in `error` at the first line refused.
bool parseFile(std::istream& in, std::vector<Entry>& entries, std::string& error);

// A text value's units, without the stored terminator; a number's value.
std::u16string textOf(const std::string& data);
uint32_t numberOf(const std::string& data);
// The stored bytes of a text (terminator added) and of a number.
std::string textData(const std::u16string& text);
std::string numberData(uint32_t number);

// A text in UTF-8 for people: control units and lone surrogates as \uXXXX.
std::string printable(const std::u16string& text);

}  // namespace lumrxreg
