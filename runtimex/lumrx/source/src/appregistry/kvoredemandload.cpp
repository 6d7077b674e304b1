// Demand-load lists: the scan of the "Applications" keys of both hives into the tree
// of records, its refresh, the change watch on each hive, and the five functions the
// host calls.
//
// The watch is a poll of the hive's change counter, made by the host: no thread, no
// waiting. A watch is armed on a hive when the hive has the records' parent key and
// the counter has been taken; a poll that finds the counter moved reports a change and
// disarms the watch, which is armed again at the next poll. A change between those two
// polls is therefore not reported by this watch. Each hive also has a pending-change
// flag, set at set-up, so that the first poll after it counts every hive it can arm
// as changed.
//
// Module state (one set per process): gRegisterStack owns the tree; the watches hold
// no resources.
#include "appregistry/kvoreappinfoimp.h"
#include "appregistry/kvoreregisterkrxstack.h"

#include "kvdbhostappservices.h"
#include "kvrxcollection.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxruntime.h"
#include "lumosbase.h"

#include <memory>
#include <string>
#include <vector>

using lumplatform::RegistryHive;
using lumplatform::RegistryKey;
using lumplatform::RegistryKeyInfo;

namespace {

constexpr size_t kPathUnits = 260;     // a key path with its terminator
constexpr uint32_t kValueNameUnits = 128;  // a value name with its terminator
constexpr RegistryHive kHives[] = {RegistryHive::user, RegistryHive::machine};
constexpr int kHiveCount = 2;

struct HiveWatch {
    bool live = false;     // between set-up and tear-down
    bool pending = false;  // a change waits for the next poll
    bool armed = false;
    uint64_t counter = 0;  // the hive's change counter when armed
};

KvoreRegisterKrxStack* gRegisterStack = nullptr;
HiveWatch gWatches[kHiveCount];

bool keyFits(const std::u16string& path) { return path.size() < kPathUnits; }

// Opens the records' parent key, "<product key>\Applications", unless there is no host
// or its product code is 4; failing that the one under the engine key. `path` receives
// the path of the key opened.
bool openRecordsParent(RegistryHive hive, RegistryKey& key, std::u16string& path) {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    if (host && host->productCode() != 4) {
        const char16_t* product = kvrxProductKey();
        path = std::u16string(product ? product : u"") + u"\\Applications";
        if (keyFits(path) && key.open(hive, path.c_str(), lumplatform::RegistryAccess::read) == lumplatform::kRegistryOk)
            return true;
    }
    path = std::u16string(kvrxDatumVaultRegistryKey()) + u"\\Applications";
    return keyFits(path) && key.open(hive, path.c_str(), lumplatform::RegistryAccess::read) == lumplatform::kRegistryOk;
}

// A value of a record's "Groups" or "Commands" key: a non-empty text whose name fits
// 127 units. Others are left out.
struct TextValue {
    std::u16string name;
    std::u16string data;
};

std::vector<TextValue> textValues(RegistryKey& key, const RegistryKeyInfo& info) {
    std::vector<TextValue> texts;
    std::vector<char16_t> data(info.longestValueData / 2 + 2);
    for (uint32_t i = 0;; ++i) {
        char16_t name[kValueNameUnits];
        uint32_t nameLength = kValueNameUnits, type = 0;
        uint32_t size = uint32_t(data.size() - 1) * sizeof(char16_t);
        lumplatform::RegistryStatus status = key.valueAt(i, name, &nameLength, &type, data.data(), &size);
        if (status == lumplatform::kRegistryMoreData) continue;  // name too long, or grown meanwhile
        if (status != lumplatform::kRegistryOk) break;
        data[size / sizeof(char16_t)] = 0;
        if (type == lumplatform::kRegistryString && data[0])
            texts.push_back(TextValue{std::u16string(name, nameLength), std::u16string(data.data())});
    }
    return texts;
}

using RecordPtr = std::unique_ptr<KvoreRegisterKrxInfo>;

// Records found by a scan, until the tree takes them. Owns the records it holds.
class ScannedRecords {
public:
    ScannedRecords() : m_records(0, 8) {}
    ~ScannedRecords() {
        for (int i = 0; i < m_records.length(); ++i) delete m_records[i];
    }
    ScannedRecords(const ScannedRecords&) = delete;
    ScannedRecords& operator=(const ScannedRecords&) = delete;

    void add(RecordPtr record) {
        m_records.append(record.get());
        record.release();
    }
    // Gives the records to `take` one by one, first found first.
    template <class Take>
    void handOver(Take take) {
        for (int i = 0; i < m_records.length(); ++i) {
            RecordPtr record(m_records[i]);
            m_records[i] = nullptr;
            take(std::move(record));
        }
        m_records.setLogicalLength(0);
    }

private:
    KvArray<KvoreRegisterKrxInfo*> m_records;
};

// The groups of a record as its "Groups" and "Commands" keys in `hive` give them, each
// group with its own copy of all the commands. False if the record isn't
// demand-loadable there: either key missing, or no value in "Groups".
bool readGroups(RegistryHive hive, const std::u16string& recordPath, KvoreRegisterKrxInfo& record) {
    std::u16string groupsPath = recordPath + u"\\Groups", commandsPath = recordPath + u"\\Commands";
    RegistryKey groupsKey, commandsKey;
    RegistryKeyInfo groupsInfo, commandsInfo;
    if (!keyFits(groupsPath) || !keyFits(commandsPath) ||
        groupsKey.open(hive, groupsPath.c_str(), lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk ||
        commandsKey.open(hive, commandsPath.c_str(), lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk ||
        groupsKey.info(groupsInfo) != lumplatform::kRegistryOk || groupsInfo.values == 0)
        return false;
    std::vector<TextValue> groups = textValues(groupsKey, groupsInfo);
    std::vector<TextValue> commands;
    if (commandsKey.info(commandsInfo) == lumplatform::kRegistryOk && commandsInfo.values > 0)
        commands = textValues(commandsKey, commandsInfo);
    else
        groups.clear();  // a group without commands is dropped
    for (const TextValue& groupValue : groups) {
        std::unique_ptr<KvoreKrxRegCmdGroup> group(new KvoreKrxRegCmdGroup(groupValue.data.c_str()));
        for (const TextValue& commandValue : commands) {
            std::unique_ptr<KvoreKrxRegCommand> command(
                new KvoreKrxRegCommand(commandValue.name.c_str(), commandValue.data.c_str()));
            group->addCommand(command.get());
            command.release();
        }
        record.addGroup(group.get());
        group.release();
    }
    return true;
}

// Every demand-loadable record of both hives, user hive first; an application with
// keys in both gives two records.
void scanRegisteredApps(ScannedRecords& found) {
    for (RegistryHive hive : kHives) {
        RegistryKey parent;
        std::u16string parentPath;
        RegistryKeyInfo info;
        if (!openRecordsParent(hive, parent, parentPath) || parent.info(info) != lumplatform::kRegistryOk ||
            info.subKeys == 0)
            continue;
        std::vector<char16_t> name(info.longestSubKeyName + 1);
        for (uint32_t i = 0;;) {
            uint32_t length = uint32_t(name.size());
            lumplatform::RegistryStatus status = parent.subKeyAt(i, name.data(), &length);
            if (status == lumplatform::kRegistryMoreData) {
                // A longer name than the key info told of: the same index again, with
                // room, so that the walk stays on the one view it began with.
                name.resize(size_t(length) + 1);
                continue;
            }
            if (status != lumplatform::kRegistryOk) break;
            ++i;
            if (length == 0) continue;
            RecordPtr record(new KvoreRegisterKrxInfo(name.data()));
            if (record->readFromRegistry() == KvoreApp::eOk &&
                readGroups(hive, parentPath + u"\\" + name.data(), *record))
                found.add(std::move(record));
        }
    }
}

// Adds what a scan finds to the tree: a record of a name the tree has is merged into
// it, any other joins it. Nothing is taken out, and the fields of records already in
// the tree stay as they were.
void reloadRegisteredApps() {
    ScannedRecords found;
    scanRegisteredApps(found);
    found.handOver([](RecordPtr record) {
        if (KvoreRegisterKrxInfo* present = gRegisterStack->findInfo(record->appName())) {
            present->merge(record.get());
        } else {
            gRegisterStack->addInfo(record.get());
            record.release();
        }
    });
}

// Arms the watch of a hive: needs a host and the records' parent key in the hive.
bool armRegistryWatch(HiveWatch& watch, RegistryHive hive) {
    if (!kvdbHostApplicationServices()) return false;
    uint64_t counter = 0;
    if (lumplatform::registryChangeCounter(hive, counter) != lumplatform::kRegistryOk) return false;
    RegistryKey parent;
    std::u16string path;
    if (!openRecordsParent(hive, parent, path)) return false;
    watch.counter = counter;
    return true;
}

// Whether the hive changed since its watch was armed, or a change was pending; either
// disarms the watch.
bool pollRegistryWatch(HiveWatch& watch, RegistryHive hive) {
    uint64_t counter = 0;
    if (!watch.pending && lumplatform::registryChangeCounter(hive, counter) == lumplatform::kRegistryOk &&
        counter != watch.counter)
        watch.pending = true;
    if (!watch.pending) return false;
    watch.pending = false;
    watch.armed = false;
    return true;
}

using IteratorPtr = std::unique_ptr<KvRxIterator>;

KvRxDynamicLinkerImp* dynamicLinker() {
    KvRxDictionary* registry = kvrxSysRegistry();
    return registry ? KvRxDynamicLinkerImp::cast(registry->at(u"DynamicLinker")) : nullptr;
}

bool moduleIsLoaded(KvRxDynamicLinkerImp* linker, const KvoreRegisterKrxInfo* record) {
    return linker && linker->findRxModuleProxyByModuleName(record->moduleName(), false);
}

// Calls `visit` for each command of each group of each record, every list from its head.
template <class Visit>
void forEachCommand(Visit visit) {
    IteratorPtr records(gRegisterStack->infos()->newIterator());
    for (; !records->done(); records->next()) {
        IteratorPtr groups(static_cast<KvoreRegisterKrxInfo*>(records->object())->groups()->newIterator());
        for (; !groups->done(); groups->next()) {
            IteratorPtr commands(static_cast<KvoreKrxRegCmdGroup*>(groups->object())->commands()->newIterator());
            for (; !commands->done(); commands->next()) visit(static_cast<KvoreKrxRegCommand*>(commands->object()));
        }
    }
}

}  // namespace

bool initDemandLoadKrxList() {
    if (gRegisterStack) return true;
    gRegisterStack = new KvoreRegisterKrxStack;
    reloadRegisteredApps();
    for (int i = 0; i < kHiveCount; ++i) {
        gWatches[i] = HiveWatch{true, true, false, 0};
        gWatches[i].armed = armRegistryWatch(gWatches[i], kHives[i]);
    }
    return true;
}

bool uninitDemandLoadKrxList() {
    delete gRegisterStack;
    gRegisterStack = nullptr;
    for (HiveWatch& watch : gWatches) watch = HiveWatch{};
    return true;
}

bool reLoadKrxListFromRegisterIfModified() {
    if (!gRegisterStack) return false;
    bool changed = false;
    for (int i = 0; i < kHiveCount; ++i) {
        HiveWatch& watch = gWatches[i];
        if (!watch.live) continue;
        if (!watch.armed && !(watch.armed = armRegistryWatch(watch, kHives[i]))) continue;
        if (pollRegistryWatch(watch, kHives[i])) changed = true;
    }
    if (changed) reloadRegisteredApps();
    return changed;
}

bool getRegisterKrxAppInfoList(const char16_t* name, KvArray<KvoreRegisterKrxInfo*>& result, bool onlyFlagged) {
    result.setLogicalLength(0);
    if (!gRegisterStack || !name) return false;
    const char16_t* dot = name;
    while (*dot && *dot != u'.') ++dot;
    const char16_t* command = *dot ? dot + 1 : name;
    if (!*command) return false;
    // The group name is the text before a dot, if there is any.
    const char16_t* group = *dot && dot > name ? name : nullptr;

    // The records whose findCommand(group, command) finds a command, in the tree's order.
    const KvoreCommandIndex::Records* offering =
        gRegisterStack->recordsOffering(group, size_t(dot - name), command);
    if (!offering) return true;
    // With no module stored anywhere no record's module is loaded: the linker need not
    // be asked.
    KvRxDynamicLinkerImp* linker = KvRxDynamicLinkerImp::anyModuleStored() ? dynamicLinker() : nullptr;
    for (KvoreRegisterKrxInfo* record : *offering) {
        if (moduleIsLoaded(linker, record)) continue;
        if (!onlyFlagged || (record->loadReason() & KvoreApp::kFlaggedForDemandLoad)) result.append(record);
    }
    return true;
}

bool getAllRegisterKrxAppCommandList(KvArray<const char16_t*>& names, KvArray<const char16_t*>& values) {
    if (!gRegisterStack) return false;
    forEachCommand([&](KvoreKrxRegCommand* command) {
        values.append(command->commandValue());
        names.append(command->commandName());
    });
    return true;
}
