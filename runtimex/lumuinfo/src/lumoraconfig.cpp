#include "lumuinfo.h"

#include "lumosbase.h"
#include "lumplatform/library.h"
#include "lumplatform/text.h"

#include <cstdlib>
#include <string>

namespace {

// The value of an environment variable as 16-bit text; empty when unset.
std::u16string environmentText(const char* name) {
    const char* v = std::getenv(name);
    return v ? lumplatform::fromUtf8(v) : std::u16string();
}

// "ja_JP.UTF-8@x" gives "ja_JP".
std::u16string languageOfLocale(const std::u16string& locale) {
    size_t cut = locale.find_first_of(u".@");
    return locale.substr(0, cut);
}

std::u16string processLanguage() {
    std::u16string name = environmentText("LUMRX_LANGUAGE");
    for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (!name.empty()) break;
        name = languageOfLocale(environmentText(var));
    }
    if (name.empty() || name == u"C" || name == u"POSIX") name = u"en_US";
    return name;
}

}  // namespace

const char16_t* LumoraLanguage::shortName() const { return m_name; }

LumoraConfig::LumoraConfig() {
    std::u16string name = processLanguage().substr(0, 63);
    std::memcpy(m_language.m_name, name.c_str(), (name.size() + 1) * sizeof(char16_t));
}

const LumoraLanguage& LumoraConfig::language() const { return m_language; }

LumoraConfig* kvoreConfig() {
    static LumoraConfig config;
    return &config;
}

int GetKvoreProductPreName(char16_t* out) {
    std::u16string prefix = environmentText("LUMRX_PRODUCT_PREFIX").substr(0, 1023);
    if (out) std::memcpy(out, prefix.c_str(), (prefix.size() + 1) * sizeof(char16_t));
    return int(prefix.size());
}

namespace {

// The name the host gave; empty when it gave none.
std::u16string& hostProductName() {
    static std::u16string name;
    return name;
}

}  // namespace

const char16_t* GetOemProductName() {
    if (!hostProductName().empty()) return hostProductName().c_str();
    // Read on every call, as the environment may change; the text is replaced only when
    // it does, so a pointer given out before stays good meanwhile.
    static std::u16string configured;
    std::u16string now = environmentText("LUMRX_OEM_PRODUCT_NAME");
    if (now != configured) configured = now;
    return configured.empty() ? u"Lumora" : configured.c_str();
}

void SetOemProductName(const char16_t* name) {
    hostProductName() = name ? name : u"";
}

void* LoadResourceDll(const char16_t* name) {
    if (!name || !*name) return nullptr;
    // Resource libraries lie next to this one.
    return lumplatform::openLibraryBeside(reinterpret_cast<const void*>(&LoadResourceDll), name);
}
