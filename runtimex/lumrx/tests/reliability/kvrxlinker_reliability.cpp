// The linker over long runs and against hostile modules: load and unload cycles of a
// module that brings classes, a service and a reactor must leave memory, descriptors
// and tables where they were; modules that throw, unload or load themselves, or bring
// classes that name each other as parents, get the linker's ordinary answers and leave
// nothing behind.
#include "kvrxclass.h"
#include "kvrxdictionary.h"
#include "kvrxmoduledependencytracker.h"
#include "lumplatform/loader.h"
#include "moduletest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define LUMRX_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LUMRX_UNDER_SANITIZER 1
#endif
#endif

#ifdef LUMRX_UNDER_SANITIZER
// The sanitizer keeps freed memory back for a while (256 MiB by default), which would
// read as growth here; a small quarantine fills during the warm-up.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=4"; }
#endif

namespace {

using lumtest::utf8;

KvRxDictionary* dictionary(const char16_t* name) {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(name));
}

// Resident memory of the process in bytes.
long residentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

int openDescriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

class Reliability : public lumtest::ModuleTest {
protected:
    void SetUp() override {
        lumtest::ModuleTest::SetUp();
        classesBefore = dictionary(u"ClassDictionary")->numEntries();
        servicesBefore = dictionary(u"ServiceDictionary")->numEntries();
    }
    void TearDown() override {
        linker()->unloadAllKrxModule(false, true);
        expectNothingLeft();
        lumtest::ModuleTest::TearDown();
    }
    void expectNothingLeft() {
        EXPECT_EQ(linker()->loadedModuleCount(), 0);
        EXPECT_EQ(linker()->dependencyTracker().nodeCount(), 0);
        EXPECT_EQ(dictionary(u"ClassDictionary")->numEntries(), classesBefore);
        EXPECT_EQ(dictionary(u"ServiceDictionary")->numEntries(), servicesBefore);
    }
    std::vector<std::string> shown() {
        std::vector<std::string> texts;
        for (const std::u16string& m : host.messages) texts.push_back(utf8(m));
        host.messages.clear();
        return texts;
    }

    unsigned classesBefore = 0, servicesBefore = 0;
};

}  // namespace

TEST_F(Reliability, LoadUnloadCyclesKeepMemoryDescriptorsAndTablesFlat) {
    // What may come after the warm-up: 1 MiB. Under the sanitizer each cycle is ten
    // times dearer, so fewer run, and its allocator's own bookkeeping (shadow, the
    // quarantine above) may take up to 16 MiB more.
#ifdef LUMRX_UNDER_SANITIZER
    const int cycles = 3000;
    const long residentBound = 17L << 20;
#else
    const int cycles = 10000;
    const long residentBound = 1L << 20;
#endif
    const int warmUp = 1000;
    unsetenv("LUMRX_TEST_MODULE_LOG");   // no log file per message
    std::u16string full = modulePath("krxfull.krx");
    long residentAfterWarmUp = 0;
    int descriptorsAfterWarmUp = 0;
    for (int i = 0; i < cycles; ++i) {
        ASSERT_TRUE(linker()->loadModule(full.c_str(), false, false)) << "cycle " << i;
        ASSERT_NE(kvrxFindKvRxClass(u"KrxFullClass"), nullptr);
        ASSERT_TRUE(dictionary(u"ServiceDictionary")->has(u"KrxFullService"));
        ASSERT_TRUE(linker()->unloadModule(full.c_str(), false)) << "cycle " << i;
        recorder.lines.clear();  // the test's own record of the crash-record lines
        if (i + 1 == warmUp) {
            residentAfterWarmUp = residentBytes();
            descriptorsAfterWarmUp = openDescriptors();
        }
    }
    EXPECT_LE(residentBytes() - residentAfterWarmUp, residentBound);
    EXPECT_EQ(openDescriptors(), descriptorsAfterWarmUp);
    EXPECT_EQ(kvrxFindKvRxClass(u"KrxFullClass"), nullptr);
    EXPECT_EQ(lumplatform::mappedImage(full), nullptr);
    expectNothingLeft();
    EXPECT_TRUE(recorder.faults.empty());
}

TEST_F(Reliability, HostileModulesGetOrdinaryAnswersAndLeaveNothing) {
    // Throws from every message: the first fails the load, which still sends the unload
    // message; the one message shown is the failure.
    std::u16string throwing = modulePath("krxthrowall.krx");
    EXPECT_FALSE(linker()->loadModule(throwing.c_str(), false, false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxthrowall mapped " + moduleDir().string(),
                                                  "krxthrowall message 1", "krxthrowall message 2"}));
    EXPECT_EQ(shown().size(), 1u);
    ASSERT_EQ(recorder.lines.size(), 2u);
    EXPECT_EQ(recorder.lines[0], u"krx " + throwing + u" load failure");
    EXPECT_EQ(recorder.lines[1], u"krx " + throwing + u" unload");
    EXPECT_EQ(proxyOf(throwing), nullptr);
    expectNothingLeft();
    recorder.lines.clear();

    // Unloads itself in its first message: refused (message 1005), and the load goes on.
    std::u16string selfUnload = modulePath("krxselfunload.krx");
    EXPECT_TRUE(linker()->loadModule(selfUnload.c_str(), false, false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxselfunload mapped " + moduleDir().string(),
                                                  "krxselfunload message 1", "krxselfunload self refused"}));
    EXPECT_EQ(shown().size(), 1u);
    ASSERT_NE(proxyOf(selfUnload), nullptr);
    EXPECT_EQ(proxyOf(selfUnload)->refCount(), 1);
    EXPECT_TRUE(linker()->unloadModule(selfUnload.c_str(), false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxselfunload message 2"});
    expectNothingLeft();

    // Loads itself again in its first message: one more reference, one first message,
    // and one success message for the load asked for.
    std::u16string selfLoad = modulePath("krxselfload.krx");
    EXPECT_TRUE(linker()->loadModule(selfLoad.c_str(), true, false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxselfload mapped " + moduleDir().string(),
                                                  "krxselfload message 1", "krxselfload inner loaded"}));
    EXPECT_EQ(shown().size(), 1u);
    ASSERT_NE(proxyOf(selfLoad), nullptr);
    EXPECT_EQ(proxyOf(selfLoad)->refCount(), 2);
    EXPECT_FALSE(linker()->unloadModule(selfLoad.c_str(), false));
    EXPECT_TRUE(linker()->unloadModule(selfLoad.c_str(), false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxselfload message 2"});
    expectNothingLeft();

    // Refused by the host after it loaded itself: the reference it took goes with the
    // load that failed, and the whole module with it.
    host.runtime.acceptNonMdi = false;
    EXPECT_FALSE(linker()->loadModule(selfLoad.c_str(), false, false));
    host.runtime.acceptNonMdi = true;
    EXPECT_EQ(events(), (std::vector<std::string>{"krxselfload mapped " + moduleDir().string(),
                                                  "krxselfload message 1", "krxselfload inner loaded",
                                                  "krxselfload message 2"}));
    EXPECT_EQ(proxyOf(selfLoad), nullptr);
    EXPECT_EQ(lumplatform::mappedImage(selfLoad), nullptr);
    expectNothingLeft();
}

TEST_F(Reliability, ClassesThatNameEachOtherAsParents) {
    // Linking after the first message can't place them: the class tree's fatal error
    // reaches the caller, after the module went down the failure road.
    std::u16string parents = modulePath("krxparents.krx");
    EXPECT_LUM_THROW(linker()->loadModule(parents.c_str(), false, false),
                     "Regist rx class with wrong order!!!");
    EXPECT_EQ(events(), (std::vector<std::string>{"krxparents mapped " + moduleDir().string(),
                                                  "krxparents message 1", "krxparents message 2"}));
    std::vector<std::u16string> expected = {u"krx " + parents + u" load failure", u"krx " + parents + u" unload"};
    std::vector<std::u16string> linkerLines;
    for (const std::u16string& line : recorder.lines)
        if (line.rfind(u"krx ", 0) == 0) linkerLines.push_back(line);
    EXPECT_EQ(linkerLines, expected);
    EXPECT_EQ(kvrxFindKvRxClass(u"KrxCycleA"), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"KrxCycleB"), nullptr);
    EXPECT_EQ(proxyOf(parents), nullptr);
    EXPECT_EQ(lumplatform::mappedImage(parents), nullptr);
    expectNothingLeft();

    // The linker is whole afterwards: the next module loads and unloads as ever.
    std::u16string full = modulePath("krxfull.krx");
    EXPECT_TRUE(linker()->loadModule(full.c_str(), false, false));
    EXPECT_TRUE(linker()->unloadModule(full.c_str(), false));
}
