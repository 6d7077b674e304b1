// Shared types of the runtime: status numbers, orderings and the heap operator base.
#pragma once

#include <cstddef>

namespace Kvore {

// Status of an operation, as this system uses it.
enum ErrorStatus {
    eOk = 0,
    eNotImplemented = 1,
    eEmptyVector = 2,  // last element of an empty vector
    eInvalidInput = 3,  // invalid argument or index
    eOutOfMemory = 6,
    eKeyNotFound = 22,
    eInvalidIndex = 24,  // index out of range
    eWrongObjectType = 46,
};

}  // namespace Kvore

namespace KvRx {

enum Ordering {
    kLessThan = -1,
    kEqual = 0,
    kGreaterThan = 1,
    kNotOrderable = 2,
};

}  // namespace KvRx

// Allocation base: routes new and delete of derived classes to _lumMalloc and _lumFree.
// The file-and-line forms ignore their location arguments.
class KvHeapOperators {
public:
    static void* operator new(size_t size);
    static void* operator new[](size_t size);
    static void* operator new(size_t size, const char* file, int line);
    static void* operator new[](size_t size, const char* file, int line);
    static void operator delete(void* p);
    static void operator delete[](void* p);
    static void operator delete(void* p, const char* file, int line);
    static void operator delete[](void* p, const char* file, int line);

    KvHeapOperators& operator=(const KvHeapOperators&) { return *this; }

private:
    static void* allocRawMem(size_t size);
    static void freeRawMem(void* p);
};

class KvBaseClassWithNew : public KvHeapOperators {};
