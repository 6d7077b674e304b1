// The kernel's indexes over the class tree kept across the tree's changes: each
// class's line of ancestors (kind tests), the look-up by name, the list of classes
// waiting for their parent, and the last answer of a class's protocol map.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxmap.h"

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

using lumtest::RecordingCrashRecorder;
using lumtest::utf8;

namespace {

class Thing : public KvRxObject {
public:
    explicit Thing(KvRxClass* cls = nullptr) : cls(cls) {}
    KvRxClass* isA() const override { return cls; }
    KvRxClass* cls;
};

class ClassIndexes : public lumtest::RuntimeTest {
protected:
    void TearDown() override { KvRxClassState::destroyDoomedRxClasses(true); }
};

TEST_F(ClassIndexes, LinesFollowClassesLinkedLateAndBelowWaitingParents) {
    RecordingCrashRecorder recorder;
    // The child sorts first and links to its parent while that one still waits for
    // its own parent.
    KvRxClass* child = newKvRxClass(u"TestLineAChild", u"TestLineBParent");
    KvRxClass* parent = newKvRxClass(u"TestLineBParent", u"TestLineZTop");
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    Thing object(child);
    EXPECT_EQ(child->myParent(), parent);
    EXPECT_TRUE(object.isKindOf(parent));
    EXPECT_FALSE(object.isKindOf(KvRxObject::desc())) << "the line ends at the waiting parent";
    EXPECT_FALSE(parent->isDerivedFrom(child));

    KvRxClass* top = newKvRxClass(u"TestLineZTop", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_TRUE(object.isKindOf(top)) << "the child's line follows its parent's linking";
    EXPECT_TRUE(object.isKindOf(KvRxObject::desc()));
    EXPECT_EQ(kvrxCastTo(&object, top), &object);
    EXPECT_EQ(kvrxCastTo(&object, KvRxClass::desc()), nullptr);
    EXPECT_FALSE(top->isDerivedFrom(parent));

    // A class of the same depth in another line is no ancestor.
    KvRxClass* cousin = newKvRxClass(u"TestLineCousin", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_FALSE(object.isKindOf(cousin));
    for (KvRxClass* c : {child, parent, top, cousin}) deleteKvRxClass(c);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_TRUE(recorder.faults.empty()) << "children went first";
}

// Lines against the parent links, over classes registered in shuffled order and linked
// in several passes, some ended by a parent that isn't there yet or by a loop: after
// every pass, a class is derived from exactly the classes its parent links reach.
TEST_F(ClassIndexes, LinesMatchTheParentLinksAfterEveryPassHoweverItEnds) {
    RecordingCrashRecorder recorder;
    // In name order: A below B below C, each linked while its parent waits, C below the
    // root; then D, whose parent isn't there, ends the pass.
    KvRxClass* a = newKvRxClass(u"TestPassA", u"TestPassB");
    KvRxClass* b = newKvRxClass(u"TestPassB", u"TestPassC");
    KvRxClass* c = newKvRxClass(u"TestPassC", u"OvRxObject");
    KvRxClass* d = newKvRxClass(u"TestPassD", u"TestPassMissing");
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    EXPECT_TRUE(a->isDerivedFrom(c));
    EXPECT_TRUE(a->isDerivedFrom(KvRxObject::desc())) << "the line of A reaches the root";
    EXPECT_TRUE(b->isDerivedFrom(KvRxObject::desc()));
    EXPECT_FALSE(d->isDerivedFrom(KvRxObject::desc()));
    for (KvRxClass* gone : {d, a, b, c}) {
        deleteKvRxClass(gone);
        KvRxClassState::destroyDoomedRxClasses(true);
    }
    recorder.lines.clear();
    recorder.faults.clear();

    const int n = 120;
    std::mt19937 random(5);
    std::vector<int> parentOf(n);
    for (int i = 0; i < n; ++i) parentOf[size_t(i)] = i == 0 ? -1 : int(random() % unsigned(i));
    auto nameOf = [](int i) {
        std::u16string name = u"TestPass";
        for (char c : std::to_string(i * 7919 % 1000 + i * 1000)) name.push_back(char16_t(c));
        return name;
    };
    std::vector<int> order(n);
    for (int i = 0; i < n; ++i) order[size_t(i)] = i;
    std::shuffle(order.begin(), order.end(), random);
    std::vector<KvRxClass*> classes(n, nullptr);
    auto check = [&] {
        for (int a = 0; a < n; ++a) {
            if (!classes[size_t(a)]) continue;
            for (int b = 0; b < n; ++b) {
                if (!classes[size_t(b)]) continue;
                bool reached = false;
                for (const KvRxClass* c = classes[size_t(a)]; c && !reached; c = c->myParent())
                    reached = c == classes[size_t(b)];
                if (classes[size_t(a)]->isDerivedFrom(classes[size_t(b)]) != reached) return false;
            }
        }
        return true;
    };
    size_t registered = 0;
    for (int pass = 0; registered < order.size(); ++pass) {
        for (size_t k = 0; k < 25 && registered < order.size(); ++k, ++registered) {
            int i = order[registered];
            std::u16string parent = i == 0 ? u"OvRxObject" : nameOf(parentOf[size_t(i)]);
            classes[size_t(i)] = newKvRxClass(nameOf(i).c_str(), parent.c_str());
        }
        size_t faults = recorder.faults.size() + recorder.lines.size();
        try {
            kvrxBuildClassHierarchy();
        } catch (LumException* e) {
            delete e;
        }
        ASSERT_TRUE(check()) << "after pass " << pass << ", " << recorder.lines.size() + recorder.faults.size() - faults
                             << " records";
    }
    kvrxBuildClassHierarchy();
    ASSERT_TRUE(check());
    for (int i = 1; i < n; ++i) EXPECT_EQ(classes[size_t(i)]->myParent(), classes[size_t(parentOf[size_t(i)])]);

    // A loop: a waiting class whose parent is below it is refused, and lines stay.
    KvRxClass* top = newKvRxClass(u"TestPassLoopTop", u"TestPassLoopLow");
    KvRxClass* low = newKvRxClass(u"TestPassLoopLow", u"TestPassLoopTop");
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    EXPECT_TRUE(low->isDerivedFrom(top) != top->isDerivedFrom(low)) << "one of them linked";
    EXPECT_TRUE(check());
    for (KvRxClass* c : {low, top}) {
        deleteKvRxClass(c);
        KvRxClassState::destroyDoomedRxClasses(true);
    }
    // Children go before their parents.
    for (int i = n - 1; i >= 0; --i) deleteKvRxClass(classes[size_t(i)]);
}

TEST_F(ClassIndexes, NamesAreFoundInAnyCaseUntilTheClassGoes) {
    KvRxClass* first = newKvRxClass(u"TestIndexName", u"OvRxObject");
    kvrxBuildClassHierarchy();
    EXPECT_EQ(kvrxFindKvRxClass(u"TESTINDEXNAME"), first);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestIndexNam"), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestIndexNameX"), nullptr);
    EXPECT_LUM_THROW(newKvRxClass(u"testindexname", u"OvRxObject"),
                     "Try to regist a rxclass which is already registed!!");
    EXPECT_EQ(kvrxFindKvRxClass(u"TestIndexName"), first) << "the taken name keeps its class";

    deleteKvRxClass(first);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestIndexName"), first) << "a doomed class stays until the walk";
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestIndexName"), nullptr);

    KvRxClass* second = newKvRxClass(u"TESTINDEXNAME", u"OvRxObject");
    EXPECT_EQ(kvrxFindKvRxClass(u"testIndexName"), second);
    deleteKvRxClass(second);
}

// The look-up by name is the class dictionary's own: it answers as the dictionary does
// whoever changed it, and the destroy walk takes out only the entry that holds the
// class going.
TEST_F(ClassIndexes, TheLookUpByNameAnswersAsTheClassDictionary) {
    auto* classes = static_cast<KvRxDictionary*>(kvrxSysRegistry()->at(u"ClassDictionary"));
    ASSERT_NE(classes, nullptr);
    KvRxClass* named = newKvRxClass(u"TestLookUpNamed", u"OvRxObject");
    kvrxBuildClassHierarchy();
    unsigned id = classes->idAt(u"TestLookUpNamed");

    ASSERT_TRUE(classes->resetKey(id, u"TestLookUpRenamed"));
    EXPECT_EQ(kvrxFindKvRxClass(u"testlookuprenamed"), named) << "found under its new key";
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookUpNamed"), nullptr) << "the old key is gone";
    ASSERT_TRUE(classes->resetKey(id, u"TestLookUpNamed"));

    // Another class's entry under the name: the walk leaves it in place.
    KvRxClass* other = newKvRxClass(u"TestLookUpOther", u"OvRxObject");
    kvrxBuildClassHierarchy();
    unsigned putId = 0;
    EXPECT_EQ(classes->atPut(u"TestLookUpNamed", other, putId), named);
    EXPECT_EQ(putId, id);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookUpNamed"), other);
    deleteKvRxClass(named);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(classes->at(id), other) << "the entry held another class";
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookUpNamed"), other);
    EXPECT_EQ(classes->remove(id), other);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookUpNamed"), nullptr) << "taken out through the dictionary";
    deleteKvRxClass(other);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(kvrxFindKvRxClass(u"TestLookUpOther"), nullptr);
}

// A parent's children stand in the order they linked; children that go leave the list
// from its head, middle or end, and a child linked later joins at the end.
TEST_F(ClassIndexes, ChildrenLeaveTheirParentFromAnyPlaceAndJoinAtTheEnd) {
    RecordingCrashRecorder recorder;
    KvRxClass* parent = newKvRxClass(u"TestKinParent", u"OvRxObject");
    std::vector<KvRxClass*> kids;
    for (const char16_t* name : {u"TestKinA", u"TestKinB", u"TestKinC", u"TestKinD"})
        kids.push_back(newKvRxClass(name, u"TestKinParent"));
    kvrxBuildClassHierarchy();
    for (KvRxClass* gone : {kids[1], kids[0], kids[3]}) deleteKvRxClass(gone);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_TRUE(recorder.faults.empty());
    KvRxClass* late = newKvRxClass(u"TestKinE", u"TestKinParent");
    kvrxBuildClassHierarchy();
    Thing object(late);
    EXPECT_TRUE(object.isKindOf(parent));

    deleteKvRxClass(parent);
    KvRxClassState::destroyDoomedRxClasses(true);
    ASSERT_EQ(recorder.faults.size(), 1u) << "the parent still has children";
    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines.back()), "ModuleName: , ClassName: TestKinParent , SubClassNames: TestKinC,TestKinE, ");
    EXPECT_EQ(kvrxFindKvRxClass(u"TestKinParent"), nullptr) << "out of the dictionary, not destroyed";
    EXPECT_EQ(kids[2]->myParent(), parent);
    for (KvRxClass* c : {kids[2], late}) deleteKvRxClass(c);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(recorder.faults.size(), 1u) << "the children leave the abandoned parent in order";
}

// A waiting class whose entry was moved to another id through the dictionary's own
// interface still links, in name order with the others.
TEST_F(ClassIndexes, AWaitingClassMovedInTheDictionaryStillLinksInNameOrder) {
    RecordingCrashRecorder recorder;
    auto* classes = static_cast<KvRxDictionary*>(kvrxSysRegistry()->at(u"ClassDictionary"));
    KvRxClass* parent = newKvRxClass(u"TestMovedParent", u"OvRxObject");
    std::vector<KvRxClass*> made;
    for (const char16_t* name : {u"TestMovedKidc", u"TestMovedKidB", u"TestMovedKida", u"TestMovedKidD"})
        made.push_back(newKvRxClass(name, u"TestMovedParent"));
    unsigned oldId = classes->idAt(u"TestMovedKidB");
    KvRxObject* moved = classes->remove(oldId);
    made.push_back(newKvRxClass(u"TestMovedFiller", u"OvRxObject"));
    EXPECT_EQ(classes->idAt(u"TestMovedFiller"), oldId) << "the filler takes the freed id";
    unsigned newId = 0;
    EXPECT_EQ(classes->atPut(u"TestMovedKidB", moved, newId), nullptr);
    EXPECT_NE(newId, oldId);
    kvrxBuildClassHierarchy();
    for (KvRxClass* c : made) EXPECT_NE(c->myParent(), nullptr) << utf8(c->name());
    deleteKvRxClass(parent);
    KvRxClassState::destroyDoomedRxClasses(true);
    ASSERT_EQ(recorder.lines.size(), 1u);
    EXPECT_EQ(utf8(recorder.lines.back()),
              "ModuleName: , ClassName: TestMovedParent , SubClassNames: "
              "TestMovedKida,TestMovedKidB,TestMovedKidc,TestMovedKidD, ");
    for (KvRxClass* c : made) deleteKvRxClass(c);
}

TEST_F(ClassIndexes, AClassThatGoesBeforeItsParentCameIsNoLongerWaiting) {
    RecordingCrashRecorder recorder;
    KvRxClass* orphan = newKvRxClass(u"TestIndexOrphan", u"TestIndexNeverRegistered");
    deleteKvRxClass(orphan);
    KvRxClassState::destroyDoomedRxClasses(true);
    kvrxBuildClassHierarchy();
    EXPECT_TRUE(recorder.lines.empty()) << "nothing is left to link";

    // A waiting class with a child can't go with the checks on: it leaves the
    // dictionary, and no later linking reaches it.
    KvRxClass* waiting = newKvRxClass(u"TestIndexWaitingB", u"TestIndexNeverEither");
    KvRxClass* child = newKvRxClass(u"TestIndexWaitingA", u"TestIndexWaitingB");
    EXPECT_LUM_THROW(kvrxBuildClassHierarchy(), "Regist rx class with wrong order!!!");
    deleteKvRxClass(waiting);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(recorder.faults.size(), 1u);
    recorder.lines.clear();
    kvrxBuildClassHierarchy();
    EXPECT_TRUE(recorder.lines.empty());
    EXPECT_EQ(child->myParent(), waiting);
}

TEST_F(ClassIndexes, QueriesSeeEveryChangeOfTheMaps) {
    KvRxClass* protocol = newKvRxClass(u"TestIndexProtocol", u"OvRxObject");
    KvRxClass* base = newKvRxClass(u"TestIndexBase", u"OvRxObject");
    KvRxClass* derived = newKvRxClass(u"TestIndexDerived", u"TestIndexBase");
    kvrxBuildClassHierarchy();
    Thing x, y, z;
    Thing instance(derived);

    base->addX(protocol, &x);
    EXPECT_EQ(instance.queryX(protocol), &x);
    EXPECT_EQ(instance.queryX(nullptr), nullptr) << "a null protocol after a known one";
    EXPECT_EQ(instance.queryX(protocol), &x);
    base->addX(protocol, &y);
    EXPECT_EQ(instance.queryX(protocol), &y) << "copied down";

    KvRxPEClassMap* map = KvRxImpClass::getImplRxClass(derived)->protocolMap();
    map->put(protocol, &z);
    EXPECT_EQ(instance.queryX(protocol), &z) << "put by key";
    std::unique_ptr<KvRxGenericMapIterator> it(map->find(protocol));
    map->put(it.get(), &x);
    EXPECT_EQ(instance.queryX(protocol), &x) << "put through an iterator";
    map->remove(protocol);
    EXPECT_EQ(instance.queryX(protocol), nullptr) << "removed by key";
    map->put(protocol, &y);
    EXPECT_EQ(derived->queryX(protocol), &y);
    map->removeAll();
    EXPECT_EQ(derived->queryX(protocol), nullptr) << "emptied";

    // A class linked late inherits, and a destroyed protocol class leaves every map.
    KvRxClass* late = newKvRxClass(u"TestIndexLate", u"TestIndexBase");
    EXPECT_EQ(late->queryX(protocol), nullptr);
    kvrxBuildClassHierarchy();
    EXPECT_EQ(late->queryX(protocol), &y);
    EXPECT_EQ(base->queryX(protocol), &y);
    deleteKvRxClass(protocol);
    KvRxClassState::destroyDoomedRxClasses(true);
    EXPECT_EQ(base->queryX(protocol), nullptr);
    EXPECT_EQ(late->queryX(protocol), nullptr);
    for (KvRxClass* c : {late, derived, base}) deleteKvRxClass(c);
}

// Waiting classes link in the case-blind name order of the class dictionary, whether
// they are most of it (taken from a walk of the dictionary) or a few among many
// (sorted): a parent's children stand in the order they linked.
TEST_F(ClassIndexes, WaitingClassesLinkInNameOrderFewOrMany) {
    RecordingCrashRecorder recorder;
    std::vector<KvRxClass*> made;
    auto childrenLineOf = [&](const char16_t* parentName, int bystanders) {
        for (int i = 0; i < bystanders; ++i) {
            std::u16string name = u"TestOrderBystander";
            for (char c : std::to_string(i)) name.push_back(char16_t(c));
            made.push_back(newKvRxClass(name.c_str(), u"OvRxObject"));
        }
        kvrxBuildClassHierarchy();
        KvRxClass* parent = newKvRxClass(parentName, u"OvRxObject");
        for (const char16_t* child : {u"testOrderc", u"TestOrderB", u"testordera", u"TESTORDERD"})
            made.push_back(newKvRxClass((std::u16string(parentName) + child).c_str(), parentName));
        kvrxBuildClassHierarchy();
        size_t before = recorder.lines.size();
        deleteKvRxClass(parent);
        KvRxClassState::destroyDoomedRxClasses(true);
        return recorder.lines.size() == before + 1 ? utf8(recorder.lines.back()) : std::string();
    };
    EXPECT_EQ(childrenLineOf(u"P", 0),
              "ModuleName: , ClassName: P , SubClassNames: Ptestordera,PTestOrderB,PtestOrderc,PTESTORDERD, ");
    EXPECT_EQ(childrenLineOf(u"Q", 200),
              "ModuleName: , ClassName: Q , SubClassNames: Qtestordera,QTestOrderB,QtestOrderc,QTESTORDERD, ");
    for (KvRxClass* c : made) deleteKvRxClass(c);
}

}  // namespace
