// LumPAL: an ordered pointer list, the locale value type and a heap release.
#pragma once

#include <cstddef>

typedef void* LUM_POSITION;

// An ordered list of pointers. Owns its nodes, not the pointers.
class LumPtrList {
public:
    LumPtrList();
    ~LumPtrList();
    LumPtrList(const LumPtrList&) = delete;
    LumPtrList& operator=(const LumPtrList&) = delete;

    // The position of the first element, null for an empty list.
    LUM_POSITION GetHeadPosition() const;
    // The element at `pos`; moves `pos` on to the next position (null after the last).
    void* GetNext(LUM_POSITION& pos) const;
    // Appends and returns the new element's position.
    LUM_POSITION AddTail(void* p);
    int GetCount() const { return m_count; }
    bool IsEmpty() const { return m_count == 0; }

private:
    struct Node;
    Node* m_head;
    Node* m_tail;
    int m_count;
};

// A locale value: a locale id and, when built from texts, a language and a region.
// Owns its two texts.
class KvLocale {
public:
    explicit KvLocale(int lcid = 0);
    KvLocale(const char16_t* language, const char16_t* region);
    KvLocale(KvLocale&& other) noexcept;
    KvLocale& operator=(KvLocale&& other) noexcept;
    KvLocale(const KvLocale&) = delete;
    KvLocale& operator=(const KvLocale&) = delete;
    ~KvLocale();

    int lcid() const { return m_lcid; }
    // Empty texts when built from a number.
    const char16_t* language() const;
    const char16_t* region() const;

private:
    int m_lcid;
    char16_t* m_language;
    char16_t* m_region;
};

// Releases `p` to the heap it came from; the process heap when `heap` is null.
bool kvHeapFree(void* heap, void* p);
