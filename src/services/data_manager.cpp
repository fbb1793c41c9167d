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
    const bool addOnly =
        m_customizationManager->database() == rules::TK_Database::tasketAndRemindersAddOnly ||
        m_customizationManager->isTasketAndRemindersAddOnlyDatabase();
    reminders::CalendarMirror calendars(m_eventStore, m_customizationManager);
    bool wrote = false;
    platform::Result<void> failure;
    for (const auto& identifier : identifiers) {
        auto task = store::findByIdentifier<store::TK_Task>(context, identifier);
        if (!task)
            continue; // a subtask, or deleted: the next full sync settles it
        const auto list = (*task)->category();
        if (!list || (addOnly && (*task)->calendarItemIdentifier()))
            continue;
        platform::Result<void> written;
        switch (list->calendarTypeCase().value_or(TK_CalendarType::none)) {
        case TK_CalendarType::reminder: written = calendars.writeReminder(**task); break;
        case TK_CalendarType::event: written = calendars.writeEvent(**task); break;
        case TK_CalendarType::none: continue;
        }
        if (written)
            wrote = true;
        else if (!failure)
            failure = written; // the others still go, and what they wrote is kept
    }
    // The identifiers of the items written, so the next pass updates them
    // instead of writing them again.
    if (wrote)
        if (auto saved = context.save(); !saved)
            return saved;
    return failure;
}

} // namespace tasket::services
