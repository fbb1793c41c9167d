#include "platform/cloud/postgres_connection.h"

#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <utility>

namespace tasket::platform {
namespace {

using enum CloudErrorCode;

struct StateCode {
    std::string_view state; // a whole SQLSTATE, or a two-character class
    CloudErrorCode code;
};

// Whole states first; a class applies when no state of it is listed.
constexpr std::array kStateCodes{
    StateCode{"57P03", serviceUnavailable}, // the server is starting or stopping
    StateCode{"53300", serviceUnavailable}, // too many connections
    StateCode{"53200", serviceUnavailable}, // out of memory
    StateCode{"57014", serviceUnavailable}, // statement timeout
    StateCode{"55P03", zoneBusy},           // lock not available
    StateCode{"40001", zoneBusy},           // serialization failure
    StateCode{"40P01", zoneBusy},           // deadlock
    StateCode{"28P01", notAuthenticated},   // wrong password
    StateCode{"28000", notAuthenticated},   // no such role, no hba entry
    StateCode{"57P01", networkFailure},     // administrator ended the session
    StateCode{"57P02", networkFailure},     // crash shutdown
    StateCode{"42501", permissionFailure},  // privileges, row-level security
    StateCode{"23505", serverRecordChanged},
    StateCode{"23503", zoneNotFound},
    StateCode{"3D000", badContainer},  // no such database
    StateCode{"3F000", badContainer},  // no such schema: not set up
    StateCode{"42P01", badContainer},  // no such table: not set up
    StateCode{"42883", badContainer},  // no such function: not set up
    StateCode{"53100", quotaExceeded}, // disk full
    StateCode{"08", networkFailure},
    StateCode{"22", invalidArguments},
    StateCode{"23", invalidArguments},
    StateCode{"53", limitExceeded},
    StateCode{"54", limitExceeded},
    StateCode{"XX", internalError},
};

// libpq's verbose form puts the SQLSTATE after the severity: "FATAL:  28P01: …".
std::string sqlStateInMessage(std::string_view message) {
    for (auto at = message.find(":  "); at != std::string_view::npos;
         at = message.find(":  ", at + 1)) {
        const auto state = message.substr(at + 3, 6);
        if (state.size() == 6 && state[5] == ':' &&
            std::all_of(state.begin(), state.begin() + 5, [](char c) {
                return std::isdigit(static_cast<unsigned char>(c)) ||
                       std::isupper(static_cast<unsigned char>(c));
            }))
            return std::string(state.substr(0, 5));
    }
    return {};
}

std::string trimmed(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    return text;
}

} // namespace

CloudErrorCode postgresErrorCode(std::string_view sqlState) {
    for (const auto& entry : kStateCodes)
        if (entry.state.size() == 5 && entry.state == sqlState)
            return entry.code;
    for (const auto& entry : kStateCodes)
        if (entry.state.size() == 2 && sqlState.starts_with(entry.state))
            return entry.code;
    return serverRejectedRequest;
}

PostgresRows::PostgresRows(pg_result* result) : m_result(result, PQclear) {}

int PostgresRows::count() const {
    return PQntuples(m_result.get());
}

bool PostgresRows::isNull(int row, int column) const {
    return PQgetisnull(m_result.get(), row, column) != 0;
}

std::string_view PostgresRows::text(int row, int column) const {
    return {PQgetvalue(m_result.get(), row, column),
            static_cast<std::size_t>(PQgetlength(m_result.get(), row, column))};
}

long PostgresRows::affected() const {
    const char* text = PQcmdTuples(m_result.get());
    return text && *text ? std::stol(text) : 0;
}

std::expected<PostgresConnection, PostgresError>
PostgresConnection::open(const std::string& connection, std::chrono::milliseconds timeout) {
    pg_conn* raw = PQconnectStart(connection.c_str());
    if (!raw)
        return std::unexpected(PostgresError{internalError, {}, "libpq is out of memory"});
    PostgresConnection result(raw);
    // Verbose messages carry the SQLSTATE of a refused login, which libpq
    // keeps no other way.
    PQsetErrorVerbosity(raw, PQERRORS_VERBOSE);
    auto status = PQstatus(raw) == CONNECTION_BAD ? PGRES_POLLING_FAILED : PGRES_POLLING_WRITING;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (status != PGRES_POLLING_OK && status != PGRES_POLLING_FAILED) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return std::unexpected(
                PostgresError{networkUnavailable, {}, "the cloud database did not answer in time"});
        pollfd wait{PQsocket(raw),
                    static_cast<short>(status == PGRES_POLLING_READING ? POLLIN : POLLOUT), 0};
        if (::poll(&wait, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        status = PQconnectPoll(raw);
    }
    if (status == PGRES_POLLING_OK) {
        PQsetErrorVerbosity(raw, PQERRORS_DEFAULT);
        return result;
    }
    std::string message = trimmed(PQerrorMessage(raw));
    std::string state = sqlStateInMessage(message);
    CloudErrorCode code = networkUnavailable;
    if (!state.empty())
        code = postgresErrorCode(state);
    else if (PQconnectionNeedsPassword(raw))
        code = notAuthenticated;
    return std::unexpected(PostgresError{code, std::move(state), std::move(message)});
}

std::expected<void, PostgresError> PostgresConnection::check(const std::string& connection) {
    char* message = nullptr;
    PQconninfoOption* options = PQconninfoParse(connection.c_str(), &message);
    if (!options) {
        PostgresError error{
            invalidArguments, {}, trimmed(message ? message : "libpq is out of memory")};
        PQfreemem(message);
        return std::unexpected(std::move(error));
    }
    bool holdsPassword = false;
    for (const PQconninfoOption* option = options; option->keyword; ++option)
        holdsPassword |= std::string_view(option->keyword) == "password" && option->val;
    PQconninfoFree(options);
    if (holdsPassword)
        return std::unexpected(PostgresError{
            invalidArguments,
            {},
            "the connection holds a password; put it in libpq's password file (~/.pgpass) "
            "or service file instead"});
    return {};
}

PostgresConnection::PostgresConnection(PostgresConnection&& other) noexcept
    : m_connection(std::exchange(other.m_connection, nullptr)) {}

PostgresConnection& PostgresConnection::operator=(PostgresConnection&& other) noexcept {
    if (this != &other) {
        if (m_connection)
            PQfinish(m_connection);
        m_connection = std::exchange(other.m_connection, nullptr);
    }
    return *this;
}

PostgresConnection::~PostgresConnection() {
    if (m_connection)
        PQfinish(m_connection);
}

PostgresError PostgresConnection::failure(pg_result* result) const {
    const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    std::string message =
        trimmed(result && *PQresultErrorMessage(result) ? PQresultErrorMessage(result)
                                                        : PQerrorMessage(m_connection));
    PostgresError error{internalError, state ? state : "", std::move(message)};
    // A session that broke is a lost connection, whatever the last words were.
    if (PQstatus(m_connection) == CONNECTION_BAD)
        error.code = networkFailure;
    else
        error.code = error.sqlState.empty() ? networkFailure : postgresErrorCode(error.sqlState);
    return error;
}

std::expected<PostgresRows, PostgresError>
PostgresConnection::execute(std::string_view sql, const std::vector<Parameter>& parameters) {
    std::vector<const char*> values;
    values.reserve(parameters.size());
    for (const auto& parameter : parameters)
        values.push_back(parameter ? parameter->c_str() : nullptr);
    const std::string text(sql);
    // Without parameters several statements may run in one call.
    pg_result* result = parameters.empty() ? PQexec(m_connection, text.c_str())
                                           : PQexecParams(m_connection, text.c_str(),
                                                          static_cast<int>(values.size()), nullptr,
                                                          values.data(), nullptr, nullptr, 0);
    const auto status = PQresultStatus(result);
    if (result && (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK))
        return PostgresRows(result);
    auto error = failure(result);
    PQclear(result);
    return std::unexpected(std::move(error));
}

std::expected<void, PostgresError> PostgresConnection::copyIn(std::string_view copyStatement,
                                                              std::string_view rows) {
    const std::string text(copyStatement);
    pg_result* started = PQexec(m_connection, text.c_str());
    if (PQresultStatus(started) != PGRES_COPY_IN) {
        auto error = failure(started);
        PQclear(started);
        return std::unexpected(std::move(error));
    }
    PQclear(started);
    if (PQputCopyData(m_connection, rows.data(), static_cast<int>(rows.size())) != 1 ||
        PQputCopyEnd(m_connection, nullptr) != 1)
        return std::unexpected(failure(nullptr));
    std::optional<PostgresError> error;
    while (pg_result* result = PQgetResult(m_connection)) {
        if (PQresultStatus(result) != PGRES_COMMAND_OK && !error)
            error = failure(result);
        PQclear(result);
    }
    if (error)
        return std::unexpected(std::move(*error));
    return {};
}

bool PostgresConnection::healthy() const {
    return m_connection && PQstatus(m_connection) == CONNECTION_OK;
}

int PostgresConnection::socket() const {
    return m_connection ? PQsocket(m_connection) : -1;
}

std::expected<std::vector<PostgresNotification>, PostgresError>
PostgresConnection::takeNotifications() {
    if (PQconsumeInput(m_connection) != 1)
        return std::unexpected(failure(nullptr));
    std::vector<PostgresNotification> notifications;
    while (PGnotify* notification = PQnotifies(m_connection)) {
        notifications.push_back({notification->relname, notification->extra});
        PQfreemem(notification);
    }
    return notifications;
}

std::string PostgresConnection::quoteIdentifier(std::string_view text) const {
    char* quoted = PQescapeIdentifier(m_connection, text.data(), text.size());
    std::string result = quoted ? quoted : "";
    PQfreemem(quoted);
    return result;
}

} // namespace tasket::platform
