// The choices held by user settings: the timeline, the unassigned board
// section, the task badges, the assistant, and the calendar mirror mode.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_TimelineType { all, withReminders };
enum class TK_UnassignedSectionPlacement { none, first, last };
enum class TK_TaskBadgesBackgroundType { transparent, solid };
enum class TK_TaskStartDateBadgeType { ifReminderEnabled, always, never };
enum class TK_TaskDueDateBadgeType { ifReminderEnabled, always, never };
enum class TK_TaskCategoryBadgeType { ifNotInItsTasksList, always, never };
enum class TK_TaskPriorityBadgeType { ifNotInItsTasksList, always, never };
enum class TK_TaskStatusBadgeType { ifNotInItsTasksList, always, never };
enum class TK_TaskTagBadgeType { ifNotInItsTasksList, always, never };
enum class TK_TaskValueBadgeType { ifNotInItsTasksList, always, never };
enum class TK_TaskURLBadgeType { always, never };
enum class TK_AssistOption { createTasks, createSubtasks };
enum class TK_Database { tasket, tasketAndReminders, tasketAndRemindersAddOnly };
enum class TK_RemindersDatabaseType { all, exact, addOnly };

namespace detail {

template <class E> struct DateBadgeTraits {
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<E>>({
        {E::ifReminderEnabled, "ifReminderEnabled", "If Reminder Enabled"},
        {E::always, "always", "Always"},
        {E::never, "never", "Never"},
    });
};

template <class E> struct ObjectBadgeTraits {
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<E>>({
        {E::ifNotInItsTasksList, "ifNotInItsTasksList", "If Not in Its Tasks List"},
        {E::always, "always", "Always"},
        {E::never, "never", "Never"},
    });
};

} // namespace detail

template <> struct EnumTraits<TK_TimelineType> {
    using enum TK_TimelineType;
    static constexpr std::string_view typeName = "TK_TimelineType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TimelineType>>({
        {all, "all", "All"},
        {withReminders, "withReminders", "With Reminders"},
    });
};

template <> struct EnumTraits<TK_UnassignedSectionPlacement> {
    using enum TK_UnassignedSectionPlacement;
    static constexpr std::string_view typeName = "TK_UnassignedSectionPlacement";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_UnassignedSectionPlacement>>({
        {none, "none", "None"},
        {first, "first", "First"},
        {last, "last", "Last"},
    });
};

template <> struct EnumTraits<TK_TaskBadgesBackgroundType> {
    using enum TK_TaskBadgesBackgroundType;
    static constexpr std::string_view typeName = "TK_TaskBadgesBackgroundType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TaskBadgesBackgroundType>>({
        {transparent, "transparent", "Transparent"},
        {solid, "solid", "Solid"},
    });
};

template <>
struct EnumTraits<TK_TaskStartDateBadgeType> : detail::DateBadgeTraits<TK_TaskStartDateBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskStartDateBadgeType";
};
template <>
struct EnumTraits<TK_TaskDueDateBadgeType> : detail::DateBadgeTraits<TK_TaskDueDateBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskDueDateBadgeType";
};
template <>
struct EnumTraits<TK_TaskCategoryBadgeType> : detail::ObjectBadgeTraits<TK_TaskCategoryBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskCategoryBadgeType";
};
template <>
struct EnumTraits<TK_TaskPriorityBadgeType> : detail::ObjectBadgeTraits<TK_TaskPriorityBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskPriorityBadgeType";
};
template <>
struct EnumTraits<TK_TaskStatusBadgeType> : detail::ObjectBadgeTraits<TK_TaskStatusBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskStatusBadgeType";
};
template <>
struct EnumTraits<TK_TaskTagBadgeType> : detail::ObjectBadgeTraits<TK_TaskTagBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskTagBadgeType";
};
template <>
struct EnumTraits<TK_TaskValueBadgeType> : detail::ObjectBadgeTraits<TK_TaskValueBadgeType> {
    static constexpr std::string_view typeName = "TK_TaskValueBadgeType";
};

template <> struct EnumTraits<TK_TaskURLBadgeType> {
    using enum TK_TaskURLBadgeType;
    static constexpr std::string_view typeName = "TK_TaskURLBadgeType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TaskURLBadgeType>>({
        {always, "always", "Always"},
        {never, "never", "Never"},
    });
};

template <> struct EnumTraits<TK_AssistOption> {
    using enum TK_AssistOption;
    static constexpr std::string_view typeName = "TK_AssistOption";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AssistOption>>({
        {createTasks, "createTasks", "Create Tasks"},
        {createSubtasks, "createSubtasks", "Create Subtasks"},
    });
};

template <> struct EnumTraits<TK_Database> {
    using enum TK_Database;
    static constexpr std::string_view typeName = "TK_Database";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_Database>>({
        {tasket, "tasket", "Tasket"},
        {tasketAndReminders, "tasketAndReminders", "Tasket & Reminders"},
        {tasketAndRemindersAddOnly, "tasketAndRemindersAddOnly", "Tasket & Reminders (Add Only)"},
    });
};

template <> struct EnumTraits<TK_RemindersDatabaseType> {
    using enum TK_RemindersDatabaseType;
    static constexpr std::string_view typeName = "TK_RemindersDatabaseType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_RemindersDatabaseType>>({
        {all, "all", "All"},
        {exact, "exact", "Exact"},
        {addOnly, "addOnly", "Add Only"},
    });
};

static_assert(isWellFormedTable<TK_TimelineType>());
static_assert(isWellFormedTable<TK_UnassignedSectionPlacement>());
static_assert(isWellFormedTable<TK_TaskBadgesBackgroundType>());
static_assert(isWellFormedTable<TK_TaskStartDateBadgeType>());
static_assert(isWellFormedTable<TK_TaskDueDateBadgeType>());
static_assert(isWellFormedTable<TK_TaskCategoryBadgeType>());
static_assert(isWellFormedTable<TK_TaskPriorityBadgeType>());
static_assert(isWellFormedTable<TK_TaskStatusBadgeType>());
static_assert(isWellFormedTable<TK_TaskTagBadgeType>());
static_assert(isWellFormedTable<TK_TaskValueBadgeType>());
static_assert(isWellFormedTable<TK_TaskURLBadgeType>());
static_assert(isWellFormedTable<TK_AssistOption>());
static_assert(isWellFormedTable<TK_Database>());
static_assert(isWellFormedTable<TK_RemindersDatabaseType>());

} // namespace tasket::rules
