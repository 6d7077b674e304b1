// Run-time class descriptors: registration by name, linking to parents in a batch,
// and destruction in a checked order.
//
// A KvRxClass is a thin public object that owns its KvRxImpClass and forwards to it.
// Classes are owned by the runtime: deleteKvRxClass only dooms a class, and the doomed
// classes are destroyed together at the end of an unload or at shut-down.
#pragma once

#include "kvrxobject.h"

class KvRxImpClass;
class KvRxMemberCollection;
class KvRxMemberCollectionBuilder;
class KvRxPEClassMap;
class KvRxSet;
struct KvRxOverruleNode;

typedef KvRxObject* (*KvRxPseudoConstructor)();
typedef void (*KvRxAppNameCallback)(const KvRxClass*, char16_t*&, int);
typedef void (*KvRxMemberBuilder)(KvRxMemberCollectionBuilder&, void*);

class KvRxClass : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxClass);

public:
    ~KvRxClass() override;

    // A new object made by the class's factory; null for a class without one.
    KvRxObject* create();
    const char16_t* appName() const;
    const char16_t* dxfName() const;
    // The registered name; never null.
    const char16_t* name() const;
    void getClassVersion(int& version, int& maintenanceVersion) const;
    int proxyFlags() const;
    // True if `other` is this class or one of its ancestors; false for null.
    bool isDerivedFrom(const KvRxClass* other) const;
    static bool isDerivedFrom(const KvRxClass* derived, const KvRxClass* base);
    // Null until the class is linked; always null for the root.
    KvRxClass* myParent() const;
    // 0 for this class itself, 2 for null or an object that isn't a class, else the
    // case-sensitive order of the two registered names.
    KvRx::Ordering comparedTo(const KvRxObject* other) const override;
    KvRxAppNameCallback appNameCallbackPtr() const;

    // Protocol extensions: objects attached to a class under a protocol class. Each
    // class holds its own and its ancestors' extensions, copied down when attached, so
    // a query never climbs the tree. Neither the protocol classes nor the objects are
    // owned here: whoever attaches an object takes it off and deletes it.
    //
    // Attaches `object` here and in every class below that still held this class's
    // previous extension; a class below with an extension of its own keeps it. Gives
    // the previous extension of this class. A null `object` brings back the parent's.
    KvRxObject* addX(KvRxClass* protocolClass, KvRxObject* object);
    // The same as queryX.
    KvRxObject* getX(const KvRxClass* protocolClass);
    // addX(protocolClass, nullptr).
    KvRxObject* delX(KvRxClass* protocolClass);
    // The extension of this class, own or inherited; null if none or for a null
    // protocol class.
    KvRxObject* queryX(const KvRxClass* protocolClass);

    // Reflection of members isn't kept on classes: both are always null.
    KvRxMemberCollection* members() const;
    const KvRxSet* descendants() const;

protected:
    // Registers the object under construction, for classes derived from KvRxClass.
    KvRxClass(const char16_t* name, const char16_t* parentName, KvRxMemberBuilder memberBuilder,
              void* memberBuilderData);

private:
    friend class KvRxImpClass;
    friend class KvRxClassState;
    KvRxClass();
    KvRxImpClass* m_impl;  // owned
};

// Registration. Null for a null or empty name; a name that is taken is fatal. The
// parent is found by name when kvrxBuildClassHierarchy next runs.
KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int proxyFlags = 0,
                        KvRxPseudoConstructor pseudoConstructor = nullptr,
                        const char16_t* dxfName = nullptr, const char16_t* appName = nullptr);
KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int version,
                        int maintenanceVersion, int proxyFlags,
                        KvRxPseudoConstructor pseudoConstructor, const char16_t* dxfName = nullptr,
                        const char16_t* appName = nullptr,
                        KvRxAppNameCallback appNameCallback = nullptr);
KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int version,
                        int maintenanceVersion, int proxyFlags,
                        KvRxPseudoConstructor pseudoConstructor, const char16_t* dxfName,
                        const char16_t* appName, KvRxAppNameCallback appNameCallback,
                        KvRxMemberBuilder memberBuilder, void* memberBuilderData);
KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName,
                                   unsigned int feature, int proxyFlags = 0,
                                   KvRxPseudoConstructor pseudoConstructor = nullptr,
                                   const char16_t* dxfName = nullptr,
                                   const char16_t* appName = nullptr);
KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName, int version,
                                   int maintenanceVersion, unsigned int feature, int proxyFlags,
                                   KvRxPseudoConstructor pseudoConstructor,
                                   const char16_t* dxfName, const char16_t* appName,
                                   KvRxAppNameCallback appNameCallback);
KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName, int version,
                                   int maintenanceVersion, int proxyFlags,
                                   KvRxPseudoConstructor pseudoConstructor,
                                   const char16_t* dxfName, const char16_t* appName,
                                   KvRxAppNameCallback appNameCallback,
                                   KvRxMemberBuilder memberBuilder, void* memberBuilderData,
                                   unsigned int feature);

// The implementation object of a class: what KvRxClass forwards to, and the way to a
// class's overrule lists and protocol-extension map. Its state stays inside the
// runtime; only the runtime makes one, when a class registers, and the class owns it.
class KvRxImpClass : public KvBaseClassWithNew {
public:
    // The implementation of `aClass`; null for null.
    static KvRxImpClass* getImplRxClass(KvRxClass* aClass);
    // The classes doomed since the last walk, in the order they were doomed; null for
    // an index out of range.
    static int getDoomedRxClassCount();
    static const KvRxClass* getDoomedRxClass(int index);

    virtual ~KvRxImpClass();
    // The operations of KvRxClass of the same names.
    virtual KvRxObject* addX(KvRxClass* protocolClass, KvRxObject* object) = 0;
    virtual KvRxObject* getX(const KvRxClass* protocolClass) = 0;
    virtual KvRxObject* delX(KvRxClass* protocolClass) = 0;
    virtual KvRxObject* queryX(const KvRxClass* protocolClass) = 0;
    virtual KvRxObject* create() = 0;
    virtual const char16_t* appName() const = 0;
    virtual const char16_t* dxfName() const = 0;
    virtual const char16_t* name() const = 0;
    virtual void getClassVersion(int& version, int& maintenanceVersion) const = 0;
    virtual int proxyFlags() const = 0;
    virtual bool isDerivedFrom(const KvRxClass* other) const = 0;
    virtual KvRxClass* myParent() const = 0;
    virtual KvRx::Ordering comparedTo(const KvRxObject* other) const = 0;
    virtual KvRxAppNameCallback appNameCallbackPtr() const = 0;

    // Context menus of objects of the class: pairs of object and menu, in order of
    // addition, one per object; neither is owned. Adding a null or present object and
    // removing an absent one give false. An index out of range gives null object and
    // menu.
    bool addObjectContextMenu(const KvRxObject* object, const void* menu);
    bool removeObjectContextMenu(const KvRxObject* object);
    int numOfObjectContextMenu() const;
    void getObjectContextMenuAt(int index, KvRxObject*& object, void** menu) const;

    // The first node of the class's list of overrule family `family` (0 to 11, see
    // kvrxoverrule.h), or null; follow `next` for the rest. The nodes stay the class's.
    KvRxOverruleNode* overruleHead(int family) const;
    // The class's protocol extensions, own and inherited, by protocol class; null until
    // the class first used one. The map stays the class's.
    KvRxPEClassMap* protocolMap() const;

    KvRxImpClass(const KvRxImpClass&) = delete;
    KvRxImpClass& operator=(const KvRxImpClass&) = delete;

private:
    friend class KvRxClassState;
    KvRxImpClass() = default;
};

// Dooms a class (null does nothing); it stays registered until the next walk.
void deleteKvRxClass(KvRxClass* aClass);
// Links every class that is still waiting for its parent.
void kvrxBuildClassHierarchy();
// Always 0; classes initialise when they register.
int kvrxQueueClassForInitialization(KvRxClass* aClass);
