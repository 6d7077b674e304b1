// lumrx-inspect: tells why files are or are not loadable extension modules. By default
// it only reads each file; with --load it also loads it into a runtime of its own and
// unloads it again. Usage: README.md.
//
// Exit status: 0 if every file is a loadable module, 1 if any is not (the reason is on
// standard output), 2 for a command line that can't be understood.
#include "inspection.h"
#include "loadcheck.h"
#include "report.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

using namespace lumrxinspect;

namespace {

const char* const kUsage =
    "usage: lumrx-inspect [--load] [--json] FILE...\n"
    "  --load  also load each file into a runtime of its own, report what the load did,\n"
    "          and unload it again\n"
    "  --json  one JSON object per line and file instead of text\n"
    "Exit status: 0 if every file is a loadable module, 1 if any is not, 2 for a bad\n"
    "command line.\n";

struct Arguments {
    bool load = false;
    bool json = false;
    std::vector<std::string> files;
};

// 0 to go on, else the exit status.
int parseArguments(int argc, char** argv, Arguments& out) {
    bool optionsEnd = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (optionsEnd || arg.empty() || arg[0] != '-' || arg == "-") {
            out.files.push_back(arg);
        } else if (arg == "--") {
            optionsEnd = true;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return -1;
        } else if (arg == "--load") {
            out.load = true;
        } else if (arg == "--json") {
            out.json = true;
        } else {
            std::fprintf(stderr, "lumrx-inspect: unknown option: %s\n%s", arg.c_str(), kUsage);
            return 2;
        }
    }
    if (out.files.empty()) {
        std::fprintf(stderr, "lumrx-inspect: no file given\n%s", kUsage);
        return 2;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments args;
    int status = parseArguments(argc, argv, args);
    if (status != 0) return status < 0 ? 0 : status;
    std::unique_ptr<LoadSession> session;
    if (args.load) session = std::make_unique<LoadSession>();
    bool allLoadable = true;
    for (const std::string& file : args.files) {
        Inspection inspection = inspectFile(file);
        if (session) session->check(inspection);
        allLoadable = allLoadable && inspection.loadable;
        std::string report = args.json ? jsonReport(inspection) + "\n" : textReport(inspection);
        std::fputs(report.c_str(), stdout);
        std::fflush(stdout);
    }
    return allLoadable ? 0 : 1;
}
