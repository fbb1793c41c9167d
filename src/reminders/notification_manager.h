// Reminders as scheduled notifications. Every task and subtask carries two
// reminders, one at its start date and one at its due date; each one that
// is switched on becomes one pending request of the user-notification
// center, named by the record's identifier (due) or "start.Date." and the
// identifier (start). The manager keeps no record of what it scheduled:
// the center is the only store of pending requests, and those names are
// the only link back to the records, so scheduling always replaces by name
// and clean-up always removes by name.
//
// The manager works on snapshots of the records (TK_SharedTask,
// TK_SharedSubtask), never on live store objects; reminder_snapshots.h
// takes them from the store.
#pragma once

#include "platform/calendar.h"
#include "platform/notifications/user_notification_center.h"
#include "platform/text_catalogue.h"
#include "settings/setting.h"
#include "transfer/shared_records.h"

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::reminders {

using platform::Result;

enum class ReminderKind { start, due };

/// The record that owns a reminder's record, named in the subtitle: the
/// list of a task, or the task of a subtask.
struct ReminderOwner {
    std::string identifier;
    std::optional<std::string> title;
};

/// A task snapshot with its list, as the per-record pass takes it.
struct TaskReminders {
    transfer::TK_SharedTask task;
    std::optional<ReminderOwner> list;
};
/// A subtask snapshot with its task.
struct SubtaskReminders {
    transfer::TK_SharedSubtask subtask;
    std::optional<ReminderOwner> task;
};

/// One action of the reminder category, as data.
struct ReminderAction {
    std::string_view identifier;
    platform::Text title;
    std::string_view iconName;
};

/// The identifier prefix of a start-date request.
inline constexpr std::string_view kStartDateRequestPrefix = "start.Date.";

/// The four actions of a delivered reminder, in the order they are shown.
/// The identifiers are matched byte for byte by whoever answers them, the
/// irregular ones included ("Remind.In1.5Minutes" stands for fifteen
/// minutes; "Remind.In.1Hour" has a point after "In").
inline constexpr std::string_view kMarkAsDoneAction =
    "Lumenforge.QRX.Tasket.Notification.Action.markAsDone";
inline constexpr std::string_view kRemindIn15MinutesAction =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.In1.5Minutes";
inline constexpr std::string_view kRemindIn1HourAction =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.In.1Hour";
inline constexpr std::string_view kRemindTomorrowAction =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.Tomorrow";

/// The request identifier of `recordID`'s reminder of `kind`.
[[nodiscard]] std::string requestIdentifier(std::string_view recordID, ReminderKind kind);
/// The record identifier and reminder kind a request identifier names.
[[nodiscard]] std::pair<std::string, ReminderKind>
recordOfRequest(std::string_view requestIdentifier);

class NotificationManager {
  public:
    static constexpr std::string_view calendarNotificationCategoryIdentifier =
        "Lumenforge.QRX.Tasket.Notification.Action.Calendar.Notification.Category";

    /// The category's actions (see the constants above).
    static const std::array<ReminderAction, 4>& reminderActions();

    /// Schedules into `center`, reading dates in `calendar` and the time
    /// all-day reminders fire at from `allDayReminderTime` (asked each time,
    /// so a changed setting counts from the next request on).
    NotificationManager(platform::UserNotificationCenter& center, platform::Calendar calendar,
                        std::function<settings::TimeOfDay()> allDayReminderTime);

    [[nodiscard]] platform::UserNotificationCenter& center() const { return *m_center; }
    [[nodiscard]] const platform::Calendar& calendar() const { return m_calendar; }
    [[nodiscard]] settings::TimeOfDay allDayReminderTime() const { return m_allDayReminderTime(); }

    /// Installs the one category with its four actions in place of whatever
    /// set was installed; may run any number of times.
    [[nodiscard]] Result<> registerCategories();

    // ---- One request ------------------------------------------------------------------
    /// The request for `task`'s reminder of `kind`; nullopt when that
    /// reminder has no date to fire at.
    [[nodiscard]] std::optional<platform::NotificationRequest> request(const TaskReminders& task,
                                                                       ReminderKind kind) const;
    [[nodiscard]] std::optional<platform::NotificationRequest>
    request(const SubtaskReminders& subtask, ReminderKind kind) const;

    /// Builds the request and, with `submitNow`, adds it to the center (a
    /// due-date request registers the categories first). Returns the
    /// request, nullopt when the reminder has no date (nothing added).
    [[nodiscard]] Result<std::optional<platform::NotificationRequest>>
    schedule(const TaskReminders& task, ReminderKind kind, bool submitNow);
    [[nodiscard]] Result<std::optional<platform::NotificationRequest>>
    schedule(const SubtaskReminders& subtask, ReminderKind kind, bool submitNow);

    /// Removes the pending requests `identifiers`; with `alsoDelivered`, the
    /// delivered notifications of the same names too, and the badge count
    /// goes to 0.
    [[nodiscard]] Result<> removeReminders(std::span<const std::string> identifiers,
                                           bool alsoDelivered);

    // ---- The per-record pass ------------------------------------------------------------
    /// For each record in order: one neither completed nor archived has each
    /// reminder that is off removed and each one that is on scheduled; one
    /// completed or archived has both removed. Each removal names one
    /// request (and with `alsoDelivered` its delivered notification, then a
    /// badge count of 0).
    [[nodiscard]] Result<> update(std::span<const TaskReminders> tasks, bool alsoDelivered = false);
    [[nodiscard]] Result<> update(std::span<const SubtaskReminders> subtasks,
                                  bool alsoDelivered = false);

  private:
    template <class R>
    std::optional<platform::NotificationRequest>
    buildRequest(const R& record, const std::optional<ReminderOwner>& owner,
                 std::string_view ownerFallback, std::string_view bodyFallback,
                 ReminderKind kind) const;
    template <class Reminders>
    Result<std::optional<platform::NotificationRequest>>
    scheduleOne(const Reminders& record, ReminderKind kind, bool submitNow);
    template <class Reminders>
    Result<> updateAll(std::span<const Reminders> records, bool alsoDelivered);

    platform::UserNotificationCenter* m_center;
    platform::Calendar m_calendar;
    std::function<settings::TimeOfDay()> m_allDayReminderTime;
};

} // namespace tasket::reminders
