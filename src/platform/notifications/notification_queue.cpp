#include "platform/notifications/notification_queue.h"

#include "platform/clock.h"
#include "platform/json_writer.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace tasket::platform {

namespace {

constexpr int kSchemaVersion = 1;

// The columns of a request, in the order bindRequest() and readRequest() use.
constexpr std::string_view kRequestColumns = "identifier, year, month, day, hour, minute, repeats, "
                                             "title, subtitle, body, default_sound, badge, "
                                             "category, user_info, interruption_level, relevance";
constexpr int kRequestColumnCount = 16;

constexpr std::string_view kSchema = R"sql(
CREATE TABLE pending(
  revision INTEGER PRIMARY KEY AUTOINCREMENT, identifier TEXT NOT NULL UNIQUE, added_at REAL NOT NULL,
  year INTEGER NOT NULL, month INTEGER NOT NULL, day INTEGER NOT NULL, hour INTEGER NOT NULL,
  minute INTEGER NOT NULL, repeats INTEGER NOT NULL, title TEXT NOT NULL, subtitle TEXT NOT NULL,
  body TEXT NOT NULL, default_sound INTEGER NOT NULL, badge INTEGER, category TEXT NOT NULL,
  user_info TEXT NOT NULL, interruption_level INTEGER NOT NULL, relevance REAL NOT NULL);
CREATE TABLE delivered(
  identifier TEXT PRIMARY KEY, server_id INTEGER NOT NULL, delivered_at REAL NOT NULL,
  year INTEGER NOT NULL, month INTEGER NOT NULL, day INTEGER NOT NULL, hour INTEGER NOT NULL,
  minute INTEGER NOT NULL, repeats INTEGER NOT NULL, title TEXT NOT NULL, subtitle TEXT NOT NULL,
  body TEXT NOT NULL, default_sound INTEGER NOT NULL, badge INTEGER, category TEXT NOT NULL,
  user_info TEXT NOT NULL, interruption_level INTEGER NOT NULL, relevance REAL NOT NULL);
CREATE INDEX delivered_server_id ON delivered(server_id);
CREATE TABLE categories(identifier TEXT PRIMARY KEY, options INTEGER NOT NULL, intent_identifiers TEXT NOT NULL);
CREATE TABLE category_actions(
  category TEXT NOT NULL, position INTEGER NOT NULL, identifier TEXT NOT NULL, title TEXT NOT NULL,
  options INTEGER NOT NULL, icon TEXT NOT NULL, PRIMARY KEY (category, position));
CREATE TABLE state(key TEXT PRIMARY KEY, value INTEGER NOT NULL);
INSERT INTO state VALUES ('badge', 0);
PRAGMA user_version = 1;
)sql";

void bindText(sqlite3_stmt* stmt, int index, std::string_view text) {
    sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

std::string columnText(sqlite3_stmt* stmt, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
    return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(stmt, column)))
                : std::string();
}

std::string userInfoJson(const std::map<std::string, std::string>& userInfo) {
    JsonWriter writer(JsonWriter::Form::compact);
    writer.beginObject();
    for (const auto& [key, value] : userInfo) {
        writer.key(key).string(value);
    }
    writer.endObject();
    return *writer.finish(); // the compact form never fails
}

/// Binds `request` to parameters first … first + kRequestColumnCount - 1.
void bindRequest(sqlite3_stmt* stmt, int first, const NotificationRequest& request) {
    const auto& trigger = request.trigger;
    const auto& content = request.content;
    bindText(stmt, first, request.identifier);
    sqlite3_bind_int(stmt, first + 1, trigger.year);
    sqlite3_bind_int(stmt, first + 2, trigger.month);
    sqlite3_bind_int(stmt, first + 3, trigger.day);
    sqlite3_bind_int(stmt, first + 4, trigger.hour);
    sqlite3_bind_int(stmt, first + 5, trigger.minute);
    sqlite3_bind_int(stmt, first + 6, trigger.repeats ? 1 : 0);
    bindText(stmt, first + 7, content.title);
    bindText(stmt, first + 8, content.subtitle);
    bindText(stmt, first + 9, content.body);
    sqlite3_bind_int(stmt, first + 10, content.defaultSound ? 1 : 0);
    if (content.badge) {
        sqlite3_bind_int(stmt, first + 11, *content.badge);
    } else {
        sqlite3_bind_null(stmt, first + 11);
    }
    bindText(stmt, first + 12, content.categoryIdentifier);
    bindText(stmt, first + 13, userInfoJson(content.userInfo));
    sqlite3_bind_int(stmt, first + 14, static_cast<int>(content.interruptionLevel));
    sqlite3_bind_double(stmt, first + 15, content.relevanceScore);
}

/// Reads a request from columns first …; the user info stays as JSON text.
NotificationRequest readRequest(sqlite3_stmt* stmt, int first, std::string& userInfoJsonOut) {
    NotificationRequest request;
    request.identifier = columnText(stmt, first);
    auto& trigger = request.trigger;
    trigger.year = sqlite3_column_int(stmt, first + 1);
    trigger.month = sqlite3_column_int(stmt, first + 2);
    trigger.day = sqlite3_column_int(stmt, first + 3);
    trigger.hour = sqlite3_column_int(stmt, first + 4);
    trigger.minute = sqlite3_column_int(stmt, first + 5);
    trigger.repeats = sqlite3_column_int(stmt, first + 6) != 0;
    auto& content = request.content;
    content.title = columnText(stmt, first + 7);
    content.subtitle = columnText(stmt, first + 8);
    content.body = columnText(stmt, first + 9);
    content.defaultSound = sqlite3_column_int(stmt, first + 10) != 0;
    if (sqlite3_column_type(stmt, first + 11) != SQLITE_NULL) {
        content.badge = sqlite3_column_int(stmt, first + 11);
    }
    content.categoryIdentifier = columnText(stmt, first + 12);
    userInfoJsonOut = columnText(stmt, first + 13);
    content.interruptionLevel =
        static_cast<InterruptionLevel>(std::clamp(sqlite3_column_int(stmt, first + 14), 0, 2));
    content.relevanceScore = sqlite3_column_double(stmt, first + 15);
    return request;
}

/// Resets a cached statement when the scope ends.
struct Reset {
    sqlite3_stmt* stmt;
    ~Reset() {
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
    }
};

/// The minute that holds `date`.
Date startOfMinute(Date date) {
    return Date{std::floor(date.secondsSinceReference / 60.0) * 60.0};
}

} // namespace

Date triggerDate(const CalendarTrigger& trigger, const Calendar& calendar) {
    return calendar.date(
        DateComponents{trigger.year, trigger.month, trigger.day, trigger.hour, trigger.minute});
}

// ---- Opening ----------------------------------------------------------------------------

NotificationQueue::NotificationQueue(sqlite3* db, std::filesystem::path path)
    : m_db(db), m_path(std::move(path)) {}

NotificationQueue::~NotificationQueue() {
    for (auto& [sql, stmt] : m_statements) {
        sqlite3_finalize(stmt);
    }
    sqlite3_close_v2(m_db);
}

Result<std::unique_ptr<NotificationQueue>>
NotificationQueue::open(const std::filesystem::path& file) {
    sqlite3* db = nullptr;
    int rc =
        sqlite3_open_v2(file.c_str(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<NotificationQueue> queue(new NotificationQueue(db, file));
    if (rc != SQLITE_OK) {
        return std::unexpected(queue->error("cannot open the notification queue"));
    }
    sqlite3_busy_timeout(db, 5000);
    if (auto ok = queue->exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL"); !ok) {
        if (sqlite3_errcode(db) == SQLITE_NOTADB) {
            return fail(Errc::storeCorrupt, file.string() + " is not a notification queue");
        }
        return std::unexpected(ok.error());
    }
    auto version = queue->prepare("PRAGMA user_version");
    if (!version) {
        return std::unexpected(version.error());
    }
    int found = 0;
    {
        Reset reset{*version};
        if (sqlite3_step(*version) == SQLITE_ROW) {
            found = sqlite3_column_int(*version, 0);
        }
    }
    if (found > kSchemaVersion) {
        return fail(Errc::schemaTooNew,
                    file.string() +
                        " was written by a newer version of this program (queue version " +
                        std::to_string(found) + ")");
    }
    if (found == 0) {
        auto created = queue->write([&]() -> Result<> {
            // Another process may have created it while this one waited.
            Reset again{*version};
            if (sqlite3_step(*version) == SQLITE_ROW && sqlite3_column_int(*version, 0) != 0) {
                return {};
            }
            return queue->exec(kSchema);
        });
        if (!created) {
            return std::unexpected(created.error());
        }
    }
    return queue;
}

Error NotificationQueue::error(std::string_view what) const {
    int code = sqlite3_errcode(m_db);
    auto errc = (code == SQLITE_CORRUPT || code == SQLITE_NOTADB) ? Errc::storeCorrupt
                : (code == SQLITE_CANTOPEN || code == SQLITE_PERM || code == SQLITE_READONLY)
                    ? Errc::permissionDenied
                    : Errc::storeError;
    return Error{errc, std::string(what) + " (" + m_path.string() + "): " + sqlite3_errmsg(m_db)};
}

Result<sqlite3_stmt*> NotificationQueue::prepare(std::string_view sql) const {
    if (auto found = m_statements.find(sql); found != m_statements.end()) {
        return found->second;
    }
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v3(m_db, sql.data(), static_cast<int>(sql.size()),
                           SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) != SQLITE_OK) {
        return std::unexpected(error("cannot read the notification queue"));
    }
    m_statements.emplace(std::string(sql), stmt);
    return stmt;
}

Result<> NotificationQueue::exec(std::string_view sql) const {
    std::string text(sql);
    if (sqlite3_exec(m_db, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        return std::unexpected(error("cannot change the notification queue"));
    }
    return {};
}

Result<> NotificationQueue::run(sqlite3_stmt* stmt) const {
    int rc = SQLITE_ROW;
    while (rc == SQLITE_ROW) {
        rc = sqlite3_step(stmt);
    }
    if (rc != SQLITE_DONE) {
        return std::unexpected(error("cannot change the notification queue"));
    }
    return {};
}

Result<> NotificationQueue::write(const std::function<Result<>()>& body) {
    std::lock_guard lock(m_mutex);
    if (m_transactionDepth > 0) {
        return body();
    }
    if (auto begun = exec("BEGIN IMMEDIATE"); !begun) {
        return begun;
    }
    ++m_transactionDepth;
    auto result = body();
    --m_transactionDepth;
    if (result) {
        result = exec("COMMIT");
    }
    if (!result) {
        (void)exec("ROLLBACK");
        m_installed.reset();
    }
    return result;
}

Result<> NotificationQueue::transaction(const std::function<Result<>()>& body) {
    return write(body);
}

// ---- Categories ------------------------------------------------------------------------

Result<>
NotificationQueue::setNotificationCategories(std::vector<NotificationCategory> categories) {
    std::lock_guard lock(m_mutex);
    std::ranges::sort(categories, {}, &NotificationCategory::identifier);
    auto version = dataVersion();
    if (!version) {
        return std::unexpected(version.error());
    }
    if (m_installed == categories && m_installedAtVersion == *version) {
        return {};
    }
    m_installed.reset();
    auto written = write([&]() -> Result<> {
        if (auto cleared = exec("DELETE FROM category_actions; DELETE FROM categories"); !cleared) {
            return cleared;
        }
        auto category = prepare("INSERT OR REPLACE INTO categories VALUES (?1, ?2, ?3)");
        auto action =
            prepare("INSERT OR REPLACE INTO category_actions VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
        if (!category || !action) {
            return std::unexpected(category ? action.error() : category.error());
        }
        for (const auto& c : categories) {
            JsonWriter intents(JsonWriter::Form::compact);
            intents.beginArray();
            for (const auto& intent : c.intentIdentifiers) {
                intents.string(intent);
            }
            intents.endArray();
            {
                Reset reset{*category};
                bindText(*category, 1, c.identifier);
                sqlite3_bind_int64(*category, 2, c.options);
                bindText(*category, 3, *intents.finish());
                if (auto ran = run(*category); !ran) {
                    return ran;
                }
            }
            for (std::size_t i = 0; i < c.actions.size(); ++i) {
                const auto& a = c.actions[i];
                Reset reset{*action};
                bindText(*action, 1, c.identifier);
                sqlite3_bind_int64(*action, 2, static_cast<std::int64_t>(i));
                bindText(*action, 3, a.identifier);
                bindText(*action, 4, a.title);
                sqlite3_bind_int64(*action, 5, a.options);
                bindText(*action, 6, a.iconName);
                if (auto ran = run(*action); !ran) {
                    return ran;
                }
            }
        }
        return {};
    });
    if (written) {
        m_installed = std::move(categories);
        m_installedAtVersion = *version;
    }
    return written;
}

Result<std::vector<NotificationCategory>> NotificationQueue::notificationCategories() const {
    std::lock_guard lock(m_mutex);
    auto categories = prepare(
        "SELECT identifier, options, intent_identifiers FROM categories ORDER BY identifier");
    auto intents = prepare("SELECT value FROM json_each(?1)");
    auto actions = prepare("SELECT identifier, title, options, icon FROM category_actions WHERE "
                           "category = ?1 ORDER BY position");
    if (!categories || !intents || !actions) {
        return std::unexpected(!categories ? categories.error()
                               : !intents  ? intents.error()
                                           : actions.error());
    }
    std::vector<NotificationCategory> out;
    Reset reset{*categories};
    int rc = 0;
    while ((rc = sqlite3_step(*categories)) == SQLITE_ROW) {
        NotificationCategory c;
        c.identifier = columnText(*categories, 0);
        c.options = static_cast<unsigned>(sqlite3_column_int64(*categories, 1));
        {
            Reset resetIntents{*intents};
            bindText(*intents, 1, columnText(*categories, 2));
            while (sqlite3_step(*intents) == SQLITE_ROW) {
                c.intentIdentifiers.push_back(columnText(*intents, 0));
            }
        }
        Reset resetActions{*actions};
        bindText(*actions, 1, c.identifier);
        while (sqlite3_step(*actions) == SQLITE_ROW) {
            c.actions.push_back(NotificationAction{
                columnText(*actions, 0), columnText(*actions, 1),
                static_cast<unsigned>(sqlite3_column_int64(*actions, 2)), columnText(*actions, 3)});
        }
        out.push_back(std::move(c));
    }
    if (rc != SQLITE_DONE) {
        return std::unexpected(error("cannot read the notification categories"));
    }
    return out;
}

// ---- Pending requests --------------------------------------------------------------------

Result<> NotificationQueue::addNotificationRequest(const NotificationRequest& request) {
    // A request added again with the same trigger keeps the time it was
    // first added: a reschedule pass must not turn a reminder that fell due
    // while nobody delivered it into one "already past when added".
    static const std::string sql =
        "INSERT OR REPLACE INTO pending (added_at, " + std::string(kRequestColumns) +
        ") VALUES (COALESCE((SELECT added_at FROM pending WHERE identifier = ?2 AND year = ?3 "
        "AND month = ?4 AND day = ?5 AND hour = ?6 AND minute = ?7), ?1), "
        "?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17)";
    return write([&]() -> Result<> {
        auto stmt = prepare(sql);
        if (!stmt) {
            return std::unexpected(stmt.error());
        }
        Reset reset{*stmt};
        sqlite3_bind_double(*stmt, 1, Clock::shared().now().secondsSinceReference);
        bindRequest(*stmt, 2, request);
        if (auto ran = run(*stmt); !ran) {
            return ran;
        }
        return {};
    });
}

Result<std::map<std::string, std::string>>
NotificationQueue::readUserInfo(std::string_view json) const {
    std::map<std::string, std::string> out;
    if (json == "{}") {
        return out;
    }
    auto stmt = prepare("SELECT key, value FROM json_each(?1)");
    if (!stmt) {
        return std::unexpected(stmt.error());
    }
    Reset reset{*stmt};
    bindText(*stmt, 1, json);
    int rc = 0;
    while ((rc = sqlite3_step(*stmt)) == SQLITE_ROW) {
        out.emplace(columnText(*stmt, 0), columnText(*stmt, 1));
    }
    if (rc != SQLITE_DONE) {
        return std::unexpected(error("cannot read a notification's user info"));
    }
    return out;
}

Result<std::vector<NotificationQueue::Queued>>
NotificationQueue::readPending(std::string_view where) const {
    std::lock_guard lock(m_mutex);
    auto stmt = prepare("SELECT revision, added_at, " + std::string(kRequestColumns) +
                        " FROM pending " + std::string(where) + " ORDER BY identifier");
    if (!stmt) {
        return std::unexpected(stmt.error());
    }
    std::vector<Queued> out;
    std::vector<std::string> userInfo;
    {
        Reset reset{*stmt};
        int rc = 0;
        while ((rc = sqlite3_step(*stmt)) == SQLITE_ROW) {
            Queued q;
            q.revision = sqlite3_column_int64(*stmt, 0);
            q.addedAt = Date{sqlite3_column_double(*stmt, 1)};
            q.request = readRequest(*stmt, 2, userInfo.emplace_back());
            out.push_back(std::move(q));
        }
        if (rc != SQLITE_DONE) {
            return std::unexpected(error("cannot read the pending notification requests"));
        }
    }
    for (std::size_t i = 0; i < out.size(); ++i) {
        auto info = readUserInfo(userInfo[i]);
        if (!info) {
            return std::unexpected(info.error());
        }
        out[i].request.content.userInfo = std::move(*info);
    }
    return out;
}

Result<std::vector<NotificationRequest>> NotificationQueue::pendingNotificationRequests() const {
    auto queued = readPending("");
    if (!queued) {
        return std::unexpected(queued.error());
    }
    std::vector<NotificationRequest> out;
    out.reserve(queued->size());
    for (auto& q : *queued) {
        out.push_back(std::move(q.request));
    }
    return out;
}

Result<> NotificationQueue::removeRows(std::string_view table,
                                       std::span<const std::string> identifiers) {
    return write([&]() -> Result<> {
        auto stmt = prepare("DELETE FROM " + std::string(table) + " WHERE identifier = ?1");
        if (!stmt) {
            return std::unexpected(stmt.error());
        }
        for (const auto& identifier : identifiers) {
            Reset reset{*stmt};
            bindText(*stmt, 1, identifier);
            if (auto ran = run(*stmt); !ran) {
                return ran;
            }
        }
        return {};
    });
}

Result<>
NotificationQueue::removePendingNotificationRequests(std::span<const std::string> identifiers) {
    return removeRows("pending", identifiers);
}

// ---- Delivered notifications ---------------------------------------------------------------

Result<std::vector<NotificationQueue::Delivered>>
NotificationQueue::readDelivered(std::string_view where, std::int64_t argument) const {
    std::lock_guard lock(m_mutex);
    auto stmt = prepare("SELECT server_id, delivered_at, " + std::string(kRequestColumns) +
                        " FROM delivered " + std::string(where) + " ORDER BY identifier");
    if (!stmt) {
        return std::unexpected(stmt.error());
    }
    std::vector<Delivered> out;
    std::vector<std::string> userInfo;
    {
        Reset reset{*stmt};
        if (sqlite3_bind_parameter_count(*stmt) > 0) {
            sqlite3_bind_int64(*stmt, 1, argument);
        }
        int rc = 0;
        while ((rc = sqlite3_step(*stmt)) == SQLITE_ROW) {
            Delivered d;
            d.serverID = static_cast<std::uint32_t>(sqlite3_column_int64(*stmt, 0));
            d.notification.deliveredAt = Date{sqlite3_column_double(*stmt, 1)};
            d.notification.request = readRequest(*stmt, 2, userInfo.emplace_back());
            out.push_back(std::move(d));
        }
        if (rc != SQLITE_DONE) {
            return std::unexpected(error("cannot read the delivered notifications"));
        }
    }
    for (std::size_t i = 0; i < out.size(); ++i) {
        auto info = readUserInfo(userInfo[i]);
        if (!info) {
            return std::unexpected(info.error());
        }
        out[i].notification.request.content.userInfo = std::move(*info);
    }
    return out;
}

Result<std::vector<DeliveredNotification>> NotificationQueue::deliveredNotifications() const {
    auto delivered = readDelivered("", 0);
    if (!delivered) {
        return std::unexpected(delivered.error());
    }
    std::vector<DeliveredNotification> out;
    out.reserve(delivered->size());
    for (auto& d : *delivered) {
        out.push_back(std::move(d.notification));
    }
    return out;
}

Result<> NotificationQueue::forgetServerIDs() {
    return write([&]() -> Result<> {
        auto stmt = prepare("UPDATE delivered SET server_id = 0 WHERE server_id <> 0");
        if (!stmt) {
            return std::unexpected(stmt.error());
        }
        Reset reset{*stmt};
        return run(*stmt);
    });
}

Result<> NotificationQueue::removeDeliveredNotifications(std::span<const std::string> identifiers) {
    return removeRows("delivered", identifiers);
}

// ---- Badge ---------------------------------------------------------------------------------

Result<> NotificationQueue::setBadgeCount(int count) {
    if (count < 0) {
        return fail(Errc::invalidArgument, "a badge count cannot be negative");
    }
    return write([&]() -> Result<> {
        auto stmt = prepare("INSERT OR REPLACE INTO state VALUES ('badge', ?1)");
        if (!stmt) {
            return std::unexpected(stmt.error());
        }
        Reset reset{*stmt};
        sqlite3_bind_int(*stmt, 1, count);
        if (auto ran = run(*stmt); !ran) {
            return ran;
        }
        return {};
    });
}

Result<int> NotificationQueue::badgeCount() const {
    std::lock_guard lock(m_mutex);
    auto stmt = prepare("SELECT value FROM state WHERE key = 'badge'");
    if (!stmt) {
        return std::unexpected(stmt.error());
    }
    Reset reset{*stmt};
    int rc = sqlite3_step(*stmt);
    if (rc == SQLITE_ROW) {
        return sqlite3_column_int(*stmt, 0);
    }
    if (rc == SQLITE_DONE) {
        return 0;
    }
    return std::unexpected(error("cannot read the badge count"));
}

// ---- For the daemon --------------------------------------------------------------------------

Result<std::vector<NotificationQueue::Queued>> NotificationQueue::queued() const {
    return readPending("");
}

Result<std::vector<NotificationQueue::Queued>>
NotificationQueue::takeDue(Date now, const Calendar& calendar) {
    std::vector<Queued> due;
    auto done = write([&]() -> Result<> {
        auto pending = readPending("");
        if (!pending) {
            return std::unexpected(pending.error());
        }
        auto remove = prepare("DELETE FROM pending WHERE revision = ?1");
        if (!remove) {
            return std::unexpected(remove.error());
        }
        std::vector<std::pair<Date, Queued>> fire;
        for (auto& q : *pending) {
            auto at = triggerDate(q.request.trigger, calendar);
            if (at < startOfMinute(q.addedAt)) {
                Reset reset{*remove};
                sqlite3_bind_int64(*remove, 1, q.revision);
                if (auto ran = run(*remove); !ran) {
                    return ran;
                }
            } else if (at <= now) {
                fire.emplace_back(at, std::move(q));
            }
        }
        std::stable_sort(fire.begin(), fire.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& [at, q] : fire) {
            due.push_back(std::move(q));
        }
        return {};
    });
    if (!done) {
        return std::unexpected(done.error());
    }
    return due;
}

Result<std::optional<Date>> NotificationQueue::nextFireDate(Date now,
                                                            const Calendar& calendar) const {
    auto pending = readPending("");
    if (!pending) {
        return std::unexpected(pending.error());
    }
    std::optional<Date> next;
    for (const auto& q : *pending) {
        auto at = triggerDate(q.request.trigger, calendar);
        if (at > now && at >= startOfMinute(q.addedAt) && (!next || at < *next)) {
            next = at;
        }
    }
    return next;
}

Result<bool> NotificationQueue::recordDelivery(std::int64_t revision, std::uint32_t serverID,
                                               Date at) {
    static const std::string move = "INSERT OR REPLACE INTO delivered (server_id, delivered_at, " +
                                    std::string(kRequestColumns) + ") SELECT ?2, ?3, " +
                                    std::string(kRequestColumns) +
                                    " FROM pending WHERE revision = ?1";
    bool moved = false;
    auto done = write([&]() -> Result<> {
        auto insert = prepare(move);
        auto remove = prepare("DELETE FROM pending WHERE revision = ?1");
        if (!insert || !remove) {
            return std::unexpected(insert ? remove.error() : insert.error());
        }
        {
            Reset reset{*insert};
            sqlite3_bind_int64(*insert, 1, revision);
            sqlite3_bind_int64(*insert, 2, serverID);
            sqlite3_bind_double(*insert, 3, at.secondsSinceReference);
            if (auto ran = run(*insert); !ran) {
                return ran;
            }
        }
        moved = sqlite3_changes(m_db) > 0;
        Reset reset{*remove};
        sqlite3_bind_int64(*remove, 1, revision);
        if (auto ran = run(*remove); !ran) {
            return ran;
        }
        return {};
    });
    if (!done) {
        return std::unexpected(done.error());
    }
    return moved;
}

Result<std::optional<NotificationQueue::Delivered>>
NotificationQueue::delivered(const std::string& identifier) const {
    auto all = readDelivered("", 0);
    if (!all) {
        return std::unexpected(all.error());
    }
    for (auto& d : *all) {
        if (d.notification.request.identifier == identifier) {
            return std::optional<Delivered>(std::move(d));
        }
    }
    return std::optional<Delivered>();
}

Result<std::optional<NotificationQueue::Delivered>>
NotificationQueue::deliveredWithServerID(std::uint32_t serverID) const {
    auto found = readDelivered("WHERE server_id = ?1", serverID);
    if (!found) {
        return std::unexpected(found.error());
    }
    if (found->empty()) {
        return std::optional<Delivered>();
    }
    return std::optional<Delivered>(std::move(found->front()));
}

Result<std::int64_t> NotificationQueue::dataVersion() const {
    std::lock_guard lock(m_mutex);
    auto stmt = prepare("PRAGMA data_version");
    if (!stmt) {
        return std::unexpected(stmt.error());
    }
    Reset reset{*stmt};
    if (sqlite3_step(*stmt) != SQLITE_ROW) {
        return std::unexpected(error("cannot read the notification queue's version"));
    }
    return sqlite3_column_int64(*stmt, 0);
}

} // namespace tasket::platform
