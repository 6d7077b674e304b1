// The process's console: whether its standard streams are a terminal, which decides
// whether a command-line program prompts.
#pragma once

namespace lumplatform {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();

// While it lives, what is written to standard output (by any code, through any library)
// goes to standard error instead; the destructor puts standard output back. Both are
// flushed at each change.
class StandardOutputToError {
public:
    StandardOutputToError();
    ~StandardOutputToError();
    StandardOutputToError(const StandardOutputToError&) = delete;
    StandardOutputToError& operator=(const StandardOutputToError&) = delete;

private:
    int m_saved;  // a copy of the original standard output, owned; -1 if none was made
};

}  // namespace lumplatform
