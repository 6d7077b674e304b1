// The one implementation of KvRxDictionary.
//
// Owns: the entry array (one block from _lumMalloc), its key pool and so every key in
// the entries, the sorted index (sorted dictionaries only; it points to the keys), the
// key index and the free-slot map (both by value), and the values only when made with
// deleteObjects.
//
// Invariants: a slot is live exactly when its key isn't null; a free slot has a null
// value; slots from `length` to `capacity` are zero. The id of a slot is its index
// plus 1. In a sorted dictionary the index holds exactly the live keys. The key index
// and the free-slot map follow every change of a slot's key (their own invariants are
// beside them); `liveCount` is the number of live slots.
#pragma once

#include "collections/kvrxdictionaryfreeslots.h"
#include "collections/kvrxdictionarykeyindex.h"
#include "collections/kvrxdictionarysortedindex.h"
#include "kvrxdictionary.h"

#include <memory>

class KvRxDictionaryImp : public KvRxDictionary {
    KVRX_DECLARE_MEMBERS(KvRxDictionaryImp);

public:
    using Entry = KvRxDictionaryEntry;
    using SortedIndex = KvRxDictionarySortedIndex;
    using Key = KvRxDictionaryKey;
    using KeyOwner = KvRxDictionaryKeyPool::Owner;

    static KvRxDictionaryImp* createDictionary(unsigned int length, bool deleteObjects, bool sorted,
                                               bool ignoreCase, const KvRxClass* restrictTo);
    ~KvRxDictionaryImp() override;
    KvRxDictionaryImp(const KvRxDictionaryImp&) = delete;
    KvRxDictionaryImp& operator=(const KvRxDictionaryImp&) = delete;

    // By id: inline, so that the runtime's own callers, which hold the implementation,
    // read the slot without a call.
    // A free slot holds a null value, so the slot's value is the answer either way.
    KvRxObject* at(unsigned int id) const final {
        return id - 1 < unsigned(entries.length) ? entries.data[id - 1].value : nullptr;
    }
    KvRxObject* at(const char16_t* key) const override;
    KvRxObject* atPut(unsigned int id, KvRxObject* object) override;
    KvRxObject* atPut(const char16_t* key, KvRxObject* object, unsigned int& retId) override;
    bool resetKey(unsigned int id, const char16_t* newKey) override;
    bool resetKey(const char16_t* oldKey, const char16_t* newKey) override;
    bool atKeyAndIdPut(const char16_t* key, unsigned int id, KvRxObject* object) override;
    KvRxObject* remove(unsigned int id) override;
    KvRxObject* remove(const char16_t* key) override;
    bool has(unsigned int id) const final { return liveSlot(id) >= 0; }
    bool has(const char16_t* key) const override;
    unsigned int idAt(const char16_t* key) const override;
    const char16_t* keyAt(unsigned int id) const override;
    unsigned int numEntries() const override;
    KvRxDictionaryIterator* newIterator(int type = kDictSorted) override;
    bool deletesObjects() const override { return deleteObjects; }
    bool isCaseSensitive() const override { return caseSensitive; }
    bool isSorted() const override { return sortedIndex != nullptr; }

    // The id of the entry of `key` if its value is `value`, else 0. `idHint` is the id
    // the entry was given: when that slot holds `value` under `key` and no key is held
    // twice, it is the slot a look-up would find, and the text isn't looked up.
    unsigned int idHolding(const char16_t* key, const KvRxObject* value, unsigned int idHint = 0) const;
    // Takes out the entry of `key` if its value is `value`; false, and nothing changes,
    // otherwise. The value isn't deleted.
    bool removeIfHolds(const char16_t* key, const KvRxObject* value, unsigned int idHint = 0);
    // Takes out the live entries of `ids`, each listed once, in their order, without
    // deleting their values. When they are every live entry, all go at once, and the
    // dictionary is left as one by one would leave it.
    void takeOut(const unsigned int* ids, size_t count);
    // Empties the dictionary; values are deleted if it owns them or `deleteValues`.
    void clear(bool deleteValues);

    int capacity() const { return entries.capacity; }
    int length() const { return entries.length; }
    // Bytes held beside the entry array and the keys, for the benchmarks' notes.
    size_t indexBytes() const;

private:
    friend class KvRxDictionaryImpIterator;
    struct Entries {
        Entry* data = nullptr;
        int capacity = 0;
        int length = 0;
        int growBy = 8;
    };

    KvRxDictionaryImp(bool deleteObjects, bool sorted, bool ignoreCase, const KvRxClass* restrictTo);
    bool accepts(const KvRxObject* object) const;
    // The slot index of `key`, or -1.
    int find(const char16_t* key) const;
    // The slot index of a live entry with this id, or -1.
    int liveSlot(unsigned int id) const {
        // Id 0 wraps around to above every length.
        if (id - 1 >= unsigned(entries.length)) return -1;
        return entries.data[id - 1].key ? int(id - 1) : -1;
    }
    KvRxObject* replaceValue(int slot, KvRxObject* object);
    // `hash` is the key index's hash of the slot's key.
    KvRxObject* removeSlot(int slot, uint32_t hash);
    bool resetSlotKey(int slot, const char16_t* newKey);
    bool takenInIndex(const Key* key) const;
    void setLength(int n);
    // Takes out every live entry, its value left undeleted.
    void freeAllSlots();
    void reserve(int n);
    int firstFreeSlot() const;
    // A key of `text`; throws std::bad_alloc when no memory is left.
    KeyOwner makeKey(const char16_t* text) { return keys.make(text); }
    // Stores a new live entry in the free `slot`; on failure nothing is stored. With
    // `newKeyHash`, no live slot holds the key and that is its hash.
    void enter(int slot, KeyOwner key, KvRxObject* object,
               const uint32_t* newKeyHash = nullptr);

    KvRxDictionaryKeyPool keys;  // before the entries' keys are made, freed after them
    Entries entries;
    SortedIndex* sortedIndex;
    const KvRxClass* restrictTo;
    bool deleteObjects;
    bool caseSensitive;
    KvRxDictionaryKeyIndex keyIndex;
    KvRxDictionaryFreeSlots freeSlots;
    unsigned int liveCount = 0;
};

// Walks a dictionary by id, or a sorted one in key order. Doesn't own the dictionary.
// In an id-order walk the entry under the iterator may be removed: its slot reads as
// free and next() moves on.
class KvRxDictionaryImpIterator : public KvRxDictionaryIterator {
    KVRX_DECLARE_MEMBERS(KvRxDictionaryImpIterator);

public:
    KvRxDictionaryImpIterator(KvRxDictionaryImp* dictionary, bool idOrder);
    bool done() const override;
    bool next() override;
    KvRxObject* object() const override;
    const char16_t* key() const override;
    unsigned int id() const override;

private:
    // The slot under the iterator, or -1 when done.
    int currentSlot() const;
    void skipFreeSlots();

    KvRxDictionaryImp* dictionary;
    bool idOrder;
    int slot;  // index in the entry array when idOrder; the array's length at the end
    KvRxDictionarySortedIndex::Tree::iterator node;
};
