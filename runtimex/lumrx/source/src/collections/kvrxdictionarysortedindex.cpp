#include "collections/kvrxdictionarysortedindex.h"

#include <cstdint>
#include <cstring>

bool KvRxDictionarySortedIndex::KeyLess::operator()(const KvRxDictionaryKey* ka,
                                                    const KvRxDictionaryKey* kb) const {
    if (ka == kb) return false;
    // The shared start is passed over without folding, four units at a time within the
    // shorter key (a key holds no zero unit), then unit by unit.
    const char16_t* a = ka->text();
    const char16_t* b = kb->text();
    int32_t shorter = ka->length < kb->length ? ka->length : kb->length;
    for (int32_t i = 0; i + 4 <= shorter; i += 4, a += 4, b += 4) {
        uint64_t wa, wb;
        std::memcpy(&wa, a, sizeof wa);
        std::memcpy(&wb, b, sizeof wb);
        if (wa != wb) break;
    }
    while (*a && *a == *b) ++a, ++b;
    if (!ignoreCase) return *a < *b;
    for (;; ++a, ++b) {
        if (*a == *b) {
            if (!*a) return false;
            continue;
        }
        char16_t ca = KvRxDictionaryKeyIndex::folded(*a), cb = KvRxDictionaryKeyIndex::folded(*b);
        if (ca != cb) return ca < cb;
    }
}

bool KvRxDictionarySortedIndex::contains(const KvRxDictionaryKey* key) const { return tree.count(key) != 0; }

void KvRxDictionarySortedIndex::insert(const KvRxDictionaryKey* key, int slot) {
    // Room in the table first: a failure then leaves the tree as it was.
    if (size_t(slot) >= nodes.size()) nodes.resize(size_t(slot) + 1);
    nodes[size_t(slot)] = tree.emplace(key, slot).first;
}

void KvRxDictionarySortedIndex::erase(int slot) { tree.erase(nodes[size_t(slot)]); }

void KvRxDictionarySortedIndex::clear() {
    tree.clear();
    nodes.clear();
}
