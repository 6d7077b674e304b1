// The life of the runtime in a process: loaded, running, ended. Nothing here starts
// the runtime in the test process itself; each run happens in a child.
#include "kernel/kvrxmoduleglobal.h"
#include "testsupport.h"

#include "kvrxvalue.h"

#include <cstdlib>

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

TEST(RuntimeLifecycle, LoadedLibraryWorksWithoutStartup) {
    EXPECT_EQ(KvRxModuleGlobal::GetInstance(), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"OvRxObject"), nullptr);
    EXPECT_EQ(kvdbSetHostApplicationServices(nullptr), Kvore::eOk);
    EXPECT_EQ(kvdbHostApplicationServices(), nullptr);
}

}  // namespace
