#include "tasket/commands/reminders_command.h"

#include "common/task_report.h"
#include "platform/date_text.h"
#include "platform/json_writer.h"
#include "reminders/reminder_store.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace tasket::apps {

namespace {

std::string_view levelName(platform::InterruptionLevel level) {
    switch (level) {
    case platform::InterruptionLevel::passive: return "passive";
    case platform::InterruptionLevel::timeSensitive: return "timeSensitive";
    case platform::InterruptionLevel::active: break;
    }
    return "active";
}

platform::Result<void> list(CommandContext& context, platform::NotificationQueue& queue) {
    auto queued = queue.queued();
    if (!queued)
        return std::unexpected(queued.error());
    const auto& calendar = localCalendar();
    std::vector<std::pair<platform::Date, const platform::NotificationRequest*>> rows;
    for (const auto& q : *queued)
        rows.emplace_back(platform::triggerDate(q.request.trigger, calendar), &q.request);
    std::ranges::stable_sort(rows, {}, &decltype(rows)::value_type::first);

    platform::JsonWriter json;
    json.beginArray();
    for (const auto& [when, request] : rows) {
        const auto [recordID, kind] = reminders::recordOfRequest(request->identifier);
        const std::string_view kindName = kind == reminders::ReminderKind::start ? "start" : "due";
        const auto& content = request->content;
        if (!context.json) {
            context.out << fmt::format("{}\t{}\t{}\t{}\n", platform::isoDateTime(when, calendar),
                                       kindName, recordID, content.body);
            continue;
        }
        json.beginObject()
            .key("identifier")
            .string(request->identifier)
            .key("recordID")
            .string(recordID)
            .key("kind")
            .string(kindName)
            .key("fireDate")
            .string(platform::isoDateTime(when, calendar))
            .key("title")
            .string(content.title)
            .key("subtitle")
            .string(content.subtitle)
            .key("body")
            .string(content.body)
            .key("interruptionLevel")
            .string(levelName(content.interruptionLevel))
            .key("userInfo")
            .beginObject();
        for (const auto& [key, value] : content.userInfo)
            json.key(key).string(value);
        json.endObject().endObject();
    }
    if (context.json)
        context.out << json.endArray().finish().value();
    return {};
}

} // namespace

const CommandInfo& RemindersCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "reminders",
        .usage = "tasket reminders [list | reschedule | remove ID... [--delivered]] [--json]",
        .summary = "List, reschedule or remove the pending reminders",
        .help =
            "list prints the pending reminders, the next first: when it fires (ISO 8601,\n"
            "local time), start or due, the task's identifier and its title; with --json,\n"
            "an array of {\"identifier\", \"recordID\", \"kind\", \"fireDate\", \"title\",\n"
            "\"subtitle\", \"body\", \"interruptionLevel\", \"userInfo\"}. reschedule schedules\n"
            "again every task and subtask with a reminder on whose start date is not after\n"
            "its due date. remove takes reminders away: ID is a reminder's identifier as\n"
            "list --json prints it, or a task's, which names both its reminders; with\n"
            "--delivered, the notifications already shown go too and the badge is cleared.",
    };
    return kInfo;
}

void RemindersCommand::addOptions(CLI::App& command) {
    command.add_option("action", m_action, "list (the default), reschedule or remove")
        ->check(CLI::IsMember({"list", "reschedule", "remove"}));
    command.add_option("ID", m_identifiers, "The reminders to remove (remove)");
    command.add_flag("--delivered", m_delivered, "Remove the delivered notifications too (remove)");
}

platform::Result<void> RemindersCommand::run(CommandContext& context) {
    if (m_action != "remove" && (!m_identifiers.empty() || m_delivered))
        return platform::fail(platform::Errc::invalidArgument,
                              fmt::format("reminders {} takes no identifiers", m_action));
    if (m_action == "remove" && m_identifiers.empty())
        return platform::fail(platform::Errc::invalidArgument,
                              "reminders remove needs at least one identifier");
    auto scheduling = openReminderScheduling();
    if (!scheduling)
        return std::unexpected(scheduling.error());
    if (m_action == "list")
        return list(context, *scheduling->queue);

    if (m_action == "remove") {
        std::vector<std::string> identifiers;
        for (const auto& id : m_identifiers) {
            identifiers.push_back(id);
            if (reminders::recordOfRequest(id).second == reminders::ReminderKind::due)
                identifiers.push_back(
                    reminders::requestIdentifier(id, reminders::ReminderKind::start));
        }
        return scheduling->queue->transaction(
            [&] { return scheduling->manager->removeReminders(identifiers, m_delivered); });
    }

    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    reminders::PassCounts counts;
    auto done = scheduling->queue->transaction([&]() -> platform::Result<> {
        auto passed = reminders::rescheduleAll(*scheduling->manager, viewContext);
        if (!passed)
            return std::unexpected(passed.error());
        counts = *passed;
        return {};
    });
    if (!done)
        return done;
    if (context.json)
        context.out << fmt::format("{{\n  \"tasks\": {},\n  \"subtasks\": {}\n}}\n", counts.tasks,
                                   counts.subtasks);
    else
        context.out << fmt::format("rescheduled {} tasks and {} subtasks\n", counts.tasks,
                                   counts.subtasks);
    return {};
}

} // namespace tasket::apps
