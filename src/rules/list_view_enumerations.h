// How a task list is laid out, ordered and quick-filtered, and how the
// organising objects are ordered in sidebars and pickers. Held by lists, tags,
// priorities, statuses, attribute values, smart lists and (view fields) folders.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_TasksViewType { none, list, grid, board, timeline };
enum class TK_TasksViewAppearance { standard, compact };
enum class TK_TasksBoardType {
    none,
    notCompletedCompleted,
    categories,
    tags,
    priorities,
    statuses,
    values,
    custom
};
enum class TK_TasksSortOrder { custom, alphabetical, dueDate, creationDate, completed, startDate };
enum class TK_ObjectsSortOrderDirection { ascending, descending };
enum class TK_ObjectsSortOrder { alphabetical, numberOfTasks, creationDate, custom };
// Codes are tested by number in the task predicates: all = 0 … custom = 8.
enum class TK_TasksFilter {
    all,
    withReminder,
    withTags,
    withSubtasks,
    withPriority,
    withStatus,
    withValues,
    pinned,
    custom
};

template <> struct EnumTraits<TK_TasksViewType> {
    using enum TK_TasksViewType;
    static constexpr std::string_view typeName = "TK_TasksViewType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TasksViewType>>({
        {none, "none", "None"},
        {list, "list", "List"},
        {grid, "grid", "Grid"},
        {board, "board", "Board"},
        {timeline, "timeline", "Timeline"},
    });
};

template <> struct EnumTraits<TK_TasksViewAppearance> {
    using enum TK_TasksViewAppearance;
    static constexpr std::string_view typeName = "TK_TasksViewAppearance";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TasksViewAppearance>>({
        {standard, "standard", "Standard"},
        {compact, "compact", "Compact"},
    });
};

template <> struct EnumTraits<TK_TasksBoardType> {
    using enum TK_TasksBoardType;
    static constexpr std::string_view typeName = "TK_TasksBoardType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TasksBoardType>>({
        {none, "none", "None"},
        {notCompletedCompleted, "notCompletedCompleted", "Not Completed & Completed"},
        {categories, "categories", "Categories"},
        {tags, "tags", "Tags"},
        {priorities, "priorities", "Priorities"},
        {statuses, "statuses", "Statuses"},
        {values, "values", "Values"},
        {custom, "custom", "Custom"},
    });
};

template <> struct EnumTraits<TK_TasksSortOrder> {
    using enum TK_TasksSortOrder;
    static constexpr std::string_view typeName = "TK_TasksSortOrder";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TasksSortOrder>>({
        {custom, "custom", "Custom"},
        {alphabetical, "alphabetical", "Alphabetical"},
        {dueDate, "dueDate", "Due Date"},
        {creationDate, "creationDate", "Creation Date"},
        {completed, "completed", "Completed"},
        {startDate, "startDate", "Start Date"},
    });
};

template <> struct EnumTraits<TK_ObjectsSortOrderDirection> {
    using enum TK_ObjectsSortOrderDirection;
    static constexpr std::string_view typeName = "TK_ObjectsSortOrderDirection";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ObjectsSortOrderDirection>>({
        {ascending, "ascending", "Ascending"},
        {descending, "descending", "Descending"},
    });
};

template <> struct EnumTraits<TK_ObjectsSortOrder> {
    using enum TK_ObjectsSortOrder;
    static constexpr std::string_view typeName = "TK_ObjectsSortOrder";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ObjectsSortOrder>>({
        {alphabetical, "alphabetical", "Alphabetical"},
        {numberOfTasks, "numberOfTasks", "Number of Tasks"},
        {creationDate, "creationDate", "Creation Date"},
        {custom, "custom", "Custom"},
    });
};

template <> struct EnumTraits<TK_TasksFilter> {
    using enum TK_TasksFilter;
    static constexpr std::string_view typeName = "TK_TasksFilter";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_TasksFilter>>({
        {all, "all", "All"},
        {withReminder, "withReminder", "With Reminder"},
        {withTags, "withTags", "With Tags"},
        {withSubtasks, "withSubtasks", "With Subtasks"},
        {withPriority, "withPriority", "With Priority"},
        {withStatus, "withStatus", "With Status"},
        {withValues, "withValues", "With Values"},
        {pinned, "pinned", "Pinned"},
        {custom, "custom", "Custom"},
    });
};

static_assert(isWellFormedTable<TK_TasksViewType>());
static_assert(isWellFormedTable<TK_TasksViewAppearance>());
static_assert(isWellFormedTable<TK_TasksBoardType>());
static_assert(isWellFormedTable<TK_TasksSortOrder>());
static_assert(isWellFormedTable<TK_ObjectsSortOrderDirection>());
static_assert(isWellFormedTable<TK_ObjectsSortOrder>());
static_assert(isWellFormedTable<TK_TasksFilter>());

} // namespace tasket::rules
