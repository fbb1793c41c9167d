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
    std::shared_ptr<platform::UserNotificationCenter> center;
    std::shared_ptr<reminders::NotificationManager> notifications;
    if (auto queue =
            reminders::openReminderQueue(platform::Calendar::current(), customizationManager)) {
        center = std::move(queue->queue);
        notifications = std::move(queue->manager);
    }
    auto calendars = reminders::openCalendarStore(*customizationManager);
    auto manager = std::make_shared<DataManager>(
        std::move(localDataManager), std::move(cloudDataManager), std::move(notifications),
        std::move(customizationManager), calendars ? std::move(*calendars) : nullptr);
    manager->m_notificationCenter = std::move(center);
    return manager;
}

std::vector<platform::Error> DataManager::didSave(objectstore::ObjectContext& context,
                                                  std::span<const std::string> identifiers) {
    std::lock_guard work(m_work);
    std::vector<platform::Error> failures;
    if (identifiers.empty())
        return failures;
    if (m_notificationManager)
        if (auto passed = reminders::updateReminders(*m_notificationManager, context, identifiers);
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
