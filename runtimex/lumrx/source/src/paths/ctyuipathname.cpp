// CTyUiPathname: state, parsing and the probe. Here and in the other path sources
// emptiness is asked by length, since a KvString trimmed to nothing keeps its form.
#include "ctyuipathname.h"

#include "lumplatform/files.h"
#include "paths/ctyuipathnamehost.h"

#include <cwctype>
#include <string>

namespace {

constexpr int kLongestDeviceText = 259;

const char16_t* const kDevices[] = {u"COM1", u"COM2", u"COM3", u"COM4",
                                    u"LPT1", u"LPT2", u"LPT3", u"AUX"};

// IsDeviceName on a text of `length` units.
bool IsDeviceText(const char16_t* chars, int length, char16_t separator) {
    if (length < 3) return false;
    if (chars[length - 1] == u':') return true;
    // The last component, behind the last separator or else the last colon, up to its
    // last dot, compared without case.
    int start = length, cut = -1;
    while (start > 0 && chars[start - 1] != separator) --start;
    if (start == 0)
        for (int i = length - 1; i >= 0 && cut < 0; --i)
            if (chars[i] == u':') cut = i;
    if (start == 0) start = cut + 1;
    int end = length;
    while (end > start && chars[end - 1] != u'.') --end;
    end = end > start ? end - 1 : length;
    if (end - start != 3 && end - start != 4) return false;  // the length of every device name
    for (const char16_t* device : kDevices) {
        int i = 0;
        while (start + i < end && device[i] && std::towupper(wint_t(chars[start + i])) == wint_t(device[i])) ++i;
        if (start + i == end && !device[i]) return true;
    }
    return false;
}

}  // namespace

CTyUiPathname::CTyUiPathname(const CTyUiPathname& other) { AssignCopy(other); }

CTyUiPathname& CTyUiPathname::operator=(const CTyUiPathname& other) {
    AssignCopy(other);
    return *this;
}

CTyUiPathname& CTyUiPathname::operator=(const CTyUiPathname* other) {
    if (other) AssignCopy(*other);
    return *this;
}

CTyUiPathname::~CTyUiPathname() { Empty(); }

void CTyUiPathname::AssignCopy(const CTyUiPathname& other) {
    if (&other == this) return;
    Empty();
    m_type = other.m_type;
    m_volume = other.m_volume;
    m_path = other.m_path ? new KvString(*other.m_path) : nullptr;
    m_base = other.m_base ? new KvString(*other.m_base) : nullptr;
    m_category = other.m_category;
    m_separator = other.m_separator;
    m_hadPrefix = other.m_hadPrefix;
}

void CTyUiPathname::Empty() {
    delete m_path;
    delete m_base;
    m_path = nullptr;
    m_base = nullptr;
    m_type = kEmpty;
    m_volume = nullptr;
}

char16_t CTyUiPathname::GetLastCharacter(const KvString& text) {
    return text.length() == 0 ? 0 : text.kwszPtr()[text.length() - 1];
}

void CTyUiPathname::Unquote(KvString& text) {
    KvString copy(text);
    copy.trim();
    int length = copy.length();
    if (length >= 2 && copy.kwszPtr()[0] == u'"' && copy.kwszPtr()[length - 1] == u'"')
        text = copy.mid(1, length - 2);
}

void CTyUiPathname::StripSpaces(KvString& text) {
    if (text.length() == 0) return;
    text.trimLeft();
    text.trimRight();
}

bool CTyUiPathname::IsDeviceName(const KvString& text) const {
    const char16_t* chars = text.kwszPtr();
    return IsDeviceText(chars, int(std::char_traits<char16_t>::length(chars)), m_separator);
}

PathErr CTyUiPathname::FailParse() {
    Empty();
    return PathBadText;
}

PathErr CTyUiPathname::Parse(const char16_t* text, bool wildcardsAllowed) {
    if (!text) return PathBadText;
    KvString directory;
    CTyUiPathname base;
    if (!ctyuipathhost::CurrentDirectory(directory) || directory.length() >= 260 ||
        base.ParseRelative(directory.kwszPtr(), nullptr, false) != PathOk) {
        Empty();
        return PathBadForm;
    }
    base.AppendSlash();
    return ParseRelative(text, &base, wildcardsAllowed);
}

// The text without surrounding quotes and blanks, as Unquote and then StripSpaces leave it.
static void UnquoteAndStrip(std::u16string& work) {
    auto strip = [](std::u16string& text) {
        size_t first = text.find_first_not_of(u' ');
        if (first == std::u16string::npos) return text.clear();
        text.erase(text.find_last_not_of(u' ') + 1);
        text.erase(0, first);
    };
    strip(work);
    if (work.size() >= 2 && work.front() == u'"' && work.back() == u'"') {
        work = work.substr(1, work.size() - 2);
        strip(work);
    }
}

PathErr CTyUiPathname::ParseRelative(const char16_t* text, const CTyUiPathname* base,
                                     bool wildcardsAllowed) {
    if (!text) return FailParse();
    std::u16string work(text);
    Empty();
    UnquoteAndStrip(work);
    size_t colon = work.find(u':');
    if (work.empty() || (colon != std::u16string::npos && work.find(u':', colon + 1) != std::u16string::npos))
        return FailParse();
    if (IsDeviceText(work.c_str(), int(work.size()), m_separator)) {
        // A device has no volume to set its limit: it is held to that of a path.
        if (work.size() > size_t(kLongestDeviceText)) return FailParse();
        m_path = new KvString(work.c_str());
        m_path->makeUpper();
        m_type = kDevice;
        return PathOk;
    }
    for (char16_t& c : work)
        if (c == u'/') c = m_separator;
    char16_t c0 = work[0], c1 = work.size() > 1 ? work[1] : 0;
    if (c0 == m_separator) {
        m_category = c1 == m_separator ? kUNC : kRootRelative;
    } else if (c1 == u':' && std::iswalpha(wint_t(c0))) {
        m_category = kDrive;
        work[0] = char16_t(std::towupper(wint_t(c0)));
    } else {
        m_category = kRelative;
    }
    if (m_category != kDrive && colon != std::u16string::npos) return FailParse();
    if (!base && (m_category == kRootRelative || m_category == kRelative)) return FailParse();
    if (base && m_category == kRelative && !base->IsPath()) return FailParse();
    if (m_category == kDrive || m_category == kUNC) {
        if (!FindVolume(work)) return FailParse();
    } else {
        m_volume = base->m_volume;
    }
    if (!m_volume) return FailParse();
    if (m_category == kUNC && int(work.size()) == m_volume->GetVolumeName()->length())
        work += m_separator;
    m_path = new KvString(work.c_str());
    m_volume->Canonicalize(*m_path);

    if (m_category == kRootRelative) {
        m_base = new KvString(*base->m_volume->GetVolumeName());
    } else if (m_category == kRelative) {
        m_base = new KvString;
        base->GetFullPath(*m_base);
        if (m_base->length() == 0) {
            delete m_base;
            m_base = nullptr;
        }
    }
    bool valid;
    if (m_base) {
        KvString full(*m_base);
        if (GetLastCharacter(full) != m_separator && m_path->kwszPtr()[0] != m_separator)
            full += m_separator;
        full += *m_path;
        valid = m_volume->IsValidPath(full, wildcardsAllowed);
    } else {
        valid = m_volume->IsValidPath(*m_path, wildcardsAllowed);
    }
    if (!valid) return FailParse();

    GetAttributes(m_path, m_base, &m_type);
    if (m_path->find(m_separator) >= 0 || std::char_traits<char16_t>::find(text, std::char_traits<char16_t>::length(text), u':'))
        m_hadPrefix = true;
    return PathOk;
}

// Finds the volume of a drive or UNC name; false for a UNC name without a share.
bool CTyUiPathname::FindVolume(const std::u16string& work) {
    if (m_category == kDrive) {
        m_volume = FindVolumeDescriptor(work.c_str(), 2);
        return true;
    }
    size_t first = work.find(m_separator, 2);
    if (first == std::u16string::npos || first == work.size() - 1) return false;
    size_t second = work.find(m_separator, first + 1);
    m_volume = FindVolumeDescriptor(work.c_str(), second == std::u16string::npos ? work.size() : second);
    return true;
}

bool CTyUiPathname::ParseAndOSFind(const char16_t* name) {
    Empty();
    KvString found;
    return name && ctyuipathhost::SearchFile(KvString(name), found) &&
           ParseRelative(found.kwszPtr(), nullptr, false) == PathOk;
}

void CTyUiPathname::GetAttributes(const KvString* path, const KvString* base,
                                  path_type* type) const {
    *type = kNotFound;
    // A wildcard in the last component, behind the last separator or colon.
    for (const char16_t* c = path->kwszPtr() + std::char_traits<char16_t>::length(path->kwszPtr());
         c != path->kwszPtr() && c[-1] != u'\\' && c[-1] != u':'; --c)
        if (c[-1] == u'*' || c[-1] == u'?') {
            *type = kWildcard;
            return;
        }
    // As if the current directory were `base`: it must be one that can be entered.
    unsigned attributes = ctyuipathhost::AttributesIn(base, *path);
    if (attributes != lumplatform::kNoAttributes)
        *type = (attributes & lumplatform::kAttributeDirectory) ? kDirectory : kFile;
}
