#include "support/radicale_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
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

const char* const kPassword = "alice-secret";

std::string readAll(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

// A port the kernel has just handed out and taken back.
int freePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no free loopback port");
    ::close(fd);
    return ntohs(address.sin_port);
}

bool accepts(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    const bool connected =
        fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

} // namespace

RadicaleServer::RadicaleServer() : m_port(freePort()) {
    const auto storage = m_folder / "storage";
    const auto config = m_folder / "config";
    const auto log = m_folder / "server.log";
    std::filesystem::create_directory(storage);
    std::ofstream(m_folder / "users") << "alice:" << kPassword << "\n";
    std::ofstream(config) << "[server]\nhosts = 127.0.0.1:" << m_port
                          << "\n[auth]\ntype = htpasswd\nhtpasswd_filename = "
                          << (m_folder / "users").string()
                          << "\nhtpasswd_encryption = plain\ndelay = 0\n"
                             "[rights]\ntype = owner_only\n"
                             "[storage]\nfilesystem_folder = "
                          << storage.string() << "\n[logging]\nlevel = warning\n";
    m_netrc = netrcWithPassword(kPassword);

    bool switchUser = false;
    uid_t uid = 0;
    gid_t gid = 0;
    if (::geteuid() == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        if (!nobody)
            throw std::runtime_error("no user nobody to run the server as");
        switchUser = true;
        uid = nobody->pw_uid;
        gid = nobody->pw_gid;
        for (const auto& path : {m_folder.path(), storage})
            if (::chown(path.c_str(), uid, gid) != 0)
                throw std::runtime_error("cannot hand the server folder to nobody");
    }
    std::vector<std::string> argv{"/usr/bin/python3", "-m", "radicale", "--config",
                                  config.string()};
    std::vector<char*> pointers;
    for (auto& text : argv)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const std::string logPath = log.string();
    const std::string home = "HOME=" + m_folder.path().string();
    char* environment[] = {const_cast<char*>(home.c_str()), nullptr};
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
    if (m_pid == 0) {
        const int out = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (out < 0 || ::dup2(out, STDOUT_FILENO) < 0 || ::dup2(out, STDERR_FILENO) < 0)
            ::_exit(127);
        if (switchUser &&
            (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0))
            ::_exit(126);
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent)
            ::_exit(125);
        ::execve(pointers[0], pointers.data(), environment);
        ::_exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            throw std::runtime_error("the server ended at start:\n" + readAll(log));
        }
        if (accepts(m_port))
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    throw std::runtime_error("the server did not become ready:\n" + readAll(log));
}

RadicaleServer::~RadicaleServer() {
    stop();
}

void RadicaleServer::stop() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGTERM);
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
}

std::string RadicaleServer::url() const {
    return "http://127.0.0.1:" + std::to_string(m_port) + "/";
}

std::filesystem::path RadicaleServer::netrcWithPassword(const std::string& password) const {
    const auto file = m_folder / ("netrc-" + std::to_string(std::hash<std::string>{}(password)));
    std::ofstream(file) << "machine 127.0.0.1 login alice password " << password << "\n";
    std::filesystem::permissions(file, std::filesystem::perms::owner_read |
                                           std::filesystem::perms::owner_write);
    return file;
}

} // namespace tasket::testing
