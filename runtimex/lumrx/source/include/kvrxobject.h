// The root of the run-time class tree and the boilerplate every class in it repeats.
//
// Objects know their class through the class tree, not through language type data:
// isA() gives the registered descriptor and cast() tests against it, which works
// across libraries.
#pragma once

#include "kvore.h"

class KvRxClass;

class KvRxObject {
public:
    virtual ~KvRxObject();
    // The descriptor of the object's class; null for a class that isn't registered.
    virtual KvRxClass* isA() const;
    // A copy made by the class's factory and copyFrom; null if either is missing.
    virtual KvRxObject* clone() const;
    virtual Kvore::ErrorStatus copyFrom(const KvRxObject* other);
    // By default an object equals only itself.
    virtual bool isEqualTo(const KvRxObject* other) const;
    virtual KvRx::Ordering comparedTo(const KvRxObject* other) const;

protected:
    virtual KvRxObject* subQueryX(const KvRxClass* protocolClass) const;

public:
    bool isKindOf(const KvRxClass* aClass) const;
    // The extension of the object's class for `protocolClass` (KvRxClass::queryX);
    // null for an object without a class. x() is the same through getX.
    KvRxObject* queryX(const KvRxClass* protocolClass) const;
    KvRxObject* x(const KvRxClass* protocolClass) const;

    static KvRxClass* desc();
    static KvRxObject* cast(const KvRxObject* object) { return const_cast<KvRxObject*>(object); }
    // Registers the root class "OvRxObject"; a second call is fatal, in any run.
    static void rxInit();
    static KvRxClass* gpDesc;

    KvRxObject(const KvRxObject&) {}
    KvRxObject& operator=(const KvRxObject&) { return *this; }

protected:
    KvRxObject() = default;
};

// ---------------------------------------------------------------------------
// Class boilerplate. In the class body:
//     KVRX_DECLARE_MEMBERS(KvRxThing);
// In one source file:
//     KVRX_DEFINE_MEMBERS(KvRxThing, u"OvRxThing", u"OvRxObject");
// ---------------------------------------------------------------------------

// How desc() finds a class by its registered name. Both store a found class in
// `gpDesc` and leave it null otherwise, so that the next call looks again.
// The direct form asks "ClassDictionary" of the system registry; the short form asks
// kvrxFindKvRxClass. Either gives null while the runtime isn't running.
KvRxClass* kvrxDescDirect(KvRxClass*& gpDesc, const char16_t* registeredName);
KvRxClass* kvrxDescShort(KvRxClass*& gpDesc, const char16_t* registeredName);
// `object` if its class derives from `aClass`, else null (null for null).
KvRxObject* kvrxCastTo(const KvRxObject* object, const KvRxClass* aClass);
// rxInit of a class: registers it unless `gpDesc` is already the registered class.
// A `gpDesc` that differs from the registered class is reported by kvrx_abort with
// `mismatchText`, and the class is registered anew if that returns.
void kvrxInitClass(KvRxClass*& gpDesc, const char16_t* registeredName,
                   const char16_t* parentName, const char16_t* mismatchText);

#define KVRX_DECLARE_MEMBERS(CLASS)                    \
public:                                                \
    static KvRxClass* gpDesc;                          \
    static KvRxClass* desc();                          \
    static CLASS* cast(const KvRxObject* object);      \
    static void rxInit();                              \
    KvRxClass* isA() const override

#define KVRX_DEFINE_MEMBERS_WITH(CLASS, NAME, PARENT, DESCFORM, MISMATCH)                     \
    KvRxClass* CLASS::gpDesc = nullptr;                                                       \
    KvRxClass* CLASS::desc() { return gpDesc ? gpDesc : DESCFORM(gpDesc, NAME); }             \
    KvRxClass* CLASS::isA() const { return CLASS::desc(); }                                   \
    CLASS* CLASS::cast(const KvRxObject* object) {                                            \
        return static_cast<CLASS*>(kvrxCastTo(object, CLASS::desc()));                       \
    }                                                                                         \
    void CLASS::rxInit() { kvrxInitClass(gpDesc, NAME, PARENT, MISMATCH); }

// The direct form of desc(), as most of the runtime's classes have it.
#define KVRX_DEFINE_MEMBERS(CLASS, NAME, PARENT) \
    KVRX_DEFINE_MEMBERS_WITH(CLASS, NAME, PARENT, kvrxDescDirect, u"")
