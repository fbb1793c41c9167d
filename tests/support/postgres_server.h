// A real PostgreSQL 15 server for one test suite: a cluster made by initdb in
// a temporary folder, reached only through a Unix socket in that folder, with
// the database "tasket" and two login roles, "alice" (the database's owner)
// and "bob", who authenticate with passwords from a libpq password file.
// The server stops and the folder goes when the object is destroyed; should
// the test process die first, the server gets SIGINT (a fast shutdown).
// The server refuses to run as root, so as root it runs as "nobody".
#pragma once

#include "support/temp_dir.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tasket::testing {

class PostgresServer {
  public:
    /// Makes the cluster and starts it; throws std::runtime_error (with the
    /// server's log) when either fails.
    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;

    /// A libpq connection string for `role` ("alice" or "bob"): socket
    /// folder, database and password file, never a password.
    std::string connectionFor(const std::string& role) const;
    /// The superuser's connection (trusted, no password).
    std::string adminConnection() const;
    /// Runs statements as the superuser; throws with the server's message.
    void admin(const std::string& sql) const;

    /// Writes `password` into the password file for `role`, so the next
    /// connection of that role uses it.
    void setPasswordFileEntry(const std::string& role, const std::string& password);

    void start();
    /// A fast shutdown: sessions are ended, new connections are refused.
    void stop();
    bool running() const { return m_pid > 0; }

    const std::filesystem::path& socketFolder() const { return m_folder.path(); }
    const std::filesystem::path& passwordFile() const { return m_passwordFile; }

  private:
    void writePasswordFile() const;

    TempDir m_folder;
    std::filesystem::path m_data;
    std::filesystem::path m_passwordFile;
    std::string m_alicePassword = "alice-secret";
    std::string m_bobPassword = "bob-secret";
    std::vector<std::string> m_privileges; // setpriv's, for initdb and the server
    pid_t m_pid = -1;
};

} // namespace tasket::testing
