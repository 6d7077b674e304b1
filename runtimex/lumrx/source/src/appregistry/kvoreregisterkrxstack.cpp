// The in-memory tree of the demand-load lists: the stack of records and the records
// with their groups. Every list comes from the kernel service and grows at its head.
#include "appregistry/kvoreregisterkrxstack.h"

#include "appregistry/kvoreappinfoimp.h"
#include "kvrxcollection.h"
#include "lumosbase.h"

#include <memory>

namespace {

// Walks `list` from its head until `match` says yes; that element, or null.
template <class T, class Match>
T* firstIn(KvRxLinkedList* list, Match match) {
    std::unique_ptr<KvRxIterator> it(list->newIterator());
    for (; !it->done(); it->next()) {
        auto* element = static_cast<T*>(it->object());
        if (match(element)) return element;
    }
    return nullptr;
}

}  // namespace

KvoreRegisterKrxInfo::KvoreRegisterKrxInfo(const char16_t* appName) : m_groups(kvoreNewKernelList()) {
    setAppName(appName);
    setModuleName(u" ");
    setAppDesc(u" ");
    setLoadReason(KvoreApp::kOnRequest);
}

KvoreRegisterKrxInfo::~KvoreRegisterKrxInfo() {
    while (!m_groups->isEmpty()) delete m_groups->removeHead();
    delete m_groups;
}

KvRxClass* KvoreRegisterKrxInfo::isA() const {
    static KvRxClass* cls = nullptr;
    return kvoreRegisteredClass(cls, u"KvoreRegisterKrxInfo");
}

KvoreKrxRegCmdGroup* KvoreRegisterKrxInfo::findGroup(const char16_t* name) const {
    if (!name || !*name) return nullptr;
    return firstIn<KvoreKrxRegCmdGroup>(m_groups, [name](KvoreKrxRegCmdGroup* group) {
        return LumCharOp::compareNoCase(group->groupName(), name) == 0;
    });
}

// In each group a match by name goes before one by value, as two walks of the group
// would find them; one walk does. An empty (or null) command name is compared like any
// other, so it finds a command stored under the empty value name.
KvoreKrxRegCommand* KvoreRegisterKrxInfo::findCommand(const char16_t* groupName,
                                                      const char16_t* commandName) const {
    KvoreKrxRegCommand* command = nullptr;
    firstIn<KvoreKrxRegCmdGroup>(m_groups, [&](KvoreKrxRegCmdGroup* group) {
        if (groupName && LumCharOp::compareNoCase(group->groupName(), groupName) != 0) return false;
        KvoreKrxRegCommand* byValue = nullptr;
        command = firstIn<KvoreKrxRegCommand>(group->commands(), [&](KvoreKrxRegCommand* candidate) {
            if (LumCharOp::compareNoCase(candidate->commandName(), commandName) == 0) return true;
            if (!byValue && LumCharOp::compareNoCase(candidate->commandValue(), commandName) == 0)
                byValue = candidate;
            return false;
        });
        if (!command) command = byValue;
        return command != nullptr;
    });
    return command;
}

void KvoreRegisterKrxInfo::addGroup(KvoreKrxRegCmdGroup* group) {
    m_groups->prepend(group);
    kvoreTreeChanged();
}

void KvoreRegisterKrxInfo::merge(KvoreRegisterKrxInfo* other) {
    while (!other->m_groups->isEmpty()) {
        std::unique_ptr<KvoreKrxRegCmdGroup> group(static_cast<KvoreKrxRegCmdGroup*>(other->m_groups->removeHead()));
        if (KvoreKrxRegCmdGroup* present = findGroup(group->groupName())) {
            present->merge(group.get());
        } else {
            addGroup(group.get());
            group.release();
        }
    }
}

KvoreRegisterKrxStack::KvoreRegisterKrxStack() : m_infos(kvoreNewKernelList()), m_infoCount(0) {}

KvoreRegisterKrxStack::~KvoreRegisterKrxStack() {
    while (!m_infos->isEmpty()) delete m_infos->removeHead();
    delete m_infos;
}

KvRxClass* KvoreRegisterKrxStack::isA() const {
    static KvRxClass* cls = nullptr;
    return kvoreRegisteredClass(cls, u"KvoreRegisterKrxStack");
}

void KvoreRegisterKrxStack::addInfo(KvoreRegisterKrxInfo* info) {
    m_infos->prepend(info);
    ++m_infoCount;
    kvoreTreeChanged();
}

KvoreRegisterKrxInfo* KvoreRegisterKrxStack::findInfo(const char16_t* appName) const {
    return firstIn<KvoreRegisterKrxInfo>(m_infos, [appName](KvoreRegisterKrxInfo* info) {
        return LumCharOp::compareNoCase(info->appName(), appName) == 0;
    });
}
