// KvArray: the growth steps by element size, index checks, and element lifetimes under
// the object-copying reallocator.

#include "testsupport.h"

#include "kvarray.h"

#include <vector>

namespace {

// The physical lengths an array passes through while `count` elements are appended.
template <class T>
std::vector<int> growthSteps(int count, int growLength = 8) {
    KvArray<T> array(0, growLength);
    std::vector<int> steps;
    for (int i = 0; i < count; ++i) {
        array.append(T());
        if (steps.empty() || steps.back() != array.physicalLength()) steps.push_back(array.physicalLength());
    }
    EXPECT_EQ(array.length(), count);
    return steps;
}

struct K1 { char bytes[1024]; };
struct K64 { char bytes[65536]; };

TEST(KvArrayTest, GrowthStepFollowsTheByteSize) {
    EXPECT_EQ(growthSteps<int>(49153), (std::vector<int>{8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096,
                                                         8192, 16384, 32768, 49152, 65536}));
    EXPECT_EQ(growthSteps<int>(9, 1), (std::vector<int>{1, 2, 4, 8, 16}));
    EXPECT_EQ(growthSteps<int>(30, 20), (std::vector<int>{20, 40}));
    // 64 elements of 1 KiB make 65536 bytes: from there on 64 at a time.
    EXPECT_EQ(growthSteps<K1>(257), (std::vector<int>{8, 16, 32, 64, 128, 192, 256, 320}));
    EXPECT_EQ(growthSteps<K64>(4, 1), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(growthSteps<K64>(17), (std::vector<int>{8, 16, 24}));

    KvArray<int> a;
    a.setLogicalLength(100);  // more than one step: exactly what is needed
    EXPECT_EQ(a.physicalLength(), 100);
    EXPECT_EQ(a[99], 0);
    a.append(1);
    EXPECT_EQ(a.physicalLength(), 200);
}

TEST(KvArrayTest, FindAndIndexChecks) {
    lumtest::RecordingCrashRecorder recorder;
    KvArray<int> a;
    EXPECT_EQ(a.find(7), -1);
    for (int v : {5, 7, 9, 7}) a.append(v);
    EXPECT_EQ(a.find(7), 1);
    EXPECT_EQ(a.find(4), -1);
    a.insertAt(0, 4);
    a.insertAt(5, 10);
    a.removeAt(2);
    EXPECT_EQ(std::vector<int>(a.asArrayPtr(), a.asArrayPtr() + a.length()), (std::vector<int>{4, 5, 9, 7, 10}));

    auto status = [](auto f) {
        try {
            f();
        } catch (LumErrorStatus* e) {
            int s = e->status();
            delete e;
            return s;
        }
        return -1;
    };
    EXPECT_EQ(status([&] { a[5]; }), 24);
    EXPECT_EQ(status([&] { a[-1]; }), 24);
    EXPECT_EQ(status([&] { a.removeAt(5); }), 24);
    EXPECT_EQ(status([&] { a.insertAt(6, 1); }), 24);
    EXPECT_EQ(status([&] { a.insertAt(-1, 1); }), 24);
    EXPECT_EQ(status([&] { KvArray<int>().first(); }), 24);
    EXPECT_EQ(recorder.exceptions.size(), 6u);
    EXPECT_EQ(a.length(), 5);
}

// Counts live copies and notices a copy of a destroyed object, a second destruction, or
// an object that was moved without its copy constructor.
struct Tracked {
    static int live;
    static int faults;
    int value;
    const Tracked* self;
    bool alive;

    explicit Tracked(int v = 0) : value(v), self(this), alive(true) { ++live; }
    Tracked(const Tracked& o) : value(o.value), self(this), alive(true) {
        if (!o.alive || o.self != &o) ++faults;
        ++live;
    }
    Tracked& operator=(const Tracked& o) {
        if (!alive || !o.alive || self != this) ++faults;
        value = o.value;
        return *this;
    }
    ~Tracked() {
        if (!alive || self != this) ++faults;
        alive = false;
        --live;
    }
    bool operator==(const Tracked& o) const { return value == o.value; }
};
int Tracked::live = 0;
int Tracked::faults = 0;

using TrackedArray = KvArray<Tracked, KvArrayObjectCopyReallocator<Tracked>>;

std::vector<int> values(const TrackedArray& a) {
    std::vector<int> v;
    for (int i = 0; i < a.length(); ++i) {
        if (a[i].self != &a[i]) ++Tracked::faults;
        v.push_back(a[i].value);
    }
    return v;
}

TEST(KvArrayTest, ObjectReallocatorKeepsEveryElementWhole) {
    Tracked::live = Tracked::faults = 0;
    {
        TrackedArray a;
        for (int i = 0; i < 40; ++i) a.append(Tracked(i));
        EXPECT_EQ(Tracked::live, 40);
        while (a.length() < a.physicalLength()) a.append(Tracked(-1));
        a.append(a[0]);  // the source lives in the block that moves
        EXPECT_EQ(a[a.length() - 1].value, 0);
        a.insertAt(0, a[a.length() - 1]);
        a.removeAt(1);
        EXPECT_EQ(a.find(Tracked(39)), 39);
        a.setLogicalLength(10);
        EXPECT_EQ(Tracked::live, 10);
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));

        TrackedArray copy(a);
        copy.append(Tracked(10));
        a = copy;
        a = a;
        EXPECT_EQ(values(a), values(copy));
        EXPECT_EQ(Tracked::live, 22);
        a.setPhysicalLength(4);
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3}));
        a.setPhysicalLength(64);
        a.setLogicalLength(6);
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3, 0, 0}));
        a.removeAll();
        EXPECT_EQ(Tracked::live, 11);
    }
    EXPECT_EQ(Tracked::live, 0);
    EXPECT_EQ(Tracked::faults, 0);
}

TEST(KvArrayTest, MemCopyReallocatorAppendOfOwnElement) {
    KvArray<double> a(0, 4);
    for (int i = 0; i < 4; ++i) a.append(i + 0.5);
    ASSERT_EQ(a.length(), a.physicalLength());
    a.append(a[2]);
    a.insertAt(0, a[4]);
    EXPECT_EQ(std::vector<double>(a.asArrayPtr(), a.asArrayPtr() + a.length()),
              (std::vector<double>{2.5, 0.5, 1.5, 2.5, 3.5, 2.5}));
    KvArray<double> b(a);
    b[0] = 9;
    EXPECT_EQ(a[0], 2.5);
    EXPECT_EQ(b.find(9), 0);
}

}  // namespace
