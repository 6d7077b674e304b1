#include "kvrxmap.h"

#include "kernel/kvrxmoduleglobal.h"

#include <map>
#include <memory>

KVRX_DEFINE_MEMBERS(KvRxGenericMapIterator, u"KvRxGenericMapIterator", u"OvRxIterator");
KVRX_DEFINE_MEMBERS(KvRxGenericMap, u"KvRxGenericMap", u"KvRxIterable");
KVRX_DEFINE_MEMBERS(KvRxMapIterator, u"KvRxMapIterator", u"KvRxGenericMapIterator");
KVRX_DEFINE_MEMBERS(KvRxMap, u"KvRxMap", u"KvRxGenericMap");

namespace {

// Not less unless comparedTo says less, so keys that can't be ordered count as one.
// Null is less than every other key.
struct KeyLess {
    bool operator()(const KvRxObject* a, const KvRxObject* b) const {
        if (a == b) return false;
        return !a || (b && a->comparedTo(b) == KvRx::kLessThan);
    }
};

}  // namespace

// Keys are the map's own clones (deleted with their node); values are the callers'.
struct KvRxMap::Tree {
    using Nodes = std::map<const KvRxObject*, KvRxObject*, KeyLess>;
    Nodes nodes;

    // The node of `key`: the first one not less than it, unless `key` is less than that.
    Nodes::iterator locate(const KvRxObject* key) {
        if (!key) return nodes.end();
        auto node = nodes.lower_bound(key);
        if (node != nodes.end() && KeyLess()(key, node->first)) return nodes.end();
        return node;
    }
};

// Stands on a node of `map`, or at its end. Owns nothing.
class KvRxMapIteratorImp final : public KvRxMapIterator {
public:
    KvRxMapIteratorImp(KvRxMap* map, KvRxMap::Tree::Nodes::iterator node) : map(map), node(node) {}

    bool done() const override { return node == map->m_tree->nodes.end(); }
    bool next() override {
        if (done()) return false;
        ++node;
        return !done();
    }
    // Null at the end, like the other iterators of the runtime.
    KvRxObject* object() const override { return done() ? nullptr : node->second; }
    const KvRxObject* key() const override { return done() ? nullptr : node->first; }

    KvRxMap* const map;
    KvRxMap::Tree::Nodes::iterator node;
};

namespace {

// The map's own iterator behind `iterator`; anything else is fatal.
KvRxMapIteratorImp* ownIterator(const KvRxMap* map, KvRxGenericMapIterator* iterator) {
    // Only KvRxMapIteratorImp can construct a KvRxMapIterator.
    auto* own = static_cast<KvRxMapIteratorImp*>(KvRxMapIterator::cast(iterator));
    if (!own || own->map != map) KvRxModuleGlobal::fatalStatus();
    return own;
}

}  // namespace

KvRxMap::KvRxMap() : m_tree(new Tree()) {}

KvRxMap::~KvRxMap() {
    removeAll();
    delete m_tree;
}

KvRxIterator* KvRxMap::newIterator() { return newMapIterator(); }

KvRxGenericMapIterator* KvRxMap::newMapIterator() {
    return new KvRxMapIteratorImp(this, m_tree->nodes.begin());
}

KvRxObject* KvRxMap::remove(const KvRxObject* key) {
    auto node = m_tree->locate(key);
    if (node == m_tree->nodes.end()) return nullptr;
    const KvRxObject* clone = node->first;
    KvRxObject* value = node->second;
    m_tree->nodes.erase(node);
    delete clone;
    return value;
}

KvRxObject* KvRxMap::remove(KvRxGenericMapIterator* iterator) {
    KvRxMapIteratorImp* own = ownIterator(this, iterator);
    if (own->done()) return nullptr;
    auto node = own->node;
    own->next();
    const KvRxObject* clone = node->first;
    KvRxObject* value = node->second;
    m_tree->nodes.erase(node);
    delete clone;
    return value;
}

void KvRxMap::removeAll() {
    Tree::Nodes gone;
    gone.swap(m_tree->nodes);
    for (auto& node : gone) delete node.first;
}

KvRxObject* KvRxMap::put(KvRxGenericMapIterator* iterator, KvRxObject* value) {
    if (!iterator || iterator->done()) return nullptr;
    KvRxMapIteratorImp* own = ownIterator(this, iterator);
    KvRxObject* old = own->node->second;
    own->node->second = value;
    return old;
}

KvRxObject* KvRxMap::put(const KvRxObject* key, KvRxObject* value) {
    if (!key) return nullptr;
    auto node = m_tree->locate(key);
    if (node != m_tree->nodes.end()) {
        KvRxObject* old = node->second;
        node->second = value;
        return old;
    }
    std::unique_ptr<KvRxObject> clone(key->clone());
    // A clone that orders unlike its original may meet a node after all; it is dropped.
    if (clone && m_tree->nodes.emplace(clone.get(), value).second) clone.release();
    return nullptr;
}

KvRxObject* KvRxMap::at(const KvRxObject* key) const {
    auto node = m_tree->locate(key);
    return node == m_tree->nodes.end() ? nullptr : node->second;
}

KvRxGenericMapIterator* KvRxMap::find(const KvRxObject* key) {
    auto node = m_tree->locate(key);
    return node == m_tree->nodes.end() ? nullptr : new KvRxMapIteratorImp(this, node);
}

bool KvRxMap::has(const KvRxObject* key) const { return at(key) != nullptr; }

unsigned int KvRxMap::size() const { return unsigned(m_tree->nodes.size()); }
