// The vdir adapter's files: what another client wrote is read and kept,
// what we write is real iCalendar, and no identifier leaves its folder.
#include "platform/calendars/detail/ical_codec.h"
#include "platform/calendars/vdir_calendar_store.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <libical/ical.h>

#include <fstream>
#include <set>
#include <sstream>

namespace tasket::platform {
namespace {

namespace fs = std::filesystem;

std::set<fs::path> filesUnder(const fs::path& dir) {
    std::set<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        files.insert(fs::relative(entry.path(), dir));
    return files;
}

TEST(VdirCalendarStore, HostileIdentifiersNeverBecomePaths) {
    const std::string cases[] = {
        "../x",         "/", "..", ".hidden", std::string("a\0b", 3), std::string(5000, 'a'), "a/b",
        "ok-Name_1@x.y"};
    std::set<std::string> names;
    for (const auto& id : cases) {
        const auto name = detail::itemFileName(id);
        EXPECT_TRUE(detail::isSafeFileName(name.substr(0, name.size() - 4))) << name;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), std::size(cases));
    EXPECT_EQ(detail::itemFileName("ok-Name_1@x.y"), "ok-Name_1@x.y.ics");

    testing::TempDir dir;
    fs::create_directories(dir / "root/My Calendar");
    VdirCalendarStore store({dir / "root"});
    for (const char* id : {"..", "../root", "/", "My Calendar/..", ""})
        EXPECT_FALSE(store.calendarWithIdentifier(id)) << id;
    EXPECT_TRUE(store.calendarWithIdentifier("My Calendar"));
}

TEST(VdirCalendarStore, AnotherClientsItemIsReadUpdatedAndRemovedInPlace) {
    testing::TempDir dir;
    const auto folder = dir / "root/cal";
    fs::create_directories(folder);
    fs::copy_file(fs::path(TASKET_CALENDAR_DATA) / "another_client_todo.ics",
                  folder / "theirs.ics");
    VdirCalendarStore store({dir / "root"});
    const auto before = filesUnder(dir.path());

    auto item = store.itemWithIdentifier("../../outside");
    ASSERT_TRUE(item);
    EXPECT_EQ(store.calendarWithIdentifier("cal")->entityType, CalendarEntityType::reminder);
    EXPECT_EQ(item->title, "Buy milk, eggs");
    EXPECT_EQ(item->notes, "two lines\nsecond");
    EXPECT_EQ(item->priority, 5);
    EXPECT_EQ(item->dueDateComponents, (DueDateComponents{{2026, 11, 24, 0, 0, 0, 0}, false, ""}));
    EXPECT_EQ(item->recurrenceRules,
              (std::vector<RecurrenceRule>{{RecurrenceRule::Frequency::weekly, 2}}));

    item->title = "Buy bread";
    item->completed = true;
    ASSERT_TRUE(store.saveReminder(*item, true));
    EXPECT_EQ(filesUnder(dir.path()), before);

    // What we wrote is read by libical itself, with the other client's property kept.
    icalcomponent* root = icalparser_parse_string(testing::readFile(folder / "theirs.ics").c_str());
    ASSERT_TRUE(root);
    icalcomponent* todo = icalcomponent_get_first_component(root, ICAL_VTODO_COMPONENT);
    ASSERT_TRUE(todo);
    EXPECT_STREQ(icalcomponent_get_summary(todo), "Buy bread");
    EXPECT_EQ(icalcomponent_get_status(todo), ICAL_STATUS_COMPLETED);
    EXPECT_TRUE(icalcomponent_get_first_property(todo, ICAL_CATEGORIES_PROPERTY));
    EXPECT_TRUE(icaltime_is_date(icalcomponent_get_due(todo)));
    icalcomponent_free(root);
    // Their rule, unchanged by us, is kept as they wrote it; a changed one is ours.
    const auto rule = [&] {
        const auto text = testing::readFile(folder / "theirs.ics");
        const auto at = text.find("\nRRULE");
        return text.substr(at + 1, text.find('\n', at + 1) - at);
    };
    EXPECT_EQ(rule(), "RRULE:FREQ=WEEKLY;INTERVAL=2;BYDAY=MO,WE;UNTIL=20261231T000000Z\r\n");
    item->recurrenceRules = {{RecurrenceRule::Frequency::daily, 3}};
    ASSERT_TRUE(store.saveReminder(*item, true));
    EXPECT_EQ(rule(), "RRULE:FREQ=DAILY;INTERVAL=3\r\n");

    ASSERT_TRUE(store.removeItem("../../outside", true));
    EXPECT_FALSE(fs::exists(folder / "theirs.ics"));
}

TEST(VdirCalendarStore, TheTokenAfterOwnWritesLeavesOutAnotherClientsWrite) {
    testing::TempDir dir;
    const auto folder = dir / "root/cal";
    fs::create_directories(folder);
    const auto theirs = fs::path(TASKET_CALENDAR_DATA) / "another_client_todo.ics";
    fs::copy_file(theirs, folder / "theirs.ics");
    VdirCalendarStore store({dir / "root"});
    auto item = store.itemWithIdentifier("../../outside");
    ASSERT_TRUE(item && store.changeToken("cal"));
    fs::copy_file(theirs, folder / "meanwhile.ics"); // while a sync runs
    item->title = "ours";
    ASSERT_TRUE(store.saveReminder(*item, true));
    const auto afterOwnWrites = store.tokenAfterOwnWrites("cal");
    EXPECT_NE(afterOwnWrites, store.changeToken("cal"));
}

TEST(VdirCalendarStore, WritesTheLayoutOtherClientsRead) {
    testing::TempDir dir;
    VdirCalendarStore store({dir / "root"});
    CalendarInfo calendar{"", "Work", "#00FF00", CalendarEntityType::event, ""};
    ASSERT_TRUE(store.saveCalendar(calendar, true));
    const auto folder = dir / "root" / calendar.identifier;
    EXPECT_EQ(testing::readFile(folder / "displayname"), "Work");
    EXPECT_EQ(testing::readFile(folder / "color"), "#00FF00");

    const auto day = [](int d) { return Calendar::current().date({2026, 11, d, 0, 0, 0, 0}); };
    CalendarItem event{.kind = CalendarEntityType::event,
                       .calendarIdentifier = calendar.identifier,
                       .title = "Conference",
                       .allDay = true,
                       .startDate = day(23),
                       .endDate = day(25)};
    ASSERT_TRUE(store.saveEvent(event, EventSpan::thisEvent, true));
    const auto text = testing::readFile(folder / (event.identifier + ".ics"));
    EXPECT_NE(text.find("DTSTART;VALUE=DATE:20261123"), std::string::npos) << text;
    EXPECT_NE(text.find("DTEND;VALUE=DATE:20261126"), std::string::npos) << text;

    // Another process sees it; nothing temporary is left behind.
    VdirCalendarStore other({dir / "root"});
    EXPECT_EQ(other.itemWithIdentifier(event.identifier)->endDate, day(25));
    EXPECT_EQ(filesUnder(folder).size(), 4u);
}

} // namespace
} // namespace tasket::platform
