// Overrules: objects that extension code attaches to run-time classes, kept per class
// in twelve family lists, with one global switch and a set of exempt objects.
//
// The runtime only keeps the lists; the library of a family runs the chain. To run a
// chain for an object: test isOverruling() and existInDisable(object), take the
// object's class (isA), its implementation (KvRxImpClass::getImplRxClass) and that
// one's head for the family index, and follow `next` from the head.
//
// Every class holds its own flattened lists: addOverrule puts the overrule into every
// class registered below the target at that moment, and a class linked later takes
// the first overrule of each of its parent's lists. Whoever adds an overrule owns it
// and takes it off every target before destroying it; nothing else does.
#pragma once

#include "kvrxobject.h"

// Family indices are shared with the libraries that register the family classes,
// directly below "OvRxOverrule": 0 "OvGiDrawableOverrule", 1 "OvDbObjectOverrule",
// 2 "OvDbPropertiesOverrule", 3 "OvDbGeometryOverrule", 4 "OvDbHighlightOverrule",
// 5 "OvDbHighlightStateOverrule", 6 "OvDbSubentityOverrule", 7 "OvDbGripOverrule",
// 8 "OvDbTransformOverrule", 9 "OvDbOsnapOverrule", 10 "OvDbDimensionStyleOverrule",
// 11 "OvDbVisibilityOverrule". kOverruleFamilyCount stands for no family.
const int kOverruleFamilyCount = 12;

class KvRxOverrule;

// One node of a class's list of a family; owned by the class whose head reaches it.
struct KvRxOverruleNode {
    KvRxOverrule* overrule;  // not owned
    KvRxOverruleNode* next;  // null at the end
};

// The base of overrules in code; it has no run-time class of its own.
class KvRxOverruleBase : public KvRxObject {
protected:
    KvRxOverruleBase() = default;
};

class KvRxOverrule : public KvRxOverruleBase {
    KVRX_DECLARE_MEMBERS(KvRxOverrule);

public:
    // Whether the overrule takes part for `subject`. The family libraries ask it; the
    // runtime never does.
    virtual bool isApplicable(const KvRxObject* subject) const = 0;

    // Puts `overrule` into the list of its family of `target` and of every class
    // registered below it: at the head, or behind the last node with `addAtEnd`.
    // 0 on success, also for a family not in the table, where nothing is stored;
    // eInvalidInput for a null argument or an overrule whose class isn't registered
    // below "OvRxOverrule".
    static Kvore::ErrorStatus addOverrule(KvRxClass* target, KvRxOverrule* overrule,
                                          bool addAtEnd);
    // Takes the first node of `overrule` out of the family list of `target` and of
    // every class below it. 0 if a node went, eKeyNotFound if none did or the
    // overrule has no family, eInvalidInput for a null argument.
    static Kvore::ErrorStatus removeOverrule(KvRxClass* target, KvRxOverrule* overrule);
    static void setIsOverruling(bool overruling);
    // The global switch, on at start; it changes no list.
    static bool isOverruling();
    // True if the subject's own class has a non-empty list in the family of
    // `overruleClass` (a family class or a class below one), whatever the switch and
    // the disabled set say.
    static bool hasOverrule(const KvRxObject* subject, KvRxClass* overruleClass);

protected:
    KvRxOverrule() = default;

private:
    void* m_data = nullptr;  // carried across copies; read by nothing here
};

// An overrule of protocol queries. Registered as "OvRxGenHand" below the root, a name
// that the module proxy class takes at start-up, so it is no overrule by the run-time
// tree and addOverrule refuses it. Nothing in the runtime calls queryX.
class KvRxQueryXOverrule : public KvRxOverrule {
    KVRX_DECLARE_MEMBERS(KvRxQueryXOverrule);

public:
    // Null by default.
    virtual KvRxObject* queryX(const KvRxObject* subject, const KvRxClass* protocolClass) const;

protected:
    KvRxQueryXOverrule() = default;
};

// The set of objects exempt from overruling, compared by address and not owned. It
// lives from library load to unload, independent of the runtime's start-up; an object
// stays in it until removed, whatever becomes of it. Guarded by one mutex held only
// for the one set operation; a failure of that mutex is thrown as std::system_error.
class KvRxOverruleInternals {
public:
    KvRxOverruleInternals() = delete;

    static bool existInDisable(const KvRxObject* object);
    // Null does nothing; a second insert of one object changes nothing.
    static void addObjectToDisable(const KvRxObject* object);
    static void removeObjectFromDisable(const KvRxObject* object);
};
