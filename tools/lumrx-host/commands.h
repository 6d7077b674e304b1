// The commands of lumrx-host, on the running runtime: loading and unloading modules,
// showing the linker's table, the class tree, the services and the dependency graph,
// writing application records, running a command by demand loading, sending messages,
// and the shut-down of every module at the end.
//
// Borrows the host services object. Sets up the demand-load lists, which belong to the
// runtime, at the first `run` and drops them in shutDown.
#pragma once

#include "interpreter.h"

#include <string>
#include <vector>

namespace lumrxhost {

class HostServices;

class HostCommands {
public:
    explicit HostCommands(HostServices& host) : m_host(host) {}
    HostCommands(const HostCommands&) = delete;
    HostCommands& operator=(const HostCommands&) = delete;

    // Runs one command, words[0] being its name; throws CommandError when it fails.
    void execute(const std::vector<std::string>& words);
    bool quitRequested() const { return m_quit; }
    // Unloads every module with the quit and unload messages, locked or not, and drops
    // the demand-load lists. The runtime is still up afterwards.
    void shutDown();

    // One module of the linker's table as the commands show it.
    struct Module {
        std::u16string path;     // the linker's key: the full file name
        std::string shown;       // the file name, or the path where names clash
        std::u16string appName;  // empty for a load by file name
        int refCount;
        bool locked;
        bool mdiAware;
        bool pendingRelease;
    };
    static std::vector<Module> loadedModules();

private:
    using Args = std::vector<std::string>;
    void help();
    void load(const Args& args);
    void unload(const Args& args);
    void apps();
    void classes(const Args& args);
    void services();
    void deps(const Args& args);
    void registerApp(const Args& args);
    void send(const Args& args);
    void run(const Args& args);  // demandcommands.cpp

    // The loaded module named by its file name or its full path; throws if there is
    // none or the file name is ambiguous.
    Module findLoaded(const std::string& name) const;
    // The demand-load lists: set up at the first use and polled for registry changes
    // before each; dropped at shut-down.
    void ensureDemandLists();
    void dropDemandLists();
    // Sends the run-command message to a loaded module.
    void deliverCommand(const Module& module, const std::u16string& command);
    // Delivers `command` to the loaded module whose record offers it; false if none.
    bool deliverToLoaded(const std::u16string& command);

    HostServices& m_host;
    bool m_demandListsUp = false;
    bool m_quit = false;
};

}  // namespace lumrxhost
