#include "lumosbase.h"

#include "lumplatform/text.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

LumCrashRecorder::~LumCrashRecorder() = default;

namespace {

// Appends each line, with a time stamp, to the file named by LUMRX_CRASH_RECORD, or to
// standard error when that is unset or can't be opened. Each line is written and
// flushed at once, so a record survives an abrupt end of the process.
class DefaultCrashRecorder : public LumCrashRecorder {
public:
    void recordMessage(const char16_t* text, int, int, int) override {
        writeLine(text ? lumplatform::toUtf8(text) : std::string());
    }
    void recordException(const LumException* e) override {
        if (!e) return;
        writeLine("exception " + lumplatform::toUtf8(e->className()) + ": " +
                  lumplatform::toUtf8(e->description()));
    }
    void recordFault(unsigned code, const void*, const char16_t* text, int line) override {
        char head[64];
        std::snprintf(head, sizeof head, "fault 0x%08x at line %d: ", code, line);
        writeLine(head + (text ? lumplatform::toUtf8(text) : std::string()));
    }
    void flushRecord() override {}

private:
    void writeLine(const std::string& line) {
        std::lock_guard<std::mutex> guard(m_lock);
        char stamp[32];
        std::time_t now = std::time(nullptr);
        std::tm tm{};
        tm = *std::gmtime(&now);  // under m_lock
        std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &tm);
        const char* path = std::getenv("LUMRX_CRASH_RECORD");
        std::FILE* f = (path && *path) ? std::fopen(path, "a") : nullptr;
        std::fprintf(f ? f : stderr, "%s %s\n", stamp, line.c_str());
        if (f) std::fclose(f); else std::fflush(stderr);
    }
    std::mutex m_lock;
};

DefaultCrashRecorder& defaultRecorder() {
    static DefaultCrashRecorder recorder;
    return recorder;
}

std::atomic<LumCrashRecorder*> installed{nullptr};

}  // namespace

LumCrashRecorder* kvoreGetCrashRecorder() {
    LumCrashRecorder* r = installed.load();
    return r ? r : &defaultRecorder();
}

LumCrashRecorder* lumSetCrashRecorder(LumCrashRecorder* recorder) {
    return installed.exchange(recorder);
}
