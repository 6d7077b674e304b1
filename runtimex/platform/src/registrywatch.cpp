#include "registrywatch.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace lumplatform::registry_internal {

namespace {

// What changes a folder's entries, or the folder itself.
constexpr uint32_t kEntryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
// ... and, in the folders of the hive and its journals, what changes a file's content.
constexpr uint32_t kContentEvents = kEntryEvents | IN_MODIFY;

std::string folderOf(const std::string& path) {
    size_t cut = path.find_last_of('/');
    if (cut == std::string::npos) return ".";
    return cut == 0 ? "/" : path.substr(0, cut);
}

// File systems whose files another machine may change, unseen by inotify.
bool remoteFileSystem(const std::string& path) {
    struct statfs fs;
    if (statfs(path.c_str(), &fs) != 0) return true;
    switch (static_cast<unsigned long>(fs.f_type)) {
    case 0x6969:      // NFS
    case 0x517B:      // SMB
    case 0xFE534D42:  // SMB2
    case 0xFF534D42:  // CIFS
    case 0x65735546:  // FUSE
    case 0x00C36400:  // Ceph
    case 0x01021997:  // 9P
    case 0x5346414F:  // AFS
    case 0x01161970:  // GFS2
    case 0x7461636F:  // OCFS2
    case 0x73757245:  // Coda
        return true;
    default:
        return false;
    }
}

}  // namespace

FolderWatch& FolderWatch::instance() {
    static FolderWatch watch;
    return watch;
}

FolderWatch::FolderWatch() : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FolderWatch::~FolderWatch() {
    if (m_fd >= 0) close(m_fd);
}

bool FolderWatch::add(const std::string& path, uint32_t events) {
    return !remoteFileSystem(path) && inotify_add_watch(m_fd, path.c_str(), events | IN_MASK_ADD) >= 0;
}

// The folders above `folder` decide which file its path names (a folder renamed, a
// symbolic link pointed elsewhere), so their entries are watched too.
bool FolderWatch::addWithAncestors(const std::string& folder) {
    if (!add(folder, kContentEvents)) return false;
    for (std::string above = folder; above != "/" && above != ".";) {
        above = folderOf(above);
        if (!add(above, kEntryEvents)) return false;
    }
    return true;
}

bool FolderWatch::watch(const std::string& configured, const std::string& file) {
    std::lock_guard<std::mutex> guard(m_lock);
    // A relative path names another file after a change of directory, which is no event.
    if (m_fd < 0 || configured.empty() || configured[0] != '/') return false;
    if (!addWithAncestors(folderOf(configured)) || !addWithAncestors(folderOf(file))) return false;
    struct stat st;
    if (stat(file.c_str(), &st) != 0) return errno == ENOENT;  // made later: seen in its folder
    char* real = realpath(file.c_str(), nullptr);
    bool ok = real && addWithAncestors(folderOf(real)) && add(file, kContentEvents);
    std::free(real);
    return ok;
}

uint64_t FolderWatch::events() {
    std::lock_guard<std::mutex> guard(m_lock);
    drain();
    return m_events;
}

uint64_t FolderWatch::eventsRead() {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_events;
}

// Every read that gives something counts; what it gives doesn't matter.
void FolderWatch::drain() {
    if (m_fd < 0) return;
    alignas(inotify_event) char buffer[4096];
    while (read(m_fd, buffer, sizeof buffer) > 0) ++m_events;
}

}  // namespace lumplatform::registry_internal
