#include "tasket-notifier/reminder_actions.h"

#include "platform/notifications/session_lock.h"
#include "platform/preferences/file_preferences_suite.h"
#include "reminders/reminder_store.h"
#include "settings/customization_manager.h"
#include "settings/settings_keys.h"
#include "store/lookup.h"
#include "store/records.h"

#include <fmt/format.h>

#include <set>

namespace tasket::apps {
namespace {

using platform::Result;

// The record identifiers of the tasks and subtasks `changes` inserted or
// updated, as `context` reads them.
std::set<std::string> changedRecords(objectstore::ObjectContext& context,
                                     const objectstore::ChangeSet& changes) {
    std::set<std::string> identifiers;
    const auto add = [&](const objectstore::ObjectID& id) {
        const auto object = context.existingObject(id);
        if (!object)
            return;
        if (const auto task = std::dynamic_pointer_cast<store::TK_Task>(*object))
            identifiers.insert(task->taskID().value_or(""));
        else if (const auto subtask = std::dynamic_pointer_cast<store::TK_Subtask>(*object))
            identifiers.insert(subtask->subtaskID().value_or(""));
    };
    for (const auto& id : changes.inserted)
        add(id);
    for (const auto& updated : changes.updated)
        add(updated.id);
    identifiers.erase("");
    return identifiers;
}

// A deleted record can no longer be read, so its identifier is found the
// other way round: the queued and shown reminders whose record is gone.
std::set<std::string> goneRecords(objectstore::ObjectContext& context,
                                  const platform::NotificationQueue& queue) {
    std::set<std::string> named;
    if (auto pending = queue.pendingNotificationRequests())
        for (const auto& request : *pending)
            named.insert(reminders::recordOfRequest(request.identifier).first);
    if (auto delivered = queue.deliveredNotifications())
        for (const auto& notification : *delivered)
            named.insert(reminders::recordOfRequest(notification.request.identifier).first);
    std::set<std::string> gone;
    for (const auto& identifier : named)
        if (!store::findByIdentifier<store::TK_Task>(context, identifier) &&
            !store::findByIdentifier<store::TK_Subtask>(context, identifier))
            gone.insert(identifier);
    return gone;
}

struct Reminders {
    NotifierDaemon& daemon;
    std::shared_ptr<settings::CustomizationManager> settings;

    // Made for each use, so that it reads dates in the zone in force then.
    reminders::NotificationManager manager() const {
        return reminders::notificationManager(daemon.queue(), daemon.timer().calendar(), settings);
    }
};

} // namespace

ReminderActions makeReminderActions(NotifierDaemon& daemon) {
    auto reminders =
        std::make_shared<Reminders>(daemon, std::make_shared<settings::CustomizationManager>(
                                                platform::FilePreferencesSuite::inConfigHome(
                                                    std::string(settings::keys::kAppGroupSuite)),
                                                platform::FilePreferencesSuite::inConfigHome(
                                                    std::string(settings::keys::kStandardSuite))));
    return {
        .rescheduleAll = [reminders]() -> Result<> {
            auto manager = reminders->manager();
            if (auto registered = manager.registerCategories(); !registered)
                return registered;
            auto passed =
                reminders::rescheduleAll(manager, *reminders->daemon.store()->viewContext());
            return passed ? Result<>{} : std::unexpected(passed.error());
        },
        .reschedule = [reminders](const objectstore::ChangeSet& changes) -> Result<> {
            auto& context = *reminders->daemon.store()->viewContext();
            auto identifiers = changedRecords(context, changes);
            if (!changes.deleted.empty())
                identifiers.merge(goneRecords(context, reminders->daemon.queue()));
            const std::vector<std::string> list(identifiers.begin(), identifiers.end());
            auto manager = reminders->manager();
            auto passed = reminders::updateReminders(manager, context, list);
            return passed ? Result<>{} : std::unexpected(passed.error());
        },
        .perform = [reminders](const platform::NotificationRequest& request,
                               std::string_view action) -> Result<> {
            const auto response = reminders::responseOfAction(action);
            if (!response)
                return platform::fail(platform::Errc::invalidArgument,
                                      fmt::format("\"{}\" is not an action of a reminder", action));
            auto manager = reminders->manager();
            return reminders::answer(manager, *reminders->daemon.store()->viewContext(), request,
                                     *response, reminders->daemon.timer().now());
        },
        .sessionLocked = platform::sessionIsLocked,
    };
}

} // namespace tasket::apps
