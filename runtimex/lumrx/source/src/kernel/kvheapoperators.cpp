#include "kvore.h"

#include "lumosbase.h"

#include <new>

void* KvHeapOperators::allocRawMem(size_t size) {
    void* p = _lumMalloc(size);
    if (!p) throw std::bad_alloc();
    return p;
}

void KvHeapOperators::freeRawMem(void* p) { _lumFree(p); }

void* KvHeapOperators::operator new(size_t size) { return allocRawMem(size); }
void* KvHeapOperators::operator new[](size_t size) { return allocRawMem(size); }
void* KvHeapOperators::operator new(size_t size, const char*, int) { return allocRawMem(size); }
void* KvHeapOperators::operator new[](size_t size, const char*, int) { return allocRawMem(size); }

void KvHeapOperators::operator delete(void* p) {
    if (p) freeRawMem(p);
}
void KvHeapOperators::operator delete[](void* p) {
    if (p) freeRawMem(p);
}
void KvHeapOperators::operator delete(void* p, const char*, int) {
    if (p) freeRawMem(p);
}
void KvHeapOperators::operator delete[](void* p, const char*, int) {
    if (p) freeRawMem(p);
}
