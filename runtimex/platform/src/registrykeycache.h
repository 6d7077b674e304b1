// The ids of key paths opened lately in one hive file, so that opening a key again
// needn't walk its path in the file.
//
// Invariant: every entry maps the folds of a key path (below the root) to the id that
// path named while the hive's change counter (HiveStore::changeCounter) read `m_stamp`.
// A path names another key, or none, only after a write, and every write moves the
// counter (ids are never reused), so while the counter still reads `m_stamp` the
// entries hold; asked under another count, the cache empties first. At most kLimit
// entries: a full cache empties before it takes one more.
//
// Ownership: owned by its HiveStore; it holds plain ids.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace lumplatform::registry_internal {

class KeyPathCache {
public:
    // The id of `path` (the key of pathKey) if it was remembered under `stamp`.
    bool find(uint64_t stamp, const std::string& path, int64_t& id);
    void remember(uint64_t stamp, const std::string& path, int64_t id);

private:
    static constexpr size_t kLimit = 4096;
    void follow(uint64_t stamp);

    std::unordered_map<std::string, int64_t> m_ids;
    uint64_t m_stamp = 0;
};

}  // namespace lumplatform::registry_internal
