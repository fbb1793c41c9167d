// tasket: the command frame in process (help, version, wrong command lines)
// and the real program over a store seeded in a private data folder.
#include "common/exit_code.h"
#include "common/version.h"
#include "platform/main_queue.h"
#include "platform/preferences/file_preferences_suite.h"
#include "settings/focus_filter.h"
#include "settings/settings_keys.h"
#include "support/output_checks.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "tasket/command_registry.h"
#include "tasket/tasket_cli.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace tasket::apps;
using namespace tasket::testing;

namespace {

ProgramRun runFrame(std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = runTasket(arguments, out, err);
    return {status, out.str(), err.str()};
}

// Seeds two lists with a task each under `home`; returns what it printed
// (one line per record: kind, identifier, title).
std::string seedTwoLists(const std::filesystem::path& home) {
    return seedStore(
        groupFolder(home),
        {"--list", "Home", "--task", "Water plants", "--list", "Work", "--task", "Write report"},
        home);
}

std::shared_ptr<tasket::platform::FilePreferencesSuite>
groupSuite(const std::filesystem::path& home) {
    return std::make_shared<tasket::platform::FilePreferencesSuite>(
        home / "config", std::string(tasket::settings::keys::kAppGroupSuite));
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
        {{"--version"}, 0, {version + "\n"}},
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
            EXPECT_TRUE(shown.contains(part)) << shown;
        if (c.status != 0) {
            EXPECT_TRUE(shown.starts_with(c.expected.front())) << shown;
            EXPECT_TRUE(shown.contains("tasket --help")) << shown;
        }
    }
}

// The real program (main() and its streams) over a seeded store. (A damaged
// store is among the hostile inputs; the lists' text form is in the daily
// test.)
TEST(TasketProgram, PrintsWhatTheStoreHoldsOrWhyNot) {
    TempDir dir;
    std::ofstream(dir / "notes.txt") << std::string(1234, 'x');
    const std::string seeded =
        seedStore(groupFolder(dir.path()),
                  {"--list", "Home", "--task", "Water plants", "--task", "Read article", "--url",
                   "https://example.com/article", "--attach", "notes.txt", "--list", "Work",
                   "--task", "Write report"},
                  dir.path());
    const auto at = seeded.find("\tRead article");
    ASSERT_NE(at, std::string::npos);
    const std::string sharedID = seeded.substr(at - 36, 36);
    std::string lowerID = sharedID;
    std::ranges::transform(lowerID, lowerID.begin(),
                           [](unsigned char c) { return std::tolower(c); });

    const std::vector<Step> steps = {
        {{"version"}, 0, {"tasket " + std::string(kTasketVersion) + "\n"}},
        {{"lists", "--json"}, 0, {"\"title\": \"Home\"", "\"tasks\": 2", "\"title\": \"Work\""}},
        {{"tasks", "--list", "Home"},
         0,
         {"Read article\tHome", "Water plants\tHome"},
         {"Write report"}},
        {{"tasks", "--search", "RE"}, 0, {"Write report", "Read article"}, {"Water plants"}},
        {{"tasks", "--list", "Elsewhere"}, kExitNoInput, {"there is no list \"Elsewhere\""}},
        {{"show", sharedID},
         0,
         {"Read article", "list:  Home", "link:  https://example.com/article",
          "attachment: notes.txt (file, 1234 bytes)"}},
        // Identifiers are found whatever the case of their letters.
        {{"show", "--json", lowerID},
         0,
         {"\"title\": \"Read article\"", "\"url\": \"https://example.com/article\"",
          "\"list\": \"Home\"", "\"fileExtension\": \"txt\"", "\"size\": 1234"}},
        {{"show", "00000000-0000-0000-0000-000000000000"}, kExitNoInput, {"there is no task"}},
        {{"entities", "tasks", "--id", sharedID, "--json"},
         0,
         {"\"title\": \"Read article\"", "\"category\": {", "\"title\": \"Home\""},
         {"Water plants"}},
        {{"entities", "focus-lists", "--search", "OR"}, 0, {"\tWork\n"}, {"Home"}},
    };
    runSteps(TASKET_BINARY, steps, {.home = dir.path()});
}

// While the lock is on, no command that shows stored data runs without a
// terminal to authenticate on: every such command of the program's own
// table is tried with arguments that would make it print, and nothing of
// the store (titles, identifiers) comes out.
TEST(TasketProgram, ShowsNothingStoredWhileLocked) {
    TempDir dir;
    const std::string seeded = seedTwoLists(dir.path());
    std::vector<std::string> secrets;
    std::istringstream lines(seeded);
    for (std::string kind, id, title;
         lines >> kind >> id && std::getline(lines >> std::ws, title);) {
        secrets.push_back(id);
        secrets.push_back(title);
    }
    ASSERT_EQ(secrets.size(), 8u);
    ASSERT_TRUE(
        groupSuite(dir.path())->setValue(tasket::settings::keys::kIsAuthenticationEnabled, true));

    const std::vector<std::vector<std::string>> argumentSets = {
        {}, {"--json"}, {secrets[2]}, {"Home"}, {"status"}, {"tasks"}, {"lists"}, {"set", "Home"}};
    for (const auto& command : makeCommands()) {
        const CommandInfo& info = command->info();
        if (!info.showsStoredData)
            continue;
        int gated = 0;
        for (const auto& extra : argumentSets) {
            std::vector<std::string> arguments = {std::string(info.keyword)};
            arguments.insert(arguments.end(), extra.begin(), extra.end());
            SCOPED_TRACE(::testing::PrintToString(arguments));
            const ProgramRun run = runProgram(TASKET_BINARY, arguments, {.home = dir.path()});
            for (const auto& secret : secrets) {
                const bool echoed = std::ranges::find(extra, secret) != extra.end();
                EXPECT_TRUE(echoed || !(run.out + run.err).contains(secret)) << run.out << run.err;
            }
            if (run.status == kExitLocked) {
                ++gated;
                EXPECT_TRUE(run.err.contains("Tasket is Locked")) << run.err;
            } else {
                EXPECT_EQ(run.status, kExitUsage) << run.err;
            }
        }
        EXPECT_GT(gated, 0) << info.keyword << " never got past its command line";
    }
}

// A focus set by one process is followed by another that watches the
// settings, and narrows the tasks the program prints.
TEST(TasketProgram, FocusSetByOneProcessIsFollowedByAnother) {
    TempDir dir;
    const std::string seeded = seedTwoLists(dir.path());
    const auto at = seeded.find("\tWork\n");
    ASSERT_NE(at, std::string::npos);
    const std::string workID = seeded.substr(at - 36, 36);

    auto suite = groupSuite(dir.path());
    auto focus = std::make_shared<tasket::settings::FocusManager>();
    auto following = tasket::settings::followStoredFocus(focus, suite);
    ASSERT_TRUE(following) << following.error().message;
    auto& mainQueue = tasket::platform::MainQueue::shared();

    ASSERT_EQ(runProgram(TASKET_BINARY, {"focus", "set", "Work"}, {.home = dir.path()}).status, 0);
    EXPECT_TRUE(mainQueue.runUntil(
        [&] { return focus->categories().value() == std::vector<std::string>{workID}; }));
    const ProgramRun tasks = runProgram(TASKET_BINARY, {"tasks"}, {.home = dir.path()});
    EXPECT_TRUE(tasks.out.contains("Write report") && !tasks.out.contains("Water plants"))
        << tasks.out;

    ASSERT_EQ(runProgram(TASKET_BINARY, {"focus", "clear"}, {.home = dir.path()}).status, 0);
    EXPECT_TRUE(mainQueue.runUntil([&] { return !focus->isFocused().value(); }));
}
