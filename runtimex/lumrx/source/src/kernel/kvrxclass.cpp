#include "kvrxclass.h"

#include "kernel/kvrximpclass.h"
#include "kernel/kvrxmoduleglobal.h"

#include <memory>

KVRX_DEFINE_MEMBERS(KvRxClass, u"OvRxClass", u"OvRxObject");

KvRxClass::KvRxClass() : m_impl(nullptr) {}

KvRxClass::KvRxClass(const char16_t* name, const char16_t* parentName,
                     KvRxMemberBuilder memberBuilder, void* memberBuilderData)
    : m_impl(nullptr) {
    KvRxClassState::Registration r;
    r.name = name;
    r.parentName = parentName;
    r.memberBuilder = memberBuilder;
    r.memberBuilderData = memberBuilderData;
    KvRxClassState::registerClass(r, this);
}

KvRxClass::~KvRxClass() { KvRxClassState::destroy(m_impl); }

KvRxObject* KvRxClass::create() { return m_impl->create(); }
const char16_t* KvRxClass::appName() const { return m_impl->appName(); }
const char16_t* KvRxClass::dxfName() const { return m_impl->dxfName(); }
const char16_t* KvRxClass::name() const { return m_impl ? m_impl->name() : u""; }

void KvRxClass::getClassVersion(int& version, int& maintenanceVersion) const {
    m_impl->getClassVersion(version, maintenanceVersion);
}

int KvRxClass::proxyFlags() const { return m_impl->proxyFlags(); }
bool KvRxClass::isDerivedFrom(const KvRxClass* other) const {
    return KvRxClassState::of(this)->isDerivedFrom(other);
}

bool KvRxClass::isDerivedFrom(const KvRxClass* derived, const KvRxClass* base) {
    return derived && derived->isDerivedFrom(base);
}

KvRxClass* KvRxClass::myParent() const { return m_impl->myParent(); }
KvRx::Ordering KvRxClass::comparedTo(const KvRxObject* other) const { return m_impl->comparedTo(other); }
KvRxAppNameCallback KvRxClass::appNameCallbackPtr() const { return m_impl->appNameCallbackPtr(); }
KvRxObject* KvRxClass::addX(KvRxClass* protocolClass, KvRxObject* object) {
    return m_impl->addX(protocolClass, object);
}
KvRxObject* KvRxClass::getX(const KvRxClass* protocolClass) { return m_impl->getX(protocolClass); }
KvRxObject* KvRxClass::delX(KvRxClass* protocolClass) { return m_impl->delX(protocolClass); }
KvRxObject* KvRxClass::queryX(const KvRxClass* protocolClass) {
    return KvRxClassState::of(this)->queryX(protocolClass);
}
KvRxMemberCollection* KvRxClass::members() const { return nullptr; }
const KvRxSet* KvRxClass::descendants() const { return nullptr; }

KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int proxyFlags,
                        KvRxPseudoConstructor pseudoConstructor, const char16_t* dxfName,
                        const char16_t* appName) {
    return newKvRxClass(name, parentName, 0, 0, proxyFlags, pseudoConstructor, dxfName, appName,
                        nullptr, nullptr, nullptr);
}

KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int version,
                        int maintenanceVersion, int proxyFlags,
                        KvRxPseudoConstructor pseudoConstructor, const char16_t* dxfName,
                        const char16_t* appName, KvRxAppNameCallback appNameCallback) {
    return newKvRxClass(name, parentName, version, maintenanceVersion, proxyFlags,
                        pseudoConstructor, dxfName, appName, appNameCallback, nullptr, nullptr);
}

KvRxClass* newKvRxClass(const char16_t* name, const char16_t* parentName, int version,
                        int maintenanceVersion, int proxyFlags,
                        KvRxPseudoConstructor pseudoConstructor, const char16_t* dxfName,
                        const char16_t* appName, KvRxAppNameCallback appNameCallback,
                        KvRxMemberBuilder memberBuilder, void* memberBuilderData) {
    return newKvRxClassWithFeature(name, parentName, version, maintenanceVersion, proxyFlags,
                                   pseudoConstructor, dxfName, appName, appNameCallback,
                                   memberBuilder, memberBuilderData, 0);
}

KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName,
                                   unsigned int feature, int proxyFlags,
                                   KvRxPseudoConstructor pseudoConstructor,
                                   const char16_t* dxfName, const char16_t* appName) {
    return newKvRxClassWithFeature(name, parentName, 0, 0, proxyFlags, pseudoConstructor, dxfName,
                                   appName, nullptr, nullptr, nullptr, feature);
}

KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName, int version,
                                   int maintenanceVersion, unsigned int feature, int proxyFlags,
                                   KvRxPseudoConstructor pseudoConstructor,
                                   const char16_t* dxfName, const char16_t* appName,
                                   KvRxAppNameCallback appNameCallback) {
    return newKvRxClassWithFeature(name, parentName, version, maintenanceVersion, proxyFlags,
                                   pseudoConstructor, dxfName, appName, appNameCallback, nullptr,
                                   nullptr, feature);
}

KvRxClass* newKvRxClassWithFeature(const char16_t* name, const char16_t* parentName, int version,
                                   int maintenanceVersion, int proxyFlags,
                                   KvRxPseudoConstructor pseudoConstructor,
                                   const char16_t* dxfName, const char16_t* appName,
                                   KvRxAppNameCallback appNameCallback,
                                   KvRxMemberBuilder memberBuilder, void* memberBuilderData,
                                   unsigned int feature) {
    KvRxClassState::Registration r;
    r.name = name;
    r.parentName = parentName;
    r.version = version;
    r.maintenanceVersion = maintenanceVersion;
    r.proxyFlags = proxyFlags;
    r.feature = feature;
    r.pseudoConstructor = pseudoConstructor;
    r.dxfName = dxfName;
    r.appName = appName;
    r.appNameCallback = appNameCallback;
    r.memberBuilder = memberBuilder;
    r.memberBuilderData = memberBuilderData;
    return KvRxClassState::registerClass(r, nullptr);
}

void deleteKvRxClass(KvRxClass* aClass) { KvRxClassState::doom(aClass); }

void kvrxBuildClassHierarchy() {
    KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
    if (!g) return;
    // Only the waiting classes, in the name order of the class dictionary. A parent need
    // only be registered, not linked.
    // The lines below the linked classes are made once, when the pass ends.
    try {
        g->pendingClasses.linkInOrder(g->classDictionary, [](KvRxClass* c) { KvRxClassState::of(c)->link(); });
    } catch (...) {
        KvRxClassState::settleLines();
        throw;
    }
    KvRxClassState::settleLines();
}

int kvrxQueueClassForInitialization(KvRxClass*) { return 0; }
