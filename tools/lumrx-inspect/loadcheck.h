// The --load check: a runtime of lumrx-inspect's own with a host of its own, into which
// each file is loaded, looked at and unloaded again.
//
// The session owns its host objects and the runtime: it starts the runtime when it is
// made and shuts it down when it is destroyed; only one may exist in a process.
#pragma once

#include "inspection.h"

#include "kvdbhostappservices.h"
#include "lumosbase.h"

#include <string>
#include <vector>

namespace lumrxinspect {

// Keeps the lines the runtime writes to the crash record.
class RecordingRecorder : public LumCrashRecorder {
public:
    void recordMessage(const char16_t* text, int, int, int) override;
    void recordException(const LumException* exception) override;
    void recordFault(unsigned faultCode, const void*, const char16_t* text, int line) override;
    void flushRecord() override {}
    std::vector<std::string> lines;
};

class InspectRuntime : public KvDbHostRuntime {
public:
    bool acceptNonMdiModule() override { return true; }
    void nonMdiModulesGone() override {}
    KvRxDynLoadModuleProxy* currentModule() override { return m_current; }
    KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) override;
    void* resourceInstance() override { return nullptr; }
    LumCrashRecorder* crashRecorder() override { return &recorder; }
    RecordingRecorder recorder;

private:
    KvRxDynLoadModuleProxy* m_current = nullptr;  // borrowed from the linker
};

// Finds files by the system's search, shows user messages by keeping them, and has no
// remote files.
class InspectHost : public KvDbHostApplicationServices {
public:
    int findFile(char16_t* out, int outSize, const char16_t* name, void*, int) override;
    void fatalError(const char16_t* text) override;
    void displayMessage(const char16_t* text, int length) override;
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return u"Software\\Lumora\\LumRx"; }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return &runtime; }
    bool isRemoteName(const char16_t*) override { return false; }
    int fetchRemoteFile(const char16_t*, char16_t*, int, int) override { return 1; }
    InspectRuntime runtime;
    std::vector<std::string> messages;
};

class LoadSession {
public:
    LoadSession();
    ~LoadSession();
    LoadSession(const LoadSession&) = delete;
    LoadSession& operator=(const LoadSession&) = delete;

    // Loads the file of `inspection`, fills its load report, and unloads every module
    // again. A refused load makes the inspection's verdict "not loadable".
    void check(Inspection& inspection);

private:
    InspectHost m_host;
    LumCrashRecorder* m_previousRecorder;
};

}  // namespace lumrxinspect
