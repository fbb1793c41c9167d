// Kinds of stored object, where a task or list comes from (the store itself
// or a mirrored calendar item), and the reminder choices of a task: how its
// reminder repeats and how insistently it interrupts.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_ObjectType {
    none,
    folder,
    smartCategory,
    category,
    tag,
    priority,
    status,
    attribute,
    attributeValue,
    boardSection,
    task,
    subtask,
    attachment
};
enum class TK_FolderObjectType { smartCategory, category, tag, priority, status, attribute };
// Fetches select by code ("calendarType = %d").
enum class TK_CalendarType { none, reminder, event };
// everyMinute and hourly were added after yearly; their codes (5, 6) are kept.
enum class TK_RepeatInterval { none, daily, weekly, monthly, yearly, everyMinute, hourly };
enum class TK_ReminderInterruptionLevel { passive, active, timeSensitive };

template <> struct EnumTraits<TK_ObjectType> {
    using enum TK_ObjectType;
    static constexpr std::string_view typeName = "TK_ObjectType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ObjectType>>({
        {none, "none", "None"},
        {folder, "folder", "Folder"},
        {smartCategory, "smartCategory", "Smart Category"},
        {category, "category", "Category"},
        {tag, "tag", "Tag"},
        {priority, "priority", "Priority"},
        {status, "status", "Status"},
        {attribute, "attribute", "Attribute"},
        {attributeValue, "attributeValue", "Value"},
        {boardSection, "boardSection", "Section"},
        {task, "task", "Task"},
        {subtask, "subtask", "Subtask"},
        {attachment, "attachment", "Attachment"},
    });
};

template <> struct EnumTraits<TK_FolderObjectType> {
    using enum TK_FolderObjectType;
    static constexpr std::string_view typeName = "TK_FolderObjectType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_FolderObjectType>>({
        {smartCategory, "smartCategory", "Smart Categories"},
        {category, "category", "Categories"},
        {tag, "tag", "Tags"},
        {priority, "priority", "Priorities"},
        {status, "status", "Statuses"},
        {attribute, "attribute", "Attributes"},
    });
};

template <> struct EnumTraits<TK_CalendarType> {
    using enum TK_CalendarType;
    static constexpr std::string_view typeName = "TK_CalendarType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_CalendarType>>({
        {none, "none", "None"},
        {reminder, "reminder", "Reminder"},
        {event, "event", "Event"},
    });
};

template <> struct EnumTraits<TK_RepeatInterval> {
    using enum TK_RepeatInterval;
    static constexpr std::string_view typeName = "TK_RepeatInterval";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_RepeatInterval>>({
        {none, "none", "Never"},
        {daily, "daily", "Daily"},
        {weekly, "weekly", "Weekly"},
        {monthly, "monthly", "Monthly"},
        {yearly, "yearly", "Yearly"},
        {everyMinute, "everyMinute", "Every Minute"},
        {hourly, "hourly", "Hourly"},
    });
};

template <> struct EnumTraits<TK_ReminderInterruptionLevel> {
    using enum TK_ReminderInterruptionLevel;
    static constexpr std::string_view typeName = "TK_ReminderInterruptionLevel";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ReminderInterruptionLevel>>({
        {passive, "passive", "Passive"},
        {active, "active", "Active"},
        {timeSensitive, "timeSensitive", "Time Sensitive"},
    });
};

/// The label of the interruption-level picker.
inline constexpr std::string_view kReminderInterruptionLevelLabel = "Reminder Interruption Level";

static_assert(isWellFormedTable<TK_ObjectType>());
static_assert(isWellFormedTable<TK_FolderObjectType>());
static_assert(isWellFormedTable<TK_CalendarType>());
static_assert(isWellFormedTable<TK_RepeatInterval>());
static_assert(isWellFormedTable<TK_ReminderInterruptionLevel>());

} // namespace tasket::rules
