#include "tasket/commands/sync_command.h"

#include "platform/cloud/postgres_cloud_database.h"
#include "platform/json_writer.h"
#include "settings/customization_manager.h"
#include "settings/settings_keys.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

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

} // namespace

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
                "status shows the connection, the account and whether the server is set up;\n"
                "with --json: {\"connection\", \"account\", \"isServerSetUp\", \"error\"}.\n"
                "now uploads what waits for upload and fetches what changed elsewhere.",
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
        if (auto checked = platform::PostgresConnection::check(m_connection); !checked)
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("--connection: {}", checked.error().message));
        if (auto stored = suite.setValue(keys::kCloudDatabaseConnection, m_connection); !stored)
            return stored;
    }
    const std::string connection = suite.stringValue(keys::kCloudDatabaseConnection).value_or("");

    if (m_action == "status")
        return status(context, connection);
    if (connection.empty())
        return platform::fail(platform::Errc::unavailable, std::string(kNotConfigured));
    auto container = platform::PostgresCloudContainer::open({.connection = connection});
    if (!container)
        return std::unexpected(unreachable(connection, container.error()));
    if (m_action == "setup") {
        if (auto ready = (*container)->setUpServer(); !ready)
            return std::unexpected(unreachable(connection, ready.error()));
        context.out << fmt::format("The cloud database is ready ({}, account {}).\n", connection,
                                   (*container)->currentUser().value_or("?"));
        return {};
    }
    return platform::fail(platform::Errc::unavailable, "sync now is not available yet");
}

platform::Result<void> SyncCommand::status(CommandContext& context, const std::string& connection) {
    std::optional<std::string> account;
    std::optional<bool> isSetUp;
    std::string problem;
    if (connection.empty()) {
        problem = kNotConfigured;
    } else if (auto container = platform::PostgresCloudContainer::open({.connection = connection});
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
        json.key("error");
        problem.empty() ? json.null() : json.string(problem);
        context.out << json.endObject().finish().value();
        return {};
    }
    context.out << fmt::format("connection: {}\n", connection.empty() ? "none" : connection);
    if (account)
        context.out << fmt::format("account: {}\nserver: {}\n", *account,
                                   *isSetUp ? "set up" : "not set up (run \"tasket sync setup\")");
    if (!problem.empty())
        context.out << problem << "\n";
    return {};
}

} // namespace tasket::apps
