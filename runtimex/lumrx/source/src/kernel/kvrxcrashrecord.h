// Lines for the crash record, from anywhere in the runtime.
#pragma once

class LumCrashRecorder;

// The recorder of the host's runtime object if there is one, else the process's.
LumCrashRecorder* kvrxCrashRecorder();
// Formats one line and hands it to the crash recorder; no recorder, no line.
void kvrxRecordLine(const char16_t* format, ...);
