#include "kvrxmoduledependencytracker.h"

#include "kernel/kvrxmoduleglobal.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/loader.h"

#include <algorithm>
#include <cstdarg>
#include <functional>
#include <string>

namespace {

constexpr int kReportUnits = 1024;
constexpr size_t kImportNameUnits = 511;  // longest import name looked at

// Formats one report and hands it to the process's crash recorder, cut to the
// report buffer's size.
void record(const char16_t* format, ...) {
    LumCrashRecorder* recorder = kvoreGetCrashRecorder();
    if (!recorder) return;
    va_list args;
    va_start(args, format);
    char16_t* text = kvrxFormatAlloc(nullptr, format, args);
    va_end(args);
    if (!text) return;
    if (LumCharOp::length(text) >= unsigned(kReportUnits)) text[kReportUnits - 1] = 0;
    recorder->recordMessage(text, 0, 0, 0);
    _lumFree(text);
}

const char16_t* nameOf(const KvRxDynLoadModuleProxy* proxy) {
    return proxy && proxy->moduleName() ? proxy->moduleName() : u"";
}

KvRxDependencyEdge* findEdge(KvRxDependencyEdge* head, const KvRxDependencyNode* to) {
    for (KvRxDependencyEdge* edge = head; edge; edge = edge->next)
        if (edge->node == to) return edge;
    return nullptr;
}

// Appends an edge to `to` unless the list has one; gives the edge.
KvRxDependencyEdge* addEdge(KvRxDependencyEdge*& head, KvRxDependencyNode* to, int kind) {
    if (KvRxDependencyEdge* existing = findEdge(head, to)) return existing;
    auto* edge = new KvRxDependencyEdge{nullptr, nullptr, to, kind};
    if (!head) {
        head = edge;
        return edge;
    }
    KvRxDependencyEdge* tail = head;
    while (tail->next) tail = tail->next;
    tail->next = edge;
    edge->previous = tail;
    return edge;
}

// A static discovery upgrades an existing edge; a new one is appended.
void setStaticEdge(KvRxDependencyEdge*& head, KvRxDependencyNode* to) {
    addEdge(head, to, KvRxModuleDependencyTracker::kStaticEdge)->kind =
        KvRxModuleDependencyTracker::kStaticEdge;
}

// Unlinks and frees the edge to `to`, moving the head on if it was the head.
void unlinkEdge(KvRxDependencyEdge*& head, const KvRxDependencyNode* to) {
    KvRxDependencyEdge* edge = findEdge(head, to);
    if (!edge) return;
    if (edge->previous) edge->previous->next = edge->next;
    else head = edge->next;
    if (edge->next) edge->next->previous = edge->previous;
    delete edge;
}

void freeList(KvRxDependencyEdge* head) {
    while (head) {
        KvRxDependencyEdge* next = head->next;
        delete head;
        head = next;
    }
}

bool endsWithKrx(const std::u16string& name) {
    return name.size() > 4 && LumCharOp::compareNoCase(name.c_str() + name.size() - 4, u".krx") == 0;
}

KvRxDynamicLinkerImp* linker() {
    return KvRxDynamicLinkerImp::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

}  // namespace

KvRxModuleDependencyTracker::KvRxModuleDependencyTracker()
    : m_nodes(0, 8), m_sorted(true), m_loadStack(0, 8), m_unloadStack(0, 8),
      m_releasedDependencies(0, 8) {}

KvRxModuleDependencyTracker::~KvRxModuleDependencyTracker() {
    while (!m_nodes.isEmpty()) removeNode(m_nodes.last());
}

KvRxDependencyNode* KvRxModuleDependencyTracker::createNode(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy) return nullptr;
    if (proxy->dependencyNode()) return proxy->dependencyNode();
    auto* node = new KvRxDependencyNode{nullptr, nullptr, proxy};
    proxy->setDependencyNode(node);
    m_nodes.append(node);
    m_sorted = false;
    return node;
}

// The index of `node` in m_nodes, or -1. Sorts the array first if an append left it
// unsorted.
int KvRxModuleDependencyTracker::findNode(KvRxDependencyNode* node) {
    KvRxDependencyNode** begin = m_nodes.asArrayPtr();
    KvRxDependencyNode** end = begin + m_nodes.length();
    if (!m_sorted) {
        std::sort(begin, end, std::less<KvRxDependencyNode*>());
        m_sorted = true;
    }
    KvRxDependencyNode** at = std::lower_bound(begin, end, node, std::less<KvRxDependencyNode*>());
    return at != end && *at == node ? int(at - begin) : -1;
}

void KvRxModuleDependencyTracker::beginLoad(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy || m_loadStack.contains(proxy)) return;
    KvRxDependencyNode* node = proxy->dependencyNode();
    bool isNew = !node;
    if (isNew) node = createNode(proxy);
    // A load inside another module's first message: that module needs this one.
    if (!m_loadStack.isEmpty() && m_loadStack.last()) {
        KvRxDependencyNode* outer = m_loadStack.last()->dependencyNode();
        if (!outer) return;
        addEdge(outer->dependsOn, node, kDynamicEdge);
        addEdge(node->dependedBy, outer, kDynamicEdge);
    }
    if (isNew) scanImports(proxy);
    m_loadStack.append(proxy);
}

// Static edges to the modules that `proxy`'s image was linked against, as far as the
// linker holds them.
void KvRxModuleDependencyTracker::scanImports(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy || !proxy->moduleHandle()) return;
    KvRxDynamicLinkerImp* dynamicLinker = linker();
    if (!dynamicLinker) return;
    KvRxDependencyNode* node = createNode(proxy);
    // Only imports named like modules matter; the others aren't even looked up.
    for (const lumplatform::ImageDependency& import :
         lumplatform::imageDependencies(proxy->moduleHandle(), ".krx")) {
        if (!endsWithKrx(import.name) || import.name.size() > kImportNameUnits) continue;
        // Found by the path of what the system mapped; reported by the image's own name.
        const char16_t* importName = import.name.c_str();
        KvRxDynLoadModuleProxy* found =
            dynamicLinker->findRxModuleProxyByModuleName(import.path.c_str(), false);
        if (!found) {
            // Mapped by the system as an import: that module never had its first message.
            reportWrongOrder(true, nameOf(proxy), importName, kStaticEdge);
            continue;
        }
        if (m_loadStack.contains(found)) {
            // The module under load that led here needs this one statically: a cycle,
            // and the edge that would close it is left out.
            char16_t full[LUM_MAX_PATH];
            if (LumPathMaker::getFullFileName(nameOf(proxy), full)) reportCycle(importName, full);
            continue;
        }
        KvRxDependencyNode* other = found->dependencyNode();
        if (!other) continue;
        setStaticEdge(other->dependedBy, node);
        setStaticEdge(node->dependsOn, other);
    }
}

void KvRxModuleDependencyTracker::endLoad(KvRxDynLoadModuleProxy* proxy) {
    if (m_loadStack.isEmpty() || (!proxy && !m_loadStack.last())) return;
    m_loadStack.removeLast();
}

void KvRxModuleDependencyTracker::abortLoad(KvRxDynLoadModuleProxy* proxy) {
    KvRxDependencyNode* node = proxy ? proxy->dependencyNode() : nullptr;
    if (proxy) proxy->setDependencyNode(nullptr);
    removeNode(node);
    if (!m_loadStack.isEmpty()) m_loadStack.removeLast();
}

KvRxModuleDependencyTracker::Blocker KvRxModuleDependencyTracker::unloadBlocker(
    KvRxDynLoadModuleProxy* proxy) {
    if (!proxy) return kFree;
    if (proxy->refCount() > 1) return kReferenced;
    KvRxDependencyNode* node = proxy->dependencyNode();
    if (!node) return kFree;
    if (m_unloadStack.isEmpty()) return node->dependedBy ? kDependents : kFree;
    // A dependent that is itself being unloaded doesn't hold the module.
    for (KvRxDependencyEdge* edge = node->dependedBy; edge; edge = edge->next)
        if (edge->node && edge->node->proxy && !m_unloadStack.contains(edge->node->proxy))
            return kDependents;
    return kFree;
}

void KvRxModuleDependencyTracker::beginUnload(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy || !proxy->dependencyNode() || m_unloadStack.contains(proxy)) return;
    for (KvRxDependencyEdge* edge = proxy->dependencyNode()->dependedBy; edge; edge = edge->next) {
        KvRxDynLoadModuleProxy* dependent = edge->node ? edge->node->proxy : nullptr;
        if (dependent && !m_unloadStack.contains(dependent))
            reportWrongOrder(false, nameOf(proxy), nameOf(dependent), edge->kind);
    }
    m_unloadStack.append(proxy);
}

void KvRxModuleDependencyTracker::endUnload(KvRxDynLoadModuleProxy* proxy) {
    if (!proxy || m_unloadStack.isEmpty() || m_unloadStack.last() != proxy) return;
    m_unloadStack.removeLast();
    if (KvRxDependencyNode* node = proxy->dependencyNode()) {
        proxy->setDependencyNode(nullptr);
        removeNode(node);
    }
}

void KvRxModuleDependencyTracker::removeNode(KvRxDependencyNode* node) {
    if (!node) return;
    int at = findNode(node);
    if (at >= 0) m_nodes.removeAt(at);  // removal keeps the order
    // What this module needed is remembered, for the unload order of what remains.
    if (node->dependsOn) {
        int own = m_releasedDependencies.find(node->proxy);
        if (own >= 0) m_releasedDependencies.removeAt(own);
        for (KvRxDependencyEdge* edge = node->dependsOn; edge; edge = edge->next) {
            if (!edge->node || m_releasedDependencies.contains(edge->node->proxy)) break;
            m_releasedDependencies.append(edge->node->proxy);
        }
    }
    for (KvRxDependencyEdge* edge = node->dependsOn; edge; edge = edge->next)
        if (edge->node) unlinkEdge(edge->node->dependedBy, node);
    for (KvRxDependencyEdge* edge = node->dependedBy; edge; edge = edge->next)
        if (edge->node) unlinkEdge(edge->node->dependsOn, node);
    freeList(node->dependsOn);
    freeList(node->dependedBy);
    delete node;
}

KvRxDynLoadModuleProxy* KvRxModuleDependencyTracker::nextUnloadCandidate() {
    KvRxDynLoadModuleProxy* last = nullptr;
    for (int i = 0; i < m_nodes.length(); ++i) {
        KvRxDynLoadModuleProxy* proxy = m_nodes[i]->proxy;
        if (!proxy) continue;
        if (unloadBlocker(proxy) != kDependents) return proxy;
        last = proxy;
    }
    // All are held: the last one keeps a forced unload of everything going.
    return last;
}

void KvRxModuleDependencyTracker::computeUnloadOrder(KvArray<KvRxDynLoadModuleProxy*>& out) {
    out.setLogicalLength(0);
    for (int i = 0; i < m_nodes.length(); ++i)
        if (m_nodes[i]->proxy && !m_nodes[i]->dependedBy) out.append(m_nodes[i]->proxy);
    // Modules that lost a dependent earlier go after the other free ones.
    if (!m_releasedDependencies.isEmpty()) {
        KvArray<KvRxDynLoadModuleProxy*> moved;
        for (int i = 0; i < m_releasedDependencies.length(); ++i) {
            int at = out.find(m_releasedDependencies[i]);
            if (at < 0) continue;
            out.removeAt(at);
            moved.append(m_releasedDependencies[i]);
        }
        for (int i = moved.length() - 1; i >= 0; --i) out.append(moved[i]);
    }
    // Each pass adds the modules all of whose dependents are in `out`; the graph has
    // no cycle, so every pass adds at least one while any is missing.
    while (out.length() < nodeCount()) {
        int start = out.length();
        KvArray<KvRxDynLoadModuleProxy*> next;
        for (int i = 0; i < start && out.length() < nodeCount(); ++i) {
            KvRxDependencyNode* node = out[i]->dependencyNode();
            if (!node) continue;
            for (KvRxDependencyEdge* edge = node->dependsOn; edge; edge = edge->next) {
                KvRxDependencyNode* target = edge->node;
                KvRxDynLoadModuleProxy* proxy = target ? target->proxy : nullptr;
                if (!proxy || out.contains(proxy) || next.contains(proxy) || !target->dependedBy)
                    continue;
                bool allOut = true;
                for (KvRxDependencyEdge* back = target->dependedBy; back; back = back->next)
                    if (back->node && !out.contains(back->node->proxy)) allOut = false;
                if (allOut) next.append(proxy);
            }
            for (int k = next.length() - 1; k >= 0; --k) out.append(next[k]);
            next.setLogicalLength(0);
        }
        if (out.length() == start) break;  // nothing more can be placed
    }
}

void KvRxModuleDependencyTracker::reportWrongOrder(bool loading, const char16_t* moduleName,
                                                   const char16_t* otherName, int kind) {
    const char16_t* type = kind == kStaticEdge ? u"Static" : u"Dynamic";
    if (loading)
        record(u"Loading KRX module by wrong order! \r\nLoading module name: %s \r\nDepend on "
               u"module: %s \r\nDepend type: %s",
               moduleName, otherName, type);
    else
        record(u"Unloading KRX module by wrong order! \r\nUnloading module name: %s \r\nDepend "
               u"by module: %s \r\nDepend type: %s",
               moduleName, otherName, type);
}

void KvRxModuleDependencyTracker::reportCycle(const char16_t* a, const char16_t* b) {
    if (!a || !*a || !b || !*b) return;
    record(u"Cycle dependency is found! Module \"%s\" is %s depend on module \"%s\" when \"%s\" "
           u"is %s depend on \"%s\".",
           a, u"dynamic", b, b, u"static", a);
}
