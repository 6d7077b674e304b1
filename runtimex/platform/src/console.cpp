#include "lumplatform/console.h"

#include <unistd.h>

namespace lumplatform {

bool standardInputIsTerminal() { return isatty(STDIN_FILENO) == 1; }

bool standardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

}  // namespace lumplatform
