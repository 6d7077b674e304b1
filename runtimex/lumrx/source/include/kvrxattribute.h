// Attributes on classes and members, and the collection that holds them.
//
// Inert like the members: constructors ignore their arguments, every query gives a
// fixed result, and desc() finds each class by its own name through kvrxFindKvRxClass.
// Nothing here allocates; the implementation pointers are not owned.
#pragma once

#include "kvrxapipart.h"
#include "kvrxobject.h"
#include "kvrxvalue.h"
#include "kvstring.h"

class KvRxAttributeImp;
class KvRxAttributeCollectionImp;

class KvRxAttribute : public Pimpl::ApiPart<KvRxObject, KvRxAttributeImp> {
    KVRX_DECLARE_MEMBERS(KvRxAttribute);

protected:
    KvRxAttribute();

private:
    explicit KvRxAttribute(KvRxAttributeImp* imp);
};

class KvRxAttributeCollection : public Pimpl::ApiPart<void, KvRxAttributeCollectionImp> {
public:
    int count() const;
    const KvRxAttribute* getAt(int index) const;
    KvRxAttribute* getAt(int index);
    const KvRxAttribute* get(const KvRxClass* type) const;
    KvRxAttribute* get(const KvRxClass* type);
    Kvore::ErrorStatus add(const KvRxAttribute* attribute);
    Kvore::ErrorStatus override(const KvRxAttribute* attribute);
    Kvore::ErrorStatus remove(const KvRxAttribute* attribute);
};

class KvRxLocalizedNameAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxLocalizedNameAttribute);

    explicit KvRxLocalizedNameAttribute(unsigned id);
    KvRxLocalizedNameAttribute(unsigned id, unsigned sourceHint);
    unsigned id() const;
    unsigned sourceHint() const;
    static KvString getLocalizedName(const KvRxObject* object);
};

class KvRxAlternateLocalizedNameAttribute : public KvRxLocalizedNameAttribute {
    KVRX_DECLARE_MEMBERS(KvRxAlternateLocalizedNameAttribute);

    explicit KvRxAlternateLocalizedNameAttribute(unsigned id);
    KvRxAlternateLocalizedNameAttribute(unsigned id, unsigned sourceHint);
};

class KvRxDescriptionAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxDescriptionAttribute);

    explicit KvRxDescriptionAttribute(unsigned id);
    explicit KvRxDescriptionAttribute(const char16_t* description);
    KvRxDescriptionAttribute(unsigned id, unsigned sourceHint);
    unsigned id() const;
    unsigned sourceHint() const;
    static KvString getDescription(const KvRxObject* object);
};

class KvRxUiPlacementAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxUiPlacementAttribute);

    KvRxUiPlacementAttribute(const char16_t* category, unsigned weight);
    static const char16_t* getCategory(const KvRxObject* object);
    static double getWeight(const KvRxObject* object);
};

class KvRxLMVAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxLMVAttribute);

    KvRxLMVAttribute();
};

class KvRxRefersToAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxRefersToAttribute);

    explicit KvRxRefersToAttribute(const char16_t* path);
    const char16_t* path() const;
    static KvRxObject* parseReference(const char16_t* path, const KvRxObject* object);
};

class KvRxDisplayAsAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxDisplayAsAttribute);

    explicit KvRxDisplayAsAttribute(const char16_t* path);
    const char16_t* path() const;
};

class KvRxCOMAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxCOMAttribute);

    explicit KvRxCOMAttribute(const char16_t* name);
    const char16_t* name() const;
};

class KvRxFilePathAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxFilePathAttribute);

    KvRxFilePathAttribute();
};

class KvRxFlagsAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxFlagsAttribute);

    KvRxFlagsAttribute();
};

class KvRxUnitTypeAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxUnitTypeAttribute);

    enum UnitType { kUnitless = 0, kDistance = 1, kAngle = 2, kArea = 4, kVolume = 8 };
    explicit KvRxUnitTypeAttribute(UnitType unitType);
    UnitType unitType() const;
};

class KvRxGenerateDynamicPropertiesAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxGenerateDynamicPropertiesAttribute);

    KvRxGenerateDynamicPropertiesAttribute();
};

class KvRxUseDialogForReferredCollectionAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxUseDialogForReferredCollectionAttribute);

    KvRxUseDialogForReferredCollectionAttribute();
};

class KvRxUiCascadingContextMenuAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxUiCascadingContextMenuAttribute);

    KvRxUiCascadingContextMenuAttribute();
};

class KvRxCumulativeAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxCumulativeAttribute);

    explicit KvRxCumulativeAttribute(const char16_t* type);
    const char16_t* type() const;
};

class KvRxAffinityAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxAffinityAttribute);

    explicit KvRxAffinityAttribute(const char16_t* name);
    const char16_t* name() const;
};

class KvRxTypePromotionAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxTypePromotionAttribute);

    explicit KvRxTypePromotionAttribute(const char16_t* properties);
    const char16_t* properties() const;
};

class KvRxDefaultValueAttribute : public KvRxAttribute {
    KVRX_DECLARE_MEMBERS(KvRxDefaultValueAttribute);

    explicit KvRxDefaultValueAttribute(const KvRxValue& value);
    // A null reference.
    const KvRxValue& value() const;
};
