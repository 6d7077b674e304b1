// The state behind a KvRxClass: the one implementation of KvRxImpClass.
//
// Owned by its KvRxClass; made in one block from _lumMalloc whose tail holds the values
// a class rarely sets (only when it sets one) and the copies of the four names, freed
// with the state. A class that registration makes itself (not one derived from
// KvRxClass) heads the same block: the class, its state and the names are one
// allocation, freed when the class is deleted (deleteClass). Owns: its context-menu
// array (not the objects or menus in it), its protocol-extension map (not the protocol
// classes or the extension objects), the array of the heads of its twelve overrule
// lists (made with its first node; most classes never hold one) and their nodes (not
// the overrules).
// `parent`, `module` and the classes of the children list aren't owned.
//
// Invariants: the parent name is set exactly while the class waits to be linked
// (never for the root); a linked class other than the root has a non-null `parent`
// and stands in the parent's children list. That list runs through the children's own
// states, from the parent's `firstChild` along `nextSibling` to its `lastChild`, in
// the order they linked; `previousSibling` runs back. A class stands in its parent's
// list from its linking until it leaves the parent on a checked destruction. The
// protocol map holds the class's own extensions and those copied down from its
// ancestors, so a query never climbs.
#pragma once

#include "kernel/kvrxclassancestry.h"
#include "kernel/kvrxpeclassmap.h"
#include "kvrxclass.h"
#include "kvrxcollection.h"
#include "kvrxoverrule.h"
#include "lumosbase.h"

class KvRxDynLoadModuleProxy;
class KvRxPEClassMap;
class KvRxPEClassMapImp;

// A value of the class dictionary or of a class's children. Every such value is a
// class, whatever its own isA() gives: a class derived from KvRxClass, such as a
// module's value type, may have no run-time class of its own, so KvRxClass::cast
// would take it for none.
inline KvRxClass* kvrxClassValue(KvRxObject* value) { return static_cast<KvRxClass*>(value); }

class KvRxClassState final : public KvRxImpClass {
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

    // The state of `aClass`; null for null.
    static KvRxClassState* of(const KvRxClass* aClass) {
        return aClass ? static_cast<KvRxClassState*>(aClass->m_impl) : nullptr;
    }

    ~KvRxClassState() override;
    // What KvRxClass's destructor does with its state: destroys it, and frees its block
    // unless the class heads the block. Null does nothing.
    static void destroy(KvRxImpClass* impl);
    // Deletes a registered class: frees the block it shares with its state, or deletes
    // a class made by its module as its own type.
    static void deleteClass(KvRxClass* aClass);
    // Attaches `object` for `protocolClass` here and copies it down to every class
    // below that still holds what this class held; gives what this class held. A null
    // `object` brings back the parent's extension. Null for a null protocol class.
    KvRxObject* addX(KvRxClass* protocolClass, KvRxObject* object) override;
    KvRxObject* getX(const KvRxClass* protocolClass) override;
    KvRxObject* delX(KvRxClass* protocolClass) override;
    // The extension of this class, own or inherited; null for a null protocol class. A
    // class without a map has never held an extension, its own or copied down.
    KvRxObject* queryX(const KvRxClass* protocolClass) override {
        // A repeated query, and a query of null, is answered by the last answer alone.
        if (__builtin_expect(m_lastQuery.holds(protocolClass), 1)) return m_lastQuery.value;
        return m_peMap ? m_peMap->lookUp(protocolClass) : nullptr;
    }
    KvRxObject* create() override;
    const char16_t* appName() const override { return nameAt(m_appAt); }
    const char16_t* dxfName() const override { return nameAt(m_dxfAt); }
    const char16_t* name() const override { return m_className; }
    void getClassVersion(int& version, int& maintenanceVersion) const override;
    int proxyFlags() const override { return m_rare ? m_rare->proxyFlags : 0; }
    // One look at this class's line, at any depth.
    bool isDerivedFrom(const KvRxClass* other) const override {
        const KvRxClassState* others = of(other);
        return others && m_ancestry.holds(other, others->m_ancestry);
    }
    KvRxClass* myParent() const override { return m_parent; }
    KvRx::Ordering comparedTo(const KvRxObject* other) const override;
    KvRxAppNameCallback appNameCallbackPtr() const override {
        return m_rare ? m_rare->appNameCallback : nullptr;
    }

    // Links the class to its parent by name, and takes over the parent's extensions
    // and the first overrule of each of its lists; nothing to do once linked. A parent
    // that isn't registered is recorded and fatal. The lines below the class are made
    // by settleLines(), which the linking pass calls when it ends, however it ends.
    void link();
    // Makes the line of every class below a class linked since the last call anew,
    // each once.
    static void settleLines();

    // A new node for `overrule`: at the head, or behind the last node with `atEnd`.
    void addOverruleNode(int family, KvRxOverrule* overrule, bool atEnd);
    // Frees the first node that holds `overrule`; false if there is none.
    bool removeOverruleNode(int family, KvRxOverrule* overrule);

    // Queues a class for destruction at the next walk, at the end of the list; a class
    // already queued keeps its place.
    static void doom(KvRxClass* aClass);
    // Destroys the doomed classes in the order they arrived. With `checkOrder`, a class
    // that still has children is recorded and stays out of the dictionary, undestroyed,
    // until shut-down; the walk goes on with the next class.
    static void destroyDoomedRxClasses(bool checkOrder);
    // Queues the abandoned classes again, for the final walk of shut-down.
    static void doomAbandonedClasses();
    // Every registered class that names `module` as its owner loses it.
    static void disownClassesOf(const KvRxDynLoadModuleProxy* module);

    KvRxDynLoadModuleProxy* module() const { return m_module; }
    void setModule(KvRxDynLoadModuleProxy* module);
    bool isPending() const { return m_parentAt != 0; }
    const KvRxClassAncestry& ancestry() const { return m_ancestry; }
    // The overrule family that the class's own name stands for (0 to 11), or
    // kOverruleFamilyCount; `familyOfName` finds it at the first call.
    int nameFamily(int (*familyOfName)(const char16_t*)) const {
        if (m_nameFamily < 0) m_nameFamily = static_cast<signed char>(familyOfName(m_className));
        return m_nameFamily;
    }
    // The overrule family whose family class the class's line passes through (0 to 11),
    // or kOverruleFamilyCount; `familyOfLine` finds it at the first call since the line
    // was last made.
    int lineFamily(int (*familyOfLine)(KvRxClass*)) const {
        if (__builtin_expect(m_lineFamily < 0, 0))
            m_lineFamily = static_cast<signed char>(familyOfLine(m_rxClass));
        return m_lineFamily;
    }
    // The first node of the class's list of `family`; null if the list is empty.
    KvRxOverruleNode* overruleList(int family) const {
        return m_overruleHeads ? m_overruleHeads[family] : nullptr;
    }
    // Bytes the class takes, its rare values, name texts, ancestry and overrule heads
    // included.
    unsigned long footprint() const;

private:
    friend class KvRxImpClass;
    struct ContextMenu {
        const KvRxObject* object;
        const void* menu;
    };
    // What registration hands over and most classes leave 0 or null; memberBuilder,
    // its data and feature are kept for their users, not read here.
    struct Rare {
        KvRxAppNameCallback appNameCallback;
        KvRxMemberBuilder memberBuilder;
        void* memberBuilderData;
        int version;
        int maintenanceVersion;
        int proxyFlags;
        unsigned int feature;
    };

    KvRxClassState(KvRxClass* rxClass, KvRxPseudoConstructor pseudoConstructor, bool inClassBlock);
    // Drops a class whose registration failed before it was entered: the new state, and
    // the class too if `made`.
    static void dropNew(KvRxClass* rxClass, bool made);
    // Units of each of the four names, its closing zero counted; 0 for a missing one.
    using NameUnits = size_t[4];
    // The bytes of the names that follow the state in its block; counts `units`.
    static size_t namesBytes(const Registration& r, NameUnits& units);
    // True if the registration sets any of the rare values.
    static bool setsRare(const Registration& r);
    // Fills the block behind the state: the rare values if set, then the names.
    void placeTail(const Registration& r, const NameUnits& units, bool rare);
    // The name `at` units behind the class name; null for 0.
    const char16_t* nameAt(unsigned at) const { return at ? m_className + at : nullptr; }
    KvRxPEClassMapImp* peMap();
    // Stores `newValue` under `protocolClass` here unless this class holds a value of
    // its own (neither null nor `oldValue`), then does the same below.
    void copyDown(const KvRxClass* protocolClass, KvRxObject* newValue, KvRxObject* oldValue);
    void inheritFrom(const KvRxClassState* parent);
    // The topmost class above this one along the parent links, found across the tops
    // of lines not yet settled; this class if it has no parent.
    const KvRxClass* topmost() const;
    // True if the line of this class starts at a class that has a parent since.
    bool lineUnsettled() const;
    // Makes the lines of this class's children anew where they are unsettled, and so on
    // down; this class's own line is settled.
    void settleChildLines();
    // Makes the line anew below `above`; false when no memory is left.
    bool makeLineBelow(const KvRxClassAncestry& above) {
        m_lineFamily = -1;
        return m_ancestry.makeBelow(above, m_rxClass);
    }
    // Steps of destruction that may fail: the order check and leaving the parent.
    void checkedDetach();
    // Takes this class out of the protocol maps of all registered classes.
    void leaveProtocolMaps();
    void freeOverruleNodes();
    void recordChildrenLine() const;
    void appendChild(KvRxClassState* child);
    void removeChild(KvRxClassState* child);
    static void destroyGuarded(KvRxClass* aClass);
    // The classes whose entries wait to leave the class dictionary leave it.
    static void takeOutLeaving();
    static void recordFault(unsigned code, const void* data, const char16_t* text, int line);
    const char16_t* moduleNameForRecord() const;
    int findContextMenu(const KvRxObject* object) const;

    // Read by the destruction walk, together at the front of the block.
    KvRxClass* m_rxClass;
    // In the state's own block, followed by the other names.
    const char16_t* m_className = nullptr;
    KvRxPEClassMapImp* m_peMap = nullptr;  // made at the first use
    // The map's last answer, kept here so that a query skips the map; empty while
    // there is no map.
    KvRxPEQueryCache m_lastQuery;
    LumVector<ContextMenu>* m_contextMenus = nullptr;
    // The id the class dictionary gave the class's entry at registration.
    unsigned m_id = 0;
    // Set when the class joins the doomed list; it stays set until the class goes,
    // since a class that a walk couldn't destroy is queued again without doom().
    bool m_doomed = false;
    // The class heads the state's block.
    bool m_inClassBlock;
    bool m_usedAsProtocol = false;
    // -1 until nameFamily is first asked; the name never changes.
    mutable signed char m_nameFamily = -1;
    // -1 until lineFamily is asked. The answer depends on the line alone, so every
    // remaking of the line (makeLineBelow) sets it back to -1.
    mutable signed char m_lineFamily = -1;
    // The other names, by their place behind the class name in units; 0 for none. The
    // parent name is dropped once linked.
    unsigned m_parentAt = 0;
    unsigned m_dxfAt = 0;
    unsigned m_appAt = 0;
    unsigned m_namesBytes = 0;
    KvRxClassAncestry m_ancestry;
    KvRxOverruleNode** m_overruleHeads = nullptr;  // kOverruleFamilyCount of them, or null

    KvRxClass* m_parent = nullptr;
    KvRxClassState* m_firstChild = nullptr;
    KvRxClassState* m_lastChild = nullptr;
    KvRxClassState* m_previousSibling = nullptr;
    KvRxClassState* m_nextSibling = nullptr;
    KvRxDynLoadModuleProxy* m_module = nullptr;
    KvRxPseudoConstructor m_pseudoConstructor;
    const Rare* m_rare = nullptr;  // in the block, or null when all are 0 or null
};
