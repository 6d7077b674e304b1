// Hostile image files through the file reader of lumrx-inspect: any bytes, as a file
// named like a module. Whatever they say, the reader stays inside the file and gives
// only names that are there: no empty names, exports and needed names only from an ELF
// file of this process's layout, and a loadable verdict only for a shared object.
#include "fuzzimagefile.h"
#include "lumplatform/imagefile.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string path = fuzzimage::write(data, size);
    using lumplatform::ImageKind;
    lumplatform::ImageFileFacts facts = lumplatform::readImageFile(lumplatform::fromUtf8(path));
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
