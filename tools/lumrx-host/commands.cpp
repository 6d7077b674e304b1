#include "commands.h"

#include "commandsupport.h"
#include "hostservices.h"
#include "kvoreappinfo.h"
#include "kvrxdynamiclinker.h"
#include "kvrxdynamiclinker.h"
#include "kvrxruntime.h"
#include "lumrxhost.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>

namespace lumrxhost {
namespace {

const char* const kHelp =
    "commands:\n"
    "  load FILE              load a module (a name is looked for on the search path)\n"
    "  unload FILE            unload a loaded module (its file name or full path)\n"
    "  apps                   the loaded modules: references, locked, multi-document aware\n"
    "  classes [ROOT]         the class tree below ROOT (default OvRxObject)\n"
    "  services               the registered services and the modules that own them\n"
    "  deps [--dot]           the dependency graph of the loaded modules, as text or Graphviz DOT\n"
    "  register APP FILE [--reason N] [--group G]... [--command NAME VALUE]... [--description TEXT]\n"
    "                         write the application record APP for the module FILE; load\n"
    "                         reasons N (default 12): 2 start-up, 4 command, 8 request, 16 disabled\n"
    "  run COMMAND            run a registered command, loading its application on demand\n"
    "  send FILE CODE         send message CODE to a loaded module\n"
    "  help                   this text\n"
    "  quit                   unload every module with the quit message and stop\n";

}  // namespace

// ---------------------------------------------------------------------------

std::vector<HostCommands::Module> HostCommands::loadedModules() {
    KvArray<KvRxModuleState> states;
    kvrxGetModuleStates(states);
    std::vector<Module> modules;
    std::map<std::u16string, int> nameCount;
    for (int i = 0; i < states.length(); ++i) {
        const KvRxModuleState& s = states[i];
        std::u16string path = s.moduleName ? s.moduleName : u"";
        modules.push_back(Module{path, "", s.appName ? s.appName : u"", s.refCount, s.locked,
                                 s.mdiAware, s.pendingRelease});
        ++nameCount[baseName(path)];
    }
    for (Module& m : modules)
        m.shown = utf8(nameCount[baseName(m.path)] > 1 ? m.path : baseName(m.path));
    return modules;
}

HostCommands::Module HostCommands::findLoaded(const std::string& name) const {
    std::u16string wanted = u16(name);
    std::vector<Module> matches;
    for (const Module& m : loadedModules()) {
        if (sameTextNoCase(m.path, wanted)) return m;
        if (sameTextNoCase(baseName(m.path), wanted)) matches.push_back(m);
    }
    if (matches.empty()) {
        std::u16string located = m_host.locate(wanted);
        for (const Module& m : loadedModules())
            if (!located.empty() && sameTextNoCase(m.path, located)) return m;
        failWith(name + " is not loaded");
    }
    if (matches.size() > 1) failWith(name + " names more than one loaded module; give its full path");
    return matches.front();
}

void HostCommands::execute(const std::vector<std::string>& words) {
    const std::string& name = words.front();
    Args args(words.begin() + 1, words.end());
    static const std::map<std::string, std::function<void(HostCommands&, const Args&)>> table = {
        {"help", [](HostCommands& c, const Args& a) { expectArgs(a, 0, 0, "help"); c.help(); }},
        {"load", [](HostCommands& c, const Args& a) { c.load(a); }},
        {"unload", [](HostCommands& c, const Args& a) { c.unload(a); }},
        {"apps", [](HostCommands& c, const Args& a) { expectArgs(a, 0, 0, "apps"); c.apps(); }},
        {"classes", [](HostCommands& c, const Args& a) { c.classes(a); }},
        {"services", [](HostCommands& c, const Args& a) { expectArgs(a, 0, 0, "services"); c.services(); }},
        {"deps", [](HostCommands& c, const Args& a) { c.deps(a); }},
        {"register", [](HostCommands& c, const Args& a) { c.registerApp(a); }},
        {"send", [](HostCommands& c, const Args& a) { c.send(a); }},
        {"run", [](HostCommands& c, const Args& a) { c.run(a); }},
        {"quit", [](HostCommands& c, const Args& a) { expectArgs(a, 0, 0, "quit"); c.m_quit = true; }},
    };
    auto it = table.find(name);
    if (it == table.end()) failWith("unknown command '" + name + "' (help lists the commands)");
    it->second(*this, args);
}

void HostCommands::help() { std::fputs(kHelp, stdout); }

void HostCommands::load(const Args& args) {
    expectArgs(args, 1, 1, "load FILE");
    std::u16string name = u16(args[0]);
    // A remote name goes to the linker as it is: the host fetches it when asked.
    std::u16string path = m_host.isRemoteName(name.c_str()) ? name : m_host.locate(name);
    if (path.empty()) {
        std::string where;
        for (const std::u16string& dir : m_host.searchPath()) where += utf8(dir) + ", ";
        failWith(args[0] + ": no such module file (searched " + where +
                 "the program's directory, the current directory, LUMRX_PATH and PATH)");
    }
    bool wasLoaded = kvrxAppIsLoaded(path.c_str());
    if (!kvrxLoadModule(path.c_str(), true, true))
        failWith(args[0] + ": the module could not be loaded");
    std::printf(wasLoaded ? "%s is loaded already\n" : "loaded %s\n", utf8(baseName(path)).c_str());
}

void HostCommands::unload(const Args& args) {
    expectArgs(args, 1, 1, "unload FILE");
    Module before = findLoaded(args[0]);
    if (before.locked) failWith(before.shown + " is locked: it never unlocked itself, so only quit unloads it");
    bool unloaded = kvrxUnloadModule(before.path.c_str(), true);
    for (const Module& after : loadedModules()) {
        if (after.path != before.path || after.pendingRelease) continue;
        if (after.refCount < before.refCount) {
            std::printf("%s: one reference dropped, %d left\n", before.shown.c_str(), after.refCount);
            return;
        }
        std::string holders;
        KvArray<KvRxModuleDependency> edges;
        kvrxGetModuleDependencies(edges);
        for (int i = 0; i < edges.length(); ++i)
            if (edges[i].dependsOn && before.path == edges[i].dependsOn)
                holders += (holders.empty() ? "" : ", ") + utf8(baseName(edges[i].moduleName));
        failWith(before.shown + " was not unloaded" +
                 (holders.empty() ? std::string() : ": it is needed by " + holders));
    }
    if (!unloaded) failWith(before.shown + " was not unloaded");
    std::printf("unloaded %s\n", before.shown.c_str());
}

void HostCommands::apps() {
    std::vector<Module> modules = loadedModules();
    if (modules.empty()) {
        std::printf("no modules loaded\n");
        return;
    }
    size_t width = 6;
    for (const Module& m : modules) width = std::max(width, m.shown.size());
    std::printf("%-*s  refs  locked  mdi  application\n", int(width), "module");
    for (const Module& m : modules) {
        std::printf("%-*s  %4d  %-6s  %-3s  %s%s\n", int(width), m.shown.c_str(), m.refCount,
                    m.locked ? "yes" : "no", m.mdiAware ? "yes" : "no",
                    m.appName.empty() ? "-" : utf8(m.appName).c_str(),
                    m.pendingRelease ? "  (unloaded, release pending)" : "");
    }
}

void HostCommands::classes(const Args& args) {
    expectArgs(args, 0, 1, "classes [ROOT]");
    std::u16string rootName = args.empty() ? u"OvRxObject" : u16(args[0]);
    KvRxClass* root = kvrxFindKvRxClass(rootName.c_str());
    if (!root) failWith("no class is registered as '" + utf8(rootName) + "'");
    KvRxDictionary* dictionary = systemEntry(u"ClassDictionary");
    std::vector<KvRxClass*> all;
    std::unique_ptr<KvRxDictionaryIterator> it(dictionary->newIterator(kDictSorted));
    // Every value of the class dictionary is a class, also one whose own isA() is null
    // (a module's value type while "KvRxValueType" isn't registered).
    for (; !it->done(); it->next())
        if (it->object()) all.push_back(static_cast<KvRxClass*>(it->object()));
    std::function<void(const KvRxClass*, int)> print = [&](const KvRxClass* c, int depth) {
        std::printf("%*s%s\n", depth * 2, "", utf8(c->name()).c_str());
        for (const KvRxClass* child : all)
            if (child->myParent() == c) print(child, depth + 1);
    };
    print(root, 0);
    if (args.empty()) {
        for (const KvRxClass* c : all)
            if (c != root && !c->myParent())
                std::printf("not linked yet (its parent is not registered): %s\n", utf8(c->name()).c_str());
    }
}

void HostCommands::services() {
    KvRxDictionary* dictionary = systemEntry(u"ServiceDictionary");
    if (!dictionary || dictionary->numEntries() == 0) {
        std::printf("no services registered\n");
        return;
    }
    std::vector<Module> modules = loadedModules();
    std::unique_ptr<KvRxDictionaryIterator> it(dictionary->newIterator(kDictById));
    for (; !it->done(); it->next()) {
        std::string owner = "no owner";
        const char16_t* moduleName = nullptr;
        switch (kvrxServiceOwner(it->key(), &moduleName)) {
        case KvRxServiceOwner::kKernel:
            owner = "the kernel";
            break;
        case KvRxServiceOwner::kModule:
            owner = utf8(baseName(moduleName));
            for (const Module& m : modules)
                if (m.path == moduleName) owner = m.shown;
            break;
        case KvRxServiceOwner::kNone:
            break;
        }
        std::printf("%-24s %s\n", utf8(it->key()).c_str(), owner.c_str());
    }
}

void HostCommands::deps(const Args& args) {
    expectArgs(args, 0, 1, "deps [--dot]");
    bool dot = !args.empty();
    if (dot && args[0] != "--dot") failWith("unknown option '" + args[0] + "' (usage: deps [--dot])");
    std::vector<Module> modules = loadedModules();
    auto shown = [&](const char16_t* path) {
        for (const Module& m : modules)
            if (path && m.path == path) return m.shown;
        return utf8(baseName(path ? path : u""));
    };
    KvArray<KvRxModuleDependency> edges;
    kvrxGetModuleDependencies(edges);
    if (!dot) {
        if (modules.empty()) std::printf("no modules loaded\n");
        for (const Module& m : modules) {
            bool any = false;
            for (int i = 0; i < edges.length(); ++i) {
                if (!edges[i].moduleName || m.path != edges[i].moduleName) continue;
                std::printf("%s -> %s (%s)\n", m.shown.c_str(), shown(edges[i].dependsOn).c_str(),
                            edges[i].isStatic ? "linked against it" : "loaded from its first message");
                any = true;
            }
            if (!any) std::printf("%s\n", m.shown.c_str());
        }
        return;
    }
    auto quoted = [](const std::string& text) {
        std::string q = "\"";
        for (char c : text) {
            if (c == '"' || c == '\\') q.push_back('\\');
            q.push_back(c);
        }
        return q + "\"";
    };
    std::printf("digraph modules {\n  node [shape=box];\n");
    for (const Module& m : modules) std::printf("  %s;\n", quoted(m.shown).c_str());
    for (int i = 0; i < edges.length(); ++i)
        std::printf("  %s -> %s [label=\"%s\"%s];\n", quoted(shown(edges[i].moduleName)).c_str(),
                    quoted(shown(edges[i].dependsOn)).c_str(), edges[i].isStatic ? "static" : "dynamic",
                    edges[i].isStatic ? "" : ", style=dashed");
    std::printf("}\n");
}

void HostCommands::registerApp(const Args& args) {
    const char* usage =
        "register APP FILE [--reason N] [--group G]... [--command NAME VALUE]... [--description TEXT]";
    if (args.size() < 2) failWith(std::string("usage: ") + usage);
    KvoreApp::LoadReasons reasons = KvoreApp::kOnCommand | KvoreApp::kOnRequest;
    std::vector<std::string> groups;
    std::vector<std::pair<std::string, std::string>> commands;
    std::string description;
    bool hasDescription = false;
    for (size_t i = 2; i < args.size(); ++i) {
        const std::string& option = args[i];
        size_t left = args.size() - i - 1;
        if (option == "--reason" && left >= 1) {
            reasons = KvoreApp::LoadReasons(parseNumber(args[++i], 0, 0xFFFFFFFFll, "load reason"));
        } else if (option == "--group" && left >= 1) {
            groups.push_back(args[++i]);
        } else if (option == "--command" && left >= 2) {
            commands.emplace_back(args[i + 1], args[i + 2]);
            i += 2;
        } else if (option == "--description" && left >= 1) {
            description = args[++i];
            hasDescription = true;
        } else {
            failWith("'" + option + "' is no option of register, or lacks its value (usage: " + usage + ")");
        }
    }
    for (const auto& text : groups)
        if (text.empty()) failWith("a group name is empty");
    for (const auto& c : commands)
        if (c.first.empty() || c.second.empty()) failWith("a command name or value is empty");

    KvoreAppInfo info;
    std::u16string app = u16(args[0]), file = u16(args[1]);
    info.setAppName(app.c_str());
    info.setModuleName(file.c_str());
    if (!info.moduleName()) failWith(args[1] + ": the module name could not be fetched");
    info.setLoadReason(reasons);
    std::u16string desc = u16(description);
    if (hasDescription) info.setAppDesc(desc.c_str());
    KvoreApp::ErrorStatus status = info.writeToRegistry();
    if (status != KvoreApp::eOk)
        failWith("the record " + args[0] + " could not be written: " + statusText(status));
    for (const auto& g : groups) {
        std::u16string group = u16(g);
        status = info.writeGroupNameToRegistry(group.c_str());
        if (status != KvoreApp::eOk) failWith("the group " + g + " could not be written: " + statusText(status));
    }
    for (const auto& c : commands) {
        std::u16string name = u16(c.first), value = u16(c.second);
        status = info.writeCommandNameToRegistry(name.c_str(), value.c_str());
        if (status != KvoreApp::eOk)
            failWith("the command " + c.first + " could not be written: " + statusText(status));
    }
    std::printf("registered %s: module %s, load reasons %s", utf8(info.appName()).c_str(),
                utf8(info.moduleName()).c_str(), reasonsText(reasons).c_str());
    for (size_t i = 0; i < groups.size(); ++i) std::printf("%s%s", i ? ", " : "; groups ", groups[i].c_str());
    for (size_t i = 0; i < commands.size(); ++i)
        std::printf("%s%s=%s", i ? ", " : "; commands ", commands[i].first.c_str(), commands[i].second.c_str());
    std::printf("\n");
    if (!commands.empty() && groups.empty())
        std::printf("note: %s has commands but no group; demand loading finds commands only through a group\n",
                    args[0].c_str());
}

void HostCommands::send(const Args& args) {
    expectArgs(args, 2, 2, "send FILE CODE");
    Module module = findLoaded(args[0]);
    int code = int(parseNumber(args[1], -2147483648ll, 2147483647ll, "message code"));
    switch (code) {
    case KvRx::kInitAppMsg: case KvRx::kUnloadAppMsg: case KvRx::kQuitMsg:
    case KvRx::kDependencyMsg: case KvRx::kNoDependencyMsg:
        failWith("message " + args[1] + " belongs to the kernel's own module life; it is not sent by hand");
    default: break;
    }
    if (!linker()->sendMessageToModule(module.path.c_str(), KvRx::AppMsgCode(code), nullptr))
        failWith(module.shown + " is not loaded");
    std::printf("sent message %d to %s\n", code, module.shown.c_str());
}

void HostCommands::shutDown() {
    std::vector<Module> modules = loadedModules();
    if (!modules.empty()) std::printf("quitting: unloading %zu module%s\n", modules.size(), modules.size() == 1 ? "" : "s");
    kvrxUnloadAllModules(true, true);
    dropDemandLists();
}

}  // namespace lumrxhost
