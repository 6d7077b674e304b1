// lumrx-host: a host program for the runtime. It starts the runtime with a host
// services object of its own, runs commands from a script file, from standard input or,
// on a terminal, interactively, and at the end (quit or end of input) unloads every
// module with its quit and unload messages and shuts the runtime down.
//
// Exit status: 0 if every command succeeded, 1 if any failed, 2 for a command line that
// can't be understood or a script that can't be read. Usage: README.md.
#include "commands.h"
#include "hostservices.h"
#include "interpreter.h"
#include "kvrxruntime.h"
#include "lumplatform/console.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

using namespace lumrxhost;

namespace {

const char* const kUsage =
    "usage: lumrx-host [--path DIR[:DIR...]]... [--product-key KEY] [--product-name NAME]\n"
    "                  [--crash-record FILE] [--refuse-non-mdi] [SCRIPT | -]\n"
    "  --path DIRS          directories to look for modules in, before the program's own\n"
    "                       directory, the current directory, LUMRX_PATH and PATH\n"
    "  --product-key KEY    the product's registry key (default Software\\Lumora\\LumRx)\n"
    "  --product-name NAME  the product's name in user messages (default Lumora)\n"
    "  --crash-record FILE  append the runtime's diagnostic lines to FILE (default: the\n"
    "                       file LUMRX_CRASH_RECORD names, else standard error)\n"
    "  --refuse-non-mdi     refuse modules that don't declare multi-document awareness\n"
    "  SCRIPT               commands to run; standard input without one or with '-'\n"
    "Type 'help' at the prompt for the commands.\n";

struct Arguments {
    HostOptions host;
    std::string script;  // empty or "-": standard input
};

// False (after a message) for a command line that can't be understood.
bool parseArguments(int argc, char** argv, Arguments& out) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else if (arg == "--path" && hasValue) {
            std::string dirs = argv[++i];
            size_t start = 0;
            for (;;) {
                size_t colon = dirs.find(':', start);
                std::string dir = dirs.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
                if (!dir.empty()) out.host.searchPath.push_back(u16(dir));
                if (colon == std::string::npos) break;
                start = colon + 1;
            }
        } else if (arg == "--product-key" && hasValue) {
            out.host.productKey = u16(argv[++i]);
            if (out.host.productKey.empty()) {
                printError("lumrx-host: the product key is empty\n" + std::string(kUsage));
                return false;
            }
        } else if (arg == "--product-name" && hasValue) {
            out.host.productName = u16(argv[++i]);
            if (out.host.productName.empty()) {
                printError("lumrx-host: the product name is empty\n" + std::string(kUsage));
                return false;
            }
        } else if (arg == "--crash-record" && hasValue) {
            out.host.crashRecordFile = argv[++i];
        } else if (arg == "--refuse-non-mdi") {
            out.host.acceptNonMdi = false;
        } else if ((arg.size() > 1 && arg[0] == '-') || !out.script.empty()) {
            bool option = arg.size() > 1 && arg[0] == '-';
            printError("lumrx-host: " +
                       (option ? "unknown option or missing value: " + arg : "more than one script: " + arg) +
                       "\n" + kUsage);
            return false;
        } else {
            out.script = arg;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments args;
    if (!parseArguments(argc, argv, args)) return 2;

    std::ifstream file;
    bool fromStdin = args.script.empty() || args.script == "-";
    if (!fromStdin) {
        file.open(args.script, std::ios::binary);
        if (!file) {
            printError("lumrx-host: can't read the script " + args.script);
            return 2;
        }
        // A script finds modules beside itself too, after the --path directories.
        size_t slash = args.script.find_last_of('/');
        args.host.searchPath.push_back(u16(slash == std::string::npos ? "." : args.script.substr(0, slash)));
    }

    HostServices host(args.host);
    if (!host.ready()) {
        printError("lumrx-host: can't open the crash record " + args.host.crashRecordFile);
        return 2;
    }
    int failures = 0;
    try {
        InitializeKvRxSystem();
        kvdbSetHostApplicationServices(&host);
        HostCommands commands(host);
        Interpreter interpreter(commands);
        bool interactive = fromStdin && lumplatform::standardInputIsTerminal();
        interpreter.run(fromStdin ? std::cin : file, fromStdin ? "stdin" : args.script, interactive);
        failures = interpreter.failures();
        commands.shutDown();
        UninitializeKvRxSystem();
        kvdbSetHostApplicationServices(nullptr);
        std::printf("runtime shut down\n");
    } catch (LumException* e) {
        printError("lumrx-host: the runtime failed: " + utf8(e->description()));
        delete e;
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
