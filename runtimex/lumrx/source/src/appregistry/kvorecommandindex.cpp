#include "appregistry/kvorecommandindex.h"

#include "kvoreappinfo.h"
#include "kvrxcollection.h"
#include "lumplatform/text.h"

#include <cstring>
#include <memory>

namespace {

uint64_t gTreeChanges = 0;

// The fold of LumCharOp::compareNoCase: ASCII here, other units by the platform.
char16_t foldUnit(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
    return lumplatform::foldCaseUnit(c);
}

void appendFold(const char16_t* text, std::u16string& key) {
    for (const char16_t* p = text ? text : u""; *p; ++p) key.push_back(foldUnit(*p));
}

// FNV-1a over the units, with a final mix so that the low bits, which pick the slot,
// depend on every unit.
constexpr uint64_t kHashSeed = 0xcbf29ce484222325ull;
inline uint64_t mixUnit(uint64_t hash, char16_t unit) { return (hash ^ unit) * 0x100000001b3ull; }
inline uint64_t finish(uint64_t hash) {
    hash ^= hash >> 29;
    hash *= 0xbf58476d1ce4e5b9ull;
    return hash ^ (hash >> 32);
}

uint64_t hashOf(const std::u16string& key) {
    uint64_t hash = kHashSeed;
    for (char16_t unit : key) hash = mixUnit(hash, unit);
    return finish(hash);
}

size_t lengthOf(const char16_t* text) {
    size_t length = 0;
    while (text && text[length]) ++length;
    return length;
}

// Calls `visit` with each element of `list`, from its head.
template <class T, class Visit>
void forEachIn(KvRxLinkedList* list, Visit visit) {
    std::unique_ptr<KvRxIterator> it(list->newIterator());
    for (; !it->done(); it->next()) visit(static_cast<T*>(it->object()));
}

}  // namespace

uint64_t kvoreTreeChanges() { return gTreeChanges; }
void kvoreTreeChanged() { ++gTreeChanges; }

const KvoreCommandIndex::Records* KvoreCommandIndex::find(KvRxLinkedList* infos, const char16_t* group,
                                                          size_t groupLength, const char16_t* command) {
    if (m_built != gTreeChanges) build(infos);
    uint64_t hash = 0;
    size_t length = foldLookUp(group, groupLength, command, hash);
    const char16_t* text = m_folded.data();
    uint32_t at = m_slots[slotOf(hash, [&](const std::u16string& stored) {
        return stored.size() == length && std::memcmp(stored.data(), text, length * sizeof(char16_t)) == 0;
    })];
    return at ? &m_entries[at - 1].records : nullptr;
}

// The key as makeKey would write it, folded and hashed in one pass into a buffer that
// only grows; its length.
size_t KvoreCommandIndex::foldLookUp(const char16_t* group, size_t groupLength, const char16_t* command,
                                     uint64_t& hash) {
    size_t commandLength = lengthOf(command);
    size_t length = (group ? groupLength + 1 : 0) + commandLength;
    if (m_folded.size() <= length) m_folded.resize(length + 1);
    char16_t* out = m_folded.data();
    uint64_t h = kHashSeed;
    if (group) {
        for (size_t i = 0; i < groupLength; ++i) h = mixUnit(h, *out++ = foldUnit(group[i]));
        h = mixUnit(h, *out++ = u'\0');
    }
    for (size_t i = 0; i < commandLength; ++i) h = mixUnit(h, *out++ = foldUnit(command[i]));
    hash = finish(h);
    return length;
}

template <class Equals>
size_t KvoreCommandIndex::slotOf(uint64_t hash, Equals equals) const {
    size_t mask = m_slots.size() - 1;
    for (size_t i = size_t(hash) & mask;; i = (i + 1) & mask) {
        uint32_t at = m_slots[i];
        if (!at) return i;
        const Entry& entry = m_entries[at - 1];
        if (entry.hash == hash && equals(entry.key)) return i;
    }
}

// Doubles the table and places every entry again.
void KvoreCommandIndex::grow() {
    m_slots.assign(m_slots.size() * 2, 0);
    size_t mask = m_slots.size() - 1;
    for (size_t e = 0; e < m_entries.size(); ++e) {
        size_t i = size_t(m_entries[e].hash) & mask;
        while (m_slots[i]) i = (i + 1) & mask;
        m_slots[i] = uint32_t(e + 1);
    }
}

void KvoreCommandIndex::makeKey(const char16_t* group, size_t groupLength, const char16_t* command,
                                std::u16string& key) {
    key.clear();
    if (group) {
        for (size_t i = 0; i < groupLength; ++i) key.push_back(foldUnit(group[i]));
        key.push_back(u'\0');
    }
    appendFold(command, key);
}

// Records are visited in the stack's order, so a record's keys end with it when it
// offers a command twice.
void KvoreCommandIndex::add(const std::u16string& key, KvoreRegisterKrxInfo* record) {
    uint64_t hash = hashOf(key);
    size_t slot = slotOf(hash, [&](const std::u16string& stored) { return stored == key; });
    size_t entry = m_slots[slot];
    if (!entry) {
        m_entries.push_back(Entry{key, hash, {}});
        entry = m_entries.size();
        m_slots[slot] = uint32_t(entry);
        if (m_entries.size() * 2 > m_slots.size()) grow();
    }
    Records& records = m_entries[entry - 1].records;
    if (records.empty() || records.back() != record) records.push_back(record);
}

void KvoreCommandIndex::build(KvRxLinkedList* infos) {
    m_entries.clear();
    m_slots.assign(16, 0);
    std::u16string key;
    forEachIn<KvoreRegisterKrxInfo>(infos, [&](KvoreRegisterKrxInfo* record) {
        forEachIn<KvoreKrxRegCmdGroup>(record->groups(), [&](KvoreKrxRegCmdGroup* group) {
            forEachIn<KvoreKrxRegCommand>(group->commands(), [&](KvoreKrxRegCommand* command) {
                for (const char16_t* text : {command->commandName(), command->commandValue()}) {
                    makeKey(nullptr, 0, text, key);
                    add(key, record);
                    const char16_t* groupName = group->groupName() ? group->groupName() : u"";
                    makeKey(groupName, lengthOf(groupName), text, key);
                    add(key, record);
                }
            });
        });
    });
    m_built = gTreeChanges;
}
