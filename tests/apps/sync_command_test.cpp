// tasket sync as a program against a real PostgreSQL server: what it says
// when nothing is configured, when the setting is unsafe, when the server
// is down; setup prepares the server it then reports, and now carries a
// task from one device to another.
#include "support/postgres_server.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using tasket::testing::PostgresServer;
using tasket::testing::ProgramRun;
using tasket::testing::runProgram;
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

    server.stop();
    EXPECT_NE(tasket(home, {"sync", "status"}).out.find("Cannot reach the cloud database"),
              std::string::npos);
    const ProgramRun down = tasket(home, {"sync", "setup"});
    EXPECT_EQ(down.status, 69);
    EXPECT_NE(down.err.find("Cannot reach"), std::string::npos) << down.err;
}

} // namespace
