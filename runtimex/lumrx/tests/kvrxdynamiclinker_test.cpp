// The module proxy and the linker on the real test modules (modules/testmodule.cpp):
// each module appends its events to a log file that the tests read.
#include "kernel/kvrximpclass.h"
#include "kvrxclass.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "lumplatform/files.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"
#include "moduletest.h"
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

using ModuleTest = lumtest::ModuleTest;

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

TEST_F(ModuleTest, LoadImageRunsInTheFolderTheNameReaches) {
    std::u16string cwd = lumplatform::currentDirectory();
    // The folder is current already: the image runs there, and it stays current.
    ASSERT_TRUE(lumplatform::setCurrentDirectory(fromUtf8(kModules.string())));
    KvRxDynLoadModuleProxy* proxy = namedProxy(modulePath("krxgood.krx"));
    EXPECT_EQ(proxy->loadImage(), 0);
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood mapped " + kModules.string()});
    EXPECT_EQ(lumplatform::currentDirectory(), fromUtf8(kModules.string()));
    delete proxy;

    // A folder named through "..", from a current folder elsewhere: the image runs in
    // the folder the name reaches, and a file cut short there is refused by its check.
    ASSERT_TRUE(lumplatform::setCurrentDirectory(fromUtf8(dir.string())));
    fs::create_directories(dir / "sub");
    fs::copy_file(kModules / "krxgood.krx", dir / "copy.krx");
    std::string bytes(1024, '\0');
    std::ifstream(dir / "copy.krx", std::ios::binary).read(&bytes[0], std::streamsize(bytes.size()));
    std::ofstream(dir / "cut.krx", std::ios::binary) << bytes;
    proxy = namedProxy(fromUtf8((dir / "sub" / ".." / "copy.krx").string()));
    EXPECT_EQ(proxy->loadImage(), 0);
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood mapped " + dir.string()});
    delete proxy;
    ASSERT_TRUE(lumplatform::setCurrentDirectory(fromUtf8((dir / "sub").string())));
    proxy = namedProxy(fromUtf8((dir / "sub" / ".." / "cut.krx").string()));
    EXPECT_EQ(proxy->loadImage(), 193);
    EXPECT_EQ(lumplatform::currentDirectory(), fromUtf8((dir / "sub").string()));
    delete proxy;

    // A current folder that can't be read any more can't be set back: the module's
    // folder stays current.
    ASSERT_TRUE(lumplatform::setCurrentDirectory(fromUtf8((dir / "sub").string())));
    fs::remove(dir / "sub");
    proxy = namedProxy(modulePath("krxgood.krx"));
    EXPECT_EQ(proxy->loadImage(), 0);
    EXPECT_EQ(lumplatform::currentDirectory(), fromUtf8(kModules.string()));
    delete proxy;
    ASSERT_TRUE(lumplatform::setCurrentDirectory(cwd));
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

// A proxy that lets its image go and takes another one delivers to the new image's
// entry point, not to the one it found before.
TEST_F(ModuleTest, AProxyThatTakesAnotherImageCallsThatImagesEntryPoint) {
    KvRxDynLoadModuleProxy* proxy = namedProxy(modulePath("krxgood.krx"));
    ASSERT_EQ(proxy->loadImage(), 0);
    events();
    EXPECT_TRUE(proxy->sendMessageToApp(KvRx::AppMsgCode(77), nullptr));
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood message 77"});
    proxy->unloadImage();
    EXPECT_EQ(proxy->entryPoint(), nullptr);
    proxy->setModuleName(modulePath("krxfailinit.krx").c_str());
    ASSERT_EQ(proxy->loadImage(), 0);
    events();
    EXPECT_FALSE(proxy->sendMessageToApp(KvRx::AppMsgCode(1), proxy));
    EXPECT_EQ(events(), std::vector<std::string>{"krxfailinit message 1"});
    delete proxy;
}

namespace {

bool mapped(const std::u16string& path) { return lumplatform::mappedImage(path) != nullptr; }

KvRxDictionary* services() {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
}

}  // namespace

TEST_F(ModuleTest, RepeatedLoadsCountAndOnlyTheLastUnloadTakesTheModuleDown) {
    std::u16string good = modulePath("krxgood.krx");
    // A name with "." in it still finds the one table entry of the module.
    std::u16string dotted = fromUtf8((kModules / "." / "krxgood.krx").string());
    ASSERT_TRUE(linker()->loadModule(dotted.c_str(), false, false));
    EXPECT_EQ(events(), (std::vector<std::string>{"krxgood mapped " + kModules.string(),
                                                  "krxgood message 1"}));
    KvRxDynLoadModuleProxy* proxy = linker()->findRxModuleProxyByModuleName(good.c_str(), false);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(proxy->refCount(), 1);
    EXPECT_FALSE(proxy->initialising());
    EXPECT_EQ(host.runtime.current, nullptr);
    ASSERT_EQ(recorder.lines.size(), 1u);
    std::u16string moduleName = proxy->moduleName();
    EXPECT_EQ(recorder.lines[0], u"krx " + moduleName + u" load success");

    EXPECT_TRUE(linker()->loadModule(good.c_str(), false, false));
    EXPECT_EQ(proxy->refCount(), 2);
    EXPECT_TRUE(events().empty());

    // Every module starts locked.
    EXPECT_FALSE(linker()->unloadModule(good.c_str(), false));
    EXPECT_EQ(proxy->refCount(), 2);
    // Not the last reference: only the count drops.
    proxy->setLocked(false);
    EXPECT_FALSE(linker()->unloadModule(good.c_str(), false));
    EXPECT_EQ(proxy->refCount(), 1);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(mapped(good));

    EXPECT_TRUE(linker()->unloadModule(good.c_str(), false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxgood message 2"});
    EXPECT_EQ(linker()->findRxModuleProxyByModuleName(good.c_str(), false), nullptr);
    EXPECT_FALSE(mapped(good));
    EXPECT_EQ(recorder.lines.back(), u"krx " + moduleName + u" unload");
    EXPECT_FALSE(linker()->unloadModule(good.c_str(), false));
    EXPECT_FALSE(linker()->unloadModule(nullptr, false));
}

TEST_F(ModuleTest, ModulesThatCannotBeOpenedLeaveNothing) {
    std::ofstream(dir / "text.krx") << "not an image";
    std::vector<std::u16string> names = {
        modulePath("krxnoentry.krx"), modulePath("krxnoversion.krx"), modulePath("krxoldapi.krx"),
        fromUtf8((dir / "text.krx").string()), fromUtf8((dir / "absent.krx").string()), u""};
    for (const std::u16string& name : names) {
        EXPECT_FALSE(linker()->loadModule(name.c_str(), false, false)) << lumtest::utf8(name);
        EXPECT_EQ(linker()->findRxModuleProxyByModuleName(name.c_str(), false), nullptr);
        EXPECT_FALSE(mapped(name));
        for (const std::string& line : events())
            EXPECT_EQ(line.find(" message "), std::string::npos) << line;
    }
    EXPECT_TRUE(recorder.lines.empty());
}

TEST_F(ModuleTest, AFailedStartTakesTheUnloadRoad) {
    for (const char* file : {"krxfailinit.krx", "krxthrows.krx"}) {
        std::u16string path = modulePath(file);
        std::string name = std::string(file).substr(0, std::string(file).find('.'));
        EXPECT_FALSE(linker()->loadModule(path.c_str(), true, false)) << file;
        EXPECT_EQ(events(), (std::vector<std::string>{name + " mapped " + kModules.string(),
                                                      name + " message 1", name + " message 2"}));
        EXPECT_EQ(linker()->findRxModuleProxyByModuleName(path.c_str(), false), nullptr);
        EXPECT_FALSE(mapped(path));
        EXPECT_EQ(host.runtime.current, nullptr);
        ASSERT_EQ(recorder.lines.size(), 2u);
        EXPECT_EQ(recorder.lines[0], u"krx " + path + u" load failure");
        EXPECT_EQ(recorder.lines[1], u"krx " + path + u" unload");
        recorder.lines.clear();
    }
}

TEST_F(ModuleTest, UnloadTakesTheModulesServicesAndClassOwnership) {
    std::u16string good = modulePath("krxgood.krx");
    ASSERT_TRUE(linker()->loadModule(good.c_str(), false, false));
    KvRxDynLoadModuleProxy* proxy = linker()->findRxModuleProxyByModuleName(good.c_str(), false);
    ASSERT_NE(proxy, nullptr);
    KvRxService owned, kernels;
    owned.setSysInfo(proxy);
    kernels.setSysInfo(KvRxDynamicLinkerImp::kernelProxy());
    unsigned id = 0;
    services()->atPut(u"LinkerTestOwned", &owned, id);
    services()->atPut(u"LinkerTestKernel", &kernels, id);
    KvRxClass* moduleClass = newKvRxClass(u"LinkerTestModuleClass", u"OvRxObject");
    ASSERT_NE(moduleClass, nullptr);
    KvRxClassState::of(moduleClass)->setModule(proxy);

    proxy->setLocked(false);
    EXPECT_TRUE(linker()->unloadModule(good.c_str(), false));
    EXPECT_FALSE(services()->has(u"LinkerTestOwned"));
    EXPECT_EQ(services()->remove(u"LinkerTestKernel"), &kernels);
    EXPECT_EQ(KvRxClassState::of(moduleClass)->module(), nullptr);
    EXPECT_EQ(linker()->findRxModuleProxyByModuleName(good.c_str(), false), nullptr);
}

TEST_F(ModuleTest, WhatAModuleRegistersInItsFirstMessageIsItsUntilItsUnload) {
    std::u16string owner = modulePath("krxowner.krx");
    ASSERT_TRUE(linker()->loadModule(owner.c_str(), false, false));
    KvRxDynLoadModuleProxy* proxy = linker()->findRxModuleProxyByModuleName(owner.c_str(), false);
    ASSERT_NE(proxy, nullptr);
    KvRxClass* owned = kvrxFindKvRxClass(u"KrxOwnedClass");
    ASSERT_NE(owned, nullptr);
    EXPECT_EQ(KvRxClassState::of(owned)->module(), proxy);
    auto* service = KvRxService::cast(services()->at(u"KrxOwnedService"));
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->getSysInfo(), proxy);
    EXPECT_NE(linker()->getServiceSymbolAddr(u"KrxOwnedService", "kvrxEntryPoint"), nullptr);

    proxy->setLocked(false);
    EXPECT_TRUE(linker()->unloadModule(owner.c_str(), false));
    EXPECT_FALSE(services()->has(u"KrxOwnedService"));
    EXPECT_EQ(kvrxFindKvRxClass(u"KrxOwnedClass"), nullptr);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClassCount(), 0);
    EXPECT_FALSE(mapped(owner));
}

TEST_F(ModuleTest, AModuleThatADependencyLeftWithoutReferencesStillUnloads) {
    std::u16string free = modulePath("krxfree.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    KvRxDynLoadModuleProxy* proxy = proxyOf(free);
    ASSERT_NE(proxy, nullptr);
    events();
    // A holder takes a dependency, the host drops its load, the holder lets go: the
    // count the dependency leaves is 0 and the module is told.
    KvRxService held;
    held.setSysInfo(proxy);
    held.addDependency();
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    held.removeDependency();
    EXPECT_EQ(proxy->refCount(), 0);
    EXPECT_EQ(events(), std::vector<std::string>{"krxfree message 11"});

    // A further load finds the same module: one more reference, no first message.
    EXPECT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(proxyOf(free), proxy);
    EXPECT_EQ(proxy->refCount(), 1);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(linker()->loadedModuleCount(), 1);

    held.addDependency();
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    held.removeDependency();
    EXPECT_EQ(events(), std::vector<std::string>{"krxfree message 11"});
    // The next unload goes on from 0 and takes it down.
    EXPECT_TRUE(linker()->unloadModule(free.c_str(), false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxfree message 2"});
    EXPECT_EQ(proxyOf(free), nullptr);
    EXPECT_FALSE(mapped(free));

    // So does a forced quit of everything, with its quit message first.
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    proxy = proxyOf(free);
    held.setSysInfo(proxy);
    held.addDependency();
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    held.removeDependency();
    events();
    linker()->unloadAllKrxModule(true, true);
    EXPECT_EQ(events(), (std::vector<std::string>{"krxfree message 8", "krxfree message 2"}));
    // Waiting for its release after the quit: not unloaded twice, and a new load gets a
    // proxy of its own.
    EXPECT_FALSE(linker()->unloadModule(free.c_str(), false));
    EXPECT_TRUE(events().empty());
    ASSERT_TRUE(linker()->loadModule(free.c_str(), false, false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxfree message 1"});
    KvRxDynLoadModuleProxy* again = proxyOf(free);
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again, proxy);
    EXPECT_TRUE(linker()->unloadModule(free.c_str(), false));
    EXPECT_EQ(events(), std::vector<std::string>{"krxfree message 2"});
}

// An image the system has mapped already: under the same name it gets its proxy and
// first message, and the system's own reference outlives the unload; under another name
// (a second link to the same file) the load is refused without a message, and the image
// keeps the references it had.
TEST_F(ModuleTest, AnImageMappedBeforeIsAcceptedOnlyUnderItsOwnName) {
    std::u16string good = modulePath("krxgood.krx");
    void* system = lumplatform::openLibrary(good);
    ASSERT_NE(system, nullptr);
    events();
    for (bool verbose : {false, true}) {
        ASSERT_TRUE(linker()->loadModule(good.c_str(), verbose, false));
        EXPECT_EQ(events(), std::vector<std::string>{"krxgood message 1"});
        KvRxDynLoadModuleProxy* proxy = linker()->findRxModuleProxyByModuleName(good.c_str(), true);
        EXPECT_EQ(proxy->moduleHandle(), system);
        proxy->setLocked(false);
        EXPECT_TRUE(linker()->unloadModule(good.c_str(), false));
        EXPECT_EQ(events(), std::vector<std::string>{"krxgood message 2"});
        EXPECT_TRUE(mapped(good));
    }
    host.messages.clear();

    fs::path second = dir / "second.krx";
    fs::create_hard_link(kModules / "krxgood.krx", second);
    std::u16string other = fromUtf8(second.string());
    for (bool asCommand : {false, true}) {
        EXPECT_FALSE(linker()->loadModule(other.c_str(), true, asCommand));
        EXPECT_EQ(linker()->findRxModuleProxyByModuleName(other.c_str(), false), nullptr);
        EXPECT_TRUE(host.messages.empty());
        EXPECT_TRUE(events().empty());
    }
    lumplatform::closeLibrary(system);
    EXPECT_FALSE(mapped(good));
}

// The table compares names without case, letters beyond ASCII too: a module is found,
// and unloaded, by its name in other case; a name that differs otherwise finds nothing.
TEST_F(ModuleTest, TheTableFindsAModuleByItsNameInAnyCase) {
    fs::copy_file(kModules / "krxgood.krx", dir / "M\xc3\xb6" "dul.krx");
    std::u16string name = fromUtf8((dir / "M\xc3\xb6" "dul.krx").string());
    std::u16string upper = name, other = name;
    for (char16_t& c : upper) c = c >= u'a' && c <= u'z' ? char16_t(c - 32) : c == u'\u00f6' ? u'\u00d6' : c;
    other.replace(other.size() - 5, 1, u"m");
    ASSERT_TRUE(linker()->loadModule(name.c_str(), false, false));
    KvRxDynLoadModuleProxy* proxy = proxyOf(name);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(proxyOf(upper), proxy);
    EXPECT_TRUE(linker()->isModuleLoaded(upper.c_str()));
    EXPECT_FALSE(linker()->isModuleLoaded(other.c_str()));
    proxy->setLocked(false);
    EXPECT_TRUE(linker()->unloadModule(upper.c_str(), false));
    EXPECT_FALSE(linker()->isModuleLoaded(name.c_str()));
    EXPECT_FALSE(mapped(name));
}

// A name that reaches the file through links loads it under its full name, with its own
// folder current while it maps: the same module again by its full name, or by a link to
// the file, is one more reference, not a second module. A name of nothing, or of a
// folder, loads nothing and shows nothing, and the current folder stays as it was, also
// when it can't be read any more.
TEST_F(ModuleTest, ANameThroughLinksLoadsTheFileUnderItsFullName) {
    std::u16string cwd = lumplatform::currentDirectory();
    fs::path real = fs::canonical(dir) / "real";
    fs::create_directories(real / "folder.krx");
    fs::copy_file(kModules / "krxgood.krx", real / "m.krx");
    fs::create_directory_symlink(real, fs::canonical(dir) / "via");
    fs::create_symlink(real / "m.krx", real / "alias.krx");
    std::u16string full = fromUtf8((real / "m.krx").string());
    std::u16string names[] = {fromUtf8((fs::canonical(dir) / "via" / "m.krx").string()), full,
                              fromUtf8((real / "alias.krx").string())};
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(linker()->loadModule(names[i].c_str(), true, false)) << i;
        EXPECT_EQ(lumplatform::currentDirectory(), cwd);
    }
    EXPECT_EQ(events(), (std::vector<std::string>{"krxgood mapped " + real.string(), "krxgood message 1"}));
    KvRxDynLoadModuleProxy* proxy = proxyOf(full);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(std::u16string(proxy->moduleName()), full);
    EXPECT_EQ(proxy->refCount(), 3);
    EXPECT_EQ(linker()->loadedModuleCount(), 1);
    host.messages.clear();

    for (const char* nothing : {"absent.krx", "folder.krx"}) {
        std::u16string name = fromUtf8((real / nothing).string());
        EXPECT_FALSE(linker()->loadModule(name.c_str(), true, false)) << nothing;
        EXPECT_EQ(lumplatform::currentDirectory(), cwd);
    }
    fs::create_directories(dir / "gone");
    ASSERT_TRUE(lumplatform::setCurrentDirectory(fromUtf8((dir / "gone").string())));
    fs::remove(dir / "gone");
    EXPECT_FALSE(linker()->loadModule(fromUtf8((real / "absent.krx").string()).c_str(), true, false));
    EXPECT_EQ(lumplatform::currentDirectory(), u"");
    ASSERT_TRUE(lumplatform::setCurrentDirectory(cwd));
    EXPECT_TRUE(host.messages.empty());
    EXPECT_TRUE(events().empty());

    proxy->setLocked(false);
    for (int i = 0; i < 3; ++i) linker()->unloadModule(names[i].c_str(), false);
    EXPECT_EQ(proxyOf(full), nullptr);
    EXPECT_FALSE(mapped(full));
}
