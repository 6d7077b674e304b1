// The host application as lumrx-host gives it to the runtime: file search over the
// host's search path, user messages on the terminal, the product's registry key, and
// the crash record.
//
// The host object owns its runtime object and its crash recorder (if it writes a file of
// its own); the runtime borrows all three and never owns them. The module that
// setCurrentModule stores is borrowed from the linker.
#pragma once

#include "kvdbhostappservices.h"
#include "lumosbase.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace lumrxhost {

// Appends every line with a time stamp to a file of the host's choosing, or to standard
// error after standard output is flushed, so that the lines keep their place among the
// host's output. Owns the file it opened, closed by the destructor.
class FileCrashRecorder : public LumCrashRecorder {
public:
    // Null if `path` can't be opened for appending.
    static std::unique_ptr<FileCrashRecorder> open(const std::string& path);
    static std::unique_ptr<FileCrashRecorder> onStandardError();
    ~FileCrashRecorder() override;
    FileCrashRecorder(const FileCrashRecorder&) = delete;
    FileCrashRecorder& operator=(const FileCrashRecorder&) = delete;

    void recordMessage(const char16_t* text, int, int, int) override;
    void recordException(const LumException* exception) override;
    void recordFault(unsigned faultCode, const void*, const char16_t* text, int line) override;
    void flushRecord() override;

private:
    FileCrashRecorder(std::FILE* file, bool owned) : m_file(file), m_owned(owned) {}
    void writeLine(const std::string& line);
    std::FILE* m_file;
    bool m_owned;  // false for standard error
};

class HostRuntime : public KvDbHostRuntime {
public:
    // `recorder` null: the process's recorder.
    HostRuntime(bool acceptNonMdi, LumCrashRecorder* recorder)
        : m_acceptNonMdi(acceptNonMdi), m_recorder(recorder) {}

    bool acceptNonMdiModule() override { return m_acceptNonMdi; }
    void nonMdiModulesGone() override;
    KvRxDynLoadModuleProxy* currentModule() override { return m_current; }
    KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) override;
    void* resourceInstance() override { return nullptr; }
    LumCrashRecorder* crashRecorder() override;

private:
    bool m_acceptNonMdi;
    LumCrashRecorder* m_recorder;
    KvRxDynLoadModuleProxy* m_current = nullptr;
};

struct HostOptions {
    std::vector<std::u16string> searchPath;  // directories, in order
    std::u16string productKey = u"Software\\Lumora\\LumRx";
    // The product's name in user messages.
    std::u16string productName = u"Lumora";
    // Empty: the file LUMRX_CRASH_RECORD names, through the process's recorder, else
    // standard error.
    std::string crashRecordFile;
    bool acceptNonMdi = true;
};

class HostServices : public KvDbHostApplicationServices {
public:
    // Opens the crash record file if the options name one; check ready() afterwards.
    // Installs its recorder as the process's, and names the product, for its lifetime.
    explicit HostServices(const HostOptions& options);
    ~HostServices() override;
    HostServices(const HostServices&) = delete;
    HostServices& operator=(const HostServices&) = delete;

    // False if the crash record file couldn't be opened.
    bool ready() const { return m_ready; }
    const std::vector<std::u16string>& searchPath() const { return m_options.searchPath; }

    // The full path of `name`: a name with a '/' as it stands (relative to the current
    // directory), a bare name in each directory of the search path, then where the
    // system's file search finds it. Empty if there is no such file.
    std::u16string locate(const std::u16string& name) const;

    int findFile(char16_t* out, int outSize, const char16_t* name, void* database,
                 int hint) override;
    void fatalError(const char16_t* text) override;
    void displayMessage(const char16_t* text, int length) override;
    int productCode() override { return 1; }
    const char16_t* productRegistryKey() override { return m_options.productKey.c_str(); }
    unsigned hostLCID() override { return 0x409; }
    KvDbHostRuntime* hostRuntime() override { return &m_runtime; }
    // Names of the form "scheme://...".
    bool isRemoteName(const char16_t* name) override;
    // Only "file://" names can be fetched: their local path, status 20000.
    int fetchRemoteFile(const char16_t* name, char16_t* out, int outSize, int flags) override;

private:
    HostOptions m_options;
    std::unique_ptr<FileCrashRecorder> m_recorder;  // null: the process's recorder
    bool m_ready = true;
    LumCrashRecorder* m_previousRecorder = nullptr;
    HostRuntime m_runtime;
};

// Host output. Errors go to standard error after standard output is flushed, so both
// keep their order when they are read together.
void printError(const std::string& text);
std::string utf8(const std::u16string& text);
std::string utf8(const char16_t* text);
std::u16string u16(const std::string& text);

}  // namespace lumrxhost
