#include "loadercheckedimages.h"

#include <cstdint>
#include <ctime>
#include <mutex>
#include <unordered_map>

namespace lumplatform::loader_internal {

namespace {

constexpr size_t kLimit = 256;
constexpr int64_t kSettledNanoseconds = 2'000'000'000;

struct FileKey {
    dev_t device;
    ino_t inode;
    bool operator==(const FileKey& other) const {
        return device == other.device && inode == other.inode;
    }
};

struct FileKeyHash {
    size_t operator()(const FileKey& key) const {
        return std::hash<uint64_t>()(uint64_t(key.inode) * 0x9E3779B97F4A7C15ull ^ uint64_t(key.device));
    }
};

// What the file showed besides where it lies.
struct FileState {
    off_t size;
    timespec written;
    timespec changed;
};

int64_t nanoseconds(const timespec& t) { return int64_t(t.tv_sec) * 1'000'000'000 + t.tv_nsec; }

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::mutex gLock;
std::unordered_map<FileKey, FileState, FileKeyHash> gSafe;

}  // namespace

bool checkedSafe(const struct stat& st) {
    std::lock_guard<std::mutex> hold(gLock);
    auto at = gSafe.find({st.st_dev, st.st_ino});
    return at != gSafe.end() && at->second.size == st.st_size &&
           sameTime(at->second.written, st.st_mtim) && sameTime(at->second.changed, st.st_ctim);
}

void rememberSafe(const struct stat& st) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return;
    int64_t settled = nanoseconds(now) - kSettledNanoseconds;
    if (nanoseconds(st.st_mtim) > settled || nanoseconds(st.st_ctim) > settled) return;
    std::lock_guard<std::mutex> hold(gLock);
    if (gSafe.size() >= kLimit) gSafe.clear();
    gSafe[{st.st_dev, st.st_ino}] = {st.st_size, st.st_mtim, st.st_ctim};
}

}  // namespace lumplatform::loader_internal
