// The 34 settings of CustomizationManager, in their fixed order, with keys
// and defaults. This is the one place a default is chosen. kAllSettings
// visits them in order; kSettingInfos lists their descriptions.
#pragma once

#include "rules/action_enumerations.h"
#include "rules/attachment_enumerations.h"
#include "rules/color_enumerations.h"
#include "rules/settings_enumerations.h"
#include "rules/texts.h"
#include "settings/setting.h"
#include "settings/settings_keys.h"

#include <array>
#include <span>
#include <tuple>

namespace tasket::settings::catalog {

using namespace tasket::rules;
using enum SettingHome;

/// Offered task actions by default: all of them, in declaration order.
inline constexpr auto kAllTaskActions = allCases<TK_TaskAction>();

inline constexpr EnumSetting<TK_TintColor> tintColor{
    {"tintColor", keys::kTintColor, predatesAppGroup}, TK_TintColor::indigo, TK_TintColor::indigo};
inline constexpr EnumSetting<TK_Appearance> appearance{
    {"appearance", keys::kAppearance, predatesAppGroup},
    TK_Appearance::system,
    TK_Appearance::system};
inline constexpr Setting<bool> isHapticFeedbacksEnabled{
    {"isHapticFeedbacksEnabled", keys::kIsHapticFeedbacksEnabled, predatesAppGroup}, true};
inline constexpr EnumSetting<TK_TimelineType> timelineType{
    {"timelineType", keys::kTimelineType, predatesAppGroup},
    TK_TimelineType::all,
    TK_TimelineType::all};
inline constexpr Setting<std::string_view> unassignedSectionTitle{
    {"unassignedSectionTitle", keys::kUnassignedSectionTitle, appGroup},
    texts::kUnassigned.english};
inline constexpr EnumSetting<TK_Color> unassignedSectionColor{
    {"unassignedSectionColor", keys::kUnassignedSectionColor, appGroup},
    TK_Color::gray,
    TK_Color::gray};
inline constexpr Setting<std::string_view> unassignedSectionIcon{
    {"unassignedSectionIcon", keys::kUnassignedSectionIcon, appGroup}, "tray"};
inline constexpr EnumSetting<TK_UnassignedSectionPlacement> unassignedSectionPlacement{
    {"unassignedSectionPlacement", keys::kUnassignedSectionPlacement, appGroup},
    TK_UnassignedSectionPlacement::last,
    TK_UnassignedSectionPlacement::last};
inline constexpr Setting<bool> isExcludingCompletedTasks{
    {"isExcludingCompletedTasks", keys::kIsExcludingCompletedTasks, predatesAppGroup}, false};
inline constexpr EnumSetting<TK_TaskBadgesBackgroundType> taskBadgesBackgroundType{
    {"taskBadgesBackgroundType", keys::kTaskBadgesBackgroundType, predatesAppGroup,
     keys::kTaskBadgesBackgroundTypeEnvironment},
    TK_TaskBadgesBackgroundType::transparent,
    TK_TaskBadgesBackgroundType::transparent};
inline constexpr EnumSetting<TK_TaskStartDateBadgeType> taskStartDateBadgeType{
    {"taskStartDateBadgeType", keys::kTaskStartDateBadgeType, predatesAppGroup,
     keys::kTaskStartDateBadgeTypeEnvironment},
    TK_TaskStartDateBadgeType::ifReminderEnabled,
    TK_TaskStartDateBadgeType::ifReminderEnabled};
inline constexpr EnumSetting<TK_TaskDueDateBadgeType> taskDueDateBadgeType{
    {"taskDueDateBadgeType", keys::kTaskDueDateBadgeType, predatesAppGroup,
     keys::kTaskDueDateBadgeTypeEnvironment},
    TK_TaskDueDateBadgeType::ifReminderEnabled,
    TK_TaskDueDateBadgeType::ifReminderEnabled};
inline constexpr EnumSetting<TK_TaskCategoryBadgeType> taskCategoryBadgeType{
    {"taskCategoryBadgeType", keys::kTaskCategoryBadgeType, predatesAppGroup,
     keys::kTaskCategoryBadgeTypeEnvironment},
    TK_TaskCategoryBadgeType::ifNotInItsTasksList,
    TK_TaskCategoryBadgeType::ifNotInItsTasksList};
inline constexpr EnumSetting<TK_TaskPriorityBadgeType> taskPriorityBadgeType{
    {"taskPriorityBadgeType", keys::kTaskPriorityBadgeType, predatesAppGroup,
     keys::kTaskPriorityBadgeTypeEnvironment},
    TK_TaskPriorityBadgeType::ifNotInItsTasksList,
    TK_TaskPriorityBadgeType::ifNotInItsTasksList};
inline constexpr EnumSetting<TK_TaskStatusBadgeType> taskStatusBadgeType{
    {"taskStatusBadgeType", keys::kTaskStatusBadgeType, predatesAppGroup,
     keys::kTaskStatusBadgeTypeEnvironment},
    TK_TaskStatusBadgeType::ifNotInItsTasksList,
    TK_TaskStatusBadgeType::ifNotInItsTasksList};
inline constexpr EnumSetting<TK_TaskURLBadgeType> taskURLBadgeType{
    {"taskURLBadgeType", keys::kTaskURLBadgeType, predatesAppGroup,
     keys::kTaskURLBadgeTypeEnvironment},
    TK_TaskURLBadgeType::always,
    TK_TaskURLBadgeType::always};
inline constexpr EnumSetting<TK_TaskTagBadgeType> taskTagBadgeType{
    {"taskTagBadgeType", keys::kTaskTagBadgeType, predatesAppGroup,
     keys::kTaskTagBadgeTypeEnvironment},
    TK_TaskTagBadgeType::ifNotInItsTasksList,
    TK_TaskTagBadgeType::ifNotInItsTasksList};
inline constexpr EnumSetting<TK_TaskValueBadgeType> taskValueBadgeType{
    {"taskValueBadgeType", keys::kTaskValueBadgeType, predatesAppGroup,
     keys::kTaskValueBadgeTypeEnvironment},
    TK_TaskValueBadgeType::ifNotInItsTasksList,
    TK_TaskValueBadgeType::ifNotInItsTasksList};
inline constexpr Setting<bool> isStartDateRemindMeEnabled{
    {"isStartDateRemindMeEnabled", keys::kIsStartDateRemindMeEnabled, predatesAppGroup}, false};
inline constexpr Setting<bool> isDueDateRemindMeEnabled{
    {"isDueDateRemindMeEnabled", keys::kIsDueDateRemindMeEnabled, predatesAppGroup}, false};
inline constexpr Setting<TimeOfDay> allDayReminderTime{
    {"allDayReminderTime", keys::kAllDayReminderTime, predatesAppGroup}, TimeOfDay{9, 0}};
inline constexpr EnumSetting<TK_Database> database{
    {"database", keys::kDatabase, appGroup}, TK_Database::tasket, TK_Database::tasket};
// A corrupt stored value reads as `exact`, a missing one as `all`: deliberate.
inline constexpr EnumSetting<TK_RemindersDatabaseType> remindersDatabaseType{
    {"remindersDatabaseType", keys::kRemindersDatabaseType, appGroup},
    TK_RemindersDatabaseType::all,
    TK_RemindersDatabaseType::exact};
inline constexpr Setting<std::span<const std::string_view>> remindersLists{
    {"remindersLists", keys::kRemindersLists, appGroup}, {}};
inline constexpr Setting<bool> isHidingBoardSectionsWithoutTasks{
    {"isHidingBoardSectionsWithoutTasks", keys::kIsHidingBoardSectionsWithoutTasks, appGroup},
    false};
inline constexpr Setting<bool> isShowingEmptyAttributes{
    {"isShowingEmptyAttributes", keys::kIsShowingEmptyAttributes, appGroup}, false};
inline constexpr EnumSetting<TK_AttachmentThumbnailType> attachmentThumbnailType{
    {"attachmentThumbnailType", keys::kAttachmentThumbnailType, appGroup},
    TK_AttachmentThumbnailType::unknown,
    TK_AttachmentThumbnailType::unknown};
inline constexpr Setting<std::span<const TK_TaskAction>> taskActions{
    {"taskActions", keys::kTaskActions, appGroup}, kAllTaskActions};
inline constexpr Setting<bool> isShowingSuggestions{
    {"isShowingSuggestions", keys::kIsShowingSuggestions, appGroup}, true};
inline constexpr Setting<bool> isOpeningDefaultCategoryOnLaunch{
    {"isOpeningDefaultCategoryOnLaunch", keys::kIsOpeningDefaultCategoryOnLaunch, appGroup}, false};
inline constexpr Setting<bool> isStartDateAllDay{
    {"isStartDateAllDay", keys::kIsStartDateAllDay, appGroup}, true};
inline constexpr Setting<bool> isDueDateAllDay{
    {"isDueDateAllDay", keys::kIsDueDateAllDay, appGroup}, true};
inline constexpr Setting<bool> isShowingProgress{
    {"isShowingProgress", keys::kIsShowingProgress, appGroup}, true};
inline constexpr Setting<bool> isAssistEnabled{
    {"isAssistEnabled", keys::kIsAssistEnabled, appGroup}, false};

/// The app lock's switch, kept beside the 34 settings of CustomizationManager
/// (AuthenticationManager owns it).
inline constexpr Setting<bool> isAuthenticationEnabled{
    {"isAuthenticationEnabled", keys::kIsAuthenticationEnabled, appGroup}, false};

/// Where the calendar mirror's calendars live: vdir roots and CalDAV URLs.
inline constexpr Setting<std::span<const std::string_view>> calendarSources{
    {"calendarSources", keys::kCalendarSources, appGroup}, {}};

/// All 34 settings in order, for code that visits each (std::apply).
inline constexpr auto kAllSettings = std::tie(
    tintColor, appearance, isHapticFeedbacksEnabled, timelineType, unassignedSectionTitle,
    unassignedSectionColor, unassignedSectionIcon, unassignedSectionPlacement,
    isExcludingCompletedTasks, taskBadgesBackgroundType, taskStartDateBadgeType,
    taskDueDateBadgeType, taskCategoryBadgeType, taskPriorityBadgeType, taskStatusBadgeType,
    taskURLBadgeType, taskTagBadgeType, taskValueBadgeType, isStartDateRemindMeEnabled,
    isDueDateRemindMeEnabled, allDayReminderTime, database, remindersDatabaseType, remindersLists,
    isHidingBoardSectionsWithoutTasks, isShowingEmptyAttributes, attachmentThumbnailType,
    taskActions, isShowingSuggestions, isOpeningDefaultCategoryOnLaunch, isStartDateAllDay,
    isDueDateAllDay, isShowingProgress, isAssistEnabled);

/// The descriptions of all settings, in order.
inline constexpr auto kSettingInfos = std::apply(
    [](const auto&... setting) {
        return std::array<SettingInfo, sizeof...(setting)>{setting.info...};
    },
    kAllSettings);

static_assert(kSettingInfos.size() == 34);

} // namespace tasket::settings::catalog
