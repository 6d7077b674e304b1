// A pool of blocks of one size for a dictionary's own structures (tree nodes, keys),
// so that they lie together, apart from the values and everything else on the heap.
#pragma once

#include <cstddef>

// Blocks of one size, carved from chunks that grow with the pool. A block given back is
// taken again before a new one is carved.
//
// Owns its chunks (from _lumMalloc), freed with the pool; the blocks live in them.
//
// Invariant: every block is either taken, or on the free list, or above `carved` in the
// newest chunk; the first block of a chunk holds the link to the chunk before it.
class KvRxDictionaryBlockPool {
public:
    KvRxDictionaryBlockPool() = default;
    ~KvRxDictionaryBlockPool();
    KvRxDictionaryBlockPool(const KvRxDictionaryBlockPool&) = delete;
    KvRxDictionaryBlockPool& operator=(const KvRxDictionaryBlockPool&) = delete;

    // A block of `size` bytes; every call asks the same size. Throws std::bad_alloc.
    void* take(size_t size);
    void give(void* block);

private:
    struct FreeBlock {
        FreeBlock* next;
    };
    void newChunk();

    size_t blockSize = 0;
    FreeBlock* freeList = nullptr;
    void* chunks = nullptr;  // the newest chunk; each starts with the link to the one before
    char* carved = nullptr;  // next block to carve in the newest chunk
    char* chunkEnd = nullptr;
    size_t chunkBlocks = 8;  // blocks in the next chunk; doubles up to a limit
};
