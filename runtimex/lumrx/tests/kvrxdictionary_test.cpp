// The dictionary and its key strings: the two key spaces over one set of entries, id
// reuse, ownership of values, admission by class, growth, walks and the key text rules.

#include "testsupport.h"

#include "collections/kvrxdictionaryimp.h"
#include "kvrxclass.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using lumtest::utf8;

// Counts its live instances, so that a test sees what a dictionary deleted.
class Counted : public KvRxObject {
public:
    Counted() { ++live; }
    ~Counted() override { --live; }
    static int live;
};
int Counted::live = 0;

// An object whose class is whatever descriptor it is given (null: no class).
class Classed : public KvRxObject {
public:
    explicit Classed(KvRxClass* c) : m_class(c) {}
    KvRxClass* isA() const override { return m_class; }

private:
    KvRxClass* m_class;
};

struct Classes {
    KvRxClass* base;
    KvRxClass* derived;
    KvRxClass* other;
    KvRxClass* unlinked;  // registered after the last linking: no parent yet
};

const Classes& classes() {
    static Classes c = [] {
        Classes r;
        r.base = newKvRxClass(u"DictTestBase", u"OvRxObject");
        r.derived = newKvRxClass(u"DictTestDerived", u"DictTestBase");
        r.other = newKvRxClass(u"DictTestOther", u"OvRxObject");
        kvrxBuildClassHierarchy();
        r.unlinked = newKvRxClass(u"DictTestUnlinked", u"DictTestOther");
        return r;
    }();
    return c;
}

using DictPtr = std::unique_ptr<KvRxDictionaryImp>;

DictPtr makeDict(bool deleteObjects = false, bool sorted = false, bool ignoreCase = false,
                 const KvRxClass* restrictTo = nullptr, unsigned length = 0) {
    return DictPtr(KvRxDictionaryImp::createDictionary(length, deleteObjects, sorted, ignoreCase, restrictTo));
}

unsigned put(KvRxDictionary& d, const char16_t* key, KvRxObject* value = nullptr) {
    unsigned id = 0;
    EXPECT_EQ(d.atPut(key, value, id), nullptr) << utf8(key);
    return id;
}

struct Step {
    std::string key;
    unsigned id;
    KvRxObject* object;
    bool operator==(const Step& o) const { return key == o.key && id == o.id && object == o.object; }
};
std::ostream& operator<<(std::ostream& os, const Step& s) { return os << s.key << "#" << s.id; }

std::vector<Step> walk(KvRxDictionary& d, int type) {
    std::vector<Step> steps;
    std::unique_ptr<KvRxDictionaryIterator> it(d.newIterator(type));
    for (bool on = !it->done(); on; on = it->next()) {
        EXPECT_FALSE(it->done());
        steps.push_back({utf8(it->key()), it->id(), it->object()});
    }
    EXPECT_TRUE(it->done());
    EXPECT_FALSE(it->next());
    EXPECT_EQ(it->id(), 0u);
    EXPECT_EQ(it->key(), nullptr);
    EXPECT_EQ(it->object(), nullptr);
    return steps;
}

class DictionaryTest : public lumtest::RuntimeTest {};

TEST_F(DictionaryTest, EmptyDictionaryAndEmptyKeysFindNothing) {
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(false, sorted);
        EXPECT_EQ(d->numEntries(), 0u);
        EXPECT_EQ(d->isSorted(), sorted);
        EXPECT_EQ(d->capacity(), 0);
        EXPECT_TRUE(walk(*d, 0).empty());
        EXPECT_TRUE(walk(*d, 1).empty());

        Counted value;
        unsigned id = 777;
        EXPECT_EQ(d->atPut(u"", &value, id), nullptr);
        EXPECT_EQ(d->atPut(nullptr, &value, id), nullptr);
        EXPECT_EQ(id, 777u);
        EXPECT_EQ(d->numEntries(), 0u);

        put(*d, u"k", &value);
        for (const char16_t* key : {static_cast<const char16_t*>(nullptr), u""}) {
            EXPECT_EQ(d->at(key), nullptr);
            EXPECT_FALSE(d->has(key));
            EXPECT_EQ(d->idAt(key), 0u);
            EXPECT_EQ(d->remove(key), nullptr);
        }
        for (unsigned bad : {0u, 2u, 1000u}) {
            EXPECT_EQ(d->at(bad), nullptr);
            EXPECT_FALSE(d->has(bad));
            EXPECT_EQ(d->keyAt(bad), nullptr);
            EXPECT_EQ(d->remove(bad), nullptr);
        }
        EXPECT_EQ(d->numEntries(), 1u);
        EXPECT_EQ(d->clone(), nullptr);
    }
}

TEST_F(DictionaryTest, IdsAreReusedLowestFreeSlotFirst) {
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(false, sorted);
        Counted a, b, c;
        EXPECT_EQ(put(*d, u"a", &a), 1u);
        EXPECT_EQ(put(*d, u"b", &b), 2u);
        EXPECT_EQ(put(*d, u"c", &c), 3u);
        EXPECT_EQ(d->remove(2u), &b);
        EXPECT_FALSE(d->has(2u));
        EXPECT_FALSE(d->has(u"b"));
        EXPECT_EQ(d->at(3u), &c);  // other ids don't move
        EXPECT_EQ(put(*d, u"d", &b), 2u);
        EXPECT_EQ(d->remove(u"a"), &a);
        EXPECT_EQ(d->remove(u"c"), &c);
        EXPECT_EQ(put(*d, u"e"), 1u);
        EXPECT_EQ(put(*d, u"f"), 3u);
        EXPECT_EQ(put(*d, u"g"), 4u);
        EXPECT_EQ(utf8(d->keyAt(2u)), "d");
        EXPECT_EQ(d->numEntries(), 4u);
    }
}

TEST_F(DictionaryTest, PutReplacesAndReturnsWhatTheCallerMustLookAfter) {
    for (bool sorted : {false, true}) {
        Counted::live = 0;
        {
            DictPtr d = makeDict(false, sorted);
            Counted a, b;
            unsigned id = put(*d, u"x");  // a live entry with a null value
            EXPECT_TRUE(d->has(u"x"));
            EXPECT_TRUE(d->has(id));
            EXPECT_EQ(d->at(u"x"), nullptr);
            EXPECT_EQ(d->numEntries(), 1u);

            unsigned again = 0;
            EXPECT_EQ(d->atPut(u"x", &a, again), nullptr);  // displaced value was null
            EXPECT_EQ(again, id);
            EXPECT_EQ(d->atPut(u"x", &a, again), nullptr);  // the same object
            EXPECT_EQ(d->atPut(u"x", &b, again), &a);
            EXPECT_EQ(d->idAt(u"x"), again);
            EXPECT_EQ(d->atPut(id, &a), &b);
            EXPECT_EQ(d->at(id), &a);
            EXPECT_EQ(d->remove(id), &a);
            EXPECT_EQ(Counted::live, 2);
        }
        EXPECT_EQ(Counted::live, 0);

        {
            DictPtr owning = makeDict(true, sorted);
            Counted* a = new Counted;
            unsigned id = put(*owning, u"x", a);
            unsigned again = 0;
            EXPECT_EQ(owning->atPut(u"x", a, again), nullptr);
            EXPECT_EQ(Counted::live, 1);  // putting the same object again deletes nothing
            EXPECT_EQ(owning->atPut(u"x", new Counted, again), nullptr);
            EXPECT_EQ(Counted::live, 1);  // the displaced one was deleted
            EXPECT_EQ(owning->atPut(id, new Counted), nullptr);
            EXPECT_EQ(Counted::live, 1);
            put(*owning, u"y", new Counted);
            put(*owning, u"z", new Counted);
            EXPECT_EQ(owning->remove(u"y"), nullptr);
            EXPECT_EQ(Counted::live, 2);
            EXPECT_TRUE(owning->deletesObjects());
        }
        EXPECT_EQ(Counted::live, 0);  // deleting an owning dictionary deletes its values
    }
}

TEST_F(DictionaryTest, ClearDeletesValuesWhenOwnedOrAsked) {
    Counted::live = 0;
    Counted kept;
    DictPtr d = makeDict(false, true);
    for (const char16_t* k : {u"a", u"b", u"c"}) put(*d, k, &kept);
    d->clear(false);
    EXPECT_EQ(Counted::live, 1);
    EXPECT_EQ(d->numEntries(), 0u);
    EXPECT_TRUE(walk(*d, 0).empty());
    EXPECT_EQ(d->capacity(), 8);
    EXPECT_EQ(put(*d, u"b", new Counted), 1u);
    EXPECT_EQ(put(*d, u"a", new Counted), 2u);
    d->clear(true);
    EXPECT_EQ(Counted::live, 1);
    EXPECT_FALSE(d->has(u"a"));

    DictPtr owning = makeDict(true);
    put(*owning, u"a", new Counted);
    owning->clear(false);
    EXPECT_EQ(Counted::live, 1);
}

TEST_F(DictionaryTest, CaseRuleOfKeys) {
    for (bool sorted : {false, true}) {
        DictPtr noCase = makeDict(false, sorted, true);
        EXPECT_FALSE(noCase->isCaseSensitive());
        Counted a, b;
        unsigned id = put(*noCase, u"Alpha", &a);
        EXPECT_EQ(noCase->at(u"aLPHA"), &a);
        EXPECT_EQ(noCase->idAt(u"ALPHA"), id);
        unsigned again = 0;
        EXPECT_EQ(noCase->atPut(u"ALPHA", &b, again), &a);
        EXPECT_EQ(again, id);
        EXPECT_EQ(utf8(noCase->keyAt(id)), "Alpha");  // the text as first stored
        EXPECT_EQ(noCase->numEntries(), 1u);

        DictPtr withCase = makeDict(false, sorted, false);
        EXPECT_TRUE(withCase->isCaseSensitive());
        EXPECT_NE(put(*withCase, u"Alpha", &a), put(*withCase, u"alpha", &b));
        EXPECT_EQ(withCase->at(u"Alpha"), &a);
        EXPECT_EQ(withCase->at(u"alpha"), &b);
        EXPECT_EQ(withCase->at(u"ALPHA"), nullptr);
        EXPECT_EQ(withCase->numEntries(), 2u);
    }
}

TEST_F(DictionaryTest, SortedWalksByKeyOrIdUnsortedAlwaysById) {
    Counted v[4];
    DictPtr sorted = makeDict(false, true);
    DictPtr unsorted = makeDict(false, false);
    const char16_t* keys[] = {u"delta", u"alpha", u"charlie", u"bravo"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(put(*sorted, keys[i], &v[i]), unsigned(i + 1));
        put(*unsorted, keys[i], &v[i]);
    }
    std::vector<Step> byId = {{"delta", 1, &v[0]}, {"alpha", 2, &v[1]}, {"charlie", 3, &v[2]}, {"bravo", 4, &v[3]}};
    std::vector<Step> byKey = {{"alpha", 2, &v[1]}, {"bravo", 4, &v[3]}, {"charlie", 3, &v[2]}, {"delta", 1, &v[0]}};
    EXPECT_EQ(walk(*sorted, 0), byKey);
    EXPECT_EQ(walk(*sorted, 1), byId);
    EXPECT_EQ(walk(*sorted, 7), byId);
    EXPECT_EQ(walk(*unsorted, 0), byId);

    // Removal and a new key keep the index and the slots in step.
    EXPECT_EQ(sorted->remove(u"charlie"), &v[2]);
    EXPECT_EQ(put(*sorted, u"aardvark", &v[2]), 3u);
    EXPECT_EQ(sorted->numEntries(), 4u);
    byKey = {{"aardvark", 3, &v[2]}, {"alpha", 2, &v[1]}, {"bravo", 4, &v[3]}, {"delta", 1, &v[0]}};
    EXPECT_EQ(walk(*sorted, 0), byKey);

    // The order is by unit value without the ignore-case switch, folded with it.
    DictPtr withCase = makeDict(false, true, false);
    DictPtr noCase = makeDict(false, true, true);
    for (const char16_t* k : {u"b", u"A", u"C", u"ab", u"a"}) {
        put(*withCase, k);
        put(*noCase, k);
    }
    auto keysOf = [](std::vector<Step> steps) {
        std::string s;
        for (auto& st : steps) s += st.key + " ";
        return s;
    };
    EXPECT_EQ(keysOf(walk(*withCase, 0)), "A C a ab b ");
    EXPECT_EQ(keysOf(walk(*noCase, 0)), "A ab b C ");  // "a" found "A"
    // Ignoring case compares as lower case: '[' and '_' lie between 'Z' and 'a'.
    DictPtr folded = makeDict(false, true, true);
    for (const char16_t* k : {u"_b", u"A", u"[", u"z"}) put(*folded, k);
    EXPECT_EQ(keysOf(walk(*folded, 0)), "[ _b A z ");
}

TEST_F(DictionaryTest, ResetKeyKeepsTheIdAndMovesTheIndex) {
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(false, sorted);
        Counted a, b, c;
        put(*d, u"m", &a);
        unsigned id = put(*d, u"n", &b);
        put(*d, u"o", &c);
        EXPECT_TRUE(d->resetKey(id, u"a"));
        EXPECT_FALSE(d->has(u"n"));
        EXPECT_EQ(d->at(u"a"), &b);
        EXPECT_EQ(d->idAt(u"a"), id);
        EXPECT_TRUE(d->resetKey(u"o", u"b"));
        EXPECT_EQ(d->idAt(u"b"), 3u);
        EXPECT_EQ(utf8(d->keyAt(3u)), "b");
        if (sorted) {
            std::vector<Step> byKey = {{"a", 2, &b}, {"b", 3, &c}, {"m", 1, &a}};
            EXPECT_EQ(walk(*d, 0), byKey);
        }
        EXPECT_FALSE(d->resetKey(9u, u"z"));
        EXPECT_FALSE(d->resetKey(0u, u"z"));
        EXPECT_FALSE(d->resetKey(u"absent", u"z"));
        EXPECT_FALSE(d->resetKey(u"", u"z"));
        EXPECT_FALSE(d->resetKey(u"m", u""));
        EXPECT_FALSE(d->resetKey(u"m", nullptr));
        EXPECT_EQ(d->at(u"m"), &a);
        EXPECT_EQ(d->numEntries(), 3u);
    }
}

TEST_F(DictionaryTest, AtKeyAndIdPutPlacesAnEntryAtAChosenId) {
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(false, sorted);
        Counted a, b;
        EXPECT_TRUE(d->atKeyAndIdPut(u"five", 5, &a));
        EXPECT_EQ(d->numEntries(), 1u);
        EXPECT_EQ(d->at(5u), &a);
        EXPECT_EQ(d->at(u"five"), &a);
        EXPECT_FALSE(d->has(3u));
        EXPECT_EQ(put(*d, u"p"), 1u);
        EXPECT_FALSE(d->atKeyAndIdPut(u"again", 5, &b));  // id taken
        EXPECT_FALSE(d->atKeyAndIdPut(u"again", 1, &b));
        EXPECT_FALSE(d->atKeyAndIdPut(u"again", 0, &b));
        EXPECT_FALSE(d->atKeyAndIdPut(u"", 2, &b));
        EXPECT_FALSE(d->atKeyAndIdPut(nullptr, 2, &b));
        EXPECT_FALSE(d->atKeyAndIdPut(u"again", 2, nullptr));
        EXPECT_EQ(d->numEntries(), 2u);
        EXPECT_EQ(put(*d, u"q"), 2u);
        EXPECT_EQ(put(*d, u"r"), 3u);
        EXPECT_EQ(put(*d, u"s"), 4u);
        EXPECT_EQ(put(*d, u"t"), 6u);
        EXPECT_EQ(walk(*d, 1).size(), 6u);
        EXPECT_EQ(walk(*d, 1)[4], (Step{"five", 5, &a}));
    }
}

TEST_F(DictionaryTest, RemovalUnderAnIdOrderWalk) {
    Counted::live = 0;
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(true, sorted);
        const char16_t* keys[] = {u"e", u"d", u"c", u"b", u"a"};
        for (const char16_t* k : keys) put(*d, k, new Counted);
        d->remove(2u);
        std::vector<unsigned> seen;
        std::unique_ptr<KvRxDictionaryIterator> it(d->newIterator(1));
        for (bool on = !it->done(); on; on = it->next()) {
            seen.push_back(it->id());
            if (it->id() != 4) {
                EXPECT_EQ(d->remove(it->id()), nullptr);
            }
            EXPECT_EQ(it->key(), it->id() == 4 ? d->keyAt(4u) : nullptr);
        }
        EXPECT_EQ(seen, (std::vector<unsigned>{1, 3, 4, 5}));
        EXPECT_EQ(d->numEntries(), 1u);
        EXPECT_EQ(utf8(d->keyAt(4u)), "b");
        EXPECT_EQ(Counted::live, 1);
    }
    EXPECT_EQ(Counted::live, 0);
}

TEST_F(DictionaryTest, AnIdHintIsTakenOnlyWhereALookUpByKeyWouldLand) {
    for (bool sorted : {false, true}) {
        DictPtr d = makeDict(false, sorted, true);
        Counted a, b;
        put(*d, u"Alpha", &a);
        put(*d, u"beta", &b);
        EXPECT_EQ(d->idHolding(u"ALPHA", &a, 1), 1u);
        EXPECT_EQ(d->idHolding(u"alpha", &a, 2), 1u);  // the hint holds another value
        EXPECT_EQ(d->idHolding(u"alpha", &a, 7), 1u);  // no entry at the hint
        EXPECT_EQ(d->idHolding(u"alpha", &b, 1), 0u);
        // The hint holds the value under a key the text no longer matches.
        EXPECT_TRUE(d->resetKey(1u, u"gamma"));
        EXPECT_EQ(d->idHolding(u"alpha", &a, 1), 0u);
        EXPECT_FALSE(d->removeIfHolds(u"alpha", &a, 1));
        if (!sorted) {
            // "beta" at ids 2 and 5: a look-up by the key lands on 2, so 5 holds nothing
            // a look-up could take out.
            EXPECT_TRUE(d->atKeyAndIdPut(u"BETA", 5, &a));
            EXPECT_EQ(d->idHolding(u"beta", &a, 5), 0u);
            EXPECT_FALSE(d->removeIfHolds(u"beta", &a, 5));
            EXPECT_EQ(d->numEntries(), 3u);
            EXPECT_TRUE(d->removeIfHolds(u"beta", &b, 5));
            EXPECT_EQ(d->at(u"beta"), &a);
        }
        EXPECT_TRUE(d->removeIfHolds(u"GAMMA", &a, 1));
        EXPECT_EQ(d->at(u"gamma"), nullptr);
        EXPECT_EQ(d->numEntries(), 1u);
    }
}

TEST_F(DictionaryTest, TakingOutByIdsReadsAsRemovingOneByOne) {
    Counted::live = 0;
    for (bool sorted : {false, true}) {
        // `d` takes entries out in batches; `twin` removes the same one at a time.
        DictPtr d = makeDict(true, sorted), twin = makeDict(false, sorted);
        std::vector<Counted*> values;
        for (int i = 0; i < 10; ++i) {
            values.push_back(new Counted);
            std::u16string key = u"k" + std::u16string(1, char16_t(u'a' + (i * 7) % 10));
            put(*d, key.c_str(), values.back());
            put(*twin, key.c_str(), values.back());
        }
        auto takeOut = [&](std::vector<unsigned> ids) {
            d->takeOut(ids.data(), ids.size());
            for (unsigned id : ids) EXPECT_NE(twin->remove(id), nullptr);
            EXPECT_EQ(walk(*d, 0), walk(*twin, 0));
            EXPECT_EQ(walk(*d, 1), walk(*twin, 1));
            EXPECT_EQ(d->numEntries(), twin->numEntries());
        };
        takeOut({4, 2});
        // Walks by id under way across the last batch, one on a slot that empties.
        std::unique_ptr<KvRxDictionaryIterator> it(d->newIterator(1)), twinIt(twin->newIterator(1));
        for (int i = 0; i < 3; ++i) it->next(), twinIt->next();
        takeOut({7, 1, 10, 3, 9, 5, 8, 6});
        EXPECT_EQ(it->done(), twinIt->done());
        EXPECT_EQ(it->id(), twinIt->id());
        EXPECT_EQ(it->key(), nullptr);
        EXPECT_EQ(it->next(), twinIt->next());
        EXPECT_EQ(Counted::live, 10);
        for (unsigned id = 1; id <= 10; ++id) EXPECT_FALSE(d->has(id));
        EXPECT_FALSE(d->has(u"ka"));
        // New entries take the same ids in both.
        for (const char16_t* key : {u"n1", u"n2", u"ka"}) EXPECT_EQ(put(*d, key), put(*twin, key));
        EXPECT_TRUE(d->atKeyAndIdPut(u"n9", 9, values[0]));
        EXPECT_TRUE(twin->atKeyAndIdPut(u"n9", 9, values[0]));
        EXPECT_EQ(put(*d, u"n4"), put(*twin, u"n4"));
        EXPECT_EQ(walk(*d, 0), walk(*twin, 0));
        EXPECT_EQ(walk(*d, 1), walk(*twin, 1));
        unsigned nine = 9;
        d->takeOut(&nine, 1);
        EXPECT_EQ(Counted::live, 10);
        for (Counted* v : values) delete v;
    }
}

TEST_F(DictionaryTest, GrowthDoublesUpTo8192ThenAdds8192) {
    DictPtr d = makeDict();
    std::vector<int> capacities;
    for (int i = 0; i < 33; ++i) {
        std::u16string key = u"k" + lumtest::u16(std::to_string(i));
        put(*d, key.c_str());
        if (capacities.empty() || capacities.back() != d->capacity()) capacities.push_back(d->capacity());
    }
    EXPECT_EQ(capacities, (std::vector<int>{8, 16, 32, 64}));

    // A capacity below 8 still grows by at least 8; a far id takes exactly what it needs.
    DictPtr small = makeDict(false, false, false, nullptr, 5);
    EXPECT_EQ(small->capacity(), 5);
    for (int i = 1; i <= 6; ++i) {
        std::u16string key = u"s" + lumtest::u16(std::to_string(i));
        EXPECT_TRUE(small->atKeyAndIdPut(key.c_str(), unsigned(i), small.get()));
    }
    EXPECT_EQ(small->capacity(), 13);
    EXPECT_TRUE(small->atKeyAndIdPut(u"far", 100, small.get()));
    EXPECT_EQ(small->capacity(), 100);

    struct Case { unsigned reserve; std::vector<int> after; };
    for (const Case& c : {Case{4096, {8192, 16384}}, Case{8191, {16382, 24574}},
                          Case{8192, {16384, 24576, 32768}}}) {
        DictPtr big = makeDict(false, true, false, nullptr, c.reserve);
        EXPECT_EQ(big->capacity(), int(c.reserve));
        EXPECT_TRUE(big->atKeyAndIdPut(u"first", c.reserve, big.get()));
        EXPECT_EQ(big->capacity(), int(c.reserve));
        unsigned id = c.reserve;
        for (int expected : c.after) {
            std::u16string key = u"at" + lumtest::u16(std::to_string(id + 1));
            EXPECT_TRUE(big->atKeyAndIdPut(key.c_str(), ++id, big.get()));
            EXPECT_EQ(big->capacity(), expected) << "after id " << id;
            id = unsigned(expected);
            EXPECT_TRUE(big->atKeyAndIdPut((key + u"end").c_str(), id, big.get()));
        }
        EXPECT_EQ(put(*big, u"low"), 1u);
        EXPECT_EQ(big->at(c.reserve), big.get());
        EXPECT_EQ(big->numEntries(), unsigned(2 * c.after.size() + 2));
    }
}

TEST_F(DictionaryTest, RestrictedDictionaryAdmitsOnlyDerivedObjects) {
    const Classes& cls = classes();
    ASSERT_NE(cls.unlinked, nullptr);
    ASSERT_EQ(cls.unlinked->myParent(), nullptr);
    Classed base(cls.base), derived(cls.derived), other(cls.other), unlinked(cls.unlinked), none(nullptr);
    Counted rootObject;  // of the root class, which has no parent

    DictPtr d = makeDict(false, false, false, cls.base);
    unsigned id = 555;
    EXPECT_EQ(d->atPut(u"other", &other, id), &other);
    EXPECT_EQ(id, 555u);
    EXPECT_FALSE(d->has(u"other"));
    EXPECT_FALSE(d->atKeyAndIdPut(u"other", 3, &other));
    EXPECT_FALSE(d->has(3u));

    unsigned baseId = put(*d, u"base", &base);
    EXPECT_TRUE(d->atKeyAndIdPut(u"derived", 4, &derived));
    EXPECT_EQ(d->atPut(baseId, &other), &other);
    EXPECT_EQ(d->at(baseId), &base);
    EXPECT_EQ(d->atPut(baseId, &derived), &base);
    EXPECT_EQ(d->atPut(baseId, nullptr), &derived);
    EXPECT_EQ(put(*d, u"null", nullptr), 2u);

    // The key form lets pass what has no parent yet, or no class at all; the others don't.
    EXPECT_EQ(put(*d, u"unlinked", &unlinked), 3u);
    EXPECT_EQ(d->at(u"unlinked"), &unlinked);
    EXPECT_EQ(put(*d, u"none", &none), 5u);
    EXPECT_EQ(put(*d, u"root", &rootObject), 6u);
    EXPECT_FALSE(d->atKeyAndIdPut(u"u2", 9, &unlinked));
    EXPECT_FALSE(d->atKeyAndIdPut(u"n2", 9, &none));
    EXPECT_EQ(d->atPut(baseId, &unlinked), &unlinked);
    EXPECT_EQ(d->atPut(baseId, &none), &none);
    // A refused object is given back before the id is looked at.
    EXPECT_EQ(d->atPut(99u, &other), &other);
    EXPECT_EQ(d->numEntries(), 6u);
}

TEST_F(DictionaryTest, PutByAnIdWithoutEntryIsFatal) {
    lumtest::RecordingCrashRecorder recorder;
    DictPtr d = makeDict();
    Counted a;
    put(*d, u"a", &a);
    put(*d, u"b", &a);
    d->remove(u"b");
    for (unsigned bad : {0u, 2u, 3u, 100u}) {
        EXPECT_LUM_THROW(d->atPut(bad, &a), "KvRxDictionary::atPut - Invalid id");
    }
    EXPECT_EQ(recorder.exceptions.size(), 4u);
    EXPECT_EQ(d->numEntries(), 1u);
    EXPECT_EQ(d->at(1u), &a);
}

// ---------------------------------------------------------------------------
// KvRxString
// ---------------------------------------------------------------------------

std::string textOf(const KvRxString& s) { return utf8(std::u16string(s.text(), size_t(s.length()))); }

TEST_F(DictionaryTest, StringConstructionAndAssignment) {
    const char16_t* shared = KvRxString().text();
    KvRxString empty(u"", true), null(static_cast<const char16_t*>(nullptr), true);
    EXPECT_EQ(empty.text(), shared);
    EXPECT_EQ(null.text(), shared);
    EXPECT_EQ(KvRxString(u"abc", 0, false).text(), shared);
    EXPECT_EQ(KvRxString(u"abc", -2, false).text(), shared);

    KvRxString first(u"abcdef", 3, true);
    EXPECT_EQ(textOf(first), "abc");
    EXPECT_EQ(first.text()[3], 0);
    KvRxString padded(u"ab", 4, false);  // copied as wcsncpy would, length as asked
    EXPECT_EQ(padded.length(), 4);
    EXPECT_EQ(padded.text()[2], 0);

    KvRxString upTo(u"key|rest", u'|', false);
    EXPECT_EQ(textOf(upTo), "key");
    KvRxString stopFirst(u"|rest", u'|', true);
    EXPECT_EQ(stopFirst.length(), 0);
    EXPECT_EQ(stopFirst.text()[0], 0);
    EXPECT_NE(stopFirst.text(), shared);

    KvRxString copy(first);
    EXPECT_TRUE(copy.ignoresCase());
    EXPECT_NE(copy.text(), first.text());

    copy = u"longer text";
    EXPECT_EQ(textOf(copy), "longer text");
    const char16_t* own = copy.text();
    copy = own;
    EXPECT_EQ(copy.text(), own);
    EXPECT_EQ(textOf(copy), "longer text");
    copy = u"";
    EXPECT_EQ(copy.text(), shared);
    EXPECT_EQ(copy.length(), 0);
    EXPECT_TRUE(copy.ignoresCase());

    KvRxString grow(u"ab", false);
    grow.append(grow.text());
    EXPECT_EQ(textOf(grow), "abab");
    grow.append(u"c");
    EXPECT_EQ(textOf(grow), "ababc");
    KvRxString fromNothing;
    fromNothing.append(u"xy");
    EXPECT_EQ(textOf(fromNothing), "xy");
}

TEST_F(DictionaryTest, StringBufferRules) {
    const char16_t* shared = KvRxString().text();
    KvRxString none;
    EXPECT_EQ(none.getBuffer(0), shared);
    EXPECT_EQ(none.getBuffer(-1), nullptr);
    none.releaseBuffer(5);  // no effect on the shared constant
    EXPECT_EQ(none.length(), 0);
    EXPECT_EQ(shared[0], 0);

    KvRxString s(u"abc", false);
    char16_t* buf = s.getBuffer(10);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(s.length(), 10);
    std::u16string four = u"wxyz";
    std::copy(four.c_str(), four.c_str() + 5, buf);
    s.releaseBuffer(-1);
    EXPECT_EQ(textOf(s), "wxyz");

    s.releaseBuffer(2);
    EXPECT_EQ(utf8(s.text()), "wx");
    s.releaseBuffer(5);  // above the length: cut at 0
    EXPECT_EQ(s.length(), 0);
    EXPECT_EQ(s.text()[0], 0);
    EXPECT_NE(s.text(), shared);
    s.releaseBuffer(-1);
    EXPECT_EQ(s.length(), 0);

    buf = s.getBuffer(3);  // fits the block: no zero anywhere up to the length
    for (int i = 0; i <= 3; ++i) buf[i] = u'q';
    s.releaseBuffer(-1);
    EXPECT_EQ(utf8(s.text()), "qqq");

    KvRxString full(u"ab", false);
    buf = full.getBuffer(4);
    std::copy(four.c_str(), four.c_str() + 5, buf);
    full.releaseBuffer(-1);  // the text fills the announced length: released
    EXPECT_EQ(full.text(), shared);
    EXPECT_EQ(full.length(), 0);
}

TEST_F(DictionaryTest, StringComparisonAndCopy) {
    KvRxString noCase(u"Abc", true), withCase(u"Abc", false), none;
    EXPECT_TRUE(noCase.isEqualTo(u"abc"));
    EXPECT_FALSE(withCase.isEqualTo(u"abc"));
    EXPECT_TRUE(withCase.isEqualTo(u"Abc"));
    EXPECT_FALSE(withCase.isEqualTo(u"Abcd"));
    EXPECT_FALSE(withCase.isEqualTo(static_cast<const char16_t*>(nullptr)));
    EXPECT_TRUE(withCase.isEqualTo(withCase.text()));
    EXPECT_TRUE(none.isEqualTo(u""));
    EXPECT_FALSE(none.isEqualTo(u"a"));

    KvRxString lower(u"abc", false);
    Counted notAString;
    EXPECT_TRUE(noCase.isEqualTo(static_cast<const KvRxObject*>(&lower)));
    EXPECT_FALSE(withCase.isEqualTo(static_cast<const KvRxObject*>(&lower)));
    EXPECT_FALSE(withCase.isEqualTo(static_cast<const KvRxObject*>(&notAString)));

    EXPECT_EQ(withCase.comparedTo(nullptr), KvRx::kGreaterThan);
    EXPECT_EQ(withCase.comparedTo(&withCase), KvRx::kEqual);
    EXPECT_EQ(withCase.comparedTo(&lower), KvRx::kLessThan);  // 'A' < 'a'
    EXPECT_EQ(lower.comparedTo(&withCase), KvRx::kGreaterThan);
    EXPECT_EQ(noCase.comparedTo(&lower), KvRx::kEqual);
    EXPECT_EQ(KvRxString(u"abd", true).comparedTo(&withCase), KvRx::kGreaterThan);
    EXPECT_EQ(none.comparedTo(&lower), KvRx::kLessThan);
    EXPECT_EQ(lower.comparedTo(&none), KvRx::kGreaterThan);
    KvRxString other;
    EXPECT_EQ(none.comparedTo(&other), KvRx::kEqual);

    // Only the left key's switch counts; a text that ends first is less.
    KvRxString ab(u"ab", false), abc(u"abc", false), upper(u"ABD", false), high(u"\xFF00", false);
    EXPECT_TRUE(KvRxString::less(&ab, &abc));
    EXPECT_FALSE(KvRxString::less(&abc, &ab));
    EXPECT_FALSE(KvRxString::less(&ab, &ab));
    EXPECT_TRUE(KvRxString::less(nullptr, &ab));
    EXPECT_FALSE(KvRxString::less(&ab, nullptr));
    EXPECT_TRUE(KvRxString::less(&upper, &abc));
    EXPECT_TRUE(KvRxString::less(&abc, &high));
    KvRxString abcNoCase(u"abc", true);
    EXPECT_TRUE(KvRxString::less(&abcNoCase, &upper));
    EXPECT_FALSE(KvRxString::less(&abc, &upper));

    KvRxString target(u"keep", false);
    EXPECT_EQ(target.copyFrom(&notAString), Kvore::eWrongObjectType);
    EXPECT_EQ(textOf(target), "keep");
    EXPECT_FALSE(target.ignoresCase());
    EXPECT_EQ(target.copyFrom(&noCase), Kvore::eOk);
    EXPECT_EQ(textOf(target), "Abc");
    EXPECT_TRUE(target.ignoresCase());
}

// The key order passes over a long shared start in groups of units; it must answer as a
// comparison of the whole texts: case met inside the shared start, a zero unit inside a
// counted key, one key the start of another, and units that fold outside ASCII.
TEST_F(DictionaryTest, KeyOrderOverLongSharedStartsAnswersAsTheWholeTexts) {
    std::vector<std::unique_ptr<KvRxString>> keys;
    const char16_t* texts[] = {u"BenchMany1", u"BenchMany10", u"benchmany100", u"BENCHMANY2",
                               u"BenchManyA", u"BenchManya", u"BenchMan", u"AbcdEfghIjkl",
                               u"abcdefghijkm", u"Ab\u00c4d\u00e4", u"Ab\u00e4D\u00c4x", u"A"};
    for (bool ignoreCase : {true, false}) {
        for (const char16_t* text : texts) keys.push_back(std::make_unique<KvRxString>(text, ignoreCase));
        // Counted keys with a zero inside, after an equal start of four units and more.
        keys.push_back(std::make_unique<KvRxString>(u"AbcdEf", 12, ignoreCase));
        keys.push_back(std::make_unique<KvRxString>(u"abcdef", 12, ignoreCase));
        keys.push_back(std::make_unique<KvRxString>(u"AbcdEfg", 12, ignoreCase));
        // A zero inside the first group, different units after it: the texts are equal.
        for (const char16_t* units : {u"Ab\0dwxyz", u"Ab\0dabcd"}) {
            keys.push_back(std::make_unique<KvRxString>(u"", ignoreCase));
            LumCharOp::copy(keys.back()->getBuffer(8), units, 9);
            keys.back()->releaseBuffer(8);
        }
    }
    for (const auto& a : keys) {
        for (const auto& b : keys) {
            if (a->ignoresCase() != b->ignoresCase()) continue;
            int whole = a->ignoresCase() ? LumCharOp::compareNoCase(a->text(), b->text())
                                         : LumCharOp::compare(a->text(), b->text());
            EXPECT_EQ(KvRxString::less(a.get(), b.get()), whole < 0)
                << utf8(a->text()) << " against " << utf8(b->text());
        }
    }
}

}  // namespace
