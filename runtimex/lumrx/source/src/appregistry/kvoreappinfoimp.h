// The state of one application record and its registry work.
//
// Owns appName, moduleName and appDesc (LumCharOp::zalloc). Owned by its KvoreAppInfo.
#pragma once

#include "kvoreappinfo.h"
#include "kvore.h"
#include "lumplatform/registry.h"

// A zalloc'd copy of `text`, null for null or when no memory is left.
char16_t* kvoreDupText(const char16_t* text);
// The class registered under `name` by someone else, kept in `cache` once found.
KvRxClass* kvoreRegisteredClass(KvRxClass*& cache, const char16_t* name);
// A new list from the kernel service "KernelServices"; the caller owns it. Fatal
// while the service isn't running.
KvRxLinkedList* kvoreNewKernelList();

class KvoreAppInfoImp : public KvBaseClassWithNew {
public:
    explicit KvoreAppInfoImp(KvoreAppInfo* owner) : owner(owner) {}
    ~KvoreAppInfoImp();
    KvoreAppInfoImp(const KvoreAppInfoImp&) = delete;
    KvoreAppInfoImp& operator=(const KvoreAppInfoImp&) = delete;

    void setAppName(const char16_t* name);
    void setModuleName(const char16_t* name);
    void setAppDesc(const char16_t* desc);
    bool hasAppName() const { return appName && *appName; }

    KvoreApp::ErrorStatus writeToRegistry();
    KvoreApp::ErrorStatus readFromRegistry();
    KvoreApp::ErrorStatus delFromRegistry();
    KvoreApp::ErrorStatus writeNameListValue(const char16_t* section, const char16_t* name,
                                             const char16_t* value);
    bool nameListHas(const char16_t* section, const char16_t* name) const;
    KvoreAppInfo::CmdStatus runAppLoader();

    KvoreAppInfo* owner;
    KvoreAppInfo::AppLoader appLoader = nullptr;
    KvoreApp::LoadReasons loadReason = KvoreApp::kOnRequest;
    KvoreApp::ErrorStatus status = KvoreApp::eOk;
    char16_t* appName = nullptr;
    char16_t* moduleName = nullptr;
    char16_t* appDesc = nullptr;
    int32_t hiveIndex = 2;  // 0 user, 1 machine, 2 none chosen yet
    KvoreAppInfo::MgdType managed = 0;

private:
    enum class MachineRecord { same, differs, noMemory };
    MachineRecord compareMachineRecord(const char16_t* path) const;
    KvoreApp::ErrorStatus writeValues(lumplatform::RegistryHive hive, const char16_t* path,
                                      bool& refused);
    bool openRecord(lumplatform::RegistryHive hive, lumplatform::RegistryKey& key) const;
    bool readRecord(lumplatform::RegistryKey& key, KvoreApp::ErrorStatus& result);
};
