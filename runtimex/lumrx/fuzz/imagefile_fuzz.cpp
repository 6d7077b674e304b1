// Hostile image files through the file reader of lumrx-inspect: any bytes, as a file
// named like a module. Whatever they say, the reader stays inside the file and gives
// only names that are there: no empty names, exports and needed names only from an ELF
// file of this process's layout, and a loadable verdict only for a shared object.
#include "lumplatform/imagefile.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

const std::string& imageFile() {
    static std::string path = [] {
        char folder[] = "/tmp/lumrx-imagefilefuzz-XXXXXX";
        if (!mkdtemp(folder)) std::abort();
        return std::string(folder) + "/image.krx";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(imageFile().c_str(), "wb");
    if (!file) std::abort();
    if (size && std::fwrite(data, 1, size, file) != size) std::abort();
    std::fclose(file);
    using lumplatform::ImageKind;
    lumplatform::ImageFileFacts facts = lumplatform::readImageFile(lumplatform::fromUtf8(imageFile()));
    if (!facts.readable) std::abort();
    bool ownElf = facts.kind == ImageKind::kElf && facts.elfOwnLayout;
    if (!ownElf && !(facts.exports.empty() && facts.needed.empty() && facts.runpath.empty())) std::abort();
    if (facts.loadable && (facts.kind != ImageKind::kElf || facts.elfType != 3 || facts.elfProgram)) std::abort();
    for (const std::string& name : facts.exports)
        if (name.empty() || name.size() >= size) std::abort();
    for (const std::u16string& name : facts.needed)
        if (name.empty() || name.size() >= size) std::abort();
    return 0;
}
