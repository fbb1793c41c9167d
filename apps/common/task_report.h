// A task as both programs print it: identifier, title, link, list, dates,
// tags, priority, status and attachments (name, extension, size), as text
// for people or as members of a JSON object for --json. Dates are kept as
// instants and written as ISO 8601 in the local zone (a day alone for an
// all-day date), so a report that prints none never loads the zone's rules.
#pragma once

#include "platform/calendar.h"
#include "platform/json_writer.h"
#include "store/records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tasket::apps {

struct AttachmentReport {
    std::string identifier;
    std::string title;
    std::string fileExtension;
    std::string type; // the attachment kind's name: "file", "image", "none"
    std::uint64_t size = 0;
};

/// A due or start date and whether it stands for a whole day.
struct ReportedDate {
    platform::Date date;
    bool allDay = false;
};

struct TaskReport {
    std::string taskID;
    std::string title;
    std::string url;
    std::string list;
    std::string listID;
    bool isCompleted = false;
    bool isPinned = false;
    std::optional<platform::Date> whenCreated;
    std::string note;
    std::optional<ReportedDate> due;
    std::optional<ReportedDate> start;
    bool isOverdue = false;
    std::vector<std::string> tags; // titles
    std::string priority;
    std::string status;
    std::vector<AttachmentReport> attachments;
};

/// The calendar of the zone this process runs in, made once.
const platform::Calendar& localCalendar();

/// The relationships of a task that reportTask() reads: a fetch of tasks
/// to report loads them with each batch.
inline const std::vector<std::string> kReportedRelationships{"tags", "attachmentsArray", "category",
                                                             "customPriority", "customStatus"};
/// The attributes of a task that reportTask() reads: a fetch of tasks to
/// report reads only these (another one touched reads the rest).
// clang-format off
inline const std::vector<std::string> kReportedAttributes{
    "taskID", "title", "url", "isCompleted", "isPinned", "whenCreated", "note",
    "isRemindEnabled", "dueDateAndTime", "dueDate", "isAllDay",
    "isStartDateRemindEnabled", "startDateAndTime", "startDate", "isStartDateAllDay"};
// clang-format on

/// What `task` holds now (read on its context's queue), judged overdue
/// against `now`; attachments in sort order.
TaskReport
reportTask(const store::TK_Task& task,
           platform::Date now = platform::Date::fromSystem(std::chrono::system_clock::now()));

/// `date` as people read it, in the local zone; empty for none.
std::string dateText(const std::optional<ReportedDate>& date);

/// The report's members, into an object the caller has opened.
void writeTaskMembers(platform::JsonWriter& json, const TaskReport& task);
/// The report as an object.
void writeTask(platform::JsonWriter& json, const TaskReport& task);
/// A few lines for people, each ending in a newline.
std::string describeTask(const TaskReport& task);

} // namespace tasket::apps
