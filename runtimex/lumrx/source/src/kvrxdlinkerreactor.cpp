// Observers of module loads and unloads, and how the linker keeps and tells them.
#include "kernel/kvrxcrashrecord.h"
#include "kvrxclass.h"
#include "kvrxdynamiclinkerimp.h"
#include "lumosbase.h"

KVRX_DEFINE_MEMBERS(KvRxDLinkerReactor, u"OvRxDLinkerReactor", u"OvRxObject");

KvRxDLinkerReactor::KvRxDLinkerReactor() = default;
KvRxDLinkerReactor::~KvRxDLinkerReactor() = default;
void KvRxDLinkerReactor::rxAppWillBeLoaded(const char16_t*) {}
void KvRxDLinkerReactor::rxAppLoaded(const char16_t*) {}
void KvRxDLinkerReactor::rxAppLoadAborted(const char16_t*) {}
void KvRxDLinkerReactor::rxAppWillBeUnloaded(const char16_t*) {}
void KvRxDLinkerReactor::rxAppUnloaded(const char16_t*) {}
void KvRxDLinkerReactor::rxAppUnloadAborted(const char16_t*) {}

void KvRxDynamicLinkerImp::addReactor(KvRxDLinkerReactor* reactor) {
    if (reactor) reactors.append(reactor);
}

void KvRxDynamicLinkerImp::removeReactor(KvRxDLinkerReactor* reactor) {
    int at = reactors.find(reactor);
    if (at >= 0) reactors.removeAt(at);
}

void KvRxDynamicLinkerImp::addDbAppAware(KvRxDLinkerReactor* reactor) {
    if (!reactor) return;
    ++appAwareCount;
    reactors.insertAt(0, reactor);
}

void KvRxDynamicLinkerImp::removeDbAppAware(KvRxDLinkerReactor* reactor) {
    if (!reactor) return;
    int at = reactors.find(reactor);
    if (at >= 0) reactors.removeAt(at);
    --appAwareCount;
}

void KvRxDynamicLinkerImp::clearAllRxReactor(const KvRxClass* cls) {
    if (!cls) {
        reactors.setLogicalLength(0);
        return;
    }
    bool appAware = LumCharOp::compare(cls->name(), u"KvDbAppAware") == 0;
    try {
        for (int i = 0; i < reactors.length();) {
            if (reactors[i]->isA() != cls) {
                ++i;
                continue;
            }
            reactors.removeAt(i);  // the walk goes on at the same position
            if (appAware) --appAwareCount;
        }
    } catch (...) {
        if (LumCrashRecorder* recorder = kvrxCrashRecorder())
            recorder->recordFault(0, nullptr, u"" __FILE__, __LINE__);
    }
}

// Tells every reactor once. The array is read again at each step, so a reactor added
// at the end during the call is told too; one inserted at the front shifts the rest,
// and the list of those told keeps anyone from hearing twice. An observer's exception
// is recorded and stops nobody: the load or unload around it must finish.
void KvRxDynamicLinkerImp::notify(ReactorCall call, const char16_t* moduleName) {
    KvArray<KvRxDLinkerReactor*> told;
    for (int i = 0; i < reactors.length(); ++i) {
        KvRxDLinkerReactor* reactor = reactors[i];
        if (!reactor || told.contains(reactor)) continue;
        told.append(reactor);
        try {
            (reactor->*call)(moduleName);
        } catch (LumException* e) {
            delete e;  // its throw was recorded already
        } catch (...) {
            if (LumCrashRecorder* recorder = kvrxCrashRecorder())
                recorder->recordFault(0, nullptr, u"" __FILE__, __LINE__);
        }
    }
}
