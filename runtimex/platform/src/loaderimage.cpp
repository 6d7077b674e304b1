#include "filesinternal.h"
#include "loadercheckedimages.h"
#include "lumplatform/library.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <climits>
#include <dlfcn.h>
#include <cstdint>
#include <cstring>
#include <strings.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumplatform {

// True if the header has the process's own format (class, byte order, machine) and
// is a shared object or position-independent executable.
static const ElfW(Ehdr)* ownHeader() {
    Dl_info self{};
    return dladdr(reinterpret_cast<void*>(&ownHeader), &self)
               ? static_cast<const ElfW(Ehdr)*>(self.dli_fbase)
               : nullptr;
}

static bool isOwnFormat(const ElfW(Ehdr)& header) {
    // The header of the object holding this code, as mapped, is the process's format;
    // that object stays mapped as long as this code runs.
    static const ElfW(Ehdr)* const own = ownHeader();
    if (!own) return false;
    return std::memcmp(header.e_ident, own->e_ident, EI_VERSION) == 0 &&
           header.e_machine == own->e_machine && header.e_type == ET_DYN &&
           header.e_phentsize == sizeof(ElfW(Phdr));
}

// True if the dynamic segment marks a program built position-independent: the dynamic
// loader refuses to open one as a library.
static bool isPositionIndependentProgram(int fd, const std::vector<ElfW(Phdr)>& segments) {
    constexpr uint64_t kMostEntries = 65536;
    for (const ElfW(Phdr)& s : segments) {
        if (s.p_type != PT_DYNAMIC) continue;
        std::vector<ElfW(Dyn)> entries(std::min<uint64_t>(s.p_filesz / sizeof(ElfW(Dyn)), kMostEntries));
        size_t bytes = entries.size() * sizeof(ElfW(Dyn));
        if (bytes == 0 || pread(fd, entries.data(), bytes, off_t(s.p_offset)) != ssize_t(bytes)) return false;
        for (const ElfW(Dyn)& d : entries) {
            if (d.d_tag == DT_NULL) break;
            if (d.d_tag == DT_FLAGS_1 && (d.d_un.d_val & DF_1_PIE)) return true;
        }
    }
    return false;
}

// The segment table of the file, read with its header in one go where it follows the
// header closely, as it does in every linker's output; empty if the file holds none.
static std::vector<ElfW(Phdr)> segmentTable(int fd, const ElfW(Ehdr)& header, uint64_t fileSize,
                                            const unsigned char* head, size_t headBytes) {
    uint64_t tableEnd = uint64_t(header.e_phoff) + uint64_t(header.e_phnum) * sizeof(ElfW(Phdr));
    // An offset beyond the file would wrap the end around.
    if (header.e_phnum == 0 || header.e_phoff > fileSize || tableEnd > fileSize) return {};
    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    size_t bytes = segments.size() * sizeof(ElfW(Phdr));
    if (tableEnd <= headBytes)
        std::memcpy(segments.data(), head + header.e_phoff, bytes);
    else if (pread(fd, segments.data(), bytes, off_t(header.e_phoff)) != ssize_t(bytes))
        return {};
    return segments;
}

// True if every segment the dynamic loader would map lies inside the file: a file cut
// short would otherwise map and fault on first touch.
static bool segmentsInside(const std::vector<ElfW(Phdr)>& segments, uint64_t fileSize) {
    for (const ElfW(Phdr)& s : segments) {
        bool mapped = s.p_type == PT_LOAD || s.p_type == PT_DYNAMIC;
        if (mapped && (s.p_offset > fileSize || s.p_filesz > fileSize - s.p_offset)) return false;
    }
    return !segments.empty();
}

// True if the open file has the process's own format and all its mapped segments: the
// dynamic loader may be given it without faulting. `segments` receives the table, `st`
// what the file is.
static bool safeToMap(int fd, std::vector<ElfW(Phdr)>& segments, struct stat& st) {
    unsigned char head[1024];
    ssize_t got = fstat(fd, &st) == 0 ? pread(fd, head, sizeof head, 0) : -1;
    if (got < ssize_t(sizeof(ElfW(Ehdr)))) return false;
    ElfW(Ehdr) header;
    std::memcpy(&header, head, sizeof header);
    if (!isOwnFormat(header)) return false;
    segments = segmentTable(fd, header, uint64_t(st.st_size), head, size_t(got));
    return segmentsInside(segments, uint64_t(st.st_size));
}

static bool isLoadableHere(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    std::vector<ElfW(Phdr)> segments;
    struct stat st;
    bool ok = safeToMap(fd, segments, st) && !isPositionIndependentProgram(fd, segments);
    close(fd);
    return ok;
}

bool isLoadableImage(const std::u16string& path) { return isLoadableHere(toUtf8(path).c_str()); }

// What a file named by path is to the loader before it sees it: absent (left to the
// loader to report), safe to map, or not ours to load.
enum class FileBefore { kAbsent, kSafe, kRefused };

// `known`, if given, is what the path names, asked just before.
static FileBefore fileBeforeLoad(const char* path, const struct stat* known) {
    // A file found safe before and unchanged since needn't be read again.
    struct stat st;
    if (known) st = *known;
    if ((known || stat(path, &st) == 0) && loader_internal::checkedSafe(st)) return FileBefore::kSafe;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return access(path, F_OK) == 0 ? FileBefore::kRefused : FileBefore::kAbsent;
    std::vector<ElfW(Phdr)> segments;
    bool safe = safeToMap(fd, segments, st);
    close(fd);
    if (safe) loader_internal::rememberSafe(st);
    return safe ? FileBefore::kSafe : FileBefore::kRefused;
}

// Opens the image of the UTF-8 name `narrow` after checking the file under `checked`:
// that name, or the name by which the current directory reaches the same file (`known`
// what it names, if asked just before).
static void* openCheckedImage(const std::string& narrow, const char* checked, int& error,
                              const struct stat* known = nullptr) {
    // A file named by path that isn't ours to load is refused before the dynamic loader
    // sees it; anything else it can't open (no file, a missing dependency or symbol)
    // counts as missing, but for a program, which the loader refuses without running
    // any of it.
    bool named = narrow.find('/') != std::string::npos;
    FileBefore before = named ? fileBeforeLoad(checked, known) : FileBefore::kAbsent;
    if (before == FileBefore::kRefused) {
        error = kImageNotLoadable;
        return nullptr;
    }
    void* handle = openLibraryUtf8(narrow);
    error = handle ? 0 : kImageMissing;
    if (!handle && before == FileBefore::kSafe && !isLoadableHere(checked)) error = kImageNotLoadable;
    return handle;
}

void* openImage(const std::u16string& path, int& error) {
    std::string narrow = toUtf8(path);
    return openCheckedImage(narrow, narrow.c_str(), error);
}

// True if the current directory, just changed to `folder`, is reached by that name
// without links: the system gives the current directory by its canonical path.
static bool reachedAsNamed(const std::string& folder) {
    char now[PATH_MAX];
    return getcwd(now, sizeof now) != nullptr && folder == now;
}

// True if the current folder, reached by its name without links (`folderAsNamed`),
// holds `file` as a regular file, no link; `st` receives what the file is.
static bool holdsOwnFile(bool folderAsNamed, const char* file, struct stat& st) {
    return folderAsNamed && fstatat(AT_FDCWD, file, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
}

// openImageInFolder, and openImageAsFullName with `asFullName`.
static void* openInFolder(const std::u16string& path, int& error, bool asFullName) {
    std::string narrow = toUtf8(path);
    if (asFullName && !filesinternal::isNormalAbsolute(narrow)) {
        error = kNotItsFullName;
        return nullptr;
    }
    size_t slash = narrow.rfind('/');
    if (narrow.empty() || narrow[0] != '/') return openImage(path, error);
    char previous[PATH_MAX];
    bool remembered = getcwd(previous, sizeof previous) != nullptr;
    std::string folder = narrow.substr(0, slash == 0 ? 1 : slash);
    // A folder that is current already stays so, and nothing is set back.
    bool current = remembered && folder == previous;
    bool moved = !current && (remembered || !asFullName) && chdir(folder.c_str()) == 0;
    // From inside the folder the file is reached by its own name, a walk of one step.
    bool ownName = (current || moved) && slash + 1 < narrow.size();
    const char* checked = ownName ? narrow.c_str() + slash + 1 : narrow.c_str();
    struct stat st;
    if (asFullName && !holdsOwnFile(current || (moved && reachedAsNamed(folder)), checked, st)) {
        if (moved) chdir(previous);
        error = kNotItsFullName;
        return nullptr;
    }
    void* handle = openCheckedImage(narrow, checked, error, asFullName ? &st : nullptr);
    if (remembered && moved) chdir(previous);
    return handle;
}

void* openImageInFolder(const std::u16string& path, int& error) { return openInFolder(path, error, false); }

void* openImageAsFullName(const std::u16string& path, int& error) { return openInFolder(path, error, true); }

void* mappedImage(const std::u16string& path) {
    if (path.empty()) return nullptr;
    void* handle = dlopen(toUtf8(path).c_str(), RTLD_NOW | RTLD_NOLOAD);
    // The query took a reference; give it back, the image stays mapped by its owner.
    if (handle) dlclose(handle);
    return handle;
}

static const link_map* linkMap(void* handle) {
    link_map* map = nullptr;
    if (!handle || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) return nullptr;
    return map;
}

std::u16string imagePath(void* handle) {
    const link_map* map = linkMap(handle);
    return map && map->l_name ? fromUtf8(map->l_name) : std::u16string();
}

// Where the image's dynamic string table lies in memory. The dynamic loader relocates
// that entry in place unless the dynamic section is read-only; a value below the load
// base is still unrelocated.
static const char* stringTable(const link_map* map) {
    for (const ElfW(Dyn)* d = map->l_ld; d->d_tag != DT_NULL; ++d) {
        if (d->d_tag != DT_STRTAB) continue;
        ElfW(Addr) at = d->d_un.d_ptr;
        return reinterpret_cast<const char*>(at < map->l_addr ? at + map->l_addr : at);
    }
    return nullptr;
}

// The mapped object a dependency name stands for, found as the dynamic loader would
// find it among what is loaded.
static std::u16string mappedDependency(const char* name) {
    void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD);
    if (!handle) return fromUtf8(name);
    std::u16string path = imagePath(handle);
    dlclose(handle);
    return path.empty() ? fromUtf8(name) : path;
}

static bool endsWithNoCase(const char* name, const char* suffix) {
    size_t n = std::strlen(name), k = std::strlen(suffix);
    return n >= k && strcasecmp(name + n - k, suffix) == 0;
}

std::vector<ImageDependency> imageDependencies(void* handle, const char* suffix) {
    std::vector<ImageDependency> dependencies;
    const link_map* map = linkMap(handle);
    const char* strings = map && map->l_ld ? stringTable(map) : nullptr;
    if (!strings) return dependencies;
    for (const ElfW(Dyn)* d = map->l_ld; d->d_tag != DT_NULL; ++d)
        if (d->d_tag == DT_NEEDED) {
            const char* name = strings + d->d_un.d_val;
            if (suffix && !endsWithNoCase(name, suffix)) continue;
            dependencies.push_back({fromUtf8(name), mappedDependency(name)});
        }
    return dependencies;
}

}  // namespace lumplatform
