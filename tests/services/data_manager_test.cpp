// DataManager after a save: the reminder queue is opened only when a saved
// record can have a reminder in it.
#include "platform/clock.h"
#include "platform/notifications/notification_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "services/data_manager.h"
#include "settings/settings_keys.h"
#include "store/application_group.h"
#include "store/records.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace tasket;

TEST(DataManager, AnInsertOpensTheReminderQueueOnlyForARecordWithAReminder) {
    tasket::testing::TempDir dir;
    const tasket::testing::ScopedEnv dataHome("XDG_DATA_HOME", dir / "data");
    const auto queueFile =
        store::applicationGroupContainerURL() / platform::NotificationQueue::kFileName;
    auto data = store::LocalDataManager::make(dir.path());
    auto settings = std::make_shared<settings::CustomizationManager>(
        std::make_shared<platform::InMemoryPreferencesSuite>(
            std::string(settings::keys::kAppGroupSuite)),
        std::make_shared<platform::InMemoryPreferencesSuite>(
            std::string(settings::keys::kStandardSuite)));
    auto manager = services::DataManager::open(data, settings);
    auto& view = *data->viewContext();
    const auto saveTask = [&](const std::string& id, bool remind) {
        auto task = store::TK_Task::insertNew(view);
        task->setTaskID(id);
        const auto due = platform::Clock::shared().now().addingSeconds(86400);
        task->setDueDate(due);
        task->setDueDateAndTime(due);
        task->setIsRemindEnabled(remind);
        ASSERT_TRUE(view.save());
        const std::string ids[] = {id};
        EXPECT_TRUE(manager->didSave(view, ids, services::DataManager::Saved::inserted).empty());
    };

    saveTask("T-1", false);
    EXPECT_FALSE(std::filesystem::exists(queueFile));
    saveTask("T-2", true);
    ASSERT_TRUE(manager->notificationManager());
    auto pending = manager->notificationManager()->center().pendingNotificationRequests();
    ASSERT_TRUE(pending);
    ASSERT_EQ(pending->size(), 1U);
    EXPECT_TRUE(pending->front().identifier.starts_with("T-2"));
    EXPECT_TRUE(std::filesystem::exists(queueFile));
}
