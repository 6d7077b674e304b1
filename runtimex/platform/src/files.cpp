#include "filesinternal.h"
#include "lumplatform/files.h"
#include "lumplatform/text.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <cstdlib>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace lumplatform {

std::u16string currentDirectory() {
    std::vector<char> buf(PATH_MAX);
    if (!getcwd(buf.data(), buf.size())) return {};
    return fromUtf8(buf.data());
}

bool setCurrentDirectory(const std::u16string& path) {
    return !path.empty() && chdir(toUtf8(path).c_str()) == 0;
}

unsigned fileAttributes(const std::u16string& path) {
    if (path.empty()) return kNoAttributes;
    std::string p = toUtf8(path);
    struct stat st;
    if (stat(p.c_str(), &st) != 0) return kNoAttributes;
    unsigned attrs = 0;
    if (S_ISDIR(st.st_mode)) attrs |= kAttributeDirectory;
    if (access(p.c_str(), W_OK) != 0) attrs |= kAttributeReadOnly;
    return attrs ? attrs : kAttributeNormal;
}

// The UTF-8 bytes of a path, copied straight while it is ASCII, as most paths are.
static std::string pathBytes(const std::u16string& path) {
    std::string bytes(path.size(), '\0');
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] >= 0x80) return toUtf8(path);
        bytes[i] = char(path[i]);
    }
    return bytes;
}

unsigned fileKindAttributes(const std::u16string& path) {
    struct stat st;
    if (path.empty() || stat(pathBytes(path).c_str(), &st) != 0) return kNoAttributes;
    return S_ISDIR(st.st_mode) ? kAttributeDirectory : kAttributeNormal;
}

// True if no component of the absolute path is empty, "." or "..": it is normal as it is.
static bool isNormal(const std::string& absolute) {
    size_t n = absolute.size();
    if (n == 1 && absolute[0] == '/') return true;
    // One pass: each separator starts a component that runs to the next one.
    for (size_t i = 0; i < n; ++i) {
        if (absolute[i] != '/') continue;
        size_t end = i + 1;
        while (end < n && absolute[end] != '/') ++end;
        size_t length = end - i - 1;
        bool dots = length <= 2 && absolute[i + 1] == '.' && (length == 1 || absolute[i + 2] == '.');
        if (length == 0 || dots) return false;
        i = end - 1;
    }
    return true;
}

// Folds "." and ".." and repeated separators of an absolute path that isn't normal,
// lexically.
static std::string normalise(const std::string& absolute) {
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < absolute.size()) {
        size_t j = absolute.find('/', i);
        if (j == std::string::npos) j = absolute.size();
        std::string part = absolute.substr(i, j - i);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        i = j + 1;
    }
    std::string out;
    for (const auto& p : parts) out += "/" + p;
    return out.empty() ? "/" : out;
}

bool filesinternal::isNormalAbsolute(const std::string& path) {
    return !path.empty() && path[0] == '/' && isNormal(path);
}

// True if the lexically normal absolute path `normal` names something that exists and
// is reached without passing a link: it is then its own canonical path. One open that
// refuses links answers what a walk reading each component as a link would; where the
// system lacks that open, the walk answers.
// `st`, if given, receives what the path names.
static bool reachedWithoutLinks(const std::string& normal, struct stat* st = nullptr) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    int fd = int(syscall(SYS_openat2, AT_FDCWD, normal.c_str(), &how, sizeof how));
    if (fd < 0) return false;
    bool ok = !st || fstat(fd, st) == 0;
    close(fd);
    return ok;
}

std::u16string fullPathName(const std::u16string& path) {
    if (path.empty()) return {};
    std::string p = toUtf8(path);
    if (p[0] != '/') {
        std::u16string cwd = currentDirectory();
        if (cwd.empty()) return {};
        p = toUtf8(cwd) + "/" + p;
    }
    if (!isNormal(p)) p = normalise(p);
    if (reachedWithoutLinks(p)) return fromUtf8(p);
    // Follow links for the longest leading part that exists.
    std::string head = p, tail;
    while (true) {
        char* real = realpath(head.c_str(), nullptr);
        if (real) {
            std::string r = real;
            std::free(real);
            if (tail.empty()) return fromUtf8(r);
            return fromUtf8(r == "/" ? tail : r + tail);
        }
        size_t cut = head.find_last_of('/');
        if (cut == std::string::npos || head == "/") return fromUtf8(p);
        tail = head.substr(cut) + tail;
        head = cut == 0 ? "/" : head.substr(0, cut);
    }
}

std::u16string fullPathOfFile(const std::u16string& path) {
    std::string p = toUtf8(path);
    struct stat st;
    // A normal absolute name reached without links is its own full name, and what it
    // names is known from the same open.
    if (filesinternal::isNormalAbsolute(p) && reachedWithoutLinks(p, &st))
        return S_ISREG(st.st_mode) ? path : std::u16string();
    return stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode) ? fullPathName(path) : std::u16string();
}

std::FILE* openFileStream(const std::u16string& path, const char* mode) {
    if (path.empty()) return nullptr;
    std::FILE* stream = std::fopen(toUtf8(path).c_str(), mode);
    struct stat st;
    if (stream && (fstat(fileno(stream), &st) != 0 || S_ISDIR(st.st_mode))) {
        std::fclose(stream);
        errno = EISDIR;
        return nullptr;
    }
    return stream;
}

bool renameWithoutReplacing(const std::u16string& from, const std::u16string& to) {
    if (from.empty() || to.empty()) return false;
    std::string source = toUtf8(from), target = toUtf8(to);
    if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return false;
    // A file system without the atomic form: look before renaming.
    struct stat st;
    return lstat(target.c_str(), &st) != 0 && errno == ENOENT &&
           std::rename(source.c_str(), target.c_str()) == 0;
}

bool removeFile(const std::u16string& path) {
    return !path.empty() && unlink(toUtf8(path).c_str()) == 0;
}

}  // namespace lumplatform
