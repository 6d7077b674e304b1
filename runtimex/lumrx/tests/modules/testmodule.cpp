// One extension module for the linker tests, built several times with different
// behaviour. Each call of its exports appends a line "<name> <event>" to the file that
// LUMRX_TEST_MODULE_LOG names, so a test can read the order of events.
#include "lumosbase.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#if defined(KRX_UNLOCK) || defined(KRX_MDI) || defined(KRX_LOADS) || defined(KRX_UNLOADS_SELF) || \
    defined(KRX_FULL) || defined(KRX_OTHER)
#include "kvrxdynamiclinker.h"
#endif
#if defined(KRX_THROW_ALL)
#include <stdexcept>
#endif

#ifndef KRX_VERSION
#define KRX_VERSION 0x07E50003u
#endif
#ifndef KRX_INIT_RESULT
#define KRX_INIT_RESULT 0
#endif

namespace {

void logEvent(const char* event, const char* detail = "") {
    const char* file = std::getenv("LUMRX_TEST_MODULE_LOG");
    FILE* log = file ? std::fopen(file, "a") : nullptr;
    if (!log) return;
    std::fprintf(log, "%s %s%s\n", KRX_NAME, event, detail);
    std::fclose(log);
}

// The current directory while the image's static initialisers run.
struct LoadWitness {
    LoadWitness() {
        char cwd[4096];
        logEvent("mapped ", getcwd(cwd, sizeof cwd) ? cwd : "?");
    }
} witness;

}  // namespace

#ifdef KRX_PROVIDES_DEP
extern "C" int krxDepValue() { return 7; }
#endif
#ifdef KRX_USES_DEP
extern "C" int krxDepValue();
#endif

#ifdef KRX_REGISTERS
#include "kvrxclass.h"
#include "kvrxservice.h"

namespace {

// Registers a class and a service in its first message and dooms the class in its
// unload message; the service object lives as long as the image.
struct Registrations {
    KvRxClass* rxClass = nullptr;
    KvRxService* service = nullptr;
    ~Registrations() { delete service; }
} registrations;

void registerOrDoom(int code) {
    if (code == 1) {
        registrations.rxClass = newKvRxClass(u"KrxOwnedClass", u"OvRxObject");
        registrations.service = static_cast<KvRxService*>(kvrxRegisterService(u"KrxOwnedService"));
    } else if (code == 2) {
        deleteKvRxClass(registrations.rxClass);
    }
}

}  // namespace
#endif

#ifdef KRX_ORPHAN
#include "kvrxclass.h"

namespace {

// Registers a class whose parent nobody registers, which the class tree refuses when it
// is linked after the first message; the unload message takes the class back.
KvRxClass* gOrphan = nullptr;

void registerOrphan(int code) {
    if (code == 1) gOrphan = newKvRxClass(u"KrxOrphanClass", u"KrxNoSuchParent");
    if (code == 2 && gOrphan) deleteKvRxClass(gOrphan);
}

}  // namespace
#endif

#ifdef KRX_FULL
#include "kvrxclass.h"
#include "kvrxservice.h"
#include "kvrxdictionary.h"
#include "kvrxruntime.h"

#include <vector>

namespace {

// A class, a service and a reactor of its own while it is loaded. A service object is
// freed once the dictionary no longer lists it (a load of the module again may come
// while an older load's unload still has it listed), at the latest with the image.
struct FullReactor : KvRxDLinkerReactor {};

KvRxDictionary* serviceDictionary() {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(u"ServiceDictionary"));
}

struct Full {
    KvRxClass* rxClass = nullptr;
    std::vector<KvRxService*> services;  // made here, freed when no longer listed
    FullReactor reactor;
    ~Full() {
        for (KvRxService* s : services) delete s;
    }
    void freeUnlisted() {
        KvRxObject* listed = serviceDictionary()->at(u"KrxFullService");
        std::vector<KvRxService*> kept;
        for (KvRxService* s : services) {
            if (s == listed) kept.push_back(s);
            else delete s;
        }
        services.swap(kept);
    }
} full;

KvRxDynamicLinker* dynamicLinker() {
    return KvRxDynamicLinker::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
}

void registerFull(int code) {
    if (code == 1) {
        full.freeUnlisted();
        full.rxClass = nullptr;  // the registrations below may throw
        full.rxClass = newKvRxClass(u"KrxFullClass", u"OvRxObject");
        full.services.push_back(static_cast<KvRxService*>(kvrxRegisterService(u"KrxFullService")));
        dynamicLinker()->addReactor(&full.reactor);
    } else if (code == 2) {
        dynamicLinker()->removeReactor(&full.reactor);
        if (full.rxClass) deleteKvRxClass(full.rxClass);
        full.rxClass = nullptr;
    }
}

}  // namespace
#endif

#ifdef KRX_OTHER
namespace {

// Messages 50 and 51 load and unload the module KRX_OTHER names, from inside the message.
void actOnOther(int code) {
    if (code != 50 && code != 51) return;
    const char* narrow = KRX_OTHER;
    char16_t wide[4096] = {};
    for (size_t i = 0; narrow[i] && i + 1 < sizeof wide / sizeof *wide; ++i) wide[i] = char16_t(narrow[i]);
    if (code == 50) logEvent(kvrxLoadModule(wide, false, false) ? "other loaded" : "other not loaded");
    else logEvent(kvrxUnloadModule(wide, false) ? "other unloaded" : "other not unloaded");
}

}  // namespace
#endif

#ifdef KRX_CLASS_CYCLE
#include "kvrxclass.h"

namespace {

// Two classes that name each other as parents.
KvRxClass* gCycleA = nullptr;
KvRxClass* gCycleB = nullptr;

void registerCycle(int code) {
    if (code == 1) {
        gCycleA = newKvRxClass(u"KrxCycleA", u"KrxCycleB");
        gCycleB = newKvRxClass(u"KrxCycleB", u"KrxCycleA");
    } else if (code == 2) {
        if (gCycleB) deleteKvRxClass(gCycleB);
        if (gCycleA) deleteKvRxClass(gCycleA);
        gCycleA = gCycleB = nullptr;
    }
}

}  // namespace
#endif

#ifndef KRX_NO_VERSION
extern "C" uint32_t kvrxGetApiVersion(uintptr_t) { return KRX_VERSION; }
#endif

#ifdef KRX_LOADS
namespace {

// Loads the module KRX_LOADS names from inside the first message.
void loadInner() {
    const char* narrow = KRX_LOADS;
    char16_t wide[4096] = {};
    for (size_t i = 0; narrow[i] && i + 1 < sizeof wide / sizeof *wide; ++i) wide[i] = char16_t(narrow[i]);
    logEvent(kvrxLoadModule(wide, false, false) ? "inner loaded" : "inner failed");
}

}  // namespace
#endif

#ifndef KRX_NO_ENTRY
// The entry point's own types, opaque: a module needs no more of them.
namespace KvRx {
enum AppMsgCode : int;
enum AppRetCode : int;
}  // namespace KvRx

namespace {
int entryPoint(int code, void* packet);
}  // namespace

extern "C" KvRx::AppRetCode kvrxEntryPoint(KvRx::AppMsgCode code, void* packet) {
    return KvRx::AppRetCode(entryPoint(code, packet));
}

namespace {
int entryPoint(int code, void* packet) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", code);
    logEvent("message ", text);
#ifdef KRX_UNLOCK
    if (code == 1) kvrxUnlockApplication(packet);
#endif
#ifdef KRX_MDI
    if (code == 1) kvrxRegisterAppMDIAware(packet);
#endif
#ifdef KRX_LOADS
    if (code == 1) loadInner();
#endif
#ifdef KRX_USES_DEP
    if (krxDepValue() != 7) return 1;
#endif
#ifdef KRX_REGISTERS
    registerOrDoom(code);
#endif
#ifdef KRX_ORPHAN
    registerOrphan(code);
#endif
#ifdef KRX_THROW
    if (code == 1) throw new LumExceptionWithMsg(__FILE__, __LINE__, u"refused");
#endif
#ifdef KRX_THROW_ALL
    if (code == 1) throw new LumExceptionWithMsg(__FILE__, __LINE__, u"refused");
    throw std::runtime_error("every message refused");
#endif
#ifdef KRX_UNLOADS_SELF
    if (code == 1) {
        const char* narrow = KRX_UNLOADS_SELF;
        char16_t wide[4096] = {};
        for (size_t i = 0; narrow[i] && i + 1 < sizeof wide / sizeof *wide; ++i) wide[i] = char16_t(narrow[i]);
        logEvent(kvrxUnloadModule(wide, false) ? "self unloaded" : "self refused");
    }
#endif
#ifdef KRX_FULL
    registerFull(code);
#endif
#ifdef KRX_OTHER
    actOnOther(code);
#endif
#ifdef KRX_CLASS_CYCLE
    registerCycle(code);
#endif
    if (code == 99) return 1;  // the message every test module refuses
    return code == 1 ? KRX_INIT_RESULT : 0;
}
}  // namespace
#endif
