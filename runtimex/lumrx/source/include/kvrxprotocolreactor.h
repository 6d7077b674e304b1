// Protocol reactors: observer lists kept per run-time class. A class's manager is a
// protocol extension of the class (so derived classes share it), the manager holds one
// list per reactor class, and each list holds the reactors. Nothing here calls a
// reactor; code that fires events walks the lists with the two iterators.
//
// The factory is the service "ProtocolReactorManager". A manager stays attached to its
// class and owns its lists; a list never owns its reactors; the caller deletes what
// newIterator gives.
#pragma once

#include "kvrxservice.h"

class KvRxProtocolReactorList;
class KvRxProtocolReactorListIterator;
class KvRxProtocolReactorIterator;

// Base of every reactor class; a reactor class adds the events it needs.
class KvRxProtocolReactor : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactor);
};

class KvRxProtocolReactorIterator : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorIterator);

public:
    // The class of the list walked; null without a list.
    virtual KvRxClass* reactorClass() const = 0;
    // Back to the head of the list.
    virtual void start() = 0;
    // True if the iterator stands on a reactor after the step.
    virtual bool next() = 0;
    virtual bool done() const = 0;
    // The current element if it is a reactor, else null.
    virtual KvRxProtocolReactor* reactor() const = 0;
};

class KvRxProtocolReactorList : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorList);

public:
    virtual KvRxClass* reactorClass() const = 0;
    // 0, and nothing added, for null or a reactor already present (same object or
    // equal); 46 for a reactor whose class isn't derived from reactorClass().
    virtual Kvore::ErrorStatus addReactor(KvRxProtocolReactor* reactor) = 0;
    // Removes the first element that is this very pointer; absent, nothing.
    virtual void removeReactor(KvRxProtocolReactor* reactor) = 0;
    virtual KvRxProtocolReactorIterator* newIterator() = 0;
};

class KvRxProtocolReactorListIterator : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorListIterator);

public:
    virtual void start() = 0;
    virtual bool next() = 0;
    virtual bool done() const = 0;
    // The current element if it is a reactor list, else null.
    virtual KvRxProtocolReactorList* reactorList() const = 0;
};

class KvRxProtocolReactorManager : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorManager);

public:
    // The list for exactly this class (no inheritance), made at the first request and
    // kept in creation order. Null for a null class.
    virtual KvRxProtocolReactorList* createReactorList(KvRxClass* reactorClass) = 0;
    virtual KvRxProtocolReactorListIterator* newIterator() = 0;
};

class KvRxProtocolReactorManagerFactory : public KvRxService {
    KVRX_DECLARE_MEMBERS(KvRxProtocolReactorManagerFactory);

public:
    // The manager serving `aClass`, own or inherited; a class without one gets a new
    // one attached, replacing (and deleting) any other object at the manager's
    // protocol key. Null for a null class.
    virtual KvRxProtocolReactorManager* createReactorManager(KvRxClass* aClass) = 0;
};
