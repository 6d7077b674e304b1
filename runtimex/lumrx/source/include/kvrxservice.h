// Services: named objects in "ServiceDictionary" tied to the module that registered
// them, and the kernel service that makes the runtime's collections.
//
// A service owns its holder of the owning module (from _lumMalloc), never the module.
#pragma once

#include "kvrxobject.h"

class KvRxDictionary;
class KvRxLinkedList;
class KvRxMap;
struct KvRxServiceHolder;

namespace KvRx {
// Messages the kernel sends to a module's entry point, and the entry point's result
// (0 is success). Hosts and modules define further codes, and a module may answer any
// number: both have a fixed underlying type, so every int value is a valid one.
enum AppMsgCode : int {
    kInitAppMsg = 1,
    kUnloadAppMsg = 2,
    kQuitMsg = 8,
    kDependencyMsg = 10,
    kNoDependencyMsg = 11,
};
enum AppRetCode : int { kRetOK = 0, kRetError = 3 };
}  // namespace KvRx

class KvRxService : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxService);

public:
    KvRxService();
    ~KvRxService() override;
    // A copy has the same owner.
    KvRxService(const KvRxService& other);
    KvRxService& operator=(const KvRxService& other);

    // The owning module proxy, null without one.
    KvRxObject* getSysInfo() const;
    // Null does nothing; an object that isn't a module proxy is stored as null.
    void setSysInfo(KvRxObject* owner);
    // One more (one less) reference on the owner; the owner hears message 10 when the
    // count rises to 1 and 11 when it falls to 0.
    void addDependency();
    void removeDependency();
    // True without an owner, else whether the owner may be unloaded.
    bool unloadable() const;
    KvRx::AppRetCode (*dependencyFunctionPtr())(KvRx::AppMsgCode, void*);
    void setDependencyFunctionPtr(KvRx::AppRetCode (*)(KvRx::AppMsgCode, void*));

private:
    KvRxServiceHolder* sysData;
};

// The kernel service, registered as "KernelServices". Every object it makes belongs
// to the caller.
class KvRxKernel : public KvRxService {
    KVRX_DECLARE_MEMBERS(KvRxKernel);

public:
    // Keys compared exactly, values restricted to `filter`'s class tree.
    virtual KvRxDictionary* newDictionary(const KvRxClass* filter) = 0;
    virtual KvRxDictionary* newDictionary(unsigned length, bool deleteObjects, bool sorted,
                                          bool ignoreCase) = 0;
    virtual KvRxDictionary* newDictionary(bool sorted, bool ignoreCase) = 0;
    virtual KvRxLinkedList* newLinkedList() = 0;
    virtual KvRxMap* newMap() = 0;
};

// A new service registered under `serviceName` through the linker; it is given even
// when the linker didn't take it. The caller owns it.
void* kvrxRegisterService(const char16_t* serviceName);
// False for a null or empty name.
bool kvrxServiceIsRegistered(const char16_t* serviceName);
// The export `symbol` of the module that owns the service; null without one.
void* kvrxGetServiceSymbolAddr(const char16_t* serviceName, const char* symbol);
void* kvrxGetServiceSymbolAddr(const char16_t* serviceName, const char16_t* symbol);
