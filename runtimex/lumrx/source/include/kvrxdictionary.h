// Dictionaries of named objects: a key text and a small integer id reach one entry.
//
// Ids start at 1 and stay valid for the entry's life; 0 means none. A dictionary owns
// its keys, and its values only if it was made to delete them. A null or empty key
// finds nothing.
#pragma once

#include "kvrxobject.h"

// One wide text with a per-object switch for case-insensitive comparison: the key of
// the dictionaries. Owns its text block, except the shared empty constant that stands
// for "no text".
class KvRxString : public KvRxObject, public KvBaseClassWithNew {
    KVRX_DECLARE_MEMBERS(KvRxString);

public:
    using KvBaseClassWithNew::operator new;
    using KvBaseClassWithNew::operator delete;

    KvRxString();
    KvRxString(const KvRxString& other);
    KvRxString(const char16_t* text, bool ignoreCase);
    // The first `n` units of `text`.
    KvRxString(const char16_t* text, int n, bool ignoreCase);
    // The units of `text` before the first `stop`.
    KvRxString(const char16_t* text, char16_t stop, bool ignoreCase);
    ~KvRxString() override;

    KvRxString& operator=(const char16_t* text);
    KvRxString& operator=(const KvRxString& other);

    const char16_t* text() const { return mText; }
    int length() const { return mLength; }
    bool ignoresCase() const { return mIgnoreCase; }
    void setIgnoreCase(bool ignoreCase) { mIgnoreCase = ignoreCase; }

    Kvore::ErrorStatus copyFrom(const KvRxObject* other) override;
    bool isEqualTo(const KvRxObject* other) const override;
    KvRx::Ordering comparedTo(const KvRxObject* other) const override;

    // The order of this text against another key's, by this object's case rule.
    KvRx::Ordering compareText(const KvRxString& other) const;
    // Text equality against a plain text, by this object's case rule.
    bool isEqualTo(const char16_t* text) const;
    // The order of two keys: the left key's case rule decides.
    static bool less(const KvRxString* a, const KvRxString* b);

    // Used inside the runtime.
    void assign(const KvRxString& other);
    void append(const char16_t* text);
    // Room for `n` units, old text not kept, length set to `n`; null for negative `n`
    // or when no memory is left.
    char16_t* getBuffer(int n);
    // Sets the length after the caller filled the buffer; -1 measures the text.
    void releaseBuffer(int n);

private:
    bool hasText() const;
    char16_t* ensure(int n, bool keep);
    void release();

    char16_t* mText;
    int mLength;
    int mCapacity;
    bool mIgnoreCase;
};

class KvRxIterator : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxIterator);

public:
    virtual bool done() const = 0;
    // True if the iterator stands on an element after the step.
    virtual bool next() = 0;
    virtual KvRxObject* object() const = 0;
};

class KvRxDictionaryIterator : public KvRxIterator {
    KVRX_DECLARE_MEMBERS(KvRxDictionaryIterator);

public:
    virtual const char16_t* key() const = 0;
    virtual unsigned int id() const = 0;
};

// Iterator kinds of KvRxDictionary::newIterator.
enum KvRxDictIterType { kDictSorted = 0, kDictById = 1 };

class KvRxDictionary : public KvRxObject {
    KVRX_DECLARE_MEMBERS(KvRxDictionary);

public:
    virtual KvRxObject* at(unsigned int id) const = 0;
    virtual KvRxObject* at(const char16_t* key) const = 0;
    // Replaces the value of a live entry; an id without one is fatal. A value the
    // dictionary may not hold is given back.
    virtual KvRxObject* atPut(unsigned int id, KvRxObject* object) = 0;
    // Stores `object` under `key`; null when nothing is left for the caller to look
    // after, else the displaced or refused object. `retId` is the entry's id.
    virtual KvRxObject* atPut(const char16_t* key, KvRxObject* object, unsigned int& retId) = 0;
    virtual bool resetKey(unsigned int id, const char16_t* newKey) = 0;
    virtual bool resetKey(const char16_t* oldKey, const char16_t* newKey) = 0;
    virtual bool atKeyAndIdPut(const char16_t* key, unsigned int id, KvRxObject* object) = 0;
    virtual KvRxObject* remove(unsigned int id) = 0;
    virtual KvRxObject* remove(const char16_t* key) = 0;
    virtual bool has(unsigned int id) const = 0;
    virtual bool has(const char16_t* key) const = 0;
    virtual unsigned int idAt(const char16_t* key) const = 0;
    virtual const char16_t* keyAt(unsigned int id) const = 0;
    virtual unsigned int numEntries() const = 0;
    // A new iterator, deleted by the caller: kDictSorted walks a sorted dictionary in
    // key order; any other kind, and every unsorted dictionary, walks in id order.
    virtual KvRxDictionaryIterator* newIterator(int type = kDictSorted) = 0;
    virtual bool deletesObjects() const = 0;
    virtual bool isCaseSensitive() const = 0;
    virtual bool isSorted() const = 0;
};
