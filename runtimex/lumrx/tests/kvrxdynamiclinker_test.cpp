// The module proxy and the linker on the real test modules (modules/testmodule.cpp):
// each module appends its events to a log file that the tests read.
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "lumplatform/files.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using lumplatform::fromUtf8;

namespace {

const fs::path kModules = LUMRX_TEST_MODULE_DIR;

std::u16string modulePath(const char* name) { return fromUtf8((kModules / name).string()); }

class ModuleTest : public lumtest::RuntimeTest {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("lumlinker-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        setenv("LUMRX_TEST_MODULE_LOG", (dir / "log").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("LUMRX_TEST_MODULE_LOG");
        fs::remove_all(dir);
    }
    // The log's lines since the last call.
    std::vector<std::string> events() {
        std::vector<std::string> lines;
        std::ifstream in(dir / "log");
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        fs::remove(dir / "log");
        return lines;
    }
    static KvRxDynamicLinkerImp* linker() {
        return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    }

    fs::path dir;
    lumtest::FakeHost host;
};

KvRxDynLoadModuleProxy* namedProxy(const std::u16string& name) {
    KvRxDynLoadModuleProxy* proxy = KvRxDynLoadModuleProxy::makeProxy(nullptr);
    proxy->setModuleName(name.c_str());
    return proxy;
}

}  // namespace

TEST_F(ModuleTest, LoadImageRunsInTheModulesDirectoryAndOwnsTheImage) {
    std::u16string cwd = lumplatform::currentDirectory();
    std::u16string good = modulePath("krxgood.krx");
    KvRxDynLoadModuleProxy* proxy = namedProxy(good);
    EXPECT_EQ(proxy->loadImage(), 0);
    ASSERT_NE(proxy->moduleHandle(), nullptr);
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood mapped " + kModules.string()});
    EXPECT_EQ(lumplatform::currentDirectory(), cwd);
    EXPECT_NE(proxy->getProc("kvrxGetApiVersion"), nullptr);
    void* handle = proxy->moduleHandle();
    EXPECT_EQ(proxy->loadImage(), 0);  // loaded already: no second mapping
    EXPECT_EQ(proxy->moduleHandle(), handle);
    EXPECT_TRUE(events().empty());
    delete proxy;
    EXPECT_EQ(lumplatform::mappedImage(good), nullptr);

    // A proxy over a handle it didn't load leaves the image alone.
    KvRxDynLoadModuleProxy* loader = namedProxy(good);
    ASSERT_EQ(loader->loadImage(), 0);
    delete KvRxDynLoadModuleProxy::makeProxy(loader->moduleHandle());
    EXPECT_EQ(lumplatform::mappedImage(good), loader->moduleHandle());
    delete loader;
}

TEST_F(ModuleTest, LoadImageFailuresKeepTheDirectory) {
    std::u16string cwd = lumplatform::currentDirectory();
    std::ofstream(dir / "text.krx") << "not an image";
    struct Case {
        std::u16string name;
        int error;
    } cases[] = {{u"", -1},
                 {fromUtf8((dir / "absent.krx").string()), 126},
                 {fromUtf8((dir / "text.krx").string()), 193}};
    for (const Case& c : cases) {
        KvRxDynLoadModuleProxy* proxy = namedProxy(c.name);
        EXPECT_EQ(proxy->loadImage(), c.error);
        EXPECT_EQ(proxy->moduleHandle(), nullptr);
        EXPECT_EQ(lumplatform::currentDirectory(), cwd);
        delete proxy;
    }
}

TEST_F(ModuleTest, MessagesReachTheEntryPointWithTheModuleCurrent) {
    KvRxDynLoadModuleProxy* proxy = namedProxy(modulePath("krxgood.krx"));
    ASSERT_EQ(proxy->loadImage(), 0);
    events();
    RxKDSAppTableEntryType* before = KvRxDynamicLinkerImp::getCurKdsData();
    EXPECT_EQ(before->proxy, nullptr);
    EXPECT_TRUE(proxy->sendMessageToApp(KvRx::kInitAppMsg, proxy));
    EXPECT_TRUE(proxy->sendMessageToApp(KvRx::AppMsgCode(77), nullptr));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxgood message 1", "krxgood message 77"}));
    EXPECT_EQ(KvRxDynamicLinkerImp::getCurKdsData(), before);
    EXPECT_EQ(host.runtime.current, nullptr);
    EXPECT_EQ(proxy->kdsAppData()->proxy, proxy);
    EXPECT_EQ(proxy->kdsAppData()->moduleName, proxy->moduleName());
    EXPECT_FALSE(proxy->isUnloadable());  // still locked, but no longer in a message
    proxy->setLocked(false);
    EXPECT_TRUE(proxy->isUnloadable());
    delete proxy;

    // A failing reply and an exception are failures, and leave nothing behind.
    for (const char* name : {"krxfailinit.krx", "krxthrows.krx"}) {
        KvRxDynLoadModuleProxy* failing = namedProxy(modulePath(name));
        ASSERT_EQ(failing->loadImage(), 0);
        EXPECT_FALSE(failing->sendMessageToApp(KvRx::kInitAppMsg, failing)) << name;
        EXPECT_TRUE(failing->sendMessageToApp(KvRx::kUnloadAppMsg, failing)) << name;
        EXPECT_EQ(KvRxDynamicLinkerImp::getCurKdsData(), before);
        EXPECT_EQ(host.runtime.current, nullptr);
        delete failing;
    }
}
