// What the path classes ask of the drive layer, in the forms they use: texts as
// KvString, Windows names, status as bool.
#pragma once

#include "kvstring.h"

#include <string>

namespace ctyuipathhost {

// The attribute word of a Windows name, relative ones against the current directory;
// lumplatform::kNoAttributes if it can't be asked.
unsigned AttributesOf(const KvString& windowsName);
// The absolute form of a Windows name; false if the drive layer refuses it.
bool FullName(const KvString& windowsName, KvString& fullName);
// The network name `\\server\share\rest` of a Windows name; false off the shares.
bool NetworkName(const KvString& windowsName, KvString& networkName);
bool CurrentDirectory(KvString& name);
bool ChangeDirectory(const KvString& name);
// The POSIX path of a Windows name, relative ones against the current directory.
bool PosixPathOf(const KvString& windowsName, std::u16string& posixPath);

// The platform's search for a file (lumplatform::searchFile): `name` itself if it holds
// a folder or a drive, else the program's folder, the current folder, LUMRX_PATH, then
// PATH. The full Windows name of the file found; false if none, or no drive reaches it.
bool SearchFile(const KvString& name, KvString& found);

// Saves the current directory, changes to `base` and changes back when it ends;
// `entered` says whether the change worked.
class DirectoryFrame {
public:
    explicit DirectoryFrame(const KvString& base);
    ~DirectoryFrame();
    DirectoryFrame(const DirectoryFrame&) = delete;
    DirectoryFrame& operator=(const DirectoryFrame&) = delete;
    bool entered() const { return m_entered; }

private:
    KvString m_saved;
    bool m_entered;
};

}  // namespace ctyuipathhost
