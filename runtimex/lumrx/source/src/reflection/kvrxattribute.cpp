#include "kvrxattribute.h"

#include "kvrxnullreference.h"

namespace {

constexpr Kvore::ErrorStatus kNotImplemented = Kvore::eNotImplemented;

}  // namespace

#define KVRX_ATTRIBUTE_MEMBERS(CLASS, PARENT) \
    KVRX_DEFINE_MEMBERS_WITH(CLASS, u## #CLASS, PARENT, kvrxDescShort, u"")

KVRX_ATTRIBUTE_MEMBERS(KvRxAttribute, u"OvRxObject")
KVRX_ATTRIBUTE_MEMBERS(KvRxLocalizedNameAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxAlternateLocalizedNameAttribute, u"KvRxLocalizedNameAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxDescriptionAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxUiPlacementAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxLMVAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxRefersToAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxDisplayAsAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxCOMAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxFilePathAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxFlagsAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxUnitTypeAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxGenerateDynamicPropertiesAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxUseDialogForReferredCollectionAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxUiCascadingContextMenuAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxCumulativeAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxAffinityAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxTypePromotionAttribute, u"KvRxAttribute")
KVRX_ATTRIBUTE_MEMBERS(KvRxDefaultValueAttribute, u"KvRxAttribute")

KvRxAttribute::KvRxAttribute() = default;
KvRxAttribute::KvRxAttribute(KvRxAttributeImp* imp) : ApiPart(imp) {}

int KvRxAttributeCollection::count() const { return 0; }
const KvRxAttribute* KvRxAttributeCollection::getAt(int) const { return nullptr; }
KvRxAttribute* KvRxAttributeCollection::getAt(int) { return nullptr; }
const KvRxAttribute* KvRxAttributeCollection::get(const KvRxClass*) const { return nullptr; }
KvRxAttribute* KvRxAttributeCollection::get(const KvRxClass*) { return nullptr; }
Kvore::ErrorStatus KvRxAttributeCollection::add(const KvRxAttribute*) { return kNotImplemented; }
Kvore::ErrorStatus KvRxAttributeCollection::override(const KvRxAttribute*) { return kNotImplemented; }
Kvore::ErrorStatus KvRxAttributeCollection::remove(const KvRxAttribute*) { return kNotImplemented; }

KvRxLocalizedNameAttribute::KvRxLocalizedNameAttribute(unsigned) {}
KvRxLocalizedNameAttribute::KvRxLocalizedNameAttribute(unsigned, unsigned) {}
unsigned KvRxLocalizedNameAttribute::id() const { return 0; }
unsigned KvRxLocalizedNameAttribute::sourceHint() const { return 0; }
KvString KvRxLocalizedNameAttribute::getLocalizedName(const KvRxObject*) { return KvString(); }

KvRxAlternateLocalizedNameAttribute::KvRxAlternateLocalizedNameAttribute(unsigned)
    : KvRxLocalizedNameAttribute(0u) {}
KvRxAlternateLocalizedNameAttribute::KvRxAlternateLocalizedNameAttribute(unsigned, unsigned)
    : KvRxLocalizedNameAttribute(0u) {}

KvRxDescriptionAttribute::KvRxDescriptionAttribute(unsigned) {}
KvRxDescriptionAttribute::KvRxDescriptionAttribute(const char16_t*) {}
KvRxDescriptionAttribute::KvRxDescriptionAttribute(unsigned, unsigned) {}
unsigned KvRxDescriptionAttribute::id() const { return 0; }
unsigned KvRxDescriptionAttribute::sourceHint() const { return 0; }
KvString KvRxDescriptionAttribute::getDescription(const KvRxObject*) { return KvString(); }

KvRxUiPlacementAttribute::KvRxUiPlacementAttribute(const char16_t*, unsigned) {}
const char16_t* KvRxUiPlacementAttribute::getCategory(const KvRxObject*) { return nullptr; }
double KvRxUiPlacementAttribute::getWeight(const KvRxObject*) { return 0.0; }

KvRxLMVAttribute::KvRxLMVAttribute() = default;

KvRxRefersToAttribute::KvRxRefersToAttribute(const char16_t*) {}
const char16_t* KvRxRefersToAttribute::path() const { return nullptr; }
KvRxObject* KvRxRefersToAttribute::parseReference(const char16_t*, const KvRxObject*) { return nullptr; }

KvRxDisplayAsAttribute::KvRxDisplayAsAttribute(const char16_t*) {}
const char16_t* KvRxDisplayAsAttribute::path() const { return nullptr; }

KvRxCOMAttribute::KvRxCOMAttribute(const char16_t*) {}
const char16_t* KvRxCOMAttribute::name() const { return nullptr; }

KvRxFilePathAttribute::KvRxFilePathAttribute() = default;
KvRxFlagsAttribute::KvRxFlagsAttribute() = default;

KvRxUnitTypeAttribute::KvRxUnitTypeAttribute(UnitType) {}
KvRxUnitTypeAttribute::UnitType KvRxUnitTypeAttribute::unitType() const { return kUnitless; }

KvRxGenerateDynamicPropertiesAttribute::KvRxGenerateDynamicPropertiesAttribute() = default;
KvRxUseDialogForReferredCollectionAttribute::KvRxUseDialogForReferredCollectionAttribute() = default;
KvRxUiCascadingContextMenuAttribute::KvRxUiCascadingContextMenuAttribute() = default;

KvRxCumulativeAttribute::KvRxCumulativeAttribute(const char16_t*) {}
const char16_t* KvRxCumulativeAttribute::type() const { return nullptr; }

KvRxAffinityAttribute::KvRxAffinityAttribute(const char16_t*) {}
const char16_t* KvRxAffinityAttribute::name() const { return nullptr; }

KvRxTypePromotionAttribute::KvRxTypePromotionAttribute(const char16_t*) {}
const char16_t* KvRxTypePromotionAttribute::properties() const { return nullptr; }

KvRxDefaultValueAttribute::KvRxDefaultValueAttribute(const KvRxValue&) {}
KVRX_GIVES_NULL_REFERENCE const KvRxValue& KvRxDefaultValueAttribute::value() const {
    return kvrxNullReference<const KvRxValue>();
}
