#include "common/command_line_docs.h"

#include "common/exit_code.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <ostream>
#include <vector>

namespace tasket::apps {

namespace {

// One command line level: the words leading to it ("" for the program,
// "lists add" for a nested one), its visible subcommands and options.
struct Level {
    std::string path;
    const CLI::App* app;
    std::vector<const CLI::App*> subcommands;
    std::vector<std::pair<std::string, std::string>> options; // "--name", description
};

bool visible(const CLI::App* app) {
    return !app->get_group().empty();
}

void collect(const CLI::App& app, const std::string& path, std::vector<Level>& out) {
    Level level{path, &app, app.get_subcommands(visible), {}};
    for (const CLI::Option* option :
         app.get_options([](const CLI::Option* o) { return !o->get_group().empty(); })) {
        for (const auto& name : option->get_lnames())
            level.options.emplace_back("--" + name, option->get_description());
        for (const auto& name : option->get_snames())
            level.options.emplace_back("-" + name, option->get_description());
    }
    out.push_back(level);
    for (const CLI::App* sub : level.subcommands)
        collect(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name(), out);
}

std::vector<Level> levels(const CLI::App& app) {
    std::vector<Level> out;
    collect(app, "", out);
    return out;
}

std::string words(const Level& level, bool options) {
    std::vector<std::string> out;
    if (options)
        for (const auto& [name, description] : level.options)
            out.push_back(name);
    else
        for (const CLI::App* sub : level.subcommands)
            out.push_back(sub->get_name());
    return fmt::format("{}", fmt::join(out, " "));
}

// Inside single quotes in a shell.
std::string shellQuoted(std::string_view text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string firstLine(std::string_view text) {
    return std::string(text.substr(0, text.find('\n')));
}

std::string functionName(std::string_view program) {
    std::string out = "_";
    for (const char c : program)
        out += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return out;
}

std::string bash(const CLI::App& app, const ProgramDocs& program) {
    const auto all = levels(app);
    std::string subcommands, options;
    for (const Level& level : all) {
        // Keys start with "." since bash refuses an empty one.
        const std::string key = level.path.empty() ? "." : ". " + level.path;
        subcommands +=
            fmt::format("        [{}]={}\n", shellQuoted(key), shellQuoted(words(level, false)));
        options +=
            fmt::format("        [{}]={}\n", shellQuoted(key), shellQuoted(words(level, true)));
    }
    const std::string name = functionName(program.name);
    return fmt::format(
        "# bash completion for {0}, written by \"{0} --docs bash\" from its command line.\n"
        "{1}() {{\n"
        "    local -A subcommands=(\n{2}    )\n"
        "    local -A options=(\n{3}    )\n"
        "    local cur=\"${{COMP_WORDS[COMP_CWORD]}}\" at=\".\" word i\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=\"${{COMP_WORDS[i]}}\"\n"
        "        if [[ \" ${{subcommands[$at]}} \" == *\" $word \"* ]]; then\n"
        "            at=\"$at $word\"\n"
        "        fi\n"
        "    done\n"
        "    if [[ \"$cur\" == -* ]]; then\n"
        "        COMPREPLY=($(compgen -W \"${{options[$at]}}\" -- \"$cur\"))\n"
        "    else\n"
        "        COMPREPLY=($(compgen -W \"${{subcommands[$at]}}\" -- \"$cur\"))\n"
        "    fi\n"
        "}}\n"
        "complete -o default -F {1} {0}\n",
        program.name, name, subcommands, options);
}

std::string zsh(const CLI::App& app, const ProgramDocs& program) {
    const auto all = levels(app);
    std::vector<std::string> steps;
    std::string cases;
    for (const Level& level : all) {
        std::vector<std::string> commands, options;
        for (const CLI::App* sub : level.subcommands) {
            commands.push_back(
                shellQuoted(sub->get_name() + ":" + firstLine(sub->get_description())));
            steps.push_back(shellQuoted(level.path + ":" + sub->get_name()));
        }
        for (const auto& [name, description] : level.options)
            options.push_back(shellQuoted(name + ":" + firstLine(description)));
        cases +=
            fmt::format("        ({}) commands=({}); options=({}) ;;\n", shellQuoted(level.path),
                        fmt::join(commands, " "), fmt::join(options, " "));
    }
    return fmt::format(
        "#compdef {0}\n"
        "# zsh completion for {0}, written by \"{0} --docs zsh\" from its command line.\n"
        "local at=\"\" word i\n"
        "local -a commands options\n"
        "for ((i = 2; i < CURRENT; i++)); do\n"
        "    word=\"${{words[i]}}\"\n"
        "    case \"$at:$word\" in\n"
        "        ({1}) at=\"${{at:+$at }}$word\" ;;\n"
        "    esac\n"
        "done\n"
        "case \"$at\" in\n{2}esac\n"
        "if [[ \"$PREFIX\" == -* ]]; then\n"
        "    _describe -t options option options\n"
        "else\n"
        "    _describe -t commands command commands || _files\n"
        "fi\n",
        program.name, steps.empty() ? std::string("''") : fmt::format("{}", fmt::join(steps, "|")),
        cases);
}

std::string fish(const CLI::App& app, const ProgramDocs& program) {
    std::string out = fmt::format(
        "# fish completion for {0}, written by \"{0} --docs fish\" from its command line.\n",
        program.name);
    for (const Level& level : levels(app)) {
        // The words of the path seen, and (for the commands) none of the next level's.
        std::string condition;
        std::size_t start = 0;
        while (start < level.path.size()) {
            const std::size_t end = std::min(level.path.find(' ', start), level.path.size());
            condition +=
                fmt::format("{}__fish_seen_subcommand_from {}", condition.empty() ? "" : "; and ",
                            level.path.substr(start, end - start));
            start = end + 1;
        }
        const std::string next = words(level, false);
        const std::string commandCondition =
            level.path.empty()
                ? std::string("__fish_use_subcommand")
                : condition + (next.empty() ? "" : "; and not __fish_seen_subcommand_from " + next);
        for (const CLI::App* sub : level.subcommands)
            out += fmt::format("complete -c {} -n {} -f -a {} -d {}\n", program.name,
                               shellQuoted(commandCondition), sub->get_name(),
                               shellQuoted(firstLine(sub->get_description())));
        for (const auto& [name, description] : level.options) {
            const bool isLong = name.starts_with("--");
            out += fmt::format("complete -c {}{} {} {} -d {}\n", program.name,
                               level.path.empty() ? "" : " -n " + shellQuoted(condition),
                               isLong ? "-l" : "-s", name.substr(isLong ? 2 : 1),
                               shellQuoted(firstLine(description)));
        }
    }
    return out;
}

// Text in a roff no-fill block: backslashes and leading dots escaped.
std::string roff(std::string_view text) {
    std::string out;
    bool lineStart = true;
    for (const char c : text) {
        if (lineStart && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        lineStart = c == '\n';
    }
    return out;
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string man(const CLI::App& app, const ProgramDocs& program) {
    std::string out = fmt::format(".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n",
                                  upper(program.name), program.name, program.version);
    out += fmt::format(".SH NAME\n{} \\- {}\n", program.name, roff(program.summary));
    out += ".SH DESCRIPTION\n.nf\n" + roff(app.help()) + ".fi\n";
    bool first = true;
    for (const Level& level : levels(app)) {
        if (level.path.empty() || level.path.find(' ') != std::string::npos)
            continue; // nested commands are in their parent's help
        out += first ? ".SH COMMANDS\n" : "";
        first = false;
        out += fmt::format(".SS \"{} {}\"\n.nf\n{}.fi\n", program.name, level.path,
                           roff(level.app->help()));
    }
    return out;
}

} // namespace

std::optional<std::string> commandLineDocs(std::string_view kind, const CLI::App& app,
                                           const ProgramDocs& program) {
    if (kind == "bash")
        return bash(app, program);
    if (kind == "zsh")
        return zsh(app, program);
    if (kind == "fish")
        return fish(app, program);
    if (kind == "man")
        return man(app, program);
    return std::nullopt;
}

std::optional<int> writeCommandLineDocs(std::span<const std::string> arguments, const CLI::App& app,
                                        const ProgramDocs& program, std::ostream& out,
                                        std::ostream& err) {
    if (arguments.size() != 2 || arguments[0] != "--docs")
        return std::nullopt;
    const auto docs = commandLineDocs(arguments[1], app, program);
    if (!docs) {
        err << fmt::format("{}: --docs takes {}\n", program.name, kCommandLineDocKinds);
        return kExitUsage;
    }
    out << *docs;
    return kExitSuccess;
}

} // namespace tasket::apps
