#include "tasket/commands/show_command.h"

#include "common/task_report.h"
#include "objectstore/predicate/predicate.h"
#include "platform/json_writer.h"
#include "store/local_data_manager.h"
#include "store/records.h"
#include "tasket/store_view.h"

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
    auto request = store::TK_Task::fetchRequest();
    request.predicate = *objectstore::Predicate::parse("taskID ==[c] %@", {m_taskID});
    auto found = manager->viewContext()->fetch(request);
    if (!found)
        return std::unexpected(found.error());
    if (found->empty())
        return platform::fail(platform::Errc::notFound,
                              fmt::format("there is no task \"{}\"", m_taskID));
    const TaskReport report = reportTask(*std::static_pointer_cast<store::TK_Task>(found->front()));
    if (context.json) {
        platform::JsonWriter json;
        writeTask(json, report);
        context.out << json.finish().value();
    } else {
        context.out << describeTask(report);
    }
    return {};
}

} // namespace tasket::apps
