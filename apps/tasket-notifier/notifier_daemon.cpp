#include "tasket-notifier/notifier_daemon.h"

#include "cloud/persistent_history_processor.h"
#include "objectstore/object_context.h"
#include "platform/main_queue.h"
#include "store/application_group.h"
#include "store/tk_data_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>

namespace tasket::apps {
namespace {

using platform::Date;
using platform::Result;

constexpr std::string_view kApplicationName = "Tasket";

// The fields of a task or subtask that a request is built from; a change to
// any other field leaves its reminders as they are.
constexpr std::array<std::string_view, 23> kReminderFields{
    "taskID",
    "subtaskID",
    "title",
    "isCompleted",
    "isArchived",
    "category",
    "task",
    "isStartDateRemindEnabled",
    "startDate",
    "startTime",
    "startDateAndTime",
    "isStartDateAllDay",
    "startDateReminderInterruptionLevel",
    "isRemindEnabled",
    "dueDate",
    "dueTime",
    "dueDateAndTime",
    "isAllDay",
    "reminderInterruptionLevel",
    "doesRemindRepeat",
    "repeatFrequency",
    "repeatIntervalType",
    "isRecurringSinceLastCompletion",
};

bool touchesReminder(const objectstore::UpdatedObject& updated) {
    // An update whose properties are not known may have touched anything.
    return updated.changedProperties.empty() ||
           std::ranges::any_of(updated.changedProperties, [](const std::string& property) {
               return std::ranges::find(kReminderFields, property) != kReminderFields.end();
           });
}

platform::Urgency urgencyFor(platform::InterruptionLevel level) {
    switch (level) {
    case platform::InterruptionLevel::passive: return platform::Urgency::low;
    case platform::InterruptionLevel::timeSensitive: return platform::Urgency::critical;
    case platform::InterruptionLevel::active: break;
    }
    return platform::Urgency::normal;
}

} // namespace

Result<std::unique_ptr<NotifierDaemon>>
NotifierDaemon::make(Options options, std::function<ReminderActions(NotifierDaemon&)> actions) {
    std::unique_ptr<NotifierDaemon> daemon(new NotifierDaemon(std::move(options)));
    if (daemon->connectBus())
        if (auto owned = daemon->m_bus->ownName(kNotifierBusName); !owned)
            return std::unexpected(owned.error());

    const auto container = daemon->m_options.groupContainer.empty()
                               ? store::applicationGroupContainerURL()
                               : daemon->m_options.groupContainer;
    auto queue =
        platform::NotificationQueue::open(container / platform::NotificationQueue::kFileName);
    if (!queue)
        return std::unexpected(queue.error());
    daemon->m_queue = std::move(*queue);
    daemon->m_store = daemon->m_options.groupContainer.empty()
                          ? store::LocalDataManager::make()
                          : store::LocalDataManager::make(container);
    daemon->m_actions = actions(*daemon);

    NotifierDaemon* self = daemon.get();
    // Before history is read, so that none is purged before the sync reads it.
    daemon->m_cloud = CloudFollower::make({.store = daemon->m_store,
                                           .groupContainer = container,
                                           .timer = daemon->m_options.timer,
                                           .log = daemon->m_options.log,
                                           .rearm = [self] { self->armNext(); }});
    cloud::installHistoryProcessing(
        *daemon->m_store, "tasket-notifier",
        [&log = daemon->m_options.log](const platform::Error& e) {
            log << fmt::format(
                "tasket-notifier: another program's changes to the store were not followed: {}\n",
                e.message);
        });
    // The view context tells of this program's saves and of the merges of
    // everyone else's alike.
    const auto& view = daemon->m_store->viewContext();
    daemon->m_storeObserver = platform::NotificationCenter::defaultCenter().addObserver(
        objectstore::kObjectsDidChangeNotification, view.get(),
        [self](const objectstore::ChangeSet& changes, const void*) {
            self->storeChanged(changes);
        });

    // Requests that other programs add or remove.
    auto watch = platform::FileWatch::start(
        {.file = daemon->m_queue->path(),
         .suffixes = {"", "-wal"},
         .events = platform::FileWatch::closedAfterWriting | platform::FileWatch::movedIn |
                   platform::FileWatch::modified,
         .quietPeriod = std::chrono::milliseconds(5)},
        [self] { platform::MainQueue::shared().post([self] { self->queueChanged(); }); });
    if (!watch)
        return std::unexpected(watch.error());
    daemon->m_queueWatch = std::move(*watch);
    return daemon;
}

NotifierDaemon::~NotifierDaemon() {
    // No watch call and no store notification reaches a daemon being destroyed.
    m_queueWatch.reset();
    m_storeObserver = {};
    platform::MainQueue::shared().pump();
}

bool NotifierDaemon::connectBus() {
    if (m_bus)
        return true;
    auto bus = platform::DesktopNotifications::connect(
        {.actionInvoked = [this](std::uint32_t id,
                                 const std::string& action) { actionInvoked(id, action); },
         .closed = [this](std::uint32_t id, platform::CloseReason reason) { closed(id, reason); }});
    if (!bus) {
        if (!m_saidNoBus)
            m_options.log << fmt::format("tasket-notifier: {}; reminders stay queued until one is "
                                         "there\n",
                                         bus.error().message);
        m_saidNoBus = true;
        return false;
    }
    m_bus = std::move(*bus);
    m_saidNoBus = false;
    return true;
}

void NotifierDaemon::lostBus(const platform::Error& error) {
    m_options.log << fmt::format("tasket-notifier: {}\n", error.message);
    m_bus.reset();
}

void NotifierDaemon::processEvents(int timeoutMs) {
    platform::MainQueue::shared().pump();
    if (m_bus) {
        if (auto processed = m_bus->process(); !processed)
            return lostBus(processed.error());
        if (timeoutMs > 0 && m_bus->wait(timeoutMs))
            if (auto processed = m_bus->process(); !processed)
                return lostBus(processed.error());
    }
    platform::MainQueue::shared().pump();
}

void NotifierDaemon::report(const Result<>& result, std::string_view what) {
    if (!result)
        m_options.log << fmt::format("tasket-notifier: {}: {}\n", what, result.error().message);
}

void NotifierDaemon::start() {
    // What an earlier session showed carries that session's numbers.
    report(m_queue->forgetServerIDs(), "cannot forget the last session's notifications");
    if (m_actions.rescheduleAll)
        report(m_actions.rescheduleAll(), "cannot schedule the reminders of the store");
    deliverDue();
    armNext();
    showBadge();
    // After the reminders, which never wait for the cloud database.
    if (m_cloud)
        m_cloud->start();
}

void NotifierDaemon::wake(platform::WakeReason) {
    if (m_cloud)
        m_cloud->wake();
    deliverDue();
    armNext();
}

void NotifierDaemon::deliverDue() {
    if (!connectBus())
        return;
    auto& timer = m_options.timer;
    auto due = m_queue->takeDue(timer.now(), timer.calendar());
    if (!due)
        return report(std::unexpected(due.error()), "cannot read the queued reminders");
    if (due->empty())
        return;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> actions;
    if (auto categories = m_queue->notificationCategories())
        for (const auto& category : *categories)
            for (const auto& action : category.actions)
                actions[category.identifier].emplace_back(action.identifier, action.title);

    for (const auto& queued : *due) {
        const auto& request = queued.request;
        const auto& content = request.content;
        platform::DesktopNotification notification{
            .appName = std::string(kApplicationName),
            .icon = m_options.application,
            .summary = content.subtitle.empty()
                           ? content.title
                           : fmt::format("{} · {}", content.title, content.subtitle),
            .body = content.body,
            .actions = actions[content.categoryIdentifier],
            .urgency = urgencyFor(content.interruptionLevel),
            .suppressSound = content.interruptionLevel == platform::InterruptionLevel::passive ||
                             !content.defaultSound,
            .desktopEntry = m_options.application,
        };
        if (const auto shown = m_shown.find(request.identifier); shown != m_shown.end())
            notification.replacesId = shown->second;
        else if (auto found = m_queue->delivered(request.identifier); found && *found)
            notification.replacesId = (*found)->serverID;
        auto id = m_bus->notify(notification);
        if (!id) {
            if (!m_saidNoServer)
                m_options.log << fmt::format("tasket-notifier: {}; reminders stay queued\n",
                                             id.error().message);
            m_saidNoServer = true;
            return;
        }
        m_saidNoServer = false;
        auto recorded = m_queue->recordDelivery(queued.revision, *id, timer.now());
        if (!recorded)
            report(std::unexpected(recorded.error()), "cannot record a delivered reminder");
        m_shown[request.identifier] = *id;
        if (content.badge)
            report(m_queue->setBadgeCount(*content.badge), "cannot keep the badge");
    }
    showBadge();
}

void NotifierDaemon::armNext() {
    auto& timer = m_options.timer;
    auto next = m_queue->nextFireDate(timer.now(), timer.calendar());
    if (!next)
        return report(std::unexpected(next.error()), "cannot read the queued reminders");
    auto wakeAt = *next;
    if (const auto cloudWake = m_cloud ? m_cloud->nextWake() : std::nullopt)
        wakeAt = wakeAt ? std::min(*wakeAt, *cloudWake) : *cloudWake;
    timer.arm(wakeAt);
}

void NotifierDaemon::showBadge() {
    auto count = m_queue->badgeCount();
    if (!count || !m_bus || *count == m_shownBadge)
        return;
    if (auto shown =
            m_bus->setBadge(fmt::format("application://{}.desktop", m_options.application), *count))
        m_shownBadge = *count;
}

void NotifierDaemon::queueChanged() {
    // What another program removed from the delivered ones is taken off the screen.
    std::set<std::string> stillDelivered;
    if (auto delivered = m_queue->deliveredNotifications())
        for (const auto& notification : *delivered)
            stillDelivered.insert(notification.request.identifier);
    for (auto it = m_shown.begin(); it != m_shown.end();) {
        if (stillDelivered.contains(it->first)) {
            ++it;
            continue;
        }
        if (m_bus)
            (void)m_bus->close(it->second);
        it = m_shown.erase(it);
    }
    deliverDue();
    armNext();
    showBadge();
}

void NotifierDaemon::storeChanged(const objectstore::ChangeSet& changes) {
    if (m_cloud && !changes.empty())
        m_cloud->storeChanged();
    const auto& model = *store::tkDataModel();
    const auto isRecord = [&model](const objectstore::ObjectID& id) {
        const auto& name = model.entity(id.entity).name;
        return name == "TK_Task" || name == "TK_Subtask";
    };
    objectstore::ChangeSet relevant;
    std::ranges::copy_if(changes.inserted, std::back_inserter(relevant.inserted), isRecord);
    std::ranges::copy_if(changes.deleted, std::back_inserter(relevant.deleted), isRecord);
    std::ranges::copy_if(changes.updated, std::back_inserter(relevant.updated),
                         [&](const objectstore::UpdatedObject& updated) {
                             return isRecord(updated.id) && touchesReminder(updated);
                         });
    if (relevant.empty() || !m_actions.reschedule)
        return;
    report(m_actions.reschedule(relevant), "cannot schedule the changed reminders");
    queueChanged();
}

void NotifierDaemon::actionInvoked(std::uint32_t serverID, const std::string& action) {
    auto delivered = m_queue->deliveredWithServerID(serverID);
    if (!delivered || !*delivered)
        return;
    const auto request = (*delivered)->notification.request;
    // The server closes the notification; it is no longer delivered.
    m_shown.erase(request.identifier);
    report(m_queue->removeDeliveredNotifications(std::span(&request.identifier, 1)),
           "cannot forget an answered reminder");
    if (needsUnlockedSession(request, action)) {
        if (!m_unlockWatch)
            m_unlockWatch = platform::SessionUnlockWatch::start(
                [this] { platform::MainQueue::shared().post([this] { sessionUnlocked(); }); });
        // Without a watch it could wait for ever: then it runs now.
        if (m_unlockWatch) {
            m_deferred.emplace_back(request, action);
            return;
        }
    }
    perform(request, action);
}

bool NotifierDaemon::needsUnlockedSession(const platform::NotificationRequest& request,
                                          std::string_view action) const {
    auto categories = m_queue->notificationCategories();
    if (!categories)
        return false;
    for (const auto& category : *categories)
        if (category.identifier == request.content.categoryIdentifier)
            for (const auto& offered : category.actions)
                if (offered.identifier == action &&
                    (offered.options & platform::kActionAuthenticationRequired) != 0)
                    return m_actions.sessionLocked && m_actions.sessionLocked().value_or(false);
    return false;
}

void NotifierDaemon::sessionUnlocked() {
    m_unlockWatch.reset();
    auto deferred = std::exchange(m_deferred, {});
    for (const auto& [request, action] : deferred)
        perform(request, action);
}

void NotifierDaemon::perform(const platform::NotificationRequest& request,
                             const std::string& action) {
    if (!m_actions.perform)
        return;
    auto done = m_actions.perform(request, action);
    if (!done && done.error().code == platform::Errc::notFound) {
        m_options.log << fmt::format("tasket-notifier: nothing to do for \"{}\": {}\n",
                                     request.content.body, done.error().message);
        return;
    }
    report(done, fmt::format("cannot do \"{}\" for \"{}\"", action, request.content.body));
    queueChanged();
}

void NotifierDaemon::closed(std::uint32_t serverID, platform::CloseReason reason) {
    if (reason == platform::CloseReason::closedByCall)
        return;
    auto delivered = m_queue->deliveredWithServerID(serverID);
    if (!delivered || !*delivered)
        return;
    const std::string identifier = (*delivered)->notification.request.identifier;
    m_shown.erase(identifier);
    report(m_queue->removeDeliveredNotifications(std::span(&identifier, 1)),
           "cannot forget a closed reminder");
}

} // namespace tasket::apps
