// The dictionary's key index and free-slot map against a plain model of the rules they
// stand for: the first matching entry from slot 0 by the case rule, the lowest free
// slot for a new key, the key order of a sorted walk; and look-ups by key that
// allocate nothing. This program counts every allocation: the global operator new is
// replaced and the runtime's block allocator is put in place of the exported one.
#include "testsupport.h"

#include "collections/kvrxdictionaryimp.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace {
long gAllocations = 0;
}

void* _lumMalloc(size_t size) {
    ++gAllocations;
    return std::malloc(size ? size : 1);
}
void* operator new(size_t size) {
    ++gAllocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

using lumtest::utf8;
using DictPtr = std::unique_ptr<KvRxDictionaryImp>;

DictPtr makeDict(bool sorted, bool ignoreCase) {
    return DictPtr(KvRxDictionaryImp::createDictionary(0, false, sorted, ignoreCase, nullptr));
}

std::u16string keyOf(int i) {
    std::u16string key = u"Key";
    for (char c : std::to_string(i)) key.push_back(char16_t(c));
    return key;
}

std::u16string upper(std::u16string s) {
    for (auto& c : s)
        if (c >= u'a' && c <= u'z') c = char16_t(c - 32);
    return s;
}

class DictionaryIndexTest : public lumtest::RuntimeTest {};

TEST_F(DictionaryIndexTest, CaseBlindKeysFoldOnlyLettersInEveryPlaceOfALongKey) {
    // The units around the ASCII letters ('@', '[', '`', '{') stay apart from the ones
    // 0x20 away, wherever they stand in a key; letters, ASCII or not, match in any case,
    // also where a letter beyond ASCII folds to an ASCII one (KELVIN SIGN, LONG S).
    DictPtr d = makeDict(false, true);
    unsigned id = 0;
    const std::u16string apart[] = {u"@[@[@[@[x", u"`{`{`{`{x", u"x@[@[@[@[", u"x`{`{`{`{", u"[Z@A", u"{z`a"};
    for (const std::u16string& key : apart) EXPECT_EQ(d->atPut(key.c_str(), nullptr, id), nullptr);
    EXPECT_EQ(d->numEntries(), 6u);
    for (const std::u16string& key : apart) EXPECT_EQ(utf8(d->keyAt(d->idAt(key.c_str()))), utf8(key.c_str()));
    const char16_t* mixed[][2] = {{u"ABCDEFGHIJ", u"abcdefghij"},
                                  {u"\u00c0bcd\u00e9FGH", u"\u00e0BCD\u00c9fgh"},
                                  {u"Zz\u0130zAa", u"zZ\u0130Zaa"},
                                  {u"MNOPqrstUVWXyz", u"mnopQRSTuvwxYZ"},
                                  {u"WXYZwxyz@AZ[", u"wxyzWXYZ@az["},
                                  {u"KELVINS", u"\u212aelvins"},
                                  {u"abcSSSSs", u"ABC\u017fs\u017fS\u017f"}};
    for (auto& pair : mixed) {
        EXPECT_EQ(d->atPut(pair[0], nullptr, id), nullptr);
        EXPECT_EQ(d->idAt(pair[1]), id) << utf8(pair[1]);
        EXPECT_EQ(d->idAt(pair[0]), id);
    }
    EXPECT_EQ(d->idAt(u"ABCDEFGHIK"), 0u);
    EXPECT_EQ(d->idAt(u"ABCDEFGHI"), 0u);
}

TEST_F(DictionaryIndexTest, LookupsByKeyAllocateNothing) {
    for (int kind = 0; kind < 4; ++kind) {
        bool sorted = kind & 1, ignoreCase = kind & 2;
        DictPtr d = makeDict(sorted, ignoreCase);
        std::vector<std::u16string> probes;
        for (int i = 0; i < 1000; ++i) {
            unsigned id = 0;
            d->atPut(keyOf(i).c_str(), nullptr, id);
            probes.push_back(ignoreCase ? upper(keyOf(i)) : keyOf(i));
        }
        probes.push_back(u"Key1000");
        probes.push_back(u"\u00c4-not-there");
        long before = gAllocations;
        unsigned found = 0;
        for (const auto& p : probes) {
            found += d->at(p.c_str()) == nullptr;
            found += d->has(p.c_str());
            found += d->idAt(p.c_str()) != 0;
        }
        long allocations = gAllocations - before;
        EXPECT_EQ(allocations, 0) << "kind " << kind;
        EXPECT_EQ(found, 1002u + 2 * 1000u) << "kind " << kind;
    }
}

// The rules the indexes stand for, as plain walks over a copy of the slots.
struct Model {
    bool ignoreCase;
    std::vector<std::u16string> slots;  // empty: free
    bool same(const std::u16string& a, const std::u16string& b) const {
        return ignoreCase ? upper(a) == upper(b) : a == b;
    }
    unsigned idAt(const std::u16string& key) const {
        for (size_t i = 0; i < slots.size(); ++i)
            if (!slots[i].empty() && same(slots[i], key)) return unsigned(i) + 1;
        return 0;
    }
    unsigned nextNewId() const {
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].empty()) return unsigned(i) + 1;
        return unsigned(slots.size()) + 1;
    }
};

// Keys differing in case, held by several entries at once in an unsorted dictionary
// (put at an id and reset keys don't test for a key in use), then removed and reset in
// a random order: every look-up finds the lowest id that holds the key.
TEST_F(DictionaryIndexTest, LookupFindsTheFirstMatchingEntryThroughEveryChange) {
    const std::u16string names[] = {u"alpha", u"Alpha", u"ALPHA", u"beta", u"Beta", u"gamma"};
    for (int ignoreCase = 0; ignoreCase < 2; ++ignoreCase) {
        DictPtr d = makeDict(false, ignoreCase);
        Model model{bool(ignoreCase), {}};
        std::mt19937 random(7 + ignoreCase);
        for (int step = 0; step < 3000; ++step) {
            const std::u16string& name = names[random() % 6];
            unsigned id = unsigned(random() % 24) + 1;
            switch (random() % 5) {
                case 0: {
                    unsigned expected = model.idAt(name) ? model.idAt(name) : model.nextNewId();
                    unsigned got = 0;
                    d->atPut(name.c_str(), nullptr, got);
                    ASSERT_EQ(got, expected) << step;
                    if (got > model.slots.size()) model.slots.resize(got);
                    if (model.slots[got - 1].empty()) model.slots[got - 1] = name;
                    break;
                }
                case 1: {
                    bool free = id > model.slots.size() || model.slots[id - 1].empty();
                    ASSERT_EQ(d->atKeyAndIdPut(name.c_str(), id, d.get()), free) << step;
                    if (!free) break;
                    if (id > model.slots.size()) model.slots.resize(id);
                    model.slots[id - 1] = name;
                    break;
                }
                case 2: {
                    bool live = id <= model.slots.size() && !model.slots[id - 1].empty();
                    ASSERT_EQ(d->resetKey(id, name.c_str()), live) << step;
                    if (live) model.slots[id - 1] = name;
                    break;
                }
                case 3: {
                    bool live = id <= model.slots.size() && !model.slots[id - 1].empty();
                    ASSERT_EQ(d->has(id), live) << step;
                    d->remove(id);
                    if (live) model.slots[id - 1].clear();
                    break;
                }
                default: {
                    unsigned first = model.idAt(name);
                    ASSERT_EQ(d->has(name.c_str()), first != 0) << step;
                    d->remove(name.c_str());
                    if (first) model.slots[first - 1].clear();
                }
            }
            unsigned live = 0;
            for (const auto& s : model.slots) live += !s.empty();
            ASSERT_EQ(d->numEntries(), live) << step;
            for (const auto& n : names)
                ASSERT_EQ(d->idAt(n.c_str()), model.idAt(n)) << utf8(n.c_str()) << " at step " << step;
        }
    }
}

// Many keys, half of them removed and put again: the new keys fill the freed ids from
// the lowest up, and a sorted walk gives the key order.
TEST_F(DictionaryIndexTest, ManyKeysReuseTheLowestIdsAndWalkInKeyOrder) {
    const int n = 20000;
    DictPtr d = makeDict(true, true);
    for (int i = 0; i < n; ++i) {
        unsigned id = 0;
        d->atPut(keyOf(i).c_str(), nullptr, id);
        ASSERT_EQ(id, unsigned(i) + 1);
    }
    for (int i = n - 1; i >= 0; i -= 2) ASSERT_EQ(d->remove(unsigned(i) + 1), nullptr);
    EXPECT_EQ(d->numEntries(), unsigned(n / 2));
    for (int i = 0; i < n / 2; ++i) {
        unsigned id = 0;
        d->atPut(upper(keyOf(n + i)).c_str(), nullptr, id);
        ASSERT_EQ(id, unsigned(2 * i) + 2);
        ASSERT_EQ(d->idAt(keyOf(n + i).c_str()), id);
        ASSERT_EQ(d->idAt(keyOf(2 * i + 1).c_str()), 0u) << "removed";
    }
    std::map<std::u16string, unsigned> order;
    for (unsigned id = 1; id <= unsigned(n); ++id) order[upper(d->keyAt(id))] = id;
    std::unique_ptr<KvRxDictionaryIterator> it(d->newIterator(0));
    for (const auto& entry : order) {
        ASSERT_FALSE(it->done());
        ASSERT_EQ(it->id(), entry.second);
        it->next();
    }
    EXPECT_TRUE(it->done());
    d->clear(false);
    unsigned id = 0;
    d->atPut(u"again", nullptr, id);
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(d->idAt(keyOf(0).c_str()), 0u);
}

// Keys of every length that come and go in waves, keys reset, and a dictionary emptied
// and filled again keep the sorted walk exact: every live key once, in order, each with
// its own id; the blocks of removed keys and nodes serve new ones.
TEST_F(DictionaryIndexTest, SortedWalksStayExactAsKeysComeAndGoInWaves) {
    DictPtr d = makeDict(true, true);
    std::map<std::u16string, unsigned> model;  // upper-case key -> id
    std::mt19937 random(11);
    auto check = [&] {
        std::unique_ptr<KvRxDictionaryIterator> it(d->newIterator(0));
        for (const auto& entry : model) {
            if (it->done()) return false;
            if (upper(it->key()) != entry.first || it->id() != entry.second) return false;
            it->next();
        }
        return it->done() && d->numEntries() == model.size();
    };
    for (int wave = 0; wave < 6; ++wave) {
        for (int i = 0; i < 1500; ++i) {
            // Keys of every length: short ones, and ones too long for a pooled block.
            int n = int(random() % 4000);
            std::u16string key = std::u16string(size_t(n % 7 == 0 ? 150 : n % 40), u'p') + keyOf(n);
            unsigned id = 0;
            d->atPut(key.c_str(), nullptr, id);
            model.emplace(upper(key), id);
        }
        ASSERT_TRUE(check()) << "after filling, wave " << wave;
        for (auto it = model.begin(); it != model.end();) {
            if (random() % 3) {
                ++it;
                continue;
            }
            ASSERT_EQ(d->remove(it->second), nullptr);
            it = model.erase(it);
        }
        ASSERT_TRUE(check()) << "after removing, wave " << wave;
        // A key reset to one of another length keeps its id and takes its new place.
        if (!model.empty()) {
            auto first = model.begin();
            unsigned id = first->second;
            std::u16string renamed = u"R" + std::u16string(size_t(wave * 37), u'r') + keyOf(wave);
            ASSERT_TRUE(d->resetKey(id, renamed.c_str()));
            model.erase(first);
            model.emplace(upper(renamed), id);
        }
        ASSERT_TRUE(check()) << "after a reset, wave " << wave;
        if (wave == 3) {
            d->clear(false);
            model.clear();
            ASSERT_TRUE(check());
        }
    }
}

// The sorted walk orders keys as the text comparison of the case rule does, beyond
// ASCII too: units that fold alike sort alike, a key sorts after its own start, and a
// long shared start doesn't change the order.
TEST_F(DictionaryIndexTest, SortedWalksFollowTheTextComparisonOfTheCaseRule) {
    const char16_t units[] = {u'a', u'B', u'b', u'_', u'[', u'\u00C9', u'\u00E9', u'\u03A3', u'\u03C3', u'z'};
    std::mt19937 random(7);
    for (bool ignoreCase : {false, true}) {
        DictPtr d = makeDict(true, ignoreCase);
        for (int i = 0; i < 600; ++i) {
            // Starts shared by many keys, one as long as the units a node holds.
            const char16_t* starts[] = {u"", u"", u"SharedLongStart", u"SharedStrt12"};
            std::u16string key = starts[i % 4];
            for (size_t n = random() % 5; n > 0; --n) key.push_back(units[random() % 10]);
            unsigned id = 0;
            d->atPut(key.c_str(), nullptr, id);
        }
        std::unique_ptr<KvRxDictionaryIterator> it(d->newIterator(0));
        std::u16string last;
        unsigned walked = 0;
        for (; !it->done(); it->next(), ++walked) {
            if (!last.empty()) {
                int order = ignoreCase ? LumCharOp::compareNoCase(last.c_str(), it->key())
                                       : LumCharOp::compare(last.c_str(), it->key());
                ASSERT_LT(order, 0) << utf8(last) << " before " << utf8(it->key());
            }
            last = it->key();
        }
        EXPECT_EQ(walked, d->numEntries());
    }
}

}  // namespace
