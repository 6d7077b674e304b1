#include "lumpal.h"

#include "lumosbase.h"

struct LumPtrList::Node {
    Node* next;
    void* value;
};

LumPtrList::LumPtrList() : m_head(nullptr), m_tail(nullptr), m_count(0) {}

LumPtrList::~LumPtrList() {
    while (m_head) {
        Node* n = m_head;
        m_head = n->next;
        _lumFree(n);
    }
}

LUM_POSITION LumPtrList::GetHeadPosition() const { return m_head; }

void* LumPtrList::GetNext(LUM_POSITION& pos) const {
    auto* n = static_cast<Node*>(pos);
    pos = n->next;
    return n->value;
}

LUM_POSITION LumPtrList::AddTail(void* p) {
    auto* n = static_cast<Node*>(_lumMalloc(sizeof(Node)));
    if (!n) lumThrowErrorStatus(6, __FILE__, __LINE__);
    n->next = nullptr;
    n->value = p;
    if (m_tail) m_tail->next = n; else m_head = n;
    m_tail = n;
    ++m_count;
    return n;
}
