#include "kernel/kvrxpendingclasses.h"

#include "kvrxclass.h"
#include "lumosbase.h"

#include <algorithm>
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
