// The reminder daemon's logic: delivers the queue's requests through the
// desktop's notification server when their minute comes (read in the zone
// in force), sleeps on one wall-clock alarm until the next one, answers the
// actions chosen on a shown reminder (Mark as Done writes the store; the
// snoozes schedule the same request again), keeps the launcher's badge,
// closes what other programs removed, and follows the store's changes made
// by every program so that only the records whose reminder fields changed
// are scheduled again. With cloud sync on, it also keeps the store in step
// with the cloud database (see cloud_follower.h). Runs on the main queue's
// thread; the caller's loop feeds it the bus, the timer, the main queue and
// the cloud database's pushes (see notifier_program.cpp).
#pragma once

#include "objectstore/change.h"
#include "platform/error.h"
#include "platform/file_watch.h"
#include "platform/notification_center.h"
#include "platform/notifications/desktop_notifications.h"
#include "platform/notifications/notification_queue.h"
#include "platform/notifications/session_lock.h"
#include "platform/notifications/wake_timer.h"
#include "store/local_data_manager.h"
#include "tasket-notifier/cloud_follower.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace tasket::apps {

/// The daemon's name on the session bus; holding it makes this the one
/// daemon of the session.
inline constexpr std::string_view kNotifierBusName = "Lumenforge.QRX.Tasket.Notifier";

/// Where a reminder's actions go. The identifiers are the requests' (the
/// record's identifier, or "start.Date." and it).
struct ReminderActions {
    /// Schedules every record's reminders again (the full pass).
    std::function<platform::Result<>()> rescheduleAll;
    /// Schedules again the reminders of the tasks and subtasks `changed` names.
    std::function<platform::Result<>(const objectstore::ChangeSet& changed)> reschedule;
    /// Does what the action `action` chosen on the shown `request` asks:
    /// marks its record done (notFound when the record is gone) or schedules
    /// the request again later (a snooze). invalidArgument: not one of ours.
    std::function<platform::Result<>(const platform::NotificationRequest& request,
                                     std::string_view action)>
        perform;
    /// Whether the session is locked now (nullopt: cannot tell, taken as unlocked).
    std::function<std::optional<bool>()> sessionLocked;
};

class NotifierDaemon {
  public:
    struct Options {
        platform::WakeTimer& timer;
        /// The desktop file (without ".desktop") for the badge and the notifications.
        std::string application = "tasket";
        std::ostream& log;
        /// The group container; empty: this user's.
        std::filesystem::path groupContainer = {};
    };

    /// Connects to the session bus and takes kNotifierBusName (fails with
    /// conflict when another daemon holds it; without a bus it carries on and
    /// says so once), opens the store and the queue, and starts following
    /// both. Nothing is delivered before start().
    [[nodiscard]] static platform::Result<std::unique_ptr<NotifierDaemon>>
    make(Options options, std::function<ReminderActions(NotifierDaemon&)> actions);
    ~NotifierDaemon();
    NotifierDaemon(const NotifierDaemon&) = delete;
    NotifierDaemon& operator=(const NotifierDaemon&) = delete;

    /// The full pass, then what is due, then the alarm for what comes next.
    void start();
    /// The timer's wake-up: delivers what is due and sets the next alarm.
    void wake(platform::WakeReason reason);

    /// The session bus, while connected; null without one.
    [[nodiscard]] platform::DesktopNotifications* bus() const { return m_bus.get(); }
    /// While actions wait for the session to be unlocked: the watch that
    /// hears it (its fd to poll, process() to call); null otherwise.
    [[nodiscard]] platform::SessionUnlockWatch* unlockWatch() const { return m_unlockWatch.get(); }
    /// Pumps the main queue and the bus once, waiting up to `timeoutMs` for
    /// the bus (tests, and loops without other sources).
    void processEvents(int timeoutMs);
    /// While cloud sync follows the store: the descriptor its pushes arrive
    /// on (-1 otherwise), and what to call when it is readable.
    [[nodiscard]] int cloudSocket() const { return m_cloud ? m_cloud->pushSocket() : -1; }
    void cloudReadable() {
        if (m_cloud)
            m_cloud->pushReadable();
    }

    [[nodiscard]] platform::NotificationQueue& queue() { return *m_queue; }
    [[nodiscard]] const std::shared_ptr<store::LocalDataManager>& store() { return m_store; }
    [[nodiscard]] platform::WakeTimer& timer() { return m_options.timer; }

  private:
    explicit NotifierDaemon(Options options) : m_options(std::move(options)) {}
    [[nodiscard]] bool connectBus();
    /// The connection failed: drop it; the next wake-up tries again.
    void lostBus(const platform::Error& error);
    void deliverDue();
    void armNext();
    void queueChanged();
    void storeChanged(const objectstore::ChangeSet& changes);
    void actionInvoked(std::uint32_t serverID, const std::string& action);
    void closed(std::uint32_t serverID, platform::CloseReason reason);
    void perform(const platform::NotificationRequest& request, const std::string& action);
    void sessionUnlocked();
    [[nodiscard]] bool needsUnlockedSession(const platform::NotificationRequest& request,
                                            std::string_view action) const;
    void showBadge();
    void report(const platform::Result<>& result, std::string_view what);

    Options m_options;
    ReminderActions m_actions;
    std::unique_ptr<platform::DesktopNotifications> m_bus;
    std::unique_ptr<platform::NotificationQueue> m_queue;
    std::shared_ptr<store::LocalDataManager> m_store;
    std::unique_ptr<platform::FileWatch> m_queueWatch;
    platform::ObserverToken m_storeObserver;
    std::int64_t m_seenQueueVersion = -1;
    /// Shown notifications, identifier -> the server's number.
    std::map<std::string, std::uint32_t> m_shown;
    /// Actions chosen while the session was locked, run once it is unlocked.
    std::vector<std::pair<platform::NotificationRequest, std::string>> m_deferred;
    std::unique_ptr<platform::SessionUnlockWatch> m_unlockWatch;
    std::unique_ptr<CloudFollower> m_cloud;
    int m_shownBadge = -1;
    bool m_saidNoBus = false;
    bool m_saidNoServer = false;
};

} // namespace tasket::apps
