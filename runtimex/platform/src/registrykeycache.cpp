#include "registrykeycache.h"

namespace lumplatform::registry_internal {

void KeyPathCache::follow(uint64_t stamp) {
    if (stamp == m_stamp) return;
    m_ids.clear();
    m_stamp = stamp;
}

bool KeyPathCache::find(uint64_t stamp, const std::string& path, int64_t& id) {
    follow(stamp);
    auto found = m_ids.find(path);
    if (found == m_ids.end()) return false;
    id = found->second;
    return true;
}

void KeyPathCache::remember(uint64_t stamp, const std::string& path, int64_t id) {
    follow(stamp);
    if (m_ids.size() >= kLimit) m_ids.clear();
    m_ids[path] = id;
}

}  // namespace lumplatform::registry_internal
