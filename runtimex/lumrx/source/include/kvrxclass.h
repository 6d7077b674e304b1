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
class KvRxSet;

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

// Dooms a class (null does nothing); it stays registered until the next walk.
void deleteKvRxClass(KvRxClass* aClass);
// Links every class that is still waiting for its parent.
void kvrxBuildClassHierarchy();
// Always 0; classes initialise when they register.
int kvrxQueueClassForInitialization(KvRxClass* aClass);
