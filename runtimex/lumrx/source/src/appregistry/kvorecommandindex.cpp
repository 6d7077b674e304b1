#include "appregistry/kvorecommandindex.h"

#include "kvoreappinfo.h"
#include "kvrxcollection.h"
#include "lumplatform/text.h"

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
    makeKey(group, groupLength, command, m_key);
    auto found = m_records.find(m_key);
    return found == m_records.end() ? nullptr : &found->second;
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
    Records& records = m_records[key];
    if (records.empty() || records.back() != record) records.push_back(record);
}

void KvoreCommandIndex::build(KvRxLinkedList* infos) {
    m_records.clear();
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
