#include "commandsupport.h"

#include "kvrxdynamiclinker.h"
#include "kvrxruntime.h"

#include <algorithm>

namespace lumrxhost {

void failWith(const std::string& text) { throw CommandError{text}; }

void expectArgs(const std::vector<std::string>& args, size_t least, size_t most, const char* usage) {
    if (args.size() < least || args.size() > most) failWith(std::string("usage: ") + usage);
}

long long parseNumber(const std::string& text, long long least, long long most, const char* what) {
    auto notNumber = [&] { failWith(std::string(what) + " '" + text + "' is not a number"); };
    auto outOfRange = [&] {
        failWith(std::string(what) + " " + text + " is out of range (" + std::to_string(least) + " to " +
                 std::to_string(most) + ")");
    };
    std::string digits = text;
    bool negative = !digits.empty() && digits[0] == '-';
    if (negative) digits.erase(0, 1);
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits.erase(0, 2);
    }
    if (digits.empty()) notNumber();
    // Accumulates the magnitude; anything beyond 2^40 is out of every range asked here.
    const long long limit = 1ll << 40;
    long long value = 0;
    bool tooLarge = false;
    for (char c : digits) {
        int d = c >= '0' && c <= '9' ? c - '0'
              : base == 16 && c >= 'a' && c <= 'f' ? c - 'a' + 10
              : base == 16 && c >= 'A' && c <= 'F' ? c - 'A' + 10
              : -1;
        if (d < 0) notNumber();
        if (!tooLarge) value = value * base + d;
        if (value > limit) tooLarge = true;
    }
    if (tooLarge) outOfRange();
    if (negative) value = -value;
    if (value < least || value > most) outOfRange();
    return value;
}

std::u16string baseName(const std::u16string& path) {
    size_t slash = path.find_last_of(u'/');
    return slash == std::u16string::npos ? path : path.substr(slash + 1);
}

bool sameTextNoCase(const std::u16string& a, const std::u16string& b) {
    auto fold = [](char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [&](char16_t x, char16_t y) { return fold(x) == fold(y); });
}

std::string reasonsText(KvoreApp::LoadReasons reasons) {
    static const std::pair<KvoreApp::LoadReasons, const char*> names[] = {
        {KvoreApp::kOnStartup, "start-up"},  {KvoreApp::kOnCommand, "command"},
        {KvoreApp::kOnRequest, "request"},   {KvoreApp::kDisabled, "disabled"},
        {KvoreApp::kFlaggedForDemandLoad, "flagged"}};
    std::string text;
    for (const auto& n : names)
        if (reasons & n.first) text += (text.empty() ? "" : ", ") + std::string(n.second);
    return std::to_string(reasons) + (text.empty() ? "" : " (" + text + ")");
}

std::string statusText(KvoreApp::ErrorStatus status) {
    switch (status) {
    case KvoreApp::eOk: return "done";
    case KvoreApp::eKeyNotFound: return "the key opens in neither hive";
    case KvoreApp::eOutOfMemory: return "out of memory";
    case KvoreApp::eNoAppName: return "no application name";
    case KvoreApp::eNoRecord: return "no usable record";
    case KvoreApp::eAccessDenied: return "the registry refused access";
    case KvoreApp::eNoHive: return "the record has no hive";
    default: return "the registry failed";
    }
}

KvRxDictionary* systemEntry(const char16_t* key) {
    return KvRxDictionary::cast(kvrxSysRegistry()->at(key));
}

KvRxDynamicLinker* linker() {
    KvRxDynamicLinker* found = KvRxDynamicLinker::cast(kvrxSysRegistry()->at(u"DynamicLinker"));
    if (!found) failWith("the runtime has no dynamic linker");
    return found;
}


}  // namespace lumrxhost
