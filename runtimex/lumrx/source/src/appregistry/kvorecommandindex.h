// The index of the demand-load tree by command: for a command text, and for a group
// name with a command text, the records that offer it, so that a look-up doesn't walk
// every record, group and command.
//
// Invariant: while `built` equals kvoreTreeChanges(), m_entries holds one entry per key
//   fold(c)             for every commandName and commandValue c of any group,
//   fold(g) '\0' fold(c) for every groupName g (null reads as empty) and c of that group,
// listing each record of the stack that has such a command, in the stack's order (head
// first), each record once. fold() folds unit by unit as LumCharOp::compareNoCase
// does, so equal folds are exactly the names that compare equal without case; no name
// holds a '\0', so the two kinds of key never meet. Every change of the tree (records,
// groups or commands added, merged or cleared) moves kvoreTreeChanges(), and the next
// look-up builds the index again from the stack.
//
// m_slots is an open-addressed table of the entries (index + 1, 0 for a free slot), a
// power of two in size and at most half full, each entry at the first free slot that a
// linear probe from its hash meets; so a probe for a key meets its entry before any
// free slot. A look-up folds and hashes its name in one pass into m_folded, which
// only grows, and builds no key.
//
// Owned by the stack whose records it lists; it owns its vectors, not the records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class KvRxLinkedList;
class KvoreRegisterKrxInfo;

// Counts the changes of any demand-load tree.
uint64_t kvoreTreeChanges();
void kvoreTreeChanged();

class KvoreCommandIndex {
public:
    using Records = std::vector<KvoreRegisterKrxInfo*>;

    // The records offering `command` in a group named by the `groupLength` units at
    // `group`, or in any group for a null `group`, in the order of `infos`; null if
    // there are none.
    const Records* find(KvRxLinkedList* infos, const char16_t* group, size_t groupLength,
                        const char16_t* command);

private:
    struct Entry {
        std::u16string key;  // folded
        uint64_t hash;
        Records records;
    };

    void build(KvRxLinkedList* infos);
    void add(const std::u16string& key, KvoreRegisterKrxInfo* record);
    // The slot holding the entry of the key whose units `text` gives, or the free slot
    // where a probe for it ends.
    template <class Text>
    size_t slotOf(uint64_t hash, Text text) const;
    void grow();
    // Folds the key of a look-up into m_folded and hashes it; its length.
    size_t foldLookUp(const char16_t* group, size_t groupLength, const char16_t* command, uint64_t& hash);
    static void makeKey(const char16_t* group, size_t groupLength, const char16_t* command,
                        std::u16string& key);

    std::vector<Entry> m_entries;
    std::vector<uint32_t> m_slots;
    std::vector<char16_t> m_folded;  // the folded key of the last look-up
    uint64_t m_built = ~uint64_t(0);  // kvoreTreeChanges() at the last build
};
