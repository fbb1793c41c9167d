// The CalDAV adapter against a real server: what another client changed in
// between is a conflict, a server that cannot be reached or refuses the
// credentials says so, and no identifier leaves its collection.
#include "platform/calendars/caldav_calendar_store.h"
#include "support/radicale_server.h"

#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

namespace tasket::platform {
namespace {

using Kind = CalendarEntityType;

TEST(CaldavCalendarStore, AChangeAnotherClientMadeFirstIsAConflict) {
    testing::RadicaleServer server;
    CaldavCalendarStore mine({server.url()}, {server.netrcFile()});
    CaldavCalendarStore theirs({server.url()}, {server.netrcFile()});
    CalendarInfo errands{"", "Errands", "", Kind::reminder, ""};
    ASSERT_TRUE(mine.saveCalendar(errands, true));
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = errands.identifier};
    ASSERT_TRUE(mine.saveReminder(item, true));

    auto theirCopy = theirs.itemWithIdentifier(item.identifier).value();
    theirCopy.title = "theirs";
    ASSERT_TRUE(theirs.saveReminder(theirCopy, true));

    item.title = "mine";
    const auto saved = mine.saveReminder(item, true);
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().code, Errc::conflict);
    EXPECT_EQ(mine.removeItem(item.identifier, true).error().code, Errc::conflict);
    mine.reset();
    EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "theirs");

    // Once read again, the change is made against their version.
    ASSERT_EQ(mine.items(Kind::reminder, {}).value().front().title, "theirs");
    ASSERT_TRUE(mine.saveReminder(item, true));
    EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "mine");
}

// A server that answers writes without an entity tag: a later change is
// made only while the server still holds the version written.
TEST(CaldavCalendarStore, WithoutAnEntityTagAChangeIsStillConditional) {
    testing::RadicaleServer server({.tagsWrites = false});
    CaldavCalendarStore mine({server.url()}, {server.netrcFile()});
    CaldavCalendarStore theirs({server.url()}, {server.netrcFile()});
    CalendarInfo errands{"", "Errands", "", Kind::reminder, ""};
    ASSERT_TRUE(mine.saveCalendar(errands, true));
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = errands.identifier};
    ASSERT_TRUE(mine.saveReminder(item, true));
    item.title = "mine";
    ASSERT_TRUE(mine.saveReminder(item, true));

    auto theirCopy = theirs.itemWithIdentifier(item.identifier).value();
    theirCopy.title = "theirs";
    ASSERT_TRUE(theirs.saveReminder(theirCopy, true));
    item.title = "mine again";
    const auto saved = mine.saveReminder(item, true);
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().code, Errc::conflict);
    mine.reset();
    EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "theirs");
}

TEST(CaldavCalendarStore, UnreachableServersAndRefusedCredentialsSayWhy) {
    testing::RadicaleServer server;
    const auto wrong = server.storageFolder().parent_path() / "wrong-netrc";
    std::ofstream(wrong) << "machine 127.0.0.1 login alice password wrong\n";
    const std::tuple<std::string, std::filesystem::path, Errc, std::string> cases[] = {
        {"http://127.0.0.1:1/", server.netrcFile(), Errc::unavailable,
         "cannot reach the calendar server at http://127.0.0.1:1/"},
        {server.url(), wrong, Errc::permissionDenied, "refused the credentials (401)"}};
    for (const auto& [url, netrc, code, says] : cases) {
        CaldavCalendarStore store({url}, {netrc, 5});
        const auto items = store.items(Kind::reminder, {});
        ASSERT_FALSE(items) << url;
        EXPECT_EQ(items.error().code, code);
        EXPECT_NE(items.error().message.find(says), std::string::npos) << items.error().message;
        // Nor is an item taken for absent when it cannot be looked for.
        const auto found = store.findItem("any");
        ASSERT_FALSE(found);
        EXPECT_EQ(found.error().code, code);
    }
}

// Items another client wrote with hostile UIDs are read, and moving them
// writes them inside the target collection and nowhere else.
TEST(CaldavCalendarStore, HostileIdentifiersStayInsideTheirCollection) {
    testing::RadicaleServer server;
    CaldavCalendarStore store({server.url()}, {server.netrcFile()});
    CalendarInfo from{"", "From", "", Kind::reminder, ""}, to{"", "To", "", Kind::reminder, ""};
    ASSERT_TRUE(store.saveCalendar(from, true));
    ASSERT_TRUE(store.saveCalendar(to, true));
    const auto account = server.storageFolder() / "collection-root" / "alice";
    const auto folderOf = [&](const std::string& url) {
        return account / std::filesystem::path(url).parent_path().filename();
    };
    const std::string cases[] = {"../../x",    "/etc/passwd", "..",
                                 "%2e%2e%2fy", "a/b?c#d",     std::string(300, 'z')};
    int n = 0;
    for (const auto& uid : cases)
        std::ofstream(folderOf(from.identifier) / ("item" + std::to_string(n++) + ".ics"))
            << "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//other//EN\r\nBEGIN:VTODO\r\nUID:" << uid
            << "\r\nSUMMARY:hostile\r\nEND:VTODO\r\nEND:VCALENDAR\r\n";
    auto items = store.items(Kind::reminder, {}).value();
    ASSERT_EQ(items.size(), std::size(cases));
    for (auto& item : items) {
        SCOPED_TRACE(item.identifier);
        item.calendarIdentifier = to.identifier;
        ASSERT_TRUE(store.saveReminder(item, true));
        EXPECT_EQ(store.itemWithIdentifier(item.identifier)->calendarIdentifier, to.identifier);
    }
    std::size_t inTarget = 0, elsewhere = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(account))
        if (entry.path().extension() == ".ics" &&
            entry.path().string().find(".Radicale") == std::string::npos) // not its caches
            ++(entry.path().parent_path() == folderOf(to.identifier) ? inTarget : elsewhere);
    EXPECT_EQ(inTarget, std::size(cases));
    EXPECT_EQ(elsewhere, 0u);
}

} // namespace
} // namespace tasket::platform
