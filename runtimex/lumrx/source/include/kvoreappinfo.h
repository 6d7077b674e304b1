// Application records: what the registry says about an extension module (when to
// load it, its file, the groups and commands it offers) under the product's key
// "Applications\<name>", the value objects for a record's groups and commands, and
// the demand-load lists: all records in memory, to ask which unloaded module offers
// a command.
#pragma once

#include "kvarray.h"
#include "kvrxobject.h"
#include "lumpal.h"

#include <cstdint>

class KvRxLinkedList;
class KvoreAppInfoImp;

namespace KvoreApp {

// Status of a record operation.
enum ErrorStatus {
    eOk = 0,
    eBadArgs = 1,
    eKeyNotFound = 3,   // the key opens in neither hive
    eOutOfMemory = 4,
    eNoAppName = 5,
    eNoRecord = 6,      // a key opened but held no usable record or name
    eAccessDenied = 8,
    eNoHive = 9,        // no hive chosen yet (group and command writes)
    eRegistryError = 10,
};

// When to load: a flag word.
using LoadReasons = uint32_t;
constexpr LoadReasons kOnStartup = 2;
constexpr LoadReasons kOnCommand = 4;
constexpr LoadReasons kOnRequest = 8;
constexpr LoadReasons kDisabled = 16;
constexpr LoadReasons kFlaggedForDemandLoad = 0x20;

}  // namespace KvoreApp

// One record in memory; read, changed and written any number of times. Owns its
// implementation object and, through it, its three texts (LumCharOp::zalloc).
class KvoreAppInfo : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvoreAppInfo);

public:
    // A loader function may answer any number, which is passed through: hence the
    // fixed underlying type.
    enum CmdStatus : int { kLoaded = 1, kNotLoaded = 2, kModuleNotFound = 3 };
    using MgdType = int32_t;  // 0 native; anything else a managed module
    enum ReadFlags {};
    using AppLoader = CmdStatus (*)(void*);

    KvoreAppInfo();
    ~KvoreAppInfo() override;
    KvoreAppInfo(const KvoreAppInfo&) = delete;
    KvoreAppInfo& operator=(const KvoreAppInfo&) = delete;

    const char16_t* appName() const;
    const char16_t* moduleName() const;
    const char16_t* appDesc() const;
    // Forgets the hive of the last write; drops one leading and then one trailing '"'.
    void setAppName(const char16_t* name);
    // A name the host calls remote is fetched first; it stays null if that fails.
    void setModuleName(const char16_t* name);
    void setAppDesc(const char16_t* desc);
    // True if the record offers the command, or the group before a '.', as read last.
    bool appImplements(const char16_t* name) const;
    MgdType managed() const;
    void setManaged(MgdType managed);
    KvoreApp::LoadReasons loadReason() const;
    void setLoadReason(KvoreApp::LoadReasons reason);
    // Result of the last readFromRegistry.
    KvoreApp::ErrorStatus status() const;
    void setAppLoader(AppLoader loader);
    // Loads the record's module by its loader, else through the linker.
    CmdStatus runAppLoader();

    // The machine hive first; without rights there, the user hive unless the machine
    // record says the same already.
    KvoreApp::ErrorStatus writeToRegistry();
    // The user hive shadows the machine hive.
    KvoreApp::ErrorStatus readFromRegistry();
    KvoreApp::ErrorStatus readFromRegistry(ReadFlags flags);
    // Deletes the record key, without sub-keys, in both hives.
    KvoreApp::ErrorStatus delFromRegistry();
    // Into the hive of the last writeToRegistry.
    KvoreApp::ErrorStatus writeGroupNameToRegistry(const char16_t* groupName);
    KvoreApp::ErrorStatus writeCommandNameToRegistry(const char16_t* name, const char16_t* value);

private:
    KvoreAppInfoImp* m_imp;
};

// A command of a record: two owned texts (LumCharOp::zalloc), copied at construction.
class KvoreKrxRegCommand : public KvRxObject {
public:
    KvoreKrxRegCommand(const char16_t* commandName, const char16_t* commandValue);
    ~KvoreKrxRegCommand() override;
    KvoreKrxRegCommand(const KvoreKrxRegCommand&) = delete;
    KvoreKrxRegCommand& operator=(const KvoreKrxRegCommand&) = delete;
    // The class registered as "KvoreKrxRegCommand" by someone else, or null.
    KvRxClass* isA() const override;
    virtual const char16_t* commandName() const;
    virtual const char16_t* commandValue() const;

private:
    char16_t* m_commandName;
    char16_t* m_commandValue;
};

// A group of a record and its commands, latest first. Owns its name (LumCharOp::zalloc),
// its list (from the kernel service, which must be up) and the commands in it.
class KvoreKrxRegCmdGroup : public KvRxObject {
public:
    explicit KvoreKrxRegCmdGroup(const char16_t* groupName);
    ~KvoreKrxRegCmdGroup() override;
    KvoreKrxRegCmdGroup(const KvoreKrxRegCmdGroup&) = delete;
    KvoreKrxRegCmdGroup& operator=(const KvoreKrxRegCmdGroup&) = delete;
    // The class registered as "KvoreKrxRegCmdGroup" by someone else, or null.
    KvRxClass* isA() const override;

    const char16_t* groupName() const { return m_groupName; }
    KvRxLinkedList* commands() const { return m_commands; }
    // Takes ownership and puts the command first.
    void addCommand(KvoreKrxRegCommand* command);
    // The first command whose name (else value) equals `name` without case.
    bool findCommand(const char16_t* name, bool byName, KvoreKrxRegCommand*& found) const;
    // Takes all of `other`'s commands; those whose name is here already are deleted.
    void merge(KvoreKrxRegCmdGroup* other);
    void clear();

private:
    char16_t* m_groupName;
    KvRxLinkedList* m_commands;
    uint16_t m_commandCount;
};

// A record of the demand-load lists: a record's fields and its groups, latest first.
// Owns its list of groups (from the kernel service, which must be up) and the groups
// in it.
class KvoreRegisterKrxInfo : public KvoreAppInfo {
public:
    // A record named `appName` with module name and description " " and load reason 8.
    explicit KvoreRegisterKrxInfo(const char16_t* appName);
    ~KvoreRegisterKrxInfo() override;
    KvoreRegisterKrxInfo(const KvoreRegisterKrxInfo&) = delete;
    KvoreRegisterKrxInfo& operator=(const KvoreRegisterKrxInfo&) = delete;
    // The class registered as "KvoreRegisterKrxInfo" by someone else, or null.
    KvRxClass* isA() const override;

    // The first group named `name`, without case; null for a null or empty name.
    virtual KvoreKrxRegCmdGroup* findGroup(const char16_t* name) const;
    // The first command named, else valued, `commandName` in the groups named
    // `groupName` (every group for a null `groupName`); null if there is none.
    virtual KvoreKrxRegCommand* findCommand(const char16_t* groupName,
                                            const char16_t* commandName) const;

    KvRxLinkedList* groups() const { return m_groups; }
    // Takes ownership and puts the group first.
    void addGroup(KvoreKrxRegCmdGroup* group);
    // Takes all of `other`'s groups: one named like a group here is merged into it
    // and deleted, any other is added.
    void merge(KvoreRegisterKrxInfo* other);

private:
    KvRxLinkedList* m_groups;
};

// Demand-load lists. The records of both hives in memory, kept up to date by a poll
// of the registry that the host makes; one thread at a time. Records handed out stay
// valid until uninitDemandLoadKrxList: a refresh only ever adds.
//
// Reads all records and starts watching both hives; true. Does nothing when the lists
// are set up already. The runtime must be running.
bool initDemandLoadKrxList();
// Deletes the lists and stops watching; true.
bool uninitDemandLoadKrxList();
// True if a hive changed since the last poll: the lists are then refreshed. The first
// poll after set-up counts every watched hive as changed. False when not set up.
bool reLoadKrxListFromRegisterIfModified();
// Empties `result`, then gives the records that offer `name` and whose module isn't
// loaded; with `onlyFlagged` only those whose load reason has bit 0x20. `name` is a
// command name or value, with a group name and '.' in front to look in that group
// only ("GROUP.COMMAND"; ".COMMAND" looks in every group). False when not set up, for
// a null name or for an empty command name; true otherwise, even with nothing found.
bool getRegisterKrxAppInfoList(const char16_t* name, KvArray<KvoreRegisterKrxInfo*>& result,
                               bool onlyFlagged);
// Appends the name and the value of every command of every group of every record;
// element i of both arrays belongs together. False when not set up.
bool getAllRegisterKrxAppCommandList(KvArray<const char16_t*>& names,
                                     KvArray<const char16_t*>& values);

// Writes a record with `reason`: 1 for no name, 9 if the write fails, else 0.
KvoreApp::ErrorStatus kvrxRegisterApp(KvoreApp::LoadReasons reason, const char16_t* appName);
// Deletes a record: 1 for no name, 3 if it isn't there, 9 for other failures, else 0.
KvoreApp::ErrorStatus kvrxUnregisterApp(const char16_t* appName);

// The host's product key and language; a host must be set.
const char16_t* kvrxProductKey();
uint32_t kvrxProductLCID();
KvLocale kvrxProductLocale();
// Always the empty text: records have no separate engine key here.
const char16_t* kvrxDatumVaultRegistryKey();
