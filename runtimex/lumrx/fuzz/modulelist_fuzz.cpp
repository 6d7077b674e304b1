// Hostile module list files through the linker's list reader: any bytes as the file,
// comments, blank and over-long lines, no line end at all. No name is found by the
// host, so every line that isn't a comment makes the result false, and nothing loads.
#include "kvdbhostappservices.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

// Finds the list file only; every other name is unknown.
class ListHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t* out, int outSize, const char16_t* name, void*, int) override {
        if (std::u16string(name) != u"modules.lst" || int(listPath.size()) >= outSize) return -1;
        std::memcpy(out, listPath.c_str(), (listPath.size() + 1) * sizeof(char16_t));
        return 0;
    }
    void fatalError(const char16_t*) override { std::abort(); }
    void displayMessage(const char16_t*, int) override {}
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return u"Software\\Lumora\\ListFuzz"; }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return nullptr; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return -1; }
    std::u16string listPath;
};

ListHost& host() {
    static ListHost* h = [] {
        char folder[] = "/tmp/lumrx-listfuzz-XXXXXX";
        if (!mkdtemp(folder)) std::abort();
        std::string dir = folder;
        setenv("LUMRX_REGISTRY_USER", (dir + "/user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (dir + "/machine.db").c_str(), 1);
        InitializeKvRxSystem();
        auto* made = new ListHost;
        made->listPath = lumplatform::fromUtf8(dir + "/modules.lst");
        kvdbSetHostApplicationServices(made);
        return made;
    }();
    return *h;
}

// True if some line, after the white space a line read skips, is no comment.
bool hasModuleLine(const std::string& text) {
    size_t pos = 0;
    while (true) {
        while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos]))) ++pos;
        if (pos == text.size()) return true;  // the last, empty line
        if (text[pos] != ';' && text.compare(pos, 2, "//") != 0) return true;
        pos = text.find('\n', pos);
        if (pos == std::string::npos) return false;
        ++pos;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ListHost& h = host();
    std::string text(reinterpret_cast<const char*>(data), size);
    FILE* file = std::fopen(lumplatform::toUtf8(h.listPath).c_str(), "wb");
    if (!file) std::abort();
    if (size && std::fwrite(data, 1, size, file) != size) std::abort();
    std::fclose(file);
    auto* linker = KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    bool result = linker->loadListedModules(u"modules.lst");
    if (result == hasModuleLine(text)) std::abort();
    if (linker->loadedModuleCount() != 0) std::abort();
    return 0;
}
