#include "lumplatform/imagefile.h"

#include "lumplatform/files.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <glob.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumplatform {

namespace {

// A table larger than this is not read: no real module comes near it.
constexpr uint64_t kMostTableBytes = uint64_t(64) << 20;
// include lines of /etc/ld.so.conf are followed this deep.
constexpr int kMostConfigDepth = 8;

// A regular file open for reading; closed by the destructor.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const std::string& path) : m_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat st;
        if (m_fd >= 0 && fstat(m_fd, &st) == 0 && S_ISREG(st.st_mode))
            m_size = uint64_t(st.st_size);
        else
            closeFile();
    }
    ~ReadOnlyFile() { closeFile(); }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    bool holds(uint64_t offset, uint64_t size) const { return offset <= m_size && size <= m_size - offset; }
    // Reads `size` bytes at `offset`; false if they don't all lie in the file.
    bool read(uint64_t offset, void* out, uint64_t size) const {
        return holds(offset, size) && pread(m_fd, out, size_t(size), off_t(offset)) == ssize_t(size);
    }
    // `size` bytes at `offset`, or nothing if they don't lie in the file or are too many.
    std::vector<char> bytes(uint64_t offset, uint64_t size) const {
        std::vector<char> out;
        if (size == 0 || size > kMostTableBytes || !holds(offset, size)) return out;
        out.resize(size_t(size));
        if (!read(offset, out.data(), size)) out.clear();
        return out;
    }

private:
    void closeFile() {
        if (m_fd >= 0) close(m_fd);
        m_fd = -1;
    }
    int m_fd;
    uint64_t m_size = 0;
};

constexpr unsigned char kOwnClass = sizeof(ElfW(Addr)) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char kOwnData =
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;

unsigned half(const unsigned char* p, bool bigEndian) {
    return bigEndian ? unsigned(p[0] << 8 | p[1]) : unsigned(p[0] | p[1] << 8);
}

// The text at `offset` of a string table; empty if it doesn't end inside the table.
std::string stringAt(const std::vector<char>& table, uint64_t offset) {
    if (offset >= table.size()) return {};
    const char* start = table.data() + offset;
    const void* end = std::memchr(start, 0, table.size() - size_t(offset));
    return end ? std::string(start, static_cast<const char*>(end)) : std::string();
}

// The folders of a colon-separated list; in a run path $ORIGIN and ${ORIGIN} stand for
// `origin`.
std::vector<std::u16string> runPathFolders(const std::string& text, const std::string& origin) {
    std::vector<std::u16string> folders;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = std::min(text.find(':', start), text.size());
        std::string folder = text.substr(start, end - start);
        // One pass from left to right: what was put in is not looked at again.
        for (const char* token : {"${ORIGIN}", "$ORIGIN"})
            for (size_t at = 0; (at = folder.find(token, at)) != std::string::npos; at += origin.size())
                folder.replace(at, std::strlen(token), origin);
        if (!folder.empty()) folders.push_back(fromUtf8(folder));
        start = end + 1;
    }
    return folders;
}

// Section `index` of the table, if it exists and has `type`.
const ElfW(Shdr)* sectionOf(const std::vector<ElfW(Shdr)>& sections, uint64_t index, uint32_t type) {
    return index < sections.size() && sections[index].sh_type == type ? &sections[index] : nullptr;
}

std::vector<char> stringTableOf(const ReadOnlyFile& file, const std::vector<ElfW(Shdr)>& sections,
                                const ElfW(Shdr)& owner) {
    const ElfW(Shdr)* strings = sectionOf(sections, owner.sh_link, SHT_STRTAB);
    return strings ? file.bytes(strings->sh_offset, strings->sh_size) : std::vector<char>();
}

// Entries of type T in a section; none if the section lies outside the file.
template <typename T>
std::vector<T> entriesOf(const ReadOnlyFile& file, const ElfW(Shdr)& section) {
    uint64_t count = section.sh_size / sizeof(T);
    std::vector<T> entries;
    if (count == 0 || count * sizeof(T) > kMostTableBytes || !file.holds(section.sh_offset, count * sizeof(T)))
        return entries;
    entries.resize(size_t(count));
    if (!file.read(section.sh_offset, entries.data(), count * sizeof(T))) entries.clear();
    return entries;
}

void readDynamicSection(const ReadOnlyFile& file, const std::vector<ElfW(Shdr)>& sections,
                        const ElfW(Shdr)& section, const std::string& origin, ImageFileFacts& facts) {
    std::vector<char> strings = stringTableOf(file, sections, section);
    for (const ElfW(Dyn)& entry : entriesOf<ElfW(Dyn)>(file, section)) {
        if (entry.d_tag == DT_NULL) break;
        std::string text = stringAt(strings, entry.d_un.d_val);
        if (entry.d_tag == DT_NEEDED && !text.empty()) facts.needed.push_back(fromUtf8(text));
        if (entry.d_tag == DT_RPATH) facts.rpath = runPathFolders(text, origin);
        if (entry.d_tag == DT_RUNPATH) facts.runpath = runPathFolders(text, origin);
        if (entry.d_tag == DT_FLAGS_1 && (entry.d_un.d_val & DF_1_PIE)) facts.elfProgram = true;
    }
}

void readDynamicSymbols(const ReadOnlyFile& file, const std::vector<ElfW(Shdr)>& sections,
                        const ElfW(Shdr)& section, ImageFileFacts& facts) {
    std::vector<char> strings = stringTableOf(file, sections, section);
    for (const ElfW(Sym)& symbol : entriesOf<ElfW(Sym)>(file, section)) {
        unsigned binding = ELF64_ST_BIND(symbol.st_info);
        unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
        bool global = binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE;
        bool visible = visibility == STV_DEFAULT || visibility == STV_PROTECTED;
        if (symbol.st_shndx == SHN_UNDEF || !global || !visible) continue;
        std::string name = stringAt(strings, symbol.st_name);
        if (!name.empty()) facts.exports.push_back(name);
    }
}

// The dynamic section and dynamic symbols of an ELF file of this process's layout.
void readDynamicParts(const ReadOnlyFile& file, const std::string& path, ImageFileFacts& facts) {
    ElfW(Ehdr) header;
    if (!file.read(0, &header, sizeof header) || header.e_shentsize != sizeof(ElfW(Shdr))) return;
    uint64_t tableBytes = uint64_t(header.e_shnum) * sizeof(ElfW(Shdr));
    if (tableBytes == 0 || !file.holds(header.e_shoff, tableBytes)) return;
    std::vector<ElfW(Shdr)> sections(header.e_shnum);
    if (!file.read(header.e_shoff, sections.data(), tableBytes)) return;
    std::string full = toUtf8(fullPathName(fromUtf8(path)));
    std::string origin = full.substr(0, full.rfind('/'));
    // The first of each, as the link editor writes one of each.
    auto first = [&](uint32_t type) {
        return std::find_if(sections.begin(), sections.end(), [&](const ElfW(Shdr)& s) { return s.sh_type == type; });
    };
    if (auto dynamic = first(SHT_DYNAMIC); dynamic != sections.end())
        readDynamicSection(file, sections, *dynamic, origin, facts);
    if (auto symbols = first(SHT_DYNSYM); symbols != sections.end()) readDynamicSymbols(file, sections, *symbols, facts);
}

// Appends `folder` to `folders` unless it is there already.
void addFolder(std::vector<std::u16string>& folders, const std::u16string& folder) {
    if (!folder.empty() && std::find(folders.begin(), folders.end(), folder) == folders.end())
        folders.push_back(folder);
}

// The folders a configuration file of the dynamic loader names, following its include
// lines (glob patterns, relative ones from /etc).
void readLoaderConfig(const std::string& path, int depth, std::vector<std::u16string>& folders) {
    std::ifstream config(path);
    for (std::string line; depth < kMostConfigDepth && std::getline(config, line);) {
        line = line.substr(0, line.find('#'));
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos) continue;
        line = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
        if (line.compare(0, 8, "include ") != 0) {
            if (line[0] == '/') addFolder(folders, fromUtf8(line));
            continue;
        }
        std::string pattern = line.substr(line.find_first_not_of(" \t", 8));
        if (pattern[0] != '/') pattern = "/etc/" + pattern;
        glob_t found{};
        if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
            for (size_t i = 0; i < found.gl_pathc; ++i) readLoaderConfig(found.gl_pathv[i], depth + 1, folders);
        globfree(&found);
    }
}

}  // namespace

ImageFileFacts readImageFile(const std::u16string& path) {
    ImageFileFacts facts;
    std::string narrow = toUtf8(path);
    ReadOnlyFile file(narrow);
    if (!file.isOpen()) return facts;
    facts.readable = true;
    facts.machine = probeImageMachine(path);
    unsigned char ident[20];
    if (file.read(0, ident, sizeof ident) && std::memcmp(ident, ELFMAG, SELFMAG) == 0) {
        facts.kind = ImageKind::kElf;
        bool bigEndian = ident[EI_DATA] == ELFDATA2MSB;
        facts.elfType = half(ident + 16, bigEndian);
        facts.elfProgram = facts.elfType == ET_EXEC;
        facts.elfMachine = half(ident + 18, bigEndian);
        facts.elfOwnLayout = ident[EI_CLASS] == kOwnClass && ident[EI_DATA] == kOwnData;
        facts.loadable = isLoadableImage(path);
        if (facts.elfOwnLayout) readDynamicParts(file, narrow, facts);
    } else if (file.read(0, ident, 2) && ident[0] == 'M' && ident[1] == 'Z' && facts.machine != 0) {
        facts.kind = ImageKind::kPe;
    }
    return facts;
}

std::u16string resolveLibrary(const ImageFileFacts& facts, const std::u16string& name) {
    if (name.empty()) return {};
    if (name.find(u'/') != std::u16string::npos)
        return isLoadableImage(name) ? fullPathName(name) : std::u16string();
    // An object of that name that the process has mapped is taken as it is.
    if (void* mapped = mappedImage(name)) {
        std::u16string where = imagePath(mapped);
        return where.empty() ? name : where;
    }
    std::vector<std::u16string> folders;
    if (facts.runpath.empty())
        for (const std::u16string& folder : facts.rpath) addFolder(folders, folder);
    const char* libraryPath = std::getenv("LD_LIBRARY_PATH");
    for (const std::u16string& folder : runPathFolders(libraryPath ? libraryPath : "", "$ORIGIN"))
        addFolder(folders, folder);
    for (const std::u16string& folder : facts.runpath) addFolder(folders, folder);
    readLoaderConfig("/etc/ld.so.conf", 0, folders);
    for (const char16_t* folder : {u"/lib64", u"/usr/lib64", u"/lib", u"/usr/lib"}) addFolder(folders, folder);
    for (const std::u16string& folder : folders) {
        std::u16string candidate = folder + u"/" + name;
        if (isLoadableImage(candidate)) return fullPathName(candidate);
    }
    return {};
}

}  // namespace lumplatform
