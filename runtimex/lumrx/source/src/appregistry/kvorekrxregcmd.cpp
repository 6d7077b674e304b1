#include "appregistry/kvoreappinfoimp.h"
#include "appregistry/kvorecommandindex.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvrxcollection.h"
#include "kvrxservice.h"
#include "lumosbase.h"

KvRxClass* kvoreRegisteredClass(KvRxClass*& cache, const char16_t* name) {
    if (!cache) cache = kvrxFindKvRxClass(name);
    return cache;
}

KvRxLinkedList* kvoreNewKernelList() {
    KvRxDictionary* registry = kvrxSysRegistry();
    auto* services = registry ? KvRxDictionary::cast(registry->at(u"ServiceDictionary")) : nullptr;
    auto* kernel = services ? KvRxKernel::cast(services->at(u"KernelServices")) : nullptr;
    if (!kernel) KvRxModuleGlobal::fatalError(u"Kernel services are not running!");
    return kernel->newLinkedList();
}

KvoreKrxRegCommand::KvoreKrxRegCommand(const char16_t* commandName, const char16_t* commandValue)
    : m_commandName(kvoreDupText(commandName)), m_commandValue(kvoreDupText(commandValue)) {}

KvoreKrxRegCommand::~KvoreKrxRegCommand() {
    LumCharOp::zfree(m_commandName);
    LumCharOp::zfree(m_commandValue);
}

KvRxClass* KvoreKrxRegCommand::isA() const {
    static KvRxClass* cls = nullptr;
    return kvoreRegisteredClass(cls, u"KvoreKrxRegCommand");
}

const char16_t* KvoreKrxRegCommand::commandName() const { return m_commandName; }
const char16_t* KvoreKrxRegCommand::commandValue() const { return m_commandValue; }

KvoreKrxRegCmdGroup::KvoreKrxRegCmdGroup(const char16_t* groupName)
    : m_groupName(kvoreDupText(groupName)), m_commands(kvoreNewKernelList()), m_commandCount(0) {}

KvoreKrxRegCmdGroup::~KvoreKrxRegCmdGroup() {
    clear();
    delete m_commands;
    LumCharOp::zfree(m_groupName);
}

KvRxClass* KvoreKrxRegCmdGroup::isA() const {
    static KvRxClass* cls = nullptr;
    return kvoreRegisteredClass(cls, u"KvoreKrxRegCmdGroup");
}

void KvoreKrxRegCmdGroup::addCommand(KvoreKrxRegCommand* command) {
    m_commands->prepend(command);
    ++m_commandCount;
    kvoreTreeChanged();
}

bool KvoreKrxRegCmdGroup::findCommand(const char16_t* name, bool byName,
                                      KvoreKrxRegCommand*& found) const {
    found = nullptr;
    KvRxIterator* it = m_commands->newIterator();
    for (; !found && !it->done(); it->next()) {
        auto* command = static_cast<KvoreKrxRegCommand*>(it->object());
        const char16_t* text = byName ? command->commandName() : command->commandValue();
        if (LumCharOp::compareNoCase(name, text) == 0) found = command;
    }
    delete it;
    return found != nullptr;
}

void KvoreKrxRegCmdGroup::merge(KvoreKrxRegCmdGroup* other) {
    while (!other->m_commands->isEmpty()) {
        auto* command = static_cast<KvoreKrxRegCommand*>(other->m_commands->removeHead());
        KvoreKrxRegCommand* present = nullptr;
        if (findCommand(command->commandName(), true, present)) delete command;
        else addCommand(command);
    }
}

void KvoreKrxRegCmdGroup::clear() {
    while (!m_commands->isEmpty()) delete m_commands->removeHead();
    m_commandCount = 0;
    kvoreTreeChanged();
}
