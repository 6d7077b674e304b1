// Protocol reactors: the factory service, managers as inherited protocol extensions,
// lists per reactor class, the reactor rules of a list and both iterators.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxclass.h"
#include "kvrxprotocolreactor.h"

#include <string>
#include <vector>

namespace {

// A reactor of whatever class a test gives it; `key` decides isEqualTo when set.
class Reactor : public KvRxProtocolReactor {
public:
    explicit Reactor(KvRxClass* cls, int key = 0) : cls(cls), key(key) {}
    KvRxClass* isA() const override { return cls; }
    bool isEqualTo(const KvRxObject* other) const override {
        auto* r = static_cast<const Reactor*>(other);
        return other == this || (key && r->key == key);
    }
    KvRxClass* cls;
    int key;
};

// Counts its destruction, to show what the factory deletes.
class Squatter : public KvRxObject {
public:
    explicit Squatter(int* deaths) : deaths(deaths) {}
    ~Squatter() override { ++*deaths; }
    int* deaths;
};

class ProtocolReactors : public lumtest::RuntimeTest {
protected:
    void SetUp() override {
        factory = KvRxProtocolReactorManagerFactory::cast(
            KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"))
                ->at(u"ProtocolReactorManager"));
        ASSERT_NE(factory, nullptr);
    }
    KvRxClass* make(const char16_t* name, const char16_t* parent) {
        KvRxClass* c = newKvRxClass(name, parent);
        kvrxBuildClassHierarchy();
        made.insert(made.begin(), c);  // children first when doomed
        return c;
    }
    // The runtime never deletes a manager: each class's own goes here, children first.
    void TearDown() override {
        KvRxClass* key = KvRxProtocolReactorManager::desc();
        for (KvRxClass* c : made) {
            KvRxObject* own = c->queryX(key);
            KvRxObject* inherited = c->myParent()->queryX(key);
            c->delX(key);
            if (own != inherited) delete own;
        }
        for (KvRxClass* c : made) deleteKvRxClass(c);
        KvRxClassState::destroyDoomedRxClasses(true);
    }
    // The reactors an iterator walks, by key, after a start.
    static std::vector<int> keys(KvRxProtocolReactorIterator* it) {
        std::vector<int> out;
        for (it->start(); !it->done(); it->next())
            out.push_back(it->reactor() ? static_cast<Reactor*>(it->reactor())->key : -1);
        return out;
    }

    KvRxProtocolReactorManagerFactory* factory = nullptr;
    std::vector<KvRxClass*> made;
};

}  // namespace

TEST_F(ProtocolReactors, StartUpRegistersTheClassesAndAnUnownedFactory) {
    EXPECT_EQ(factory->isA(), kvrxFindKvRxClass(u"KvRxProtocolReactorManagerFactoryImp"));
    EXPECT_TRUE(factory->isKindOf(KvRxService::desc()));
    EXPECT_EQ(factory->getSysInfo(), nullptr) << "put straight into the dictionary";
    const char16_t* pairs[][2] = {
        {u"OvRxProtocolReactorManagerFactory", u"OvRxService"},
        {u"OvRxProtocolReactorManager", u"OvRxObject"},
        {u"OvRxProtocolReactorList", u"OvRxObject"},
        {u"OvRxProtocolReactorListIterator", u"OvRxObject"},
        {u"OvRxProtocolReactor", u"OvRxObject"},
        {u"OvRxProtocolReactorIterator", u"OvRxObject"},
        {u"KvRxProtocolReactorManagerFactoryImp", u"OvRxProtocolReactorManagerFactory"},
        {u"KvRxProtocolReactorManagerImp", u"OvRxProtocolReactorManager"},
        {u"KvRxProtocolReactorListImp", u"OvRxProtocolReactorList"},
        {u"KvRxProtocolReactorListIteratorImp", u"OvRxProtocolReactorListIterator"},
        {u"KvRxProtocolReactorIteratorImp", u"OvRxProtocolReactorIterator"},
    };
    for (auto& p : pairs) {
        KvRxClass* c = kvrxFindKvRxClass(p[0]);
        ASSERT_NE(c, nullptr) << lumtest::utf8(p[0]);
        EXPECT_EQ(c->myParent(), kvrxFindKvRxClass(p[1])) << lumtest::utf8(p[0]);
    }
}

TEST_F(ProtocolReactors, ManagersAreFoundOrMadeAndInherited) {
    EXPECT_EQ(factory->createReactorManager(nullptr), nullptr);
    KvRxClass* base = make(u"TestPrBase", u"OvRxObject");
    KvRxClass* mid = make(u"TestPrMid", u"TestPrBase");
    KvRxClass* leaf = make(u"TestPrLeaf", u"TestPrMid");

    KvRxProtocolReactorManager* b = factory->createReactorManager(base);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->isA(), kvrxFindKvRxClass(u"KvRxProtocolReactorManagerImp"));
    EXPECT_EQ(factory->createReactorManager(base), b);
    EXPECT_EQ(factory->createReactorManager(mid), b) << "a derived class shares its ancestor's";
    EXPECT_EQ(base->queryX(KvRxProtocolReactorManager::desc()), b);

    // Child first, parent afterwards: two managers, and the child keeps its own.
    KvRxClass* other = make(u"TestPrOther", u"OvRxObject");
    KvRxClass* otherChild = make(u"TestPrOtherChild", u"TestPrOther");
    KvRxProtocolReactorManager* c = factory->createReactorManager(otherChild);
    KvRxProtocolReactorManager* p = factory->createReactorManager(other);
    EXPECT_NE(c, p);
    EXPECT_EQ(factory->createReactorManager(otherChild), c);
    EXPECT_EQ(factory->createReactorManager(leaf), b);
}

TEST_F(ProtocolReactors, AnObjectAtTheManagerKeyThatIsNoManagerIsReplacedAndDeleted) {
    KvRxClass* cls = make(u"TestPrSquat", u"OvRxObject");
    int deaths = 0;
    cls->addX(KvRxProtocolReactorManager::desc(), new Squatter(&deaths));
    KvRxProtocolReactorManager* m = factory->createReactorManager(cls);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(deaths, 1);
    EXPECT_EQ(cls->queryX(KvRxProtocolReactorManager::desc()), m);
}

TEST_F(ProtocolReactors, ListsPerReactorClassInCreationOrderWithoutInheritance) {
    KvRxClass* watched = make(u"TestPrWatched", u"OvRxObject");
    KvRxClass* ra = make(u"TestPrReactorA", u"OvRxProtocolReactor");
    KvRxClass* rb = make(u"TestPrReactorB", u"TestPrReactorA");
    KvRxProtocolReactorManager* m = factory->createReactorManager(watched);

    KvRxProtocolReactorListIterator* it = m->newIterator();
    EXPECT_TRUE(it->done());
    EXPECT_EQ(it->reactorList(), nullptr);
    EXPECT_FALSE(it->next());
    delete it;

    EXPECT_EQ(m->createReactorList(nullptr), nullptr);
    KvRxProtocolReactorList* la = m->createReactorList(ra);
    KvRxProtocolReactorList* lb = m->createReactorList(rb);
    ASSERT_NE(la, nullptr);
    EXPECT_NE(la, lb) << "a list doesn't serve a derived reactor class";
    EXPECT_EQ(m->createReactorList(ra), la);
    EXPECT_EQ(la->reactorClass(), ra);
    EXPECT_EQ(lb->reactorClass(), rb);
    EXPECT_EQ(la->isA(), kvrxFindKvRxClass(u"KvRxProtocolReactorListImp"));

    it = m->newIterator();
    EXPECT_EQ(it->isA(), kvrxFindKvRxClass(u"KvRxProtocolReactorListIteratorImp"));
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_FALSE(it->done());
        EXPECT_EQ(it->reactorList(), la);
        EXPECT_TRUE(it->next());
        EXPECT_EQ(it->reactorList(), lb);
        EXPECT_FALSE(it->next());
        EXPECT_TRUE(it->done());
        it->start();
    }
    delete it;
}

TEST_F(ProtocolReactors, AddRemoveAndWalkReactors) {
    KvRxClass* watched = make(u"TestPrHost", u"OvRxObject");
    KvRxClass* ra = make(u"TestPrEvA", u"OvRxProtocolReactor");
    KvRxClass* rsub = make(u"TestPrEvSub", u"TestPrEvA");
    KvRxClass* unrelated = make(u"TestPrEvOther", u"OvRxProtocolReactor");
    KvRxProtocolReactorList* list = factory->createReactorManager(watched)->createReactorList(ra);

    KvRxProtocolReactorIterator* it = list->newIterator();
    EXPECT_EQ(it->isA(), kvrxFindKvRxClass(u"KvRxProtocolReactorIteratorImp"));
    EXPECT_EQ(it->reactorClass(), ra);
    EXPECT_TRUE(it->done()) << "empty at once";
    EXPECT_EQ(it->reactor(), nullptr);
    EXPECT_FALSE(it->next());

    Reactor r1(ra, 1), r2(rsub, 2), r3(ra, 3), twinOf2(rsub, 2), stranger(unrelated, 9),
        classless(nullptr, 8);
    EXPECT_EQ(list->addReactor(nullptr), Kvore::eOk);
    EXPECT_EQ(list->addReactor(&stranger), Kvore::eWrongObjectType);
    EXPECT_EQ(list->addReactor(&classless), Kvore::eWrongObjectType);
    for (Reactor* r : {&r1, &r2, &r3, &r1, &twinOf2}) EXPECT_EQ(list->addReactor(r), Kvore::eOk);
    EXPECT_EQ(keys(it), (std::vector<int>{1, 2, 3})) << "no repeats, no equals, tail order";

    list->removeReactor(&twinOf2);
    list->removeReactor(nullptr);
    EXPECT_EQ(keys(it), (std::vector<int>{1, 2, 3})) << "only the very pointer is removed";
    list->removeReactor(&r2);
    EXPECT_EQ(keys(it), (std::vector<int>{1, 3}));
    it->start();
    EXPECT_EQ(it->reactor(), &r1);
    EXPECT_TRUE(it->next());
    EXPECT_EQ(it->reactor(), &r3);
    EXPECT_FALSE(it->next());
    EXPECT_EQ(it->reactor(), nullptr);
    delete it;
}
