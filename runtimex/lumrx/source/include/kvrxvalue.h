// Typed values. A KvRxValue holds a value of a type described by a KvRxValueType:
// up to 24 bytes inside the object, larger values in a block of their own, and types
// that can't be moved as bytes through the type's IKvRxNonBlittableType.
//
// This system defines no concrete value type: every Desc<T>::value(), empty() and
// varies() is a null reference, and allocate() gives no block, so a value can name a
// type but never hold a large value. A value without a type holds nothing and equals
// nothing. A KvRxValue owns no memory; a KvRxBoxedValueOnStack owns its copy of the value.
#pragma once

#include "kvarray.h"
#include "kvrxclass.h"
#include "kvstring.h"

class KvRxEnumTag;
class IKvRxEnumeration;
class IKvRxReferenceType;
class IKvRxObjectValue;

// The sixteen value types of the platform; only their names are needed here.
class KvDbMText;
class DimFillColor;
class KvCmColor;
class KvDbDate;
class KvDbTableCellBlockReference;
class KvGeMatrix3d;
class KvGiLightAttenuation;
class KvGiMaterialColor;
class KvGiMaterialMap;
class KvGiPhotographicExposureParameters;
class KvGiShadowParameters;
class KvGiSkyParameters;
class KvGiToneOperatorParameters;
class KvUnderlayLayer;
typedef KvArray<int, KvArrayMemCopyReallocator<int>> KvIntArray;
typedef KvArray<KvString, KvArrayObjectCopyReallocator<KvString>> KvStringArray;

// Copying and ending values of a type that can't be moved as bytes.
class IKvRxNonBlittableType {
public:
    virtual void construct(void* dst, const void* src) const = 0;
    virtual void assign(void* dst, const void* src) const = 0;
    virtual void destruct(void* value) const = 0;

protected:
    ~IKvRxNonBlittableType() = default;
};

class KvRxValueType : public KvRxClass {
public:
    enum StringFormat { kStringFormatGlobal = 0, kStringFormatLocal = 1 };

    // A null reference for void and each of the sixteen types.
    template <class T>
    struct Desc {
        static const KvRxValueType& value();
    };

    // Found by the name "KvRxValueType"; null unless a module registered it.
    static KvRxClass* gpDesc;
    static KvRxClass* desc();
    KvRxClass* isA() const override;

    virtual bool equalTo(const void* a, const void* b) const = 0;
    // Does nothing.
    static void badCast();

    // Null for a type whose values are moved as bytes.
    const IKvRxNonBlittableType* nonBlittable() const { return m_nonBlittable; }
    unsigned size() const { return m_size; }

protected:
    KvRxValueType(const char16_t* name, const char16_t* parent, const IKvRxNonBlittableType& nb,
                  unsigned size, KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, unsigned size, KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxEnumeration& e, unsigned size,
                  KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxNonBlittableType& nb, unsigned size,
                  KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxReferenceType& r, unsigned size,
                  KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxEnumeration& e, const IKvRxNonBlittableType& nb,
                  unsigned size, KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxObjectValue& o, const IKvRxNonBlittableType& nb,
                  unsigned size, KvRxMemberBuilder builder, void* builderData);
    KvRxValueType(const char16_t* name, const IKvRxEnumeration* e, const IKvRxNonBlittableType* nb,
                  unsigned size, KvRxMemberBuilder builder, void* builderData);

private:
    KvRxValueType(const KvRxValueType&);
    KvRxValueType& operator=(const KvRxValueType&) { return *this; }

    const IKvRxNonBlittableType* m_nonBlittable;
    unsigned m_size;
};

template <>
const KvRxValueType& KvRxValueType::Desc<void>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvDbMText*>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<DimFillColor>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvIntArray>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvStringArray>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvCmColor>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvDbDate>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvDbTableCellBlockReference>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGeMatrix3d>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiLightAttenuation>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiMaterialColor>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiMaterialMap>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiPhotographicExposureParameters>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiShadowParameters>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiSkyParameters>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvGiToneOperatorParameters>::value();
template <>
const KvRxValueType& KvRxValueType::Desc<KvUnderlayLayer>::value();

class KvRxValue {
public:
    KvRxValue();
    KvRxValue(const KvRxValue& o);
    // `o` read as a value of type `t`.
    KvRxValue(const KvRxValueType& t, const KvRxValue& o);
    // These name the type of their argument but don't store it.
    KvRxValue(KvDbMText* const&);
    KvRxValue(const DimFillColor&);
    KvRxValue(const KvIntArray&);
    KvRxValue(const KvStringArray&);
    KvRxValue(const KvCmColor&);
    KvRxValue(const KvDbDate&);
    KvRxValue(const KvDbTableCellBlockReference&);
    KvRxValue(const KvGeMatrix3d&);
    KvRxValue(const KvGiLightAttenuation&);
    KvRxValue(const KvGiMaterialColor&);
    KvRxValue(const KvGiMaterialMap&);
    KvRxValue(const KvGiPhotographicExposureParameters&);
    KvRxValue(const KvGiShadowParameters&);
    KvRxValue(const KvGiSkyParameters&);
    KvRxValue(const KvGiToneOperatorParameters&);
    KvRxValue(const KvUnderlayLayer&);
    ~KvRxValue();

    KvRxValue& operator=(const KvRxValue& o);
    // False for different types, for a value without a type or without storage.
    bool operator==(const KvRxValue& o) const;
    bool operator!=(const KvRxValue& o) const { return !(*this == o); }

    const KvRxValueType& type() const;
    bool isEmpty() const;
    bool isVaries() const;
    static const KvRxValue& empty();
    static const KvRxValue& varies();

    // Values of more than 24 bytes live in a block of their own.
    bool isInlined() const;
    const void* valuePtr() const;
    void* valuePtr();

    int toString(char16_t* buffer, unsigned size, KvRxValueType::StringFormat format) const;
    int serializeIn(const void* data, unsigned size);
    int serializeOut(void* data, unsigned& size) const;
    const KvRxEnumTag* getEnumTag() const;
    static KvRxValue* unbox(KvRxObject* boxed);
    static const KvRxValue* unbox(const KvRxObject* boxed);

    // The block allocator: no block in this system.
    static void* allocate(unsigned size);
    static void* reallocate(unsigned size, void* block);
    static void deallocate(void* block);

private:
    KvRxValue(const KvRxValue& o, bool reuseBlock);
    void init(const KvRxValue& o, bool reuseBlock);
    void setNonInlineValue(const void* v, bool blittable, bool assignToLive, bool reuseBlock);
    void copyBlock(const void* from, bool assignToLive);
    const IKvRxNonBlittableType* nonBlittable() const;
    unsigned typeSize() const;
    void* inlineValuePtr() { return mStorage; }
    const void* inlineValuePtr() const { return mStorage; }
    void* nonInlineValuePtr() const;
    void setBlock(void* block);
    bool equals(const KvRxValue* o) const;

    const KvRxValueType* mType;
    alignas(double) unsigned char mStorage[24];
};

template <class T>
T* rxvalue_cast(KvRxValue* value);
template <class T>
const T* rxvalue_cast(const KvRxValue* value);
template <>
KvGeMatrix3d* rxvalue_cast<KvGeMatrix3d>(KvRxValue* value);
template <>
KvDbMText* const* rxvalue_cast<KvDbMText*>(const KvRxValue* value);

// A value as a run-time object; found by the name "KvRxBoxedValue".
class KvRxBoxedValue : public KvRxObject {
public:
    static KvRxClass* gpDesc;
    static KvRxClass* desc();
    KvRxClass* isA() const override;

    // Null: no boxed value lives on the heap here.
    static KvRxBoxedValue* newBoxedValueOnHeap(const KvRxValue& value);
    KvRxObject* clone() const override;
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override;
    bool isEqualTo(const KvRxObject* other) const override;
    KvRx::Ordering comparedTo(const KvRxObject* other) const override;
    virtual const KvRxValue* value() const = 0;
    virtual KvRxValue* value() = 0;
    KvRxObject* rxObject();
    const KvRxObject* rxObject() const;

protected:
    KvRxBoxedValue() = default;
};

// Boxes its own copy of a value; found by the name "KvRxBoxedValueOnStack".
class KvRxBoxedValueOnStack : public KvRxBoxedValue {
public:
    static KvRxClass* gpDesc;
    static KvRxClass* desc();
    KvRxClass* isA() const override;

    explicit KvRxBoxedValueOnStack(const KvRxValue& value) : m_value(value) {}
    const KvRxValue* value() const override;
    KvRxValue* value() override;

private:
    KvRxValue m_value;
};
