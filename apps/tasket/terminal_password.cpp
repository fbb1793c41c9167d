#include "tasket/terminal_password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

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
    const bool hide = !prompt.echo && ::tcgetattr(m_fd, &saved) == 0;
    if (hide) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(m_fd, TCSAFLUSH, &quiet);
    }
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
    if (hide)
        ::tcsetattr(m_fd, TCSAFLUSH, &saved);
    if (ended)
        return std::nullopt;
    return line;
}

} // namespace tasket::apps
