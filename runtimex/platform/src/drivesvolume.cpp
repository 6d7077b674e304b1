// Volumes behind drive letters and shares: the mount table, the kind of drive, the file
// system's name, limits, label and serial number, and the room left on it.
#include "drivesinternal.h"
#include "lumplatform/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <unicode/ucnv.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <sstream>

namespace lumplatform {
namespace {

using drivesinternal::volumeDirectory;

constexpr std::uint32_t kDefaultComponentLength = 255;
constexpr const char* kOemPage = "ibm-437";  // FAT labels are in the OEM code page
// FAT and exFAT give their name limit in bytes of the longest character set, 6 a unit.
constexpr std::uint32_t kNlsBytesPerUnit = 6;

bool isOneOf(const std::u16string& name, std::initializer_list<const char16_t*> names) {
    for (const char16_t* n : names)
        if (name == n) return true;
    return false;
}

bool isNetworkFileSystem(const std::u16string& type) {
    return isOneOf(type, {u"nfs", u"nfs4", u"cifs", u"smb3", u"smbfs", u"ncpfs", u"9p", u"afs", u"ceph",
                          u"fuse.sshfs", u"fuse.glusterfs", u"fuse.rclone"});
}

bool isFat(const std::u16string& type) { return isOneOf(type, {u"vfat", u"msdos"}); }

bool isOctalEscape(const std::string& field, size_t i) {
    if (field[i] != '\\' || field.size() - i < 4 || field[i + 1] < '0' || field[i + 1] > '3') return false;
    return field[i + 2] >= '0' && field[i + 2] <= '7' && field[i + 3] >= '0' && field[i + 3] <= '7';
}

// Resolves the \ooo escapes that mountinfo puts for blanks, tabs, newlines and backslashes.
std::string unescape(const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size(); ++i) {
        if (!isOctalEscape(field, i)) {
            out += field[i];
            continue;
        }
        out += char((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
        i += 3;
    }
    return out;
}

bool readNumber(const std::string& digits, unsigned& value) {
    if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    value = unsigned(std::stoul(digits));
    return true;
}

// "major:minor" as two numbers; false for anything else.
bool readDevice(const std::string& field, MountEntry& entry) {
    size_t colon = field.find(':');
    return colon != std::string::npos && readNumber(field.substr(0, colon), entry.deviceMajor) &&
           readNumber(field.substr(colon + 1), entry.deviceMinor);
}

// One line: id, parent, major:minor, root, mount point, options, optional fields, "-",
// type, source, super options.
bool readMountLine(const std::string& line, MountEntry& entry) {
    std::istringstream in(line);
    std::vector<std::string> fields;
    for (std::string field; in >> field;) fields.push_back(field);
    size_t dash = 6;
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    if (dash + 2 >= fields.size() || !readDevice(fields[2], entry) || fields[4][0] != '/') return false;
    entry.mountPoint = fromUtf8(unescape(fields[4]));
    entry.fileSystem = fromUtf8(unescape(fields[dash + 1]));
    entry.source = fromUtf8(unescape(fields[dash + 2]));
    return true;
}

// A file opened for reading, closed when it goes.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const std::string& path) : m_fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~ReadOnlyFile() {
        if (m_fd >= 0) ::close(m_fd);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    // Only a disk or a disk image is read: a pipe or a terminal could block.
    bool isDiskLike() const {
        struct stat st;
        return m_fd >= 0 && fstat(m_fd, &st) == 0 && (S_ISBLK(st.st_mode) || S_ISREG(st.st_mode));
    }
    bool readAt(long offset, unsigned char* buffer, size_t size) const {
        return ::pread(m_fd, buffer, size, offset) == ssize_t(size);
    }

private:
    int m_fd;
};

std::uint32_t littleEndian32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}

std::u16string fromOemPage(const unsigned char* bytes, int count) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, void (*)(UConverter*)> page(ucnv_open(kOemPage, &status), ucnv_close);
    UChar units[32];
    int32_t length = ucnv_toUChars(page.get(), units, 32, reinterpret_cast<const char*>(bytes), count, &status);
    if (U_FAILURE(status)) return {};
    return std::u16string(reinterpret_cast<const char16_t*>(units), size_t(length));
}

std::u16string trimBlanks(std::u16string text) {
    size_t end = text.find_last_not_of(u" \0", std::u16string::npos, 2);
    text.erase(end == std::u16string::npos ? 0 : end + 1);
    return text;
}

// The label and volume id of a FAT boot sector, where its extended signature has them.
void readFatBootSector(const ReadOnlyFile& device, VolumeInformation& info) {
    unsigned char sector[512];
    if (!device.readAt(0, sector, sizeof sector) || sector[510] != 0x55 || sector[511] != 0xAA) return;
    bool fat32 = sector[0x16] == 0 && sector[0x17] == 0;  // no 16-bit sectors-per-FAT count
    const unsigned char* extended = sector + (fat32 ? 0x42 : 0x26);
    if (extended[0] != 0x28 && extended[0] != 0x29) return;
    info.serialNumber = littleEndian32(extended + 1);
    if (extended[0] != 0x29) return;
    std::u16string text = trimBlanks(fromOemPage(extended + 5, 11));
    info.label = text == u"NO NAME" ? std::u16string() : text;
}

// The volume identifier of an ISO 9660 primary volume descriptor (sector 16).
void readIsoLabel(const ReadOnlyFile& device, VolumeInformation& info) {
    unsigned char descriptor[2048];
    if (!device.readAt(16 * 2048, descriptor, sizeof descriptor)) return;
    if (descriptor[0] != 1 || std::string(reinterpret_cast<char*>(descriptor + 1), 5) != "CD001") return;
    std::u16string label;
    for (int i = 40; i < 72; ++i) label += char16_t(descriptor[i]);  // d-characters: ASCII
    info.label = trimBlanks(label);
}

void readLabel(const MountEntry& mount, VolumeInformation& info) {
    bool fat = isFat(mount.fileSystem), iso = mount.fileSystem == u"iso9660";
    if ((!fat && !iso) || mount.source.empty() || mount.source[0] != u'/') return;
    ReadOnlyFile device(toUtf8(mount.source));
    if (!device.isDiskLike()) return;
    if (fat) readFatBootSector(device, info);
    else readIsoLabel(device, info);
}

std::u16string windowsFileSystemName(const std::u16string& type) {
    std::u16string name;
    for (char16_t c : type) name += toUpperUnit(c);
    if (name == u"VFAT" || name == u"MSDOS") return u"FAT";
    if (name == u"ISO9660") return u"CDFS";
    if (name == u"NTFS3" || name == u"FUSEBLK") return u"NTFS";
    return name;
}

std::uint32_t maxComponentLength(const std::u16string& type, unsigned long nameMax) {
    if (isFat(type) || type == u"exfat") nameMax /= kNlsBytesPerUnit;
    if (nameMax == 0) return kDefaultComponentLength;
    return nameMax > UINT32_MAX ? UINT32_MAX : std::uint32_t(nameMax);
}

std::uint32_t fileSystemFlags(const std::u16string& type, unsigned long mountFlags) {
    std::uint32_t flags = 0;
    if (!isFat(type) && type != u"exfat") flags |= kVolumeSearchesCaseSensitive;
    if (type != u"msdos") flags |= kVolumePreservesCase;
    if (mountFlags & ST_RDONLY) flags |= kVolumeReadOnly;
    return flags;
}

std::uint32_t fold64(std::uint64_t value) { return std::uint32_t(value ^ (value >> 32)); }

// A number that stays the same while the volume is mounted: the file system's id, else
// its device number.
std::uint32_t serialNumber(const std::string& directory, const struct statvfs& figures) {
    if (figures.f_fsid != 0) return fold64(figures.f_fsid);
    struct stat st;
    return stat(directory.c_str(), &st) == 0 ? fold64(st.st_dev) : 0;
}

// The directory of a volume root with its links resolved, as UTF-8.
DriveStatus realDirectory(const std::u16string& volumeRoot, std::string& real) {
    std::u16string directory;
    DriveStatus status = volumeDirectory(volumeRoot, directory);
    if (status != DriveStatus::ok) return status;
    char* resolved = realpath(toUtf8(directory).c_str(), nullptr);
    if (!resolved) return DriveStatus::notAvailable;
    real = resolved;
    std::free(resolved);
    return DriveStatus::ok;
}

bool readsOne(const std::string& file) {
    std::ifstream in(file);
    int value = 0;
    return in >> value && value == 1;
}

// The block device's own "removable" flag, or that of the disk a partition belongs to.
bool isRemovable(const MountEntry& mount) {
    if (mount.deviceMajor == 0) return false;
    std::string device = "/sys/dev/block/" + std::to_string(mount.deviceMajor) + ":" + std::to_string(mount.deviceMinor);
    return readsOne(device + "/removable") || readsOne(device + "/../removable");
}

DriveStatus statVolume(const std::u16string& volumeRoot, struct statvfs& figures) {
    std::u16string directory;
    DriveStatus status = volumeDirectory(volumeRoot, directory);
    if (status != DriveStatus::ok) return status;
    return statvfs(toUtf8(directory).c_str(), &figures) == 0 ? DriveStatus::ok : DriveStatus::notAvailable;
}

std::uint32_t clamp32(std::uint64_t value) { return value > UINT32_MAX ? UINT32_MAX : std::uint32_t(value); }

}  // namespace

MountTable MountTable::parse(const std::string& text) {
    MountTable table;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        MountEntry entry;
        if (readMountLine(line, entry)) table.m_entries.push_back(std::move(entry));
    }
    return table;
}

DriveStatus MountTable::read(const std::u16string& file, MountTable& table) {
    std::ifstream in(toUtf8(file));
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) return DriveStatus::notAvailable;
    table = parse(text.str());
    return DriveStatus::ok;
}

DriveStatus MountTable::readOwn(MountTable& table) { return read(u"/proc/self/mountinfo", table); }

const MountEntry* MountTable::find(const std::u16string& posixPath) const {
    const MountEntry* best = nullptr;
    for (const MountEntry& entry : m_entries)
        if (drivesinternal::holds(entry.mountPoint, posixPath) &&
            (!best || entry.mountPoint.size() >= best->mountPoint.size()))
            best = &entry;
    return best;
}

DriveType driveType(const std::u16string& volumeRoot) {
    MountTable mounts;
    MountTable::readOwn(mounts);  // an unreadable table leaves it empty: the kind is unknown
    return driveType(volumeRoot, mounts);
}

DriveType driveType(const std::u16string& volumeRoot, const MountTable& mounts) {
    std::string real;
    if (realDirectory(volumeRoot, real) != DriveStatus::ok) return DriveType::noRootDirectory;
    std::u16string network;
    if (networkNameOf(volumeRoot, network) == DriveStatus::ok) return DriveType::remote;
    const MountEntry* mount = mounts.find(fromUtf8(real));
    if (!mount) return DriveType::unknown;
    const std::u16string& type = mount->fileSystem;
    if (isNetworkFileSystem(type)) return DriveType::remote;
    if (type == u"iso9660" || type == u"udf") return DriveType::cdRom;
    if (type == u"tmpfs" || type == u"ramfs") return DriveType::ramDisk;
    return isRemovable(*mount) ? DriveType::removable : DriveType::fixed;
}

DriveStatus volumeInformation(const std::u16string& volumeRoot, VolumeInformation& info) {
    MountTable mounts;
    DriveStatus status = MountTable::readOwn(mounts);
    return status == DriveStatus::ok ? volumeInformation(volumeRoot, mounts, info) : status;
}

DriveStatus volumeInformation(const std::u16string& volumeRoot, const MountTable& mounts,
                              VolumeInformation& info) {
    std::string real;
    DriveStatus status = realDirectory(volumeRoot, real);
    if (status != DriveStatus::ok) return status;
    struct statvfs figures;
    const MountEntry* mount = mounts.find(fromUtf8(real));
    if (!mount || statvfs(real.c_str(), &figures) != 0) return DriveStatus::notAvailable;
    VolumeInformation result;
    result.fileSystemName = windowsFileSystemName(mount->fileSystem);
    result.maxComponentLength = maxComponentLength(mount->fileSystem, figures.f_namemax);
    result.fileSystemFlags = fileSystemFlags(mount->fileSystem, figures.f_flag);
    result.serialNumber = serialNumber(real, figures);
    readLabel(*mount, result);
    info = std::move(result);
    return DriveStatus::ok;
}

DriveStatus diskSpace(const std::u16string& volumeRoot, DiskSpace& space) {
    struct statvfs figures;
    DriveStatus status = statVolume(volumeRoot, figures);
    if (status != DriveStatus::ok) return status;
    std::uint64_t unit = figures.f_frsize ? figures.f_frsize : figures.f_bsize;
    space.freeBytesToCaller = std::uint64_t(figures.f_bavail) * unit;
    space.totalBytes = std::uint64_t(figures.f_blocks) * unit;
    space.totalFreeBytes = std::uint64_t(figures.f_bfree) * unit;
    return DriveStatus::ok;
}

DriveStatus clusterSpace(const std::u16string& volumeRoot, ClusterSpace& space) {
    struct statvfs figures;
    DriveStatus status = statVolume(volumeRoot, figures);
    if (status != DriveStatus::ok) return status;
    std::uint64_t cluster = figures.f_frsize ? figures.f_frsize : figures.f_bsize;
    if (cluster == 0) return DriveStatus::notAvailable;
    bool sectors = cluster % 512 == 0;
    space.bytesPerSector = sectors ? 512 : clamp32(cluster);
    space.sectorsPerCluster = sectors ? clamp32(cluster / 512) : 1;
    space.freeClusters = clamp32(figures.f_bavail);
    space.totalClusters = clamp32(figures.f_blocks);
    return DriveStatus::ok;
}

}  // namespace lumplatform
