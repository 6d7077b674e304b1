#include "kernel/kvrxpendingclasses.h"

#include "kernel/kvrximpclass.h"
#include "kvrxclass.h"
#include "kvrxdictionary.h"
#include "lumosbase.h"

#include <algorithm>
#include <memory>
#include <utility>

void KvRxPendingClasses::remove(KvRxClass* aClass) {
    // Most often the class registered last: look from the end.
    auto found = std::find_if(m_classes.rbegin(), m_classes.rend(),
                              [aClass](const Waiting& w) { return w.aClass == aClass; });
    if (found != m_classes.rend()) m_classes.erase(std::next(found).base());
}

void KvRxPendingClasses::sortByName() {
    // Each name is asked once, not at every comparison.
    std::vector<std::pair<const char16_t*, Waiting>> named;
    named.reserve(m_classes.size());
    for (const Waiting& w : m_classes) named.emplace_back(w.aClass->name(), w);
    std::sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
        return LumCharOp::compareNoCase(a.first, b.first) < 0;
    });
    for (size_t i = 0; i < named.size(); ++i) m_classes[i] = named[i].second;
}

void KvRxPendingClasses::putInNameOrder(KvRxDictionary* classes) {
    // A sort costs about log2(n) name comparisons per waiting class, a walk one step per
    // class of the dictionary: the walk wins once a sixteenth of the classes wait.
    if (m_classes.size() > 1 && m_classes.size() * 16 >= classes->numEntries())
        takeFromSortedWalk(classes);
    else
        sortByName();
}

void KvRxPendingClasses::takeFromSortedWalk(KvRxDictionary* classes) {
    // The waiting classes by id; an id that no longer holds its class (the dictionary
    // was changed through its own interface) leaves the order to a sort.
    unsigned highest = 0;
    for (const Waiting& w : m_classes) {
        if (classes->at(w.id) != w.aClass) return sortByName();
        if (w.id > highest) highest = w.id;
    }
    std::vector<KvRxClass*> byId(highest, nullptr);
    for (const Waiting& w : m_classes) byId[w.id - 1] = w.aClass;
    // The walk reads ids alone: neither the values nor the classes.
    std::vector<Waiting> inOrder;
    inOrder.reserve(m_classes.size());
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictSorted));
    for (; !it->done(); it->next()) {
        unsigned id = it->id();
        if (id <= highest && byId[id - 1]) inOrder.push_back(Waiting{byId[id - 1], id});
    }
    m_classes.swap(inOrder);
}
