#include "kvrxmoduleglobal.h"

#include "collections/kvrxdictionaryimp.h"
#include "kernel/kvrximpclass.h"
#include "kernel/kvrxkernelserviceimp.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxcollection.h"
#include "kvrxcopyonwriteobject.h"
#include "kvrxmap.h"
#include "kvrxoverrule.h"
#include "lumosbase.h"
#include "reactors/kvrxprotocolreactorimp.h"

namespace {

KvRxModuleGlobalImp* gInstance = nullptr;
KvDbHostApplicationServices* gHost = nullptr;

// The classes that start-up registers, in their fixed order: the root first, the
// class of classes second, the key string third.
void (*const kStartupClasses[])() = {
    &KvRxObject::rxInit,
    &KvRxClass::rxInit,
    &KvRxString::rxInit,
    &KvRxDictionary::rxInit,
    &KvRxDictionaryImp::rxInit,
    &KvRxIterator::rxInit,
    &KvRxDictionaryIterator::rxInit,
    &KvRxDictionaryImpIterator::rxInit,
    &KvRxOverrule::rxInit,
    &KvRxService::rxInit,
    &KvRxKernel::rxInit,
    &KvRxKernelServiceImp::rxInit,
    &KvRxDynLoadModuleProxy::rxInit,
    &KvRxDynamicLinker::rxInit,
    &KvRxDynamicLinkerImp::rxInit,
    &KvRxDLinkerReactor::rxInit,
    &KvRxIterable::rxInit,
    &KvRxGenericCollection::rxInit,
    &KvRxLinkedList::rxInit,
    &KvRxLinkedListIterator::rxInit,
    &KvRxGenericMap::rxInit,
    &KvRxGenericMapIterator::rxInit,
    &KvRxMap::rxInit,
    &KvRxMapIterator::rxInit,
    &KvRxPEClassMap::rxInit,
    &KvRxPEClassMapIterator::rxInit,
    &KvRxProtocolReactorManagerFactory::rxInit,
    &KvRxProtocolReactorManager::rxInit,
    &KvRxProtocolReactorList::rxInit,
    &KvRxProtocolReactorListIterator::rxInit,
    &KvRxProtocolReactor::rxInit,
    &KvRxProtocolReactorIterator::rxInit,
    &KvRxProtocolReactorManagerFactoryImp::rxInit,
    &KvRxProtocolReactorManagerImp::rxInit,
    &KvRxProtocolReactorListImp::rxInit,
    &KvRxProtocolReactorListIteratorImp::rxInit,
    &KvRxProtocolReactorIteratorImp::rxInit,
    &KvRxCopyOnWriteObject::rxInit,
};

}  // namespace

KvRxModuleGlobal* KvRxModuleGlobal::GetInstance() { return gInstance; }

KvRxModuleGlobalImp* KvRxModuleGlobalImp::instance() { return gInstance; }

char16_t* kvrxFormatAlloc(const char16_t* prefix, const char16_t* format, va_list args) {
    va_list counting;
    va_copy(counting, args);
    int needed = LumCharOp::formattedLength(format, counting);
    va_end(counting);
    if (needed < 0) return nullptr;
    unsigned prefixLength = LumCharOp::length(prefix);
    auto* text = static_cast<char16_t*>(_lumMalloc((prefixLength + size_t(needed) + 1) * sizeof(char16_t)));
    if (!text) return nullptr;
    LumCharOp::copy(text, prefix ? prefix : u"", prefixLength);
    LumCharOp::format(text + prefixLength, format, args);
    return text;
}

void KvRxModuleGlobalImp::fatalErrorV(const char16_t* format, va_list args) {
    char16_t* text = format ? kvrxFormatAlloc(nullptr, format, args) : nullptr;
    // The exception keeps its own copy of the message, so the buffer goes now.
    auto* e = new LumExceptionWithMsg("", 0, text ? text : (format ? format : u"Error abort!"));
    _lumFree(text);
    if (LumCrashRecorder* recorder = kvoreGetCrashRecorder()) recorder->recordException(e);
    throw e;
}

void KvRxModuleGlobal::fatalError(const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    KvRxModuleGlobalImp::fatalErrorV(format, args);
}

void KvRxModuleGlobal::fatalStatus() {
    fatalError(u"Rx module fatal error, code is %d", int(Kvore::eWrongObjectType));
}

void kvrx_abort(const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    KvDbHostApplicationServices* host = gHost;
    if (!host) KvRxModuleGlobalImp::fatalErrorV(format, args);  // never returns; va_end unneeded
    if (!format) {
        va_end(args);
        host->fatalError(nullptr);
        return;
    }
    char16_t* text = kvrxFormatAlloc(u"!", format, args);
    va_end(args);
    host->fatalError(text ? text : u"!");
    _lumFree(text);
}

Kvore::ErrorStatus kvdbSetHostApplicationServices(KvDbHostApplicationServices* host) {
    gHost = host;
    return Kvore::eOk;
}

KvDbHostApplicationServices* kvdbHostApplicationServices() { return gHost; }

KvRxDictionary* kvrxSysRegistry() { return gInstance ? gInstance->systemRegistry : nullptr; }

KvRxClass* KvRxModuleGlobalImp::findClass(const char16_t* name) const {
    // The dictionary is always the implementation: its look-up is called without dispatch.
    auto* classes = static_cast<KvRxDictionaryImp*>(classDictionary);
    return classes ? kvrxClassValue(classes->KvRxDictionaryImp::at(name)) : nullptr;
}

KvRxClass* kvrxFindKvRxClass(const char16_t* name) {
    return gInstance ? gInstance->findClass(name) : nullptr;
}

void InitializeKvRxSystem() {
    if (gInstance) KvRxModuleGlobal::fatalError(u"KvRxModuleGlobal has initialized already!!!");
    gInstance = new KvRxModuleGlobalImp();
    unsigned id = 0;
    gInstance->systemRegistry = KvRxDictionaryImp::createDictionary(0, false, false, true, nullptr);
    gInstance->classDictionary = KvRxDictionaryImp::createDictionary(256, false, true, true, nullptr);
    gInstance->systemRegistry->atPut(u"ClassDictionary", gInstance->classDictionary, id);

    // The class dictionary must exist before any rxInit; parents are linked at the end.
    for (auto rxInit : kStartupClasses) rxInit();
    kvrxBuildClassHierarchy();

    gInstance->dynamicLinker = new KvRxDynamicLinkerImp();
    gInstance->systemRegistry->atPut(u"DynamicLinker", gInstance->dynamicLinker, id);
    gInstance->serviceDictionary =
        KvRxDictionaryImp::createDictionary(0, false, false, true, KvRxService::desc());
    gInstance->systemRegistry->atPut(u"ServiceDictionary", gInstance->serviceDictionary, id);
    // Registered through the linker, so that the kernel's own module owns it.
    gInstance->kernelService = new KvRxKernelServiceImp();
    gInstance->dynamicLinker->registerService(u"KernelServices", gInstance->kernelService);
    // Straight into the dictionary, so it has no owning module; shut-down deletes it.
    gInstance->serviceDictionary->atPut(u"ProtocolReactorManager",
                                        new KvRxProtocolReactorManagerFactoryImp(), id);
}

namespace {

// Services first: every service still listed goes with the dictionary, the kernel
// service only if it is no longer listed; then the linker with its modules.
void deleteServicesAndLinker(KvRxModuleGlobalImp* instance) {
    auto* services = static_cast<KvRxDictionaryImp*>(instance->serviceDictionary);
    KvRxKernel* kernel = instance->kernelService;
    bool kernelUnlisted = services->at(u"KernelServices") != kernel;
    services->clear(true);
    delete services;
    instance->serviceDictionary = nullptr;
    if (kernelUnlisted) delete kernel;
    instance->kernelService = nullptr;
    delete instance->dynamicLinker;
    instance->dynamicLinker = nullptr;
}

}  // namespace

void UninitializeKvRxSystem() {
    KvRxModuleGlobalImp* instance = gInstance;
    KvRxDictionary* classes = instance->classDictionary;
    deleteServicesAndLinker(instance);

    // What modules doomed goes first, with the order checks on.
    KvRxClassState::destroyDoomedRxClasses(true);

    // Everything left is doomed in name order and goes with the checks off, since the
    // whole tree goes at once.
    KvRxDictionaryIterator* it = classes->newIterator(kDictSorted);
    for (; !it->done(); it->next()) deleteKvRxClass(kvrxClassValue(it->object()));
    // Classes whose checked destruction failed earlier are out of the dictionary; they
    // go in this walk too.
    KvRxClassState::doomAbandonedClasses();
    KvRxClassState::destroyDoomedRxClasses(false);

    delete classes;
    instance->classDictionary = nullptr;
    delete instance->systemRegistry;
    instance->systemRegistry = nullptr;
    delete instance;
    gInstance = nullptr;
    delete it;
}
