#include "kvrxoverrule.h"

#include <mutex>
#include <set>

namespace {

// Static objects of the library: they live from load to unload, whether or not the
// runtime is started. The mutex guards the set and nothing else, and is held only
// for one set operation.
std::set<const KvRxObject*> disabledObjects;
std::mutex disabledObjectsMutex;

}  // namespace

bool KvRxOverruleInternals::existInDisable(const KvRxObject* object) {
    std::lock_guard<std::mutex> lock(disabledObjectsMutex);
    return disabledObjects.count(object) != 0;
}

void KvRxOverruleInternals::addObjectToDisable(const KvRxObject* object) {
    if (!object) return;
    std::lock_guard<std::mutex> lock(disabledObjectsMutex);
    disabledObjects.insert(object);
}

void KvRxOverruleInternals::removeObjectFromDisable(const KvRxObject* object) {
    if (!object) return;
    std::lock_guard<std::mutex> lock(disabledObjectsMutex);
    disabledObjects.erase(object);
}
