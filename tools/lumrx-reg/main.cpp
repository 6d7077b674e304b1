// lumrx-reg: the system's registry from the command line, in the manner of the
// Windows `reg` tool, for integrators and installers that write application records.
// Usage and the file format: README.md. Exit status: 0 success, 1 a failure, 2 a
// command line that can't be understood; messages go to standard error.
#include "regfile.h"

#include "lumplatform/registry.h"
#include "lumplatform/text.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <vector>

using namespace lumplatform;

namespace lumrxreg {
namespace {

const char* const kUsage =
    "usage: lumrx-reg [--hive user|machine] COMMAND ...\n"
    "  query KEY [/v NAME | /ve] [/s]   show a key's values and sub-keys; /s: the whole tree\n"
    "  add KEY [/v NAME | /ve] [/t REG_SZ|REG_DWORD] [/d DATA]\n"
    "                                   make a key; with /v or /ve, set a value in it\n"
    "  delete KEY [/v NAME | /ve] [/f]  delete a value, or a key without sub-keys; /f: a whole tree\n"
    "  export FILE [KEY]                write a key's tree (default: the whole hive) to FILE\n"
    "  import FILE                      write the keys and values of FILE, all or nothing\n"
    "KEY is key names joined by '\\', such as \\Lumora\\Applications\\MyApp. The hive is the\n"
    "user's unless --hive machine is given. /ve names the value with the empty name.\n";

// Ends the program with a message on standard error.
struct Failure {
    std::string message;
    int exitCode;
};

[[noreturn]] void usageError(const std::string& message) {
    throw Failure{message + "\n" + kUsage, 2};
}

struct Options {
    RegistryHive hive = RegistryHive::user;
    std::string command;
    std::vector<std::string> operands;
    bool tree = false;      // /s for query, /f for delete
    bool hasName = false;   // /v NAME or /ve
    std::u16string name;
    bool hasType = false;
    uint32_t type = kRegistryString;
    bool hasData = false;
    std::string data;
};

std::string hiveName(RegistryHive hive) {
    return hive == RegistryHive::user ? "user" : "machine";
}

std::string statusText(RegistryStatus s, RegistryHive hive) {
    std::string file = toUtf8(registryHivePath(hive));
    std::string text;
    switch (s) {
    case kRegistryNotFound: text = "not found"; break;
    case kRegistryAccessDenied: text = "access denied (the " + hiveName(hive) + " hive " + file + " may not be written, or the key has sub-keys)"; break;
    case kRegistryOutOfMemory: text = "out of memory"; break;
    case kRegistryInvalidArgument: text = "refused: a name too long or a path too deep"; break;
    case kRegistryCorrupt: text = "the hive file " + file + " is no registry database or is damaged; it was left as it is"; break;
    case kRegistryIoError: text = "the hive file " + file + " can't be opened or written, or stays busy"; break;
    case kRegistryKeyDeleted: text = "the key was deleted meanwhile"; break;
    default: text = "failed"; break;
    }
    return text + " (status " + std::to_string(unsigned(s)) + ")";
}

class Tool {
public:
    explicit Tool(Options options) : m_o(std::move(options)) {}
    void run();

private:
    void check(RegistryStatus s, const std::string& what) const {
        if (s != kRegistryOk) throw Failure{what + ": " + statusText(s, m_o.hive), 1};
    }
    void query();
    void add();
    void remove();
    void exportTree();
    void importFile();
    void printKey(RegistryKey& key, const std::u16string& path);
    void exportKey(RegistryKey& key, const std::u16string& path, std::ostream& out);
    void deleteChildren(RegistryKey& key, const std::u16string& path);
    std::vector<std::u16string> subKeysOf(RegistryKey& key, const std::u16string& path);
    std::vector<Value> valuesOf(RegistryKey& key, const std::u16string& path);
    std::u16string storedPath(const std::vector<std::u16string>& names);

    Options m_o;
};

// A key path in the form the tool shows and writes: names joined by '\', after a '\'.
std::u16string canonical(const std::u16string& path, std::vector<std::u16string>* names = nullptr) {
    std::u16string out, name;
    for (char16_t c : path + u"\\") {
        if (c != u'\\') {
            name.push_back(c);
            continue;
        }
        if (name.empty()) continue;
        out += u"\\" + name;
        if (names) names->push_back(name);
        name.clear();
    }
    return out.empty() ? u"\\" : out;
}

std::u16string child(const std::u16string& path, const std::u16string& name) {
    return path == u"\\" ? path + name : path + u"\\" + name;
}

std::string shown(const std::u16string& path) {
    return printable(path);
}

std::string valueShown(const Value& value) {
    std::string name = value.name.empty() ? "(Default)" : printable(value.name);
    if (value.type == kRegistryNumber) {
        char number[16];
        std::snprintf(number, sizeof number, "0x%x", numberOf(value.data));
        return "    " + name + "    REG_DWORD    " + number;
    }
    return "    " + name + "    REG_SZ    " + printable(textOf(value.data));
}

// A number in decimal, or in hex after "0x".
bool parseNumber(const std::string& text, uint32_t& number) {
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > 10) return false;
    unsigned long long value = 0;
    for (char c : digits) {
        int digit = c >= '0' && c <= '9' ? c - '0' : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10
                  : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0) return false;
        value = value * (hex ? 16 : 10) + unsigned(digit);
    }
    number = uint32_t(value);
    return value <= 0xFFFFFFFFull;
}

void Tool::run() {
    if (m_o.command == "query") query();
    else if (m_o.command == "add") add();
    else if (m_o.command == "delete") remove();
    else if (m_o.command == "export") exportTree();
    else importFile();
}

// Lists by index; a name longer than the key info promised (written meanwhile) gets a
// larger buffer.
std::vector<std::u16string> Tool::subKeysOf(RegistryKey& key, const std::u16string& path) {
    RegistryKeyInfo info;
    check(key.info(info), "can't read " + shown(path));
    std::vector<char16_t> buffer(info.longestSubKeyName + 1);
    std::vector<std::u16string> names;
    for (uint32_t index = 0;;) {
        uint32_t length = uint32_t(buffer.size());
        RegistryStatus s = key.subKeyAt(index, buffer.data(), &length);
        if (s == kRegistryNoMoreItems) return names;
        if (s == kRegistryMoreData) {
            buffer.resize(length + 1);
            continue;
        }
        check(s, "can't list the sub-keys of " + shown(path));
        names.emplace_back(buffer.data(), length);
        ++index;
    }
}

std::vector<Value> Tool::valuesOf(RegistryKey& key, const std::u16string& path) {
    RegistryKeyInfo info;
    check(key.info(info), "can't read " + shown(path));
    std::vector<char16_t> name(info.longestValueName + 1);
    std::string data(info.longestValueData, '\0');
    std::vector<Value> values;
    for (uint32_t index = 0;;) {
        Value value;
        uint32_t nameLength = uint32_t(name.size()), size = uint32_t(data.size());
        RegistryStatus s = key.valueAt(index, name.data(), &nameLength, &value.type, &data[0], &size);
        if (s == kRegistryNoMoreItems) return values;
        if (s == kRegistryMoreData) {
            name.resize(nameLength + 1);
            data.resize(size);
            continue;
        }
        check(s, "can't list the values of " + shown(path));
        value.name.assign(name.data(), nameLength);
        value.data.assign(data, 0, size);
        values.push_back(std::move(value));
        ++index;
    }
}

bool sameFolded(const std::u16string& a, const std::u16string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (foldCaseUnit(a[i]) != foldCaseUnit(b[i])) return false;
    return true;
}

// The path with each name in the case the hive keeps, which the key's parent lists.
std::u16string Tool::storedPath(const std::vector<std::u16string>& names) {
    std::u16string path = u"\\";
    for (const std::u16string& name : names) {
        RegistryKey parent;
        check(parent.open(m_o.hive, path.c_str(), RegistryAccess::read), "can't open " + shown(path));
        std::u16string stored = name;
        for (const std::u16string& listed : subKeysOf(parent, path))
            if (sameFolded(listed, name)) stored = listed;
        path = child(path, stored);
    }
    return path;
}

void Tool::query() {
    std::vector<std::u16string> names;
    canonical(fromUtf8(m_o.operands[0]), &names);
    std::u16string path = storedPath(names);
    RegistryKey key;
    check(key.open(m_o.hive, path.c_str(), RegistryAccess::read), "can't open " + shown(path));
    if (!m_o.hasName) return printKey(key, path);
    Value value;
    value.name = m_o.name;
    uint32_t size = 0;
    std::string what = "can't read the value \"" + printable(m_o.name) + "\" of " + shown(path);
    check(key.readValue(value.name.c_str(), &value.type, nullptr, &size), what);
    value.data.resize(size);
    check(key.readValue(value.name.c_str(), &value.type, &value.data[0], &size), what);
    std::cout << shown(path) << "\n" << valueShown(value) << "\n";
}

void Tool::printKey(RegistryKey& key, const std::u16string& path) {
    std::cout << shown(path) << "\n";
    for (const Value& value : valuesOf(key, path)) std::cout << valueShown(value) << "\n";
    std::vector<std::u16string> names = subKeysOf(key, path);
    if (m_o.tree) std::cout << "\n";
    for (const std::u16string& name : names) {
        std::u16string below = child(path, name);
        if (!m_o.tree) {
            std::cout << shown(below) << "\n";
            continue;
        }
        RegistryKey sub;
        check(sub.open(m_o.hive, below.c_str(), RegistryAccess::read), "can't open " + shown(below));
        printKey(sub, below);
    }
}

void Tool::add() {
    std::u16string path = canonical(fromUtf8(m_o.operands[0]));
    RegistryKey key;
    check(key.create(m_o.hive, path.c_str()), "can't make " + shown(path));
    if (!m_o.hasName) return;
    std::string data;
    if (m_o.type == kRegistryString) {
        data = textData(fromUtf8(m_o.data));
    } else {
        uint32_t number = 0;
        if (!parseNumber(m_o.hasData ? m_o.data : "0", number))
            throw Failure{"/d " + m_o.data + ": a REG_DWORD takes 0 to 4294967295, or 0x0 to 0xffffffff", 2};
        data = numberData(number);
    }
    check(key.writeValue(m_o.name.c_str(), m_o.type, data.data(), uint32_t(data.size())),
          "can't set the value \"" + printable(m_o.name) + "\" of " + shown(path));
}

void Tool::remove() {
    std::vector<std::u16string> names;
    std::u16string path = canonical(fromUtf8(m_o.operands[0]), &names);
    if (m_o.hasName) {
        RegistryKey key;
        check(key.open(m_o.hive, path.c_str(), RegistryAccess::write), "can't open " + shown(path));
        check(key.deleteValue(m_o.name.c_str()), "can't delete the value \"" + printable(m_o.name) + "\" of " + shown(path));
        return;
    }
    if (names.empty()) throw Failure{"won't delete the root of the hive", 1};
    std::u16string parentPath = path.substr(0, path.size() - names.back().size());
    RegistryKey parent;
    check(parent.open(m_o.hive, parentPath.c_str(), RegistryAccess::write), "can't open " + shown(parentPath));
    RegistryBatch batch;
    if (m_o.tree) {
        // The tree goes whole or not at all.
        check(batch.begin(m_o.hive), "can't write the " + hiveName(m_o.hive) + " hive");
        RegistryKey key;
        check(key.open(m_o.hive, path.c_str(), RegistryAccess::write), "can't open " + shown(path));
        deleteChildren(key, path);
    }
    RegistryStatus s = parent.deleteSubKey(names.back().c_str());
    RegistryKeyInfo info;
    RegistryKey key;
    if (s == kRegistryAccessDenied && key.open(m_o.hive, path.c_str(), RegistryAccess::read) == kRegistryOk &&
        key.info(info) == kRegistryOk && info.subKeys > 0)
        throw Failure{shown(path) + " has sub-keys; add /f to delete the whole tree", 1};
    check(s, "can't delete " + shown(path));
    if (m_o.tree) check(batch.commit(), "can't delete " + shown(path));
}

void Tool::deleteChildren(RegistryKey& key, const std::u16string& path) {
    for (const std::u16string& name : subKeysOf(key, path)) {
        std::u16string below = child(path, name);
        RegistryKey sub;
        check(sub.open(m_o.hive, below.c_str(), RegistryAccess::write), "can't open " + shown(below));
        deleteChildren(sub, below);
        check(key.deleteSubKey(name.c_str()), "can't delete " + shown(below));
    }
}

// Written beside the file and renamed over it at the end, so that a failure never
// leaves half a file.
void Tool::exportTree() {
    std::string file = m_o.operands[0];
    std::vector<std::u16string> names;
    canonical(m_o.operands.size() > 1 ? fromUtf8(m_o.operands[1]) : u"", &names);
    std::u16string path = storedPath(names);
    RegistryKey key;
    check(key.open(m_o.hive, path.c_str(), RegistryAccess::read), "can't open " + shown(path));
    std::string temporary = file + ".lumrx-reg-tmp";
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out) throw Failure{"can't write " + temporary, 1};
    out << kHeader << "\n";
    try {
        exportKey(key, path, out);
    } catch (const Failure&) {
        out.close();
        std::remove(temporary.c_str());
        throw;
    }
    out.close();
    if (!out || std::rename(temporary.c_str(), file.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw Failure{"can't write " + file, 1};
    }
}

void Tool::exportKey(RegistryKey& key, const std::u16string& path, std::ostream& out) {
    out << "\n" << keyLine(path) << "\n";
    for (const Value& value : valuesOf(key, path)) out << valueLine(value) << "\n";
    for (const std::u16string& name : subKeysOf(key, path)) {
        std::u16string below = child(path, name);
        RegistryKey sub;
        check(sub.open(m_o.hive, below.c_str(), RegistryAccess::read), "can't open " + shown(below));
        exportKey(sub, below, out);
    }
}

// The whole file is read first, then written in one batch: a refused line leaves the
// hive as it was.
void Tool::importFile() {
    std::string file = m_o.operands[0];
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Failure{"can't read " + file, 1};
    std::vector<Entry> entries;
    std::string error;
    if (!parseFile(in, entries, error)) throw Failure{file + ": " + error + "; nothing was imported", 1};
    RegistryBatch batch;
    check(batch.begin(m_o.hive), "can't write the " + hiveName(m_o.hive) + " hive");
    RegistryKey key;
    for (const Entry& e : entries) {
        const Value& v = e.value;
        RegistryStatus s = e.isKey ? key.create(m_o.hive, e.path.c_str())
                                   : key.writeValue(v.name.c_str(), v.type, v.data.data(), uint32_t(v.data.size()));
        check(s, file + ": line " + std::to_string(e.line) + ": nothing was imported");
    }
    key.close();
    check(batch.commit(), file + ": nothing was imported");
}

bool isSwitch(const std::string& option) {
    for (const char* known : {"/v", "/ve", "/s", "/t", "/d", "/f"})
        if (option == known) return true;
    return false;
}

// The switches each command takes.
bool allowed(const std::string& command, const std::string& option) {
    if (option == "/v" || option == "/ve") return command == "query" || command == "add" || command == "delete";
    if (option == "/s") return command == "query";
    if (option == "/t" || option == "/d") return command == "add";
    if (option == "/f") return command == "delete";
    return false;
}

std::string lowered(std::string text) {
    for (char& c : text) c = char(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

Options parseArguments(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i], option = lowered(arg);
        bool needsValue = option == "--hive" || option == "/v" || option == "/t" || option == "/d";
        if (needsValue && i + 1 >= argc) usageError(arg + " needs a value");
        std::string value = needsValue ? argv[++i] : "";
        if (option == "--hive") {
            if (value != "user" && value != "machine") usageError("--hive takes user or machine");
            o.hive = value == "user" ? RegistryHive::user : RegistryHive::machine;
        } else if (o.command.empty() && !isSwitch(option)) {
            o.command = arg;
            if (arg != "query" && arg != "add" && arg != "delete" && arg != "export" && arg != "import")
                usageError("unknown command " + arg);
        } else if (isSwitch(option) && !allowed(o.command, option)) {
            usageError(arg + " doesn't go with " + (o.command.empty() ? "no command" : o.command));
        } else if (option == "/v" || option == "/ve") {
            if (o.hasName) usageError("give one of /v and /ve, once");
            o.hasName = true;
            o.name = fromUtf8(value);
        } else if (option == "/t") {
            std::string type = lowered(value);
            if (type != "reg_sz" && type != "reg_dword") usageError("/t takes REG_SZ or REG_DWORD");
            o.hasType = true;
            o.type = type == "reg_sz" ? kRegistryString : kRegistryNumber;
        } else if (option == "/d") {
            o.hasData = true;
            o.data = value;
        } else if (option == "/s" || option == "/f") {
            o.tree = true;
        } else {
            o.operands.push_back(arg);
        }
    }
    return o;
}

void checkOperands(const Options& o) {
    size_t least = 1, most = o.command == "export" ? 2 : 1;
    if (o.command.empty()) usageError("no command given");
    if (o.operands.size() < least || o.operands.size() > most)
        usageError(o.command + " takes " + (most == 2 ? "FILE [KEY]" : o.command == "import" ? "FILE" : "KEY"));
    if ((o.hasType || o.hasData) && !o.hasName) usageError("/t and /d need /v NAME or /ve");
}

}  // namespace
}  // namespace lumrxreg

int main(int argc, char** argv) {
    using namespace lumrxreg;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h" || arg == "/?") {
            std::cout << kUsage;
            return 0;
        }
    }
    try {
        Options options = parseArguments(argc, argv);
        checkOperands(options);
        Tool(std::move(options)).run();
        return 0;
    } catch (const Failure& failure) {
        std::cerr << "lumrx-reg: " << failure.message << "\n";
        return failure.exitCode;
    } catch (const std::exception& e) {
        std::cerr << "lumrx-reg: " << e.what() << "\n";
        return 1;
    }
}
