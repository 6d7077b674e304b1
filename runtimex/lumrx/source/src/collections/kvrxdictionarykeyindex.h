// The dictionary's index from key text to entry: an open-addressing hash table whose
// buckets name, for each distinct key (by the dictionary's case rule), the lowest slot
// that holds it. Look-ups hash the caller's text as it is: no temporary key, no
// allocation.
//
// Owns: its bucket array and the chains of slots that share a key; the keys it hashes
// belong to the entries.
//
// Invariant (kept in kvrxdictionarykeyindex.cpp): every live slot is reachable from
// exactly one bucket, the bucket of its key; that bucket names the lowest live slot with
// that key, and the other slots with the key follow it in `sameKey`, ascending. So a
// look-up finds the entry that a walk from slot 0 would find first.
#pragma once

#include "collections/kvrxdictionaryblockpool.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

class KvRxObject;

// A key of the dictionary: its length in units, then the units and a closing zero, in
// one block of its dictionary's key pool. Owned by the entry that holds it (before it is
// entered, by the KvRxDictionaryKeyPool::Owner that holds it).
struct KvRxDictionaryKey {
    int32_t length;

    const char16_t* text() const { return reinterpret_cast<const char16_t*>(this + 1); }
};

// The blocks of a dictionary's keys: a block pool for each size class of up to
// kPooledBytes, so that the keys lie together, apart from the values; a longer key is
// a block of the heap of its own.
//
// Owned by its dictionary; owns its pools (made with the first key) and so the blocks of
// the keys in them.
class KvRxDictionaryKeyPool {
public:
    KvRxDictionaryKeyPool() = default;
    ~KvRxDictionaryKeyPool() { delete[] pools; }
    KvRxDictionaryKeyPool(const KvRxDictionaryKeyPool&) = delete;
    KvRxDictionaryKeyPool& operator=(const KvRxDictionaryKeyPool&) = delete;

    struct Release {
        KvRxDictionaryKeyPool* pool;
        void operator()(KvRxDictionaryKey* key) const { pool->release(key); }
    };
    using Owner = std::unique_ptr<KvRxDictionaryKey, Release>;

    // A key of `text`. Throws std::bad_alloc.
    Owner make(const char16_t* text);
    void release(KvRxDictionaryKey* key);

private:
    static const size_t kClassBytes = 16;
    static const size_t kPooledBytes = 256;
    static size_t bytesOf(size_t length) { return sizeof(KvRxDictionaryKey) + (length + 1) * sizeof(char16_t); }

    KvRxDictionaryBlockPool* pools = nullptr;  // kPooledBytes / kClassBytes of them
};

struct KvRxDictionaryEntry {
    KvRxDictionaryKey* key;
    KvRxObject* value;
};

class KvRxDictionaryKeyIndex {
public:
    explicit KvRxDictionaryKeyIndex(bool ignoreCase) : ignoreCase(ignoreCase) {}

    // The unit as case-blind comparison sees it: ASCII by table, the rest by the
    // platform's simple case folding, as LumCharOp::compareNoCase folds.
    static char16_t folded(char16_t c) { return c < 0x80 ? ((c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c) : foldedBeyondAscii(c); }

    // The lowest live slot whose key matches `text`, or -1. `text` isn't empty.
    int find(const KvRxDictionaryEntry* data, const char16_t* text) const;
    // The same, giving the hash of `text`, which is the hash of the found slot's key.
    int find(const KvRxDictionaryEntry* data, const char16_t* text, uint32_t& hash) const;
    // The hash of the key of the live `slot`.
    uint32_t hashOfSlot(const KvRxDictionaryEntry* data, int slot) const;
    // Enters `slot`, whose key is already stored in `data`.
    void insert(const KvRxDictionaryEntry* data, int slot);
    // The same for a key that no live slot holds, whose hash find() gave: no probe for
    // the key.
    void insertNew(int slot, uint32_t hash) { place(slot, hash); }
    // Takes `slot` out; its key is still stored in `data`.
    void erase(const KvRxDictionaryEntry* data, int slot) { erase(data, slot, hashOfSlot(data, slot)); }
    // The same, with the hash of the slot's key.
    void erase(const KvRxDictionaryEntry* data, int slot, uint32_t hash);
    void clear();
    // True while no key is held by more than one live slot.
    bool keysUnique() const { return sameKey.empty(); }

    size_t bytesUsed() const;

    // True if `key` matches `text` of `length` units by the index's case rule, the rule
    // its hashes follow.
    bool sameText(const KvRxDictionaryKey* key, const char16_t* text, int32_t length) const;

private:
    static constexpr int32_t kEmpty = -1;
    static constexpr int32_t kErased = -2;
    struct Bucket {
        int32_t slot;
        uint32_t hash;
    };

    static char16_t foldedBeyondAscii(char16_t c);
    uint32_t hashOf(const char16_t* text, int32_t& length) const;
    // The bucket that names the key of `slot`'s text, or -1.
    int64_t bucketOf(const KvRxDictionaryEntry* data, const char16_t* text, int32_t length,
                     uint32_t hash) const;
    void grow();
    void place(int32_t slot, uint32_t hash);
    void addToChain(int32_t head, int32_t slot, Bucket& bucket);
    void dropFromChain(int32_t slot, Bucket& bucket);

    bool ignoreCase;
    std::vector<Bucket> buckets;  // a power of two in size, or empty
    size_t used = 0;              // buckets not empty: live and erased
    size_t live = 0;
    // Slot -> next higher slot with the same key, for keys held by more than one slot
    // (made only by putting at an id or resetting a key; rare).
    std::unordered_map<int32_t, int32_t> sameKey;
};
