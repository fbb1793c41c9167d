#include "tasket/terminal_password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace tasket::apps {
namespace {

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}

// While echo is off, a signal that ends the program (Ctrl-C, a hang-up)
// first gives the terminal its settings back, or the user's shell would go
// on typing blind.
int g_hiddenFd = -1;
termios g_savedSettings{};
constexpr std::array kEndingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

extern "C" void restoreTerminalAndEnd(int signal) {
    ::tcsetattr(g_hiddenFd, TCSANOW, &g_savedSettings);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

class EchoOff {
  public:
    EchoOff(int fd, const termios& saved) {
        g_hiddenFd = fd;
        g_savedSettings = saved;
        struct sigaction action {};
        action.sa_handler = restoreTerminalAndEnd;
        sigemptyset(&action.sa_mask);
        for (std::size_t i = 0; i < kEndingSignals.size(); ++i)
            ::sigaction(kEndingSignals[i], &action, &m_previous[i]);
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(fd, TCSAFLUSH, &quiet);
    }
    ~EchoOff() {
        ::tcsetattr(g_hiddenFd, TCSAFLUSH, &g_savedSettings);
        for (std::size_t i = 0; i < kEndingSignals.size(); ++i)
            ::sigaction(kEndingSignals[i], &m_previous[i], nullptr);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

  private:
    std::array<struct sigaction, kEndingSignals.size()> m_previous{};
};

} // namespace

std::unique_ptr<TerminalPassword> TerminalPassword::open() {
    const int fd = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    return std::unique_ptr<TerminalPassword>(new TerminalPassword(fd));
}

TerminalPassword::~TerminalPassword() {
    ::close(m_fd);
}

void TerminalPassword::say(std::string_view text) {
    writeAll(m_fd, text);
    writeAll(m_fd, "\n");
}

std::optional<std::string> TerminalPassword::ask(const platform::AuthenticationPrompt& prompt) {
    writeAll(m_fd, prompt.text);
    termios saved{};
    std::optional<EchoOff> hidden;
    if (!prompt.echo && ::tcgetattr(m_fd, &saved) == 0)
        hidden.emplace(m_fd, saved);
    std::string line;
    bool ended = false;
    for (char c; !ended;) {
        const ssize_t n = ::read(m_fd, &c, 1);
        if (n <= 0) {
            ended = true;
            line.clear();
            break;
        }
        if (c == '\n')
            break;
        line.push_back(c);
    }
    hidden.reset();
    if (ended)
        return std::nullopt;
    return line;
}

} // namespace tasket::apps
