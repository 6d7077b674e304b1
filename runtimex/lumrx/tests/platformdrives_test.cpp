// The drive layer of the platform: names through the drive and share tables, the
// current directory in drive form, mount tables, volumes and their room. Every test maps
// the letter T to a fresh temporary directory through LUMRX_DRIVES.
#include "lumplatform/drives.h"
#include "lumplatform/files.h"
#include "lumplatform/text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace fs = std::filesystem;
using namespace lumplatform;

namespace {

std::u16string u16(const std::string& s) { return fromUtf8(s); }

class Drives : public ::testing::Test {
protected:
    void SetUp() override {
        root = fs::temp_directory_path() / ("lumdrives-" + std::to_string(std::random_device{}()));
        fs::create_directories(root / "sub");
        root = fs::canonical(root);
        home = fs::current_path();
        setenv("LUMRX_DRIVES", ("T=" + root.string()).c_str(), 1);
        unsetenv("LUMRX_SHARES");
    }
    void TearDown() override {
        fs::current_path(home);
        fs::remove_all(root);
        unsetenv("LUMRX_DRIVES");
        unsetenv("LUMRX_SHARES");
    }
    std::u16string at(const std::string& below) const {
        return u16(below.empty() ? root.string() : (root / below).string());
    }
    // A mount table with one line that mounts `type` from `source` on the temporary root.
    MountTable mountedAs(const std::string& type, const std::string& source = "none") const {
        return MountTable::parse("1 0 0:0 / / rw - ext4 /dev/root rw\n50 1 0:77 / " + root.string() +
                                 " rw - " + type + " " + source + " rw\n");
    }
    std::u16string posix(const std::u16string& name) {
        std::u16string out;
        lastStatus = posixPathOf(name, out);
        return out;
    }
    std::u16string windows(const std::u16string& path) {
        std::u16string out;
        lastStatus = windowsNameOf(path, out);
        return out;
    }
    std::u16string full(const std::u16string& name) {
        std::u16string out;
        lastStatus = fullWindowsName(name, out);
        return out;
    }
    fs::path root, home;
    DriveStatus lastStatus = DriveStatus::ok;
};

TEST_F(Drives, TranslatesDriveNamesBothWays) {
    setenv("LUMRX_DRIVES", ("t=" + root.string() + "/;X=" + root.string() + "/sub;").c_str(), 1);
    EXPECT_EQ(posix(u"T:\\a/b\\..\\c"), at("a/c"));
    EXPECT_EQ(posix(u"t:"), at(""));
    EXPECT_EQ(posix(u"T:\\..\\..\\etc"), at("etc"));  // never above the drive's directory
    EXPECT_EQ(posix(u"Z:\\usr\\\\lib\\"), u"/usr/lib");
    EXPECT_EQ(windows(at("sub/f.txt")), u"X:\\f.txt");  // the longest directory wins
    EXPECT_EQ(windows(at("")), u"T:\\");
    EXPECT_EQ(windows(at("subway")), u"T:\\subway");
    std::u16string beside = u"Z:" + at("") + u"way\\x";
    for (char16_t& c : beside) c = c == u'/' ? u'\\' : c;
    EXPECT_EQ(windows(at("") + u"way/x"), beside);  // a prefix of the text only
    EXPECT_EQ(windows(u"/usr/./lib//x/../y"), u"Z:\\usr\\lib\\y");
    EXPECT_EQ(windows(u"/"), u"Z:\\");
    // The environment is read at every call.
    setenv("LUMRX_DRIVES", ("T=" + root.string() + "/sub").c_str(), 1);
    EXPECT_EQ(posix(u"T:\\a"), at("sub/a"));
    EXPECT_EQ(posix(u"X:\\a"), u"");
    EXPECT_EQ(lastStatus, DriveStatus::notMapped);
}

TEST_F(Drives, TranslatesSharesAndNetworkNames) {
    fs::create_directories(root / "share" / "d");
    setenv("LUMRX_SHARES", ("Files/Proj=" + root.string() + "/share;nas/x=/nowhere").c_str(), 1);
    EXPECT_EQ(posix(u"\\\\files\\PROJ\\d\\e"), at("share/d/e"));
    EXPECT_EQ(posix(u"//Files/Proj"), at("share"));
    EXPECT_EQ(posix(u"\\\\files\\other\\d"), u"");
    EXPECT_EQ(lastStatus, DriveStatus::notMapped);
    EXPECT_EQ(windows(at("share/d")), u"T:\\share\\d");  // a drive comes first
    std::u16string name;
    EXPECT_EQ(networkNameOf(u"T:\\share\\d\\f", name), DriveStatus::ok);
    EXPECT_EQ(name, u"\\\\Files\\Proj\\d\\f");
    EXPECT_EQ(networkNameOf(u"T:\\sub", name), DriveStatus::notConnected);
    EXPECT_EQ(driveType(u"\\\\files\\proj\\"), DriveType::remote);
    EXPECT_EQ(driveType(u"\\\\nas\\x"), DriveType::noRootDirectory);  // directory missing
    EXPECT_EQ(driveType(u"\\\\nas\\y"), DriveType::noRootDirectory);
    setenv("LUMRX_DRIVES", ("Z=" + root.string() + "/sub;S=" + root.string() + "/share").c_str(), 1);
    EXPECT_EQ(driveType(u"S:"), DriveType::remote);  // a letter on a share's directory
    EXPECT_EQ(windows(at("share/d")), u"S:\\d");
    setenv("LUMRX_DRIVES", ("Z=" + root.string() + "/sub").c_str(), 1);
    EXPECT_EQ(windows(at("share/d")), u"\\\\Files\\Proj\\d");
    EXPECT_EQ(windows(at("share")), u"\\\\Files\\Proj\\");
    EXPECT_EQ(windows(u"/etc"), u"");
    EXPECT_EQ(lastStatus, DriveStatus::notMapped);
}

TEST_F(Drives, RefusesNamesNoVolumeCanHold) {
    for (const char16_t* bad : {u"", u"T:\\a\x01", u"T:\\a:b", u"T::", u":x", u"1:\\x", u"\\\\srv",
                                u"\\\\srv\\", u"\\\\\\x\\y", u"a\\b", u"\\a", u"T:rel"}) {
        EXPECT_EQ(posix(bad), u"") << toUtf8(bad);
        EXPECT_EQ(lastStatus, DriveStatus::badName);
    }
    posix(u"T:\\" + std::u16string(32765, u'a'));
    EXPECT_EQ(lastStatus, DriveStatus::nameTooLong);
    posix(u"Q:\\x");
    EXPECT_EQ(lastStatus, DriveStatus::notMapped);
    windows(u"/" + std::u16string(32767, u'a'));
    EXPECT_EQ(lastStatus, DriveStatus::nameTooLong);
    for (const std::u16string& bad : {std::u16string(), std::u16string(u"rel/x"), std::u16string(u"/a\0b", 4)}) {
        windows(bad);
        EXPECT_EQ(lastStatus, DriveStatus::badName);
    }
    for (const char16_t* odd : {u"/a\\b", u"/a:b", u"/tab\there"}) {
        EXPECT_EQ(windows(odd), u"");
        EXPECT_EQ(lastStatus, DriveStatus::unrepresentable);
    }
    full(u"\\\\srv");
    EXPECT_EQ(lastStatus, DriveStatus::badName);
}

TEST_F(Drives, RejectsMalformedTablesWhole) {
    for (const char* bad : {"C", "C=relative", "CC=/x", "1=/x", "C=/a;c=/b", "C=/a\x01", "C=/\xff", "=/x"}) {
        setenv("LUMRX_DRIVES", bad, 1);
        EXPECT_EQ(posix(u"Z:\\"), u"") << bad;
        EXPECT_EQ(lastStatus, DriveStatus::malformedDrives) << bad;
        windows(u"/");
        EXPECT_EQ(lastStatus, DriveStatus::malformedDrives) << bad;
        EXPECT_EQ(driveType(u"Z:\\"), DriveType::noRootDirectory) << bad;
    }
    setenv("LUMRX_DRIVES", (";;C=" + root.string() + ";").c_str(), 1);
    EXPECT_EQ(posix(u"C:\\x"), at("x"));
    for (const char* bad : {"srv=/x", "srv/=/x", "/sh=/x", "a/b=rel", "a/b=/x;A/B=/y", "a:b/c=/x", "a/b/c=/x"}) {
        setenv("LUMRX_SHARES", bad, 1);
        posix(u"\\\\a\\b");
        EXPECT_EQ(lastStatus, DriveStatus::malformedShares) << bad;
        EXPECT_EQ(posix(u"C:\\x"), at("x")) << bad;  // drives stay usable
    }
}

TEST_F(Drives, CurrentDirectoryAndFullNamesInDriveForm) {
    std::u16string here;
    ASSERT_EQ(changeCurrentDirectory(u"T:\\sub"), DriveStatus::ok);
    EXPECT_EQ(fs::current_path(), root / "sub");
    ASSERT_EQ(currentDirectoryName(here), DriveStatus::ok);
    EXPECT_EQ(here, u"T:\\sub");
    EXPECT_EQ(full(u"x\\..\\y/"), u"T:\\sub\\y\\");
    EXPECT_EQ(full(u"\\r\\.\\s"), u"T:\\r\\s");
    EXPECT_EQ(full(u"T:rel"), u"T:\\sub\\rel");
    EXPECT_EQ(full(u"T:"), u"T:\\sub");
    EXPECT_EQ(full(u"q:rel"), u"Q:\\rel");  // another drive: its root
    EXPECT_EQ(full(u"Q:\\a\\..\\..\\b"), u"Q:\\b");
    EXPECT_EQ(full(u"//s/sh/../x"), u"\\\\s\\sh\\x");
    EXPECT_EQ(changeCurrentDirectory(u".."), DriveStatus::ok);
    ASSERT_EQ(currentDirectoryName(here), DriveStatus::ok);
    EXPECT_EQ(here, u"T:\\");
    EXPECT_EQ(changeCurrentDirectory(u"T:\\missing"), DriveStatus::notAvailable);
    EXPECT_EQ(changeCurrentDirectory(u"Q:\\"), DriveStatus::notMapped);
    EXPECT_EQ(fs::current_path(), root);
    setenv("LUMRX_DRIVES", ("Z=" + root.string() + "/sub").c_str(), 1);  // the cwd is outside
    EXPECT_EQ(currentDirectoryName(here), DriveStatus::notMapped);
    EXPECT_EQ(full(u"rel"), u"");
    EXPECT_EQ(lastStatus, DriveStatus::notMapped);
}

TEST_F(Drives, ParsesMountTables) {
    MountTable table = MountTable::parse(
        "22 1 0:21 / /proc rw - proc proc rw\n"
        "not a mount line\n"
        "\n"
        "30 1 8:17 / /mnt/a\\040b rw,relatime shared:1 master:2 - vfat /dev/sdb\\0401 rw\n"
        "31 1 x:y / /mnt/bad rw - ext4 /dev/x rw\n"
        "32 1 8:0 / relative rw - ext4 /dev/x rw\n"
        "33 1 8:0 / /mnt/nodash rw ext4 /dev/x rw\n"
        "34 1 7:1 / /mnt/a\\040b/c\\134d rw - iso9660 /dev/loop1 ro\n"
        "35 1 0:50 / /mnt/a\\040b/c\\134d rw - tmpfs tmpfs rw\n"
        "36 1 99999999999:1 / /mnt/huge rw - ext4 /dev/x rw\n"
        "37 1 0:51 / /mnt/end\\04 rw - ext4 /dev/x\\ rw");
    ASSERT_EQ(table.entries().size(), 5u);
    EXPECT_EQ(table.entries()[4].mountPoint, u"/mnt/end\\04");  // a cut escape stays text
    const MountEntry& fat = table.entries()[1];
    EXPECT_EQ(fat.mountPoint, u"/mnt/a b");
    EXPECT_EQ(fat.fileSystem, u"vfat");
    EXPECT_EQ(fat.source, u"/dev/sdb 1");
    EXPECT_EQ(fat.deviceMajor, 8u);
    EXPECT_EQ(fat.deviceMinor, 17u);
    EXPECT_EQ(table.find(u"/mnt/a b/x"), &fat);
    EXPECT_EQ(table.find(u"/mnt/a bc"), nullptr);  // no root mount in this sample
    EXPECT_EQ(table.find(u"/mnt/a b/c\\d/e")->fileSystem, u"tmpfs");  // the last of equals
    MountTable unread;
    EXPECT_EQ(MountTable::read(at("absent"), unread), DriveStatus::notAvailable);
    VolumeInformation info;
    EXPECT_EQ(volumeInformation(u"T:", unread, info), DriveStatus::notAvailable);
    EXPECT_EQ(driveType(u"T:", unread), DriveType::unknown);
    ASSERT_EQ(MountTable::readOwn(unread), DriveStatus::ok);
    EXPECT_NE(unread.find(u"/"), nullptr);
}

TEST_F(Drives, ClassifiesVolumesByTheirMounts) {
    struct Case {
        const char* type;
        const char16_t* name;
        DriveType kind;
    };
    for (const Case& c : {Case{"vfat", u"FAT", DriveType::fixed}, Case{"msdos", u"FAT", DriveType::fixed},
                          Case{"iso9660", u"CDFS", DriveType::cdRom}, Case{"ntfs3", u"NTFS", DriveType::fixed},
                          Case{"fuseblk", u"NTFS", DriveType::fixed}, Case{"ext4", u"EXT4", DriveType::fixed},
                          Case{"nfs4", u"NFS4", DriveType::remote}, Case{"fuse.sshfs", u"FUSE.SSHFS", DriveType::remote},
                          Case{"9p", u"9P", DriveType::remote}, Case{"tmpfs", u"TMPFS", DriveType::ramDisk}}) {
        MountTable table = mountedAs(c.type);
        VolumeInformation info;
        ASSERT_EQ(volumeInformation(u"T:\\", table, info), DriveStatus::ok) << c.type;
        EXPECT_EQ(info.fileSystemName, c.name) << c.type;
        EXPECT_EQ(driveType(u"t:/", table), c.kind) << c.type;
        bool fat = c.name == std::u16string(u"FAT");
        EXPECT_EQ((info.fileSystemFlags & kVolumeSearchesCaseSensitive) != 0, !fat) << c.type;
    }
    EXPECT_EQ(driveType(u"Q:\\"), DriveType::noRootDirectory);
    EXPECT_EQ(driveType(u"T:\\sub"), DriveType::noRootDirectory);  // no root
    setenv("LUMRX_DRIVES", ("M=" + root.string() + "/missing").c_str(), 1);
    EXPECT_EQ(driveType(u"M:"), DriveType::noRootDirectory);
    VolumeInformation info;
    EXPECT_EQ(volumeInformation(u"M:", info), DriveStatus::notAvailable);
    EXPECT_EQ(volumeInformation(u"Q:", info), DriveStatus::notMapped);
}

TEST_F(Drives, ReadsLabelsAndSerialsFromDeviceImages) {
    auto image = [&](const std::string& name, size_t size, size_t at, const std::string& bytes) {
        std::string data(size, '\0');
        data.replace(at, bytes.size(), bytes);
        std::ofstream(root / name, std::ios::binary) << data;
        return (root / name).string();
    };
    std::string fat16 = image("fat16.img", 512, 0x26, std::string("\x29\xCD\xAB\x34\x12LUM\x8E" "DISK   ", 16));
    std::string fat32 = image("fat32.img", 512, 0x42, std::string("\x29\x01\x02\x03\x04NO NAME    ", 16));
    for (const std::string& img : {fat16, fat32}) {
        std::fstream f(img, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(510) << "\x55\xAA";
        if (img == fat16) f.seekp(0x16) << '\x09';  // a 16-bit sectors-per-FAT count
    }
    std::string iso = image("cd.iso", 17 * 2048, 16 * 2048, std::string("\x01" "CD001") + std::string(34, ' ') + "CAD_DATA");
    VolumeInformation info;
    ASSERT_EQ(volumeInformation(u"T:", mountedAs("vfat", fat16), info), DriveStatus::ok);
    EXPECT_EQ(info.label, u"LUM\u00C4DISK");  // read in the OEM code page
    EXPECT_EQ(info.serialNumber, 0x1234ABCDu);
    ASSERT_EQ(volumeInformation(u"T:", mountedAs("vfat", fat32), info), DriveStatus::ok);
    EXPECT_EQ(info.label, u"");
    EXPECT_EQ(info.serialNumber, 0x04030201u);
    ASSERT_EQ(volumeInformation(u"T:", mountedAs("iso9660", iso), info), DriveStatus::ok);
    EXPECT_EQ(info.label, u"CAD_DATA");
    for (const std::string& notADisk : {root.string(), root.string() + "/absent", std::string("/dev/null")}) {
        ASSERT_EQ(volumeInformation(u"T:", mountedAs("vfat", notADisk), info), DriveStatus::ok);
        EXPECT_EQ(info.label, u"") << notADisk;
    }
}

TEST_F(Drives, DescribesTheRealVolumeAndItsRoom) {
    fs::create_directories(root / "sub" / "deeper");
    setenv("LUMRX_DRIVES", ("T=" + root.string() + ";U=" + root.string() + "/sub/deeper").c_str(), 1);
    VolumeInformation t, u;
    ASSERT_EQ(volumeInformation(u"T:\\", t), DriveStatus::ok);
    ASSERT_EQ(volumeInformation(u"U:", u), DriveStatus::ok);
    EXPECT_EQ(t.serialNumber, u.serialNumber);  // one file system
    EXPECT_EQ(t.maxComponentLength, 255u);
    EXPECT_FALSE(t.fileSystemName.empty());
    EXPECT_NE(t.fileSystemFlags & kVolumePreservesCase, 0u);
    DiskSpace space;
    ClusterSpace clusters;
    ASSERT_EQ(diskSpace(u"T:", space), DriveStatus::ok);
    ASSERT_EQ(clusterSpace(u"T:", clusters), DriveStatus::ok);
    EXPECT_GT(space.totalBytes, 0u);
    EXPECT_LE(space.freeBytesToCaller, space.totalFreeBytes);
    EXPECT_LE(space.totalFreeBytes, space.totalBytes);
    std::uint64_t cluster = std::uint64_t(clusters.sectorsPerCluster) * clusters.bytesPerSector;
    ASSERT_GT(cluster, 0u);
    if (clusters.totalClusters != 0xFFFFFFFFu) {
        EXPECT_EQ(cluster * clusters.totalClusters, space.totalBytes);
    }
    std::uint64_t freeByClusters = cluster * clusters.freeClusters;  // others may write between
    EXPECT_LT(std::max(freeByClusters, space.freeBytesToCaller) - std::min(freeByClusters, space.freeBytesToCaller),
              std::uint64_t(1) << 30);
    EXPECT_EQ(diskSpace(u"Q:", space), DriveStatus::notMapped);
    EXPECT_EQ(clusterSpace(u"T:\\sub", clusters), DriveStatus::badName);
}

TEST_F(Drives, NamesTakenInADirectoryWithoutEnteringIt) {
    std::ofstream(root / "sub" / "f.txt") << "x";
    std::ofstream(root / "top.txt") << "x";
    setenv("LUMRX_SHARES", ("srv/share=" + (root / "sub").string()).c_str(), 1);
    std::u16string path;
    ASSERT_EQ(posixPathIn(u"T:\\sub", u"f.txt", path), DriveStatus::ok);
    EXPECT_EQ(path, at("sub/f.txt"));
    ASSERT_EQ(posixPathIn(u"T:\\sub\\", u"..\\..\\..\\top.txt", path), DriveStatus::ok);
    EXPECT_EQ(path, at("top.txt"));  // ".." stops at the drive's folder
    ASSERT_EQ(posixPathIn(u"\\\\srv\\share", u"\\f.txt", path), DriveStatus::ok);
    EXPECT_EQ(path, at("sub/f.txt"));  // the share's root, not the drive's
    ASSERT_EQ(posixPathIn(u"T:\\sub", u"T:f.txt", path), DriveStatus::ok);
    EXPECT_EQ(path, at("sub/f.txt"));  // drive-relative on the directory's own drive
    ASSERT_EQ(posixPathIn(u"\\\\srv\\share", u"T:top.txt", path), DriveStatus::ok);
    EXPECT_EQ(path, at("top.txt"));  // on another drive: that drive's root
    EXPECT_EQ(posixPathIn(u"T:\\missing", u"x", path), DriveStatus::notAvailable);
    EXPECT_EQ(posixPathIn(u"T:\\top.txt", u"x", path), DriveStatus::notAvailable);

    EXPECT_EQ(attributesIn(u"T:\\sub", u"f.txt"), kAttributeNormal);
    EXPECT_EQ(attributesIn(u"T:\\sub", u"."), kAttributeDirectory);
    EXPECT_EQ(attributesIn(u"T:\\missing", u"..\\top.txt"), kNoAttributes);
    EXPECT_EQ(attributesIn(u"T:\\top.txt", u"."), kNoAttributes);
    EXPECT_EQ(attributesIn(u"T:\\missing", u"T:\\top.txt"), kNoAttributes);
    EXPECT_EQ(attributesIn(u"", u"T:\\top.txt"), kAttributeNormal);
    EXPECT_EQ(attributesIn(u"T:\\sub", u"a<\tb"), kNoAttributes);
    EXPECT_EQ(fs::current_path(), home);
}

}  // namespace
