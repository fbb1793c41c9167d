// Asks for a password on the controlling terminal (/dev/tty), not on the
// standard streams, so output redirected to a file or a pipe never carries
// the question and a password is never read from a script's input. The
// answer is not echoed.
#pragma once

#include "platform/auth/authenticator.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tasket::apps {

class TerminalPassword {
  public:
    /// The controlling terminal; nullptr when the process has none.
    [[nodiscard]] static std::unique_ptr<TerminalPassword> open();
    ~TerminalPassword();
    TerminalPassword(const TerminalPassword&) = delete;
    TerminalPassword& operator=(const TerminalPassword&) = delete;

    /// Shows `text` on a line of its own.
    void say(std::string_view text);
    /// Asks `prompt` and reads one line, echoed only when the prompt allows;
    /// nullopt at end of input (Ctrl-D), which cancels.
    [[nodiscard]] std::optional<std::string> ask(const platform::AuthenticationPrompt& prompt);

  private:
    explicit TerminalPassword(int fd) : m_fd(fd) {}
    int m_fd;
};

} // namespace tasket::apps
