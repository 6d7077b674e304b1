// Reliability of the registry and the demand-load lists with other processes about:
// two writers (the runtime and lumrx-reg) and a poller on one hive, a writer killed in
// the middle of a large import, and hives that can't be written (no rights, disk full).
//
// The program is its own helper: run with LUMRX_RELIABILITY_ROLE set it plays that
// writer instead of running the tests (see roleMain).
#include "kvoreappinfo.h"
#include "lumplatform/registry.h"
#include "testsupport.h"

#include <sqlite3.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using lumtest::u16;
using lumtest::utf8;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

const std::string kApps = "\\Software\\Lumora\\LumRxTest\\Applications\\";
constexpr unsigned kRuntimeReason = 4 | 0x20;
constexpr unsigned kImportReason = 4;
constexpr int kRecordsPerImport = 10;

std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

void appendLine(const std::string& file, const std::string& line) {
    std::ofstream out(file, std::ios::app);
    out << line << "\n";
}

std::vector<std::string> lines(const std::string& file) {
    std::ifstream in(file);
    std::vector<std::string> all;
    for (std::string line; std::getline(in, line);) all.push_back(line);
    return all;
}

// The lines of a lumrx-reg file for one record with group G and commands NAME_A and
// NAME_B, written by the runtime writer the same way.
std::string recordLines(const std::string& name, unsigned reason, const std::string& description = "") {
    char hex[16];
    snprintf(hex, sizeof hex, "%x", reason);
    std::string text = "[" + kApps + name + "]\n\"LOADCTRLS\"=dword:" + hex + "\n\"LOADER\"=\"" + name + ".krx\"\n";
    if (!description.empty()) text += "\"DESCRIPTION\"=\"" + description + "\"\n";
    text += "[" + kApps + name + "\\Groups]\n\"G\"=\"G\"\n[" + kApps + name + "\\Commands]\n\"" + name +
            "_A\"=\"_" + name + "_A\"\n\"" + name + "_B\"=\"_" + name + "_B\"\n";
    return text;
}

std::string folderOf(const std::string& file) { return fs::path(file).parent_path().string(); }

int runTool(const std::string& hive, const std::string& arguments) {
    std::string command = std::string("'") + LUMRX_REG_TOOL + "' --hive " + hive + " " + arguments + " >/dev/null 2>&1";
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Roles, each in a process of its own. LUMRX_RELIABILITY_REPORT names the file that
// gets a line for every record (or import) written, once the write has returned.

// The runtime writes records "Rt<pid>_<n>" for LUMRX_RELIABILITY_SECONDS.
int runtimeWriter() {
    lumtest::ensureRuntime();
    lumtest::FakeHost host;
    std::string report = env("LUMRX_RELIABILITY_REPORT");
    auto end = Clock::now() + std::chrono::seconds(std::atoi(env("LUMRX_RELIABILITY_SECONDS").c_str()));
    for (int n = 0; Clock::now() < end; ++n) {
        std::string name = "Rt" + std::to_string(getpid()) + "_" + std::to_string(n);
        KvoreAppInfo info;
        info.setAppName(u16(name).c_str());
        info.setModuleName(u16(name + ".krx").c_str());
        info.setLoadReason(kRuntimeReason);
        bool ok = info.writeToRegistry() == KvoreApp::eOk && info.writeGroupNameToRegistry(u"G") == KvoreApp::eOk &&
                  info.writeCommandNameToRegistry(u16(name + "_A").c_str(), u16("_" + name + "_A").c_str()) ==
                      KvoreApp::eOk &&
                  info.writeCommandNameToRegistry(u16(name + "_B").c_str(), u16("_" + name + "_B").c_str()) ==
                      KvoreApp::eOk;
        if (ok) appendLine(report, name);
    }
    return 0;
}

// lumrx-reg imports batches of kRecordsPerImport records "Imp<n>_<i>" into the machine
// hive, each batch in one file, for LUMRX_RELIABILITY_SECONDS; a batch imported is
// reported as "Imp<n>".
int importWriter() {
    std::string report = env("LUMRX_RELIABILITY_REPORT"), folder = env("LUMRX_RELIABILITY_FOLDER");
    auto end = Clock::now() + std::chrono::seconds(std::atoi(env("LUMRX_RELIABILITY_SECONDS").c_str()));
    for (int n = 0; Clock::now() < end; ++n) {
        std::string file = folder + "/batch.reg", text = "LUMRX-REG 1\n";
        for (int i = 0; i < kRecordsPerImport; ++i)
            text += recordLines("Imp" + std::to_string(n) + "_" + std::to_string(i), kImportReason);
        std::ofstream(file) << text;
        if (runTool("machine", "import '" + file + "'") == 0) appendLine(report, "Imp" + std::to_string(n));
    }
    return 0;
}

// Writes one record "Single" with a description of LUMRX_RELIABILITY_DESCRIPTION
// characters and reports the status of writeToRegistry, then that of a bare key
// create in the machine hive.
int recordWriter() {
    lumtest::ensureRuntime();
    lumtest::FakeHost host;
    KvoreAppInfo info;
    info.setAppName(u"Single");
    info.setModuleName(u"Single.krx");
    std::u16string description(size_t(std::atoi(env("LUMRX_RELIABILITY_DESCRIPTION").c_str())), u'd');
    info.setAppDesc(description.c_str());
    int status = info.writeToRegistry();
    lumplatform::RegistryKey key;
    int created = key.create(lumplatform::RegistryHive::machine, u"\\Software\\Lumora\\LumRxTest\\Bare");
    appendLine(env("LUMRX_RELIABILITY_REPORT"), std::to_string(status) + " " + std::to_string(created));
    return 0;
}

int roleMain(const std::string& role) {
    if (role == "runtime-writer") return runtimeWriter();
    if (role == "import-writer") return importWriter();
    if (role == "record-writer") return recordWriter();
    std::fprintf(stderr, "unknown role %s\n", role.c_str());
    return 2;
}

// How a helper process is started: what it changes in itself before it execs.
struct Start {
    std::map<std::string, std::string> env;
    bool dropRights = false;  // run as an unprivileged user when root
    rlim_t fileSizeLimit = RLIM_INFINITY;
};

pid_t startProcess(const std::vector<std::string>& argv, const Start& start) {
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid != 0) return pid;
    for (const auto& [name, value] : start.env) setenv(name.c_str(), value.c_str(), 1);
    if (start.fileSizeLimit != RLIM_INFINITY) {
        // A write past the limit fails with EFBIG instead of killing the process.
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {start.fileSizeLimit, start.fileSizeLimit};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    if (start.dropRights && getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(126);
    execv(args[0], args.data());
    _exit(127);
}

pid_t startRole(const std::string& role, Start start) {
    start.env["LUMRX_RELIABILITY_ROLE"] = role;
    return startProcess({"/proc/self/exe"}, start);
}

int waitFor(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

// SQLite's own check of a hive file, on a connection of its own (which also rolls
// back what a killed writer left in its journal).
std::string integrity(const fs::path& file) {
    sqlite3* db = nullptr;
    std::string result = "<can't open>";
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_stmt* check = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &check, nullptr) == SQLITE_OK &&
            sqlite3_step(check) == SQLITE_ROW)
            result = reinterpret_cast<const char*>(sqlite3_column_text(check, 0));
        sqlite3_finalize(check);
    }
    sqlite3_close(db);
    return result;
}

// The number of record keys in a hive.
uint32_t recordCount(lumplatform::RegistryHive hive) {
    lumplatform::RegistryKey key;
    lumplatform::RegistryKeyInfo info;
    std::u16string parent = u16(kApps);
    if (key.open(hive, parent.c_str(), lumplatform::RegistryAccess::read) != lumplatform::kRegistryOk) return 0;
    return key.info(info) == lumplatform::kRegistryOk ? info.subKeys : ~0u;
}

class Reliability : public lumtest::RuntimeTest {
protected:
    void SetUp() override {
        char folder[] = "/tmp/lumrx-reliability-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        m_folder = folder;
        chmod(folder, 0755);  // an unprivileged helper must reach the hives
        machine = m_folder + "/machine/registry.db";
        user = m_folder + "/user/registry.db";
        fs::create_directories(m_folder + "/machine");
        fs::create_directories(m_folder + "/user");
        setenv("LUMRX_REGISTRY_USER", user.c_str(), 1);
        setenv("LUMRX_REGISTRY_MACHINE", machine.c_str(), 1);
    }
    void TearDown() override {
        uninitDemandLoadKrxList();
        for (const char* sub : {"", "/machine", "/user"})
            fs::permissions(m_folder + sub, fs::perms::owner_all, fs::perm_options::add);
        std::filesystem::remove_all(m_folder);
    }

    std::string m_folder, machine, user;
    lumtest::FakeHost host;
};

// What a poll of the lists shows of the records that the writers write: every record
// present has its fields whole; an imported record has both its commands, and an
// import's records are all there or none. (The runtime writes a record's fields in one
// transaction and each command in one more, so its commands may come one by one.)
void expectWholeRecords(const std::string& when) {
    KvArray<const char16_t*> names, values;
    ASSERT_TRUE(getAllRegisterKrxAppCommandList(names, values));
    std::set<std::string> commands;
    for (int i = 0; i < names.length(); ++i) commands.insert(utf8(names[i]));
    std::map<std::string, int> perImport;
    for (const std::string& command : commands) {
        if (command.size() < 2 || command.compare(command.size() - 2, 2, "_A") != 0) continue;
        std::string record = command.substr(0, command.size() - 2);
        bool imported = record.rfind("Imp", 0) == 0;
        if (imported) {
            EXPECT_TRUE(commands.count(record + "_B")) << when << ": " << record << " has one command of two";
        }
        KvArray<KvoreRegisterKrxInfo*> found;
        ASSERT_TRUE(getRegisterKrxAppInfoList(u16(command).c_str(), found, false));
        ASSERT_EQ(found.length(), 1) << when << ": " << command;
        EXPECT_EQ(utf8(found[0]->appName()), record) << when;
        EXPECT_EQ(utf8(found[0]->moduleName()), record + ".krx") << when;
        EXPECT_EQ(found[0]->loadReason(), imported ? kImportReason : kRuntimeReason) << when << ": " << record;
        if (imported) ++perImport[record.substr(0, record.find('_'))];
    }
    for (const auto& [batch, count] : perImport)
        EXPECT_EQ(count, kRecordsPerImport) << when << ": import " << batch << " seen in part";
}

TEST_F(Reliability, TwoWritersAndAPollerSeeOnlyWholeRecords) {
    ASSERT_EQ(runTool("machine", "add '" + kApps + "'"), 0);
    ASSERT_TRUE(initDemandLoadKrxList());
    std::string runtimeReport = m_folder + "/runtime.txt", importReport = m_folder + "/import.txt";
    Start runtimeStart{{{"LUMRX_RELIABILITY_REPORT", runtimeReport}, {"LUMRX_RELIABILITY_SECONDS", "3"}}};
    Start importStart{{{"LUMRX_RELIABILITY_REPORT", importReport}, {"LUMRX_RELIABILITY_SECONDS", "3"},
                       {"LUMRX_RELIABILITY_FOLDER", m_folder}}};
    pid_t writers[] = {startRole("runtime-writer", runtimeStart), startRole("import-writer", importStart)};

    int polls = 0, refreshes = 0;
    for (bool running = true; running && !HasFatalFailure(); ++polls) {
        running = false;
        for (pid_t pid : writers) running = running || waitpid(pid, nullptr, WNOHANG) == 0;
        if (reLoadKrxListFromRegisterIfModified()) ++refreshes;
        expectWholeRecords("poll " + std::to_string(polls));
    }
    for (pid_t pid : writers) waitpid(pid, nullptr, 0);
    EXPECT_GT(refreshes, 1);

    // A fresh set-up reads every record that a writer reported, whole.
    uninitDemandLoadKrxList();
    ASSERT_TRUE(initDemandLoadKrxList());
    expectWholeRecords("after the writers");
    std::vector<std::string> written = lines(runtimeReport);
    for (const std::string& batch : lines(importReport))
        for (int i = 0; i < kRecordsPerImport; ++i) written.push_back(batch + "_" + std::to_string(i));
    EXPECT_GT(lines(runtimeReport).size(), 0u);
    EXPECT_GT(lines(importReport).size(), 0u);
    for (const std::string& record : written)
        for (const char* command : {"_A", "_B"}) {
            KvArray<KvoreRegisterKrxInfo*> found;
            ASSERT_TRUE(getRegisterKrxAppInfoList(u16("G." + record + command).c_str(), found, false));
            EXPECT_EQ(found.length(), 1) << record << command << " was reported written";
        }
    EXPECT_EQ(integrity(machine), "ok");
}

TEST_F(Reliability, WriterKilledInALargeImportLeavesAllOrNothing) {
    std::string file = m_folder + "/large.reg", text = "LUMRX-REG 1\n";
    for (int i = 0; i < 20000; ++i) text += recordLines("Large" + std::to_string(i), kImportReason);
    std::ofstream(file) << text;
    ASSERT_EQ(runTool("machine", "add '" + kApps + "Before' /v LOADCTRLS /t REG_DWORD /d 4"), 0);
    int killed = 0;
    for (int delayMs : {5, 40, 150}) {
        uint32_t before = recordCount(lumplatform::RegistryHive::machine);
        pid_t pid = startProcess({LUMRX_REG_TOOL, "--hive", "machine", "import", file}, Start{});
        // Wait for the import's journal, then a little more, and kill it.
        std::string journal = machine + "-journal";
        for (auto end = Clock::now() + std::chrono::seconds(20);
             !fs::exists(journal) && Clock::now() < end && waitpid(pid, nullptr, WNOHANG) == 0;)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        kill(pid, SIGKILL);
        int status = waitFor(pid);
        killed += WIFSIGNALED(status);
        EXPECT_EQ(integrity(machine), "ok") << "killed after " << delayMs << " ms";
        uint32_t after = recordCount(lumplatform::RegistryHive::machine);
        EXPECT_TRUE(after == before || after == before + 20000) << before << " -> " << after;
        if (after != before) {
            ASSERT_EQ(runTool("machine", "delete '" + kApps + "' /f"), 0);
        }
    }
    EXPECT_GT(killed, 0) << "no import was killed while it ran";

    // The hive goes on being written and read.
    KvoreAppInfo info;
    info.setAppName(u"After");
    info.setModuleName(u"After.krx");
    EXPECT_EQ(info.writeToRegistry(), KvoreApp::eOk);
    EXPECT_EQ(info.readFromRegistry(), KvoreApp::eOk);
}

TEST_F(Reliability, HivesThatCannotBeWrittenRefuseWholeAndTheOtherStaysUsable) {
    ASSERT_EQ(runTool("machine", "add '" + kApps + "Old' /v LOADCTRLS /t REG_DWORD /d 4"), 0);
    ASSERT_EQ(runTool("user", "add '" + kApps + "'"), 0);
    std::string report = m_folder + "/report.txt";
    auto writeAs = [&](Start start) {
        std::ofstream{report};  // empty, and writable by a helper without rights
        chmod(report.c_str(), 0666);
        start.env["LUMRX_RELIABILITY_REPORT"] = report;
        int status = waitFor(startRole("record-writer", start));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        std::vector<std::string> got = lines(report);
        return got.empty() ? std::string("<no report>") : got[0];
    };
    // The helper runs as a user without rights where they are denied: root drops its
    // own, as root would write anyway.
    auto rights = [&](const std::string& file, bool writable) {
        chmod(folderOf(file).c_str(), writable ? 0777 : 0555);
        chmod(file.c_str(), writable ? 0666 : 0444);
    };
    rights(machine, false);
    rights(user, true);

    // Machine hive read-only: the record lands whole in the user hive.
    EXPECT_EQ(writeAs(Start{{{"LUMRX_RELIABILITY_DESCRIPTION", "10"}}, true}), "0 5");
    EXPECT_EQ(recordCount(lumplatform::RegistryHive::machine), 1u) << "nothing written there";
    KvoreAppInfo single;
    single.setAppName(u"Single");
    EXPECT_EQ(single.readFromRegistry(), KvoreApp::eOk);
    EXPECT_EQ(utf8(single.appDesc()), std::string(10, 'd'));

    // Neither hive writable: 10 for the record, 5 for a bare key; nothing anywhere.
    ASSERT_EQ(runTool("user", "delete '" + kApps + "Single' /f"), 0);
    rights(user, false);
    EXPECT_EQ(writeAs(Start{{{"LUMRX_RELIABILITY_DESCRIPTION", "10"}}, true}), "10 5");
    EXPECT_EQ(recordCount(lumplatform::RegistryHive::user), 0u);
    EXPECT_EQ(recordCount(lumplatform::RegistryHive::machine), 1u);

    // Disk full: the files may grow by a few pages only; a record too large for that
    // is refused whole (10) and the hive stays sound; the other hive takes writes.
    rights(machine, true);
    rlim_t room = rlim_t(fs::file_size(machine)) + 8192;
    EXPECT_EQ(writeAs(Start{{{"LUMRX_RELIABILITY_DESCRIPTION", "200000"}}, false, room}), "10 0");
    std::string big = m_folder + "/big.reg", text = "LUMRX-REG 1\n";
    for (int i = 0; i < 500; ++i) text += recordLines("Full" + std::to_string(i), kImportReason);
    std::ofstream(big) << text;
    Start limited;
    limited.fileSizeLimit = room;
    int status = waitFor(startProcess({LUMRX_REG_TOOL, "--hive", "machine", "import", big}, limited));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the import can't fit";
    EXPECT_EQ(integrity(machine), "ok");
    EXPECT_EQ(recordCount(lumplatform::RegistryHive::machine), 1u) << "neither the record nor the import";
    KvoreAppInfo other;
    other.setAppName(u"Other");
    other.setModuleName(u"Other.krx");
    EXPECT_EQ(other.writeToRegistry(), KvoreApp::eOk);
    EXPECT_EQ(recordCount(lumplatform::RegistryHive::machine), 2u) << "a write without the limit";
}

}  // namespace

int main(int argc, char** argv) {
    std::string role = env("LUMRX_RELIABILITY_ROLE");
    if (!role.empty()) return roleMain(role);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
