// LumUInfo: the product's configuration, its names and its resource libraries.
//
// The stand-in reads its settings from the environment:
//   LUMRX_LANGUAGE          language short name, such as "en_US"; else the language of
//                           the process locale (LC_ALL, LC_MESSAGES, LANG), else "en_US"
//   LUMRX_PRODUCT_PREFIX    the product prefix; unset or empty for none
//   LUMRX_OEM_PRODUCT_NAME  the product name, for a host that names none
#pragma once

class LumoraLanguage {
public:
    // The language's short name, such as "en_US"; never null.
    const char16_t* shortName() const;

private:
    friend class LumoraConfig;
    LumoraLanguage() = default;
    char16_t m_name[64] = {};
};

class LumoraConfig {
public:
    const LumoraLanguage& language() const;

private:
    friend LumoraConfig* kvoreConfig();
    LumoraConfig();
    LumoraLanguage m_language;
};

// The configuration of the process, or null if there is none.
LumoraConfig* kvoreConfig();

// Copies the product prefix into `out` (1024 units) and returns its length, 0 for none.
int GetKvoreProductPreName(char16_t* out);

// The product's name in user messages: the name the host gave SetOemProductName, else
// LUMRX_OEM_PRODUCT_NAME if it is set and not empty, else "Lumora". Never null.
const char16_t* GetOemProductName();
// The host names its product; null or empty takes the name back. The text is copied.
void SetOemProductName(const char16_t* name);

// Opens a resource library by name ("...dll" is taken as "...so"); null if it can't.
void* LoadResourceDll(const char16_t* name);
