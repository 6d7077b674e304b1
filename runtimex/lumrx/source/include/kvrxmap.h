// Ordered maps from objects to objects, and their iterators.
//
// A map owns its nodes and never its values. KvRxMap orders keys by their own
// comparedTo and keeps a private clone of each; KvRxPEClassMap, the map of protocol
// extensions on a class, orders keys by address and keeps the pointer itself.
//
// Operations that take an iterator want one of the map's own iterator class, made by
// this very map; any other is fatal (status 46). Erasing the node under an iterator
// other than through remove with that iterator leaves it dangling; adding keys
// doesn't disturb it.
#pragma once

#include "kvrxcollection.h"

class KvRxGenericMapIterator : public KvRxIterator {
    KVRX_DECLARE_MEMBERS(KvRxGenericMapIterator);

public:
    // The stored key; null when done().
    virtual const KvRxObject* key() const = 0;
};

class KvRxGenericMap : public KvRxIterable {
    KVRX_DECLARE_MEMBERS(KvRxGenericMap);

public:
    // newIterator(), inherited, gives the same kind of iterator: on the first node, in
    // key order, deleted by the caller.
    virtual KvRxGenericMapIterator* newMapIterator() = 0;
    // The value of the key's node, which is erased; null if the key is absent.
    virtual KvRxObject* remove(const KvRxObject* key) = 0;
    // Moves the iterator to the next node, erases the one it stood on and gives its
    // value; null for a finished iterator.
    virtual KvRxObject* remove(KvRxGenericMapIterator* iterator) = 0;
    // Empties the map; the values stay alive.
    virtual void removeAll() = 0;
    // Replaces the value under the iterator and gives the old one; null for a null or
    // finished iterator.
    virtual KvRxObject* put(KvRxGenericMapIterator* iterator, KvRxObject* value) = 0;
    // Stores `value` under `key` and gives the value it displaced, or null for a new
    // key. A null key stores nothing.
    virtual KvRxObject* put(const KvRxObject* key, KvRxObject* value) = 0;
    // The value under `key`, or null (also for a null key).
    virtual KvRxObject* at(const KvRxObject* key) const = 0;
    // A new iterator on the key, deleted by the caller; null for a null or absent key.
    virtual KvRxGenericMapIterator* find(const KvRxObject* key) = 0;
    // at(key) != nullptr: a key held with a null value counts as absent.
    virtual bool has(const KvRxObject* key) const = 0;
    virtual unsigned int size() const = 0;
};

// The iterator of a KvRxMap; only maps make them.
class KvRxMapIterator : public KvRxGenericMapIterator {
    KVRX_DECLARE_MEMBERS(KvRxMapIterator);

private:
    friend class KvRxMapIteratorImp;
    KvRxMapIterator() = default;
};

// Keys are ordered by comparedTo: `a` is less than `b` if they aren't one pointer and
// `a` is null, or `b` isn't and a->comparedTo(b) is kLessThan. A key class whose
// comparedTo can't order (the root's gives 2) makes all its keys one key.
//
// Owns its tree: the nodes and the key clones in them. A key must clone (a class with
// a factory and a copyFrom); put of a new key that gives no clone stores nothing and
// gives null. remove(iterator) with a null iterator is fatal.
class KvRxMap : public KvRxGenericMap {
    KVRX_DECLARE_MEMBERS(KvRxMap);

public:
    KvRxMap();
    ~KvRxMap() override;
    KvRxMap(const KvRxMap&) = delete;
    KvRxMap& operator=(const KvRxMap&) = delete;

    KvRxIterator* newIterator() override;
    KvRxGenericMapIterator* newMapIterator() override;
    KvRxObject* remove(const KvRxObject* key) override;
    KvRxObject* remove(KvRxGenericMapIterator* iterator) override;
    // The tree is emptied before the key clones go, so a key's destructor sees an
    // empty map.
    void removeAll() override;
    KvRxObject* put(KvRxGenericMapIterator* iterator, KvRxObject* value) override;
    KvRxObject* put(const KvRxObject* key, KvRxObject* value) override;
    KvRxObject* at(const KvRxObject* key) const override;
    KvRxGenericMapIterator* find(const KvRxObject* key) override;
    bool has(const KvRxObject* key) const override;
    unsigned int size() const override;

private:
    friend class KvRxMapIteratorImp;
    struct Tree;
    Tree* m_tree;  // owned, never null
};

// The iterator of a KvRxPEClassMap; only those maps make them.
class KvRxPEClassMapIterator : public KvRxGenericMapIterator {
    KVRX_DECLARE_MEMBERS(KvRxPEClassMapIterator);

private:
    friend class KvRxPEClassMapIteratorImp;
    KvRxPEClassMapIterator() = default;
};

// The map of protocol extensions that each class holds (see KvRxClass::addX): keys are
// protocol classes, compared by address and not owned; values aren't owned either.
// Nothing is cloned or deleted. remove(iterator) with a null iterator gives null.
class KvRxPEClassMap : public KvRxGenericMap {
    KVRX_DECLARE_MEMBERS(KvRxPEClassMap);

private:
    friend class KvRxPEClassMapImp;
    KvRxPEClassMap() = default;
};
