// Image files read without loading them: the test modules, copies cut short or with
// headers pointing out of the file, a Windows header, text; and needed libraries found
// as the dynamic loader finds them.
#include "lumplatform/imagefile.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <gtest/gtest.h>

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using lumplatform::fromUtf8;
using lumplatform::ImageFileFacts;
using lumplatform::ImageKind;
using lumplatform::readImageFile;
using lumplatform::resolveLibrary;

namespace {

const fs::path kModules = LUMRX_TEST_MODULE_DIR;

class PlatformImageFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("lumimagefile-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        unsetenv("LD_LIBRARY_PATH");
        fs::remove_all(dir);
    }
    fs::path write(const fs::path& name, const std::string& bytes) {
        fs::create_directories((dir / name).parent_path());
        std::ofstream(dir / name, std::ios::binary) << bytes;
        return dir / name;
    }
    static std::string bytesOf(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    static std::u16string u(const fs::path& p) { return fromUtf8(p.string()); }

    fs::path dir;
};

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

template <typename T>
bool isSubset(const std::vector<T>& part, const std::vector<T>& whole) {
    return std::all_of(part.begin(), part.end(),
                       [&](const T& x) { return std::find(whole.begin(), whole.end(), x) != whole.end(); });
}

template <typename T>
void put(std::string& bytes, size_t offset, T value) {
    std::memcpy(&bytes[offset], &value, sizeof value);
}

}  // namespace

TEST_F(PlatformImageFile, ReadsWhatAModuleSaysOfItself) {
    ImageFileFacts user = readImageFile(u(kModules / "krxuser.krx"));
    EXPECT_TRUE(user.readable);
    EXPECT_EQ(user.kind, ImageKind::kElf);
    EXPECT_EQ(user.elfType, 3u);
    EXPECT_TRUE(user.elfOwnLayout);
    EXPECT_FALSE(user.elfProgram);
    EXPECT_TRUE(user.loadable);
    EXPECT_NE(std::find(user.needed.begin(), user.needed.end(), u"krxdep.krx"), user.needed.end());
    // $ORIGIN of the run path is the module's folder.
    EXPECT_NE(std::find(user.runpath.begin(), user.runpath.end(), u(fs::canonical(kModules))), user.runpath.end());
    EXPECT_TRUE(contains(user.exports, "kvrxGetApiVersion"));
    EXPECT_TRUE(contains(user.exports, "kvrxEntryPoint"));
    // Symbols it only uses are no exports.
    EXPECT_FALSE(contains(user.exports, "kvrxUnlockApplication"));

    ImageFileFacts noEntry = readImageFile(u(kModules / "krxnoentry.krx"));
    EXPECT_TRUE(contains(noEntry.exports, "kvrxGetApiVersion"));
    EXPECT_FALSE(contains(noEntry.exports, "kvrxEntryPoint"));

    std::string pe(0x200, '\0');
    pe[0] = 'M', pe[1] = 'Z', pe[0x3C] = char(0x80);
    pe[0x80] = 'P', pe[0x81] = 'E', pe[0x84] = char(0x64), pe[0x85] = char(0x86);
    ImageFileFacts windows = readImageFile(u(write("windows.dll", pe)));
    EXPECT_EQ(windows.kind, ImageKind::kPe);
    EXPECT_EQ(windows.machine, lumplatform::kMachineAmd64);
    EXPECT_FALSE(windows.loadable);
    pe[0x80] = 'X';  // "MZ" without a PE header is a DOS program, no image of ours
    EXPECT_EQ(readImageFile(u(write("dos.exe", pe))).kind, ImageKind::kNone);

    ImageFileFacts text = readImageFile(u(write("text.krx", "only text")));
    EXPECT_TRUE(text.readable);
    EXPECT_EQ(text.kind, ImageKind::kNone);
    EXPECT_FALSE(readImageFile(u(dir / "absent.krx")).readable);
    EXPECT_FALSE(readImageFile(u(dir)).readable);

    // Another machine: e_machine of a copy set to one of another processor.
    std::string other = bytesOf(kModules / "krxgood.krx");
    unsigned own = readImageFile(u(kModules / "krxgood.krx")).elfMachine;
    put<uint16_t>(other, 18, own == EM_AARCH64 ? EM_X86_64 : EM_AARCH64);
    ImageFileFacts foreign = readImageFile(u(write("other.krx", other)));
    EXPECT_EQ(foreign.kind, ImageKind::kElf);
    EXPECT_FALSE(foreign.loadable);
    EXPECT_NE(foreign.elfMachine, own);
}

// A program, also one built position-independent, is no image the loader opens: the
// system would refuse it after mapping it.
TEST_F(PlatformImageFile, ProgramsAreNoLoadableImages) {
    std::u16string self = u(fs::read_symlink("/proc/self/exe"));
    ImageFileFacts facts = readImageFile(self);
    EXPECT_TRUE(facts.elfProgram);
    EXPECT_FALSE(facts.loadable);
    int error = 0;
    EXPECT_EQ(lumplatform::openImage(self, error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageNotLoadable);
}

// Whatever the damage, what is read is bounded by the file and never more than the
// whole module says.
TEST_F(PlatformImageFile, DamagedFilesGiveNoMoreThanTheyHold) {
    std::string whole = bytesOf(kModules / "krxuser.krx");
    ImageFileFacts full = readImageFile(u(kModules / "krxuser.krx"));
    auto check = [&](const std::string& name, const std::string& bytes) {
        ImageFileFacts facts = readImageFile(u(write(name, bytes)));
        EXPECT_TRUE(isSubset(facts.exports, full.exports)) << name;
        EXPECT_TRUE(isSubset(facts.needed, full.needed)) << name;
        EXPECT_LE(facts.runpath.size(), full.runpath.size()) << name;
    };
    for (size_t cut = 0; cut < whole.size(); cut += 211) check("cut.krx", whole.substr(0, cut));

    ElfW(Ehdr) header;
    std::memcpy(&header, whole.data(), sizeof header);
    std::string bytes = whole;
    put<ElfW(Off)>(bytes, offsetof(ElfW(Ehdr), e_shoff), ElfW(Off)(-64));
    check("far-table.krx", bytes);
    bytes = whole;
    put<uint16_t>(bytes, offsetof(ElfW(Ehdr), e_shnum), 0xFFFF);
    check("many-sections.krx", bytes);
    bytes = whole;
    put<uint16_t>(bytes, offsetof(ElfW(Ehdr), e_shentsize), 12);
    EXPECT_TRUE(readImageFile(u(write("entry-size.krx", bytes))).exports.empty());
    // Every section in turn pointing out of the file, made huge, or linked to a
    // section that doesn't exist or isn't text.
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        size_t at = header.e_shoff + size_t(i) * sizeof(ElfW(Shdr));
        ASSERT_LE(at + sizeof(ElfW(Shdr)), whole.size());
        for (int damage = 0; damage < 4; ++damage) {
            bytes = whole;
            if (damage == 0) put<ElfW(Off)>(bytes, at + offsetof(ElfW(Shdr), sh_offset), ElfW(Off)(whole.size() - 4));
            if (damage == 1) put<ElfW(Xword)>(bytes, at + offsetof(ElfW(Shdr), sh_size), ElfW(Xword)(-1) / 2);
            if (damage == 2) put<ElfW(Word)>(bytes, at + offsetof(ElfW(Shdr), sh_link), ElfW(Word)(0xFFFFFF));
            if (damage == 3) put<ElfW(Word)>(bytes, at + offsetof(ElfW(Shdr), sh_link), ElfW(Word)(0));
            check("section.krx", bytes);
        }
    }
}

// RPATH before LD_LIBRARY_PATH and only without RUNPATH, RUNPATH after it; a file that
// the loader wouldn't take is passed over; an object the process has mapped wins.
TEST_F(PlatformImageFile, FindsLibrariesAsTheDynamicLoader) {
    std::string library = bytesOf(kModules / "krxdep.krx");
    fs::path inRpath = write("rpath/libneeded.so", library);
    fs::path inEnvironment = write("env/libneeded.so", library);
    fs::path inRunpath = write("runpath/libneeded.so", library);
    write("junk/libneeded.so", "not a library");

    ImageFileFacts facts;
    facts.rpath = {u(dir / "junk"), u(dir / "rpath")};
    EXPECT_EQ(resolveLibrary(facts, u"libneeded.so"), u(inRpath));
    setenv("LD_LIBRARY_PATH", (dir / "junk").string().append(":").append((dir / "env").string()).c_str(), 1);
    EXPECT_EQ(resolveLibrary(facts, u"libneeded.so"), u(inRpath));
    facts.runpath = {u(dir / "runpath")};
    EXPECT_EQ(resolveLibrary(facts, u"libneeded.so"), u(inEnvironment));
    unsetenv("LD_LIBRARY_PATH");
    EXPECT_EQ(resolveLibrary(facts, u"libneeded.so"), u(inRunpath));

    EXPECT_TRUE(resolveLibrary(facts, u"libnowhere-at-all.so.7").empty());
    EXPECT_TRUE(resolveLibrary(facts, u"").empty());
    // A name with a folder is taken as it is.
    EXPECT_EQ(resolveLibrary({}, u(inRunpath)), u(inRunpath));
    EXPECT_TRUE(resolveLibrary({}, u(dir / "junk/libneeded.so")).empty());
    // The C library of this process is found where it is mapped, before any folder.
    std::u16string libc = resolveLibrary(facts, u"libc.so.6");
    ASSERT_FALSE(libc.empty());
    EXPECT_TRUE(readImageFile(libc).loadable);
}
