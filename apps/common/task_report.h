// A task as both programs print it: identifier, title, link, list and
// attachments (name, extension, size), as text for people or as members
// of a JSON object for --json.
#pragma once

#include "platform/json_writer.h"
#include "store/records.h"

#include <cstdint>
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

struct TaskReport {
    std::string taskID;
    std::string title;
    std::string url;
    std::string list;
    std::string listID;
    bool isCompleted = false;
    double whenCreated = 0; // seconds since 2001-01-01 UTC
    std::vector<AttachmentReport> attachments;
};

/// What `task` holds now (read on its context's queue); attachments in
/// sort order.
TaskReport reportTask(const store::TK_Task& task);

/// The report's members, into an object the caller has opened.
void writeTaskMembers(platform::JsonWriter& json, const TaskReport& task);
/// The report as an object.
void writeTask(platform::JsonWriter& json, const TaskReport& task);
/// A few lines for people, each ending in a newline.
std::string describeTask(const TaskReport& task);

} // namespace tasket::apps
