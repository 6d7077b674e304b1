// What the file layer shares with the loader.
#pragma once

#include <string>

namespace lumplatform::filesinternal {

// True if `path` is absolute and no component of it is empty, "." or "..": it is its
// own normal form, so that reached without links it is its own full name.
bool isNormalAbsolute(const std::string& path);

}  // namespace lumplatform::filesinternal
