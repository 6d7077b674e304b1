// Overrules: the family lists of each class, their order, their reach down the tree,
// seeding at linking, removal, refusals, the global switch and the disabled set.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxoverrule.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace {

const int kObjectFamily = 1;  // "OvDbObjectOverrule"
const int kGripFamily = 7;    // "OvDbGripOverrule"

const char16_t* const kFamilyNames[kOverruleFamilyCount] = {
    u"OvGiDrawableOverrule",   u"OvDbObjectOverrule",         u"OvDbPropertiesOverrule",
    u"OvDbGeometryOverrule",   u"OvDbHighlightOverrule",      u"OvDbHighlightStateOverrule",
    u"OvDbSubentityOverrule",  u"OvDbGripOverrule",           u"OvDbTransformOverrule",
    u"OvDbOsnapOverrule",      u"OvDbDimensionStyleOverrule", u"OvDbVisibilityOverrule",
};

// An overrule of whatever class a test gives it, with a tag to read lists by.
class TestOverrule : public KvRxOverrule {
public:
    TestOverrule(KvRxClass* cls, char tag) : cls(cls), tag(tag) {}
    KvRxClass* isA() const override { return cls; }
    bool isApplicable(const KvRxObject*) const override { return true; }
    KvRxClass* cls;
    char tag;
};

class Subject : public KvRxObject {
public:
    explicit Subject(KvRxClass* cls) : cls(cls) {}
    KvRxClass* isA() const override { return cls; }
    KvRxClass* cls;
};

class Overrules : public lumtest::RuntimeTest {
protected:
    static void SetUpTestSuite() {
        lumtest::ensureRuntime();
        for (const char16_t* name : kFamilyNames) make(name, u"OvRxOverrule", false);
        make(u"TestObjOverruleMid", u"OvDbObjectOverrule", false);
        make(u"TestObjOverruleDeep", u"TestObjOverruleMid", false);
        make(u"TestUnknownFamily", u"OvRxOverrule", false);
        make(u"TestNotAnOverrule", u"OvRxObject");
    }
    static KvRxClass* cls(const char16_t* name) { return kvrxFindKvRxClass(name); }
    static KvRxClass* make(const char16_t* name, const char16_t* parent, bool link = true) {
        KvRxClass* c = cls(name) ? cls(name) : newKvRxClass(name, parent);
        if (link) kvrxBuildClassHierarchy();
        return c;
    }
    // The tags of a class's list in `family`, head first.
    static std::string chain(KvRxClass* c, int family = kObjectFamily) {
        std::string s;
        KvRxOverruleNode* n = KvRxImpClass::getImplRxClass(c)->overruleHead(family);
        for (; n; n = n->next) s += static_cast<TestOverrule*>(n->overrule)->tag;
        return s;
    }
    static Kvore::ErrorStatus add(KvRxClass* target, KvRxOverrule* overrule, bool atEnd = false) {
        return KvRxOverrule::addOverrule(target, overrule, atEnd);
    }
    // Children first: TearDown destroys them, and their nodes, with the checks on.
    static void doom(std::initializer_list<KvRxClass*> classes) {
        for (KvRxClass* c : classes) deleteKvRxClass(c);
    }
    void TearDown() override { KvRxClassState::destroyDoomedRxClasses(true); }

    TestOverrule a{cls(u"OvDbObjectOverrule"), 'a'}, b{cls(u"OvDbObjectOverrule"), 'b'};
    TestOverrule c{cls(u"TestObjOverruleDeep"), 'c'}, grip{cls(u"OvDbGripOverrule"), 'g'};
};

TEST_F(Overrules, OrderFollowsAddAtEnd) {
    KvRxClass* front = make(u"TestOvOrderFront", u"OvRxObject");
    KvRxClass* back = make(u"TestOvOrderBack", u"OvRxObject");
    for (TestOverrule* o : {&a, &b}) EXPECT_EQ(add(front, o), Kvore::eOk);
    for (TestOverrule* o : {&a, &b}) EXPECT_EQ(add(back, o, true), Kvore::eOk);
    EXPECT_EQ(chain(front), "ba");
    EXPECT_EQ(chain(back), "ab");
    add(front, &c, true);
    add(front, &grip, true);
    EXPECT_EQ(chain(front), "bac") << "c is two levels below its family class";
    EXPECT_EQ(chain(front, kGripFamily), "g");
    doom({front, back});
}

TEST_F(Overrules, AnOverruleReachesEveryClassBelowTheTarget) {
    KvRxClass* parent = make(u"TestOvReachParent", u"OvRxObject");
    KvRxClass* target = make(u"TestOvReach", u"TestOvReachParent");
    KvRxClass* child = make(u"TestOvReachChild", u"TestOvReach");
    KvRxClass* sibling = make(u"TestOvReachSibling", u"TestOvReachParent");
    add(target, &a);
    add(child, &b, true);
    EXPECT_EQ(chain(target) + chain(child), "aab");
    EXPECT_EQ(chain(parent) + chain(sibling), "");

    // hasOverrule reads the subject's own class only, whatever the switch and the set say.
    Subject below(child), beside(sibling), classless(nullptr);
    KvRxClass* objectFamily = cls(u"OvDbObjectOverrule");
    KvRxOverrule::setIsOverruling(false);
    EXPECT_FALSE(KvRxOverrule::isOverruling());
    KvRxOverruleInternals::addObjectToDisable(&below);
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&below, objectFamily));
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&below, cls(u"TestObjOverruleDeep")));
    KvRxOverrule::setIsOverruling(true);
    KvRxOverruleInternals::removeObjectFromDisable(&below);
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&beside, objectFamily));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&classless, objectFamily));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(nullptr, objectFamily));
    for (KvRxClass* unrelated : {cls(u"OvDbGripOverrule"), cls(u"TestNotAnOverrule"),
                                 KvRxOverrule::desc(), static_cast<KvRxClass*>(nullptr)})
        EXPECT_FALSE(KvRxOverrule::hasOverrule(&below, unrelated));
    doom({child, target, sibling, parent});
}

TEST_F(Overrules, EachFamilyNameHasItsOwnIndex) {
    KvRxClass* target = make(u"TestOvFamilies", u"OvRxObject");
    std::vector<TestOverrule> overrules;
    for (const char16_t* name : kFamilyNames) overrules.emplace_back(cls(name), 'x');
    for (TestOverrule& overrule : overrules) add(target, &overrule);
    for (int family = 0; family < kOverruleFamilyCount; ++family) {
        KvRxOverruleNode* head = KvRxImpClass::getImplRxClass(target)->overruleHead(family);
        ASSERT_NE(head, nullptr) << family;
        EXPECT_EQ(head->overrule, &overrules[size_t(family)]) << family;
    }
    doom({target});
}

TEST_F(Overrules, RemovalTakesTheFirstNodeOfEachClass) {
    KvRxClass* target = make(u"TestOvRemove", u"OvRxObject");
    KvRxClass* child = make(u"TestOvRemoveChild", u"TestOvRemove");
    for (TestOverrule* o : {&a, &b, &a}) add(target, o);
    EXPECT_EQ(KvRxOverrule::removeOverrule(child, &a), Kvore::eOk);
    EXPECT_EQ(chain(target) + "|" + chain(child), "aba|ba") << "the child's head moved";
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eOk);
    EXPECT_EQ(chain(target) + "|" + chain(child), "ba|b");
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eOk);
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eKeyNotFound);
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &grip), Kvore::eKeyNotFound);
    EXPECT_EQ(KvRxOverrule::removeOverrule(nullptr, &b), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, nullptr), Kvore::eInvalidInput);
    EXPECT_EQ(chain(target) + "|" + chain(child), "b|b");
    doom({child, target});
}

TEST_F(Overrules, OverrulesOutsideTheFamiliesAreRefusedOrIgnored) {
    struct QueryX : KvRxQueryXOverrule {
        bool isApplicable(const KvRxObject*) const override { return false; }
    } queryX;
    KvRxClass* target = make(u"TestOvRefuse", u"OvRxObject");
    TestOverrule bare(KvRxOverrule::desc(), 'r'), stranger(cls(u"TestNotAnOverrule"), 's');
    TestOverrule classless(nullptr, 'n'), unknown(cls(u"TestUnknownFamily"), 'u');
    EXPECT_EQ(add(nullptr, &a), Kvore::eInvalidInput);
    EXPECT_EQ(add(target, nullptr), Kvore::eInvalidInput);
    std::vector<KvRxOverrule*> refused = {&bare, &stranger, &classless, &queryX};
    for (KvRxOverrule* overrule : refused) EXPECT_EQ(add(target, overrule), Kvore::eInvalidInput);
    EXPECT_EQ(queryX.queryX(&a, target), nullptr);

    // A family class outside the table: accepted, nothing stored, nothing to remove.
    EXPECT_EQ(add(target, &unknown), Kvore::eOk);
    for (int family = 0; family < kOverruleFamilyCount; ++family)
        EXPECT_EQ(KvRxImpClass::getImplRxClass(target)->overruleHead(family), nullptr);
    Subject subject(target);
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&subject, cls(u"TestUnknownFamily")));
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &unknown), Kvore::eKeyNotFound);
    doom({target});
}

TEST_F(Overrules, LinkingSeedsTheHeadOfEachParentList) {
    KvRxClass* parent = make(u"TestOvSeedParent", u"OvRxObject");
    add(parent, &a);
    add(parent, &b, true);
    add(parent, &grip);
    KvRxClass* late = make(u"TestOvSeedLate", u"TestOvSeedParent", false);
    KvRxClass* ownList = make(u"TestOvSeedOwn", u"TestOvSeedParent", false);
    add(ownList, &c);
    kvrxBuildClassHierarchy();
    EXPECT_EQ(chain(late) + chain(late, kGripFamily), "ag") << "only the first of each list";
    EXPECT_EQ(chain(ownList) + chain(ownList, kGripFamily), "cg") << "an own list stays";
    doom({late, ownList, parent});
}

// An overrule class whose line isn't complete yet belongs to no family; once its
// parents link, the same class belongs to the family its new line passes through,
// even after it was asked while waiting.
TEST_F(Overrules, AnOverruleClassLinkedLateTakesTheFamilyOfItsLine) {
    KvRxClass* target = make(u"TestOvLateTarget", u"OvRxObject");
    KvRxClass* leaf = make(u"TestOvLateLeaf", u"TestOvLateMid", false);
    Subject subject(target);
    TestOverrule late(leaf, 'l');
    add(target, &a);
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&subject, leaf)) << "waiting: no family yet";
    EXPECT_EQ(add(target, &late), Kvore::eInvalidInput);

    // The middle class links under a family class, and the leaf with it: the leaf's
    // line is made anew.
    KvRxClass* mid = make(u"TestOvLateMid", u"OvDbGripOverrule");
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&subject, leaf)) << "grip list of the target is empty";
    EXPECT_EQ(add(target, &late), Kvore::eOk);
    EXPECT_EQ(chain(target, kGripFamily), "l");
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&subject, leaf));
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&subject, mid));
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &late), Kvore::eOk);
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&subject, leaf));
    doom({leaf, mid, target});
}

TEST_F(Overrules, DisabledObjectsAreASetOfAddresses) {
    Subject one(nullptr), two(nullptr);
    KvRxOverruleInternals::addObjectToDisable(nullptr);
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(nullptr));
    KvRxOverruleInternals::addObjectToDisable(&one);
    KvRxOverruleInternals::addObjectToDisable(&one);
    EXPECT_TRUE(KvRxOverruleInternals::existInDisable(&one));
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(&two));
    KvRxOverruleInternals::removeObjectFromDisable(&one);
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(&one)) << "the set keeps no count";
}

}  // namespace
