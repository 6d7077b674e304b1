#include "registrystore.h"

#include "lumplatform/text.h"
#include "registrywatch.h"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumplatform::registry_internal {

namespace {

constexpr int64_t kHiveApplicationId = 0x4C52474B;  // marks a file as a hive
constexpr int64_t kLayoutVersion = 1;
constexpr int kBusyMilliseconds = 5000;
static_assert(kHiveApplicationId == 1280460619, "the mark written by kSchema");

constexpr const char* kSchema =
    "CREATE TABLE keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER NOT NULL,"
    " name BLOB NOT NULL, fold BLOB NOT NULL, UNIQUE(parent, fold));"
    "CREATE TABLE vals(key INTEGER NOT NULL, name BLOB NOT NULL, fold BLOB NOT NULL,"
    " type INTEGER NOT NULL, data BLOB NOT NULL, UNIQUE(key, fold));"
    "PRAGMA application_id = 1280460619;"  // kHiveApplicationId
    "PRAGMA user_version = 1;";
constexpr const char* kReadSchema =
    "SELECT (SELECT application_id FROM pragma_application_id),"
    " (SELECT user_version FROM pragma_user_version), (SELECT count(*) FROM sqlite_master)";
constexpr const char* kDataVersion = "PRAGMA data_version";
constexpr const char* kFindChild = "SELECT id FROM keys WHERE parent = ?1 AND fold = ?2";
constexpr const char* kAddChild = "INSERT INTO keys(parent, name, fold) VALUES(?1, ?2, ?3)";
constexpr const char* kKeyAlive = "SELECT 1 FROM keys WHERE id = ?1";
constexpr const char* kHasChildren = "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1";
constexpr const char* kRemoveValues = "DELETE FROM vals WHERE key = ?1";
constexpr const char* kRemoveKey = "DELETE FROM keys WHERE id = ?1";
constexpr const char* kReadValue = "SELECT name, type, data FROM vals WHERE key = ?1 AND fold = ?2";
// A value written again keeps its first name and its place in the order.
constexpr const char* kWriteValue =
    "INSERT INTO vals(key, name, fold, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
    " ON CONFLICT(key, fold) DO UPDATE SET type = excluded.type, data = excluded.data";
constexpr const char* kRemoveValue = "DELETE FROM vals WHERE key = ?1 AND fold = ?2";
constexpr const char* kSubKeyInfo =
    "SELECT count(*), coalesce(max(length(name)), 0) FROM keys WHERE parent = ?1";
constexpr const char* kValueInfo =
    "SELECT count(*), coalesce(max(length(name)), 0), coalesce(max(length(data)), 0)"
    " FROM vals WHERE key = ?1";
constexpr const char* kListSubKeys = "SELECT name FROM keys WHERE parent = ?1 ORDER BY fold";
constexpr const char* kListValues =
    "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY rowid";

std::atomic<uint64_t> gGenerations{0};

// Names are stored as UTF-16LE, folds as UTF-16BE of the folded units.
std::string nameBytes(const std::u16string& name) {
    std::string bytes;
    bytes.reserve(name.size() * 2);
    for (char16_t u : name) {
        bytes.push_back(char(u & 0xFF));
        bytes.push_back(char(u >> 8));
    }
    return bytes;
}

std::string foldBytes(const std::u16string& name) {
    std::string bytes;
    bytes.reserve(name.size() * 2);
    for (char16_t u : name) {
        char16_t f = foldCaseUnit(u);
        bytes.push_back(char(f >> 8));
        bytes.push_back(char(f & 0xFF));
    }
    return bytes;
}

std::u16string nameFromBytes(const std::string& bytes) {
    std::u16string name(bytes.size() / 2, u'\0');
    for (size_t i = 0; i < name.size(); ++i)
        name[i] = char16_t(uint8_t(bytes[2 * i]) | uint8_t(bytes[2 * i + 1]) << 8);
    return name;
}

// One use of a cached statement; it is reset at the end, so that it holds no lock.
class Query {
public:
    explicit Query(sqlite3_stmt* statement) : m_statement(statement) {}
    ~Query() {
        if (!m_statement) return;
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    bool prepared() const { return m_statement != nullptr; }
    void bind(int index, int64_t value) { sqlite3_bind_int64(m_statement, index, value); }
    // Copied, as callers pass temporaries; a std::string never gives a null pointer,
    // so an empty blob isn't NULL.
    void bind(int index, const std::string& bytes) {
        sqlite3_bind_blob(m_statement, index, bytes.data(), int(bytes.size()), SQLITE_TRANSIENT);
    }
    int step() { return sqlite3_step(m_statement); }
    int64_t integer(int column) { return sqlite3_column_int64(m_statement, column); }
    std::string bytes(int column) {
        const char* data = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
        return data ? std::string(data, size_t(sqlite3_column_bytes(m_statement, column))) : std::string();
    }

private:
    sqlite3_stmt* m_statement;
};

bool mayAccess(const std::string& path, int mode) {
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

std::string folderOf(const std::string& path) {
    size_t cut = path.find_last_of('/');
    if (cut == std::string::npos) return ".";
    return cut == 0 ? "/" : path.substr(0, cut);
}

// The rollback journal lives beside the file, so writing needs the folder too.
bool writableOnDisk(const std::string& file) {
    return mayAccess(file, W_OK) && mayAccess(folderOf(file), W_OK | X_OK);
}

RegistryStatus errnoStatus(int error) {
    return error == EACCES || error == EPERM || error == EROFS ? kRegistryAccessDenied : kRegistryIoError;
}

// Makes the folder of a new hive file and every missing folder above it.
RegistryStatus makeFolders(const std::string& folder) {
    struct stat st;
    if (stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? kRegistryOk : kRegistryIoError;
    if (errno != ENOENT) return errnoStatus(errno);
    if (folder != "/" && folder != ".") {
        RegistryStatus s = makeFolders(folderOf(folder));
        if (s != kRegistryOk) return s;
    }
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return errnoStatus(errno);
    return kRegistryOk;
}

std::string homeFolder() {
    const char* home = std::getenv("HOME");
    if (home && *home) return home;
    struct passwd entry;
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return {};
}

// The path configured for the hive by the rules of registry.h, before a directory
// there is told apart; empty if there is none to be had.
std::string configuredHive(RegistryHive hive) {
    const char* chosen = std::getenv(hive == RegistryHive::user ? "LUMRX_REGISTRY_USER" : "LUMRX_REGISTRY_MACHINE");
    if (chosen && *chosen) return chosen;
    if (hive == RegistryHive::machine) return "/etc/lumora/registry.db";
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && *config == '/') return std::string(config) + "/lumora/registry.db";
    std::string home = homeFolder();
    return home.empty() ? home : home + "/.config/lumora/registry.db";
}

// The hive's file for its configured path, and whether it is there (then `st` is its
// status).
std::string resolveHive(const std::string& configured, bool& present, struct stat& st) {
    std::string path = configured;
    present = !path.empty() && stat(path.c_str(), &st) == 0;
    if (present && S_ISDIR(st.st_mode)) {
        path += "/registry.db";
        present = stat(path.c_str(), &st) == 0;
    }
    return path;
}

}  // namespace

std::string hiveFilePath(RegistryHive hive) {
    bool present;
    struct stat st;
    return resolveHive(configuredHive(hive), present, st);
}

// The store of each hive file, by its path, for the file as it is (device and inode);
// and for each hive the store it was last given, which is given again without looking
// at the files while its configured path is the same and the folder watch has seen
// nothing since.
RegistryStatus HiveStore::forHive(RegistryHive hive, std::shared_ptr<HiveStore>& store) {
    struct HiveSlot {
        std::string configured;
        std::shared_ptr<HiveStore> store;
        bool watched = false;
        uint64_t events = 0;  // the watch's count when the store was chosen
    };
    static std::mutex lock;
    static std::map<std::string, std::shared_ptr<HiveStore>> stores;  // by file path
    static HiveSlot slots[2];
    std::string configured = configuredHive(hive);
    if (configured.empty()) return kRegistryIoError;
    FolderWatch& watch = FolderWatch::instance();
    std::lock_guard<std::mutex> guard(lock);
    HiveSlot& slot = slots[int(hive)];
    if (slot.watched && slot.configured == configured && watch.events() == slot.events) {
        store = slot.store;
        return kRegistryOk;
    }
    // The watch starts before the file is looked at, so that a change after the look
    // is an event; a file that moved between the two looks stays unwatched.
    bool present;
    struct stat st;
    std::string path = resolveHive(configured, present, st);
    bool watched = watch.watch(configured, path);
    uint64_t events = watch.events();
    if (resolveHive(configured, present, st) != path) watched = false;
    uint64_t device = present ? uint64_t(st.st_dev) : 0, inode = present ? uint64_t(st.st_ino) : 0;
    std::shared_ptr<HiveStore>& chosen = stores[path];
    if (!chosen || chosen->m_device != device || chosen->m_inode != inode)
        chosen = std::make_shared<HiveStore>(path, ++gGenerations);
    if (watched) chosen->m_watched = true;
    slot = HiveSlot{configured, chosen, watched, events};
    store = chosen;
    return kRegistryOk;
}

HiveStore::HiveStore(std::string path, uint64_t generation)
    : m_path(std::move(path)), m_generation(generation) {}

HiveStore::~HiveStore() {
    closeFile();
}

RegistryStatus HiveStore::connect(bool forWrite) {
    if (!m_db) {
        RegistryStatus s = openFile(forWrite);
        if (s != kRegistryOk || !m_db) return s;
    }
    if (forWrite) {
        RegistryStatus s = checkWritable();
        if (s != kRegistryOk) return s;
    }
    if (m_ready) return kRegistryOk;
    RegistryStatus s = readSchema();  // another process may have made the tables
    if (s == kRegistryOk && forWrite && !m_ready) s = makeSchema();
    return s;
}

// Permissions may change while the file is open, so each write asks again; a file
// opened for reading only is opened again once it may be written.
RegistryStatus HiveStore::checkWritable() {
    if (!writableOnDisk(m_path)) return kRegistryAccessDenied;
    if (m_writable) return kRegistryOk;
    if (m_inBatch) return kRegistryAccessDenied;
    closeFile();
    RegistryStatus s = openFile(true);
    if (s == kRegistryOk && !m_writable) s = kRegistryAccessDenied;
    return s;
}

RegistryStatus HiveStore::openFile(bool forWrite) {
    struct stat st;
    int flags;
    if (stat(m_path.c_str(), &st) != 0) {
        if (errno != ENOENT) return errnoStatus(errno);
        if (!forWrite) return kRegistryOk;  // no file yet: an empty hive
        RegistryStatus s = makeFolders(folderOf(m_path));
        if (s != kRegistryOk) return s;
        if (!mayAccess(folderOf(m_path), W_OK | X_OK)) return kRegistryAccessDenied;
        flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    } else {
        if (!S_ISREG(st.st_mode)) return kRegistryIoError;
        if (!mayAccess(m_path, R_OK)) return kRegistryAccessDenied;
        flags = writableOnDisk(m_path) ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
    }
    int rc = sqlite3_open_v2(m_path.c_str(), &m_db, flags, nullptr);
    if (rc != SQLITE_OK) {
        closeFile();
        return failure(rc);
    }
    sqlite3_busy_timeout(m_db, kBusyMilliseconds);
    RegistryStatus s = readSchema();
    if (s != kRegistryOk) {
        closeFile();
        return s;
    }
    m_writable = flags & SQLITE_OPEN_READWRITE;
    if (stat(m_path.c_str(), &st) == 0) {
        m_device = st.st_dev;
        m_inode = st.st_ino;
    }
    ++m_changes;
    uint64_t ignored;
    return changeCounter(ignored);  // the baseline of data_version
}

void HiveStore::closeFile() {
    for (auto& entry : m_statements) sqlite3_finalize(entry.second);
    m_statements.clear();
    if (m_db) sqlite3_close(m_db);
    m_db = nullptr;
    m_ready = false;
    m_dataVersion = -1;
}

// A hive carries its mark and layout; a blank database gets them with the first write.
// Anything else is no hive, and is never written.
RegistryStatus HiveStore::readSchema() {
    Query q(statement(kReadSchema));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    int rc = q.step();
    if (rc != SQLITE_ROW) return failure(rc);
    int64_t mark = q.integer(0), layout = q.integer(1), objects = q.integer(2);
    m_ready = mark == kHiveApplicationId && layout == kLayoutVersion;
    if (m_ready || (mark == 0 && layout == 0 && objects == 0)) return kRegistryOk;
    return kRegistryCorrupt;
}

RegistryStatus HiveStore::makeSchema() {
    WriteScope scope(*this);
    RegistryStatus s = scope.begin();
    if (s == kRegistryOk) s = readSchema();
    if (s == kRegistryOk && !m_ready) s = exec(kSchema);
    if (s == kRegistryOk) s = scope.commit();
    if (s == kRegistryOk) m_ready = true;
    return s;
}

RegistryStatus HiveStore::exec(const char* sql) {
    int rc = sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr);
    return rc == SQLITE_OK ? kRegistryOk : failure(rc);
}

sqlite3_stmt* HiveStore::statement(const char* sql) {
    auto found = m_statements.find(sql);
    if (found != m_statements.end()) return found->second;
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr) != SQLITE_OK)
        return nullptr;
    m_statements[sql] = prepared;
    return prepared;
}

RegistryStatus HiveStore::failure(int rc) const {
    switch (rc & 0xFF) {
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_FORMAT:
        return kRegistryCorrupt;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return kRegistryAccessDenied;
    case SQLITE_NOMEM:
        return kRegistryOutOfMemory;
    default:
        return kRegistryIoError;
    }
}

RegistryStatus HiveStore::changeCounter(uint64_t& counter) {
    return changeCounterAt(m_watched ? FolderWatch::instance().events() : 0, counter);
}

RegistryStatus HiveStore::changeCounterAfterForHive(uint64_t& counter) {
    return changeCounterAt(m_watched ? FolderWatch::instance().eventsRead() : 0, counter);
}

// data_version is asked again only when the folder watch has seen something since the
// last answer (`events` is its count, read before), or doesn't watch this file.
RegistryStatus HiveStore::changeCounterAt(uint64_t events, uint64_t& counter) {
    if (m_db && (!m_watched || m_dataVersion == -1 || events != m_versionEvents)) {
        Query q(statement(kDataVersion));
        if (!q.prepared()) return failure(sqlite3_errcode(m_db));
        int rc = q.step();
        if (rc != SQLITE_ROW) return failure(rc);
        // data_version moves only with other connections' commits; own writes count
        // in m_changes as they end.
        int64_t version = q.integer(0);
        if (m_dataVersion != -1 && version != m_dataVersion) ++m_changes;
        m_dataVersion = version;
        m_versionEvents = events;
    }
    counter = m_generation << 32 | m_changes;
    return kRegistryOk;
}

bool HiveStore::beginRead() {
    if (!m_db || !sqlite3_get_autocommit(m_db)) return false;
    Query q(statement("BEGIN"));
    return q.prepared() && q.step() == SQLITE_DONE;
}

void HiveStore::endRead() {
    Query q(statement("COMMIT"));
    if (!q.prepared() || q.step() != SQLITE_DONE) exec("ROLLBACK");
}

RegistryStatus HiveStore::beginWrite() {
    return exec(m_inBatch ? "SAVEPOINT write" : "BEGIN IMMEDIATE");
}

RegistryStatus HiveStore::endWrite(bool keep) {
    ++m_changes;
    if (m_inBatch) {
        if (!keep) exec("ROLLBACK TO write");
        return exec("RELEASE write");
    }
    RegistryStatus s = keep ? exec("COMMIT") : kRegistryOk;
    // A failed COMMIT leaves the transaction open; some errors have ended it already.
    if ((!keep || s != kRegistryOk) && !sqlite3_get_autocommit(m_db)) exec("ROLLBACK");
    return s;
}

RegistryStatus HiveStore::beginBatch() {
    if (m_inBatch) return kRegistryInvalidArgument;
    RegistryStatus s = exec("BEGIN IMMEDIATE");
    m_inBatch = s == kRegistryOk;
    return s;
}

RegistryStatus HiveStore::endBatch(bool keep) {
    m_inBatch = false;
    ++m_changes;
    if (sqlite3_get_autocommit(m_db)) return keep ? kRegistryIoError : kRegistryOk;  // lost to an error
    RegistryStatus s = keep ? exec("COMMIT") : kRegistryOk;
    if ((!keep || s != kRegistryOk) && !sqlite3_get_autocommit(m_db)) exec("ROLLBACK");
    return s;
}

RegistryStatus HiveStore::findChild(int64_t parent, const std::u16string& name, int64_t& id) {
    if (!m_ready) return kRegistryNotFound;
    Query q(statement(kFindChild));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, parent);
    q.bind(2, foldBytes(name));
    int rc = q.step();
    if (rc == SQLITE_DONE) return kRegistryNotFound;
    if (rc != SQLITE_ROW) return failure(rc);
    id = q.integer(0);
    return kRegistryOk;
}

RegistryStatus HiveStore::findKey(const std::vector<std::u16string>& names, int64_t& id) {
    uint64_t now;
    RegistryStatus s = changeCounterAfterForHive(now);
    if (s != kRegistryOk) return s;
    std::string path;
    for (const std::u16string& name : names) path += foldBytes(name) + std::string(2, '\0');
    if (m_keys.find(now, path, id)) return kRegistryOk;
    ReadScope scope(*this);
    int64_t found = kRootKey;
    for (const std::u16string& name : names) {
        s = findChild(found, name, found);
        if (s != kRegistryOk) return s;
    }
    m_keys.remember(now, path, found);
    id = found;
    return kRegistryOk;
}

RegistryStatus HiveStore::addChild(int64_t parent, const std::u16string& name, int64_t& id) {
    Query q(statement(kAddChild));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, parent);
    q.bind(2, nameBytes(name));
    q.bind(3, foldBytes(name));
    int rc = q.step();
    if (rc != SQLITE_DONE) return failure(rc);
    id = sqlite3_last_insert_rowid(m_db);
    return kRegistryOk;
}

RegistryStatus HiveStore::keyAlive(int64_t id) {
    if (id == kRootKey) return kRegistryOk;
    if (!m_ready) return kRegistryKeyDeleted;
    Query q(statement(kKeyAlive));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, id);
    int rc = q.step();
    if (rc == SQLITE_DONE) return kRegistryKeyDeleted;
    return rc == SQLITE_ROW ? kRegistryOk : failure(rc);
}

RegistryStatus HiveStore::hasChildren(int64_t id, bool& any) {
    Query q(statement(kHasChildren));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, id);
    int rc = q.step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return failure(rc);
    any = rc == SQLITE_ROW;
    return kRegistryOk;
}

RegistryStatus HiveStore::removeKey(int64_t id) {
    for (const char* sql : {kRemoveValues, kRemoveKey}) {
        Query q(statement(sql));
        if (!q.prepared()) return failure(sqlite3_errcode(m_db));
        q.bind(1, id);
        int rc = q.step();
        if (rc != SQLITE_DONE) return failure(rc);
    }
    return kRegistryOk;
}

RegistryStatus HiveStore::readValue(int64_t key, const std::u16string& name, ValueRow& row) {
    if (!m_ready) return kRegistryNotFound;
    Query q(statement(kReadValue));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, key);
    q.bind(2, foldBytes(name));
    int rc = q.step();
    if (rc == SQLITE_DONE) return kRegistryNotFound;
    if (rc != SQLITE_ROW) return failure(rc);
    row.name = nameFromBytes(q.bytes(0));
    row.type = uint32_t(q.integer(1));
    row.data = q.bytes(2);
    return kRegistryOk;
}

RegistryStatus HiveStore::writeValue(int64_t key, const ValueRow& row) {
    Query q(statement(kWriteValue));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, key);
    q.bind(2, nameBytes(row.name));
    q.bind(3, foldBytes(row.name));
    q.bind(4, int64_t(row.type));
    q.bind(5, row.data);
    int rc = q.step();
    return rc == SQLITE_DONE ? kRegistryOk : failure(rc);
}

RegistryStatus HiveStore::removeValue(int64_t key, const std::u16string& name) {
    Query q(statement(kRemoveValue));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, key);
    q.bind(2, foldBytes(name));
    int rc = q.step();
    if (rc != SQLITE_DONE) return failure(rc);
    return sqlite3_changes(m_db) ? kRegistryOk : kRegistryNotFound;
}

RegistryStatus HiveStore::keyInfo(int64_t id, RegistryKeyInfo& info) {
    info = RegistryKeyInfo();
    if (!m_ready) return kRegistryOk;
    Query keys(statement(kSubKeyInfo));
    Query values(statement(kValueInfo));
    if (!keys.prepared() || !values.prepared()) return failure(sqlite3_errcode(m_db));
    keys.bind(1, id);
    values.bind(1, id);
    int rc = keys.step();
    if (rc != SQLITE_ROW) return failure(rc);
    rc = values.step();
    if (rc != SQLITE_ROW) return failure(rc);
    info.subKeys = uint32_t(keys.integer(0));
    info.longestSubKeyName = uint32_t(keys.integer(1) / 2);
    info.values = uint32_t(values.integer(0));
    info.longestValueName = uint32_t(values.integer(1) / 2);
    info.longestValueData = uint32_t(values.integer(2));
    return kRegistryOk;
}

RegistryStatus HiveStore::listSubKeys(int64_t id, std::vector<std::u16string>& names) {
    names.clear();
    if (!m_ready) return kRegistryOk;
    Query q(statement(kListSubKeys));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, id);
    int rc;
    while ((rc = q.step()) == SQLITE_ROW) names.push_back(nameFromBytes(q.bytes(0)));
    return rc == SQLITE_DONE ? kRegistryOk : failure(rc);
}

RegistryStatus HiveStore::listValues(int64_t id, std::vector<ValueRow>& rows) {
    rows.clear();
    if (!m_ready) return kRegistryOk;
    Query q(statement(kListValues));
    if (!q.prepared()) return failure(sqlite3_errcode(m_db));
    q.bind(1, id);
    int rc;
    while ((rc = q.step()) == SQLITE_ROW)
        rows.push_back(ValueRow{nameFromBytes(q.bytes(0)), uint32_t(q.integer(1)), q.bytes(2)});
    return rc == SQLITE_DONE ? kRegistryOk : failure(rc);
}

}  // namespace lumplatform::registry_internal
