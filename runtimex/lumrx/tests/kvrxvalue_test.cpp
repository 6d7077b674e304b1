// Values: the inline limit, the storage rules through a type's non-blittable
// interface, equality, and the fixed results of a system without concrete types.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxvalue.h"

#include <string>
#include <utility>
#include <vector>

namespace {

// Records what a value asks of its type, in order.
class Recorder : public IKvRxNonBlittableType {
public:
    void construct(void* dst, const void*) const override { log += "c" + where(dst); }
    void assign(void* dst, const void*) const override { log += "a" + where(dst); }
    void destruct(void* v) const override { log += "d" + where(v); }
    std::string where(const void* p) const { return p ? "" : "0"; }
    mutable std::string log;
};

class TestType : public KvRxValueType {
public:
    TestType(const char16_t* name, unsigned size) : KvRxValueType(name, size, nullptr, nullptr) {}
    TestType(const char16_t* name, const IKvRxNonBlittableType& nb, unsigned size)
        : KvRxValueType(name, nb, size, nullptr, nullptr) {}
    bool equalTo(const void* a, const void* b) const override {
        ++calls;
        return a && b;
    }
    mutable int calls = 0;
};

class Values : public lumtest::RuntimeTest {
protected:
    template <class... A>
    TestType* type(A&&... args) {
        auto* t = new TestType(std::forward<A>(args)...);
        kvrxBuildClassHierarchy();
        made.push_back(t);
        return t;
    }
    void TearDown() override {
        for (KvRxClass* c : made) deleteKvRxClass(c);
        KvRxClassState::destroyDoomedRxClasses(true);
    }
    std::vector<KvRxClass*> made;
};

TEST_F(Values, InlineLimitAndEquality) {
    TestType* t24 = type(u"TestValue24", 24u);
    TestType* t25 = type(u"TestValue25", 25u);
    KvRxValue none;
    KvRxValue a(*t24, none), b(*t24, none), big(*t25, none), big2(*t25, none);
    EXPECT_TRUE(a.isInlined());
    EXPECT_FALSE(big.isInlined());
    EXPECT_EQ(&a.type(), t24);
    auto offset = static_cast<const char*>(a.valuePtr()) - reinterpret_cast<const char*>(&a);
    EXPECT_TRUE(offset > 0 && offset + 24 <= long(sizeof a)) << "inline: inside the object";
    EXPECT_EQ(big.valuePtr(), nullptr) << "no block is ever given";

    EXPECT_TRUE(a == b);
    EXPECT_EQ(t24->calls, 1);
    EXPECT_FALSE(a == big) << "different types";
    EXPECT_FALSE(big == big2) << "no storage";
    EXPECT_FALSE(none == KvRxValue()) << "no type";
    EXPECT_EQ(t24->calls + t25->calls, 1) << "no type operation asked";
    EXPECT_FALSE(a.isEmpty());
    EXPECT_FALSE(a.isVaries());
    EXPECT_FALSE(none.isEmpty());
}

TEST_F(Values, StorageRulesGoThroughTheNonBlittableInterface) {
    Recorder small, large;
    TestType* ts = type(u"TestValueNbSmall", small, 8u);
    TestType* tl = type(u"TestValueNbLarge", large, 40u);
    TestType* tb = type(u"TestValueBlit", 8u);
    KvRxValue none;
    {
        KvRxValue a(*ts, none);  // construct
        KvRxValue b(a);          // construct
        b = a;                   // same type: assign
        b = b;                   // self: nothing
        KvRxValue l(*tl, none);  // no block: nothing to construct
        b = l;                   // type change: destruct the old value only
        EXPECT_EQ(&b.type(), tl);
        KvRxValue c(*tb, none);
        c = a;  // blittable to non-blittable: construct
        EXPECT_EQ(small.log, "ccadc");
        EXPECT_EQ(large.log, "");
    }
    EXPECT_EQ(small.log, "ccadcdd") << "the live inline values end";
    EXPECT_EQ(large.log, "") << "a value without a block is never touched";
}

TEST_F(Values, FixedResults) {
    EXPECT_EQ(&KvRxValueType::Desc<void>::value(), nullptr);
    EXPECT_EQ(&KvRxValueType::Desc<KvGeMatrix3d>::value(), nullptr);
    EXPECT_EQ(&KvRxValue::empty(), nullptr);
    EXPECT_EQ(KvRxValue::allocate(100), nullptr);
    KvRxValue v;
    char16_t buffer[8] = u"x";
    EXPECT_EQ(v.toString(buffer, 8, KvRxValueType::kStringFormatGlobal), 0);
    EXPECT_EQ(buffer[0], u'x');
    EXPECT_EQ(rxvalue_cast<KvGeMatrix3d>(&v), nullptr);
    EXPECT_EQ(KvRxValueType::desc(), nullptr) << "nothing registers the name";

    KvRxBoxedValueOnStack boxed(v);
    EXPECT_EQ(boxed.value(), nullptr);
    EXPECT_EQ(boxed.isA(), nullptr);
    EXPECT_EQ(boxed.copyFrom(&boxed), Kvore::eNotImplemented);
    EXPECT_FALSE(boxed.isEqualTo(&boxed));
    EXPECT_EQ(boxed.comparedTo(nullptr), KvRx::kEqual);
    EXPECT_EQ(boxed.clone(), nullptr);
}

}  // namespace
