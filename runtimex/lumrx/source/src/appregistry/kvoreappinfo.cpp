// KvoreAppInfo and its registry work. Key layout under the product key:
//   Applications\<appName>  LOADCTRLS (number), LOADER, DESCRIPTION (texts), MANAGED
//   Applications\<appName>\Groups, ...\Commands  one text value per group or command
#include "appregistry/kvoreappinfoimp.h"

#include "kvdbhostappservices.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumosbase.h"

#include <cstdarg>

using lumplatform::RegistryHive;
using lumplatform::RegistryKey;
using lumplatform::RegistryStatus;

KVRX_DEFINE_MEMBERS(KvoreAppInfo, u"OvmarkAppInfo", u"OvRxObject");

namespace {

constexpr int kPathUnits = 260;
constexpr RegistryHive kHives[] = {RegistryHive::user, RegistryHive::machine};

const char16_t* productKey() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    const char16_t* key = host ? host->productRegistryKey() : nullptr;
    return key ? key : u"";
}

// Formats a key path; false if it doesn't fit the path buffer.
bool composeKey(char16_t (&out)[kPathUnits], const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    va_list counting;
    va_copy(counting, args);
    int needed = LumCharOp::formattedLength(format, counting);
    va_end(counting);
    bool fits = needed >= 0 && needed < kPathUnits;
    if (fits) LumCharOp::format(out, format, args);
    va_end(args);
    return fits;
}

KvoreApp::ErrorStatus writeFailure(RegistryStatus status) {
    return status == lumplatform::kRegistryAccessDenied ? KvoreApp::eAccessDenied
                                                       : KvoreApp::eRegistryError;
}

// A text value read into a buffer of 260 units, or into a larger block (zalloc) when it
// doesn't fit. Owns the larger block.
class ValueText {
public:
    ValueText() = default;
    ~ValueText() { LumCharOp::zfree(m_large); }
    ValueText(const ValueText&) = delete;
    ValueText& operator=(const ValueText&) = delete;

    // The registry's status; kRegistryOutOfMemory when the larger block can't be had.
    RegistryStatus read(RegistryKey& key, const char16_t* name) {
        uint32_t size = sizeof m_small;
        RegistryStatus status = key.readValue(name, &m_type, m_small, &size);
        if (status != lumplatform::kRegistryMoreData) return status;
        m_large = static_cast<char16_t*>(LumCharOp::zalloc(size + 4));
        if (!m_large) return lumplatform::kRegistryOutOfMemory;
        size += 4;
        return key.readValue(name, &m_type, m_large, &size);
    }
    bool isText() const { return m_type == lumplatform::kRegistryString; }
    const char16_t* text() const { return m_large ? m_large : m_small; }

private:
    char16_t m_small[kPathUnits] = {};
    char16_t* m_large = nullptr;
    uint32_t m_type = 0;
};

// A delete of a key that is in neither hive gives 3, as a read of it does.
KvoreApp::ErrorStatus deleteFailure(RegistryStatus status) {
    return status == lumplatform::kRegistryNotFound ? KvoreApp::eKeyNotFound : writeFailure(status);
}

// Whether `name` is a value's name, or the text of its data before the first ','.
// Value names of 128 units and more are skipped.
bool valuesMatch(RegistryKey& key, const lumplatform::RegistryKeyInfo& info, const char16_t* name) {
    auto* data = static_cast<char16_t*>(LumCharOp::zalloc(info.longestValueData + 2));
    if (!data) return false;
    bool found = false;
    for (uint32_t i = 0; !found && i < info.values; ++i) {
        char16_t valueName[128];
        uint32_t nameLength = 128, type = 0, size = info.longestValueData + 2;
        if (key.valueAt(i, valueName, &nameLength, &type, data, &size) != lumplatform::kRegistryOk ||
            type != lumplatform::kRegistryString)
            continue;
        data[size / sizeof(char16_t)] = 0;
        char16_t* comma = data;
        while (*comma && *comma != u',') ++comma;
        *comma = 0;
        found = LumCharOp::compareNoCase(name, valueName) == 0 || LumCharOp::compareNoCase(name, data) == 0;
    }
    LumCharOp::zfree(data);
    return found;
}

RegistryStatus writeText(RegistryKey& key, const char16_t* name, const char16_t* text) {
    return key.writeValue(name, lumplatform::kRegistryString, text,
                          (LumCharOp::length(text) + 1) * sizeof(char16_t));
}

RegistryStatus writeNumber(RegistryKey& key, const char16_t* name, uint32_t number) {
    return key.writeValue(name, lumplatform::kRegistryNumber, &number, sizeof number);
}

}  // namespace

char16_t* kvoreDupText(const char16_t* text) {
    if (!text) return nullptr;
    unsigned length = LumCharOp::length(text);
    auto* copy = static_cast<char16_t*>(LumCharOp::zalloc((length + 1) * sizeof(char16_t)));
    if (copy) LumCharOp::copy(copy, text, length);
    return copy;
}

KvoreAppInfoImp::~KvoreAppInfoImp() {
    LumCharOp::zfree(appName);
    LumCharOp::zfree(moduleName);
    LumCharOp::zfree(appDesc);
}

void KvoreAppInfoImp::setAppName(const char16_t* name) {
    hiveIndex = 2;
    LumCharOp::zfree(appName);
    appName = nullptr;
    if (!name) return;
    if (*name == u'"') ++name;
    appName = kvoreDupText(name);
    unsigned length = LumCharOp::length(appName);
    if (length && appName[length - 1] == u'"') appName[length - 1] = 0;
}

void KvoreAppInfoImp::setModuleName(const char16_t* name) {
    LumCharOp::zfree(moduleName);
    moduleName = nullptr;
    if (!name) return;
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (!host || !host->isRemoteName(name)) {
        moduleName = kvoreDupText(name);
        return;
    }
    char16_t local[kPathUnits] = {};
    int result = host->fetchRemoteFile(name, local, kPathUnits, 0);
    if (result == 20000 || result == 20001) moduleName = kvoreDupText(local);
}

void KvoreAppInfoImp::setAppDesc(const char16_t* desc) {
    LumCharOp::zfree(appDesc);
    appDesc = kvoreDupText(desc);
}

KvoreApp::ErrorStatus KvoreAppInfoImp::writeToRegistry() {
    if (!hasAppName()) return KvoreApp::eNoAppName;
    char16_t path[kPathUnits];
    if (!composeKey(path, u"%s\\%s\\%s", productKey(), u"Applications", appName))
        return KvoreApp::eRegistryError;
    hiveIndex = 1;
    bool refused = false;
    KvoreApp::ErrorStatus status = writeValues(RegistryHive::machine, path, refused);
    if (!refused) return status;

    // The machine hive can't be written: a machine record that says the same will do.
    switch (compareMachineRecord(path)) {
    case MachineRecord::same:
        return KvoreApp::eOk;
    case MachineRecord::noMemory:
        return KvoreApp::eOutOfMemory;
    case MachineRecord::differs:
        break;
    }
    hiveIndex = 0;
    status = writeValues(RegistryHive::user, path, refused);
    return refused ? KvoreApp::eRegistryError : status;
}

// The whole record lands in one transaction, or nothing of it does. `refused` tells
// that the hive refused the key itself.
KvoreApp::ErrorStatus KvoreAppInfoImp::writeValues(RegistryHive hive, const char16_t* path,
                                                  bool& refused) {
    lumplatform::RegistryBatch batch;
    RegistryKey key;
    RegistryStatus status = batch.begin(hive);
    if (status == lumplatform::kRegistryOk) status = key.create(hive, path);
    refused = status == lumplatform::kRegistryAccessDenied;
    if (status != lumplatform::kRegistryOk) return KvoreApp::eRegistryError;
    status = writeNumber(key, u"LOADCTRLS", loadReason);
    if (status == lumplatform::kRegistryOk && moduleName) status = writeText(key, u"LOADER", moduleName);
    if (status == lumplatform::kRegistryOk && appDesc) status = writeText(key, u"DESCRIPTION", appDesc);
    if (status == lumplatform::kRegistryOk && managed) status = writeNumber(key, u"MANAGED", uint32_t(managed));
    key.close();
    if (status == lumplatform::kRegistryOk) status = batch.commit();
    return status == lumplatform::kRegistryOk ? KvoreApp::eOk : writeFailure(status);
}

KvoreAppInfoImp::MachineRecord KvoreAppInfoImp::compareMachineRecord(const char16_t* path) const {
    RegistryKey key;
    if (key.open(RegistryHive::machine, path, lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk)
        return MachineRecord::differs;
    uint32_t type = 0, reason = 0, size = sizeof reason;
    if (key.readValue(u"LOADCTRLS", &type, &reason, &size) != lumplatform::kRegistryOk ||
        type != lumplatform::kRegistryNumber || reason != loadReason)
        return MachineRecord::differs;
    ValueText loader;
    RegistryStatus status = loader.read(key, u"LOADER");
    if (status == lumplatform::kRegistryOutOfMemory) return MachineRecord::noMemory;
    bool same = status == lumplatform::kRegistryOk && loader.isText() && moduleName &&
                LumCharOp::compareNoCase(loader.text(), moduleName) == 0;
    return same ? MachineRecord::same : MachineRecord::differs;
}

KvoreApp::ErrorStatus KvoreAppInfoImp::readFromRegistry() {
    if (!hasAppName()) return status = KvoreApp::eNoAppName;
    for (RegistryHive hive : kHives) {
        RegistryKey key;
        if (!openRecord(hive, key)) {
            if (hive == RegistryHive::user) continue;
            return status = KvoreApp::eKeyNotFound;
        }
        KvoreApp::ErrorStatus result = KvoreApp::eOk;
        if (readRecord(key, result)) return status = result;
    }
    return status = KvoreApp::eNoRecord;
}

// The record's key under the product key, else under the engine key. Hosts with
// product code 4 use the engine key only.
bool KvoreAppInfoImp::openRecord(RegistryHive hive, RegistryKey& key) const {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    char16_t path[kPathUnits];
    if (host && host->productCode() != 4 &&
        composeKey(path, u"%s\\%s\\%s", productKey(), u"Applications", appName) &&
        key.open(hive, path, lumplatform::RegistryAccess::read) == lumplatform::kRegistryOk)
        return true;
    return composeKey(path, u"%s\\%s\\%s", kvrxDatumVaultRegistryKey(), u"Applications", appName) &&
           key.open(hive, path, lumplatform::RegistryAccess::read) == lumplatform::kRegistryOk;
}

// False if the key holds no usable record, so that the next hive is tried; true when
// the hive is settled, with the read's status in `result`.
bool KvoreAppInfoImp::readRecord(RegistryKey& key, KvoreApp::ErrorStatus& result) {
    uint32_t type = 0, reason = 0, size = sizeof reason;
    if (key.readValue(u"LOADCTRLS", &type, &reason, &size) != lumplatform::kRegistryOk ||
        type != lumplatform::kRegistryNumber)
        return false;
    loadReason = reason;
    ValueText loader;
    RegistryStatus read = loader.read(key, u"LOADER");
    if (read == lumplatform::kRegistryOutOfMemory) return (result = KvoreApp::eOutOfMemory), true;
    if (read != lumplatform::kRegistryOk || !loader.isText()) {
        loadReason = 0;
        return false;
    }
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    char16_t found[kPathUnits] = {};
    bool located = host && host->findFile(found, kPathUnits, loader.text(), nullptr, 7) == 0;
    setModuleName(located ? found : loader.text());

    ValueText desc;
    read = desc.read(key, u"DESCRIPTION");
    if (read == lumplatform::kRegistryOutOfMemory) return (result = KvoreApp::eOutOfMemory), true;
    if (read == lumplatform::kRegistryOk && desc.isText()) setAppDesc(desc.text());

    uint32_t managedValue = 0;
    size = sizeof managedValue;
    managed = 0;
    if (key.readValue(u"MANAGED", &type, &managedValue, &size) == lumplatform::kRegistryOk)
        managed = KvoreAppInfo::MgdType(managedValue);
    appLoader = nullptr;
    result = KvoreApp::eOk;
    return true;
}

KvoreApp::ErrorStatus KvoreAppInfoImp::delFromRegistry() {
    if (!hasAppName()) return KvoreApp::eNoAppName;
    char16_t parent[kPathUnits];
    if (!composeKey(parent, u"%s\\%s", productKey(), u"Applications")) return KvoreApp::eRegistryError;
    bool deleted = false;
    RegistryStatus failure = lumplatform::kRegistryNotFound;
    for (RegistryHive hive : kHives) {
        RegistryKey key;
        RegistryStatus status = key.open(hive, parent, lumplatform::RegistryAccess::write);
        if (status != lumplatform::kRegistryOk) {
            if (hive == RegistryHive::user) continue;
            return deleted ? KvoreApp::eOk : deleteFailure(status);
        }
        status = key.deleteSubKey(appName);
        if (status == lumplatform::kRegistryOk) deleted = true;
        else failure = status;
    }
    return deleted ? KvoreApp::eOk : deleteFailure(failure);
}

KvoreApp::ErrorStatus KvoreAppInfoImp::writeNameListValue(const char16_t* section, const char16_t* name,
                                                         const char16_t* value) {
    if (!hasAppName()) return KvoreApp::eNoAppName;
    if (hiveIndex == 2) return KvoreApp::eNoHive;
    char16_t path[kPathUnits];
    if (!composeKey(path, u"%s\\%s\\%s\\%s", productKey(), u"Applications", appName, section))
        return KvoreApp::eRegistryError;
    RegistryKey key;
    RegistryStatus status = key.create(kHives[hiveIndex], path);
    if (status == lumplatform::kRegistryOk) status = writeText(key, name ? name : u"", value ? value : u"");
    return status == lumplatform::kRegistryOk ? KvoreApp::eOk : writeFailure(status);
}

bool KvoreAppInfoImp::nameListHas(const char16_t* section, const char16_t* name) const {
    char16_t path[kPathUnits];
    if (!composeKey(path, u"%s\\%s\\%s\\%s", productKey(), u"Applications", appName, section))
        return false;
    for (RegistryHive hive : kHives) {
        RegistryKey key;
        lumplatform::RegistryKeyInfo info;
        if (key.open(hive, path, lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk ||
            key.info(info) != lumplatform::kRegistryOk || info.values == 0)
            continue;
        if (valuesMatch(key, info, name)) return true;
    }
    return false;
}

KvoreAppInfo::CmdStatus KvoreAppInfoImp::runAppLoader() {
    if (appLoader) return appLoader(this);
    if (!moduleName) return KvoreAppInfo::kNotLoaded;
    KvRxDictionary* registry = kvrxSysRegistry();
    auto* linker = registry ? KvRxDynamicLinkerImp::cast(registry->at(u"DynamicLinker")) : nullptr;
    if (linker && linker->loadAppFromInfo(owner, KvoreApp::kOnCommand, false, true))
        return KvoreAppInfo::kLoaded;
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    char16_t found[kPathUnits] = {};
    if (host && host->findFile(found, kPathUnits, moduleName, nullptr, 7) != 0)
        return KvoreAppInfo::kModuleNotFound;
    return KvoreAppInfo::kNotLoaded;
}

KvoreAppInfo::KvoreAppInfo() : m_imp(new KvoreAppInfoImp(this)) {}
KvoreAppInfo::~KvoreAppInfo() { delete m_imp; }
const char16_t* KvoreAppInfo::appName() const { return m_imp->appName; }
const char16_t* KvoreAppInfo::moduleName() const { return m_imp->moduleName; }
const char16_t* KvoreAppInfo::appDesc() const { return m_imp->appDesc; }
void KvoreAppInfo::setAppName(const char16_t* name) { m_imp->setAppName(name); }
void KvoreAppInfo::setModuleName(const char16_t* name) { m_imp->setModuleName(name); }
void KvoreAppInfo::setAppDesc(const char16_t* desc) { m_imp->setAppDesc(desc); }
KvoreAppInfo::MgdType KvoreAppInfo::managed() const { return m_imp->managed; }
void KvoreAppInfo::setManaged(MgdType managed) { m_imp->managed = managed; }
KvoreApp::LoadReasons KvoreAppInfo::loadReason() const { return m_imp->loadReason; }
void KvoreAppInfo::setLoadReason(KvoreApp::LoadReasons reason) { m_imp->loadReason = reason; }
KvoreApp::ErrorStatus KvoreAppInfo::status() const { return m_imp->status; }
void KvoreAppInfo::setAppLoader(AppLoader loader) { m_imp->appLoader = loader; }
KvoreAppInfo::CmdStatus KvoreAppInfo::runAppLoader() { return m_imp->runAppLoader(); }
KvoreApp::ErrorStatus KvoreAppInfo::writeToRegistry() { return m_imp->writeToRegistry(); }
KvoreApp::ErrorStatus KvoreAppInfo::readFromRegistry() { return m_imp->readFromRegistry(); }
KvoreApp::ErrorStatus KvoreAppInfo::readFromRegistry(ReadFlags) { return KvoreApp::eNoAppName; }
KvoreApp::ErrorStatus KvoreAppInfo::delFromRegistry() { return m_imp->delFromRegistry(); }

KvoreApp::ErrorStatus KvoreAppInfo::writeGroupNameToRegistry(const char16_t* groupName) {
    return m_imp->writeNameListValue(u"Groups", groupName, groupName);
}

KvoreApp::ErrorStatus KvoreAppInfo::writeCommandNameToRegistry(const char16_t* name, const char16_t* value) {
    return m_imp->writeNameListValue(u"Commands", name, value);
}

// A group before the first '.', when there is one, and the command after it.
bool KvoreAppInfo::appImplements(const char16_t* name) const {
    if (!name || m_imp->status != KvoreApp::eOk || !m_imp->hasAppName()) return false;
    const char16_t* dot = name;
    while (*dot && *dot != u'.') ++dot;
    if (!*dot) return m_imp->nameListHas(u"Commands", name);
    if (dot > name) {
        char16_t* group = kvoreDupText(name);
        if (group) group[dot - name] = 0;
        bool found = group && m_imp->nameListHas(u"Groups", group);
        LumCharOp::zfree(group);
        if (found) return true;
    }
    return m_imp->nameListHas(u"Commands", dot + 1);
}
