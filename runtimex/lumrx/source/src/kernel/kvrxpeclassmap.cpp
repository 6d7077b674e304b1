#include "kernel/kvrxpeclassmap.h"

#include "kernel/kvrxmoduleglobal.h"

KVRX_DEFINE_MEMBERS(KvRxPEClassMapIterator, u"KvRxPEClassMapIterator", u"KvRxGenericMapIterator");
KVRX_DEFINE_MEMBERS(KvRxPEClassMap, u"KvRxPEClassMap", u"KvRxGenericMap");

// Stands on a node of `map`, or at its end. Owns nothing.
class KvRxPEClassMapIteratorImp final : public KvRxPEClassMapIterator {
public:
    KvRxPEClassMapIteratorImp(KvRxPEClassMapImp* map, KvRxPEClassMapImp::Nodes::iterator node)
        : map(map), node(node) {}

    bool done() const override { return node == map->m_nodes.end(); }
    bool next() override {
        if (done()) return false;
        ++node;
        return !done();
    }
    // Null at the end, like the other iterators of the runtime.
    KvRxObject* object() const override { return done() ? nullptr : node->second; }
    const KvRxObject* key() const override { return done() ? nullptr : node->first; }

    KvRxPEClassMapImp* const map;
    KvRxPEClassMapImp::Nodes::iterator node;
};

namespace {

// The map's own iterator behind a live `iterator`; anything else is fatal.
KvRxPEClassMapIteratorImp* ownIterator(const KvRxPEClassMapImp* map,
                                       KvRxGenericMapIterator* iterator) {
    // Only KvRxPEClassMapIteratorImp can construct a KvRxPEClassMapIterator.
    auto* own = static_cast<KvRxPEClassMapIteratorImp*>(KvRxPEClassMapIterator::cast(iterator));
    if (!own || own->map != map) KvRxModuleGlobal::fatalStatus();
    return own;
}

}  // namespace

KvRxIterator* KvRxPEClassMapImp::newIterator() { return newMapIterator(); }

KvRxGenericMapIterator* KvRxPEClassMapImp::newMapIterator() {
    return new KvRxPEClassMapIteratorImp(this, m_nodes.begin());
}

// Every operation below that changes the nodes empties the query cache.

KvRxObject* KvRxPEClassMapImp::remove(const KvRxObject* key) {
    auto node = m_nodes.find(key);
    if (node == m_nodes.end()) return nullptr;
    KvRxObject* value = node->second;
    m_nodes.erase(node);
    m_lastQuery.forget();
    return value;
}

KvRxObject* KvRxPEClassMapImp::remove(KvRxGenericMapIterator* iterator) {
    if (!iterator || iterator->done()) return nullptr;
    KvRxPEClassMapIteratorImp* own = ownIterator(this, iterator);
    auto node = own->node;
    own->next();
    KvRxObject* value = node->second;
    m_nodes.erase(node);
    m_lastQuery.forget();
    return value;
}

void KvRxPEClassMapImp::removeAll() {
    m_nodes.clear();
    m_lastQuery.forget();
}

KvRxObject* KvRxPEClassMapImp::put(KvRxGenericMapIterator* iterator, KvRxObject* value) {
    if (!iterator || iterator->done()) return nullptr;
    KvRxPEClassMapIteratorImp* own = ownIterator(this, iterator);
    KvRxObject* old = own->node->second;
    own->node->second = value;
    m_lastQuery.forget();
    return old;
}

KvRxObject* KvRxPEClassMapImp::put(const KvRxObject* key, KvRxObject* value) {
    if (!key) return nullptr;
    m_lastQuery.forget();
    auto inserted = m_nodes.emplace(key, value);
    if (inserted.second) return nullptr;
    KvRxObject* old = inserted.first->second;
    inserted.first->second = value;
    return old;
}

KvRxObject* KvRxPEClassMapImp::lookUp(const KvRxObject* key) const {
    auto node = m_nodes.find(key);
    KvRxObject* value = node == m_nodes.end() ? nullptr : node->second;
    m_lastQuery.fill(key, value);
    return value;
}

KvRxGenericMapIterator* KvRxPEClassMapImp::find(const KvRxObject* key) {
    auto node = m_nodes.find(key);
    return node == m_nodes.end() ? nullptr : new KvRxPEClassMapIteratorImp(this, node);
}

bool KvRxPEClassMapImp::has(const KvRxObject* key) const { return at(key) != nullptr; }

unsigned int KvRxPEClassMapImp::size() const { return unsigned(m_nodes.size()); }
