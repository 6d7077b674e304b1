#include "kernel/kvrximpclass.h"

#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrxcrashrecord.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kernel/kvrxpeclassmap.h"
#include "kvarray.h"
#include "kvrxdynloadmoduleproxy.h"

#include <memory>
#include <new>
#include <vector>

namespace {

// Classes waiting for the next walk, strictly in order of arrival.
KvArray<KvRxClass*> gDoomedClasses;
// Classes whose checked destruction failed: out of the dictionary, not destroyed,
// kept here so that shut-down still frees them.
KvArray<KvRxClass*> gAbandonedClasses;
// Read by destruction; false only during the final walk of shut-down.
bool gCheckOrder = true;
// With the order checks off, destroying a class that registration made runs no code
// but the runtime's: nothing can look at the class dictionary until a class of another
// kind goes or the walk ends. Such classes leave the dictionary together then; these
// are the ids of their entries, in the order the classes went. Room for the whole walk
// is taken before it starts, or the classes leave one by one.
std::vector<unsigned> gLeavingIds;
// The classes linked since the lines were last settled, in the order they linked.
KvArray<KvRxClassState*> gLinkedInPass;
// The class the last link of the pass looked up, and the text it asked by (a parent
// name in a linked class's block). Nothing changes the class dictionary within a pass,
// so the same text finds the same class: siblings, which often link one after another
// in name order, look their parent up once. Emptied when the pass ends (settleLines).
struct {
    const char16_t* name = nullptr;
    KvRxClass* found = nullptr;
} gLastLookUp;

const unsigned kSubClassNamesSize = 260;

KvRxDictionary* classDictionary() {
    KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
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

KvRxClassState::KvRxClassState(KvRxClass* rxClass, KvRxPseudoConstructor pseudoConstructor,
                               bool inClassBlock)
    : m_rxClass(rxClass),
      m_inClassBlock(inClassBlock),
      m_pseudoConstructor(pseudoConstructor ? pseudoConstructor : &nullPseudoConstructor) {}

size_t KvRxClassState::namesBytes(const Registration& r, NameUnits& units) {
    const char16_t* names[] = {r.name, r.parentName, r.dxfName, r.appName};
    size_t total = 0;
    for (int i = 0; i < 4; ++i) {
        units[i] = names[i] ? size_t(LumCharOp::length(names[i])) + 1 : 0;
        total += units[i];
    }
    return total * sizeof(char16_t);
}

bool KvRxClassState::setsRare(const Registration& r) {
    return r.appNameCallback || r.memberBuilder || r.memberBuilderData || r.version ||
           r.maintenanceVersion || r.proxyFlags || r.feature;
}

void KvRxClassState::placeTail(const Registration& r, const NameUnits& units, bool rare) {
    char* tail = reinterpret_cast<char*>(this + 1);
    if (rare) {
        m_rare = ::new (tail) Rare{r.appNameCallback, r.memberBuilder, r.memberBuilderData, r.version,
                                   r.maintenanceVersion, r.proxyFlags, r.feature};
        tail += sizeof(Rare);
    }
    auto* names = reinterpret_cast<char16_t*>(tail);
    unsigned next = 0;
    auto place = [names, &next](const char16_t* text, size_t n) -> unsigned {
        if (!text) return 0;
        LumCharOp::copy(names + next, text, unsigned(n));
        unsigned at = next;
        next += unsigned(n);
        return at;
    };
    m_className = names;
    place(r.name, units[0]);
    // Each of the others lies behind the class name and its closing zero: never at 0.
    m_parentAt = place(r.parentName, units[1]);
    m_dxfAt = place(r.dxfName, units[2]);
    m_appAt = place(r.appName, units[3]);
    m_namesBytes = unsigned(next * sizeof(char16_t));
}

KvRxClass* KvRxClassState::registerClass(const Registration& r, KvRxClass* rxClass) {
    KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
    KvRxDictionary* classes = g ? g->classDictionary : nullptr;
    if (!r.name || !*r.name || !classes) return nullptr;

    // The state and its names in one block, headed by the class when it is made here.
    static_assert(sizeof(KvRxClass) % alignof(KvRxClassState) == 0, "the state follows the class");
    bool made = rxClass == nullptr;
    size_t classBytes = made ? sizeof(KvRxClass) : 0;
    static_assert(sizeof(KvRxClassState) % alignof(Rare) == 0, "the rare values follow the state");
    bool rare = setsRare(r);
    NameUnits units;
    size_t tailBytes = (rare ? sizeof(Rare) : 0) + namesBytes(r, units);
    auto* block = static_cast<char*>(_lumMalloc(classBytes + sizeof(KvRxClassState) + tailBytes));
    if (!block) return nullptr;
    if (made) rxClass = ::new (block) KvRxClass();
    auto* impl = ::new (block + classBytes) KvRxClassState(rxClass, r.pseudoConstructor, made);
    rxClass->m_impl = impl;
    impl->placeTail(r, units, rare);
    if (!impl->m_ancestry.makeTop(rxClass)) {
        dropNew(rxClass, made);
        return nullptr;
    }

    unsigned id = 0;
    if (KvRxObject* taken = classes->atPut(r.name, rxClass, id)) {
        // The name belongs to another class: give it back its entry, drop the new one.
        classes->atPut(r.name, taken, id);
        dropNew(rxClass, made);
        KvRxModuleGlobal::fatalError(u"Try to regist a rxclass which is already registed!!");
    }
    impl->m_id = id;
    if (impl->isPending()) g->pendingClasses.add(rxClass, id);
    impl->setModule(initialisingModule());
    return rxClass;
}

void KvRxClassState::setModule(KvRxDynLoadModuleProxy* module) {
    m_module = module;
    if (module) module->setMayOwnClasses();
}

void KvRxClassState::dropNew(KvRxClass* rxClass, bool made) {
    if (made) {
        deleteClass(rxClass);
        return;
    }
    KvRxImpClass* impl = rxClass->m_impl;
    rxClass->m_impl = nullptr;
    delete impl;
}

void KvRxClassState::destroy(KvRxImpClass* impl) {
    if (!impl) return;
    if (static_cast<KvRxClassState*>(impl)->m_inClassBlock)
        impl->~KvRxImpClass();
    else
        delete impl;
}

void KvRxClassState::deleteClass(KvRxClass* aClass) {
    KvRxClassState* state = of(aClass);
    if (state && state->m_inClassBlock) {
        // The class heads the block: its destructor leaves the block to this free.
        aClass->~KvRxClass();
        _lumFree(aClass);
        return;
    }
    delete aClass;
}

KvRxClassState::~KvRxClassState() {
    delete m_peMap;
    freeOverruleNodes();
    delete m_contextMenus;
}

KvRxPEClassMapImp* KvRxClassState::peMap() {
    if (!m_peMap) m_peMap = new KvRxPEClassMapImp(m_lastQuery);
    return m_peMap;
}

KvRxPEClassMap* KvRxImpClass::protocolMap() const {
    return static_cast<const KvRxClassState*>(this)->m_peMap;
}

KvRxOverruleNode* KvRxImpClass::overruleHead(int family) const {
    return static_cast<const KvRxClassState*>(this)->overruleList(family);
}

KvRxObject* KvRxClassState::addX(KvRxClass* protocolClass, KvRxObject* object) {
    if (!protocolClass) return nullptr;
    KvRxObject* value = object;
    if (!object && m_parent) value = of(m_parent)->queryX(protocolClass);
    KvRxObject* old = peMap()->at(protocolClass);
    copyDown(protocolClass, value, old);
    return old;
}

KvRxObject* KvRxClassState::getX(const KvRxClass* protocolClass) { return queryX(protocolClass); }

KvRxObject* KvRxClassState::delX(KvRxClass* protocolClass) { return addX(protocolClass, nullptr); }

unsigned long KvRxClassState::footprint() const {
    unsigned long heads = m_overruleHeads ? kOverruleFamilyCount * sizeof(KvRxOverruleNode*) : 0;
    unsigned long rare = m_rare ? sizeof(Rare) : 0;
    return sizeof(KvRxClass) + sizeof(KvRxClassState) + rare + m_namesBytes + m_ancestry.heapBytes() + heads;
}

void KvRxClassState::copyDown(const KvRxClass* protocolClass, KvRxObject* newValue,
                            KvRxObject* oldValue) {
    KvRxPEClassMapImp* map = peMap();
    const KvRxPEClassMapImp::Nodes& nodes = map->nodes();
    auto entry = nodes.find(protocolClass);
    bool ownValue = entry != nodes.end() && entry->second && entry->second != oldValue;
    // A class with a value of its own shields itself, but not the classes below it.
    if (!ownValue) {
        of(protocolClass)->m_usedAsProtocol = true;
        map->put(protocolClass, newValue);
    }
    for (KvRxClassState* child = m_firstChild; child; child = child->m_nextSibling)
        child->copyDown(protocolClass, newValue, oldValue);
}

// Linking: the parent's extensions, each as both new and old value so that what this
// class attached before stays; and the first overrule of each of the parent's lists
// where this class has none.
void KvRxClassState::inheritFrom(const KvRxClassState* parent) {
    if (parent->m_peMap) {
        // Keys are classes: only the copy-down stores them.
        for (const auto& entry : parent->m_peMap->nodes())
            copyDown(static_cast<const KvRxClass*>(entry.first), entry.second, entry.second);
    }
    if (!parent->m_overruleHeads) return;
    for (int family = 0; family < kOverruleFamilyCount; ++family) {
        if (parent->m_overruleHeads[family] && !overruleList(family))
            addOverruleNode(family, parent->m_overruleHeads[family]->overrule, false);
    }
}

void KvRxClassState::addOverruleNode(int family, KvRxOverrule* overrule, bool atEnd) {
    if (!m_overruleHeads) m_overruleHeads = new KvRxOverruleNode*[kOverruleFamilyCount]();
    KvRxOverruleNode** link = &m_overruleHeads[family];
    if (atEnd)
        while (*link) link = &(*link)->next;
    *link = new KvRxOverruleNode{overrule, *link};
}

bool KvRxClassState::removeOverruleNode(int family, KvRxOverrule* overrule) {
    if (!m_overruleHeads) return false;
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

void KvRxClassState::freeOverruleNodes() {
    if (!m_overruleHeads) return;
    for (int family = 0; family < kOverruleFamilyCount; ++family) {
        while (KvRxOverruleNode* gone = m_overruleHeads[family]) {
            m_overruleHeads[family] = gone->next;
            delete gone;
        }
    }
    delete[] m_overruleHeads;
    m_overruleHeads = nullptr;
}

KvRxObject* KvRxClassState::create() { return m_pseudoConstructor(); }

void KvRxClassState::getClassVersion(int& version, int& maintenanceVersion) const {
    version = m_rare ? m_rare->version : 0;
    maintenanceVersion = m_rare ? m_rare->maintenanceVersion : 0;
}



KvRx::Ordering KvRxClassState::comparedTo(const KvRxObject* other) const {
    if (!other) return KvRx::kNotOrderable;
    if (other == m_rxClass) return KvRx::kEqual;
    const KvRxClass* otherClass = KvRxClass::cast(other);
    if (!otherClass) return KvRx::kNotOrderable;
    KvRxString mine(m_className, false), theirs(otherClass->name(), false);
    return mine.comparedTo(&theirs);
}

const char16_t* KvRxClassState::moduleNameForRecord() const {
    const char16_t* name = m_module ? m_module->moduleName() : nullptr;
    return name ? name : u"";
}

void KvRxClassState::link() {
    if (!isPending()) return;
    const char16_t* parentName = nameAt(m_parentAt);
    KvRxClass* parent = gLastLookUp.found;
    if (!gLastLookUp.name || LumCharOp::compare(gLastLookUp.name, parentName) != 0) {
        KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
        parent = g ? g->findClass(parentName) : nullptr;
        gLastLookUp.name = parentName;
        gLastLookUp.found = parent;
    }
    // A parent that is this class or below it would close a loop in the tree: this
    // class, which waits, would be its topmost class.
    if (parent && of(parent)->topmost() == m_rxClass) parent = nullptr;
    if (!parent) {
        settleLines();
        kvrxRecordLine(u"Regist rxclass ModuleName: %s, ParentClassName: %s , ClassName: %s !!!",
                       moduleNameForRecord(), parentName, m_className);
        KvRxModuleGlobal::fatalError(u"Regist rx class with wrong order!!!");
    }
    KvRxClassState* parentImpl = of(parent);
    // Room first: a class in the list is one whose line below may need settling.
    gLinkedInPass.append(this);
    // The parent's line may itself be unsettled: this one then starts at the same top.
    if (!makeLineBelow(parentImpl->m_ancestry)) throw std::bad_alloc();
    parentImpl->appendChild(this);
    m_parent = parent;
    inheritFrom(parentImpl);
    m_parentAt = 0;
}

const KvRxClass* KvRxClassState::topmost() const {
    // Each step goes to the top of a line, and from a top that has a parent since to
    // that parent's line: always upwards.
    const KvRxClass* top = m_ancestry.at(0);
    while (const KvRxClass* above = of(top)->m_parent) top = of(above)->m_ancestry.at(0);
    return top;
}

bool KvRxClassState::lineUnsettled() const { return of(m_ancestry.at(0))->m_parent != nullptr; }

void KvRxClassState::settleChildLines() {
    for (KvRxClassState* child = m_firstChild; child; child = child->m_nextSibling) {
        if (!child->lineUnsettled()) continue;
        if (!child->makeLineBelow(m_ancestry)) throw std::bad_alloc();
        child->settleChildLines();
    }
}

// A line is a true path from its top down, made when its top had no parent; it is
// unsettled once that top has one. Every unsettled line lies below a class linked in
// the pass; below the highest of them with a settled line, a walk settles each one
// once. A class whose own line is unsettled is reached from above it.
void KvRxClassState::settleLines() {
    try {
        for (int i = 0; i < gLinkedInPass.length(); ++i) {
            KvRxClassState* linked = gLinkedInPass[i];
            if (!linked->lineUnsettled()) linked->settleChildLines();
        }
    } catch (...) {
        // No memory for a long line: the list empties all the same, as it holds no
        // class past the pass.
        gLinkedInPass.removeAll();
        gLastLookUp = {};
        throw;
    }
    gLinkedInPass.removeAll();
    gLastLookUp = {};
}

void KvRxClassState::appendChild(KvRxClassState* child) {
    child->m_previousSibling = m_lastChild;
    child->m_nextSibling = nullptr;
    if (m_lastChild)
        m_lastChild->m_nextSibling = child;
    else
        m_firstChild = child;
    m_lastChild = child;
}

void KvRxClassState::removeChild(KvRxClassState* child) {
    if (child->m_previousSibling)
        child->m_previousSibling->m_nextSibling = child->m_nextSibling;
    else
        m_firstChild = child->m_nextSibling;
    if (child->m_nextSibling)
        child->m_nextSibling->m_previousSibling = child->m_previousSibling;
    else
        m_lastChild = child->m_previousSibling;
    child->m_previousSibling = child->m_nextSibling = nullptr;
}

void KvRxClassState::recordChildrenLine() const {
    char16_t names[kSubClassNamesSize] = {};
    unsigned used = 0;
    for (const KvRxClassState* child = m_firstChild; child; child = child->m_nextSibling) {
        const char16_t* name = child->m_rxClass->name();
        unsigned n = LumCharOp::length(name);
        if (used + n + 2 > kSubClassNamesSize) break;
        LumCharOp::copy(names + used, name, n);
        used += n;
        names[used++] = u',';
    }
    names[used] = 0;
    kvrxRecordLine(u"ModuleName: %s, ClassName: %s , SubClassNames: %s ", moduleNameForRecord(),
                   m_className ? m_className : u"", names);
}

void KvRxClassState::checkedDetach() {
    if (m_firstChild) {
        recordChildrenLine();
        KvRxModuleGlobal::fatalError(u"Delete rx class in wrong order!!!");
    }
    // A linked class stands in its parent's list.
    if (m_parent) of(m_parent)->removeChild(this);
}

void KvRxClassState::leaveProtocolMaps() {
    KvRxDictionary* classes = classDictionary();
    if (!classes) return;
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictById));
    for (; !it->done(); it->next()) {
        KvRxClassState* state = of(kvrxClassValue(it->object()));
        if (state->m_peMap) state->m_peMap->remove(m_rxClass);
    }
}

void KvRxClassState::disownClassesOf(const KvRxDynLoadModuleProxy* module) {
    KvRxDictionary* classes = classDictionary();
    if (!classes || (module && !module->mayOwnClasses())) return;
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictById));
    for (; !it->done(); it->next()) {
        KvRxClassState* state = of(kvrxClassValue(it->object()));
        if (state->m_module == module) state->m_module = nullptr;
    }
}

KvRxImpClass* KvRxImpClass::getImplRxClass(KvRxClass* aClass) {
    return aClass ? aClass->m_impl : nullptr;
}

KvRxImpClass::~KvRxImpClass() = default;

int KvRxImpClass::getDoomedRxClassCount() { return gDoomedClasses.length(); }

const KvRxClass* KvRxImpClass::getDoomedRxClass(int index) {
    return unsigned(index) < unsigned(gDoomedClasses.length()) ? gDoomedClasses[index] : nullptr;
}

void KvRxClassState::doom(KvRxClass* aClass) {
    // A class stands in the list once, so that no walk deletes it twice.
    if (!aClass || of(aClass)->m_doomed) return;
    of(aClass)->m_doomed = true;
    gDoomedClasses.append(aClass);
}

void KvRxClassState::doomAbandonedClasses() {
    for (int i = 0; i < gAbandonedClasses.length(); ++i) gDoomedClasses.append(gAbandonedClasses[i]);
    gAbandonedClasses.removeAll();
}

void KvRxClassState::destroyDoomedRxClasses(bool checkOrder) {
    bool saved = gCheckOrder;
    gCheckOrder = checkOrder;
    if (!checkOrder) {
        try {
            gLeavingIds.reserve(size_t(gDoomedClasses.length()));
        } catch (const std::bad_alloc&) {
        }
    }
    for (int i = 0; i < gDoomedClasses.length(); ++i) destroyGuarded(gDoomedClasses[i]);
    takeOutLeaving();
    gDoomedClasses.removeAll();
    gCheckOrder = saved;
}

void KvRxClassState::takeOutLeaving() {
    if (gLeavingIds.empty()) return;
    auto* classes = static_cast<KvRxDictionaryImp*>(classDictionary());
    classes->takeOut(gLeavingIds.data(), gLeavingIds.size());
    gLeavingIds.clear();
}

void KvRxClassState::destroyGuarded(KvRxClass* aClass) {
    static const char16_t kFaultText[] =
        u"Exception(SE) has happend in destroyDoomedRxClasses function.";
    try {
        KvRxClassState* state = of(aClass);
        bool quiet = !gCheckOrder && state->m_inClassBlock && gLeavingIds.size() < gLeavingIds.capacity();
        if (!quiet) takeOutLeaving();
        // Only this class's own entry leaves: a class of the same name registered since
        // it was abandoned keeps its place.
        KvRxModuleGlobalImp* g = KvRxModuleGlobalImp::instance();
        auto* classes = g ? static_cast<KvRxDictionaryImp*>(g->classDictionary) : nullptr;
        unsigned id = classes ? classes->idHolding(aClass->name(), aClass, state->m_id) : 0;
        if (id) {
            if (state->isPending()) g->pendingClasses.remove(aClass);
            if (quiet)
                gLeavingIds.push_back(id);
            else
                classes->takeOut(&id, 1);
        }
        if (gCheckOrder) {
            of(aClass)->checkedDetach();
            if (of(aClass)->m_usedAsProtocol) of(aClass)->leaveProtocolMaps();
        }
        deleteClass(aClass);
        return;
    } catch (LumException* e) {
        recordFault(unsigned(e->code()), e, kFaultText, __LINE__);
        delete e;
    } catch (...) {
        recordFault(0, nullptr, kFaultText, __LINE__);
    }
    gAbandonedClasses.append(aClass);
}

void KvRxClassState::recordFault(unsigned code, const void* data, const char16_t* text, int line) {
    if (LumCrashRecorder* recorder = kvrxCrashRecorder()) {
        recorder->recordFault(code, data, text, line);
        recorder->flushRecord();
    }
}

int KvRxClassState::findContextMenu(const KvRxObject* object) const {
    if (!m_contextMenus) return -1;
    for (int i = 0; i < m_contextMenus->length(); ++i)
        if (m_contextMenus->at(i).object == object) return i;
    return -1;
}

// The context menus are the state's; these reach them through the one implementation.
bool KvRxImpClass::addObjectContextMenu(const KvRxObject* object, const void* menu) {
    auto* self = static_cast<KvRxClassState*>(this);
    if (!object || self->findContextMenu(object) >= 0) return false;
    LumVector<KvRxClassState::ContextMenu>*& menus = self->m_contextMenus;
    if (!menus) {
        menus = new LumVector<KvRxClassState::ContextMenu>();
        menus->reserve(2);
        menus->setGrowLength(4);
    }
    menus->append(KvRxClassState::ContextMenu{object, menu});
    return true;
}

bool KvRxImpClass::removeObjectContextMenu(const KvRxObject* object) {
    auto* self = static_cast<KvRxClassState*>(this);
    int index = object ? self->findContextMenu(object) : -1;
    if (index < 0) return false;
    self->m_contextMenus->removeAt(index);
    return true;
}

int KvRxImpClass::numOfObjectContextMenu() const {
    const auto* menus = static_cast<const KvRxClassState*>(this)->m_contextMenus;
    return menus ? menus->length() : 0;
}

void KvRxImpClass::getObjectContextMenuAt(int index, KvRxObject*& object, void** menu) const {
    object = nullptr;
    if (menu) *menu = nullptr;
    const auto* menus = static_cast<const KvRxClassState*>(this)->m_contextMenus;
    if (!menus || index < 0 || index >= menus->length()) return;
    const KvRxClassState::ContextMenu& entry = menus->at(index);
    object = const_cast<KvRxObject*>(entry.object);
    if (menu) *menu = const_cast<void*>(entry.menu);
}
