// The managers one process works with, held together: the store, cloud
// sync, reminders, the settings and the calendar store. The share form
// reaches the others through it, and after a save it brings the reminders
// and the calendar mirror of the saved tasks up to date. Its work is
// serialised, one call at a time, like an actor's.
//
// Cloud uploads are not started here: the sync follows the store through
// its own history reader (in the notifier daemon, or `tasket sync now`).
#pragma once

#include "cloud/cloud_data_manager.h"
#include "platform/calendars/calendar_store.h"
#include "platform/error.h"
#include "reminders/notification_manager.h"
#include "reminders/reminder_store.h"
#include "settings/customization_manager.h"
#include "store/local_data_manager.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace tasket::services {

class DataManager {
  public:
    /// The managers of the user's group container around the store and
    /// settings given: the reminders queue there and the calendar store of
    /// "Calendar.Sources". Either is left out (null) when it cannot be
    /// opened or is not set up; cloud sync only when `cloudDataManager` is
    /// given.
    [[nodiscard]] static std::shared_ptr<DataManager>
    open(std::shared_ptr<store::LocalDataManager> localDataManager,
         std::shared_ptr<settings::CustomizationManager> customizationManager,
         std::shared_ptr<cloud::CloudDataManager> cloudDataManager = nullptr);

    /// `localDataManager` and `customizationManager` must not be null; the
    /// others may be, when cloud sync is off, the reminders queue cannot be
    /// opened, or no calendar source is set.
    DataManager(std::shared_ptr<store::LocalDataManager> localDataManager,
                std::shared_ptr<cloud::CloudDataManager> cloudDataManager,
                std::shared_ptr<reminders::NotificationManager> notificationManager,
                std::shared_ptr<settings::CustomizationManager> customizationManager,
                std::shared_ptr<platform::CalendarStore> eventStore);

    // ---- State, in field order -------------------------------------------------------
    [[nodiscard]] bool isAcceptingShareInvitation() const { return m_isAcceptingShareInvitation; }
    void setIsAcceptingShareInvitation(bool accepting) { m_isAcceptingShareInvitation = accepting; }
    [[nodiscard]] const std::shared_ptr<store::LocalDataManager>& localDataManager() const {
        return m_localDataManager;
    }
    [[nodiscard]] const std::shared_ptr<cloud::CloudDataManager>& cloudDataManager() const {
        return m_cloudDataManager;
    }
    /// The reminders' manager; the queue `open` found is opened on the
    /// first call.
    [[nodiscard]] const std::shared_ptr<reminders::NotificationManager>& notificationManager();
    [[nodiscard]] const std::shared_ptr<settings::CustomizationManager>&
    customizationManager() const {
        return m_customizationManager;
    }
    [[nodiscard]] const std::shared_ptr<platform::CalendarStore>& eventStore() const {
        return m_eventStore;
    }

    /// What a save did to the records it names.
    enum class Saved {
        changed,  ///< changed or deleted them, or some of each
        inserted, ///< inserted every one: none can have a reminder queued yet
    };

    /// After a save in `context` that touched the tasks or subtasks named by
    /// `identifiers` (call on the context's thread): their reminders are
    /// rescheduled, and the tasks of lists mirrored into a calendar are
    /// written there (the mirror's identifiers then saved). The store stays
    /// saved whatever fails; each failure is returned, in that order. After
    /// an insert, the reminder queue is opened only for a record with a
    /// reminder switched on.
    [[nodiscard]] std::vector<platform::Error> didSave(objectstore::ObjectContext& context,
                                                       std::span<const std::string> identifiers,
                                                       Saved saved = Saved::changed);

  private:
    [[nodiscard]] platform::Result<void> mirror(objectstore::ObjectContext& context,
                                                std::span<const std::string> identifiers);

    std::atomic<bool> m_isAcceptingShareInvitation = false;
    std::shared_ptr<store::LocalDataManager> m_localDataManager;
    std::shared_ptr<cloud::CloudDataManager> m_cloudDataManager;
    std::shared_ptr<reminders::NotificationManager> m_notificationManager;
    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::shared_ptr<platform::CalendarStore> m_eventStore;
    std::mutex m_work; // one call at a time
    // The queue open() found, until its first use; then the queue itself.
    std::function<platform::Result<reminders::ReminderQueue>()> m_openReminderQueue;
    std::once_flag m_reminderQueueOpened;
    std::shared_ptr<platform::UserNotificationCenter> m_notificationCenter;
};

} // namespace tasket::services
