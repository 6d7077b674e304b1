// The linked list: insertion orders, removal through iterators, value identity against
// equality, the iterator class check and the iterable test.

#include "testsupport.h"

#include "collections/kvrxdictionaryimp.h"
#include "kvrxcollection.h"
#include "kvrxmap.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// An object that equals another of its kind with the same tag.
class Tagged : public KvRxObject {
public:
    explicit Tagged(char t) : tag(t) {}
    bool isEqualTo(const KvRxObject* other) const override {
        const Tagged* t = dynamic_cast<const Tagged*>(other);
        return t && t->tag == tag;
    }
    char tag;
};

class LinkedListTest : public lumtest::RuntimeTest {
protected:
    Tagged a{'a'}, b{'b'}, c{'c'}, d{'d'}, x{'x'}, y{'y'};

    // The tags front to back, "-" for a null value.
    static std::string forward(KvRxLinkedList& list) {
        std::string s;
        std::unique_ptr<KvRxIterator> it(list.newIterator());
        for (bool on = !it->done(); on; on = it->next())
            s += it->object() ? static_cast<Tagged*>(it->object())->tag : '-';
        EXPECT_EQ(int(s.size()), list.length());
        EXPECT_EQ(list.isEmpty(), s.empty());
        return s;
    }
    // Takes the list apart from the tail, which reads the links backwards.
    static std::string drainBackward(KvRxLinkedList& list) {
        std::string s;
        while (!list.isEmpty()) {
            KvRxObject* o = list.removeTail();
            s.insert(s.begin(), o ? static_cast<Tagged*>(o)->tag : '-');
        }
        EXPECT_EQ(list.headValue(), nullptr);
        EXPECT_EQ(list.tailValue(), nullptr);
        EXPECT_EQ(list.length(), 0);
        return s;
    }
    void fill(KvRxLinkedList& list, std::initializer_list<Tagged*> values) {
        for (Tagged* t : values) list.append(t);
    }
};

TEST_F(LinkedListTest, EmptyListAndSingleElement) {
    KvRxLinkedList list;
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.headValue(), nullptr);
    EXPECT_EQ(list.tailValue(), nullptr);
    EXPECT_EQ(list.removeHead(), nullptr);
    EXPECT_EQ(list.removeTail(), nullptr);
    EXPECT_EQ(list.remove(&a), nullptr);
    EXPECT_EQ(list.setHead(&a), nullptr);
    EXPECT_EQ(list.setTail(&a), nullptr);
    EXPECT_TRUE(list.isEmpty());
    std::unique_ptr<KvRxIterator> it(list.newIterator());
    EXPECT_TRUE(it->done());
    EXPECT_FALSE(it->next());
    EXPECT_EQ(it->object(), nullptr);
    EXPECT_EQ(list.removeAt(it.get()), nullptr);
    EXPECT_EQ(list.setAt(it.get(), &a), nullptr);
    EXPECT_EQ(list.setAt(nullptr, &a), nullptr);
    EXPECT_EQ(list.removeAt(nullptr), nullptr);

    // Every way of taking the one element leaves a list that works from both ends.
    std::vector<std::function<KvRxObject*(KvRxLinkedList&)>> removals = {
        [](KvRxLinkedList& l) { return l.removeHead(); },
        [](KvRxLinkedList& l) { return l.removeTail(); },
        [this](KvRxLinkedList& l) { return l.remove(&a); },
        [](KvRxLinkedList& l) {
            std::unique_ptr<KvRxIterator> i(l.newIterator());
            KvRxObject* o = l.removeAt(i.get());
            EXPECT_TRUE(i->done());
            return o;
        },
    };
    for (auto& remove : removals) {
        list.append(&a);
        EXPECT_EQ(list.headValue(), &a);
        EXPECT_EQ(list.tailValue(), &a);
        EXPECT_EQ(remove(list), &a);
        EXPECT_EQ(forward(list), "");
        list.append(&b);
        list.prepend(&c);
        EXPECT_EQ(drainBackward(list), "cb");
        list.prepend(&d);
        EXPECT_EQ(list.removeHead(), &d);
        EXPECT_EQ(list.tailValue(), nullptr);
    }
}

TEST_F(LinkedListTest, InsertionOrders) {
    KvRxLinkedList list;
    list.append(&b);
    list.prepend(&a);
    *list.appendSlot() = &d;
    *list.prependSlot() = &x;
    EXPECT_EQ(forward(list), "xabd");
    std::unique_ptr<KvRxIterator> it(list.find(&b));
    list.insertAfter(it.get(), &c);
    *list.insertSlotAfter(it.get()) = &y;
    EXPECT_EQ(forward(list), "xabycd");
    std::unique_ptr<KvRxIterator> tail(list.find(&d));
    list.insertAfter(tail.get(), &a);  // behind the tail: a new tail
    EXPECT_EQ(list.tailValue(), &a);
    EXPECT_EQ(drainBackward(list), "xabycda");

    // A finished or null iterator appends.
    list.append(&a);
    std::unique_ptr<KvRxIterator> finished(list.newIterator());
    finished->next();
    ASSERT_TRUE(finished->done());
    list.insertAfter(finished.get(), &b);
    list.insertAfter(nullptr, &c);
    *list.insertSlotAfter(nullptr) = &d;
    list.append(nullptr);
    EXPECT_EQ(forward(list), "abcd-");
    EXPECT_EQ(drainBackward(list), "abcd-");
}

TEST_F(LinkedListTest, BulkInsertionOrders) {
    KvRxLinkedList source;
    fill(source, {&a, &b, &c, &d});

    KvRxLinkedList list;
    list.append(&x);
    list.prependAll(&source);
    EXPECT_EQ(forward(list), "adcbx");
    EXPECT_EQ(drainBackward(list), "adcbx");

    fill(list, {&x, &y});
    std::unique_ptr<KvRxIterator> it(list.newIterator());
    list.insertAllAfter(it.get(), &source);  // the iterator stands still: reverse order
    EXPECT_EQ(it->object(), &x);
    EXPECT_EQ(forward(list), "xdcbay");
    list.insertAllAfter(nullptr, &source);
    list.appendAll(&source);
    EXPECT_EQ(forward(list), "xdcbayabcdabcd");
    EXPECT_EQ(drainBackward(list), "xdcbayabcdabcd");
    EXPECT_EQ(forward(source), "abcd");
}

TEST_F(LinkedListTest, RemovalAndReplacement) {
    KvRxLinkedList list;
    fill(list, {&a, &b, &a, &c});
    EXPECT_EQ(list.remove(&a), &a);  // the first only
    EXPECT_EQ(forward(list), "bac");
    EXPECT_EQ(list.remove(&d), nullptr);
    EXPECT_EQ(list.setHead(&x), &b);
    EXPECT_EQ(list.setTail(&y), &c);
    EXPECT_EQ(forward(list), "xay");

    // removeAt steps the iterator on first; the walk goes on from there.
    std::unique_ptr<KvRxIterator> it(list.newIterator());
    EXPECT_EQ(list.setAt(it.get(), &b), &x);
    EXPECT_EQ(list.removeAt(it.get()), &b);
    EXPECT_EQ(it->object(), &a);
    it->next();
    EXPECT_EQ(list.removeAt(it.get()), &y);  // the tail
    EXPECT_TRUE(it->done());
    EXPECT_EQ(list.removeAt(it.get()), nullptr);
    EXPECT_EQ(list.setAt(it.get(), &d), nullptr);
    EXPECT_EQ(forward(list), "a");
    EXPECT_EQ(list.tailValue(), &a);

    fill(list, {&b, &c, &d});
    std::unique_ptr<KvRxIterator> all(list.newIterator());
    std::string removed;
    while (!all->done()) removed += static_cast<Tagged*>(list.removeAt(all.get()))->tag;
    EXPECT_EQ(removed, "abcd");
    EXPECT_TRUE(list.isEmpty());

    fill(list, {&a, &b, &c});
    list.removeAll();
    EXPECT_EQ(forward(list), "");
    list.append(&d);
    EXPECT_EQ(drainBackward(list), "d");
    EXPECT_EQ(a.tag, 'a');  // values outlive the nodes
}

TEST_F(LinkedListTest, WalkSeesWhatIsInsertedBehindIt) {
    KvRxLinkedList list;
    fill(list, {&a, &b, &c});
    std::string seen;
    std::unique_ptr<KvRxIterator> it(list.newIterator());
    for (bool on = !it->done(); on; on = it->next()) {
        seen += static_cast<Tagged*>(it->object())->tag;
        if (it->object() == &b) list.insertAfter(it.get(), &x);
        if (it->object() == &c) list.append(&y);
    }
    EXPECT_EQ(seen, "abxcy");
}

TEST_F(LinkedListTest, FindIsByPointerContainsByEquality) {
    KvRxLinkedList list;
    Tagged otherA('a');
    fill(list, {&a, nullptr, &b, &a});
    EXPECT_EQ(list.length(), 4);

    std::unique_ptr<KvRxIterator> found(list.find(&a));
    EXPECT_EQ(found->object(), &a);
    EXPECT_TRUE(found->next());
    EXPECT_EQ(found->object(), nullptr);  // stands on the null value
    EXPECT_FALSE(found->done());
    std::unique_ptr<KvRxIterator> null(list.find(nullptr));
    ASSERT_FALSE(null->done());
    EXPECT_TRUE(null->next());
    EXPECT_EQ(null->object(), &b);
    std::unique_ptr<KvRxIterator> absent(list.find(&otherA));
    ASSERT_NE(absent, nullptr);
    EXPECT_TRUE(absent->done());

    EXPECT_TRUE(list.contains(&otherA));
    EXPECT_TRUE(list.contains(nullptr));
    EXPECT_FALSE(list.contains(&c));
    EXPECT_EQ(list.remove(nullptr), nullptr);
    EXPECT_EQ(forward(list), "aba");
    EXPECT_FALSE(list.contains(nullptr));
}

TEST_F(LinkedListTest, IteratorOfAnotherClassIsFatal) {
    lumtest::RecordingCrashRecorder recorder;
    std::unique_ptr<KvRxDictionaryImp> dict(KvRxDictionaryImp::createDictionary(0, false, false, false, nullptr));
    unsigned id = 0;
    dict->atPut(u"k", &a, id);
    std::unique_ptr<KvRxDictionaryIterator> live(dict->newIterator());
    std::unique_ptr<KvRxDictionaryIterator> finished(dict->newIterator());
    finished->next();
    ASSERT_TRUE(finished->done());
    ASSERT_FALSE(live->done());

    KvRxLinkedList list, source;
    fill(list, {&a, &b});
    source.append(&c);
    const char* fatal = "Rx module fatal error, code is 46";
    EXPECT_LUM_THROW(list.insertAfter(live.get(), &x), fatal);
    EXPECT_LUM_THROW(list.insertSlotAfter(live.get()), fatal);
    EXPECT_LUM_THROW(list.insertAllAfter(live.get(), &source), fatal);
    EXPECT_LUM_THROW(list.removeAt(live.get()), fatal);
    EXPECT_LUM_THROW(list.setAt(live.get(), &x), fatal);
    EXPECT_LUM_THROW(list.setAt(finished.get(), &x), fatal);
    EXPECT_EQ(recorder.exceptions.size(), 6u);
    EXPECT_EQ(forward(list), "ab");

    // Finished, the others take it as no iterator at all.
    EXPECT_EQ(list.removeAt(finished.get()), nullptr);
    list.insertAfter(finished.get(), &x);
    EXPECT_EQ(forward(list), "abx");
}

TEST_F(LinkedListTest, IterableInterface) {
    KvRxLinkedList list;
    std::unique_ptr<KvRxDictionaryImp> dict(KvRxDictionaryImp::createDictionary(0, false, false, false, nullptr));
    KvRxMap map;
    EXPECT_EQ(GetIterableInterface(&list), &list);
    EXPECT_TRUE(IsObjectIterable(&list));
    EXPECT_TRUE(IsObjectIterable(&map));
    EXPECT_EQ(GetIterableInterface(dict.get()), nullptr);
    EXPECT_FALSE(IsObjectIterable(dict.get()));
    EXPECT_FALSE(IsObjectIterable(nullptr));
    EXPECT_FALSE(IsObjectIterable(&a));

}

TEST_F(LinkedListTest, RegisteredClassesOfTheCollections) {
    KvRxLinkedList list;
    std::unique_ptr<KvRxIterator> it(list.newIterator());
    std::unique_ptr<KvRxDictionaryImp> dict(KvRxDictionaryImp::createDictionary(0, false, true, false, nullptr));
    std::unique_ptr<KvRxDictionaryIterator> dictIt(dict->newIterator());
    KvRxString key(u"k", false);
    auto chain = [](const KvRxObject* o) {
        std::string s;
        for (KvRxClass* c = o->isA(); c; c = c->myParent()) s += lumtest::utf8(c->name()) + " ";
        return s;
    };
    EXPECT_EQ(chain(&list), "KvRxLinkedList KvRxGenericCollection KvRxIterable OvRxObject ");
    EXPECT_EQ(chain(it.get()), "KvRxLinkedListIterator OvRxIterator OvRxObject ");
    EXPECT_EQ(chain(dict.get()), "KvRxDictionaryImp OvRxDictionary OvRxObject ");
    EXPECT_EQ(chain(dictIt.get()), "KvRxDictionaryImpIterator OvRxDictionaryIterator OvRxIterator OvRxObject ");
    EXPECT_EQ(chain(&key), "KvRxString OvRxObject ");
}

}  // namespace
