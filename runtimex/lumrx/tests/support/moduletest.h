// A fixture for tests on the real test modules (modules/testmodule.cpp): each module
// appends its events to a log file that the test reads, the registry hives are fresh
// files of the test process, and a fake host with a recording crash recorder stands by.
// Needs LUMRX_TEST_MODULE_DIR, the folder of the built modules.
#pragma once

#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "lumplatform/text.h"
#include "testsupport.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace lumtest {

class ModuleTest : public RuntimeTest {
protected:
    static void SetUpTestSuite() {
        char folder[] = "/tmp/lumrx-modules-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        registryDir() = folder;
        setenv("LUMRX_REGISTRY_USER", (registryDir() + "/user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (registryDir() + "/machine.db").c_str(), 1);
        ensureRuntime();
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(registryDir()); }

    void SetUp() override {
        dir = std::filesystem::temp_directory_path() /
              ("lumlinker-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        setenv("LUMRX_TEST_MODULE_LOG", (dir / "log").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("LUMRX_TEST_MODULE_LOG");
        std::filesystem::remove_all(dir);
    }

    static std::string& registryDir() {
        static std::string folder;
        return folder;
    }
    static std::filesystem::path moduleDir() { return LUMRX_TEST_MODULE_DIR; }
    static std::u16string modulePath(const char* file) {
        return lumplatform::fromUtf8((moduleDir() / file).string());
    }
    // The log's lines since the last call.
    std::vector<std::string> events() {
        std::vector<std::string> lines;
        std::ifstream in(dir / "log");
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        std::filesystem::remove(dir / "log");
        return lines;
    }
    static KvRxDynamicLinkerImp* linker() {
        return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    }
    static KvRxDynLoadModuleProxy* proxyOf(const std::u16string& path) {
        return linker()->findRxModuleProxyByModuleName(path.c_str(), false);
    }
    // Writes `bytes` to a file of the test's folder; gives its path.
    std::u16string write(const char* file, const std::string& bytes) {
        std::ofstream(dir / file, std::ios::binary) << bytes;
        return lumplatform::fromUtf8((dir / file).string());
    }

    std::filesystem::path dir;
    FakeHost host;
    RecordingCrashRecorder recorder;
};

}  // namespace lumtest
