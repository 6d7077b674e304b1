// Overrules: the family lists of each class, their order, their reach down the tree,
// seeding at linking, removal, refusals, the global switch and the disabled set.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxoverrule.h"

#include <initializer_list>
#include <string>
#include <thread>
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

class TestQueryXOverrule : public KvRxQueryXOverrule {
public:
    bool isApplicable(const KvRxObject*) const override { return false; }
};

// An object of whatever class a test gives it.
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
        for (const char16_t* name : kFamilyNames) registerOnce(name, u"OvRxOverrule");
        registerOnce(u"TestObjOverruleMid", u"OvDbObjectOverrule");
        registerOnce(u"TestObjOverruleDeep", u"TestObjOverruleMid");
        registerOnce(u"TestUnknownFamily", u"OvRxOverrule");
        registerOnce(u"TestNotAnOverrule", u"OvRxObject");
        kvrxBuildClassHierarchy();
    }
    static void registerOnce(const char16_t* name, const char16_t* parent) {
        if (!kvrxFindKvRxClass(name)) newKvRxClass(name, parent);
    }
    static KvRxClass* cls(const char16_t* name) { return kvrxFindKvRxClass(name); }
    static KvRxClass* make(const char16_t* name, const char16_t* parent, bool link = true) {
        KvRxClass* c = newKvRxClass(name, parent);
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
    static void doom(std::initializer_list<KvRxClass*> classes) {
        for (KvRxClass* c : classes) deleteKvRxClass(c);
    }
    void TearDown() override {
        KvRxOverrule::setIsOverruling(true);
        KvRxImpClass::destroyDoomedRxClasses(true);
    }

    TestOverrule a{cls(u"OvDbObjectOverrule"), 'a'}, b{cls(u"OvDbObjectOverrule"), 'b'};
    TestOverrule c{cls(u"TestObjOverruleDeep"), 'c'}, d{cls(u"OvDbObjectOverrule"), 'd'};
    TestOverrule grip{cls(u"OvDbGripOverrule"), 'g'};
};

TEST_F(Overrules, OrderFollowsAddAtEnd) {
    KvRxClass* target = make(u"TestOvOrder", u"OvRxObject");
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &a, false), Kvore::eOk);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &b, false), Kvore::eOk);
    EXPECT_EQ(chain(target), "ba");
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &c, true), Kvore::eOk);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &d, true), Kvore::eOk);
    EXPECT_EQ(chain(target), "bacd") << "c is two levels below its family class";

    KvRxClass* appended = make(u"TestOvOrderEnd", u"OvRxObject");
    KvRxOverrule::addOverrule(appended, &a, true);
    KvRxOverrule::addOverrule(appended, &b, true);
    EXPECT_EQ(chain(appended), "ab");
    EXPECT_EQ(chain(appended, kGripFamily), "") << "other families stay empty";
    doom({target, appended});
}

TEST_F(Overrules, AnOverruleReachesEveryClassBelowTheTarget) {
    KvRxClass* parent = make(u"TestOvReachParent", u"OvRxObject");
    KvRxClass* target = make(u"TestOvReach", u"TestOvReachParent");
    KvRxClass* child = make(u"TestOvReachChild", u"TestOvReach");
    KvRxClass* grandchild = make(u"TestOvReachGrandchild", u"TestOvReachChild");
    KvRxClass* sibling = make(u"TestOvReachSibling", u"TestOvReachParent");
    KvRxOverrule::addOverrule(target, &a, false);
    KvRxOverrule::addOverrule(child, &b, true);
    KvRxOverrule::addOverrule(target, &grip, false);
    EXPECT_EQ(chain(target), "a");
    EXPECT_EQ(chain(child), "ab");
    EXPECT_EQ(chain(grandchild), "ab");
    EXPECT_EQ(chain(grandchild, kGripFamily), "g");
    EXPECT_EQ(chain(parent), "");
    EXPECT_EQ(chain(sibling), "");

    Subject below(grandchild), beside(sibling), classless(nullptr);
    KvRxClass* objectFamily = cls(u"OvDbObjectOverrule");
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&below, objectFamily));
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&below, cls(u"TestObjOverruleDeep")));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&beside, objectFamily));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&below, cls(u"OvDbTransformOverrule")));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&below, cls(u"TestNotAnOverrule")));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&below, KvRxOverrule::desc()));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&below, nullptr));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(nullptr, objectFamily));
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&classless, objectFamily));

    // The switch and the disabled set don't change the lists or hasOverrule.
    EXPECT_TRUE(KvRxOverrule::isOverruling());
    KvRxOverrule::setIsOverruling(false);
    EXPECT_FALSE(KvRxOverrule::isOverruling());
    KvRxOverruleInternals::addObjectToDisable(&below);
    EXPECT_TRUE(KvRxOverrule::hasOverrule(&below, objectFamily));
    EXPECT_EQ(chain(grandchild), "ab");
    KvRxOverruleInternals::removeObjectFromDisable(&below);
    doom({grandchild, child, target, sibling, parent});
}

TEST_F(Overrules, EachFamilyNameHasItsOwnIndex) {
    KvRxClass* target = make(u"TestOvFamilies", u"OvRxObject");
    std::vector<TestOverrule> overrules;
    for (const char16_t* name : kFamilyNames) overrules.emplace_back(cls(name), 'x');
    for (TestOverrule& overrule : overrules) KvRxOverrule::addOverrule(target, &overrule, false);
    KvRxImpClass* impl = KvRxImpClass::getImplRxClass(target);
    for (int family = 0; family < kOverruleFamilyCount; ++family) {
        KvRxOverruleNode* head = impl->overruleHead(family);
        ASSERT_NE(head, nullptr) << family;
        EXPECT_EQ(head->overrule, &overrules[size_t(family)]) << family;
        EXPECT_EQ(head->next, nullptr) << family;
    }
    for (TestOverrule& overrule : overrules)
        EXPECT_EQ(KvRxOverrule::removeOverrule(target, &overrule), Kvore::eOk);
    doom({target});
}

TEST_F(Overrules, RemovalTakesOneNodePerClass) {
    KvRxClass* target = make(u"TestOvRemove", u"OvRxObject");
    KvRxClass* child = make(u"TestOvRemoveChild", u"TestOvRemove");
    KvRxOverrule::addOverrule(target, &a, false);
    KvRxOverrule::addOverrule(target, &b, false);
    KvRxOverrule::addOverrule(target, &a, false);
    EXPECT_EQ(chain(child), "aba");
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eOk);
    EXPECT_EQ(chain(target), "ba") << "the first node of a went, the head moved";
    EXPECT_EQ(chain(child), "ba");
    EXPECT_EQ(KvRxOverrule::removeOverrule(child, &a), Kvore::eOk);
    EXPECT_EQ(chain(target), "ba") << "removal on the child leaves the parent alone";
    EXPECT_EQ(chain(child), "b");
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eOk);
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &a), Kvore::eKeyNotFound);
    EXPECT_EQ(chain(target), "b");
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &grip), Kvore::eKeyNotFound);
    EXPECT_EQ(KvRxOverrule::removeOverrule(nullptr, &a), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, nullptr), Kvore::eInvalidInput);
    doom({child, target});  // b's nodes go with the classes; b itself stays the test's
}

TEST_F(Overrules, OverrulesOutsideTheFamiliesAreRefusedOrIgnored) {
    KvRxClass* target = make(u"TestOvRefuse", u"OvRxObject");
    TestOverrule bare(KvRxOverrule::desc(), 'r'), stranger(cls(u"TestNotAnOverrule"), 's');
    TestOverrule classless(nullptr, 'n'), unknown(cls(u"TestUnknownFamily"), 'u');
    TestQueryXOverrule query;
    EXPECT_EQ(KvRxOverrule::addOverrule(nullptr, &a, false), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, nullptr, false), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &bare, false), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &stranger, false), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &classless, false), Kvore::eInvalidInput);
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &query, false), Kvore::eInvalidInput)
        << "its class isn't below \"OvRxOverrule\"";
    EXPECT_EQ(query.queryX(&query, target), nullptr);

    // A family class with a name outside the table: accepted, nothing stored.
    EXPECT_EQ(KvRxOverrule::addOverrule(target, &unknown, false), Kvore::eOk);
    for (int family = 0; family < kOverruleFamilyCount; ++family)
        EXPECT_EQ(KvRxImpClass::getImplRxClass(target)->overruleHead(family), nullptr);
    Subject subject(target);
    EXPECT_FALSE(KvRxOverrule::hasOverrule(&subject, cls(u"TestUnknownFamily")));
    EXPECT_EQ(KvRxOverrule::removeOverrule(target, &unknown), Kvore::eKeyNotFound);
    doom({target});
}

TEST_F(Overrules, LinkingSeedsTheHeadOfEachParentList) {
    KvRxClass* parent = make(u"TestOvSeedParent", u"OvRxObject");
    KvRxOverrule::addOverrule(parent, &a, false);
    KvRxOverrule::addOverrule(parent, &b, true);
    KvRxOverrule::addOverrule(parent, &grip, false);

    KvRxClass* late = make(u"TestOvSeedLate", u"TestOvSeedParent", false);
    KvRxClass* ownList = make(u"TestOvSeedOwn", u"TestOvSeedParent", false);
    KvRxOverrule::addOverrule(ownList, &d, false);
    kvrxBuildClassHierarchy();
    EXPECT_EQ(chain(late), "a") << "only the first of the parent's list";
    EXPECT_EQ(chain(late, kGripFamily), "g");
    EXPECT_EQ(chain(ownList), "d") << "a class with a list of its own keeps it";
    EXPECT_EQ(chain(ownList, kGripFamily), "g");
    doom({late, ownList, parent});
}

TEST_F(Overrules, DisabledObjectsAreASetOfAddresses) {
    Subject one(nullptr), two(nullptr);
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(nullptr));
    KvRxOverruleInternals::addObjectToDisable(nullptr);
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(nullptr));
    KvRxOverruleInternals::addObjectToDisable(&one);
    KvRxOverruleInternals::addObjectToDisable(&one);
    EXPECT_TRUE(KvRxOverruleInternals::existInDisable(&one));
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(&two));
    KvRxOverruleInternals::removeObjectFromDisable(&one);
    EXPECT_FALSE(KvRxOverruleInternals::existInDisable(&one)) << "the set keeps no count";
    KvRxOverruleInternals::removeObjectFromDisable(&two);
    KvRxOverruleInternals::removeObjectFromDisable(nullptr);

    // Several threads change the set at once; each sees its own objects.
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (size_t t = 0; t < mismatches.size(); ++t) {
        threads.emplace_back([t, &mismatches] {
            std::vector<Subject> mine(16, Subject(nullptr));
            for (int round = 0; round < 2000; ++round) {
                for (Subject& s : mine) KvRxOverruleInternals::addObjectToDisable(&s);
                for (Subject& s : mine) mismatches[t] += !KvRxOverruleInternals::existInDisable(&s);
                for (Subject& s : mine) KvRxOverruleInternals::removeObjectFromDisable(&s);
                for (Subject& s : mine) mismatches[t] += KvRxOverruleInternals::existInDisable(&s);
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

}  // namespace
