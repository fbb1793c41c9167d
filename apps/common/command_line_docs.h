// Shell completions (bash, zsh, fish) and a manual page written from a
// program's own CLI11 command line, so that they name exactly the commands
// and options the program accepts. Hidden commands and options (those in
// the empty group) are left out.
#pragma once

#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace tasket::apps {

struct ProgramDocs {
    std::string_view name;    // "tasket"
    std::string_view summary; // one line, for the manual page's NAME
    std::string_view version;
};

/// The completion script for `kind` ("bash", "zsh" or "fish") or the
/// manual page in roff ("man") of `app`; nullopt for another kind.
std::optional<std::string> commandLineDocs(std::string_view kind, const CLI::App& app,
                                           const ProgramDocs& program);

/// The kinds commandLineDocs writes, for help texts.
inline constexpr std::string_view kCommandLineDocKinds = "bash, zsh, fish or man";

/// For the hidden command line "--docs KIND" alone: writes those docs to
/// `out` (or to `err` why not) and gives the exit status; nullopt for any
/// other command line.
std::optional<int> writeCommandLineDocs(std::span<const std::string> arguments, const CLI::App& app,
                                        const ProgramDocs& program, std::ostream& out,
                                        std::ostream& err);

} // namespace tasket::apps
