#include "support/radicale_server.h"

#include "support/program_run.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

namespace tasket::testing {
namespace {

const char* const kPassword = "alice-secret";

// Radicale's WSGI application, its answers to PUT without their ETag.
const char* const kUntaggedWrites = R"(import os, sys, wsgiref.simple_server, radicale
os.environ["RADICALE_CONFIG"] = sys.argv[1]
def app(environ, start):
    def untagged(status, headers, exc_info=None):
        if environ["REQUEST_METHOD"] == "PUT":
            headers = [h for h in headers if h[0].lower() != "etag"]
        return start(status, headers, exc_info)
    return radicale.application(environ, untagged)
class Quiet(wsgiref.simple_server.WSGIRequestHandler):
    def log_message(self, *args): pass
wsgiref.simple_server.make_server("127.0.0.1", int(sys.argv[2]), app,
                                  handler_class=Quiet).serve_forever()
)";

// A loopback port: the given one, or (0) one the kernel picks; connects to
// it when `probe`, else binds it and returns the port number. Returns -1
// when that fails.
int loopback(int port, bool probe) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    const bool ok =
        fd >= 0 && (probe ? ::connect(fd, raw, size) == 0
                          : ::bind(fd, raw, size) == 0 && ::getsockname(fd, raw, &size) == 0);
    ::close(fd);
    return ok ? ntohs(address.sin_port) : -1;
}

} // namespace

RadicaleServer::RadicaleServer(RadicaleOptions options) : m_port(loopback(0, false)) {
    const auto storage = storageFolder();
    const auto config = m_folder / "config";
    std::filesystem::create_directory(storage);
    std::ofstream(m_folder / "users") << "alice:" << kPassword << "\n";
    std::ofstream(config) << "[server]\nhosts = 127.0.0.1:" << m_port
                          << "\n[auth]\ntype = htpasswd\nhtpasswd_encryption = plain\ndelay = 0\n"
                          << "htpasswd_filename = " << (m_folder / "users").string()
                          << "\n[rights]\ntype = owner_only\n[storage]\nfilesystem_folder = "
                          << storage.string() << "\n[logging]\nlevel = warning\n";
    std::ofstream(netrcFile()) << "machine 127.0.0.1 login alice password " << kPassword << "\n";

    std::vector<std::string> arguments = serverPrivileges("TERM", {m_folder.path(), storage});
    if (options.tagsWrites)
        arguments.insert(arguments.end(),
                         {"/usr/bin/python3", "-m", "radicale", "--config", config.string()});
    else
        arguments.insert(arguments.end(), {"/usr/bin/python3", "-c", kUntaggedWrites,
                                           config.string(), std::to_string(m_port)});
    m_pid = startProgram("/usr/bin/setpriv", arguments, {.home = m_folder.path()});
    waitUntilReady(
        m_pid, std::chrono::seconds(30), [this] { return loopback(m_port, true) == m_port; },
        [&] { return "Radicale; run it with --config " + config.string() + " to see why"; },
        SIGTERM);
}

RadicaleServer::~RadicaleServer() {
    stop();
}

void RadicaleServer::stop() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGTERM);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

std::string RadicaleServer::password() {
    return kPassword;
}

std::string RadicaleServer::url() const {
    return "http://127.0.0.1:" + std::to_string(m_port) + "/";
}

} // namespace tasket::testing
