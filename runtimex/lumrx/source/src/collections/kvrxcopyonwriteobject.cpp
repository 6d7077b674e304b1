#include "kvrxcopyonwriteobject.h"

#include "collections/kvrxcopyonwriteobjectimp.h"

#include <memory>

KVRX_DEFINE_MEMBERS_WITH(KvRxCopyOnWriteObject, u"KvRxCopyOnWriteObject", u"OvRxObject",
                         kvrxDescShort, u"Class mismatch");

KvRxCopyOnWriteObjectImp::KvRxCopyOnWriteObjectImp(std::unique_ptr<KvRxObject> object)
    : m_object(nullptr), m_sharedCount(nullptr) {
    if (!object) return;
    m_sharedCount = new Count(1);
    m_object = object.release();
}

KvRxCopyOnWriteObjectImp::KvRxCopyOnWriteObjectImp(const KvRxCopyOnWriteObjectImp& other)
    : KvRxObject(other), m_object(nullptr), m_sharedCount(nullptr) {
    share(other);
}

KvRxCopyOnWriteObjectImp& KvRxCopyOnWriteObjectImp::operator=(
    const KvRxCopyOnWriteObjectImp& other) {
    share(other);
    return *this;
}

KvRxCopyOnWriteObjectImp::~KvRxCopyOnWriteObjectImp() { release(); }

// The new share is counted before the old one goes, so sharing with oneself, or with a
// share of the same object, never lets the count touch 0.
void KvRxCopyOnWriteObjectImp::share(const KvRxCopyOnWriteObjectImp& other) {
    if (other.m_sharedCount) other.m_sharedCount->fetch_add(1);
    KvRxObject* object = other.m_object;
    Count* count = other.m_sharedCount;
    release();
    m_object = object;
    m_sharedCount = count;
}

void KvRxCopyOnWriteObjectImp::release() {
    if (m_sharedCount && m_sharedCount->fetch_sub(1) == 1) {
        delete m_object;
        delete m_sharedCount;
    }
    m_object = nullptr;
    m_sharedCount = nullptr;
}

bool KvRxCopyOnWriteObjectImp::isSole() const {
    return !m_sharedCount || m_sharedCount->load() <= 1;
}

bool KvRxCopyOnWriteObjectImp::takeOwnCopy() {
    std::unique_ptr<KvRxObject> copy(m_object->clone());
    if (!copy) return false;
    KvRxCopyOnWriteObjectImp own(std::move(copy));
    share(own);
    return true;
}

// The object is held by `owned` until the share exists, so no failure leaks it.
KvRxCopyOnWriteObject::KvRxCopyOnWriteObject(KvRxObject* object) : m_impl(nullptr) {
    std::unique_ptr<KvRxObject> owned(object);
    m_impl = new KvRxCopyOnWriteObjectImp(std::move(owned));
}

KvRxCopyOnWriteObject::KvRxCopyOnWriteObject(const KvRxCopyOnWriteObject& other)
    : KvRxObject(other), m_impl(new KvRxCopyOnWriteObjectImp(*other.m_impl)) {}

const KvRxCopyOnWriteObject& KvRxCopyOnWriteObject::operator=(const KvRxCopyOnWriteObject& other) {
    *m_impl = *other.m_impl;
    return *this;
}

KvRxCopyOnWriteObject::~KvRxCopyOnWriteObject() { delete m_impl; }

const KvRxObject* KvRxCopyOnWriteObject::read() const { return m_impl->object(); }

KvRxObject* KvRxCopyOnWriteObject::write() {
    if (m_impl->isSole() || m_impl->takeOwnCopy()) return m_impl->object();
    return nullptr;
}

void KvRxCopyOnWriteObject::unshare() {
    if (!m_impl->isSole()) m_impl->takeOwnCopy();
}
