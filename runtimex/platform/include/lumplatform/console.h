// The process's console: whether its standard streams are a terminal, which decides
// whether a command-line program prompts.
#pragma once

namespace lumplatform {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();

}  // namespace lumplatform
