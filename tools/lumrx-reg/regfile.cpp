#include "regfile.h"

#include "lumplatform/registry.h"
#include "lumplatform/text.h"

#include <cstring>

namespace lumrxreg {

const char* const kHeader = "LUMRX-REG 1";

namespace {

bool refuse(std::string& why, const char* reason) {
    why = reason;
    return false;
}

bool isHigh(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }
bool isControl(char16_t u) { return u < 0x20 || u == 0x7F; }

std::string hex(uint32_t value, int digits) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out(size_t(digits), '0');
    for (int i = digits - 1; i >= 0; --i, value >>= 4) out[size_t(i)] = kDigits[value & 0xF];
    return out;
}

// Appends text[i] (and its low surrogate) as UTF-8, or `escape` + four hex digits for
// a unit that UTF-8 can't carry or that mustn't appear raw; returns the units used.
size_t appendUnit(const std::u16string& text, size_t i, const char* escape, std::string& out) {
    char16_t u = text[i];
    if (isHigh(u) && i + 1 < text.size() && isLow(text[i + 1])) {
        out += lumplatform::toUtf8(text.substr(i, 2));
        return 2;
    }
    if (isControl(u) || isHigh(u) || isLow(u)) out += escape + hex(u, 4);
    else out += lumplatform::toUtf8(std::u16string(1, u));
    return 1;
}

std::string quoted(const std::u16string& text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        char16_t u = text[i];
        const char* named = u == u'\\' ? "\\\\" : u == u'"' ? "\\\"" : u == u'\n' ? "\\n"
                          : u == u'\r' ? "\\r" : u == u'\t' ? "\\t" : nullptr;
        if (named) {
            out += named;
            ++i;
        } else {
            i += appendUnit(text, i, "\\u", out);
        }
    }
    return out + "\"";
}

// Reads `count` hex digits at `pos` into `value`.
bool readHex(const std::u16string& line, size_t pos, size_t count, uint32_t& value) {
    if (pos + count > line.size()) return false;
    value = 0;
    for (size_t i = pos; i < pos + count; ++i) {
        char16_t c = line[i];
        int digit = c >= u'0' && c <= u'9' ? c - u'0' : c >= u'a' && c <= u'f' ? c - u'a' + 10
                  : c >= u'A' && c <= u'F' ? c - u'A' + 10 : -1;
        if (digit < 0) return false;
        value = value << 4 | uint32_t(digit);
    }
    return true;
}

// Reads the quoted text that starts at `pos`, and moves `pos` past its closing quote.
bool readQuoted(const std::u16string& line, size_t& pos, std::u16string& text, std::string& why) {
    if (pos >= line.size() || line[pos] != u'"') return refuse(why, "expected '\"'");
    for (++pos; pos < line.size();) {
        char16_t c = line[pos++];
        if (c == u'"') return true;
        if (c != u'\\') {
            text.push_back(c);
            continue;
        }
        char16_t e = pos < line.size() ? line[pos++] : 0;
        uint32_t unit = 0;
        if (e == u'\\' || e == u'"') text.push_back(e);
        else if (e == u'n') text.push_back(u'\n');
        else if (e == u'r') text.push_back(u'\r');
        else if (e == u't') text.push_back(u'\t');
        else if (e == u'u' && readHex(line, pos, 4, unit)) text.push_back(char16_t(unit)), pos += 4;
        else return refuse(why, "bad escape after '\\' (use \\\\ \\\" \\n \\r \\t or \\uXXXX)");
    }
    return refuse(why, "missing closing '\"'");
}

bool parseKey(const std::u16string& line, Entry& entry, std::string& why) {
    if (line.size() < 2 || line.back() != u']') return refuse(why, "a key line must end with ']'");
    entry.isKey = true;
    for (size_t i = 1; i + 1 < line.size(); ++i) {
        uint32_t unit = line[i];
        if (line[i] == u'%' && !readHex(line, i + 1, 4, unit)) return refuse(why, "bad escape after '%' (use %XXXX)");
        if (line[i] == u'%') i += 4;
        if (unit == 0) return refuse(why, "a key name can't hold U+0000");
        entry.path.push_back(char16_t(unit));
    }
    return true;
}

bool parseValue(const std::u16string& line, Entry& entry, std::string& why) {
    size_t pos = 0;
    Value& value = entry.value;
    if (!readQuoted(line, pos, value.name, why)) return false;
    if (value.name.find(u'\0') != std::u16string::npos) return refuse(why, "a value name can't hold U+0000");
    if (pos >= line.size() || line[pos++] != u'=') return refuse(why, "expected '=' after the value name");
    static const std::u16string kNumber = u"dword:";
    uint32_t number = 0;
    if (line.compare(pos, kNumber.size(), kNumber) == 0) {
        pos += kNumber.size();
        size_t digits = line.size() - pos;
        if (digits < 1 || digits > 8 || !readHex(line, pos, digits, number))
            return refuse(why, "a dword needs 1 to 8 hex digits");
        value.type = lumplatform::kRegistryNumber;
        value.data = numberData(number);
        return true;
    }
    std::u16string text;
    if (pos >= line.size() || line[pos] != u'"') return refuse(why, "expected \"text\" or dword:XXXXXXXX after '='");
    if (!readQuoted(line, pos, text, why)) return false;
    if (pos != line.size()) return refuse(why, "unexpected text after the closing '\"'");
    value.type = lumplatform::kRegistryString;
    value.data = textData(text);
    return true;
}

// One line after the header; `entries` gets what it says, if anything.
bool parseLine(std::string raw, int number, bool inKey, std::vector<Entry>& entries, std::string& why) {
    if (raw.empty() || raw[0] == ';') return true;
    if (lumplatform::toUtf8(lumplatform::fromUtf8(raw)) != raw) return refuse(why, "not valid UTF-8");
    std::u16string line = lumplatform::fromUtf8(raw);
    Entry entry;
    entry.line = number;
    if (line[0] == u'[') {
        if (!parseKey(line, entry, why)) return false;
    } else if (line[0] == u'"') {
        if (!inKey) return refuse(why, "a value before the first [key] line");
        if (!parseValue(line, entry, why)) return false;
    } else {
        return refuse(why, "expected a [key] line, a \"name\"=value line, a ';' comment or nothing");
    }
    entries.push_back(std::move(entry));
    return true;
}

}  // namespace

std::string keyLine(const std::u16string& path) {
    std::string out = "[";
    for (size_t i = 0; i < path.size();) {
        if (path[i] == u'%') out += "%0025", ++i;
        else i += appendUnit(path, i, "%", out);
    }
    return out + "]";
}

std::string valueLine(const Value& value) {
    std::string data = value.type == lumplatform::kRegistryNumber ? "dword:" + hex(numberOf(value.data), 8)
                                                                   : quoted(textOf(value.data));
    return quoted(value.name) + "=" + data;
}

bool parseFile(std::istream& in, std::vector<Entry>& entries, std::string& error) {
    std::string raw, why;
    int number = 0;
    bool inKey = false;
    while (std::getline(in, raw)) {
        ++number;
        if (!raw.empty() && raw.back() == '\r') raw.pop_back();
        if (number == 1 && raw.compare(0, 3, "\xEF\xBB\xBF") == 0) raw.erase(0, 3);
        bool ok = number > 1 ? parseLine(raw, number, inKey, entries, why) : raw == kHeader;
        if (!ok && number == 1) why = std::string("the first line must be '") + kHeader + "'";
        if (!ok) {
            error = "line " + std::to_string(number) + ": " + why;
            return false;
        }
        inKey = inKey || (!entries.empty() && entries.back().isKey);
    }
    if (number == 0) error = std::string("line 1: empty file; the first line must be '") + kHeader + "'";
    return number > 0;
}

std::u16string textOf(const std::string& data) {
    std::u16string text(data.size() / 2, u'\0');
    std::memcpy(&text[0], data.data(), text.size() * 2);
    if (!text.empty() && text.back() == 0) text.pop_back();
    return text;
}

uint32_t numberOf(const std::string& data) {
    uint32_t number = 0;
    std::memcpy(&number, data.data(), std::min(data.size(), sizeof number));
    return number;
}

std::string textData(const std::u16string& text) {
    std::string data(text.size() * 2 + 2, '\0');
    std::memcpy(&data[0], text.data(), text.size() * 2);
    return data;
}

std::string numberData(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string printable(const std::u16string& text) {
    std::string out;
    for (size_t i = 0; i < text.size();) i += appendUnit(text, i, "\\u", out);
    return out;
}

}  // namespace lumrxreg
