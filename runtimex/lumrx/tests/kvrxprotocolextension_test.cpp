// Protocol extensions: the copy-down with its shielding rule, inheritance at linking,
// and the removal of a destroyed protocol class from every map.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxmap.h"

#include <initializer_list>
#include <memory>
#include <string>

namespace {

// An extension object, or an object of whatever class a test gives it.
class Thing : public KvRxObject {
public:
    explicit Thing(char tag, KvRxClass* cls = nullptr) : tag(tag), cls(cls) {}
    KvRxClass* isA() const override { return cls; }
    char tag;
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
    // The tags that the classes give for `protocol`, "-" for none.
    static std::string tags(KvRxClass* protocol, std::initializer_list<KvRxClass*> classes) {
        std::string s;
        for (KvRxClass* c : classes) {
            KvRxObject* found = c->queryX(protocol);
            s += found ? static_cast<Thing*>(found)->tag : '-';
        }
        return s;
    }
    // Children first: TearDown destroys them with the order checks on.
    static void doom(std::initializer_list<KvRxClass*> classes) {
        for (KvRxClass* c : classes) deleteKvRxClass(c);
    }
    void TearDown() override { KvRxClassState::destroyDoomedRxClasses(true); }

    Thing x{'X'}, y{'Y'}, z{'Z'}, w{'W'};
};

TEST_F(ProtocolExtension, AttachOverrideAndDetachAlongTwoClasses) {
    KvRxClass* p = make(u"TestPeProtoFour", u"OvRxObject");
    KvRxClass* a = make(u"TestPeA", u"OvRxObject");
    KvRxClass* b = make(u"TestPeB", u"TestPeA");
    EXPECT_EQ(a->queryX(nullptr), nullptr);
    EXPECT_EQ(a->addX(nullptr, &x), nullptr);
    EXPECT_EQ(mapOf(a), nullptr) << "a null protocol class makes no map";

    EXPECT_EQ(a->addX(p, &x), nullptr);
    EXPECT_EQ(tags(p, {a, b}), "XX");
    EXPECT_EQ(b->addX(p, &y), &x) << "B held the copy of X";
    EXPECT_EQ(tags(p, {a, b}), "XY");
    EXPECT_EQ(a->addX(p, &z), &x);
    EXPECT_EQ(tags(p, {a, b}), "ZY") << "B's own extension shields it";
    EXPECT_EQ(b->delX(p), &y);
    EXPECT_EQ(tags(p, {a, b}), "ZZ") << "the inherited extension is back";

    Thing ofB('b', b), classless('n');
    EXPECT_EQ(ofB.queryX(p), &z);
    EXPECT_EQ(ofB.x(p), &z);
    EXPECT_EQ(classless.queryX(p), nullptr);
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
    // C holds the object of A as its own, below shielded B: A's next addX reaches it.
    EXPECT_EQ(c->addX(p, &x), &y);
    EXPECT_EQ(a->addX(p, &z), &x);
    EXPECT_EQ(tags(p, {a, b, c, sibling}), "ZYZZ");
    EXPECT_EQ(b->addX(p, &y), &y) << "attaching what a class holds changes nothing";
    EXPECT_EQ(tags(p, {a, b, c, sibling}), "ZYZZ");
    doom({c, b, sibling, a, p});
}

TEST_F(ProtocolExtension, DetachingAtTheTopLeavesNullEntriesBelow) {
    KvRxClass* p = make(u"TestPeProtoTop", u"OvRxObject");
    KvRxClass* top = make(u"TestPeTop", u"OvRxObject");
    KvRxClass* leaf = make(u"TestPeTopLeaf", u"TestPeTop");
    KvRxClass* own = make(u"TestPeTopOwn", u"TestPeTop");
    top->addX(p, &x);
    own->addX(p, &w);
    EXPECT_EQ(top->delX(p), &x);
    EXPECT_EQ(tags(p, {top, leaf, own}), "--W");
    EXPECT_FALSE(mapOf(leaf)->has(p));
    EXPECT_NE(std::unique_ptr<KvRxGenericMapIterator>(mapOf(leaf)->find(p)), nullptr)
        << "the entry stays, with a null value";
    doom({leaf, own, top, p});
}

TEST_F(ProtocolExtension, LinkingCopiesTheParentsExtensionsDown) {
    KvRxClass* p = make(u"TestPeProtoLink", u"OvRxObject");
    KvRxClass* q = make(u"TestPeProtoLinkQ", u"OvRxObject");
    KvRxClass* parent = make(u"TestPeLinkParent", u"OvRxObject");
    parent->addX(p, &x);
    parent->addX(q, &y);
    // Registered in one batch: a child that attached its own object first, and its child.
    KvRxClass* late = make(u"TestPeLinkLate", u"TestPeLinkParent", false);
    KvRxClass* grandchild = make(u"TestPeLinkLateChild", u"TestPeLinkLate", false);
    late->addX(q, &w);
    EXPECT_EQ(late->queryX(p), nullptr) << "not linked yet";
    kvrxBuildClassHierarchy();
    EXPECT_EQ(tags(p, {late, grandchild}), "XX");
    EXPECT_EQ(tags(q, {late, grandchild}), "WW");
    parent->addX(p, &z);
    EXPECT_EQ(tags(p, {late, grandchild}), "ZZ") << "the copies are inherited entries";
    doom({grandchild, late, parent, q, p});
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
    KvRxClassState::destroyDoomedRxClasses(true);
    for (KvRxClass* c : {a, b}) {
        ASSERT_EQ(mapOf(c)->size(), 1u);
        EXPECT_EQ(std::unique_ptr<KvRxGenericMapIterator>(mapOf(c)->newMapIterator())->key(), kept);
    }
    doom({b, a, kept});
}

}  // namespace
