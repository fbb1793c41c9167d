// tasket sync as a program against a real PostgreSQL server: what it says
// when nothing is configured, when the setting is unsafe, when the server
// is down; setup prepares the server it then reports, and now carries a
// task from one device to another; with a notifier daemon running on each
// device, a task added on one reaches the other with no command there.
#include "support/postgres_server.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <thread>

using tasket::testing::PostgresServer;
using tasket::testing::ProgramRun;
using tasket::testing::runProgram;
using tasket::testing::startProgram;
using tasket::testing::TempDir;

namespace {

ProgramRun tasket(const TempDir& home, std::vector<std::string> arguments) {
    return runProgram(TASKET_BINARY, arguments, {.home = home.path()});
}

TEST(SyncCommand, SetupStatusAndWhatItRefuses) {
    PostgresServer server;
    TempDir home;
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string out;
        std::string err;
    };
    const std::string alice = server.connectionFor("alice");
    const std::vector<Case> cases = {
        {{"sync", "status"}, 0, "not configured", ""},
        {{"sync", "now"}, 69, "", "tasket sync setup --connection"},
        {{"sync", "setup", "--connection", "host=db password=secret"}, 65, "", "password"},
        {{"sync", "status", "--connection", alice}, 65, "", "takes no --connection"},
        {{"sync", "setup", "--connection", alice}, 0, "ready", ""},
        {{"sync", "setup"}, 0, "account alice", ""},
        {{"sync", "status", "--json"}, 0, R"("isServerSetUp": true)", ""},
    };
    for (const auto& c : cases) {
        const ProgramRun run = tasket(home, c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments[1] << run.err;
        EXPECT_NE(run.out.find(c.out), std::string::npos) << run.out;
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }

    // A second device of the same account receives what the first uploaded.
    ASSERT_EQ(tasket(home, {"lists", "add", "Home"}).status, 0);
    ASSERT_EQ(tasket(home, {"add", "Water plants", "--list", "Home"}).status, 0);
    const ProgramRun uploaded = tasket(home, {"sync", "now"});
    EXPECT_EQ(uploaded.status, 0) << uploaded.err;
    EXPECT_NE(uploaded.out.find("Synced"), std::string::npos);
    TempDir laptop;
    ASSERT_EQ(tasket(laptop, {"sync", "setup", "--connection", alice}).status, 0);
    const ProgramRun fetched = tasket(laptop, {"sync", "now", "--json"});
    EXPECT_NE(fetched.out.find(R"("applied": 2)"), std::string::npos) << fetched.out << fetched.err;
    EXPECT_NE(tasket(laptop, {"tasks"}).out.find("Water plants"), std::string::npos);
    // --sync fetches before the command.
    TempDir tablet;
    ASSERT_EQ(tasket(tablet, {"sync", "setup", "--connection", alice}).status, 0);
    EXPECT_NE(tasket(tablet, {"tasks", "--sync"}).out.find("Water plants"), std::string::npos);

    server.stop();
    EXPECT_NE(tasket(home, {"sync", "status"}).out.find("Cannot reach the cloud database"),
              std::string::npos);
    // A server that is down costs --sync one line of warning, not the command.
    const ProgramRun offline = tasket(home, {"tasks", "--sync"});
    EXPECT_EQ(offline.status, 0) << offline.err;
    EXPECT_NE(offline.out.find("Water plants"), std::string::npos);
    EXPECT_TRUE(offline.err.starts_with("tasket: warning: not synced:") &&
                std::ranges::count(offline.err, '\n') == 1)
        << offline.err;
    const ProgramRun down = tasket(home, {"sync", "setup"});
    EXPECT_EQ(down.status, 69);
    EXPECT_NE(down.err.find("Cannot reach"), std::string::npos) << down.err;
}

// The notifier daemon of `home` in a private session bus of its own.
class DaemonRun {
  public:
    explicit DaemonRun(const TempDir& home) : m_pidFile(home / "notifier.pid") {
        m_session = startProgram("/usr/bin/dbus-run-session",
                                 {"--", "sh", "-c",
                                  R"(echo $$ >"$1.new"; mv "$1.new" "$1"; exec "$2" 2>"$1.log")",
                                  "sh", m_pidFile.string(), TASKET_NOTIFIER_BINARY},
                                 {.home = home.path()});
        for (int i = 0; i < 500 && !std::filesystem::exists(m_pidFile); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream(m_pidFile) >> m_daemon;
    }
    ~DaemonRun() {
        if (m_daemon > 0)
            ::kill(m_daemon, SIGTERM); // the session ends with it
        ::waitpid(m_session, nullptr, 0);
    }
    DaemonRun(const DaemonRun&) = delete;
    DaemonRun& operator=(const DaemonRun&) = delete;
    [[nodiscard]] std::string log() const {
        return tasket::testing::readFile(m_pidFile.string() + ".log");
    }
    [[nodiscard]] bool running() const { return m_daemon > 0 && ::kill(m_daemon, 0) == 0; }

  private:
    std::filesystem::path m_pidFile;
    pid_t m_session = -1;
    pid_t m_daemon = -1;
};

TEST(SyncCommand, RunningDaemonsCarryATaskBetweenDevicesUnasked) {
    PostgresServer server;
    TempDir desktop;
    TempDir laptop;
    for (const auto* home : {&desktop, &laptop})
        ASSERT_EQ(
            tasket(*home, {"sync", "setup", "--connection", server.connectionFor("alice")}).status,
            0);
    const DaemonRun onDesktop(desktop);
    const DaemonRun onLaptop(laptop);
    ASSERT_TRUE(onDesktop.running() && onLaptop.running());

    ASSERT_EQ(tasket(desktop, {"lists", "add", "Home"}).status, 0);
    const ProgramRun added = tasket(desktop, {"add", "Water plants", "--list", "Home"});
    ASSERT_EQ(added.status, 0) << added.err;
    bool arrived = false;
    for (int i = 0; i < 100 && !arrived; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        arrived = tasket(laptop, {"tasks"}).out.find("Water plants") != std::string::npos;
    }
    EXPECT_TRUE(arrived) << "the laptop's store never received the desktop's task\n"
                         << onDesktop.log() << onLaptop.log();
    EXPECT_TRUE(onDesktop.running() && onLaptop.running());
}

} // namespace
