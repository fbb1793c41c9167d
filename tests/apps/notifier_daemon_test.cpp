// The reminder daemon in this process, against the test notification server
// in a private bus, on a wall clock moved by hand; the real program where
// two of them meet and where a real server (dunst under Xvfb) shows a reminder.
#include "platform/clock.h"
#include "reminders/notification_manager.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "tasket-notifier/reminder_actions.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <future>
#include <sstream>
#include <thread>

namespace tasket::apps {
namespace {

using platform::CalendarTrigger;
using platform::Date;
using enum rules::TK_ReminderInterruptionLevel;
namespace fs = std::filesystem;

// The test notification server (tests/support/notification_server.cpp) in
// a private session bus of its own, for one test: what it was shown, and
// clicks on its notifications as a person's.
struct NotificationServerRun {
    explicit NotificationServerRun(fs::path where) : folder(std::move(where)) {
        fs::create_directories(folder);
        session = testing::startProgram("/usr/bin/dbus-run-session",
                                        {"--", NOTIFICATION_SERVER_BINARY, folder.string()},
                                        {.home = folder});
        for (int i = 0; i < 1000 && !fs::exists(folder / "ready"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream(folder / "ready") >> address >> server;
        EXPECT_FALSE(address.empty()) << "the test notification server did not start";
    }
    ~NotificationServerRun() {
        ::kill(server > 0 ? server : session, SIGTERM); // its bus ends with it
        ::waitpid(session, nullptr, 0);
    }
    // The log's lines of one kind ("notify", "badge"), split at tabs.
    std::vector<std::vector<std::string>> lines(std::string_view kind) const {
        std::vector<std::vector<std::string>> found;
        std::ifstream in(folder / "log");
        for (std::string line; std::getline(in, line);) {
            std::vector<std::string> fields;
            std::stringstream split(line + '\t');
            for (std::string field; std::getline(split, field, '\t');)
                fields.push_back(field);
            if (fields.front() == kind)
                found.push_back(std::move(fields));
        }
        return found;
    }
    void invoke(std::uint32_t id, const std::string& action) const {
        const auto run =
            testing::runProgram("/usr/bin/busctl",
                                {"--address=" + address, "call", "org.freedesktop.Notifications",
                                 "/org/freedesktop/Notifications", "tasket.test.NotificationServer",
                                 "Invoke", "us", std::to_string(id), action},
                                {.home = folder});
        EXPECT_EQ(run.status, 0) << run.err;
    }

    fs::path folder;
    std::string address;
    pid_t session = -1, server = -1;
};

Date utc(int month, int day, int hour, int minute) {
    return platform::Calendar::inZone("UTC")->date({2026, month, day, hour, minute, 0});
}

// One daemon with its own folders, server and hand-moved clock; the test's
// own connections to the store and the queue stand for the user's other programs.
struct DaemonRun {
    DaemonRun(Date start, std::string zone) : wallClock(start), timer(start, std::move(zone)) {
        platform::Clock::setShared(&wallClock);
        fs::create_directories(dir / "group");
        auto made = NotifierDaemon::make(
            {.timer = timer, .log = log, .groupContainer = dir / "group"}, makeReminderActions);
        EXPECT_TRUE(made) << made.error().message;
        daemon = std::move(*made);
        timer.setWake([this](platform::WakeReason reason) { daemon->wake(reason); });
        daemon->start();
        queue =
            std::move(*platform::NotificationQueue::open(dir / "group" / "Notifications.sqlite"));
        context = objectstore::ObjectContext::make(
            *objectstore::PersistentStore::open(dir / "group" / "TK_Data.sqlite",
                                                store::tkDataModel(),
                                                objectstore::StoreOptions{true, false}),
            objectstore::ConcurrencyType::mainQueue);
    }
    ~DaemonRun() {
        daemon.reset();
        platform::Clock::setShared(nullptr);
    }
    // Time passing to `date`, or (jump) the clock set to it, as after a sleep.
    void move(Date date, bool jump = false) {
        wallClock.set(date);
        jump ? timer.set(date)
             : timer.advance(date.secondsSinceReference - timer.now().secondsSinceReference);
    }
    bool until(const std::function<bool()>& done) {
        for (int i = 0; i < 250; ++i, daemon->processEvents(20))
            if (done())
                return true;
        return false;
    }
    void add(std::string identifier, CalendarTrigger trigger) {
        platform::NotificationRequest request{
            .identifier = identifier, .content = {}, .trigger = trigger};
        request.content.body = std::move(identifier);
        ASSERT_TRUE(queue->addNotificationRequest(request));
    }
    std::vector<std::vector<std::string>> shown() const { return server.lines("notify"); }
    std::vector<platform::NotificationRequest> pending() const {
        return *queue->pendingNotificationRequests();
    }

    testing::TempDir dir;
    testing::ScopedEnv config{"XDG_CONFIG_HOME", dir / "config"};
    NotificationServerRun server{dir / "bus"};
    testing::ScopedEnv busAddress{"DBUS_SESSION_BUS_ADDRESS", server.address};
    platform::ManualClock wallClock;
    std::ostringstream log;
    platform::ManualWakeTimer timer;
    std::unique_ptr<NotifierDaemon> daemon;
    std::unique_ptr<platform::NotificationQueue> queue;
    std::shared_ptr<objectstore::ObjectContext> context;
};

TEST(NotifierDaemon, FiresAtTheStartOfItsMinuteInTheZoneInForce) {
    struct Case {
        const char* name;
        const char* zone;
        CalendarTrigger trigger;
        Date fires;
    };
    const Case cases[] = {
        {"a plain minute", "UTC", {2026, 6, 1, 9, 30}, utc(6, 1, 9, 30)},
        {"spring gap: the minute after", "Europe/Berlin", {2026, 3, 29, 2, 30}, utc(3, 29, 1, 0)},
        {"autumn overlap: the first", "Europe/Berlin", {2026, 10, 25, 2, 30}, utc(10, 25, 0, 30)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DaemonRun run(utc(1, 1, 0, 0), c.zone);
        run.add("T", c.trigger);
        ASSERT_TRUE(run.until([&] { return run.timer.armed() == c.fires; }));
        run.move(c.fires.addingSeconds(-1));
        run.daemon->processEvents(50);
        EXPECT_TRUE(run.shown().empty());
        run.move(c.fires);
        ASSERT_TRUE(run.until([&] { return run.shown().size() == 1; }));
        EXPECT_EQ(run.timer.armed(), std::nullopt);
    }
}

TEST(NotifierDaemon, CatchesUpAfterSleepNeverFiresWhatWasPastWhenAddedAndFollowsTheZone) {
    DaemonRun run(utc(6, 1, 7, 0), "UTC");
    run.add("ten", {2026, 6, 1, 10, 0});
    run.add("eleven", {2026, 6, 1, 11, 0});
    ASSERT_TRUE(run.until([&] { return run.timer.armed() == utc(6, 1, 10, 0); }));
    run.timer.setZone("Europe/Berlin"); // summer time, two hours ahead
    EXPECT_EQ(run.timer.armed(), utc(6, 1, 8, 0));
    run.timer.setZone("UTC");
    run.move(utc(6, 1, 12, 0), true); // the machine wakes at noon
    ASSERT_TRUE(run.until([&] { return run.shown().size() == 2; }));

    run.add("past", {2026, 6, 1, 11, 30});
    run.add("this minute", {2026, 6, 1, 12, 0});
    ASSERT_TRUE(run.until([&] { return run.pending().empty(); }));
    ASSERT_EQ(run.shown().size(), 3U);
    EXPECT_EQ(run.shown().back()[5], "this minute");
}

TEST(NotifierDaemon, EachActionChosenOnTheDesktopChangesTheStore) {
    const Date due = utc(6, 1, 9, 30);
    struct Case {
        std::string_view action;
        bool deletedMeanwhile, completed;
        std::optional<CalendarTrigger> next; // the pending request afterwards
        rules::TK_ReminderInterruptionLevel level;
        const char* urgencyAndSilence; // as the server heard them
    };
    const Case cases[] = {
        {reminders::kMarkAsDoneAction, false, true, std::nullopt, timeSensitive, "2\t0"},
        {reminders::kMarkAsDoneAction, true, false, std::nullopt, passive, "0\t1"},
        {reminders::kRemindIn15MinutesAction, false, false, CalendarTrigger{2026, 6, 1, 9, 46},
         active, "1\t0"},
        {reminders::kRemindIn1HourAction, false, false, CalendarTrigger{2026, 6, 1, 10, 31}, active,
         "1\t0"},
        {reminders::kRemindTomorrowAction, false, false, CalendarTrigger{2026, 6, 2, 9, 30}, active,
         "1\t0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.action) + (c.deletedMeanwhile ? " on a deleted task" : ""));
        DaemonRun run(utc(6, 1, 9, 0), "UTC");
        // Another program saves a task with a due-date reminder.
        auto task = store::TK_Task::insertNew(*run.context);
        task->setTaskID("T");
        task->setTitle("Water the plants");
        task->setIsRemindEnabled(true);
        task->setDueDate(due);
        task->setDueDateAndTime(due);
        task->setReminderInterruptionLevel(c.level);
        ASSERT_TRUE(run.context->save());
        ASSERT_TRUE(run.until([&] { return run.timer.armed() == due; })) << run.log.str();

        run.move(due.addingSeconds(30));
        ASSERT_TRUE(run.until([&] {
            const auto badges = run.server.lines("badge");
            return run.shown().size() == 1 && !badges.empty() && badges.back()[1] == "1";
        }));
        const auto shown = run.shown().back();
        EXPECT_EQ(shown[5], "Water the plants");
        EXPECT_TRUE(
            shown[6].starts_with(std::string(reminders::kMarkAsDoneAction) + "=Mark as Done;"));
        EXPECT_EQ(fmt::format("{}\t{}\t{}", shown[7], shown[8], shown[9]),
                  std::string(c.urgencyAndSilence) + "\ttasket");

        if (c.deletedMeanwhile) {
            run.context->deleteObject(task);
            ASSERT_TRUE(run.context->save());
        }
        run.move(due.addingSeconds(60));
        run.server.invoke(static_cast<std::uint32_t>(std::stoul(shown[1])), std::string(c.action));
        ASSERT_TRUE(run.until([&] {
            return run.queue->deliveredNotifications()->empty() &&
                   run.pending().empty() != c.next.has_value();
        })) << run.log.str();
        if (c.next) {
            EXPECT_EQ(run.pending().front().trigger, *c.next);
        }
        if (!c.deletedMeanwhile) {
            run.context->refresh(task, false);
            EXPECT_EQ(task->isCompleted(), c.completed);
        }
        EXPECT_EQ(run.log.str(), "");
    }
}

TEST(NotifierProgram, TheSecondOfTwoDaemonsStartedAtOnceEndsSayingWhy) {
    testing::TempDir dir;
    NotificationServerRun server(dir / "bus");
    const testing::ProgramOptions options{
        .home = dir.path(),
        .environment = {"DBUS_SESSION_BUS_ADDRESS=" + server.address},
        .timeout = std::chrono::seconds(3)};
    const auto start = [&] { return testing::runProgram(TASKET_NOTIFIER_BINARY, {}, options); };
    auto first = std::async(std::launch::async, start);
    std::vector<testing::ProgramRun> runs{start(), first.get()};
    std::ranges::sort(runs, {}, &testing::ProgramRun::status);
    EXPECT_EQ(runs[0].status, 75) << runs[0].err;
    EXPECT_NE(runs[0].err.find("another instance already runs in this session (process"),
              std::string::npos);
    EXPECT_EQ(runs[1].status, 128 + SIGKILL) << runs[1].err; // it ran until killed
}

TEST(NotifierProgram, ARealNotificationServerShowsTheDueReminder) {
    if (!fs::exists("/usr/bin/xvfb-run") || !fs::exists("/usr/bin/dunst"))
        GTEST_SKIP() << "xvfb-run or dunst is not installed (scripts/bootstrap installs them)";
    testing::TempDir dir;
    // A reminder due this minute, queued before the daemon starts, shows at once.
    fs::create_directories(testing::groupFolder(dir.path()));
    auto queue = platform::NotificationQueue::open(testing::groupFolder(dir.path()) /
                                                   "Notifications.sqlite");
    const auto now = platform::Calendar::current().components(platform::Clock::shared().now());
    ASSERT_TRUE((*queue)->addNotificationRequest(
        {.identifier = "T",
         .content = {},
         .trigger = {now.year, now.month, now.day, now.hour, now.minute}}));
    // dunst on a private X server and bus, then the daemon; done when dunst shows one.
    constexpr const char* kScript = R"sh(dunst & d=$!
until dunstctl count displayed >/dev/null 2>&1; do sleep 0.05; done
"$1" & n=$!
for i in $(seq 100); do [ "$(dunstctl count displayed)" = 1 ] && break; sleep 0.05; done
dunstctl count displayed; kill $n $d)sh";
    const auto run = testing::runProgram(
        "/usr/bin/xvfb-run",
        {"-a", "dbus-run-session", "--", "sh", "-c", kScript, "sh", TASKET_NOTIFIER_BINARY},
        {.home = dir.path(), .timeout = std::chrono::seconds(30)});
    EXPECT_EQ(run.out, "1\n") << run.err;
    auto delivered = (*queue)->delivered("T");
    EXPECT_TRUE(delivered && *delivered && (*delivered)->serverID != 0);
}

} // namespace
} // namespace tasket::apps
