// tasket: the command frame in process (help, version, wrong command lines)
// and the real program over a store seeded in a private data folder.
#include "common/exit_code.h"
#include "common/version.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "tasket/tasket_cli.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace tasket::apps;
using tasket::testing::ProgramRun;
using tasket::testing::runProgram;

namespace {

ProgramRun runFrame(std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = runTasket(arguments, out, err);
    return {status, out.str(), err.str()};
}

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

// Help and version answer on standard output; a wrong command line gets
// the usage status and a pointer to --help on standard error only.
TEST(TasketCli, HelpVersionAndWrongCommandLines) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::vector<std::string> expected; // on the stream the status implies
    };
    const std::string version(kTasketVersion);
    const Case cases[] = {
        {{"version", "--json"},
         0,
         {"{\n  \"name\": \"tasket\",\n  \"version\": \"" + version + "\"\n}\n"}},
        {{"--help"}, 0, {"Usage: tasket [--help] COMMAND", "Print the program's version"}},
        {{"-h"}, 0, {"Usage: tasket [--help] COMMAND", "Exit status:"}},
        {{"version", "--help"},
         0,
         {"Usage: tasket version [--json]", "Prints \"tasket\" and the version"}},
        {{}, kExitUsage, {"tasket: no command given"}},
        {{"bogus"}, kExitUsage, {"tasket: unknown command \"bogus\""}},
        {{"demo"}, kExitUsage, {"tasket: unknown command \"demo\""}},
        {{"version", "extra"}, kExitUsage, {"tasket: "}},
        {{"version", "--nope"}, kExitUsage, {"tasket: "}},
        {{"--nope"}, kExitUsage, {"tasket: "}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        const ProgramRun run = runFrame(c.arguments);
        EXPECT_EQ(run.status, c.status);
        const std::string& shown = c.status == 0 ? run.out : run.err;
        EXPECT_EQ(c.status == 0 ? run.err : run.out, "");
        if (c.arguments.size() == 2 && c.arguments[1] == "--json") {
            EXPECT_EQ(shown, c.expected.front());
        }
        for (const auto& part : c.expected)
            EXPECT_TRUE(contains(shown, part)) << shown;
        if (c.status != 0) {
            EXPECT_TRUE(shown.starts_with(c.expected.front())) << shown;
            EXPECT_TRUE(contains(shown, "tasket --help")) << shown;
        }
    }
}

// The real program (main() and its streams) over a seeded store. (A damaged
// store is among the hostile inputs.)
TEST(TasketProgram, PrintsWhatTheStoreHoldsOrWhyNot) {
    tasket::testing::TempDir dir;
    std::ofstream(dir / "notes.txt") << std::string(1234, 'x');
    const ProgramRun seeded = runProgram(
        SEED_STORE_BINARY,
        {tasket::testing::groupFolder(dir.path()).string(), "--list", "Home", "--task",
         "Water plants", "--task", "Read article", "--url", "https://example.com/article",
         "--attach", "notes.txt", "--list", "Work", "--task", "Write report"},
        {.home = dir.path()});
    ASSERT_EQ(seeded.status, 0) << seeded.err;
    const auto at = seeded.out.find("\tRead article");
    ASSERT_NE(at, std::string::npos);
    const std::string sharedID = seeded.out.substr(at - 36, 36);

    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::vector<std::string> expected; // in this order
        std::vector<std::string> absent;
    };
    const std::vector<Case> cases = {
        {{"version"}, 0, {"tasket " + std::string(kTasketVersion) + "\n"}, {}},
        {{"lists"}, 0, {"Home\t2 tasks", "Work\t1 tasks"}, {}},
        {{"lists", "--json"},
         0,
         {"\"title\": \"Home\"", "\"tasks\": 2", "\"title\": \"Work\""},
         {}},
        {{"tasks", "--list", "Home"},
         0,
         {"Read article\tHome", "Water plants\tHome"},
         {"Write report"}},
        {{"tasks", "--search", "RE"}, 0, {"Write report", "Read article"}, {"Water plants"}},
        {{"tasks", "--list", "Elsewhere"}, kExitNoInput, {"there is no list \"Elsewhere\""}, {}},
        {{"show", sharedID},
         0,
         {"Read article", "list:  Home", "link:  https://example.com/article",
          "attachment: notes.txt (file, 1234 bytes)"},
         {}},
        // Identifiers are found whatever the case of their letters.
        {{"show", "--json", lower(sharedID)},
         0,
         {"\"title\": \"Read article\"", "\"url\": \"https://example.com/article\"",
          "\"list\": \"Home\"", "\"fileExtension\": \"txt\"", "\"size\": 1234"},
         {}},
        {{"show", "00000000-0000-0000-0000-000000000000"}, kExitNoInput, {"there is no task"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        const ProgramRun run = runProgram(TASKET_BINARY, c.arguments, {.home = dir.path()});
        EXPECT_EQ(run.status, c.status) << run.err;
        const std::string output = run.out + run.err;
        std::size_t from = 0;
        for (const auto& text : c.expected) {
            const std::size_t found = output.find(text, from);
            EXPECT_NE(found, std::string::npos) << text << " in\n" << output;
            from = found == std::string::npos ? from : found;
        }
        for (const auto& text : c.absent)
            EXPECT_FALSE(contains(output, text)) << output;
    }
}
