// A handle meant as a base class: handles share one held object through a shared,
// atomic count, and a derived class reaches the object through read and write.
//
// Copying a handle only raises the count; the last handle to go deletes the object.
// Handles on one object may be made and dropped on several threads; the object itself
// has no protection.
#pragma once

#include "kvrxobject.h"

class KvRxCopyOnWriteObjectImp;

class KvRxCopyOnWriteObject : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxCopyOnWriteObject);

public:
    // Takes over `object` (null allowed).
    explicit KvRxCopyOnWriteObject(KvRxObject* object);
    KvRxCopyOnWriteObject(const KvRxCopyOnWriteObject& other);
    const KvRxCopyOnWriteObject& operator=(const KvRxCopyOnWriteObject& other);
    ~KvRxCopyOnWriteObject() override;

protected:
    // The held object, shared or not.
    const KvRxObject* read() const;
    // The held object, for changing. A shared one is first copied for this handle
    // alone (by clone); the other handles keep the original. Null if a shared object
    // can't be copied, and then the sharing stays as it was.
    KvRxObject* write();
    // Gives this handle its own copy of a shared object; nothing if it can't be copied.
    void unshare();

private:
    KvRxCopyOnWriteObjectImp* m_impl;  // owned, never null
};
