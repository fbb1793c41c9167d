#include "tasket/commands/tasks_command.h"

#include "common/task_report.h"
#include "platform/clock.h"
#include "tasket/store_view.h"
#include "tasket/task_listing.h"

#include <CLI/CLI.hpp>

namespace tasket::apps {

const CommandInfo& TasksCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "tasks",
        .usage = "tasket tasks [--list NAME] [--smart NAME] [--filter FILTER] [--tag TAG]\n"
                 "                    [--priority P] [--status S] [--completed|--pending]\n"
                 "                    [--search TEXT] [--json]",
        .summary = "Print the tasks, all or those the selectors choose",
        .help = "Prints one line per task, newest first: its identifier, title, list, due date\n"
                "and whether it is done (on a terminal, fitted to its width and coloured\n"
                "unless NO_COLOR is set). The selectors combine: every one must hold. Names\n"
                "are titles or identifiers. Dates are ISO 8601 in the local zone. With --json,\n"
                "an array of tasks as \"tasket show\" prints them.",
    };
    return kInfo;
}

void TasksCommand::addOptions(CLI::App& command) {
    m_selection.addOptions(command);
}

platform::Result<void> TasksCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    const rules::PredicateTime time{platform::Clock::shared().now(), localCalendar()};
    auto request = m_selection.request(viewContext, time);
    if (!request)
        return std::unexpected(request.error());
    TaskListing listing(context.out, context.json, TerminalStyle::forOutput(context.isTerminal));
    auto walked = viewContext.fetchEach(
        *request, [&](const std::vector<objectstore::ObjectPtr>& batch) -> platform::Result<void> {
            for (const auto& object : batch)
                listing.add(reportTask(static_cast<const store::TK_Task&>(*object), time.now));
            viewContext.reset(); // let the batch go before the next is read
            return {};
        });
    if (!walked)
        return walked;
    listing.finish();
    return {};
}

} // namespace tasket::apps
