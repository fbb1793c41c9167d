// The contract every calendar store keeps, run against each adapter.
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/calendars/in_memory_calendar_store.h"
#include "platform/calendars/vdir_calendar_store.h"
#include "support/radicale_server.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace tasket::platform {
namespace {

using Kind = CalendarEntityType;
using Frequency = RecurrenceRule::Frequency;

struct Adapter {
    const char* name;
    std::function<std::unique_ptr<CalendarStore>(const std::filesystem::path& dir)> make;
};

class CalendarStoreContract : public ::testing::TestWithParam<Adapter> {
  protected:
    void SetUp() override {
        store = GetParam().make(dir.path());
        reminders = calendar("Errands", Kind::reminder);
        events = calendar("Work", Kind::event);
    }
    std::string calendar(const std::string& title, Kind kind) {
        CalendarInfo info{"", title, "#FF0000", kind, ""};
        EXPECT_TRUE(store->saveCalendar(info, true));
        return info.identifier;
    }
    Result<> save(CalendarItem& item, bool commit = true) {
        return item.kind == Kind::reminder ? store->saveReminder(item, commit)
                                           : store->saveEvent(item, EventSpan::thisEvent, commit);
    }

    testing::TempDir dir;
    std::unique_ptr<CalendarStore> store;
    std::string reminders, events;
};

Date at(int year, int month, int day, int hour = 0, int minute = 0) {
    return Calendar::current().date({year, month, day, hour, minute, 0, 0});
}

TEST_P(CalendarStoreContract, CalendarsAreFoundByKindAndIdentifier) {
    ASSERT_FALSE(reminders.empty());
    EXPECT_EQ(store->calendars(Kind::reminder).size(), 1u);
    EXPECT_EQ(store->calendarWithIdentifier(events)->title, "Work");
    EXPECT_EQ(store->defaultCalendarForNewReminders()->identifier, reminders);
    EXPECT_EQ(store->calendarWithIdentifier(reminders)->sourceIdentifier,
              store->sources().front().identifier);
    CalendarInfo elsewhere{"", "X", "", Kind::reminder, "no such source"};
    EXPECT_EQ(store->saveCalendar(elsewhere, true).error().code, Errc::notFound);
}

TEST_P(CalendarStoreContract, ItemsComeBackAsSaved) {
    const auto due = [](int hour, bool hasTime, std::string zone) {
        return DueDateComponents{{2026, 11, 23, hour, 30, 0, 0}, hasTime, std::move(zone)};
    };
    const CalendarItem cases[] = {
        {.kind = Kind::reminder,
         .title = "day",
         .notes = "a\nb; c, d",
         .dueDateComponents = due(0, false, "")},
        {.kind = Kind::reminder,
         .title = "utc",
         .completed = true,
         .dueDateComponents = due(9, true, "UTC"),
         .priority = 1},
        {.kind = Kind::reminder,
         .title = "floating",
         .dueDateComponents = due(9, true, ""),
         .priority = 9},
        {.kind = Kind::reminder,
         .title = "every 90 minutes",
         .recurrenceRules = {{Frequency::minutely, 90}}},
        {.kind = Kind::reminder, .title = "hourly", .recurrenceRules = {{Frequency::hourly, 1}}},
        {.kind = Kind::event,
         .title = "all day, 3 days",
         .allDay = true,
         .startDate = at(2026, 11, 23),
         .endDate = at(2026, 11, 25)},
        {.kind = Kind::event,
         .title = "one day",
         .allDay = true,
         .startDate = at(2026, 12, 31),
         .endDate = at(2026, 12, 31)},
        {.kind = Kind::event,
         .title = "timed",
         .recurrenceRules = {{Frequency::weekly, 2}},
         .startDate = at(2026, 11, 23, 9),
         .endDate = at(2026, 11, 23, 10)},
    };
    for (auto item : cases) {
        SCOPED_TRACE(item.title);
        item.calendarIdentifier = item.kind == Kind::reminder ? reminders : events;
        item.applicationData = "kept";
        ASSERT_TRUE(save(item));
        ASSERT_FALSE(item.identifier.empty());
        const auto back = store->itemWithIdentifier(item.identifier);
        ASSERT_TRUE(back);
        EXPECT_TRUE(back->hasSameContent(item));
        EXPECT_EQ(back->applicationData, "kept");
        EXPECT_EQ(back->calendarIdentifier, item.calendarIdentifier);
    }
    EXPECT_EQ(store->items(Kind::reminder, {}).value().size(), 5u);
    const std::vector<std::string> only{events};
    EXPECT_EQ(store->items(Kind::event, only).value().size(), 3u);
}

TEST_P(CalendarStoreContract, InvalidSavesChangeNothing) {
    struct Case {
        const char* what;
        CalendarItem item;
        Errc code;
    };
    Case cases[] = {
        {"no calendar", {.kind = Kind::reminder}, Errc::invalidArgument},
        {"other kind",
         {.kind = Kind::reminder, .calendarIdentifier = events},
         Errc::invalidArgument},
        {"ends before it starts",
         {.kind = Kind::event,
          .calendarIdentifier = events,
          .startDate = at(2026, 1, 2),
          .endDate = at(2026, 1, 1)},
         Errc::invalidArgument},
        {"no dates", {.kind = Kind::event, .calendarIdentifier = events}, Errc::invalidArgument},
        {"interval 0",
         {.kind = Kind::reminder,
          .calendarIdentifier = reminders,
          .recurrenceRules = {{Frequency::daily, 0}}},
         Errc::invalidArgument},
        {"unknown item",
         {.identifier = "gone", .kind = Kind::reminder, .calendarIdentifier = reminders},
         Errc::notFound},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto saved = save(c.item);
        ASSERT_FALSE(saved);
        EXPECT_EQ(saved.error().code, c.code);
    }
    EXPECT_TRUE(store->items(Kind::reminder, {}).value().empty());
    EXPECT_TRUE(store->items(Kind::event, {}).value().empty());
}

TEST_P(CalendarStoreContract, PendingChangesWaitForCommit) {
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = reminders, .title = "draft"};
    ASSERT_TRUE(save(item, false));
    EXPECT_TRUE(store->itemWithIdentifier(item.identifier));
    store->reset();
    EXPECT_FALSE(store->itemWithIdentifier(item.identifier));

    item.identifier.clear();
    ASSERT_TRUE(save(item, false));
    ASSERT_TRUE(store->removeCalendar(events, false));
    ASSERT_TRUE(store->commit());
    store->reset();
    EXPECT_TRUE(store->itemWithIdentifier(item.identifier));
    EXPECT_FALSE(store->calendarWithIdentifier(events));
}

TEST_P(CalendarStoreContract, ItemsMoveAndGoWithTheirCalendar) {
    const auto other = calendar("Home", Kind::reminder);
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = reminders, .title = "move me"};
    ASSERT_TRUE(save(item));
    item.calendarIdentifier = other;
    item.title = "moved";
    ASSERT_TRUE(save(item));
    const std::vector<std::string> first{reminders};
    EXPECT_TRUE(store->items(Kind::reminder, first).value().empty());
    EXPECT_EQ(store->itemWithIdentifier(item.identifier)->title, "moved");

    ASSERT_TRUE(store->removeCalendar(other, true));
    EXPECT_FALSE(store->itemWithIdentifier(item.identifier));
    EXPECT_EQ(store->removeItem(item.identifier, true).error().code, Errc::notFound);
}

TEST_P(CalendarStoreContract, ChangeTokensMoveWithEveryChangeAndOnlyThen) {
    const auto token = [&] { return store->changeToken(reminders); };
    if (!token())
        GTEST_SKIP() << "this store keeps no change tokens";
    const auto otherToken = store->changeToken(events);
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = reminders};
    for (const char* title : {"a", "b", ""}) { // "": removed
        const auto before = token();
        EXPECT_EQ(token(), before) << "the token moved without a change";
        item.title = title;
        ASSERT_TRUE(*title ? save(item) : store->removeItem(item.identifier, true));
        // Our own writes are no change to read back.
        const auto afterOwnWrites = store->tokenAfterOwnWrites(reminders).value();
        if (const auto since = store->changesSince(reminders, afterOwnWrites))
            EXPECT_TRUE(since->changed.empty() && since->removed == 0) << title;
        else
            EXPECT_EQ(afterOwnWrites, token()) << title;
        EXPECT_NE(token(), before) << title;
    }
    EXPECT_EQ(store->changeToken(events), otherToken) << "another calendar's token moved";
}

INSTANTIATE_TEST_SUITE_P(
    Adapters, CalendarStoreContract,
    ::testing::Values(Adapter{"InMemory",
                              [](const std::filesystem::path&) -> std::unique_ptr<CalendarStore> {
                                  return std::make_unique<InMemoryCalendarStore>(
                                      std::vector<CalendarSource>{{"local", "On this computer"}});
                              }},
                      Adapter{
                          "Vdir",
                          [](const std::filesystem::path& dir) -> std::unique_ptr<CalendarStore> {
                              return std::make_unique<VdirCalendarStore>(
                                  std::vector<std::filesystem::path>{dir / "calendars"});
                          }},
                      Adapter{"Caldav",
                              [](const std::filesystem::path&) -> std::unique_ptr<CalendarStore> {
                                  // A fresh server for each test; the last stops at exit.
                                  static std::unique_ptr<testing::RadicaleServer> server;
                                  server.reset();
                                  server = std::make_unique<testing::RadicaleServer>();
                                  return std::make_unique<CaldavCalendarStore>(
                                      std::vector<std::string>{server->url()},
                                      CaldavCalendarStore::Options{server->netrcFile()});
                              }}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace tasket::platform
