#include "tasket-notifier/reminder_actions.h"

#include "platform/notifications/session_lock.h"
#include "store/lookup.h"
#include "store/records.h"

#include <fmt/format.h>

namespace tasket::apps {
namespace {

using platform::Result;

constexpr std::string_view kStartDatePrefix = "start.Date.";
constexpr std::string_view kMarkAsDone = "Lumenforge.QRX.Tasket.Notification.Action.markAsDone";
constexpr std::string_view kRemindIn15Minutes =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.In1.5Minutes";
constexpr std::string_view kRemindIn1Hour =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.In.1Hour";
constexpr std::string_view kRemindTomorrow =
    "Lumenforge.QRX.Tasket.Notification.Action.Remind.Tomorrow";

// The record a request belongs to: its identifier without the start prefix.
std::string_view recordIdentifier(std::string_view request) {
    if (request.starts_with(kStartDatePrefix))
        request.remove_prefix(kStartDatePrefix.size());
    return request;
}

Result<> markAsDone(store::LocalDataManager& manager, std::string_view identifier) {
    auto& context = *manager.viewContext();
    if (auto task = store::findByIdentifier<store::TK_Task>(context, identifier))
        (*task)->setIsCompleted(true);
    else if (auto subtask = store::findByIdentifier<store::TK_Subtask>(context, identifier))
        (*subtask)->setIsCompleted(true);
    else
        return platform::fail(
            platform::Errc::notFound,
            fmt::format("there is no task or subtask \"{}\" any more", identifier));
    return context.save();
}

// The trigger for `when`, read in `calendar`'s zone (seconds dropped).
platform::CalendarTrigger triggerAt(platform::Date when, const platform::Calendar& calendar) {
    const auto c = calendar.components(when);
    return {.year = c.year, .month = c.month, .day = c.day, .hour = c.hour, .minute = c.minute};
}

// The same request again, later: 15 minutes or an hour from now, or
// tomorrow at the time of day it fired at (for an all-day date that is the
// all-day reminder time it was scheduled with).
Result<> snooze(platform::NotificationQueue& queue, platform::WakeTimer& timer,
                platform::NotificationRequest request, std::string_view action) {
    const auto calendar = timer.calendar();
    const auto now = timer.now();
    if (action == kRemindIn15Minutes) {
        request.trigger = triggerAt(now.addingSeconds(15 * 60), calendar);
    } else if (action == kRemindIn1Hour) {
        request.trigger = triggerAt(now.addingSeconds(60 * 60), calendar);
    } else {
        auto tomorrow = calendar.components(calendar.addingDays(now, 1));
        tomorrow.hour = request.trigger.hour;
        tomorrow.minute = request.trigger.minute;
        tomorrow.second = 0;
        request.trigger = triggerAt(calendar.date(tomorrow), calendar);
    }
    return queue.addNotificationRequest(request);
}

} // namespace

ReminderActions makeReminderActions(NotifierDaemon& daemon) {
    return {
        .rescheduleAll = nullptr,
        .reschedule = nullptr,
        .perform = [&daemon](const platform::NotificationRequest& request,
                             std::string_view action) -> Result<> {
            if (action == kMarkAsDone)
                return markAsDone(*daemon.store(), recordIdentifier(request.identifier));
            if (action == kRemindIn15Minutes || action == kRemindIn1Hour ||
                action == kRemindTomorrow)
                return snooze(daemon.queue(), daemon.timer(), request, action);
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("\"{}\" is not an action of a reminder", action));
        },
        .sessionLocked = platform::sessionIsLocked,
    };
}

} // namespace tasket::apps
