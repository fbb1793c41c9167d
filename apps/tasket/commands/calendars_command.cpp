#include "tasket/commands/calendars_command.h"

#include "platform/json_writer.h"
#include "reminders/calendar_mirror.h"
#include "reminders/calendar_sources.h"
#include "settings/settings_catalog.h"
#include "store/application_group.h"
#include "store/lookup.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <filesystem>

namespace tasket::apps {

namespace {

using platform::CalendarEntityType;
using platform::Errc;
using rules::TK_CalendarType;
using rules::TK_Database;
using rules::TK_RemindersDatabaseType;

std::string_view kindName(TK_CalendarType type) {
    return type == TK_CalendarType::reminder ? "reminders"
           : type == TK_CalendarType::event  ? "events"
                                             : "none";
}

} // namespace

const CommandInfo& CalendarsCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "calendars",
        .usage =
            "tasket calendars [list] | sources [FOLDER|URL...] | link LIST --as reminders|events | "
            "unlink LIST | sync [--json]",
        .summary = "Mirror lists into calendars as reminders or events",
        .help = "sources names the vdir folders, or the http(s) URLs of the CalDAV accounts\n"
                "(logins from the keyring, else ~/.netrc), that hold the calendars (each one a "
                "source), or\n"
                "prints them. link mirrors a list as a reminders list or an event calendar,\n"
                "making its calendar and writing its tasks; unlink stops that (the calendar\n"
                "is removed only in the exact mode). sync brings every linked list and its\n"
                "calendar in step, reading back what other calendar programs changed, by the\n"
                "reminders database mode: all (create and update), exact (deletions too) or\n"
                "addOnly (create only). A task that tasket add, edit, done or undone changes\n"
                "in a linked list is written into its calendar at once; a deleted one waits\n"
                "for sync. list prints each linked list with its kind and calendar, then the\n"
                "calendars of the sources.",
    };
    return kInfo;
}

void CalendarsCommand::addOptions(CLI::App& command) {
    command.add_option("action", m_action, "list (the default), sources, link, unlink or sync")
        ->check(CLI::IsMember({"list", "sources", "link", "unlink", "sync"}));
    command.add_option("arguments", m_arguments,
                       "The list (link, unlink) or folders and URLs (sources)");
    command.add_option("--as", m_as, "How link mirrors the list")
        ->check(CLI::IsMember({"reminders", "events"}));
}

platform::Result<void> CalendarsCommand::run(CommandContext& context) {
    const bool takesList = m_action == "link" || m_action == "unlink";
    if (takesList && m_arguments.size() != 1)
        return platform::fail(Errc::invalidArgument,
                              fmt::format("calendars {} takes one list", m_action));
    if (!takesList && m_action != "sources" && !m_arguments.empty())
        return platform::fail(Errc::invalidArgument,
                              fmt::format("calendars {} takes no arguments", m_action));
    if (m_action == "link" && m_as.empty())
        return platform::fail(Errc::invalidArgument,
                              "calendars link needs --as reminders or --as events");
    if (m_action != "link" && !m_as.empty())
        return platform::fail(Errc::invalidArgument, "--as goes with link only");

    auto view = openStoreView(store::collectionKinds({store::CollectionKind::categories}));
    if (!view)
        return std::unexpected(view.error());
    auto& customization = *view->customizationManager;
    if (m_action == "sources") {
        if (m_arguments.empty()) {
            for (const auto& source : customization.value(settings::catalog::calendarSources))
                context.out << source << "\n";
            return {};
        }
        std::vector<std::string> sources;
        for (const auto& folder : m_arguments)
            sources.push_back(folder.find("://") == std::string::npos
                                  ? std::filesystem::absolute(folder).lexically_normal().string()
                                  : folder);
        customization.setValue(settings::catalog::calendarSources,
                               std::span<const std::string>(sources));
        return {};
    }

    auto calendarStore = reminders::openCalendarStore(customization);
    if (!calendarStore)
        return std::unexpected(calendarStore.error());
    reminders::CalendarMirror mirror(*calendarStore, view->customizationManager);
    mirror.keepSyncStateIn(reminders::calendarSyncFolder());
    auto& viewContext = *view->localDataManager->viewContext();
    const auto lists = store::offeredCategories(view->fetchManager->categories().value());

    if (takesList) {
        auto list = store::findList(lists, m_arguments.front());
        if (!list)
            return std::unexpected(list.error());
        const auto type = m_as == "events" ? TK_CalendarType::event : TK_CalendarType::reminder;
        if (m_action == "link") {
            if ((*list)->calendarTypeCase() != type)
                for (const auto& task : (*list)->tasks())
                    task->setCalendarItemIdentifier(std::nullopt);
            (*list)->setCalendarType(type);
            if (customization.database() == TK_Database::tasket)
                customization.setDatabase(customization.remindersDatabaseType() ==
                                                  TK_RemindersDatabaseType::addOnly
                                              ? TK_Database::tasketAndRemindersAddOnly
                                              : TK_Database::tasketAndReminders);
        } else {
            if (customization.remindersDatabaseType() == TK_RemindersDatabaseType::exact)
                if (auto removed = mirror.removeCalendar(**list); !removed)
                    return removed;
            (*list)->setCalendarType(TK_CalendarType::none);
        }
    }
    if (m_action == "link" || m_action == "unlink" || m_action == "sync") {
        auto report = mirror.sync(viewContext);
        if (!report)
            return std::unexpected(report.error());
        if (m_action == "unlink" && customization.remindersLists().empty())
            customization.setDatabase(TK_Database::tasket);
        if (context.json) {
            platform::JsonWriter json;
            json.beginObject()
                .key("lists")
                .integer(report->lists)
                .key("created")
                .integer(report->created)
                .key("updated")
                .integer(report->updated)
                .key("readBack")
                .integer(report->readBack)
                .key("imported")
                .integer(report->imported)
                .key("deleted")
                .integer(report->deleted)
                .key("failed")
                .integer(report->failed)
                .endObject();
            context.out << json.finish().value();
        } else {
            context.out << fmt::format(
                "{} lists: {} created, {} updated, {} read back, {} imported, "
                "{} deleted, {} failed\n",
                report->lists, report->created, report->updated, report->readBack, report->imported,
                report->deleted, report->failed);
        }
        return report->failed == 0
                   ? platform::Result<void>{}
                   : platform::fail(Errc::unavailable,
                                    fmt::format("{} tasks could not be written or read: {}",
                                                report->failed, report->errors.front()));
    }

    // list
    platform::JsonWriter json;
    json.beginObject().key("lists").beginArray();
    for (const auto& list : lists) {
        const auto type = list->calendarTypeCase().value_or(TK_CalendarType::none);
        if (type == TK_CalendarType::none)
            continue;
        const auto calendar = list->calendarIdentifier().value_or("");
        if (context.json)
            json.beginObject()
                .key("id")
                .string(list->categoryID().value_or(""))
                .key("title")
                .string(list->title().value_or(""))
                .key("as")
                .string(kindName(type))
                .key("calendar")
                .string(calendar)
                .endObject();
        else
            context.out << fmt::format("{}\t{}\t{}\n", list->title().value_or(""), kindName(type),
                                       calendar);
    }
    json.endArray().key("calendars").beginArray();
    for (const auto kind : {CalendarEntityType::reminder, CalendarEntityType::event})
        for (const auto& calendar : (*calendarStore)->calendars(kind)) {
            const auto name = kind == CalendarEntityType::reminder ? "reminders" : "events";
            if (context.json)
                json.beginObject()
                    .key("id")
                    .string(calendar.identifier)
                    .key("title")
                    .string(calendar.title)
                    .key("holds")
                    .string(name)
                    .key("source")
                    .string(calendar.sourceIdentifier)
                    .endObject();
            else
                context.out << fmt::format("calendar\t{}\t{}\t{}\t{}\n", calendar.title, name,
                                           calendar.identifier, calendar.sourceIdentifier);
        }
    if (context.json)
        context.out << json.endArray().endObject().finish().value();
    return {};
}

} // namespace tasket::apps
