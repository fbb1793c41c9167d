#include "tasket/commands/show_command.h"

#include "common/task_report.h"
#include "store/local_data_manager.h"
#include "store/lookup.h"
#include "tasket/store_view.h"
#include "tasket/task_listing.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& ShowCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "show",
        .usage = "tasket show ID [--json]",
        .summary = "Print one task: title, link, list and attachments",
        .help = "ID is the task's identifier, as \"tasket tasks\" prints it. Attachments are\n"
                "printed with their name, extension, kind and size in bytes. With --json,\n"
                "an object with taskID, title, url, list, listID, isCompleted,\n"
                "whenCreated and attachments.",
    };
    return kInfo;
}

void ShowCommand::addOptions(CLI::App& command) {
    command.add_option("ID", m_taskID, "The task's identifier")->required();
}

platform::Result<void> ShowCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto found = store::findByIdentifier<store::TK_Task>(*manager->viewContext(), m_taskID);
    if (!found)
        return std::unexpected(found.error());
    const TaskReport report = reportTask(**found);
    printTask(context.out, context.json, report);
    return {};
}

} // namespace tasket::apps
