// Sequences of dictionary, linked-list and map operations driven by the input, each
// checked against a standard-library model: the same entries, ids and first match of
// a key, the same walks in id and key order, the same list and map contents; every
// object a dictionary owns is deleted exactly once, and every map key clone is freed.
//
// Input: byte 0 chooses the dictionary (sorted, case rule, owning, restricted); then
// one byte per operation, with its arguments in the bytes that follow.
#include "collections/kvrxdictionaryimp.h"
#include "kvrxclass.h"
#include "kvrxmap.h"
#include "kvrxruntime.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

// Reads the input a byte at a time; zeros past the end.
struct Input {
    const uint8_t* data;
    size_t size, at = 0;
    bool more() const { return at < size; }
    uint8_t byte() { return at < size ? data[at++] : 0; }
};

// ---- objects ----

// Every object made here has a number; `deaths` counts the deletions of each.
std::vector<int> deaths;

class Tracked : public KvRxObject {
public:
    explicit Tracked(KvRxClass* cls) : cls(cls), number(deaths.size()) { deaths.push_back(0); }
    ~Tracked() override { ++deaths[number]; }
    KvRxClass* isA() const override { return cls; }
    KvRxClass* cls;
    size_t number;
};

KvRxClass* gBase;
KvRxClass* gDerived;
KvRxClass* gOther;

}  // namespace

// A map key ordered by its number, which clones through its class factory.
class FuzzMapKey : public KvRxObject {
    KVRX_DECLARE_MEMBERS(FuzzMapKey);

public:
    static int live;
    explicit FuzzMapKey(int n = 0) : n(n) { ++live; }
    ~FuzzMapKey() override { --live; }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        n = FuzzMapKey::cast(other)->n;
        return Kvore::eOk;
    }
    KvRx::Ordering comparedTo(const KvRxObject* other) const override {
        int m = FuzzMapKey::cast(other)->n;
        return n < m ? KvRx::kLessThan : n > m ? KvRx::kGreaterThan : KvRx::kEqual;
    }
    static KvRxObject* make() { return new FuzzMapKey(); }
    int n;
};
int FuzzMapKey::live = 0;
KVRX_DEFINE_MEMBERS(FuzzMapKey, u"FuzzMapKey", u"OvRxObject");

namespace {

void startOnce() {
    static bool started = false;
    if (started) return;
    started = true;
    InitializeKvRxSystem();
    gBase = newKvRxClass(u"FuzzBase", u"OvRxObject");
    gDerived = newKvRxClass(u"FuzzDerived", u"FuzzBase");
    gOther = newKvRxClass(u"FuzzOther", u"OvRxObject");
    newKvRxClass(u"FuzzMapKey", u"OvRxObject", 0, &FuzzMapKey::make);
    kvrxBuildClassHierarchy();
}

// ---- keys and the case rule ----

const char16_t kUnits[] = {u'a', u'A', u'b', u'B', u'\u00e4', u'\u00c4', u'z'};

std::u16string keyFrom(Input& in) {
    uint8_t b = in.byte();
    std::u16string key;
    for (int i = 0, n = b % 4; i < n; ++i) key.push_back(kUnits[in.byte() % 7]);
    return key;
}

char16_t fold(char16_t c) {
    if (c >= u'A' && c <= u'Z') return char16_t(c + 32);
    if (c == u'\u00c4') return u'\u00e4';
    return c;
}

// ---- the dictionary model ----

struct Slot {
    bool live = false;
    std::u16string key;
    Tracked* value = nullptr;
    size_t number = 0;  // of the value, which may be gone
};

size_t numberOf(const Tracked* t) { return t ? t->number : 0; }

struct DictionaryCase {
    bool sorted, ignoreCase, owning, restricted;
    std::unique_ptr<KvRxDictionaryImp> dict;
    std::vector<Slot> slots;
    std::vector<Tracked*> alive;  // objects a dictionary that doesn't own them never deleted

    std::u16string folded(const std::u16string& k) const {
        if (!ignoreCase) return k;
        std::u16string f = k;
        for (auto& c : f) c = fold(c);
        return f;
    }
    int firstMatch(const std::u16string& key) const {
        if (key.empty()) return -1;
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].live && folded(slots[i].key) == folded(key)) return int(i);
        return -1;
    }
    // The live slot whose key is the same text by the case rule, empty keys included.
    int holder(const std::u16string& key) const {
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].live && folded(slots[i].key) == folded(key)) return int(i);
        return -1;
    }
    int lowestFree() const {
        for (size_t i = 0; i < slots.size(); ++i)
            if (!slots[i].live) return int(i);
        return int(slots.size());
    }
    bool liveId(unsigned id) const { return id >= 1 && id <= slots.size() && slots[id - 1].live; }
    bool accepts(const Tracked* o) const { return !restricted || !o || o->cls != gOther; }

    Tracked* newObject(Input& in) {
        uint8_t b = in.byte() % 4;
        if (b == 0) return nullptr;
        auto* t = new Tracked(b == 1 ? gBase : b == 2 ? gDerived : gOther);
        if (!owning) alive.push_back(t);
        return t;
    }
    // What a call gave back stays the caller's: in an owning dictionary only refused
    // objects come back, and they are deleted here; otherwise nothing is deleted until
    // the end.
    void givenBack(KvRxObject* o) {
        if (o && owning) delete o;
    }
    void replaced(Slot& s, Tracked* object, KvRxObject* result) {
        Tracked* displaced = s.value;
        size_t displacedNumber = s.number;
        s.value = object;
        s.number = numberOf(object);
        if (displaced == object || !displaced || owning) {
            check(result == nullptr);
            if (displaced && displaced != object && owning) check(deaths[displacedNumber] == 1);
        } else {
            check(result == displaced);
        }
    }

    void put(Input& in) {
        std::u16string key = keyFrom(in);
        Tracked* object = newObject(in);
        unsigned retId = 12345;
        KvRxObject* result = dict->atPut(key.c_str(), object, retId);
        if (key.empty()) {
            check(result == nullptr && retId == 12345);
            givenBack(object);
            return;
        }
        if (!accepts(object)) {
            check(result == object && retId == 12345);
            givenBack(object);
            return;
        }
        int at = firstMatch(key);
        if (at >= 0) {
            check(retId == unsigned(at) + 1);
            replaced(slots[size_t(at)], object, result);
            return;
        }
        int slot = lowestFree();
        check(result == nullptr && retId == unsigned(slot) + 1);
        if (size_t(slot) >= slots.size()) slots.resize(size_t(slot) + 1);
        slots[size_t(slot)] = Slot{true, key, object, numberOf(object)};
    }
    void putSame(Input& in) {
        unsigned id = in.byte() % 24 + 1;
        if (!liveId(id)) return;
        Slot& s = slots[id - 1];
        // Only the entry a look-up finds: the same object under two entries of an
        // owning dictionary would be deleted twice.
        if (firstMatch(s.key) != int(id) - 1) return;
        unsigned retId = 0;
        check(dict->atPut(s.key.c_str(), s.value, retId) == nullptr);
        check(retId == id);
    }
    void putAtId(Input& in) {
        unsigned id = in.byte() % 24 + 1;
        Tracked* object = newObject(in);
        if (!liveId(id)) {
            givenBack(object);
            return;
        }
        KvRxObject* result = dict->atPut(id, object);
        if (!accepts(object)) {
            check(result == object);
            givenBack(object);
            return;
        }
        replaced(slots[id - 1], object, result);
    }
    void putKeyAndId(Input& in) {
        std::u16string key = keyFrom(in);
        unsigned id = in.byte() % 40;
        Tracked* object = newObject(in);
        bool ok = !key.empty() && object && accepts(object) && id != 0 && !liveId(id) &&
                  !(sorted && holder(key) >= 0);
        check(dict->atKeyAndIdPut(key.c_str(), id, object) == ok);
        if (!ok) {
            givenBack(object);
            return;
        }
        if (id > slots.size()) slots.resize(id);
        slots[id - 1] = Slot{true, key, object, numberOf(object)};
    }
    void reset(Slot& s, int slotIndex, const std::u16string& key, bool result) {
        int taken = holder(key);
        bool ok = !(sorted && folded(s.key) != folded(key) && taken >= 0 && taken != slotIndex);
        check(result == ok);
        if (ok) s.key = key;
    }
    void resetById(Input& in) {
        unsigned id = in.byte() % 24 + 1;
        std::u16string key = keyFrom(in);
        bool result = dict->resetKey(id, key.c_str());
        if (!liveId(id)) {
            check(!result);
            return;
        }
        reset(slots[id - 1], int(id) - 1, key, result);
    }
    void resetByKey(Input& in) {
        std::u16string oldKey = keyFrom(in), newKey = keyFrom(in);
        bool result = dict->resetKey(oldKey.c_str(), newKey.c_str());
        int at = firstMatch(oldKey);
        if (newKey.empty() || at < 0) {
            check(!result);
            return;
        }
        reset(slots[size_t(at)], at, newKey, result);
    }
    void removed(int at, KvRxObject* result) {
        if (at < 0) {
            check(result == nullptr);
            return;
        }
        Slot& s = slots[size_t(at)];
        if (owning) {
            check(result == nullptr);
            if (s.value) check(deaths[s.number] == 1);
        } else {
            check(result == s.value);
        }
        s = Slot{};
    }
    void removeById(Input& in) {
        unsigned id = in.byte() % 24;
        KvRxObject* result = dict->remove(id);
        removed(liveId(id) ? int(id) - 1 : -1, result);
    }
    void removeByKey(Input& in) {
        std::u16string key = keyFrom(in);
        KvRxObject* result = dict->remove(key.c_str());
        removed(firstMatch(key), result);
    }
    void clear(Input& in) {
        bool deleteValues = in.byte() & 1;
        dict->clear(deleteValues);
        for (Slot& s : slots)
            if (s.live && s.value && (owning || deleteValues)) check(deaths[s.number] == 1);
        if (deleteValues && !owning)
            for (Slot& s : slots)
                if (s.live && s.value) alive.erase(std::find(alive.begin(), alive.end(), s.value));
        slots.clear();
    }
    // A walk by id that removes every entry it lands on when the input says so.
    void walkRemoving(Input& in) {
        uint8_t pattern = in.byte();
        std::unique_ptr<KvRxDictionaryIterator> it(dict->newIterator(1));
        int step = 0;
        for (bool on = !it->done(); on; on = it->next(), ++step) {
            unsigned id = it->id();
            check(liveId(id));
            if (pattern & (1 << (step % 8))) removed(int(id) - 1, dict->remove(id));
        }
    }

    void verify() {
        unsigned live = 0;
        for (size_t i = 0; i < slots.size(); ++i) {
            const Slot& s = slots[i];
            unsigned id = unsigned(i) + 1;
            check(dict->has(id) == s.live);
            if (!s.live) {
                check(dict->at(id) == nullptr && dict->keyAt(id) == nullptr);
                continue;
            }
            ++live;
            check(dict->at(id) == s.value);
            check(std::u16string(dict->keyAt(id)) == s.key);
        }
        check(!dict->has(unsigned(slots.size()) + 1) && !dict->has(0u));
        check(dict->numEntries() == live);
        // Every key of the alphabet up to two units, in every case.
        for (int n = 0; n < 50; ++n) {
            std::u16string key;
            if (n >= 1) key.push_back(kUnits[(n - 1) % 7]);
            if (n >= 8) key.push_back(kUnits[(n - 8) / 7 % 7]);
            int at = firstMatch(key);
            check(dict->idAt(key.c_str()) == unsigned(at + 1));
            check(dict->has(key.c_str()) == (at >= 0));
            check(dict->at(key.c_str()) == (at >= 0 ? slots[size_t(at)].value : nullptr));
        }
        for (const Slot& s : slots)
            if (s.live) check(dict->idAt(s.key.c_str()) == unsigned(firstMatch(s.key) + 1));
        verifyWalks();
    }
    void verifyWalks() {
        std::vector<unsigned> byId, byKey;
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].live) byId.push_back(unsigned(i) + 1);
        byKey = byId;
        if (sorted)
            std::sort(byKey.begin(), byKey.end(), [&](unsigned a, unsigned b) {
                return folded(slots[a - 1].key) < folded(slots[b - 1].key);
            });
        for (int type = 0; type < 2; ++type) {
            std::unique_ptr<KvRxDictionaryIterator> it(dict->newIterator(type));
            std::vector<unsigned> seen;
            for (bool on = !it->done(); on; on = it->next()) {
                seen.push_back(it->id());
                check(it->object() == slots[it->id() - 1].value);
                check(std::u16string(it->key()) == slots[it->id() - 1].key);
            }
            check(it->id() == 0 && it->key() == nullptr && it->object() == nullptr);
            check(seen == (type == 0 ? byKey : byId));
        }
    }

    void run(Input& in) {
        while (in.more()) {
            uint8_t op = in.byte();
            switch (op % 13) {
                case 0: case 1: case 2: put(in); break;
                case 3: putSame(in); break;
                case 4: putAtId(in); break;
                case 5: putKeyAndId(in); break;
                case 6: resetById(in); break;
                case 7: resetByKey(in); break;
                case 8: removeById(in); break;
                case 9: removeByKey(in); break;
                case 10: if (op >= 240) clear(in); else removeByKey(in); break;
                case 11: walkRemoving(in); break;
                default: verify(); break;
            }
            if (op & 0x80) verify();
        }
        verify();
    }

    // The dictionary goes: an owning one deletes what it holds; what it doesn't own
    // is deleted here. Every object dies exactly once.
    void finish() {
        dict.reset();
        for (Tracked* t : alive) {
            check(deaths[t->number] == 0);
            delete t;
        }
        for (int d : deaths) check(d == 1);
    }
};

void dictionaryRun(Input& in, uint8_t config) {
    DictionaryCase c;
    c.sorted = config & 1;
    c.ignoreCase = config & 2;
    c.owning = config & 4;
    c.restricted = config & 8;
    c.dict.reset(KvRxDictionaryImp::createDictionary(config >> 4, c.owning, c.sorted, c.ignoreCase,
                                                      c.restricted ? gBase : nullptr));
    c.run(in);
    c.finish();
}

// ---- linked list and map ----

void listRun(Input& in) {
    Tracked* pool[6];
    for (auto& p : pool) p = new Tracked(gBase);
    {
        KvRxLinkedList list;
        std::list<KvRxObject*> model;
        while (in.more()) {
            uint8_t op = in.byte();
            KvRxObject* v = (op >> 4) % 7 == 6 ? nullptr : pool[(op >> 4) % 7];
            size_t at = in.byte() % 8;
            auto pos = model.begin();
            std::unique_ptr<KvRxIterator> it(list.newIterator());
            for (size_t i = 0; i < at && pos != model.end(); ++i, ++pos) it->next();
            switch (op % 10) {
                case 0: list.append(v); model.push_back(v); break;
                case 1: list.prepend(v); model.push_front(v); break;
                case 2:
                    check(list.removeHead() == (model.empty() ? nullptr : model.front()));
                    if (!model.empty()) model.pop_front();
                    break;
                case 3:
                    check(list.removeTail() == (model.empty() ? nullptr : model.back()));
                    if (!model.empty()) model.pop_back();
                    break;
                case 4: {
                    auto f = std::find(model.begin(), model.end(), v);
                    check(list.remove(v) == (f == model.end() ? nullptr : v));
                    if (f != model.end()) model.erase(f);
                    break;
                }
                case 5:
                    list.insertAfter(it.get(), v);
                    model.insert(pos == model.end() ? pos : std::next(pos), v);
                    break;
                case 6:
                    if (pos == model.end()) {
                        check(list.removeAt(it.get()) == nullptr);
                    } else {
                        check(list.removeAt(it.get()) == *pos);
                        pos = model.erase(pos);
                        check(it->done() == (pos == model.end()));
                        if (pos != model.end()) check(it->object() == *pos);
                    }
                    break;
                case 7:
                    if (pos == model.end()) {
                        check(list.setAt(it.get(), v) == nullptr);
                    } else {
                        check(list.setAt(it.get(), v) == *pos);
                        *pos = v;
                    }
                    break;
                case 8: {
                    std::unique_ptr<KvRxIterator> found(list.find(v));
                    auto f = std::find(model.begin(), model.end(), v);
                    check(found->done() == (f == model.end()));
                    break;
                }
                default: list.removeAll(); model.clear(); break;
            }
            check(list.length() == int(model.size()) && list.isEmpty() == model.empty());
            check(list.headValue() == (model.empty() ? nullptr : model.front()));
            check(list.tailValue() == (model.empty() ? nullptr : model.back()));
            std::unique_ptr<KvRxIterator> walk(list.newIterator());
            for (KvRxObject* m : model) {
                check(!walk->done() && walk->object() == m);
                walk->next();
            }
            check(walk->done());
        }
    }
    for (auto* p : pool) {
        check(deaths[p->number] == 0);
        delete p;
    }
}

void mapRun(Input& in) {
    Tracked* pool[4];
    for (auto& p : pool) p = new Tracked(gBase);
    {
        KvRxMap map;
        std::map<int, KvRxObject*> model;
        while (in.more()) {
            uint8_t op = in.byte();
            FuzzMapKey key(in.byte() % 16);
            KvRxObject* v = (op >> 4) % 5 == 4 ? nullptr : pool[(op >> 4) % 5];
            auto m = model.find(key.n);
            switch (op % 6) {
                case 0:
                    check(map.put(&key, v) == (m == model.end() ? nullptr : m->second));
                    model[key.n] = v;
                    break;
                case 1:
                    check(map.remove(&key) == (m == model.end() ? nullptr : m->second));
                    if (m != model.end()) model.erase(m);
                    break;
                case 2: {
                    std::unique_ptr<KvRxGenericMapIterator> it(map.find(&key));
                    check((it != nullptr) == (m != model.end()));
                    if (it) {
                        check(map.put(it.get(), v) == m->second);
                        m->second = v;
                    }
                    break;
                }
                case 3: {
                    // Removes every other node through an iterator.
                    std::unique_ptr<KvRxGenericMapIterator> it(map.newMapIterator());
                    for (auto n = model.begin(); n != model.end();) {
                        check(!it->done() && static_cast<const FuzzMapKey*>(it->key())->n == n->first);
                        if (n->first % 2 == key.n % 2) {
                            check(map.remove(it.get()) == n->second);
                            n = model.erase(n);
                        } else {
                            it->next();
                            ++n;
                        }
                    }
                    check(it->done());
                    break;
                }
                case 4: map.removeAll(); model.clear(); break;
                default: break;
            }
            check(map.size() == model.size());
            check(map.at(&key) == (model.count(key.n) ? model[key.n] : nullptr));
            check(map.has(&key) == (model.count(key.n) && model[key.n]));
            std::unique_ptr<KvRxGenericMapIterator> walk(map.newMapIterator());
            for (const auto& entry : model) {
                check(!walk->done() && static_cast<const FuzzMapKey*>(walk->key())->n == entry.first);
                check(walk->object() == entry.second);
                walk->next();
            }
            check(walk->done());
        }
    }
    check(FuzzMapKey::live == 0);
    for (auto* p : pool) {
        check(deaths[p->number] == 0);
        delete p;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startOnce();
    if (size == 0) return 0;
    deaths.clear();
    Input in{data + 1, size - 1};
    switch (data[0] % 4) {
        case 0: case 1: dictionaryRun(in, data[0] >> 2); break;
        case 2: listRun(in); break;
        default: mapRun(in); break;
    }
    return 0;
}
