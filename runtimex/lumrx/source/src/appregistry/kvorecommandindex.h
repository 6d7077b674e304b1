// The index of the demand-load tree by command: for a command text, and for a group
// name with a command text, the records that offer it, so that a look-up doesn't walk
// every record, group and command.
//
// Invariant: while `built` equals kvoreTreeChanges(), m_records maps
//   fold(c)             for every commandName and commandValue c of any group,
//   fold(g) '\0' fold(c) for every groupName g (null reads as empty) and c of that group,
// to each record of the stack that has such a command, in the stack's order (head
// first), each record once. fold() folds unit by unit as LumCharOp::compareNoCase
// does, so equal folds are exactly the names that compare equal without case; no name
// holds a '\0', so the two kinds of key never meet. Every change of the tree (records,
// groups or commands added, merged or cleared) moves kvoreTreeChanges(), and the next
// look-up builds the index again from the stack.
//
// Owned by the stack whose records it lists; it owns its maps, not the records.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
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
    void build(KvRxLinkedList* infos);
    void add(const std::u16string& key, KvoreRegisterKrxInfo* record);
    static void makeKey(const char16_t* group, size_t groupLength, const char16_t* command,
                        std::u16string& key);

    std::unordered_map<std::u16string, Records> m_records;
    uint64_t m_built = ~uint64_t(0);  // kvoreTreeChanges() at the last build
    std::u16string m_key;  // the key of a look-up, kept to spare its allocation
};
