// The last answer of a class's protocol-extension map, so that repeated queries of one
// protocol on a class cost a compare instead of a tree look-up.
//
// Held by value in the class state, next to the pointer of the map it serves, so that a
// query reads it without going through the map; the map keeps a reference to it. Owns
// nothing.
//
// Invariant: the map holds `value` under `key`, or holds no entry for `key` and `value`
// is null, exactly as a look-up would answer now. An empty cache holds null under a
// null key, which is also the answer for a null protocol class, so a query needs no
// separate test for it. The map empties the cache in every operation that changes it
// (put, remove, removeAll, and a put through an iterator), so that no change can leave
// a stale answer: extensions copied down or taken off along the tree, classes linked
// late, protocol classes destroyed.
#pragma once

class KvRxObject;

struct KvRxPEQueryCache {
    const KvRxObject* key = nullptr;
    KvRxObject* value = nullptr;

    bool holds(const KvRxObject* k) const { return key == k; }
    void fill(const KvRxObject* k, KvRxObject* v) {
        key = k;
        value = v;
    }
    void forget() {
        key = nullptr;
        value = nullptr;
    }
};
