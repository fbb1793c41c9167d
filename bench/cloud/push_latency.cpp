// Latency of a change between two devices of one account through the cloud
// database, with each device's tasket-notifier running (each in a session
// bus of its own): from `tasket add` on device A to device B's store holding
// the task, with no command run on B. A's daemon hears the commit and
// uploads it; the upload's push wakes B's daemon, which fetches it. The
// server is a real PostgreSQL started here. The commit lies between the
// start of `tasket add` and its exit, so both bounds are reported.
//
//   push_latency TASKET TASKET_NOTIFIER [CHANGES]   (default 50; min, median, p99, max in ms)
#include "support/postgres_server.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <fmt/format.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

using namespace tasket;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

// One device: its XDG home, set up for the server, with its daemon running.
struct Device {
    testing::TempDir home;
    pid_t session = -1;

    void startDaemon(const fs::path& notifier) {
        session = testing::startProgram("/usr/bin/dbus-run-session",
                                        {"--", "sh", "-c",
                                         "echo $$ > daemon.pid && exec \"$0\" 2>daemon.log",
                                         notifier.string()},
                                        {.home = home.path()});
        for (int i = 0; i < 1000 && !fs::exists(home / "daemon.pid"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ~Device() {
        pid_t daemon = 0;
        std::ifstream(home / "daemon.pid") >> daemon;
        if (daemon > 0)
            ::kill(daemon, SIGTERM);
        if (session > 0)
            ::waitpid(session, nullptr, 0);
    }
};

bool holds(const fs::path& storeFile, const std::string& title) {
    sqlite3* db = nullptr;
    bool found = false;
    if (sqlite3_open_v2(storeFile.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 100);
        sqlite3_stmt* query = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT 1 FROM TK_Task WHERE title = ?", -1, &query, nullptr) ==
            SQLITE_OK) {
            sqlite3_bind_text(query, 1, title.c_str(), -1, SQLITE_TRANSIENT);
            found = sqlite3_step(query) == SQLITE_ROW;
        }
        sqlite3_finalize(query);
    }
    sqlite3_close(db);
    return found;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: push_latency TASKET TASKET_NOTIFIER [CHANGES]\n";
        return 64;
    }
    const fs::path tasket = fs::absolute(argv[1]);
    const int changes = argc > 3 ? std::stoi(argv[3]) : 50;
    testing::PostgresServer server;
    Device a;
    Device b;
    const auto run = [&](const Device& device, const std::vector<std::string>& arguments) {
        const auto done = testing::runProgram(tasket, arguments, {.home = device.home.path()});
        if (done.status != 0)
            throw std::runtime_error(fmt::format("tasket {}: {}", arguments[0], done.err));
    };
    for (const auto* device : {&a, &b})
        run(*device, {"sync", "setup", "--connection", server.connectionFor("alice")});
    a.startDaemon(fs::absolute(argv[2]));
    b.startDaemon(fs::absolute(argv[2]));
    run(a, {"lists", "add", "Home"});
    const auto storeFile = testing::groupFolder(b.home.path()) / "TK_Data.sqlite";

    std::vector<double> fromStart;
    std::vector<double> fromExit;
    for (int i = 0; i < changes; ++i) {
        const std::string title = fmt::format("Change {}", i);
        const auto start = Clock::now();
        run(a, {"add", title, "--list", "Home"});
        const auto exited = Clock::now();
        while (!holds(storeFile, title)) {
            if (Clock::now() - start > std::chrono::seconds(10)) {
                std::cerr << "push_latency: device B never received \"" << title << "\"\n";
                for (const auto* device : {&a, &b})
                    std::cerr << std::ifstream(device->home / "daemon.log").rdbuf();
                return 70;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const auto held = Clock::now();
        fromStart.push_back(std::chrono::duration<double, std::milli>(held - start).count());
        fromExit.push_back(std::chrono::duration<double, std::milli>(held - exited).count());
    }
    for (auto* ms : {&fromStart, &fromExit}) {
        std::ranges::sort(*ms);
        std::cout << fmt::format(
            "{} -> B holds it, {} changes: min {:.1f} ms, median {:.1f} ms, p99 {:.1f} ms, "
            "max {:.1f} ms\n",
            ms == &fromStart ? "tasket add starts" : "tasket add exits", ms->size(), ms->front(),
            (*ms)[ms->size() / 2], (*ms)[ms->size() * 99 / 100], ms->back());
    }
    return 0;
}
