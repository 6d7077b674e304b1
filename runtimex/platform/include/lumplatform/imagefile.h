// What an image file says about itself, read from the file without loading it: its
// kind and machine as the loader's probe sees them, and for an ELF shared object of this
// process's format the libraries it needs, its run paths and the symbols it exports.
// Every read is bounds-checked against the file; a damaged file gives what could be
// read, never more.
#pragma once

#include <string>
#include <vector>

namespace lumplatform {

enum class ImageKind { kNone, kElf, kPe };

struct ImageFileFacts {
    bool readable = false;  // a regular file that could be opened
    ImageKind kind = ImageKind::kNone;
    unsigned machine = 0;  // the word probeImageMachine gives; 0 if unknown
    // ELF only, from the header in the file's own byte order.
    unsigned elfMachine = 0;  // e_machine
    unsigned elfType = 0;     // e_type: 1 object file, 2 program, 3 shared object, 4 core
    bool elfOwnLayout = false;  // the class (32 or 64-bit) and byte order of this process
    bool elfProgram = false;    // a program: e_type 2, or a position-independent one (DF_1_PIE)
    // The loader's own test (isLoadableImage): it would hand the file to the system.
    bool loadable = false;
    // From the dynamic section and dynamic symbol table of a file of the own layout, as
    // the section table places them. $ORIGIN in a run path is the file's folder.
    std::vector<std::u16string> needed;   // DT_NEEDED, in the file's order
    std::vector<std::u16string> rpath;    // DT_RPATH folders
    std::vector<std::u16string> runpath;  // DT_RUNPATH folders
    std::vector<std::string> exports;     // defined global and weak dynamic symbols
};

ImageFileFacts readImageFile(const std::u16string& path);

// Where the dynamic loader finds the library `name` that the image `facts` needs: an object of that name already mapped in this process, a name with
// a '/' as it is, then the image's DT_RPATH (only without DT_RUNPATH), LD_LIBRARY_PATH,
// its DT_RUNPATH, the folders of /etc/ld.so.conf and the system's library folders; only
// a file of this process's format counts. Empty if it is nowhere.
std::u16string resolveLibrary(const ImageFileFacts& facts, const std::u16string& name);

}  // namespace lumplatform
