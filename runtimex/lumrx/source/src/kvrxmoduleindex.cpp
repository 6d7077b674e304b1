#include "kvrxmoduleindex.h"

#include "lumplatform/text.h"

namespace {

size_t gHeld = 0;  // proxies held by all indexes alive

}  // namespace

KvRxModuleIndex::~KvRxModuleIndex() { gHeld -= m_keys.size(); }

bool KvRxModuleIndex::anyHeld() { return gHeld != 0; }

void KvRxModuleIndex::counted(size_t before) const { gHeld = gHeld - before + m_keys.size(); }

std::u16string KvRxModuleIndex::folded(const std::u16string& key) {
    std::u16string out(key);
    for (char16_t& c : out)
        c = c < 0x80 ? (c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c) : lumplatform::foldCaseUnit(c);
    return out;
}

void KvRxModuleIndex::put(const std::u16string& key, KvRxDynLoadModuleProxy* proxy) {
    size_t before = m_keys.size();
    KvRxDynLoadModuleProxy*& slot = m_byKey[folded(key)];
    if (slot) m_keys.erase(slot);
    slot = proxy;
    m_keys[proxy] = key;
    counted(before);
}

void KvRxModuleIndex::remove(const std::u16string& key, KvRxDynLoadModuleProxy* proxy) {
    auto at = m_byKey.find(folded(key));
    if (at == m_byKey.end() || at->second != proxy) return;
    m_byKey.erase(at);
    size_t before = m_keys.size();
    m_keys.erase(proxy);
    counted(before);
}

KvRxDynLoadModuleProxy* KvRxModuleIndex::find(const std::u16string& key) const {
    auto at = m_byKey.find(folded(key));
    return at == m_byKey.end() ? nullptr : at->second;
}

std::u16string KvRxModuleIndex::keyOf(const KvRxDynLoadModuleProxy* proxy) const {
    auto at = m_keys.find(proxy);
    return at == m_keys.end() ? std::u16string() : at->second;
}
