#include "kernel/kvrxcrashrecord.h"

#include "kernel/kvrxmoduleglobal.h"
#include "lumosbase.h"

LumCrashRecorder* kvrxCrashRecorder() {
    if (KvDbHostApplicationServices* host = kvdbHostApplicationServices())
        if (KvDbHostRuntime* runtime = host->hostRuntime()) return runtime->crashRecorder();
    return kvoreGetCrashRecorder();
}

void kvrxRecordLine(const char16_t* format, ...) {
    LumCrashRecorder* recorder = kvrxCrashRecorder();
    if (!recorder) return;
    va_list args;
    va_start(args, format);
    char16_t* line = kvrxFormatAlloc(nullptr, format, args);
    va_end(args);
    if (!line) return;
    recorder->recordMessage(line, 0, 0, 0);
    _lumFree(line);
}
