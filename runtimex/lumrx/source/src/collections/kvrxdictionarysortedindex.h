// The key order of a sorted dictionary: an ordered map from key object to slot, with
// the node of every slot remembered, so that a removal or a key reset erases its node
// without a search of the tree.
//
// Owns: its tree nodes and the table of nodes by slot; the key objects belong to the
// entries.
//
// Invariant (kept in kvrxdictionarysortedindex.cpp): the tree holds exactly the live
// keys, at most one per key by the case rule, each with the slot that holds it; for
// every live slot, `nodes[slot]` is the node of its key.
#pragma once

#include "kvrxdictionary.h"

#include <map>
#include <vector>

class KvRxDictionarySortedIndex {
public:
    struct KeyLess {
        bool operator()(const KvRxString* a, const KvRxString* b) const { return KvRxString::less(a, b); }
    };
    using Tree = std::map<KvRxString*, int, KeyLess>;

    bool contains(const KvRxString* key) const { return tree.count(const_cast<KvRxString*>(key)) != 0; }
    // Enters the key of the live `slot`; on failure nothing changes.
    void insert(KvRxString* key, int slot);
    void erase(int slot);
    void clear();
    size_t size() const { return tree.size(); }
    Tree::iterator begin() { return tree.begin(); }
    Tree::iterator end() { return tree.end(); }

private:
    Tree tree;
    std::vector<Tree::iterator> nodes;
};
