// lumrx-inspect's output: a few lines of text per file for people, or one JSON object
// per line and file for tools.
#pragma once

#include "inspection.h"

#include <string>

namespace lumrxinspect {

std::string textReport(const Inspection& inspection);
// One line, without the line break.
std::string jsonReport(const Inspection& inspection);

}  // namespace lumrxinspect
