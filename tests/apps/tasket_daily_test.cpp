// tasket as people use it every day, through the real program in private
// XDG folders and a zone fourteen hours ahead of UTC, so that "today" is
// the local day: adding, selecting, completing, editing and deleting tasks,
// a smart list of today's tasks around midnight, the mistakes people make,
// and two tasket add at once losing nothing.
#include "common/exit_code.h"
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/clock.h"
#include "platform/date_text.h"
#include "support/output_checks.h"
#include "support/program_run.h"
#include "support/radicale_server.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

using namespace tasket::apps;
using namespace tasket::testing;

namespace {

constexpr const char* kZone = "Pacific/Kiritimati";

} // namespace

TEST(TasketDaily, CommandsDoWhatTheySayAndRefuseWhatTheyCannot) {
    TempDir dir;
    // The programs inherit the test's zone (the suite pins one for every test).
    ASSERT_EQ(setenv("TZ", kZone, 1), 0);
    const ProgramOptions options{.home = dir.path()};
    const auto zone = tasket::platform::Calendar::inZone(kZone).value();
    const auto now = tasket::platform::Clock::shared().now();
    const std::string today = tasket::platform::isoDay(now, zone);
    const std::string tomorrow = tasket::platform::isoDay(zone.addingDays(now, 1), zone);

    const auto share = TASKET_SHARE_BINARY;
    const std::vector<Step> steps = {
        {{"lists", "add", "Work"}, 0, {}, {}, "W"},
        {{"add", "Call Ann", "--list", "Work", "--due", today + "T23:59"}, 0, {}, {}, "A"},
        {{"add", "Pay rent", "--list", "{W}", "--due", tomorrow + "T00:00"}, 0, {}, {}, "B"},
        {{"add", "Sleep", "--list", "Home"},
         kExitNoInput,
         {"there is no list \"Home\"", "the lists are \"Work\"", "--create-list"}},
        {.arguments = {"--yes", "--list", "Home", "https://example.com"},
         .status = kExitNoInput,
         .expected = {"there is no list \"Home\"; the lists are \"Work\"; add --create-list"},
         .program = share},
        {{"add", "Sleep", "--list", "Home", "--create-list", "--pin"}, 0, {}, {}, "C"},
        {{"add", "Bad", "--due", "2026-02-30"}, kExitDataError, {"\"2026-02-30\" is not a date"}},
        {{"add", "Bad", "--tag", "urgent"}, kExitNoInput, {"there is no tag \"urgent\""}},
        {{"smart-lists", "add", "Today", "--due", "today"}},
        {{"smart-lists", "add", "Odd", "--due", "sometime"}, kExitDataError, {"--due takes"}},
        // Day-only: 23:59 today is today's, 00:00 tomorrow is not.
        {{"tasks", "--smart", "Today"}, 0, {"{A}\tCall Ann\tWork\t" + today}, {"Pay rent"}},
        {{"tasks", "--smart", "Today", "--json"},
         0,
         {"\"title\": \"Call Ann\"", "\"due\": \"" + today + "T23:59:00+14:00\""},
         {"Pay rent"}},
        {{"tasks", "--smart", "Nothing"}, kExitNoInput, {"there is no smart list \"Nothing\""}},
        {{"count", "--pending"}, 0, {"3\n"}},
        // A due date turns its reminder on; the queue follows every write.
        {{"reminders", "list"},
         0,
         {today + "T23:59:00+14:00\tdue\t{A}\tCall Ann", tomorrow + "T00:00:00+14:00\tdue\t{B}"}},
        {{"done", "{A}"}},
        {{"reminders", "list"}, 0, {"{B}"}, {"{A}"}},
        {{"count", "--completed", "--json"}, 0, {"\"count\": 1"}},
        {{"tasks", "--pending"}, 0, {"Sleep", "Pay rent"}, {"Call Ann"}},
        {{"tasks", "--filter", "pinned"}, 0, {"Sleep\tHome"}, {"Call Ann", "Pay rent"}},
        {{"tasks", "--filter", "later"}, kExitDataError, {"there is no quick filter \"later\""}},
        {{"done", "00000000-0000-0000-0000-000000000000"}, kExitNoInput, {"there is no task"}},
        {{"undone", "{A}"}},
        {{"count", "--completed"}, 0, {"0\n"}},
        {{"edit", "{B}", "--title", "Pay rent now", "--due", "none", "--note", "by transfer"},
         0,
         {"Pay rent now", "note:  by transfer"},
         {"due:"}},
        {{"tasks", "--search", "RENT"}, 0, {"Pay rent now\tWork\t\tpending"}},
        {{"delete", "{C}"}, kExitDataError, {"--yes"}},
        {{"delete", "{C}", "--yes"}},
        {{"tasks", "--list", "Work"}, 0, {"Pay rent now", "Call Ann"}, {"Sleep"}},
        {{"smart-lists"}, 0, {"Today\t1 tasks"}},
        {{"lists"}, 0, {"Home\t0 tasks", "Work\t2 tasks"}},
        // A new task's reminder rings unless told otherwise.
        {{"reminders", "list", "--json"},
         0,
         {"\"identifier\": \"{A}\"", "\"interruptionLevel\": \"active\""},
         {"{B}"}},
        {.arguments = {"add", "Wake", "--remind", tomorrow + "T07:15:59", "--remind-start", today,
                       "--level", "passive"},
         .capture = "R"},
        // The all-day start fires at the all-day reminder time; seconds are dropped.
        {{"reminders", "list", "--json"},
         0,
         {"\"identifier\": \"start.Date.{R}\"", "\"fireDate\": \"" + today + "T09:00:00+14:00\"",
          "\"interruptionLevel\": \"passive\"", "\"identifier\": \"{R}\"",
          "\"fireDate\": \"" + tomorrow + "T07:15:00+14:00\""}},
        {{"reminders", "remove", "{R}"}},
        {{"reminders", "list"}, 0, {"{A}"}, {"{R}"}},
        {{"edit", "{R}", "--repeat", "weekly", "--every", "2"}},
        {{"reminders", "list"}, 0, {"start\t{R}", "due\t{R}"}},
        {{"edit", "{R}", "--no-remind"}},
        {{"reminders", "list"}, 0, {"{A}"}, {"{R}"}},
        {.arguments = {"--yes", "--list", "Later", "--create-list", "--text", "Read",
                       "https://e.org"},
         .program = share},
        {{"tasks", "--list", "Later"}, 0, {"\tRead\tLater\t"}},
    };
    auto captured = runSteps(TASKET_BINARY, steps, options);
    EXPECT_TRUE(std::regex_match(captured["A"], std::regex("[0-9A-F-]{36}"))) << captured["A"];
}

// Several tasket add at the same moment on one store: each saves its task,
// and a program alone on the store closes it, leaving no log to replay (two
// that close at the same moment may each see the other still there).
TEST(TasketDaily, ParallelAddsLoseNothing) {
    TempDir dir;
    const ProgramOptions options{.home = dir.path()};
    ASSERT_EQ(runProgram(TASKET_BINARY, {"lists", "add", "Inbox"}, options).status, 0);
    constexpr int kRounds = 4;
    for (int round = 0; round < kRounds; ++round) {
        const pid_t first =
            startProgram(TASKET_BINARY, {"add", "first " + std::to_string(round)}, options);
        const pid_t second =
            startProgram(TASKET_BINARY, {"add", "second " + std::to_string(round)}, options);
        for (const pid_t child : {first, second}) {
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
    }
    const ProgramRun count = runProgram(TASKET_BINARY, {"count"}, options);
    EXPECT_EQ(count.out, std::to_string(2 * kRounds) + "\n") << count.err;
    EXPECT_FALSE(std::filesystem::exists(groupFolder(dir.path()) / "TK_Data.sqlite-wal"));
}

// Lists mirrored into a vdir folder: the tasks (a shared one at once) become
// .ics files that todoman lists, and an edit made there by another calendar program, or a
// task todoman made, comes back into the store; events are as khal shows them.
TEST(TasketDaily, CalendarsMirrorListsIntoVdirFolders) {
    TempDir dir;
    ASSERT_EQ(setenv("TZ", kZone, 1), 0); // whichever test runs first
    const ProgramOptions options{.home = dir.path()};
    const auto run = [&](const std::vector<std::string>& arguments,
                         const char* program = TASKET_BINARY) {
        const ProgramRun result = runProgram(program, arguments, options);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    };
    run({"lists", "add", "Home"});
    run({"add", "Buy milk", "--list", "Home", "--due", "2026-11-24"});
    const auto folder = dir / "calendars";
    run({"calendars", "sources", folder.string()});
    EXPECT_EQ(run({"calendars", "link", "Home", "--as", "reminders"}),
              "1 lists: 1 created, 0 updated, 0 read back, 0 imported, 0 deleted, 0 failed\n");
    EXPECT_NE(run({"calendars", "list"}).find("Home\treminders\t"), std::string::npos);

    std::filesystem::path file;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.path().extension() == ".ics")
            file = entry.path();
    ASSERT_FALSE(file.empty());
    std::string text = readFile(file);
    EXPECT_NE(text.find("DUE;VALUE=DATE:20261124"), std::string::npos) << text;
    const auto at = text.find("SUMMARY:Buy milk");
    ASSERT_NE(at, std::string::npos) << text;
    text.replace(at, 16, "SUMMARY:Buy oat milk");
    writeFile(file, text);

    std::filesystem::create_directories(dir / "config/todoman");
    std::ofstream(dir / "config/todoman/config.py")
        << "path = \"" << folder.string() << "/*\"\ndate_format = \"%Y-%m-%d\"\n";
    // A share into the mirrored list is in the calendar as soon as it is saved.
    run({"--yes", "--list", "Home", "--text", "Shared page", "https://example.org/p"},
        TASKET_SHARE_BINARY);
    const auto listed = run({"--porcelain", "list"}, TODOMAN_BINARY);
    EXPECT_NE(listed.find("\"summary\": \"Shared page\""), std::string::npos) << listed;
    EXPECT_NE(listed.find("\"summary\": \"Buy oat milk\""), std::string::npos) << listed;
    // The day starts at 2026-11-23T10:00Z in the zone.
    EXPECT_NE(listed.find("\"due\": 1795428000,"), std::string::npos) << listed;
    run({"new", "--list", "Home", "From todoman"}, TODOMAN_BINARY);

    EXPECT_NE(run({"calendars", "sync"}).find("1 read back, 1 imported"), std::string::npos);
    const auto tasks = run({"tasks", "--list", "Home"});
    EXPECT_NE(tasks.find("Buy oat milk"), std::string::npos) << tasks;
    EXPECT_NE(tasks.find("From todoman"), std::string::npos) << tasks;

    // An event calendar as khal shows it: an all-day task over two days (its
    // end day exclusive in the file) on each of them, and a timed one.
    run({"lists", "add", "Trips"});
    run({"add", "Conference", "--list", "Trips", "--start", "2026-11-23", "--due", "2026-11-24",
         "--all-day"});
    run({"add", "Call", "--list", "Trips", "--start", "2026-11-25T14:30", "--due",
         "2026-11-25T15:00"});
    run({"calendars", "link", "Trips", "--as", "events"});
    std::filesystem::create_directories(dir / "config/khal");
    std::ofstream(dir / "config/khal/config")
        << "[calendars]\n[[all]]\npath = " << folder.string() << "/*\ntype = discover\n"
        << "[locale]\ndateformat = %Y-%m-%d\nlongdateformat = %Y-%m-%d\ntimeformat = %H:%M\n"
        << "datetimeformat = %Y-%m-%d %H:%M\nlongdatetimeformat = %Y-%m-%d %H:%M\n";
    EXPECT_EQ(run({"list", "--day-format", "", "--format", "{start} | {end} | {title}",
                   "2026-11-20", "2026-11-30"},
                  KHAL_BINARY),
              "2026-11-23 | 2026-11-24 | Conference\n"
              "2026-11-23 | 2026-11-24 | Conference\n"
              "2026-11-25 14:30 | 2026-11-25 15:00 | Call\n");
}

// The same mirror through a CalDAV account on a real server, the login in
// ~/.netrc: the task is stored there, another client's edit comes back, and
// a task done with tasket is done there.
TEST(TasketDaily, CalendarsMirrorListsIntoACaldavAccount) {
    RadicaleServer server;
    TempDir dir;
    std::filesystem::copy_file(server.netrcFile(), dir / ".netrc");
    const ProgramOptions options{.home = dir.path()};
    const auto run = [&](const std::vector<std::string>& arguments) {
        const ProgramRun result = runProgram(TASKET_BINARY, arguments, options);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    };
    run({"lists", "add", "Home"});
    const std::string added = run({"add", "Buy milk", "--list", "Home"});
    run({"calendars", "sources", server.url()});
    EXPECT_EQ(run({"calendars", "link", "Home", "--as", "reminders"}),
              "1 lists: 1 created, 0 updated, 0 read back, 0 imported, 0 deleted, 0 failed\n");

    using tasket::platform::CalendarEntityType;
    tasket::platform::CaldavCalendarStore other({server.url()}, {server.netrcFile()});
    auto items = other.items(CalendarEntityType::reminder, {}).value();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items.front().title, "Buy milk");
    items.front().title = "Buy oat milk";
    ASSERT_TRUE(other.saveReminder(items.front(), true));
    EXPECT_NE(run({"calendars", "sync"}).find("1 read back"), std::string::npos);
    EXPECT_NE(run({"tasks", "--list", "Home"}).find("Buy oat milk"), std::string::npos);

    // A change made with tasket is in the calendar at once, and a sync then
    // has nothing to do.
    run({"done", added.substr(0, added.find('\n'))});
    EXPECT_TRUE(other.itemWithIdentifier(items.front().identifier)->completed);
    EXPECT_NE(run({"calendars", "sync"}).find("0 updated, 0 read back"), std::string::npos);
}
