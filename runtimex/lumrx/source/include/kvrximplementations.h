// The operations of the runtime's implementation classes that hosts and modules call:
// the dictionary factory and the dynamic linker's own operations beside its interface.
//
// The objects are the runtime's: these declarations show their operations and no
// state. Code outside the library neither makes, copies nor measures one; it reaches
// the linker through the system registry ("DynamicLinker") and makes dictionaries by
// createDictionary. The library's own sources see the full classes and don't include
// this header.
#pragma once

#include "kvrxdictionary.h"
#include "kvrxdynamiclinker.h"

struct RxKDSAppTableEntryType;

class KvRxDictionaryImp : public KvRxDictionary {
    KVRX_DECLARE_MEMBERS(KvRxDictionaryImp);

public:
    // A new dictionary, owned by the caller: room for `length` entries; values deleted
    // with the dictionary if `deleteObjects`; a key-order index if `sorted`; keys
    // matched regardless of case if `ignoreCase`; only objects of `restrictTo` or below
    // accepted if it isn't null.
    static KvRxDictionaryImp* createDictionary(unsigned int length, bool deleteObjects, bool sorted,
                                               bool ignoreCase, const KvRxClass* restrictTo);
    ~KvRxDictionaryImp() override;

    KvRxDictionaryImp(const KvRxDictionaryImp&) = delete;
    KvRxDictionaryImp& operator=(const KvRxDictionaryImp&) = delete;

private:
    KvRxDictionaryImp() = delete;
};

class KvRxDynamicLinkerImp : public KvRxDynamicLinker {
    KVRX_DECLARE_MEMBERS(KvRxDynamicLinkerImp);

public:
    // The record of the module whose entry point runs (an all-zero one before any
    // message); the setter gives the previous one.
    static RxKDSAppTableEntryType* setCurKdsData(RxKDSAppTableEntryType* data);
    static RxKDSAppTableEntryType* getCurKdsData();

    // The module stored under the full file name of `name`. A missing one is null, or
    // fatal ("Cannot find module") if `mustExist`.
    KvRxDynLoadModuleProxy* findRxModuleProxyByModuleName(const char16_t* name,
                                                          bool mustExist) const;
    // The number of modules in the table.
    int loadedModuleCount() const;
    // A new iterator over the table, by full file name, deleted by the caller; status 0.
    Kvore::ErrorStatus newIterator(KvRxDictionaryIterator*& out);
    // Unloads every module with its messages. `forced` unlocks each one first;
    // otherwise locked modules stay. `quitting` sends the quit message first and keeps
    // the libraries until the runtime shuts down.
    void unloadAllKrxModule(bool quitting, bool forced);
    // Reactors that hear before the others; not owned.
    void addDbAppAware(KvRxDLinkerReactor* reactor);
    void removeDbAppAware(KvRxDLinkerReactor* reactor);
    // Drops the reactors whose class is exactly `cls`; all of them for null.
    void clearAllRxReactor(const KvRxClass* cls);

    KvRxDynamicLinkerImp(const KvRxDynamicLinkerImp&) = delete;
    KvRxDynamicLinkerImp& operator=(const KvRxDynamicLinkerImp&) = delete;

private:
    KvRxDynamicLinkerImp() = delete;
    ~KvRxDynamicLinkerImp() override;
};
