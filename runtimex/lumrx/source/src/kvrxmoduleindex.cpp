#include "kvrxmoduleindex.h"

#include "lumplatform/text.h"

#include <cstdint>

namespace {

size_t gHeld = 0;  // proxies held by all indexes alive

}  // namespace

KvRxModuleIndex::~KvRxModuleIndex() { gHeld -= m_keys.size(); }

bool KvRxModuleIndex::anyHeld() { return gHeld != 0; }

void KvRxModuleIndex::counted(size_t before) const { gHeld = gHeld - before + m_keys.size(); }

size_t KvRxModuleIndex::FoldedHash::operator()(const std::u16string& key) const {
    uint64_t hash = 0xCBF29CE484222325ull;
    for (char16_t c : key) hash = (hash ^ lumplatform::foldCaseUnit(c)) * 0x100000001B3ull;
    return size_t(hash);
}

bool KvRxModuleIndex::FoldedEqual::operator()(const std::u16string& a, const std::u16string& b) const {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && lumplatform::foldCaseUnit(a[i]) != lumplatform::foldCaseUnit(b[i]))
            return false;
    }
    return true;
}

void KvRxModuleIndex::put(const std::u16string& key, KvRxDynLoadModuleProxy* proxy) {
    size_t before = m_keys.size();
    KvRxDynLoadModuleProxy*& slot = m_byKey[key];
    if (slot) m_keys.erase(slot);
    slot = proxy;
    m_keys[proxy] = key;
    counted(before);
}

void KvRxModuleIndex::remove(const KvRxDynLoadModuleProxy* proxy) {
    auto key = m_keys.find(proxy);
    if (key == m_keys.end()) return;
    auto at = m_byKey.find(key->second);
    if (at != m_byKey.end() && at->second == proxy) m_byKey.erase(at);
    size_t before = m_keys.size();
    m_keys.erase(key);
    counted(before);
}

KvRxDynLoadModuleProxy* KvRxModuleIndex::find(const std::u16string& key) const {
    auto at = m_byKey.find(key);
    return at == m_byKey.end() ? nullptr : at->second;
}

const std::u16string* KvRxModuleIndex::keyOf(const KvRxDynLoadModuleProxy* proxy) const {
    auto at = m_keys.find(proxy);
    return at == m_keys.end() ? nullptr : &at->second;
}
