// How a report meets its reader: on a terminal, lines fit its width and
// marks are coloured (unless NO_COLOR is set); into a pipe or a file, lines
// are whole and plain, so scripts read the same text every time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tasket::apps {

class TerminalStyle {
  public:
    /// The style for standard output: `isTerminal` when it is one.
    static TerminalStyle forOutput(bool isTerminal);

    bool colour() const { return m_colour; }
    /// Columns a line may take; 0: no limit.
    std::size_t width() const { return m_width; }

    enum class Tone { dim, bold, done, overdue, list };
    /// `text` in `tone` when colouring, else `text` as it is.
    std::string paint(Tone tone, std::string_view text) const;

  private:
    bool m_colour = false;
    std::size_t m_width = 0;
};

/// How many columns `text` (UTF-8) takes: one per code point.
std::size_t columns(std::string_view text);
/// `text` cut to `width` columns, ending in "…" when cut; whole when
/// `width` is 0.
std::string fitted(std::string_view text, std::size_t width);

} // namespace tasket::apps
