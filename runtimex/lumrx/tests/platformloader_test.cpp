// The platform loader on real files: the test modules, copies cut short, text files
// and hand-made headers.
#include "lumplatform/files.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using lumplatform::fromUtf8;
using lumplatform::toUtf8;

namespace {

const fs::path kModules = LUMRX_TEST_MODULE_DIR;

#if defined(__x86_64__)
constexpr unsigned kOwnMachine = lumplatform::kMachineAmd64;
#elif defined(__aarch64__)
constexpr unsigned kOwnMachine = lumplatform::kMachineArm64;
#elif defined(__i386__)
constexpr unsigned kOwnMachine = lumplatform::kMachineI386;
#endif

class PlatformLoader : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("lumloader-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        oldCwd = fs::current_path();
    }
    void TearDown() override {
        fs::current_path(oldCwd);
        unsetenv("LUMRX_PATH");
        fs::remove_all(dir);
    }
    fs::path write(const std::string& name, const std::string& bytes) {
        std::ofstream(dir / name, std::ios::binary) << bytes;
        return dir / name;
    }
    static std::string bytesOf(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    static std::u16string u(const fs::path& p) { return fromUtf8(p.string()); }

    fs::path dir, oldCwd;
};

// A PE header: "MZ", the NT offset at 0x3C, then "PE\0\0" and the machine word.
std::string peImage(unsigned ntOffset, unsigned machine, size_t size) {
    std::string b(size, '\0');
    b[0] = 'M', b[1] = 'Z';
    for (int i = 0; i < 4; ++i) b[0x3C + i] = char(ntOffset >> (8 * i));
    std::string nt{'P', 'E', 0, 0, char(machine & 0xFF), char(machine >> 8)};
    if (ntOffset < size) b.replace(ntOffset, std::min(nt.size(), size - ntOffset), nt, 0, size - ntOffset);
    return b;
}

}  // namespace

TEST_F(PlatformLoader, OpensModulesAndFindsThemMapped) {
    std::u16string good = u(kModules / "krxgood.krx");
    EXPECT_EQ(lumplatform::mappedImage(good), nullptr);
    int error = -1;
    void* handle = lumplatform::openImage(good, error);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_NE(lumplatform::librarySymbol(handle, "kvrxEntryPoint"), nullptr);
    EXPECT_EQ(lumplatform::imagePath(handle), good);
    // The query adds no reference: one close unmaps the image.
    EXPECT_EQ(lumplatform::mappedImage(good), handle);
    EXPECT_EQ(lumplatform::mappedImage(good), handle);
    lumplatform::closeLibrary(handle);
    EXPECT_EQ(lumplatform::mappedImage(good), nullptr);
    EXPECT_EQ(lumplatform::mappedImage(u""), nullptr);
    EXPECT_EQ(lumplatform::imagePath(nullptr), u"");
}

TEST_F(PlatformLoader, TellsMissingFromUnloadable) {
    int error = 0;
    EXPECT_EQ(lumplatform::openImage(u(dir / "absent.krx"), error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageMissing);

    // A module whose dependency is not beside it.
    fs::copy_file(kModules / "krxuser.krx", dir / "krxuser.krx");
    EXPECT_EQ(lumplatform::openImage(u(dir / "krxuser.krx"), error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageMissing);

    std::string good = bytesOf(kModules / "krxgood.krx");
    for (size_t cut : {size_t(0), size_t(3), size_t(40), size_t(200), size_t(1024)}) {
        error = 0;
        fs::path file = write("cut" + std::to_string(cut) + ".krx", good.substr(0, cut));
        EXPECT_EQ(lumplatform::openImage(u(file), error), nullptr) << cut;
        EXPECT_EQ(error, lumplatform::kImageNotLoadable) << cut;
    }
    // A program of this machine is refused by the system; it is still no image to load.
    fs::copy_file(fs::read_symlink("/proc/self/exe"), dir / "program.krx");
    EXPECT_FALSE(lumplatform::isLoadableImage(u(dir / "program.krx")));
    EXPECT_EQ(lumplatform::openImage(u(dir / "program.krx"), error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageNotLoadable);
    for (const std::string& bytes : {std::string("; not an image\n"), peImage(0x80, 0x8664, 0x200)}) {
        error = 0;
        EXPECT_EQ(lumplatform::openImage(u(write("other.krx", bytes)), error), nullptr);
        EXPECT_EQ(error, lumplatform::kImageNotLoadable);
    }
}

TEST_F(PlatformLoader, ListsDependenciesByMappedPath) {
    int error = 0;
    void* user = lumplatform::openImage(u(kModules / "krxuser.krx"), error);
    ASSERT_NE(user, nullptr);
    std::vector<std::u16string> own;
    for (const lumplatform::ImageDependency& d : lumplatform::imageDependencies(user)) {
        EXPECT_EQ(d.path.front(), u'/') << toUtf8(d.path);  // every one resolved to a path
        if (d.name == u"krxdep.krx") own.push_back(d.path);
    }
    EXPECT_EQ(own, std::vector<std::u16string>{u(kModules / "krxdep.krx")});
    // krxgood needs no other module.
    void* good = lumplatform::openImage(u(kModules / "krxgood.krx"), error);
    for (const lumplatform::ImageDependency& d : lumplatform::imageDependencies(good))
        EXPECT_EQ(d.name.find(u".krx"), std::u16string::npos);
    EXPECT_TRUE(lumplatform::imageDependencies(nullptr).empty());
    lumplatform::closeLibrary(good);
    lumplatform::closeLibrary(user);
}

TEST_F(PlatformLoader, ProbesElfAndPeHeadersWithinTheFile) {
    EXPECT_EQ(lumplatform::probeImageMachine(u(kModules / "krxgood.krx")), kOwnMachine);
    EXPECT_EQ(lumplatform::probeImageMachine(u(dir / "absent")), 0u);

    std::string elf = bytesOf(kModules / "krxgood.krx").substr(0, 64);
    elf[18] = 3, elf[19] = 0;  // i386
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("i386.so", elf))), lumplatform::kMachineI386);
    elf[18] = char(183);  // AArch64
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("arm.so", elf))), lumplatform::kMachineArm64);
    elf[18] = 8;  // MIPS: no word for it
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("mips.so", elf))), 0u);
    elf[5] = 2, elf[18] = 0, elf[19] = 62;  // big-endian x86-64
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("be.so", elf))), lumplatform::kMachineAmd64);
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("short.so", elf.substr(0, 19)))), 0u);

    EXPECT_EQ(lumplatform::probeImageMachine(u(write("pe.dll", peImage(0x80, 0x8664, 0x200)))), 0x8664u);
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("pe32.dll", peImage(0x40, 0x014C, 0x46)))), 0x014Cu);
    // The NT headers cut short, past the end, or far beyond it; no signature; no DOS header.
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("a.dll", peImage(0x80, 0x8664, 0x85)))), 0u);
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("b.dll", peImage(0x300, 0x8664, 0x200)))), 0u);
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("c.dll", peImage(0xFFFFFFF0u, 0x8664, 0x200)))), 0u);
    std::string unsigned_ = peImage(0x80, 0x8664, 0x200);
    unsigned_[0x81] = 'X';
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("d.dll", unsigned_))), 0u);
    EXPECT_EQ(lumplatform::probeImageMachine(u(write("e.dll", "MZ"))), 0u);
}

TEST_F(PlatformLoader, SearchesProgramCurrentAndListedDirectories) {
    std::u16string good = u(kModules / "krxgood.krx");
    EXPECT_EQ(lumplatform::searchFile(good), good);
    EXPECT_EQ(lumplatform::searchFile(u(dir / "absent.krx")), u"");
    EXPECT_EQ(lumplatform::searchFile(u"krxgood.krx"), u"");
    EXPECT_EQ(lumplatform::searchFile(u""), u"");

    setenv("LUMRX_PATH", ("::/nowhere:" + kModules.string()).c_str(), 1);
    EXPECT_EQ(lumplatform::searchFile(u"krxgood.krx"), good);
    // The current directory comes before the list, and a directory is no file.
    write("krxgood.krx", "x");
    fs::create_directory(dir / "krxdep.krx");
    fs::current_path(dir);
    EXPECT_EQ(lumplatform::searchFile(u"krxgood.krx"), u(dir / "krxgood.krx"));
    EXPECT_EQ(lumplatform::searchFile(u"krxdep.krx"), u(kModules / "krxdep.krx"));
    EXPECT_EQ(lumplatform::searchFile(u"./krxgood.krx"), u(dir / "krxgood.krx"));
    // PATH is the last resort.
    EXPECT_FALSE(lumplatform::searchFile(u"sh").empty());
}

// The full name is the canonical path whatever lies on the way: a link at the end or in
// the middle, a name below a link that doesn't exist, a name through a file, and a folder
// that became a link after its name was asked for once.
TEST_F(PlatformLoader, FullNamesFollowLinksAnywhereOnThePath) {
    using lumplatform::fullPathName;
    fs::path real = fs::canonical(dir);
    fs::create_directories(real / "a" / "b");
    write("a/b/m.krx", "x");
    std::u16string plain = u(real / "a" / "b" / "m.krx");
    EXPECT_EQ(fullPathName(plain), plain);
    EXPECT_EQ(fullPathName(u(real / "a" / "." / "b" / ".." / "b" / "m.krx")), plain);
    EXPECT_EQ(fullPathName(u(real) + u"/a//b/m.krx"), plain);

    fs::create_symlink(real / "a" / "b" / "m.krx", real / "last.krx");
    EXPECT_EQ(fullPathName(u(real / "last.krx")), plain);
    fs::create_directory_symlink(real / "a", real / "mid");
    EXPECT_EQ(fullPathName(u(real / "mid" / "b" / "m.krx")), plain);
    EXPECT_EQ(fullPathName(u(real / "mid" / "b" / "absent.krx")), u(real / "a" / "b" / "absent.krx"));
    EXPECT_EQ(fullPathName(u(real / "mid" / "b" / "m.krx" / "x")), plain + u"/x");
    // The search gives the same full names, for files only.
    EXPECT_EQ(lumplatform::searchFile(plain), plain);
    EXPECT_EQ(lumplatform::searchFile(u(real / "mid" / "b" / "m.krx")), plain);
    EXPECT_EQ(lumplatform::searchFile(u(real / "mid" / "b" / ".." / "b" / "m.krx")), plain);
    EXPECT_EQ(lumplatform::searchFile(u(real / "last.krx")), plain);
    EXPECT_EQ(lumplatform::searchFile(u(real / "a" / "b")), u"");
    EXPECT_EQ(lumplatform::searchFile(u(real / "mid" / "b")), u"");

    fs::create_directories(real / "c" / "b");
    write("c/b/m.krx", "y");
    fs::rename(real / "a", real / "old");
    fs::create_directory_symlink(real / "c", real / "a");
    EXPECT_EQ(fullPathName(plain), u(real / "c" / "b" / "m.krx"));
    EXPECT_EQ(lumplatform::searchFile(plain), u(real / "c" / "b" / "m.krx"));
}

// A segment table placed far behind the header is read where it lies: whole, the module
// is loadable; with a segment reaching past the end of the file it is refused.
TEST_F(PlatformLoader, ReadsASegmentTableFarBehindTheHeader) {
    std::string image = bytesOf(kModules / "krxgood.krx");
    Elf64_Ehdr header;
    std::memcpy(&header, image.data(), sizeof header);
    std::string table = image.substr(header.e_phoff, size_t(header.e_phnum) * sizeof(Elf64_Phdr));
    image.resize((image.size() + 4095) / 4096 * 4096 + 4096, '\0');
    header.e_phoff = image.size();
    std::memcpy(&image[0], &header, sizeof header);
    EXPECT_TRUE(lumplatform::isLoadableImage(u(write("far.krx", image + table))));
    // A table offset so large that the table's end wraps round to the file's start.
    Elf64_Ehdr wrapped = header;
    wrapped.e_phoff = ~uint64_t(0) - 8;
    std::string bad = image + table;
    std::memcpy(&bad[0], &wrapped, sizeof wrapped);
    EXPECT_FALSE(lumplatform::isLoadableImage(u(write("wrapped.krx", bad))));

    for (size_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        std::memcpy(&segment, &table[i * sizeof segment], sizeof segment);
        if (segment.p_type != PT_LOAD) continue;
        segment.p_filesz = image.size() + table.size() - segment.p_offset + 1;
        std::memcpy(&table[i * sizeof segment], &segment, sizeof segment);
        break;
    }
    int error = 0;
    fs::path past = write("past.krx", image + table);
    EXPECT_FALSE(lumplatform::isLoadableImage(u(past)));
    EXPECT_EQ(lumplatform::openImage(u(past), error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageNotLoadable);
}

// A module loaded once is not read again while it stays as it was; a file changed in
// place to the same size, or replaced under its name, is checked anew and refused.
TEST_F(PlatformLoader, AFileFoundSafeOnceIsCheckedAgainOnceItChanges) {
    std::string image = bytesOf(kModules / "krxgood.krx");
    Elf64_Ehdr header;
    std::memcpy(&header, image.data(), sizeof header);
    // The last segment reaches three pages past the end: the system would map it (and
    // fault on the first touch there), the file check refuses it.
    std::string past = image;
    char* last = nullptr;
    for (size_t i = 0; i < header.e_phnum; ++i) {
        char* at = &past[header.e_phoff + i * sizeof(Elf64_Phdr)];
        if (reinterpret_cast<const Elf64_Phdr*>(at)->p_type == PT_LOAD) last = at;
    }
    ASSERT_NE(last, nullptr);
    Elf64_Phdr segment;
    std::memcpy(&segment, last, sizeof segment);
    uint64_t grown = past.size() - segment.p_offset + 3 * 4096;
    segment.p_memsz += grown - segment.p_filesz;
    segment.p_filesz = grown;
    std::memcpy(last, &segment, sizeof segment);
    std::u16string name = u(write("m.krx", image));
    // Only a file that has settled for a while is taken as unchanged by its times.
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    int error = -1;
    for (int round = 0; round < 2; ++round) {
        void* handle = lumplatform::openImage(name, error);
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(error, 0);
        lumplatform::closeLibrary(handle);
    }

    write("m.krx", past);  // same file, same size
    ASSERT_EQ(fs::file_size(dir / "m.krx"), image.size());
    EXPECT_EQ(lumplatform::openImage(name, error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageNotLoadable);

    write("m.krx", image);
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    void* handle = lumplatform::openImage(name, error);
    ASSERT_NE(handle, nullptr);
    lumplatform::closeLibrary(handle);
    fs::rename(write("other.krx", past), dir / "m.krx");  // another file under the name
    EXPECT_EQ(lumplatform::openImage(name, error), nullptr);
    EXPECT_EQ(error, lumplatform::kImageNotLoadable);
}

// A library named with ".dll", in any case, is the same name ending in ".so"; other
// names are taken as they are, in UTF-16 and in UTF-8 alike.
TEST_F(PlatformLoader, LibraryNamesEndingInDllOpenTheirSharedObject) {
    fs::copy_file(kModules / "krxgood.krx", dir / "lib.so");
    fs::copy_file(kModules / "krxgood.krx", dir / "lib.dllx");
    for (const char* name : {"lib.dll", "lib.DLL", "lib.Dll", "lib.so", "lib.dllx"}) {
        void* wide = lumplatform::openLibrary(u(dir / name));
        void* narrow = lumplatform::openLibraryUtf8((dir / name).string());
        EXPECT_NE(wide, nullptr) << name;
        EXPECT_EQ(narrow, wide) << name;
        lumplatform::closeLibrary(wide);
        lumplatform::closeLibrary(narrow);
    }
    EXPECT_EQ(lumplatform::openLibraryUtf8((dir / "absent.dll").string()), nullptr);
    EXPECT_EQ(lumplatform::openLibraryUtf8(""), nullptr);
}
