// The volume descriptors, their five kinds and the process-wide list that owns them.
#include "ctyuipathname.h"

#include "lumpal.h"
#include "lumplatform/codepage.h"
#include "lumplatform/drives.h"

#include <cwctype>
#include <string>

namespace {

std::u16string Text(const KvString& s) { return std::u16string(s.kwszPtr()); }

// The classification of a file-system name, upper-cased, by its maximum component
// length where FAT or an unlisted name leaves it open.
FS_TYPE Classify(const KvString& fileSystemName, unsigned maxComponent) {
    KvString name(fileSystemName);
    name.makeUpper();
    FS_TYPE fat = maxComponent == 12 ? FS_TYPE_FAT : FS_TYPE_VFAT;
    if (name == u"NTFS") return FS_TYPE_NTFS;
    if (name == u"FAT") return fat;
    if (name == u"HPFS") return FS_TYPE_HPFS;
    if (name == u"CDFS") return FS_TYPE_CDFS;
    if (name.find(u"NFS") >= 0) return FS_TYPE_NFS;
    return fat;
}

// The volume descriptor list: owns every descriptor ever made, deleted at unload.
class VolumeDescriptorList {
public:
    VolumeDescriptorList() = default;
    VolumeDescriptorList(const VolumeDescriptorList&) = delete;
    VolumeDescriptorList& operator=(const VolumeDescriptorList&) = delete;
    ~VolumeDescriptorList() {
        for (LUM_POSITION pos = m_list.GetHeadPosition(); pos;)
            delete static_cast<CTyUiVolumeDescriptor*>(m_list.GetNext(pos));
    }
    // The descriptor whose name is exactly the `length` units at `name`, case included.
    const CTyUiVolumeDescriptor* Find(const char16_t* name, size_t length) const {
        for (LUM_POSITION pos = m_list.GetHeadPosition(); pos;) {
            auto* d = static_cast<const CTyUiVolumeDescriptor*>(m_list.GetNext(pos));
            const char16_t* known = d->GetVolumeName()->kwszPtr();
            if (std::char_traits<char16_t>::compare(known, name, length) == 0 && !known[length]) return d;
        }
        return nullptr;
    }
    void Add(CTyUiVolumeDescriptor* d) { m_list.AddTail(d); }

private:
    LumPtrList m_list;
};

VolumeDescriptorList gVolumeDescriptors;

}  // namespace

// ---- CTyUiVolumeDescriptor ----

CTyUiVolumeDescriptor::CTyUiVolumeDescriptor(FS_TYPE fsType, const KvString& name, int maxPath)
    : m_fsType(fsType), m_volumeName(new KvString(name)), m_maxPath(maxPath) {
    unsigned codePage = lumplatform::processAnsiCodePage();
    m_multibyteLocale = codePage < 1200 || codePage > 1300;

    std::u16string root = Text(RootWithSeparator());
    switch (lumplatform::driveType(root)) {
    case lumplatform::DriveType::noRootDirectory:
        if (root.compare(0, 2, u"\\\\") == 0) m_flags |= kRemote;
        break;
    case lumplatform::DriveType::removable: m_flags |= kRemovable; break;
    case lumplatform::DriveType::fixed: m_flags |= kFixed; break;
    case lumplatform::DriveType::remote: {
        m_flags |= kRemote;
        std::u16string remote;
        if (lumplatform::networkNameOf(Text(name), remote) == lumplatform::DriveStatus::ok)
            m_remoteName = new KvString(remote.c_str());
        break;
    }
    case lumplatform::DriveType::cdRom: m_flags |= kCdRom | kReadOnly; break;
    case lumplatform::DriveType::ramDisk: m_flags |= kRamDisk; break;
    default: break;
    }

    lumplatform::VolumeInformation info;
    if (lumplatform::volumeInformation(root, info) == lumplatform::DriveStatus::ok) {
        m_maxComponent = int(info.maxComponentLength);
        m_serialNumber = info.serialNumber;
        m_fsFlags = info.fileSystemFlags;
        m_label = new KvString(info.label.c_str());
    }
}

CTyUiVolumeDescriptor::~CTyUiVolumeDescriptor() {
    delete m_volumeName;
    delete m_label;
    delete m_remoteName;
}

bool CTyUiVolumeDescriptor::IsReadOnly() const { return m_flags & kReadOnly; }
bool CTyUiVolumeDescriptor::IsCaseSensitive() const { return m_flags & kCaseSensitive; }
bool CTyUiVolumeDescriptor::PreservesCase() const { return m_fsFlags & 0x2; }
bool CTyUiVolumeDescriptor::SearchesCaseSensitive() const { return m_fsFlags & 0x1; }
void CTyUiVolumeDescriptor::Canonicalize(KvString&) const {}

bool CTyUiVolumeDescriptor::NamesEqual(const KvString& a, const KvString* b) const {
    if (!b) return false;
    return IsCaseSensitive() ? b->compare(a) == 0 : b->compareNoCase(a) == 0;
}

bool CTyUiVolumeDescriptor::NamesEqual(const char16_t* a, const KvString* b) const {
    if (!a || !b) return false;
    return NamesEqual(KvString(a), b);
}

KvString CTyUiVolumeDescriptor::RootWithSeparator() const {
    KvString root(*m_volumeName);
    if (root.length() == 0 || root.kwszPtr()[root.length() - 1] != m_separator) root += m_separator;
    return root;
}

uint64_t CTyUiVolumeDescriptor::FreeBytes() const {
    std::u16string root = Text(RootWithSeparator());
    lumplatform::DiskSpace space;
    if (lumplatform::diskSpace(root, space) == lumplatform::DriveStatus::ok)
        return space.freeBytesToCaller;
    lumplatform::ClusterSpace clusters;
    if (lumplatform::clusterSpace(root, clusters) == lumplatform::DriveStatus::ok)
        return uint32_t(clusters.freeClusters * clusters.sectorsPerCluster *
                        clusters.bytesPerSector);
    return 0x7FFFFFFF;
}

uint32_t CTyUiVolumeDescriptor::GetFreeKilobytes() const { return uint32_t(FreeBytes() >> 10); }

bool CTyUiVolumeDescriptor::HasFreeBytes(unsigned int size) const {
    uint64_t bytes = FreeBytes();
    return bytes > 0xFFFFFFFFu || bytes > size;
}

// The kind is told again by the classification of the parser, so that a Linux file
// system that counts as FAT with long names stays that kind.
bool CTyUiVolumeDescriptor::IsSameVolume() const {
    if (m_flags & (kFixed | kRamDisk)) return true;
    if (m_volumeName->length() == 0) return false;
    lumplatform::VolumeInformation info;
    if (lumplatform::volumeInformation(Text(RootWithSeparator()), info) !=
        lumplatform::DriveStatus::ok)
        return false;
    KvString label(info.label.c_str());
    bool sameLabel = m_label ? m_label->compareNoCase(label) == 0 : label.length() == 0;
    if (int(info.maxComponentLength) != m_maxComponent || info.serialNumber != m_serialNumber ||
        !sameLabel)
        return false;
    FS_TYPE told = Classify(KvString(info.fileSystemName.c_str()), info.maxComponentLength);
    return m_fsType != FS_TYPE_NOFS && told == m_fsType;
}

bool CTyUiVolumeDescriptor::HasColonOnlyBehindDrive(const KvString& path) {
    int colon = path.findRev(u':');
    return colon < 0 || (colon == 1 && std::iswalpha(wint_t(path.kwszPtr()[0])));
}

// One pass over the text: the sets are ASCII, so they fit a 128-bit mask, and the
// control characters are its bits 1 to 31.
bool CTyUiVolumeDescriptor::HasForbidden(const KvString& text, const char16_t* forbidden) {
    uint64_t mask[2] = {0xFFFFFFFEu, 0};
    for (const char16_t* f = forbidden; *f; ++f)
        if (*f < 128) mask[*f >> 6] |= uint64_t(1) << (*f & 63);
    for (const char16_t* p = text.kwszPtr(); *p; ++p)
        if (*p < 128 && (mask[*p >> 6] >> (*p & 63) & 1)) return true;
    return false;
}

bool CTyUiVolumeDescriptor::IsValidPathWith(const KvString& path,
                                            const char16_t* forbidden) const {
    if (path.length() > m_maxPath || !HasColonOnlyBehindDrive(path)) return false;
    // The first character is left out so that a UNC name passes.
    const char16_t* text = path.kwszPtr();
    for (int i = 1; text[i] && text[i + 1]; ++i)
        if (text[i] == m_doubleSeparator[0] && text[i + 1] == m_doubleSeparator[1]) return false;
    return !HasForbidden(path, forbidden);
}

bool CTyUiVolumeDescriptor::IsValidComponentWith(const KvString& name,
                                                 const char16_t* forbidden) const {
    return name.length() <= m_maxComponent && !HasForbidden(name, forbidden);
}

// ---- the kinds ----

CTyUiNTFSVolumeDescriptor::CTyUiNTFSVolumeDescriptor(const KvString& name)
    : CTyUiVolumeDescriptor(FS_TYPE_NTFS, name, 259) {}
CTyUiNTFSVolumeDescriptor::~CTyUiNTFSVolumeDescriptor() = default;
bool CTyUiNTFSVolumeDescriptor::IsValidPath(const KvString& path, bool wildcards) const {
    return IsValidPathWith(path, wildcards ? u"<>|/\"" : u"*<>?|/\"");
}
bool CTyUiNTFSVolumeDescriptor::IsValidComponent(const KvString& name, bool wildcards) const {
    return IsValidComponentWith(name, wildcards ? u":<>/\\|\"" : u"*:<>?/\\|\"");
}

CTyUiVFATVolumeDescriptor::CTyUiVFATVolumeDescriptor(const KvString& name)
    : CTyUiVolumeDescriptor(FS_TYPE_VFAT, name, 259) {}
CTyUiVFATVolumeDescriptor::~CTyUiVFATVolumeDescriptor() = default;
bool CTyUiVFATVolumeDescriptor::IsValidPath(const KvString& path, bool wildcards) const {
    return IsValidPathWith(path, wildcards ? u"<>|/\"" : u"*<>?|/\"");
}
bool CTyUiVFATVolumeDescriptor::IsValidComponent(const KvString& name, bool wildcards) const {
    return IsValidComponentWith(name, wildcards ? u":<>/\\|\"" : u"*:<>/?\\|\"");
}

CTyUiCDFSVolumeDescriptor::CTyUiCDFSVolumeDescriptor(const KvString& name)
    : CTyUiVolumeDescriptor(FS_TYPE_CDFS, name, 259) {}
CTyUiCDFSVolumeDescriptor::~CTyUiCDFSVolumeDescriptor() = default;
bool CTyUiCDFSVolumeDescriptor::IsValidPath(const KvString& path, bool wildcards) const {
    return IsValidPathWith(path, wildcards ? u"></\"" : u"*?<>/\"");
}
bool CTyUiCDFSVolumeDescriptor::IsValidComponent(const KvString& name, bool wildcards) const {
    return IsValidComponentWith(name, wildcards ? u":<>/\\\"" : u"*:<>?/\\\"");
}

CTyUiNOFSVolumeDescriptor::CTyUiNOFSVolumeDescriptor(const KvString& name)
    : CTyUiVolumeDescriptor(FS_TYPE_NOFS, name, 259) {}
CTyUiNOFSVolumeDescriptor::~CTyUiNOFSVolumeDescriptor() = default;
bool CTyUiNOFSVolumeDescriptor::IsValidPath(const KvString& path, bool wildcards) const {
    return IsValidPathWith(path, wildcards ? u"></\"" : u"*?<>/\"");
}
bool CTyUiNOFSVolumeDescriptor::IsValidComponent(const KvString&, bool) const { return false; }

CTyUiFATVolumeDescriptor::CTyUiFATVolumeDescriptor(const KvString& name)
    : CTyUiVolumeDescriptor(FS_TYPE_FAT, name, 81) {}
CTyUiFATVolumeDescriptor::~CTyUiFATVolumeDescriptor() = default;

// Components are taken off the end; an empty one (a trailing or doubled separator)
// ends the check with success, leaving what stands in front of it unchecked.
bool CTyUiFATVolumeDescriptor::IsValidPath(const KvString& path, bool wildcards) const {
    if (path.length() > GetMaxPath() || !HasColonOnlyBehindDrive(path)) return false;
    KvString work(path);
    while (work.length() != 0) {
        int cut = work.findRev(u'\\');
        if (cut < 0) cut = work.findRev(u':');
        KvString component = work.mid(cut + 1);
        if (component.length() == 0) return true;
        if (!IsValidComponent(component, wildcards)) return false;
        work = cut < 0 ? KvString() : work.left(cut);
    }
    return true;
}

bool CTyUiFATVolumeDescriptor::IsValidComponent(const KvString& name, bool wildcards) const {
    if (name.length() == 0 || name == u"." || name == u"..") return true;
    if (HasForbidden(name, wildcards ? u":<>/\\|;=[]\"+, " : u"*<>/:?\\|;=[]\"+, "))
        return false;
    int length = name.length();
    int dot = name.find(u'.');
    if (length > 12 || (length > 8 && dot < 0)) return false;
    if (dot < 0) return true;
    return name.findRev(u'.') == dot && dot <= 8 && length - dot - 1 <= 3;
}

// ---- the parser's side of the list ----

FS_TYPE CTyUiPathname::ClassifyFileSystem(const KvString& fileSystemName, unsigned maxComponent) {
    return Classify(fileSystemName, maxComponent);
}

FS_TYPE CTyUiPathname::GetFileSystem(KvString& root) {
    if (root.length() == 0) return FS_TYPE_EMPTY;
    if (GetLastCharacter(root) != u'\\') root += u'\\';
    lumplatform::VolumeInformation info;
    if (lumplatform::volumeInformation(Text(root), info) != lumplatform::DriveStatus::ok)
        return FS_TYPE_NOFS;
    return Classify(KvString(info.fileSystemName.c_str()), info.maxComponentLength);
}

const CTyUiVolumeDescriptor* CTyUiPathname::FindVolumeDescriptor(const KvString& name) {
    return FindVolumeDescriptor(name.kwszPtr(), std::char_traits<char16_t>::length(name.kwszPtr()));
}

const CTyUiVolumeDescriptor* CTyUiPathname::FindVolumeDescriptor(const char16_t* name, size_t length) {
    if (length == 0) return nullptr;
    if (const CTyUiVolumeDescriptor* known = gVolumeDescriptors.Find(name, length)) return known;
    return NewVolDescriptor(KvString(std::u16string(name, length).c_str()));
}

const CTyUiVolumeDescriptor* CTyUiPathname::NewVolDescriptor(const KvString& name) {
    KvString root(name);
    // A drive or share that the drive table doesn't map is no volume at all; one that
    // is mapped but can't be asked is the NOFS kind.
    std::u16string posix;
    if (lumplatform::posixPathOf(Text(name), posix) != lumplatform::DriveStatus::ok) return nullptr;
    CTyUiVolumeDescriptor* made = nullptr;
    switch (GetFileSystem(root)) {
    case FS_TYPE_NOFS: made = new CTyUiNOFSVolumeDescriptor(name); break;
    case FS_TYPE_NTFS: made = new CTyUiNTFSVolumeDescriptor(name); break;
    case FS_TYPE_FAT: made = new CTyUiFATVolumeDescriptor(name); break;
    case FS_TYPE_VFAT: made = new CTyUiVFATVolumeDescriptor(name); break;
    case FS_TYPE_CDFS: made = new CTyUiCDFSVolumeDescriptor(name); break;
    default: return nullptr;  // HPFS and NFS volumes have no rules here
    }
    gVolumeDescriptors.Add(made);
    return made;
}
