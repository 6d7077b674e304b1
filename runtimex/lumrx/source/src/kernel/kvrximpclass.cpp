#include "kernel/kvrximpclass.h"

#include "kernel/kvrxcrashrecord.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kernel/kvrxpeclassmap.h"
#include "kvarray.h"
#include "kvrxdynloadmoduleproxy.h"

#include <memory>

namespace {

// Classes waiting for the next walk, strictly in order of arrival.
KvArray<KvRxClass*> gDoomedClasses;
// Classes whose checked destruction failed: out of the dictionary, not destroyed,
// kept here so that shut-down still frees them.
KvArray<KvRxClass*> gAbandonedClasses;
// Read by destruction; false only during the final walk of shut-down.
bool gCheckOrder = true;

const unsigned kSubClassNamesSize = 260;

KvRxDictionary* classDictionary() {
    KvRxModuleGlobal* g = KvRxModuleGlobal::GetInstance();
    return g ? g->classDictionary : nullptr;
}

// The module whose first message is under way, if the host knows one.
KvRxDynLoadModuleProxy* initialisingModule() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    KvDbHostRuntime* runtime = host ? host->hostRuntime() : nullptr;
    KvRxDynLoadModuleProxy* proxy = runtime ? runtime->currentModule() : nullptr;
    return proxy && proxy->initialising() ? proxy : nullptr;
}

KvRxObject* nullPseudoConstructor() { return nullptr; }

}  // namespace

KvRxImpClass::KvRxImpClass(KvRxClass* rxClass, KvRxPseudoConstructor pseudoConstructor)
    : m_pseudoConstructor(pseudoConstructor ? pseudoConstructor : &nullPseudoConstructor),
      m_rxClass(rxClass) {}

bool KvRxImpClass::copyNames(const Registration& r) {
    m_className = _lumStrdup(r.name);
    m_parentName = _lumStrdup(r.parentName);
    m_dxfName = _lumStrdup(r.dxfName);
    m_appName = _lumStrdup(r.appName);
    return m_className && (m_parentName || !r.parentName) && (m_dxfName || !r.dxfName) &&
           (m_appName || !r.appName);
}

KvRxClass* KvRxImpClass::registerClass(const Registration& r, KvRxClass* rxClass) {
    KvRxDictionary* classes = classDictionary();
    if (!r.name || !*r.name || !classes) return nullptr;

    bool made = rxClass == nullptr;
    if (made) rxClass = new KvRxClass();
    void* block = _lumMalloc(sizeof(KvRxImpClass));
    KvRxImpClass* impl = block ? ::new (block) KvRxImpClass(rxClass, r.pseudoConstructor) : nullptr;
    if (impl && !impl->copyNames(r)) {
        delete impl;
        impl = nullptr;
    }
    if (!impl) {
        if (made) delete rxClass;
        return nullptr;
    }
    impl->m_version = r.version;
    impl->m_maintenanceVersion = r.maintenanceVersion;
    impl->m_proxyFlags = r.proxyFlags;
    impl->m_feature = r.feature;
    impl->m_appNameCallback = r.appNameCallback;
    impl->m_memberBuilder = r.memberBuilder;
    impl->m_memberBuilderData = r.memberBuilderData;
    rxClass->m_impl = impl;

    unsigned id = 0;
    if (KvRxObject* taken = classes->atPut(r.name, rxClass, id)) {
        // The name belongs to another class: give it back its entry, drop the new one.
        classes->atPut(r.name, taken, id);
        if (made) {
            delete rxClass;
        } else {
            rxClass->m_impl = nullptr;
            delete impl;
        }
        KvRxModuleGlobal::fatalError(u"Try to regist a rxclass which is already registed!!");
    }
    impl->m_module = initialisingModule();
    return rxClass;
}

KvRxImpClass::~KvRxImpClass() {
    delete m_children;
    delete m_peMap;
    freeOverruleNodes();
    _lumStrdupFree(m_parentName);
    _lumStrdupFree(m_className);
    _lumStrdupFree(m_dxfName);
    _lumStrdupFree(m_appName);
    delete m_contextMenus;
}

KvRxPEClassMapImp* KvRxImpClass::peMap() {
    if (!m_peMap) m_peMap = new KvRxPEClassMapImp();
    return m_peMap;
}

KvRxPEClassMap* KvRxImpClass::protocolMap() const { return m_peMap; }

KvRxObject* KvRxImpClass::addX(KvRxClass* protocolClass, KvRxObject* object) {
    if (!protocolClass) return nullptr;
    KvRxObject* value = object;
    if (!object && m_parent) value = m_parent->m_impl->queryX(protocolClass);
    KvRxObject* old = peMap()->at(protocolClass);
    copyDown(protocolClass, value, old);
    return old;
}

KvRxObject* KvRxImpClass::getX(const KvRxClass* protocolClass) { return queryX(protocolClass); }

KvRxObject* KvRxImpClass::delX(KvRxClass* protocolClass) { return addX(protocolClass, nullptr); }

KvRxObject* KvRxImpClass::queryX(const KvRxClass* protocolClass) {
    return protocolClass ? peMap()->at(protocolClass) : nullptr;
}

void KvRxImpClass::copyDown(const KvRxClass* protocolClass, KvRxObject* newValue,
                            KvRxObject* oldValue) {
    KvRxPEClassMapImp::Nodes& nodes = peMap()->nodes();
    auto entry = nodes.find(protocolClass);
    bool ownValue = entry != nodes.end() && entry->second && entry->second != oldValue;
    // A class with a value of its own shields itself, but not the classes below it.
    if (!ownValue) {
        protocolClass->m_impl->m_usedAsProtocol = true;
        if (entry != nodes.end()) entry->second = newValue;
        else nodes.emplace(protocolClass, newValue);
    }
    if (!m_children) return;
    std::unique_ptr<KvRxIterator> it(m_children->newIterator());
    for (; !it->done(); it->next())
        if (KvRxClass* child = KvRxClass::cast(it->object()))
            child->m_impl->copyDown(protocolClass, newValue, oldValue);
}

// Linking: the parent's extensions, each as both new and old value so that what this
// class attached before stays; and the first overrule of each of the parent's lists
// where this class has none.
void KvRxImpClass::inheritFrom(const KvRxImpClass* parent) {
    if (parent->m_peMap) {
        // Keys are classes: only the copy-down stores them.
        for (const auto& entry : parent->m_peMap->nodes())
            copyDown(static_cast<const KvRxClass*>(entry.first), entry.second, entry.second);
    }
    for (int family = 0; family < kOverruleFamilyCount; ++family) {
        if (parent->m_overruleHeads[family] && !m_overruleHeads[family])
            addOverruleNode(family, parent->m_overruleHeads[family]->overrule, false);
    }
}

void KvRxImpClass::addOverruleNode(int family, KvRxOverrule* overrule, bool atEnd) {
    KvRxOverruleNode** link = &m_overruleHeads[family];
    if (atEnd)
        while (*link) link = &(*link)->next;
    *link = new KvRxOverruleNode{overrule, *link};
}

bool KvRxImpClass::removeOverruleNode(int family, KvRxOverrule* overrule) {
    for (KvRxOverruleNode** link = &m_overruleHeads[family]; *link; link = &(*link)->next) {
        if ((*link)->overrule == overrule) {
            KvRxOverruleNode* gone = *link;
            *link = gone->next;
            delete gone;
            return true;
        }
    }
    return false;
}

void KvRxImpClass::freeOverruleNodes() {
    for (KvRxOverruleNode*& head : m_overruleHeads) {
        while (KvRxOverruleNode* gone = head) {
            head = gone->next;
            delete gone;
        }
    }
}

KvRxObject* KvRxImpClass::create() { return m_pseudoConstructor(); }

void KvRxImpClass::getClassVersion(int& version, int& maintenanceVersion) const {
    version = m_version;
    maintenanceVersion = m_maintenanceVersion;
}

bool KvRxImpClass::isDerivedFrom(const KvRxClass* other) const {
    if (!other) return false;
    for (const KvRxClass* c = m_rxClass; c; c = c->m_impl->m_parent)
        if (c == other) return true;
    return false;
}

KvRx::Ordering KvRxImpClass::comparedTo(const KvRxObject* other) const {
    if (!other) return KvRx::kNotOrderable;
    if (other == m_rxClass) return KvRx::kEqual;
    const KvRxClass* otherClass = KvRxClass::cast(other);
    if (!otherClass) return KvRx::kNotOrderable;
    KvRxString mine(m_className, false), theirs(otherClass->name(), false);
    return mine.comparedTo(&theirs);
}

const char16_t* KvRxImpClass::moduleNameForRecord() const {
    const char16_t* name = m_module ? m_module->moduleName() : nullptr;
    return name ? name : u"";
}

void KvRxImpClass::link() {
    if (!m_parentName) return;
    KvRxDictionary* classes = classDictionary();
    KvRxClass* parent = classes ? KvRxClass::cast(classes->at(m_parentName)) : nullptr;
    // A parent that is this class or below it would close a loop in the tree.
    if (parent && parent->isDerivedFrom(m_rxClass)) parent = nullptr;
    if (!parent) {
        kvrxRecordLine(u"Regist rxclass ModuleName: %s, ParentClassName: %s , ClassName: %s !!!",
                       moduleNameForRecord(), m_parentName, m_className);
        KvRxModuleGlobal::fatalError(u"Regist rx class with wrong order!!!");
    }
    KvRxImpClass* parentImpl = parent->m_impl;
    if (!parentImpl->m_children) parentImpl->m_children = new KvRxLinkedList();
    parentImpl->m_children->append(m_rxClass);
    m_parent = parent;
    inheritFrom(parentImpl);
    _lumStrdupFree(m_parentName);
    m_parentName = nullptr;
}

void KvRxImpClass::recordChildrenLine() const {
    char16_t names[kSubClassNamesSize] = {};
    unsigned used = 0;
    KvRxIterator* it = m_children->newIterator();
    for (; !it->done(); it->next()) {
        const KvRxClass* child = KvRxClass::cast(it->object());
        const char16_t* name = child ? child->name() : u"";
        unsigned n = LumCharOp::length(name);
        if (used + n + 2 > kSubClassNamesSize) break;
        LumCharOp::copy(names + used, name, n);
        used += n;
        names[used++] = u',';
    }
    delete it;
    names[used] = 0;
    kvrxRecordLine(u"ModuleName: %s, ClassName: %s , SubClassNames: %s ", moduleNameForRecord(),
                   m_className ? m_className : u"", names);
}

void KvRxImpClass::checkedDetach() {
    if (m_children && !m_children->isEmpty()) {
        recordChildrenLine();
        KvRxModuleGlobal::fatalError(u"Delete rx class in wrong order!!!");
    }
    if (m_parent && m_parent->m_impl->m_children) {
        if (!m_parent->m_impl->m_children->remove(m_rxClass))
            KvRxModuleGlobal::fatalError(u"Delete rx class in wrong order!!!");
    }
}

void KvRxImpClass::leaveProtocolMaps() {
    KvRxDictionary* classes = classDictionary();
    if (!classes) return;
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictById));
    for (; !it->done(); it->next()) {
        KvRxClass* c = KvRxClass::cast(it->object());
        if (c && c->m_impl->m_peMap) c->m_impl->m_peMap->remove(m_rxClass);
    }
}

KvRxImpClass* KvRxImpClass::getImplRxClass(KvRxClass* aClass) {
    return aClass ? aClass->m_impl : nullptr;
}

int KvRxImpClass::getDoomedRxClassCount() { return gDoomedClasses.length(); }

const KvRxClass* KvRxImpClass::getDoomedRxClass(int index) {
    return unsigned(index) < unsigned(gDoomedClasses.length()) ? gDoomedClasses[index] : nullptr;
}

void KvRxImpClass::doom(KvRxClass* aClass) {
    if (aClass) gDoomedClasses.append(aClass);
}

void KvRxImpClass::doomAbandonedClasses() {
    for (int i = 0; i < gAbandonedClasses.length(); ++i) gDoomedClasses.append(gAbandonedClasses[i]);
    gAbandonedClasses.removeAll();
}

void KvRxImpClass::destroyDoomedRxClasses(bool checkOrder) {
    bool saved = gCheckOrder;
    gCheckOrder = checkOrder;
    for (int i = 0; i < gDoomedClasses.length(); ++i) destroyGuarded(gDoomedClasses[i]);
    gDoomedClasses.removeAll();
    gCheckOrder = saved;
}

void KvRxImpClass::destroyGuarded(KvRxClass* aClass) {
    static const char16_t kFaultText[] =
        u"Exception(SE) has happend in destroyDoomedRxClasses function.";
    try {
        KvRxDictionary* classes = classDictionary();
        // Only this class's own entry leaves: a class of the same name registered since
        // it was abandoned keeps its place.
        if (classes && classes->at(aClass->name()) == aClass) classes->remove(aClass->name());
        if (gCheckOrder) {
            aClass->m_impl->checkedDetach();
            if (aClass->m_impl->m_usedAsProtocol) aClass->m_impl->leaveProtocolMaps();
        }
        delete aClass;
        return;
    } catch (LumException* e) {
        recordFault(unsigned(e->code()), e, kFaultText, __LINE__);
        delete e;
    } catch (...) {
        recordFault(0, nullptr, kFaultText, __LINE__);
    }
    gAbandonedClasses.append(aClass);
}

void KvRxImpClass::recordFault(unsigned code, const void* data, const char16_t* text, int line) {
    if (LumCrashRecorder* recorder = kvrxCrashRecorder()) {
        recorder->recordFault(code, data, text, line);
        recorder->flushRecord();
    }
}

int KvRxImpClass::findContextMenu(const KvRxObject* object) const {
    if (!m_contextMenus) return -1;
    for (int i = 0; i < m_contextMenus->length(); ++i)
        if (m_contextMenus->at(i).object == object) return i;
    return -1;
}

bool KvRxImpClass::addObjectContextMenu(const KvRxObject* object, const void* menu) {
    if (!object || findContextMenu(object) >= 0) return false;
    if (!m_contextMenus) {
        m_contextMenus = new LumVector<ContextMenu>();
        m_contextMenus->reserve(2);
        m_contextMenus->setGrowLength(4);
    }
    m_contextMenus->append(ContextMenu{object, menu});
    return true;
}

bool KvRxImpClass::removeObjectContextMenu(const KvRxObject* object) {
    int index = object ? findContextMenu(object) : -1;
    if (index < 0) return false;
    m_contextMenus->removeAt(index);
    return true;
}

int KvRxImpClass::numOfObjectContextMenu() const {
    return m_contextMenus ? m_contextMenus->length() : 0;
}

void KvRxImpClass::getObjectContextMenuAt(int index, KvRxObject*& object, void** menu) const {
    object = nullptr;
    if (menu) *menu = nullptr;
    if (!m_contextMenus || index < 0 || index >= m_contextMenus->length()) return;
    const ContextMenu& entry = m_contextMenus->at(index);
    object = const_cast<KvRxObject*>(entry.object);
    if (menu) *menu = const_cast<void*>(entry.menu);
}
