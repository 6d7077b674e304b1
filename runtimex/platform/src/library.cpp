#include "lumplatform/library.h"
#include "lumplatform/text.h"

#include <dlfcn.h>
#include <strings.h>

namespace lumplatform {

static bool endsInDll(const std::string& n) {
    return n.size() > 4 && strcasecmp(n.c_str() + n.size() - 4, ".dll") == 0;
}

static std::string systemLibraryName(std::string n) {
    if (endsInDll(n)) n.replace(n.size() - 4, 4, ".so");
    return n;
}

static std::string systemLibraryName(const std::u16string& name) { return systemLibraryName(toUtf8(name)); }

void* openLibrary(const std::u16string& name) { return openLibraryUtf8(toUtf8(name)); }

void* openLibraryUtf8(const std::string& name) {
    if (name.empty()) return nullptr;
    // Only a name ending in ".dll" needs another text.
    if (endsInDll(name)) return dlopen(systemLibraryName(name).c_str(), RTLD_NOW | RTLD_LOCAL);
    return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* openLibraryBeside(const void* anchor, const std::u16string& name) {
    if (name.empty()) return nullptr;
    // The loader's own search can't be relied on for this: it follows the run path of
    // whoever calls dlopen, and an interposed dlopen (a sanitizer's) is someone else.
    Dl_info info;
    bool bare = name.find(u'/') == std::u16string::npos;
    if (bare && anchor && dladdr(anchor, &info) && info.dli_fname) {
        std::string folder = info.dli_fname;
        size_t slash = folder.rfind('/');
        if (slash != std::string::npos) {
            std::string path = folder.substr(0, slash + 1) + systemLibraryName(name);
            if (void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return handle;
        }
    }
    return openLibrary(name);
}

void* mappedLibrary(const std::u16string& name) {
    if (name.empty()) return nullptr;
    void* handle = dlopen(systemLibraryName(name).c_str(), RTLD_NOW | RTLD_NOLOAD);
    // The query took a reference; give it back, the library stays mapped by its owner.
    if (handle) dlclose(handle);
    return handle;
}

void closeLibrary(void* handle) {
    if (handle) dlclose(handle);
}

void* librarySymbol(void* handle, const char* symbol) {
    return handle && symbol ? dlsym(handle, symbol) : nullptr;
}

}  // namespace lumplatform
