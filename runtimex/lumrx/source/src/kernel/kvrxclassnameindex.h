// The index of the class dictionary by name: a hash table beside it, so that finding a
// class by name costs one pass to hash the text and one to compare it.
//
// Owned by the runtime's instance; made at start-up with the class dictionary and
// deleted with it. Holds pointers to the classes and to their own name copies, owns
// neither.
//
// Invariant: the index holds exactly the entries of the class dictionary, each class
// under its registered name, matched without regard to case as the dictionary matches
// its keys (names equal under simple case folding). The class dictionary is written
// only by registration, which adds a class to both, and by the destroy walk, which
// takes it out of both before the class goes; nothing else puts into it or takes from
// it, so the two can't differ.
#pragma once

#include <cstddef>
#include <unordered_map>

class KvRxClass;

class KvRxClassNameIndex {
public:
    // The class registered under `name`, in any case; null if none.
    KvRxClass* find(const char16_t* name) const;
    // `name` is the class's own copy, which lives as long as the class.
    void add(const char16_t* name, KvRxClass* aClass);
    // Takes out `aClass` if it is the class registered under `name`; false otherwise.
    bool removeIfIs(const char16_t* name, const KvRxClass* aClass);
    size_t size() const { return m_classes.size(); }
    // Bytes per class of the table, by the standard library's node layout.
    static size_t bytesPerEntry();

private:
    struct FoldedHash {
        size_t operator()(const char16_t* text) const;
    };
    struct FoldedEqual {
        bool operator()(const char16_t* a, const char16_t* b) const;
    };

    std::unordered_map<const char16_t*, KvRxClass*, FoldedHash, FoldedEqual> m_classes;
};
