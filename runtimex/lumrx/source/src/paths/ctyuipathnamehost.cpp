#include "paths/ctyuipathnamehost.h"

#include "lumplatform/drives.h"
#include "lumplatform/files.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace ctyuipathhost {
namespace {

std::u16string Text(const KvString& s) { return std::u16string(s.kwszPtr()); }

std::string Utf8(const std::u16string& s) {
    KvString text(s.c_str());
    return std::string(text.utf8Ptr());
}

}  // namespace

bool FullName(const KvString& windowsName, KvString& fullName) {
    std::u16string full;
    if (lumplatform::fullWindowsName(Text(windowsName), full) != lumplatform::DriveStatus::ok)
        return false;
    fullName = full.c_str();
    return true;
}

bool PosixPathOf(const KvString& windowsName, std::string& posixPath) {
    std::u16string full, posix;
    if (lumplatform::fullWindowsName(Text(windowsName), full) != lumplatform::DriveStatus::ok ||
        lumplatform::posixPathOf(full, posix) != lumplatform::DriveStatus::ok)
        return false;
    posixPath = Utf8(posix);
    return true;
}

unsigned AttributesOf(const KvString& windowsName) {
    std::u16string full, posix;
    if (lumplatform::fullWindowsName(Text(windowsName), full) != lumplatform::DriveStatus::ok ||
        lumplatform::posixPathOf(full, posix) != lumplatform::DriveStatus::ok)
        return lumplatform::kNoAttributes;
    return lumplatform::fileAttributes(posix);
}

bool SearchFile(const KvString& name, KvString& found) {
    if (name.length() == 0) return false;
    std::vector<KvString> candidates{name};
    const char* path = std::getenv("PATH");
    if (name.findOneOf(u"\\/:") < 0 && path) {
        std::string list(path);
        for (size_t start = 0; start <= list.size();) {
            size_t end = std::min(list.find(':', start), list.size());
            std::u16string windowsDir;
            KvString posixDir(list.substr(start, end - start).c_str(), KvString::kUtf8);
            if (posixDir.length() != 0 &&
                lumplatform::windowsNameOf(Text(posixDir), windowsDir) == lumplatform::DriveStatus::ok)
                candidates.push_back(KvString(windowsDir.c_str()) + u"\\" + name);
            start = end + 1;
        }
    }
    for (const KvString& candidate : candidates) {
        unsigned attributes = AttributesOf(candidate);
        if (attributes != lumplatform::kNoAttributes &&
            !(attributes & lumplatform::kAttributeDirectory))
            return FullName(candidate, found);
    }
    return false;
}

bool NetworkName(const KvString& windowsName, KvString& networkName) {
    std::u16string name;
    if (lumplatform::networkNameOf(Text(windowsName), name) != lumplatform::DriveStatus::ok)
        return false;
    networkName = name.c_str();
    return true;
}

bool CurrentDirectory(KvString& name) {
    std::u16string text;
    if (lumplatform::currentDirectoryName(text) != lumplatform::DriveStatus::ok) return false;
    name = text.c_str();
    return true;
}

bool ChangeDirectory(const KvString& name) {
    return lumplatform::changeCurrentDirectory(Text(name)) == lumplatform::DriveStatus::ok;
}

DirectoryFrame::DirectoryFrame(const KvString& base)
    : m_entered(CurrentDirectory(m_saved) && ChangeDirectory(base)) {}

DirectoryFrame::~DirectoryFrame() {
    if (m_entered) ChangeDirectory(m_saved);
}

}  // namespace ctyuipathhost
