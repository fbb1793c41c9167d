// One command of the tasket program. Each command is a class in its own
// file under commands/, with its keyword, usage and help as data; the
// registry lists them all in one table, and the frame (tasket_cli) parses
// the line, runs the chosen command and turns its failure into an exit
// status.
#pragma once

#include "platform/error.h"

#include <ostream>
#include <string_view>

namespace CLI {
class App;
}

namespace tasket::apps {

struct CommandInfo {
    std::string_view keyword; // "tasks"
    std::string_view usage;   // "tasket tasks [--list NAME] [--search TEXT] [--json]"
    std::string_view summary; // one line for the command list
    std::string_view help;    // what `tasket KEYWORD --help` explains below the options
    // Whether the command shows anything of the store; while the app lock is
    // on, such a command runs only after the user authenticated.
    bool showsStoredData = true;
};

/// Where a command writes, and how.
struct CommandContext {
    std::ostream& out;
    std::ostream& err;
    bool json = false;       // --json: machine-readable output on `out`
    bool isTerminal = false; // `out` is standard output and that is a terminal
};

class Command {
  public:
    virtual ~Command();

    virtual const CommandInfo& info() const = 0;

    /// Declares the command's own options and arguments; the frame adds
    /// --json and --help to every command.
    virtual void addOptions(CLI::App& command);

    /// Runs the parsed command. A failure's message is printed by the frame
    /// and its code chooses the exit status.
    [[nodiscard]] virtual platform::Result<void> run(CommandContext& context) = 0;
};

} // namespace tasket::apps
