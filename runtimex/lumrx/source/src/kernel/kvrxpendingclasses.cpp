#include "kernel/kvrxpendingclasses.h"

#include "kvrxclass.h"
#include "lumosbase.h"

#include <algorithm>

void KvRxPendingClasses::remove(KvRxClass* aClass) {
    // Most often the class registered last: look from the end.
    auto found = std::find(m_classes.rbegin(), m_classes.rend(), aClass);
    if (found != m_classes.rend()) m_classes.erase(std::next(found).base());
}

void KvRxPendingClasses::sortByName() {
    std::sort(m_classes.begin(), m_classes.end(), [](const KvRxClass* a, const KvRxClass* b) {
        return LumCharOp::compareNoCase(a->name(), b->name()) < 0;
    });
}
