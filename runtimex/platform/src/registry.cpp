#include "lumplatform/registry.h"

#include "lumplatform/text.h"
#include "registrystore.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

namespace lumplatform {

using registry_internal::HiveStore;
using registry_internal::kRootKey;
using registry_internal::ReadScope;
using registry_internal::ValueRow;
using registry_internal::WriteScope;

namespace registry_internal {

// The state of one open key. Each snapshot serves a walk by index: the next index
// of a walk reads it as it is; any other index takes it again if the hive's change
// counter moved from the snapshot's stamp. Key info answers from snapshots taken at
// the present count too, except while a walk goes on over an older one.
template <typename Row>
struct Snapshot {
    bool taken = false;
    uint64_t stamp = 0;
    uint32_t next = 0;  // the index that continues the walk
    std::vector<Row> rows;
};

struct OpenKey {
    OpenKey(std::shared_ptr<HiveStore> s, RegistryHive h, int64_t i, bool w)
        : store(std::move(s)), hive(h), id(i), writable(w) {}

    std::shared_ptr<HiveStore> store;
    RegistryHive hive;
    int64_t id;
    bool writable;
    Snapshot<std::u16string> subKeys;
    Snapshot<ValueRow> values;
};

}  // namespace registry_internal

namespace {

using registry_internal::OpenKey;
using registry_internal::Snapshot;

std::atomic<bool> gReadOnly[2];

bool hiveReadOnly(RegistryHive hive) {
    return gReadOnly[int(hive)].load();
}

// Splits a key path at its separators; empty parts are skipped.
RegistryStatus splitPath(const char16_t* path, std::vector<std::u16string>& names) {
    names.clear();
    std::u16string name;
    for (const char16_t* p = path ? path : u""; ; ++p) {
        if (*p != u'\\' && *p != 0) {
            if (name.size() == kRegistryMaxKeyName) return kRegistryInvalidArgument;
            name.push_back(*p);
            continue;
        }
        if (!name.empty()) {
            if (names.size() == kRegistryMaxKeyDepth) return kRegistryInvalidArgument;
            names.push_back(std::move(name));
            name.clear();
        }
        if (*p == 0) return kRegistryOk;
    }
}

// A null value name is the empty one.
RegistryStatus valueName(const char16_t* text, std::u16string& name) {
    name.clear();
    for (const char16_t* p = text ? text : u""; *p; ++p) {
        if (name.size() == kRegistryMaxValueName) return kRegistryInvalidArgument;
        name.push_back(*p);
    }
    return kRegistryOk;
}

// The row a write stores: a text as whole units ending in one zero unit, a number as
// its 4 bytes.
RegistryStatus valueRow(const char16_t* name, uint32_t type, const void* data, uint32_t size, ValueRow& row) {
    RegistryStatus s = valueName(name, row.name);
    if (s != kRegistryOk) return s;
    if (size > kRegistryMaxValueSize || (size && !data)) return kRegistryInvalidArgument;
    if (type == kRegistryNumber && size != 4) return kRegistryInvalidArgument;
    if (type == kRegistryString && size % 2) return kRegistryInvalidArgument;
    if (type != kRegistryNumber && type != kRegistryString) return kRegistryInvalidArgument;
    row.type = type;
    row.data.assign(static_cast<const char*>(data), size);
    bool terminated = size >= 2 && row.data[size - 1] == 0 && row.data[size - 2] == 0;
    if (type == kRegistryString && !terminated) row.data.append(2, '\0');
    return kRegistryOk;
}

// Hands out data by the buffer rule of registry.h.
RegistryStatus giveData(const ValueRow& row, uint32_t* type, void* data, uint32_t* size) {
    if (data && !size) return kRegistryInvalidArgument;
    if (type) *type = row.type;
    if (!size) return kRegistryOk;
    uint32_t needed = uint32_t(row.data.size());
    bool fits = *size >= needed;
    *size = needed;
    if (!data) return kRegistryOk;
    if (!fits) return kRegistryMoreData;
    std::memcpy(data, row.data.data(), needed);
    return kRegistryOk;
}

// Hands out a name by the buffer rule of registry.h.
RegistryStatus giveName(const std::u16string& text, char16_t* name, uint32_t* length) {
    if (!length) return kRegistryInvalidArgument;
    bool fits = name && *length > text.size();
    *length = uint32_t(text.size());
    if (!fits) return kRegistryMoreData;
    std::memcpy(name, text.data(), text.size() * sizeof(char16_t));
    name[text.size()] = 0;
    return kRegistryOk;
}

// Walks `names` down from the key `id`.
RegistryStatus findPath(HiveStore& store, int64_t id, const std::vector<std::u16string>& names, int64_t& found) {
    for (const std::u16string& name : names) {
        RegistryStatus s = store.findChild(id, name, id);
        if (s != kRegistryOk) return s;
    }
    found = id;
    return kRegistryOk;
}

// The same walk, making every missing key; inside a write transaction.
RegistryStatus makePath(HiveStore& store, const std::vector<std::u16string>& names, int64_t& found) {
    int64_t id = kRootKey;
    for (const std::u16string& name : names) {
        RegistryStatus s = store.findChild(id, name, id);
        if (s == kRegistryNotFound) s = store.addChild(id, name, id);
        if (s != kRegistryOk) return s;
    }
    found = id;
    return kRegistryOk;
}

// The store of a key about to be written, connected for writing.
RegistryStatus writableStore(OpenKey* key) {
    if (!key) return kRegistryInvalidHandle;
    if (!key->writable || hiveReadOnly(key->hive)) return kRegistryAccessDenied;
    return key->store->connect(true);
}

// Runs `change` on a key open for writing and still alive, as one transaction:
// nothing of it stays when any step fails.
template <class Change>
RegistryStatus changeKey(OpenKey* key, Change change) {
    RegistryStatus s = writableStore(key);
    if (s != kRegistryOk) return s;
    HiveStore& store = *key->store;
    WriteScope scope(store);
    s = scope.begin();
    if (s == kRegistryOk) s = store.keyAlive(key->id);
    if (s == kRegistryOk) s = change(store);
    return s == kRegistryOk ? scope.commit() : s;
}

RegistryStatus readableStore(OpenKey* key) {
    if (!key) return kRegistryInvalidHandle;
    return key->store->connect(false);
}

// Makes a snapshot show the key at the change count `now`; inside a read scope.
template <typename Row, typename Load>
RegistryStatus takeAt(OpenKey& key, Snapshot<Row>& snapshot, uint64_t now, Load load) {
    if (snapshot.taken && snapshot.stamp == now) return kRegistryOk;
    snapshot.taken = false;
    RegistryStatus s = key.store->keyAlive(key.id);
    if (s == kRegistryOk) s = load(snapshot.rows);
    if (s != kRegistryOk) return s;
    snapshot.taken = true;
    snapshot.stamp = now;
    return kRegistryOk;
}

// Makes a snapshot fit to answer `index`, by the rule of OpenKey.
template <typename Row, typename Load>
RegistryStatus refresh(OpenKey& key, Snapshot<Row>& snapshot, uint32_t index, Load load) {
    if (snapshot.taken && index == snapshot.next && index > 0) return kRegistryOk;
    ReadScope scope(*key.store);
    uint64_t now;
    RegistryStatus s = key.store->changeCounter(now);
    return s == kRegistryOk ? takeAt(key, snapshot, now, load) : s;
}

// A walk under way on a snapshot older than `now`: it must go on seeing that one.
template <typename Row>
bool walkOnOlder(const Snapshot<Row>& snapshot, uint64_t now) {
    return snapshot.taken && snapshot.next > 0 && snapshot.stamp != now;
}

}  // namespace

RegistryKey::RegistryKey() = default;
RegistryKey::~RegistryKey() = default;
RegistryKey::RegistryKey(RegistryKey&& other) noexcept = default;
RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept = default;

RegistryStatus RegistryKey::open(RegistryHive hive, const char16_t* path, RegistryAccess access) {
    close();
    bool write = access == RegistryAccess::write;
    std::vector<std::u16string> names;
    RegistryStatus s = splitPath(path, names);
    if (s != kRegistryOk) return s;
    if (write && hiveReadOnly(hive)) return kRegistryAccessDenied;
    std::shared_ptr<HiveStore> store;
    s = HiveStore::forHive(hive, store);
    if (s == kRegistryOk) s = store->connect(write);
    if (s != kRegistryOk) return s;
    int64_t id = kRootKey;
    s = store->findKey(names, id);
    if (s != kRegistryOk) return s;
    m_key.reset(new OpenKey{store, hive, id, write});
    return kRegistryOk;
}

RegistryStatus RegistryKey::create(RegistryHive hive, const char16_t* path) {
    close();
    std::vector<std::u16string> names;
    RegistryStatus s = splitPath(path, names);
    if (s != kRegistryOk) return s;
    if (hiveReadOnly(hive)) return kRegistryAccessDenied;
    std::shared_ptr<HiveStore> store;
    s = HiveStore::forHive(hive, store);
    if (s == kRegistryOk) s = store->connect(true);
    if (s != kRegistryOk) return s;
    WriteScope scope(*store);
    s = scope.begin();
    int64_t id = kRootKey;
    if (s == kRegistryOk) s = makePath(*store, names, id);
    if (s == kRegistryOk) s = scope.commit();
    if (s != kRegistryOk) return s;
    m_key.reset(new OpenKey{store, hive, id, true});
    return kRegistryOk;
}

void RegistryKey::close() {
    m_key.reset();
}

bool RegistryKey::isOpen() const {
    return m_key != nullptr;
}

RegistryStatus RegistryKey::readValue(const char16_t* name, uint32_t* type, void* data, uint32_t* size) {
    std::u16string wanted;
    RegistryStatus s = readableStore(m_key.get());
    if (s == kRegistryOk) s = valueName(name, wanted);
    if (s != kRegistryOk) return s;
    ValueRow row;
    ReadScope scope(*m_key->store);
    s = m_key->store->readValue(m_key->id, wanted, row);
    if (s == kRegistryNotFound && m_key->store->keyAlive(m_key->id) == kRegistryKeyDeleted) return kRegistryKeyDeleted;
    if (s != kRegistryOk) return s;
    return giveData(row, type, data, size);
}

RegistryStatus RegistryKey::writeValue(const char16_t* name, uint32_t type, const void* data, uint32_t size) {
    ValueRow row;
    RegistryStatus s = valueRow(name, type, data, size, row);
    if (s != kRegistryOk) return s;
    int64_t id = m_key ? m_key->id : 0;
    return changeKey(m_key.get(), [&](HiveStore& store) { return store.writeValue(id, row); });
}

RegistryStatus RegistryKey::deleteValue(const char16_t* name) {
    std::u16string wanted;
    RegistryStatus s = valueName(name, wanted);
    if (s != kRegistryOk) return s;
    int64_t id = m_key ? m_key->id : 0;
    return changeKey(m_key.get(), [&](HiveStore& store) { return store.removeValue(id, wanted); });
}

RegistryStatus RegistryKey::deleteSubKey(const char16_t* path) {
    std::vector<std::u16string> names;
    RegistryStatus s = splitPath(path, names);
    if (s == kRegistryOk && names.empty()) s = kRegistryInvalidArgument;
    if (s != kRegistryOk) return s;
    int64_t id = m_key ? m_key->id : 0;
    return changeKey(m_key.get(), [&](HiveStore& store) {
        int64_t doomed = kRootKey;
        RegistryStatus r = findPath(store, id, names, doomed);
        bool hasSubKeys = false;
        if (r == kRegistryOk) r = store.hasChildren(doomed, hasSubKeys);
        if (r == kRegistryOk && hasSubKeys) r = kRegistryAccessDenied;
        if (r == kRegistryOk) r = store.removeKey(doomed);
        return r;
    });
}

RegistryStatus RegistryKey::info(RegistryKeyInfo& info) {
    RegistryStatus s = readableStore(m_key.get());
    if (s != kRegistryOk) return s;
    OpenKey& key = *m_key;
    ReadScope scope(*key.store);
    uint64_t now;
    s = key.store->changeCounter(now);
    if (s == kRegistryOk) s = key.store->keyAlive(key.id);
    if (s != kRegistryOk) return s;
    if (walkOnOlder(key.subKeys, now) || walkOnOlder(key.values, now)) return key.store->keyInfo(key.id, info);
    // The snapshots answer, so that the walks that usually follow find them taken.
    s = takeAt(key, key.subKeys, now, [&](std::vector<std::u16string>& rows) { return key.store->listSubKeys(key.id, rows); });
    if (s == kRegistryOk)
        s = takeAt(key, key.values, now, [&](std::vector<ValueRow>& rows) { return key.store->listValues(key.id, rows); });
    if (s != kRegistryOk) return s;
    info = RegistryKeyInfo();
    info.subKeys = uint32_t(key.subKeys.rows.size());
    for (const std::u16string& name : key.subKeys.rows)
        info.longestSubKeyName = std::max(info.longestSubKeyName, uint32_t(name.size()));
    info.values = uint32_t(key.values.rows.size());
    for (const ValueRow& row : key.values.rows) {
        info.longestValueName = std::max(info.longestValueName, uint32_t(row.name.size()));
        info.longestValueData = std::max(info.longestValueData, uint32_t(row.data.size()));
    }
    return kRegistryOk;
}

RegistryStatus RegistryKey::subKeyAt(uint32_t index, char16_t* name, uint32_t* length) {
    RegistryStatus s = readableStore(m_key.get());
    if (s != kRegistryOk) return s;
    OpenKey& key = *m_key;
    s = refresh(key, key.subKeys, index,
                [&](std::vector<std::u16string>& rows) { return key.store->listSubKeys(key.id, rows); });
    if (s != kRegistryOk) return s;
    if (index >= key.subKeys.rows.size()) return kRegistryNoMoreItems;
    s = giveName(key.subKeys.rows[index], name, length);
    if (s == kRegistryOk) key.subKeys.next = index + 1;
    return s;
}

RegistryStatus RegistryKey::valueAt(uint32_t index, char16_t* name, uint32_t* nameLength,
                                    uint32_t* type, void* data, uint32_t* size) {
    RegistryStatus s = readableStore(m_key.get());
    if (s != kRegistryOk) return s;
    OpenKey& key = *m_key;
    s = refresh(key, key.values, index,
                [&](std::vector<ValueRow>& rows) { return key.store->listValues(key.id, rows); });
    if (s != kRegistryOk) return s;
    if (index >= key.values.rows.size()) return kRegistryNoMoreItems;
    if (!nameLength || (data && !size)) return kRegistryInvalidArgument;
    // Both sizes are reported when either buffer is short, and nothing is copied.
    const ValueRow& row = key.values.rows[index];
    uint32_t nameRoom = *nameLength, dataRoom = size ? *size : 0;
    bool nameFits = name && nameRoom > row.name.size();
    bool dataFits = !data || dataRoom >= row.data.size();
    if (!nameFits || !dataFits) {
        *nameLength = uint32_t(row.name.size());
        if (size) *size = uint32_t(row.data.size());
        return kRegistryMoreData;
    }
    giveName(row.name, name, nameLength);
    key.values.next = index + 1;
    return giveData(row, type, data, size);
}

RegistryBatch::RegistryBatch() = default;

RegistryBatch::~RegistryBatch() {
    if (m_store) m_store->endBatch(false);
}

RegistryStatus RegistryBatch::begin(RegistryHive hive) {
    if (m_store) return kRegistryInvalidArgument;
    if (hiveReadOnly(hive)) return kRegistryAccessDenied;
    std::shared_ptr<HiveStore> store;
    RegistryStatus s = HiveStore::forHive(hive, store);
    if (s == kRegistryOk) s = store->connect(true);
    if (s == kRegistryOk) s = store->beginBatch();
    if (s == kRegistryOk) m_store = std::move(store);
    return s;
}

RegistryStatus RegistryBatch::commit() {
    if (!m_store) return kRegistryInvalidHandle;
    std::shared_ptr<HiveStore> store = std::move(m_store);
    m_store.reset();
    return store->endBatch(true);
}

RegistryStatus registryChangeCounter(RegistryHive hive, uint64_t& counter) {
    std::shared_ptr<HiveStore> store;
    RegistryStatus s = HiveStore::forHive(hive, store);
    if (s == kRegistryOk) s = store->connect(false);
    if (s == kRegistryOk) s = store->changeCounterAfterForHive(counter);
    return s;
}

void setRegistryHiveReadOnly(RegistryHive hive, bool readOnly) {
    gReadOnly[int(hive)] = readOnly;
}

std::u16string registryHivePath(RegistryHive hive) {
    return fromUtf8(registry_internal::hiveFilePath(hive));
}

}  // namespace lumplatform
