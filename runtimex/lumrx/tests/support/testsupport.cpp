#include "testsupport.h"

#include "lumplatform/text.h"

#include <cstdlib>

namespace lumtest {

std::string utf8(const std::u16string& text) { return lumplatform::toUtf8(text); }

std::u16string u16(const std::string& text) { return lumplatform::fromUtf8(text); }

RecordingCrashRecorder::RecordingCrashRecorder() : m_previous(lumSetCrashRecorder(this)) {}

RecordingCrashRecorder::~RecordingCrashRecorder() { lumSetCrashRecorder(m_previous); }

void RecordingCrashRecorder::recordMessage(const char16_t* text, int, int, int) {
    lines.push_back(text ? text : u"<null>");
}

void RecordingCrashRecorder::recordException(const LumException* e) {
    exceptions.push_back(e ? e->description() : u"<null>");
}

void RecordingCrashRecorder::recordFault(unsigned code, const void*, const char16_t* text, int line) {
    faults.push_back(Fault{code, text ? text : u"", line});
}

KvRxDynLoadModuleProxy* FakeHostRuntime::setCurrentModule(KvRxDynLoadModuleProxy* proxy) {
    KvRxDynLoadModuleProxy* previous = current;
    current = proxy;
    return previous;
}

FakeHost::FakeHost() : m_previous(kvdbHostApplicationServices()) {
    kvdbSetHostApplicationServices(this);
}

FakeHost::~FakeHost() { kvdbSetHostApplicationServices(m_previous); }

static int putText(const std::u16string& text, char16_t* out, int outSize) {
    if (!out || outSize <= 0 || text.size() + 1 > size_t(outSize)) return -1;
    std::copy(text.begin(), text.end(), out);
    out[text.size()] = 0;
    return 0;
}

int FakeHost::findFile(char16_t* out, int outSize, const char16_t* name, void*, int hint) {
    findFileHints.push_back(hint);
    auto it = files.find(name ? name : u"");
    return it == files.end() ? -1 : putText(it->second, out, outSize);
}

void FakeHost::fatalError(const char16_t* text) { fatalErrors.push_back(text ? text : u"<null>"); }

void FakeHost::displayMessage(const char16_t* text, int length) {
    messages.push_back(text ? std::u16string(text, size_t(length > 0 ? length : 0)) : u"<null>");
}

bool FakeHost::isRemoteName(const char16_t* name) {
    return name && remoteFiles.count(name) != 0;
}

int FakeHost::fetchRemoteFile(const char16_t* name, char16_t* out, int outSize, int) {
    auto it = remoteFiles.find(name ? name : u"");
    if (it == remoteFiles.end()) return -1;
    return putText(it->second, out, outSize) == 0 ? 20000 : -1;
}

static void shutDownRuntime() { UninitializeKvRxSystem(); }

void ensureRuntime() {
    static bool started = false;
    if (started) return;
    started = true;
    InitializeKvRxSystem();
    std::atexit(shutDownRuntime);
}

}  // namespace lumtest
