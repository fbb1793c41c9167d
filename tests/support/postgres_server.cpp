#include "support/postgres_server.h"

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tasket::testing {
namespace {

const std::filesystem::path kBinaries = "/usr/lib/postgresql/15/bin";

// Forks and execs `argv` with output into `log`, as `uid`/`gid` when
// `switchUser`; the child gets SIGINT should this process die. Only
// async-signal-safe calls run in the child.
pid_t spawn(std::vector<std::string> argv, const std::filesystem::path& log, bool switchUser,
            uid_t uid, gid_t gid) {
    std::vector<char*> pointers;
    for (auto& text : argv)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const std::string logPath = log.string();
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0) {
        const int out = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (out < 0 || ::dup2(out, STDOUT_FILENO) < 0 || ::dup2(out, STDERR_FILENO) < 0)
            ::_exit(127);
        if (switchUser &&
            (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0))
            ::_exit(126);
        // After the switch: a change of user clears the parent-death signal.
        ::prctl(PR_SET_PDEATHSIG, SIGINT);
        if (::getppid() != parent)
            ::_exit(125);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    return child;
}

int waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

PostgresServer::PostgresServer() {
    if (::geteuid() == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        if (!nobody)
            throw std::runtime_error("no user nobody to run the server as");
        m_switchUser = true;
        m_uid = nobody->pw_uid;
        m_gid = nobody->pw_gid;
        if (::chown(m_folder.path().c_str(), m_uid, m_gid) != 0)
            throw std::runtime_error("cannot hand the server folder to nobody");
    }
    m_data = m_folder / "data";
    m_passwordFile = m_folder / "pgpass";
    const auto log = m_folder / "initdb.log";
    const pid_t initdb =
        spawn({(kBinaries / "initdb").string(), "-D", m_data.string(), "-U", "postgres", "-A",
               "trust", "-E", "UTF8", "--no-locale", "--no-sync"},
              log, m_switchUser, m_uid, m_gid);
    if (const int status = waitFor(initdb); !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("initdb failed:\n" + readFile(log));
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
    m_pid = spawn({(kBinaries / "postgres").string(), "-D", m_data.string(), "-k",
                   m_folder.path().string(), "-c", "listen_addresses=", "-c", "fsync=off", "-c",
                   "full_page_writes=off", "-c", "synchronous_commit=off"},
                  log, m_switchUser, m_uid, m_gid);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            throw std::runtime_error("the server ended at start:\n" + readFile(log));
        }
        if (PQping(adminConnection().c_str()) == PQPING_OK)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    throw std::runtime_error("the server did not become ready:\n" + readFile(log));
}

void PostgresServer::stop() {
    if (!running())
        return;
    ::kill(m_pid, SIGINT);
    waitFor(m_pid);
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
