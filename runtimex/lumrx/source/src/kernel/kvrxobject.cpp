#include "kvrxobject.h"

#include "kernel/kvrximpclass.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvrxclass.h"
#include "kvrxdictionary.h"

// The root's descriptor. No code resets it, not even shut-down, so that a second run
// in one process stops at the root's rxInit.
KvRxClass* KvRxObject::gpDesc = nullptr;

KvRxObject::~KvRxObject() = default;

KvRxClass* KvRxObject::desc() { return gpDesc; }

KvRxClass* KvRxObject::isA() const { return KvRxObject::desc(); }

KvRxObject* KvRxObject::clone() const {
    KvRxClass* cls = isA();
    if (!cls || cls == KvRxObject::desc()) return nullptr;
    KvRxObject* copy = cls->create();
    if (!copy) return nullptr;
    if (copy->copyFrom(this) == Kvore::eOk) return copy;
    delete copy;
    return nullptr;
}

Kvore::ErrorStatus KvRxObject::copyFrom(const KvRxObject*) { return Kvore::eNotImplemented; }

bool KvRxObject::isEqualTo(const KvRxObject* other) const { return other == this; }

KvRx::Ordering KvRxObject::comparedTo(const KvRxObject*) const { return KvRx::kNotOrderable; }

KvRxObject* KvRxObject::subQueryX(const KvRxClass*) const { return nullptr; }

bool KvRxObject::isKindOf(const KvRxClass* aClass) const {
    const KvRxClassState* state = KvRxClassState::of(isA());
    return state && state->isDerivedFrom(aClass);
}

KvRxObject* KvRxObject::queryX(const KvRxClass* protocolClass) const {
    KvRxClass* cls = isA();
    // The state answers at once: a query of an object costs its isA() and one compare.
    return cls ? KvRxClassState::of(cls)->queryX(protocolClass) : nullptr;
}

KvRxObject* KvRxObject::x(const KvRxClass* protocolClass) const {
    KvRxClass* cls = isA();
    return cls ? cls->getX(protocolClass) : nullptr;
}

void KvRxObject::rxInit() {
    if (gpDesc) KvRxModuleGlobal::fatalError(u"RX-Root class has already existed!!");
    gpDesc = newKvRxClass(u"OvRxObject", nullptr, 0, nullptr, nullptr, nullptr);
}

KvRxClass* kvrxDescDirect(KvRxClass*& gpDesc, const char16_t* registeredName) {
    // The class dictionary is the one the system registry holds as "ClassDictionary";
    // it is read from the instance, so this works before the tree is linked.
    KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
    gpDesc = g ? g->findClass(registeredName) : nullptr;
    return gpDesc;
}

KvRxClass* kvrxDescShort(KvRxClass*& gpDesc, const char16_t* registeredName) {
    gpDesc = kvrxFindKvRxClass(registeredName);
    return gpDesc;
}

KvRxObject* kvrxCastTo(const KvRxObject* object, const KvRxClass* aClass) {
    if (!object) return nullptr;
    const KvRxClassState* state = KvRxClassState::of(object->isA());
    return state && state->isDerivedFrom(aClass) ? const_cast<KvRxObject*>(object) : nullptr;
}

void kvrxInitClass(KvRxClass*& gpDesc, const char16_t* registeredName,
                   const char16_t* parentName, const char16_t* mismatchText) {
    if (gpDesc) {
        KvRxObject* registered = nullptr;
        if (KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance())
            registered = g->findClass(registeredName);
        if (registered == gpDesc) return;
        // A stale pointer from an earlier registration: report, then register anew.
        if (registered) kvrx_abort(mismatchText);
    }
    gpDesc = newKvRxClass(registeredName, parentName, 0, nullptr, nullptr, nullptr);
}
