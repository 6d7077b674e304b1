#include "paths/ctyuipathnamehost.h"

#include "lumplatform/drives.h"
#include "lumplatform/files.h"
#include "lumplatform/loader.h"


namespace ctyuipathhost {
namespace {

std::u16string Text(const KvString& s) { return std::u16string(s.kwszPtr()); }

}  // namespace

bool FullName(const KvString& windowsName, std::u16string& fullName) {
    return lumplatform::fullWindowsName(Text(windowsName), fullName) == lumplatform::DriveStatus::ok;
}

bool PosixPathIn(const KvString* base, const KvString& windowsName, std::u16string& posixPath) {
    return lumplatform::posixPathIn(base ? Text(*base) : std::u16string(), Text(windowsName),
                                    posixPath) == lumplatform::DriveStatus::ok;
}

unsigned AttributesIn(const KvString* base, const KvString& windowsName) {
    return lumplatform::attributesIn(base ? Text(*base) : std::u16string(), Text(windowsName));
}

bool SearchFile(const KvString& name, KvString& found) {
    if (name.length() == 0) return false;
    std::u16string text = Text(name);
    // A name with a folder or a drive reaches the search as its POSIX path, which the
    // search takes as it is; a bare name goes through the search's folders.
    if (name.findOneOf(u"\\/:") >= 0) {
        std::u16string full;
        if (lumplatform::fullWindowsName(text, full) != lumplatform::DriveStatus::ok ||
            lumplatform::posixPathOf(full, text) != lumplatform::DriveStatus::ok)
            return false;
    }
    std::u16string posix = lumplatform::searchFile(text), windows;
    if (posix.empty() || lumplatform::windowsNameOf(posix, windows) != lumplatform::DriveStatus::ok)
        return false;
    found = windows.c_str();
    return true;
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

}  // namespace ctyuipathhost
