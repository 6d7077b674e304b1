// Resources and shared objects of the reflection interface.
//
// Inert: nothing is ever loaded and no library is opened. The implementation pointers
// are null unless a caller passes one, and they are never owned. empty() gives one
// static unloaded instance; nothing here allocates.
#pragma once

#include "kvrxapipart.h"
#include "kvrxobject.h"
#include "kvstring.h"

class KvRxResourceInstanceImp;
class KvRxSharedObjImp;

class KvRxResourceInstance : public Pimpl::ApiPart<KvHeapOperators, KvRxResourceInstanceImp> {
public:
    explicit KvRxResourceInstance(const char16_t* path);
    explicit KvRxResourceInstance(void* module);
    KvRxResourceInstance(const KvRxResourceInstance& o) = default;
    KvRxResourceInstance& operator=(const KvRxResourceInstance& o) = default;

    // A shared instance in the unloaded state.
    static const KvRxResourceInstance& empty();
    bool isLoaded() const;
    bool tryLoadString(int id, KvString& text) const;
    bool loadDataResource(int id, unsigned long& size, const void*& data) const;
    void freeDataResource(const void*& data) const;
};

class KvRxResourceLoader : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxResourceLoader);

    static Kvore::ErrorStatus loadString(const KvRxObject* object, unsigned id, unsigned sourceHint,
                                         KvString& text);

protected:
    KvRxResourceLoader() = default;
};

class KvRxSharedObject : public Pimpl::ApiPart<KvHeapOperators, KvRxSharedObjImp> {
public:
    KvRxSharedObject();
    explicit KvRxSharedObject(void* handle);
    KvRxSharedObject(const KvRxSharedObject& o) = default;
    // Does nothing and gives the object.
    KvRxSharedObject& operator=(KvRxSharedObject&& o);

    static KvRxSharedObject tryLoad(const char16_t* path, bool searchPath);
    bool isLoaded() const;
    void* getSymbol(const char* name) const;

private:
    explicit KvRxSharedObject(KvRxSharedObjImp* imp);
};
