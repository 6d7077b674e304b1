// Start-up, shut-down, the roots and the fatal paths.
#include "kernel/kvrxmoduleglobal.h"
#include "kvrxcollection.h"
#include "kvrxdynamiclinker.h"
#include "kvrxservice.h"
#include "testsupport.h"

#include <cstdlib>

using lumtest::RecordingCrashRecorder;
using lumtest::utf8;

namespace {

class RuntimeRoots : public lumtest::RuntimeTest {};

TEST_F(RuntimeRoots, RegistryHoldsItsRootsUnderFixedIds) {
    KvRxDictionary* registry = kvrxSysRegistry();
    ASSERT_NE(registry, nullptr);
    ASSERT_EQ(KvRxModuleGlobal::GetInstance(), KvRxModuleGlobalImp::instance());
    KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(registry->at(u"ClassDictionary"), g->classDictionary);
    EXPECT_EQ(registry->idAt(u"ClassDictionary"), 1u);
    EXPECT_EQ(registry->at(u"classdictionary"), g->classDictionary) << "keys ignore case";
    EXPECT_EQ(registry->at(u"DynamicLinker"), g->dynamicLinker);
    EXPECT_EQ(registry->idAt(u"DynamicLinker"), 2u);
    EXPECT_EQ(registry->at(u"ServiceDictionary"), g->serviceDictionary);
    EXPECT_EQ(registry->idAt(u"ServiceDictionary"), 3u);
    EXPECT_EQ(registry->numEntries(), 3u);
    EXPECT_FALSE(g->serviceDictionary->isCaseSensitive());
    EXPECT_EQ(g->serviceDictionary->at(u"KernelServices"), g->kernelService);
    EXPECT_TRUE(g->classDictionary->isSorted());
    EXPECT_FALSE(registry->isSorted());
    EXPECT_FALSE(registry->deletesObjects());
}

TEST_F(RuntimeRoots, FindsClassesByNameInAnyCase) {
    KvRxClass* root = kvrxFindKvRxClass(u"OvRxObject");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root, KvRxObject::desc());
    EXPECT_EQ(kvrxFindKvRxClass(u"ovrxOBJECT"), root);
    EXPECT_EQ(kvrxFindKvRxClass(nullptr), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u""), nullptr);
    EXPECT_EQ(kvrxFindKvRxClass(u"NoSuchClass"), nullptr);
}

TEST_F(RuntimeRoots, StartupClassesAreRegisteredAndLinked) {
    struct { const char16_t* name; const char16_t* parent; } expected[] = {
        {u"OvRxClass", u"OvRxObject"},
        {u"KvRxString", u"OvRxObject"},
        {u"OvRxDictionary", u"OvRxObject"},
        {u"KvRxDictionaryImp", u"OvRxDictionary"},
        {u"OvRxIterator", u"OvRxObject"},
        {u"OvRxDictionaryIterator", u"OvRxIterator"},
        {u"KvRxDictionaryImpIterator", u"OvRxDictionaryIterator"},
        {u"KvRxIterable", u"OvRxObject"},
        {u"KvRxGenericCollection", u"KvRxIterable"},
        {u"KvRxLinkedList", u"KvRxGenericCollection"},
        {u"KvRxLinkedListIterator", u"OvRxIterator"},
        {u"OvRxOverrule", u"OvRxObject"},
        {u"OvRxService", u"OvRxObject"},
        {u"OvRxKernel", u"OvRxService"},
        {u"KvRxKernelServiceImp", u"OvRxKernel"},
        {u"OvRxGenHand", u"OvRxObject"},
        {u"OvRxDynamicLinker", u"OvRxObject"},
        {u"KvRxDynamicLinkerImp", u"OvRxDynamicLinker"},
        {u"KvRxGenericMap", u"KvRxIterable"},
        {u"KvRxGenericMapIterator", u"OvRxIterator"},
        {u"KvRxMap", u"KvRxGenericMap"},
        {u"KvRxMapIterator", u"KvRxGenericMapIterator"},
        {u"KvRxPEClassMap", u"KvRxGenericMap"},
        {u"KvRxPEClassMapIterator", u"KvRxGenericMapIterator"},
        {u"KvRxCopyOnWriteObject", u"OvRxObject"},
    };
    for (const auto& e : expected) {
        KvRxClass* c = kvrxFindKvRxClass(e.name);
        ASSERT_NE(c, nullptr) << utf8(e.name);
        ASSERT_NE(c->myParent(), nullptr) << utf8(e.name);
        EXPECT_EQ(utf8(c->myParent()->name()), utf8(e.parent)) << utf8(e.name);
    }
    EXPECT_EQ(KvRxObject::desc()->myParent(), nullptr);
    // The class dictionary itself is a KvRxDictionaryImp by its run-time class.
    EXPECT_TRUE(KvRxModuleGlobalImp::instance()->classDictionary->isKindOf(KvRxDictionary::desc()));
}

TEST_F(RuntimeRoots, SecondStartWhileRunningIsFatal) {
    RecordingCrashRecorder recorder;
    EXPECT_LUM_THROW(InitializeKvRxSystem(), "KvRxModuleGlobal has initialized already!!!");
    ASSERT_EQ(recorder.exceptions.size(), 1u) << "the exception is reported before the throw";
    EXPECT_EQ(utf8(recorder.exceptions[0]), "KvRxModuleGlobal has initialized already!!!");
    EXPECT_NE(kvrxSysRegistry(), nullptr) << "the running instance is untouched";
}

TEST(FatalPaths, FatalErrorFormatsReportsAndThrows) {
    RecordingCrashRecorder recorder;
    EXPECT_LUM_THROW(KvRxModuleGlobal::fatalError(u"bad %s number %d", u"thing", 42),
                     "bad thing number 42");
    EXPECT_LUM_THROW(KvRxModuleGlobal::fatalError(nullptr), "Error abort!");
    EXPECT_LUM_THROW(KvRxModuleGlobal::fatalStatus(), "Rx module fatal error, code is 46");
    EXPECT_EQ(recorder.exceptions.size(), 3u);

    // It can be caught as the message exception and the base alike.
    try {
        KvRxModuleGlobal::fatalError(u"x");
        FAIL() << "no throw";
    } catch (LumExceptionWithMsg* e) {
        EXPECT_EQ(utf8(e->message()), "x");
        EXPECT_STREQ(e->file(), "");
        EXPECT_EQ(e->line(), 0);
        delete e;
    }
}

TEST(FatalPaths, AbortGoesToTheHostBehindOneExclamationMark) {
    lumtest::FakeHost host;
    kvrx_abort(u"lost %d of %s", 3, u"them");
    kvrx_abort(nullptr);
    kvrx_abort(u"100%% sure");
    ASSERT_EQ(host.fatalErrors.size(), 3u) << "abort returns when the host returns";
    EXPECT_EQ(utf8(host.fatalErrors[0]), "!lost 3 of them");
    EXPECT_EQ(utf8(host.fatalErrors[1]), "<null>");
    EXPECT_EQ(utf8(host.fatalErrors[2]), "!100% sure");
}

TEST(FatalPaths, AbortWithoutHostThrowsTheTextWithoutExclamationMark) {
    ASSERT_EQ(kvdbHostApplicationServices(), nullptr);
    EXPECT_LUM_THROW(kvrx_abort(u"lost %d", 7), "lost 7");
    EXPECT_LUM_THROW(kvrx_abort(nullptr), "Error abort!");
}

TEST(HeapOperators, RouteThroughTheSiblingAllocator) {
    struct Counted : KvBaseClassWithNew {
        int payload[4] = {1, 2, 3, 4};
    };
    Counted* one = new Counted;
    Counted* many = new Counted[3];
    Counted* located = new (__FILE__, __LINE__) Counted;
    EXPECT_EQ(one->payload[3], 4);
    EXPECT_EQ(many[2].payload[0], 1);
    delete one;
    delete[] many;
    delete located;
    Counted* none = nullptr;
    delete none;  // null is allowed
}

}  // namespace
