// The registry store on its hot paths, each given at the end as a ratio to a peer
// measured in the same run: a key open with a value read among 1 000 application keys
// against a prepared SQLite select of the value's row, a full enumeration of those
// 1 000 keys against a prepared select of their rows, and the change-counter poll
// when nothing changed against a bare stat of the hive file.
#include "lumplatform/registry.h"

#include "ratioreporter.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace lumplatform;
namespace fs = std::filesystem;

namespace {

constexpr int kKeys = 1000;
const char16_t* const kParent = u"\\Lumora\\Applications";

std::u16string appPath(int i) {
    std::u16string path = std::u16string(kParent) + u"\\App";
    for (char c : std::to_string(10000 + i).substr(1)) path.push_back(char16_t(c));
    return path;
}

// A user hive in a folder of its own with 1 000 application keys, each with a
// LOADER value, written in one batch.
struct Hive {
    fs::path folder = fs::temp_directory_path() / ("lumrx-registry-bench-" + std::to_string(std::random_device{}()));
    fs::path file = folder / "user.db";

    Hive() {
        fs::create_directories(folder);
        setenv("LUMRX_REGISTRY_USER", file.c_str(), 1);
        RegistryBatch batch;
        RegistryKey key;
        bool ok = batch.begin(RegistryHive::user) == kRegistryOk;
        std::u16string loader = u"C:\\Program Files\\Lumora\\Applications\\module.krx";
        for (int i = 0; ok && i < kKeys; ++i) {
            ok = key.create(RegistryHive::user, appPath(i).c_str()) == kRegistryOk &&
                 key.writeValue(u"LOADER", kRegistryString, loader.c_str(), uint32_t(loader.size() + 1) * 2) == kRegistryOk;
        }
        if (!ok || batch.commit() != kRegistryOk) {
            std::fprintf(stderr, "registrystore_bench: can't fill the hive %s\n", file.c_str());
            std::exit(1);
        }
    }
    ~Hive() { fs::remove_all(folder); }
};

Hive* gHive = nullptr;

void BM_Baseline_StatOfHiveFile(benchmark::State& state) {
    std::error_code error;
    for (auto _ : state) benchmark::DoNotOptimize(fs::status(gHive->file, error));
}
BENCHMARK(BM_Baseline_StatOfHiveFile);

void BM_ChangeCounterPoll_NoChange(benchmark::State& state) {
    uint64_t counter = 0;
    for (auto _ : state) {
        if (registryChangeCounter(RegistryHive::user, counter) != kRegistryOk) state.SkipWithError("poll failed");
        benchmark::DoNotOptimize(counter);
    }
}
BENCHMARK(BM_ChangeCounterPoll_NoChange);

void BM_OpenKeyAndReadValue_Among1000(benchmark::State& state) {
    std::vector<std::u16string> paths;
    for (int i = 0; i < kKeys; ++i) paths.push_back(appPath((i * 7919) % kKeys));
    char buffer[520];
    size_t next = 0;
    for (auto _ : state) {
        RegistryKey key;
        uint32_t size = sizeof buffer;
        if (key.open(RegistryHive::user, paths[next].c_str(), RegistryAccess::read) != kRegistryOk ||
            key.readValue(u"loader", nullptr, buffer, &size) != kRegistryOk)
            state.SkipWithError("read failed");
        next = (next + 1) % paths.size();
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_OpenKeyAndReadValue_Among1000);

void BM_EnumerateSubKeys_1000(benchmark::State& state) {
    for (auto _ : state) {
        RegistryKey key;
        RegistryKeyInfo info;
        if (key.open(RegistryHive::user, kParent, RegistryAccess::read) != kRegistryOk || key.info(info) != kRegistryOk)
            state.SkipWithError("open failed");
        std::vector<char16_t> name(info.longestSubKeyName + 1);
        uint32_t count = 0;
        for (uint32_t length = uint32_t(name.size()); key.subKeyAt(count, name.data(), &length) == kRegistryOk;
             length = uint32_t(name.size()))
            ++count;
        if (count != kKeys) state.SkipWithError("enumeration incomplete");
    }
}
BENCHMARK(BM_EnumerateSubKeys_1000);

// The peers: SQLite alone on a connection of its own, with the statements prepared
// once and the key ids known, as the store's rows are laid out (names UTF-16LE, folds
// UTF-16BE of the folded units).
struct Sql {
    sqlite3* db = nullptr;
    sqlite3_stmt* value = nullptr;
    sqlite3_stmt* children = nullptr;
    std::vector<int64_t> ids;  // of the application keys, in the look-up order
    int64_t parent = 0;

    Sql() {
        sqlite3_open_v2(gHive->file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_stmt* find = nullptr;
        sqlite3_prepare_v2(db, "SELECT id FROM keys WHERE parent = ?1 AND fold = ?2", -1, &find, nullptr);
        auto child = [&](int64_t id, const std::string& lower) {
            std::string fold;
            for (char c : lower) fold += std::string{'\0', c};
            sqlite3_bind_int64(find, 1, id);
            sqlite3_bind_blob(find, 2, fold.data(), int(fold.size()), SQLITE_TRANSIENT);
            int64_t found = sqlite3_step(find) == SQLITE_ROW ? sqlite3_column_int64(find, 0) : -1;
            sqlite3_reset(find);
            return found;
        };
        parent = child(child(0, "lumora"), "applications");
        for (int i = 0; i < kKeys; ++i) {
            std::string name = "app" + std::to_string(10000 + (i * 7919) % kKeys).substr(1);
            ids.push_back(child(parent, name));
        }
        sqlite3_finalize(find);
        sqlite3_prepare_v2(db, "SELECT type, data FROM vals WHERE key = ?1 AND fold = ?2", -1, &value, nullptr);
        sqlite3_prepare_v2(db, "SELECT name FROM keys WHERE parent = ?1 ORDER BY fold", -1, &children, nullptr);
    }
    ~Sql() {
        sqlite3_finalize(value);
        sqlite3_finalize(children);
        sqlite3_close(db);
    }
};

void BM_Baseline_SqliteSelectOfValueRow(benchmark::State& state) {
    Sql sql;
    const std::string fold = std::string("\0l\0o\0a\0d\0e\0r", 12);
    char buffer[520];
    size_t next = 0;
    for (auto _ : state) {
        sqlite3_bind_int64(sql.value, 1, sql.ids[next]);
        sqlite3_bind_blob(sql.value, 2, fold.data(), int(fold.size()), SQLITE_STATIC);
        if (sqlite3_step(sql.value) != SQLITE_ROW) state.SkipWithError("row missing");
        std::memcpy(buffer, sqlite3_column_blob(sql.value, 1), size_t(sqlite3_column_bytes(sql.value, 1)));
        sqlite3_reset(sql.value);
        next = (next + 1) % sql.ids.size();
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_Baseline_SqliteSelectOfValueRow);

void BM_Baseline_SqliteSelectOfSubKeyRows(benchmark::State& state) {
    Sql sql;
    for (auto _ : state) {
        sqlite3_bind_int64(sql.children, 1, sql.parent);
        uint32_t count = 0;
        while (sqlite3_step(sql.children) == SQLITE_ROW) {
            benchmark::DoNotOptimize(sqlite3_column_blob(sql.children, 0));
            ++count;
        }
        sqlite3_reset(sql.children);
        if (count != kKeys) state.SkipWithError("rows missing");
    }
}
BENCHMARK(BM_Baseline_SqliteSelectOfSubKeyRows);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Hive hive;
    gHive = &hive;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");  // the console's last colour code has no line of its own
    reporter.printGoal("registry: open key and read a value among 1 000", "a prepared SQLite select of the row",
                       "BM_OpenKeyAndReadValue_Among1000", "BM_Baseline_SqliteSelectOfValueRow", 2);
    reporter.printGoal("registry: enumerate 1 000 sub-keys", "a prepared SQLite select of the rows",
                       "BM_EnumerateSubKeys_1000", "BM_Baseline_SqliteSelectOfSubKeyRows", 2);
    reporter.printGoal("registry: change-counter poll without a change", "one stat of the hive file",
                       "BM_ChangeCounterPoll_NoChange", "BM_Baseline_StatOfHiveFile", 1.5);
    benchmark::Shutdown();
    return 0;
}
