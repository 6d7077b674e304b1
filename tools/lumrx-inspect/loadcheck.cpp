#include "loadcheck.h"

#include "kvrxdictionary.h"
#include "kvrxdynamiclinker.h"
#include "kvrxruntime.h"
#include "lumplatform/console.h"
#include "lumplatform/files.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <set>

namespace lumrxinspect {

namespace {

std::string utf8(const char16_t* text) { return text ? lumplatform::toUtf8(text) : std::string(); }

using ApiVersion = uint32_t (*)(uintptr_t);

// The keys of a dictionary of the system registry, in name order.
std::set<std::string> keysOf(const char16_t* dictionary) {
    std::set<std::string> keys;
    auto* d = KvRxDictionary::cast(kvrxSysRegistry()->at(dictionary));
    if (!d) return keys;
    KvRxDictionaryIterator* it = d->newIterator(kDictById);
    for (; !it->done(); it->next()) keys.insert(utf8(it->key()));
    delete it;
    return keys;
}

std::vector<std::string> added(const std::set<std::string>& before, const std::set<std::string>& after) {
    std::vector<std::string> out;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(out));
    return out;
}

bool hasLine(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// The module's own answer to kvrxGetApiVersion, from an image opened for the question
// and kept open in `handle` until the caller closes it; false if it can't be opened.
bool readApiVersion(const std::u16string& path, void*& handle, uint32_t& version) {
    int error = 0;
    handle = lumplatform::isLoadableImage(path) ? lumplatform::openImage(path, error) : nullptr;
    auto query = handle ? reinterpret_cast<ApiVersion>(lumplatform::librarySymbol(handle, "kvrxGetApiVersion"))
                        : nullptr;
    if (query) version = query(0);
    return query != nullptr;
}

}  // namespace

void RecordingRecorder::recordMessage(const char16_t* text, int, int, int) { lines.push_back(utf8(text)); }

void RecordingRecorder::recordException(const LumException* exception) {
    lines.push_back("exception: " + (exception ? utf8(exception->description()) : std::string()));
}

void RecordingRecorder::recordFault(unsigned faultCode, const void*, const char16_t* text, int line) {
    lines.push_back("fault " + std::to_string(faultCode) + " at line " + std::to_string(line) + ": " + utf8(text));
}

KvRxDynLoadModuleProxy* InspectRuntime::setCurrentModule(KvRxDynLoadModuleProxy* proxy) {
    KvRxDynLoadModuleProxy* previous = m_current;
    m_current = proxy;
    return previous;
}

int InspectHost::findFile(char16_t* out, int outSize, const char16_t* name, void*, int) {
    std::u16string found = lumplatform::searchFile(name ? name : u"");
    if (found.empty() || !out || found.size() + 1 > size_t(outSize)) return 1;
    found.copy(out, found.size());
    out[found.size()] = 0;
    return 0;
}

void InspectHost::fatalError(const char16_t* text) {
    std::fflush(stdout);
    std::fprintf(stderr, "lumrx-inspect: fatal error in the runtime: %s\n", utf8(text).c_str());
}

void InspectHost::displayMessage(const char16_t* text, int length) {
    messages.push_back(text && length > 0 ? lumplatform::toUtf8(std::u16string(text, size_t(length))) : "");
}

LoadSession::LoadSession() : m_previousRecorder(lumSetCrashRecorder(&m_host.runtime.recorder)) {
    InitializeKvRxSystem();
    kvdbSetHostApplicationServices(&m_host);
}

LoadSession::~LoadSession() {
    UninitializeKvRxSystem();
    kvdbSetHostApplicationServices(nullptr);
    lumSetCrashRecorder(m_previousRecorder);
}

void LoadSession::check(Inspection& inspection) {
    // The module's own output stays out of the report.
    lumplatform::StandardOutputToError diverted;
    LoadReport& report = inspection.load;
    report.attempted = true;
    std::u16string path = lumplatform::fullPathName(lumplatform::fromUtf8(inspection.file));
    if (path.empty()) path = lumplatform::fromUtf8(inspection.file);
    void* handle = nullptr;
    report.versionKnown = readApiVersion(path, handle, report.apiVersion);

    std::set<std::string> classesBefore = keysOf(u"ClassDictionary");
    std::set<std::string> servicesBefore = keysOf(u"ServiceDictionary");
    m_host.messages.clear();
    m_host.runtime.recorder.lines.clear();
    report.loaded = kvrxLoadModule(path.c_str(), true, false);
    report.classes = added(classesBefore, keysOf(u"ClassDictionary"));
    report.services = added(servicesBefore, keysOf(u"ServiceDictionary"));
    report.messages = m_host.messages;
    const std::vector<std::string>& record = m_host.runtime.recorder.lines;
    std::string module = "krx " + lumplatform::toUtf8(path);
    report.firstMessage = hasLine(record, module + " load success")   ? "succeeded"
                          : hasLine(record, module + " load failure") ? "failed"
                                                                      : "not sent";
    kvrxUnloadAllModules(false, true);
    if (handle) lumplatform::closeLibrary(handle);
    if (!report.loaded && inspection.loadable) {
        inspection.loadable = false;
        if (report.firstMessage == "failed")
            inspection.reason = "its first message (initialise) reported failure";
        else
            inspection.reason = "the load was refused" + (report.messages.empty() ? "" : ": " + report.messages.front());
    }
}

}  // namespace lumrxinspect
