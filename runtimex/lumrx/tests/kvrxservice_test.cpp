// Services, their owners, the kernel service and the service functions.
#include "kernel/kvrxkernelserviceimp.h"
#include "kernel/kvrxmoduleglobal.h"
#include "kvrxcollection.h"
#include "kvrxdynamiclinkerimp.h"
#include "kvrxdynloadmoduleproxy.h"
#include "kvrxmap.h"
#include "kvrxservice.h"
#include "testsupport.h"

using lumtest::RecordingCrashRecorder;
using lumtest::utf8;

namespace {

class Services : public lumtest::RuntimeTest {
protected:
    static KvRxDictionary* services() { return KvRxModuleGlobalImp::instance()->serviceDictionary; }
};

TEST_F(Services, KernelServiceIsOwnedByTheKernelModule) {
    KvRxKernel* kernel = KvRxModuleGlobalImp::instance()->kernelService;
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(services()->at(u"kernelservices"), kernel);
    EXPECT_EQ(kernel->isA(), KvRxKernelServiceImp::desc());
    EXPECT_EQ(kernel->getSysInfo(), KvRxDynamicLinkerImp::kernelProxy());
    ASSERT_NE(KvRxDynamicLinkerImp::kernelProxy()->moduleHandle(), nullptr);
    EXPECT_FALSE(kernel->unloadable()) << "the kernel module is locked";
    EXPECT_TRUE(kvrxServiceIsRegistered(u"KERNELSERVICES"));
    EXPECT_FALSE(kvrxServiceIsRegistered(nullptr));
    EXPECT_FALSE(kvrxServiceIsRegistered(u""));

    // The dictionary takes services only.
    KvRxLinkedList notAService;
    unsigned id = 0;
    EXPECT_EQ(services()->atPut(u"List", &notAService, id), &notAService);
    EXPECT_FALSE(kvrxServiceIsRegistered(u"List"));
}

TEST_F(Services, RegisteredOutsideAMessageBelongsToTheKernel) {
    auto* service = static_cast<KvRxService*>(kvrxRegisterService(u"Sketch.Service"));
    ASSERT_NE(service, nullptr);
    EXPECT_TRUE(kvrxServiceIsRegistered(u"sketch.service"));
    EXPECT_EQ(services()->at(u"Sketch.Service"), service);
    EXPECT_EQ(service->getSysInfo(), KvRxDynamicLinkerImp::kernelProxy());

    // A name differing only in case is the same service.
    RecordingCrashRecorder recorder;
    KvRxService* second = nullptr;
    EXPECT_LUM_THROW(second = static_cast<KvRxService*>(kvrxRegisterService(u"SKETCH.service")),
                     "Register service : \"SKETCH.service\" repeatedly!");
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(services()->at(u"Sketch.Service"), service);
    delete services()->remove(u"Sketch.Service");

    // Without a name the object is still made, and nobody registers it.
    unsigned before = services()->numEntries();
    for (const char16_t* name : {static_cast<const char16_t*>(nullptr), u""}) {
        auto* loose = static_cast<KvRxService*>(kvrxRegisterService(name));
        ASSERT_NE(loose, nullptr);
        EXPECT_EQ(loose->getSysInfo(), nullptr);
        delete loose;
    }
    EXPECT_EQ(services()->numEntries(), before);
}

TEST_F(Services, OwnerMustBeAModuleProxy) {
    KvRxService service;
    EXPECT_EQ(service.getSysInfo(), nullptr);
    EXPECT_TRUE(service.unloadable());
    service.addDependency();  // no owner: nothing happens
    service.removeDependency();
    service.setSysInfo(nullptr);
    EXPECT_EQ(service.getSysInfo(), nullptr);

    KvRxLinkedList notAProxy;
    service.setSysInfo(&notAProxy);
    EXPECT_EQ(service.getSysInfo(), nullptr) << "a non-proxy is stored as no owner";
    EXPECT_TRUE(service.unloadable());

    KvRxDynLoadModuleProxy* proxy = KvRxDynLoadModuleProxy::makeProxy(nullptr);
    service.setSysInfo(proxy);
    EXPECT_EQ(service.getSysInfo(), proxy);
    KvRxService copy(service);
    KvRxService assigned;
    assigned = service;
    EXPECT_EQ(copy.getSysInfo(), proxy);
    EXPECT_EQ(assigned.getSysInfo(), proxy);
    EXPECT_EQ(service.dependencyFunctionPtr(), nullptr);
    delete proxy;
}

TEST_F(Services, DependenciesHoldTheOwningModule) {
    KvRxDynLoadModuleProxy* proxy = KvRxDynLoadModuleProxy::makeProxy(nullptr);
    proxy->setModuleName(u"imageless.krx");
    proxy->setLocked(false);
    KvRxService service;
    service.setSysInfo(proxy);
    EXPECT_TRUE(service.unloadable());

    // The module has no image, so message 10 fails inside the linker; the failure is
    // reported and contained.
    RecordingCrashRecorder recorder;
    service.addDependency();
    service.addDependency();
    EXPECT_EQ(proxy->refCount(), 2);
    EXPECT_FALSE(service.unloadable());
    ASSERT_EQ(recorder.exceptions.size(), 1u) << "only the first dependency sends a message";
    EXPECT_EQ(utf8(recorder.exceptions[0]), "Cannot find KRX entry point from module: \"imageless.krx\"!!!");
    service.removeDependency();
    service.removeDependency();
    EXPECT_EQ(proxy->refCount(), 0);
    EXPECT_EQ(recorder.exceptions.size(), 2u) << "the last one sends message 11";
    EXPECT_TRUE(service.unloadable());
    delete proxy;
}

TEST_F(Services, KernelMakesCollections) {
    KvRxKernel* kernel = KvRxModuleGlobalImp::instance()->kernelService;
    KvRxDictionary* filtered = kernel->newDictionary(KvRxService::desc());
    KvRxDictionary* plain = kernel->newDictionary(4u, false, false, true);
    KvRxDictionary* sorted = kernel->newDictionary(true, true);
    EXPECT_TRUE(filtered->isCaseSensitive()) << "the filtered form compares keys exactly";
    EXPECT_FALSE(plain->isCaseSensitive());
    EXPECT_TRUE(sorted->isSorted());
    EXPECT_FALSE(plain->isSorted());

    KvRxService service;
    KvRxLinkedList list;
    unsigned id = 0;
    EXPECT_EQ(filtered->atPut(u"list", &list, id), &list) << "refused: not a service";
    filtered->atPut(u"Svc", &service, id);
    EXPECT_EQ(filtered->at(u"Svc"), &service);
    EXPECT_EQ(filtered->at(u"svc"), nullptr);
    plain->atPut(u"Svc", &service, id);
    EXPECT_EQ(plain->at(u"SVC"), &service);
    delete filtered;
    delete plain;
    delete sorted;

    KvRxLinkedList* made = kernel->newLinkedList();
    KvRxMap* map = kernel->newMap();
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->isEmpty());
    ASSERT_NE(map, nullptr);
    delete made;
    delete map;
}

TEST_F(Services, SymbolsComeFromTheOwningModule) {
    // The kernel's exports are found through its own service.
    void* expected = reinterpret_cast<void*>(&kvrxServiceIsRegistered);
    const char* mangled = "_Z23kvrxServiceIsRegisteredPKDs";
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"KernelServices", mangled), expected);
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"KernelServices", u"_Z23kvrxServiceIsRegisteredPKDs"), expected);
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"KernelServices", "noSuchSymbol"), nullptr);
    // Shared objects have no ordinals.
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"KernelServices", reinterpret_cast<const char16_t*>(7)), nullptr);
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"NoSuchService", mangled), nullptr);
    EXPECT_EQ(kvrxGetServiceSymbolAddr(static_cast<const char16_t*>(nullptr), mangled), nullptr);

    // A service without owner gives nothing.
    KvRxService ownerless;
    unsigned id = 0;
    services()->atPut(u"Ownerless", &ownerless, id);
    EXPECT_EQ(kvrxGetServiceSymbolAddr(u"Ownerless", mangled), nullptr);
    services()->remove(u"Ownerless");
}

TEST(ServiceShutdown, LeftoverServicesAreDeletedOnce) {
    // A process of its own: the runtime is brought down here, under the leak checker.
    lumtest::ensureRuntime();
    kvrxRegisterService(u"Left.Behind");
    KvRxKernel* kernel = KvRxModuleGlobalImp::instance()->kernelService;
    // A kernel service taken off the dictionary is still deleted, once.
    KvRxModuleGlobalImp::instance()->serviceDictionary->remove(u"KernelServices");
    EXPECT_NE(kernel, nullptr);
}

}  // namespace
