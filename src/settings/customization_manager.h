// CustomizationManager: the user's settings, kept in the application
// group's preferences suite so every process of the application shares them.
// Getters never fail (an unavailable suite, a missing key or a value of the
// wrong type reads as the setting's default); setters skip the write when the
// suite is unavailable. Settings that predate the group read and write the
// standard suite until the migration flag is set, the group suite after.
#pragma once

#include "platform/error.h"
#include "platform/preferences/preferences_suite.h"
#include "settings/detail/setting_codec.h"
#include "settings/settings_catalog.h"

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tasket::settings {

using rules::TK_Appearance;
using rules::TK_AttachmentThumbnailType;
using rules::TK_Color;
using rules::TK_Database;
using rules::TK_RemindersDatabaseType;
using rules::TK_TaskAction;
using rules::TK_TaskBadgesBackgroundType;
using rules::TK_TaskCategoryBadgeType;
using rules::TK_TaskDueDateBadgeType;
using rules::TK_TaskPriorityBadgeType;
using rules::TK_TaskStartDateBadgeType;
using rules::TK_TaskStatusBadgeType;
using rules::TK_TaskTagBadgeType;
using rules::TK_TaskURLBadgeType;
using rules::TK_TaskValueBadgeType;
using rules::TK_TimelineType;
using rules::TK_TintColor;
using rules::TK_UnassignedSectionPlacement;

class CustomizationManager {
  public:
    /// Settings over the application group's suite and the application's
    /// standard suite (both shared; neither may be null).
    CustomizationManager(std::shared_ptr<platform::PreferencesSuite> appGroupSuite,
                         std::shared_ptr<platform::PreferencesSuite> standardSuite);
    /// Settings over the user's suite files in $XDG_CONFIG_HOME.
    static CustomizationManager openUserSuites();

    CustomizationManager(const CustomizationManager&) = delete;
    CustomizationManager& operator=(const CustomizationManager&) = delete;

    // ---- Generic access to any setting of the catalog ----------------------------

    template <class S> auto value(const S& setting) const {
        return detail::decode(setting, storedValue(setting.info));
    }
    template <class S, class V> void setValue(const S& setting, const V& newValue) {
        if (auto encoded = detail::encode(newValue))
            store(setting.info, std::move(*encoded));
    }
    /// Forgets the stored value, so the setting reads as its default again.
    void resetValue(const SettingInfo& setting);

    // ---- The settings, in order ----------------------------------------------------

    TK_TintColor tintColor() const { return value(catalog::tintColor); }
    void setTintColor(TK_TintColor newValue) { setValue(catalog::tintColor, newValue); }
    TK_Appearance appearance() const { return value(catalog::appearance); }
    void setAppearance(TK_Appearance newValue) { setValue(catalog::appearance, newValue); }
    bool isHapticFeedbacksEnabled() const { return value(catalog::isHapticFeedbacksEnabled); }
    void setIsHapticFeedbacksEnabled(bool newValue) {
        setValue(catalog::isHapticFeedbacksEnabled, newValue);
    }
    TK_TimelineType timelineType() const { return value(catalog::timelineType); }
    void setTimelineType(TK_TimelineType newValue) { setValue(catalog::timelineType, newValue); }
    std::string unassignedSectionTitle() const { return value(catalog::unassignedSectionTitle); }
    void setUnassignedSectionTitle(std::string_view newValue) {
        setValue(catalog::unassignedSectionTitle, newValue);
    }
    TK_Color unassignedSectionColor() const { return value(catalog::unassignedSectionColor); }
    void setUnassignedSectionColor(TK_Color newValue) {
        setValue(catalog::unassignedSectionColor, newValue);
    }
    std::string unassignedSectionIcon() const { return value(catalog::unassignedSectionIcon); }
    void setUnassignedSectionIcon(std::string_view newValue) {
        setValue(catalog::unassignedSectionIcon, newValue);
    }
    TK_UnassignedSectionPlacement unassignedSectionPlacement() const {
        return value(catalog::unassignedSectionPlacement);
    }
    void setUnassignedSectionPlacement(TK_UnassignedSectionPlacement newValue) {
        setValue(catalog::unassignedSectionPlacement, newValue);
    }
    bool isExcludingCompletedTasks() const { return value(catalog::isExcludingCompletedTasks); }
    void setIsExcludingCompletedTasks(bool newValue) {
        setValue(catalog::isExcludingCompletedTasks, newValue);
    }
    TK_TaskBadgesBackgroundType taskBadgesBackgroundType() const {
        return value(catalog::taskBadgesBackgroundType);
    }
    void setTaskBadgesBackgroundType(TK_TaskBadgesBackgroundType newValue) {
        setValue(catalog::taskBadgesBackgroundType, newValue);
    }
    TK_TaskStartDateBadgeType taskStartDateBadgeType() const {
        return value(catalog::taskStartDateBadgeType);
    }
    void setTaskStartDateBadgeType(TK_TaskStartDateBadgeType newValue) {
        setValue(catalog::taskStartDateBadgeType, newValue);
    }
    TK_TaskDueDateBadgeType taskDueDateBadgeType() const {
        return value(catalog::taskDueDateBadgeType);
    }
    void setTaskDueDateBadgeType(TK_TaskDueDateBadgeType newValue) {
        setValue(catalog::taskDueDateBadgeType, newValue);
    }
    TK_TaskCategoryBadgeType taskCategoryBadgeType() const {
        return value(catalog::taskCategoryBadgeType);
    }
    void setTaskCategoryBadgeType(TK_TaskCategoryBadgeType newValue) {
        setValue(catalog::taskCategoryBadgeType, newValue);
    }
    TK_TaskPriorityBadgeType taskPriorityBadgeType() const {
        return value(catalog::taskPriorityBadgeType);
    }
    void setTaskPriorityBadgeType(TK_TaskPriorityBadgeType newValue) {
        setValue(catalog::taskPriorityBadgeType, newValue);
    }
    TK_TaskStatusBadgeType taskStatusBadgeType() const {
        return value(catalog::taskStatusBadgeType);
    }
    void setTaskStatusBadgeType(TK_TaskStatusBadgeType newValue) {
        setValue(catalog::taskStatusBadgeType, newValue);
    }
    TK_TaskURLBadgeType taskURLBadgeType() const { return value(catalog::taskURLBadgeType); }
    void setTaskURLBadgeType(TK_TaskURLBadgeType newValue) {
        setValue(catalog::taskURLBadgeType, newValue);
    }
    TK_TaskTagBadgeType taskTagBadgeType() const { return value(catalog::taskTagBadgeType); }
    void setTaskTagBadgeType(TK_TaskTagBadgeType newValue) {
        setValue(catalog::taskTagBadgeType, newValue);
    }
    TK_TaskValueBadgeType taskValueBadgeType() const { return value(catalog::taskValueBadgeType); }
    void setTaskValueBadgeType(TK_TaskValueBadgeType newValue) {
        setValue(catalog::taskValueBadgeType, newValue);
    }
    bool isStartDateRemindMeEnabled() const { return value(catalog::isStartDateRemindMeEnabled); }
    void setIsStartDateRemindMeEnabled(bool newValue) {
        setValue(catalog::isStartDateRemindMeEnabled, newValue);
    }
    bool isDueDateRemindMeEnabled() const { return value(catalog::isDueDateRemindMeEnabled); }
    void setIsDueDateRemindMeEnabled(bool newValue) {
        setValue(catalog::isDueDateRemindMeEnabled, newValue);
    }
    TimeOfDay allDayReminderTime() const { return value(catalog::allDayReminderTime); }
    void setAllDayReminderTime(TimeOfDay newValue) {
        setValue(catalog::allDayReminderTime, newValue);
    }
    TK_Database database() const { return value(catalog::database); }
    void setDatabase(TK_Database newValue) { setValue(catalog::database, newValue); }
    TK_RemindersDatabaseType remindersDatabaseType() const {
        return value(catalog::remindersDatabaseType);
    }
    void setRemindersDatabaseType(TK_RemindersDatabaseType newValue) {
        setValue(catalog::remindersDatabaseType, newValue);
    }
    // The mode as three switches; turning one on chooses its mode, turning
    // one off changes nothing (one mode is always chosen).
    bool isTasketAndRemindersAllDatabase() const {
        return remindersDatabaseType() == TK_RemindersDatabaseType::all;
    }
    void setIsTasketAndRemindersAllDatabase(bool on) {
        if (on)
            setRemindersDatabaseType(TK_RemindersDatabaseType::all);
    }
    bool isTasketAndRemindersExactDatabase() const {
        return remindersDatabaseType() == TK_RemindersDatabaseType::exact;
    }
    void setIsTasketAndRemindersExactDatabase(bool on) {
        if (on)
            setRemindersDatabaseType(TK_RemindersDatabaseType::exact);
    }
    bool isTasketAndRemindersAddOnlyDatabase() const {
        return remindersDatabaseType() == TK_RemindersDatabaseType::addOnly;
    }
    void setIsTasketAndRemindersAddOnlyDatabase(bool on) {
        if (on)
            setRemindersDatabaseType(TK_RemindersDatabaseType::addOnly);
    }
    std::vector<std::string> remindersLists() const { return value(catalog::remindersLists); }
    void setRemindersLists(std::span<const std::string> newValue) {
        setValue(catalog::remindersLists, newValue);
    }
    bool isHidingBoardSectionsWithoutTasks() const {
        return value(catalog::isHidingBoardSectionsWithoutTasks);
    }
    void setIsHidingBoardSectionsWithoutTasks(bool newValue) {
        setValue(catalog::isHidingBoardSectionsWithoutTasks, newValue);
    }
    bool isShowingEmptyAttributes() const { return value(catalog::isShowingEmptyAttributes); }
    void setIsShowingEmptyAttributes(bool newValue) {
        setValue(catalog::isShowingEmptyAttributes, newValue);
    }
    TK_AttachmentThumbnailType attachmentThumbnailType() const {
        return value(catalog::attachmentThumbnailType);
    }
    void setAttachmentThumbnailType(TK_AttachmentThumbnailType newValue) {
        setValue(catalog::attachmentThumbnailType, newValue);
    }
    std::vector<TK_TaskAction> taskActions() const { return value(catalog::taskActions); }
    void setTaskActions(std::span<const TK_TaskAction> newValue) {
        setValue(catalog::taskActions, newValue);
    }
    bool isShowingSuggestions() const { return value(catalog::isShowingSuggestions); }
    void setIsShowingSuggestions(bool newValue) {
        setValue(catalog::isShowingSuggestions, newValue);
    }
    bool isOpeningDefaultCategoryOnLaunch() const {
        return value(catalog::isOpeningDefaultCategoryOnLaunch);
    }
    void setIsOpeningDefaultCategoryOnLaunch(bool newValue) {
        setValue(catalog::isOpeningDefaultCategoryOnLaunch, newValue);
    }
    bool isStartDateAllDay() const { return value(catalog::isStartDateAllDay); }
    void setIsStartDateAllDay(bool newValue) { setValue(catalog::isStartDateAllDay, newValue); }
    bool isDueDateAllDay() const { return value(catalog::isDueDateAllDay); }
    void setIsDueDateAllDay(bool newValue) { setValue(catalog::isDueDateAllDay, newValue); }
    bool isShowingProgress() const { return value(catalog::isShowingProgress); }
    void setIsShowingProgress(bool newValue) { setValue(catalog::isShowingProgress, newValue); }
    bool isAssistEnabled() const { return value(catalog::isAssistEnabled); }
    void setIsAssistEnabled(bool newValue) { setValue(catalog::isAssistEnabled, newValue); }

    // ---- Migration of the standard suite into the group ------------------------------

    /// Whether the settings that predate the group have been moved into it.
    bool didMigrateUserDefaultsToAppGroup() const;
    /// Moves them once: copies each predating setting's value from the
    /// standard suite into the group (a setting the standard suite lacks is
    /// cleared in the group, so it reads as it read before) and sets the flag,
    /// all in one write of the group suite. Returns true when this call moved
    /// them, false when they had been moved already. Fails (and leaves the
    /// flag unset, to try again later) when either suite is unavailable or
    /// the write fails.
    [[nodiscard]] platform::Result<bool> migrateUserDefaultsToAppGroup();

    /// The suites, for the bookkeeping of other subsystems (settings_keys.h).
    const std::shared_ptr<platform::PreferencesSuite>& appGroupSuite() const { return m_appGroup; }
    const std::shared_ptr<platform::PreferencesSuite>& standardSuite() const { return m_standard; }

  private:
    platform::PreferencesSuite& suiteFor(const SettingInfo& setting) const;
    std::optional<platform::PreferenceValue> storedValue(const SettingInfo& setting) const;
    void store(const SettingInfo& setting, platform::PreferenceValue value);

    std::shared_ptr<platform::PreferencesSuite> m_appGroup;
    std::shared_ptr<platform::PreferencesSuite> m_standard;
    // The flag only ever goes from unset to set, so once seen it need not be read again.
    mutable std::atomic<bool> m_migrated{false};
};

} // namespace tasket::settings
