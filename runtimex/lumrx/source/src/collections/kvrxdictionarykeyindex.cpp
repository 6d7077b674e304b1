#include "collections/kvrxdictionarykeyindex.h"

#include "lumosbase.h"
#include "lumplatform/text.h"

#include <cstring>
#include <new>

namespace {

inline uint32_t finish(uint64_t h) {
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ull;
    h ^= h >> 32;
    return uint32_t(h);
}

}  // namespace

// The size class of a block is its bytes rounded up to kClassBytes; pool i holds the
// blocks of (i + 1) * kClassBytes bytes.
KvRxDictionaryKeyPool::Owner KvRxDictionaryKeyPool::make(const char16_t* text) {
    size_t length = LumCharOp::length(text);
    size_t bytes = bytesOf(length);
    void* block;
    if (bytes <= kPooledBytes) {
        if (!pools) pools = new KvRxDictionaryBlockPool[kPooledBytes / kClassBytes];
        size_t sizeClass = (bytes - 1) / kClassBytes;
        block = pools[sizeClass].take((sizeClass + 1) * kClassBytes);
    } else {
        block = _lumMalloc(bytes);
        if (!block) throw std::bad_alloc();
    }
    auto* key = static_cast<KvRxDictionaryKey*>(block);
    key->length = int32_t(length);
    std::memcpy(static_cast<void*>(key + 1), text, (length + 1) * sizeof(char16_t));
    return Owner(key, Release{this});
}

void KvRxDictionaryKeyPool::release(KvRxDictionaryKey* key) {
    if (!key) return;
    size_t bytes = bytesOf(size_t(key->length));
    if (bytes <= kPooledBytes)
        pools[(bytes - 1) / kClassBytes].give(key);
    else
        _lumFree(key);
}

char16_t KvRxDictionaryKeyIndex::foldedBeyondAscii(char16_t c) { return lumplatform::foldCaseUnit(c); }

// Two texts that match by the case rule have the same hash: case-blind hashing folds
// every unit exactly as the comparison does.
uint32_t KvRxDictionaryKeyIndex::hashOf(const char16_t* text, int32_t& length) const {
    uint64_t h = 0xcbf29ce484222325ull;
    const char16_t* p = text;
    if (ignoreCase)
        for (; *p; ++p) h = (h ^ folded(*p)) * 0x100000001b3ull;
    else
        for (; *p; ++p) h = (h ^ *p) * 0x100000001b3ull;
    length = int32_t(p - text);
    return finish(h + uint64_t(length));
}

bool KvRxDictionaryKeyIndex::sameText(const KvRxDictionaryKey* key, const char16_t* text, int32_t length) const {
    if (key->length != length) return false;
    const char16_t* k = key->text();
    if (!ignoreCase) {
        for (int32_t i = 0; i < length; ++i)
            if (k[i] != text[i]) return false;
        return true;
    }
    for (int32_t i = 0; i < length; ++i)
        if (k[i] != text[i] && folded(k[i]) != folded(text[i])) return false;
    return true;
}

int64_t KvRxDictionaryKeyIndex::bucketOf(const KvRxDictionaryEntry* data, const char16_t* text,
                                         int32_t length, uint32_t hash) const {
    if (buckets.empty()) return -1;
    size_t mask = buckets.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const Bucket& b = buckets[i];
        if (b.slot == kEmpty) return -1;
        if (b.slot >= 0 && b.hash == hash && sameText(data[b.slot].key, text, length)) return int64_t(i);
    }
}

int KvRxDictionaryKeyIndex::find(const KvRxDictionaryEntry* data, const char16_t* text) const {
    uint32_t hash;
    return find(data, text, hash);
}

int KvRxDictionaryKeyIndex::find(const KvRxDictionaryEntry* data, const char16_t* text, uint32_t& hash) const {
    int32_t length;
    hash = hashOf(text, length);
    int64_t i = bucketOf(data, text, length, hash);
    return i < 0 ? -1 : buckets[size_t(i)].slot;
}

uint32_t KvRxDictionaryKeyIndex::hashOfSlot(const KvRxDictionaryEntry* data, int slot) const {
    int32_t length;
    return hashOf(data[slot].key->text(), length);
}

// Keeps the table at most three quarters full, erased buckets counted, so that every
// probe ends at an empty bucket.
void KvRxDictionaryKeyIndex::grow() {
    size_t size = buckets.empty() ? 16 : buckets.size();
    while ((live + 1) * 2 > size) size *= 2;
    std::vector<Bucket> old(size, Bucket{kEmpty, 0});
    old.swap(buckets);
    used = live;
    size_t mask = buckets.size() - 1;
    for (const Bucket& b : old) {
        if (b.slot < 0) continue;
        size_t i = b.hash & mask;
        while (buckets[i].slot != kEmpty) i = (i + 1) & mask;
        buckets[i] = b;
    }
}

void KvRxDictionaryKeyIndex::place(int32_t slot, uint32_t hash) {
    if ((used + 1) * 4 > buckets.size() * 3) grow();
    size_t mask = buckets.size() - 1;
    size_t i = hash & mask;
    while (buckets[i].slot >= 0) i = (i + 1) & mask;
    if (buckets[i].slot == kEmpty) ++used;
    buckets[i] = Bucket{slot, hash};
    ++live;
}

// The chain of a key runs from the bucket's slot upwards; a lower slot becomes the head.
void KvRxDictionaryKeyIndex::addToChain(int32_t head, int32_t slot, Bucket& bucket) {
    if (slot < head) {
        sameKey[slot] = head;
        bucket.slot = slot;
        return;
    }
    int32_t at = head;
    for (auto next = sameKey.find(at); next != sameKey.end() && next->second < slot; next = sameKey.find(at))
        at = next->second;
    auto next = sameKey.find(at);
    if (next != sameKey.end()) sameKey[slot] = next->second;
    sameKey[at] = slot;
}

void KvRxDictionaryKeyIndex::insert(const KvRxDictionaryEntry* data, int slot) {
    const KvRxDictionaryKey* key = data[slot].key;
    int32_t length;
    uint32_t hash = hashOf(key->text(), length);
    int64_t i = bucketOf(data, key->text(), length, hash);
    if (i < 0) {
        place(slot, hash);
        return;
    }
    Bucket& bucket = buckets[size_t(i)];
    addToChain(bucket.slot, slot, bucket);
}

void KvRxDictionaryKeyIndex::dropFromChain(int32_t slot, Bucket& bucket) {
    auto own = sameKey.find(slot);
    int32_t next = own == sameKey.end() ? kEmpty : own->second;
    if (own != sameKey.end()) sameKey.erase(own);
    if (bucket.slot == slot) {
        // The next slot with the key becomes the one a look-up finds.
        if (next >= 0) {
            bucket.slot = next;
        } else {
            bucket.slot = kErased;
            --live;
        }
        return;
    }
    int32_t at = bucket.slot;
    for (auto it = sameKey.find(at); it != sameKey.end(); it = sameKey.find(at)) {
        if (it->second == slot) {
            if (next >= 0)
                it->second = next;
            else
                sameKey.erase(it);
            return;
        }
        at = it->second;
    }
}

void KvRxDictionaryKeyIndex::erase(const KvRxDictionaryEntry* data, int slot, uint32_t hash) {
    if (sameKey.empty()) {
        // No key is held by two slots, so every live slot names its own bucket: the
        // probe looks for the slot itself and compares no text.
        if (buckets.empty()) return;
        size_t mask = buckets.size() - 1;
        for (size_t i = hash & mask; buckets[i].slot != kEmpty; i = (i + 1) & mask) {
            if (buckets[i].slot == slot) {
                dropFromChain(slot, buckets[i]);
                return;
            }
        }
        return;
    }
    const KvRxDictionaryKey* key = data[slot].key;
    int64_t i = bucketOf(data, key->text(), key->length, hash);
    if (i >= 0) dropFromChain(slot, buckets[size_t(i)]);
}

void KvRxDictionaryKeyIndex::clear() {
    buckets.clear();
    used = live = 0;
    sameKey.clear();
}

size_t KvRxDictionaryKeyIndex::bytesUsed() const {
    return buckets.capacity() * sizeof(Bucket) + sameKey.size() * (sizeof(int32_t) * 2 + 2 * sizeof(void*));
}
