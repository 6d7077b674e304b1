#include "kvrxcollection.h"

#include "kernel/kvrxmoduleglobal.h"
#include "lumosbase.h"

#include <memory>

KVRX_DEFINE_MEMBERS(KvRxIterable, u"KvRxIterable", u"OvRxObject");
KVRX_DEFINE_MEMBERS(KvRxGenericCollection, u"KvRxGenericCollection", u"KvRxIterable");
KVRX_DEFINE_MEMBERS(KvRxLinkedList, u"KvRxLinkedList", u"KvRxGenericCollection");
KVRX_DEFINE_MEMBERS(KvRxLinkedListIterator, u"KvRxLinkedListIterator", u"OvRxIterator");

struct KvRxLinkedList::Node {
    Node* prev;
    Node* next;
    KvRxObject* value;
};

KvRxLinkedList::KvRxLinkedList() : head(nullptr), tail(nullptr), count(0) {}

KvRxLinkedList::~KvRxLinkedList() { removeAll(); }

KvRxLinkedList::Node* KvRxLinkedList::newNode() {
    auto* n = static_cast<Node*>(_lumMalloc(sizeof(Node)));
    if (!n) throw std::bad_alloc();
    n->prev = n->next = nullptr;
    n->value = nullptr;
    return n;
}

// Links `node` behind `at`; a null `at` makes it the new head.
void KvRxLinkedList::linkAfter(Node* at, Node* node) {
    node->prev = at;
    node->next = at ? at->next : head;
    if (node->next) node->next->prev = node; else tail = node;
    if (at) at->next = node; else head = node;
    ++count;
}

void KvRxLinkedList::unlink(Node* node) {
    if (node->prev) node->prev->next = node->next; else head = node->next;
    if (node->next) node->next->prev = node->prev; else tail = node->prev;
    --count;
    _lumFree(node);
}

KvRxLinkedList::Node* KvRxLinkedList::liveNode(KvRxIterator* iterator) const {
    if (!iterator || iterator->done()) return nullptr;
    KvRxLinkedListIterator* own = KvRxLinkedListIterator::cast(iterator);
    if (!own) KvRxModuleGlobal::fatalStatus();
    return own->node;
}

KvRxIterator* KvRxLinkedList::newIterator() { return new KvRxLinkedListIterator(head); }

void KvRxLinkedList::append(KvRxObject* value) { *appendSlot() = value; }

KvRxObject** KvRxLinkedList::appendSlot() {
    Node* n = newNode();
    linkAfter(tail, n);
    return &n->value;
}

void KvRxLinkedList::prepend(KvRxObject* value) { *prependSlot() = value; }

KvRxObject** KvRxLinkedList::prependSlot() {
    Node* n = newNode();
    linkAfter(nullptr, n);
    return &n->value;
}

void KvRxLinkedList::insertAfter(KvRxIterator* iterator, KvRxObject* value) {
    *insertSlotAfter(iterator) = value;
}

KvRxObject** KvRxLinkedList::insertSlotAfter(KvRxIterator* iterator) {
    Node* at = liveNode(iterator);
    if (!at) return appendSlot();
    Node* n = newNode();
    linkAfter(at, n);
    return &n->value;
}

void KvRxLinkedList::appendAll(KvRxIterable* source) {
    std::unique_ptr<KvRxIterator> it(source->newIterator());
    for (; !it->done(); it->next()) append(it->object());
}

void KvRxLinkedList::prependAll(KvRxIterable* source) {
    std::unique_ptr<KvRxIterator> it(source->newIterator());
    if (it->done()) return;
    prepend(it->object());
    // Each later element goes directly behind the head, so they land reversed.
    while (it->next()) {
        Node* n = newNode();
        n->value = it->object();
        linkAfter(head, n);
    }
}

void KvRxLinkedList::insertAllAfter(KvRxIterator* iterator, KvRxIterable* source) {
    if (!iterator) {
        appendAll(source);
        return;
    }
    std::unique_ptr<KvRxIterator> it(source->newIterator());
    for (; !it->done(); it->next()) insertAfter(iterator, it->object());
}

KvRxObject* KvRxLinkedList::removeTail() {
    if (!tail) return nullptr;
    KvRxObject* value = tail->value;
    unlink(tail);
    return value;
}

KvRxObject* KvRxLinkedList::removeHead() {
    if (!head) return nullptr;
    KvRxObject* value = head->value;
    unlink(head);
    return value;
}

KvRxObject* KvRxLinkedList::remove(KvRxObject* value) {
    for (Node* n = head; n; n = n->next) {
        if (n->value == value) {
            unlink(n);
            return value;
        }
    }
    return nullptr;
}

KvRxObject* KvRxLinkedList::removeAt(KvRxIterator* iterator) {
    Node* n = liveNode(iterator);
    if (!n) return nullptr;
    iterator->next();
    KvRxObject* value = n->value;
    unlink(n);
    return value;
}

void KvRxLinkedList::removeAll() {
    while (head) unlink(head);
}

KvRxObject* KvRxLinkedList::setTail(KvRxObject* value) {
    if (!tail) return nullptr;
    KvRxObject* old = tail->value;
    tail->value = value;
    return old;
}

KvRxObject* KvRxLinkedList::setHead(KvRxObject* value) {
    if (!head) return nullptr;
    KvRxObject* old = head->value;
    head->value = value;
    return old;
}

KvRxObject* KvRxLinkedList::setAt(KvRxIterator* iterator, KvRxObject* value) {
    if (!iterator) return nullptr;
    // Unlike the other operations, the class is tested even on a finished iterator.
    if (!KvRxLinkedListIterator::cast(iterator)) KvRxModuleGlobal::fatalStatus();
    Node* n = liveNode(iterator);
    if (!n) return nullptr;
    KvRxObject* old = n->value;
    n->value = value;
    return old;
}

KvRxObject* KvRxLinkedList::headValue() const { return head ? head->value : nullptr; }

KvRxObject* KvRxLinkedList::tailValue() const { return tail ? tail->value : nullptr; }

KvRxIterator* KvRxLinkedList::find(KvRxObject* value) {
    Node* n = head;
    while (n && n->value != value) n = n->next;
    return new KvRxLinkedListIterator(n);
}

bool KvRxLinkedList::isEmpty() const { return count == 0; }

int KvRxLinkedList::length() const { return count; }

bool KvRxLinkedList::contains(const KvRxObject* value) const {
    for (Node* n = head; n; n = n->next)
        if (n->value == value || (n->value && value && n->value->isEqualTo(value))) return true;
    return false;
}

bool KvRxLinkedListIterator::done() const { return node == nullptr; }

bool KvRxLinkedListIterator::next() {
    if (!node) return false;
    node = node->next;
    return node != nullptr;
}

KvRxObject* KvRxLinkedListIterator::object() const { return node ? node->value : nullptr; }

KvRxIterable* GetIterableInterface(KvRxObject* object) { return KvRxIterable::cast(object); }

bool IsObjectIterable(KvRxObject* object) { return GetIterableInterface(object) != nullptr; }
