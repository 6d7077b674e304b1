// The record functions and product queries of the application-level interface.
#include "kvdbhostappservices.h"
#include "kvoreappinfo.h"

KvoreApp::ErrorStatus kvrxRegisterApp(KvoreApp::LoadReasons reason, const char16_t* appName) {
    if (!appName || !*appName) return KvoreApp::eBadArgs;
    KvoreAppInfo info;
    info.setAppName(appName);
    info.setLoadReason(reason);
    return info.writeToRegistry() > KvoreApp::eOk ? KvoreApp::eNoHive : KvoreApp::eOk;
}

KvoreApp::ErrorStatus kvrxUnregisterApp(const char16_t* appName) {
    if (!appName || !*appName) return KvoreApp::eBadArgs;
    KvoreAppInfo info;
    info.setAppName(appName);
    KvoreApp::ErrorStatus status = info.delFromRegistry();
    if (status == KvoreApp::eOk || status == KvoreApp::eKeyNotFound) return status;
    return KvoreApp::eNoHive;
}

const char16_t* kvrxProductKey() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    return host ? host->productRegistryKey() : nullptr;
}

uint32_t kvrxProductLCID() {
    KvDbHostApplicationServices* host = kvdbHostApplicationServices();
    return host ? host->hostLCID() : 0;
}

KvLocale kvrxProductLocale() { return KvLocale(0); }

const char16_t* kvrxDatumVaultRegistryKey() {
    static const char16_t engineKey[64] = {};
    return engineKey;
}
