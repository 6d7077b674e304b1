#include "collections/kvrxdictionarysortedindex.h"

#include "lumosbase.h"

#include <new>

namespace {

// The largest chunk, in blocks (about 48 KiB of tree nodes): what lies uncarved in the
// newest chunk stays small, and a chunk stays an ordinary block of the heap.
const size_t kMaxChunkBlocks = 1024;

}  // namespace

KvRxDictionaryNodePool::~KvRxDictionaryNodePool() {
    while (void* chunk = chunks) {
        chunks = *static_cast<void**>(chunk);
        _lumFree(chunk);
    }
}

void KvRxDictionaryNodePool::newChunk() {
    // The first block of the chunk links to the chunk before.
    auto* chunk = static_cast<char*>(_lumMalloc(blockSize * (chunkBlocks + 1)));
    if (!chunk) throw std::bad_alloc();
    *reinterpret_cast<void**>(chunk) = chunks;
    chunks = chunk;
    carved = chunk + blockSize;
    chunkEnd = carved + blockSize * chunkBlocks;
    if (chunkBlocks < kMaxChunkBlocks) chunkBlocks *= 2;
}

void* KvRxDictionaryNodePool::take(size_t size) {
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

void KvRxDictionaryNodePool::give(void* block) {
    auto* freed = static_cast<FreeBlock*>(block);
    freed->next = freeList;
    freeList = freed;
}

bool KvRxDictionarySortedIndex::TextLess::operator()(const char16_t* a, const char16_t* b) const {
    if (a == b) return false;
    // The shared start is passed over without folding.
    while (*a && *a == *b) ++a, ++b;
    if (!ignoreCase) return *a < *b;
    for (;; ++a, ++b) {
        if (*a == *b) {
            if (!*a) return false;
            continue;
        }
        char16_t ca = KvRxDictionaryKeyIndex::folded(*a), cb = KvRxDictionaryKeyIndex::folded(*b);
        if (ca != cb) return ca < cb;
    }
}

bool KvRxDictionarySortedIndex::contains(const KvRxDictionaryKey* key) const { return tree.count(key->text()) != 0; }

void KvRxDictionarySortedIndex::insert(const KvRxDictionaryKey* key, int slot) {
    // Room in the table first: a failure then leaves the tree as it was.
    if (size_t(slot) >= nodes.size()) nodes.resize(size_t(slot) + 1);
    nodes[size_t(slot)] = tree.emplace(key->text(), slot).first;
}

void KvRxDictionarySortedIndex::erase(int slot) { tree.erase(nodes[size_t(slot)]); }

void KvRxDictionarySortedIndex::clear() {
    tree.clear();
    nodes.clear();
}
