// What the daemon does with the store when reminders change or an action is
// chosen, over the reminder logic of the library (NotificationManager) and
// the queue: the full pass, the pass over changed records, Mark as Done and
// the snoozes, and whether the session is locked (logind).
#pragma once

#include "tasket-notifier/notifier_daemon.h"

namespace tasket::apps {

[[nodiscard]] ReminderActions makeReminderActions(NotifierDaemon& daemon);

} // namespace tasket::apps
