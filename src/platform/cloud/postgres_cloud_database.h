// The PostgreSQL adapter of the cloud database port: the account is the role
// the connection logs in as, its private database the zones it owns, its
// shared database the zones other roles share with it (row-level security
// on the server decides what a role sees; see cloud_schema.sql). A record's
// fields travel as jsonb; a save compares and sets the change tag; a batch of
// saves and deletions is one transaction. Pushes are NOTIFY on the account's
// channels, heard on the same connection: pushSocket() is the descriptor a
// daemon adds to its poll loop, takePushes() reads what came.
// <libpq-fe.h> stays out of this header.
#pragma once

#include "platform/cloud/postgres_cloud_module.h"
#include "platform/cloud/postgres_connection.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace tasket::platform {

class PostgresCloudContainer final : public ServerCloudContainer {
  public:
    using Options = PostgresCloudOptions;

    /// Connects and listens for the account's pushes. Fails with the cloud
    /// code of the connection failure (3 unreachable, 9 refused login, …).
    [[nodiscard]] static CloudResult<std::unique_ptr<PostgresCloudContainer>> open(Options options);
    ~PostgresCloudContainer() override;

    [[nodiscard]] CloudResult<> setUpServer() override;
    [[nodiscard]] CloudResult<bool> isServerSetUp() override;

    [[nodiscard]] CloudResult<CloudAccountStatus> accountStatus() override;
    [[nodiscard]] CloudResult<std::string> currentUser() override;
    [[nodiscard]] CloudDatabase& privateDatabase() override;
    [[nodiscard]] CloudDatabase& sharedDatabase() override;
    [[nodiscard]] CloudResult<> saveShare(const CloudShare& share) override;
    [[nodiscard]] CloudResult<> removeShare(const CloudShare& share) override;
    [[nodiscard]] CloudResult<std::vector<CloudShare>> fetchShares() override;
    [[nodiscard]] CloudResult<std::vector<CloudPush>> waitForPushes(double timeoutSeconds) override;

    [[nodiscard]] int pushSocket() const override;
    [[nodiscard]] CloudResult<std::vector<CloudPush>> takePushes() override;

  private:
    class Database;
    struct RateLimit;
    explicit PostgresCloudContainer(Options options);

    /// Reconnects when the connection broke, then applies the rate limit.
    [[nodiscard]] CloudResult<> begin();
    [[nodiscard]] CloudResult<> listen();
    [[nodiscard]] CloudResult<PostgresRows>
    run(std::string_view sql, const std::vector<PostgresConnection::Parameter>& parameters = {});
    /// Runs `body` in one transaction, rolled back when it fails.
    template <class F> auto transaction(F&& body) -> decltype(body());

    Options m_options;
    std::optional<PostgresConnection> m_connection;
    std::string m_user;
    bool m_listening = false;
    std::string m_sharedChannel; // the other channel is the private one
    std::unique_ptr<RateLimit> m_rateLimit;
    std::unique_ptr<Database> m_private;
    std::unique_ptr<Database> m_shared;
};

/// The cloud error for a database failure (keeping the message).
[[nodiscard]] CloudError cloudErrorFrom(const PostgresError& error);

} // namespace tasket::platform
