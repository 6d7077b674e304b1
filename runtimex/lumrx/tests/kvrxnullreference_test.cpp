// Every function of the reflection surface whose fixed result is a null reference is
// called here and its result bound and passed on as a caller would, so that a host
// built with the undefined-behaviour sanitizer can call them without a report (the
// sanitizer build of this program stops at the first one that reports).
#include "testsupport.h"

#include "kvrxattribute.h"
#include "kvrxmember.h"
#include "kvrxvalue.h"
#include "kvrxvariable.h"

#include <cstddef>

namespace {

// A caller that binds the reference it is given to its declared type and passes the
// address on. (GCC's sanitizer checks, in the caller's own code, a reference whose
// type is deduced, by `auto&` or by a function template's parameter, whatever the
// callee; the callee can't answer for that.)
#define EXPECT_NULL_REFERENCE(Type, call)                            \
    do {                                                             \
        Type& ref = call;                                            \
        EXPECT_EQ(static_cast<const void*>(&ref), nullptr) << #call; \
    } while (false)

class Member : public KvRxMember {
public:
    Member() : KvRxMember(u"m", nullptr, nullptr) {}
};

class EnumTag : public KvRxEnumTag {
public:
    EnumTag() : KvRxEnumTag(u"t", KvRxValue()) {}
};

// The variable classes have no state and no public constructor; a module is handed
// them. Any well-aligned storage stands for one here.
template <class T>
const T& stateless() {
    alignas(alignof(std::max_align_t)) static unsigned char storage[sizeof(T)];
    return *reinterpret_cast<const T*>(storage);
}

TEST(NullReferences, ValueTypesAndSentinels) {
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<void>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvDbMText*>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<DimFillColor>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvIntArray>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvStringArray>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvCmColor>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvDbDate>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvDbTableCellBlockReference>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGeMatrix3d>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiLightAttenuation>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiMaterialColor>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiMaterialMap>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiPhotographicExposureParameters>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiShadowParameters>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiSkyParameters>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvGiToneOperatorParameters>::value());
    EXPECT_NULL_REFERENCE(const KvRxValueType, KvRxValueType::Desc<KvUnderlayLayer>::value());
    EXPECT_NULL_REFERENCE(const KvRxValue, KvRxValue::empty());
    EXPECT_NULL_REFERENCE(const KvRxValue, KvRxValue::varies());
    KvRxValue none;
    EXPECT_NULL_REFERENCE(const KvRxValueType, none.type());  // a default value has the void type
    EXPECT_FALSE(none.isEmpty());
    EXPECT_FALSE(none.isVaries());
}

TEST(NullReferences, MembersAndAttributes) {
    Member member;
    const Member& constMember = member;
    EXPECT_NULL_REFERENCE(const KvRxValueType, member.type());
    EXPECT_NULL_REFERENCE(KvRxAttributeCollection, member.attributes());
    EXPECT_NULL_REFERENCE(const KvRxAttributeCollection, constMember.attributes());
    EnumTag tag;
    EXPECT_NULL_REFERENCE(const KvRxValue, tag.value());
    KvRxDefaultValueAttribute defaultValue{KvRxValue()};
    EXPECT_NULL_REFERENCE(const KvRxValue, defaultValue.value());
}

TEST(NullReferences, Variables) {
    EXPECT_NULL_REFERENCE(const KvStringArray, stateless<KvRxVariablesDictionary>().getAllNames());
    const auto& args = stateless<KvRxVariableChangedEventArgs>();
    EXPECT_NULL_REFERENCE(const resbuf, args.newValue());
    EXPECT_NULL_REFERENCE(const resbuf, args.oldValue());
}

}  // namespace
