// Members of classes (properties, methods, enum tags, categories), their collections
// and iterators, the query engine and the member overrules.
//
// The whole family is inert: objects have their class identity, but nothing stores
// anything and every query gives a fixed result (null, false, 0, an empty KvString or
// status 1). No function reads its arguments. desc() finds each class by its own name
// through kvrxFindKvRxClass; nothing here registers them. Nothing here allocates:
// KvRxMember::operator new gives null, and the implementation pointers are not owned.
#pragma once

#include <cstddef>

#include "kvrxapipart.h"
#include "kvrxobject.h"
#include "kvrxvalue.h"
#include "kvstring.h"

class KvRxMemberImp;
class KvRxMemberCollectionImp;
class KvRxMemberIteratorImp;
class KvRxValueIteratorImp;
class KvRxMemberQueryContextImp;
class KvRxMemberQueryEngineImp;
class KvRxAttributeCollection;
class KvRxMemberCollection;
class KvRxMemberCollectionBuilder;
class KvRxMemberIterator;
class KvRxValueIterator;

class KvRxMember : public Pimpl::ApiPart<KvRxObject, KvRxMemberImp> {
    KVRX_DECLARE_MEMBERS(KvRxMember);

    const char16_t* name() const;
    const KvRxObject* owner() const;
    const KvRxMemberCollection* children() const;
    // Null references.
    const KvRxValueType& type() const;
    const KvRxAttributeCollection& attributes() const;
    KvRxAttributeCollection& attributes();
    KvString localName() const;

    // Give null: a member is made on the stack or as static data.
    static void* operator new(size_t size) noexcept;
    static void* operator new[](size_t size) noexcept;
    static void* operator new(size_t size, const char* file, int line) noexcept;
    static void* operator new[](size_t size, const char* file, int line) noexcept;
    static void operator delete(void* p);
    static void operator delete[](void* p);
    static void operator delete(void* p, const char* file, int line);
    static void operator delete[](void* p, const char* file, int line);
    static void deleteMember(const KvRxMember* member);

protected:
    KvRxMember(const char16_t* name, const KvRxValueType* type, const KvRxObject* owner);
    virtual KvString subLocalName() const;
    virtual Kvore::ErrorStatus subChildrenEx(KvRxMemberCollectionBuilder& builder, void* data);
    virtual Kvore::ErrorStatus subChildren(KvRxMemberCollectionBuilder& builder, void* data);

private:
    explicit KvRxMember(KvRxMemberImp* imp);
};

class KvRxEnumTag : public KvRxMember {
    KVRX_DECLARE_MEMBERS(KvRxEnumTag);

    KvRxEnumTag(const char16_t* name, const KvRxValue& value);
    // A null reference.
    const KvRxValue& value() const;
    KvString alternateLocalName() const;

protected:
    virtual KvString subAlternateLocalName() const;
};

class KvRxMethod : public KvRxMember {
    KVRX_DECLARE_MEMBERS(KvRxMethod);

    Kvore::ErrorStatus invoke(KvRxObject* object, KvRxValue* args, KvRxValue& result) const;
    Kvore::ErrorStatus isExecutable(const KvRxObject* object) const;

protected:
    KvRxMethod(const char16_t* name, const KvRxValueType& returnType, const KvRxObject* owner);
    virtual Kvore::ErrorStatus subIsExecutable(const KvRxObject* object) const;
    virtual Kvore::ErrorStatus subInvoke(KvRxObject* object, KvRxValue* args, KvRxValue& result) const;

private:
    explicit KvRxMethod(KvRxMemberImp* imp);
};

class KvRxPropertyBase : public KvRxMember {
    KVRX_DECLARE_MEMBERS(KvRxPropertyBase);

    bool isReadOnly(const KvRxObject* object) const;

protected:
    KvRxPropertyBase(const char16_t* name, const KvRxValueType& type, const KvRxObject* owner);

private:
    explicit KvRxPropertyBase(KvRxMemberImp* imp);
};

class KvRxProperty : public KvRxPropertyBase {
    KVRX_DECLARE_MEMBERS(KvRxProperty);

    Kvore::ErrorStatus getValue(const KvRxObject* object, KvRxValue& value) const;
    Kvore::ErrorStatus setValue(KvRxObject* object, const KvRxValue& value) const;

protected:
    KvRxProperty(const char16_t* name, const KvRxValueType& type, const KvRxObject* owner);
    virtual Kvore::ErrorStatus subGetValue(const KvRxObject* object, KvRxValue& value) const;
    virtual Kvore::ErrorStatus subSetValue(KvRxObject* object, const KvRxValue& value) const;
};

class KvRxCollectionProperty : public KvRxPropertyBase {
    KVRX_DECLARE_MEMBERS(KvRxCollectionProperty);

    KvRxValueIterator* newValueIterator(const KvRxObject* object) const;
    Kvore::ErrorStatus tryGetCount(const KvRxObject* object, int& count) const;

protected:
    KvRxCollectionProperty(const char16_t* name, const KvRxValueType& type, const KvRxObject* owner);
    virtual KvRxValueIterator* subNewValueIterator(const KvRxObject* object) const;
    virtual Kvore::ErrorStatus subTryGetCount(const KvRxObject* object, int& count) const;

private:
    explicit KvRxCollectionProperty(KvRxMemberImp* imp);
};

class KvRxIndexedProperty : public KvRxCollectionProperty {
    KVRX_DECLARE_MEMBERS(KvRxIndexedProperty);

    Kvore::ErrorStatus getValue(const KvRxObject* object, int index, KvRxValue& value) const;
    Kvore::ErrorStatus setValue(KvRxObject* object, int index, const KvRxValue& value) const;
    Kvore::ErrorStatus insertValue(KvRxObject* object, int index, const KvRxValue& value) const;
    Kvore::ErrorStatus removeValue(KvRxObject* object, int index) const;

protected:
    KvRxIndexedProperty(const char16_t* name, const KvRxValueType& type, const KvRxObject* owner);
    virtual Kvore::ErrorStatus subGetValue(const KvRxObject* object, int index, KvRxValue& value) const;
    virtual Kvore::ErrorStatus subSetValue(KvRxObject* object, int index, const KvRxValue& value) const;
    virtual Kvore::ErrorStatus subInsertValue(KvRxObject* object, int index, const KvRxValue& value) const;
    virtual Kvore::ErrorStatus subRemoveValue(KvRxObject* object, int index) const;

private:
    explicit KvRxIndexedProperty(KvRxMemberImp* imp);
};

class KvRxDictionaryProperty : public KvRxCollectionProperty {
    KVRX_DECLARE_MEMBERS(KvRxDictionaryProperty);

    Kvore::ErrorStatus getValue(const KvRxObject* object, const KvRxValue& key, KvRxValue& value) const;
    Kvore::ErrorStatus setValue(KvRxObject* object, const KvRxValue& key, const KvRxValue& value) const;

protected:
    KvRxDictionaryProperty(const char16_t* name, const KvRxValueType& type,
                           const KvRxValueType& keyType, const KvRxObject* owner);
    virtual Kvore::ErrorStatus subGetValue(const KvRxObject* object, const KvRxValue& key,
                                           KvRxValue& value) const;
    virtual Kvore::ErrorStatus subSetValue(KvRxObject* object, const KvRxValue& key,
                                           const KvRxValue& value) const;

private:
    explicit KvRxDictionaryProperty(KvRxMemberImp* imp);
};

class KvRxCategory : public KvRxMember {
    KVRX_DECLARE_MEMBERS(KvRxCategory);

    KvRxCategory(const char16_t* name, KvRxCategory* parent);
    static KvRxCategory* rootCategory();
    KvRxCategory* findDescendant(const char16_t* name) const;
    Kvore::ErrorStatus removeChild(KvRxCategory* child);
};

Kvore::ErrorStatus kvdbGetLegacyCategoryId(const KvRxCategory* category, int& id);
Kvore::ErrorStatus kvdbSetLegacyCategoryId(KvRxCategory* category, int id);

// ---- collections and iterators ----

class KvRxMemberCollection : public Pimpl::ApiPart<void, KvRxMemberCollectionImp> {
public:
    virtual ~KvRxMemberCollection();
    virtual int count() const;
    virtual KvRxMember* getAt(int index) const;

private:
    explicit KvRxMemberCollection(KvRxMemberCollectionImp* imp);
};

// Two words: the implementation pointer and the owner class.
class KvRxMemberCollectionBuilder {
public:
    KvRxMemberCollectionBuilder& operator=(const KvRxMemberCollectionBuilder& o);
    Kvore::ErrorStatus add(KvRxMember* member);
    const KvRxClass* owner() const;

private:
    KvRxMemberCollectionBuilder(KvRxMemberCollectionImp* imp, const KvRxClass* owner);

    KvRxMemberCollectionImp* m_imp;
    const KvRxClass* m_owner;
};

class KvRxMemberIterator : public Pimpl::ApiPart<void, KvRxMemberIteratorImp> {
public:
    virtual ~KvRxMemberIterator();
    virtual bool done();
    virtual bool next();
    virtual KvRxMember* current() const;
    virtual KvRxMember* find(const char16_t* name) const;

private:
    explicit KvRxMemberIterator(KvRxMemberIteratorImp* imp);
};

class KvRxValueIterator : public Pimpl::ApiPart<void, KvRxValueIteratorImp> {
public:
    virtual ~KvRxValueIterator();
    virtual bool done();
    virtual bool next();
    virtual KvRxValue current() const;

private:
    explicit KvRxValueIterator(KvRxValueIteratorImp* imp);
};

// ---- query engine ----

class KvRxMemberQueryContext : public Pimpl::ApiPart<KvRxObject, KvRxMemberQueryContextImp> {
    KVRX_DECLARE_MEMBERS(KvRxMemberQueryContext);

    KvRxMemberIterator* newMemberIterator(const KvRxClass* const* classes, unsigned count) const;

protected:
    KvRxMemberQueryContext();
    // Concrete contexts provide it.
    virtual KvRxMemberIterator* subNewMemberIterator(const KvRxClass* const* classes,
                                                     unsigned count) const = 0;
};

class KvRxPromotingQueryContext : public KvRxMemberQueryContext {
    KVRX_DECLARE_MEMBERS(KvRxPromotingQueryContext);

protected:
    KvRxPromotingQueryContext() = default;
};

class KvRxFacetProvider : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxFacetProvider);

protected:
    KvRxFacetProvider() = default;
};

class KvRxMemberReactor {
public:
    virtual ~KvRxMemberReactor();
    virtual void goodbye(const KvRxMember* member);
};

class KvRxMemberQueryEngine : public Pimpl::ApiPart<void, KvRxMemberQueryEngineImp> {
public:
    static KvRxMemberQueryEngine* theEngine();
    KvRxMemberQueryContext* defaultContext();
    KvRxMemberQueryContext* promotingContext();
    KvRxMember* find(const KvRxObject* object, const char16_t* name,
                     const KvRxMemberQueryContext* context = nullptr) const;
    KvRxMemberIterator* newMemberIterator(const KvRxObject* object,
                                          const KvRxMemberQueryContext* context = nullptr) const;
    Kvore::ErrorStatus addFacetProvider(KvRxFacetProvider* provider);
    Kvore::ErrorStatus removeFacetProvider(KvRxFacetProvider* provider);
    void addReactor(KvRxMemberReactor* reactor);
    void removeReactor(KvRxMemberReactor* reactor);

private:
    explicit KvRxMemberQueryEngine(KvRxMemberQueryEngineImp* imp);
};

// ---- overrules on members (not the overrules of the class tree) ----

class KvRxMemberOverrule : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxMemberOverrule);

    static Kvore::ErrorStatus addOverrule(KvRxMember* member, KvRxMemberOverrule* overrule,
                                          bool addAtLast = false);
    static Kvore::ErrorStatus removeOverrule(KvRxMember* member, KvRxMemberOverrule* overrule);
    static Kvore::ErrorStatus removeOverrules(KvRxMember* member);

protected:
    KvRxMemberOverrule() = default;
};

class KvRxPropertyOverrule : public KvRxMemberOverrule {
    KVRX_DECLARE_MEMBERS(KvRxPropertyOverrule);

    Kvore::ErrorStatus getValue(const KvRxProperty* property, const KvRxObject* object,
                                KvRxValue& value);
    Kvore::ErrorStatus setValue(const KvRxProperty* property, KvRxObject* object,
                                const KvRxValue& value);

protected:
    KvRxPropertyOverrule() = default;
};

class KvRxCollectionPropertyOverrule : public KvRxMemberOverrule {
    KVRX_DECLARE_MEMBERS(KvRxCollectionPropertyOverrule);

    KvRxValueIterator* newValueIterator(const KvRxCollectionProperty* property,
                                        const KvRxObject* object);
    Kvore::ErrorStatus tryGetCount(const KvRxCollectionProperty* property, const KvRxObject* object,
                                   int& count);

protected:
    KvRxCollectionPropertyOverrule() = default;
};
