// The CalDAV adapter against a real server: what another client changed in
// between is a conflict, a server that cannot be reached or refuses the
// credentials says so, and no identifier leaves its collection.
#include "platform/calendars/caldav_calendar_store.h"
#include "support/program_run.h"
#include "support/radicale_server.h"

#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>
#include <tuple>

namespace tasket::platform {
namespace {

using Kind = CalendarEntityType;

// Also with a server that answers writes without an entity tag: a change
// is then made only while the server still holds the version written.
TEST(CaldavCalendarStore, AChangeAnotherClientMadeFirstIsAConflict) {
    for (const bool tagsWrites : {true, false}) {
        SCOPED_TRACE(tagsWrites);
        testing::RadicaleServer server({.tagsWrites = tagsWrites});
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
        EXPECT_EQ(mine.removeItem(item.identifier, true).error().code, Errc::conflict);
        mine.reset();
        EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "theirs");

        // Once read again, the change is made against their version.
        ASSERT_EQ(mine.items(Kind::reminder, {}).value().front().title, "theirs");
        ASSERT_TRUE(mine.saveReminder(item, true));
        EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "mine again");

        // Their change made while ours are written is not taken as seen.
        ASSERT_TRUE(mine.changeToken(errands.identifier));
        CalendarItem another{.kind = Kind::reminder, .calendarIdentifier = errands.identifier};
        ASSERT_TRUE(theirs.saveReminder(another, true));
        ASSERT_TRUE(mine.saveReminder(item, true));
        const auto afterOwnWrites = mine.tokenAfterOwnWrites(errands.identifier);
        if (tagsWrites) { // ours are named in the token, theirs come back
            const auto since = mine.changesSince(errands.identifier, afterOwnWrites.value());
            ASSERT_EQ(since.value().changed.size(), 1u);
            EXPECT_EQ(since->changed.front().identifier, another.identifier);
        } else {
            EXPECT_FALSE(afterOwnWrites);
        }

        // Nor is an item they removed (once they read our last version) made again.
        ASSERT_TRUE(theirs.items(Kind::reminder, {}));
        ASSERT_TRUE(theirs.removeItem(item.identifier, true));
        item.title = "mine once more";
        EXPECT_FALSE(mine.saveReminder(item, true)); // a conflict, or not found once read
        mine.reset();
        EXPECT_FALSE(theirs.findItem(item.identifier).value());
    }
}

// What another client changed since a token: the items with their data, and
// how many it removed; a change is then made against the version read.
TEST(CaldavCalendarStore, ChangesSinceATokenAreReadInOneRequest) {
    testing::RadicaleServer server;
    CaldavCalendarStore mine({server.url()}, {server.netrcFile()});
    CaldavCalendarStore theirs({server.url()}, {server.netrcFile()});
    CalendarInfo errands{"", "Errands", "", Kind::reminder, ""};
    ASSERT_TRUE(mine.saveCalendar(errands, true));
    CalendarItem kept{.kind = Kind::reminder, .calendarIdentifier = errands.identifier};
    CalendarItem removed = kept;
    ASSERT_TRUE(mine.saveReminder(kept, true));
    ASSERT_TRUE(mine.saveReminder(removed, true));
    const auto token = mine.changeToken(errands.identifier).value();
    EXPECT_TRUE(mine.changesSince(errands.identifier, token).value().changed.empty());

    auto theirCopy = theirs.itemWithIdentifier(kept.identifier).value();
    theirCopy.title = "theirs";
    ASSERT_TRUE(theirs.saveReminder(theirCopy, true));
    ASSERT_TRUE(theirs.removeItem(removed.identifier, true));
    const auto before = mine.requestCount();
    auto changes = mine.changesSince(errands.identifier, token).value();
    EXPECT_EQ(mine.requestCount() - before, 1u);
    ASSERT_EQ(changes.changed.size(), 1u);
    EXPECT_EQ(changes.changed.front().title, "theirs");
    EXPECT_EQ(changes.removed, 1u);
    changes.changed.front().title = "mine";
    ASSERT_TRUE(mine.saveReminder(changes.changed.front(), true));
    EXPECT_EQ(theirs.itemWithIdentifier(kept.identifier)->title, "mine");

    EXPECT_FALSE(mine.changesSince(errands.identifier, "http://radicale.org/ns/sync/unknown"));
}

// A later program changes an item in one request, against the version an
// earlier one kept and in the calendar it kept; a version kept out of date
// is read again, not a conflict, and a calendar kept that is gone is
// forgotten.
TEST(CaldavCalendarStore, ALaterProgramChangesAnItemAgainstTheVersionKept) {
    testing::RadicaleServer server;
    const auto kept = server.storageFolder().parent_path() / "kept";
    const auto program = [&] {
        auto store = std::make_unique<CaldavCalendarStore>(std::vector{server.url()},
                                                           CaldavOptions{server.netrcFile()});
        store->keepStateIn(kept);
        return store;
    };
    auto first = program();
    CalendarInfo errands{"", "Errands", "", Kind::reminder, ""};
    ASSERT_TRUE(first->saveCalendar(errands, true));
    ASSERT_TRUE(first->changeToken(errands.identifier));
    CalendarItem item{.kind = Kind::reminder, .calendarIdentifier = errands.identifier};
    ASSERT_TRUE(first->saveReminder(item, true));
    const auto token = first->tokenAfterOwnWrites(errands.identifier).value();

    auto later = program();
    ASSERT_TRUE(later->changesSince(errands.identifier, token).value().changed.empty());
    item.title = "later";
    const auto before = later->requestCount();
    ASSERT_TRUE(later->saveReminder(item, true));
    EXPECT_EQ(later->requestCount() - before, 1u);
    // Nor does one that reads nothing first: what the calendar holds was kept too.
    auto third = program();
    item.title = "third";
    ASSERT_TRUE(third->saveReminder(item, true));
    EXPECT_EQ(third->requestCount(), 1u);

    // The first program's version is out of date now.
    CaldavCalendarStore theirs({server.url()}, {server.netrcFile()});
    auto theirCopy = theirs.itemWithIdentifier(item.identifier).value();
    ASSERT_TRUE(theirs.saveReminder(theirCopy, true));
    item.title = "again";
    ASSERT_TRUE(program()->saveReminder(item, true));
    EXPECT_EQ(theirs.itemWithIdentifier(item.identifier)->title, "again");

    // A calendar a write finds gone is forgotten: the next program looks.
    ASSERT_TRUE(theirs.removeCalendar(errands.identifier, true));
    EXPECT_FALSE(program()->saveReminder(item, true));
    EXPECT_FALSE(program()->calendarKind(errands.identifier));
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

// A keyring of the test's own: a private session bus with a real Secret
// Service (gnome-keyring-daemon, its keyring unlocked with a password on
// standard input), which this process then asks.
struct Keyring {
    Keyring() {
        std::ofstream(home / "password") << "keyring-password";
        const testing::ProgramOptions options{.home = home.path(), .inputFile = home / "password"};
        bus = testing::startProgram("/usr/bin/dbus-daemon",
                                    {"--session", "--nofork", "--address=" + address}, options);
        for (int i = 0; i < 500 && !std::filesystem::exists(home / "bus"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        auto withBus = options;
        withBus.environment = {"DBUS_SESSION_BUS_ADDRESS=" + address};
        daemon =
            testing::startProgram("/usr/bin/gnome-keyring-daemon",
                                  {"--unlock", "--components=secrets", "--foreground"}, withBus);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    ~Keyring() {
        for (const pid_t each : {daemon, bus}) {
            ::kill(each, SIGTERM);
            ::waitpid(each, nullptr, 0);
        }
    }
    // Stores a login as other programs do, once our daemon holds the
    // service's name (a call before would have the bus start another).
    bool store(const char* server, int port, const char* user, const std::string& password) {
        for (int i = 0;
             i < 500 && testing::runProgram("/usr/bin/dbus-send",
                                            {"--bus=" + address, "--print-reply",
                                             "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                                             "org.freedesktop.DBus.NameHasOwner",
                                             "string:org.freedesktop.secrets"},
                                            {.home = home.path()})
                                .out.find("boolean true") == std::string::npos;
             ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        GError* error = nullptr;
        const bool stored = secret_password_store_sync(
            SECRET_SCHEMA_COMPAT_NETWORK, SECRET_COLLECTION_DEFAULT, "login", password.c_str(),
            nullptr, &error, "protocol", "http", "server", server, "port", port, "user", user,
            nullptr);
        EXPECT_FALSE(error) << error->message;
        g_clear_error(&error);
        return stored;
    }
    testing::TempDir home;
    std::string address = "unix:path=" + (home / "bus").string();
    pid_t bus = -1, daemon = -1;
};

TEST(CaldavCalendarStore, TheKeyringsLoginComesBeforeTheNetrcFile) {
    testing::RadicaleServer server;
    Keyring keyring;
    const auto port = std::stoi(server.url().substr(std::string("http://127.0.0.1:").size()));
    ASSERT_TRUE(keyring.store("127.0.0.1", port + 1, "alice", "another server's"));
    ASSERT_TRUE(keyring.store("127.0.0.1", port, "alice", testing::RadicaleServer::password()));
    const auto wrong = keyring.home / "netrc";
    std::ofstream(wrong) << "machine 127.0.0.1 login alice password wrong\n";
    for (const bool secretService : {true, false}) {
        CaldavCalendarStore store({server.url()}, {wrong, 5, secretService});
        EXPECT_EQ(store.items(Kind::reminder, {}).has_value(), secretService);
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
