// Hostile image files through the header probe: any bytes, as a file named like a
// module. The probe must give one of the machine words it knows, or 0, and nothing else.
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

const std::string& imageFile() {
    static std::string path = [] {
        char folder[] = "/tmp/lumrx-imagefuzz-XXXXXX";
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
    unsigned machine = lumplatform::probeImageMachine(lumplatform::fromUtf8(imageFile()));
    // A PE header may name any machine word; an ELF one only those the probe maps.
    bool pe = size >= 2 && data[0] == 'M' && data[1] == 'Z';
    if (!pe && machine != 0 && machine != lumplatform::kMachineAmd64 &&
        machine != lumplatform::kMachineI386 && machine != lumplatform::kMachineArm64)
        std::abort();
    if (machine > 0xFFFF) std::abort();
    return 0;
}
