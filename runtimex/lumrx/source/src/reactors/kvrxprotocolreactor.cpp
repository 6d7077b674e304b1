#include "reactors/kvrxprotocolreactorimp.h"

#include "kvrxclass.h"

KVRX_DEFINE_MEMBERS(KvRxProtocolReactor, u"OvRxProtocolReactor", u"OvRxObject")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorIterator, u"OvRxProtocolReactorIterator", u"OvRxObject")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorList, u"OvRxProtocolReactorList", u"OvRxObject")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorListIterator, u"OvRxProtocolReactorListIterator", u"OvRxObject")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorManager, u"OvRxProtocolReactorManager", u"OvRxObject")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorManagerFactory, u"OvRxProtocolReactorManagerFactory",
                    u"OvRxService")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorManagerFactoryImp, u"KvRxProtocolReactorManagerFactoryImp",
                    u"OvRxProtocolReactorManagerFactory")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorManagerImp, u"KvRxProtocolReactorManagerImp",
                    u"OvRxProtocolReactorManager")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorListImp, u"KvRxProtocolReactorListImp",
                    u"OvRxProtocolReactorList")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorListIteratorImp, u"KvRxProtocolReactorListIteratorImp",
                    u"OvRxProtocolReactorListIterator")
KVRX_DEFINE_MEMBERS(KvRxProtocolReactorIteratorImp, u"KvRxProtocolReactorIteratorImp",
                    u"OvRxProtocolReactorIterator")

// ---- factory ----

KvRxProtocolReactorManager* KvRxProtocolReactorManagerFactoryImp::createReactorManager(
    KvRxClass* aClass) {
    if (!aClass) return nullptr;
    KvRxClass* key = KvRxProtocolReactorManager::desc();
    if (auto* found = KvRxProtocolReactorManager::cast(aClass->queryX(key))) return found;
    auto* manager = new KvRxProtocolReactorManagerImp();
    KvRxObject* previous = aClass->addX(key, manager);
    if (previous != manager) delete previous;
    return manager;
}

// ---- manager ----

KvRxProtocolReactorManagerImp::~KvRxProtocolReactorManagerImp() {
    KvRxIterator* it = lists.newIterator();
    for (; !it->done(); it->next()) delete it->object();
    delete it;
    lists.removeAll();
}

KvRxProtocolReactorList* KvRxProtocolReactorManagerImp::createReactorList(KvRxClass* reactorClass) {
    if (!reactorClass) return nullptr;
    KvRxProtocolReactorList* found = nullptr;
    KvRxIterator* it = lists.newIterator();
    for (; !found && !it->done(); it->next()) {
        auto* list = KvRxProtocolReactorList::cast(it->object());
        if (list && list->reactorClass() == reactorClass) found = list;
    }
    delete it;
    if (found) return found;
    auto* list = new KvRxProtocolReactorListImp(reactorClass);
    lists.append(list);
    return list;
}

KvRxProtocolReactorListIterator* KvRxProtocolReactorManagerImp::newIterator() {
    return new KvRxProtocolReactorListIteratorImp(this);
}

// ---- list ----

KvRxProtocolReactorListImp::~KvRxProtocolReactorListImp() { reactors.removeAll(); }

bool KvRxProtocolReactorListImp::holds(const KvRxProtocolReactor* reactor) const {
    bool found = false;
    KvRxIterator* it = const_cast<KvRxLinkedList&>(reactors).newIterator();
    for (; !found && !it->done(); it->next()) {
        KvRxObject* element = it->object();
        found = element == reactor || (element && element->isEqualTo(reactor));
    }
    delete it;
    return found;
}

Kvore::ErrorStatus KvRxProtocolReactorListImp::addReactor(KvRxProtocolReactor* reactor) {
    if (!reactor) return Kvore::eOk;
    KvRxClass* cls = reactor->isA();
    if (!cls || !cls->isDerivedFrom(m_reactorClass)) return Kvore::eWrongObjectType;
    if (!holds(reactor)) reactors.append(reactor);
    return Kvore::eOk;
}

void KvRxProtocolReactorListImp::removeReactor(KvRxProtocolReactor* reactor) {
    KvRxIterator* it = reactors.find(reactor);
    if (!it->done()) reactors.removeAt(it);
    delete it;
}

KvRxProtocolReactorIterator* KvRxProtocolReactorListImp::newIterator() {
    return new KvRxProtocolReactorIteratorImp(this);
}

// ---- iterator over the reactors of a list ----

KvRxProtocolReactorIteratorImp::KvRxProtocolReactorIteratorImp(KvRxProtocolReactorListImp* list)
    : list(list) {
    start();
}

KvRxProtocolReactorIteratorImp::~KvRxProtocolReactorIteratorImp() { delete inner; }

KvRxClass* KvRxProtocolReactorIteratorImp::reactorClass() const {
    return list ? list->reactorClass() : nullptr;
}

void KvRxProtocolReactorIteratorImp::start() {
    delete inner;
    inner = list ? list->newReactorsIterator() : nullptr;
}

bool KvRxProtocolReactorIteratorImp::next() { return inner && inner->next(); }

bool KvRxProtocolReactorIteratorImp::done() const { return !inner || inner->done(); }

KvRxProtocolReactor* KvRxProtocolReactorIteratorImp::reactor() const {
    return inner ? KvRxProtocolReactor::cast(inner->object()) : nullptr;
}

// ---- iterator over the lists of a manager ----

KvRxProtocolReactorListIteratorImp::KvRxProtocolReactorListIteratorImp(
    KvRxProtocolReactorManagerImp* manager)
    : manager(manager) {
    start();
}

KvRxProtocolReactorListIteratorImp::~KvRxProtocolReactorListIteratorImp() { delete inner; }

void KvRxProtocolReactorListIteratorImp::start() {
    delete inner;
    inner = manager ? manager->newListsIterator() : nullptr;
}

bool KvRxProtocolReactorListIteratorImp::next() { return inner && inner->next(); }

bool KvRxProtocolReactorListIteratorImp::done() const { return !inner || inner->done(); }

KvRxProtocolReactorList* KvRxProtocolReactorListIteratorImp::reactorList() const {
    return inner ? KvRxProtocolReactorList::cast(inner->object()) : nullptr;
}
