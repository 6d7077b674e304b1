// Application records in the registry: both hives, the fallback to the user hive, the
// name lists, the record functions and records written by another process.
#include "kvoreappinfo.h"
#include "kvrxcollection.h"
#include "lumplatform/registry.h"
#include "lumplatform/text.h"
#include "testsupport.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

using lumplatform::RegistryHive;
using lumplatform::RegistryKey;
using lumtest::utf8;

namespace {

const char16_t* const kRecordPath = u"Software\\Lumora\\LumRxTest\\Applications\\";

class AppRecords : public lumtest::RuntimeTest {
protected:
    // Fresh hive files for every test process, never the user's.
    static void SetUpTestSuite() {
        char folder[] = "/tmp/lumrx-apprecords-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        std::string dir = folder;
        setenv("LUMRX_REGISTRY_USER", (dir + "/user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (dir + "/machine.db").c_str(), 1);
        lumtest::ensureRuntime();
    }
    void TearDown() override {
        lumplatform::setRegistryHiveReadOnly(RegistryHive::machine, false);
    }

    static std::u16string path(const char16_t* app) { return std::u16string(kRecordPath) + app; }
    static void put(RegistryHive hive, const std::u16string& key, const char16_t* name,
                    const std::u16string& text) {
        RegistryKey k;
        ASSERT_EQ(k.create(hive, key.c_str()), 0u);
        ASSERT_EQ(k.writeValue(name, lumplatform::kRegistryString, text.c_str(),
                               uint32_t((text.size() + 1) * 2)), 0u);
    }
    static void put(RegistryHive hive, const std::u16string& key, const char16_t* name, uint32_t n) {
        RegistryKey k;
        ASSERT_EQ(k.create(hive, key.c_str()), 0u);
        ASSERT_EQ(k.writeValue(name, lumplatform::kRegistryNumber, &n, 4), 0u);
    }
    static bool exists(RegistryHive hive, const std::u16string& key) {
        RegistryKey k;
        return k.open(hive, key.c_str(), lumplatform::RegistryAccess::read) == 0;
    }

    lumtest::FakeHost host;
};

TEST_F(AppRecords, NamesAndDefaults) {
    KvoreAppInfo info;
    EXPECT_EQ(info.loadReason(), 8u);
    EXPECT_EQ(info.status(), 0);
    EXPECT_EQ(info.appName(), nullptr);
    info.setAppName(u"\"Quoted App\"");
    EXPECT_EQ(utf8(info.appName()), "Quoted App");
    info.setAppName(u"Plain\" ");
    EXPECT_EQ(utf8(info.appName()), "Plain\" ") << "only a quote at the very end goes";
    info.setAppName(u"\"");
    EXPECT_EQ(utf8(info.appName()), "");
    EXPECT_EQ(info.writeToRegistry(), 5);
    EXPECT_EQ(info.readFromRegistry(), 5);
    EXPECT_EQ(info.delFromRegistry(), 5);
    EXPECT_EQ(info.status(), 5);

    info.setAppName(u"Fresh");
    EXPECT_EQ(info.writeGroupNameToRegistry(u"G"), 9) << "no hive before a write";
    EXPECT_EQ(info.readFromRegistry(KvoreAppInfo::ReadFlags()), 5);
    EXPECT_EQ(info.status(), 5) << "the flag form leaves the status alone";

    // A remote module name is fetched through the host; a failed fetch leaves none.
    host.remoteFiles[u"http://x/a.krx"] = u"/cache/a.krx";
    info.setModuleName(u"http://x/a.krx");
    EXPECT_EQ(utf8(info.moduleName()), "/cache/a.krx");
    host.remoteFiles.clear();
    host.remoteFiles[u"http://x/b.krx"] = std::u16string(300, u'b');  // doesn't fit
    info.setModuleName(u"http://x/b.krx");
    EXPECT_EQ(info.moduleName(), nullptr);
    info.setAppDesc(nullptr);
    EXPECT_EQ(info.appDesc(), nullptr);
}

TEST_F(AppRecords, WriteReadAndDeleteRoundTrip) {
    KvoreAppInfo info;
    info.setAppName(u"Drafting");
    EXPECT_EQ(info.readFromRegistry(), 3) << "in neither hive";
    EXPECT_FALSE(info.appImplements(u"LINE"));

    std::u16string longLoader = u"/opt/lumora/" + std::u16string(300, u'm') + u".krx";
    std::u16string longDesc(600, u'd');
    info.setModuleName(longLoader.c_str());
    info.setAppDesc(longDesc.c_str());
    info.setLoadReason(2 | 4);
    info.setManaged(1);
    ASSERT_EQ(info.writeToRegistry(), 0);
    EXPECT_TRUE(exists(RegistryHive::machine, path(u"Drafting")));
    EXPECT_EQ(info.writeGroupNameToRegistry(u"DRAW"), 0);
    EXPECT_EQ(info.writeCommandNameToRegistry(u"LINE", u"_LINE,draws lines"), 0);

    KvoreAppInfo read;
    read.setAppName(u"drafting");
    ASSERT_EQ(read.readFromRegistry(), 0);
    EXPECT_EQ(read.loadReason(), 6u);
    EXPECT_EQ(read.moduleName(), longLoader) << "long values come whole";
    EXPECT_EQ(read.appDesc(), longDesc);
    EXPECT_EQ(read.managed(), 1);
    EXPECT_EQ(read.writeCommandNameToRegistry(u"X", u"Y"), 9) << "a read chooses no hive";

    // Names: a group before the dot, the command after it; a command value up to its comma.
    EXPECT_TRUE(read.appImplements(u"line"));
    EXPECT_TRUE(read.appImplements(u"_LINE"));
    EXPECT_FALSE(read.appImplements(u"_LINE,draws lines"));
    EXPECT_TRUE(read.appImplements(u"draw.NOSUCH"));
    EXPECT_TRUE(read.appImplements(u"NOGROUP.line"));
    EXPECT_FALSE(read.appImplements(u".DRAW")) << "nothing before the dot: commands only";
    EXPECT_FALSE(read.appImplements(u"DRAW"));

    // The delete doesn't descend: a record with name lists stays.
    EXPECT_EQ(read.delFromRegistry(), 8);
    RegistryKey record;
    ASSERT_EQ(record.open(RegistryHive::machine, path(u"Drafting").c_str(), lumplatform::RegistryAccess::write), 0u);
    ASSERT_EQ(record.deleteSubKey(u"Groups"), 0u);
    ASSERT_EQ(record.deleteSubKey(u"Commands"), 0u);
    record.close();
    EXPECT_EQ(kvrxUnregisterApp(u"Drafting"), 0);
    EXPECT_FALSE(exists(RegistryHive::machine, path(u"Drafting")));
    EXPECT_EQ(kvrxUnregisterApp(u"Drafting"), 3) << "not registered";
    EXPECT_EQ(kvrxUnregisterApp(u""), 1);
}

TEST_F(AppRecords, HostLocatesTheModuleAndProductCodeFourUsesTheEngineKey) {
    put(RegistryHive::machine, path(u"Located"), u"LOADCTRLS", 8u);
    put(RegistryHive::machine, path(u"Located"), u"LOADER", u"located.krx");
    host.files[u"located.krx"] = u"/found/located.krx";
    KvoreAppInfo info;
    info.setAppName(u"Located");
    ASSERT_EQ(info.readFromRegistry(), 0);
    EXPECT_EQ(utf8(info.moduleName()), "/found/located.krx");
    EXPECT_EQ(info.appDesc(), nullptr);
    EXPECT_EQ(info.managed(), 0);

    host.product = 4;
    EXPECT_EQ(info.readFromRegistry(), 3) << "the product key isn't tried";
    put(RegistryHive::user, u"Applications\\Located", u"LOADCTRLS", 2u);
    put(RegistryHive::user, u"Applications\\Located", u"LOADER", u"engine.krx");
    ASSERT_EQ(info.readFromRegistry(), 0);
    EXPECT_EQ(utf8(info.moduleName()), "engine.krx");
    EXPECT_EQ(info.loadReason(), 2u);
}

TEST_F(AppRecords, UserHiveShadowsMachineUnlessItsRecordIsBroken) {
    put(RegistryHive::machine, path(u"Shadow"), u"LOADCTRLS", 4u);
    put(RegistryHive::machine, path(u"Shadow"), u"LOADER", u"machine.krx");
    put(RegistryHive::user, path(u"Shadow"), u"LOADCTRLS", 2u);
    put(RegistryHive::user, path(u"Shadow"), u"LOADER", u"user.krx");
    KvoreAppInfo info;
    info.setAppName(u"Shadow");
    ASSERT_EQ(info.readFromRegistry(), 0);
    EXPECT_EQ(utf8(info.moduleName()), "user.krx");

    put(RegistryHive::user, path(u"Shadow"), u"LOADCTRLS", u"2");  // wrong type
    ASSERT_EQ(info.readFromRegistry(), 0);
    EXPECT_EQ(utf8(info.moduleName()), "machine.krx");
    EXPECT_EQ(info.loadReason(), 4u);

    // A key without usable record in both hives.
    put(RegistryHive::user, path(u"Empty"), u"LOADCTRLS", 8u);
    put(RegistryHive::machine, path(u"Empty"), u"LOADER", uint32_t(1));
    info.setAppName(u"Empty");
    EXPECT_EQ(info.readFromRegistry(), 6);
    EXPECT_FALSE(info.appImplements(u"ANY"));
}

TEST_F(AppRecords, ReadOnlyMachineHiveFallsBackToTheUserHive) {
    KvoreAppInfo info;
    info.setAppName(u"Shared");
    info.setModuleName(u"/opt/shared.krx");
    ASSERT_EQ(info.writeToRegistry(), 0);
    lumplatform::setRegistryHiveReadOnly(RegistryHive::machine, true);

    // The same record stands machine-wide: nothing is written, the machine hive stays chosen.
    info.setModuleName(u"/OPT/SHARED.KRX");
    EXPECT_EQ(info.writeToRegistry(), 0);
    EXPECT_FALSE(exists(RegistryHive::user, path(u"Shared")));
    EXPECT_EQ(info.writeGroupNameToRegistry(u"G"), 8) << "the machine hive refuses";

    // A different one goes to the user hive, and so do the name lists after it.
    info.setLoadReason(4);
    EXPECT_EQ(info.writeToRegistry(), 0);
    EXPECT_TRUE(exists(RegistryHive::user, path(u"Shared")));
    EXPECT_EQ(info.writeCommandNameToRegistry(u"SHARE", u"_SHARE"), 0);
    EXPECT_TRUE(exists(RegistryHive::user, path(u"Shared") + u"\\Commands"));

    // Unregistering deletes where it can.
    RegistryKey record;
    ASSERT_EQ(record.open(RegistryHive::user, path(u"Shared").c_str(), lumplatform::RegistryAccess::write), 0u);
    ASSERT_EQ(record.deleteSubKey(u"Commands"), 0u);
    record.close();
    EXPECT_EQ(kvrxUnregisterApp(u"Shared"), 0) << "deleted in the user hive only";
    EXPECT_TRUE(exists(RegistryHive::machine, path(u"Shared")));
    EXPECT_EQ(kvrxRegisterApp(2, u"Other"), 0) << "lands in the user hive";
    EXPECT_EQ(kvrxRegisterApp(2, u""), 1);
    EXPECT_EQ(kvrxRegisterApp(2, nullptr), 1);
}

TEST_F(AppRecords, CorruptHiveFileGivesAStatusAndStaysAsItIs) {
    std::string machine = getenv("LUMRX_REGISTRY_MACHINE");
    const std::string junk = "this is no database, and must stay exactly like this\n";
    FILE* f = fopen(machine.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fwrite(junk.data(), 1, junk.size(), f);
    fclose(f);

    KvoreAppInfo info;
    info.setAppName(u"Broken");
    EXPECT_EQ(info.readFromRegistry(), 3);
    EXPECT_EQ(info.writeToRegistry(), 10);
    EXPECT_EQ(kvrxRegisterApp(8, u"Broken"), 9);
    EXPECT_EQ(info.delFromRegistry(), 10);
    f = fopen(machine.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    char buffer[128] = {};
    size_t n = fread(buffer, 1, sizeof buffer, f);
    fclose(f);
    EXPECT_EQ(std::string(buffer, n), junk);
    std::remove(machine.c_str());  // the next test of this process starts from an empty hive
}

#ifdef LUMRX_REG_TOOL
TEST_F(AppRecords, RecordsCrossProcesses) {
    std::string key = "'\\Software\\Lumora\\LumRxTest\\Applications\\Tooled'";
    std::string tool = LUMRX_REG_TOOL;
    auto run = [&](const std::string& args) { return std::system((tool + " " + args + " >/dev/null 2>&1").c_str()); };
    ASSERT_EQ(run("--hive machine add " + key + " /v LOADCTRLS /t REG_DWORD /d 8"), 0);
    ASSERT_EQ(run("--hive machine add " + key + " /v LOADER /t REG_SZ /d tooled.krx"), 0);
    ASSERT_EQ(run("--hive machine add '\\Software\\Lumora\\LumRxTest\\Applications\\Tooled\\Commands' /v TOOL /t REG_SZ /d _TOOL,x"), 0);
    KvoreAppInfo info;
    info.setAppName(u"Tooled");
    ASSERT_EQ(info.readFromRegistry(), 0);
    EXPECT_EQ(utf8(info.moduleName()), "tooled.krx");
    EXPECT_TRUE(info.appImplements(u"_tool"));

    // And the other way: a record written here is seen by the tool.
    info.setAppName(u"Written");
    info.setModuleName(u"written.krx");
    ASSERT_EQ(info.writeToRegistry(), 0);
    EXPECT_EQ(run("--hive machine query '\\Software\\Lumora\\LumRxTest\\Applications\\Written' /v LOADER"), 0);
    EXPECT_NE(run("--hive machine query '\\Software\\Lumora\\LumRxTest\\Applications\\Missing'"), 0);
}
#endif

TEST_F(AppRecords, LoaderAndLinkerFallback) {
    KvoreAppInfo info;
    EXPECT_EQ(info.runAppLoader(), 2) << "no module name";
    info.setModuleName(u"absent.krx");
    EXPECT_EQ(info.runAppLoader(), 3) << "the host can't find the file";
    host.files[u"absent.krx"] = u"/present/absent.krx";
    EXPECT_EQ(info.runAppLoader(), 2) << "the file is there but doesn't load";
    static void* seen = nullptr;
    info.setAppLoader([](void* imp) { seen = imp; return KvoreAppInfo::CmdStatus(7); });
    EXPECT_EQ(info.runAppLoader(), 7);
    EXPECT_NE(seen, nullptr);
}

TEST_F(AppRecords, GroupsMergeByCommandName) {
    KvoreKrxRegCmdGroup group(u"DRAW");
    KvoreKrxRegCmdGroup other(nullptr);
    EXPECT_EQ(group.isA(), nullptr) << "nobody registers the class";
    EXPECT_EQ(other.groupName(), nullptr);
    group.addCommand(new KvoreKrxRegCommand(u"LINE", u"_LINE"));
    group.addCommand(new KvoreKrxRegCommand(u"ARC", u"_ARC"));
    other.addCommand(new KvoreKrxRegCommand(u"line", u"_OTHERLINE"));
    other.addCommand(new KvoreKrxRegCommand(u"CIRCLE", nullptr));
    group.merge(&other);
    EXPECT_TRUE(other.commands()->isEmpty());
    EXPECT_EQ(group.commands()->length(), 3);
    KvoreKrxRegCommand* found = nullptr;
    ASSERT_TRUE(group.findCommand(u"Line", true, found));
    EXPECT_EQ(utf8(found->commandValue()), "_LINE") << "the one already here stays";
    EXPECT_TRUE(group.findCommand(u"_arc", false, found));
    EXPECT_FALSE(group.findCommand(u"_OTHERLINE", false, found));
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(utf8(static_cast<KvoreKrxRegCommand*>(group.commands()->headValue())->commandName()),
              "CIRCLE") << "latest first";
    group.clear();
    EXPECT_TRUE(group.commands()->isEmpty());
}

TEST_F(AppRecords, ProductQueries) {
    EXPECT_EQ(utf8(kvrxProductKey()), "Software\\Lumora\\LumRxTest");
    EXPECT_EQ(kvrxProductLCID(), 0x409u);
    EXPECT_EQ(kvrxProductLocale().lcid(), 0);
    EXPECT_EQ(utf8(kvrxDatumVaultRegistryKey()), "");
}

}  // namespace
