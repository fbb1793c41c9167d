#include "support/postgres_server.h"

#include "support/program_run.h"

#include <libpq-fe.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <stdexcept>

namespace tasket::testing {
namespace {

const std::filesystem::path kBinaries = "/usr/lib/postgresql/15/bin";

} // namespace

PostgresServer::PostgresServer()
    : m_data(m_folder / "data"), m_passwordFile(m_folder / "pgpass"),
      m_privileges(serverPrivileges("INT", {m_folder.path()})) {
    auto initdb = m_privileges;
    initdb.insert(initdb.end(),
                  {(kBinaries / "initdb").string(), "-D", m_data.string(), "-U", "postgres", "-A",
                   "trust", "-E", "UTF8", "--no-locale", "--no-sync"});
    const ProgramRun made = runProgram("/usr/bin/setpriv", initdb, {.home = m_folder.path()});
    if (made.status != 0)
        throw std::runtime_error("initdb failed:\n" + made.out + made.err);
    // The superuser is trusted; the two accounts give passwords.
    std::ofstream(m_data / "pg_hba.conf") << "local all postgres trust\n"
                                             "local all all scram-sha-256\n";
    start();
    admin("CREATE ROLE alice LOGIN PASSWORD '" + m_alicePassword + "'");
    admin("CREATE ROLE bob LOGIN PASSWORD '" + m_bobPassword + "'");
    admin("CREATE DATABASE tasket OWNER alice");
    writePasswordFile();
}

PostgresServer::~PostgresServer() {
    stop();
}

void PostgresServer::start() {
    if (running())
        return;
    std::filesystem::remove(m_data / "postmaster.pid");
    const auto log = m_folder / "server.log";
    auto arguments = m_privileges;
    arguments.insert(arguments.end(),
                     {(kBinaries / "postgres").string(), "-D", m_data.string(), "-k",
                      m_folder.path().string(), "-c", "listen_addresses=", "-c", "fsync=off", "-c",
                      "full_page_writes=off", "-c", "synchronous_commit=off"});
    m_pid =
        startProgram("/usr/bin/setpriv", arguments, {.home = m_folder.path(), .outputFile = log});
    waitUntilReady(
        m_pid, std::chrono::seconds(60),
        [this] { return PQping(adminConnection().c_str()) == PQPING_OK; },
        [&] { return "PostgreSQL, whose log says:\n" + readFile(log); }, SIGINT);
}

void PostgresServer::stop() {
    if (!running())
        return;
    ::kill(m_pid, SIGINT);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

std::string PostgresServer::connectionFor(const std::string& role) const {
    return "host=" + m_folder.path().string() + " dbname=tasket user=" + role +
           " passfile=" + m_passwordFile.string();
}

std::string PostgresServer::adminConnection() const {
    return "host=" + m_folder.path().string() + " dbname=postgres user=postgres";
}

void PostgresServer::admin(const std::string& sql) const {
    PGconn* connection = PQconnectdb(adminConnection().c_str());
    std::string failure;
    if (PQstatus(connection) != CONNECTION_OK) {
        failure = PQerrorMessage(connection);
    } else {
        PGresult* result = PQexec(connection, sql.c_str());
        if (PQresultStatus(result) != PGRES_COMMAND_OK && PQresultStatus(result) != PGRES_TUPLES_OK)
            failure = PQresultErrorMessage(result);
        PQclear(result);
    }
    PQfinish(connection);
    if (!failure.empty())
        throw std::runtime_error(sql + ": " + failure);
}

void PostgresServer::setPasswordFileEntry(const std::string& role, const std::string& password) {
    (role == "alice" ? m_alicePassword : m_bobPassword) = password;
    writePasswordFile();
}

void PostgresServer::writePasswordFile() const {
    {
        std::ofstream out(m_passwordFile, std::ios::trunc);
        out << "*:*:*:alice:" << m_alicePassword << "\n*:*:*:bob:" << m_bobPassword << "\n";
    }
    // libpq ignores a password file that others may read.
    std::filesystem::permissions(m_passwordFile, std::filesystem::perms::owner_read |
                                                     std::filesystem::perms::owner_write);
}

} // namespace tasket::testing
