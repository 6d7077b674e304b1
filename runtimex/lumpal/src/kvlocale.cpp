#include "lumpal.h"

#include "lumosbase.h"

KvLocale::KvLocale(int lcid) : m_lcid(lcid), m_language(nullptr), m_region(nullptr) {}

KvLocale::KvLocale(const char16_t* language, const char16_t* region)
    : m_lcid(0), m_language(_lumStrdup(language)), m_region(_lumStrdup(region)) {}

KvLocale::KvLocale(KvLocale&& o) noexcept
    : m_lcid(o.m_lcid), m_language(o.m_language), m_region(o.m_region) {
    o.m_language = o.m_region = nullptr;
}

KvLocale& KvLocale::operator=(KvLocale&& o) noexcept {
    if (this != &o) {
        _lumStrdupFree(m_language);
        _lumStrdupFree(m_region);
        m_lcid = o.m_lcid;
        m_language = o.m_language;
        m_region = o.m_region;
        o.m_language = o.m_region = nullptr;
    }
    return *this;
}

KvLocale::~KvLocale() {
    _lumStrdupFree(m_language);
    _lumStrdupFree(m_region);
}

const char16_t* KvLocale::language() const { return m_language ? m_language : u""; }
const char16_t* KvLocale::region() const { return m_region ? m_region : u""; }

bool kvHeapFree(void* /*heap*/, void* p) {
    _lumFree(p);
    return true;
}
