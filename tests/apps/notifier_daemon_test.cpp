// The reminder daemon in this process, against the test notification server
// in a private bus, on a wall clock moved by hand; the real program where
// two of them meet and where a real notification server (dunst under
// Xvfb) shows what it delivers.
#include "objectstore/object_context.h"
#include "platform/clock.h"
#include "platform/main_queue.h"
#include "reminders/notification_manager.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/notification_server_run.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "tasket-notifier/notifier_daemon.h"
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
using rules::TK_ReminderInterruptionLevel;
namespace fs = std::filesystem;

Date utc(int year, int month, int day, int hour, int minute, int second = 0) {
    return platform::Calendar::inZone("UTC")->date({year, month, day, hour, minute, second});
}

// One daemon with its own folders, bus, server and hand-moved clock; the
// test's own connections to the store and the queue stand for the other
// programs of the user.
class DaemonRun {
  public:
    DaemonRun(Date start, std::string zone)
        : m_config("XDG_CONFIG_HOME", m_dir / "config"), m_server(m_dir / "bus"),
          m_busAddress("DBUS_SESSION_BUS_ADDRESS", m_server.address()), m_clock(start),
          timer(start, std::move(zone)) {
        platform::Clock::setShared(&m_clock);
        fs::create_directories(m_dir / "group");
        auto made = NotifierDaemon::make(
            {.timer = timer, .log = log, .groupContainer = m_dir / "group"}, makeReminderActions);
        EXPECT_TRUE(made) << made.error().message;
        daemon = std::move(*made);
        timer.setWake([this](platform::WakeReason reason) { daemon->wake(reason); });
        daemon->start();
        queue =
            std::move(*platform::NotificationQueue::open(m_dir / "group" / "Notifications.sqlite"));
        auto opened = objectstore::PersistentStore::open(m_dir / "group" / "TK_Data.sqlite",
                                                         store::tkDataModel(),
                                                         objectstore::StoreOptions{true, false});
        context =
            objectstore::ObjectContext::make(*opened, objectstore::ConcurrencyType::mainQueue);
    }
    ~DaemonRun() {
        daemon.reset();
        platform::Clock::setShared(nullptr);
    }

    void advanceTo(Date date) {
        m_clock.set(date);
        timer.advance(date.secondsSinceReference - timer.now().secondsSinceReference);
    }
    void setClock(Date date) {
        m_clock.set(date);
        timer.set(date);
    }
    // Runs the daemon until `done` holds (or five seconds pass).
    bool until(const std::function<bool()>& done) {
        for (int i = 0; i < 250; ++i) {
            daemon->processEvents(20);
            if (done())
                return true;
        }
        return false;
    }
    void add(std::string identifier, CalendarTrigger trigger) {
        platform::NotificationRequest request;
        request.identifier = std::move(identifier);
        request.content.title = "Reminder";
        request.content.body = request.identifier;
        request.trigger = trigger;
        ASSERT_TRUE(queue->addNotificationRequest(request));
    }
    std::size_t shown() const { return m_server.lines("notify").size(); }
    std::vector<platform::NotificationRequest> pending() const {
        return *queue->pendingNotificationRequests();
    }

  private:
    testing::TempDir m_dir;
    testing::ScopedEnv m_config;
    testing::NotificationServerRun m_server;
    testing::ScopedEnv m_busAddress;
    platform::ManualClock m_clock;

  public:
    const testing::NotificationServerRun& server() const { return m_server; }
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
        {"a plain minute", "UTC", {2026, 6, 1, 9, 30}, utc(2026, 6, 1, 9, 30)},
        {"skipped by the spring change: the first minute after",
         "Europe/Berlin",
         {2026, 3, 29, 2, 30},
         utc(2026, 3, 29, 1, 0)},
        {"repeated by the autumn change: its first occurrence",
         "Europe/Berlin",
         {2026, 10, 25, 2, 30},
         utc(2026, 10, 25, 0, 30)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DaemonRun run(utc(2026, 1, 1, 0, 0), c.zone);
        run.add("T", c.trigger);
        ASSERT_TRUE(run.until([&] { return run.timer.armed() == c.fires; }));
        run.advanceTo(c.fires.addingSeconds(-1));
        run.daemon->processEvents(50);
        EXPECT_EQ(run.shown(), 0U);
        run.advanceTo(c.fires);
        ASSERT_TRUE(run.until([&] { return run.shown() == 1; }));
        EXPECT_EQ(run.timer.armed(), std::nullopt);
    }
}

TEST(NotifierDaemon, CatchesUpAfterSleepButNeverFiresWhatWasPastWhenAdded) {
    DaemonRun run(utc(2026, 6, 1, 8, 0), "UTC");
    run.add("ten", {2026, 6, 1, 10, 0});
    run.add("eleven", {2026, 6, 1, 11, 0});
    ASSERT_TRUE(run.until([&] { return run.timer.armed() == utc(2026, 6, 1, 10, 0); }));
    run.setClock(utc(2026, 6, 1, 12, 0)); // the machine wakes at noon
    ASSERT_TRUE(run.until([&] { return run.shown() == 2; }));

    run.add("past", {2026, 6, 1, 11, 30});
    run.add("this minute", {2026, 6, 1, 12, 0});
    ASSERT_TRUE(run.until([&] { return run.pending().empty(); }));
    EXPECT_EQ(run.server().lines("notify").back()[5], "this minute");
    EXPECT_EQ(run.shown(), 3U);
}

TEST(NotifierDaemon, AZoneChangeMovesTheAlarm) {
    DaemonRun run(utc(2026, 6, 1, 0, 0), "UTC");
    run.add("T", {2026, 6, 1, 9, 0});
    ASSERT_TRUE(run.until([&] { return run.timer.armed() == utc(2026, 6, 1, 9, 0); }));
    run.timer.setZone("Europe/Berlin");
    EXPECT_EQ(run.timer.armed(), utc(2026, 6, 1, 7, 0));
}

TEST(NotifierDaemon, EachActionChosenOnTheDesktopChangesTheStore) {
    const Date start = utc(2026, 6, 1, 9, 0);
    const Date due = utc(2026, 6, 1, 9, 30);
    struct Case {
        std::string_view action;
        bool deletedMeanwhile;
        bool completed;
        std::optional<CalendarTrigger> next; // the pending request afterwards
        TK_ReminderInterruptionLevel level;
        const char* urgencyAndSilence; // as the server heard them
    };
    using enum TK_ReminderInterruptionLevel;
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
        DaemonRun run(start, "UTC");
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

        run.advanceTo(due.addingSeconds(30));
        ASSERT_TRUE(run.until([&] { return run.shown() == 1; }));
        const auto shown = run.server().lines("notify").back();
        EXPECT_EQ(shown[5], "Water the plants");
        EXPECT_EQ(shown[7] + '\t' + shown[8], c.urgencyAndSilence);
        EXPECT_EQ(shown[9], "tasket"); // the desktop entry
        EXPECT_TRUE(
            shown[6].starts_with(std::string(reminders::kMarkAsDoneAction) + "=Mark as Done;"));
        EXPECT_TRUE(run.server().waitForLines("badge", 1));

        if (c.deletedMeanwhile) {
            run.context->deleteObject(task);
            ASSERT_TRUE(run.context->save());
        }
        run.advanceTo(due.addingSeconds(60));
        run.server().invoke(static_cast<std::uint32_t>(std::stoul(shown[1])),
                            std::string(c.action));
        ASSERT_TRUE(run.until([&] {
            return run.queue->deliveredNotifications()->empty() &&
                   (c.next ? !run.pending().empty() : run.pending().empty());
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
    testing::NotificationServerRun server(dir / "bus");
    const testing::ProgramOptions options{
        .home = dir.path(),
        .environment = {"DBUS_SESSION_BUS_ADDRESS=" + server.address()},
        .timeout = std::chrono::seconds(3)};
    auto first = std::async(std::launch::async, [&] {
        return testing::runProgram(TASKET_NOTIFIER_BINARY, {}, options);
    });
    auto second = std::async(std::launch::async, [&] {
        return testing::runProgram(TASKET_NOTIFIER_BINARY, {}, options);
    });
    std::vector<testing::ProgramRun> runs{first.get(), second.get()};
    std::ranges::sort(runs, {}, &testing::ProgramRun::status);
    EXPECT_EQ(runs[0].status, 75) << runs[0].err;
    EXPECT_NE(runs[0].err.find("another instance already runs in this session (process"),
              std::string::npos);
    EXPECT_EQ(runs[1].status, 128 + SIGKILL) << runs[1].err; // kept running until killed
}

// Waits until `file` exists and returns its first word.
std::string awaitFile(const fs::path& file) {
    for (int i = 0; i < 500 && !fs::exists(file); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

TEST(NotifierProgram, ARealNotificationServerShowsTheDueReminder) {
    for (const char* program : {"/usr/bin/Xvfb", "/usr/bin/dunst", "/usr/bin/dunstctl"})
        if (!fs::exists(program))
            GTEST_SKIP() << program << " is not installed (scripts/bootstrap installs it)";
    testing::TempDir dir;
    const int number = 90 + ::getpid() % 500;
    const std::string display = fmt::format(":{}", number);
    const pid_t x =
        testing::startProgram("/usr/bin/Xvfb", {display, "-nolisten", "tcp"}, {.home = dir.path()});
    for (int i = 0; i < 500 && !fs::exists(fmt::format("/tmp/.X11-unix/X{}", number)); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    // dunst in a session bus of its own, telling the test the bus and its process.
    const pid_t session = testing::startProgram(
        "/usr/bin/dbus-run-session",
        {"--", "sh", "-c",
         "echo $DBUS_SESSION_BUS_ADDRESS $$ > bus.part && mv bus.part bus && exec dunst"},
        {.home = dir.path(), .environment = {"DISPLAY=" + display}});
    const std::string address = awaitFile(dir / "bus");
    std::ifstream in(dir / "bus");
    std::string skipped;
    pid_t dunst = 0;
    in >> skipped >> dunst;
    const testing::ProgramOptions options{
        .home = dir.path(),
        .environment = {"DBUS_SESSION_BUS_ADDRESS=" + address, "DISPLAY=" + display}};
    const auto displayed = [&] {
        return testing::runProgram("/usr/bin/dunstctl", {"count", "displayed"}, options);
    };
    bool serving = false;
    for (int i = 0; i < 200 && !serving;
         ++i, std::this_thread::sleep_for(std::chrono::milliseconds(25)))
        serving = displayed().status == 0;

    // The reminder is due this minute; the daemon shows it at once.
    const auto group = testing::groupFolder(dir.path());
    fs::create_directories(group);
    auto queue = platform::NotificationQueue::open(group / "Notifications.sqlite");
    const auto now = platform::Calendar::current().components(platform::Clock::shared().now());
    platform::NotificationRequest request;
    request.identifier = "T";
    request.content.title = "Reminder";
    request.content.body = "Water the plants";
    request.trigger = {now.year, now.month, now.day, now.hour, now.minute};
    ASSERT_TRUE((*queue)->addNotificationRequest(request));
    auto notifierOptions = options;
    notifierOptions.timeout = std::chrono::seconds(4);
    auto notifier = std::async(std::launch::async, [&] {
        return testing::runProgram(TASKET_NOTIFIER_BINARY, {}, notifierOptions);
    });

    std::string count;
    for (int i = 0; i < 200 && count != "1\n";
         ++i, std::this_thread::sleep_for(std::chrono::milliseconds(25)))
        count = displayed().out;
    EXPECT_TRUE(serving) << "dunst did not serve on its bus";
    EXPECT_EQ(count, "1\n");
    const auto run = notifier.get();
    EXPECT_EQ(run.err, "");
    auto delivered = (*queue)->delivered("T");
    EXPECT_TRUE(delivered && *delivered && (*delivered)->serverID != 0);

    // Ending dunst ends its session bus.
    for (const pid_t pid : {dunst, x})
        if (pid > 0)
            ::kill(pid, SIGTERM);
    for (const pid_t pid : {session, x})
        ::waitpid(pid, nullptr, 0);
}

} // namespace
} // namespace tasket::apps
