// Files and directories on POSIX, behind names that say what they do.
// Paths are 16-bit texts; they reach the file system as UTF-8.
#pragma once

#include <cstdio>
#include <string>

namespace lumplatform {

constexpr unsigned kNoAttributes = 0xFFFFFFFFu;
constexpr unsigned kAttributeReadOnly = 0x01;
constexpr unsigned kAttributeDirectory = 0x10;
constexpr unsigned kAttributeNormal = 0x80;

// The current directory of the process, or empty if it can't be read.
std::u16string currentDirectory();
// Changes the current directory; false if it can't.
bool setCurrentDirectory(const std::u16string& path);
// The attribute word of a file: directory bit, read-only bit (not writable by this
// process) or normal; kNoAttributes if the file can't be asked.
unsigned fileAttributes(const std::u16string& path);
// The attribute word of a file by a single look-up: the directory bit or normal, without
// the read-only bit; kNoAttributes if the file can't be asked.
unsigned fileKindAttributes(const std::u16string& path);
// The absolute, normal form of `path`: relative to the current directory, "." and ".."
// resolved and repeated separators folded; symbolic links are followed for the part of
// the path that exists, so one file gives one text. Empty on failure.
std::u16string fullPathName(const std::u16string& path);
// fullPathName of `path` if `path` names a regular file, else empty.
std::u16string fullPathOfFile(const std::u16string& path);

// Opens a C stream on a file with a C mode ("rb", "wb", ...); null if it can't, and for
// a folder, which is never opened.
std::FILE* openFileStream(const std::u16string& path, const char* mode);
// Gives a file or a folder a new name; false if `to` exists already, as an existing
// target is never replaced.
bool renameWithoutReplacing(const std::u16string& from, const std::u16string& to);
// Deletes a file; false for a folder, which is never removed.
bool removeFile(const std::u16string& path);

}  // namespace lumplatform
