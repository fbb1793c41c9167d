#include "services/data_manager.h"

#include "platform/calendar.h"
#include "reminders/calendar_mirror.h"
#include "reminders/calendar_sources.h"
#include "reminders/reminder_store.h"
#include "store/lookup.h"

namespace tasket::services {

using rules::TK_CalendarType;

DataManager::DataManager(std::shared_ptr<store::LocalDataManager> localDataManager,
                         std::shared_ptr<cloud::CloudDataManager> cloudDataManager,
                         std::shared_ptr<reminders::NotificationManager> notificationManager,
                         std::shared_ptr<settings::CustomizationManager> customizationManager,
                         std::shared_ptr<platform::CalendarStore> eventStore)
    : m_localDataManager(std::move(localDataManager)),
      m_cloudDataManager(std::move(cloudDataManager)),
      m_notificationManager(std::move(notificationManager)),
      m_customizationManager(std::move(customizationManager)), m_eventStore(std::move(eventStore)) {
}

std::shared_ptr<DataManager>
DataManager::open(std::shared_ptr<store::LocalDataManager> localDataManager,
                  std::shared_ptr<settings::CustomizationManager> customizationManager,
                  std::shared_ptr<cloud::CloudDataManager> cloudDataManager) {
    auto calendars = reminders::openCalendarStore(*customizationManager);
    auto manager = std::make_shared<DataManager>(
        std::move(localDataManager), std::move(cloudDataManager), nullptr, customizationManager,
        calendars ? std::move(*calendars) : nullptr);
    // A share of a link schedules nothing: its program need not open the
    // queue, nor read the local time zone for it.
    manager->m_openReminderQueue = [settings = std::move(customizationManager)] {
        return reminders::openReminderQueue(platform::Calendar::current(), settings);
    };
    return manager;
}

const std::shared_ptr<reminders::NotificationManager>& DataManager::notificationManager() {
    std::call_once(m_reminderQueueOpened, [this] {
        if (!m_openReminderQueue)
            return;
        if (auto queue = m_openReminderQueue()) {
            m_notificationCenter = std::move(queue->queue);
            m_notificationManager = std::move(queue->manager);
        }
        m_openReminderQueue = nullptr;
    });
    return m_notificationManager;
}

std::vector<platform::Error> DataManager::didSave(objectstore::ObjectContext& context,
                                                  std::span<const std::string> identifiers,
                                                  Saved saved) {
    std::lock_guard work(m_work);
    std::vector<platform::Error> failures;
    if (identifiers.empty())
        return failures;
    std::vector<std::string> scheduled;
    if (saved == Saved::inserted) {
        auto withReminders = reminders::withReminderSwitchedOn(context, identifiers);
        if (!withReminders)
            failures.push_back(withReminders.error());
        else
            scheduled = std::move(*withReminders);
    } else {
        scheduled.assign(identifiers.begin(), identifiers.end());
    }
    if (!scheduled.empty() && notificationManager())
        if (auto passed = reminders::updateReminders(*m_notificationManager, context, scheduled);
            !passed)
            failures.push_back(passed.error());
    if (auto mirrored = mirror(context, identifiers); !mirrored)
        failures.push_back(mirrored.error());
    return failures;
}

platform::Result<void> DataManager::mirror(objectstore::ObjectContext& context,
                                           std::span<const std::string> identifiers) {
    if (!m_eventStore || m_customizationManager->database() == rules::TK_Database::tasket)
        return {};
    reminders::CalendarMirror calendars(m_eventStore, m_customizationManager);
    calendars.keepSyncStateIn(reminders::calendarSyncFolder());
    return calendars.writeTasks(context, identifiers);
}

} // namespace tasket::services
