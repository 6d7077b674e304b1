#include "lumplatform/files.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumplatform {

static std::string programDirectory() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return {};
    std::string exe(buf, size_t(n));
    return exe.substr(0, exe.rfind('/'));
}

static std::string currentDir() {
    char buf[PATH_MAX];
    return getcwd(buf, sizeof buf) ? std::string(buf) : std::string();
}

// Appends the entries of a colon-separated list variable; empty entries are skipped.
static void appendListVariable(const char* variable, std::vector<std::string>& dirs) {
    const char* value = std::getenv(variable);
    std::string list = value ? value : "";
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = list.find(':', start);
        if (end == std::string::npos) end = list.size();
        if (end > start) dirs.push_back(list.substr(start, end - start));
        start = end + 1;
    }
}

std::u16string searchFile(const std::u16string& name) {
    if (name.empty()) return {};
    if (name.find(u'/') != std::u16string::npos) return fullPathOfFile(name);
    std::string narrow = toUtf8(name);
    std::vector<std::string> dirs{programDirectory(), currentDir()};
    appendListVariable("LUMRX_PATH", dirs);
    appendListVariable("PATH", dirs);
    for (const std::string& dir : dirs)
        if (!dir.empty()) {
            std::u16string full = fullPathOfFile(fromUtf8(dir + "/" + narrow));
            if (!full.empty()) return full;
        }
    return {};
}

// Reads `size` bytes at `offset`; false if the file is shorter.
static bool readAt(int fd, uint64_t offset, void* out, size_t size) {
    return pread(fd, out, size, off_t(offset)) == ssize_t(size);
}

static unsigned little16(const unsigned char* p) { return unsigned(p[0] | p[1] << 8); }

static unsigned elfMachine(const unsigned char* ident) {
    // e_machine follows e_ident (16 bytes) and e_type (2), in the file's byte order.
    const unsigned char* m = ident + 18;
    unsigned machine = ident[EI_DATA] == ELFDATA2MSB ? unsigned(m[0] << 8 | m[1]) : little16(m);
    switch (machine) {
        case EM_X86_64: return kMachineAmd64;
        case EM_386: return kMachineI386;
        case EM_AARCH64: return kMachineArm64;
        default: return 0;
    }
}

static unsigned peMachine(int fd, const unsigned char* dosHeader) {
    const unsigned char* at = dosHeader + 0x3C;
    uint64_t ntOffset = uint64_t(at[0]) | uint64_t(at[1]) << 8 | uint64_t(at[2]) << 16 |
                        uint64_t(at[3]) << 24;
    unsigned char nt[6];
    if (!readAt(fd, ntOffset, nt, sizeof nt)) return 0;
    bool signature = nt[0] == 'P' && nt[1] == 'E' && nt[2] == 0 && nt[3] == 0;
    return signature ? little16(nt + 4) : 0;
}

unsigned probeImageMachine(const std::u16string& path) {
    int fd = open(toUtf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    unsigned char header[0x40];  // the DOS header; it holds the ELF machine too
    unsigned machine = 0;
    if (readAt(fd, 0, header, 20) && std::equal(header, header + SELFMAG, ELFMAG))
        machine = elfMachine(header);
    else if (readAt(fd, 0, header, sizeof header) && header[0] == 'M' && header[1] == 'Z')
        machine = peMachine(fd, header);
    close(fd);
    return machine;
}

}  // namespace lumplatform
