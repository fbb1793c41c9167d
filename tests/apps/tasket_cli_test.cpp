#include "common/exit_code.h"
#include "common/version.h"
#include "tasket/tasket_cli.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

using namespace tasket::apps;

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome tasket(std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = runTasket(arguments, out, err);
    return {status, out.str(), err.str()};
}

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

TEST(TasketCli, VersionPrintsTextOrJson) {
    const Outcome text = tasket({"version"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.out, "tasket " + std::string(kTasketVersion) + "\n");
    EXPECT_EQ(text.err, "");

    const Outcome json = tasket({"version", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.out, "{\n  \"name\": \"tasket\",\n  \"version\": \"" +
                            std::string(kTasketVersion) + "\"\n}\n");
}

TEST(TasketCli, HelpExplainsTheProgramAndEachCommand) {
    for (const auto& arguments :
         {std::vector<std::string>{"--help"}, std::vector<std::string>{"-h"}}) {
        const Outcome help = tasket(arguments);
        EXPECT_EQ(help.status, 0);
        EXPECT_TRUE(contains(help.out, "Usage: tasket [--help] COMMAND")) << help.out;
        EXPECT_TRUE(contains(help.out, "version")) << help.out;
        EXPECT_TRUE(contains(help.out, "Print the program's version")) << help.out;
        EXPECT_TRUE(contains(help.out, "Exit status:")) << help.out;
    }
    const Outcome commandHelp = tasket({"version", "--help"});
    EXPECT_EQ(commandHelp.status, 0);
    EXPECT_TRUE(contains(commandHelp.out, "Usage: tasket version [--json]")) << commandHelp.out;
    EXPECT_TRUE(contains(commandHelp.out, "--json")) << commandHelp.out;
    EXPECT_TRUE(contains(commandHelp.out, "Prints \"tasket\" and the version")) << commandHelp.out;
}

TEST(TasketCli, WrongCommandLinesExitWithUsageStatus) {
    struct Case {
        std::vector<std::string> arguments;
        std::string message;
    };
    const Case cases[] = {
        {{}, "tasket: no command given"},   {{"bogus"}, "tasket: unknown command \"bogus\""},
        {{"version", "extra"}, "tasket: "}, {{"version", "--nope"}, "tasket: "},
        {{"--nope"}, "tasket: "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        const Outcome run = tasket(c.arguments);
        EXPECT_EQ(run.status, kExitUsage);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.err.starts_with(c.message)) << run.err;
        EXPECT_TRUE(contains(run.err, "tasket --help")) << run.err;
    }
}

TEST(TasketCli, TheProgramRunsTheFrame) {
    // The real executable, so main() and its streams are covered too.
    const auto run = [](const std::string& arguments) {
        std::string output;
        FILE* pipe = ::popen((std::string(TASKET_BINARY) + " " + arguments + " 2>&1").c_str(), "r");
        char buffer[256];
        while (std::fgets(buffer, sizeof buffer, pipe))
            output += buffer;
        const int status = ::pclose(pipe);
        return std::pair{WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
    };
    EXPECT_EQ(run("version"), std::pair(0, "tasket " + std::string(kTasketVersion) + "\n"));
    const auto [status, output] = run("bogus");
    EXPECT_EQ(status, kExitUsage);
    EXPECT_TRUE(contains(output, "unknown command \"bogus\"")) << output;
}

} // namespace
