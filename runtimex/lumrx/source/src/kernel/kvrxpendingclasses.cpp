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
    auto found = std::find(m_classes.rbegin(), m_classes.rend(), aClass);
    if (found != m_classes.rend()) m_classes.erase(std::next(found).base());
}

void KvRxPendingClasses::sortByName() {
    // Each name is asked once, not at every comparison.
    std::vector<std::pair<const char16_t*, KvRxClass*>> named;
    named.reserve(m_classes.size());
    for (KvRxClass* c : m_classes) named.emplace_back(c->name(), c);
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
    std::vector<KvRxClass*> inOrder;
    inOrder.reserve(m_classes.size());
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictSorted));
    for (; !it->done(); it->next()) {
        KvRxClass* c = kvrxClassValue(it->object());
        if (KvRxClassState::of(c)->isPending()) inOrder.push_back(c);
    }
    m_classes.swap(inOrder);
}
