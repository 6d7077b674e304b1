// The root of the demand-load lists: every record read from the registry, latest
// first.
//
// Owns its list (from the kernel service, which must be up), the records in it and
// the index of their commands.
#pragma once

#include "appregistry/kvorecommandindex.h"
#include "kvoreappinfo.h"

class KvoreRegisterKrxStack : public KvRxObject {
public:
    KvoreRegisterKrxStack();
    ~KvoreRegisterKrxStack() override;
    KvoreRegisterKrxStack(const KvoreRegisterKrxStack&) = delete;
    KvoreRegisterKrxStack& operator=(const KvoreRegisterKrxStack&) = delete;
    // The class registered as "KvoreRegisterKrxStack" by someone else, or null.
    KvRxClass* isA() const override;

    KvRxLinkedList* infos() const { return m_infos; }
    uint16_t infoCount() const { return m_infoCount; }
    // Takes ownership and puts the record first.
    void addInfo(KvoreRegisterKrxInfo* info);
    // The first record whose name equals `appName` without case, or null.
    KvoreRegisterKrxInfo* findInfo(const char16_t* appName) const;
    // The records offering `command`, in the group named by `groupLength` units at
    // `group` or in any group for a null `group`, in the list's order; null if none does.
    const KvoreCommandIndex::Records* recordsOffering(const char16_t* group, size_t groupLength,
                                                      const char16_t* command) {
        return m_index.find(m_infos, group, groupLength, command);
    }

private:
    KvRxLinkedList* m_infos;
    uint16_t m_infoCount;  // addInfo calls
    KvoreCommandIndex m_index;
};
