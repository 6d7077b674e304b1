// sdkcheck.krx: in its first message it goes through the operations of the runtime's
// implementation classes that modules are given (the class implementation, the
// dictionary factory, the linker's own operations, the runtime's instance and fatal
// paths) with the installed headers only, and prints one line per check:
// "sdkcheck: <check> ok", or "sdkcheck: <check> FAILED". The first message fails if
// any check does.
#include "kvrxclass.h"
#include "kvrxdynamiclinker.h"
#include "kvrximplementations.h"
#include "kvrxmap.h"
#include "kvrxmodule.h"
#include "kvrxoverrule.h"
#include "kvrxruntime.h"

#include <cstdio>
#include <string>

namespace {

int gFailures = 0;

void report(const char* check, bool ok) {
    std::printf("sdkcheck: %s %s\n", check, ok ? "ok" : "FAILED");
    if (!ok) ++gFailures;
}

// An overrule of the object family, by the class a caller gives it.
class CheckOverrule : public KvRxOverrule {
public:
    explicit CheckOverrule(KvRxClass* cls) : cls(cls) {}
    KvRxClass* isA() const override { return cls; }
    bool isApplicable(const KvRxObject*) const override { return true; }
    KvRxClass* cls;
};

class Marker : public KvRxObject {};

void checkOverruleLists(KvRxClass* target, KvRxClass* child) {
    CheckOverrule first(kvrxFindKvRxClass(u"SdkCheckObjOverrule"));
    CheckOverrule second(first.cls);
    const int objectFamily = 1;  // "OvDbObjectOverrule"
    KvRxOverrule::addOverrule(target, &first, true);
    KvRxOverrule::addOverrule(target, &second, true);
    KvRxOverruleNode* head = KvRxImpClass::getImplRxClass(child)->overruleHead(objectFamily);
    report("overrule list", head && head->overrule == &first && head->next &&
                                head->next->overrule == &second && !head->next->next);
    KvRxOverrule::removeOverrule(target, &first);
    KvRxOverrule::removeOverrule(target, &second);
    report("overrule list emptied",
           KvRxImpClass::getImplRxClass(target)->overruleHead(objectFamily) == nullptr);
}

void checkProtocolMap(KvRxClass* target, KvRxClass* child, KvRxClass* protocol) {
    Marker extension;
    target->addX(protocol, &extension);
    KvRxPEClassMap* map = KvRxImpClass::getImplRxClass(child)->protocolMap();
    report("protocol map", map && map->at(protocol) == &extension && map->size() == 1);
    target->delX(protocol);
    report("protocol map emptied", map->at(protocol) == nullptr);
}

void checkContextMenus(KvRxClass* target) {
    KvRxImpClass* impl = KvRxImpClass::getImplRxClass(target);
    Marker a, b;
    int menuA = 0, menuB = 0;
    bool added = impl->addObjectContextMenu(&a, &menuA) && impl->addObjectContextMenu(&b, &menuB) &&
                 !impl->addObjectContextMenu(&a, &menuB);
    KvRxObject* object = nullptr;
    void* menu = nullptr;
    impl->getObjectContextMenuAt(1, object, &menu);
    bool removed = impl->removeObjectContextMenu(&a) && !impl->removeObjectContextMenu(&a);
    report("context menus", added && object == &b && menu == &menuB && removed &&
                                impl->numOfObjectContextMenu() == 1);
    impl->removeObjectContextMenu(&b);
}

void checkDoomedList(KvRxClass* doomed) {
    int before = KvRxImpClass::getDoomedRxClassCount();
    deleteKvRxClass(doomed);
    report("doomed list", KvRxImpClass::getDoomedRxClassCount() == before + 1 &&
                              KvRxImpClass::getDoomedRxClass(before) == doomed &&
                              KvRxImpClass::getDoomedRxClass(-1) == nullptr);
}

void checkClassImplementation() {
    report("no implementation for null", KvRxImpClass::getImplRxClass(nullptr) == nullptr);
    newKvRxClass(u"SdkCheckObjOverrule", u"OvDbObjectOverrule");
    if (!kvrxFindKvRxClass(u"OvDbObjectOverrule")) newKvRxClass(u"OvDbObjectOverrule", u"OvRxOverrule");
    KvRxClass* target = newKvRxClass(u"SdkCheckTarget", u"OvRxObject");
    KvRxClass* child = newKvRxClass(u"SdkCheckChild", u"SdkCheckTarget");
    KvRxClass* protocol = newKvRxClass(u"SdkCheckProtocol", u"OvRxObject");
    kvrxBuildClassHierarchy();
    report("implementation of a class", KvRxImpClass::getImplRxClass(child)->myParent() == target);
    checkOverruleLists(target, child);
    checkProtocolMap(target, child, protocol);
    checkContextMenus(target);
    checkDoomedList(child);
    deleteKvRxClass(target);
    deleteKvRxClass(protocol);
    deleteKvRxClass(kvrxFindKvRxClass(u"SdkCheckObjOverrule"));
}

void checkDictionary() {
    KvRxDictionaryImp* dictionary = KvRxDictionaryImp::createDictionary(0, false, true, true, nullptr);
    Marker value;
    unsigned id = 0;
    bool stored = dictionary && !dictionary->atPut(u"Key", &value, id) && id == 1;
    report("dictionary factory", stored && dictionary->at(u"KEY") == &value &&
                                     dictionary->isSorted() && !dictionary->isCaseSensitive());
    delete dictionary;
}

// A reactor of a class of its own, so that clearing that class drops only it.
class CheckReactor : public KvRxDLinkerReactor {
public:
    KvRxClass* isA() const override { return kvrxFindKvRxClass(u"SdkCheckReactor"); }
    void rxAppWillBeLoaded(const char16_t*) override { ++heard; }
    int heard = 0;
};

void checkLinker(void* moduleId) {
    KvRxDynamicLinkerImp* linker = KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    report("linker", linker != nullptr);
    if (!linker) return;

    // This module is in the table, under its full file name.
    KvRxDictionaryIterator* it = nullptr;
    std::u16string self;
    int count = 0;
    if (linker->newIterator(it) == Kvore::eOk && it) {
        for (; !it->done(); it->next(), ++count) {
            std::u16string name(it->key() ? it->key() : u"");
            if (name.size() >= 13 && name.compare(name.size() - 13, 13, u"/sdkcheck.krx") == 0 &&
                static_cast<const void*>(linker->findRxModuleProxyByModuleName(it->key(), false)) ==
                    static_cast<const void*>(it->object()))
                self = name;
        }
        delete it;
    }
    report("module table", !self.empty() && count == linker->loadedModuleCount());
    report("no such module", linker->findRxModuleProxyByModuleName(u"/nowhere/none.krx", false) == nullptr);

    RxKDSAppTableEntryType* current = KvRxDynamicLinkerImp::getCurKdsData();
    report("module record", current && KvRxDynamicLinkerImp::setCurKdsData(current) == current &&
                                KvRxDynamicLinkerImp::getCurKdsData() == current);

    // Still locked, so a pass over the table leaves this module loaded.
    linker->unloadAllKrxModule(false, false);
    report("unload all leaves a locked module", linker->loadedModuleCount() == count);
    kvrxUnlockApplication(moduleId);

    // Of three reactors only the one still added hears of the peer's load.
    newKvRxClass(u"SdkCheckReactor", u"OvRxDLinkerReactor");
    kvrxBuildClassHierarchy();
    CheckReactor removed, cleared, kept;
    linker->addDbAppAware(&removed);
    linker->addDbAppAware(&kept);
    linker->addReactor(&cleared);
    linker->removeDbAppAware(&removed);
    linker->clearAllRxReactor(kvrxFindKvRxClass(u"SdkCheckReactor"));
    linker->addDbAppAware(&kept);
    std::u16string peer = self.substr(0, self.size() - 12) + u"sdkpeer.krx";
    bool loaded = linker->loadModule(peer.c_str(), false, false);
    linker->removeDbAppAware(&kept);
    report("reactors", loaded && removed.heard == 0 && cleared.heard == 0 && kept.heard == 1);
    linker->unloadModule(peer.c_str(), false);
    deleteKvRxClass(kvrxFindKvRxClass(u"SdkCheckReactor"));
}

void checkRuntimeInstance() {
    report("instance", KvRxModuleGlobal::GetInstance() != nullptr);
    std::u16string thrown;
    try {
        KvRxModuleGlobal::fatalError(u"sdkcheck %d", 7);
    } catch (LumExceptionWithMsg* e) {
        thrown = e->message();
        delete e;
    }
    report("fatal error", thrown == u"sdkcheck 7");
    thrown.clear();
    try {
        KvRxModuleGlobal::fatalStatus();
    } catch (LumException* e) {
        thrown = e->description();
        delete e;
    }
    report("fatal status", thrown == u"Rx module fatal error, code is 46");
}

}  // namespace

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    if (code != KvRx::kInitAppMsg) return KvRx::kRetOK;
    checkClassImplementation();
    checkDictionary();
    checkRuntimeInstance();
    checkLinker(packet);
    std::printf("sdkcheck: %d failed\n", gFailures);
    return gFailures ? KvRx::kRetError : KvRx::kRetOK;
}
