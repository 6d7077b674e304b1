#include "kernel/kvrxclassancestry.h"

#include "lumosbase.h"

#include <cstring>

KvRxClassAncestry::~KvRxClassAncestry() {
    if (m_chain != m_inline) _lumFree(m_chain);
}

bool KvRxClassAncestry::resize(int depth) {
    if (depth == m_depth) return true;
    const KvRxClass** chain = m_inline;
    if (depth >= kInline) {
        chain = static_cast<const KvRxClass**>(_lumMalloc(sizeof(const KvRxClass*) * size_t(depth + 1)));
        if (!chain) return false;
    }
    if (m_chain != m_inline) _lumFree(m_chain);
    m_chain = chain;
    m_depth = depth;
    return true;
}

bool KvRxClassAncestry::makeTop(const KvRxClass* self) {
    if (!resize(0)) return false;
    m_chain[0] = self;
    return true;
}

bool KvRxClassAncestry::makeBelow(const KvRxClassAncestry& parent, const KvRxClass* self) {
    if (!resize(parent.m_depth + 1)) return false;
    std::memcpy(static_cast<void*>(m_chain), parent.m_chain, sizeof(const KvRxClass*) * size_t(parent.m_depth + 1));
    m_chain[m_depth] = self;
    return true;
}
