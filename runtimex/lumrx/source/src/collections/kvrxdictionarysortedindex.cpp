#include "collections/kvrxdictionarysortedindex.h"

bool KvRxDictionarySortedIndex::TextLess::operator()(const char16_t* a, const char16_t* b) const {
    if (a == b) return false;
    // The shared start is passed over without folding.
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

bool KvRxDictionarySortedIndex::contains(const KvRxDictionaryKey* key) const { return tree.count(key->text()) != 0; }

void KvRxDictionarySortedIndex::insert(const KvRxDictionaryKey* key, int slot) {
    // Room in the table first: a failure then leaves the tree as it was.
    if (size_t(slot) >= nodes.size()) nodes.resize(size_t(slot) + 1);
    nodes[size_t(slot)] = tree.emplace(key->text(), slot).first;
}

void KvRxDictionarySortedIndex::erase(int slot) { tree.erase(nodes[size_t(slot)]); }

void KvRxDictionarySortedIndex::clear() {
    tree.clear();
    nodes.clear();
}
