// The kernel service's one implementation. No state: it makes dictionaries, lists and
// maps for callers that don't link against their classes.
#pragma once

#include "kvrxservice.h"

class KvRxKernelServiceImp : public KvRxKernel {
    KVRX_DECLARE_MEMBERS(KvRxKernelServiceImp);

public:
    KvRxDictionary* newDictionary(const KvRxClass* filter) override;
    KvRxDictionary* newDictionary(unsigned length, bool deleteObjects, bool sorted,
                                  bool ignoreCase) override;
    KvRxDictionary* newDictionary(bool sorted, bool ignoreCase) override;
    KvRxLinkedList* newLinkedList() override;
    KvRxMap* newMap() override;
};
