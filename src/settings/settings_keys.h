// Every key of the shared preferences suites, in one place: the user
// settings, the bookkeeping of other subsystems (default list, sort orders,
// sync queues, cloud status, history token, paid tier), the migration flag,
// and the environment keys under which badge settings reach the views.
// No other file spells a key. The texts are shared with the main
// application and are kept byte for byte, irregularities included.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace tasket::settings::keys {

// ---- Suites ----------------------------------------------------------------------

/// The application group's suite: every setting and piece of bookkeeping.
inline constexpr std::string_view kAppGroupSuite = "group.QRX-Lumenforge.Tasket";
/// The application's own standard suite, where settings lived before the group.
inline constexpr std::string_view kStandardSuite = "Lumenforge.QRX.Tasket";

/// Every stored key is this prefix followed by a dotted suffix.
inline constexpr std::string_view kStoragePrefix = "Lumenforge.QRX.Tasket.App.Storage.";

/// A full key built at compile time from its suffix; converts to the full
/// key text. Declared as `inline constexpr StorageKey kName{"Suffix"};`.
template <std::size_t N> struct StorageKey {
    std::array<char, kStoragePrefix.size() + N - 1> text{};

    consteval StorageKey(const char (&suffix)[N]) {
        std::size_t at = 0;
        for (char c : kStoragePrefix)
            text[at++] = c;
        for (std::size_t i = 0; i + 1 < N; ++i)
            text[at++] = suffix[i];
    }
    constexpr std::string_view full() const { return {text.data(), text.size()}; }
    constexpr std::string_view suffix() const { return full().substr(kStoragePrefix.size()); }
    constexpr operator std::string_view() const { return full(); }
};

// ---- User settings (CustomizationManager), in setting order -----------------------

inline constexpr StorageKey kTintColor{"Tint.Color"};
inline constexpr StorageKey kAppearance{"Appearance"};
inline constexpr StorageKey kIsHapticFeedbacksEnabled{"Is.Haptic.Feedbacks.Enabled"};
inline constexpr StorageKey kTimelineType{"Timeline.Type"};
inline constexpr StorageKey kUnassignedSectionTitle{"Unassigned.Section.Title"};
inline constexpr StorageKey kUnassignedSectionColor{"Unassigned.Section.Color"};
inline constexpr StorageKey kUnassignedSectionIcon{"Unassigned.Section.Icon"};
inline constexpr StorageKey kUnassignedSectionPlacement{"Unassigned.Section.Placement"};
inline constexpr StorageKey kIsExcludingCompletedTasks{"Is.Excluding.Completed.Tasks"};
inline constexpr StorageKey kTaskBadgesBackgroundType{"Task.Badges.Background.Type"};
inline constexpr StorageKey kTaskStartDateBadgeType{"Task.Start.Date.Badge.Type"};
inline constexpr StorageKey kTaskDueDateBadgeType{"Task.Due.Date.Badge.Type"};
inline constexpr StorageKey kTaskCategoryBadgeType{"Task.Category.Badge.Type"};
inline constexpr StorageKey kTaskPriorityBadgeType{"Task.Priority.Badge.Type"};
inline constexpr StorageKey kTaskStatusBadgeType{"Task.Status.Badge.Type"};
inline constexpr StorageKey kTaskURLBadgeType{"Task.URL.Badge.Type"};
inline constexpr StorageKey kTaskTagBadgeType{"Task.Tag.Badge.Type"};
inline constexpr StorageKey kTaskValueBadgeType{"Task.Value.Badge.Type"};
inline constexpr StorageKey kIsStartDateRemindMeEnabled{"Is.Start.Date.Remind.Me.Enabled"};
inline constexpr StorageKey kIsDueDateRemindMeEnabled{"Is.Due.Date.Remind.Me.Enabled"};
inline constexpr StorageKey kAllDayReminderTime{"All.Day.Reminder.Time"};
inline constexpr StorageKey kDatabase{"Database"};
inline constexpr StorageKey kRemindersDatabaseType{"Reminders.Database.Type"};
inline constexpr StorageKey kRemindersLists{"Reminders.Lists"};
inline constexpr StorageKey kIsHidingBoardSectionsWithoutTasks{
    "Is.Hiding.Board.Sections.Without.Tasks"};
inline constexpr StorageKey kIsShowingEmptyAttributes{"Is.Showing.Empty.Attributes"};
inline constexpr StorageKey kAttachmentThumbnailType{"Attachment.Thumbnail.Type"};
inline constexpr StorageKey kTaskActions{"Task.Actions"};
inline constexpr StorageKey kIsShowingSuggestions{"Is.Showing.Suggestions"};
inline constexpr StorageKey kIsOpeningDefaultCategoryOnLaunch{
    "Is.Opening.Default.Category.On.Launch"};
inline constexpr StorageKey kIsStartDateAllDay{"Is.Start.Date.All.Day"};
inline constexpr StorageKey kIsDueDateAllDay{"Is.Due.Date.All.Day"};
inline constexpr StorageKey kIsShowingProgress{"Is.Showing.Progress"};
inline constexpr StorageKey kIsAssistEnabled{"Is.Assist.Enabled"};

// ---- The migration of the standard suite into the group ---------------------------

inline constexpr StorageKey kDidMigrateUserDefaultsToAppGroup{
    "Did.Migrate.User.Defaults.To.App.Group"};

// ---- Other subsystems --------------------------------------------------------------

/// The default list (a category identifier).
inline constexpr StorageKey kDefaultCategory{"Default.Category"};
/// The paid-tier flag.
inline constexpr StorageKey kIsSuccessfulPurchase{"Is.Successful.Purchase"};
/// The app lock is switched on (AuthenticationManager).
inline constexpr StorageKey kIsAuthenticationEnabled{"Is.Authentication.Enabled"};
/// The lists (categoryID) the active focus filter selects; absent: no focus.
inline constexpr StorageKey kFocusFilterCategories{"Focus.Filter.Categories"};
/// The calendar sources of the mirror: vdir roots (paths) and CalDAV URLs.
inline constexpr StorageKey kCalendarSources{"Calendar.Sources"};
/// The cloud database: a libpq connection string or service name, never a
/// password (libpq's password and service files hold those).
inline constexpr StorageKey kCloudDatabaseConnection{"Cloud.Database.Connection"};
/// Cloud sync is switched on (`tasket sync setup`).
inline constexpr StorageKey kIsCloudSyncEnabled{"Is.Cloud.Sync.Enabled"};
/// The history position processed last.
inline constexpr StorageKey kPersistentHistoryToken{"Persistent.History.Token"};

// Object sort orders and directions. Uneven on purpose: the folder and
// custom-attribute directions end in "Sort.Order.Direction", the others in
// "Sort.Direction".
inline constexpr StorageKey kFoldersSortOrder{"Folders.Sort.Order"};
inline constexpr StorageKey kFoldersSortOrderDirection{"Folders.Sort.Order.Direction"};
inline constexpr StorageKey kSmartCategoriesSortOrder{"Smart.Categories.Sort.Order"};
inline constexpr StorageKey kSmartCategoriesSortDirection{"Smart.Categories.Sort.Direction"};
inline constexpr StorageKey kCategoriesSortOrder{"Categories.Sort.Order"};
inline constexpr StorageKey kCategoriesSortDirection{"Categories.Sort.Direction"};
inline constexpr StorageKey kTagsSortOrder{"Tags.Sort.Order"};
inline constexpr StorageKey kTagsSortDirection{"Tags.Sort.Direction"};
inline constexpr StorageKey kPrioritiesSortOrder{"Priorities.Sort.Order"};
inline constexpr StorageKey kPrioritiesSortDirection{"Priorities.Sort.Direction"};
inline constexpr StorageKey kStatusesSortOrder{"Statuses.Sort.Order"};
inline constexpr StorageKey kStatusesSortDirection{"Statuses.Sort.Direction"};
inline constexpr StorageKey kCustomAttributesSortOrder{"Custom.Attributes.Sort.Order"};
inline constexpr StorageKey kCustomAttributesSortOrderDirection{
    "Custom.Attributes.Sort.Order.Direction"};
inline constexpr StorageKey kValuesSortOrder{"Values.Sort.Order"};
inline constexpr StorageKey kValuesSortDirection{"Values.Sort.Direction"};

// Sync queues: identifiers of objects whose cloud records are still owed.
inline constexpr StorageKey kNotSyncedFolders{"Not.Synced.Folders"};
inline constexpr StorageKey kNotSyncedSmartCategories{"Not.Synced.Smart.Categories"};
inline constexpr StorageKey kNotSyncedCategories{"Not.Synced.Categories"};
inline constexpr StorageKey kNotSyncedTags{"Not.Synced.Tags"};
inline constexpr StorageKey kNotSyncedPriorities{"Not.Synced.Priorities"};
inline constexpr StorageKey kNotSyncedStatuses{"Not.Synced.Statuses"};
inline constexpr StorageKey kNotSyncedAttributes{"Not.Synced.Attributes"};
inline constexpr StorageKey kNotSyncedValues{"Not.Synced.Values"};
inline constexpr StorageKey kNotSyncedSections{"Not.Synced.Sections"};
inline constexpr StorageKey kNotSyncedTasks{"Not.Synced.Tasks"};
inline constexpr StorageKey kNotSyncedSubtasks{"Not.Synced.Subtasks"};
inline constexpr StorageKey kNotSyncedAttachments{"Not.Synced.Attachments"};
inline constexpr StorageKey kNotSyncedZones{"Not.Synced.Zones"};

// Cloud bookkeeping.
inline constexpr StorageKey kCloudAccountStatus{"Cloud.Account.Status"};
inline constexpr StorageKey kLastCloudAccountStatusCheckDate{
    "Last.Cloud.Account.Status.Check.Date"};
inline constexpr StorageKey kCloudFetchStatus{"Cloud.Fetch.Status"};
inline constexpr StorageKey kLastCloudFetchDate{"Last.Cloud.Fetch.Date"};
inline constexpr StorageKey kCloudUploadStatus{"Cloud.Upload.Status"};
inline constexpr StorageKey kLastCloudUploadDate{"Last.Cloud.Upload.Date"};
inline constexpr StorageKey kDidCreatePrivateDatabaseSubscription{
    "Did.Create.Private.Database.Subscription"};
inline constexpr StorageKey kDidCreateSharedDatabaseSubscription{
    "Did.Create.Shared.Database.Subscription"};

// ---- Badge settings as the views receive them ----------------------------------------

inline constexpr std::string_view kTaskBadgesBackgroundTypeEnvironment =
    "__Key_taskBadgesBackgroundType";
inline constexpr std::string_view kTaskStartDateBadgeTypeEnvironment =
    "__Key_taskStartDateBadgeType";
inline constexpr std::string_view kTaskDueDateBadgeTypeEnvironment = "__Key_taskDueDateBadgeType";
inline constexpr std::string_view kTaskCategoryBadgeTypeEnvironment = "__Key_taskCategoryBadgeType";
inline constexpr std::string_view kTaskPriorityBadgeTypeEnvironment = "__Key_taskPriorityBadgeType";
inline constexpr std::string_view kTaskStatusBadgeTypeEnvironment = "__Key_taskStatusBadgeType";
inline constexpr std::string_view kTaskURLBadgeTypeEnvironment = "__Key_taskURLBadgeType";
inline constexpr std::string_view kTaskTagBadgeTypeEnvironment = "__Key_taskTagBadgeType";
inline constexpr std::string_view kTaskValueBadgeTypeEnvironment = "__Key_taskValueBadgeType";

} // namespace tasket::settings::keys
