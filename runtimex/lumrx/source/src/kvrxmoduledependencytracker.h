// The graph of who needs whom among the loaded modules: static edges from a module's
// imports of other ".krx" modules, dynamic edges from a module loaded inside another
// module's first message. It pins modules that loaded dependents need, gives the order
// for unloading everything, and reports wrong-order loads and unloads and cycles to the
// crash recorder. Reports never stop a load.
//
// Owns every node and edge. A node lives from beginLoad until endUnload or abortLoad;
// its proxy points back at it (dependencyNode) and is not owned. The linker owns the
// tracker and calls it on the host's main thread only.
#pragma once

#include "kvarray.h"

class KvRxDynLoadModuleProxy;
struct KvRxDependencyNode;

// One entry of a node's doubly linked list of neighbours.
struct KvRxDependencyEdge {
    KvRxDependencyEdge* previous;
    KvRxDependencyEdge* next;
    KvRxDependencyNode* node;  // the node at the other end
    int kind;                  // kStaticEdge or kDynamicEdge
};

// Invariant: an edge from A to B in A's dependsOn has its twin from B to A in B's
// dependedBy; at most one edge joins a pair in each list.
struct KvRxDependencyNode {
    KvRxDependencyEdge* dependsOn;   // the modules this module needs
    KvRxDependencyEdge* dependedBy;  // the modules that need this module
    KvRxDynLoadModuleProxy* proxy;
};

class KvRxModuleDependencyTracker {
public:
    static constexpr int kDynamicEdge = 0;
    static constexpr int kStaticEdge = 1;
    // What keeps a module from being unloaded.
    enum Blocker { kFree = 0, kReferenced = 1, kDependents = 2 };

    KvRxModuleDependencyTracker();
    ~KvRxModuleDependencyTracker();
    KvRxModuleDependencyTracker(const KvRxModuleDependencyTracker&) = delete;
    KvRxModuleDependencyTracker& operator=(const KvRxModuleDependencyTracker&) = delete;

    // A load: beginLoad before the first message, then endLoad or abortLoad.
    void beginLoad(KvRxDynLoadModuleProxy* proxy);
    void endLoad(KvRxDynLoadModuleProxy* proxy);
    void abortLoad(KvRxDynLoadModuleProxy* proxy);

    Blocker unloadBlocker(KvRxDynLoadModuleProxy* proxy);
    bool canUnload(KvRxDynLoadModuleProxy* proxy) { return unloadBlocker(proxy) != kDependents; }
    // An unload: canUnload, then beginUnload before the unload message, endUnload after.
    void beginUnload(KvRxDynLoadModuleProxy* proxy);
    void endUnload(KvRxDynLoadModuleProxy* proxy);

    // The first module in storage order that no dependent holds, else the last one.
    KvRxDynLoadModuleProxy* nextUnloadCandidate();
    // Every module, each before what it depends on.
    void computeUnloadOrder(KvArray<KvRxDynLoadModuleProxy*>& out);
    int nodeCount() const { return m_nodes.length(); }
    // Every node, for hosts that show the graph.
    const KvArray<KvRxDependencyNode*>& nodes() const { return m_nodes; }

private:
    KvRxDependencyNode* createNode(KvRxDynLoadModuleProxy* proxy);
    void removeNode(KvRxDependencyNode* node);
    void scanImports(KvRxDynLoadModuleProxy* proxy);
    int findNode(KvRxDependencyNode* node);
    void reportWrongOrder(bool loading, const char16_t* moduleName, const char16_t* otherName,
                          int kind);
    void reportCycle(const char16_t* a, const char16_t* b);

    // Sorted by pointer value only when m_sorted says so: appends leave it unsorted and
    // the next lookup sorts it.
    KvArray<KvRxDependencyNode*> m_nodes;
    bool m_sorted;
    KvArray<KvRxDynLoadModuleProxy*> m_loadStack;    // first messages under way, innermost last
    KvArray<KvRxDynLoadModuleProxy*> m_unloadStack;  // unloads under way, innermost last
    // Modules that a module already gone depended on; compared by pointer only, so an
    // entry may outlive its module.
    KvArray<KvRxDynLoadModuleProxy*> m_releasedDependencies;
};
