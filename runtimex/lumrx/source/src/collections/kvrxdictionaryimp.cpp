#include "collections/kvrxdictionaryimp.h"

#include "kernel/kvrxmoduleglobal.h"
#include "kvrxclass.h"
#include "lumosbase.h"

#include <memory>

KVRX_DEFINE_MEMBERS(KvRxDictionary, u"OvRxDictionary", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxDictionaryImp, u"KvRxDictionaryImp", u"OvRxDictionary");

KvRxDictionaryImp* KvRxDictionaryImp::createDictionary(unsigned int length, bool deleteObjects,
                                                       bool sorted, bool ignoreCase,
                                                       const KvRxClass* restrictTo) {
    auto* d = new KvRxDictionaryImp(deleteObjects, sorted, ignoreCase, restrictTo);
    if (length > 0) d->reserve(length > unsigned(INT32_MAX) ? INT32_MAX : int(length));
    return d;
}

KvRxDictionaryImp::KvRxDictionaryImp(bool deleteObjects, bool sorted, bool ignoreCase,
                                     const KvRxClass* restrictTo)
    : sortedIndex(sorted ? new SortedIndex(ignoreCase) : nullptr),
      restrictTo(restrictTo),
      deleteObjects(deleteObjects),
      caseSensitive(!ignoreCase),
      keyIndex(ignoreCase) {}

KvRxDictionaryImp::~KvRxDictionaryImp() {
    clear(false);
    delete sortedIndex;
    _lumFree(entries.data);
}

bool KvRxDictionaryImp::accepts(const KvRxObject* object) const {
    if (!restrictTo || !object) return true;
    KvRxClass* cls = object->isA();
    return cls && cls->isDerivedFrom(restrictTo);
}

// The key index gives the first live slot whose key matches, as a walk from slot 0
// would; a sorted dictionary holds one slot per key, which its index would find.
int KvRxDictionaryImp::find(const char16_t* key) const {
    if (!key || !*key) return -1;
    return keyIndex.find(entries.data, key);
}

int KvRxDictionaryImp::firstFreeSlot() const { return freeSlots.lowest(); }

void KvRxDictionaryImp::reserve(int n) {
    if (n <= entries.capacity) return;
    auto* data = static_cast<Entry*>(_lumMalloc(sizeof(Entry) * size_t(n)));
    if (!data) throw std::bad_alloc();
    size_t kept = size_t(entries.length);
    if (kept) std::memcpy(static_cast<void*>(data), entries.data, sizeof(Entry) * kept);
    std::memset(static_cast<void*>(data + kept), 0, sizeof(Entry) * (size_t(n) - kept));
    _lumFree(entries.data);
    entries.data = data;
    entries.capacity = n;
}

void KvRxDictionaryImp::setLength(int n) {
    if (n < 0) n = 0;
    if (n > entries.capacity) {
        // Double while small, then grow by 8192 entries at a time.
        int64_t step = int64_t(entries.capacity) * 8 < 65536 ? entries.capacity : 8192;
        if (step < entries.growBy) step = entries.growBy;
        int64_t grown = int64_t(entries.capacity) + step;
        if (grown > INT32_MAX) grown = INT32_MAX;
        reserve(n > grown ? n : int(grown));
    }
    freeSlots.grow(entries.length, n);
    entries.length = n;
}

KvRxObject* KvRxDictionaryImp::at(const char16_t* key) const {
    int slot = find(key);
    return slot < 0 ? nullptr : entries.data[slot].value;
}

bool KvRxDictionaryImp::has(const char16_t* key) const { return find(key) >= 0; }

unsigned int KvRxDictionaryImp::idAt(const char16_t* key) const {
    int slot = find(key);
    return slot < 0 ? 0 : unsigned(slot) + 1;
}

const char16_t* KvRxDictionaryImp::keyAt(unsigned int id) const {
    int slot = liveSlot(id);
    return slot < 0 ? nullptr : entries.data[slot].key->text();
}

unsigned int KvRxDictionaryImp::numEntries() const { return liveCount; }

KvRxObject* KvRxDictionaryImp::replaceValue(int slot, KvRxObject* object) {
    KvRxObject* displaced = entries.data[slot].value;
    if (displaced == object) return nullptr;
    entries.data[slot].value = object;
    if (!displaced) return nullptr;
    if (deleteObjects) {
        delete displaced;
        return nullptr;
    }
    return displaced;
}

KvRxObject* KvRxDictionaryImp::atPut(const char16_t* key, KvRxObject* object, unsigned int& retId) {
    if (!key || !*key) return nullptr;
    // An object whose class isn't linked into the tree yet passes here.
    if (restrictTo && object) {
        KvRxClass* cls = object->isA();
        if (cls && cls->myParent() && !accepts(object)) return object;
    }
    uint32_t hash;
    int slot = keyIndex.find(entries.data, key, hash);
    if (slot >= 0) {
        retId = unsigned(slot) + 1;
        return replaceValue(slot, object);
    }
    KeyOwner newKey = makeKey(key);
    slot = firstFreeSlot();
    if (slot < 0) {
        slot = entries.length;
        setLength(entries.length + 1);
    }
    enter(slot, std::move(newKey), object, &hash);
    retId = unsigned(slot) + 1;
    return nullptr;
}

void KvRxDictionaryImp::enter(int slot, KeyOwner key, KvRxObject* object,
                              const uint32_t* newKeyHash) {
    Entry& e = entries.data[slot];
    e.key = key.get();
    e.value = object;
    try {
        if (newKeyHash)
            keyIndex.insertNew(slot, *newKeyHash);
        else
            keyIndex.insert(entries.data, slot);
        try {
            if (sortedIndex) sortedIndex->insert(key.get(), slot);
        } catch (...) {
            keyIndex.erase(entries.data, slot);
            throw;
        }
    } catch (...) {
        e.key = nullptr;
        e.value = nullptr;
        throw;
    }
    key.release();
    freeSlots.setTaken(slot);
    ++liveCount;
}

KvRxObject* KvRxDictionaryImp::atPut(unsigned int id, KvRxObject* object) {
    if (object && !accepts(object)) return object;
    int slot = liveSlot(id);
    if (slot < 0) KvRxModuleGlobal::fatalError(u"KvRxDictionary::atPut - Invalid id");
    return replaceValue(slot, object);
}

bool KvRxDictionaryImp::atKeyAndIdPut(const char16_t* key, unsigned int id, KvRxObject* object) {
    if (!key || !*key || !object || !accepts(object)) return false;
    if (id == 0 || id > unsigned(INT32_MAX) || liveSlot(id) >= 0) return false;
    KeyOwner newKey = makeKey(key);
    if (takenInIndex(newKey.get())) return false;
    if (int(id) > entries.length) setLength(int(id));
    enter(int(id) - 1, std::move(newKey), object);
    return true;
}

bool KvRxDictionaryImp::takenInIndex(const Key* key) const {
    // The sorted index holds one node per text: a second entry under the same text
    // could not be reached, and its removal would take the first one's node.
    return sortedIndex && sortedIndex->contains(key);
}

bool KvRxDictionaryImp::resetSlotKey(int slot, const char16_t* newKey) {
    KeyOwner key = makeKey(newKey);
    Key* old = entries.data[slot].key;
    if (!keyIndex.sameText(old, key->text(), key->length) && takenInIndex(key.get())) return false;
    keyIndex.erase(entries.data, slot);
    entries.data[slot].key = key.get();
    try {
        keyIndex.insert(entries.data, slot);
        if (sortedIndex) {
            sortedIndex->erase(slot);
            sortedIndex->insert(key.get(), slot);
        }
    } catch (...) {
        // Back to the old key; the table has room for it again.
        keyIndex.erase(entries.data, slot);
        entries.data[slot].key = old;
        keyIndex.insert(entries.data, slot);
        if (sortedIndex) sortedIndex->insert(old, slot);
        throw;
    }
    key.release();
    keys.release(old);
    return true;
}

bool KvRxDictionaryImp::resetKey(unsigned int id, const char16_t* newKey) {
    int slot = liveSlot(id);
    return slot >= 0 && resetSlotKey(slot, newKey);
}

bool KvRxDictionaryImp::resetKey(const char16_t* oldKey, const char16_t* newKey) {
    if (!newKey || !*newKey) return false;
    int slot = find(oldKey);
    return slot >= 0 && resetSlotKey(slot, newKey);
}

KvRxObject* KvRxDictionaryImp::removeSlot(int slot, uint32_t hash) {
    Entry& e = entries.data[slot];
    if (sortedIndex) sortedIndex->erase(slot);
    keyIndex.erase(entries.data, slot, hash);
    Key* key = e.key;
    KvRxObject* value = e.value;
    e.key = nullptr;
    e.value = nullptr;
    freeSlots.setFree(slot);
    --liveCount;
    keys.release(key);
    if (value && deleteObjects) {
        delete value;
        return nullptr;
    }
    return value;
}

KvRxObject* KvRxDictionaryImp::remove(unsigned int id) {
    int slot = liveSlot(id);
    return slot < 0 ? nullptr : removeSlot(slot, keyIndex.hashOfSlot(entries.data, slot));
}

KvRxObject* KvRxDictionaryImp::remove(const char16_t* key) {
    if (!key || !*key) return nullptr;
    uint32_t hash;
    int slot = keyIndex.find(entries.data, key, hash);
    return slot < 0 ? nullptr : removeSlot(slot, hash);
}

unsigned int KvRxDictionaryImp::idHolding(const char16_t* key, const KvRxObject* value,
                                          unsigned int idHint) const {
    if (!key || !*key) return 0;
    int slot = liveSlot(idHint);
    if (slot < 0 || entries.data[slot].value != value || !keyIndex.keysUnique() ||
        !keyIndex.sameText(entries.data[slot].key, key, int32_t(LumCharOp::length(key))))
        slot = find(key);
    return slot >= 0 && entries.data[slot].value == value ? unsigned(slot) + 1 : 0;
}

bool KvRxDictionaryImp::removeIfHolds(const char16_t* key, const KvRxObject* value, unsigned int idHint) {
    unsigned int id = idHolding(key, value, idHint);
    if (!id) return false;
    takeOut(&id, 1);
    return true;
}

void KvRxDictionaryImp::takeOut(const unsigned int* ids, size_t count) {
    // Taken out first: a dictionary that owns its values would delete them.
    for (size_t i = 0; i < count; ++i) entries.data[ids[i] - 1].value = nullptr;
    if (count == liveCount) {
        freeAllSlots();
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        int slot = int(ids[i]) - 1;
        removeSlot(slot, keyIndex.hashOfSlot(entries.data, slot));
    }
}

void KvRxDictionaryImp::freeAllSlots() {
    // The indexes empty at once; the array keeps its length, every slot free, as if the
    // entries had gone one by one.
    if (sortedIndex) sortedIndex->clear();
    keyIndex.clear();
    liveCount = 0;
    for (int i = 0; i < entries.length; ++i) {
        Entry& e = entries.data[i];
        if (!e.key) continue;
        keys.release(e.key);
        e.key = nullptr;
        e.value = nullptr;
        freeSlots.setFree(i);
    }
}

void KvRxDictionaryImp::clear(bool deleteValues) {
    if (sortedIndex) sortedIndex->clear();
    keyIndex.clear();
    freeSlots.clear();
    liveCount = 0;
    for (int i = 0; i < entries.length; ++i) {
        Entry& e = entries.data[i];
        keys.release(e.key);
        if (deleteObjects || deleteValues) delete e.value;
        e.key = nullptr;
        e.value = nullptr;
    }
    entries.length = 0;
}

size_t KvRxDictionaryImp::indexBytes() const { return keyIndex.bytesUsed() + freeSlots.bytesUsed(); }

KvRxDictionaryIterator* KvRxDictionaryImp::newIterator(int type) {
    return new KvRxDictionaryImpIterator(this, !(sortedIndex && type == kDictSorted));
}

// ---------------------------------------------------------------------------

KVRX_DEFINE_MEMBERS(KvRxIterator, u"OvRxIterator", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxDictionaryIterator, u"OvRxDictionaryIterator", u"OvRxIterator");
KVRX_DEFINE_MEMBERS(KvRxDictionaryImpIterator, u"KvRxDictionaryImpIterator", u"OvRxDictionaryIterator");

KvRxDictionaryImpIterator::KvRxDictionaryImpIterator(KvRxDictionaryImp* dictionary, bool idOrder)
    : dictionary(dictionary), idOrder(idOrder), slot(0) {
    if (idOrder) {
        skipFreeSlots();
    } else {
        node = dictionary->sortedIndex->begin();
    }
}

void KvRxDictionaryImpIterator::skipFreeSlots() {
    const auto& e = dictionary->entries;
    while (slot < e.length && !e.data[slot].key) ++slot;
}

bool KvRxDictionaryImpIterator::done() const {
    if (idOrder) return slot >= dictionary->entries.length;
    return node == dictionary->sortedIndex->end();
}

bool KvRxDictionaryImpIterator::next() {
    if (done()) return false;
    if (idOrder) {
        ++slot;
        skipFreeSlots();
    } else {
        ++node;
    }
    return !done();
}

int KvRxDictionaryImpIterator::currentSlot() const {
    if (done()) return -1;
    return idOrder ? slot : node->second;
}

KvRxObject* KvRxDictionaryImpIterator::object() const {
    int s = currentSlot();
    return s < 0 ? nullptr : dictionary->entries.data[s].value;
}

const char16_t* KvRxDictionaryImpIterator::key() const {
    int s = currentSlot();
    // A slot whose entry was removed under the iterator reads as free.
    const KvRxDictionaryKey* k = s < 0 ? nullptr : dictionary->entries.data[s].key;
    return k ? k->text() : nullptr;
}

unsigned int KvRxDictionaryImpIterator::id() const {
    int s = currentSlot();
    return s < 0 ? 0 : unsigned(s) + 1;
}
