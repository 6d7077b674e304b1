// The copy-on-write handle: sharing, release by the last handle, copies on write, and
// the shared count under several threads.
#include "testsupport.h"

#include "kvrxcopyonwriteobject.h"

#include <atomic>
#include <thread>
#include <vector>

// A held object that clones (a factory and a copyFrom), counting the live ones.
class TestCowValue : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestCowValue);

public:
    static std::atomic<int> live;
    explicit TestCowValue(int n = 0) : n(n) { ++live; }
    ~TestCowValue() override { --live; }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        n = TestCowValue::cast(other)->n;
        return Kvore::eOk;
    }
    static KvRxObject* make() { return new TestCowValue(); }
    int n;
};
std::atomic<int> TestCowValue::live{0};
KVRX_DEFINE_MEMBERS(TestCowValue, u"TestCowValue", u"OvRxObject");

namespace {

// Opens the protected operations to the test.
class Handle : public KvRxCopyOnWriteObject {
public:
    using KvRxCopyOnWriteObject::KvRxCopyOnWriteObject;
    using KvRxCopyOnWriteObject::read;
    using KvRxCopyOnWriteObject::unshare;
    using KvRxCopyOnWriteObject::write;
    int value() const { return TestCowValue::cast(read())->n; }
};

class CopyOnWrite : public lumtest::RuntimeTest {
protected:
    static void SetUpTestSuite() {
        lumtest::ensureRuntime();
        if (!kvrxFindKvRxClass(u"TestCowValue"))
            newKvRxClass(u"TestCowValue", u"OvRxObject", 0, &TestCowValue::make);
        kvrxBuildClassHierarchy();
    }
    void TearDown() override { EXPECT_EQ(TestCowValue::live, 0); }
};

TEST_F(CopyOnWrite, TheLastHandleDeletesTheObjectOnce) {
    Handle empty(nullptr), emptyCopy(empty);
    EXPECT_EQ(emptyCopy.read(), nullptr);
    EXPECT_EQ(emptyCopy.write(), nullptr);

    auto* first = new Handle(new TestCowValue(1));
    Handle second(*first);
    EXPECT_EQ(first->read(), second.read());
    delete first;
    EXPECT_EQ(second.value(), 1);
    EXPECT_EQ(TestCowValue::live, 1);

    // Assignment counts the new share before letting go of the old one.
    Handle other(new TestCowValue(2)), alsoSecond(second);
    second = second;
    alsoSecond = second;
    EXPECT_EQ(second.value(), 1);
    other = second;
    EXPECT_EQ(TestCowValue::live, 1) << "the last share of 2 took it along";
    second = empty;
    other = empty;
    EXPECT_EQ(TestCowValue::live, 1);
    alsoSecond = empty;
    EXPECT_EQ(TestCowValue::live, 0);
}

TEST_F(CopyOnWrite, WriteGivesASharedHandleItsOwnCopy) {
    Handle mine(new TestCowValue(1));
    const KvRxObject* original = mine.read();
    EXPECT_EQ(mine.write(), original) << "a sole handle writes in place";

    Handle other(mine), third(mine);
    auto* copy = TestCowValue::cast(mine.write());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    copy->n = 7;
    EXPECT_EQ(other.read(), original);
    EXPECT_EQ(other.value(), 1);
    other.unshare();
    EXPECT_NE(other.read(), original);
    EXPECT_EQ(other.value(), 1);
    EXPECT_EQ(third.write(), original) << "third is the last on the original";
    EXPECT_EQ(mine.write(), copy);
    EXPECT_EQ(TestCowValue::live, 3);
}

TEST_F(CopyOnWrite, AnObjectThatCantBeCopiedStaysShared) {
    struct Opaque : KvRxObject {
        ~Opaque() override { ++*deaths; }
        int* deaths;
    };
    int deaths = 0;
    auto* opaque = new Opaque();
    opaque->deaths = &deaths;
    {
        Handle a(opaque), b(a);
        EXPECT_EQ(a.write(), nullptr) << "the root's class gives no clone";
        b.unshare();
        EXPECT_EQ(b.read(), opaque);
        { Handle gone(a); }
        EXPECT_EQ(deaths, 0) << "the count still says two";
    }
    EXPECT_EQ(deaths, 1);
}

TEST_F(CopyOnWrite, TheCountHoldsUnderSeveralThreads) {
    Handle origin(new TestCowValue(5));
    const KvRxObject* object = origin.read();
    const int kThreads = 8;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            Handle kept(origin);
            // All threads start together, so that the count is really contended.
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            for (int i = 0; i < 50000; ++i) {
                Handle copy(origin), assigned(nullptr);
                assigned = copy;
                kept = assigned;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(TestCowValue::live, 1);
    EXPECT_EQ(origin.write(), object) << "every other share was given back";
}

TEST_F(CopyOnWrite, AStalePointerIsReportedAsAClassMismatch) {
    lumtest::FakeHost host;
    KvRxClass* registered = KvRxCopyOnWriteObject::desc();
    EXPECT_EQ(Handle(nullptr).isA(), registered);
    KvRxCopyOnWriteObject::gpDesc = KvRxObject::desc();
    EXPECT_LUM_THROW(KvRxCopyOnWriteObject::rxInit(),
                     "Try to regist a rxclass which is already registed!!");
    ASSERT_EQ(host.fatalErrors.size(), 1u);
    EXPECT_EQ(lumtest::utf8(host.fatalErrors[0]), "!Class mismatch");
    KvRxCopyOnWriteObject::gpDesc = registered;
}

}  // namespace
