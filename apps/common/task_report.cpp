#include "common/task_report.h"

#include "platform/date_text.h"
#include "rules/enum_table.h"
#include "rules/texts.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace tasket::apps {

const platform::Calendar& localCalendar() {
    static const platform::Calendar calendar = platform::Calendar::current();
    return calendar;
}

std::string dateText(const std::optional<ReportedDate>& date) {
    if (!date)
        return {};
    return date->allDay ? platform::isoDay(date->date, localCalendar())
                        : platform::isoDateTime(date->date, localCalendar());
}

namespace {

std::optional<ReportedDate> reported(const std::optional<platform::Date>& date, bool allDay) {
    if (!date)
        return std::nullopt;
    return ReportedDate{*date, allDay};
}

} // namespace

TaskReport reportTask(const store::TK_Task& task, platform::Date now) {
    TaskReport report{
        .taskID = task.taskID().value_or(""),
        .title = task.title().value_or(""),
        .url = task.url().value_or(""),
        .list = {},
        .listID = {},
        .isCompleted = task.isCompleted(),
        .isPinned = task.isPinned(),
        .whenCreated = task.whenCreated(),
        .note = task.note().value_or(""),
        .due = {},
        .start = {},
        .isOverdue = false,
        .tags = {},
        .priority = {},
        .status = {},
        .attachments = {},
    };
    if (task.isRemindEnabled()) {
        const auto due = task.dueDateAndTime() ? task.dueDateAndTime() : task.dueDate();
        report.due = reported(due, task.isAllDay());
        report.isOverdue = due && *due < now && !task.isCompleted();
    }
    if (task.isStartDateRemindEnabled())
        report.start =
            reported(task.startDateAndTime() ? task.startDateAndTime() : task.startDate(),
                     task.isStartDateAllDay());
    for (const auto& tag : task.tags())
        report.tags.push_back(tag->title().value_or(""));
    std::ranges::sort(report.tags);
    if (const auto priority = task.customPriority())
        report.priority = priority->title().value_or("");
    if (const auto status = task.customStatus())
        report.status = status->title().value_or("");
    if (const auto list = task.category()) {
        report.list = list->title().value_or("");
        report.listID = list->categoryID().value_or("");
    }
    auto attachments = task.attachmentsArray();
    std::ranges::stable_sort(attachments, {}, [](const auto& a) { return a->sortIndex(); });
    for (const auto& attachment : attachments) {
        const auto kind = attachment->typeCase();
        report.attachments.push_back({
            .identifier = attachment->identifier().value_or(""),
            .title = attachment->title().value_or(""),
            .fileExtension = attachment->fileExtension().value_or(""),
            .type = kind ? std::string(rules::caseName(*kind)) : std::string("none"),
            .size = attachment->content() ? attachment->content()->size() : 0,
        });
    }
    return report;
}

void writeTaskMembers(platform::JsonWriter& json, const TaskReport& task) {
    json.key("taskID").string(task.taskID);
    json.key("title").string(task.title);
    json.key("url");
    if (task.url.empty())
        json.null();
    else
        json.string(task.url);
    json.key("list").string(task.list);
    json.key("listID").string(task.listID);
    json.key("isCompleted").boolean(task.isCompleted);
    json.key("isPinned").boolean(task.isPinned);
    json.key("whenCreated")
        .string(task.whenCreated ? platform::isoDateTime(*task.whenCreated, localCalendar()) : "");
    const auto optionalText = [&json](std::string_view key, const std::string& text) {
        json.key(key);
        if (text.empty())
            json.null();
        else
            json.string(text);
    };
    optionalText("note", task.note);
    optionalText("due", dateText(task.due));
    optionalText("start", dateText(task.start));
    json.key("tags").beginArray();
    for (const auto& tag : task.tags)
        json.string(tag);
    json.endArray();
    optionalText("priority", task.priority);
    optionalText("status", task.status);
    json.key("attachments").beginArray();
    for (const AttachmentReport& attachment : task.attachments) {
        json.beginObject()
            .key("identifier")
            .string(attachment.identifier)
            .key("title")
            .string(attachment.title)
            .key("fileExtension")
            .string(attachment.fileExtension)
            .key("type")
            .string(attachment.type)
            .key("size")
            .integer(static_cast<std::int64_t>(attachment.size))
            .endObject();
    }
    json.endArray();
}

void writeTask(platform::JsonWriter& json, const TaskReport& task) {
    json.beginObject();
    writeTaskMembers(json, task);
    json.endObject();
}

std::string describeTask(const TaskReport& task) {
    std::string text =
        fmt::format("{}\n  id:    {}\n  list:  {}\n",
                    task.title.empty() ? rules::texts::kNewTask.translated() : task.title,
                    task.taskID, task.list);
    const auto line = [&text](std::string_view label, const std::string& value) {
        if (!value.empty())
            text += fmt::format("  {:<6} {}\n", label, value);
    };
    line("link:", task.url);
    line("due:", dateText(task.due));
    line("start:", dateText(task.start));
    line("tags:", fmt::format("{}", fmt::join(task.tags, ", ")));
    line("prio:", task.priority);
    line("status:", task.status);
    line("note:", task.note);
    if (task.isCompleted)
        text += "  done\n";
    for (const AttachmentReport& attachment : task.attachments) {
        const std::string name =
            attachment.fileExtension.empty()
                ? attachment.title
                : fmt::format("{}.{}", attachment.title, attachment.fileExtension);
        text += fmt::format("  attachment: {} ({}, {} bytes)\n", name.empty() ? "(untitled)" : name,
                            attachment.type, attachment.size);
    }
    return text;
}

} // namespace tasket::apps
