// KvArray: the platform's dynamic array. Holds its elements in one block from
// _lumMalloc, which it owns; elements in [0, length) are alive.
//
// Growth: while the block is under 65536 bytes the step is the old physical length,
// beyond that as many elements as make 65536 bytes; never less than the grow length
// (8 by default). The new physical length is the old one plus the step, or the
// length needed if that is more. An index out of range throws LumErrorStatus* 24.
#pragma once

#include "kvore.h"
#include "lumosbase.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

// Moves elements by copying their bytes: for types without their own copy semantics.
template <class T>
struct KvArrayMemCopyReallocator {
    static void move(T* dst, T* src, int n) {
        if (n > 0) std::memmove(static_cast<void*>(dst), src, sizeof(T) * size_t(n));
    }
};

// Moves elements by constructing copies and destroying the originals.
template <class T>
struct KvArrayObjectCopyReallocator {
    static void move(T* dst, T* src, int n) {
        for (int i = 0; i < n; ++i) {
            ::new (static_cast<void*>(dst + i)) T(std::move(src[i]));
            src[i].~T();
        }
    }
};

template <class T, class R = KvArrayMemCopyReallocator<T>>
class KvArray {
public:
    explicit KvArray(int physicalLength = 0, int growLength = 8)
        : mpArray(nullptr), mPhysicalLen(0), mLogicalLen(0), mGrowLen(growLength > 0 ? growLength : 8) {
        setPhysicalLength(physicalLength);
    }
    KvArray(const KvArray& other) : KvArray(0, other.mGrowLen) { *this = other; }
    KvArray& operator=(const KvArray& other) {
        if (this == &other) return *this;
        setLogicalLength(0);
        setPhysicalLength(other.mLogicalLen);
        for (int i = 0; i < other.mLogicalLen; ++i) ::new (static_cast<void*>(mpArray + i)) T(other.mpArray[i]);
        mLogicalLen = other.mLogicalLen;
        return *this;
    }
    ~KvArray() {
        setLogicalLength(0);
        _lumFree(mpArray);
    }

    int length() const { return mLogicalLen; }
    int logicalLength() const { return mLogicalLen; }
    int physicalLength() const { return mPhysicalLen; }
    int growLength() const { return mGrowLen; }
    void setGrowLength(int n) { if (n > 0) mGrowLen = n; }
    bool isEmpty() const { return mLogicalLen == 0; }
    T* asArrayPtr() { return mpArray; }
    const T* asArrayPtr() const { return mpArray; }

    T& operator[](int i) { check(i); return mpArray[i]; }
    const T& operator[](int i) const { check(i); return mpArray[i]; }
    T& at(int i) { return (*this)[i]; }
    const T& at(int i) const { return (*this)[i]; }
    T& first() { return (*this)[0]; }
    T& last() { return (*this)[mLogicalLen - 1]; }

    // Appends and gives the new element's index.
    int append(const T& value) {
        T copy(value);  // `value` may live in this array, whose block can move
        growFor(mLogicalLen + 1);
        ::new (static_cast<void*>(mpArray + mLogicalLen)) T(std::move(copy));
        return mLogicalLen++;
    }
    void insertAt(int index, const T& value) {
        if (index < 0 || index > mLogicalLen) lumThrowErrorStatus(Kvore::eInvalidIndex, __FILE__, __LINE__);
        T copy(value);
        growFor(mLogicalLen + 1);
        for (int i = mLogicalLen; i > index; --i) {
            ::new (static_cast<void*>(mpArray + i)) T(std::move(mpArray[i - 1]));
            mpArray[i - 1].~T();
        }
        ::new (static_cast<void*>(mpArray + index)) T(std::move(copy));
        ++mLogicalLen;
    }
    void removeAt(int index) {
        check(index);
        mpArray[index].~T();
        for (int i = index; i + 1 < mLogicalLen; ++i) {
            ::new (static_cast<void*>(mpArray + i)) T(std::move(mpArray[i + 1]));
            mpArray[i + 1].~T();
        }
        --mLogicalLen;
    }
    void removeLast() { removeAt(mLogicalLen - 1); }
    void removeAll() { setLogicalLength(0); }
    // The first index of `value` at or after `start`, or -1.
    int find(const T& value, int start = 0) const {
        for (int i = start < 0 ? 0 : start; i < mLogicalLen; ++i)
            if (mpArray[i] == value) return i;
        return -1;
    }
    bool contains(const T& value) const { return find(value) >= 0; }

    // Shrinking destroys the elements cut off; growing adds value-initialised ones.
    void setLogicalLength(int n) {
        if (n < 0) n = 0;
        if (n > mLogicalLen) {
            growFor(n);
            for (int i = mLogicalLen; i < n; ++i) ::new (static_cast<void*>(mpArray + i)) T();
        } else {
            for (int i = n; i < mLogicalLen; ++i) mpArray[i].~T();
        }
        mLogicalLen = n;
    }
    // Sets the block size exactly; elements beyond it are destroyed.
    void setPhysicalLength(int n) {
        if (n < 0) n = 0;
        if (n == mPhysicalLen) return;
        if (n < mLogicalLen) setLogicalLength(n);
        reallocate(n);
    }

private:
    void check(int i) const {
        if (i < 0 || i >= mLogicalLen) lumThrowErrorStatus(Kvore::eInvalidIndex, __FILE__, __LINE__);
    }
    void growFor(int needed) {
        if (needed <= mPhysicalLen) return;
        int64_t bytes = int64_t(mPhysicalLen) * int64_t(sizeof(T));
        int64_t step = bytes < 65536 ? mPhysicalLen : int64_t(65536 / sizeof(T));
        if (step < mGrowLen) step = mGrowLen;
        int64_t next = int64_t(mPhysicalLen) + step;
        reallocate(next > needed ? next : needed);
    }
    void reallocate(int64_t n) {
        if (n > INT32_MAX || uint64_t(n) > SIZE_MAX / sizeof(T))
            lumThrowErrorStatus(Kvore::eOutOfMemory, __FILE__, __LINE__);
        T* block = nullptr;
        if (n > 0) {
            block = static_cast<T*>(_lumMalloc(sizeof(T) * size_t(n)));
            if (!block) lumThrowErrorStatus(Kvore::eOutOfMemory, __FILE__, __LINE__);
            R::move(block, mpArray, mLogicalLen);
        }
        _lumFree(mpArray);
        mpArray = block;
        mPhysicalLen = int(n);
    }

    T* mpArray;
    int mPhysicalLen;
    int mLogicalLen;
    int mGrowLen;
};
