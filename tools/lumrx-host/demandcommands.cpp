// `run COMMAND`: demand loading through the runtime's demand-load lists.
#include "commands.h"

#include "commandsupport.h"
#include "hostservices.h"
#include "kvoreappinfo.h"
#include "kvrxdynamiclinker.h"
#include "lumplatform/registry.h"
#include "lumrxhost.h"

#include <algorithm>
#include <cstdio>

namespace lumrxhost {
namespace {

// The names of the application records in both hives, each once.
std::vector<std::u16string> applicationNames(const std::u16string& productKey) {
    std::vector<std::u16string> names;
    std::u16string path = productKey + u"\\Applications";
    for (auto hive : {lumplatform::RegistryHive::user, lumplatform::RegistryHive::machine}) {
        lumplatform::RegistryKey key;
        if (key.open(hive, path.c_str(), lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk)
            continue;
        char16_t name[lumplatform::kRegistryMaxKeyName + 1];
        for (uint32_t i = 0;; ++i) {
            uint32_t length = lumplatform::kRegistryMaxKeyName + 1;
            if (key.subKeyAt(i, name, &length) != lumplatform::kRegistryOk) break;
            std::u16string found(name, length);
            bool known = std::any_of(names.begin(), names.end(),
                                     [&](const std::u16string& n) { return sameTextNoCase(n, found); });
            if (!known) names.push_back(found);
        }
    }
    return names;
}

bool loadableOnCommand(KvoreApp::LoadReasons reasons) {
    return (reasons & KvoreApp::kOnCommand) && !(reasons & KvoreApp::kDisabled);
}

// Whether a record offers `command`, "GROUP.COMMAND" only in that group, as the
// demand-load lists judge it. A record's groups all offer all its commands.
bool recordOffers(const KvoreAppInfo& record, const std::u16string& command) {
    size_t dot = command.find(u'.');
    std::u16string group = dot == std::u16string::npos ? u"" : command.substr(0, dot);
    std::u16string name = dot == std::u16string::npos ? command : command.substr(dot + 1);
    if (name.empty()) return false;
    if (!group.empty() && !record.appImplements((group + u".").c_str())) return false;
    return record.appImplements((u"." + name).c_str());
}

}  // namespace

void HostCommands::ensureDemandLists() {
    if (!m_demandListsUp) {
        initDemandLoadKrxList();
        m_demandListsUp = true;
    }
    reLoadKrxListFromRegisterIfModified();
}

void HostCommands::dropDemandLists() {
    if (!m_demandListsUp) return;
    uninitDemandLoadKrxList();
    m_demandListsUp = false;
}

void HostCommands::deliverCommand(const Module& module, const std::u16string& command) {
    if (!linker()->sendMessageToModule(module.path.c_str(), LumRxHost::kRunCommandMsg,
                                       const_cast<char16_t*>(command.c_str())))
        failWith(module.shown + " is not loaded any more");
    std::printf("ran %s in %s\n", utf8(command).c_str(), module.shown.c_str());
}

bool HostCommands::deliverToLoaded(const std::u16string& command) {
    std::vector<Module> modules = loadedModules();
    for (const std::u16string& app : applicationNames(m_host.productRegistryKey())) {
        KvoreAppInfo record;
        record.setAppName(app.c_str());
        if (record.readFromRegistry() != KvoreApp::eOk || !record.moduleName() || !recordOffers(record, command))
            continue;
        for (const Module& m : modules) {
            if (!m.pendingRelease && sameTextNoCase(m.path, record.moduleName())) {
                deliverCommand(m, command);
                return true;
            }
        }
    }
    return false;
}

void HostCommands::run(const Args& args) {
    expectArgs(args, 1, 1, "run COMMAND");
    std::u16string command = u16(args[0]);
    bool fresh = !m_demandListsUp;
    ensureDemandLists();
    KvArray<KvoreRegisterKrxInfo*> offers;
    if (!getRegisterKrxAppInfoList(command.c_str(), offers, false))
        failWith("'" + args[0] + "' names no command");
    if (offers.isEmpty()) {
        // The lists leave loaded modules out.
        if (deliverToLoaded(command)) return;
        // They learn of registry changes only at their polls, and a change made while
        // a watch is being armed again goes unseen: look once more with fresh lists.
        if (!fresh) {
            dropDemandLists();
            ensureDemandLists();
            getRegisterKrxAppInfoList(command.c_str(), offers, false);
        }
        if (offers.isEmpty()) failWith("no registered application offers the command '" + args[0] + "'");
    }

    KvoreRegisterKrxInfo* info = nullptr;
    for (int i = 0; i < offers.length() && !info; ++i)
        if (loadableOnCommand(offers[i]->loadReason())) info = offers[i];
    if (!info) {
        const KvoreRegisterKrxInfo* first = offers[0];
        failWith("the application " + utf8(first->appName()) + " offers " + args[0] +
                 " but is not to be loaded on command (load reasons " + reasonsText(first->loadReason()) + ")");
    }
    std::string app = utf8(info->appName());
    std::string file = utf8(baseName(info->moduleName() ? info->moduleName() : u""));
    if (offers.length() > 1)
        std::printf("note: %d applications offer %s; %s is loaded\n", offers.length(), args[0].c_str(),
                    app.c_str());
    std::printf("loading application %s (%s) for %s\n", app.c_str(), file.c_str(), args[0].c_str());
    switch (info->runAppLoader()) {
    case KvoreAppInfo::kLoaded: break;
    case KvoreAppInfo::kModuleNotFound: failWith("the module file " + file + " of " + app + " is missing");
    default: failWith("the module " + file + " of " + app + " could not be loaded");
    }
    for (const Module& m : loadedModules())
        if (!m.pendingRelease && sameTextNoCase(m.appName, info->appName())) return deliverCommand(m, command);
    failWith("the application " + app + " was loaded but is not in the linker's table");
}

}  // namespace lumrxhost
