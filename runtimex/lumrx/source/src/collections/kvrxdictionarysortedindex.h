// The key order of a sorted dictionary: an ordered map from key to slot, with the node
// of every slot remembered, so that a removal or a key reset erases its node without a
// search of the tree. A comparison in the tree reads the node and the key's block,
// which holds the length beside the text. The nodes come from the index's own pool:
// they lie together, apart from the entries' values, so that a walk or a search of the
// tree touches few cache lines and pages.
//
// Owns: its node pool (and so every tree node) and the table of nodes by slot; the keys
// the nodes point to belong to the entries.
//
// Invariant (kept in kvrxdictionarysortedindex.cpp): the tree holds exactly the live
// keys, at most one per key by the case rule, each with the slot that holds it; for
// every live slot, `nodes[slot]` is the node of its key. A key never changes while it
// is an entry's: it is replaced. `lastSlot` is the slot entered last while its node is
// in the tree, else -1; `lastBeside` is true when that node went in beside the node
// entered before it. Keys often come in or against name order (a module's classes):
// while they do, an insertion first tries the place beside the last node, and as soon
// as one lands elsewhere, insertions search from the root until two land side by side
// again.
#pragma once

#include "collections/kvrxdictionaryblockpool.h"
#include "collections/kvrxdictionarykeyindex.h"

#include <cstddef>
#include <map>
#include <vector>

// Gives the tree's nodes from a pool; other requests go to the heap.
template <class T>
struct KvRxDictionaryNodeAllocator {
    using value_type = T;
    KvRxDictionaryBlockPool* pool;

    explicit KvRxDictionaryNodeAllocator(KvRxDictionaryBlockPool* pool) : pool(pool) {}
    template <class U>
    KvRxDictionaryNodeAllocator(const KvRxDictionaryNodeAllocator<U>& other) : pool(other.pool) {}
    T* allocate(size_t n) {
        return static_cast<T*>(n == 1 ? pool->take(sizeof(T)) : ::operator new(n * sizeof(T)));
    }
    void deallocate(T* p, size_t n) {
        if (n == 1)
            pool->give(p);
        else
            ::operator delete(p);
    }
    template <class U>
    bool operator==(const KvRxDictionaryNodeAllocator<U>& other) const { return pool == other.pool; }
    template <class U>
    bool operator!=(const KvRxDictionaryNodeAllocator<U>& other) const { return pool != other.pool; }
};

class KvRxDictionarySortedIndex {
public:
    // Orders keys as LumCharOp::compare orders their texts, or compareNoCase under the
    // ignore-case rule: unit by unit, case-blind by simple case folding.
    struct KeyLess {
        bool ignoreCase;
        bool operator()(const KvRxDictionaryKey* a, const KvRxDictionaryKey* b) const;
    };
    using Tree = std::map<const KvRxDictionaryKey*, int, KeyLess,
                          KvRxDictionaryNodeAllocator<std::pair<const KvRxDictionaryKey* const, int>>>;

    explicit KvRxDictionarySortedIndex(bool ignoreCase)
        : tree(KeyLess{ignoreCase}, Tree::allocator_type(&pool)) {}

    bool contains(const KvRxDictionaryKey* key) const;
    // Enters the key of the live `slot`; on failure nothing changes.
    void insert(const KvRxDictionaryKey* key, int slot);
    void erase(int slot);
    void clear();
    size_t size() const { return tree.size(); }
    Tree::iterator begin() { return tree.begin(); }
    Tree::iterator end() { return tree.end(); }

private:
    KvRxDictionaryBlockPool pool;  // before the tree: made first, freed last
    Tree tree;
    std::vector<Tree::iterator> nodes;
    int lastSlot = -1;
    bool lastBeside = false;
};
