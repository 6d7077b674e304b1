// What the path classes ask of the drive layer, in the forms they use: texts as
// KvString, Windows names, status as bool.
#pragma once

#include "kvstring.h"

#include <string>

namespace ctyuipathhost {

// The attribute word of a Windows name (the directory bit or normal), taken as if the
// current directory were `base`, or against the current directory itself if `base` is
// null or empty; lumplatform::kNoAttributes if it can't be asked or `base` can't be
// entered. The current directory is never changed.
unsigned AttributesIn(const KvString* base, const KvString& windowsName);
// The absolute form of a Windows name; false if the drive layer refuses it.
bool FullName(const KvString& windowsName, std::u16string& fullName);
// The network name `\\server\share\rest` of a Windows name; false off the shares.
bool NetworkName(const KvString& windowsName, KvString& networkName);
bool CurrentDirectory(KvString& name);
// The POSIX path of a Windows name taken as AttributesIn takes it.
bool PosixPathIn(const KvString* base, const KvString& windowsName, std::u16string& posixPath);

// The platform's search for a file (lumplatform::searchFile): `name` itself if it holds
// a folder or a drive, else the program's folder, the current folder, LUMRX_PATH, then
// PATH. The full Windows name of the file found; false if none, or no drive reaches it.
bool SearchFile(const KvString& name, KvString& found);

}  // namespace ctyuipathhost
