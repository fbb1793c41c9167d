#include "common/task_report.h"

#include "rules/enum_table.h"
#include "store/untitled.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::apps {

TaskReport reportTask(const store::TK_Task& task) {
    TaskReport report{
        .taskID = task.taskID().value_or(""),
        .title = task.title().value_or(""),
        .url = task.url().value_or(""),
        .list = {},
        .listID = {},
        .isCompleted = task.isCompleted(),
        .whenCreated = task.whenCreated().value_or(platform::Date{}).secondsSinceReference,
        .attachments = {},
    };
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

void writeTaskMembers(JsonWriter& json, const TaskReport& task) {
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
    json.key("whenCreated").number(task.whenCreated);
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

void writeTask(JsonWriter& json, const TaskReport& task) {
    json.beginObject();
    writeTaskMembers(json, task);
    json.endObject();
}

std::string describeTask(const TaskReport& task) {
    std::string text =
        fmt::format("{}\n  id:    {}\n  list:  {}\n",
                    task.title.empty() ? store::kNewTaskTitle : task.title, task.taskID, task.list);
    if (!task.url.empty())
        text += fmt::format("  link:  {}\n", task.url);
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
