// What a list does to a task that enters it (list actions), and the actions
// offered in the menus of tasks, board sections and attributes. Case names
// that are C++ keywords carry a trailing underscore in code only; their case
// name stays the domain's ("delete").
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

// ---- List actions ------------------------------------------------------------

enum class TK_ListAction { markAsDone, addToList, removeFromList, scheduleReminder };
enum class TK_MarkAsDoneAction { none, mark, unmark };
enum class TK_ScheduleReminderAction { none, schedule, unschedule };
enum class TK_ScheduleReminderActionType { exact, relative };
enum class TK_ScheduleReminderActionTimePeriod { minute, hour, day, week, month, year };

template <> struct EnumTraits<TK_ListAction> {
    using enum TK_ListAction;
    static constexpr std::string_view typeName = "TK_ListAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ListAction>>({
        {markAsDone, "markAsDone", "Mark as Done"},
        {addToList, "addToList", "Add to List"},
        {removeFromList, "removeFromList", "Remove from List"},
        {scheduleReminder, "scheduleReminder", "Schedule Reminder"},
    });
};

template <> struct EnumTraits<TK_MarkAsDoneAction> {
    using enum TK_MarkAsDoneAction;
    static constexpr std::string_view typeName = "TK_MarkAsDoneAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_MarkAsDoneAction>>({
        {none, "none", "None"},
        {mark, "mark", "Mark as Done"},
        {unmark, "unmark", "Mark as Not Done"},
    });
};

template <> struct EnumTraits<TK_ScheduleReminderAction> {
    using enum TK_ScheduleReminderAction;
    static constexpr std::string_view typeName = "TK_ScheduleReminderAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ScheduleReminderAction>>({
        {none, "none", "None"},
        {schedule, "schedule", "Schedule"},
        {unschedule, "unschedule", "Unschedule"},
    });
};

template <> struct EnumTraits<TK_ScheduleReminderActionType> {
    using enum TK_ScheduleReminderActionType;
    static constexpr std::string_view typeName = "TK_ScheduleReminderActionType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ScheduleReminderActionType>>({
        {exact, "exact", "Exact"},
        {relative, "relative", "Relative"},
    });
};

template <> struct EnumTraits<TK_ScheduleReminderActionTimePeriod> {
    using enum TK_ScheduleReminderActionTimePeriod;
    static constexpr std::string_view typeName = "TK_ScheduleReminderActionTimePeriod";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ScheduleReminderActionTimePeriod>>({
        {minute, "minute", "Minute"},
        {hour, "hour", "Hour"},
        {day, "day", "Day"},
        {week, "week", "Week"},
        {month, "month", "Month"},
        {year, "year", "Year"},
    });
};

// ---- Task and object menus -------------------------------------------------------

enum class TK_TaskAction {
    markAsDone,
    edit,
    title,
    notes,
    url,
    reminder,
    color,
    category,
    task,
    subtasks,
    tags,
    priority,
    status,
    pin,
    attachments,
    values,
    newSubtask,
    duplicate,
    archive,
    removeFromSection,
    delete_
};
enum class TK_TaskActionsSection {
    markAsDone,
    edit,
    titleNotesURL,
    reminder,
    color,
    categoryTaskSubtasksTagsPriorityStatus,
    pin,
    attachments,
    values,
    newSubtaskDuplicate,
    archiveRemoveFromSectionDelete
};
enum class TK_BoardSectionAction { edit, duplicate, delete_ };
enum class TK_AttributeAction { edit, newValue, duplicate, hide, delete_, showPremiumPlan };
enum class TK_DuplicationType { none, only, with };

template <> struct EnumTraits<TK_TaskAction> {
    using enum TK_TaskAction;
    static constexpr std::string_view typeName = "TK_TaskAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TaskAction>>({
        {markAsDone, "markAsDone", "Mark as Done"},
        {edit, "edit", "Edit"},
        {title, "title", "Title"},
        {notes, "notes", "Notes"},
        {url, "url", "URL"},
        {reminder, "reminder", "Reminder"},
        {color, "color", "Color"},
        {category, "category", "Category"},
        {task, "task", "Task"},
        {subtasks, "subtasks", "Subtasks"},
        {tags, "tags", "Tags"},
        {priority, "priority", "Priority"},
        {status, "status", "Status"},
        {pin, "pin", "Pin"},
        {attachments, "attachments", "Attachments"},
        {values, "values", "Values"},
        {newSubtask, "newSubtask", "New Subtask"},
        {duplicate, "duplicate", "Duplicate"},
        {archive, "archive", "Archive"},
        {removeFromSection, "removeFromSection", "Remove from Section"},
        {delete_, "delete", "Delete"},
    });
};

template <> struct EnumTraits<TK_TaskActionsSection> {
    using enum TK_TaskActionsSection;
    static constexpr std::string_view typeName = "TK_TaskActionsSection";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TaskActionsSection>>({
        {markAsDone, "markAsDone", "Mark as Done"},
        {edit, "edit", "Edit"},
        {titleNotesURL, "titleNotesURL", "Title, Notes & URL"},
        {reminder, "reminder", "Reminder"},
        {color, "color", "Color"},
        {categoryTaskSubtasksTagsPriorityStatus, "categoryTaskSubtasksTagsPriorityStatus",
         "Category, Task, Subtasks, Tags, Priority & Status"},
        {pin, "pin", "Pin"},
        {attachments, "attachments", "Attachments"},
        {values, "values", "Values"},
        {newSubtaskDuplicate, "newSubtaskDuplicate", "New Subtask & Duplicate"},
        {archiveRemoveFromSectionDelete, "archiveRemoveFromSectionDelete",
         "Archive, Remove from Section & Delete"},
    });
};

template <> struct EnumTraits<TK_BoardSectionAction> {
    using enum TK_BoardSectionAction;
    static constexpr std::string_view typeName = "TK_BoardSectionAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_BoardSectionAction>>({
        {edit, "edit", "Edit"},
        {duplicate, "duplicate", "Duplicate"},
        {delete_, "delete", "Delete"},
    });
};

template <> struct EnumTraits<TK_AttributeAction> {
    using enum TK_AttributeAction;
    static constexpr std::string_view typeName = "TK_AttributeAction";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttributeAction>>({
        {edit, "edit", "Edit"},
        {newValue, "newValue", "New Value"},
        {duplicate, "duplicate", "Duplicate"},
        {hide, "hide", "Hide"},
        {delete_, "delete", "Delete"},
        {showPremiumPlan, "showPremiumPlan", "Tasket Premium"},
    });
};

// The titles of `only` and `with` depend on the object; see duplication.h.
template <> struct EnumTraits<TK_DuplicationType> {
    using enum TK_DuplicationType;
    static constexpr std::string_view typeName = "TK_DuplicationType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_DuplicationType>>({
        {none, "none", "None"},
        {only, "only", "Duplicate"},
        {with, "with", "Duplicate with Contents"},
    });
};

static_assert(isWellFormedTable<TK_ListAction>());
static_assert(isWellFormedTable<TK_MarkAsDoneAction>());
static_assert(isWellFormedTable<TK_ScheduleReminderAction>());
static_assert(isWellFormedTable<TK_ScheduleReminderActionType>());
static_assert(isWellFormedTable<TK_ScheduleReminderActionTimePeriod>());
static_assert(isWellFormedTable<TK_TaskAction>());
static_assert(isWellFormedTable<TK_TaskActionsSection>());
static_assert(isWellFormedTable<TK_BoardSectionAction>());
static_assert(isWellFormedTable<TK_AttributeAction>());
static_assert(isWellFormedTable<TK_DuplicationType>());

} // namespace tasket::rules
