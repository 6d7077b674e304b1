// General collections of objects: the iterable interfaces and the linked list.
// None of them owns the objects it holds; each owns its nodes.
#pragma once

#include "kvrxdictionary.h"

class KvRxIterable : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxIterable);

public:
    // A new iterator on the first element; the caller deletes it.
    virtual KvRxIterator* newIterator() = 0;
};

class KvRxGenericCollection : public KvRxIterable {
    KVRX_DECLARE_MEMBERS(KvRxGenericCollection);

public:
    virtual void append(KvRxObject* value) = 0;
    virtual KvRxObject** appendSlot() = 0;
    virtual void prepend(KvRxObject* value) = 0;
    virtual KvRxObject** prependSlot() = 0;
    virtual void insertAfter(KvRxIterator* iterator, KvRxObject* value) = 0;
    virtual KvRxObject** insertSlotAfter(KvRxIterator* iterator) = 0;
    virtual void appendAll(KvRxIterable* source) = 0;
    virtual void prependAll(KvRxIterable* source) = 0;
    virtual void insertAllAfter(KvRxIterator* iterator, KvRxIterable* source) = 0;
    virtual KvRxObject* removeTail() = 0;
    virtual KvRxObject* removeHead() = 0;
    virtual KvRxObject* remove(KvRxObject* value) = 0;
    virtual KvRxObject* removeAt(KvRxIterator* iterator) = 0;
    virtual void removeAll() = 0;
    virtual KvRxObject* setTail(KvRxObject* value) = 0;
    virtual KvRxObject* setHead(KvRxObject* value) = 0;
    virtual KvRxObject* setAt(KvRxIterator* iterator, KvRxObject* value) = 0;
    virtual KvRxObject* headValue() const = 0;
    virtual KvRxObject* tailValue() const = 0;
    virtual KvRxIterator* find(KvRxObject* value) = 0;
    virtual bool isEmpty() const = 0;
    virtual int length() const = 0;
    virtual bool contains(const KvRxObject* value) const = 0;
};

// A doubly linked list of object pointers. Owns its nodes (from _lumMalloc), never
// the values. Operations that take an iterator take a KvRxLinkedListIterator; a live
// iterator of another class is fatal, a null or finished one counts as none.
class KvRxLinkedList : public KvRxGenericCollection {
    KVRX_DECLARE_MEMBERS(KvRxLinkedList);

public:
    struct Node;

    KvRxLinkedList();
    ~KvRxLinkedList() override;
    KvRxLinkedList(const KvRxLinkedList&) = delete;
    KvRxLinkedList& operator=(const KvRxLinkedList&) = delete;

    KvRxIterator* newIterator() override;
    void append(KvRxObject* value) override;
    KvRxObject** appendSlot() override;
    void prepend(KvRxObject* value) override;
    KvRxObject** prependSlot() override;
    void insertAfter(KvRxIterator* iterator, KvRxObject* value) override;
    KvRxObject** insertSlotAfter(KvRxIterator* iterator) override;
    void appendAll(KvRxIterable* source) override;
    void prependAll(KvRxIterable* source) override;
    void insertAllAfter(KvRxIterator* iterator, KvRxIterable* source) override;
    KvRxObject* removeTail() override;
    KvRxObject* removeHead() override;
    KvRxObject* remove(KvRxObject* value) override;
    KvRxObject* removeAt(KvRxIterator* iterator) override;
    void removeAll() override;
    KvRxObject* setTail(KvRxObject* value) override;
    KvRxObject* setHead(KvRxObject* value) override;
    KvRxObject* setAt(KvRxIterator* iterator, KvRxObject* value) override;
    KvRxObject* headValue() const override;
    KvRxObject* tailValue() const override;
    KvRxIterator* find(KvRxObject* value) override;
    bool isEmpty() const override;
    int length() const override;
    bool contains(const KvRxObject* value) const override;

private:
    Node* newNode();
    void linkAfter(Node* at, Node* node);
    void unlink(Node* node);
    Node* liveNode(KvRxIterator* iterator) const;

    Node* head;
    Node* tail;
    int count;
};

class KvRxLinkedListIterator : public KvRxIterator {
    KVRX_DECLARE_MEMBERS(KvRxLinkedListIterator);

public:
    explicit KvRxLinkedListIterator(KvRxLinkedList::Node* node) : node(node) {}
    bool done() const override;
    bool next() override;
    KvRxObject* object() const override;

private:
    friend class KvRxLinkedList;
    KvRxLinkedList::Node* node;  // null at the end; not owned
};

extern "C" {
// `object` if its class derives from KvRxIterable, else null.
KvRxIterable* GetIterableInterface(KvRxObject* object);
bool IsObjectIterable(KvRxObject* object);
}
