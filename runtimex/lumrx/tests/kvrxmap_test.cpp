// The maps: key clones in comparedTo order, protocol maps in address order, removal
// through iterators, and the iterator checks.
#include "testsupport.h"

#include "kernel/kvrxpeclassmap.h"
#include "kvrxmap.h"

#include <memory>
#include <string>

// A key ordered by its number that clones; it notes the size of `watched` as it dies.
class TestMapKey : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestMapKey);

public:
    static int live, sizeSeenAtDeath;
    static KvRxMap* watched;
    explicit TestMapKey(int n = 0) : n(n) { ++live; }
    ~TestMapKey() override {
        --live;
        if (watched) sizeSeenAtDeath = int(watched->size());
    }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        n = TestMapKey::cast(other)->n;
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
int TestMapKey::live = 0, TestMapKey::sizeSeenAtDeath = -1;
KvRxMap* TestMapKey::watched = nullptr;
KVRX_DEFINE_MEMBERS(TestMapKey, u"TestMapKey", u"OvRxObject");

namespace {

const char kWrongClass[] = "Rx module fatal error, code is 46";

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
        kvrxBuildClassHierarchy();
    }
    void TearDown() override { EXPECT_EQ(TestMapKey::live, 0) << "every key clone was freed"; }

    // "key:value " for each node, in iteration order.
    static std::string walk(KvRxMap& map) {
        std::string s;
        std::unique_ptr<KvRxGenericMapIterator> it(map.newMapIterator());
        for (bool on = !it->done(); on; on = it->next())
            s += std::to_string(TestMapKey::cast(it->key())->n) + ":" + tagOf(it->object()) + " ";
        return s;
    }
    void fill(KvRxMap& map, int count) {
        for (int n = 1; n <= count; ++n) {
            TestMapKey key(n);
            map.put(&key, &a);
        }
    }

    Value a{'a'}, b{'b'}, c{'c'};
};

TEST_F(MapTest, PutKeepsOneCloneOfEachKeyInKeyOrder) {
    KvRxMap map;
    TestMapKey three(3), one(1), otherThree(3);
    EXPECT_EQ(map.at(&one), nullptr);
    EXPECT_TRUE(std::unique_ptr<KvRxIterator>(map.newIterator())->done());
    Value noClone('n');
    EXPECT_EQ(map.put(&noClone, &a), nullptr);
    EXPECT_EQ(map.size(), 0u) << "a key that gives no clone stores nothing";
    EXPECT_EQ(map.put(&three, &c), nullptr);
    EXPECT_EQ(map.put(&one, &a), nullptr);
    std::unique_ptr<KvRxGenericMapIterator> first(map.find(&three));
    const KvRxObject* storedKey = first->key();
    EXPECT_NE(storedKey, &three) << "the map holds a clone";
    EXPECT_EQ(tagOf(map.put(&otherThree, &b)), 'c');
    EXPECT_EQ(walk(map), "1:a 3:b ");
    EXPECT_EQ(std::unique_ptr<KvRxGenericMapIterator>(map.find(&three))->key(), storedKey);

    one.n = 2;  // the caller's key stays the caller's
    EXPECT_EQ(walk(map), "1:a 3:b ");
    EXPECT_EQ(map.at(&one), nullptr);

    // A null value is stored but doesn't count for has; a null key stores nothing.
    map.put(&one, nullptr);
    EXPECT_FALSE(map.has(&one));
    EXPECT_NE(std::unique_ptr<KvRxGenericMapIterator>(map.find(&one)), nullptr);
    EXPECT_EQ(map.put(static_cast<const KvRxObject*>(nullptr), &a), nullptr);
    EXPECT_EQ(map.at(nullptr), nullptr);
    EXPECT_EQ(map.find(nullptr), nullptr);
    EXPECT_EQ(walk(map), "1:a 2:- 3:b ");
}

TEST_F(MapTest, RemovalThroughIteratorsKeysAndRemoveAll) {
    KvRxMap map;
    fill(map, 5);
    TestMapKey three(3);
    EXPECT_EQ(tagOf(map.remove(&three)), 'a');
    EXPECT_EQ(map.remove(&three), nullptr);

    std::string visited;
    std::unique_ptr<KvRxGenericMapIterator> it(map.newMapIterator());
    while (!it->done()) {
        visited += std::to_string(TestMapKey::cast(it->key())->n);
        EXPECT_EQ(tagOf(map.put(it.get(), &b)), 'a');
        EXPECT_EQ(tagOf(map.remove(it.get())), 'b');
    }
    EXPECT_EQ(visited, "1245") << "each node once, the iterator moved on by remove";
    EXPECT_EQ(map.size(), 0u);
    EXPECT_EQ(it->key(), nullptr);
    EXPECT_EQ(map.remove(it.get()), nullptr);
    EXPECT_EQ(map.put(it.get(), &a), nullptr);
    EXPECT_EQ(map.put(static_cast<KvRxGenericMapIterator*>(nullptr), &a), nullptr);

    // removeAll empties the tree before the key clones die.
    fill(map, 3);
    TestMapKey::watched = &map;
    map.removeAll();
    TestMapKey::watched = nullptr;
    EXPECT_EQ(TestMapKey::sizeSeenAtDeath, 0);
    EXPECT_EQ(map.size(), 0u);
    fill(map, 2);  // the destructor frees these
}

// A protocol map keeps the keys themselves, takes no null key and, unlike KvRxMap,
// takes a null iterator for remove.
TEST_F(MapTest, IteratorsOfAnotherClassOrMapAreFatal) {
    KvRxMap map, other;
    fill(map, 1);
    fill(other, 1);
    KvRxPEQueryCache lastQuery;
    KvRxPEClassMapImp pe(lastQuery);
    pe.put(KvRxMap::desc(), &c);
    EXPECT_EQ(pe.put(static_cast<const KvRxObject*>(nullptr), &c), nullptr);
    std::unique_ptr<KvRxGenericMapIterator> foreign(other.newMapIterator());
    std::unique_ptr<KvRxGenericMapIterator> peIterator(pe.newMapIterator());
    std::unique_ptr<KvRxGenericMapIterator> mapIterator(map.newMapIterator());
    EXPECT_EQ(peIterator->key(), KvRxMap::desc());
    EXPECT_LUM_THROW(map.put(foreign.get(), &c), kWrongClass);
    EXPECT_LUM_THROW(map.remove(foreign.get()), kWrongClass);
    EXPECT_LUM_THROW(map.remove(static_cast<KvRxGenericMapIterator*>(nullptr)), kWrongClass);
    EXPECT_LUM_THROW(map.remove(peIterator.get()), kWrongClass);
    EXPECT_LUM_THROW(pe.put(mapIterator.get(), &b), kWrongClass);
    EXPECT_LUM_THROW(pe.remove(mapIterator.get()), kWrongClass);
    EXPECT_EQ(pe.remove(static_cast<KvRxGenericMapIterator*>(nullptr)), nullptr);
    EXPECT_EQ(map.size() + other.size() + pe.size(), 3u);
}

}  // namespace
