// The state behind a KvRxClass.
//
// Owned by its KvRxClass. Owns: its copies of the four names (_lumStrdup), its
// `children` list (not the child classes) and its context-menu array (not the objects
// or menus in it). `parent` and `module` aren't owned.
//
// Invariants: `parentName` is non-null exactly while the class waits to be linked
// (never for the root); a linked class other than the root has a non-null `parent`
// and stands in the parent's `children`.
#pragma once

#include "kvrxclass.h"
#include "kvrxcollection.h"
#include "lumosbase.h"

class KvRxDynLoadModuleProxy;

class KvRxImpClass : public KvBaseClassWithNew {
public:
    // What a registration hands over; texts are copied.
    struct Registration {
        const char16_t* name = nullptr;
        const char16_t* parentName = nullptr;
        int version = 0;
        int maintenanceVersion = 0;
        int proxyFlags = 0;
        unsigned int feature = 0;
        KvRxPseudoConstructor pseudoConstructor = nullptr;
        const char16_t* dxfName = nullptr;
        const char16_t* appName = nullptr;
        KvRxAppNameCallback appNameCallback = nullptr;
        KvRxMemberBuilder memberBuilder = nullptr;
        void* memberBuilderData = nullptr;
    };

    // Registers a class under `r.name`: into `rxClass` if given (a KvRxClass under
    // construction), else into a new KvRxClass. Null for a null or empty name or when
    // no memory is left; a name that is taken is fatal.
    static KvRxClass* registerClass(const Registration& r, KvRxClass* rxClass);

    virtual ~KvRxImpClass();
    virtual KvRxObject* create();
    virtual const char16_t* appName() const { return m_appName; }
    virtual const char16_t* dxfName() const { return m_dxfName; }
    virtual const char16_t* name() const { return m_className; }
    virtual void getClassVersion(int& version, int& maintenanceVersion) const;
    virtual int proxyFlags() const { return m_proxyFlags; }
    virtual bool isDerivedFrom(const KvRxClass* other) const;
    virtual KvRxClass* myParent() const { return m_parent; }
    virtual KvRx::Ordering comparedTo(const KvRxObject* other) const;
    virtual KvRxAppNameCallback appNameCallbackPtr() const { return m_appNameCallback; }

    // Links the class to its parent by name; nothing to do once linked. A parent that
    // isn't registered is recorded and fatal.
    void link();

    static KvRxImpClass* getImplRxClass(KvRxClass* aClass);
    static int getDoomedRxClassCount();
    static const KvRxClass* getDoomedRxClass(int index);
    // Queues a class for destruction at the next walk, at the end of the list.
    static void doom(KvRxClass* aClass);
    // Destroys the doomed classes in the order they arrived. With `checkOrder`, a class
    // that still has children is recorded and stays out of the dictionary, undestroyed,
    // until shut-down; the walk goes on with the next class.
    static void destroyDoomedRxClasses(bool checkOrder);
    // Queues the abandoned classes again, for the final walk of shut-down.
    static void doomAbandonedClasses();

    bool addObjectContextMenu(const KvRxObject* object, const void* menu);
    bool removeObjectContextMenu(const KvRxObject* object);
    int numOfObjectContextMenu() const;
    void getObjectContextMenuAt(int index, KvRxObject*& object, void** menu) const;

    KvRxDynLoadModuleProxy* module() const { return m_module; }
    void setModule(KvRxDynLoadModuleProxy* module) { m_module = module; }
    bool isPending() const { return m_parentName != nullptr; }

private:
    struct ContextMenu {
        const KvRxObject* object;
        const void* menu;
    };

    KvRxImpClass(KvRxClass* rxClass, KvRxPseudoConstructor pseudoConstructor);
    bool copyNames(const Registration& r);
    // Steps of destruction that may fail: the order check and leaving the parent.
    void checkedDetach();
    void recordChildrenLine() const;
    static void destroyGuarded(KvRxClass* aClass);
    static void recordFault(unsigned code, const void* data, const char16_t* text, int line);
    const char16_t* moduleNameForRecord() const;
    int findContextMenu(const KvRxObject* object) const;

    KvRxClass* m_parent = nullptr;
    KvRxLinkedList* m_children = nullptr;
    KvRxDynLoadModuleProxy* m_module = nullptr;
    KvRxPseudoConstructor m_pseudoConstructor;
    KvRxAppNameCallback m_appNameCallback = nullptr;
    KvRxMemberBuilder m_memberBuilder = nullptr;
    char16_t* m_parentName = nullptr;
    char16_t* m_className = nullptr;
    char16_t* m_dxfName = nullptr;
    char16_t* m_appName = nullptr;
    void* m_memberBuilderData = nullptr;
    KvRxClass* m_rxClass;
    int m_version = 0;
    int m_maintenanceVersion = 0;
    bool m_usedAsProtocol = false;
    int m_proxyFlags = 0;
    unsigned int m_feature = 0;
    LumVector<ContextMenu>* m_contextMenus = nullptr;
};
