// The free slots of a dictionary's entry array below its length, lowest first: a
// bitmap with one bit per slot and a summary bit per word of it, so that the next new
// key takes the lowest free slot without a walk of the array.
//
// Owns: its two bit arrays.
//
// Invariant (kept in kvrxdictionaryfreeslots.cpp): for every slot below the array's
// length, its bit is set exactly when the slot is free (null key); bits at and above the
// length are clear; a summary bit is set exactly when its word isn't zero; no summary
// word below `firstWord` is nonzero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class KvRxDictionaryFreeSlots {
public:
    // The length of the array grows to `length`; the new slots are free.
    void grow(int from, int length);
    void setFree(int slot);
    void setTaken(int slot);
    // The lowest free slot, or -1.
    int lowest() const;
    void clear();

    size_t bytesUsed() const;

private:
    void setBit(size_t slot);

    std::vector<uint64_t> words;
    std::vector<uint64_t> summary;
    mutable size_t firstWord = 0;  // summary words below it are zero; only a hint
};
