#include "tasket/commands/sync_command.h"

#include "cloud/cloud_sync.h"
#include "platform/cloud/postgres_cloud_module.h"
#include "platform/date_text.h"
#include "platform/json_writer.h"
#include "rules/cloud_enumerations.h"
#include "settings/customization_manager.h"
#include "settings/settings_keys.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tasket::apps {
namespace {

namespace keys = settings::keys;
using platform::CloudErrorCode;

constexpr std::string_view kNotConfigured =
    "Cloud sync is not configured: run \"tasket sync setup --connection CONNECTION\" with a "
    "libpq connection string or service name (for example \"service=tasket\"); the password "
    "goes in ~/.pgpass or the service file, never in the connection.";

platform::Error unreachable(const std::string& connection, const platform::CloudError& error) {
    if (error.code == CloudErrorCode::notAuthenticated)
        return {platform::Errc::permissionDenied,
                fmt::format("The cloud database ({}) refused the login: {}", connection,
                            error.message)};
    if (error.code == CloudErrorCode::badContainer)
        return {platform::Errc::unavailable,
                fmt::format("The cloud database ({}) is not set up: run \"tasket sync setup\" "
                            "({})",
                            connection, error.message)};
    return {platform::Errc::unavailable,
            fmt::format("Cannot reach the cloud database ({}): {}", connection, error.message)};
}

// "Succeeded, 2026-11-23T03:20:00+01:00", or "Never Synced".
std::string lastPass(const platform::PreferencesSuite& suite, std::string_view statusKey,
                     std::string_view dateKey) {
    const auto stored = suite.integerValue(statusKey).value_or(0);
    const auto status = rules::fromStored<rules::TK_CloudSyncStatus>(stored).value_or(
        rules::TK_CloudSyncStatus::none);
    std::string text(rules::displayTitle(status));
    if (const auto date = suite.dateValue(dateKey))
        text += ", " + platform::isoDateTime(*date, platform::Calendar::current());
    return text;
}

platform::Error syncFailure(const platform::CloudError& error) {
    if (error.code == CloudErrorCode::notAuthenticated)
        return {platform::Errc::permissionDenied,
                fmt::format("The cloud refused the account: {}", error.message)};
    if (const auto delay = cloud::retryDelay(error))
        return {platform::Errc::unavailable,
                fmt::format("Sync stopped ({}); nothing is lost, try again in {:g} s: {}",
                            platform::cloudErrorName(error.code), *delay, error.message)};
    return {
        platform::Errc::unavailable,
        fmt::format("Sync failed ({}): {}", platform::cloudErrorName(error.code), error.message)};
}

// While a long pass runs, a terminal sees how long it has been going; the
// line is wiped when the pass ends.
class ElapsedLine {
  public:
    ElapsedLine(std::ostream& out, bool isTerminal) : m_out(out) {
        if (isTerminal)
            m_thread = std::thread([this] { show(); });
    }
    ~ElapsedLine() {
        {
            const std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_wake.notify_all();
        if (m_thread.joinable())
            m_thread.join();
    }

  private:
    void show() {
        const auto start = std::chrono::steady_clock::now();
        std::unique_lock lock(m_mutex);
        bool shown = false;
        // Short passes finish before anything is drawn.
        while (!m_wake.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_done; })) {
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
                std::chrono::steady_clock::now() - start);
            m_out << fmt::format("\rSyncing with the cloud database… {} s", seconds.count())
                  << std::flush;
            shown = true;
        }
        if (shown)
            m_out << "\r\033[K" << std::flush;
    }

    std::ostream& m_out;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;
    std::thread m_thread;
};

void warnNotSynced(std::ostream& err, std::string message) {
    std::ranges::replace(message, '\n', ' ');
    err << fmt::format("tasket: warning: not synced: {}\n", message);
}

} // namespace

void syncBeforeCommand(std::ostream& err) {
    const auto settings = openSettings();
    auto suite = settings->appGroupSuite();
    const std::string connection = suite->stringValue(keys::kCloudDatabaseConnection).value_or("");
    if (connection.empty() || !suite->boolValue(keys::kIsCloudSyncEnabled).value_or(false))
        return;
    auto container = platform::openPostgresCloudContainer(
        {.connection = connection, .connectTimeout = std::chrono::seconds(5)});
    if (!container)
        return warnNotSynced(err, unreachable(connection, container.error()).message);
    auto store = openStoreForOneCommand();
    const auto groupContainer = store->storeURL().parent_path();
    auto manager = std::make_shared<cloud::CloudDataManager>(std::move(*container), suite);
    cloud::CloudSync sync(std::move(store), manager, groupContainer, {.program = "tasket"});
    if (auto report = sync.syncNow(); !report)
        warnNotSynced(err, syncFailure(report.error()).message);
}

const CommandInfo& SyncCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "sync",
        .usage = "tasket sync status|setup|now [--connection CONNECTION] [--json]",
        .summary = "Set up the cloud database, sync with it, or show how syncing goes",
        .help = "The cloud database is a PostgreSQL database shared by your devices and by\n"
                "the people you share lists with; your account is the database role you\n"
                "log in as. setup records --connection (a libpq connection string such as\n"
                "\"host=db.example.org dbname=tasket\", or \"service=tasket\" for an entry of\n"
                "~/.pg_service.conf), prepares the server and switches syncing on. The\n"
                "password never goes into the connection: libpq reads it from ~/.pgpass.\n"
                "status shows the connection, the account, whether the server is set up\n"
                "and how the last fetch and upload went; with --json: {\"connection\",\n"
                "\"account\", \"isServerSetUp\", \"lastFetch\", \"lastUpload\", \"error\"}.\n"
                "now fetches what changed elsewhere and uploads what waits for upload; on\n"
                "a terminal a long pass shows how long it has run. It prints what it did;\n"
                "with --json: {\"applied\", \"deletedLocally\", \"uploaded\", \"deletedInCloud\"}.",
        .showsStoredData = false,
    };
    return kInfo;
}

void SyncCommand::addOptions(CLI::App& command) {
    command.add_option("action", m_action, "status, setup or now")
        ->required()
        ->check(CLI::IsMember({"status", "setup", "now"}));
    command.add_option("--connection", m_connection,
                       "setup: a libpq connection string or service name");
}

platform::Result<void> SyncCommand::run(CommandContext& context) {
    if (!m_connection.empty() && m_action != "setup")
        return platform::fail(platform::Errc::invalidArgument,
                              fmt::format("sync {} takes no --connection", m_action));
    const auto settings = openSettings();
    auto& suite = *settings->appGroupSuite();
    if (!m_connection.empty()) {
        if (auto checked = platform::checkPostgresConnection(m_connection); !checked)
            return platform::fail(
                checked.error().code == platform::CloudErrorCode::internalError
                    ? platform::Errc::unavailable // the module could not be loaded
                    : platform::Errc::invalidArgument,
                fmt::format("--connection: {}", checked.error().message));
        if (auto stored = suite.setValue(keys::kCloudDatabaseConnection, m_connection); !stored)
            return stored;
    }
    const std::string connection = suite.stringValue(keys::kCloudDatabaseConnection).value_or("");

    if (m_action == "status")
        return status(context, suite, connection);
    if (connection.empty())
        return platform::fail(platform::Errc::unavailable, std::string(kNotConfigured));
    auto container = platform::openPostgresCloudContainer({.connection = connection});
    if (!container)
        return std::unexpected(unreachable(connection, container.error()));
    if (m_action == "setup") {
        if (auto ready = (*container)->setUpServer(); !ready)
            return std::unexpected(unreachable(connection, ready.error()));
        if (auto on = suite.setValue(keys::kIsCloudSyncEnabled, true); !on)
            return on;
        context.out << fmt::format("The cloud database is ready ({}, account {}); sync is on.\n",
                                   connection, (*container)->currentUser().value_or("?"));
        return {};
    }
    if (!suite.boolValue(keys::kIsCloudSyncEnabled).value_or(false))
        return platform::fail(platform::Errc::unavailable,
                              "Cloud sync is off: run \"tasket sync setup\" to switch it on.");
    return syncNow(context, std::move(*container), settings->appGroupSuite());
}

platform::Result<void>
SyncCommand::syncNow(CommandContext& context,
                     std::shared_ptr<platform::ServerCloudContainer> container,
                     std::shared_ptr<platform::PreferencesSuite> suite) {
    auto store = openStoreForOneCommand();
    const auto groupContainer = store->storeURL().parent_path();
    auto manager =
        std::make_shared<cloud::CloudDataManager>(std::move(container), std::move(suite));
    cloud::CloudSync sync(std::move(store), manager, groupContainer, {.program = "tasket"});
    platform::CloudResult<cloud::SyncReport> report;
    {
        const ElapsedLine progress(context.out, context.isTerminal && !context.json);
        report = sync.syncNow();
    }
    if (!report)
        return std::unexpected(syncFailure(report.error()));
    if (context.json) {
        context.out << platform::JsonWriter()
                           .beginObject()
                           .key("applied")
                           .integer(static_cast<std::int64_t>(report->applied))
                           .key("deletedLocally")
                           .integer(static_cast<std::int64_t>(report->deletedLocally))
                           .key("uploaded")
                           .integer(static_cast<std::int64_t>(report->uploaded))
                           .key("deletedInCloud")
                           .integer(static_cast<std::int64_t>(report->deletedInCloud))
                           .endObject()
                           .finish()
                           .value();
        return {};
    }
    context.out << fmt::format("Synced: {} changes from the cloud ({} deletions), {} uploaded "
                               "({} deletions).\n",
                               report->applied + report->deletedLocally, report->deletedLocally,
                               report->uploaded + report->deletedInCloud, report->deletedInCloud);
    return {};
}

platform::Result<void> SyncCommand::status(CommandContext& context,
                                           const platform::PreferencesSuite& suite,
                                           const std::string& connection) {
    const std::string lastFetch =
        lastPass(suite, keys::kCloudFetchStatus, keys::kLastCloudFetchDate);
    const std::string lastUpload =
        lastPass(suite, keys::kCloudUploadStatus, keys::kLastCloudUploadDate);
    std::optional<std::string> account;
    std::optional<bool> isSetUp;
    std::string problem;
    if (connection.empty()) {
        problem = kNotConfigured;
    } else if (auto container = platform::openPostgresCloudContainer({.connection = connection});
               !container) {
        problem = unreachable(connection, container.error()).message;
    } else {
        account = (*container)->currentUser().value_or("");
        if (auto ready = (*container)->isServerSetUp())
            isSetUp = *ready;
        else
            problem = unreachable(connection, ready.error()).message;
    }
    if (context.json) {
        platform::JsonWriter json;
        json.beginObject().key("connection");
        connection.empty() ? json.null() : json.string(connection);
        json.key("account");
        account ? json.string(*account) : json.null();
        json.key("isServerSetUp");
        isSetUp ? json.boolean(*isSetUp) : json.null();
        json.key("lastFetch").string(lastFetch).key("lastUpload").string(lastUpload).key("error");
        problem.empty() ? json.null() : json.string(problem);
        context.out << json.endObject().finish().value();
        return {};
    }
    context.out << fmt::format("connection: {}\n", connection.empty() ? "none" : connection);
    if (account)
        context.out << fmt::format("account: {}\nserver: {}\n", *account,
                                   *isSetUp ? "set up" : "not set up (run \"tasket sync setup\")");
    context.out << fmt::format("last fetch: {}\nlast upload: {}\n", lastFetch, lastUpload);
    if (!problem.empty())
        context.out << problem << "\n";
    return {};
}

} // namespace tasket::apps
