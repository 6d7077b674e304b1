// The flat front doors to the linker for hosts and modules that don't hold it.
#include "kvrxdynamiclinkerimp.h"

#include "kvrxdictionary.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxmoduledependencytracker.h"
#include "kvrxruntime.h"
#include "lumosbase.h"

namespace {

// The linker that start-up put into the system registry; these functions expect it.
KvRxDynamicLinker* linker() {
    return KvRxDynamicLinker::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

KvRxDynamicLinkerImp* linkerImp() {
    return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

}  // namespace

bool kvrxLoadModule(const char16_t* fileName, bool verbose, bool asCommand) {
    return linker()->loadModule(fileName, verbose, asCommand);
}

bool kvrxLoadApp(const char16_t* appName, bool verbose) {
    return linker()->loadApp(appName, KvoreApp::kOnRequest, verbose, false);
}

bool kvrxUnloadModule(const char16_t* fileName, bool asCommand) {
    return linker()->unloadModule(fileName, asCommand);
}

bool kvrxUnloadApp(const char16_t* appName, bool asCommand) {
    return linker()->unloadApp(appName, asCommand);
}

bool kvrxApplicationIsLocked(const char16_t* moduleName) {
    return linker()->applicationIsLocked(moduleName);
}

bool kvrxLockApplication(void* moduleId) { return linker()->lockApplication(moduleId); }

bool kvrxUnlockApplication(void* moduleId) { return linker()->unlockApplication(moduleId); }

bool kvrxIsAppMDIAware(const char16_t* moduleName) { return linker()->isAppMDIAware(moduleName); }

bool kvrxRegisterAppMDIAware(void* moduleId) { return linker()->registerAppMDIAware(moduleId); }

bool kvrxRegisterAppNotMDIAware(void* moduleId) {
    return linker()->registerAppNotMDIAware(moduleId);
}

bool kvrxAppIsLoaded(const char16_t* moduleName) {
    return linkerImp()->findRxModuleProxyByModuleName(moduleName, false) != nullptr;
}

KvArray<char16_t*, KvArrayMemCopyReallocator<char16_t*>>* kvrxLoadedApps() {
    KvArray<KvRxDynLoadModuleProxy*> proxies;
    linkerImp()->getLoadedModules(proxies);
    auto* names = new KvArray<char16_t*, KvArrayMemCopyReallocator<char16_t*>>(0, 8);
    for (int i = 0; i < proxies.length(); ++i) {
        const char16_t* moduleName = proxies[i]->moduleName();
        if (!moduleName) continue;
        char16_t base[LUM_MAX_PATH] = {};
        char16_t extension[LUM_MAX_PATH] = {};
        LumPathMaker::getFileName(moduleName, base, nullptr);
        LumPathMaker::getExtFileName(extension, moduleName);
        auto* name = static_cast<char16_t*>(_lumMalloc(LUM_MAX_PATH * sizeof(char16_t)));
        if (!name) continue;
        unsigned baseLength = LumCharOp::length(base);
        unsigned extensionLength = LumCharOp::length(extension);
        if (baseLength + extensionLength >= LUM_MAX_PATH) extensionLength = 0;
        if (baseLength >= LUM_MAX_PATH) baseLength = LUM_MAX_PATH - 1;
        LumCharOp::copy(name, base, baseLength);
        LumCharOp::copy(name + baseLength, extension, extensionLength);
        name[baseLength + extensionLength] = 0;
        names->append(name);
    }
    return names;
}

void kvrxUnloadAllModules(bool quitting, bool forced) { linkerImp()->unloadAllKrxModule(quitting, forced); }

KvRxServiceOwner kvrxServiceOwner(const char16_t* serviceName, const char16_t** moduleName) {
    if (moduleName) *moduleName = nullptr;
    if (!serviceName || !*serviceName) return KvRxServiceOwner::kNone;
    auto* services = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
    auto* service = services ? KvRxService::cast(services->at(serviceName)) : nullptr;
    auto* proxy = service ? KvRxDynLoadModuleProxy::cast(service->getSysInfo()) : nullptr;
    if (!proxy) return KvRxServiceOwner::kNone;
    if (proxy == KvRxDynamicLinkerImp::kernelProxy()) return KvRxServiceOwner::kKernel;
    if (moduleName) *moduleName = proxy->moduleName();
    return KvRxServiceOwner::kModule;
}

bool kvrxLoadAutoloadApps(const char16_t*) { return false; }

bool kvrxUnloadAutoloadApps(const char16_t*) { return false; }

void kvrxGetModuleStates(KvArray<KvRxModuleState>& out) {
    KvArray<KvRxDynLoadModuleProxy*> proxies;
    linkerImp()->getLoadedModules(proxies);
    for (int i = 0; i < proxies.length(); ++i) {
        KvRxDynLoadModuleProxy* proxy = proxies[i];
        // Only a module waiting for its release has no reference left.
        out.append(KvRxModuleState{proxy->moduleName(), proxy->appName(), proxy->refCount(),
                                   proxy->locked(), proxy->mdiAware(), proxy->refCount() <= 0});
    }
}

void kvrxGetModuleDependencies(KvArray<KvRxModuleDependency>& out) {
    const KvArray<KvRxDependencyNode*>& nodes = linkerImp()->dependencyTracker().nodes();
    for (int i = 0; i < nodes.length(); ++i) {
        const KvRxDependencyNode* node = nodes[i];
        if (!node->proxy) continue;
        for (const KvRxDependencyEdge* edge = node->dependsOn; edge; edge = edge->next) {
            if (!edge->node || !edge->node->proxy) continue;
            out.append(KvRxModuleDependency{node->proxy->moduleName(), edge->node->proxy->moduleName(),
                                            edge->kind == KvRxModuleDependencyTracker::kStaticEdge});
        }
    }
}
