// Hostile image files through the header probe: any bytes, as a file named like a
// module. The probe must give one of the machine words it knows, or 0, and nothing else.
#include "fuzzimagefile.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string path = fuzzimage::write(data, size);
    unsigned machine = lumplatform::probeImageMachine(lumplatform::fromUtf8(path));
    // A PE header may name any machine word; an ELF one only those the probe maps.
    bool pe = size >= 2 && data[0] == 'M' && data[1] == 'Z';
    if (!pe && machine != 0 && machine != lumplatform::kMachineAmd64 &&
        machine != lumplatform::kMachineI386 && machine != lumplatform::kMachineArm64)
        std::abort();
    if (machine > 0xFFFF) std::abort();
    return 0;
}
