#include "tasket/terminal_style.h"

#include "platform/text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace tasket::apps {

TerminalStyle TerminalStyle::forOutput(bool isTerminal) {
    TerminalStyle style;
    if (!isTerminal)
        return style;
    const char* noColor = std::getenv("NO_COLOR");
    style.m_colour = noColor == nullptr || *noColor == '\0';
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        style.m_width = size.ws_col;
    else if (const char* columns = std::getenv("COLUMNS"))
        style.m_width = static_cast<std::size_t>(std::strtoul(columns, nullptr, 10));
    return style;
}

std::string TerminalStyle::paint(Tone tone, std::string_view text) const {
    if (!m_colour || text.empty())
        return std::string(text);
    std::string_view code;
    switch (tone) {
    case Tone::dim: code = "2"; break;
    case Tone::bold: code = "1"; break;
    case Tone::done: code = "32"; break;
    case Tone::overdue: code = "31"; break;
    case Tone::list: code = "36"; break;
    }
    return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

std::size_t columns(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) {
        const std::size_t length = platform::utf8SequenceLength(text, i);
        i += length == 0 ? 1 : length;
    }
    return count;
}

std::string fitted(std::string_view text, std::size_t width) {
    if (width == 0 || columns(text) <= width)
        return std::string(text);
    std::size_t end = 0;
    for (std::size_t kept = 0; kept + 1 < width && end < text.size(); ++kept) {
        const std::size_t length = platform::utf8SequenceLength(text, end);
        end += length == 0 ? 1 : length;
    }
    return std::string(text.substr(0, end)) + "…";
}

} // namespace tasket::apps
