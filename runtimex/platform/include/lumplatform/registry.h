// The system's registry: two hives (user, machine) of nested keys holding named values
// of two types, text and 32-bit number, kept on disk, one database file per hive.
//
// Hive files: the user hive is $LUMRX_REGISTRY_USER, else
// $XDG_CONFIG_HOME/lumora/registry.db, else ~/.config/lumora/registry.db; the machine
// hive is $LUMRX_REGISTRY_MACHINE, else /etc/lumora/registry.db. A path that names an
// existing directory means the file registry.db in it. A hive whose file doesn't exist
// reads as empty; its first write makes the file and its folder.
//
// Names. Key paths are key names joined by '\'; empty parts (a leading, trailing or
// doubled '\') are skipped, and an empty path names the hive's root. Key and value
// names match without regard to case (Unicode simple case folding, unit by unit) and
// keep the case they were first written with. The empty value name is a value too.
//
// Statuses. Every operation returns one of the RegistryStatus numbers and leaves its
// outputs untouched unless it says otherwise. A write is one transaction: when it
// fails, nothing of it is kept. Several processes may share a hive file; a writer waits
// up to a few seconds for another one to finish.
//
// Ownership. A RegistryKey owns its open-key state; the state and every RegistryBatch
// share the hive's connection with the process's hive table. Keys and batches are
// used by one thread at a time. After fork(), a child must exec before it uses the
// registry: a connection doesn't cross fork.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace lumplatform {

enum RegistryStatus : uint32_t {
    kRegistryOk = 0,
    kRegistryNotFound = 2,          // no such key or value
    kRegistryAccessDenied = 5,      // hive not writable, key opened for reading, or
                                    // delete of a key that has sub-keys
    kRegistryInvalidHandle = 6,     // the key isn't open
    kRegistryOutOfMemory = 8,
    kRegistryInvalidArgument = 87,  // name too long, unknown type, wrong data size
    kRegistryMoreData = 234,        // a buffer is too small; the size needed is given
    kRegistryNoMoreItems = 259,     // enumeration index past the end
    kRegistryCorrupt = 1009,        // the hive file is no registry database, or damaged;
                                    // it is left as it is
    kRegistryIoError = 1016,        // file can't be opened or written, or stays busy
    kRegistryKeyDeleted = 1018,     // the open key was deleted meanwhile
};

// Value types.
constexpr uint32_t kRegistryString = 1;  // UTF-16 text; stored ending in one zero unit
constexpr uint32_t kRegistryNumber = 4;  // 32-bit number, 4 bytes in machine order

// Limits; a longer name or larger value is refused with kRegistryInvalidArgument.
constexpr uint32_t kRegistryMaxKeyName = 255;     // units of one key name
constexpr uint32_t kRegistryMaxKeyDepth = 512;    // key names in one path
constexpr uint32_t kRegistryMaxValueName = 16383; // units of one value name
constexpr uint32_t kRegistryMaxValueSize = 1u << 20;  // bytes of one value's data

enum class RegistryHive { user = 0, machine = 1 };
enum class RegistryAccess { read, write };  // write includes read

struct RegistryKeyInfo {
    uint32_t subKeys = 0;
    uint32_t longestSubKeyName = 0;  // units, no terminator
    uint32_t values = 0;
    uint32_t longestValueName = 0;   // units, no terminator
    uint32_t longestValueData = 0;   // bytes
};

namespace registry_internal {
struct OpenKey;
class HiveStore;
}  // namespace registry_internal

// One open key. Buffer conventions, as the calls that read data use them:
// - data: `size` gives the buffer's bytes and receives the value's bytes. With a null
//   `data` only the size is reported; a buffer too small gives kRegistryMoreData with
//   the size needed and nothing copied.
// - names: `length` gives the buffer's units, terminator included, and receives the
//   name's units without it; a buffer too small gives kRegistryMoreData with the
//   name's length (the buffer needs one unit more) and nothing copied.
class RegistryKey {
public:
    RegistryKey();
    ~RegistryKey();
    RegistryKey(RegistryKey&& other) noexcept;
    RegistryKey& operator=(RegistryKey&& other) noexcept;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    // Opens an existing key; a key open before is closed first. Write access to a
    // hive that may not be written is refused.
    RegistryStatus open(RegistryHive hive, const char16_t* path, RegistryAccess access);
    // Opens the key for writing, making it and every missing key above it.
    RegistryStatus create(RegistryHive hive, const char16_t* path);
    void close();
    bool isOpen() const;

    // Reads a value: its type, its data or only its size (see above).
    RegistryStatus readValue(const char16_t* name, uint32_t* type, void* data, uint32_t* size);
    // Sets a value, replacing one of the same name. A text's `size` counts bytes of
    // whole units; a number's is 4.
    RegistryStatus writeValue(const char16_t* name, uint32_t type, const void* data, uint32_t size);
    RegistryStatus deleteValue(const char16_t* name);
    // Deletes the key at `path` below this one, with its values; a key that has
    // sub-keys is refused with kRegistryAccessDenied.
    RegistryStatus deleteSubKey(const char16_t* path);
    RegistryStatus info(RegistryKeyInfo& info);

    // Enumeration by index from 0 until kRegistryNoMoreItems: sub-keys in the order
    // of their folded names, values in the order they were first written. A walk
    // that asks index after index sees the key as it was at its start; a walk begun
    // again at 0 sees what changed since.
    RegistryStatus subKeyAt(uint32_t index, char16_t* name, uint32_t* length);
    RegistryStatus valueAt(uint32_t index, char16_t* name, uint32_t* nameLength,
                           uint32_t* type, void* data, uint32_t* size);

private:
    std::unique_ptr<registry_internal::OpenKey> m_key;  // null while closed
};

// Writes to one hive that land together or not at all. While the batch is open,
// every write of this process to that hive joins it, and other processes wait.
// The destructor rolls back a batch that wasn't committed.
class RegistryBatch {
public:
    RegistryBatch();
    ~RegistryBatch();
    RegistryBatch(const RegistryBatch&) = delete;
    RegistryBatch& operator=(const RegistryBatch&) = delete;

    RegistryStatus begin(RegistryHive hive);
    RegistryStatus commit();

private:
    std::shared_ptr<registry_internal::HiveStore> m_store;  // null unless open
};

// A number that differs from the one read before whenever the hive may have changed,
// by this process or another: the cheap poll of a change watch.
RegistryStatus registryChangeCounter(RegistryHive hive, uint64_t& counter);

// Makes this process treat a hive as one it may not write (writes give
// kRegistryAccessDenied), as a file without write permission would for a user other
// than root; false restores the check of the file's permissions.
void setRegistryHiveReadOnly(RegistryHive hive, bool readOnly);

// The file that holds a hive, by the rules above.
std::u16string registryHivePath(RegistryHive hive);

}  // namespace lumplatform
