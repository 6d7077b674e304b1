// The store of one hive file: this process's one SQLite connection to it, and the
// rows of keys and values in it. Internal to the platform layer.
//
// Tables (the file's application_id marks it as a hive, user_version is the layout):
//   keys(id, parent, name, fold)         one row per key; parent 0 is the root,
//                                        which has no row
//   vals(key, name, fold, type, data)    one row per value; key 0 is the root
// `name` is the name as first written, UTF-16LE; `fold` is its case fold in UTF-16BE,
// so that the byte order of folds is the order of their units.
// Invariants: (parent, fold) and (key, fold) are unique; ids are never reused
// (AUTOINCREMENT), so an id held by an open key never comes to name another key; a
// key's values leave in the transaction that removes its row.
//
// Cheap checks: while the process's folder watch (registrywatch.h) covers the file,
// data_version is read again only after the watch saw an event, and opened key paths
// are answered from the key cache (registrykeycache.h) while the change counter stands.
//
// Ownership: the store owns the connection, its prepared statements and its key cache;
// it is shared (shared_ptr) by the process's hive table, the open keys and the batches
// on it.
#pragma once

#include "lumplatform/registry.h"
#include "registrykeycache.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace lumplatform::registry_internal {

constexpr int64_t kRootKey = 0;

struct ValueRow {
    std::u16string name;
    uint32_t type = 0;
    std::string data;  // the bytes as stored
};

// The file of a hive by the rules of registry.h; empty if there is none to be had.
std::string hiveFilePath(RegistryHive hive);

class HiveStore {
public:
    // The store of the hive's file as it is now: a new store if the file was made,
    // removed or replaced since the last call.
    static RegistryStatus forHive(RegistryHive hive, std::shared_ptr<HiveStore>& store);
    HiveStore(std::string path, uint64_t generation);
    ~HiveStore();
    HiveStore(const HiveStore&) = delete;
    HiveStore& operator=(const HiveStore&) = delete;

    // Opens the file when first needed. Reading a hive without a file or without
    // tables succeeds and sees it empty; writing makes the file and tables.
    RegistryStatus connect(bool forWrite);
    RegistryStatus changeCounter(uint64_t& counter);
    // The same, for a caller that has just read the folder watch's events (forHive).
    RegistryStatus changeCounterAfterForHive(uint64_t& counter);

    // A read transaction, unless one is open (a batch) or there is no file: false then.
    bool beginRead();
    void endRead();
    // A write transaction, or a savepoint inside an open batch.
    RegistryStatus beginWrite();
    RegistryStatus endWrite(bool keep);
    RegistryStatus beginBatch();
    RegistryStatus endBatch(bool keep);

    RegistryStatus findChild(int64_t parent, const std::u16string& name, int64_t& id);
    // The key at the path of `names` below the root, for a caller that has just had the
    // store from forHive; a path found lately is answered from the key cache.
    RegistryStatus findKey(const std::vector<std::u16string>& names, int64_t& id);
    RegistryStatus addChild(int64_t parent, const std::u16string& name, int64_t& id);
    // kRegistryOk if the key is there, kRegistryKeyDeleted if not.
    RegistryStatus keyAlive(int64_t id);
    RegistryStatus hasChildren(int64_t id, bool& any);
    RegistryStatus removeKey(int64_t id);
    RegistryStatus readValue(int64_t key, const std::u16string& name, ValueRow& row);
    RegistryStatus writeValue(int64_t key, const ValueRow& row);
    RegistryStatus removeValue(int64_t key, const std::u16string& name);
    RegistryStatus keyInfo(int64_t id, RegistryKeyInfo& info);
    RegistryStatus listSubKeys(int64_t id, std::vector<std::u16string>& names);
    RegistryStatus listValues(int64_t id, std::vector<ValueRow>& rows);

private:
    RegistryStatus checkWritable();
    RegistryStatus openFile(bool forWrite);
    void closeFile();
    RegistryStatus readSchema();
    RegistryStatus makeSchema();
    RegistryStatus exec(const char* sql);
    sqlite3_stmt* statement(const char* sql);
    RegistryStatus failure(int rc) const;
    RegistryStatus changeCounterAt(uint64_t events, uint64_t& counter);

    std::string m_path;
    sqlite3* m_db = nullptr;   // null until the file is opened
    std::map<const char*, sqlite3_stmt*> m_statements;  // by their SQL text
    bool m_writable = false;   // opened read-write
    bool m_ready = false;      // the hive's tables are there
    bool m_inBatch = false;
    uint64_t m_device = 0, m_inode = 0;  // identity of the open file, 0 if none
    uint64_t m_generation;     // unique to this store in the process
    uint32_t m_changes = 0;    // changes seen: own writes, others' commits, reopening
    int64_t m_dataVersion = -1;  // last PRAGMA data_version read
    bool m_watched = false;      // the folder watch covers this file (it stays so)
    uint64_t m_versionEvents = 0;  // the folder watch's count before that read
    KeyPathCache m_keys;
};

// The reads of one call under one lock of the file, rather than a lock per statement.
class ReadScope {
public:
    explicit ReadScope(HiveStore& store) : m_store(store), m_open(store.beginRead()) {}
    ~ReadScope() {
        if (m_open) m_store.endRead();
    }
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

private:
    HiveStore& m_store;
    bool m_open;
};

// One write transaction on a store; it is rolled back unless committed.
class WriteScope {
public:
    explicit WriteScope(HiveStore& store) : m_store(store) {}
    ~WriteScope() {
        if (m_open) m_store.endWrite(false);
    }
    WriteScope(const WriteScope&) = delete;
    WriteScope& operator=(const WriteScope&) = delete;

    RegistryStatus begin() {
        RegistryStatus s = m_store.beginWrite();
        m_open = s == kRegistryOk;
        return s;
    }
    RegistryStatus commit() {
        m_open = false;
        return m_store.endWrite(true);
    }

private:
    HiveStore& m_store;
    bool m_open = false;
};

}  // namespace lumplatform::registry_internal
