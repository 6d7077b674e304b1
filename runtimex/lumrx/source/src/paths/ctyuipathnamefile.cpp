// CTyUiPathname: the file operations, on the file system behind the drive table.
#include "ctyuipathname.h"

#include "lumplatform/files.h"
#include "paths/ctyuipathnamehost.h"

#include <cstdio>

namespace {

void* const kInvalidHandle = reinterpret_cast<void*>(-1);

// A C stream mode from the wide mode; modes are plain ASCII.
std::string NarrowMode(const char16_t* mode) {
    std::string narrow;
    for (; *mode; ++mode) narrow += char(*mode < 0x80 ? *mode : '?');
    return narrow;
}

}  // namespace

bool CTyUiPathname::Exists() {
    if (m_type == kFile || m_type == kNotFound || m_type == kDirectory) {
        GetAttributes(m_path, m_base, &m_type);
        return m_type != kNotFound;
    }
    return m_type == kDevice;
}

// The POSIX path of the full name; false if no drive reaches it.
bool CTyUiPathname::PosixPath(std::u16string& posixPath) const {
    KvString full;
    return GetFullPath(full) && ctyuipathhost::PosixPathIn(nullptr, full, posixPath);
}

// A stream on the file of a path object; a folder is never opened.
FILE* CTyUiPathname::OpenStream(const char* mode) const {
    std::u16string posix;
    return IsPath() && PosixPath(posix) ? lumplatform::openFileStream(posix, mode) : nullptr;
}

bool CTyUiPathname::OpenReadOnly(void*& handle) {
    if (m_type == kDevice) return handle != kInvalidHandle && handle != nullptr;
    FILE* file = OpenStream("rb");
    handle = file ? file : kInvalidHandle;
    return file != nullptr;
}

bool CTyUiPathname::OpenWriteOnly(void*& handle) {
    if (m_type == kDevice) return handle != kInvalidHandle && handle != nullptr;
    FILE* file = OpenStream("wb");
    handle = file ? file : kInvalidHandle;
    return file != nullptr;
}

bool CTyUiPathname::Open(FILE** stream, const char16_t* mode) {
    if (!stream) return false;
    *stream = nullptr;
    std::u16string posix;
    if (!mode || !(IsPath() || m_type == kDevice) || !PosixPath(posix)) return false;
    *stream = lumplatform::openFileStream(posix, NarrowMode(mode).c_str());
    return *stream != nullptr;
}

// An existing target is never replaced: the rename fails instead.
bool CTyUiPathname::Rename(const char16_t* newName) {
    if (!IsPath() || !m_path || !newName) return false;
    KvString name(newName);
    if (name.length() > m_volume->GetMaxPath()) return false;  // it becomes the stored text
    // Both names are taken in m_base, as if it were the current directory.
    std::u16string from, to;
    bool renamed = ctyuipathhost::PosixPathIn(m_base, *m_path, from) &&
                   ctyuipathhost::PosixPathIn(m_base, name, to) &&
                   lumplatform::renameWithoutReplacing(from, to);
    if (renamed) *m_path = name;
    return renamed;
}

// Files only: a folder is never removed.
bool CTyUiPathname::Remove() {
    if (!IsPath() || !m_path) return false;
    std::u16string posix;
    return ctyuipathhost::PosixPathIn(m_base, *m_path, posix) && lumplatform::removeFile(posix);
}

bool CTyUiPathname::OpenReadOnly(Tarnwick::Lumora::PAL::FileIO::File&) { return false; }

bool CTyUiPathname::OpenWriteOnly(Tarnwick::Lumora::PAL::FileIO::File&) { return false; }

bool CTyUiPathname::IsValidOnColon(const KvString*) const { return false; }

bool CTyUiPathname::WasAbsoluteHelper(path_category) { return false; }

KvString CTyUiPathname::GetDriveForRoottypePath(const CTyUiVolumeDescriptor* const) const {
    return KvString();
}
