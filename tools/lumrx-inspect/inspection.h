// What lumrx-inspect finds out about one file: from the file alone (inspectFile), and
// from a load into a runtime of its own (LoadSession, loadcheck.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumrxinspect {

struct NeededModule {
    std::string name;
    std::string path;  // where the module search finds it; empty: missing
};

struct LoadReport {
    bool attempted = false;
    bool loaded = false;
    bool versionKnown = false;
    uint32_t apiVersion = 0;
    std::string firstMessage;  // "succeeded", "failed" or "not sent"
    std::vector<std::string> classes;   // registered by the load, in name order
    std::vector<std::string> services;  // the same
    std::vector<std::string> messages;  // the numbered user messages the load showed
};

struct Inspection {
    std::string file;
    std::string image;         // "ELF shared object", "Windows image", "none", ...
    std::string machine;       // empty for none
    std::string thisMachine;
    bool sameMachine = false;
    bool exportsApiVersion = false;
    bool exportsEntryPoint = false;
    std::vector<NeededModule> modules;    // needed, with names ending in ".krx"
    std::vector<std::string> unresolved;  // other needed libraries that don't resolve
    bool loadable = false;
    std::string reason;  // why not, when not
    LoadReport load;
};

// Reads `file` as the loader's probe does, without loading it.
Inspection inspectFile(const std::string& file);

}  // namespace lumrxinspect
