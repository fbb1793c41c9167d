// The Linux adapter of the user-notification port: the pending requests,
// the installed categories, the delivered notifications and the badge,
// kept in a small SQLite database (WAL) in the group container, so that
// every program of the user schedules into it and the notification daemon
// delivers from it. Two processes may use it at once; each write is one
// transaction (BEGIN IMMEDIATE, waiting up to five seconds for another).
//
// Schema, version 1 (PRAGMA user_version); dates are seconds since
// 2001-01-01 00:00:00 UTC, user info a JSON object of strings:
//
//   pending(revision INTEGER PRIMARY KEY AUTOINCREMENT,
//           identifier TEXT NOT NULL UNIQUE, added_at REAL NOT NULL,
//           <request columns>)
//     One row per pending request. Adding is INSERT OR REPLACE by
//     identifier, so a replaced request gets a new revision: a delivery
//     recorded against the old revision then changes nothing.
//   delivered(identifier TEXT PRIMARY KEY, server_id INTEGER NOT NULL,
//             delivered_at REAL NOT NULL, <request columns>)
//     One row per delivered notification still shown; server_id is the
//     number the desktop's notification server gave it (0: none), the
//     one a later notification under the same identifier replaces.
//   <request columns> = year, month, day, hour, minute INTEGER NOT NULL,
//     repeats INTEGER NOT NULL, title, subtitle, body TEXT NOT NULL,
//     default_sound INTEGER NOT NULL, badge INTEGER (NULL: none),
//     category TEXT NOT NULL, user_info TEXT NOT NULL,
//     interruption_level INTEGER NOT NULL (0 passive, 1 active,
//     2 timeSensitive), relevance REAL NOT NULL
//   categories(identifier TEXT PRIMARY KEY, options INTEGER NOT NULL,
//              intent_identifiers TEXT NOT NULL)   -- a JSON array
//   category_actions(category TEXT NOT NULL, position INTEGER NOT NULL,
//                    identifier, title TEXT NOT NULL, options INTEGER
//                    NOT NULL, icon TEXT NOT NULL,
//                    PRIMARY KEY (category, position))
//   state(key TEXT PRIMARY KEY, value INTEGER NOT NULL)  -- 'badge'
//
// When a request fires: its trigger names a local minute, read in the zone
// of the calendar the caller passes at the time it asks (so a zone change
// moves it); a minute skipped by a daylight-saving change means the first
// minute after the gap, a repeated one its first occurrence. A request
// fires when that instant has come, also long after (a machine that slept
// catches up), but never when the instant had already passed (before the
// minute it was added in) when it was added. Every trigger is read as one
// date; `repeats` is kept as given.
//
// Watching for changes: the database file's folder changes on every commit
// (inotify), and dataVersion() tells whether another connection committed.
#pragma once

#include "platform/calendar.h"
#include "platform/notifications/user_notification_center.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tasket::platform {

/// The instant at which `trigger` names its minute in `calendar`'s zone.
[[nodiscard]] Date triggerDate(const CalendarTrigger& trigger, const Calendar& calendar);

class NotificationQueue final : public UserNotificationCenter {
  public:
    /// The queue's file name in the group container.
    static constexpr std::string_view kFileName = "Notifications.sqlite";

    /// A pending request as the queue holds it.
    struct Queued {
        NotificationRequest request;
        std::int64_t revision = 0;
        Date addedAt;
    };
    /// A delivered notification with the notification server's number for it.
    struct Delivered {
        DeliveredNotification notification;
        std::uint32_t serverID = 0;
    };

    /// Opens the queue at `file`, creating it (and the schema) when absent.
    /// Requests are added at Clock::shared()'s time.
    /// Fails with schemaTooNew for a queue written by a newer program,
    /// storeCorrupt for a file that is not one.
    [[nodiscard]] static Result<std::unique_ptr<NotificationQueue>>
    open(const std::filesystem::path& file);
    ~NotificationQueue() override;
    NotificationQueue(const NotificationQueue&) = delete;
    NotificationQueue& operator=(const NotificationQueue&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

    // ---- The port --------------------------------------------------------------------
    [[nodiscard]] Result<>
    setNotificationCategories(std::vector<NotificationCategory> categories) override;
    [[nodiscard]] Result<std::vector<NotificationCategory>> notificationCategories() const override;

    [[nodiscard]] Result<> addNotificationRequest(const NotificationRequest& request) override;
    [[nodiscard]] Result<std::vector<NotificationRequest>>
    pendingNotificationRequests() const override;
    [[nodiscard]] Result<>
    removePendingNotificationRequests(std::span<const std::string> identifiers) override;

    [[nodiscard]] Result<std::vector<DeliveredNotification>>
    deliveredNotifications() const override;
    [[nodiscard]] Result<>
    removeDeliveredNotifications(std::span<const std::string> identifiers) override;

    [[nodiscard]] Result<> setBadgeCount(int count) override;
    [[nodiscard]] Result<int> badgeCount() const override;

    // ---- Many changes at once ----------------------------------------------------------
    /// Runs `body` in one transaction: its writes are committed together
    /// when it succeeds, and none when it fails. Calls inside `body` join it.
    [[nodiscard]] Result<> transaction(const std::function<Result<>()>& body);

    // ---- For the daemon --------------------------------------------------------------
    /// The pending requests with their revisions and times added, by identifier.
    [[nodiscard]] Result<std::vector<Queued>> queued() const;
    /// The pending requests due at `now` in `calendar`'s zone, earliest
    /// first; those that can never fire (past when added) are removed.
    [[nodiscard]] Result<std::vector<Queued>> takeDue(Date now, const Calendar& calendar);
    /// When the next pending request fires after `now` (nullopt: none will).
    [[nodiscard]] Result<std::optional<Date>> nextFireDate(Date now,
                                                           const Calendar& calendar) const;
    /// Moves the pending request of `revision` to the delivered ones, with
    /// the server's number for it; false (and nothing changed) when it was
    /// replaced or removed meanwhile.
    [[nodiscard]] Result<bool> recordDelivery(std::int64_t revision, std::uint32_t serverID,
                                              Date at);
    /// The delivered notification under `identifier`, if any.
    [[nodiscard]] Result<std::optional<Delivered>> delivered(const std::string& identifier) const;
    /// Forgets the servers' numbers of every delivered notification: a
    /// server numbers afresh in each session, so an old number would name
    /// another program's notification.
    [[nodiscard]] Result<> forgetServerIDs();
    /// The delivered notification the server numbered `serverID`, if any.
    [[nodiscard]] Result<std::optional<Delivered>>
    deliveredWithServerID(std::uint32_t serverID) const;
    /// Rises whenever another connection committed a change (PRAGMA data_version).
    [[nodiscard]] Result<std::int64_t> dataVersion() const;

  private:
    NotificationQueue(sqlite3* db, std::filesystem::path path);

    [[nodiscard]] Result<sqlite3_stmt*> prepare(std::string_view sql) const;
    [[nodiscard]] Result<> exec(std::string_view sql) const;
    /// Steps `stmt` to its end; fails with the database's error.
    [[nodiscard]] Result<> run(sqlite3_stmt* stmt) const;
    [[nodiscard]] Result<> write(const std::function<Result<>()>& body);
    /// Removes the rows of `table` with each of `identifiers`, in one write.
    [[nodiscard]] Result<> removeRows(std::string_view table,
                                      std::span<const std::string> identifiers);
    [[nodiscard]] Error error(std::string_view what) const;
    [[nodiscard]] Result<std::vector<Queued>> readPending(std::string_view where) const;
    [[nodiscard]] Result<std::vector<Delivered>> readDelivered(std::string_view where,
                                                               std::int64_t argument) const;
    [[nodiscard]] Result<std::map<std::string, std::string>>
    readUserInfo(std::string_view json) const;

    mutable std::recursive_mutex m_mutex;
    sqlite3* m_db;
    std::filesystem::path m_path;
    mutable std::map<std::string, sqlite3_stmt*, std::less<>> m_statements;
    int m_transactionDepth = 0;
    // The categories this connection installed last, and the data version
    // then: while no other connection has committed, installing the same
    // set again writes nothing.
    std::optional<std::vector<NotificationCategory>> m_installed;
    std::int64_t m_installedAtVersion = 0;
};

} // namespace tasket::platform
