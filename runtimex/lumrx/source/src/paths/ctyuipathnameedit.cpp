// CTyUiPathname: pieces of the name, full names, edits, comparison, display and
// unique names. An edit is tried on a candidate and judged by the volume before it
// is kept; it never touches the disk and leaves m_type 1.
#include "ctyuipathname.h"

#include "paths/ctyuipathnamehost.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cwctype>

namespace {

int LastSeparatorOrColon(const KvString& text) { return text.findOneOfRev(u"\\:"); }

KvString LastComponent(const KvString& text) { return text.mid(LastSeparatorOrColon(text) + 1); }

uint32_t TickCount() {
    using namespace std::chrono;
    return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace

// ---- pieces ----

void CTyUiPathname::GetBasename(KvString& out) const {
    if (m_type == kEmpty || !m_path) return;
    out = LastComponent(*m_path);
}

void CTyUiPathname::GetFilename(KvString& out) const {
    out.setEmpty();
    if (m_type != kFile && m_type != kNotFound && m_type != kDevice) return;
    GetBasename(out);
    int dot = out.findRev(u'.');
    if (dot >= 0) out = out.left(dot);
}

void CTyUiPathname::GetExtension(KvString& out) const {
    KvString base;
    GetBasename(base);
    out.setEmpty();
    int dot = base.findRev(u'.');
    if (dot >= 0) out = base.mid(dot + 1);
}

void CTyUiPathname::GetFirstExtInList(const char16_t* list, KvString& out) {
    out = list ? list : u"";
    int end = out.find(u';');
    if (end >= 0) out = out.left(end);
}

// A device has no folder on a volume: its parent stays empty, so that every path
// object keeps a volume.
void CTyUiPathname::GetParent(CTyUiPathname& parent) const {
    parent.Empty();
    if (!IsPath()) return;
    parent.AssignCopy(*this);
    parent.m_type = kDirectory;
    if (GetLastCharacter(*parent.m_path) == m_separator) parent.TrimSlash();
    int cut = parent.m_path->findRev(m_separator);
    if (cut < 0) cut = parent.m_path->findRev(u':');
    if (cut >= 0) {
        *parent.m_path = parent.m_path->left(cut + 1);
    } else if (!parent.m_base) {
        parent.Empty();
    } else {
        delete parent.m_path;
        parent.m_path = parent.m_base;
        parent.m_base = nullptr;
        const char16_t* text = parent.m_path->kwszPtr();
        if (text[0] == m_separator)
            parent.m_category = text[1] == m_separator ? kUNC : kRootRelative;
        else if (text[0] && text[1] == u':' && std::iswalpha(wint_t(text[0])))
            parent.m_category = kDrive;
    }
}

// ---- full names ----

// The text as stored, behind its base or, for a root-relative name without one, its
// volume: the full name before the platform folds it.
void CTyUiPathname::ComposeFullText(KvString& out) const {
    out.setEmpty();
    if (IsPath() && m_base) {
        out = *m_base;
        if (GetLastCharacter(out) != m_separator) out += m_separator;
    } else if (IsPath() && m_category == kRootRelative) {
        out = *m_volume->GetVolumeName();
    }
    out += *m_path;
}

bool CTyUiPathname::GetFullPath(KvString& out) const {
    out.setEmpty();
    if (m_type == kEmpty) return false;
    ComposeFullText(out);
    std::u16string full;
    if (ctyuipathhost::FullName(out, full) && full.size() >= 1 && full.size() <= 259)
        out = full.c_str();
    return true;
}

bool CTyUiPathname::GetFullPath(char16_t* buffer, unsigned int size) const {
    KvString full;
    if (!buffer || !GetFullPath(full) || unsigned(full.length()) + 1 > size) return false;
    std::copy(full.kwszPtr(), full.kwszPtr() + full.length() + 1, buffer);
    return true;
}

void CTyUiPathname::GetFullUNCPath(KvString& out) const {
    out.setEmpty();
    KvString full, network;
    GetFullPath(full);
    if (full.length() != 0 && ctyuipathhost::NetworkName(full, network)) out = network;
}

// ---- trimming ----

PathErr CTyUiPathname::Trim() {
    if (!IsPath() || !m_path) return PathNoPath;
    if (GetLastCharacter(*m_path) == m_separator) return PathOk;
    int p = m_path->findRev(m_separator);
    switch (m_category) {
    case kUNC:
        if (p < 0) return PathBadForm;
        if (p < m_volume->GetVolumeName()->length()) return PathAtRoot;
        break;
    case kRootRelative:
        if (p < 0) return PathBadForm;
        break;
    case kRelative:
        if (p < 0) return PathAtRoot;
        break;
    case kDrive:
        if (p >= 0) break;
        p = m_path->find(u':');
        if (p < 0) return PathBadForm;
        *m_path = m_path->left(p + 1);
        if (p == 1) *m_path += m_separator;  // a bare drive keeps its root
        m_type = kNotFound;
        return PathOk;
    default:
        return PathBadForm;
    }
    *m_path = m_path->left(p + 1);
    m_type = kNotFound;
    return PathOk;
}

PathErr CTyUiPathname::TrimSlash() {
    if (!IsPath() || !m_path) return PathNoPath;
    if (GetLastCharacter(*m_path) != m_separator) return PathOk;
    int length = m_path->length();
    switch (m_category) {
    case kUNC:
        if (length - 1 <= m_volume->GetVolumeName()->length()) return PathAtRoot;
        break;
    case kDrive:
        if (length == 3) return PathAtRoot;
        break;
    case kRootRelative:
        if (length == 1) return PathAtRoot;
        break;
    case kRelative:
        break;
    default:
        return PathBadForm;
    }
    *m_path = m_path->left(length - 1);
    m_type = kNotFound;
    return PathOk;
}

PathErr CTyUiPathname::TrimComponent() {
    if (!IsPath() || !m_path) return PathNoPath;
    int p = m_path->findRev(m_separator);
    switch (m_category) {
    case kUNC:
        if (p < 0) return PathBadForm;
        if (p < m_volume->GetVolumeName()->length()) return PathAtRoot;
        break;
    case kDrive:
        if (p < 0) p = m_path->find(u':') + 1;
        *m_path = m_path->left(p);
        if (p == 2) *m_path += m_separator;  // the drive keeps its root
        m_type = kNotFound;
        return PathOk;
    case kRootRelative:
        if (p < 0) return PathBadForm;
        if (p == 0) p = 1;
        break;
    case kRelative:
        if (p < 0) return PathAtRoot;
        break;
    default:
        return PathBadForm;
    }
    *m_path = m_path->left(p);
    m_type = kNotFound;
    return PathOk;
}

// ---- appending ----

bool CTyUiPathname::CandidateIsValid(const KvString& candidatePath) const {
    KvString candidate(candidatePath);
    m_volume->Canonicalize(candidate);
    return m_volume->IsValidPath(candidate, m_type == kWildcard);
}

// The full name may fold "..", so the text as stored is judged too: no edit keeps a
// text over the volume's limit or with an empty component, whatever its kind of volume.
bool CTyUiPathname::StoredTextIsValid() const {
    KvString stored;
    ComposeFullText(stored);
    return KvString(stored.kwszPtr() + 1).find(u"\\\\") < 0 &&
           stored.length() <= m_volume->GetMaxPath() && CandidateIsValid(stored);
}

bool CTyUiPathname::FullPathIsValid() const {
    KvString full;
    GetFullPath(full);
    return CandidateIsValid(full) && StoredTextIsValid();
}

PathErr CTyUiPathname::Append(const char16_t* text) {
    if (!IsPath() || !m_path) return PathNoPath;
    KvString full;
    GetFullPath(full);
    if (!text || !CandidateIsValid(full + text)) return PathBadText;
    KvString saved(*m_path);
    *m_path += text;
    if (!StoredTextIsValid()) {
        *m_path = saved;
        return PathBadText;
    }
    m_type = kNotFound;
    return PathOk;
}

PathErr CTyUiPathname::AppendSlash() {
    if (!IsPath() || !m_path) return PathNoPath;
    char16_t last = GetLastCharacter(*m_path);
    if (last == 0 || last == m_separator || last == u':') return PathOk;
    KvString full;
    GetFullPath(full);
    if (!CandidateIsValid(full + m_separator)) return PathBadText;
    *m_path += m_separator;
    if (!StoredTextIsValid()) {
        *m_path = m_path->left(m_path->length() - 1);
        return PathBadText;
    }
    if (m_type != kDirectory) m_type = kNotFound;
    return PathOk;
}

PathErr CTyUiPathname::AppendComponent(const char16_t* text) {
    if (!IsPath() || !m_path) return PathNoPath;
    KvString saved(*m_path);
    if (GetLastCharacter(*m_path) != m_separator) *m_path += m_separator;
    if (text) *m_path += text;
    m_volume->Canonicalize(*m_path);
    if (!FullPathIsValid()) {
        *m_path = saved;
        return PathBadText;
    }
    m_type = kNotFound;
    return PathOk;
}

// ---- extensions ----

bool CTyUiPathname::VerifyExtension(const char16_t* list) const {
    KvString ext;
    GetExtension(ext);
    bool noList = !list || !*list;
    if (noList || ext.length() == 0) return noList && ext.length() == 0;
    KvString rest(list);
    while (true) {
        KvString item;
        GetFirstExtInList(rest.kwszPtr(), item);
        if (item.compareNoCase(ext) == 0) return true;
        if (item.length() >= rest.length()) return false;
        rest = rest.mid(item.length() + 1);
    }
}

void CTyUiPathname::StripExtension(KvString& text) const {
    int dot = text.findRev(u'.');
    if (dot >= 0 && dot > text.findRev(m_separator)) text = text.left(dot);
}

// The common part of ReplaceExtensionAlways and AddExtensionAlways, after their
// argument checks: judge the extension, edit, judge the whole.
PathErr CTyUiPathname::ChangeExtension(const char16_t* ext, bool replace) {
    KvString component(ext);
    m_volume->Canonicalize(component);
    if (!m_volume->IsValidComponent(component, m_type == kWildcard)) return PathBadText;
    KvString saved(*m_path);
    if (replace) StripExtension(*m_path);
    if (*ext && (!replace || ext[0] != u'.')) *m_path += u'.';
    *m_path += ext;
    if (!FullPathIsValid()) {
        *m_path = saved;
        return PathBadText;
    }
    m_type = kNotFound;
    return PathOk;
}

PathErr CTyUiPathname::ReplaceExtensionAlways(const char16_t* ext) {
    if (!IsPath() || !m_path) return PathNoPath;
    if (!ext) return PathBadText;
    return ChangeExtension(ext, true);
}

PathErr CTyUiPathname::AddExtensionAlways(const char16_t* ext) {
    if (!ext) return PathBadText;
    if (!IsPath() || !m_path) return PathNoPath;
    return ChangeExtension(ext, false);
}

PathErr CTyUiPathname::ReplaceExtensionIfNoMatch(const char16_t* list) {
    if (VerifyExtension(list)) return PathOk;
    KvString first;
    GetFirstExtInList(list, first);
    return ReplaceExtensionAlways(first.kwszPtr());
}

PathErr CTyUiPathname::AddExtensionIfNoMatch(const char16_t* list) {
    if (VerifyExtension(list)) return PathOk;
    KvString first;
    GetFirstExtInList(list, first);
    return AddExtensionAlways(first.kwszPtr());
}

void CTyUiPathname::RemoveExtensionAlways() {
    if (!IsPath() || !m_path) return;
    KvString saved(*m_path);
    StripExtension(*m_path);
    if (FullPathIsValid()) m_type = kNotFound;
    else *m_path = saved;
}

void CTyUiPathname::RemoveExtensionIfMatch(const char16_t* list) {
    if (VerifyExtension(list)) RemoveExtensionAlways();
}

// ---- case and blanks ----

void CTyUiPathname::ChangeBaseCase(bool upper) {
    if (!m_path) return;
    int start = LastSeparatorOrColon(*m_path) + 1;
    KvString base = m_path->mid(start);
    if (upper) base.makeUpper();
    else base.makeLower();
    *m_path = m_path->left(start) + base;
}

void CTyUiPathname::BaseToLower() { ChangeBaseCase(false); }
void CTyUiPathname::BaseToUpper() { ChangeBaseCase(true); }

void CTyUiPathname::RemoveSpaces() {
    if (!m_path || m_path->length() == 0 || *m_path == u"." || *m_path == u"..") return;
    int start = LastSeparatorOrColon(*m_path) + 1;
    KvString base = m_path->mid(start);
    if (base.length() == 0) return;
    int dot = base.findRev(u'.');
    KvString stem = dot < 0 ? base : base.left(dot);
    KvString ext = dot < 0 ? KvString() : base.mid(dot);
    StripSpaces(stem);
    *m_path = m_path->left(start) + stem + ext;
}

// ---- comparison ----

bool CTyUiPathname::PathMatch(const char16_t* text) const {
    KvString full;
    if (!text || !m_volume || !GetFullPath(full)) return false;
    KvString copy(text);
    if (std::iswalpha(wint_t(text[0])) && text[1] == u':')
        copy.setAt(0, char16_t(std::towupper(wint_t(text[0]))));
    bool fullEnds = GetLastCharacter(full) == m_separator;
    bool copyEnds = GetLastCharacter(copy) == m_separator;
    if (fullEnds && !copyEnds) copy += m_separator;
    if (copyEnds && !fullEnds) full += m_separator;
    return m_volume->NamesEqual(full, &copy);
}

bool CTyUiPathname::PathMatch(const CTyUiPathname* other) const {
    if (!other || other->m_volume != m_volume) return false;
    if (other == this) return true;
    KvString full;
    return other->GetFullPath(full) && PathMatch(full.kwszPtr());
}

// ---- display and unique names ----

void CTyUiPathname::GetDisplayName(KvString& out, int maxChars) const {
    out.setEmpty();
    if (!IsPath() || !m_path) return;
    int length = m_path->length();
    int width = std::max(maxChars == -1 ? length : maxChars, 6);
    if (width >= length) {
        out = *m_path;
        return;
    }
    KvString base = LastComponent(*m_path);
    if (width < base.length()) {  // not even the base name fits
        KvString ext;
        GetExtension(ext);
        if (ext.length() != 0 && width < ext.length() + 3) ext.setEmpty();
        out = base.left(width - ext.length() - 2) + u"~";
        if (ext.length() != 0) out += ext.precat(u".");
        return;
    }
    int root = 0;
    if (m_category == kDrive || m_category == kUNC) {
        root = m_volume->GetVolumeName()->length();
        if (width < base.length() + 5 + root) {
            out = base;
            return;
        }
        out = m_path->left(root) + u"\\...";
    } else {
        if (width < base.length() + 4) {
            out = base;
            return;
        }
        out = u"...";
    }
    // Whole trailing components, as many as fit behind the root and the dots.
    KvString tail = m_path->mid(root);
    while (tail.length() + root + 4 > width) {
        int next = tail.find(m_separator, 1);
        if (next < 0) {
            tail = base;
            break;
        }
        tail = tail.mid(next);
    }
    out += tail;
}

bool CTyUiPathname::GetUniqueName(CTyUiPathname& result, bool alwaysNew) const {
    if (IsEmpty()) return false;
    result.AssignCopy(*this);
    if (!alwaysNew && !result.Exists()) return true;
    if (!IsPath()) {  // a device has no folder to hold a new name
        result.Empty();
        return false;
    }
    KvString name, ext, directory;
    result.GetFilename(name);
    if (name.length() == 0) name = u"lumTmp";
    result.GetExtension(ext);
    result.Trim();
    result.GetFullPath(directory);
    int room = std::min(m_volume->GetMaxComponent(), m_volume->GetMaxPath() - directory.length()) -
               ext.length() - 6;
    KvString candidate = name.left(std::max(room, 0)) + u"00000";
    if (ext.length() != 0) candidate += ext.precat(u".");
    if (room < 1 || !m_volume->IsValidComponent(candidate, false) ||
        result.Append(candidate.kwszPtr()) != PathOk) {
        result.Empty();
        return false;
    }
    // Five random digits over the zeros; nothing reserves the name found.
    int digits = result.m_path->length() - (ext.length() == 0 ? 0 : ext.length() + 1) - 5;
    for (int attempt = 0; attempt < 200; ++attempt) {
        uint32_t number = (TickCount() * uint32_t(std::rand())) % 100000;
        for (int i = 4; i >= 0; --i, number /= 10)
            result.m_path->setAt(digits + i, char16_t(u'0' + number % 10));
        if (!result.Exists()) return true;
    }
    result.Empty();
    return true;
}
