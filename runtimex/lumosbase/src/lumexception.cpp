#include "lumosbase.h"

#include <cstdio>
#include <cstdlib>

namespace {

char* copyNarrow(const char* s) {
    if (!s) s = "";
    size_t n = std::strlen(s) + 1;
    char* out = static_cast<char*>(std::malloc(n));
    if (out) std::memcpy(out, s, n);
    return out;
}

}  // namespace

LumException::~LumException() = default;
int LumException::code() const { return 0; }
const char16_t* LumException::className() const { return u"LumException"; }
const char16_t* LumException::description() const { return u""; }

LumExceptionWithMsg::LumExceptionWithMsg(const char* file, int line, const char16_t* message)
    : m_file(copyNarrow(file)), m_line(line), m_message(_lumStrdup(message ? message : u"")) {}

LumExceptionWithMsg::~LumExceptionWithMsg() {
    std::free(m_file);
    _lumStrdupFree(m_message);
}

int LumExceptionWithMsg::code() const { return 0; }
const char16_t* LumExceptionWithMsg::className() const { return u"LumExceptionWithMsg"; }
const char16_t* LumExceptionWithMsg::description() const { return m_message ? m_message : u""; }

LumErrorStatus::LumErrorStatus(int status, const char* file, int line)
    : m_status(status), m_file(copyNarrow(file)), m_line(line), m_description(nullptr) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "Error status %d", status);
    char16_t wide[32];
    size_t i = 0;
    for (; buf[i]; ++i) wide[i] = char16_t(buf[i]);
    wide[i] = 0;
    m_description = _lumStrdup(wide);
}

LumErrorStatus::~LumErrorStatus() {
    std::free(m_file);
    _lumStrdupFree(m_description);
}

int LumErrorStatus::code() const { return m_status; }
const char16_t* LumErrorStatus::className() const { return u"LumErrorStatus"; }
const char16_t* LumErrorStatus::description() const { return m_description ? m_description : u""; }

void lumThrowErrorStatus(int status, const char* file, int line) {
    auto* e = new LumErrorStatus(status, file, line);
    if (LumCrashRecorder* r = kvoreGetCrashRecorder()) r->recordException(e);
    throw e;
}
