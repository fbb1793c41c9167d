#include "tasket/reminder_scheduling.h"

#include "common/task_report.h"
#include "reminders/calendar_mirror.h"
#include "reminders/calendar_sources.h"
#include "reminders/reminder_store.h"
#include "tasket/store_view.h"

#include <functional>

namespace tasket::apps {

platform::Result<reminders::ReminderQueue> openReminderScheduling() {
    return reminders::openReminderQueue(localCalendar(), openSettings());
}

namespace {

// Runs `pass` in one queue transaction; the store is already saved, so a
// failure is told on `err`.
void runPass(const std::function<
                 platform::Result<reminders::PassCounts>(reminders::NotificationManager&)>& pass,
             std::ostream& err) {
    auto scheduling = openReminderScheduling();
    platform::Result<> done =
        scheduling ? platform::Result<>{} : std::unexpected(scheduling.error());
    if (done)
        done = scheduling->queue->transaction([&]() -> platform::Result<> {
            auto counts = pass(*scheduling->manager);
            return counts ? platform::Result<>{} : std::unexpected(counts.error());
        });
    if (!done)
        err << "tasket: the changes are saved, but their reminders were not scheduled: "
            << done.error().message << '\n';
}

} // namespace

void refreshReminders(objectstore::ObjectContext& context, std::span<const std::string> identifiers,
                      std::ostream& err) {
    if (identifiers.empty())
        return;
    runPass(
        [&](auto& manager) { return reminders::updateReminders(manager, context, identifiers); },
        err);
}

void mirrorToCalendars(objectstore::ObjectContext& context,
                       std::span<const std::string> identifiers, std::ostream& err,
                       std::shared_ptr<settings::CustomizationManager> settings) {
    if (identifiers.empty())
        return;
    if (!settings)
        settings = openSettings();
    if (settings->database() == rules::TK_Database::tasket)
        return;
    auto calendars = reminders::openCalendarStore(*settings);
    platform::Result<> written =
        calendars ? platform::Result<>{} : std::unexpected(calendars.error());
    if (written) {
        reminders::CalendarMirror mirror(*calendars, settings);
        mirror.keepSyncStateIn(reminders::calendarSyncFolder());
        written = mirror.writeTasks(context, identifiers);
    }
    if (!written)
        err << "tasket: the changes are saved, but not written to the calendars (\"tasket "
               "calendars sync\" tries again): "
            << written.error().message << '\n';
}

void refreshAllReminders(objectstore::ObjectContext& context, std::ostream& err) {
    context.performAndWait([&] {
        runPass([&](auto& manager) { return reminders::refreshAll(manager, context); }, err);
    });
}

} // namespace tasket::apps
