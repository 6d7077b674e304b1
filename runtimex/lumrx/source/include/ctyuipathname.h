// The platform's path-name class and the per-volume rules that judge its names.
//
// CTyUiPathname holds a file name in Windows syntax (drive letters, UNC names, the
// backslash), split into what belongs to its volume and what doesn't, judged by the
// rules of the file system that would hold it. Ownership: a CTyUiPathname owns its
// two strings m_path and m_base; it doesn't own its descriptor. Descriptors live in
// the process-wide volume descriptor list, which owns them and deletes them when the
// library is unloaded; a descriptor owns m_volumeName, m_label and m_remoteName.
//
// States: an empty object has no text; a device (type 5) has its upper-cased text and
// no volume; a path object (types 1 to 4) always has its text and its volume, and no
// parse, edit, copy, parent or unique name makes one without them. No stored text is
// longer than the volume's path limit (259 for a device), and an edit never leaves an
// empty component in it.
//
// A relative name is probed, renamed and removed as if the current directory were its
// base, without changing the current directory. No lock anywhere: the descriptor list
// grows on the first parse that meets a volume.
#pragma once

#include "kvstring.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace Tarnwick { namespace Lumora { namespace PAL { namespace FileIO {
class File;
}}}}  // namespace Tarnwick::Lumora::PAL::FileIO

// The kind of file system of a volume.
enum FS_TYPE {
    FS_TYPE_NOFS = 0,   // the volume can't be asked
    FS_TYPE_EMPTY = 1,  // empty volume name
    FS_TYPE_NTFS = 2,
    FS_TYPE_FAT = 3,   // FAT with short names
    FS_TYPE_VFAT = 4,  // FAT with long names
    FS_TYPE_HPFS = 5,
    FS_TYPE_CDFS = 6,
    FS_TYPE_NFS = 8,
};

enum PathErr {
    PathOk = 0,
    PathBadText = 1,  // null, empty, badly formed, invalid on its volume, no descriptor
    PathNoPath = 2,   // the object holds no path
    PathAtRoot = 3,   // nothing left to take away
    PathBadForm = 4,  // the form doesn't allow it, or no current directory
};

// What one volume is and which names it accepts. Immutable once built.
class CTyUiVolumeDescriptor {
public:
    // Bits of m_flags.
    static constexpr unsigned kFixed = 0x01;
    static constexpr unsigned kRemovable = 0x02;
    static constexpr unsigned kCdRom = 0x04;
    static constexpr unsigned kRemote = 0x08;
    static constexpr unsigned kRamDisk = 0x10;
    static constexpr unsigned kReadOnly = 0x20;
    static constexpr unsigned kCaseSensitive = 0x40;  // nothing sets it

    CTyUiVolumeDescriptor(const CTyUiVolumeDescriptor&) = delete;
    CTyUiVolumeDescriptor& operator=(const CTyUiVolumeDescriptor&) = delete;
    virtual ~CTyUiVolumeDescriptor();

    virtual bool IsReadOnly() const;
    virtual bool IsValidPath(const KvString& path, bool wildcardsAllowed) const = 0;
    virtual bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const = 0;
    virtual bool IsCaseSensitive() const;
    virtual bool PreservesCase() const;
    virtual bool SearchesCaseSensitive() const;
    // Does nothing in every kind; callers pass each text through it before a check.
    virtual void Canonicalize(KvString& text) const;

    // False if both are null; else `b` against `a`, ignoring case unless IsCaseSensitive.
    bool NamesEqual(const KvString& a, const KvString* b) const;
    bool NamesEqual(const char16_t* a, const KvString* b) const;
    const KvString* GetVolumeName() const { return m_volumeName; }
    FS_TYPE GetFsType() const { return m_fsType; }
    unsigned GetFlags() const { return m_flags; }
    int GetMaxComponent() const { return m_maxComponent; }
    int GetMaxPath() const { return m_maxPath; }
    bool IsMultibyteLocale() const { return m_multibyteLocale; }
    uint32_t GetSerialNumber() const { return m_serialNumber; }
    const KvString* GetLabel() const { return m_label; }
    const KvString* GetRemoteName() const { return m_remoteName; }
    uint32_t GetFreeKilobytes() const;
    bool HasFreeBytes(unsigned int size) const;
    // Whether the medium is still the one described.
    bool IsSameVolume() const;

protected:
    // Asks the platform about the volume `name` (`C:` or `\\server\share`).
    CTyUiVolumeDescriptor(FS_TYPE fsType, const KvString& name, int maxPath);

    // The rule shared by the NTFS, VFAT, CDFS and NOFS kinds, with the kind's set.
    bool IsValidPathWith(const KvString& path, const char16_t* forbidden) const;
    bool IsValidComponentWith(const KvString& name, const char16_t* forbidden) const;
    static bool HasColonOnlyBehindDrive(const KvString& path);
    static bool HasForbidden(const KvString& text, const char16_t* forbidden);

private:
    uint64_t FreeBytes() const;
    KvString RootWithSeparator() const;

    FS_TYPE m_fsType;
    unsigned m_flags = 0;
    KvString* m_volumeName;
    int m_maxComponent = 255;
    int m_maxPath;
    char16_t m_separator = u'\\';
    bool m_multibyteLocale = false;
    uint32_t m_serialNumber = 0;
    uint32_t m_fsFlags = 2;
    KvString* m_label = nullptr;
    KvString* m_remoteName = nullptr;
    const char16_t* m_doubleSeparator = u"\\\\";
};

class CTyUiNTFSVolumeDescriptor : public CTyUiVolumeDescriptor {
public:
    explicit CTyUiNTFSVolumeDescriptor(const KvString& name);
    ~CTyUiNTFSVolumeDescriptor() override;
    bool IsValidPath(const KvString& path, bool wildcardsAllowed) const override;
    bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const override;
};

class CTyUiVFATVolumeDescriptor : public CTyUiVolumeDescriptor {
public:
    explicit CTyUiVFATVolumeDescriptor(const KvString& name);
    ~CTyUiVFATVolumeDescriptor() override;
    bool IsValidPath(const KvString& path, bool wildcardsAllowed) const override;
    bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const override;
};

// Short names: 8 characters, a dot and 3; paths of at most 81 characters.
class CTyUiFATVolumeDescriptor : public CTyUiVolumeDescriptor {
public:
    explicit CTyUiFATVolumeDescriptor(const KvString& name);
    ~CTyUiFATVolumeDescriptor() override;
    bool IsValidPath(const KvString& path, bool wildcardsAllowed) const override;
    bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const override;
};

class CTyUiCDFSVolumeDescriptor : public CTyUiVolumeDescriptor {
public:
    explicit CTyUiCDFSVolumeDescriptor(const KvString& name);
    ~CTyUiCDFSVolumeDescriptor() override;
    bool IsValidPath(const KvString& path, bool wildcardsAllowed) const override;
    bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const override;
};

// A volume that can't be asked: paths as CDFS, no component valid.
class CTyUiNOFSVolumeDescriptor : public CTyUiVolumeDescriptor {
public:
    explicit CTyUiNOFSVolumeDescriptor(const KvString& name);
    ~CTyUiNOFSVolumeDescriptor() override;
    bool IsValidPath(const KvString& path, bool wildcardsAllowed) const override;
    bool IsValidComponent(const KvString& name, bool wildcardsAllowed) const override;
};

class CTyUiPathname {
public:
    enum path_type {
        kEmpty = 0,
        kNotFound = 1,  // doesn't exist, or existence not established
        kWildcard = 2,
        kFile = 3,
        kDirectory = 4,
        kDevice = 5,
    };
    enum path_category { kDrive = 0, kUNC = 1, kRootRelative = 2, kRelative = 3 };
    enum path_status { kStatusNone = 0 };

    CTyUiPathname() = default;
    CTyUiPathname(const CTyUiPathname& other);
    CTyUiPathname& operator=(const CTyUiPathname& other);
    CTyUiPathname& operator=(const CTyUiPathname* other);
    virtual ~CTyUiPathname();
    virtual PathErr Parse(const char16_t* text, bool wildcardsAllowed = false);
    virtual void AssignCopy(const CTyUiPathname& other);

    void Empty();
    PathErr ParseRelative(const char16_t* text, const CTyUiPathname* base,
                          bool wildcardsAllowed = false);
    bool ParseAndOSFind(const char16_t* name);

    bool IsEmpty() const { return m_type == kEmpty; }
    bool IsPath() const { return m_type >= kNotFound && m_type <= kDirectory; }
    path_type GetPathType() const { return m_type; }
    const CTyUiVolumeDescriptor* GetVolumeDescriptor() const { return m_volume; }
    const char16_t* GetPathString() const { return m_path ? m_path->kwszPtr() : nullptr; }
    bool WasAbsolute() const { return m_category == kDrive || m_category == kUNC; }
    bool WasRoot() const { return m_category == kRootRelative; }
    bool HadPrefix() const { return m_hadPrefix; }
    path_status Status() const { return kStatusNone; }

    void GetBasename(KvString& out) const;
    void GetFilename(KvString& out) const;
    void GetExtension(KvString& out) const;
    void GetParent(CTyUiPathname& parent) const;
    bool GetFullPath(KvString& out) const;
    bool GetFullPath(char16_t* buffer, unsigned int size) const;
    void GetFullUNCPath(KvString& out) const;
    void GetDisplayName(KvString& out, int maxChars) const;
    bool VerifyExtension(const char16_t* list) const;
    bool PathMatch(const char16_t* text) const;
    bool PathMatch(const CTyUiPathname* other) const;
    bool GetUniqueName(CTyUiPathname& result, bool alwaysNew) const;

    PathErr Trim();
    PathErr TrimSlash();
    PathErr TrimComponent();
    PathErr Append(const char16_t* text);
    PathErr AppendSlash();
    PathErr AppendComponent(const char16_t* text);
    PathErr ReplaceExtensionAlways(const char16_t* ext);
    PathErr ReplaceExtensionIfNoMatch(const char16_t* list);
    PathErr AddExtensionAlways(const char16_t* ext);
    PathErr AddExtensionIfNoMatch(const char16_t* list);
    void RemoveExtensionAlways();
    void RemoveExtensionIfMatch(const char16_t* list);
    void RemoveSpaces();
    void BaseToLower();
    void BaseToUpper();

    bool Exists();
    // The handle is a C stream (FILE*) that the caller closes with fclose; a failure
    // gives the invalid handle, (void*)-1.
    bool OpenReadOnly(void*& handle);
    bool OpenWriteOnly(void*& handle);
    // Files of the platform's file layer aren't opened through path names: always false.
    bool OpenReadOnly(Tarnwick::Lumora::PAL::FileIO::File& file);
    bool OpenWriteOnly(Tarnwick::Lumora::PAL::FileIO::File& file);
    bool Open(FILE** stream, const char16_t* mode);
    bool Rename(const char16_t* newName);
    bool Remove();

protected:
    char16_t GetSeparator() const { return m_separator; }
    // Kept for derived classes; they have fixed answers: false, false, empty.
    bool IsValidOnColon(const KvString* text) const;
    static bool WasAbsoluteHelper(path_category category);
    KvString GetDriveForRoottypePath(const CTyUiVolumeDescriptor* const volume) const;
    static char16_t GetLastCharacter(const KvString& text);
    static void Unquote(KvString& text);
    bool IsDeviceName(const KvString& text) const;
    static const CTyUiVolumeDescriptor* FindVolumeDescriptor(const KvString& name);
    // The same for the `length` units at `name`, which needn't end there.
    static const CTyUiVolumeDescriptor* FindVolumeDescriptor(const char16_t* name, size_t length);
    static const CTyUiVolumeDescriptor* NewVolDescriptor(const KvString& name);
    static FS_TYPE GetFileSystem(KvString& root);
    // The classification step of GetFileSystem, on a file-system name as reported.
    static FS_TYPE ClassifyFileSystem(const KvString& fileSystemName, unsigned maxComponent);

private:
    static void StripSpaces(KvString& text);
    void GetAttributes(const KvString* path, const KvString* base, path_type* type) const;
    PathErr FailParse();
    bool FindVolume(const std::u16string& work);
    void ComposeFullText(KvString& out) const;
    bool StoredTextIsValid() const;
    bool FullPathIsValid() const;
    bool CandidateIsValid(const KvString& candidatePath) const;
    void StripExtension(KvString& text) const;
    PathErr ChangeExtension(const char16_t* ext, bool replace);
    void ChangeBaseCase(bool upper);
    bool PosixPath(std::u16string& posixPath) const;
    FILE* OpenStream(const char* mode) const;
    static void GetFirstExtInList(const char16_t* list, KvString& out);

    path_type m_type = kEmpty;
    const CTyUiVolumeDescriptor* m_volume = nullptr;
    KvString* m_path = nullptr;
    KvString* m_base = nullptr;
    path_category m_category = kRelative;
    char16_t m_separator = u'\\';
    bool m_hadPrefix = false;
};
