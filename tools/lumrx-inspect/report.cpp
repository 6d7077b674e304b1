#include "report.h"

#include <cstdio>

namespace lumrxinspect {

namespace {

std::string yesNo(bool value) { return value ? "yes" : "no"; }

std::string hexVersion(uint32_t version) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", unsigned(version));
    return text;
}

// "name" lines under a heading, or the heading with "none".
void appendList(std::string& out, const std::string& heading, const std::vector<std::string>& items) {
    if (items.empty()) out += "  " + heading + ": none\n";
    for (const std::string& item : items) out += "  " + heading + ": " + item + "\n";
}

// The length of the well-formed UTF-8 sequence at `at` (no overlong forms, surrogates
// or values above U+10FFFF), 0 if there is none.
size_t utf8Sequence(const std::string& text, size_t at) {
    auto byte = [&](size_t i) { return i < text.size() ? (unsigned char)text[i] : 0u; };
    unsigned lead = byte(at);
    size_t length = lead < 0x80 ? 1 : lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                  : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    unsigned second = byte(at + 1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F))
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    return length;
}

// A JSON string; bytes that aren't UTF-8 (a file name may hold any) become U+FFFD.
std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (size_t at = 0; at < text.size();) {
        unsigned char c = (unsigned char)text[at];
        size_t length = utf8Sequence(text, at);
        if (length == 0) {
            out += "\\ufffd";
            length = 1;
        } else if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
        } else {
            out.append(text, at, length);
        }
        at += length;
    }
    return out + "\"";
}

std::string jsonBool(bool value) { return value ? "true" : "false"; }

std::string jsonArray(const std::vector<std::string>& items) {
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + jsonString(items[i]);
    return out + "]";
}

std::string jsonModules(const std::vector<NeededModule>& modules) {
    std::string out = "[";
    for (size_t i = 0; i < modules.size(); ++i)
        out += std::string(i ? "," : "") + "{\"name\":" + jsonString(modules[i].name) + ",\"path\":" +
               (modules[i].path.empty() ? "null" : jsonString(modules[i].path)) + "}";
    return out + "]";
}

std::string jsonLoad(const LoadReport& load) {
    return "{\"loaded\":" + jsonBool(load.loaded) +
           ",\"apiVersion\":" + (load.versionKnown ? jsonString(hexVersion(load.apiVersion)) : "null") +
           ",\"firstMessage\":" + jsonString(load.firstMessage) + ",\"classes\":" + jsonArray(load.classes) +
           ",\"services\":" + jsonArray(load.services) + ",\"messages\":" + jsonArray(load.messages) + "}";
}

}  // namespace

std::string textReport(const Inspection& in) {
    std::string out = in.file + ": " + (in.loadable ? "loadable module" : "not a loadable module: " + in.reason) + "\n";
    out += "  image: " + in.image + "\n";
    if (!in.machine.empty())
        out += "  machine: " + in.machine + (in.sameMachine ? " (this machine)" : " (this machine: " + in.thisMachine + ")") + "\n";
    out += "  exports kvrxGetApiVersion: " + yesNo(in.exportsApiVersion) + "\n";
    out += "  exports kvrxEntryPoint: " + yesNo(in.exportsEntryPoint) + "\n";
    std::vector<std::string> modules;
    for (const NeededModule& m : in.modules) modules.push_back(m.name + " -> " + (m.path.empty() ? "missing" : m.path));
    appendList(out, "needs module", modules);
    appendList(out, "unresolved library", in.unresolved);
    const LoadReport& load = in.load;
    if (!load.attempted) return out;
    out += "  load: " + std::string(load.loaded ? "loaded and unloaded" : "refused") + "\n";
    out += "  api version: " + (load.versionKnown ? hexVersion(load.apiVersion) : std::string("unknown")) + "\n";
    out += "  first message: " + load.firstMessage + "\n";
    appendList(out, "class", load.classes);
    appendList(out, "service", load.services);
    appendList(out, "message", load.messages);
    return out;
}

std::string jsonReport(const Inspection& in) {
    std::string out = "{\"file\":" + jsonString(in.file) + ",\"loadable\":" + jsonBool(in.loadable) +
                      ",\"reason\":" + (in.loadable ? "null" : jsonString(in.reason)) +
                      ",\"image\":" + jsonString(in.image) +
                      ",\"machine\":" + (in.machine.empty() ? "null" : jsonString(in.machine)) +
                      ",\"thisMachine\":" + jsonString(in.thisMachine) + ",\"sameMachine\":" + jsonBool(in.sameMachine) +
                      ",\"exports\":{\"kvrxGetApiVersion\":" + jsonBool(in.exportsApiVersion) +
                      ",\"kvrxEntryPoint\":" + jsonBool(in.exportsEntryPoint) + "}" +
                      ",\"modules\":" + jsonModules(in.modules) + ",\"unresolvedLibraries\":" + jsonArray(in.unresolved);
    if (in.load.attempted) out += ",\"load\":" + jsonLoad(in.load);
    return out + "}";
}

}  // namespace lumrxinspect
