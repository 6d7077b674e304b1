// Loads by application record, by list file and at start-up, and the per-module
// flags that modules and hosts set and read through the linker.
#include "kvrxdynamiclinkerimp.h"

#include "kernel/kvrxcrashrecord.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvdbhostappservices.h"
#include "kvrxdynloadmoduleproxy.h"
#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/registry.h"
#include "lumplatform/text.h"

#include <cctype>
#include <fstream>
#include <string>
#include <vector>

namespace {

using ManagedLoader = int (*)(const char16_t* moduleName);

constexpr int kListLineUnits = 259;  // longest line of a list file

// The proxy behind a module's identity, the packet of its first message: null stays
// null, anything else must be a proxy.
KvRxDynLoadModuleProxy* moduleIdentity(void* moduleId) {
    if (!moduleId) return nullptr;
    auto* object = static_cast<KvRxObject*>(moduleId);
    if (object->isA() != KvRxDynLoadModuleProxy::desc()) KvRxModuleGlobal::fatalStatus();
    return static_cast<KvRxDynLoadModuleProxy*>(object);
}

// A managed module goes through the bridge library, which keeps it; the linker doesn't.
bool loadManagedModule(const char16_t* moduleName) {
    std::u16string bridge = kvrxProductLibraryName(u"Managed.dll", u"LumManaged.dll");
    void* handle = lumplatform::mappedLibrary(bridge);
    auto load = reinterpret_cast<ManagedLoader>(
        handle ? lumplatform::librarySymbol(handle, "LoadManagedDll") : nullptr);
    return load && load(moduleName) == 0;
}

// The sub-key names of `path` in `hive`, appended to `names` unless there already.
void collectSubKeys(lumplatform::RegistryHive hive, const std::u16string& path,
                    std::vector<std::u16string>& names) {
    lumplatform::RegistryKey key;
    if (key.open(hive, path.c_str(), lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk)
        return;
    lumplatform::RegistryKeyInfo info;
    if (key.info(info) != lumplatform::kRegistryOk) return;
    std::vector<char16_t> name(info.longestSubKeyName + 1);
    for (uint32_t i = 0; i < info.subKeys; ++i) {
        uint32_t length = uint32_t(name.size());
        if (key.subKeyAt(i, name.data(), &length) != lumplatform::kRegistryOk) continue;
        std::u16string text(name.data(), length);
        bool known = false;
        for (const std::u16string& n : names) known = known || n == text;
        if (!known) names.push_back(text);
    }
}

// The lines of a list file as a wide stream that skips white space before each line
// reads them: blank lines vanish, and trailing white space gives one last empty line.
std::vector<std::u16string> listFileLines(const std::string& content) {
    std::vector<std::u16string> lines;
    size_t pos = 0;
    bool end = false;
    while (!end) {
        while (pos < content.size() && std::isspace(static_cast<unsigned char>(content[pos]))) ++pos;
        size_t stop = content.find('\n', pos);
        if (stop == std::string::npos) {
            stop = content.size();
            end = true;
        }
        std::string line = content.substr(pos, stop - pos);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(lumplatform::fromUtf8(line));
        pos = stop + 1;
    }
    return lines;
}

// The bytes of the file at `path`; false if it can't be opened or read through (a
// folder, a file without read access, an error of the device).
bool readListFile(const char16_t* path, std::string& content) {
    std::ifstream in(lumplatform::toUtf8(path), std::ios::binary);
    if (!in) return false;
    // Reading through the stream, not its buffer: the stream turns a failed read into
    // its bad state instead of passing the buffer's exception on.
    char block[4096];
    while (in.read(block, sizeof block) || in.gcount() > 0)
        content.append(block, size_t(in.gcount()));
    return !in.bad();
}

bool isComment(const std::u16string& line) {
    return line.compare(0, 1, u";") == 0 || line.compare(0, 2, u"//") == 0;
}

}  // namespace

bool KvRxDynamicLinkerImp::loadApp(const char16_t* appName, KvoreApp::LoadReasons reason,
                                   bool verbose, bool asCommand) {
    if (!appName || !*appName) return false;
    std::u16string name(appName);
    name = name.substr(0, name.find(u'|'));
    KvoreAppInfo info;
    info.setAppName(name.c_str());
    if (info.readFromRegistry() != KvoreApp::eOk) return false;
    return loadAppFromInfo(&info, reason, verbose, asCommand);
}

bool KvRxDynamicLinkerImp::loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason,
                                           bool verbose, bool asCommand) {
    if (!info || !(reason & info->loadReason()) || (info->loadReason() & KvoreApp::kDisabled))
        return false;
    if (info->managed() != 0) return loadManagedModule(info->moduleName());
    const char16_t* moduleName = info->moduleName();
    if (reason == KvoreApp::kOnStartup && findRxModuleProxyByModuleName(moduleName, false))
        return true;
    if (!loadModule(moduleName, verbose, asCommand)) return false;
    // A reactor may have unloaded the module again while it heard of the load.
    if (KvRxDynLoadModuleProxy* proxy = findRxModuleProxyByModuleName(moduleName, false)) {
        proxy->setAppName(info->appName());
        proxy->setLoadReason(info->loadReason());
    }
    return true;
}

bool KvRxDynamicLinkerImp::loadListedModules(const char16_t* listFileName) {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (!host) KvRxModuleGlobal::fatalError(u"Cannot get host application service object!");
    loadStartupApps();
    if (!listFileName || !*listFileName) return false;
    char16_t found[LUM_MAX_PATH] = {};
    if (host->findFile(found, int(LUM_MAX_PATH), listFileName, nullptr, 7) != 0) return false;
    std::string content;
    if (!readListFile(found, content)) return false;
    bool result = true;
    for (const std::u16string& line : listFileLines(content)) {
        if (isComment(line)) continue;
        // A line longer than a path can be names no module.
        if (line.size() > size_t(kListLineUnits) ||
            host->findFile(found, int(LUM_MAX_PATH), line.c_str(), nullptr, 7) != 0) {
            result = false;
            continue;
        }
        try {
            loadModule(found, true, true);
        } catch (LumException* e) {
            delete e;
            result = false;
        } catch (...) {
            result = false;
        }
    }
    return result;
}

// Every application registered under the product key, user hive first; a failure of
// one is recorded and the next one follows.
void KvRxDynamicLinkerImp::loadStartupApps() {
    const char16_t* productKey = kvrxProductKey();
    std::u16string path = std::u16string(productKey ? productKey : u"") + u"\\Applications";
    std::vector<std::u16string> names;
    collectSubKeys(lumplatform::RegistryHive::user, path, names);
    collectSubKeys(lumplatform::RegistryHive::machine, path, names);
    for (const std::u16string& name : names) {
        bool failed = false;
        try {
            loadApp(name.c_str(), KvoreApp::kOnStartup, false, false);
        } catch (LumException* e) {
            delete e;
            failed = true;
        } catch (...) {
            failed = true;
        }
        if (!failed) continue;
        if (LumCrashRecorder* recorder = kvrxCrashRecorder())
            recorder->recordFault(0, nullptr, u"" __FILE__, __LINE__);
        kvrxRecordLine(u"krx %s load error", name.c_str());
    }
}

bool KvRxDynamicLinkerImp::applicationIsLocked(const char16_t* moduleName) {
    if (!moduleName || !*moduleName) return false;
    std::u16string resolved;
    if (!kvrxResolveModuleName(moduleName, resolved)) return false;
    KvRxDynLoadModuleProxy* proxy = findRxModuleProxyByModuleName(resolved.c_str(), false);
    return proxy && proxy->locked();
}

bool KvRxDynamicLinkerImp::lockApplication(void* moduleId) {
    KvRxDynLoadModuleProxy* proxy = moduleIdentity(moduleId);
    if (proxy) proxy->setLocked(true);
    return proxy != nullptr;
}

bool KvRxDynamicLinkerImp::unlockApplication(void* moduleId) {
    KvRxDynLoadModuleProxy* proxy = moduleIdentity(moduleId);
    if (proxy) proxy->setLocked(false);
    return proxy != nullptr;
}

bool KvRxDynamicLinkerImp::isAppMDIAware(const char16_t* moduleName) {
    if (!moduleName || !*moduleName) return false;
    KvRxDynLoadModuleProxy* proxy = findRxModuleProxyByModuleName(moduleName, false);
    return !proxy || proxy->mdiAware();
}

bool KvRxDynamicLinkerImp::registerAppMDIAware(void* moduleId) {
    KvRxDynLoadModuleProxy* proxy = moduleIdentity(moduleId);
    if (proxy) proxy->setMdiAware(true);
    return proxy != nullptr;
}

bool KvRxDynamicLinkerImp::registerAppNotMDIAware(void* moduleId) {
    KvRxDynLoadModuleProxy* proxy = moduleIdentity(moduleId);
    if (proxy) proxy->setMdiAware(false);
    return proxy != nullptr;
}

bool KvRxDynamicLinkerImp::isAppInNestedLoad(const char16_t* moduleName) {
    if (!moduleName || !*moduleName) return false;
    KvRxDynLoadModuleProxy* proxy = findRxModuleProxyByModuleName(moduleName, false);
    return !proxy || proxy->nestedLoad();
}

void KvRxDynamicLinkerImp::setAppInNestedLoad(const char16_t* moduleName, bool value) {
    if (KvRxDynLoadModuleProxy* proxy = findRxModuleProxyByModuleName(moduleName, false))
        proxy->setNestedLoad(value);
}

KvLocale KvRxDynamicLinkerImp::productLocale() { return KvLocale(0); }

uint32_t KvRxDynamicLinkerImp::productLCID() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    return host ? host->hostLCID() : 0;
}
