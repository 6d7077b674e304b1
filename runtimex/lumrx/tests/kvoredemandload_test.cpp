// Demand-load lists on a real registry that another process (lumrx-reg) writes: the
// watch and its polls, what a refresh adds and keeps, the look-up of a command, and
// the records that a scan leaves out.
#include "kvoreappinfo.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "testsupport.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using lumtest::utf8;
using Names = std::vector<std::string>;

namespace {

const std::string kApps = "\\Software\\Lumora\\LumRxTest\\Applications\\";

class DemandLoad : public lumtest::RuntimeTest {
protected:
    void SetUp() override {
        char folder[] = "/tmp/lumrx-demandload-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        m_folder = folder;
        setenv("LUMRX_REGISTRY_USER", (m_folder + "/user.db").c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (m_folder + "/machine.db").c_str(), 1);
    }
    void TearDown() override {
        uninitDemandLoadKrxList();
        std::filesystem::remove_all(m_folder);
    }

    // lumrx-reg on the hive named, as a process of its own.
    static int reg(const std::string& hive, const std::string& args) {
        return std::system((std::string(LUMRX_REG_TOOL) + " --hive " + hive + " " + args + " >/dev/null 2>&1").c_str());
    }
    // Writes the lines of a lumrx-reg file, all in one transaction.
    void import(const std::string& hive, const std::string& lines) {
        std::string file = m_folder + "/import.reg";
        FILE* f = fopen(file.c_str(), "w");
        ASSERT_NE(f, nullptr);
        fprintf(f, "LUMRX-REG 1\n%s", lines.c_str());
        fclose(f);
        ASSERT_EQ(reg(hive, "import " + file), 0) << lines;
    }
    // The lines of a record: its groups, and its commands as NAME=VALUE.
    static std::string record(const std::string& app, unsigned reason, Names groups, Names commands) {
        char hex[16];
        snprintf(hex, sizeof hex, "%x", reason);
        std::string text = "[" + kApps + app + "]\n\"LOADCTRLS\"=dword:" + hex +
                           "\n\"LOADER\"=\"" + app + ".krx\"\n[" + kApps + app + "\\Groups]\n";
        for (const std::string& g : groups) text += "\"" + g + "\"=\"" + g + "\"\n";
        text += "[" + kApps + app + "\\Commands]\n";
        for (const std::string& c : commands)
            text += "\"" + c.substr(0, c.find('=')) + "\"=\"" + c.substr(c.find('=') + 1) + "\"\n";
        return text;
    }
    // The names of the records that getRegisterKrxAppInfoList gives, "false" if it fails.
    static Names apps(const char16_t* name, bool onlyFlagged = false) {
        KvArray<KvoreRegisterKrxInfo*> found;
        if (!getRegisterKrxAppInfoList(name, found, onlyFlagged)) return {"false"};
        Names names;
        for (int i = 0; i < found.length(); ++i) names.push_back(utf8(found[i]->appName()));
        return names;
    }
    // NAME=VALUE of every command that getAllRegisterKrxAppCommandList gives.
    static Names commands() {
        KvArray<const char16_t*> names, values;
        if (!getAllRegisterKrxAppCommandList(names, values)) return {"false"};
        Names pairs;
        for (int i = 0; i < names.length(); ++i) pairs.push_back(utf8(names[i]) + "=" + utf8(values[i]));
        return pairs;
    }

    lumtest::FakeHost host;
    std::string m_folder;
};

TEST_F(DemandLoad, SetUpPollsAndASecondInit) {
    KvArray<KvoreRegisterKrxInfo*> found;
    found.append(nullptr);
    EXPECT_FALSE(getRegisterKrxAppInfoList(u"LINE", found, false));
    EXPECT_TRUE(found.isEmpty()) << "emptied even without set-up";
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(commands(), Names{"false"});

    // Without records a hive has no watch; once they appear, the set-up's pending
    // change is reported.
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified());
    import("machine", record("First", 4, {"G"}, {"LINE=_LINE"}));
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"LINE"), Names{"First"});
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified());

    import("machine", record("Second", 4, {"G"}, {"LINE=_LINE"}));
    EXPECT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"LINE"), Names{"First"}) << "no second scan";
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"LINE"), (Names{"Second", "First"}));
    uninitDemandLoadKrxList();
    EXPECT_EQ(apps(u"LINE"), Names{"false"});
}

TEST_F(DemandLoad, ChangeIsSeenAtTheNextPollAndTheWatchReArmsAtTheOneAfter) {
    import("machine", record("Draw", 4, {"DRAW"}, {"LINE=_LINE"}));
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified()) << "the first poll after set-up";
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified());
    ASSERT_EQ(reg("machine", "add '" + kApps + "Draw\\Commands' /v ARC /d _ARC"), 0);
    EXPECT_EQ(apps(u"ARC"), Names{}) << "nothing before the poll";
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"ARC"), Names{"Draw"});

    // The watch is armed again only at the next poll: a change before it goes unseen.
    ASSERT_EQ(reg("machine", "add '" + kApps + "Draw\\Commands' /v CIRCLE /d _CIRCLE"), 0);
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"CIRCLE"), Names{});
    ASSERT_EQ(reg("machine", "add '" + kApps + "Draw\\Commands' /v POINT /d _POINT"), 0);
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"CIRCLE"), Names{"Draw"});
}

TEST_F(DemandLoad, HivesMergeAndRefreshesOnlyAdd) {
    import("user", record("Both", 4, {"G"}, {"line=_USERLINE", "CIRCLE=_CIRCLE"}));
    import("machine", record("BOTH", 4, {"G", "H"}, {"LINE=_LINE"}));
    ASSERT_TRUE(initDemandLoadKrxList());
    KvArray<KvoreRegisterKrxInfo*> found;
    ASSERT_TRUE(getRegisterKrxAppInfoList(u"line", found, false) && found.length() == 1);
    KvoreRegisterKrxInfo* both = found[0];
    EXPECT_EQ(utf8(both->moduleName()), "Both.krx") << "the user hive's record";
    EXPECT_EQ(commands(), (Names{"LINE=_LINE", "CIRCLE=_CIRCLE", "line=_USERLINE"}))
        << "group H of the machine's record, then G with the command of both hives once";

    // A deleted record stays; a new command of a record joins it; its fields stay.
    ASSERT_EQ(reg("user", "delete '" + kApps + "Both' /f"), 0);
    ASSERT_EQ(reg("machine", "add '" + kApps + "Both' /v LOADER /d other.krx"), 0);
    ASSERT_EQ(reg("machine", "add '" + kApps + "Both\\Commands' /v ARC /d _ARC"), 0);
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"G.CIRCLE"), Names{"Both"});
    EXPECT_EQ(apps(u"H.ARC"), Names{"Both"});
    EXPECT_EQ(utf8(both->moduleName()), "Both.krx");
    ASSERT_EQ(reg("machine", "delete '" + kApps + "Both' /f"), 0);
    EXPECT_FALSE(reLoadKrxListFromRegisterIfModified()) << "re-armed only now";
    ASSERT_EQ(reg("machine", "add '" + kApps + "Other'"), 0);
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified()) << "a scan that finds nothing";
    EXPECT_EQ(apps(u"LINE"), Names{"Both"});
}

TEST_F(DemandLoad, NamesGroupsValuesAndFlags) {
    import("machine", record("Draw", 0x24, {"DRAW", "SHAPE"}, {"LINE=_LINE", "ARC=_ARC"}) +
                          record("Edit", 4, {"EDIT"}, {"MOVE=_MOVE", "LINE=_LINE"}));
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"line"), (Names{"Edit", "Draw"}));
    EXPECT_EQ(apps(u"line", true), Names{"Draw"}) << "bit 0x20 only";
    EXPECT_EQ(apps(u"draw.LINE"), Names{"Draw"});
    EXPECT_EQ(apps(u".MOVE"), Names{"Edit"}) << "every group";
    EXPECT_EQ(apps(u"_arc"), Names{"Draw"}) << "by value";
    EXPECT_EQ(apps(u"EDIT.ARC"), Names{});
    EXPECT_EQ(apps(u"NOGROUP.LINE"), Names{});
    EXPECT_EQ(apps(u"LINE."), Names{"false"});
    EXPECT_EQ(apps(u""), Names{"false"});
    EXPECT_EQ(apps(nullptr), Names{"false"});

    KvArray<const char16_t*> names(0), values(0);
    names.append(u"kept");
    values.append(u"kept");
    ASSERT_TRUE(getAllRegisterKrxAppCommandList(names, values));
    EXPECT_EQ(values.length(), 1 + 2 + 4) << "appended; two commands in each of Draw's two groups";
}

TEST_F(DemandLoad, BrokenRecordsAndValuesAreLeftOut) {
    std::string longName(200, 'L');
    import("machine",
           record("Good", 4, {"G"}, {longName + "=_LONG", "GOOD=_GOOD", "EMPTY="}) +
           "[" + kApps + "Good\\Groups]\n\"N\"=dword:1\n\"E\"=\"\"\n" +
           "[" + kApps + "Good\\Commands]\n\"NUMBER\"=dword:7\n" +
           record("NoLoader", 4, {"G"}, {"NOLOADER=x"}) + "[" + kApps + "NoLoader]\n\"LOADER\"=dword:1\n" +
           record("TextReason", 4, {"G"}, {"TEXTREASON=x"}) + "[" + kApps + "TextReason]\n\"LOADCTRLS\"=\"4\"\n" +
           record("NoGroups", 4, {}, {"NOGROUPS=x"}) + record("NoCommands", 4, {"G"}, {}) +
           "[" + kApps + "NoKeys]\n\"LOADCTRLS\"=dword:4\n\"LOADER\"=\"x\"\n[" + kApps + "NoKeys\\Commands]\n" +
           "\"NOKEYS\"=\"x\"\n");
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(commands(), Names{"GOOD=_GOOD"});
    EXPECT_EQ(apps(lumtest::u16(longName).c_str()), Names{});
    for (const char16_t* name : {u"NOLOADER", u"TEXTREASON", u"NOGROUPS", u"NOKEYS", u"N.GOOD"})
        EXPECT_EQ(apps(name), Names{}) << utf8(name);

    // Product code 4 reads the records under the engine key only.
    uninitDemandLoadKrxList();
    host.product = 4;
    import("machine", "[\\Applications\\Engine]\n\"LOADCTRLS\"=dword:4\n\"LOADER\"=\"e.krx\"\n"
                   "[\\Applications\\Engine\\Groups]\n\"G\"=\"G\"\n[\\Applications\\Engine\\Commands]\n\"E\"=\"_E\"\n");
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"E"), Names{"Engine"});
    EXPECT_EQ(apps(u"GOOD"), Names{});
}

TEST_F(DemandLoad, RecordOfALoadedModuleIsLeftOut) {
    import("machine", record("krxgood", 4 | 8, {"G"}, {"GOOD=_GOOD"}));
    host.files[u"krxgood.krx"] = lumtest::u16(LUMRX_TEST_KRX);
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"GOOD"), Names{"krxgood"});
    ASSERT_TRUE(kvrxLoadApp(u"krxgood", false));
    EXPECT_EQ(apps(u"GOOD"), Names{});
    EXPECT_EQ(commands(), Names{"GOOD=_GOOD"}) << "still in the tree";
    auto* linker = KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    linker->findRxModuleProxyByModuleName(host.files[u"krxgood.krx"].c_str(), true)->setLocked(false);
    ASSERT_TRUE(kvrxUnloadApp(u"krxgood", false));
    EXPECT_EQ(apps(u"GOOD"), Names{"krxgood"});
}

// The look-up skips the linker while no module is stored in any table: the count of
// stored modules must follow each load and unload, not just the first and the last.
TEST_F(DemandLoad, RecordsOfModulesLoadedTogetherComeBackOneByOne) {
    import("machine", record("krxgood", 4 | 8, {"G"}, {"GOOD=_GOOD"}) + record("krxdep", 4 | 8, {"D"}, {"DEP=_DEP"}));
    host.files[u"krxgood.krx"] = lumtest::u16(LUMRX_TEST_KRX);
    host.files[u"krxdep.krx"] = lumtest::u16(LUMRX_TEST_KRX_DEP);
    ASSERT_TRUE(initDemandLoadKrxList());
    ASSERT_TRUE(kvrxLoadApp(u"krxgood", false));
    ASSERT_TRUE(kvrxLoadApp(u"krxdep", false));
    EXPECT_EQ(apps(u"GOOD"), Names{});
    EXPECT_EQ(apps(u"d.dep"), Names{});
    ASSERT_TRUE(kvrxUnloadApp(u"krxdep", false));
    EXPECT_EQ(apps(u"d.dep"), Names{"krxdep"});
    EXPECT_EQ(apps(u"GOOD"), Names{}) << "one module is still stored";
    auto* linker = KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    linker->findRxModuleProxyByModuleName(host.files[u"krxgood.krx"].c_str(), true)->setLocked(false);
    ASSERT_TRUE(kvrxUnloadApp(u"krxgood", false));
    EXPECT_EQ(apps(u"GOOD"), Names{"krxgood"});
}

// The index grows as keys come; a name is found only whole, with every unit compared.
TEST_F(DemandLoad, ManyCommandsAndNamesThatArePrefixes) {
    Names commands;
    for (int i = 0; i < 60; ++i) commands.push_back("CMD" + std::to_string(i) + "=_CMD" + std::to_string(i));
    import("machine", record("Many", 4, {"GRP", "GRP2"}, commands) + record("Few", 4, {"GR"}, {"CMD=_C"}));
    ASSERT_TRUE(initDemandLoadKrxList());
    for (int i = 0; i < 60; ++i) {
        std::u16string n = lumtest::u16(std::to_string(i));
        EXPECT_EQ(apps((u"cmd" + n).c_str()), Names{"Many"}) << i;
        EXPECT_EQ(apps((u"grp2._Cmd" + n).c_str()), Names{"Many"}) << i;
    }
    EXPECT_EQ(apps(u"CMD6"), Names{"Many"});
    EXPECT_EQ(apps(u"CMD60"), Names{}) << "longer than a key";
    EXPECT_EQ(apps(u"CM"), Names{}) << "shorter than a key";
    EXPECT_EQ(apps(u"CMD"), Names{"Few"});
    EXPECT_EQ(apps(u"GR.CMD"), Names{"Few"});
    EXPECT_EQ(apps(u"GRP.CMD"), Names{}) << "the group is part of the key";
    EXPECT_EQ(apps(u"G.CMD1"), Names{});
    EXPECT_EQ(apps(u".CMD1"), Names{"Many"}) << "no group before the dot";
}

// The look-up answers from an index of the tree: it must follow every change made to
// the tree, whichever way it comes, and keep the tree's order and case rules.
TEST_F(DemandLoad, LookUpFollowsEveryChangeOfTheTree) {
    import("machine", record("Draw", 4, {"DRAW", "SHAPE"}, {"LINE=_LINE", "\u00c4RC=_\u00c4RC"}) +
                          record("Edit", 4, {"EDIT"}, {"MOVE=_MOVE"}));
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"\u00e4rc"), Names{"Draw"}) << "folded beyond ASCII";
    EXPECT_EQ(apps(u"shape._\u00e4rc"), Names{"Draw"});
    EXPECT_EQ(apps(u"LINE"), Names{"Draw"}) << "once, though two groups offer it";

    // A command added to a record handed out, and a group, are found at once.
    KvArray<KvoreRegisterKrxInfo*> found;
    ASSERT_TRUE(getRegisterKrxAppInfoList(u"MOVE", found, false) && found.length() == 1);
    KvoreRegisterKrxInfo* edit = found[0];
    auto* group = new KvoreKrxRegCmdGroup(u"EXTRA");
    group->addCommand(new KvoreKrxRegCommand(u"ZOOM", u"_ZOOM"));
    edit->addGroup(group);
    EXPECT_EQ(apps(u"extra.zoom"), Names{"Edit"});
    group->addCommand(new KvoreKrxRegCommand(u"LINE", u"_LINE2"));
    EXPECT_EQ(apps(u"line"), (Names{"Edit", "Draw"})) << "the tree's order, not the index's";
    group->clear();
    EXPECT_EQ(apps(u"extra.zoom"), Names{});

    // A refresh that merges into a record and one that adds a record.
    import("machine", record("Draw", 4, {"DRAW"}, {"ARC=_ARC"}) + record("View", 4, {"VIEW"}, {"LINE=_VLINE"}));
    EXPECT_TRUE(reLoadKrxListFromRegisterIfModified());
    EXPECT_EQ(apps(u"draw.arc"), Names{"Draw"});
    EXPECT_EQ(apps(u"LINE"), (Names{"View", "Draw"}));
    EXPECT_EQ(apps(u"_vline"), Names{"View"});

    // A new set-up without records has none of the old ones.
    uninitDemandLoadKrxList();
    std::filesystem::remove(m_folder + "/machine.db");
    ASSERT_TRUE(initDemandLoadKrxList());
    EXPECT_EQ(apps(u"LINE"), Names{});
}

TEST_F(DemandLoad, EmptyNamesInARecord) {
    KvoreRegisterKrxInfo info(u"App");
    auto* group = new KvoreKrxRegCmdGroup(u"G");
    info.addGroup(new KvoreKrxRegCmdGroup(nullptr));
    info.addGroup(group);
    EXPECT_EQ(info.findCommand(nullptr, u""), nullptr) << "no command yet";
    auto* nameless = new KvoreKrxRegCommand(u"", u"_NAMELESS");
    group->addCommand(nameless);
    EXPECT_EQ(info.findGroup(u"g"), group);
    EXPECT_EQ(info.findGroup(u""), nullptr);
    // An empty command name is a name like any other: it finds the command stored
    // under the empty value name, also in a group named, and a null one reads as empty.
    EXPECT_EQ(info.findCommand(nullptr, u""), nameless);
    EXPECT_EQ(info.findCommand(u"G", u""), nameless);
    EXPECT_EQ(info.findCommand(nullptr, nullptr), nameless);
    EXPECT_EQ(info.findCommand(u"OTHER", u""), nullptr);
    EXPECT_EQ(info.findCommand(nullptr, u"_nameless"), nameless);
    auto* byName = new KvoreKrxRegCommand(u"_VALUE", u"_OTHER");
    group->addCommand(byName);
    group->addCommand(new KvoreKrxRegCommand(u"NAME", u"_VALUE"));
    EXPECT_EQ(info.findCommand(u"G", u"_value"), byName) << "a name goes before a value";
    EXPECT_EQ(info.findCommand(u"G", u""), nameless);
}

}  // namespace
