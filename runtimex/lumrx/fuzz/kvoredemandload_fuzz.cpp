// The demand-load scan over hostile application records: the input is a little program
// of registry writes into temporary hives, before and after the lists are set up; then
// the command names and values written (the first sixteen) are looked up, alone and
// behind each other as a group.
//
// Input: items, each a tag byte and its fields. A text is a count byte and that many
// UTF-16LE units; a number is 4 bytes. Tag bit 0x40 writes to the machine hive, bit
// 0x80 swaps the value's type (text for number and the other way round).
//   tag % 6 == 0  record: text, the key name that the next items write under
//              1  LOADCTRLS: number      2  LOADER: text
//              3  group: text name, text data     4  command: text name, text data
//              5  set up the lists now (later items are written after set-up)
#include "kvdbhostappservices.h"
#include "kvoreappinfo.h"
#include "kvrxruntime.h"
#include "lumplatform/registry.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

using namespace lumplatform;
namespace fs = std::filesystem;

namespace {

class FuzzHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t*, int, const char16_t*, void*, int) override { return -1; }
    void fatalError(const char16_t*) override { std::abort(); }
    void displayMessage(const char16_t*, int) override {}
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return u"Software\\Fuzz"; }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return nullptr; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return -1; }
};

char gFolder[4096];  // the hives' folder, one per process, removed at exit

void tearDown() {
    UninitializeKvRxSystem();
    std::error_code ignored;
    fs::remove_all(gFolder, ignored);
}

fs::path hiveFolder() {
    if (!*gFolder) {
        fs::path dir = fs::temp_directory_path() / ("kvoredemandload-fuzz-" + std::to_string(getpid()));
        fs::create_directories(dir);
        std::snprintf(gFolder, sizeof gFolder, "%s", dir.c_str());
        setenv("LUMRX_REGISTRY_USER", (dir / "user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (dir / "machine.db").c_str(), 1);
        static FuzzHost host;
        kvdbSetHostApplicationServices(&host);
        InitializeKvRxSystem();
        std::atexit(tearDown);
    }
    return gFolder;
}

class Input {
public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    bool done() const { return m_at >= m_size; }
    uint8_t byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    uint32_t number() {
        uint32_t n = 0;
        for (int i = 0; i < 4; ++i) n |= uint32_t(byte()) << (8 * i);
        return n;
    }
    std::u16string text() {
        std::u16string t;
        for (int n = byte(); n > 0 && !done(); --n) t += char16_t(byte() | byte() << 8);
        return t;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};

void write(RegistryHive hive, const std::u16string& key, const std::u16string& name, bool asText,
           const std::u16string& text, uint32_t number) {
    RegistryKey k;
    if (k.create(hive, key.c_str()) != kRegistryOk) return;
    if (asText) k.writeValue(name.c_str(), kRegistryString, text.c_str(), uint32_t(text.size() + 1) * 2);
    else k.writeValue(name.c_str(), kRegistryNumber, &number, 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fs::path folder = hiveFolder();
    fs::remove(folder / "user.db");
    fs::remove(folder / "machine.db");
    const std::u16string apps = u"Software\\Fuzz\\Applications\\";
    std::u16string record = apps + u"App";
    std::vector<std::u16string> names;
    Input in(data, size);
    bool setUp = false;
    while (!in.done()) {
        uint8_t tag = in.byte();
        RegistryHive hive = (tag & 0x40) ? RegistryHive::machine : RegistryHive::user;
        bool swap = tag & 0x80;
        switch (tag % 6) {
        case 0:
            record = apps + in.text();
            break;
        case 1:
            write(hive, record, u"LOADCTRLS", swap, u"4", in.number());
            break;
        case 2: {
            std::u16string loader = in.text();
            write(hive, record, u"LOADER", !swap, loader, uint32_t(loader.size()));
            break;
        }
        case 3:
        case 4: {
            std::u16string name = in.text(), value = in.text();
            write(hive, record + (tag % 6 == 3 ? u"\\Groups" : u"\\Commands"), name, !swap, value, 1);
            if (names.size() < 16) {
                names.push_back(name);
                names.push_back(value);
            }
            break;
        }
        case 5:
            if (!setUp) setUp = initDemandLoadKrxList();
            break;
        }
    }
    initDemandLoadKrxList();
    reLoadKrxListFromRegisterIfModified();
    reLoadKrxListFromRegisterIfModified();
    KvArray<KvoreRegisterKrxInfo*> found;
    for (const std::u16string& name : names) {
        for (const std::u16string& group : names) {
            std::u16string dotted = group + u"." + name;
            getRegisterKrxAppInfoList(dotted.c_str(), found, false);
        }
        bool plain = name.find(u'.') == std::u16string::npos;
        if (getRegisterKrxAppInfoList(name.c_str(), found, true) && plain)
            for (int i = 0; i < found.length(); ++i)
                if (!found[i]->findCommand(nullptr, name.c_str()) ||
                    !(found[i]->loadReason() & KvoreApp::kFlaggedForDemandLoad))
                    std::abort();
    }
    KvArray<const char16_t*> commandNames, commandValues;
    if (!getAllRegisterKrxAppCommandList(commandNames, commandValues) ||
        commandNames.length() != commandValues.length())
        std::abort();
    uninitDemandLoadKrxList();
    return 0;
}
