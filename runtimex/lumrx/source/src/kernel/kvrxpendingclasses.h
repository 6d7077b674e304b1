// The classes waiting for their parent, so that kvrxBuildClassHierarchy links them in
// one pass over them alone instead of a walk of the whole class dictionary.
//
// Owned by the runtime's instance; holds the classes, owns none.
//
// Invariant: the list holds exactly the classes of the class dictionary whose parent
// name is still set. Registration adds a class that names a parent; linking takes out
// what it linked; the destroy walk takes a class out when it leaves the dictionary.
// Each class is listed with the id its registration gave it in the class dictionary.
// linkInOrder gives them in the order of the sorted class dictionary (names compared
// without regard to case), the order in which a walk of the dictionary met them: when
// they are a good part of the dictionary it takes them from such a walk, picking the
// ids of the list, as long as each still holds its class; otherwise it sorts the list
// by name.
#pragma once

#include <cstddef>
#include <vector>

class KvRxClass;
class KvRxDictionary;

class KvRxPendingClasses {
public:
    void add(KvRxClass* aClass, unsigned id) { m_classes.push_back(Waiting{aClass, id}); }
    void remove(KvRxClass* aClass);
    bool empty() const { return m_classes.empty(); }
    // Links each class in the name order of `classes`, the class dictionary, with
    // `link`. Classes after one whose link throws stay, that one included, and the
    // exception goes on.
    template <class Link>
    void linkInOrder(KvRxDictionary* classes, Link link);

private:
    struct Waiting {
        KvRxClass* aClass;
        unsigned id;
    };
    void putInNameOrder(KvRxDictionary* classes);
    void sortByName();
    void takeFromSortedWalk(KvRxDictionary* classes);

    std::vector<Waiting> m_classes;
};

template <class Link>
void KvRxPendingClasses::linkInOrder(KvRxDictionary* classes, Link link) {
    putInNameOrder(classes);
    std::size_t linked = 0;
    try {
        for (; linked < m_classes.size(); ++linked) link(m_classes[linked].aClass);
    } catch (...) {
        m_classes.erase(m_classes.begin(), m_classes.begin() + long(linked));
        throw;
    }
    m_classes.clear();
}
