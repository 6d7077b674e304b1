// Drives and volumes on POSIX: names in Windows syntax (drive letters, UNC names, the
// backslash) reach POSIX directories through a drive table, and volumes are described
// from the mount table and the file system's own figures.
//
// The drive table. `Z:` is "/" unless LUMRX_DRIVES names Z. LUMRX_DRIVES adds letters:
//     C=/srv/c;D=/mnt/d
// a letter (either case), "=", an absolute directory; entries are separated by ";",
// and empty entries are ignored. LUMRX_SHARES maps UNC names the same way:
//     fileserver/projects=/srv/projects;nas/home=/home
// server, "/", share, "=", an absolute directory; `\\fileserver\projects\x` is then
// /srv/projects/x. Server and share names match without regard to case. A variable that
// doesn't have this shape (no "=", a relative directory, a letter or share named twice,
// a control character, bytes that aren't UTF-8) is rejected whole: every name that
// needs it fails with malformedDrives or malformedShares. Both variables are read
// again at every call, so a change of the environment takes effect at once.
//
// Paths are 16-bit texts; they reach the file system as UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumplatform {

enum class DriveStatus {
    ok,
    badName,          // not a name of the form asked for: a control character, a colon
                      // outside a drive prefix, a UNC name without a share, ...
    nameTooLong,      // longer than the 32767 units that a Windows name can have
    notMapped,        // no drive or share maps the name
    malformedDrives,  // LUMRX_DRIVES is set but can't be read
    malformedShares,  // LUMRX_SHARES is set but can't be read
    unrepresentable,  // a POSIX name with a backslash, a colon or a control character
    notAvailable,     // the file system refused: missing directory, unreadable table, ...
    notConnected,     // no network name: the path lies outside every share
};

// Translates an absolute Windows name (`C:`, `C:\dir\file`, `\\server\share\dir`;
// slashes count as backslashes) to the POSIX path it names. "." and ".." are folded
// lexically and never climb above the drive's or share's directory.
DriveStatus posixPathOf(const std::u16string& windowsName, std::u16string& posixPath);

// Translates an absolute POSIX path to its Windows name: the drive whose directory is
// the longest one holding the path (the first letter on a tie), else the share found
// the same way. A root comes out with its separator: `C:\`, `\\server\share\`.
DriveStatus windowsNameOf(const std::u16string& posixPath, std::u16string& windowsName);

// The absolute form of a Windows name, as the file system would take it: relative
// names against the current directory, `\dir` against the current volume, `C:dir`
// against the current directory if it lies on C, else against C's root; "." and ".."
// folded, repeated separators joined, a trailing separator kept. Absolute names are
// worked out by text alone, so an unmapped drive is no failure here.
DriveStatus fullWindowsName(const std::u16string& name, std::u16string& fullName);

// The calls below work as if `directory` (a Windows name; a relative one against the
// current directory) were the current directory, as a change to it and back would, but
// without changing it; an empty `directory` stands for the current directory itself. `name` continues `directory` if relative, its volume if
// root-relative, and `directory` if drive-relative on its drive, else that drive's root;
// "." and ".." are folded by text as in fullWindowsName.

// The POSIX path of `name`; notAvailable if `directory` can't be entered.
DriveStatus posixPathIn(const std::u16string& directory, const std::u16string& name, std::u16string& posixPath);
// The attribute word of the file `name` (the directory bit or normal, as
// fileKindAttributes gives it); kNoAttributes if `directory` can't be entered or the
// file can't be asked.
unsigned attributesIn(const std::u16string& directory, const std::u16string& name);

// The current directory of the process in drive form, e.g. `Z:\home\ana`.
DriveStatus currentDirectoryName(std::u16string& name);
// Changes the current directory to a Windows name, relative names included.
DriveStatus changeCurrentDirectory(const std::u16string& name);

// The network name of a Windows name: `\\server\share\rest` for the share whose
// directory holds it (a drive letter mapped onto a share's directory is connected to
// that share); notConnected if no share holds it.
DriveStatus networkNameOf(const std::u16string& windowsName, std::u16string& networkName);

// One line of a mount table: where a file system is mounted, its type as Linux names it
// and the source it was mounted from.
struct MountEntry {
    std::u16string mountPoint;
    std::u16string fileSystem;
    std::u16string source;
    unsigned deviceMajor = 0;
    unsigned deviceMinor = 0;
};

class MountTable {
public:
    // Parses the text of a mountinfo file; lines without its shape are skipped, and the
    // octal escapes (`\040` for a blank) are resolved.
    static MountTable parse(const std::string& text);
    // Reads a mountinfo file; notAvailable if it can't be read.
    static DriveStatus read(const std::u16string& file, MountTable& table);
    // The process's own table, /proc/self/mountinfo.
    static DriveStatus readOwn(MountTable& table);

    // The mount that holds an absolute POSIX path: the longest mount point that contains
    // it, the last one listed among equals since it hides the others; null if none.
    const MountEntry* find(const std::u16string& posixPath) const;
    const std::vector<MountEntry>& entries() const { return m_entries; }

private:
    std::vector<MountEntry> m_entries;
};

// Volume roots below are a drive (`C:` or `C:\`) or a share (`\\server\share`, with or
// without the trailing separator); slashes count as backslashes.

// The kinds of drive, numbered as the path class stores them.
enum class DriveType : unsigned {
    unknown = 0,          // mapped, but the mount table can't tell
    noRootDirectory = 1,  // not a volume root, unmapped, or its directory is missing
    removable = 2,
    fixed = 3,
    remote = 4,  // a share, or a network file system (nfs, cifs, smb3, sshfs, 9p, ...)
    cdRom = 5,
    ramDisk = 6,  // tmpfs, ramfs
};

// With the process's own mount table; a table that can't be read gives unknown.
DriveType driveType(const std::u16string& volumeRoot);
DriveType driveType(const std::u16string& volumeRoot, const MountTable& mounts);

// File-system flag bits of VolumeInformation, at the positions the path class reads.
constexpr std::uint32_t kVolumeSearchesCaseSensitive = 0x1;
constexpr std::uint32_t kVolumePreservesCase = 0x2;
constexpr std::uint32_t kVolumeReadOnly = 0x80000;

struct VolumeInformation {
    // The type Linux gives, upper-cased, with the Windows names where they differ:
    // VFAT and MSDOS are "FAT", ISO9660 is "CDFS", NTFS3 and FUSEBLK are "NTFS".
    std::u16string fileSystemName;
    // Read from a FAT or ISO 9660 device that this process may read; else empty.
    std::u16string label;
    // The FAT volume id when read from the device, else from the file system id, else
    // from the device number: the same for as long as the volume is mounted.
    std::uint32_t serialNumber = 0;
    // Longest name of one component, in characters.
    std::uint32_t maxComponentLength = 0;
    std::uint32_t fileSystemFlags = 0;
};

// Describes the volume from the mount that holds its directory; notAvailable if the
// directory is missing or no mount holds it (an unreadable mount table holds none).
DriveStatus volumeInformation(const std::u16string& volumeRoot, VolumeInformation& info);
DriveStatus volumeInformation(const std::u16string& volumeRoot, const MountTable& mounts,
                              VolumeInformation& info);

struct DiskSpace {
    std::uint64_t freeBytesToCaller = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t totalFreeBytes = 0;
};

// The same room counted in clusters; a count that doesn't fit 32 bits is 0xFFFFFFFF.
struct ClusterSpace {
    std::uint32_t sectorsPerCluster = 0;
    std::uint32_t bytesPerSector = 0;
    std::uint32_t freeClusters = 0;  // free to the caller
    std::uint32_t totalClusters = 0;
};

// The room on the file system that holds the volume's directory; notAvailable if it
// can't be asked.
DriveStatus diskSpace(const std::u16string& volumeRoot, DiskSpace& space);
DriveStatus clusterSpace(const std::u16string& volumeRoot, ClusterSpace& space);

}  // namespace lumplatform
