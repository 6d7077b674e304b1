// Module images: opening with a reason for failure, asking for an image already
// mapped, its path and static dependencies, the file search and the header probe.
// Handles are those of library.h: librarySymbol and closeLibrary work on them.
#pragma once

#include <string>
#include <vector>

namespace lumplatform {

constexpr int kImageMissing = 126;   // the file or one of its dependencies is missing
constexpr int kImageNotLoadable = 193;  // the file is no loadable image for this process
constexpr int kNotItsFullName = -2;  // the name is not the file's own full name

// Opens the image at `path` and runs its static initialisers. On failure the result is
// null and `error` is kImageMissing or kImageNotLoadable; on success `error` is 0.
void* openImage(const std::u16string& path, int& error);
// As openImage, for an absolute `path`: the process's current directory is the image's
// folder while the system loads it, so that its static initialisers run there and names
// relative to the folder resolve in it, and it is set back afterwards, whatever the
// outcome. A current directory that can't be read is not set back. Any other name is
// opened as openImage does.
void* openImageInFolder(const std::u16string& path, int& error);
// As openImageInFolder, for a `path` taken to be the image's own full name (what
// fullPathName would give): the image is opened only if `path` is absolute and normal,
// the current directory can be read, the folder is reached without links and the file
// is a regular file, no link, under its name there. Else nothing is opened, the
// current directory is as it was and `error` is kNotItsFullName.
void* openImageAsFullName(const std::u16string& path, int& error);
// True if openImage would hand the file at `path` to the system: an ELF shared object of
// this process's format whose mapped segments lie inside the file.
bool isLoadableImage(const std::u16string& path);
// The handle of the image at `path` if the process has it mapped, else null. Adds no
// reference.
void* mappedImage(const std::u16string& path);
// The file the image of `handle` was mapped from; empty if unknown.
std::u16string imagePath(void* handle);
// One dependency an image was linked against.
struct ImageDependency {
    std::u16string name;  // as the image gives it
    std::u16string path;  // full path of the object mapped for it; `name` if none is
};
// The image's own dependencies, in the image's order; with `suffix`, only those whose
// name ends in it (any case), so that the others cost no look-up.
std::vector<ImageDependency> imageDependencies(void* handle, const char* suffix = nullptr);

// Finds a file: a name with a separator as it is; a bare name in the directory of the
// running program, the current directory, each entry of LUMRX_PATH, then of PATH.
// The full path of the file, or empty if there is none.
std::u16string searchFile(const std::u16string& name);

constexpr unsigned kMachineI386 = 0x014C;
constexpr unsigned kMachineAmd64 = 0x8664;
constexpr unsigned kMachineArm64 = 0xAA64;
// The machine word of an executable image file: an ELF machine mapped to the words
// above, or a PE header's own word. 0 for anything unreadable, truncated or unknown.
unsigned probeImageMachine(const std::u16string& path);

}  // namespace lumplatform
