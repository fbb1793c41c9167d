// Reminders and the store: snapshots of tasks and subtasks with their
// owners, the full reschedule pass, the pass for records named by their
// identifiers (after a write), and the answers to a delivered reminder's
// actions (Mark as Done, and the three snoozes).
#pragma once

#include "objectstore/object_context.h"
#include "platform/notifications/notification_queue.h"
#include "reminders/notification_manager.h"
#include "settings/customization_manager.h"
#include "store/records.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace tasket::reminders {

// ---- The user's reminder queue -------------------------------------------------------

/// A manager over `center` that reads dates in `calendar` and the all-day
/// reminder time from `settings` (asked each time).
[[nodiscard]] NotificationManager
notificationManager(platform::UserNotificationCenter& center, platform::Calendar calendar,
                    std::shared_ptr<settings::CustomizationManager> settings);

struct ReminderQueue {
    std::unique_ptr<platform::NotificationQueue> queue;
    std::unique_ptr<NotificationManager> manager;
};

/// Opens the reminder queue of the group container (creating it when
/// absent) with a manager over it, as `notificationManager` makes it.
[[nodiscard]] Result<ReminderQueue>
openReminderQueue(platform::Calendar calendar,
                  std::shared_ptr<settings::CustomizationManager> settings);

// ---- The passes over the store --------------------------------------------------------

/// The records the full pass reschedules: a reminder switched on, and a
/// start date not after the due date. A comparison with a missing date is
/// false, so a record without both dates is left out; its requests stay as
/// they were.
inline constexpr std::string_view kReschedulePredicate =
    "(isStartDateRemindEnabled = true OR isRemindEnabled = true) AND startDate <= dueDate";

/// The snapshot of `task` with its list; of `subtask` with its task.
[[nodiscard]] TaskReminders taskReminders(const store::TK_Task& task);
[[nodiscard]] SubtaskReminders subtaskReminders(const store::TK_Subtask& subtask);

/// The fetches of the full pass, in the store's own order.
[[nodiscard]] objectstore::FetchRequest rescheduleTasksRequest();
[[nodiscard]] objectstore::FetchRequest rescheduleSubtasksRequest();

struct PassCounts {
    std::size_t tasks = 0;
    std::size_t subtasks = 0;
};

/// Runs the per-record pass on every task and then every subtask the
/// reschedule fetches select in `context`.
[[nodiscard]] Result<PassCounts> rescheduleAll(NotificationManager& manager,
                                               objectstore::ObjectContext& context);

/// Those of `identifiers` that name a task or subtask with its start or due
/// reminder switched on, in their order: after an insert, the only records
/// the per-record pass has anything to do for.
[[nodiscard]] Result<std::vector<std::string>>
withReminderSwitchedOn(objectstore::ObjectContext& context,
                       std::span<const std::string> identifiers);

/// Runs the per-record pass on the tasks and subtasks named by
/// `identifiers` as `context` sees them; an identifier that names neither
/// (a record deleted) has both its requests removed.
[[nodiscard]] Result<PassCounts> updateReminders(NotificationManager& manager,
                                                 objectstore::ObjectContext& context,
                                                 std::span<const std::string> identifiers,
                                                 bool alsoDelivered = false);

/// Brings the requests in line with the whole store (after an import, say):
/// the per-record pass on every record with a reminder on, whatever its
/// dates, and on every record a pending request names.
[[nodiscard]] Result<PassCounts> refreshAll(NotificationManager& manager,
                                            objectstore::ObjectContext& context);

// ---- Answering a delivered reminder ----------------------------------------------------

enum class ReminderResponse { markAsDone, remindIn15Minutes, remindIn1Hour, remindTomorrow };

/// The response an action identifier stands for, matched byte for byte.
[[nodiscard]] std::optional<ReminderResponse> responseOfAction(std::string_view actionIdentifier);

/// The same request snoozed from `now`: 15 minutes or an hour later, or
/// tomorrow at the request's own time of day (`allDayTime` instead when
/// given, for a reminder of an all-day date). Seconds are dropped.
[[nodiscard]] platform::NotificationRequest snoozed(const platform::NotificationRequest& request,
                                                    ReminderResponse response, platform::Date now,
                                                    const platform::Calendar& calendar,
                                                    std::optional<settings::TimeOfDay> allDayTime);

/// Answers `response` to the delivered request `request`: Mark as Done
/// completes its task or subtask, saves `context` and runs the pass for it
/// with its delivered notifications (a record deleted meanwhile: its
/// requests and notifications are removed, nothing else); a snooze adds the
/// snoozed request under the same identifier and removes the delivered
/// notification.
[[nodiscard]] Result<> answer(NotificationManager& manager, objectstore::ObjectContext& context,
                              const platform::NotificationRequest& request,
                              ReminderResponse response, platform::Date now);

} // namespace tasket::reminders
