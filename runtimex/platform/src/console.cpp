#include "lumplatform/console.h"

#include <cstdio>
#include <unistd.h>

namespace lumplatform {

bool standardInputIsTerminal() { return isatty(STDIN_FILENO) == 1; }

bool standardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

StandardOutputToError::StandardOutputToError() : m_saved(-1) {
    std::fflush(stdout);
    m_saved = dup(STDOUT_FILENO);
    if (m_saved >= 0 && dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        close(m_saved);
        m_saved = -1;
    }
}

StandardOutputToError::~StandardOutputToError() {
    std::fflush(stdout);
    if (m_saved < 0) return;
    dup2(m_saved, STDOUT_FILENO);
    close(m_saved);
}

}  // namespace lumplatform
