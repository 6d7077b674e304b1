// KvUniqueString: the process-wide intern table of lower-cased texts.
#include "kvstring.h"

#include "lumosbase.h"

#include <cstring>

namespace {

// A doubly linked list of text blocks, in the order they were added. The list owns its
// nodes and their text blocks (_lumMalloc) and frees them all at library unload.
class InternList {
public:
    InternList() = default;
    InternList(const InternList&) = delete;
    InternList& operator=(const InternList&) = delete;
    ~InternList() {
        while (Node* n = m_head) {
            m_head = n->next;
            _lumFree(n->text);
            _lumFree(n);
        }
    }

    // The stored text equal unit for unit to `text`, or null.
    const char16_t* find(const char16_t* text) const {
        for (Node* n = m_head; n; n = n->next)
            if (LumCharOp::compare(n->text, text) == 0) return n->text;
        return nullptr;
    }

    // A copy of `text` at the end of the list, or null if memory ran out.
    const char16_t* add(const char16_t* text) {
        size_t bytes = (LumCharOp::length(text) + 1) * sizeof(char16_t);
        auto* copy = static_cast<char16_t*>(_lumMalloc(bytes));
        auto* node = static_cast<Node*>(_lumMalloc(sizeof(Node)));
        if (!copy || !node) {
            _lumFree(copy);
            _lumFree(node);
            return nullptr;
        }
        std::memcpy(copy, text, bytes);
        *node = Node{copy, m_tail, nullptr};
        (m_tail ? m_tail->next : m_head) = node;
        m_tail = node;
        return copy;
    }

private:
    struct Node {
        char16_t* text;
        Node* prev;
        Node* next;
    };
    Node* m_head = nullptr;
    Node* m_tail = nullptr;
};

InternList gInternList;

}  // namespace

const KvUniqueString* KvUniqueString::Intern(const char16_t* s) {
    if (!s) return nullptr;
    KvString folded(s);
    folded.makeLower();
    const char16_t* text = folded.kwszPtr();
    const char16_t* stored = gInternList.find(text);
    if (!stored) stored = gInternList.add(text);
    return reinterpret_cast<const KvUniqueString*>(stored);
}
