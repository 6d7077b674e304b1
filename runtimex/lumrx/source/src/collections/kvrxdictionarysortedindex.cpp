#include "collections/kvrxdictionarysortedindex.h"

void KvRxDictionarySortedIndex::insert(KvRxString* key, int slot) {
    // Room in the table first: a failure then leaves the tree as it was.
    if (size_t(slot) >= nodes.size()) nodes.resize(size_t(slot) + 1);
    nodes[size_t(slot)] = tree.emplace(key, slot).first;
}

void KvRxDictionarySortedIndex::erase(int slot) { tree.erase(nodes[size_t(slot)]); }

void KvRxDictionarySortedIndex::clear() {
    tree.clear();
    nodes.clear();
}
