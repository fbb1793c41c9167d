// Hostile inputs through the real programs: a damaged or foreign store, a
// group folder that points elsewhere, a read-only store, a full disk, a
// settings file that is garbage, huge or not a file, a file-size limit that
// stops the save, and absurd command lines. Each must end with a message saying what is wrong (and,
// for the store, what to do), the documented exit status, and the user's files exactly as they
// were.
#include "common/exit_code.h"
#include "support/output_checks.h"
#include "support/program_run.h"
#include "support/sql.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace fs = std::filesystem;
using namespace tasket::apps;
using namespace tasket::testing;

namespace {

// Every non-empty regular file under `folder` (the shared-memory index is
// SQLite's, not the user's), by name.
std::map<std::string, std::string> filesIn(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && entry.file_size() > 0 &&
            !entry.path().string().ends_with("-shm"))
            files[fs::relative(entry.path(), folder)] = readFile(entry.path());
    return files;
}

struct Case {
    std::string name;
    std::function<void(const fs::path& home)> spoil;
    std::vector<std::string> says;         // in standard error, in this order
    std::vector<std::string> command = {}; // the program, then its arguments; empty: the test's
    int status = -1;                       // -1: the test's
    std::function<void(const fs::path& home)> restore = {};
};

class HostileInputs : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        // One small store, written by the program and checkpointed.
        s_store = new TempDir;
        for (const char* link : {"https://example.org/a", "https://example.org/b"})
            ASSERT_EQ(run({TASKET_SHARE_BINARY, "--yes", link}, s_store->path()).status, 0);
        ASSERT_EQ(run({TASKET_BINARY, "lists"}, s_store->path()).status, 0);
    }
    static void TearDownTestSuite() { delete s_store; }

    static ProgramRun run(std::vector<std::string> command, const fs::path& home) {
        const std::string program = command.front();
        command.erase(command.begin());
        return runProgram(program, command, {.home = home});
    }

    static fs::path storeFile(const fs::path& home) { return groupFolder(home) / "TK_Data.sqlite"; }

    // Runs each case (with `command` and expecting `status` unless it says
    // otherwise) in a fresh copy of the store: the status, the messages, and
    // the home folder's files untouched.
    void check(const std::vector<Case>& cases, const std::vector<std::string>& command,
               int status) {
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            TempDir home;
            fs::copy(s_store->path(), home.path(), fs::copy_options::recursive);
            c.spoil(home.path());
            const auto before = filesIn(home.path());
            const ProgramRun ran = run(c.command.empty() ? command : c.command, home.path());
            EXPECT_EQ(ran.status, c.status < 0 ? status : c.status) << ran.err;
            expectInOrder(ran.err, c.says);
            EXPECT_TRUE(filesIn(home.path()) == before) << "a file of the user's changed";
            if (c.restore)
                c.restore(home.path());
        }
    }

    static inline TempDir* s_store = nullptr;
};

const std::vector<std::string> kLists = {TASKET_BINARY, "lists"};
const std::vector<std::string> kShare = {TASKET_SHARE_BINARY, "--yes", "https://example.org/c"};
const std::string kLoadFailure = "There was an error loading the persistent store: ";

} // namespace

TEST_F(HostileInputs, ADamagedOrForeignStoreIsNamedAndLeftAsItIs) {
    std::vector<Case> cases = {
        {"a zeroed header",
         [](const fs::path& home) {
             auto bytes = readFile(storeFile(home));
             std::fill_n(bytes.begin(), 100, '\0');
             writeFile(storeFile(home), bytes);
         },
         {kLoadFailure, "file is not a database", "Nothing was changed."}},
        {"a write-ahead log from another database",
         [](const fs::path& home) {
             // Another store's log: its first page describes other tables.
             TempDir other;
             ASSERT_EQ(
                 run({TASKET_SHARE_BINARY, "--yes", "https://example.org/x"}, other.path()).status,
                 0);
             // A program closing it would fold the log into the file.
             sqlite3* db = nullptr;
             sqlite3_open(storeFile(other.path()).c_str(), &db);
             sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
             // Two writes, since SQLite skips one that changes nothing.
             sqlite3_exec(db,
                          "UPDATE _meta SET value = value || 'x' WHERE key = 'identifier';"
                          "UPDATE _meta SET value = rtrim(value, 'x') WHERE key = 'identifier'",
                          nullptr, nullptr, nullptr);
             sqlite3_close(db);
             const auto log = storeFile(other.path()).string() + "-wal";
             ASSERT_GT(fs::file_size(log), 0u);
             writeFile(storeFile(home).string() + "-wal", readFile(log));
         },
         {kLoadFailure, "Nothing was changed."},
         kLists},
        {"another program's database",
         [](const fs::path& home) {
             fs::remove(storeFile(home));
             sqlRows(storeFile(home), "CREATE TABLE notes(text); INSERT INTO notes VALUES('mine')");
         },
         {kLoadFailure, "holds tables that are not a store's"}},
        {"a group folder that is a link to somewhere else",
         [](const fs::path& home) {
             const auto group = groupFolder(home);
             fs::rename(group, home / "elsewhere");
             fs::create_directory_symlink(home / "elsewhere", group);
         },
         {"link"}},
        {"a file-size limit the save would pass",
         [](const fs::path&) {},
         {kLoadFailure, "disk is not full"},
         {"/usr/bin/prlimit", "--fsize=4096", TASKET_SHARE_BINARY, "--yes", "https://e.org/d"}},
    };
    // A store the user may only read: root reads and writes anything, so
    // as root the program runs as nobody.
    const bool root = ::geteuid() == 0;
    auto asUser = [root](std::vector<std::string> command) {
        if (root)
            command.insert(command.begin(), {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                             "--clear-groups"});
        return command;
    };
    cases.push_back({"a read-only store",
                     [root](const fs::path& home) {
                         fs::permissions(storeFile(home), fs::perms::owner_read);
                         if (!root)
                             return;
                         for (const auto& entry : fs::recursive_directory_iterator(home))
                             ASSERT_EQ(::lchown(entry.path().c_str(), 65534, 65534), 0);
                         ASSERT_EQ(::chown(home.c_str(), 65534, 65534), 0);
                     },
                     {"attempt to write a readonly database", "can be read and written"},
                     asUser(kShare),
                     kExitNoPermission});
    // A full disk: a small file system holding the group folder, filled up.
    // Mounting one needs root.
    if (root)
        cases.push_back(
            {"a full disk",
             [](const fs::path& home) {
                 const auto group = groupFolder(home);
                 fs::rename(group, home / "kept");
                 fs::create_directory(group);
                 ASSERT_EQ(::mount("tmpfs", group.c_str(), "tmpfs", 0, "size=2m,mode=0700"), 0);
                 fs::copy(home / "kept", group);
                 fs::remove_all(home / "kept");
                 std::ofstream filler(group / "filler", std::ios::binary);
                 const std::string block(4096, '\0');
                 while (filler.write(block.data(), block.size()) && filler.flush()) {
                 }
             },
             {kLoadFailure, "disk I/O error", "disk is not full"},
             kShare,
             kExitSoftware,
             [](const fs::path& home) { ::umount2(groupFolder(home).c_str(), MNT_DETACH); }});
    // The store cut short at every page boundary.
    const auto size = fs::file_size(storeFile(s_store->path()));
    for (std::uintmax_t cut = 4096; cut < size; cut += 4096)
        cases.push_back({"cut at byte " + std::to_string(cut),
                         [cut](const fs::path& home) { fs::resize_file(storeFile(home), cut); },
                         {kLoadFailure, "malformed", "Nothing was changed."},
                         kLists});
    check(cases, kShare, kExitSoftware);
}

TEST_F(HostileInputs, AnUnusableSettingsFileIsReportedAndTheProgramsGoOnWithDefaults) {
    auto settings = [](auto&& make) {
        return [make](const fs::path& home) {
            fs::create_directories(home / "config");
            make(home / "config" / "group.QRX-Lumenforge.Tasket.json");
        };
    };
    const std::string garbage = [] {
        std::string bytes(4096, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<char>((i * 7919u + 13u) % 256u);
        return bytes;
    }();
    const std::vector<Case> cases = {
        {"binary garbage",
         settings([&](const fs::path& f) { writeFile(f, garbage); }),
         {"not a valid preferences document", "using defaults"}},
        {"huge",
         settings([](const fs::path& f) {
             writeFile(f, "{");
             fs::resize_file(f, 40u << 20);
         }),
         {"more than a document may hold", "using defaults"}},
        {"a folder",
         settings([](const fs::path& f) { fs::create_directory(f); }),
         {"cannot be read (it is not a regular file)"}},
        {"a named pipe",
         settings([](const fs::path& f) { ::mkfifo(f.c_str(), 0600); }),
         {"cannot be read (it is not a regular file)"}},
    };
    check(cases, kLists, kExitSuccess);
}

TEST_F(HostileInputs, SpecialFilesAndAbsurdCommandLinesAreRefusedOrBounded) {
    auto share = [](std::vector<std::string> items) {
        items.insert(items.begin(), {TASKET_SHARE_BINARY, "--yes"});
        return items;
    };
    const auto socketAt = [](const fs::path& home) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const auto path = (home / "socket").string();
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        ::close(fd);
    };
    const auto nothing = [](const fs::path&) {};
    std::vector<std::string> thousand = share({});
    for (int i = 0; i < 1000; ++i)
        thousand.push_back("--bogus" + std::to_string(i));
    // Each refusal leaves the store as it was: with nothing else to share,
    // nothing is saved.
    const std::vector<Case> cases = {
        {"a device", nothing, {"\"/dev/zero\": it is a device"}, share({"/dev/zero"})},
        {"a named pipe",
         [](const fs::path& h) { ::mkfifo((h / "pipe").c_str(), 0600); },
         {"\"pipe\": it is a FIFO"},
         share({"pipe"})},
        {"a socket", socketAt, {"\"socket\": it is a socket"}, share({"socket"})},
        {"a folder", nothing, {"\"/\""}, share({"/"})},
        {"a thousand unknown options", nothing, {"--bogus0"}, thousand, kExitUsage},
        {"a text longer than the store takes",
         nothing,
         {"UTF-8"},
         {TASKET_SHARE_BINARY, "--yes", "--text", std::string(120'000, 'x') + '\xff'}},
    };
    check(cases, {}, kExitDataError);
}
