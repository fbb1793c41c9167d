// The reminder queue of the user's group container as the commands use it:
// opened with a NotificationManager that reads the user's all-day reminder
// time, and the per-record pass every write that changes reminder fields
// runs, so the queue always matches the store; and the same writes carried
// into mirrored calendars.
#pragma once

#include "objectstore/object_context.h"
#include "reminders/reminder_store.h"
#include "settings/customization_manager.h"

#include <memory>
#include <ostream>
#include <span>
#include <string>

namespace tasket::apps {

/// Opens the queue in the group container (creating it when absent), with
/// a manager reading the local calendar and the user's settings.
[[nodiscard]] platform::Result<reminders::ReminderQueue> openReminderScheduling();

/// Runs the per-record pass for the tasks and subtasks `identifiers` name
/// (deleted ones lose their requests), in one queue transaction. The store
/// is already saved, so a failure is told on `err` rather than failing the
/// command.
void refreshReminders(objectstore::ObjectContext& context, std::span<const std::string> identifiers,
                      std::ostream& err);

/// Writes the tasks `identifiers` name into their lists' calendars when
/// the settings mirror lists (their database is not Tasket alone), with the
/// sync state the mirror keeps: a change is in its calendar at once, one
/// write per task. `settings` when already open. The store is already
/// saved, so a failure is told on `err`.
void mirrorToCalendars(objectstore::ObjectContext& context,
                       std::span<const std::string> identifiers, std::ostream& err,
                       std::shared_ptr<settings::CustomizationManager> settings = nullptr);

/// The same for every record with a reminder on and every record a pending
/// request names (after an import), on `context`'s queue.
void refreshAllReminders(objectstore::ObjectContext& context, std::ostream& err);

} // namespace tasket::apps
