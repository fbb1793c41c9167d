#include "tasket/tasket_cli.h"

#include "common/command_line_docs.h"
#include "common/exit_code.h"
#include "common/version.h"
#include "tasket/command_registry.h"
#include "tasket/commands/sync_command.h"
#include "tasket/lock_gate.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <vector>

namespace tasket::apps {
namespace {

constexpr std::string_view kDescription =
    "tasket: look at and change Tasket's task store from the command line.\n"
    "It reads the same store as the share program and the main application,\n"
    "in the application-group folder under $XDG_DATA_HOME.\n";

constexpr ProgramDocs kDocs{
    "tasket", "look at and change Tasket's task store from the command line", kTasketVersion};

constexpr std::string_view kFooter =
    "Run \"tasket COMMAND --help\" for what a command prints and takes.\n"
    "Every command takes --json to print JSON instead of text; those that show or\n"
    "change the store take --sync to sync with the cloud database first.\n"
    "\n"
    "Exit status: 0 success; 64 wrong command line; 65 unusable input or store;\n"
    "66 no such file, list or task; 69 service unavailable; 70 internal error,\n"
    "or the store or its folder cannot be opened; 74 read or write failed;\n"
    "75 a concurrent change won, try again; 77 permission denied (or the app lock's\n"
    "authentication failed); 79 the app lock is on and cannot be opened (no terminal\n"
    "to ask for the password on, or authentication cannot be used); 1 anything else.";

// Shows each command's own usage line instead of the one CLI11 derives.
class UsageFormatter final : public CLI::Formatter {
  public:
    explicit UsageFormatter(std::map<const CLI::App*, std::string> usages)
        : m_usages(std::move(usages)) {}

    std::string make_usage(const CLI::App* app, std::string name) const override {
        if (const auto it = m_usages.find(app); it != m_usages.end())
            return fmt::format("Usage: {}\n", it->second);
        return CLI::Formatter::make_usage(app, std::move(name));
    }

  private:
    std::map<const CLI::App*, std::string> m_usages;
};

} // namespace

int runTasket(std::span<const std::string> arguments, std::ostream& out, std::ostream& err) {
    const std::vector<std::unique_ptr<Command>> commands = makeCommands();

    CLI::App app(std::string(kDescription), "tasket");
    app.footer(std::string(kFooter));
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string(kTasketVersion));

    std::map<const CLI::App*, std::string> usages{
        {&app, "tasket [--help] COMMAND [OPTIONS] [ARGUMENTS]"}};
    std::vector<std::pair<CLI::App*, Command*>> subcommands;
    bool json = false;
    bool syncFirst = false;
    // A command line names one command, first: only it is made then, with
    // its options (making every command would cost more than many
    // commands' own work). Without one (--help, the documents), all are.
    const bool namesOne =
        !arguments.empty() && std::ranges::any_of(commands, [&](const auto& command) {
            return command->info().keyword == arguments.front();
        });
    for (const auto& command : commands) {
        const CommandInfo& info = command->info();
        if (namesOne && info.keyword != arguments.front())
            continue;
        CLI::App* sub = app.add_subcommand(std::string(info.keyword), std::string(info.summary));
        sub->group("Commands");
        sub->footer(std::string(info.help));
        sub->add_flag("--json", json, "Print JSON instead of text");
        if (info.showsStoredData)
            sub->add_flag("--sync", syncFirst,
                          "First sync with the cloud database, when cloud sync is on");
        command->addOptions(*sub);
        usages.emplace(sub, std::string(info.usage));
        subcommands.emplace_back(sub, command.get());
    }
    auto formatter = std::make_shared<UsageFormatter>(std::move(usages));
    app.formatter(formatter);
    for (const auto& [sub, command] : subcommands)
        sub->formatter(formatter);

    // Hidden: the completions and manual page, written from this command line.
    if (const auto status = writeCommandLineDocs(arguments, app, kDocs, out, err))
        return *status;

    // CLI11 parses from the last argument backwards.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::Success& done) { // --help or --version
        return app.exit(done, out, err);
    } catch (const CLI::ParseError& error) {
        const bool noCommand = app.get_subcommands().empty();
        if (noCommand && arguments.empty())
            err << "tasket: no command given\n";
        else if (noCommand && !arguments.front().starts_with('-'))
            err << fmt::format("tasket: unknown command \"{}\"\n", arguments.front());
        else
            err << fmt::format("tasket: {}\n", error.what());
        err << "Run \"tasket --help\" for the commands and their options.\n";
        return kExitUsage;
    }

    const auto chosen =
        std::ranges::find_if(subcommands, [](const auto& entry) { return entry.first->parsed(); });
    CommandContext context{out, err, json, &out == &std::cout && isatty(STDOUT_FILENO) == 1};
    try {
        if (chosen->second->info().showsStoredData) {
            if (const auto locked = requireUnlocked(err))
                return *locked;
        }
        if (syncFirst)
            syncBeforeCommand(err);
        if (auto result = chosen->second->run(context); !result) {
            err << fmt::format("tasket: {}\n", result.error().message);
            return exitCodeFor(result.error().code);
        }
    } catch (const std::exception& exception) {
        err << fmt::format("tasket: internal error: {}\n", exception.what());
        return kExitSoftware;
    }
    out.flush();
    return kExitSuccess;
}

} // namespace tasket::apps
