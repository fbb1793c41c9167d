#include "tasket/commands/edit_command.h"

#include "common/task_report.h"
#include "platform/clock.h"
#include "share/shared_task.h"
#include "store/lookup.h"
#include "tasket/named_objects.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"
#include "tasket/task_listing.h"

#include <CLI/CLI.hpp>

namespace tasket::apps {

const CommandInfo& EditCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "edit",
        .usage = "tasket edit ID [--title TEXT] [--list NAME] [--note TEXT] [--url URL]\n"
                 "                   [--due WHEN|none] [--start WHEN|none] [--all-day]\n"
                 "                   [--tag TAG]... [--priority P|none] [--status S|none]\n"
                 "                   [--pin|--unpin] [--json]",
        .summary = "Change a task",
        .help = "Changes only what is given. WHEN is written as for \"tasket add\"; \"none\"\n"
                "removes a date, a priority or a status, and an empty --note or --url\n"
                "removes the note or link. --tag adds a tag. Prints the task afterwards.",
    };
    return kInfo;
}

void EditCommand::addOptions(CLI::App& command) {
    command.add_option("ID", m_taskID, "The task's identifier")->required();
    command.add_option("--title", m_title, "The new title")->type_name("TEXT");
    command.add_option("--list", m_list, "Move it to this list (title or identifier)")
        ->type_name("NAME");
    m_fields.addOptions(command, true);
}

platform::Result<void> EditCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto task = store::findByIdentifier<store::TK_Task>(viewContext, m_taskID);
    if (!task)
        return std::unexpected(task.error());
    if (m_title) {
        if (auto checked = share::checkTaskText(*m_title); !checked)
            return checked;
        (*task)->setTitle(*m_title);
    }
    if (m_list) {
        auto list = findNamed<store::TK_Category>(viewContext, *m_list);
        if (!list)
            return std::unexpected(list.error());
        (*task)->setCategory(*list);
    }
    const platform::Date now = platform::Clock::shared().now();
    if (auto applied = m_fields.apply(**task, now, localCalendar); !applied)
        return applied;
    if (auto saved = withStoreAdvice(share::saveContext(viewContext)); !saved)
        return saved;
    refreshReminders(viewContext, std::span(&m_taskID, 1), context.err);
    mirrorToCalendars(viewContext, std::span(&m_taskID, 1), context.err);
    const TaskReport report = reportTask(**task, now);
    printTask(context.out, context.json, report);
    return {};
}

} // namespace tasket::apps
