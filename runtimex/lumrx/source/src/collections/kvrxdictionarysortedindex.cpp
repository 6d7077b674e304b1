#include "collections/kvrxdictionarysortedindex.h"

#include <cstdint>
#include <cstring>
#include <iterator>

namespace {

// Where the low unit of a word of four lies: in its low bits on a little-endian machine.
constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

}  // namespace

bool KvRxDictionarySortedIndex::KeyLess::operator()(const KvRxDictionaryKey* ka,
                                                    const KvRxDictionaryKey* kb) const {
    if (ka == kb) return false;
    // The shared start is passed over without folding, four units at a time within the
    // shorter key, the first unequal word giving the first unequal unit; then unit by
    // unit. `i` stops at the first unequal unit or at the shorter key's closing zero (a
    // key holds no zero unit).
    const char16_t* a = ka->text();
    const char16_t* b = kb->text();
    int32_t shorter = ka->length < kb->length ? ka->length : kb->length;
    int32_t i = 0;
    for (; i + 4 <= shorter; i += 4) {
        uint64_t wa, wb;
        std::memcpy(&wa, a + i, sizeof wa);
        std::memcpy(&wb, b + i, sizeof wb);
        if (wa != wb) {
            if (kLittleEndian) i += int32_t(__builtin_ctzll(wa ^ wb) / 16);
            break;
        }
    }
    while (a[i] && a[i] == b[i]) ++i;
    if (!ignoreCase) return a[i] < b[i];
    for (;; ++i) {
        if (a[i] == b[i]) {
            if (!a[i]) return false;
            continue;
        }
        char16_t ca = KvRxDictionaryKeyIndex::folded(a[i]), cb = KvRxDictionaryKeyIndex::folded(b[i]);
        if (ca != cb) return ca < cb;
    }
}

bool KvRxDictionarySortedIndex::contains(const KvRxDictionaryKey* key) const { return tree.count(key) != 0; }

void KvRxDictionarySortedIndex::insert(const KvRxDictionaryKey* key, int slot) {
    // Room in the table first: a failure then leaves the tree as it was.
    if (size_t(slot) >= nodes.size()) nodes.resize(size_t(slot) + 1);
    Tree::iterator last = lastSlot >= 0 ? nodes[size_t(lastSlot)] : tree.end();
    Tree::iterator node = lastBeside ? tree.emplace_hint(last, key, slot) : tree.emplace(key, slot).first;
    nodes[size_t(slot)] = node;
    // Both neighbours of a new leaf lie on the path just walked.
    lastBeside = lastSlot >= 0 && (std::next(node) == last || (node != tree.begin() && std::prev(node) == last));
    lastSlot = slot;
}

void KvRxDictionarySortedIndex::erase(int slot) {
    tree.erase(nodes[size_t(slot)]);
    if (slot == lastSlot) {
        lastSlot = -1;
        lastBeside = false;
    }
}

void KvRxDictionarySortedIndex::clear() {
    tree.clear();
    nodes.clear();
    lastSlot = -1;
    lastBeside = false;
}
