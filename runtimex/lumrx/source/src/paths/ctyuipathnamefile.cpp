// CTyUiPathname: the file operations, on the file system behind the drive table.
#include "ctyuipathname.h"

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

// Runs `action` with the current directory at `base` if there is one, as the file
// functions take a relative m_path against it.
template <class Action>
bool InDirectoryOf(const KvString* base, Action action) {
    if (!base) return action();
    ctyuipathhost::DirectoryFrame frame(*base);
    return frame.entered() && action();
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
bool CTyUiPathname::PosixPath(std::string& posixPath) const {
    KvString full;
    return GetFullPath(full) && ctyuipathhost::PosixPathOf(full, posixPath);
}

bool CTyUiPathname::OpenReadOnly(void*& handle) {
    if (m_type == kDevice) return handle != kInvalidHandle && handle != nullptr;
    std::string posix;
    FILE* file = IsPath() && PosixPath(posix) ? std::fopen(posix.c_str(), "rb") : nullptr;
    handle = file ? file : kInvalidHandle;
    return file != nullptr;
}

bool CTyUiPathname::OpenWriteOnly(void*& handle) {
    if (m_type == kDevice) return handle != kInvalidHandle && handle != nullptr;
    std::string posix;
    FILE* file = IsPath() && PosixPath(posix) ? std::fopen(posix.c_str(), "wb") : nullptr;
    handle = file ? file : kInvalidHandle;
    return file != nullptr;
}

bool CTyUiPathname::Open(FILE** stream, const char16_t* mode) {
    if (!stream) return false;
    *stream = nullptr;
    std::string posix;
    if (!mode || !(IsPath() || m_type == kDevice) || !PosixPath(posix)) return false;
    *stream = std::fopen(posix.c_str(), NarrowMode(mode).c_str());
    return *stream != nullptr;
}

bool CTyUiPathname::Rename(const char16_t* newName) {
    if (!IsPath() || !m_path || !newName) return false;
    KvString name(newName);
    bool renamed = InDirectoryOf(m_base, [&] {
        std::string from, to;
        return ctyuipathhost::PosixPathOf(*m_path, from) && ctyuipathhost::PosixPathOf(name, to) &&
               std::rename(from.c_str(), to.c_str()) == 0;
    });
    if (renamed) *m_path = name;
    return renamed;
}

bool CTyUiPathname::Remove() {
    if (!IsPath() || !m_path) return false;
    return InDirectoryOf(m_base, [&] {
        std::string posix;
        return ctyuipathhost::PosixPathOf(*m_path, posix) && std::remove(posix.c_str()) == 0;
    });
}

bool CTyUiPathname::OpenReadOnly(Tarnwick::Lumora::PAL::FileIO::File&) { return false; }

bool CTyUiPathname::OpenWriteOnly(Tarnwick::Lumora::PAL::FileIO::File&) { return false; }

bool CTyUiPathname::IsValidOnColon(const KvString*) const { return false; }

bool CTyUiPathname::WasAbsoluteHelper(path_category) { return false; }

KvString CTyUiPathname::GetDriveForRoottypePath(const CTyUiVolumeDescriptor* const) const {
    return KvString();
}
