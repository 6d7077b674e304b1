// The life of the runtime in a process: loaded, running, ended. Nothing here starts
// the runtime in the test process itself; each run happens in a child.
#include "kernel/kvrxmoduleglobal.h"
#include "testsupport.h"

#include "kvrxvalue.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

TEST(RuntimeLifecycle, StartAfterAnEndedRunStopsAtTheRootClass) {
    // A run can't be repeated in one process, so the whole life runs in a child.
    EXPECT_EXIT(
        {
            InitializeKvRxSystem();
            UninitializeKvRxSystem();
            if (KvRxModuleGlobal::GetInstance() != nullptr) std::_Exit(2);
            std::u16string text = lumtest::thrownText([] { InitializeKvRxSystem(); });
            std::_Exit(text == u"RX-Root class has already existed!!" ? 0 : 3);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(RuntimeLifecycle, ShutDownLeavesNothingBehind) {
    // Leak checking of the child covers the roots, the classes and their names.
    EXPECT_EXIT(
        {
            InitializeKvRxSystem();
            KvRxClass* extra = newKvRxClass(u"TestExtra", u"OvRxObject");
            kvrxBuildClassHierarchy();
            bool linked = extra->myParent() == KvRxObject::desc();
            UninitializeKvRxSystem();
            std::exit(linked && !KvRxModuleGlobal::GetInstance() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// A class that counts its instances and has no run-time class of its own.
class CountedValueType : public KvRxValueType {
public:
    static int live;
    explicit CountedValueType(const char16_t* name) : KvRxValueType(name, 8u, nullptr, nullptr) { ++live; }
    ~CountedValueType() override { --live; }
    bool equalTo(const void*, const void*) const override { return false; }
};
int CountedValueType::live = 0;

TEST(RuntimeLifecycle, ShutDownDestroysClassesWithoutAClassOfTheirOwn) {
    EXPECT_EXIT(
        {
            InitializeKvRxSystem();
            new CountedValueType(u"TestShutDownValueType");
            kvrxBuildClassHierarchy();
            UninitializeKvRxSystem();
            std::_Exit(CountedValueType::live == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// A class whose destructor looks at the class dictionary while shut-down walks it: for
// each watched name, and by walks in name and id order.
class LookingValueType : public KvRxValueType {
public:
    static std::vector<const char16_t*> watched;
    static std::string seen;
    explicit LookingValueType(const char16_t* name) : KvRxValueType(name, 8u, nullptr, nullptr) {}
    ~LookingValueType() override {
        for (const char16_t* name : watched) seen += kvrxFindKvRxClass(name) ? '+' : '-';
        auto* classes = static_cast<KvRxDictionary*>(kvrxSysRegistry()->at(u"ClassDictionary"));
        seen += walkMatches(classes, kDictSorted) && walkMatches(classes, kDictById) ? " " : "! ";
    }
    bool equalTo(const void*, const void*) const override { return false; }

private:
    // Every entry of the walk is a live class found under its key, and the walk sees
    // as many as the dictionary counts.
    static bool walkMatches(KvRxDictionary* classes, int order) {
        unsigned count = 0;
        std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(order));
        for (; !it->done(); it->next(), ++count)
            if (!it->object() || kvrxFindKvRxClass(it->key()) != it->object()) return false;
        return count == classes->numEntries();
    }
};
std::vector<const char16_t*> LookingValueType::watched;
std::string LookingValueType::seen;

// The names each walk below watches.
const std::vector<const char16_t*> kWalkNames = {u"TestWalkA", u"testwalkb", u"TestWalkZ"};
const std::vector<const char16_t*> kMixNames = {u"TestMixA", u"TestMixB", u"TestMixC", u"TestMixD",
                                                u"TestMixE"};

TEST(RuntimeLifecycle, DestructorsRunningInTheShutDownWalkSeeOnlyTheClassesStillThere) {
    // Classes go in name order: A, then B, then Z.
    EXPECT_EXIT(
        {
            InitializeKvRxSystem();
            LookingValueType::watched = kWalkNames;
            new LookingValueType(u"TestWalkZ");
            new LookingValueType(u"TestWalkB");
            new LookingValueType(u"TestWalkA");
            kvrxBuildClassHierarchy();
            UninitializeKvRxSystem();
            std::_Exit(LookingValueType::seen == "-++ --+ --- " ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(RuntimeLifecycle, ClassesMadeByRegistrationAreGoneBeforeTheNextDestructorLooks) {
    // Name order A to E: plain classes and value types, whose destructors look, in turn.
    // The plain classes leave quietly, but every one before a value type is gone when
    // its destructor runs.
    EXPECT_EXIT(
        {
            InitializeKvRxSystem();
            LookingValueType::watched = kMixNames;
            newKvRxClass(u"TestMixD", u"OvRxObject");
            new LookingValueType(u"TestMixE");
            newKvRxClass(u"TestMixC", u"TestMixD");
            new LookingValueType(u"TestMixB");
            newKvRxClass(u"TestMixA", u"OvRxObject");
            kvrxBuildClassHierarchy();
            UninitializeKvRxSystem();
            std::_Exit(LookingValueType::seen == "--+++ ----- " ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(RuntimeLifecycle, LoadedLibraryWorksWithoutStartup) {
    EXPECT_EQ(KvRxModuleGlobal::GetInstance(), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"OvRxObject"), nullptr);
    EXPECT_EQ(kvdbSetHostApplicationServices(nullptr), Kvore::eOk);
    EXPECT_EQ(kvdbHostApplicationServices(), nullptr);
}

}  // namespace
