// The linker as hosts reach it: user messages for every refusal, loads by application
// record (also one written by another process), list files and start-up records, the
// flat kvrx... functions, and messages to modules.
#include "kvoreappinfo.h"
#include "lumplatform/library.h"
#include "moduletest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using lumtest::utf8;

namespace {

class LinkerApi : public lumtest::ModuleTest {
protected:
    void SetUp() override {
        lumtest::ModuleTest::SetUp();
        setenv("LUMRX_OEM_PRODUCT_NAME", "Lumora Test", 1);
    }
    void TearDown() override {
        linker()->unloadAllKrxModule(false, true);
        unsetenv("LUMRX_OEM_PRODUCT_NAME");
        lumtest::ModuleTest::TearDown();
    }
    // Writes the record `app` for `module` with the load reasons `reason`.
    static void record(const char16_t* app, const std::u16string& module, KvoreApp::LoadReasons reason,
                       KvoreAppInfo::MgdType managed = 0) {
        KvoreAppInfo info;
        info.setAppName(app);
        info.setModuleName(module.c_str());
        info.setLoadReason(reason);
        info.setManaged(managed);
        ASSERT_EQ(info.writeToRegistry(), KvoreApp::eOk);
    }
    std::vector<std::string> shown() {
        std::vector<std::string> texts;
        for (const std::u16string& m : host.messages) texts.push_back(utf8(m));
        host.messages.clear();
        return texts;
    }
};

}  // namespace

TEST_F(LinkerApi, EveryRefusalShowsItsMessage) {
    std::string text = utf8(write("text.krx", "not an image, only text"));
    std::string truncated;
    {
        std::ifstream good(moduleDir() / "krxgood.krx", std::ios::binary);
        truncated.resize(16);
        good.read(&truncated[0], 16);
    }
    std::string cut = utf8(write("cut.krx", truncated));
    // A PE header for x86-64: an image for another system's 64-bit processor.
    std::string pe(0x200, '\0');
    pe[0] = 'M', pe[1] = 'Z', pe[0x3C] = char(0x80);
    pe[0x80] = 'P', pe[0x81] = 'E', pe[0x84] = char(0x64), pe[0x85] = char(0x86);
    std::string windows = utf8(write("windows.krx", pe));
    // A module whose own dependency isn't next to it.
    std::filesystem::copy_file(moduleDir() / "krxuser.krx", dir / "lonely.krx");
    std::string lonely = (dir / "lonely.krx").string();
    host.remoteFiles[u"remote:absent.krx"] = lumtest::u16((dir / "absent.krx").string());

    struct Case {
        std::string name;
        std::vector<std::string> messages;
    } cases[] = {
        {text, {text + " is not a usable extension module.", "Unable to load module " + text + "."}},
        {cut, {cut + " is not a usable extension module.", "Unable to load module " + cut + "."}},
        {windows,
         {windows + " is a Windows image, or another 64-bit image, that Lumora Test on Linux cannot load; use "
                    "a build of the module made for Lumora Test on Linux.",
          "Unable to load module " + windows + "."}},
        {lonely,
         {"Module " + lonely + " could not be loaded: a library it needs, or a symbol it uses, could not be found.",
          "Unable to load module " + lonely + "."}},
        // A remote name is fetched, not searched: its local file is named.
        {"remote:absent.krx",
         {"Module " + (dir / "absent.krx").string() + " could not be found.",
          "Unable to load module " + (dir / "absent.krx").string() + "."}},
        {utf8(modulePath("krxnoentry.krx")),
         {"Module " + utf8(modulePath("krxnoentry.krx")) + " has no entry point \"kvrxEntryPoint\".",
          "Unable to load module " + utf8(modulePath("krxnoentry.krx")) + "."}},
        {utf8(modulePath("krxnoversion.krx")),
         {utf8(modulePath("krxnoversion.krx")) + " is not a usable extension module.",
          "Unable to load module " + utf8(modulePath("krxnoversion.krx")) + "."}},
        {utf8(modulePath("krxoldapi.krx")),
         {"Module " + utf8(modulePath("krxoldapi.krx")) + " was built for another version of Lumora Test.",
          "Unable to load module " + utf8(modulePath("krxoldapi.krx")) + "."}},
    };
    for (const Case& c : cases) {
        std::u16string name = lumtest::u16(c.name);
        EXPECT_FALSE(linker()->loadModule(name.c_str(), true, false)) << c.name;
        EXPECT_EQ(shown(), c.messages) << c.name;
        // Quiet loads say nothing.
        EXPECT_FALSE(linker()->loadModule(name.c_str(), false, false)) << c.name;
        EXPECT_TRUE(shown().empty()) << c.name;
    }
    EXPECT_EQ(linker()->loadedModuleCount(), 0);

    // A failed first message is shown even to a quiet load.
    std::string failing = utf8(modulePath("krxfailinit.krx"));
    EXPECT_FALSE(linker()->loadModule(modulePath("krxfailinit.krx").c_str(), false, false));
    EXPECT_EQ(shown(), std::vector<std::string>{"Unable to load module " + failing + "."});

    // Loaded already, on command; loaded; locked.
    std::u16string free = modulePath("krxfree.krx"), locked = modulePath("krxgood.krx");
    ASSERT_TRUE(linker()->loadModule(free.c_str(), true, true));
    EXPECT_EQ(shown(), std::vector<std::string>{"Module " + utf8(free) + " loaded."});
    EXPECT_TRUE(linker()->loadModule(free.c_str(), true, true));
    EXPECT_EQ(shown(), std::vector<std::string>{"Module " + utf8(free) + " is already loaded."});
    EXPECT_EQ(proxyOf(free)->refCount(), 1);
    ASSERT_TRUE(linker()->loadModule(locked.c_str(), false, false));
    EXPECT_FALSE(linker()->unloadModule(locked.c_str(), true));
    EXPECT_EQ(shown(), std::vector<std::string>{"Module " + utf8(locked) +
                                                " cannot be unloaded now: it is locked or handling a message."});
    EXPECT_EQ(proxyOf(locked)->refCount(), 1);
    // Texts come from the resource library; an unknown number has none.
    char16_t out[1024];
    EXPECT_TRUE(KvRxLinkerMessage::loadMessageText(4242, out));
    EXPECT_EQ(out[0], 0);
}

TEST_F(LinkerApi, LoadsByApplicationRecord) {
    std::u16string free = modulePath("krxfree.krx");
    record(u"FreeApp", free, KvoreApp::kOnRequest | KvoreApp::kOnStartup);
    record(u"StartOnly", modulePath("krxmdi.krx"), KvoreApp::kOnStartup);
    record(u"Disabled", modulePath("krxmdi.krx"), KvoreApp::kOnRequest | KvoreApp::kDisabled);

    EXPECT_FALSE(kvrxLoadApp(u"StartOnly", false));  // no request bit
    EXPECT_FALSE(kvrxLoadApp(u"Disabled", false));
    EXPECT_FALSE(kvrxLoadApp(u"NoSuchApp", false));
    EXPECT_FALSE(kvrxLoadApp(u"", false));
    EXPECT_EQ(linker()->loadedModuleCount(), 0);

    // Only the name before a "|" is the record's.
    ASSERT_TRUE(kvrxLoadApp(u"FreeApp|with a tail", false));
    KvRxDynLoadModuleProxy* proxy = proxyOf(free);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(utf8(proxy->appName()), "FreeApp");
    EXPECT_EQ(proxy->loadReason(), KvoreApp::kOnRequest | KvoreApp::kOnStartup);
    EXPECT_EQ(proxy->loadOrigin(), 2);
    // At start-up a loaded module counts as done, and keeps its name and count.
    proxy->setAppName(u"Renamed");
    EXPECT_TRUE(linker()->loadApp(u"FreeApp", KvoreApp::kOnStartup, false, false));
    EXPECT_EQ(utf8(proxy->appName()), "Renamed");
    EXPECT_EQ(proxy->refCount(), 1);

    EXPECT_FALSE(kvrxUnloadApp(u"FreeApp", false));  // found by application name only
    EXPECT_TRUE(kvrxUnloadApp(u"renamed", false));
    EXPECT_FALSE(kvrxAppIsLoaded(free.c_str()));
}

TEST_F(LinkerApi, ARecordWrittenByAnotherProcessLoads) {
    std::string key = "Software\\Lumora\\LumRxTest\\Applications\\ToolApp";
    std::string tool = LUMRX_REG_TOOL;
    std::string module = utf8(modulePath("krxfree.krx"));
    ASSERT_EQ(std::system((tool + " add '" + key + "' /v LOADER /t REG_SZ /d '" + module + "'").c_str()), 0);
    ASSERT_EQ(std::system((tool + " add '" + key + "' /v LOADCTRLS /t REG_DWORD /d 8").c_str()), 0);
    ASSERT_TRUE(kvrxLoadApp(u"ToolApp", true));
    EXPECT_TRUE(kvrxAppIsLoaded(modulePath("krxfree.krx").c_str()));
    EXPECT_EQ(events().back(), "krxfree message 1");
    EXPECT_EQ(kvrxUnregisterApp(u"ToolApp"), KvoreApp::eOk);
}

TEST_F(LinkerApi, ManagedModulesGoThroughTheBridge) {
    record(u"Managed", u"Managed.Module.dll", KvoreApp::kOnRequest, 1);
    record(u"Refused", u"refuse.dll", KvoreApp::kOnRequest, 1);
    EXPECT_FALSE(kvrxLoadApp(u"Managed", false));  // no bridge mapped
    void* bridge = lumplatform::openLibrary(lumplatform::fromUtf8((moduleDir() / "LumManaged.so").string()));
    ASSERT_NE(bridge, nullptr);
    EXPECT_TRUE(kvrxLoadApp(u"Managed", false));
    EXPECT_FALSE(kvrxLoadApp(u"Refused", false));
    EXPECT_EQ(events(), (std::vector<std::string>{"bridge Managed.Module.dll", "bridge refuse.dll"}));
    EXPECT_EQ(linker()->loadedModuleCount(), 0);  // the bridge keeps them, not the linker
    lumplatform::closeLibrary(bridge);
}

TEST_F(LinkerApi, ListFilesAndStartupRecords) {
    host.files[u"modules.lst"] = lumtest::u16((dir / "modules.lst").string());
    host.files[u"krxfree"] = modulePath("krxfree.krx");
    host.files[u"krxmdi"] = modulePath("krxmdi.krx");
    std::string longLine(300, 'x');
    write("modules.lst", "; a comment\n// another\n\n   krxfree\r\nnot-there\n" + longLine + "\nkrxmdi\n");
    record(u"AtStart", modulePath("krxouter.krx"), KvoreApp::kOnStartup);

    // A missing line, the over-long one and the empty line after the last break fail;
    // everything else loads, and the start-up record first.
    EXPECT_FALSE(linker()->loadListedModules(u"modules.lst"));
    EXPECT_TRUE(kvrxAppIsLoaded(modulePath("krxouter.krx").c_str()));
    EXPECT_TRUE(kvrxAppIsLoaded(modulePath("krxfree.krx").c_str()));
    EXPECT_TRUE(kvrxAppIsLoaded(modulePath("krxmdi.krx").c_str()));
    for (int hint : host.findFileHints) EXPECT_EQ(hint, 7);
    std::vector<std::string> asked;
    for (const std::string& m : shown()) asked.push_back(m);
    EXPECT_EQ(asked.size(), 2u);  // krxfree was loaded already: message 1002, then 1007 for krxmdi

    // Without a break at the end every line is a module: true.
    write("modules.lst", "// only\nkrxmdi");
    EXPECT_TRUE(linker()->loadListedModules(u"modules.lst"));
    EXPECT_FALSE(linker()->loadListedModules(u"absent.lst"));
    EXPECT_FALSE(linker()->loadListedModules(nullptr));
    EXPECT_EQ(kvrxUnregisterApp(u"AtStart"), KvoreApp::eOk);
}

TEST_F(LinkerApi, MessagesAboutTheFileNameItsFullName) {
    std::filesystem::create_directories(dir / "sub");
    write("sub/junk.krx", "not an image");
    std::string pe(0x200, '\0');
    pe[0] = 'M', pe[1] = 'Z', pe[0x3C] = char(0x80);
    pe[0x80] = 'P', pe[0x81] = 'E', pe[0x84] = char(0x64), pe[0x85] = char(0x86);
    write("sub/windows.krx", pe);
    std::filesystem::copy_file(moduleDir() / "krxnoversion.krx", dir / "sub" / "noversion.krx");
    for (const char* file : {"junk.krx", "windows.krx", "noversion.krx"}) {
        std::string given = (dir / "sub" / "." / file).string();
        std::string full = (std::filesystem::canonical(dir) / "sub" / file).string();
        std::u16string remote = u"remote:" + lumtest::u16(file);
        host.remoteFiles[remote] = lumtest::u16(given);
        EXPECT_FALSE(linker()->loadModule(remote.c_str(), true, false)) << file;
        std::vector<std::string> messages = shown();
        ASSERT_EQ(messages.size(), 2u) << file;
        // The file's own message has the full name; the failure names the module as given.
        EXPECT_NE(messages[0].find(full), std::string::npos) << messages[0];
        EXPECT_EQ(messages[0].find("/./"), std::string::npos) << messages[0];
        EXPECT_NE(messages[1].find(given), std::string::npos) << messages[1];
    }
}

TEST_F(LinkerApi, AListThatCannotBeReadIsFalseAndLoadsNothing) {
    // A folder by the list's name, and a file this process may not read.
    std::u16string listed = modulePath("krxgood.krx");
    std::filesystem::create_directories(dir / "folder.lst" / "krxgood");
    host.files[u"folder.lst"] = lumtest::u16((dir / "folder.lst").string());
    host.files[u"krxgood"] = listed;
    EXPECT_FALSE(linker()->loadListedModules(u"folder.lst"));
    EXPECT_FALSE(kvrxAppIsLoaded(listed.c_str()));
    write("locked.lst", "krxgood\n");
    std::filesystem::permissions(dir / "locked.lst", std::filesystem::perms::none);
    host.files[u"locked.lst"] = lumtest::u16((dir / "locked.lst").string());
    if (std::ifstream(dir / "locked.lst").good()) GTEST_SKIP() << "a privileged process reads it";
    EXPECT_FALSE(linker()->loadListedModules(u"locked.lst"));
    EXPECT_FALSE(kvrxAppIsLoaded(listed.c_str()));
}

TEST_F(LinkerApi, FlatFunctionsAndMessages) {
    std::u16string free = modulePath("krxfree.krx"), locked = modulePath("krxgood.krx");
    ASSERT_TRUE(kvrxLoadModule(free.c_str(), false, false));
    ASSERT_TRUE(kvrxLoadModule(locked.c_str(), false, false));
    KvRxDynLoadModuleProxy* proxy = proxyOf(locked);

    EXPECT_TRUE(kvrxApplicationIsLocked(locked.c_str()));
    EXPECT_FALSE(kvrxApplicationIsLocked(free.c_str()));
    EXPECT_FALSE(kvrxApplicationIsLocked(u""));
    EXPECT_TRUE(kvrxUnlockApplication(proxy));
    EXPECT_FALSE(kvrxApplicationIsLocked(locked.c_str()));
    EXPECT_TRUE(kvrxLockApplication(proxy));
    EXPECT_FALSE(kvrxLockApplication(nullptr));
    KvRxService notAModule;
    EXPECT_LUM_THROW(kvrxLockApplication(&notAModule), "Rx module fatal error, code is 46");
    EXPECT_FALSE(kvrxIsAppMDIAware(locked.c_str()));
    EXPECT_TRUE(kvrxRegisterAppMDIAware(proxy));
    EXPECT_TRUE(kvrxIsAppMDIAware(locked.c_str()));
    EXPECT_TRUE(kvrxRegisterAppNotMDIAware(proxy));
    EXPECT_TRUE(kvrxIsAppMDIAware(modulePath("krxmdi.krx").c_str()));  // not loaded
    EXPECT_FALSE(kvrxIsAppMDIAware(u""));
    EXPECT_FALSE(kvrxLoadAutoloadApps(u"x"));
    EXPECT_FALSE(kvrxUnloadAutoloadApps(u"x"));

    auto* names = kvrxLoadedApps();
    std::vector<std::string> files;
    for (int i = 0; i < names->length(); ++i) {
        files.push_back(utf8((*names)[i]));
        _lumFree((*names)[i]);
    }
    delete names;
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (std::vector<std::string>{"krxfree.krx", "krxgood.krx"}));

    // A module's refusal is its own affair; a bare name isn't a table key.
    events();
    EXPECT_TRUE(linker()->sendMessageToModule(free.c_str(), KvRx::AppMsgCode(99), nullptr));
    EXPECT_FALSE(linker()->sendMessageToModule(u"krxfree.krx", KvRx::AppMsgCode(99), nullptr));
    EXPECT_FALSE(linker()->sendMessageToAllModules(KvRx::AppMsgCode(42), nullptr));
    std::vector<std::string> got = events();
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"krxfree message 42", "krxfree message 99",
                                             "krxgood message 42"}));
    EXPECT_FALSE(proxyOf(free)->inMessage());
    EXPECT_EQ(linker()->reservedOperationA(1, 2, 3), 10);
    EXPECT_EQ(linker()->productLCID(), host.lcid);
}
