#include "tasket/commands/done_command.h"

#include "tasket/named_objects.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& DoneCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "done",
        .usage = "tasket done ID...",
        .summary = "Mark tasks completed",
        .help = "Marks each task named by its identifier (as \"tasket tasks\" prints it)\n"
                "completed. Nothing is changed when one of them does not exist.",
    };
    return kInfo;
}

const CommandInfo& UndoneCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "undone",
        .usage = "tasket undone ID...",
        .summary = "Mark tasks not completed",
        .help = "Marks each task named by its identifier not completed. Nothing is changed\n"
                "when one of them does not exist.",
    };
    return kInfo;
}

void CompletionCommand::addOptions(CLI::App& command) {
    command.add_option("ID", m_taskIDs, "The tasks' identifiers")->required();
}

platform::Result<void> CompletionCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto tasks = findTasks(viewContext, m_taskIDs);
    if (!tasks)
        return std::unexpected(tasks.error());
    for (const auto& task : *tasks)
        task->setIsCompleted(m_completed);
    if (auto saved = withStoreAdvice(viewContext.save()); !saved)
        return saved;
    refreshReminders(viewContext, m_taskIDs, context.err);
    mirrorToCalendars(viewContext, m_taskIDs, context.err);
    if (context.json)
        context.out << fmt::format("{{\n  \"changed\": {}\n}}\n", m_taskIDs.size());
    return {};
}

} // namespace tasket::apps
