// The last answer of a protocol-extension map, so that repeated queries of one
// protocol on a class cost a compare instead of a tree look-up.
//
// Held by value in the map it serves; owns nothing.
//
// Invariant: when `valid`, the map holds `value` under `key`, or holds no entry for
// `key` and `value` is null, exactly as a look-up would answer now. The map empties
// the cache in every operation that changes it (put, remove, removeAll, and a put
// through an iterator), so that no change can leave a stale answer: extensions copied
// down or taken off along the tree, classes linked late, protocol classes destroyed.
#pragma once

class KvRxObject;

struct KvRxPEQueryCache {
    const KvRxObject* key = nullptr;
    KvRxObject* value = nullptr;
    bool valid = false;

    bool holds(const KvRxObject* k) const { return valid && key == k; }
    void fill(const KvRxObject* k, KvRxObject* v) {
        key = k;
        value = v;
        valid = true;
    }
    void forget() { valid = false; }
};
