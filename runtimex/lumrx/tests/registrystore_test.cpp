// The registry store of the platform layer: names matched without case, statuses and
// buffers, hostile input, delete rules, read-only and corrupt hive files, and what a
// second process (the lumrx-reg tool) writes, deletes and changes.
#include "lumplatform/registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

using namespace lumplatform;
namespace fs = std::filesystem;

namespace {

constexpr RegistryHive kUser = RegistryHive::user;
constexpr RegistryHive kMachine = RegistryHive::machine;

// Every test has hive files of its own in a fresh folder.
class RegistryStore : public ::testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("lumrx-registry-" + std::to_string(std::random_device{}()));
        fs::create_directories(folder);
        userFile = folder / "user.db";
        setenv("LUMRX_REGISTRY_USER", userFile.c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", (folder / "machine.db").c_str(), 1);
    }
    void TearDown() override {
        setRegistryHiveReadOnly(kMachine, false);
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add);
        fs::remove_all(folder);
    }

    // Runs lumrx-reg, a second process, on this test's hives; true if it succeeded.
    bool tool(const std::string& arguments) {
        std::string command = std::string("'") + LUMRX_REG_TOOL + "' " + arguments + " >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }

    fs::path folder, userFile;
};

uint32_t bytesOf(const std::u16string& text) {
    return uint32_t((text.size() + 1) * sizeof(char16_t));
}

RegistryStatus writeText(RegistryKey& key, const char16_t* name, const std::u16string& text) {
    return key.writeValue(name, kRegistryString, text.c_str(), bytesOf(text));
}

std::u16string readText(RegistryKey& key, const char16_t* name) {
    uint32_t type = 0, size = 0;
    if (key.readValue(name, &type, nullptr, &size) != kRegistryOk || type != kRegistryString) return u"<unreadable>";
    std::u16string text(size / 2, u'\0');
    if (key.readValue(name, nullptr, &text[0], &size) != kRegistryOk) return u"<unreadable>";
    text.resize(size / 2 - 1);  // the stored terminator
    return text;
}

std::vector<std::u16string> subKeys(RegistryKey& key) {
    std::vector<std::u16string> names;
    char16_t name[kRegistryMaxKeyName + 1];
    for (uint32_t i = 0;; ++i) {
        uint32_t length = kRegistryMaxKeyName + 1;
        RegistryStatus s = key.subKeyAt(i, name, &length);
        if (s != kRegistryOk) return s == kRegistryNoMoreItems ? names : std::vector<std::u16string>{u"<failed>"};
        names.emplace_back(name, length);
    }
}

std::u16string digits(int number) {
    std::u16string text;
    for (char c : std::to_string(number)) text.push_back(char16_t(c));
    return text;
}

std::string fileBytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void putFile(const fs::path& file, const std::string& bytes) {
    // A new file, not the old one rewritten: the store sees it as another hive file.
    fs::path temporary = file.string() + ".new";
    std::ofstream(temporary, std::ios::binary) << bytes;
    fs::rename(temporary, file);
}

TEST_F(RegistryStore, NamesMatchWithoutCaseAndKeepTheirFirstCase) {
    RegistryKey key, other;
    ASSERT_EQ(key.create(kUser, u"\\Lumora\\Ünïcode\\ΣΊΣΥΦΟΣ"), kRegistryOk);
    // Unicode folding: Ü/ü, Ί/ί, and the final sigma ς with Σ and σ.
    EXPECT_EQ(other.open(kUser, u"lumora\\\\ÜNÏCODE\\σίσυφος\\", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(other.open(kUser, u"LUMORA\\ünïcode\\ΣΊΣΥΦΟς", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(other.open(kUser, u"\\Lumora\\Unicode", RegistryAccess::read), kRegistryNotFound);

    ASSERT_EQ(writeText(key, u"Nämé", u"first"), kRegistryOk);
    ASSERT_EQ(writeText(key, u"NÄMÉ", u"second"), kRegistryOk);
    EXPECT_EQ(readText(key, u"näMé"), u"second");
    char16_t name[16];
    uint32_t length = 16;
    ASSERT_EQ(key.valueAt(0, name, &length, nullptr, nullptr, nullptr), kRegistryOk);
    EXPECT_EQ(std::u16string(name, length), u"Nämé");
    EXPECT_EQ(key.valueAt(1, name, &length, nullptr, nullptr, nullptr), kRegistryNoMoreItems);

    // A key made again in another case is the same key, under its first name.
    ASSERT_EQ(key.create(kUser, u"\\LUMORA\\ÜNÏCODE\\ΣΊΣΥΦΟΣ\\Ω"), kRegistryOk);
    ASSERT_EQ(key.open(kUser, u"\\lumora", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(subKeys(key), std::vector<std::u16string>{u"Ünïcode"});
}

TEST_F(RegistryStore, EnumerationFollowsFoldedNamesForKeysAndFirstWriteForValues) {
    RegistryKey key;
    for (const char16_t* path : {u"\\Set\\b", u"\\Set\\Ä", u"\\Set\\A", u"\\Set\\c"})
        ASSERT_EQ(key.create(kUser, path), kRegistryOk);
    ASSERT_EQ(key.open(kUser, u"\\Set", RegistryAccess::write), kRegistryOk);
    EXPECT_EQ(subKeys(key), (std::vector<std::u16string>{u"A", u"b", u"c", u"Ä"}));

    uint32_t one = 1;
    for (const char16_t* name : {u"z", u"y", u"x", u"Z"})
        ASSERT_EQ(key.writeValue(name, kRegistryNumber, &one, 4), kRegistryOk);
    std::vector<std::u16string> names;
    char16_t name[4];
    uint32_t length = 4;
    for (uint32_t i = 0; key.valueAt(i, name, &length, nullptr, nullptr, nullptr) == kRegistryOk; ++i) {
        names.emplace_back(name, length);
        length = 4;
    }
    EXPECT_EQ(names, (std::vector<std::u16string>{u"z", u"y", u"x"}));

    // A walk keeps the key as it was at its start; the next walk sees the change.
    char16_t first[8];
    length = 8;
    ASSERT_EQ(key.subKeyAt(0, first, &length), kRegistryOk);
    RegistryKey added;
    ASSERT_EQ(added.create(kUser, u"\\Set\\0"), kRegistryOk);
    length = 8;
    ASSERT_EQ(key.subKeyAt(1, first, &length), kRegistryOk);
    EXPECT_EQ(std::u16string(first, length), u"b");
    EXPECT_EQ(subKeys(key), (std::vector<std::u16string>{u"0", u"A", u"b", u"c", u"Ä"}));
    ASSERT_EQ(added.open(kUser, u"\\Set", RegistryAccess::write), kRegistryOk);
    ASSERT_EQ(added.deleteSubKey(u"0"), kRegistryOk);
    length = 8;
    ASSERT_EQ(key.subKeyAt(3, first, &length), kRegistryOk);  // not the next index
    EXPECT_EQ(std::u16string(first, length), u"Ä");
}

// Key info tells the key as it is now, while a walk under way keeps what it started
// with; a key opened again by its path is the key the path names now, also after
// another process deleted it and made it anew.
TEST_F(RegistryStore, InfoWalksAndReopenedPathsFollowOtherWriters) {
    RegistryKey key;
    for (const char16_t* path : {u"\\Set\\a", u"\\Set\\b", u"\\Set\\c"})
        ASSERT_EQ(key.create(kUser, path), kRegistryOk);
    ASSERT_EQ(key.open(kUser, u"\\Set", RegistryAccess::read), kRegistryOk);
    RegistryKeyInfo info;
    ASSERT_EQ(key.info(info), kRegistryOk);
    EXPECT_EQ(info.subKeys, 3u);
    ASSERT_TRUE(tool("add '\\Set\\longer'"));
    EXPECT_EQ(subKeys(key), (std::vector<std::u16string>{u"a", u"b", u"c", u"longer"})) << "a walk after info";

    char16_t name[16];
    uint32_t length = 16;
    ASSERT_EQ(key.subKeyAt(0, name, &length), kRegistryOk);
    ASSERT_TRUE(tool("add '\\Set\\d'"));
    ASSERT_EQ(key.info(info), kRegistryOk);
    EXPECT_EQ(info.subKeys, 5u) << "the key as it is now";
    EXPECT_EQ(info.longestSubKeyName, 6u);
    std::vector<std::u16string> rest;
    for (uint32_t i = 1;; ++i) {
        length = 16;
        if (key.subKeyAt(i, name, &length) != kRegistryOk) break;
        rest.emplace_back(name, length);
    }
    EXPECT_EQ(rest, (std::vector<std::u16string>{u"b", u"c", u"longer"})) << "the walk as it began";
    EXPECT_EQ(subKeys(key).size(), 5u);

    RegistryKey value;
    ASSERT_EQ(value.create(kUser, u"\\Set\\a"), kRegistryOk);
    ASSERT_EQ(writeText(value, u"v", u"first"), kRegistryOk);
    ASSERT_EQ(value.open(kUser, u"\\Set\\A", RegistryAccess::read), kRegistryOk);
    ASSERT_TRUE(tool("delete '\\Set\\a' /f"));
    ASSERT_TRUE(tool("add '\\Set\\a' /v v /d second"));
    ASSERT_EQ(value.open(kUser, u"\\Set\\a", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(readText(value, u"v"), u"second");
    ASSERT_TRUE(tool("delete '\\Set\\a' /f"));
    EXPECT_EQ(value.open(kUser, u"\\Set\\a", RegistryAccess::read), kRegistryNotFound);
    ASSERT_EQ(key.open(kUser, u"\\Set", RegistryAccess::write), kRegistryOk);
    ASSERT_EQ(key.deleteSubKey(u"b"), kRegistryOk);
    EXPECT_EQ(value.open(kUser, u"\\Set\\b", RegistryAccess::read), kRegistryNotFound) << "deleted here";
}

TEST_F(RegistryStore, StatusesBuffersAndKeyInfo) {
    RegistryKey key, missing;
    EXPECT_EQ(missing.open(kUser, u"\\Nowhere", RegistryAccess::read), kRegistryNotFound);
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.readValue(u"x", nullptr, nullptr, nullptr), kRegistryInvalidHandle);
    ASSERT_EQ(key.create(kUser, u"\\App"), kRegistryOk);
    EXPECT_EQ(key.readValue(u"LOADER", nullptr, nullptr, nullptr), kRegistryNotFound);

    // A text longer than 259 units through a 520-byte buffer, then the size asked for.
    std::u16string loader(300, u'L');
    ASSERT_EQ(writeText(key, u"LOADER", loader), kRegistryOk);
    std::vector<char> buffer(520, 'x');
    uint32_t type = 0, size = uint32_t(buffer.size());
    EXPECT_EQ(key.readValue(u"LOADER", &type, buffer.data(), &size), kRegistryMoreData);
    EXPECT_EQ(size, 602u);
    EXPECT_EQ(buffer[0], 'x');
    buffer.resize(size + 4);
    size = uint32_t(buffer.size());
    ASSERT_EQ(key.readValue(u"LOADER", &type, buffer.data(), &size), kRegistryOk);
    EXPECT_EQ(type, kRegistryString);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(buffer.data())), loader);

    uint32_t number = 0x8000002A, read = 0;
    ASSERT_EQ(key.writeValue(u"LOADCTRLS", kRegistryNumber, &number, 4), kRegistryOk);
    size = 4;
    ASSERT_EQ(key.readValue(u"LOADCTRLS", &type, &read, &size), kRegistryOk);
    EXPECT_EQ(type, kRegistryNumber);
    EXPECT_EQ(read, number);

    // A value name longer than 127 units through a 128-unit buffer.
    std::u16string longName(200, u'n');
    ASSERT_EQ(writeText(key, longName.c_str(), u"v"), kRegistryOk);
    std::vector<char16_t> name(128);
    uint32_t nameLength = 128;
    size = 0;
    EXPECT_EQ(key.valueAt(2, name.data(), &nameLength, &type, nullptr, &size), kRegistryMoreData);
    EXPECT_EQ(nameLength, 200u);
    name.resize(nameLength + 1);
    nameLength = uint32_t(name.size());
    ASSERT_EQ(key.valueAt(2, name.data(), &nameLength, &type, nullptr, &size), kRegistryOk);
    EXPECT_EQ(std::u16string(name.data()), longName);
    EXPECT_EQ(size, 4u);

    RegistryKey sub;
    ASSERT_EQ(sub.create(kUser, u"\\App\\Groups"), kRegistryOk);
    ASSERT_EQ(sub.create(kUser, u"\\App\\Commands"), kRegistryOk);
    RegistryKeyInfo info;
    ASSERT_EQ(key.info(info), kRegistryOk);
    EXPECT_EQ(info.subKeys, 2u);
    EXPECT_EQ(info.longestSubKeyName, 8u);
    EXPECT_EQ(info.values, 3u);
    EXPECT_EQ(info.longestValueName, 200u);
    EXPECT_EQ(info.longestValueData, 602u);
    char16_t shortName[4];
    uint32_t shortLength = 4;
    EXPECT_EQ(key.subKeyAt(0, shortName, &shortLength), kRegistryMoreData);
    EXPECT_EQ(shortLength, 8u);
    EXPECT_EQ(key.subKeyAt(2, shortName, &shortLength), kRegistryNoMoreItems);
}

TEST_F(RegistryStore, HostileInputIsRefusedWithoutAWrite) {
    RegistryKey key;
    std::u16string longest(kRegistryMaxKeyName, u'k');
    EXPECT_EQ(key.create(kUser, (u"\\Top\\" + longest).c_str()), kRegistryOk);
    EXPECT_EQ(key.create(kUser, (u"\\Top2\\" + longest + u"k").c_str()), kRegistryInvalidArgument);
    std::u16string deep;
    for (uint32_t i = 0; i <= kRegistryMaxKeyDepth; ++i) deep += u"\\d";
    EXPECT_EQ(key.create(kUser, deep.c_str()), kRegistryInvalidArgument);
    EXPECT_EQ(key.open(kUser, u"\\Top2", RegistryAccess::read), kRegistryNotFound);

    ASSERT_EQ(key.create(kUser, u"\\Values"), kRegistryOk);
    uint32_t number = 7;
    std::u16string text = u"abc";
    std::u16string hugeName(kRegistryMaxValueName + 1, u'v');
    EXPECT_EQ(key.writeValue(hugeName.c_str(), kRegistryString, text.c_str(), 8), kRegistryInvalidArgument);
    EXPECT_EQ(key.writeValue(u"t", 3, &number, 4), kRegistryInvalidArgument);         // no such type
    EXPECT_EQ(key.writeValue(u"t", kRegistryNumber, &number, 2), kRegistryInvalidArgument);
    EXPECT_EQ(key.writeValue(u"t", kRegistryString, text.c_str(), 5), kRegistryInvalidArgument);
    EXPECT_EQ(key.writeValue(u"t", kRegistryString, nullptr, 8), kRegistryInvalidArgument);
    std::string huge(kRegistryMaxValueSize + 2, 'a');
    EXPECT_EQ(key.writeValue(u"t", kRegistryString, huge.data(), uint32_t(huge.size())), kRegistryInvalidArgument);
    RegistryKeyInfo info;
    ASSERT_EQ(key.info(info), kRegistryOk);
    EXPECT_EQ(info.values, 0u);

    // A text without its terminator gets one; the empty name is a value of its own.
    ASSERT_EQ(key.writeValue(nullptr, kRegistryString, text.c_str(), 6), kRegistryOk);
    uint32_t size = 0;
    ASSERT_EQ(key.readValue(u"", nullptr, nullptr, &size), kRegistryOk);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(readText(key, nullptr), u"abc");

    RegistryKey reader;
    ASSERT_EQ(reader.open(kUser, u"\\Values", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(reader.writeValue(u"t", kRegistryNumber, &number, 4), kRegistryAccessDenied);
    EXPECT_EQ(reader.deleteValue(u""), kRegistryAccessDenied);
}

TEST_F(RegistryStore, DeleteRefusesKeysWithSubKeysAndTakesTheValues) {
    RegistryKey key, root;
    ASSERT_EQ(key.create(kUser, u"\\Apps\\One\\Groups"), kRegistryOk);
    ASSERT_EQ(key.open(kUser, u"\\Apps\\One", RegistryAccess::write), kRegistryOk);
    ASSERT_EQ(writeText(key, u"LOADER", u"one.krx"), kRegistryOk);
    ASSERT_EQ(root.open(kUser, u"\\Apps", RegistryAccess::write), kRegistryOk);

    EXPECT_EQ(root.deleteSubKey(u"one"), kRegistryAccessDenied);
    EXPECT_EQ(readText(key, u"LOADER"), u"one.krx");
    EXPECT_EQ(root.deleteSubKey(u"Two"), kRegistryNotFound);
    EXPECT_EQ(root.deleteSubKey(u""), kRegistryInvalidArgument);
    EXPECT_EQ(key.deleteValue(u"DESCRIPTION"), kRegistryNotFound);

    EXPECT_EQ(root.deleteSubKey(u"ONE\\groups"), kRegistryOk);
    EXPECT_EQ(root.deleteSubKey(u"One"), kRegistryOk);
    ASSERT_EQ(key.create(kUser, u"\\Apps\\One"), kRegistryOk);
    EXPECT_EQ(key.readValue(u"LOADER", nullptr, nullptr, nullptr), kRegistryNotFound);
}

TEST_F(RegistryStore, KeyDeletedUnderAReaderReportsItAndStaysDeleted) {
    RegistryKey reader, writer, parent;
    ASSERT_EQ(writer.create(kUser, u"\\Watched"), kRegistryOk);
    ASSERT_EQ(writeText(writer, u"v", u"1"), kRegistryOk);
    ASSERT_EQ(reader.open(kUser, u"\\Watched", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(subKeys(reader).size(), 0u);

    ASSERT_EQ(parent.open(kUser, u"", RegistryAccess::write), kRegistryOk);
    ASSERT_EQ(parent.deleteSubKey(u"Watched"), kRegistryOk);
    RegistryKeyInfo info;
    char16_t name[8];
    uint32_t length = 8;
    EXPECT_EQ(reader.readValue(u"v", nullptr, nullptr, nullptr), kRegistryKeyDeleted);
    EXPECT_EQ(reader.info(info), kRegistryKeyDeleted);
    EXPECT_EQ(reader.subKeyAt(0, name, &length), kRegistryKeyDeleted);
    EXPECT_EQ(writeText(writer, u"v", u"2"), kRegistryKeyDeleted);

    // A new key of the same name is another key.
    RegistryKey again;
    ASSERT_EQ(again.create(kUser, u"\\Watched"), kRegistryOk);
    EXPECT_EQ(reader.readValue(u"v", nullptr, nullptr, nullptr), kRegistryKeyDeleted);
    EXPECT_EQ(again.readValue(u"v", nullptr, nullptr, nullptr), kRegistryNotFound);

    // Deleted by another process.
    ASSERT_TRUE(tool("delete '\\Watched'"));
    EXPECT_EQ(again.readValue(u"v", nullptr, nullptr, nullptr), kRegistryKeyDeleted);
}

TEST_F(RegistryStore, HiveMadeReadOnlyRefusesEveryWrite) {
    RegistryKey key, reader;
    ASSERT_EQ(key.create(kMachine, u"\\Lumora\\App"), kRegistryOk);
    ASSERT_EQ(writeText(key, u"LOADER", u"app.krx"), kRegistryOk);
    std::string before = fileBytes(folder / "machine.db");

    setRegistryHiveReadOnly(kMachine, true);
    RegistryBatch batch;
    EXPECT_EQ(reader.create(kMachine, u"\\Lumora\\Other"), kRegistryAccessDenied);
    EXPECT_EQ(reader.open(kMachine, u"\\Lumora", RegistryAccess::write), kRegistryAccessDenied);
    EXPECT_EQ(batch.begin(kMachine), kRegistryAccessDenied);
    EXPECT_EQ(writeText(key, u"LOADER", u"other.krx"), kRegistryAccessDenied);
    ASSERT_EQ(reader.open(kMachine, u"\\Lumora", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(reader.deleteSubKey(u"App"), kRegistryAccessDenied);
    ASSERT_EQ(reader.open(kMachine, u"\\Lumora\\App", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(readText(reader, u"LOADER"), u"app.krx");
    EXPECT_EQ(fileBytes(folder / "machine.db"), before);
    EXPECT_EQ(key.create(kUser, u"\\Lumora\\App"), kRegistryOk);  // the other hive writes

    setRegistryHiveReadOnly(kMachine, false);
    EXPECT_EQ(reader.create(kMachine, u"\\Lumora\\Other"), kRegistryOk);
}

TEST_F(RegistryStore, FilePermissionsDecideWhetherAHiveIsWritable) {
    RegistryKey key;
    ASSERT_EQ(key.create(kUser, u"\\Lumora"), kRegistryOk);
    key.close();
    fs::permissions(userFile, fs::perms::owner_read | fs::perms::group_read);
    if (std::ofstream(userFile, std::ios::app)) GTEST_SKIP() << "file permissions don't bind this user (root)";
    EXPECT_EQ(key.create(kUser, u"\\Lumora\\App"), kRegistryAccessDenied);
    EXPECT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryOk);
    fs::permissions(userFile, fs::perms::owner_write, fs::perm_options::add);
    fs::permissions(folder, fs::perms::owner_write, fs::perm_options::remove);  // no room for a journal
    EXPECT_EQ(key.create(kUser, u"\\Lumora\\App"), kRegistryAccessDenied);
    EXPECT_EQ(key.create(kMachine, u"\\Lumora"), kRegistryAccessDenied);      // no file, and none can be made
    fs::permissions(folder, fs::perms::owner_write, fs::perm_options::add);
    fs::copy_file(userFile, folder / "other.db");
    fs::permissions(folder / "other.db", fs::perms::none);  // unreadable
    setenv("LUMRX_REGISTRY_USER", (folder / "other.db").c_str(), 1);
    EXPECT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryAccessDenied);
}

TEST_F(RegistryStore, CorruptOrForeignFilesGiveAnErrorAndStayUntouched) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "this is no database, line " + std::to_string(i) + "\n";
    putFile(userFile, text);
    RegistryKey key;
    RegistryBatch batch;
    uint64_t counter = 0;
    EXPECT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryCorrupt);
    EXPECT_EQ(key.create(kUser, u"\\Lumora"), kRegistryCorrupt);
    EXPECT_EQ(batch.begin(kUser), kRegistryCorrupt);
    EXPECT_EQ(registryChangeCounter(kUser, counter), kRegistryCorrupt);
    EXPECT_FALSE(tool("add '\\Lumora' /v x /d y"));
    EXPECT_EQ(fileBytes(userFile), text);

    // A real hive, once with its pages past the first damaged, once marked as another
    // application's database.
    fs::remove(userFile);
    ASSERT_EQ(batch.begin(kUser), kRegistryOk);
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(key.create(kUser, (u"\\Keys\\K" + digits(i)).c_str()), kRegistryOk);
        ASSERT_EQ(writeText(key, u"data", std::u16string(100, u'd')), kRegistryOk);
    }
    ASSERT_EQ(batch.commit(), kRegistryOk);
    key.close();
    std::string hive = fileBytes(userFile);
    ASSERT_GT(hive.size(), 8192u);
    std::string damaged = hive;
    for (size_t i = 4096; i < damaged.size(); ++i) damaged[i] = char(0xA5 ^ i);
    std::string foreign = hive;
    foreign[68] ^= 0x5A;  // application_id
    for (const std::string& bytes : {damaged, foreign}) {
        putFile(userFile, bytes);
        EXPECT_EQ(key.open(kUser, u"\\Keys\\K0", RegistryAccess::read), kRegistryCorrupt);
        EXPECT_EQ(key.create(kUser, u"\\Keys\\New"), kRegistryCorrupt);
        EXPECT_EQ(fileBytes(userFile), bytes);
    }
}

TEST_F(RegistryStore, AnotherProcessSeesWritesAndItsOwnAreSeen) {
    RegistryKey key;
    ASSERT_EQ(key.create(kUser, u"\\Lumora\\App"), kRegistryOk);
    ASSERT_EQ(writeText(key, u"LOADER", u"Ünï.krx"), kRegistryOk);
    ASSERT_TRUE(tool("query '\\LUMORA\\APP' /v loader"));
    EXPECT_FALSE(tool("query '\\Lumora\\App' /v DESCRIPTION"));

    ASSERT_TRUE(tool("add '\\Lumora\\App\\Commands' /v CMD /d 'cmd,Ω'"));
    ASSERT_TRUE(tool("add '\\Lumora\\App' /v LOADCTRLS /t REG_DWORD /d 0x2a"));
    ASSERT_EQ(key.open(kUser, u"\\lumora\\app\\commands", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(readText(key, u"cmd"), u"cmd,Ω");
    ASSERT_EQ(key.open(kUser, u"\\Lumora\\App", RegistryAccess::read), kRegistryOk);
    uint32_t number = 0, size = 4;
    ASSERT_EQ(key.readValue(u"LOADCTRLS", nullptr, &number, &size), kRegistryOk);
    EXPECT_EQ(number, 42u);

    // Writers at the same time wait for each other rather than fail.
    std::string writers;
    for (int i = 0; i < 6; ++i) writers += "'" LUMRX_REG_TOOL "' add '\\Shared' /v v" + std::to_string(i) + " /d x & ";
    ASSERT_EQ(std::system((writers + "wait").c_str()), 0);
    RegistryKeyInfo info;
    ASSERT_EQ(key.open(kUser, u"\\Shared", RegistryAccess::read), kRegistryOk);
    ASSERT_EQ(key.info(info), kRegistryOk);
    EXPECT_EQ(info.values, 6u);
}

TEST_F(RegistryStore, ChangeCounterMovesWithEveryWriterAndOnlyThen) {
    uint64_t before = 0, after = 0;
    ASSERT_EQ(registryChangeCounter(kUser, before), kRegistryOk);  // no file yet
    ASSERT_EQ(registryChangeCounter(kUser, after), kRegistryOk);
    EXPECT_EQ(after, before);

    ASSERT_TRUE(tool("add '\\Lumora\\Applications'"));  // makes the file
    ASSERT_EQ(registryChangeCounter(kUser, after), kRegistryOk);
    EXPECT_NE(after, before);

    RegistryKey key;
    ASSERT_EQ(key.open(kUser, u"\\Lumora\\Applications", RegistryAccess::write), kRegistryOk);
    enum Writer { thisProcess, anotherProcess, replacedFile };
    for (Writer writer : {thisProcess, anotherProcess, replacedFile}) {
        SCOPED_TRACE(writer);
        ASSERT_EQ(registryChangeCounter(kUser, before), kRegistryOk);
        ASSERT_EQ(registryChangeCounter(kUser, after), kRegistryOk);
        EXPECT_EQ(after, before);
        if (writer == thisProcess) {
            ASSERT_EQ(writeText(key, u"v", u"1"), kRegistryOk);
        } else if (writer == anotherProcess) {
            ASSERT_TRUE(tool("add '\\Lumora\\Applications\\App' /v LOADER /d x"));
        } else {
            fs::remove(userFile);
            ASSERT_TRUE(tool("add '\\Lumora'"));
        }
        ASSERT_EQ(registryChangeCounter(kUser, after), kRegistryOk);
        EXPECT_NE(after, before);
    }
}

// A poll that finds nothing doesn't look at the file; it must still see a write that
// reaches the hive's content by any road: a hard link elsewhere, the real file behind a
// symbolic link, a file renamed over the hive, a folder made where the hive file was.
TEST_F(RegistryStore, ChangeCounterSeesEveryRoadToTheHiveFile) {
    fs::path other = folder / "other", real = folder / "real";
    fs::create_directories(other);
    fs::create_directories(real);
    auto toolOn = [&](const fs::path& file, const std::string& arguments) {
        std::string command = "LUMRX_REGISTRY_USER='" + file.string() + "' '" + LUMRX_REG_TOOL + "' " +
                              arguments + " >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    };
    auto unchangedThenChangedBy = [&](const std::function<bool()>& write) {
        uint64_t before = 0, again = 0, after = 0;
        RegistryKey key;
        EXPECT_EQ(registryChangeCounter(kUser, before), kRegistryOk);
        EXPECT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryOk) << "reading changes nothing";
        EXPECT_EQ(registryChangeCounter(kUser, again), kRegistryOk);
        EXPECT_EQ(again, before);
        EXPECT_TRUE(write());
        EXPECT_EQ(registryChangeCounter(kUser, after), kRegistryOk);
        EXPECT_NE(after, before);
        EXPECT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryOk);
    };
    ASSERT_TRUE(tool("add '\\Lumora'"));

    fs::create_hard_link(userFile, other / "link.db");
    unchangedThenChangedBy([&] { return toolOn(other / "link.db", "add '\\Lumora' /v hard /d 1"); });

    fs::rename(userFile, real / "user.db");
    fs::create_symlink(real / "user.db", userFile);
    unchangedThenChangedBy([&] { return toolOn(real / "user.db", "add '\\Lumora' /v real /d 1"); });

    ASSERT_TRUE(toolOn(other / "new.db", "add '\\Lumora\\New'"));
    unchangedThenChangedBy([&] {
        fs::rename(other / "new.db", userFile);
        return true;
    });
    RegistryKey key;
    EXPECT_EQ(key.open(kUser, u"\\Lumora\\New", RegistryAccess::read), kRegistryOk);

    // A symbolic link above the hive's folder pointed at another folder.
    fs::path a = folder / "a", b = folder / "b", link = folder / "deep" / "link";
    fs::create_directories(folder / "deep");
    fs::create_directories(a / "in");
    fs::create_directories(b / "in");
    ASSERT_TRUE(toolOn(a / "in" / "hive.db", "add '\\Lumora' /v place /d a"));
    ASSERT_TRUE(toolOn(b / "in" / "hive.db", "add '\\Lumora' /v place /d b"));
    fs::create_directory_symlink(a, link);
    setenv("LUMRX_REGISTRY_USER", (link / "in" / "hive.db").c_str(), 1);
    ASSERT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(readText(key, u"place"), u"a");
    unchangedThenChangedBy([&] {
        fs::create_directory_symlink(b, folder / "deep" / "next");
        fs::rename(folder / "deep" / "next", link);
        return true;
    });
    ASSERT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryOk);
    EXPECT_EQ(readText(key, u"place"), u"b");

    fs::path hiveFolder = folder / "hive";
    setenv("LUMRX_REGISTRY_USER", hiveFolder.c_str(), 1);
    ASSERT_TRUE(tool("add '\\Lumora'"));
    fs::path moved = folder / "hive.db";
    fs::rename(hiveFolder, moved);
    fs::create_directories(hiveFolder);
    fs::copy_file(moved, hiveFolder / "registry.db");
    unchangedThenChangedBy([&] { return tool("add '\\Lumora' /v inside /d 1"); });
}

// A hive named by a relative path is the file in the current directory of each call.
TEST_F(RegistryStore, RelativeHivePathFollowsTheCurrentDirectory) {
    fs::path first = folder / "first", second = folder / "second", start = fs::current_path();
    fs::create_directories(first);
    fs::create_directories(second);
    setenv("LUMRX_REGISTRY_USER", "hive.db", 1);
    RegistryKey key;
    for (const fs::path& place : {first, second}) {
        fs::current_path(place);
        ASSERT_EQ(key.create(kUser, u"\\Here"), kRegistryOk);
        ASSERT_EQ(writeText(key, u"place", fs::path(place).filename().u16string()), kRegistryOk);
    }
    for (const fs::path& place : {first, second, first}) {
        fs::current_path(place);
        uint64_t counter = 0;
        EXPECT_EQ(registryChangeCounter(kUser, counter), kRegistryOk);
        ASSERT_EQ(key.open(kUser, u"\\Here", RegistryAccess::read), kRegistryOk);
        EXPECT_EQ(readText(key, u"place"), fs::path(place).filename().u16string());
    }
    fs::current_path(start);
}

TEST_F(RegistryStore, BatchLandsWholeOrNotAtAll) {
    RegistryKey key;
    {
        RegistryBatch batch;
        ASSERT_EQ(batch.begin(kUser), kRegistryOk);
        RegistryBatch second;
        EXPECT_EQ(second.begin(kUser), kRegistryInvalidArgument);
        ASSERT_EQ(key.create(kUser, u"\\Dropped\\Key"), kRegistryOk);
        ASSERT_EQ(writeText(key, u"v", u"x"), kRegistryOk);
        EXPECT_EQ(readText(key, u"v"), u"x");  // seen inside the batch
    }
    EXPECT_EQ(key.open(kUser, u"\\Dropped", RegistryAccess::read), kRegistryNotFound);

    RegistryBatch batch;
    ASSERT_EQ(batch.begin(kUser), kRegistryOk);
    ASSERT_EQ(key.create(kUser, u"\\Kept\\Key"), kRegistryOk);
    ASSERT_EQ(batch.commit(), kRegistryOk);
    EXPECT_EQ(batch.commit(), kRegistryInvalidHandle);
    EXPECT_EQ(key.open(kUser, u"\\kept\\key", RegistryAccess::read), kRegistryOk);
}

TEST_F(RegistryStore, HiveFilesFollowTheEnvironmentAndAreMadeOnFirstWrite) {
    const char* home = std::getenv("HOME");
    const char* config = std::getenv("XDG_CONFIG_HOME");
    std::string savedHome = home ? home : "", savedConfig = config ? config : "";
    RegistryKey key;

    setenv("LUMRX_REGISTRY_USER", folder.c_str(), 1);  // a folder: registry.db in it
    EXPECT_EQ(registryHivePath(kUser), (folder / "registry.db").u16string());
    ASSERT_EQ(key.open(kUser, u"\\Lumora", RegistryAccess::read), kRegistryNotFound);
    EXPECT_FALSE(fs::exists(folder / "registry.db"));  // reading makes nothing
    ASSERT_EQ(key.create(kUser, u"\\Lumora"), kRegistryOk);
    EXPECT_TRUE(fs::exists(folder / "registry.db"));

    unsetenv("LUMRX_REGISTRY_USER");
    setenv("XDG_CONFIG_HOME", (folder / "xdg").c_str(), 1);
    EXPECT_EQ(registryHivePath(kUser), (folder / "xdg/lumora/registry.db").u16string());
    ASSERT_EQ(key.create(kUser, u"\\Lumora"), kRegistryOk);
    EXPECT_TRUE(fs::exists(folder / "xdg/lumora/registry.db"));
    unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", (folder / "home").c_str(), 1);
    EXPECT_EQ(registryHivePath(kUser), (folder / "home/.config/lumora/registry.db").u16string());
    unsetenv("LUMRX_REGISTRY_MACHINE");
    EXPECT_EQ(registryHivePath(kMachine), u"/etc/lumora/registry.db");
    setenv("HOME", savedHome.c_str(), 1);
    if (config) setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1);
}

}  // namespace
