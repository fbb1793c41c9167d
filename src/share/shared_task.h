// The task Done creates: its identity, text, link and attachments in the
// chosen list, with the defaults a new task takes from the settings, and
// the save that writes it.
#pragma once

#include "objectstore/object_context.h"
#include "platform/date.h"
#include "platform/error.h"
#include "settings/customization_manager.h"
#include "share/attachment_payload.h"
#include "store/records.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::share {

/// What a new task takes from the settings: whether its due and start
/// dates, once given, are all-day dates.
struct NewTaskDefaults {
    bool isAllDay = true;
    bool isStartDateAllDay = true;

    static NewTaskDefaults read(const settings::CustomizationManager& customizationManager);
};

struct NewSharedTask {
    std::string taskID;
    platform::Date whenCreated;
    std::string title;
    std::string url; // empty: no link
    std::vector<AttachmentPayload> attachments;
    NewTaskDefaults defaults;
};

/// Inserts the task into `category`'s context, in `category`, with one
/// TK_Attachment per payload (in order, sortIndex counting from 0). Not saved.
std::shared_ptr<store::TK_Task>
insertSharedTask(NewSharedTask task, const std::shared_ptr<store::TK_Category>& category);

/// Whether `text` can be a task's text: well-formed UTF-8 (any script,
/// emoji, right-to-left marks) without NUL bytes, which the store's text
/// cannot carry. Fails with invalidArgument saying where it went wrong.
[[nodiscard]] platform::Result<void> checkTaskText(std::string_view text);

/// Saves `context` when it has changes; does nothing otherwise. The save's
/// error is handed back as it is (no retry, no rollback).
[[nodiscard]] platform::Result<void> saveContext(objectstore::ObjectContext& context);

} // namespace tasket::share
