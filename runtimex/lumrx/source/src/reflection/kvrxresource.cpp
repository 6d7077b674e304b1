#include "kvrxresource.h"

KVRX_DEFINE_MEMBERS_WITH(KvRxResourceLoader, u"KvRxResourceLoader", u"OvRxObject", kvrxDescShort, u"")

KvRxResourceInstance::KvRxResourceInstance(const char16_t*) {}
KvRxResourceInstance::KvRxResourceInstance(void*) {}
const KvRxResourceInstance& KvRxResourceInstance::empty() {
    static const KvRxResourceInstance unloaded(static_cast<void*>(nullptr));
    return unloaded;
}
bool KvRxResourceInstance::isLoaded() const { return false; }
bool KvRxResourceInstance::tryLoadString(int, KvString&) const { return false; }
bool KvRxResourceInstance::loadDataResource(int, unsigned long&, const void*&) const { return false; }
void KvRxResourceInstance::freeDataResource(const void*&) const {}

Kvore::ErrorStatus KvRxResourceLoader::loadString(const KvRxObject*, unsigned, unsigned, KvString&) {
    return Kvore::eNotImplemented;
}

KvRxSharedObject::KvRxSharedObject() = default;
KvRxSharedObject::KvRxSharedObject(void*) {}
KvRxSharedObject::KvRxSharedObject(KvRxSharedObjImp* imp) : ApiPart(imp) {}
KvRxSharedObject& KvRxSharedObject::operator=(KvRxSharedObject&&) { return *this; }
KvRxSharedObject KvRxSharedObject::tryLoad(const char16_t*, bool) { return KvRxSharedObject(); }
bool KvRxSharedObject::isLoaded() const { return false; }
void* KvRxSharedObject::getSymbol(const char*) const { return nullptr; }
