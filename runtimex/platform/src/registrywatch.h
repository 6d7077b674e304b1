// The process's watch on the folders of its hive files: one inotify instance, so that
// "has anything happened to the hive since I last looked" costs one read that finds
// nothing, instead of locking and reading the file.
//
// Invariant: once watch() has succeeded for a hive file, every creation, removal,
// rename or write of a file in the folders that decide its content (the folder of the
// path configured for the hive, the folder of the file, the folder of the file's real
// path, where the journals live), every write of the file itself, and every creation,
// removal or rename in a folder above those (which may point the path elsewhere), by
// any process on this machine, moves events() before the writer's call returns; so does
// the removal of a watched folder and a lost event (queue overflow). Folders on file systems
// whose changes may come from another machine (network, FUSE) are never watched.
// Watches stay until the kernel drops them with their folder; dropping one is an
// event too.
//
// Ownership: the watch owns its inotify descriptor for the life of the process.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace lumplatform::registry_internal {

class FolderWatch {
public:
    static FolderWatch& instance();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    // Watches what decides the content of `file`, the hive file found through the
    // configured path `configured`; false if it can't be watched reliably (a relative
    // path, a remote file system, no inotify), and then events() says nothing about it.
    bool watch(const std::string& configured, const std::string& file);
    // The number of events seen so far, after reading those pending.
    uint64_t events();
    // The same without reading: for a caller that has just called events().
    uint64_t eventsRead();

private:
    FolderWatch();
    ~FolderWatch();
    bool add(const std::string& path, uint32_t events);
    bool addWithAncestors(const std::string& folder);
    void drain();

    std::mutex m_lock;
    int m_fd = -1;         // the inotify instance, -1 if there is none
    uint64_t m_events = 0;
};

}  // namespace lumplatform::registry_internal
