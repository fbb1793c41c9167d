#include "tasket/commands/tasks_command.h"

#include "common/task_report.h"
#include "platform/json_writer.h"
#include "rules/texts.h"
#include "store/lookup.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& TasksCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "tasks",
        .usage = "tasket tasks [--list NAME] [--search TEXT] [--json]",
        .summary = "Print the tasks, of one list or holding a text",
        .help = "Prints one line per task: its identifier, title and list. --list takes a\n"
                "list's title or identifier; --search keeps the tasks whose titles hold TEXT,\n"
                "ignoring case. With --json, an array of tasks as \"tasket show\" prints them.",
    };
    return kInfo;
}

void TasksCommand::addOptions(CLI::App& command) {
    command.add_option("--list", m_list, "Only the tasks of this list (title or identifier)")
        ->type_name("NAME");
    command.add_option("--search", m_search, "Only tasks whose titles hold TEXT")
        ->type_name("TEXT");
}

platform::Result<void> TasksCommand::run(CommandContext& context) {
    auto view = openStoreView();
    if (!view)
        return std::unexpected(view.error());
    std::string listID;
    if (!m_list.empty()) {
        auto found = store::findList(
            store::offeredCategories(view->fetchManager->categories().value()), m_list);
        if (!found)
            return std::unexpected(found.error());
        listID = (*found)->categoryID().value_or("");
    }
    if (!m_search.empty()) {
        if (auto searched = view->fetchManager->setTasksSearchText(m_search); !searched)
            return searched;
    }
    platform::JsonWriter json;
    json.beginArray();
    for (const auto& task : view->fetchManager->tasks().value()) {
        const TaskReport report = reportTask(*task);
        if (!listID.empty() && report.listID != listID)
            continue;
        if (context.json)
            writeTask(json, report);
        else
            context.out << fmt::format("{}\t{}\t{}\n", report.taskID,
                                       report.title.empty() ? rules::texts::kNewTask.translated()
                                                            : report.title,
                                       report.list);
    }
    json.endArray();
    if (context.json)
        context.out << json.finish().value();
    return {};
}

} // namespace tasket::apps
