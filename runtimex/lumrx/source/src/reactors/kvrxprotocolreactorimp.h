// The implementations of the protocol reactor classes.
//
// Ownership: a manager owns the lists in `lists` (the linked list itself doesn't); a
// list owns nothing it holds; each iterator owns its `inner` iterator only.
#pragma once

#include "kvrxcollection.h"
#include "kvrxprotocolreactor.h"

class KvRxProtocolReactorManagerFactoryImp : public KvRxProtocolReactorManagerFactory {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorManagerFactoryImp);

public:
    KvRxProtocolReactorManager* createReactorManager(KvRxClass* aClass) override;
};

class KvRxProtocolReactorManagerImp : public KvRxProtocolReactorManager {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorManagerImp);

public:
    KvRxProtocolReactorManagerImp() = default;
    ~KvRxProtocolReactorManagerImp() override;
    KvRxProtocolReactorList* createReactorList(KvRxClass* reactorClass) override;
    KvRxProtocolReactorListIterator* newIterator() override;
    KvRxIterator* newListsIterator() { return lists.newIterator(); }

private:
    KvRxLinkedList lists;
};

class KvRxProtocolReactorListImp : public KvRxProtocolReactorList {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorListImp);

public:
    explicit KvRxProtocolReactorListImp(KvRxClass* reactorClass) : m_reactorClass(reactorClass) {}
    ~KvRxProtocolReactorListImp() override;
    KvRxClass* reactorClass() const override { return m_reactorClass; }
    Kvore::ErrorStatus addReactor(KvRxProtocolReactor* reactor) override;
    void removeReactor(KvRxProtocolReactor* reactor) override;
    KvRxProtocolReactorIterator* newIterator() override;
    KvRxIterator* newReactorsIterator() { return reactors.newIterator(); }

private:
    bool holds(const KvRxProtocolReactor* reactor) const;

    KvRxClass* m_reactorClass;
    KvRxLinkedList reactors;
};

class KvRxProtocolReactorIteratorImp : public KvRxProtocolReactorIterator {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorIteratorImp);

public:
    // Starts at the head of `list`; without a list it is done at once.
    explicit KvRxProtocolReactorIteratorImp(KvRxProtocolReactorListImp* list);
    ~KvRxProtocolReactorIteratorImp() override;
    KvRxProtocolReactorIteratorImp(const KvRxProtocolReactorIteratorImp&) = delete;
    KvRxProtocolReactorIteratorImp& operator=(const KvRxProtocolReactorIteratorImp&) = delete;

    KvRxClass* reactorClass() const override;
    void start() override;
    bool next() override;
    bool done() const override;
    KvRxProtocolReactor* reactor() const override;

private:
    KvRxProtocolReactorListImp* list;
    KvRxIterator* inner = nullptr;
};

class KvRxProtocolReactorListIteratorImp : public KvRxProtocolReactorListIterator {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorListIteratorImp);

public:
    explicit KvRxProtocolReactorListIteratorImp(KvRxProtocolReactorManagerImp* manager);
    ~KvRxProtocolReactorListIteratorImp() override;
    KvRxProtocolReactorListIteratorImp(const KvRxProtocolReactorListIteratorImp&) = delete;
    KvRxProtocolReactorListIteratorImp& operator=(const KvRxProtocolReactorListIteratorImp&) = delete;

    void start() override;
    bool next() override;
    bool done() const override;
    KvRxProtocolReactorList* reactorList() const override;

private:
    KvRxProtocolReactorManagerImp* manager;
    KvRxIterator* inner = nullptr;
};
