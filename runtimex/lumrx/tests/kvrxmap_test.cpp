// The maps: KvRxMap with its key clones and comparedTo order, KvRxPEClassMap with its
// address order, removal through iterators, and the iterator checks.
#include "testsupport.h"

#include "kernel/kvrxpeclassmap.h"
#include "kvrxmap.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// A key ordered by its number, with a factory and copyFrom so that it clones.
class TestMapKey : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestMapKey);

public:
    static int live;
    // The size of this map when a key dies, to see the order of removeAll.
    static KvRxMap* watched;
    static int sizeSeenAtDeath;

    explicit TestMapKey(int n = 0) : n(n) { ++live; }
    ~TestMapKey() override {
        --live;
        if (watched) sizeSeenAtDeath = int(watched->size());
    }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        const TestMapKey* key = TestMapKey::cast(other);
        if (!key) return Kvore::eWrongObjectType;
        n = key->n;
        return Kvore::eOk;
    }
    KvRx::Ordering comparedTo(const KvRxObject* other) const override {
        const TestMapKey* key = TestMapKey::cast(other);
        if (!key) return KvRx::kNotOrderable;
        return n < key->n ? KvRx::kLessThan : n > key->n ? KvRx::kGreaterThan : KvRx::kEqual;
    }
    static KvRxObject* make() { return new TestMapKey(); }

    int n;
};
int TestMapKey::live = 0;
KvRxMap* TestMapKey::watched = nullptr;
int TestMapKey::sizeSeenAtDeath = -1;
KVRX_DEFINE_MEMBERS(TestMapKey, u"TestMapKey", u"OvRxObject");

// A clonable key with the root's comparedTo, which can't order.
class TestUnorderedKey : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestUnorderedKey);

public:
    Kvore::ErrorStatus copyFrom(const KvRxObject*) override { return Kvore::eOk; }
    static KvRxObject* make() { return new TestUnorderedKey(); }
};
KVRX_DEFINE_MEMBERS(TestUnorderedKey, u"TestUnorderedKey", u"OvRxObject");

namespace {

const char kWrongClass[] = "Rx module fatal error, code is 46";

// A value that says which one it is.
class Value : public KvRxObject {
public:
    explicit Value(char tag) : tag(tag) {}
    char tag;
};

char tagOf(KvRxObject* value) { return value ? static_cast<Value*>(value)->tag : '-'; }

class MapTest : public lumtest::RuntimeTest {
protected:
    static void SetUpTestSuite() {
        lumtest::ensureRuntime();
        if (!kvrxFindKvRxClass(u"TestMapKey"))
            newKvRxClass(u"TestMapKey", u"OvRxObject", 0, &TestMapKey::make);
        if (!kvrxFindKvRxClass(u"TestUnorderedKey"))
            newKvRxClass(u"TestUnorderedKey", u"OvRxObject", 0, &TestUnorderedKey::make);
        kvrxBuildClassHierarchy();
    }
    void TearDown() override { EXPECT_EQ(TestMapKey::live, 0) << "every key clone was freed"; }

    // "key:value" pairs in iteration order.
    static std::string walk(KvRxGenericMap& map) {
        std::string s;
        std::unique_ptr<KvRxGenericMapIterator> it(map.newMapIterator());
        for (bool on = !it->done(); on; on = it->next()) {
            s += std::to_string(TestMapKey::cast(it->key())->n) + ":" + tagOf(it->object()) + " ";
        }
        return s;
    }

    Value a{'a'}, b{'b'}, c{'c'}, d{'d'};
};

TEST_F(MapTest, EmptyMapAnswersNothing) {
    KvRxMap map;
    TestMapKey one(1);
    EXPECT_EQ(map.size(), 0u);
    EXPECT_EQ(map.at(&one), nullptr);
    EXPECT_FALSE(map.has(&one));
    EXPECT_EQ(map.find(&one), nullptr);
    EXPECT_EQ(map.remove(&one), nullptr);
    std::unique_ptr<KvRxIterator> it(map.newIterator());
    EXPECT_TRUE(it->done());
    EXPECT_FALSE(it->next());
    EXPECT_TRUE(IsObjectIterable(&map));
    EXPECT_TRUE(map.isKindOf(KvRxGenericMap::desc()));
    EXPECT_TRUE(KvRxMapIterator::cast(it.get()));
}

TEST_F(MapTest, PutKeepsOneCloneOfEachKeyInKeyOrder) {
    KvRxMap map;
    TestMapKey three(3), one(1), two(2);
    EXPECT_EQ(map.put(&three, &c), nullptr);
    EXPECT_EQ(map.put(&one, &a), nullptr);
    EXPECT_EQ(map.put(&two, &b), nullptr);
    EXPECT_EQ(walk(map), "1:a 2:b 3:c ");
    EXPECT_EQ(TestMapKey::live, 6) << "one clone per key";

    // An equal key replaces the value and keeps the first clone.
    std::unique_ptr<KvRxGenericMapIterator> before(map.find(&two));
    const KvRxObject* storedKey = before->key();
    EXPECT_NE(storedKey, &two);
    TestMapKey otherTwo(2);
    EXPECT_EQ(tagOf(map.put(&otherTwo, &d)), 'b');
    EXPECT_EQ(map.size(), 3u);
    std::unique_ptr<KvRxGenericMapIterator> after(map.find(&two));
    EXPECT_EQ(after->key(), storedKey);
    EXPECT_EQ(tagOf(after->object()), 'd');

    // The caller's key stays the caller's.
    one.n = 10;
    EXPECT_EQ(map.at(&one), nullptr);
    TestMapKey lookup(1);
    EXPECT_EQ(tagOf(map.at(&lookup)), 'a');

    EXPECT_EQ(map.at(nullptr), nullptr);
    EXPECT_EQ(map.find(nullptr), nullptr);
    EXPECT_EQ(map.remove(static_cast<const KvRxObject*>(nullptr)), nullptr);
    EXPECT_EQ(map.put(static_cast<const KvRxObject*>(nullptr), &a), nullptr);
    EXPECT_EQ(map.size(), 3u) << "a null key stores nothing";
}

TEST_F(MapTest, NullValuesAndKeysThatDontCloneOrOrder) {
    KvRxMap map;
    TestMapKey one(1);
    map.put(&one, nullptr);
    EXPECT_FALSE(map.has(&one)) << "a null value counts as absent";
    std::unique_ptr<KvRxGenericMapIterator> it(map.find(&one));
    ASSERT_NE(it, nullptr) << "but the node is there";
    EXPECT_EQ(it->object(), nullptr);
    EXPECT_EQ(map.size(), 1u);

    // A key of a class without a factory gives no clone: nothing is stored.
    Value plain('p');
    EXPECT_EQ(map.put(&plain, &a), nullptr);
    EXPECT_EQ(map.size(), 1u);

    // Keys that can't be ordered are all one key.
    KvRxMap unordered;
    TestUnorderedKey first, second;
    EXPECT_EQ(unordered.put(&first, &a), nullptr);
    EXPECT_EQ(tagOf(unordered.put(&second, &b)), 'a');
    EXPECT_EQ(unordered.size(), 1u);
}

TEST_F(MapTest, RemovalThroughIteratorsAndKeys) {
    KvRxMap map;
    for (int n = 1; n <= 5; ++n) {
        TestMapKey key(n);
        map.put(&key, &a);
    }
    TestMapKey three(3);
    EXPECT_EQ(tagOf(map.remove(&three)), 'a');
    EXPECT_EQ(map.remove(&three), nullptr);
    EXPECT_EQ(map.size(), 4u);

    // Removing every node through the walking iterator visits each once.
    std::string visited;
    std::unique_ptr<KvRxGenericMapIterator> it(map.newMapIterator());
    while (!it->done()) {
        visited += std::to_string(TestMapKey::cast(it->key())->n);
        map.put(it.get(), &b);
        EXPECT_EQ(tagOf(map.remove(it.get())), 'b');
    }
    EXPECT_EQ(visited, "1245");
    EXPECT_EQ(map.size(), 0u);
    EXPECT_EQ(TestMapKey::live, 1) << "only the test's own key is left";
    EXPECT_EQ(map.remove(it.get()), nullptr) << "a finished iterator removes nothing";
    EXPECT_EQ(map.put(it.get(), &a), nullptr);
    EXPECT_EQ(map.put(static_cast<KvRxGenericMapIterator*>(nullptr), &a), nullptr);
}

TEST_F(MapTest, RemoveAllEmptiesTheTreeBeforeTheKeysGo) {
    auto* map = new KvRxMap();
    for (int n = 1; n <= 3; ++n) {
        TestMapKey key(n);
        map->put(&key, &a);
    }
    TestMapKey::watched = map;
    TestMapKey::sizeSeenAtDeath = -1;
    map->removeAll();
    EXPECT_EQ(TestMapKey::sizeSeenAtDeath, 0);
    EXPECT_EQ(map->size(), 0u);
    EXPECT_EQ(a.tag, 'a') << "values stay alive";
    TestMapKey::watched = nullptr;

    TestMapKey key(4);
    map->put(&key, &b);
    delete map;  // the destructor frees what is left
}

TEST_F(MapTest, IteratorsOfAnotherClassOrMapAreFatal) {
    KvRxMap map, other;
    TestMapKey one(1);
    map.put(&one, &a);
    other.put(&one, &b);
    std::unique_ptr<KvRxGenericMapIterator> foreign(other.newMapIterator());
    EXPECT_LUM_THROW(map.put(foreign.get(), &c), kWrongClass);
    EXPECT_LUM_THROW(map.remove(foreign.get()), kWrongClass);
    EXPECT_LUM_THROW(map.remove(static_cast<KvRxGenericMapIterator*>(nullptr)), kWrongClass);

    KvRxPEClassMapImp pe;
    pe.put(KvRxMap::desc(), &c);
    std::unique_ptr<KvRxGenericMapIterator> peIterator(pe.newMapIterator());
    std::unique_ptr<KvRxGenericMapIterator> mapIterator(map.newMapIterator());
    EXPECT_LUM_THROW(map.put(peIterator.get(), &d), kWrongClass);
    EXPECT_LUM_THROW(map.remove(peIterator.get()), kWrongClass);
    EXPECT_LUM_THROW(pe.put(mapIterator.get(), &d), kWrongClass);
    EXPECT_LUM_THROW(pe.remove(mapIterator.get()), kWrongClass);
    EXPECT_EQ(tagOf(map.at(&one)), 'a');
    EXPECT_EQ(tagOf(other.at(&one)), 'b');
    EXPECT_EQ(tagOf(pe.at(KvRxMap::desc())), 'c');
}

TEST_F(MapTest, ProtocolMapKeepsPointersInAddressOrder) {
    KvRxPEClassMapImp pe;
    KvRxClass* keys[] = {KvRxMap::desc(), KvRxObject::desc(), KvRxClass::desc()};
    Value* values[] = {&a, &b, &c};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(pe.put(keys[i], &d), nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(pe.put(keys[i], values[i]), &d);
    EXPECT_EQ(pe.put(static_cast<const KvRxObject*>(nullptr), &d), nullptr);
    EXPECT_EQ(pe.size(), 3u);

    // Address order, and no clones: the keys are the classes themselves.
    std::vector<const KvRxObject*> order;
    std::unique_ptr<KvRxGenericMapIterator> it(pe.newMapIterator());
    for (bool on = !it->done(); on; on = it->next()) {
        if (!order.empty()) {
            EXPECT_TRUE(std::less<const KvRxObject*>()(order.back(), it->key()));
        }
        EXPECT_EQ(it->object(), pe.at(it->key()));
        order.push_back(it->key());
    }
    ASSERT_EQ(order.size(), 3u);
    EXPECT_TRUE(KvRxClass::cast(order[0]));
    EXPECT_TRUE(KvRxPEClassMapIterator::cast(it.get()));
    EXPECT_TRUE(pe.isKindOf(KvRxPEClassMap::desc()));

    pe.put(keys[2], nullptr);
    EXPECT_FALSE(pe.has(keys[2]));
    std::unique_ptr<KvRxGenericMapIterator> held(pe.find(keys[2]));
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->object(), nullptr);
    EXPECT_EQ(pe.find(nullptr), nullptr);

    // Removal through the iterator moves it on; null and finished iterators do nothing.
    std::unique_ptr<KvRxGenericMapIterator> walker(pe.newMapIterator());
    KvRxObject* firstValue = walker->object();
    EXPECT_EQ(pe.remove(walker.get()), firstValue);
    EXPECT_EQ(walker->key(), order[1]);
    EXPECT_EQ(pe.at(order[0]), nullptr);
    EXPECT_EQ(pe.remove(static_cast<KvRxGenericMapIterator*>(nullptr)), nullptr);
    EXPECT_EQ(pe.size(), 2u);
    pe.removeAll();
    EXPECT_EQ(pe.size(), 0u);
    EXPECT_EQ(kvrxFindKvRxClass(u"KvRxMap"), keys[0]) << "no key was deleted";
}

}  // namespace
