// The calendar mirror over a real store file and both calendar stores.
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/calendars/in_memory_calendar_store.h"
#include "platform/calendars/vdir_calendar_store.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "reminders/calendar_mirror.h"
#include "support/radicale_server.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

#include <fstream>

namespace tasket::reminders {
namespace {

using platform::CalendarStore;
using platform::Date;
using platform::RecurrenceRule;
using rules::TK_CalendarType;
using rules::TK_RemindersDatabaseType;
using rules::TK_RepeatInterval;
using store::TK_Category;
using store::TK_Task;
using Kind = CalendarEntityType;
using F = RecurrenceRule::Frequency;

Date day(int d, int hour = 0) {
    return platform::Calendar::current().date({2026, 11, d, hour, 0, 0, 0});
}

class CalendarMirrorTest : public testing::StoreFixture {
  protected:
    void SetUp() override {
        StoreFixture::SetUp();
        context = newContext();
        settings = std::make_shared<settings::CustomizationManager>(
            std::make_shared<platform::InMemoryPreferencesSuite>("group"),
            std::make_shared<platform::InMemoryPreferencesSuite>("standard"));
        calendars = std::make_shared<platform::InMemoryCalendarStore>(
            std::vector<platform::CalendarSource>{{"local", "Local"}, {"work", "Work"}});
        useStore(calendars);
    }
    void useStore(std::shared_ptr<CalendarStore> store) {
        calendarStore = std::move(store);
        mirror = std::make_unique<CalendarMirror>(calendarStore, settings);
    }
    std::shared_ptr<TK_Category> list(const char* title, TK_CalendarType type) {
        auto category = TK_Category::insertNew(*context);
        category->setCategoryID(platform::Uuid::generate().toString());
        if (*title)
            category->setTitle(std::string(title));
        category->setCalendarType(type);
        return category;
    }
    std::shared_ptr<TK_Task> task(const std::shared_ptr<TK_Category>& category, const char* title) {
        auto record = TK_Task::insertNew(*context);
        record->setTaskID(platform::Uuid::generate().toString());
        if (*title)
            record->setTitle(std::string(title));
        record->setCategory(category);
        return record;
    }
    // "Errands", mirrored as reminders, with its task "errand": synced once,
    // then the task retitled "changed" and saved.
    std::pair<std::shared_ptr<TK_Category>, std::shared_ptr<TK_Task>> syncedThenChanged() {
        auto category = list("Errands", TK_CalendarType::reminder);
        auto errand = task(category, "errand");
        EXPECT_EQ(mirror->sync(*context).value().created, 1);
        errand->setTitle(std::string("changed"));
        EXPECT_TRUE(context->save());
        return {category, errand};
    }
    platform::CalendarItem itemOf(const TK_Task& record) {
        return calendarStore->itemWithIdentifier(record.calendarItemIdentifier().value_or(""))
            .value();
    }

    std::shared_ptr<objectstore::ObjectContext> context;
    std::shared_ptr<settings::CustomizationManager> settings;
    std::shared_ptr<platform::InMemoryCalendarStore> calendars;
    std::shared_ptr<CalendarStore> calendarStore;
    std::unique_ptr<CalendarMirror> mirror;
};

TEST_F(CalendarMirrorTest, UntitledListsAndTasksGetTheDefaultTitles) {
    auto untitled = list("", TK_CalendarType::reminder);
    untitled->setCalendarSourceIdentifier(std::string("work"));
    auto reminder = task(untitled, "");
    ASSERT_TRUE(mirror->writeReminder(*reminder));
    const auto calendar = calendarStore->calendarWithIdentifier(*untitled->calendarIdentifier());
    EXPECT_EQ(calendar->title, "New Category");
    EXPECT_EQ(calendar->sourceIdentifier, "work");
    const auto item = itemOf(*reminder);
    EXPECT_EQ(item.title, "New Task");
    EXPECT_FALSE(item.dueDateComponents);
    EXPECT_EQ(reminder->calendarTypeCase(), TK_CalendarType::reminder);

    auto event = task(list("", TK_CalendarType::event), "");
    event->setDueDateAndTime(day(23, 9));
    ASSERT_TRUE(mirror->writeEvent(*event));
    EXPECT_EQ(itemOf(*event).title, "New Task");
    EXPECT_EQ(settings->remindersLists().size(), 2u);
}

TEST_F(CalendarMirrorTest, RepetitionBecomesARecurrenceRuleOnlyWhenItCanBeOne) {
    struct Case {
        const char* what;
        Kind kind;
        TK_RepeatInterval interval;
        double frequency;
        bool hasDue;
        std::vector<RecurrenceRule> rules;
    };
    const Case cases[] = {
        {"every 90 minutes",
         Kind::reminder,
         TK_RepeatInterval::everyMinute,
         90,
         true,
         {{F::minutely, 90}}},
        {"hourly, fraction dropped",
         Kind::event,
         TK_RepeatInterval::hourly,
         2.9,
         true,
         {{F::hourly, 2}}},
        {"weekly event", Kind::event, TK_RepeatInterval::weekly, 2, true, {{F::weekly, 2}}},
        {"interval none", Kind::event, TK_RepeatInterval::none, 1, true, {}},
        {"no due date", Kind::reminder, TK_RepeatInterval::daily, 1, false, {}},
        {"zero intervals", Kind::reminder, TK_RepeatInterval::daily, 0, true, {}},
        {"past 64 bits", Kind::event, TK_RepeatInterval::daily, 1e19, true, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto record = task(list("L", TK_CalendarType::reminder), "t");
        record->setDoesRemindRepeat(true);
        record->setRepeatIntervalType(c.interval);
        record->setRepeatFrequency(c.frequency);
        if (c.hasDue)
            record->setDueDateAndTime(day(23, 9));
        EXPECT_EQ(CalendarMirror::itemForTask(*record, c.kind, platform::Calendar::current())
                      .recurrenceRules,
                  c.rules);
    }
}

TEST_F(CalendarMirrorTest, TaskFieldsBecomeItemFields) {
    auto category = list("Errands", TK_CalendarType::reminder);
    auto priority = store::TK_Priority::insertNew(*context);
    priority->setRemindersPriorityIndex(1);
    auto record = task(category, "Buy milk");
    record->setNote(std::string("two litres"));
    record->setIsCompleted(true);
    record->setCustomPriority(priority);
    record->setDueDateAndTime(day(24, 15));
    ASSERT_TRUE(mirror->writeReminder(*record));
    auto item = itemOf(*record);
    EXPECT_EQ(item.notes, "two litres");
    EXPECT_TRUE(item.completed);
    EXPECT_EQ(item.priority, 1);
    EXPECT_EQ(item.dueDateComponents->date.hour,
              platform::Calendar::current().components(day(24, 15)).hour);
    EXPECT_TRUE(item.dueDateComponents->hasTime);

    record->setIsAllDay(true);
    record->setStartDateAndTime(day(23));
    record->setDueDateAndTime(day(25));
    ASSERT_TRUE(mirror->writeEvent(*record));
    item = itemOf(*record);
    EXPECT_TRUE(item.allDay);
    EXPECT_EQ(item.startDate, day(23));
    EXPECT_EQ(item.endDate, day(25));
}

TEST_F(CalendarMirrorTest, AFailedSaveLeavesNoIdentifier) {
    auto record = task(list("Work", TK_CalendarType::event), "backwards");
    record->setStartDateAndTime(day(25));
    record->setDueDateAndTime(day(23));
    EXPECT_FALSE(mirror->writeEvent(*record));
    EXPECT_FALSE(record->calendarItemIdentifier());
}

TEST_F(CalendarMirrorTest, ADeletedCalendarIsReplaced) {
    auto category = list("Errands", TK_CalendarType::reminder);
    const auto first = mirror->calendarOfList(*category, Kind::reminder).value();
    ASSERT_TRUE(calendarStore->removeCalendar(first, true));
    const auto second = mirror->calendarOfList(*category, Kind::reminder).value();
    EXPECT_NE(first, second);
    EXPECT_EQ(category->calendarIdentifier(), second);
    EXPECT_EQ(settings->remindersLists(), std::vector<std::string>{second});
}

// A list linked again as the other kind (its tasks' items forgotten, as
// tasket calendars link does) moves to a calendar of that kind, also when
// the last pass kept its state.
TEST_F(CalendarMirrorTest, AListLinkedAsTheOtherKindGetsACalendarOfThatKind) {
    testing::TempDir folders;
    auto opened = objectstore::PersistentStore::open(
        folders / "TK_Data.sqlite", store::tkDataModel(), objectstore::StoreOptions{true, false});
    ASSERT_TRUE(opened);
    context = objectstore::ObjectContext::make(*opened, objectstore::ConcurrencyType::mainQueue);
    useStore(std::make_shared<platform::VdirCalendarStore>(
        std::vector<std::filesystem::path>{folders / "calendars"}));
    mirror->keepSyncStateIn(folders / "state");
    auto category = list("Trips", TK_CalendarType::reminder);
    auto trip = task(category, "trip");
    trip->setStartDateAndTime(day(23));
    trip->setDueDateAndTime(day(24));
    ASSERT_EQ(mirror->sync(*context).value().created, 1);
    const auto reminders = *category->calendarIdentifier();

    category->setCalendarType(TK_CalendarType::event);
    trip->setCalendarItemIdentifier(std::nullopt);
    ASSERT_EQ(mirror->sync(*context).value().created, 1);
    ASSERT_NE(category->calendarIdentifier(), reminders);
    EXPECT_EQ(calendarStore->calendarWithIdentifier(*category->calendarIdentifier())->entityType,
              Kind::event);
    EXPECT_EQ(calendarStore->findItem(*trip->calendarItemIdentifier()).value()->kind, Kind::event);
}

// A task changed or added after a sync goes to its calendar in one request
// from a later program, which has the state the sync kept; the next sync
// reads what changed and finds nothing to do. A calendar deleted since is
// replaced.
TEST_F(CalendarMirrorTest, AChangedTaskIsWrittenInOneRequestByALaterProgram) {
    testing::RadicaleServer server;
    testing::TempDir folders;
    const auto program = [&] {
        auto store = std::make_shared<platform::CaldavCalendarStore>(
            std::vector{server.url()}, platform::CaldavOptions{server.netrcFile()});
        useStore(store);
        mirror->keepSyncStateIn(folders / "state");
        return store;
    };
    program();
    const auto [category, errand] = syncedThenChanged();
    const auto later = program();
    ASSERT_TRUE(mirror->writeTasks(*context, std::vector{*errand->taskID()}));
    EXPECT_EQ(later->requestCount(), 1u);
    EXPECT_EQ(itemOf(*errand).title, "changed");
    auto added = task(category, "added"); // a new task, its item new too
    ASSERT_TRUE(context->save());
    const auto adding = program();
    ASSERT_TRUE(mirror->writeTasks(*context, std::vector{*added->taskID()}));
    EXPECT_EQ(adding->requestCount(), 1u);
    const auto syncing = program();
    const auto report = mirror->sync(*context).value();
    EXPECT_EQ(report.created + report.updated + report.readBack + report.imported, 0);
    EXPECT_EQ(syncing->requestCount(), 1u); // what changed: only what was written
    EXPECT_EQ(errand->title(), "changed");

    const auto deleted = *category->calendarIdentifier();
    ASSERT_TRUE(platform::CaldavCalendarStore({server.url()}, {server.netrcFile()})
                    .removeCalendar(deleted, true));
    program();
    EXPECT_EQ(mirror->sync(*context).value().created, 2); // both tasks, anew
    EXPECT_NE(category->calendarIdentifier(), deleted);
}

// With a store that cannot tell what changed since a token (a vdir
// folder), a later program's write moves the sync state on: the next sync
// finds the calendar as the state says and need not read it whole.
TEST_F(CalendarMirrorTest, AWriteMovesTheSyncStateOnWhenTheStoreCannotTellChanges) {
    testing::TempDir folders;
    const auto program = [&] {
        useStore(std::make_shared<platform::VdirCalendarStore>(
            std::vector<std::filesystem::path>{folders / "calendars"}));
        mirror->keepSyncStateIn(folders / "state");
    };
    const auto stateToken = [&] { // the token line of the one state file
        std::string line;
        for (const auto& entry : std::filesystem::directory_iterator(folders / "state"))
            if (entry.path().extension() == ".state") {
                std::ifstream in(entry.path());
                for (int i = 0; i < 6; ++i)
                    std::getline(in, line);
            }
        return line;
    };
    program();
    const auto [category, errand] = syncedThenChanged();
    program();
    ASSERT_TRUE(mirror->writeTasks(*context, std::vector{*errand->taskID()}));
    EXPECT_EQ(itemOf(*errand).title, "changed");
    EXPECT_EQ(stateToken(), calendarStore->changeToken(*category->calendarIdentifier()));
}

// In exact mode a task whose item cannot be looked for (it is not in its
// list's calendar, and a server holding others went away) stays, and the
// sync says why.
TEST_F(CalendarMirrorTest, AnItemThatCannotBeLookedForIsNotTakenForDeleted) {
    testing::RadicaleServer home;
    auto away = std::make_unique<testing::RadicaleServer>();
    useStore(std::make_shared<platform::CaldavCalendarStore>(
        std::vector<std::string>{home.url(), away->url()},
        platform::CaldavOptions{home.netrcFile(), 5}));
    settings->setRemindersDatabaseType(TK_RemindersDatabaseType::exact);
    auto category = list("Home", TK_CalendarType::reminder);
    category->setCalendarSourceIdentifier(home.url());
    auto moved = task(category, "moved");
    ASSERT_EQ(mirror->sync(*context).value().created, 1);

    moved->setCalendarItemIdentifier(std::string("moved-to-a-calendar-away"));
    away.reset();
    const auto report = mirror->sync(*context).value();
    EXPECT_FALSE(moved->isDeleted());
    EXPECT_EQ(report.deleted, 1); // only the item it linked before, an orphan now
    ASSERT_FALSE(report.errors.empty());
    for (const auto& error : report.errors)
        EXPECT_NE(error.find("cannot reach"), std::string::npos) << error;
}

// One scenario per mode, over vdir files edited by "another client" (a
// second store on the same folders).
TEST_F(CalendarMirrorTest, ModesDecideWhatGoesWhichWay) {
    struct Expected {
        TK_RemindersDatabaseType mode;
        const char* editedTitle; // the task whose item was edited elsewhere
        bool keptTaskOfDeletedItem;
        bool keptItemOfDeletedTask;
        bool imported;
        bool changedTaskWritten;
    };
    const Expected cases[] = {
        {TK_RemindersDatabaseType::all, "edited elsewhere", true, true, true, true},
        {TK_RemindersDatabaseType::exact, "edited elsewhere", false, false, true, true},
        {TK_RemindersDatabaseType::addOnly, "edited", true, true, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        testing::TempDir folders;
        auto opened =
            objectstore::PersistentStore::open(folders / "TK_Data.sqlite", store::tkDataModel(),
                                               objectstore::StoreOptions{true, false});
        ASSERT_TRUE(opened);
        context =
            objectstore::ObjectContext::make(*opened, objectstore::ConcurrencyType::mainQueue);
        useStore(std::make_shared<platform::VdirCalendarStore>(
            std::vector<std::filesystem::path>{folders / "calendars"}));
        mirror->keepSyncStateIn(folders / "state");
        platform::VdirCalendarStore otherClient({folders / "calendars"});
        settings->setRemindersDatabaseType(c.mode);

        auto category = list("Home", TK_CalendarType::reminder);
        auto edited = task(category, "edited");
        edited->setDoesRemindRepeat(true); // daily, without a due date to hold a rule
        edited->setRepeatIntervalType(TK_RepeatInterval::daily);
        edited->setRepeatFrequency(1);
        auto itemDeleted = task(category, "item deleted");
        auto taskDeleted = task(category, "task deleted");
        auto changed = task(category, "changed");
        ASSERT_EQ(mirror->sync(*context).value().created, 4);
        const auto taskDeletedItem = *taskDeleted->calendarItemIdentifier();

        auto item = otherClient.itemWithIdentifier(*edited->calendarItemIdentifier()).value();
        item.title = "edited elsewhere";
        ASSERT_TRUE(otherClient.saveReminder(item, true));
        ASSERT_TRUE(otherClient.removeItem(*itemDeleted->calendarItemIdentifier(), true));
        platform::CalendarItem created{.kind = Kind::reminder,
                                       .calendarIdentifier = *category->calendarIdentifier(),
                                       .title = "made elsewhere"};
        ASSERT_TRUE(otherClient.saveReminder(created, true));
        context->deleteObject(taskDeleted);
        changed->setTitle(std::string("changed here"));

        const auto report = mirror->sync(*context);
        ASSERT_TRUE(report) << report.error().message;
        EXPECT_EQ(edited->title(), c.editedTitle);
        EXPECT_TRUE(edited->doesRemindRepeat());
        EXPECT_EQ(!itemDeleted->isDeleted(), c.keptTaskOfDeletedItem);
        EXPECT_EQ(otherClient.itemWithIdentifier(taskDeletedItem).has_value(),
                  c.keptItemOfDeletedTask);
        EXPECT_EQ(report->imported, c.imported ? 1 : 0);
        EXPECT_EQ(otherClient.itemWithIdentifier(*changed->calendarItemIdentifier())->title,
                  c.changedTaskWritten ? "changed here" : "changed");

        // A second pass with nothing changed does nothing.
        const auto again = mirror->sync(*context).value();
        EXPECT_EQ(again.created + again.updated + again.readBack + again.imported + again.deleted,
                  0);

        // Changes made here alone are written from the state the last pass
        // kept, without reading the calendar (its change token is the same).
        ASSERT_FALSE(std::filesystem::is_empty(folders / "state"));
        changed->setTitle(std::string("changed again"));
        const auto editedItem = *edited->calendarItemIdentifier();
        context->deleteObject(edited);
        task(category, "new here");
        EXPECT_EQ(mirror->sync(*context).value().created, 1);
        EXPECT_EQ(otherClient.itemWithIdentifier(*changed->calendarItemIdentifier())->title,
                  c.changedTaskWritten ? "changed again" : "changed");
        EXPECT_EQ(otherClient.itemWithIdentifier(editedItem).has_value(), c.keptItemOfDeletedTask);

        // Changes another program saved are found in the store's history,
        // and still when that history was purged before this pass read it.
        for (const bool purged : {false, true}) {
            const std::string title = purged ? "changed after a purge" : "changed and saved";
            changed->setTitle(title);
            ASSERT_TRUE(context->save());
            if (purged) {
                ASSERT_TRUE((*opened)->deleteHistory(*(*opened)->currentHistoryToken().value()));
            }
            auto fresh =
                objectstore::ObjectContext::make(*opened, objectstore::ConcurrencyType::mainQueue);
            ASSERT_TRUE(mirror->sync(*fresh));
            EXPECT_EQ(otherClient.itemWithIdentifier(*changed->calendarItemIdentifier())->title,
                      c.changedTaskWritten ? title : "changed");
        }
    }
}

} // namespace
} // namespace tasket::reminders
