// A stand-in for the bridge that loads managed modules: it writes "bridge <name>" to
// the test log and refuses names that contain "refuse".
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" __attribute__((visibility("default"))) int LoadManagedDll(const char16_t* moduleName) {
    std::string name;
    for (const char16_t* p = moduleName; p && *p; ++p) name += char(*p < 0x80 ? *p : '?');
    if (const char* file = std::getenv("LUMRX_TEST_MODULE_LOG"))
        if (FILE* log = std::fopen(file, "a")) {
            std::fprintf(log, "bridge %s\n", name.c_str());
            std::fclose(log);
        }
    return name.find("refuse") == std::string::npos ? 0 : 1;
}
