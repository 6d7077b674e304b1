// The chain of a class's ancestors, for kind tests that take the same time at any
// depth and for a miss as for a hit.
//
// Owned by the class state that holds it. A line of up to kInline classes lives in the
// object itself; a longer one in an array from _lumMalloc that the object owns. It owns
// none of the classes in it.
//
// Invariant: `chain[0..depth]` is the class's line along its parent links, from the
// topmost class it reaches (the root, or a class still waiting for its parent) down
// to the class itself at `chain[depth]`. So a class B is an ancestor of A, or A itself,
// exactly when B's depth is at most A's and A's chain holds B at B's depth. The chain
// is made when the class registers (the class alone) and when it is linked (its
// parent's chain and the class); the chains of the classes below a class linked in a
// pass of kvrxBuildClassHierarchy are made anew, each once, when the pass ends, however
// it ends (KvRxClassState::settleLines). Within a pass a chain may still start at a
// class that has since been linked; it is a true path from there down, and the pass's
// loop check climbs across such tops. Destruction changes no live line, since a class
// leaves only after its children with the order checks on, and with them off the
// whole tree goes.
#pragma once

class KvRxClass;

class KvRxClassAncestry {
public:
    KvRxClassAncestry() = default;
    ~KvRxClassAncestry();
    KvRxClassAncestry(const KvRxClassAncestry&) = delete;
    KvRxClassAncestry& operator=(const KvRxClassAncestry&) = delete;

    // The line of a class without a parent: the class alone. False without memory,
    // and the line is then unchanged.
    bool makeTop(const KvRxClass* self);
    // The line of `parent` and then `self`. False without memory.
    bool makeBelow(const KvRxClassAncestry& parent, const KvRxClass* self);

    // True if `other`, whose line is `others`, is this class or one of its ancestors.
    bool holds(const KvRxClass* other, const KvRxClassAncestry& others) const {
        return others.m_depth <= m_depth && m_chain[others.m_depth] == other;
    }
    int depth() const { return m_depth; }
    // The class at `depth` of the line (0 is the top); `depth` at most depth().
    const KvRxClass* at(int depth) const { return m_chain[depth]; }
    // Bytes held beside the object.
    unsigned long heapBytes() const {
        return m_chain == m_inline ? 0 : (unsigned long)(m_depth + 1) * sizeof(const KvRxClass*);
    }

private:
    // Most class trees are shallower than this: their lines take no allocation.
    static const int kInline = 8;

    bool resize(int depth);

    // The pointer first: destruction reads it alone.
    const KvRxClass** m_chain = m_inline;  // m_inline, or an owned array
    int m_depth = 0;
    const KvRxClass* m_inline[kInline] = {};
};
