#include "kvrxvalue.h"

#include "kvrxnullreference.h"

#include <cstring>

namespace {

constexpr unsigned kInlineLimit = 24;

}  // namespace

#define KVRX_VALUE_TYPE_DESC(T) \
    template <>                 \
    KVRX_GIVES_NULL_REFERENCE const KvRxValueType& KvRxValueType::Desc<T>::value() { \
        return kvrxNullReference<const KvRxValueType>();                         \
    }
KVRX_VALUE_TYPE_DESC(void)
KVRX_VALUE_TYPE_DESC(KvDbMText*)
KVRX_VALUE_TYPE_DESC(DimFillColor)
KVRX_VALUE_TYPE_DESC(KvIntArray)
KVRX_VALUE_TYPE_DESC(KvStringArray)
KVRX_VALUE_TYPE_DESC(KvCmColor)
KVRX_VALUE_TYPE_DESC(KvDbDate)
KVRX_VALUE_TYPE_DESC(KvDbTableCellBlockReference)
KVRX_VALUE_TYPE_DESC(KvGeMatrix3d)
KVRX_VALUE_TYPE_DESC(KvGiLightAttenuation)
KVRX_VALUE_TYPE_DESC(KvGiMaterialColor)
KVRX_VALUE_TYPE_DESC(KvGiMaterialMap)
KVRX_VALUE_TYPE_DESC(KvGiPhotographicExposureParameters)
KVRX_VALUE_TYPE_DESC(KvGiShadowParameters)
KVRX_VALUE_TYPE_DESC(KvGiSkyParameters)
KVRX_VALUE_TYPE_DESC(KvGiToneOperatorParameters)
KVRX_VALUE_TYPE_DESC(KvUnderlayLayer)
#undef KVRX_VALUE_TYPE_DESC

// ---- value type ----

KvRxClass* KvRxValueType::gpDesc = nullptr;
KvRxClass* KvRxValueType::desc() { return gpDesc ? gpDesc : kvrxDescShort(gpDesc, u"KvRxValueType"); }
KvRxClass* KvRxValueType::isA() const { return desc(); }
void KvRxValueType::badCast() {}

KvRxValueType::KvRxValueType(const char16_t* name, const char16_t* parent,
                             const IKvRxNonBlittableType& nb, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxClass(name, parent, builder, builderData), m_nonBlittable(&nb), m_size(size) {}
KvRxValueType::KvRxValueType(const char16_t* name, unsigned size, KvRxMemberBuilder builder,
                             void* builderData)
    : KvRxClass(name, nullptr, builder, builderData), m_nonBlittable(nullptr), m_size(size) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxEnumeration&, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxValueType(name, size, builder, builderData) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxNonBlittableType& nb, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxClass(name, nullptr, builder, builderData), m_nonBlittable(&nb), m_size(size) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxReferenceType&, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxValueType(name, size, builder, builderData) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxEnumeration&,
                             const IKvRxNonBlittableType& nb, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxValueType(name, nb, size, builder, builderData) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxObjectValue&,
                             const IKvRxNonBlittableType& nb, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxValueType(name, nb, size, builder, builderData) {}
KvRxValueType::KvRxValueType(const char16_t* name, const IKvRxEnumeration*,
                             const IKvRxNonBlittableType* nb, unsigned size,
                             KvRxMemberBuilder builder, void* builderData)
    : KvRxClass(name, nullptr, builder, builderData), m_nonBlittable(nb), m_size(size) {}
KvRxValueType::KvRxValueType(const KvRxValueType&)
    : KvRxClass(nullptr, nullptr, nullptr, nullptr), m_nonBlittable(nullptr), m_size(0) {}

// ---- value: construction and the storage rules ----

KvRxValue::KvRxValue() : mType(&KvRxValueType::Desc<void>::value()), mStorage{} {}
KvRxValue::KvRxValue(const KvRxValue& o) : mType(o.mType), mStorage{} { init(o, false); }
KvRxValue::KvRxValue(const KvRxValueType& t, const KvRxValue& o) : mType(&t), mStorage{} {
    init(o, false);
}
KvRxValue::KvRxValue(const KvRxValue& o, bool reuseBlock) : mType(o.mType), mStorage{} {
    init(o, reuseBlock);
}

#define KVRX_NAMING_CONSTRUCTOR(PARAM, T) \
    KvRxValue::KvRxValue(PARAM) : mType(&KvRxValueType::Desc<T>::value()), mStorage{} {}
KVRX_NAMING_CONSTRUCTOR(KvDbMText* const&, KvDbMText*)
KVRX_NAMING_CONSTRUCTOR(const DimFillColor&, DimFillColor)
KVRX_NAMING_CONSTRUCTOR(const KvIntArray&, KvIntArray)
KVRX_NAMING_CONSTRUCTOR(const KvStringArray&, KvStringArray)
KVRX_NAMING_CONSTRUCTOR(const KvCmColor&, KvCmColor)
KVRX_NAMING_CONSTRUCTOR(const KvDbDate&, KvDbDate)
KVRX_NAMING_CONSTRUCTOR(const KvDbTableCellBlockReference&, KvDbTableCellBlockReference)
KVRX_NAMING_CONSTRUCTOR(const KvGeMatrix3d&, KvGeMatrix3d)
KVRX_NAMING_CONSTRUCTOR(const KvGiLightAttenuation&, KvGiLightAttenuation)
KVRX_NAMING_CONSTRUCTOR(const KvGiMaterialColor&, KvGiMaterialColor)
KVRX_NAMING_CONSTRUCTOR(const KvGiMaterialMap&, KvGiMaterialMap)
KVRX_NAMING_CONSTRUCTOR(const KvGiPhotographicExposureParameters&, KvGiPhotographicExposureParameters)
KVRX_NAMING_CONSTRUCTOR(const KvGiShadowParameters&, KvGiShadowParameters)
KVRX_NAMING_CONSTRUCTOR(const KvGiSkyParameters&, KvGiSkyParameters)
KVRX_NAMING_CONSTRUCTOR(const KvGiToneOperatorParameters&, KvGiToneOperatorParameters)
KVRX_NAMING_CONSTRUCTOR(const KvUnderlayLayer&, KvUnderlayLayer)
#undef KVRX_NAMING_CONSTRUCTOR

// A non-inline block isn't freed here.
KvRxValue::~KvRxValue() {
    void* v = valuePtr();
    if (nonBlittable() && v) nonBlittable()->destruct(v);
}

// The value's type; a null reference for a value of the void type.
KVRX_GIVES_NULL_REFERENCE const KvRxValueType& KvRxValue::type() const { return *mType; }

const IKvRxNonBlittableType* KvRxValue::nonBlittable() const {
    return mType ? mType->nonBlittable() : nullptr;
}
unsigned KvRxValue::typeSize() const { return mType ? mType->size() : 0; }
bool KvRxValue::isInlined() const { return typeSize() <= kInlineLimit; }

void* KvRxValue::nonInlineValuePtr() const {
    void* block;
    std::memcpy(&block, mStorage, sizeof block);
    return block;
}
void KvRxValue::setBlock(void* block) { std::memcpy(mStorage, &block, sizeof block); }
void* KvRxValue::valuePtr() { return isInlined() ? inlineValuePtr() : nonInlineValuePtr(); }
const void* KvRxValue::valuePtr() const {
    return isInlined() ? inlineValuePtr() : nonInlineValuePtr();
}

// Copies `from` into the current block, if there is one.
void KvRxValue::copyBlock(const void* from, bool assignToLive) {
    void* block = nonInlineValuePtr();
    if (!block || !from) return;
    if (!nonBlittable())
        std::memcpy(block, from, typeSize());
    else if (assignToLive)
        nonBlittable()->assign(block, from);
    else
        nonBlittable()->construct(block, from);
}

// `o`'s storage is read as a value of this value's type, whatever `o`'s own type:
// for a large type its first word is the block to copy from.
void KvRxValue::init(const KvRxValue& o, bool reuseBlock) {
    if (!isInlined()) {
        setBlock(reuseBlock ? reallocate(typeSize(), nonInlineValuePtr()) : allocate(typeSize()));
        copyBlock(o.nonInlineValuePtr(), false);
    } else if (!nonBlittable()) {
        std::memcpy(mStorage, o.mStorage, sizeof mStorage);
    } else {
        nonBlittable()->construct(mStorage, o.mStorage);
    }
}

KvRxValue& KvRxValue::operator=(const KvRxValue& o) {
    if (this == &o) return *this;
    if (mType != o.mType) {
        void* old = valuePtr();
        if (nonBlittable() && old) nonBlittable()->destruct(old);
        bool reuse = !isInlined() && !o.isInlined();
        mType = o.mType;
        init(o, reuse);
    } else if (!isInlined()) {
        setBlock(reallocate(typeSize(), nonInlineValuePtr()));
        copyBlock(o.nonInlineValuePtr(), true);
    } else if (!nonBlittable()) {
        std::memcpy(mStorage, o.mStorage, sizeof mStorage);
    } else {
        nonBlittable()->assign(mStorage, o.mStorage);
    }
    return *this;
}

void KvRxValue::setNonInlineValue(const void* v, bool blittable, bool assignToLive, bool reuseBlock) {
    bool fresh = !assignToLive && !reuseBlock;
    setBlock(fresh ? allocate(typeSize()) : reallocate(typeSize(), nonInlineValuePtr()));
    if (blittable) {
        if (nonInlineValuePtr() && v) std::memcpy(nonInlineValuePtr(), v, typeSize());
    } else {
        copyBlock(v, assignToLive);
    }
}

bool KvRxValue::operator==(const KvRxValue& o) const { return equals(&o); }

bool KvRxValue::equals(const KvRxValue* o) const {
    if (!o || mType != o->mType || !mType) return false;
    if (!valuePtr() || !o->valuePtr()) return false;
    return mType->equalTo(valuePtr(), o->valuePtr());
}

bool KvRxValue::isEmpty() const { return equals(&empty()); }
bool KvRxValue::isVaries() const { return equals(&varies()); }
KVRX_GIVES_NULL_REFERENCE const KvRxValue& KvRxValue::empty() {
    return kvrxNullReference<const KvRxValue>();
}
KVRX_GIVES_NULL_REFERENCE const KvRxValue& KvRxValue::varies() {
    return kvrxNullReference<const KvRxValue>();
}

// ---- fixed results ----

void* KvRxValue::allocate(unsigned) { return nullptr; }
void* KvRxValue::reallocate(unsigned, void*) { return nullptr; }
void KvRxValue::deallocate(void*) {}
int KvRxValue::toString(char16_t*, unsigned, KvRxValueType::StringFormat) const { return 0; }
int KvRxValue::serializeIn(const void*, unsigned) { return 0; }
int KvRxValue::serializeOut(void*, unsigned&) const { return 0; }
const KvRxEnumTag* KvRxValue::getEnumTag() const { return nullptr; }
KvRxValue* KvRxValue::unbox(KvRxObject*) { return nullptr; }
const KvRxValue* KvRxValue::unbox(const KvRxObject*) { return nullptr; }

template <>
KvGeMatrix3d* rxvalue_cast<KvGeMatrix3d>(KvRxValue*) { return nullptr; }
template <>
KvDbMText* const* rxvalue_cast<KvDbMText*>(const KvRxValue*) { return nullptr; }

// ---- boxed values ----

KvRxClass* KvRxBoxedValue::gpDesc = nullptr;
KvRxClass* KvRxBoxedValue::desc() { return gpDesc ? gpDesc : kvrxDescShort(gpDesc, u"KvRxBoxedValue"); }
KvRxClass* KvRxBoxedValue::isA() const { return desc(); }
KvRxBoxedValue* KvRxBoxedValue::newBoxedValueOnHeap(const KvRxValue&) { return nullptr; }
KvRxObject* KvRxBoxedValue::clone() const { return nullptr; }
Kvore::ErrorStatus KvRxBoxedValue::copyFrom(const KvRxObject*) { return Kvore::eNotImplemented; }
bool KvRxBoxedValue::isEqualTo(const KvRxObject*) const { return false; }
KvRx::Ordering KvRxBoxedValue::comparedTo(const KvRxObject*) const { return KvRx::kEqual; }
KvRxObject* KvRxBoxedValue::rxObject() { return nullptr; }
const KvRxObject* KvRxBoxedValue::rxObject() const { return nullptr; }

KvRxClass* KvRxBoxedValueOnStack::gpDesc = nullptr;
KvRxClass* KvRxBoxedValueOnStack::desc() {
    return gpDesc ? gpDesc : kvrxDescShort(gpDesc, u"KvRxBoxedValueOnStack");
}
KvRxClass* KvRxBoxedValueOnStack::isA() const { return desc(); }
const KvRxValue* KvRxBoxedValueOnStack::value() const { return nullptr; }
KvRxValue* KvRxBoxedValueOnStack::value() { return nullptr; }
