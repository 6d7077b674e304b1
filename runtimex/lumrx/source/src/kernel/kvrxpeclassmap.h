// The protocol-extension map of one class.
//
// Owned by the class state that made it. Owns its nodes only: keys (protocol classes)
// and values (extension objects) belong to others and are never deleted here. Its last
// answer lives in that class state (see kvrxpequerycache.h), which outlives the map.
#pragma once

#include "kernel/kvrxpequerycache.h"
#include "kvrxmap.h"

#include <functional>
#include <map>

class KvRxPEClassMapImp final : public KvRxPEClassMap {
public:
    // Keys in address order.
    using Nodes = std::map<const KvRxObject*, KvRxObject*, std::less<const KvRxObject*>>;

    explicit KvRxPEClassMapImp(KvRxPEQueryCache& lastQuery) : m_lastQuery(lastQuery) {}

    KvRxIterator* newIterator() override;
    KvRxGenericMapIterator* newMapIterator() override;
    KvRxObject* remove(const KvRxObject* key) override;
    KvRxObject* remove(KvRxGenericMapIterator* iterator) override;
    void removeAll() override;
    KvRxObject* put(KvRxGenericMapIterator* iterator, KvRxObject* value) override;
    KvRxObject* put(const KvRxObject* key, KvRxObject* value) override;
    // The last answer is checked here, so a repeated query costs one compare.
    KvRxObject* at(const KvRxObject* key) const override {
        return m_lastQuery.holds(key) ? m_lastQuery.value : lookUp(key);
    }
    KvRxGenericMapIterator* find(const KvRxObject* key) override;
    bool has(const KvRxObject* key) const override;
    unsigned int size() const override;

    // A look-up in the tree; its answer becomes the last one.
    KvRxObject* lookUp(const KvRxObject* key) const;
    // The walks of the class tree read the nodes directly, and change them only through
    // the operations above.
    const Nodes& nodes() const { return m_nodes; }

private:
    friend class KvRxPEClassMapIteratorImp;
    Nodes m_nodes;
    KvRxPEQueryCache& m_lastQuery;
};
