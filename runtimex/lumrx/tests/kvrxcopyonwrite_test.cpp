// The copy-on-write handle: sharing, release by the last handle, copies on write, and
// the shared count under several threads.
#include "testsupport.h"

#include "kvrxcopyonwriteobject.h"

#include <atomic>
#include <thread>
#include <vector>

// A held object that clones: a factory and a copyFrom.
class TestCowValue : public KvRxObject {
    KVRX_DECLARE_MEMBERS(TestCowValue);

public:
    static std::atomic<int> live;
    explicit TestCowValue(int n = 0) : n(n) { ++live; }
    TestCowValue(const TestCowValue&) = delete;
    ~TestCowValue() override { --live; }
    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override {
        const TestCowValue* value = TestCowValue::cast(other);
        if (!value) return Kvore::eWrongObjectType;
        n = value->n;
        return Kvore::eOk;
    }
    static KvRxObject* make() { return new TestCowValue(); }
    int n;
};
std::atomic<int> TestCowValue::live{0};
KVRX_DEFINE_MEMBERS(TestCowValue, u"TestCowValue", u"OvRxObject");

namespace {

// A held object of the root's class, which can't be cloned.
class Opaque : public KvRxObject {
public:
    static int live;
    Opaque() { ++live; }
    ~Opaque() override { --live; }
};
int Opaque::live = 0;

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
    void TearDown() override {
        EXPECT_EQ(TestCowValue::live, 0);
        EXPECT_EQ(Opaque::live, 0);
    }
};

TEST_F(CopyOnWrite, HandlesOfNothingShareNothing) {
    Handle empty(nullptr);
    Handle copy(empty);
    EXPECT_EQ(empty.read(), nullptr);
    EXPECT_EQ(copy.read(), nullptr);
    EXPECT_EQ(copy.write(), nullptr);
    copy.unshare();
    EXPECT_EQ(copy.read(), nullptr);
    EXPECT_EQ(copy.isA(), KvRxCopyOnWriteObject::desc());
    ASSERT_NE(KvRxCopyOnWriteObject::desc(), nullptr);
    EXPECT_EQ(KvRxCopyOnWriteObject::desc()->myParent(), KvRxObject::desc());

    // Assigning an object to a handle of nothing, and nothing back over it.
    Handle full(new TestCowValue(1));
    copy = full;
    EXPECT_EQ(copy.read(), full.read());
    full = empty;
    EXPECT_EQ(TestCowValue::live, 1);
    copy = empty;
    EXPECT_EQ(TestCowValue::live, 0) << "the last share took the object along";
}

TEST_F(CopyOnWrite, TheLastHandleDeletesTheObjectOnce) {
    auto* first = new Handle(new TestCowValue(1));
    auto* second = new Handle(*first);
    EXPECT_EQ(first->read(), second->read());
    delete first;
    EXPECT_EQ(TestCowValue::live, 1);
    EXPECT_EQ(second->value(), 1);
    delete second;
    EXPECT_EQ(TestCowValue::live, 0);

    // Assignment lets go of the target's object if it was the last share, and is safe
    // onto itself and onto a handle of the same object.
    Handle a(new TestCowValue(2)), b(new TestCowValue(3));
    Handle alsoB(b);
    a = a;
    alsoB = b;
    EXPECT_EQ(a.value(), 2);
    EXPECT_EQ(TestCowValue::live, 2);
    a = b;
    EXPECT_EQ(TestCowValue::live, 1);
    EXPECT_EQ(a.read(), alsoB.read());
}

TEST_F(CopyOnWrite, WriteGivesASharedHandleItsOwnCopy) {
    Handle sole(new TestCowValue(1));
    EXPECT_EQ(sole.write(), sole.read()) << "a sole handle writes in place";

    Handle other(sole), third(sole);
    const KvRxObject* shared = sole.read();
    auto* mine = TestCowValue::cast(sole.write());
    ASSERT_NE(mine, nullptr);
    EXPECT_NE(mine, shared);
    mine->n = 7;
    EXPECT_EQ(other.read(), shared) << "the other handles keep the original";
    EXPECT_EQ(other.value(), 1);
    EXPECT_EQ(third.value(), 1);
    EXPECT_EQ(TestCowValue::live, 2);

    // Two handles still share the original; unshare copies for one of them.
    other.unshare();
    EXPECT_NE(other.read(), shared);
    EXPECT_EQ(other.value(), 1);
    EXPECT_EQ(third.write(), shared) << "third is the last on the original";
    EXPECT_EQ(sole.write(), mine);
    EXPECT_EQ(TestCowValue::live, 3);
}

TEST_F(CopyOnWrite, AnObjectThatCantBeCopiedStaysShared) {
    auto* opaque = new Opaque();
    Handle a(opaque);
    Handle b(a);
    EXPECT_EQ(a.write(), nullptr);
    b.unshare();
    EXPECT_EQ(a.read(), opaque);
    EXPECT_EQ(b.read(), opaque);
    EXPECT_EQ(Opaque::live, 1);
    {
        Handle gone(b);  // the sharing was left intact: the count still balances
    }
    EXPECT_EQ(Opaque::live, 1);
}

TEST_F(CopyOnWrite, TheCountHoldsUnderSeveralThreads) {
    Handle origin(new TestCowValue(5));
    const KvRxObject* object = origin.read();
    std::atomic<int> ready{0};
    const int kThreads = 8;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            Handle kept(origin);
            // All threads start together, so that the count is really contended.
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            for (int i = 0; i < 50000; ++i) {
                Handle copy(origin);
                Handle assigned(nullptr);
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
    KvRxCopyOnWriteObject::rxInit();
    EXPECT_TRUE(host.fatalErrors.empty()) << "a second rxInit is harmless";

    KvRxCopyOnWriteObject::gpDesc = KvRxObject::desc();
    EXPECT_LUM_THROW(KvRxCopyOnWriteObject::rxInit(),
                     "Try to regist a rxclass which is already registed!!");
    ASSERT_EQ(host.fatalErrors.size(), 1u);
    EXPECT_EQ(lumtest::utf8(host.fatalErrors[0]), "!Class mismatch");
    KvRxCopyOnWriteObject::gpDesc = registered;
}

}  // namespace
