// The PostgreSQL adapter of the cloud database is built as a module that a
// program loads the first time it connects (see platform/module_loader.h):
// libpq brings Kerberos, LDAP, GnuTLS and some twenty other shared objects,
// whose start-up alone cost every command a third of its own.
#pragma once

#include "platform/cloud/cloud_database.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tasket::platform {

/// A cloud container on a database server: the port, and what the programs
/// ask of the server beyond it.
class ServerCloudContainer : public CloudContainer {
  public:
    /// Creates the server's schema when it is missing (safe to repeat, by any
    /// role once it exists; the first run needs the right to create a schema).
    [[nodiscard]] virtual CloudResult<> setUpServer() = 0;
    /// Whether the server's schema exists.
    [[nodiscard]] virtual CloudResult<bool> isServerSetUp() = 0;
    /// The descriptor to poll for readability while waiting for pushes; it
    /// changes after a reconnection, so ask again after each request.
    [[nodiscard]] virtual int pushSocket() const = 0;
    /// The pushes that arrived, without waiting (call after the descriptor
    /// became readable, and after other requests, which may read them too).
    [[nodiscard]] virtual CloudResult<std::vector<CloudPush>> takePushes() = 0;
};

struct PostgresCloudOptions {
    /// A libpq connection string or "service=name"; never a password.
    std::string connection;
    /// Our own limit on requests per second (0: none). A request over it
    /// fails with requestRateLimited and the seconds until one is free.
    double maxRequestsPerSecond = 0;
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(10);
};

/// Connects to the cloud database and listens for the account's pushes.
/// Fails with the cloud code of the connection failure (3 unreachable, 9
/// refused login, …), or with 15 when the module cannot be loaded.
[[nodiscard]] CloudResult<std::unique_ptr<ServerCloudContainer>>
openPostgresCloudContainer(PostgresCloudOptions options);

/// Fails with 12 when `connection` is not a connection string libpq accepts
/// or when it holds a password (those belong in libpq's files).
[[nodiscard]] CloudResult<> checkPostgresConnection(const std::string& connection);

/// What the module hands over through its one exported function,
/// kPostgresCloudModuleEntry. The version comes first, where the loader
/// reads it.
struct PostgresCloudFactories {
    static constexpr int kVersion = 1;
    int version = kVersion;
    CloudResult<std::unique_ptr<ServerCloudContainer>> (*open)(PostgresCloudOptions options) =
        nullptr;
    CloudResult<> (*check)(const std::string& connection) = nullptr;
};

inline constexpr const char* kPostgresCloudModuleEntry = "tasket_postgres_cloud_factories";

} // namespace tasket::platform
