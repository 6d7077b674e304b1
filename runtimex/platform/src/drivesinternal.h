// What the two halves of the drive layer share: names and volumes.
#pragma once

#include "lumplatform/drives.h"

#include <string>

namespace lumplatform::drivesinternal {

// Whether `path` is `directory` or lies below it; both absolute and folded.
bool holds(const std::u16string& directory, const std::u16string& path);

// The POSIX directory of a volume root: a drive or a share, with or without its
// trailing separator.
DriveStatus volumeDirectory(const std::u16string& volumeRoot, std::u16string& directory);

}  // namespace lumplatform::drivesinternal
