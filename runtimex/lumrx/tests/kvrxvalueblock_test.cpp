// Values of more than 24 bytes with a block allocator that gives blocks. The system's
// own allocator gives none, so this program puts its own in place of the exported
// one (the library calls it through its exported name) to see which bytes a value
// copies into the block.
#include "testsupport.h"

#include "kernel/kvrximpclass.h"
#include "kvrxvalue.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// The block the next allocation gives; each value here takes a fresh one.
unsigned char* gNextBlock = nullptr;
int gAllocations = 0;

}  // namespace

void* KvRxValue::allocate(unsigned) {
    ++gAllocations;
    return gNextBlock;
}
void* KvRxValue::reallocate(unsigned, void*) {
    ++gAllocations;
    return gNextBlock;
}

namespace {

const unsigned char kPattern[40] = "forty bytes of a large value, or so ..";

// Construction writes the address of the pattern into the new inline value, so the
// value's storage, read as a larger type, names a block that holds the pattern.
class PointerWriter : public IKvRxNonBlittableType {
public:
    void construct(void* dst, const void*) const override {
        const void* p = kPattern;
        std::memcpy(dst, &p, sizeof p);
    }
    void assign(void*, const void*) const override {}
    void destruct(void*) const override {}
};

// Records the source of every construction.
class SourceRecorder : public IKvRxNonBlittableType {
public:
    void construct(void*, const void* src) const override { sources.push_back(src); }
    void assign(void*, const void*) const override {}
    void destruct(void*) const override {}
    mutable std::vector<const void*> sources;
};

class TestType : public KvRxValueType {
public:
    TestType(const char16_t* name, unsigned size) : KvRxValueType(name, size, nullptr, nullptr) {}
    TestType(const char16_t* name, const IKvRxNonBlittableType& nb, unsigned size)
        : KvRxValueType(name, nb, size, nullptr, nullptr) {}
    bool equalTo(const void*, const void*) const override { return false; }
};

class ValueBlocks : public lumtest::RuntimeTest {
protected:
    void TearDown() override {
        for (KvRxClass* c : made) deleteKvRxClass(c);
        KvRxClassState::destroyDoomedRxClasses(true);
        gNextBlock = nullptr;
    }
    TestType* keep(TestType* t) {
        kvrxBuildClassHierarchy();
        made.push_back(t);
        return t;
    }
    std::vector<KvRxClass*> made;
};

TEST_F(ValueBlocks, AValueReadAsALargeTypeCopiesFromItsStorageWhateverItsOwnType) {
    PointerWriter writer;
    SourceRecorder recorder;
    TestType* small = keep(new TestType(u"TestBlockSmall", writer, 8u));
    TestType* large = keep(new TestType(u"TestBlockLarge", 40u));
    TestType* largeNb = keep(new TestType(u"TestBlockLargeNb", recorder, 40u));
    KvRxValue none;
    KvRxValue holder(*small, none);
    ASSERT_TRUE(holder.isInlined());

    unsigned char block[40] = {};
    gNextBlock = block;
    KvRxValue copied(*large, holder);
    EXPECT_EQ(copied.valuePtr(), block);
    EXPECT_EQ(std::memcmp(block, kPattern, sizeof block), 0)
        << "the inline value's first word is read as the block of the large type";

    unsigned char block2[40] = {};
    gNextBlock = block2;
    KvRxValue built(*largeNb, holder);
    ASSERT_EQ(recorder.sources.size(), 1u);
    EXPECT_EQ(recorder.sources[0], kPattern) << "construction from the same block";

    // A large value read as another large type: its block is the source, as before.
    unsigned char block3[40] = {};
    gNextBlock = block3;
    KvRxValue again(*large, copied);
    EXPECT_EQ(std::memcmp(block3, kPattern, sizeof block3), 0);
}

TEST_F(ValueBlocks, AssignmentAsksForTheBlocksItNeeds) {
    TestType* small = keep(new TestType(u"TestBlockSmall2", 8u));
    TestType* large = keep(new TestType(u"TestBlockLarge2", 40u));
    TestType* larger = keep(new TestType(u"TestBlockLarger2", 48u));
    unsigned char block[48] = {};
    gNextBlock = block;
    KvRxValue none;
    KvRxValue a(*large, none), b(*larger, none), s(*small, none);
    gAllocations = 0;
    a = b;  // between two large types: the old block is reallocated
    EXPECT_EQ(gAllocations, 1);
    s = b;  // from a small type: a new block
    EXPECT_EQ(gAllocations, 2);
    EXPECT_EQ(s.valuePtr(), block);
}

}  // namespace
