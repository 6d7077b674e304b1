// Volume descriptors: the validity rules of each kind as text rules, the
// classification of file-system names, the list, and what a volume tells of itself.
#include "ctyuipathname.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace fs = std::filesystem;

namespace {

// Reaches the protected list and classification of the path class.
struct VolumeProbe : CTyUiPathname {
    using CTyUiPathname::ClassifyFileSystem;
    using CTyUiPathname::FindVolumeDescriptor;
    using CTyUiPathname::GetFileSystem;
};

KvString Text(const std::u16string& s) { return KvString(s.c_str()); }

// A drive path of exactly `length` characters.
KvString PathOfLength(int length) { return Text(u"C:\\" + std::u16string(length - 3, u'a')); }

class VolumeDescriptorTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() /
                ("ctyuivol-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                 "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(m_dir);
        setenv("LUMRX_DRIVES", ("T=" + m_dir.string()).c_str(), 1);
        unsetenv("LUMRX_SHARES");
    }
    void TearDown() override {
        unsetenv("LUMRX_DRIVES");
        unsetenv("LUMRX_ACP");
        fs::remove_all(m_dir);
    }
    fs::path m_dir;
    // Q is unmapped: descriptors of it are pure text rules with the defaults.
    CTyUiNTFSVolumeDescriptor m_ntfs{KvString(u"Q:")};
    CTyUiVFATVolumeDescriptor m_vfat{KvString(u"Q:")};
    CTyUiFATVolumeDescriptor m_fat{KvString(u"Q:")};
    CTyUiCDFSVolumeDescriptor m_cdfs{KvString(u"Q:")};
    CTyUiNOFSVolumeDescriptor m_nofs{KvString(u"Q:")};
};

TEST_F(VolumeDescriptorTest, PathLengthLimitsOfEachKind) {
    for (const CTyUiVolumeDescriptor* d : {static_cast<CTyUiVolumeDescriptor*>(&m_ntfs),
                                           static_cast<CTyUiVolumeDescriptor*>(&m_vfat),
                                           static_cast<CTyUiVolumeDescriptor*>(&m_cdfs),
                                           static_cast<CTyUiVolumeDescriptor*>(&m_nofs)}) {
        EXPECT_TRUE(d->IsValidPath(PathOfLength(259), false)) << d->GetFsType();
        EXPECT_FALSE(d->IsValidPath(PathOfLength(260), false)) << d->GetFsType();
    }
    // The doubled separator ends the component walk early, so only the length counts.
    KvString fat81 = Text(u"C:\\" + std::u16string(68, u'x') + u"\\\\FILE.TXT");
    ASSERT_EQ(fat81.length(), 81);
    EXPECT_TRUE(m_fat.IsValidPath(fat81, false));
    EXPECT_FALSE(m_fat.IsValidPath(Text(u"C:\\x" + std::u16string(fat81.kwszPtr() + 3)), false));
    EXPECT_EQ(m_fat.GetMaxPath(), 81);
    EXPECT_EQ(m_ntfs.GetMaxComponent(), 255);
    EXPECT_FALSE(m_ntfs.IsValidComponent(Text(std::u16string(256, u'n')), false));
    EXPECT_TRUE(m_ntfs.IsValidComponent(Text(std::u16string(255, u'n')), false));
}

TEST_F(VolumeDescriptorTest, SeparatorsColonsAndControlCharacters) {
    EXPECT_TRUE(m_ntfs.IsValidPath(KvString(u"\\\\srv\\share\\a"), false));
    EXPECT_FALSE(m_ntfs.IsValidPath(KvString(u"\\\\srv\\share\\\\a"), false));
    EXPECT_FALSE(m_cdfs.IsValidPath(KvString(u"C:\\a\\\\b"), false));
    EXPECT_FALSE(m_ntfs.IsValidPath(KvString(u"1:\\a"), false));
    EXPECT_FALSE(m_ntfs.IsValidPath(KvString(u"C:\\a:b"), false));
    EXPECT_FALSE(m_fat.IsValidPath(KvString(u"ab:c"), false));
    for (const CTyUiVolumeDescriptor* d :
         {static_cast<CTyUiVolumeDescriptor*>(&m_ntfs), static_cast<CTyUiVolumeDescriptor*>(&m_vfat),
          static_cast<CTyUiVolumeDescriptor*>(&m_fat), static_cast<CTyUiVolumeDescriptor*>(&m_cdfs),
          static_cast<CTyUiVolumeDescriptor*>(&m_nofs)}) {
        EXPECT_FALSE(d->IsValidPath(KvString(u"C:\\A\tB"), true)) << d->GetFsType();
        EXPECT_FALSE(d->IsValidComponent(KvString(u"A\x01"), true)) << d->GetFsType();
    }
}

TEST_F(VolumeDescriptorTest, ForbiddenSetsFollowTheWildcardFlag) {
    EXPECT_TRUE(m_ntfs.IsValidPath(KvString(u"C:\\a*.t?t"), true));
    EXPECT_FALSE(m_ntfs.IsValidPath(KvString(u"C:\\a*.txt"), false));
    EXPECT_TRUE(m_vfat.IsValidComponent(KvString(u"a?.txt"), true));
    EXPECT_FALSE(m_vfat.IsValidComponent(KvString(u"a?.txt"), false));
    EXPECT_FALSE(m_ntfs.IsValidComponent(KvString(u"a\\b"), true));
    EXPECT_FALSE(m_ntfs.IsValidComponent(KvString(u"a\"b"), true));
    // The bar passes CDFS and NOFS paths, and NTFS refuses it.
    EXPECT_TRUE(m_cdfs.IsValidPath(KvString(u"C:\\a|b"), false));
    EXPECT_TRUE(m_nofs.IsValidPath(KvString(u"C:\\a|b"), false));
    EXPECT_FALSE(m_ntfs.IsValidPath(KvString(u"C:\\a|b"), true));
    EXPECT_TRUE(m_cdfs.IsValidComponent(KvString(u"a|b"), false));
    // NOFS takes no component at all.
    EXPECT_FALSE(m_nofs.IsValidComponent(KvString(u"a"), true));
}

TEST_F(VolumeDescriptorTest, FatShortNames) {
    EXPECT_TRUE(m_fat.IsValidComponent(KvString(u"ABCDEFGH.TXT"), false));
    EXPECT_TRUE(m_fat.IsValidComponent(KvString(u"ABCDEFGH"), false));
    EXPECT_FALSE(m_fat.IsValidComponent(KvString(u"ABCDEFGHI"), false));
    EXPECT_FALSE(m_fat.IsValidComponent(KvString(u"ABCDEFGHI.T"), false));
    EXPECT_FALSE(m_fat.IsValidComponent(KvString(u"A.B.C"), false));
    EXPECT_FALSE(m_fat.IsValidComponent(KvString(u"A.TEXT"), false));
    EXPECT_TRUE(m_fat.IsValidComponent(KvString(u"."), false));
    EXPECT_TRUE(m_fat.IsValidComponent(KvString(u".."), false));
    for (const char16_t* bad : {u"A B", u"A;B", u"A+B", u"A,B", u"A[B", u"A]B", u"A=B"})
        EXPECT_FALSE(m_fat.IsValidComponent(KvString(bad), true));
    EXPECT_TRUE(m_fat.IsValidComponent(KvString(u"A*.?"), true));
    EXPECT_FALSE(m_fat.IsValidComponent(KvString(u"A*.?"), false));
    EXPECT_TRUE(m_fat.IsValidPath(KvString(u"C:\\DIR\\FILE.TXT"), false));
    EXPECT_FALSE(m_fat.IsValidPath(KvString(u"C:\\LONGDIRNAME\\FILE.TXT"), false));
    // What stands in front of a doubled separator is not looked at.
    EXPECT_TRUE(m_fat.IsValidPath(KvString(u"C:\\LONGDIRNAME\\\\FILE.TXT"), false));
}

TEST_F(VolumeDescriptorTest, NamesEqualIgnoresCaseAndRefusesNull) {
    KvString upper(u"T:\\DIR");
    EXPECT_TRUE(m_ntfs.NamesEqual(KvString(u"t:\\dir"), &upper));
    EXPECT_FALSE(m_ntfs.NamesEqual(KvString(u"t:\\dirx"), &upper));
    EXPECT_FALSE(m_ntfs.NamesEqual(static_cast<const char16_t*>(nullptr), nullptr));
    EXPECT_FALSE(m_ntfs.IsCaseSensitive());
}

TEST_F(VolumeDescriptorTest, ClassificationOfFileSystemNames) {
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"ntfs"), 255), FS_TYPE_NTFS);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"FAT"), 12), FS_TYPE_FAT);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"fat"), 255), FS_TYPE_VFAT);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"Hpfs"), 255), FS_TYPE_HPFS);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"cdfs"), 255), FS_TYPE_CDFS);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"nfs4"), 255), FS_TYPE_NFS);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"EXT4"), 12), FS_TYPE_FAT);
    EXPECT_EQ(VolumeProbe::ClassifyFileSystem(KvString(u"EXT4"), 255), FS_TYPE_VFAT);

    KvString empty, unmapped(u"Q:"), mapped(u"T:");
    EXPECT_EQ(VolumeProbe::GetFileSystem(empty), FS_TYPE_EMPTY);
    EXPECT_EQ(VolumeProbe::GetFileSystem(unmapped), FS_TYPE_NOFS);
    EXPECT_EQ(unmapped, u"Q:\\");
    FS_TYPE local = VolumeProbe::GetFileSystem(mapped);
    EXPECT_TRUE(local == FS_TYPE_VFAT || local == FS_TYPE_NTFS) << local;
}

TEST_F(VolumeDescriptorTest, TheListKeepsOneDescriptorPerExactName) {
    setenv("LUMRX_SHARES", ("srv/share=" + m_dir.string()).c_str(), 1);
    const CTyUiVolumeDescriptor* t = VolumeProbe::FindVolumeDescriptor(KvString(u"T:"));
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(VolumeProbe::FindVolumeDescriptor(KvString(u"T:")), t);
    EXPECT_EQ(*t->GetVolumeName(), u"T:");
    const CTyUiVolumeDescriptor* lower = VolumeProbe::FindVolumeDescriptor(KvString(u"\\\\srv\\share"));
    const CTyUiVolumeDescriptor* upper = VolumeProbe::FindVolumeDescriptor(KvString(u"\\\\SRV\\SHARE"));
    ASSERT_NE(lower, nullptr);
    ASSERT_NE(upper, nullptr);
    EXPECT_NE(lower, upper);
    EXPECT_TRUE(lower->GetFlags() & CTyUiVolumeDescriptor::kRemote);
    EXPECT_EQ(VolumeProbe::FindVolumeDescriptor(KvString()), nullptr);
    // No mapping: no volume. A mapped directory that is gone: the NOFS kind.
    EXPECT_EQ(VolumeProbe::FindVolumeDescriptor(KvString(u"Q:")), nullptr);
    setenv("LUMRX_DRIVES", ("T=" + m_dir.string() + ";R=" + (m_dir / "gone").string()).c_str(), 1);
    const CTyUiVolumeDescriptor* gone = VolumeProbe::FindVolumeDescriptor(KvString(u"R:"));
    ASSERT_NE(gone, nullptr);
    EXPECT_EQ(gone->GetFsType(), FS_TYPE_NOFS);
    EXPECT_EQ(gone->GetMaxComponent(), 255);
    EXPECT_FALSE(gone->IsSameVolume());
}

TEST_F(VolumeDescriptorTest, WhatAMappedVolumeTellsOfItself) {
    CTyUiVFATVolumeDescriptor local{KvString(u"T:")};
    unsigned kind = local.GetFlags() & (CTyUiVolumeDescriptor::kFixed | CTyUiVolumeDescriptor::kRamDisk |
                                        CTyUiVolumeDescriptor::kRemovable);
    EXPECT_NE(kind, 0u);
    EXPECT_TRUE(local.IsSameVolume());
    EXPECT_TRUE(local.PreservesCase());
    uint64_t available = fs::space(m_dir).available;
    uint64_t reported = uint64_t(local.GetFreeKilobytes());
    EXPECT_NEAR(double(reported), double(uint32_t(available >> 10)), 64.0 * 1024);
    EXPECT_TRUE(local.HasFreeBytes(0));
    EXPECT_EQ(local.HasFreeBytes(0xFFFFFFFFu), available > 0xFFFFFFFFu);
    // An unmapped volume can't be asked: the free room is the fixed fallback.
    EXPECT_EQ(m_ntfs.GetFreeKilobytes(), 0x7FFFFFFFu >> 10);
    EXPECT_EQ(m_ntfs.GetFlags(), 0u);
    EXPECT_FALSE(m_ntfs.IsSameVolume());
}

TEST_F(VolumeDescriptorTest, MultibyteLocaleFollowsTheCodePage) {
    setenv("LUMRX_ACP", "1252", 1);
    EXPECT_FALSE(CTyUiNTFSVolumeDescriptor(KvString(u"Q:")).IsMultibyteLocale());
    setenv("LUMRX_ACP", "932", 1);
    EXPECT_TRUE(CTyUiNTFSVolumeDescriptor(KvString(u"Q:")).IsMultibyteLocale());
}

}  // namespace
