// The key order of a sorted dictionary: an ordered map from key text to slot, with
// the node of every slot remembered, so that a removal or a key reset erases its node
// without a search of the tree. A node holds the key's text pointer itself, so that a
// comparison in the tree reads the node and the text, not the key object between.
//
// Owns: its tree nodes and the table of nodes by slot; the key objects, and the texts
// the nodes point into, belong to the entries.
//
// Invariant (kept in kvrxdictionarysortedindex.cpp): the tree holds exactly the live
// keys, at most one per key by the case rule, each with the slot that holds it and
// that key's own text; for every live slot, `nodes[slot]` is the node of its key. A key
// object's text doesn't move while the object is an entry's key: a key is replaced,
// never changed in place.
#pragma once

#include "collections/kvrxdictionarykeyindex.h"

#include <map>
#include <vector>

class KvRxDictionarySortedIndex {
public:
    // Orders texts as LumCharOp::compare, or compareNoCase under the ignore-case rule:
    // unit by unit, case-blind by simple case folding.
    struct TextLess {
        bool ignoreCase;
        bool operator()(const char16_t* a, const char16_t* b) const;
    };
    using Tree = std::map<const char16_t*, int, TextLess>;

    explicit KvRxDictionarySortedIndex(bool ignoreCase) : tree(TextLess{ignoreCase}) {}

    bool contains(const KvRxDictionaryKey* key) const;
    // Enters the key of the live `slot`; on failure nothing changes.
    void insert(const KvRxDictionaryKey* key, int slot);
    void erase(int slot);
    void clear();
    size_t size() const { return tree.size(); }
    Tree::iterator begin() { return tree.begin(); }
    Tree::iterator end() { return tree.end(); }

private:
    Tree tree;
    std::vector<Tree::iterator> nodes;
};
