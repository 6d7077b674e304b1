#include "kernel/kvrxclassnameindex.h"

#include "lumosbase.h"
#include "lumplatform/text.h"

namespace {

// The unit as the dictionary's case-blind comparison folds it: ASCII here, the rest by
// the platform's simple case folding, so that equal names hash alike.
inline char16_t folded(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
    return lumplatform::foldCaseUnit(c);
}

}  // namespace

size_t KvRxClassNameIndex::FoldedHash::operator()(const char16_t* text) const {
    // FNV-1a over the folded units.
    size_t hash = 14695981039346656037ull;
    for (; *text; ++text) hash = (hash ^ folded(*text)) * 1099511628211ull;
    return hash;
}

bool KvRxClassNameIndex::FoldedEqual::operator()(const char16_t* a, const char16_t* b) const {
    // The destroy walk asks with the class's own copy, the key itself.
    return a == b || LumCharOp::compareNoCase(a, b) == 0;
}

KvRxClass* KvRxClassNameIndex::find(const char16_t* name) const {
    if (!name || !*name) return nullptr;
    auto entry = m_classes.find(name);
    return entry == m_classes.end() ? nullptr : entry->second;
}

void KvRxClassNameIndex::add(const char16_t* name, KvRxClass* aClass) { m_classes.emplace(name, aClass); }

bool KvRxClassNameIndex::removeIfIs(const char16_t* name, const KvRxClass* aClass) {
    auto entry = name && *name ? m_classes.find(name) : m_classes.end();
    if (entry == m_classes.end() || entry->second != aClass) return false;
    m_classes.erase(entry);
    return true;
}

size_t KvRxClassNameIndex::bytesPerEntry() {
    // A node (next pointer, key, value, cached hash) and a bucket pointer.
    return 4 * sizeof(void*) + sizeof(void*);
}
