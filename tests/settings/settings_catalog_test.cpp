#include "settings/settings_catalog.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace tasket::settings;

// Key texts are shared with the main application: each suffix is checked
// against the published list, in setting order.
TEST(SettingsCatalog, ThirtyFourSettingsInOrderWithTheirKeySuffixes) {
    const std::pair<std::string_view, std::string_view> expected[] = {
        {"tintColor", "Tint.Color"},
        {"appearance", "Appearance"},
        {"isHapticFeedbacksEnabled", "Is.Haptic.Feedbacks.Enabled"},
        {"timelineType", "Timeline.Type"},
        {"unassignedSectionTitle", "Unassigned.Section.Title"},
        {"unassignedSectionColor", "Unassigned.Section.Color"},
        {"unassignedSectionIcon", "Unassigned.Section.Icon"},
        {"unassignedSectionPlacement", "Unassigned.Section.Placement"},
        {"isExcludingCompletedTasks", "Is.Excluding.Completed.Tasks"},
        {"taskBadgesBackgroundType", "Task.Badges.Background.Type"},
        {"taskStartDateBadgeType", "Task.Start.Date.Badge.Type"},
        {"taskDueDateBadgeType", "Task.Due.Date.Badge.Type"},
        {"taskCategoryBadgeType", "Task.Category.Badge.Type"},
        {"taskPriorityBadgeType", "Task.Priority.Badge.Type"},
        {"taskStatusBadgeType", "Task.Status.Badge.Type"},
        {"taskURLBadgeType", "Task.URL.Badge.Type"},
        {"taskTagBadgeType", "Task.Tag.Badge.Type"},
        {"taskValueBadgeType", "Task.Value.Badge.Type"},
        {"isStartDateRemindMeEnabled", "Is.Start.Date.Remind.Me.Enabled"},
        {"isDueDateRemindMeEnabled", "Is.Due.Date.Remind.Me.Enabled"},
        {"allDayReminderTime", "All.Day.Reminder.Time"},
        {"database", "Database"},
        {"remindersDatabaseType", "Reminders.Database.Type"},
        {"remindersLists", "Reminders.Lists"},
        {"isHidingBoardSectionsWithoutTasks", "Is.Hiding.Board.Sections.Without.Tasks"},
        {"isShowingEmptyAttributes", "Is.Showing.Empty.Attributes"},
        {"attachmentThumbnailType", "Attachment.Thumbnail.Type"},
        {"taskActions", "Task.Actions"},
        {"isShowingSuggestions", "Is.Showing.Suggestions"},
        {"isOpeningDefaultCategoryOnLaunch", "Is.Opening.Default.Category.On.Launch"},
        {"isStartDateAllDay", "Is.Start.Date.All.Day"},
        {"isDueDateAllDay", "Is.Due.Date.All.Day"},
        {"isShowingProgress", "Is.Showing.Progress"},
        {"isAssistEnabled", "Is.Assist.Enabled"},
    };
    ASSERT_EQ(catalog::kSettingInfos.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        const auto& info = catalog::kSettingInfos[i];
        EXPECT_EQ(info.name, expected[i].first) << i;
        EXPECT_EQ(info.key, std::string(keys::kStoragePrefix) + std::string(expected[i].second));
    }
    EXPECT_EQ(keys::kAllDayReminderTime.full(),
              "Lumenforge.QRX.Tasket.App.Storage.All.Day.Reminder.Time");
    EXPECT_EQ(keys::kAllDayReminderTime.suffix(), "All.Day.Reminder.Time");
}

TEST(SettingsCatalog, OnlyTheNineBadgeSettingsReachTheViewsUnderTheirEnvironmentKeys) {
    std::set<std::string_view> environmentKeys;
    for (const auto& info : catalog::kSettingInfos) {
        if (info.environmentKey.empty())
            continue;
        EXPECT_EQ(info.environmentKey, "__Key_" + std::string(info.name));
        environmentKeys.insert(info.environmentKey);
    }
    EXPECT_EQ(environmentKeys.size(), 9u);
}

// The irregular texts other subsystems rely on.
TEST(SettingsKeys, OtherSubsystemsKeysKeepTheirIrregularTexts) {
    const std::pair<std::string_view, std::string_view> expected[] = {
        {keys::kFoldersSortOrderDirection, "Folders.Sort.Order.Direction"},
        {keys::kSmartCategoriesSortDirection, "Smart.Categories.Sort.Direction"},
        {keys::kCustomAttributesSortOrderDirection, "Custom.Attributes.Sort.Order.Direction"},
        {keys::kValuesSortDirection, "Values.Sort.Direction"},
        {keys::kNotSyncedSmartCategories, "Not.Synced.Smart.Categories"},
        {keys::kLastCloudAccountStatusCheckDate, "Last.Cloud.Account.Status.Check.Date"},
        {keys::kDidCreateSharedDatabaseSubscription, "Did.Create.Shared.Database.Subscription"},
        {keys::kPersistentHistoryToken, "Persistent.History.Token"},
        {keys::kIsSuccessfulPurchase, "Is.Successful.Purchase"},
        {keys::kDefaultCategory, "Default.Category"},
        {keys::kDidMigrateUserDefaultsToAppGroup, "Did.Migrate.User.Defaults.To.App.Group"},
    };
    for (const auto& [key, suffix] : expected)
        EXPECT_EQ(key, std::string(keys::kStoragePrefix) + std::string(suffix));
    EXPECT_EQ(keys::kAppGroupSuite, "group.QRX-Lumenforge.Tasket");
}

TEST(SettingsCatalog, NamesAndKeysAreUnique) {
    std::set<std::string_view> names, storageKeys;
    for (const auto& info : catalog::kSettingInfos) {
        EXPECT_TRUE(names.insert(info.name).second) << info.name;
        EXPECT_TRUE(storageKeys.insert(info.key).second) << info.key;
    }
}
