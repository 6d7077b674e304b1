#include "kvrxmember.h"

#include "kvrxnullreference.h"
#include "kvrxruntime.h"

namespace {

constexpr Kvore::ErrorStatus kNotImplemented = Kvore::eNotImplemented;

}  // namespace

#define KVRX_REFLECTION_MEMBERS(CLASS, PARENT) \
    KVRX_DEFINE_MEMBERS_WITH(CLASS, u## #CLASS, PARENT, kvrxDescShort, u"")

KVRX_REFLECTION_MEMBERS(KvRxMember, u"OvRxObject")
KVRX_REFLECTION_MEMBERS(KvRxEnumTag, u"KvRxMember")
KVRX_REFLECTION_MEMBERS(KvRxMethod, u"KvRxMember")
KVRX_REFLECTION_MEMBERS(KvRxPropertyBase, u"KvRxMember")
KVRX_REFLECTION_MEMBERS(KvRxProperty, u"KvRxPropertyBase")
KVRX_REFLECTION_MEMBERS(KvRxCollectionProperty, u"KvRxPropertyBase")
KVRX_REFLECTION_MEMBERS(KvRxIndexedProperty, u"KvRxCollectionProperty")
KVRX_REFLECTION_MEMBERS(KvRxDictionaryProperty, u"KvRxCollectionProperty")
KVRX_REFLECTION_MEMBERS(KvRxCategory, u"KvRxMember")
KVRX_REFLECTION_MEMBERS(KvRxMemberQueryContext, u"OvRxObject")
KVRX_REFLECTION_MEMBERS(KvRxPromotingQueryContext, u"KvRxMemberQueryContext")
KVRX_REFLECTION_MEMBERS(KvRxFacetProvider, u"OvRxObject")
KVRX_REFLECTION_MEMBERS(KvRxMemberOverrule, u"OvRxObject")
KVRX_REFLECTION_MEMBERS(KvRxPropertyOverrule, u"KvRxMemberOverrule")
KVRX_REFLECTION_MEMBERS(KvRxCollectionPropertyOverrule, u"KvRxMemberOverrule")

// ---- members ----

KvRxMember::KvRxMember(const char16_t*, const KvRxValueType*, const KvRxObject*) {}
KvRxMember::KvRxMember(KvRxMemberImp* imp) : ApiPart(imp) {}
const char16_t* KvRxMember::name() const { return nullptr; }
const KvRxObject* KvRxMember::owner() const { return nullptr; }
const KvRxMemberCollection* KvRxMember::children() const { return nullptr; }
KVRX_GIVES_NULL_REFERENCE const KvRxValueType& KvRxMember::type() const {
    return kvrxNullReference<const KvRxValueType>();
}
KVRX_GIVES_NULL_REFERENCE const KvRxAttributeCollection& KvRxMember::attributes() const {
    return kvrxNullReference<const KvRxAttributeCollection>();
}
KVRX_GIVES_NULL_REFERENCE KvRxAttributeCollection& KvRxMember::attributes() {
    return kvrxNullReference<KvRxAttributeCollection>();
}
KvString KvRxMember::localName() const { return KvString(); }
KvString KvRxMember::subLocalName() const { return KvString(); }
Kvore::ErrorStatus KvRxMember::subChildrenEx(KvRxMemberCollectionBuilder&, void*) { return kNotImplemented; }
Kvore::ErrorStatus KvRxMember::subChildren(KvRxMemberCollectionBuilder&, void*) { return kNotImplemented; }
void* KvRxMember::operator new(size_t) noexcept { return nullptr; }
void* KvRxMember::operator new[](size_t) noexcept { return nullptr; }
void* KvRxMember::operator new(size_t, const char*, int) noexcept { return nullptr; }
void* KvRxMember::operator new[](size_t, const char*, int) noexcept { return nullptr; }
void KvRxMember::operator delete(void*) {}
void KvRxMember::operator delete[](void*) {}
void KvRxMember::operator delete(void*, const char*, int) {}
void KvRxMember::operator delete[](void*, const char*, int) {}
void KvRxMember::deleteMember(const KvRxMember*) {}

KvRxEnumTag::KvRxEnumTag(const char16_t*, const KvRxValue&) : KvRxMember(nullptr, nullptr, nullptr) {}
KVRX_GIVES_NULL_REFERENCE const KvRxValue& KvRxEnumTag::value() const {
    return kvrxNullReference<const KvRxValue>();
}
KvString KvRxEnumTag::alternateLocalName() const { return KvString(); }
KvString KvRxEnumTag::subAlternateLocalName() const { return KvString(); }

KvRxMethod::KvRxMethod(const char16_t*, const KvRxValueType&, const KvRxObject*)
    : KvRxMember(nullptr, nullptr, nullptr) {}
KvRxMethod::KvRxMethod(KvRxMemberImp*) : KvRxMember(nullptr, nullptr, nullptr) {}
Kvore::ErrorStatus KvRxMethod::invoke(KvRxObject*, KvRxValue*, KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxMethod::isExecutable(const KvRxObject*) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxMethod::subIsExecutable(const KvRxObject*) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxMethod::subInvoke(KvRxObject*, KvRxValue*, KvRxValue&) const { return kNotImplemented; }

KvRxPropertyBase::KvRxPropertyBase(const char16_t*, const KvRxValueType&, const KvRxObject*)
    : KvRxMember(nullptr, nullptr, nullptr) {}
KvRxPropertyBase::KvRxPropertyBase(KvRxMemberImp*) : KvRxMember(nullptr, nullptr, nullptr) {}
bool KvRxPropertyBase::isReadOnly(const KvRxObject*) const { return false; }

KvRxProperty::KvRxProperty(const char16_t*, const KvRxValueType& t, const KvRxObject*)
    : KvRxPropertyBase(nullptr, t, nullptr) {}
Kvore::ErrorStatus KvRxProperty::getValue(const KvRxObject*, KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxProperty::setValue(KvRxObject*, const KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxProperty::subGetValue(const KvRxObject*, KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxProperty::subSetValue(KvRxObject*, const KvRxValue&) const { return kNotImplemented; }

KvRxCollectionProperty::KvRxCollectionProperty(const char16_t*, const KvRxValueType& t, const KvRxObject*)
    : KvRxPropertyBase(nullptr, t, nullptr) {}
KvRxCollectionProperty::KvRxCollectionProperty(KvRxMemberImp*)
    : KvRxPropertyBase(nullptr, kvrxNullReference<const KvRxValueType>(), nullptr) {}
KvRxValueIterator* KvRxCollectionProperty::newValueIterator(const KvRxObject*) const { return nullptr; }
Kvore::ErrorStatus KvRxCollectionProperty::tryGetCount(const KvRxObject*, int&) const { return kNotImplemented; }
KvRxValueIterator* KvRxCollectionProperty::subNewValueIterator(const KvRxObject*) const { return nullptr; }
Kvore::ErrorStatus KvRxCollectionProperty::subTryGetCount(const KvRxObject*, int&) const { return kNotImplemented; }

KvRxIndexedProperty::KvRxIndexedProperty(const char16_t*, const KvRxValueType& t, const KvRxObject*)
    : KvRxCollectionProperty(nullptr, t, nullptr) {}
KvRxIndexedProperty::KvRxIndexedProperty(KvRxMemberImp*)
    : KvRxCollectionProperty(nullptr, kvrxNullReference<const KvRxValueType>(), nullptr) {}
Kvore::ErrorStatus KvRxIndexedProperty::getValue(const KvRxObject*, int, KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::setValue(KvRxObject*, int, const KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::insertValue(KvRxObject*, int, const KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::removeValue(KvRxObject*, int) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::subGetValue(const KvRxObject*, int, KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::subSetValue(KvRxObject*, int, const KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::subInsertValue(KvRxObject*, int, const KvRxValue&) const { return kNotImplemented; }
Kvore::ErrorStatus KvRxIndexedProperty::subRemoveValue(KvRxObject*, int) const { return kNotImplemented; }

KvRxDictionaryProperty::KvRxDictionaryProperty(const char16_t*, const KvRxValueType& t,
                                               const KvRxValueType&, const KvRxObject*)
    : KvRxCollectionProperty(nullptr, t, nullptr) {}
KvRxDictionaryProperty::KvRxDictionaryProperty(KvRxMemberImp*)
    : KvRxCollectionProperty(nullptr, kvrxNullReference<const KvRxValueType>(), nullptr) {}
Kvore::ErrorStatus KvRxDictionaryProperty::getValue(const KvRxObject*, const KvRxValue&, KvRxValue&) const {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxDictionaryProperty::setValue(KvRxObject*, const KvRxValue&, const KvRxValue&) const {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxDictionaryProperty::subGetValue(const KvRxObject*, const KvRxValue&,
                                                       KvRxValue&) const {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxDictionaryProperty::subSetValue(KvRxObject*, const KvRxValue&,
                                                       const KvRxValue&) const {
    return kNotImplemented;
}

KvRxCategory::KvRxCategory(const char16_t*, KvRxCategory*) : KvRxMember(nullptr, nullptr, nullptr) {}
KvRxCategory* KvRxCategory::rootCategory() { return nullptr; }
KvRxCategory* KvRxCategory::findDescendant(const char16_t*) const { return nullptr; }
Kvore::ErrorStatus KvRxCategory::removeChild(KvRxCategory*) { return kNotImplemented; }

Kvore::ErrorStatus kvdbGetLegacyCategoryId(const KvRxCategory*, int&) { return kNotImplemented; }
Kvore::ErrorStatus kvdbSetLegacyCategoryId(KvRxCategory*, int) { return kNotImplemented; }

// ---- collections and iterators ----

KvRxMemberCollection::KvRxMemberCollection(KvRxMemberCollectionImp* imp) : ApiPart(imp) {}
KvRxMemberCollection::~KvRxMemberCollection() = default;
int KvRxMemberCollection::count() const { return 0; }
KvRxMember* KvRxMemberCollection::getAt(int) const { return nullptr; }

KvRxMemberCollectionBuilder::KvRxMemberCollectionBuilder(KvRxMemberCollectionImp* imp, const KvRxClass*)
    : m_imp(imp), m_owner(nullptr) {}
KvRxMemberCollectionBuilder& KvRxMemberCollectionBuilder::operator=(const KvRxMemberCollectionBuilder& o) {
    m_imp = o.m_imp;
    m_owner = o.m_owner;
    return *this;
}
Kvore::ErrorStatus KvRxMemberCollectionBuilder::add(KvRxMember*) { return kNotImplemented; }
const KvRxClass* KvRxMemberCollectionBuilder::owner() const { return nullptr; }

KvRxMemberIterator::KvRxMemberIterator(KvRxMemberIteratorImp* imp) : ApiPart(imp) {}
KvRxMemberIterator::~KvRxMemberIterator() = default;
bool KvRxMemberIterator::done() { return false; }
bool KvRxMemberIterator::next() { return false; }
KvRxMember* KvRxMemberIterator::current() const { return nullptr; }
KvRxMember* KvRxMemberIterator::find(const char16_t*) const { return nullptr; }

KvRxValueIterator::KvRxValueIterator(KvRxValueIteratorImp* imp) : ApiPart(imp) {}
KvRxValueIterator::~KvRxValueIterator() = default;
bool KvRxValueIterator::done() { return false; }
bool KvRxValueIterator::next() { return false; }
KvRxValue KvRxValueIterator::current() const { return KvRxValue(); }

// ---- query engine ----

KvRxMemberQueryContext::KvRxMemberQueryContext() = default;
KvRxMemberIterator* KvRxMemberQueryContext::newMemberIterator(const KvRxClass* const*, unsigned) const {
    return nullptr;
}

KvRxMemberReactor::~KvRxMemberReactor() = default;
void KvRxMemberReactor::goodbye(const KvRxMember*) {}

KvRxMemberQueryEngine::KvRxMemberQueryEngine(KvRxMemberQueryEngineImp* imp) : ApiPart(imp) {}
KvRxMemberQueryEngine* KvRxMemberQueryEngine::theEngine() { return nullptr; }
KvRxMemberQueryContext* KvRxMemberQueryEngine::defaultContext() { return nullptr; }
KvRxMemberQueryContext* KvRxMemberQueryEngine::promotingContext() { return nullptr; }
KvRxMember* KvRxMemberQueryEngine::find(const KvRxObject*, const char16_t*,
                                        const KvRxMemberQueryContext*) const {
    return nullptr;
}
KvRxMemberIterator* KvRxMemberQueryEngine::newMemberIterator(const KvRxObject*,
                                                             const KvRxMemberQueryContext*) const {
    return nullptr;
}
Kvore::ErrorStatus KvRxMemberQueryEngine::addFacetProvider(KvRxFacetProvider*) { return kNotImplemented; }
Kvore::ErrorStatus KvRxMemberQueryEngine::removeFacetProvider(KvRxFacetProvider*) { return kNotImplemented; }
void KvRxMemberQueryEngine::addReactor(KvRxMemberReactor*) {}
void KvRxMemberQueryEngine::removeReactor(KvRxMemberReactor*) {}

// ---- overrules on members ----

Kvore::ErrorStatus KvRxMemberOverrule::addOverrule(KvRxMember*, KvRxMemberOverrule*, bool) {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxMemberOverrule::removeOverrule(KvRxMember*, KvRxMemberOverrule*) {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxMemberOverrule::removeOverrules(KvRxMember*) { return kNotImplemented; }

Kvore::ErrorStatus KvRxPropertyOverrule::getValue(const KvRxProperty*, const KvRxObject*, KvRxValue&) {
    return kNotImplemented;
}
Kvore::ErrorStatus KvRxPropertyOverrule::setValue(const KvRxProperty*, KvRxObject*, const KvRxValue&) {
    return kNotImplemented;
}

KvRxValueIterator* KvRxCollectionPropertyOverrule::newValueIterator(const KvRxCollectionProperty*,
                                                                    const KvRxObject*) {
    return nullptr;
}
Kvore::ErrorStatus KvRxCollectionPropertyOverrule::tryGetCount(const KvRxCollectionProperty*,
                                                               const KvRxObject*, int&) {
    return kNotImplemented;
}
