// The dynamic linker's one implementation.
//
// Owns: `modules` (the table of loaded modules' proxies, keyed by full file name) and
// the proxies in it, and the kernel's own proxy, which it deletes with itself.
#pragma once

#include "kvrxdynamiclinker.h"

class KvRxDictionary;
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
    void* registerService(const char16_t* serviceName, KvRxService* service) override;
    bool loadAppFromInfo(KvoreAppInfo* info, KvoreApp::LoadReasons reason, bool verbose,
                         bool asCommand) override;
    bool sendMessageToProxy(KvRxDynLoadModuleProxy* proxy, KvRx::AppMsgCode code,
                            void* packet) override;

private:
    KvRxDynLoadModuleProxy* ownerOf(void* moduleHandle) const;

    KvRxDictionary* modules;
    void* currentModuleHandle;  // handle of the module whose entry point runs
};
