#include "collections/kvrxdictionaryblockpool.h"

#include "lumosbase.h"

#include <new>

namespace {

// The largest chunk: what lies uncarved in the newest chunk stays small, and a chunk
// stays an ordinary block of the heap.
const size_t kMaxChunkBytes = 64 * 1024;

}  // namespace

KvRxDictionaryBlockPool::~KvRxDictionaryBlockPool() {
    while (void* chunk = chunks) {
        chunks = *static_cast<void**>(chunk);
        _lumFree(chunk);
    }
}

void KvRxDictionaryBlockPool::newChunk() {
    // The first block of the chunk links to the chunk before.
    auto* chunk = static_cast<char*>(_lumMalloc(blockSize * (chunkBlocks + 1)));
    if (!chunk) throw std::bad_alloc();
    *reinterpret_cast<void**>(chunk) = chunks;
    chunks = chunk;
    carved = chunk + blockSize;
    chunkEnd = carved + blockSize * chunkBlocks;
    if (blockSize * chunkBlocks * 2 <= kMaxChunkBytes) chunkBlocks *= 2;
}

void* KvRxDictionaryBlockPool::take(size_t size) {
    if (!blockSize) blockSize = size < sizeof(FreeBlock) ? sizeof(FreeBlock) : size;
    if (FreeBlock* block = freeList) {
        freeList = block->next;
        return block;
    }
    if (carved == chunkEnd) newChunk();
    void* block = carved;
    carved += blockSize;
    return block;
}

void KvRxDictionaryBlockPool::give(void* block) {
    auto* freed = static_cast<FreeBlock*>(block);
    freed->next = freeList;
    freeList = freed;
}
