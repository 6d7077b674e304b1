// One handle's share of a held object.
//
// Owned by its KvRxCopyOnWriteObject. The object and its count block travel together
// as one shared pointer: they belong to all the shares together, and the share that
// lowers the count to 0 deletes both.
//
// Invariant: `sharedCount` is null exactly when `object` is null.
#pragma once

#include "kvrxobject.h"

#include <atomic>
#include <cstdint>
#include <memory>

class KvRxCopyOnWriteObjectImp : public KvRxObject {
public:
    // Takes over `object`, with a count of 1 if it isn't null; a failed allocation
    // deletes it and is thrown.
    explicit KvRxCopyOnWriteObjectImp(std::unique_ptr<KvRxObject> object);
    KvRxCopyOnWriteObjectImp(const KvRxCopyOnWriteObjectImp& other);
    KvRxCopyOnWriteObjectImp& operator=(const KvRxCopyOnWriteObjectImp& other);
    ~KvRxCopyOnWriteObjectImp() override;

    KvRxObject* object() const { return m_object; }
    // True unless other shares hold the object too.
    bool isSole() const;
    // Replaces this share by a sole hold of a clone; false, with nothing changed, if
    // the object gives no clone.
    bool takeOwnCopy();

private:
    using Count = std::atomic<int32_t>;

    // Takes a share of what `other` holds, then lets go of the old one.
    void share(const KvRxCopyOnWriteObjectImp& other);
    void release();

    KvRxObject* m_object;
    Count* m_sharedCount;
};
