// Run-time classes: boilerplate, registration, linking, the doomed-class walk and
// context menus.
#include "kernel/kvrximpclass.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxvalue.h"
#include "testsupport.h"

#include <memory>

using lumtest::RecordingCrashRecorder;
using lumtest::utf8;

namespace classtest {

// A class with a factory whose copyFrom works, so that clone can succeed.
class TestShape : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestShape);

public:
    static int live;
    int size = 0;
    TestShape() { ++live; }
    ~TestShape() override { --live; }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        const TestShape* shape = TestShape::cast(other);
        if (!shape) return Kvore::eWrongObjectType;
        size = shape->size;
        return Kvore::eOk;
    }
    static KvRxObject* make() { return new TestShape(); }
};
int TestShape::live = 0;
KVRX_DEFINE_MEMBERS(TestShape, u"TestShape", u"OvRxObject");

// A class with a factory but the root's copyFrom: clone must fail and free the copy.
class TestOpaque : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestOpaque);

public:
    static KvRxObject* make() { return new TestOpaque(); }
};
KVRX_DEFINE_MEMBERS(TestOpaque, u"TestOpaque", u"OvRxObject");

// A class that nothing registers: its isA stays null.
class TestUnregistered : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestUnregistered);
};
KVRX_DEFINE_MEMBERS_WITH(TestUnregistered, u"TestUnregistered", u"OvRxObject", kvrxDescShort, u"");

}  // namespace classtest

namespace {

using namespace classtest;

const char kFaultText[] = "Exception(SE) has happend in destroyDoomedRxClasses function.";

class ClassTree : public lumtest::RuntimeTest {
protected:
    // Registers a test class unless an earlier test of the process did.
    static void registerOnce(const char16_t* name, KvRxPseudoConstructor make) {
        if (!kvrxFindKvRxClass(name)) newKvRxClass(name, u"OvRxObject", 0, make);
        kvrxBuildClassHierarchy();
    }
    static KvRxImpClass* imp(KvRxClass* c) { return KvRxImpClass::getImplRxClass(c); }
    // Destroys what the test doomed, with the order checks on.
    void TearDown() override { KvRxClassState::destroyDoomedRxClasses(true); }
};

TEST_F(ClassTree, BoilerplateCastAndKindFollowTheRegisteredTree) {
    registerOnce(u"TestShape", &TestShape::make);
    ASSERT_NE(TestShape::desc(), nullptr);

    TestShape shape;
    TestUnregistered stranger;
    EXPECT_EQ(KvRxObject::cast(&shape), &shape);
    EXPECT_EQ(KvRxObject::cast(nullptr), nullptr);
    EXPECT_EQ(TestShape::cast(&shape), &shape);
    EXPECT_EQ(TestShape::cast(nullptr), nullptr);
    EXPECT_EQ(KvRxDictionary::cast(&shape), nullptr);
    EXPECT_EQ(TestShape::cast(&stranger), nullptr);
    EXPECT_TRUE(shape.isKindOf(KvRxObject::desc()));
    EXPECT_TRUE(shape.isKindOf(TestShape::desc()));
    EXPECT_FALSE(shape.isKindOf(KvRxClass::desc()));
    EXPECT_EQ(stranger.isA(), nullptr);
    EXPECT_FALSE(stranger.isKindOf(KvRxObject::desc())) << "a class without a descriptor is no kind";
}

TEST_F(ClassTree, RootDefaultsCloneCompareAndCopy) {
    registerOnce(u"TestShape", &TestShape::make);
    registerOnce(u"TestOpaque", &TestOpaque::make);

    TestShape shape;
    shape.size = 7;
    std::unique_ptr<KvRxObject> copy(shape.clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(TestShape::cast(copy.get())->size, 7);
    copy.reset();

    TestOpaque opaque;
    EXPECT_EQ(opaque.clone(), nullptr) << "copyFrom of the root gives 1";
    EXPECT_EQ(opaque.copyFrom(&shape), Kvore::eNotImplemented);
    EXPECT_TRUE(opaque.isEqualTo(&opaque));
    EXPECT_FALSE(opaque.isEqualTo(&shape));
    EXPECT_EQ(opaque.comparedTo(&opaque), KvRx::kNotOrderable);

    TestUnregistered stranger;
    EXPECT_EQ(stranger.clone(), nullptr);
    EXPECT_EQ(TestShape::live, 1) << "every clone made on the way was freed";
}

TEST_F(ClassTree, SecondRxInitIsHarmlessAndAStalePointerIsReported) {
    lumtest::FakeHost host;
    RecordingCrashRecorder recorder;
    KvRxClass* before = KvRxString::desc();
    KvRxString::rxInit();
    EXPECT_EQ(KvRxString::desc(), before);
    EXPECT_TRUE(host.fatalErrors.empty());
    EXPECT_TRUE(recorder.lines.empty());

    // A static pointer that disagrees with the dictionary: abort, then the fresh
    // registration finds the name taken.
    if (!kvrxFindKvRxClass(u"TestShape")) TestShape::rxInit();
    KvRxClass* registered = TestShape::desc();
    TestShape::gpDesc = KvRxString::desc();
    EXPECT_LUM_THROW(TestShape::rxInit(), "Try to regist a rxclass which is already registed!!");
    ASSERT_EQ(host.fatalErrors.size(), 1u);
    EXPECT_EQ(utf8(host.fatalErrors[0]), "!");
    EXPECT_EQ(kvrxFindKvRxClass(u"TestShape"), registered) << "the registered class keeps its name";
    TestShape::gpDesc = registered;
}

TEST_F(ClassTree, RootRxInitTwiceIsFatal) {
    EXPECT_LUM_THROW(KvRxObject::rxInit(), "RX-Root class has already existed!!");
    EXPECT_EQ(kvrxFindKvRxClass(u"OvRxObject"), KvRxObject::desc());
}

TEST_F(ClassTree, RegistrationRefusesEmptyAndTakenNames) {
    EXPECT_EQ(newKvRxClass(nullptr, u"OvRxObject"), nullptr);
    EXPECT_EQ(newKvRxClass(u"", u"OvRxObject"), nullptr);

    KvRxClass* first = newKvRxClass(u"TestTaken", u"OvRxObject", 3);
    unsigned id = KvRxModuleGlobalImp::instance()->classDictionary->idAt(u"TestTaken");
    EXPECT_LUM_THROW(newKvRxClass(u"testTAKEN", u"OvRxObject"),
                     "Try to regist a rxclass which is already registed!!");
    EXPECT_EQ(kvrxFindKvRxClass(u"TestTaken"), first);
    EXPECT_EQ(KvRxModuleGlobalImp::instance()->classDictionary->idAt(u"TestTaken"), id);
    EXPECT_EQ(first->proxyFlags(), 3);
    kvrxBuildClassHierarchy();
}

TEST_F(ClassTree, RegistrationStoresWhatItIsGiven) {
    auto callback = [](const KvRxClass*, char16_t*&, int) {};
    KvRxClass* c = newKvRxClassWithFeature(u"TestFull", u"OvRxObject", 4, 5, 6, 7, nullptr,
                                           u"TESTDXF", u"TestApp", callback);
    ASSERT_NE(c, nullptr);
    int version = 0, maintenance = 0;
    c->getClassVersion(version, maintenance);
    EXPECT_EQ(version, 4);
    EXPECT_EQ(maintenance, 5);
    EXPECT_EQ(c->proxyFlags(), 7);
    EXPECT_EQ(utf8(c->name()), "TestFull");
    EXPECT_EQ(utf8(c->dxfName()), "TESTDXF");
    EXPECT_EQ(utf8(c->appName()), "TestApp");
    EXPECT_EQ(c->appNameCallbackPtr(), static_cast<KvRxAppNameCallback>(callback));
    EXPECT_EQ(c->create(), nullptr) << "no factory, no object";
    EXPECT_EQ(c->members(), nullptr);
    EXPECT_EQ(c->descendants(), nullptr);
    EXPECT_EQ(kvrxQueueClassForInitialization(c), 0);

    // Without any of the values most classes leave unset, and with one of them alone:
    // the names stay whole and the unset values read as 0 or null.
    KvRxClass* plain = newKvRxClass(u"TestPlainDxf", u"OvRxObject", 0, nullptr, u"PLAINDXF");
    KvRxClass* featured = newKvRxClassWithFeature(u"TestFeatureOnly", u"OvRxObject", 9u, 0, nullptr,
                                                  nullptr, u"FeatureApp");
    for (KvRxClass* k : {plain, featured}) {
        ASSERT_NE(k, nullptr);
        version = maintenance = -1;
        k->getClassVersion(version, maintenance);
        EXPECT_EQ(version, 0);
        EXPECT_EQ(maintenance, 0);
        EXPECT_EQ(k->proxyFlags(), 0);
        EXPECT_EQ(k->appNameCallbackPtr(), nullptr);
    }
    EXPECT_EQ(utf8(plain->name()), "TestPlainDxf");
    EXPECT_EQ(utf8(plain->dxfName()), "PLAINDXF");
    EXPECT_EQ(plain->appName(), nullptr);
    EXPECT_EQ(utf8(featured->name()), "TestFeatureOnly");
    EXPECT_EQ(featured->dxfName(), nullptr);
    EXPECT_EQ(utf8(featured->appName()), "FeatureApp");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(plain->myParent(), KvRxObject::desc());
    EXPECT_EQ(featured->myParent(), KvRxObject::desc());
}

TEST_F(ClassTree, MissingParentIsRecordedAndFatalUntilItComes) {
    RecordingCrashRecorder recorder;
    KvRxClass* orphan = newKvRxClass(u"TestOrphan", u"TestLateParent");
    ASSERT_NE(orphan, nullptr) << "the parent isn't looked at when registering";
    EXPECT_EQ(orphan->myParent(), nullptr);
    EXPECT_TRUE(orphan->isDerivedFrom(orphan)) << "a class knows itself before linking";
    EXPECT_FALSE(orphan->isDerivedFrom(KvRxObject::desc()));

    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines[0]),
              "Regist rxclass ModuleName: , ParentClassName: TestLateParent , ClassName: TestOrphan !!!");

    // The parent registers later, itself unlinked: the batch links both.
    KvRxClass* parent = newKvRxClass(u"TestLateParent", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(orphan->myParent(), parent);
    EXPECT_EQ(parent->myParent(), KvRxObject::desc());
    EXPECT_TRUE(orphan->isDerivedFrom(KvRxObject::desc()));
    EXPECT_TRUE(KvRxClass::isDerivedFrom(orphan, parent));
    EXPECT_FALSE(KvRxClass::isDerivedFrom(nullptr, parent));
    EXPECT_FALSE(orphan->isDerivedFrom(nullptr));

    kvrxBuildClassHierarchy();  // nothing pending: a second batch changes nothing
    EXPECT_EQ(orphan->myParent(), parent);
    EXPECT_EQ(recorder.lines.size(), 1u);
}

TEST_F(ClassTree, ClassesLinkedInARowFindEachParentByItsOwnNameInEveryPass) {
    KvRxClass* p = newKvRxClass(u"TestLookP", u"OvRxObject");
    KvRxClass* pq = newKvRxClass(u"TestLookPQ", u"OvRxObject");
    kvrxBuildClassHierarchy();
    // In name order one after another; one parent's name starts the other's.
    KvRxClass* c1 = newKvRxClass(u"TestLookC1", u"TestLookP");
    KvRxClass* c2 = newKvRxClass(u"TestLookC2", u"TestLookPQ");
    KvRxClass* c3 = newKvRxClass(u"TestLookC3", u"TestLookP");
    KvRxClass* c4 = newKvRxClass(u"TestLookC4", u"testlookp");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(c1->myParent(), p);
    EXPECT_EQ(c2->myParent(), pq);
    EXPECT_EQ(c3->myParent(), p);
    EXPECT_EQ(c4->myParent(), p);

    // Between passes the parent's entry takes another key and a new class takes the
    // name, linked in the same pass as a child that names it, after it: the child finds
    // the new one.
    auto* classes = KvRxModuleGlobalImp::instance()->classDictionary;
    ASSERT_TRUE(classes->resetKey(u"TestLookP", u"TestLookPOld"));
    KvRxClass* p2 = newKvRxClass(u"TestLookP", u"OvRxObject");
    KvRxClass* c5 = newKvRxClass(u"TestLookC5", u"testlookp");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(c5->myParent(), p2);
    EXPECT_EQ(p2->myParent(), KvRxObject::desc());
    // Each class leaves under its own name: the new one first, then the old one's key
    // goes back.
    deleteKvRxClass(c5);
    deleteKvRxClass(p2);
    KvRxClassState::destroyDoomedRxClasses(true);
    ASSERT_TRUE(classes->resetKey(u"TestLookPOld", u"TestLookP"));
    for (KvRxClass* c : {c1, c2, c3, c4, p, pq}) deleteKvRxClass(c);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookP"), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookPOld"), nullptr);
}

TEST_F(ClassTree, ALoopOfParentsIsRefusedAsAWrongOrder) {
    RecordingCrashRecorder recorder;
    KvRxClass* a = newKvRxClass(u"TestLoopA", u"TestLoopB");
    KvRxClass* b = newKvRxClass(u"TestLoopB", u"TestLoopA");
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    // The sorted walk links A below B, then refuses to put B below A.
    EXPECT_EQ(a->myParent(), b);
    EXPECT_EQ(b->myParent(), nullptr);
    EXPECT_EQ(recorder.lines.size(), 1u);
    deleteKvRxClass(a);
    deleteKvRxClass(b);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_TRUE(recorder.faults.empty());
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLoopB"), nullptr);
}

TEST_F(ClassTree, ComparedToOrdersByCaseSensitiveName) {
    KvRxClass* lower = newKvRxClass(u"testcmp", u"OvRxObject");
    KvRxClass* upper = newKvRxClass(u"TestCmpUpper", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(lower->comparedTo(lower), KvRx::kEqual);
    EXPECT_NE(lower->comparedTo(upper), KvRx::kEqual);
    EXPECT_EQ(upper->comparedTo(lower), KvRx::kLessThan) << "'T' sorts before 't'";
    EXPECT_EQ(lower->comparedTo(nullptr), KvRx::kNotOrderable);
    EXPECT_EQ(lower->comparedTo(kvrxSysRegistry()), KvRx::kNotOrderable);
}

TEST_F(ClassTree, DoomedClassesStayFoundUntilTheWalk) {
    KvRxClass* c = newKvRxClass(u"TestDoomed", u"OvRxObject");
    kvrxBuildClassHierarchy();
    deleteKvRxClass(nullptr);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClassCount(), 0);
    deleteKvRxClass(c);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClassCount(), 1);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClass(0), c);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClass(1), nullptr);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClass(-1), nullptr);
    // Dooming it again leaves the list as it is: the walk must not delete it twice.
    deleteKvRxClass(c);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClassCount(), 1);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestDoomed"), c);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(KvRxImpClass::getDoomedRxClassCount(), 0);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestDoomed"), nullptr);
}

TEST_F(ClassTree, ChildrenBeforeParentsGoSilently) {
    RecordingCrashRecorder recorder;
    KvRxClass* parent = newKvRxClass(u"TestParentOk", u"OvRxObject");
    newKvRxClass(u"TestChildOk", u"TestParentOk");
    kvrxBuildClassHierarchy();
    deleteKvRxClass(kvrxFindKvRxClass(u"TestChildOk"));
    deleteKvRxClass(parent);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_TRUE(recorder.lines.empty());
    EXPECT_TRUE(recorder.faults.empty());
    EXPECT_EQ(kvrxFindKvRxClass(u"TestParentOk"), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestChildOk"), nullptr);
}

TEST_F(ClassTree, AParentBeforeItsChildrenIsRecordedAndTheWalkGoesOn) {
    RecordingCrashRecorder recorder;
    KvRxClass* parent = newKvRxClass(u"TestParentBad", u"OvRxObject");
    newKvRxClass(u"TestChildA", u"TestParentBad");
    newKvRxClass(u"TestChildB", u"TestParentBad");
    KvRxClass* bystander = newKvRxClass(u"TestBystander", u"OvRxObject");
    kvrxBuildClassHierarchy();

    deleteKvRxClass(parent);
    deleteKvRxClass(bystander);
    KvRxClassState::destroyDoomedRxClasses(true);

    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines[0]),
              "ModuleName: , ClassName: TestParentBad , SubClassNames: TestChildA,TestChildB, ");
    ASSERT_EQ(recorder.faults.size(), 1u);
    EXPECT_EQ(utf8(recorder.faults[0].text), kFaultText);
    EXPECT_GE(recorder.flushes, 1);
    EXPECT_EQ(recorder.exceptions.size(), 1u);
    EXPECT_EQ(utf8(recorder.exceptions[0]), "Delete rx class in wrong order!!!");
    EXPECT_EQ(kvrxFindKvRxClass(u"TestParentBad"), nullptr) << "its name left the dictionary";
    EXPECT_EQ(kvrxFindKvRxClass(u"TestBystander"), nullptr) << "the walk went on";
    KvRxClass* child = kvrxFindKvRxClass(u"TestChildA");
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->myParent(), parent) << "the half-destroyed parent stays readable";
}

TEST_F(ClassTree, SubClassNamesStopBeforeTheBufferEnds) {
    RecordingCrashRecorder recorder;
    KvRxClass* parent = newKvRxClass(u"TestWide", u"OvRxObject");
    // Ten children of 39 characters: 40 units each with the comma; six fit in 260.
    std::vector<std::u16string> names;
    for (int i = 0; i < 10; ++i) {
        std::u16string name = u"TestChildWithAVeryLongNameNumber000000";
        name.push_back(char16_t(u'0' + i));
        names.push_back(name);
        newKvRxClass(name.c_str(), u"TestWide");
    }
    kvrxBuildClassHierarchy();
    deleteKvRxClass(parent);
    KvRxClassState::destroyDoomedRxClasses(true);
    ASSERT_EQ(recorder.lines.size(), 1u);
    std::u16string expected = u"ModuleName: , ClassName: TestWide , SubClassNames: ";
    for (int i = 0; i < 6; ++i) expected += names[size_t(i)] + u",";
    expected += u" ";
    EXPECT_EQ(utf8(recorder.lines[0]), utf8(expected));
}

TEST_F(ClassTree, ClassesRegisteredDuringAModulesFirstMessageBelongToIt) {
    lumtest::FakeHost host;
    RecordingCrashRecorder recorder;
    std::unique_ptr<KvRxDynLoadModuleProxy> proxy(KvRxDynLoadModuleProxy::makeProxy(nullptr));
    proxy->setModuleName(u"/opt/mods/geometry.krx");
    host.runtime.current = proxy.get();

    KvRxClass* before = newKvRxClass(u"TestNotYetInit", u"OvRxObject");
    proxy->setInitialising(true);
    KvRxClass* owned = newKvRxClass(u"TestOwned", u"TestMissingForModule");
    proxy->setInitialising(false);
    host.withRuntime = false;
    KvRxClass* hostless = newKvRxClass(u"TestHostless", u"OvRxObject");
    host.withRuntime = true;

    EXPECT_EQ(KvRxClassState::of(before)->module(), nullptr);
    EXPECT_EQ(KvRxClassState::of(owned)->module(), proxy.get());
    EXPECT_EQ(KvRxClassState::of(hostless)->module(), nullptr);

    // The module's name appears in the wrong-order line.
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines[0]),
              "Regist rxclass ModuleName: /opt/mods/geometry.krx, ParentClassName: "
              "TestMissingForModule , ClassName: TestOwned !!!");
    newKvRxClass(u"TestMissingForModule", u"OvRxObject");
    kvrxBuildClassHierarchy();
    KvRxClassState::of(owned)->setModule(nullptr);  // the proxy goes before the class
}

TEST_F(ClassTree, ContextMenusKeepOnePairPerObject) {
    KvRxClass* c = newKvRxClass(u"TestMenus", u"OvRxObject");
    kvrxBuildClassHierarchy();
    KvRxImpClass* impl = imp(c);
    TestUnregistered a, b, d;
    int menuA = 1, menuB = 2, menuAgain = 3;

    EXPECT_EQ(impl->numOfObjectContextMenu(), 0);
    EXPECT_FALSE(impl->addObjectContextMenu(nullptr, &menuA));
    EXPECT_TRUE(impl->addObjectContextMenu(&a, &menuA));
    EXPECT_FALSE(impl->addObjectContextMenu(&a, &menuAgain)) << "one pair per object";
    EXPECT_TRUE(impl->addObjectContextMenu(&b, &menuB));
    EXPECT_TRUE(impl->addObjectContextMenu(&d, nullptr));
    EXPECT_EQ(impl->numOfObjectContextMenu(), 3);

    KvRxObject* object = &d;
    void* menu = &menuAgain;
    impl->getObjectContextMenuAt(0, object, &menu);
    EXPECT_EQ(object, &a);
    EXPECT_EQ(menu, &menuA) << "the first menu stays";
    impl->getObjectContextMenuAt(3, object, &menu);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(menu, nullptr);
    impl->getObjectContextMenuAt(-1, object, nullptr);
    EXPECT_EQ(object, nullptr);

    EXPECT_FALSE(impl->removeObjectContextMenu(nullptr));
    EXPECT_TRUE(impl->removeObjectContextMenu(&a));
    EXPECT_FALSE(impl->removeObjectContextMenu(&a));
    impl->getObjectContextMenuAt(0, object, &menu);
    EXPECT_EQ(object, &b) << "the gap closes";
    EXPECT_EQ(menu, &menuB);
    EXPECT_EQ(impl->numOfObjectContextMenu(), 2);
}

// A module's value type: a class whose own isA() is null while nobody registers
// "KvRxValueType".
class TestValueType : public KvRxValueType {
public:
    static int live;
    TestValueType(const char16_t* name, const char16_t* parent)
        : KvRxValueType(name, parent, nonBlittable, 8u, nullptr, nullptr) {
        ++live;
    }
    ~TestValueType() override { --live; }
    bool equalTo(const void*, const void*) const override { return false; }

private:
    struct Plain : IKvRxNonBlittableType {
        void construct(void*, const void*) const override {}
        void assign(void*, const void*) const override {}
        void destruct(void*) const override {}
    };
    static Plain nonBlittable;
};
int TestValueType::live = 0;
TestValueType::Plain TestValueType::nonBlittable;

TEST_F(ClassTree, ClassesWithoutAClassOfTheirOwnAreClassesAllTheSame) {
    lumtest::FakeHost host;
    RecordingCrashRecorder recorder;
    std::unique_ptr<KvRxDynLoadModuleProxy> proxy(KvRxDynLoadModuleProxy::makeProxy(nullptr));
    proxy->setModuleName(u"/opt/mods/values.krx");
    host.runtime.current = proxy.get();
    proxy->setInitialising(true);
    // Children first; a plain class below a value type, too.
    KvRxClass* plain = newKvRxClass(u"TestVtPlain", u"TestVtChild");
    auto* child = new TestValueType(u"TestVtChild", u"TestVtParent");
    auto* parent = new TestValueType(u"TestVtParent", u"OvRxObject");
    proxy->setInitialising(false);
    ASSERT_EQ(parent->isA(), nullptr);

    EXPECT_EQ(kvrxFindKvRxClass(u"testvtparent"), parent);
    kvrxBuildClassHierarchy();
    EXPECT_TRUE(recorder.lines.empty()) << "no parent is missing";
    EXPECT_EQ(parent->myParent(), KvRxObject::desc());
    EXPECT_EQ(child->myParent(), parent);
    EXPECT_EQ(plain->myParent(), child);
    EXPECT_TRUE(plain->isDerivedFrom(parent));

    // The module's unload takes its classes' owner away.
    EXPECT_EQ(KvRxClassState::of(child)->module(), proxy.get());
    KvRxClassState::disownClassesOf(proxy.get());
    EXPECT_EQ(KvRxClassState::of(child)->module(), nullptr);
    EXPECT_EQ(KvRxClassState::of(plain)->module(), nullptr);

    // With "KvRxValueType" registered but not yet linked, one pass links a value type
    // that sorts before it.
    if (!kvrxFindKvRxClass(u"KvRxValueType")) newKvRxClass(u"KvRxValueType", u"OvRxClass");
    auto* early = new TestValueType(u"AaTestVtEarly", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(early->myParent(), KvRxObject::desc());

    for (KvRxClass* c : {plain, static_cast<KvRxClass*>(early), static_cast<KvRxClass*>(child),
                         static_cast<KvRxClass*>(parent)})
        deleteKvRxClass(c);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(TestValueType::live, 0);
    EXPECT_TRUE(recorder.faults.empty());
}

}  // namespace
