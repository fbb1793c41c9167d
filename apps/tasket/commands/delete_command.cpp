#include "tasket/commands/delete_command.h"

#include "tasket/named_objects.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <iostream>

namespace tasket::apps {

const CommandInfo& DeleteCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "delete",
        .usage = "tasket delete ID... [--yes]",
        .summary = "Delete tasks, with their subtasks and attachments",
        .help = "Deletes each task named by its identifier. On a terminal it asks first;\n"
                "elsewhere, and to skip the question, pass --yes. Nothing is deleted when\n"
                "one of them does not exist.",
    };
    return kInfo;
}

void DeleteCommand::addOptions(CLI::App& command) {
    command.add_option("ID", m_taskIDs, "The tasks' identifiers")->required();
    command.add_flag("--yes,-y", m_yes, "Delete without asking");
}

platform::Result<void> DeleteCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto tasks = findTasks(viewContext, m_taskIDs);
    if (!tasks)
        return std::unexpected(tasks.error());
    std::vector<std::string> titles;
    for (const auto& task : *tasks)
        titles.push_back(fmt::format("\"{}\"", task->title().value_or("")));
    if (!m_yes) {
        if (isatty(STDIN_FILENO) != 1)
            return platform::fail(platform::Errc::invalidArgument,
                                  "deleting needs a yes: pass --yes when not on a terminal");
        context.err << fmt::format("Delete {}? [y/N] ", fmt::join(titles, ", "));
        std::string answer;
        std::getline(std::cin, answer);
        if (answer != "y" && answer != "Y" && answer != "yes")
            return platform::fail(platform::Errc::cancelled, "nothing deleted");
    }
    // The tasks' and their subtasks' reminders go with them.
    std::vector<std::string> gone;
    for (const auto& task : *tasks) {
        gone.push_back(task->taskID().value_or(""));
        for (const auto& subtask : task->subtasks())
            gone.push_back(subtask->subtaskID().value_or(""));
        viewContext.deleteObject(task);
    }
    if (auto saved = viewContext.save(); !saved)
        return saved;
    refreshReminders(viewContext, gone, context.err);
    if (context.json)
        context.out << fmt::format("{{\n  \"deleted\": {}\n}}\n", tasks->size());
    return {};
}

} // namespace tasket::apps
