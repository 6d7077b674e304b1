// Shared test support: a recording crash recorder, a scriptable fake host, and a
// fixture that starts the runtime once per test process.
#pragma once

#include "kvdbhostappservices.h"
#include "kvrxruntime.h"
#include "lumosbase.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

// Catches a LumException* thrown by `statement`, keeps its description and deletes it.
// Fails the test if nothing of the kind is thrown.
#define EXPECT_LUM_THROW(statement, expectedText)                                      \
    do {                                                                               \
        std::u16string lumThrown = lumtest::thrownText([&] { statement; });            \
        EXPECT_EQ(lumtest::utf8(lumThrown), std::string(expectedText)) << #statement;  \
    } while (0)

namespace lumtest {

std::string utf8(const std::u16string& text);
std::u16string u16(const std::string& text);

// The description of the LumException* that `f` throws, deleted here; "<nothing thrown>"
// when it returns normally.
template <class F>
std::u16string thrownText(F f) {
    try {
        f();
    } catch (LumException* e) {
        std::u16string text = e->description();
        delete e;
        return text;
    }
    return u"<nothing thrown>";
}

// Installs itself as the process's crash recorder for its lifetime and keeps what it
// is given.
class RecordingCrashRecorder : public LumCrashRecorder {
public:
    struct Fault {
        unsigned code;
        std::u16string text;
        int line;
    };

    RecordingCrashRecorder();
    ~RecordingCrashRecorder() override;

    void recordMessage(const char16_t* text, int, int, int) override;
    void recordException(const LumException* e) override;
    void recordFault(unsigned code, const void*, const char16_t* text, int line) override;
    void flushRecord() override { ++flushes; }

    std::vector<std::u16string> lines;
    std::vector<std::u16string> exceptions;
    std::vector<Fault> faults;
    int flushes = 0;

private:
    LumCrashRecorder* m_previous;
};

class FakeHostRuntime : public KvDbHostRuntime {
public:
    bool acceptNonMdiModule() override { return acceptNonMdi; }
    void nonMdiModulesGone() override { ++nonMdiGoneCalls; }
    KvRxDynLoadModuleProxy* currentModule() override { return current; }
    KvRxDynLoadModuleProxy* setCurrentModule(KvRxDynLoadModuleProxy* proxy) override;
    void* resourceInstance() override { return resource; }
    LumCrashRecorder* crashRecorder() override { return recorder ? recorder : kvoreGetCrashRecorder(); }

    bool acceptNonMdi = true;
    int nonMdiGoneCalls = 0;
    KvRxDynLoadModuleProxy* current = nullptr;
    void* resource = nullptr;
    LumCrashRecorder* recorder = nullptr;  // null: the process's recorder
};

// A host whose answers a test scripts. Installs itself as the host services object for
// its lifetime (and restores the previous one).
class FakeHost : public KvDbHostApplicationServices {
public:
    FakeHost();
    ~FakeHost() override;

    int findFile(char16_t* out, int outSize, const char16_t* name, void*, int hint) override;
    void fatalError(const char16_t* text) override;
    void displayMessage(const char16_t* text, int length) override;
    int productCode() override { return product; }
    const char16_t* productRegistryKey() override { return registryKey.c_str(); }
    unsigned hostLCID() override { return lcid; }
    KvDbHostRuntime* hostRuntime() override { return withRuntime ? &runtime : nullptr; }
    bool isRemoteName(const char16_t* name) override;
    int fetchRemoteFile(const char16_t* name, char16_t* out, int outSize, int) override;

    std::map<std::u16string, std::u16string> files;        // findFile: name -> path
    std::map<std::u16string, std::u16string> remoteFiles;  // fetchRemoteFile: name -> path
    std::vector<std::u16string> messages;                  // displayMessage texts
    std::vector<std::u16string> fatalErrors;               // fatalError texts ("<null>" for null)
    std::vector<int> findFileHints;
    int product = 1;
    std::u16string registryKey = u"Software\\Lumora\\LumRxTest";
    unsigned lcid = 0x409;
    bool withRuntime = true;
    FakeHostRuntime runtime;

private:
    KvDbHostApplicationServices* m_previous;
};

// Starts the runtime the first time a test of the process asks, and shuts it down at
// the process's exit.
void ensureRuntime();

class RuntimeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ensureRuntime(); }
};

}  // namespace lumtest
