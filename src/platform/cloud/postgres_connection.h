// One libpq connection to the cloud database, with every failure turned into
// a cloud error code (see postgresErrorCode): the cloud adapter, the
// `tasket sync` command and the tests use it. Credentials come from libpq's
// own password and service files; a connection string never holds one.
// <libpq-fe.h> stays out of this header.
#pragma once

#include "platform/cloud/cloud_database.h"

#include <chrono>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct pg_conn;
struct pg_result;

namespace tasket::platform {

/// A failure of the database, already given its cloud error code.
struct PostgresError {
    CloudErrorCode code = CloudErrorCode::internalError;
    std::string sqlState; // the server's SQLSTATE; empty when there was none
    std::string message;  // what failed and why, from the server or libpq
};

/// The cloud error code for a server error `sqlState` ("40001"): refused or
/// busy service 6, contention 23, authentication 9, a broken session 4,
/// privileges 10, a name taken 14, a missing zone 26, bad values 12, an
/// unset-up database 5, resources 25/27, anything else 15 (1 for XX000).
[[nodiscard]] CloudErrorCode postgresErrorCode(std::string_view sqlState);

/// The rows of one statement, read as text.
class PostgresRows {
  public:
    explicit PostgresRows(pg_result* result);
    int count() const;
    bool isNull(int row, int column) const;
    std::string_view text(int row, int column) const;
    /// The number of rows a command touched (UPDATE, DELETE).
    long affected() const;

  private:
    std::shared_ptr<pg_result> m_result;
};

/// One NOTIFY that arrived on a channel this connection listens on.
struct PostgresNotification {
    std::string channel;
    std::string payload;
};

class PostgresConnection {
  public:
    using Parameter = std::optional<std::string>; // nullopt: SQL NULL

    /// Connects with a libpq connection string or "service=name". A server
    /// that cannot be reached fails with 3; a refused login with 9 (also when
    /// no password is to be found); the server's own refusals by SQLSTATE.
    [[nodiscard]] static std::expected<PostgresConnection, PostgresError>
    open(const std::string& connection,
         std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /// Fails with 12 when `connection` is not a connection string libpq
    /// accepts or when it holds a password (those belong in libpq's files).
    [[nodiscard]] static std::expected<void, PostgresError> check(const std::string& connection);

    PostgresConnection(PostgresConnection&&) noexcept;
    PostgresConnection& operator=(PostgresConnection&&) noexcept;
    ~PostgresConnection();

    /// Runs one statement with text parameters ($1, $2, …), or, without
    /// parameters, any number of statements. A connection that broke fails
    /// with 4.
    [[nodiscard]] std::expected<PostgresRows, PostgresError>
    execute(std::string_view sql, const std::vector<Parameter>& parameters = {});

    /// Sends rows in COPY text form to a "COPY … FROM STDIN" statement.
    [[nodiscard]] std::expected<void, PostgresError> copyIn(std::string_view copyStatement,
                                                            std::string_view rows);

    /// False once the connection broke.
    bool healthy() const;
    /// The socket to poll for readability while listening; -1 when closed.
    int socket() const;
    /// Reads what the server sent and returns the notifications that came.
    [[nodiscard]] std::expected<std::vector<PostgresNotification>, PostgresError>
    takeNotifications();

    /// Quotes `text` as an SQL identifier (for LISTEN channel names).
    std::string quoteIdentifier(std::string_view text) const;

  private:
    explicit PostgresConnection(pg_conn* connection) : m_connection(connection) {}
    PostgresError failure(pg_result* result) const;

    pg_conn* m_connection = nullptr;
};

} // namespace tasket::platform
