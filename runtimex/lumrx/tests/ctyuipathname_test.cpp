// The path class on a real temporary directory reached through the drive T:.
#include "ctyuipathname.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

std::u16string Str(const KvString& s) { return std::u16string(s.kwszPtr()); }
std::u16string Str(const char16_t* s) { return s ? std::u16string(s) : u"<null>"; }
std::string U8(const char16_t* s) { return KvString(s).utf8Ptr(); }

class PathnameTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() /
                ("ctyuipath-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                 "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(m_dir / "sub.d");
        std::ofstream(m_dir / "sub.d" / "file.txt") << "content";
        setenv("LUMRX_DRIVES", ("T=" + m_dir.string()).c_str(), 1);
        setenv("LUMRX_SHARES", ("srv/share=" + m_dir.string()).c_str(), 1);
        m_savedDirectory = fs::current_path();
    }
    void TearDown() override {
        fs::current_path(m_savedDirectory);
        unsetenv("LUMRX_DRIVES");
        unsetenv("LUMRX_SHARES");
        fs::remove_all(m_dir);
    }
    CTyUiPathname Parsed(const char16_t* text, bool wildcards = false) {
        CTyUiPathname p;
        EXPECT_EQ(p.Parse(text, wildcards), PathOk) << U8(text);
        return p;
    }
    fs::path m_dir;
    fs::path m_savedDirectory;
};

TEST_F(PathnameTest, MalformedTextsFailAndLeaveTheObjectEmpty) {
    CTyUiPathname p = Parsed(u"T:\\sub.d\\file.txt");
    ASSERT_EQ(p.GetPathType(), CTyUiPathname::kFile);
    for (const char16_t* bad : {u"", u"   ", u"\"\"", u"T:\\a:b", u"ab:c", u"\\\\server",
                                u"\\\\server\\", u"T:\\a\"b", u"T:\\a\tb", u"T:\\a<b",
                                u"Q:\\unmapped", u"\\\\other\\share\\x"}) {
        EXPECT_EQ(p.Parse(bad), PathBadText) << U8(bad);
        EXPECT_TRUE(p.IsEmpty());
        EXPECT_EQ(p.GetPathString(), nullptr);
        p = Parsed(u"T:\\x");
    }
    EXPECT_EQ(p.Parse(nullptr), PathBadText);
    EXPECT_EQ(p.ParseRelative(u"file.txt", nullptr), PathBadText);
    EXPECT_EQ(p.ParseRelative(u"\\file.txt", nullptr), PathBadText);
    CTyUiPathname empty;
    EXPECT_EQ(p.ParseRelative(u"file.txt", &empty), PathBadText);
}

TEST_F(PathnameTest, LengthLimitOfTheVolume) {
    std::u16string name = u"T:\\" + std::u16string(256, u'a');
    EXPECT_EQ(Parsed(name.c_str()).GetPathType(), CTyUiPathname::kNotFound);
    CTyUiPathname p;
    EXPECT_EQ(p.Parse((name + u"a").c_str()), PathBadText);
}

TEST_F(PathnameTest, DevicesAreUpperCasedAndHaveNoVolume) {
    for (const char16_t* device : {u"com1", u"T:\\dir\\Lpt2.txt", u"aux.dat", u"prn:"}) {
        CTyUiPathname p = Parsed(device);
        EXPECT_EQ(p.GetPathType(), CTyUiPathname::kDevice) << U8(device);
        EXPECT_EQ(p.GetVolumeDescriptor(), nullptr);
        KvString upper(device);
        upper.makeUpper();
        EXPECT_EQ(Str(p.GetPathString()), Str(upper));
        EXPECT_TRUE(p.Exists());
    }
    // A drive and its colon is too short to be a device; COM5 is not in the list.
    EXPECT_EQ(Parsed(u"t:").GetPathType(), CTyUiPathname::kDirectory);
    EXPECT_EQ(Parsed(u"T:\\com5").GetPathType(), CTyUiPathname::kNotFound);
}

TEST_F(PathnameTest, FormsCategoriesAndTheProbe) {
    CTyUiPathname p = Parsed(u"  \"t:/sub.d/file.txt\"  ");
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\sub.d\\file.txt");
    EXPECT_EQ(p.GetPathType(), CTyUiPathname::kFile);
    EXPECT_TRUE(p.WasAbsolute());
    EXPECT_TRUE(p.HadPrefix());
    EXPECT_EQ(Parsed(u"T:\\sub.d").GetPathType(), CTyUiPathname::kDirectory);
    EXPECT_EQ(Parsed(u"T:\\missing").GetPathType(), CTyUiPathname::kNotFound);

    CTyUiPathname unc = Parsed(u"\\\\srv\\share");
    EXPECT_EQ(Str(unc.GetPathString()), u"\\\\srv\\share\\");
    EXPECT_TRUE(unc.WasAbsolute());
    EXPECT_EQ(unc.GetPathType(), CTyUiPathname::kDirectory);
    EXPECT_EQ(Parsed(u"\\\\srv\\share\\sub.d\\file.txt").GetPathType(), CTyUiPathname::kFile);

    CTyUiPathname base = Parsed(u"T:\\sub.d\\");
    CTyUiPathname rel;
    ASSERT_EQ(rel.ParseRelative(u"file.txt", &base), PathOk);
    EXPECT_EQ(Str(rel.GetPathString()), u"file.txt");
    EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kFile);
    EXPECT_FALSE(rel.HadPrefix());
    EXPECT_FALSE(rel.WasAbsolute());
    KvString full;
    ASSERT_TRUE(rel.GetFullPath(full));
    EXPECT_EQ(Str(full), u"T:\\sub.d\\file.txt");

    CTyUiPathname root;
    ASSERT_EQ(root.ParseRelative(u"\\sub.d", &base), PathOk);
    EXPECT_TRUE(root.WasRoot());
    EXPECT_EQ(root.GetPathType(), CTyUiPathname::kDirectory);

    // Parse works against the current directory.
    fs::current_path(m_dir / "sub.d");
    CTyUiPathname here = Parsed(u"file.txt");
    EXPECT_EQ(here.GetPathType(), CTyUiPathname::kFile);
    here.GetFullPath(full);
    // The drive whose directory holds the current directory most closely names it.
    EXPECT_EQ(Str(full), u"T:\\sub.d\\file.txt");
    EXPECT_EQ(fs::current_path(), m_dir / "sub.d");
}

TEST_F(PathnameTest, WildcardsAreTakenOnlyWhenAllowed) {
    CTyUiPathname p;
    EXPECT_EQ(p.Parse(u"T:\\*.txt", false), PathBadText);
    ASSERT_EQ(p.Parse(u"T:\\sub.d\\f?le.txt", true), PathOk);
    EXPECT_EQ(p.GetPathType(), CTyUiPathname::kWildcard);
    EXPECT_FALSE(p.Exists());
}

TEST_F(PathnameTest, CopiesAreDeep) {
    CTyUiPathname a = Parsed(u"T:\\sub.d\\file.txt");
    CTyUiPathname b(a);
    a.TrimComponent();
    EXPECT_EQ(Str(b.GetPathString()), u"T:\\sub.d\\file.txt");
    b = &a;
    EXPECT_EQ(Str(b.GetPathString()), u"T:\\sub.d");
    b = b;
    EXPECT_EQ(Str(b.GetPathString()), u"T:\\sub.d");
}

TEST_F(PathnameTest, PiecesOfTheName) {
    CTyUiPathname empty;
    KvString out(u"kept");
    empty.GetBasename(out);
    EXPECT_EQ(Str(out), u"kept");
    empty.GetFilename(out);
    EXPECT_EQ(Str(out), u"");
    out = u"kept";
    empty.GetExtension(out);
    EXPECT_EQ(Str(out), u"");

    CTyUiPathname dir = Parsed(u"T:\\sub.d");
    dir.GetFilename(out);
    EXPECT_EQ(Str(out), u"");
    dir.GetExtension(out);
    EXPECT_EQ(Str(out), u"d");
    CTyUiPathname dotted = Parsed(u"T:\\a.b\\.cfg");
    dotted.GetFilename(out);
    EXPECT_EQ(Str(out), u"");
    dotted.GetExtension(out);
    EXPECT_EQ(Str(out), u"cfg");

    CTyUiPathname parent;
    Parsed(u"T:\\sub.d\\file.txt").GetParent(parent);
    EXPECT_EQ(Str(parent.GetPathString()), u"T:\\sub.d\\");
    EXPECT_EQ(parent.GetPathType(), CTyUiPathname::kDirectory);
    CTyUiPathname base = Parsed(u"T:\\sub.d\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"file.txt", &base), PathOk);
    rel.GetParent(parent);
    EXPECT_EQ(Str(parent.GetPathString()), u"T:\\sub.d\\");
    EXPECT_TRUE(parent.WasAbsolute());
}

TEST_F(PathnameTest, TrimmingStopsAtTheRoot) {
    CTyUiPathname p = Parsed(u"T:\\");
    EXPECT_EQ(p.Trim(), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\");
    EXPECT_EQ(p.TrimSlash(), PathAtRoot);
    p = Parsed(u"T:x");
    EXPECT_EQ(p.Trim(), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\");
    p = Parsed(u"T:\\sub.d\\file.txt");
    EXPECT_EQ(p.Trim(), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\sub.d\\");
    EXPECT_EQ(p.GetPathType(), CTyUiPathname::kNotFound);
    EXPECT_EQ(p.TrimSlash(), PathOk);
    EXPECT_EQ(p.TrimComponent(), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\");

    CTyUiPathname unc = Parsed(u"\\\\srv\\share\\");
    EXPECT_EQ(unc.TrimSlash(), PathAtRoot);
    EXPECT_EQ(unc.TrimComponent(), PathOk);
    EXPECT_EQ(Str(unc.GetPathString()), u"\\\\srv\\share");
    EXPECT_EQ(unc.TrimComponent(), PathAtRoot);

    CTyUiPathname base = Parsed(u"T:\\sub.d\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"file.txt", &base), PathOk);
    EXPECT_EQ(rel.Trim(), PathAtRoot);
    EXPECT_EQ(rel.TrimComponent(), PathAtRoot);
    CTyUiPathname root;
    ASSERT_EQ(root.ParseRelative(u"\\sub.d", &base), PathOk);
    EXPECT_EQ(root.TrimComponent(), PathOk);
    EXPECT_EQ(Str(root.GetPathString()), u"\\");
    EXPECT_EQ(CTyUiPathname().Trim(), PathNoPath);
}

TEST_F(PathnameTest, AppendingIsJudgedBeforeItIsKept) {
    CTyUiPathname p = Parsed(u"T:\\sub.d");
    EXPECT_EQ(p.Append(u"x"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\sub.dx");
    EXPECT_EQ(p.AppendComponent(u"y"), PathOk);
    EXPECT_EQ(p.AppendSlash(), PathOk);
    EXPECT_EQ(p.AppendComponent(u"z"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\sub.dx\\y\\z");
    EXPECT_EQ(p.AppendComponent(u"a|b"), PathBadText);
    EXPECT_EQ(p.Append(std::u16string(250, u'q').c_str()), PathBadText);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\sub.dx\\y\\z");
    CTyUiPathname drive = Parsed(u"T:");
    EXPECT_EQ(drive.AppendSlash(), PathOk);
    EXPECT_EQ(Str(drive.GetPathString()), u"T:");
    EXPECT_EQ(CTyUiPathname().Append(u"x"), PathNoPath);
}

TEST_F(PathnameTest, Extensions) {
    CTyUiPathname p = Parsed(u"T:\\a.b\\name");
    EXPECT_TRUE(p.VerifyExtension(u""));
    EXPECT_TRUE(p.VerifyExtension(nullptr));
    EXPECT_FALSE(p.VerifyExtension(u"txt"));
    EXPECT_EQ(p.ReplaceExtensionAlways(u".dwg"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.dwg");
    EXPECT_TRUE(p.VerifyExtension(u"txt;DWG"));
    EXPECT_FALSE(p.VerifyExtension(u"dw;dwgx; dwg"));
    EXPECT_FALSE(p.VerifyExtension(u""));
    EXPECT_EQ(p.ReplaceExtensionIfNoMatch(u"dxf;bak"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.dxf");
    EXPECT_EQ(p.ReplaceExtensionIfNoMatch(u"bak;DXF"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.dxf");
    EXPECT_EQ(p.AddExtensionAlways(u".bak"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.dxf..bak");
    EXPECT_EQ(p.ReplaceExtensionAlways(u""), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.dxf.");
    p.RemoveExtensionAlways();
    p.RemoveExtensionIfMatch(u"dxf");
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name");
    p.RemoveExtensionAlways();
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name");
    EXPECT_EQ(p.AddExtensionIfNoMatch(u"lsp;fas"), PathOk);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.lsp");
    EXPECT_EQ(p.ReplaceExtensionAlways(u"a:b"), PathBadText);
    EXPECT_EQ(p.AddExtensionAlways(nullptr), PathBadText);
    EXPECT_EQ(CTyUiPathname().ReplaceExtensionAlways(nullptr), PathNoPath);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a.b\\name.lsp");
}

TEST_F(PathnameTest, CaseAndBlanksOfTheBaseName) {
    CTyUiPathname p = Parsed(u"T:\\A Dir\\  My File . Txt");
    p.RemoveSpaces();
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\A Dir\\My File. Txt");
    p.BaseToUpper();
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\A Dir\\MY FILE. TXT");
    p.BaseToLower();
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\A Dir\\my file. txt");
}

TEST_F(PathnameTest, PathMatchIgnoresCaseAndTrailingSeparator) {
    CTyUiPathname p = Parsed(u"T:\\sub.d");
    EXPECT_TRUE(p.PathMatch(u"t:\\SUB.D\\"));
    EXPECT_FALSE(p.PathMatch(u"T:\\sub.e"));
    EXPECT_FALSE(p.PathMatch(static_cast<const char16_t*>(nullptr)));
    CTyUiPathname same = Parsed(u"T:\\SUB.D\\");
    EXPECT_TRUE(p.PathMatch(&same));
    CTyUiPathname unc = Parsed(u"\\\\srv\\share\\sub.d");
    EXPECT_FALSE(p.PathMatch(&unc));
}

TEST_F(PathnameTest, DisplayNamesFitTheWidth) {
    const char16_t* text = u"T:\\alpha\\beta\\gamma\\delta\\file.txt";
    CTyUiPathname p = Parsed(text);
    KvString out;
    p.GetDisplayName(out, -1);
    EXPECT_EQ(Str(out), text);
    for (int width = 6; width < 34; ++width) {
        p.GetDisplayName(out, width);
        EXPECT_LE(out.length(), width) << width;
    }
    p.GetDisplayName(out, 22);
    EXPECT_EQ(Str(out), u"T:\\...\\delta\\file.txt");
    // Below 6 the width is 6, where not even the base name fits.
    p.GetDisplayName(out, 2);
    EXPECT_EQ(Str(out), u"f~.txt");
    CTyUiPathname longName = Parsed(u"T:\\averyverylongname.abcdef");
    longName.GetDisplayName(out, 8);
    EXPECT_EQ(Str(out), u"averyv~");
    longName.GetDisplayName(out, 12);
    EXPECT_EQ(Str(out), u"aver~.abcdef");
    CTyUiPathname base = Parsed(u"T:\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"alpha\\beta\\gamma\\file.txt", &base), PathOk);
    rel.GetDisplayName(out, 19);
    EXPECT_EQ(Str(out), u"...\\gamma\\file.txt");
    rel.GetDisplayName(out, 18);
    EXPECT_EQ(Str(out), u"...\\file.txt");
}

TEST_F(PathnameTest, UniqueNames) {
    CTyUiPathname result;
    CTyUiPathname free = Parsed(u"T:\\free.txt");
    ASSERT_TRUE(free.GetUniqueName(result, false));
    EXPECT_EQ(Str(result.GetPathString()), u"T:\\free.txt");

    CTyUiPathname taken = Parsed(u"T:\\sub.d\\file.txt");
    ASSERT_TRUE(taken.GetUniqueName(result, false));
    std::u16string name = Str(result.GetPathString());
    ASSERT_EQ(name.size(), std::u16string(u"T:\\sub.d\\file00000.txt").size()) << U8(name.c_str());
    EXPECT_EQ(name.substr(0, 13), u"T:\\sub.d\\file");
    EXPECT_EQ(name.substr(18), u".txt");
    EXPECT_TRUE(std::all_of(name.begin() + 13, name.begin() + 18, [](char16_t c) { return c >= u'0' && c <= u'9'; }));
    EXPECT_FALSE(result.Exists());

    CTyUiPathname dir = Parsed(u"T:\\sub.d\\nodot");
    ASSERT_TRUE(dir.GetUniqueName(result, true));
    name = Str(result.GetPathString());
    EXPECT_EQ(name.size(), std::u16string(u"T:\\sub.d\\nodot00000").size());

    std::u16string deep = u"T:\\" + std::u16string(248, u'd') + u"\\x.txt";
    CTyUiPathname cramped = Parsed(deep.c_str());
    EXPECT_FALSE(cramped.GetUniqueName(result, true));
    EXPECT_TRUE(result.IsEmpty());
}

TEST_F(PathnameTest, FileOperationsOnTheDrive) {
    CTyUiPathname p = Parsed(u"T:\\sub.d\\new.bin");
    void* handle = nullptr;
    ASSERT_TRUE(p.OpenWriteOnly(handle));
    std::fputs("written", static_cast<FILE*>(handle));
    std::fclose(static_cast<FILE*>(handle));
    EXPECT_TRUE(p.Exists());
    EXPECT_EQ(p.GetPathType(), CTyUiPathname::kFile);
    ASSERT_TRUE(p.OpenReadOnly(handle));
    char text[16] = {};
    std::fgets(text, sizeof text, static_cast<FILE*>(handle));
    std::fclose(static_cast<FILE*>(handle));
    EXPECT_STREQ(text, "written");
    FILE* stream = nullptr;
    ASSERT_TRUE(p.Open(&stream, u"r"));
    std::fclose(stream);
    EXPECT_FALSE(Parsed(u"T:\\missing\\x").OpenReadOnly(handle));
    EXPECT_EQ(handle, reinterpret_cast<void*>(-1));

    CTyUiPathname base = Parsed(u"T:\\sub.d\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"new.bin", &base), PathOk);
    ASSERT_TRUE(rel.Rename(u"renamed.bin"));
    EXPECT_EQ(Str(rel.GetPathString()), u"renamed.bin");
    EXPECT_TRUE(fs::exists(m_dir / "sub.d" / "renamed.bin"));
    EXPECT_EQ(fs::current_path(), m_savedDirectory);
    EXPECT_TRUE(rel.Remove());
    EXPECT_FALSE(rel.Remove());
    EXPECT_FALSE(fs::exists(m_dir / "sub.d" / "renamed.bin"));
}

TEST_F(PathnameTest, OSFindSearchesAsThePlatformDoes) {
    // The program's folder comes before the current folder, LUMRX_PATH before PATH.
    fs::path program = fs::read_symlink("/proc/self/exe").parent_path();
    std::string unique = m_dir.filename().string() + ".txt";
    KvString uniqueName(unique.c_str(), KvString::kUtf8);
    std::ofstream(program / unique) << "program";
    std::ofstream(m_dir / unique) << "current";
    fs::current_path(m_dir);
    CTyUiPathname found;
    bool inProgram = found.ParseAndOSFind(uniqueName.kwszPtr());
    fs::remove(program / unique);
    ASSERT_TRUE(inProgram);
    EXPECT_EQ(found.GetPathType(), CTyUiPathname::kFile);
    KvString expected((program / unique).c_str(), KvString::kUtf8);
    expected.replace(u'/', u'\\');
    EXPECT_EQ(Str(found.GetPathString()), u"Z:" + Str(expected));
    ASSERT_TRUE(found.ParseAndOSFind(uniqueName.kwszPtr()));
    EXPECT_EQ(Str(found.GetPathString()), u"T:\\" + Str(uniqueName));

    fs::current_path(m_savedDirectory);
    setenv("LUMRX_PATH", (m_dir / "sub.d").c_str(), 1);
    bool inLumrxPath = found.ParseAndOSFind(u"file.txt");
    unsetenv("LUMRX_PATH");
    ASSERT_TRUE(inLumrxPath);
    EXPECT_EQ(Str(found.GetPathString()), u"T:\\sub.d\\file.txt");

    // A name with a folder is taken as it is, against the current folder.
    fs::current_path(m_dir);
    ASSERT_TRUE(found.ParseAndOSFind(u"sub.d\\file.txt"));
    EXPECT_EQ(Str(found.GetPathString()), u"T:\\sub.d\\file.txt");
    EXPECT_FALSE(found.ParseAndOSFind(u"sub.d"));
    EXPECT_TRUE(found.IsEmpty());
    EXPECT_FALSE(found.ParseAndOSFind(u"file.txt"));
    EXPECT_FALSE(found.ParseAndOSFind(nullptr));
}

TEST_F(PathnameTest, FileOperationsKeepTheirMeaning) {
    auto contentOf = [](const fs::path& file) {
        std::ifstream in(file);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    std::ofstream(m_dir / "other.txt") << "other";
    // A rename never replaces an existing target, by an absolute or a relative name.
    CTyUiPathname file = Parsed(u"T:\\sub.d\\file.txt");
    EXPECT_FALSE(file.Rename(u"T:\\other.txt"));
    EXPECT_EQ(Str(file.GetPathString()), u"T:\\sub.d\\file.txt");
    EXPECT_EQ(contentOf(m_dir / "other.txt"), "other");
    EXPECT_EQ(contentOf(m_dir / "sub.d" / "file.txt"), "content");
    CTyUiPathname base = Parsed(u"T:\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"other.txt", &base), PathOk);
    EXPECT_FALSE(rel.Rename(u"sub.d\\file.txt"));
    EXPECT_EQ(contentOf(m_dir / "sub.d" / "file.txt"), "content");
    EXPECT_FALSE(rel.Rename(u"sub.d"));
    EXPECT_TRUE(fs::is_directory(m_dir / "sub.d"));
    ASSERT_TRUE(rel.Rename(u"moved.txt"));
    EXPECT_EQ(contentOf(m_dir / "moved.txt"), "other");

    // Removing deletes files only.
    CTyUiPathname folder = Parsed(u"T:\\empty.d");
    fs::create_directory(m_dir / "empty.d");
    EXPECT_FALSE(folder.Remove());
    EXPECT_TRUE(fs::is_directory(m_dir / "empty.d"));
    ASSERT_EQ(rel.ParseRelative(u"empty.d", &base), PathOk);
    EXPECT_FALSE(rel.Remove());
    EXPECT_TRUE(fs::is_directory(m_dir / "empty.d"));

    // A folder is never opened.
    void* handle = nullptr;
    EXPECT_FALSE(folder.OpenReadOnly(handle));
    EXPECT_EQ(handle, reinterpret_cast<void*>(-1));
    EXPECT_FALSE(folder.OpenWriteOnly(handle));
    EXPECT_EQ(handle, reinterpret_cast<void*>(-1));
    FILE* stream = nullptr;
    EXPECT_FALSE(folder.Open(&stream, u"r"));
    EXPECT_EQ(stream, nullptr);
    EXPECT_FALSE(Parsed(u"T:\\").Open(&stream, u"rb"));
    EXPECT_TRUE(fs::is_directory(m_dir / "empty.d"));
}

TEST_F(PathnameTest, DevicesAnswerEveryOperationWithAStatus) {
    KvString out;
    CTyUiPathname result(Parsed(u"T:\\x")), device;
    ASSERT_EQ(device.Parse(u"COM1"), PathOk);
    EXPECT_FALSE(device.GetUniqueName(result, false));
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_FALSE(device.GetUniqueName(result, true));

    // A device parsed after a UNC name, then its parent and the edits on both.
    ASSERT_EQ(device.Parse(u"\\\\srv\\share\\sub.d"), PathOk);
    ASSERT_EQ(device.Parse(u"t:\\dir\\com1"), PathOk);
    ASSERT_EQ(device.GetPathType(), CTyUiPathname::kDevice);
    CTyUiPathname parent;
    device.GetParent(parent);
    EXPECT_TRUE(parent.IsEmpty());
    for (CTyUiPathname* p : {&device, &parent}) {
        EXPECT_EQ(p->Trim(), PathNoPath);
        EXPECT_EQ(p->TrimSlash(), PathNoPath);
        EXPECT_EQ(p->TrimComponent(), PathNoPath);
        EXPECT_EQ(p->Append(u"x"), PathNoPath);
        EXPECT_EQ(p->AppendSlash(), PathNoPath);
        EXPECT_EQ(p->AppendComponent(u"x"), PathNoPath);
        EXPECT_EQ(p->ReplaceExtensionAlways(u"txt"), PathNoPath);
        EXPECT_EQ(p->AddExtensionAlways(u"txt"), PathNoPath);
        EXPECT_EQ(p->AddExtensionIfNoMatch(u"txt"), PathNoPath);
        p->RemoveExtensionAlways();
        p->GetDisplayName(out, 8);
        EXPECT_EQ(Str(out), u"");
        EXPECT_FALSE(p->PathMatch(u"T:\\DIR\\COM1"));
        EXPECT_FALSE(p->GetUniqueName(result, true));
        EXPECT_TRUE(result.IsEmpty());
    }
    EXPECT_EQ(Str(device.GetPathString()), u"T:\\DIR\\COM1");
}

TEST_F(PathnameTest, EditsKeepTheStoredTextWithinTheLimit) {
    CTyUiPathname p = Parsed(u"T:\\");
    for (int i = 0; i < 100; ++i) p.AppendComponent(u"..");
    EXPECT_LE(std::u16string(p.GetPathString()).size(), 259u);
    for (int i = 0; i < 100; ++i) p.Append(u"\\..");
    EXPECT_LE(std::u16string(p.GetPathString()).size(), 259u);

    p = Parsed(u"T:\\a\\");
    EXPECT_EQ(p.AppendComponent(u"\\d"), PathBadText);
    EXPECT_EQ(p.Append(u"\\d"), PathBadText);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a\\");
    p = Parsed(u"T:\\a");
    EXPECT_EQ(p.AppendComponent(u"b\\\\c"), PathBadText);
    EXPECT_EQ(p.AddExtensionAlways(u"x\\\\y"), PathBadText);
    EXPECT_EQ(Str(p.GetPathString()), u"T:\\a");

    // The same holds for a relative name, whose base counts.
    CTyUiPathname base = Parsed((u"T:\\" + std::u16string(200, u'b') + u"\\").c_str()), rel;
    ASSERT_EQ(rel.ParseRelative(u"x", &base), PathOk);
    for (int i = 0; i < 40; ++i) rel.AppendComponent(u"..");
    EXPECT_LE(std::u16string(rel.GetPathString()).size() + 204, 259u);

    // Devices and renames are held to the same limit.
    std::u16string longDevice = u"T:\\" + std::u16string(300, u'd') + u"\\COM1";
    EXPECT_EQ(p.Parse(longDevice.c_str()), PathBadText);
    CTyUiPathname root = Parsed(u"T:\\");
    ASSERT_EQ(rel.ParseRelative(u"sub.d\\file.txt", &root), PathOk);
    EXPECT_FALSE(rel.Rename(std::u16string(300, u'r').c_str()));
    EXPECT_EQ(Str(rel.GetPathString()), u"sub.d\\file.txt");
}

TEST_F(PathnameTest, ProbeOfARelativeNameTakesItInItsBase) {
    // A root-relative name on a share is below the share, also when a drive reaches the
    // share's folder by another name.
    setenv("LUMRX_SHARES", ("srv/share=" + (m_dir / "sub.d").string()).c_str(), 1);
    CTyUiPathname share = Parsed(u"\\\\srv\\share\\"), rel;
    ASSERT_EQ(rel.ParseRelative(u"\\file.txt", &share), PathOk);
    EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kFile);
    ASSERT_EQ(rel.ParseRelative(u"file.txt", &share), PathOk);
    EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kFile);

    // The base must be a folder that can be entered, even where ".." climbs out of it.
    CTyUiPathname missing = Parsed(u"T:\\missing\\"), file = Parsed(u"T:\\sub.d\\file.txt");
    CTyUiPathname folder = Parsed(u"T:\\sub.d\\");
    for (const char16_t* name : {u"..\\sub.d", u".", u"..", u"x\\..\\..\\sub.d"}) {
        ASSERT_EQ(rel.ParseRelative(name, &missing), PathOk) << U8(name);
        EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kNotFound) << U8(name);
        ASSERT_EQ(rel.ParseRelative(name, &file), PathOk) << U8(name);
        EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kNotFound) << U8(name);
        ASSERT_EQ(rel.ParseRelative(name, &folder), PathOk) << U8(name);
        EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kDirectory) << U8(name);
    }
    ASSERT_EQ(rel.ParseRelative(u"file.txt", &folder), PathOk);
    EXPECT_EQ(rel.GetPathType(), CTyUiPathname::kFile);
    EXPECT_TRUE(rel.Exists());
    EXPECT_EQ(fs::current_path(), m_savedDirectory);
}

}  // namespace
