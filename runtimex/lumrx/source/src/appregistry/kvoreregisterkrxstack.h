// The root of the demand-load lists: every record read from the registry, latest
// first.
//
// Owns its list (from the kernel service, which must be up) and the records in it.
#pragma once

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

private:
    KvRxLinkedList* m_infos;
    uint16_t m_infoCount;  // addInfo calls
};
