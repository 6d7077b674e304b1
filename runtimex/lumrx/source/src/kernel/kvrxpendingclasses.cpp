#include "kernel/kvrxpendingclasses.h"

#include "kernel/kvrximpclass.h"
#include "kvrxclass.h"
#include "kvrxdictionary.h"
#include "lumosbase.h"

#include <algorithm>
#include <cstdint>
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
    // A bit per id marks the waiting ones; each id holds its class, checked above, so the
    // list is written anew in walk order in its own room.
    std::vector<uint64_t> waiting(size_t(highest) / 64 + 1, 0);
    for (const Waiting& w : m_classes) waiting[w.id / 64] |= uint64_t(1) << (w.id % 64);
    m_classes.clear();
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictSorted));
    for (; !it->done(); it->next()) {
        unsigned id = it->id();
        if (id <= highest && (waiting[id / 64] >> (id % 64) & 1))
            m_classes.push_back(Waiting{kvrxClassValue(classes->at(id)), id});
    }
}
