#include "tasket/commands/add_command.h"

#include "common/task_report.h"
#include "platform/clock.h"
#include "platform/json_writer.h"
#include "platform/uuid.h"
#include "share/category_choice.h"
#include "share/shared_task.h"
#include "store/lookup.h"
#include "tasket/named_objects.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

namespace {

// The lists in the user's own order, read a batch at a time.
platform::Result<store::FetchedCollection<store::TK_Category>>
listsInOrder(objectstore::ObjectContext& context) {
    auto request = store::TK_Category::fetchRequest();
    request.sortDescriptors = {{"sortIndex", true}, {"whenCreated", false}};
    request.fetchBatchSize = 20;
    auto lists = context.fetchBatched(request);
    if (!lists)
        return std::unexpected(lists.error());
    return store::FetchedCollection<store::TK_Category>(
        std::make_shared<const objectstore::BatchedResults>(std::move(*lists)));
}

} // namespace

const CommandInfo& AddCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "add",
        .usage = "tasket add TITLE [--list NAME [--create-list]] [--note TEXT] [--url URL]\n"
                 "                  [--due WHEN] [--start WHEN] [--all-day] [--tag TAG]...\n"
                 "                  [--priority P] [--status S] [--pin] [--json]\n"
                 "                  [--remind WHEN] [--remind-start WHEN] [--no-remind]\n"
                 "                  [--level LEVEL] [--repeat INTERVAL [--every N]]",
        .summary = "Add a task",
        .help = "Adds a task titled TITLE to the list named by --list (title or identifier),\n"
                "else to your default list, else to your first list. A list that does not\n"
                "exist is made only with --create-list. WHEN is an ISO 8601 date or date and\n"
                "time in the local zone (2026-03-28, 2026-03-28T09:30), or today, tomorrow,\n"
                "yesterday, +3d, +2w or a weekday name. A date's reminder is scheduled for the\n"
                "notification daemon (see \"tasket reminders\"); an all-day one fires at your\n"
                "all-day reminder time. Prints the new task's identifier;\n"
                "with --json, the task as \"tasket show --json\" prints it.",
    };
    return kInfo;
}

void AddCommand::addOptions(CLI::App& command) {
    command.add_option("TITLE", m_title, "The task's title")->required();
    command.add_option("--list", m_list, "The list to add to (title or identifier)")
        ->type_name("NAME");
    command.add_flag("--create-list", m_createList, "Make the --list list when there is none");
    m_fields.addOptions(command, false);
}

platform::Result<void> AddCommand::run(CommandContext& context) {
    if (auto checked = share::checkTaskText(m_title); !checked)
        return checked;
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto settings = openSettings();

    std::shared_ptr<store::TK_Category> list;
    if (!m_list.empty()) {
        auto found = findNamed<store::TK_Category>(viewContext, m_list);
        if (found && !store::isOfferedCategory(**found))
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("the list \"{}\" is archived: choose another, or "
                                              "bring it back in the application",
                                              m_list));
        if (found)
            list = *found;
        else if (found.error().code == platform::Errc::notFound && m_createList)
            list = share::insertNewCategory(viewContext, m_list);
        else if (found.error().code == platform::Errc::notFound)
            return platform::fail(platform::Errc::notFound,
                                  found.error().message + "; add --create-list to make it");
        else
            return std::unexpected(found.error());
    } else {
        auto lists = listsInOrder(viewContext);
        if (!lists)
            return std::unexpected(lists.error());
        list = share::defaultCategory(*lists, viewContext, *settings);
        if (!list)
            return platform::fail(platform::Errc::notFound,
                                  "there is no list to add the task to: name one with --list "
                                  "NAME --create-list");
    }

    const platform::Date now = platform::Clock::shared().now();
    auto task = share::insertSharedTask({.taskID = platform::Uuid::generate().toString(),
                                         .whenCreated = now,
                                         .title = m_title,
                                         .url = {},
                                         .attachments = {},
                                         .defaults = share::NewTaskDefaults::read(*settings)},
                                        list);
    if (auto applied = m_fields.apply(*task, now, localCalendar); !applied)
        return applied;
    if (auto saved = withStoreAdvice(share::saveContext(viewContext)); !saved)
        return saved;
    // The queue holds nothing for a task that did not exist: it is opened
    // only when the new task has a reminder to schedule.
    const std::string taskID[] = {task->taskID().value_or("")};
    if (task->isRemindEnabled() || task->isStartDateRemindEnabled())
        refreshReminders(viewContext, taskID, context.err);
    mirrorToCalendars(viewContext, taskID, context.err, settings);
    if (context.json) {
        platform::JsonWriter json;
        writeTask(json, reportTask(*task, now));
        context.out << json.finish().value();
    } else {
        context.out << task->taskID().value_or("") << '\n';
    }
    return {};
}

} // namespace tasket::apps
