// sdkcheck.krx: in its first message it goes through the class implementation
// operations with the installed headers only, and prints one line per check:
// "sdkcheck: <check> ok", or "sdkcheck: <check> FAILED". The first message fails if
// any check does.
#include "kvrxclass.h"
#include "kvrxdynamiclinker.h"
#include "kvrxmap.h"
#include "kvrxmodule.h"
#include "kvrxoverrule.h"
#include "kvrxruntime.h"

#include <cstdio>

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

}  // namespace

KVRX_MODULE_EXPORT uint32_t kvrxGetApiVersion(uintptr_t) { return KvRx::kModuleApiVersion; }

KVRX_MODULE_EXPORT KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    if (code != KvRx::kInitAppMsg) return KvRx::kRetOK;
    checkClassImplementation();
    kvrxUnlockApplication(packet);
    std::printf("sdkcheck: %d failed\n", gFailures);
    return gFailures ? KvRx::kRetError : KvRx::kRetOK;
}
