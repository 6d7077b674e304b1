// The linker's index beside its module table: the table key (the full file name, any
// case) of each proxy in the table, and back. The table itself is a dictionary that
// compares keys one by one; the index answers the same questions by hashing.
//
// Invariant, kept by the linker at every change of the table (a module stored, a key
// taken over by a newer load, an entry removed at the flush): `find(k)` is the object
// the table holds under key `k`, and `holds(p)` is true exactly for the objects in the
// table. Keys are folded unit by unit as the table's case-blind comparison folds them,
// so two keys the table finds equal are one key here. Proxies are not owned.
//
// Invariant across every index alive: anyHeld() is false exactly when no index holds a
// proxy, so that a linker look-up, which answers null from an empty table, can be known
// to answer null without asking it. Each index adds its own count on each change and
// takes it back when it goes.
#pragma once

#include <string>
#include <unordered_map>

class KvRxDynLoadModuleProxy;

class KvRxModuleIndex {
public:
    KvRxModuleIndex() = default;
    ~KvRxModuleIndex();
    KvRxModuleIndex(const KvRxModuleIndex&) = delete;
    KvRxModuleIndex& operator=(const KvRxModuleIndex&) = delete;

    // `proxy` is stored under `key`; a proxy held under that key before leaves.
    void put(const std::u16string& key, KvRxDynLoadModuleProxy* proxy);
    // `proxy` leaves, and its key with it unless a newer proxy holds that key now.
    void remove(const KvRxDynLoadModuleProxy* proxy);
    KvRxDynLoadModuleProxy* find(const std::u16string& key) const;
    // Compares only: `proxy` may name an object that is gone.
    bool holds(const KvRxDynLoadModuleProxy* proxy) const { return m_keys.count(proxy) != 0; }
    // True when the table holds nothing, so no name can be found in it.
    bool empty() const { return m_keys.empty(); }
    // True when some index, of any linker, holds a proxy.
    static bool anyHeld();
    // The key `proxy` is stored under; null if it isn't in the table. Valid until the
    // next change of the index.
    const std::u16string* keyOf(const KvRxDynLoadModuleProxy* proxy) const;

private:
    // Hash and equality of keys folded unit by unit, so that a look-up needs no folded
    // copy of its key.
    struct FoldedHash {
        size_t operator()(const std::u16string& key) const;
    };
    struct FoldedEqual {
        bool operator()(const std::u16string& a, const std::u16string& b) const;
    };
    // Moves the count of all indexes by the change of this one's since `before`.
    void counted(size_t before) const;

    std::unordered_map<std::u16string, KvRxDynLoadModuleProxy*, FoldedHash, FoldedEqual> m_byKey;
    std::unordered_map<const KvRxDynLoadModuleProxy*, std::u16string> m_keys;  // as stored
};
