// The file that the image fuzz targets hand to a reader taking a path: one file named
// like a module, in a folder of its own under /tmp made at the first input, written
// anew with each input. The folder goes when the process exits normally.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace fuzzimage {

// The folder's name lives in a plain array, so the exit handler never reads an object
// that is already destroyed.
inline const char* folder() {
    static char name[] = "/tmp/lumrx-imagefuzz-XXXXXX";
    static const bool made = [] {
        if (!mkdtemp(name)) std::abort();
        std::atexit([] {
            unlink((std::string(name) + "/image.krx").c_str());
            rmdir(name);
        });
        return true;
    }();
    (void)made;
    return name;
}

// Writes `data` as the image file and gives its path.
inline std::string write(const uint8_t* data, size_t size) {
    std::string path = std::string(folder()) + "/image.krx";
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) std::abort();
    if (size && std::fwrite(data, 1, size, file) != size) std::abort();
    std::fclose(file);
    return path;
}

}  // namespace fuzzimage
