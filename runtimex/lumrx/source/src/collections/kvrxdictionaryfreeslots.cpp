#include "collections/kvrxdictionaryfreeslots.h"

void KvRxDictionaryFreeSlots::setBit(size_t slot) {
    size_t w = slot / 64;
    if (w >= words.size()) {
        words.resize(w + 1, 0);
        summary.resize(words.size() / 64 + 1, 0);
    }
    words[w] |= uint64_t(1) << (slot % 64);
    summary[w / 64] |= uint64_t(1) << (w % 64);
    if (w / 64 < firstWord) firstWord = w / 64;
}

void KvRxDictionaryFreeSlots::grow(int from, int length) {
    if (length <= from) return;
    // Room first, so that a failed allocation leaves no bit set above the old length.
    size_t needed = size_t(length - 1) / 64 + 1;
    if (needed > words.size()) {
        words.resize(needed, 0);
        summary.resize(words.size() / 64 + 1, 0);
    }
    for (int slot = from; slot < length; ++slot) setBit(size_t(slot));
}

void KvRxDictionaryFreeSlots::setFree(int slot) { setBit(size_t(slot)); }

void KvRxDictionaryFreeSlots::setTaken(int slot) {
    size_t w = size_t(slot) / 64;
    if (w >= words.size()) return;
    words[w] &= ~(uint64_t(1) << (size_t(slot) % 64));
    if (!words[w]) summary[w / 64] &= ~(uint64_t(1) << (w % 64));
}

int KvRxDictionaryFreeSlots::lowest() const {
    // Summary words below firstWord are zero; skipping zero words moves it up.
    while (firstWord < summary.size() && !summary[firstWord]) ++firstWord;
    if (firstWord >= summary.size()) return -1;
    size_t w = firstWord * 64 + size_t(__builtin_ctzll(summary[firstWord]));
    return int(w * 64 + size_t(__builtin_ctzll(words[w])));
}

void KvRxDictionaryFreeSlots::clear() {
    words.clear();
    summary.clear();
    firstWord = 0;
}

size_t KvRxDictionaryFreeSlots::bytesUsed() const {
    return (words.capacity() + summary.capacity()) * sizeof(uint64_t);
}
