// The reflection interface as an outside module links against it: every exported name
// of values, members, attributes, variables and resources is referenced here, so that
// a missing definition fails the build; fixed results are checked where cheap.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxattribute.h"
#include "kvrxmember.h"
#include "kvrxresource.h"
#include "kvrxvalue.h"
#include "kvrxvariable.h"

#include <cstddef>

namespace {

// Makes the address escape, so that the reference to the symbol stays in the program.
template <class T>
void keep(T p) {
    static volatile unsigned char sink;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&p);
    for (size_t i = 0; i < sizeof p; ++i) sink = sink ^ bytes[i];
}

const KvRxValueType& noType() { return KvRxValueType::Desc<void>::value(); }

class TestValueType : public KvRxValueType {
public:
    TestValueType() : KvRxValueType(u"TestLinkType", 4u, nullptr, nullptr) {}
    bool equalTo(const void*, const void*) const override { return false; }
};

class Member : public KvRxMember {
public:
    Member() : KvRxMember(u"m", nullptr, nullptr) {}
    using KvRxMember::subChildren;
    using KvRxMember::subChildrenEx;
    using KvRxMember::subLocalName;
};

class Method : public KvRxMethod {
public:
    Method() : KvRxMethod(u"m", noType(), nullptr) {}
    using KvRxMethod::subInvoke;
    using KvRxMethod::subIsExecutable;
};

class PropertyBase : public KvRxPropertyBase {
public:
    PropertyBase() : KvRxPropertyBase(u"p", noType(), nullptr) {}
};

class Property : public KvRxProperty {
public:
    Property() : KvRxProperty(u"p", noType(), nullptr) {}
    using KvRxProperty::subGetValue;
    using KvRxProperty::subSetValue;
};

class Indexed : public KvRxIndexedProperty {
public:
    Indexed() : KvRxIndexedProperty(u"p", noType(), nullptr) {}
    using KvRxIndexedProperty::subGetValue;
    using KvRxIndexedProperty::subInsertValue;
    using KvRxIndexedProperty::subNewValueIterator;
    using KvRxIndexedProperty::subRemoveValue;
    using KvRxIndexedProperty::subSetValue;
    using KvRxIndexedProperty::subTryGetCount;
};

class Dictionary : public KvRxDictionaryProperty {
public:
    Dictionary() : KvRxDictionaryProperty(u"p", noType(), noType(), nullptr) {}
    using KvRxDictionaryProperty::subGetValue;
    using KvRxDictionaryProperty::subSetValue;
};

class EnumTag : public KvRxEnumTag {
public:
    EnumTag() : KvRxEnumTag(u"t", KvRxValue()) {}
    using KvRxEnumTag::subAlternateLocalName;
};

class Context : public KvRxPromotingQueryContext {
    KvRxMemberIterator* subNewMemberIterator(const KvRxClass* const*, unsigned) const override {
        return nullptr;
    }
};

class Attribute : public KvRxAttribute {};
class Provider : public KvRxFacetProvider {};
class MemberOverrule : public KvRxPropertyOverrule {};
class CollectionOverrule : public KvRxCollectionPropertyOverrule {};
class Loader : public KvRxResourceLoader {};

class ReflectionLink : public lumtest::RuntimeTest {};

TEST_F(ReflectionLink, ValuesLink) {
    keep(&KvRxValueType::Desc<KvDbMText*>::value);
    keep(&KvRxValueType::Desc<DimFillColor>::value);
    keep(&KvRxValueType::Desc<KvIntArray>::value);
    keep(&KvRxValueType::Desc<KvStringArray>::value);
    keep(&KvRxValueType::Desc<KvCmColor>::value);
    keep(&KvRxValueType::Desc<KvDbDate>::value);
    keep(&KvRxValueType::Desc<KvDbTableCellBlockReference>::value);
    keep(&KvRxValueType::Desc<KvGiLightAttenuation>::value);
    keep(&KvRxValueType::Desc<KvGiMaterialColor>::value);
    keep(&KvRxValueType::Desc<KvGiMaterialMap>::value);
    keep(&KvRxValueType::Desc<KvGiPhotographicExposureParameters>::value);
    keep(&KvRxValueType::Desc<KvGiShadowParameters>::value);
    keep(&KvRxValueType::Desc<KvGiSkyParameters>::value);
    keep(&KvRxValueType::Desc<KvGiToneOperatorParameters>::value);
    keep(&KvRxValueType::Desc<KvUnderlayLayer>::value);
    EXPECT_EQ(&KvRxValueType::Desc<KvGeMatrix3d>::value(), nullptr);
    keep(&KvRxValueType::desc);
    keep(&KvRxValueType::badCast);
    keep(static_cast<KvRxValue& (KvRxValue::*)(const KvRxValue&)>(&KvRxValue::operator=));
    keep(&KvRxValue::operator==);
    keep(&KvRxValue::isEmpty);
    keep(&KvRxValue::isVaries);
    keep(&KvRxValue::varies);
    keep(&KvRxValue::isInlined);
    keep(static_cast<const void* (KvRxValue::*)() const>(&KvRxValue::valuePtr));
    keep(static_cast<void* (KvRxValue::*)()>(&KvRxValue::valuePtr));
    keep(&KvRxValue::toString);
    keep(&KvRxValue::serializeIn);
    keep(&KvRxValue::serializeOut);
    keep(&KvRxValue::getEnumTag);
    keep(static_cast<KvRxValue* (*)(KvRxObject*)>(&KvRxValue::unbox));
    keep(static_cast<const KvRxValue* (*)(const KvRxObject*)>(&KvRxValue::unbox));
    keep(&KvRxValue::reallocate);
    keep(&KvRxValue::deallocate);
    keep(static_cast<KvGeMatrix3d* (*)(KvRxValue*)>(&rxvalue_cast<KvGeMatrix3d>));
    keep(static_cast<KvDbMText* const* (*)(const KvRxValue*)>(&rxvalue_cast<KvDbMText*>));
    keep(&KvRxBoxedValue::desc);
    keep(&KvRxBoxedValue::newBoxedValueOnHeap);
    keep(static_cast<KvRxObject* (KvRxBoxedValue::*)()>(&KvRxBoxedValue::rxObject));
    keep(static_cast<const KvRxObject* (KvRxBoxedValue::*)() const>(&KvRxBoxedValue::rxObject));
    keep(&KvRxBoxedValueOnStack::desc);

    // A type is a class: the runtime owns it, deleteKvRxClass dooms it.
    auto* type = new TestValueType;
    EXPECT_EQ(type->size(), 4u);
    EXPECT_EQ(type->nonBlittable(), nullptr);
    {
        KvRxValue v(*type, KvRxValue());
        EXPECT_EQ(&v.type(), type);
    }
    deleteKvRxClass(type);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(KvRxValue::allocate(8), nullptr);
    EXPECT_EQ(&KvRxValue::empty(), nullptr);
}

TEST_F(ReflectionLink, MembersGiveTheirFixedResults) {
    Member m;
    EXPECT_EQ(m.name(), nullptr);
    EXPECT_EQ(m.owner(), nullptr);
    EXPECT_EQ(m.children(), nullptr);
    EXPECT_EQ(&m.type(), nullptr);
    EXPECT_EQ(&static_cast<const Member&>(m).attributes(), nullptr);
    EXPECT_EQ(&m.attributes(), nullptr);
    EXPECT_TRUE(m.localName().isEmpty());
    EXPECT_TRUE(m.subLocalName().isEmpty());
    EXPECT_EQ(m.isA(), nullptr) << "nothing registers the name";
    EXPECT_EQ(KvRxMember::cast(&m), nullptr);
    keep(&KvRxMember::rxInit);
    KvRxMember::deleteMember(&m);

    EnumTag tag;
    EXPECT_EQ(&tag.value(), nullptr);
    EXPECT_TRUE(tag.alternateLocalName().isEmpty());
    EXPECT_TRUE(tag.subAlternateLocalName().isEmpty());

    Method method;
    KvRxValue result;
    EXPECT_EQ(method.invoke(nullptr, nullptr, result), Kvore::eNotImplemented);
    EXPECT_EQ(method.isExecutable(nullptr), Kvore::eNotImplemented);
    EXPECT_EQ(method.subInvoke(nullptr, nullptr, result), Kvore::eNotImplemented);
    EXPECT_EQ(method.subIsExecutable(nullptr), Kvore::eNotImplemented);

    EXPECT_FALSE(PropertyBase().isReadOnly(nullptr));
}

TEST_F(ReflectionLink, MemberNewGivesNullAndConstructsNothing) {
    EXPECT_EQ(new Member, nullptr);
    EXPECT_EQ(new Member[2], nullptr);
    EXPECT_EQ(new (__FILE__, __LINE__) Member, nullptr);
    EXPECT_EQ(new (__FILE__, __LINE__) Member[2], nullptr);
    Member* none = nullptr;
    delete none;
    delete[] none;
    KvRxMember::operator delete(nullptr, __FILE__, __LINE__);
    KvRxMember::operator delete[](nullptr, __FILE__, __LINE__);
}

TEST_F(ReflectionLink, PropertiesGiveStatusOne) {
    KvRxValue v, key;
    int count = -1;
    Property p;
    EXPECT_EQ(p.getValue(nullptr, v), Kvore::eNotImplemented);
    EXPECT_EQ(p.setValue(nullptr, v), Kvore::eNotImplemented);
    EXPECT_EQ(p.subGetValue(nullptr, v), Kvore::eNotImplemented);
    EXPECT_EQ(p.subSetValue(nullptr, v), Kvore::eNotImplemented);

    Indexed ip;
    EXPECT_EQ(ip.newValueIterator(nullptr), nullptr);
    EXPECT_EQ(ip.subNewValueIterator(nullptr), nullptr);
    EXPECT_EQ(ip.tryGetCount(nullptr, count), Kvore::eNotImplemented);
    EXPECT_EQ(ip.subTryGetCount(nullptr, count), Kvore::eNotImplemented);
    EXPECT_EQ(count, -1);
    EXPECT_EQ(ip.getValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.setValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.insertValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.removeValue(nullptr, 0), Kvore::eNotImplemented);
    EXPECT_EQ(ip.subGetValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.subSetValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.subInsertValue(nullptr, 0, v), Kvore::eNotImplemented);
    EXPECT_EQ(ip.subRemoveValue(nullptr, 0), Kvore::eNotImplemented);

    Dictionary dp;
    EXPECT_EQ(dp.getValue(nullptr, key, v), Kvore::eNotImplemented);
    EXPECT_EQ(dp.setValue(nullptr, key, v), Kvore::eNotImplemented);
    EXPECT_EQ(dp.subGetValue(nullptr, key, v), Kvore::eNotImplemented);
    EXPECT_EQ(dp.subSetValue(nullptr, key, v), Kvore::eNotImplemented);
}

TEST_F(ReflectionLink, CategoriesAndMemberChildren) {
    KvRxCategory category(u"c", nullptr);
    EXPECT_EQ(KvRxCategory::rootCategory(), nullptr);
    EXPECT_EQ(category.findDescendant(u"c"), nullptr);
    EXPECT_EQ(category.removeChild(&category), Kvore::eNotImplemented);
    int id = 7;
    EXPECT_EQ(kvdbGetLegacyCategoryId(&category, id), Kvore::eNotImplemented);
    EXPECT_EQ(id, 7);
    EXPECT_EQ(kvdbSetLegacyCategoryId(&category, 3), Kvore::eNotImplemented);
    keep(&KvRxMemberCollectionBuilder::add);
    keep(&KvRxMemberCollectionBuilder::owner);
    keep(&KvRxMemberCollectionBuilder::operator=);
}

TEST_F(ReflectionLink, CollectionsIteratorsAndTheEngineLink) {
    keep(&KvRxMemberCollection::count);
    keep(&KvRxMemberCollection::getAt);
    keep(&KvRxMemberIterator::done);
    keep(&KvRxMemberIterator::next);
    keep(&KvRxMemberIterator::current);
    keep(&KvRxMemberIterator::find);
    keep(&KvRxValueIterator::done);
    keep(&KvRxValueIterator::next);
    keep(&KvRxValueIterator::current);
    keep(&KvRxMemberQueryEngine::defaultContext);
    keep(&KvRxMemberQueryEngine::promotingContext);
    keep(&KvRxMemberQueryEngine::find);
    keep(&KvRxMemberQueryEngine::newMemberIterator);
    keep(&KvRxMemberQueryEngine::addFacetProvider);
    keep(&KvRxMemberQueryEngine::removeFacetProvider);
    keep(&KvRxMemberQueryEngine::addReactor);
    keep(&KvRxMemberQueryEngine::removeReactor);
    EXPECT_EQ(KvRxMemberQueryEngine::theEngine(), nullptr);

    KvRxMemberReactor reactor;
    reactor.goodbye(nullptr);
    Context context;
    EXPECT_EQ(context.newMemberIterator(nullptr, 0), nullptr);
    EXPECT_EQ(context.isA(), nullptr);
    EXPECT_EQ(KvRxMemberQueryContext::desc(), nullptr);
    EXPECT_EQ(Provider().isA(), nullptr);
}

TEST_F(ReflectionLink, MemberOverrules) {
    MemberOverrule po;
    CollectionOverrule co;
    KvRxValue v;
    int count = 0;
    EXPECT_EQ(KvRxMemberOverrule::addOverrule(nullptr, &po), Kvore::eNotImplemented);
    EXPECT_EQ(KvRxMemberOverrule::removeOverrule(nullptr, &po), Kvore::eNotImplemented);
    EXPECT_EQ(KvRxMemberOverrule::removeOverrules(nullptr), Kvore::eNotImplemented);
    EXPECT_EQ(po.getValue(nullptr, nullptr, v), Kvore::eNotImplemented);
    EXPECT_EQ(po.setValue(nullptr, nullptr, v), Kvore::eNotImplemented);
    EXPECT_EQ(co.tryGetCount(nullptr, nullptr, count), Kvore::eNotImplemented);
    EXPECT_EQ(co.newValueIterator(nullptr, nullptr), nullptr);
    EXPECT_EQ(po.isA(), nullptr);
    EXPECT_EQ(co.isA(), nullptr);
}

TEST_F(ReflectionLink, Attributes) {
    keep(&KvRxAttributeCollection::count);
    keep(static_cast<const KvRxAttribute* (KvRxAttributeCollection::*)(int) const>(&KvRxAttributeCollection::getAt));
    keep(static_cast<KvRxAttribute* (KvRxAttributeCollection::*)(int)>(&KvRxAttributeCollection::getAt));
    keep(static_cast<const KvRxAttribute* (KvRxAttributeCollection::*)(const KvRxClass*) const>(
        &KvRxAttributeCollection::get));
    keep(static_cast<KvRxAttribute* (KvRxAttributeCollection::*)(const KvRxClass*)>(&KvRxAttributeCollection::get));
    keep(&KvRxAttributeCollection::add);
    keep(&KvRxAttributeCollection::override);
    keep(&KvRxAttributeCollection::remove);

    Attribute a;
    EXPECT_EQ(a.isA(), nullptr);
    KvRxLocalizedNameAttribute ln(1u), ln2(1u, 2u);
    EXPECT_EQ(ln2.id(), 0u);
    EXPECT_EQ(ln2.sourceHint(), 0u);
    EXPECT_TRUE(KvRxLocalizedNameAttribute::getLocalizedName(&a).isEmpty());
    KvRxAlternateLocalizedNameAttribute aln(5u), aln2(5u, 6u);
    EXPECT_EQ(aln2.id(), 0u);
    KvRxDescriptionAttribute d1(4u), d2(u"text"), d3(4u, 5u);
    EXPECT_EQ(d3.id(), 0u);
    EXPECT_EQ(d3.sourceHint(), 0u);
    EXPECT_TRUE(KvRxDescriptionAttribute::getDescription(&a).isEmpty());
    KvRxUiPlacementAttribute ui(u"General", 3u);
    EXPECT_EQ(KvRxUiPlacementAttribute::getCategory(&ui), nullptr);
    EXPECT_EQ(KvRxUiPlacementAttribute::getWeight(&ui), 0.0);
    KvRxLMVAttribute lmv;
    KvRxRefersToAttribute refers(u"/x");
    EXPECT_EQ(refers.path(), nullptr);
    EXPECT_EQ(KvRxRefersToAttribute::parseReference(u"/x", &a), nullptr);
    EXPECT_EQ(KvRxDisplayAsAttribute(u"/y").path(), nullptr);
    EXPECT_EQ(KvRxCOMAttribute(u"com").name(), nullptr);
    KvRxFilePathAttribute filePath;
    KvRxFlagsAttribute flags;
    EXPECT_EQ(KvRxUnitTypeAttribute(KvRxUnitTypeAttribute::kArea).unitType(), 0);
    KvRxGenerateDynamicPropertiesAttribute dynamic;
    KvRxUseDialogForReferredCollectionAttribute dialog;
    KvRxUiCascadingContextMenuAttribute cascading;
    EXPECT_EQ(KvRxCumulativeAttribute(u"t").type(), nullptr);
    EXPECT_EQ(KvRxAffinityAttribute(u"n").name(), nullptr);
    EXPECT_EQ(KvRxTypePromotionAttribute(u"p").properties(), nullptr);
    KvRxDefaultValueAttribute defaultValue{KvRxValue()};
    EXPECT_EQ(&defaultValue.value(), nullptr);
    EXPECT_EQ(KvRxDefaultValueAttribute::desc(), nullptr);
    EXPECT_EQ(lmv.isA(), nullptr);
    keep(&KvRxAttribute::rxInit);
}

TEST_F(ReflectionLink, VariablesGiveFixedResultsWhateverTheDefault) {
    EXPECT_EQ(KvRxVariablesDictionary::get(), nullptr);
    EXPECT_FALSE(KvRxVariablesDictionary::getBool(u"V", true));
    EXPECT_EQ(KvRxVariablesDictionary::getInt16(u"V", short(9)), 0);
    EXPECT_EQ(KvRxVariablesDictionary::getDouble(u"V", 1.5), 0.0);
    EXPECT_TRUE(KvRxVariablesDictionary::getString(u"V").isEmpty());
    EXPECT_EQ(KvRxVariablesDictionary::setBool(u"V", true), Kvore::eNotImplemented);
    EXPECT_EQ(KvRxVariablesDictionary::setInt16(u"V", 1), Kvore::eNotImplemented);
    EXPECT_EQ(KvRxVariablesDictionary::setDouble(u"V", 1.0), Kvore::eNotImplemented);
    EXPECT_EQ(KvRxVariablesDictionary::setString(u"V", u"x"), Kvore::eNotImplemented);
    keep(static_cast<bool (*)(const KvRxVariable&, bool)>(&KvRxVariablesDictionary::getBool));
    keep(static_cast<short (*)(const KvRxVariable&, short)>(&KvRxVariablesDictionary::getInt16));
    keep(static_cast<double (*)(const KvRxVariable&, double)>(&KvRxVariablesDictionary::getDouble));
    keep(static_cast<KvString (*)(const KvRxVariable&)>(&KvRxVariablesDictionary::getString));
    keep(static_cast<Kvore::ErrorStatus (*)(const KvRxVariable&, bool)>(&KvRxVariablesDictionary::setBool));
    keep(static_cast<Kvore::ErrorStatus (*)(const KvRxVariable&, short)>(&KvRxVariablesDictionary::setInt16));
    keep(static_cast<Kvore::ErrorStatus (*)(const KvRxVariable&, double)>(&KvRxVariablesDictionary::setDouble));
    keep(static_cast<Kvore::ErrorStatus (*)(const KvRxVariable&, const char16_t*)>(
        &KvRxVariablesDictionary::setString));
    keep(&KvRxVariablesDictionary::getVariable);
    keep(&KvRxVariablesDictionary::getAllNames);
    keep(&KvRxVariablesDictionary::reset);
    keep(&KvRxVariablesDictionary::addReactor);
    keep(&KvRxVariablesDictionary::removeReactor);
    keep(&KvRxVariable::name);
    keep(&KvRxVariable::range);
    keep(&KvRxVariable::primaryType);
    keep(&KvRxVariable::secondaryType);
    keep(&KvRxVariable::typeFlags);
    keep(&KvRxVariable::storageType);
    keep(&KvRxVariable::isLocked);
    keep(&KvRxVariable::isReadOnly);
    keep(&KvRxVariable::getValue);
    keep(&KvRxVariable::setValue);
    keep(&KvRxVariable::setIsReadOnly);
    keep(&KvRxVariable::reset);
    keep(&KvRxVariable::addReactor);
    keep(&KvRxVariable::removeReactor);
    keep(&KvRxVariableChangedEventArgs::newValue);
    keep(&KvRxVariableChangedEventArgs::oldValue);
    keep(&KvRxVariableChangingEventArgs::isResetting);
    keep(&KvRxVariableChangingEventArgs::setNewValue);
    keep(&KvRxVariableChangingEventArgs::veto);
}

TEST_F(ReflectionLink, ResourcesAndSharedObjectsLoadNothing) {
    KvRxResourceInstance byPath(u"/nowhere/res.krx"), byModule(static_cast<void*>(nullptr));
    KvRxResourceInstance copy(byPath);
    copy = byModule;
    EXPECT_FALSE(copy.isLoaded());
    EXPECT_FALSE(KvRxResourceInstance::empty().isLoaded());
    EXPECT_EQ(&KvRxResourceInstance::empty(), &KvRxResourceInstance::empty());
    KvString text(u"kept");
    EXPECT_FALSE(byPath.tryLoadString(1, text));
    EXPECT_TRUE(text == u"kept");
    unsigned long size = 3;
    const void* data = &size;
    EXPECT_FALSE(byPath.loadDataResource(1, size, data));
    byPath.freeDataResource(data);
    EXPECT_EQ(KvRxResourceLoader::loadString(nullptr, 1u, 2u, text), Kvore::eNotImplemented);
    EXPECT_EQ(Loader().isA(), nullptr);

    KvRxSharedObject plain, fromHandle(static_cast<void*>(&size));
    KvRxSharedObject loaded = KvRxSharedObject::tryLoad(u"liblumrx.so", true);
    EXPECT_FALSE(loaded.isLoaded());
    EXPECT_FALSE(fromHandle.isLoaded());
    EXPECT_EQ(loaded.getSymbol("kvrxFindKvRxClass"), nullptr);
    EXPECT_EQ(&(plain = KvRxSharedObject()), &plain);
}

TEST_F(ReflectionLink, DescFindsAClassRegisteredUnderItsNameAndKeepsIt) {
    EXPECT_EQ(KvRxCOMAttribute::desc(), nullptr);
    KvRxClass* registered = newKvRxClass(u"KvRxCOMAttribute", u"OvRxObject");
    kvrxBuildClassHierarchy();
    KvRxCOMAttribute attribute(u"c");
    EXPECT_EQ(attribute.isA(), registered);
    EXPECT_EQ(KvRxCOMAttribute::cast(&attribute), &attribute);
    deleteKvRxClass(registered);
    EXPECT_EQ(KvRxCOMAttribute::desc(), registered) << "kept without a further look-up";
    KvRxClassState::destroyDoomedRxClasses(true);
}

}  // namespace
