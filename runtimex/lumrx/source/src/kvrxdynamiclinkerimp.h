// The dynamic linker's one implementation.
//
// Owns: `modules` (the table of loaded modules' proxies, keyed by full file name) and
// the proxies in it, `pendingDelete` (unloaded proxies whose library waits for the
// outermost unload; they stay in `modules` until then), and the kernel's own proxy,
// which it deletes with itself.
#pragma once

#include "kvrxdynamiclinker.h"

#include <string>

class KvRxDictionary;
class KvRxLinkedList;
struct RxKDSAppTableEntryType;

class KvRxDynamicLinkerImp : public KvRxDynamicLinker {
    KVRX_DECLARE_MEMBERS(KvRxDynamicLinkerImp);

public:
    // The kernel's own module proxy; it must exist, as a static of the library does.
    static KvRxDynLoadModuleProxy* kernelProxy();

    // The record of the module whose entry point runs (an all-zero one before any
    // message); the setter gives the previous one.
    static RxKDSAppTableEntryType* setCurKdsData(RxKDSAppTableEntryType* data);
    static RxKDSAppTableEntryType* getCurKdsData();

    KvRxDynamicLinkerImp();
    ~KvRxDynamicLinkerImp() override;
    KvRxDynamicLinkerImp(const KvRxDynamicLinkerImp&) = delete;
    KvRxDynamicLinkerImp& operator=(const KvRxDynamicLinkerImp&) = delete;

    void* getServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol) override;
    void* getServiceSymbolAddr(const char16_t* serviceName, const char* symbol) override;
    bool loadModule(const char16_t* fileName, bool verbose, bool asCommand) override;
    bool unloadModule(const char16_t* fileName, bool asCommand) override;
    void* registerService(const char16_t* serviceName, KvRxService* service) override;
    bool loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason, bool verbose,
                         bool asCommand) override;
    bool sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                            void* packet) override;

    // The proxy of the loaded module `name`; null if there is none.
    KvRxDynLoadModuleProxy* findRxModuleProxyByModuleName(const char16_t* name) const;

private:
    KvRxDynLoadModuleProxy* ownerOf(void* moduleHandle) const;
    KvRxDynLoadModuleProxy* openModule(const std::u16string& name, bool asCommand);
    KvRxDynLoadModuleProxy* openImage(const std::u16string& name);
    bool initModule(KvRxDynLoadModuleProxy* proxy);
    bool unloadProxy(KvRxDynLoadModuleProxy* proxy);
    bool finishUnload(KvRxDynLoadModuleProxy* proxy);
    void dropServicesOf(KvRxDynLoadModuleProxy* proxy);
    void flushPendingModules();
    bool inTable(KvRxDynLoadModuleProxy* proxy) const;

    KvRxDictionary* modules;
    KvRxLinkedList* pendingDelete;
    void* currentModuleHandle;  // handle of the module whose entry point runs
    int unloadDepth;
    int loadDepth;
};
