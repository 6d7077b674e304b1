// The key order of a sorted dictionary: an ordered map from key text to slot, with
// the node of every slot remembered, so that a removal or a key reset erases its node
// without a search of the tree. A node holds the key's text pointer itself, so that a
// comparison in the tree reads the node and the text, not the key object between. The
// nodes come from the index's own pool: they lie together, apart from the entries'
// values, so that a walk or a search of the tree touches few cache lines and pages.
//
// Owns: its node pool (and so every tree node) and the table of nodes by slot; the keys,
// and the texts the nodes point into, belong to the entries.
//
// Invariant (kept in kvrxdictionarysortedindex.cpp): the tree holds exactly the live
// keys, at most one per key by the case rule, each with the slot that holds it and
// that key's own text; for every live slot, `nodes[slot]` is the node of its key. A key's
// text doesn't move while the key is an entry's: a key is replaced, never changed in
// place.
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
    // Orders texts as LumCharOp::compare, or compareNoCase under the ignore-case rule:
    // unit by unit, case-blind by simple case folding.
    struct TextLess {
        bool ignoreCase;
        bool operator()(const char16_t* a, const char16_t* b) const;
    };
    using Tree = std::map<const char16_t*, int, TextLess,
                          KvRxDictionaryNodeAllocator<std::pair<const char16_t* const, int>>>;

    explicit KvRxDictionarySortedIndex(bool ignoreCase)
        : tree(TextLess{ignoreCase}, Tree::allocator_type(&pool)) {}

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
};
