#include "hostservices.h"

#include "lumplatform/files.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"
#include "lumuinfo.h"

#include <chrono>
#include <cstdlib>
#include <ctime>

namespace lumrxhost {

std::string utf8(const std::u16string& text) { return lumplatform::toUtf8(text); }
std::string utf8(const char16_t* text) { return text ? utf8(std::u16string(text)) : std::string(); }
std::u16string u16(const std::string& text) { return lumplatform::fromUtf8(text); }

void printError(const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", text.c_str());
}

// ---------------------------------------------------------------------------

std::unique_ptr<FileCrashRecorder> FileCrashRecorder::open(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "a");
    if (!file) return nullptr;
    return std::unique_ptr<FileCrashRecorder>(new FileCrashRecorder(file, true));
}

std::unique_ptr<FileCrashRecorder> FileCrashRecorder::onStandardError() {
    return std::unique_ptr<FileCrashRecorder>(new FileCrashRecorder(stderr, false));
}

FileCrashRecorder::~FileCrashRecorder() {
    if (m_owned) std::fclose(m_file);
}

void FileCrashRecorder::writeLine(const std::string& line) {
    std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    char stamp[32] = "";
    if (const std::tm* t = std::localtime(&now)) {
        local = *t;
        std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    }
    if (!m_owned) std::fflush(stdout);
    std::fprintf(m_file, "%s %s\n", stamp, line.c_str());
    std::fflush(m_file);
}

void FileCrashRecorder::recordMessage(const char16_t* text, int, int, int) {
    writeLine(text ? utf8(text) : "<no text>");
}

void FileCrashRecorder::recordException(const LumException* exception) {
    writeLine("exception: " + (exception ? utf8(exception->description()) : std::string("<null>")));
}

void FileCrashRecorder::recordFault(unsigned faultCode, const void*, const char16_t* text, int line) {
    writeLine("fault " + std::to_string(faultCode) + " at line " + std::to_string(line) + ": " +
              utf8(text));
}

void FileCrashRecorder::flushRecord() { std::fflush(m_file); }

// ---------------------------------------------------------------------------

void HostRuntime::nonMdiModulesGone() {
    std::printf("host: no module without multi-document awareness is left\n");
}

KvRxDynLoadModuleProxy* HostRuntime::setCurrentModule(KvRxDynLoadModuleProxy* proxy) {
    KvRxDynLoadModuleProxy* previous = m_current;
    m_current = proxy;
    return previous;
}

LumCrashRecorder* HostRuntime::crashRecorder() {
    return m_recorder ? m_recorder : kvoreGetCrashRecorder();
}

// ---------------------------------------------------------------------------

static std::unique_ptr<FileCrashRecorder> makeRecorder(const std::string& file) {
    if (!file.empty()) return FileCrashRecorder::open(file);
    const char* named = std::getenv("LUMRX_CRASH_RECORD");
    return named && *named ? nullptr : FileCrashRecorder::onStandardError();
}

HostServices::HostServices(const HostOptions& options)
    : m_options(options),
      m_recorder(makeRecorder(options.crashRecordFile)),
      m_ready(options.crashRecordFile.empty() || m_recorder != nullptr),
      m_runtime(options.acceptNonMdi, m_recorder.get()) {
    // Every diagnostic line of the process goes to the host's record.
    if (m_recorder) m_previousRecorder = lumSetCrashRecorder(m_recorder.get());
    SetOemProductName(m_options.productName.c_str());
}

HostServices::~HostServices() {
    SetOemProductName(nullptr);
    if (m_recorder) lumSetCrashRecorder(m_previousRecorder);
}

static bool isFile(const std::u16string& path) {
    unsigned attributes = lumplatform::fileAttributes(path);
    return attributes != lumplatform::kNoAttributes &&
           (attributes & lumplatform::kAttributeDirectory) == 0;
}

std::u16string HostServices::locate(const std::u16string& name) const {
    if (name.empty()) return {};
    if (name.find(u'/') != std::u16string::npos) {
        std::u16string full = lumplatform::fullPathName(name);
        return isFile(full) ? full : std::u16string();
    }
    for (const std::u16string& dir : m_options.searchPath) {
        std::u16string candidate = lumplatform::fullPathName(dir + u"/" + name);
        if (!candidate.empty() && isFile(candidate)) return candidate;
    }
    std::u16string found = lumplatform::searchFile(name);
    return isFile(found) ? lumplatform::fullPathName(found) : std::u16string();
}

static int putText(const std::u16string& text, char16_t* out, int outSize) {
    if (!out || outSize <= 0 || text.size() + 1 > size_t(outSize)) return -1;
    text.copy(out, text.size());
    out[text.size()] = 0;
    return 0;
}

int HostServices::findFile(char16_t* out, int outSize, const char16_t* name, void*, int) {
    std::u16string found = locate(name ? name : u"");
    if (found.empty()) return 1;
    return putText(found, out, outSize) == 0 ? 0 : 2;
}

void HostServices::fatalError(const char16_t* text) {
    printError("lumrx-host: fatal error in the runtime: " + (text ? utf8(text) : std::string("<no text>")));
}

void HostServices::displayMessage(const char16_t* text, int length) {
    std::u16string message = text && length > 0 ? std::u16string(text, size_t(length)) : u"";
    std::printf("message: %s\n", message.empty() ? "<no text>" : utf8(message).c_str());
}

static size_t schemeEnd(const std::u16string& name) {
    size_t colon = name.find(u"://");
    if (colon == std::u16string::npos || colon == 0) return std::u16string::npos;
    for (size_t i = 0; i < colon; ++i) {
        char16_t c = name[i];
        bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        bool other = i > 0 && ((c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.');
        if (!letter && !other) return std::u16string::npos;
    }
    return colon + 3;
}

bool HostServices::isRemoteName(const char16_t* name) {
    return name && schemeEnd(name) != std::u16string::npos;
}

int HostServices::fetchRemoteFile(const char16_t* name, char16_t* out, int outSize, int) {
    std::u16string text = name ? name : u"";
    size_t end = schemeEnd(text);
    if (end == std::u16string::npos) return 1;
    std::string scheme = utf8(text.substr(0, end - 3));
    for (char& c : scheme) c = char(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (scheme != "file") {
        printError("lumrx-host: " + utf8(text) + ": only file:// names can be fetched");
        return 1;
    }
    std::u16string path = text.substr(end);
    if (path.empty() || path[0] != u'/' || !isFile(path)) {
        printError("lumrx-host: " + utf8(text) + ": no such file");
        return 1;
    }
    return putText(path, out, outSize) == 0 ? 20000 : 2;
}

}  // namespace lumrxhost
