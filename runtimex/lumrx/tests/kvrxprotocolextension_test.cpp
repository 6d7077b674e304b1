// Protocol extensions: attaching, the copy-down with its shielding rule, inheritance at
// linking, and the removal of a destroyed protocol class from every map.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxmap.h"

#include <initializer_list>
#include <memory>

namespace {

// An extension object that says which one it is.
class Extension : public KvRxObject {
public:
    explicit Extension(char tag) : tag(tag) {}
    char tag;
};

char tagOf(KvRxObject* value) { return value ? static_cast<Extension*>(value)->tag : '-'; }

// An object of whatever class a test gives it.
class Instance : public KvRxObject {
public:
    explicit Instance(KvRxClass* cls) : cls(cls) {}
    KvRxClass* isA() const override { return cls; }
    KvRxClass* cls;
};

class ProtocolExtension : public lumtest::RuntimeTest {
protected:
    static KvRxClass* make(const char16_t* name, const char16_t* parent, bool link = true) {
        KvRxClass* c = newKvRxClass(name, parent);
        if (link) kvrxBuildClassHierarchy();
        return c;
    }
    static KvRxPEClassMap* mapOf(KvRxClass* c) {
        return KvRxImpClass::getImplRxClass(c)->protocolMap();
    }
    // The tags that the classes give for `protocol`, in the order given.
    static std::string tags(KvRxClass* protocol, std::initializer_list<KvRxClass*> classes) {
        std::string s;
        for (KvRxClass* c : classes) s += tagOf(c->queryX(protocol));
        return s;
    }
    static void doom(std::initializer_list<KvRxClass*> classes) {
        for (KvRxClass* c : classes) deleteKvRxClass(c);
    }
    void TearDown() override { KvRxImpClass::destroyDoomedRxClasses(true); }

    Extension x{'X'}, y{'Y'}, z{'Z'}, w{'W'};
};

TEST_F(ProtocolExtension, AttachOverrideAndDetachAlongTwoClasses) {
    KvRxClass* p = make(u"TestPeProtoFour", u"OvRxObject");
    KvRxClass* a = make(u"TestPeA", u"OvRxObject");
    KvRxClass* b = make(u"TestPeB", u"TestPeA");

    EXPECT_EQ(a->addX(p, &x), nullptr);
    EXPECT_EQ(tags(p, {a, b}), "XX");
    EXPECT_EQ(tagOf(b->addX(p, &y)), 'X') << "B held the copy of X";
    EXPECT_EQ(tags(p, {a, b}), "XY");
    EXPECT_EQ(tagOf(a->addX(p, &z)), 'X');
    EXPECT_EQ(tags(p, {a, b}), "ZY") << "B's own extension shields it";
    EXPECT_EQ(tagOf(b->delX(p)), 'Y');
    EXPECT_EQ(tags(p, {a, b}), "ZZ") << "the inherited extension is back";

    // Objects ask their class; getX and x are queryX by another name.
    Instance ofB(b), stranger(nullptr);
    EXPECT_EQ(tagOf(ofB.queryX(p)), 'Z');
    EXPECT_EQ(tagOf(ofB.x(p)), 'Z');
    EXPECT_EQ(tagOf(b->getX(p)), 'Z');
    EXPECT_EQ(stranger.queryX(p), nullptr);
    EXPECT_EQ(stranger.x(p), nullptr);
    doom({b, a, p});
}

TEST_F(ProtocolExtension, ShieldedClassesDontStopTheWalk) {
    KvRxClass* p = make(u"TestPeProtoShield", u"OvRxObject");
    KvRxClass* a = make(u"TestPeShieldA", u"OvRxObject");
    KvRxClass* b = make(u"TestPeShieldB", u"TestPeShieldA");
    KvRxClass* c = make(u"TestPeShieldC", u"TestPeShieldB");
    KvRxClass* sibling = make(u"TestPeShieldSibling", u"TestPeShieldA");

    a->addX(p, &x);
    b->addX(p, &y);
    EXPECT_EQ(tags(p, {a, b, c, sibling}), "XYYX");
    // C attaches the very object its grandparent holds, below a shielded parent.
    EXPECT_EQ(tagOf(c->addX(p, &x)), 'Y');
    EXPECT_EQ(tagOf(a->addX(p, &z)), 'X');
    EXPECT_EQ(tags(p, {a, b, c, sibling}), "ZYZZ")
        << "C still held the old object, so the walk past shielded B updates it";

    // Attaching the object a class already holds changes nothing.
    EXPECT_EQ(tagOf(b->addX(p, &y)), 'Y');
    EXPECT_EQ(tags(p, {a, b, c, sibling}), "ZYZZ");
    doom({c, b, sibling, a, p});
}

TEST_F(ProtocolExtension, DetachingAtTheTopLeavesNullEntriesBelow) {
    KvRxClass* p = make(u"TestPeProtoTop", u"OvRxObject");
    KvRxClass* top = make(u"TestPeTop", u"OvRxObject");
    KvRxClass* mid = make(u"TestPeTopMid", u"TestPeTop");
    KvRxClass* leaf = make(u"TestPeTopLeaf", u"TestPeTopMid");
    KvRxClass* own = make(u"TestPeTopOwn", u"TestPeTop");

    top->addX(p, &x);
    own->addX(p, &w);
    EXPECT_EQ(tagOf(top->delX(p)), 'X');
    EXPECT_EQ(tags(p, {top, mid, leaf, own}), "---W");
    for (KvRxClass* c : {mid, leaf}) {
        EXPECT_FALSE(mapOf(c)->has(p));
        std::unique_ptr<KvRxGenericMapIterator> entry(mapOf(c)->find(p));
        EXPECT_NE(entry, nullptr) << "the entry stays, with a null value";
    }
    doom({leaf, mid, own, top, p});
}

TEST_F(ProtocolExtension, LinkingCopiesTheParentsExtensionsDown) {
    KvRxClass* p = make(u"TestPeProtoLink", u"OvRxObject");
    KvRxClass* q = make(u"TestPeProtoLinkQ", u"OvRxObject");
    KvRxClass* parent = make(u"TestPeLinkParent", u"OvRxObject");
    parent->addX(p, &x);
    parent->addX(q, &y);

    // A child that attached its own object before linking keeps it; its own child,
    // registered under it in the same batch, gets the copies too.
    KvRxClass* late = make(u"TestPeLinkLate", u"TestPeLinkParent", false);
    KvRxClass* grandchild = make(u"TestPeLinkLateChild", u"TestPeLinkLate", false);
    EXPECT_EQ(late->addX(q, &w), nullptr);
    EXPECT_EQ(late->queryX(p), nullptr) << "not linked yet";
    kvrxBuildClassHierarchy();
    EXPECT_EQ(tags(p, {late, grandchild}), "XX");
    EXPECT_EQ(tags(q, {late, grandchild}), "WW");

    // The copies are ordinary inherited entries: the parent's next addX reaches them.
    parent->addX(p, &z);
    EXPECT_EQ(tags(p, {late, grandchild}), "ZZ");
    doom({grandchild, late, parent, q, p});
}

TEST_F(ProtocolExtension, NullProtocolClassesChangeNothing) {
    KvRxClass* c = make(u"TestPeNull", u"OvRxObject");
    EXPECT_EQ(c->queryX(nullptr), nullptr);
    EXPECT_EQ(c->getX(nullptr), nullptr);
    EXPECT_EQ(c->addX(nullptr, &x), nullptr);
    EXPECT_EQ(c->delX(nullptr), nullptr);
    EXPECT_EQ(mapOf(c), nullptr) << "no map is made";
    EXPECT_EQ(c->queryX(c), nullptr);
    ASSERT_NE(mapOf(c), nullptr) << "a real protocol class makes the map";
    EXPECT_EQ(mapOf(c)->size(), 0u);
    doom({c});
}

TEST_F(ProtocolExtension, ADestroyedProtocolClassLeavesEveryMap) {
    KvRxClass* p = make(u"TestPeProtoGone", u"OvRxObject");
    KvRxClass* kept = make(u"TestPeProtoKept", u"OvRxObject");
    KvRxClass* a = make(u"TestPeGoneA", u"OvRxObject");
    KvRxClass* b = make(u"TestPeGoneB", u"TestPeGoneA");
    a->addX(p, &x);
    a->addX(kept, &y);
    b->addX(p, &z);

    deleteKvRxClass(p);
    KvRxImpClass::destroyDoomedRxClasses(true);
    for (KvRxClass* c : {a, b}) {
        ASSERT_EQ(mapOf(c)->size(), 1u);
        std::unique_ptr<KvRxGenericMapIterator> it(mapOf(c)->newMapIterator());
        EXPECT_EQ(it->key(), kept);
    }
    EXPECT_EQ(tags(kept, {a, b}), "YY");
    doom({b, a, kept});
}

}  // namespace
