// The key order of a sorted dictionary: an ordered map from key to slot, with the node
// of every slot remembered, so that a removal or a key reset erases its node without a
// search of the tree. Each node lies in the room its key's block keeps ahead of the key
// (the dictionary's key pool keeps kNodeRoom bytes there), so a comparison in the tree
// reads one block: the node, then the key's length and text just behind it.
//
// Owns: the table of nodes by slot. The nodes are the tree's but their bytes are their
// keys', and the keys belong to the entries.
//
// Invariant (kept in kvrxdictionarysortedindex.cpp): the tree holds exactly the live
// keys, at most one per key by the case rule, each with the slot that holds it, its node
// in that key's room; for every live slot, `nodes[slot]` is the node of its key. A key
// never changes while it is an entry's: it is replaced, and its node leaves the tree
// before its block goes back to the pool.
#pragma once

#include "collections/kvrxdictionarykeyindex.h"

#include <cstddef>
#include <map>
#include <new>
#include <vector>

// Bytes a key's block keeps ahead of the key for its node in the sorted index.
constexpr size_t kKvRxDictionaryNodeRoom = 48;

// Places each tree node in the room named by `*room`, which the index sets before each
// insertion: the room of the key being inserted. A node is never freed on its own; its
// bytes go with its key's block.
template <class T>
struct KvRxDictionaryNodeAllocator {
    using value_type = T;
    void** room;

    explicit KvRxDictionaryNodeAllocator(void** room) : room(room) {}
    template <class U>
    KvRxDictionaryNodeAllocator(const KvRxDictionaryNodeAllocator<U>& other) : room(other.room) {}
    T* allocate(size_t n) {
        static_assert(sizeof(T) <= kKvRxDictionaryNodeRoom && alignof(T) <= 8, "a node fits its key's room");
        void* node = *room;
        if (n != 1 || !node) throw std::bad_alloc();
        *room = nullptr;
        return static_cast<T*>(node);
    }
    void deallocate(T*, size_t) {}
    template <class U>
    bool operator==(const KvRxDictionaryNodeAllocator<U>& other) const { return room == other.room; }
    template <class U>
    bool operator!=(const KvRxDictionaryNodeAllocator<U>& other) const { return room != other.room; }
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
        : tree(KeyLess{ignoreCase}, Tree::allocator_type(&room)) {}
    KvRxDictionarySortedIndex(const KvRxDictionarySortedIndex&) = delete;
    KvRxDictionarySortedIndex& operator=(const KvRxDictionarySortedIndex&) = delete;

    bool contains(const KvRxDictionaryKey* key) const;
    // Enters the key of the live `slot`, which no other slot holds; `keyRoom` is the
    // room ahead of it. Fails only when the slot is new to the table; nothing changes
    // then.
    void insert(const KvRxDictionaryKey* key, void* keyRoom, int slot);
    void erase(int slot);
    void clear();
    size_t size() const { return tree.size(); }
    Tree::iterator begin() { return tree.begin(); }
    Tree::iterator end() { return tree.end(); }

private:
    void* room = nullptr;  // the room for the node being inserted
    Tree tree;
    std::vector<Tree::iterator> nodes;
};
