// The filters of a smart list, one enumeration per dimension, and
// TK_SmartFilter, which names the dimensions themselves. The codes are fixed
// (off = 0, no = 1, yes = 2; TK_ReminderFilter off = 0 … upcoming = 5;
// TK_RelativeDate none = 0 … tomorrow = 4) because predicates test them by
// number. TK_CategoryFilter has no "no": every task belongs to a list.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_CompletedFilter { off, no, yes };
enum class TK_NotesFilter { off, no, yes };
enum class TK_URLFilter { off, no, yes };
enum class TK_ReminderFilter { off, no, range, relative, overdue, upcoming };
enum class TK_RelativeDate { none, custom, yesterday, today, tomorrow };
enum class TK_CategoryFilter { off, yes };
enum class TK_SubtaskFilter { off, no, yes };
enum class TK_TagFilter { off, no, yes };
enum class TK_PriorityFilter { off, no, yes };
enum class TK_StatusFilter { off, no, yes };
enum class TK_ValueFilter { off, no, yes };
enum class TK_PinFilter { off, no, yes };
enum class TK_AttachmentsSmartFilter { off, no, yes };
// Stored by case name.
enum class TK_SmartFilter {
    completed,
    notes,
    url,
    reminder,
    category,
    subtask,
    tag,
    priority,
    status,
    value,
    pin,
    attachments
};

namespace detail {

// The rows shared by the three-valued filters; each enumeration still has a
// table of its own.
template <class E> constexpr auto offNoYesCases() {
    return std::to_array<EnumCase<E>>({
        {E::off, "off", "Off"},
        {E::no, "no", "No"},
        {E::yes, "yes", "Yes"},
    });
}

template <class E> struct OffNoYesTraits {
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = offNoYesCases<E>();
};

} // namespace detail

template <> struct EnumTraits<TK_CompletedFilter> : detail::OffNoYesTraits<TK_CompletedFilter> {
    static constexpr std::string_view typeName = "TK_CompletedFilter";
};
template <> struct EnumTraits<TK_NotesFilter> : detail::OffNoYesTraits<TK_NotesFilter> {
    static constexpr std::string_view typeName = "TK_NotesFilter";
};
template <> struct EnumTraits<TK_URLFilter> : detail::OffNoYesTraits<TK_URLFilter> {
    static constexpr std::string_view typeName = "TK_URLFilter";
};
template <> struct EnumTraits<TK_SubtaskFilter> : detail::OffNoYesTraits<TK_SubtaskFilter> {
    static constexpr std::string_view typeName = "TK_SubtaskFilter";
};
template <> struct EnumTraits<TK_TagFilter> : detail::OffNoYesTraits<TK_TagFilter> {
    static constexpr std::string_view typeName = "TK_TagFilter";
};
template <> struct EnumTraits<TK_PriorityFilter> : detail::OffNoYesTraits<TK_PriorityFilter> {
    static constexpr std::string_view typeName = "TK_PriorityFilter";
};
template <> struct EnumTraits<TK_StatusFilter> : detail::OffNoYesTraits<TK_StatusFilter> {
    static constexpr std::string_view typeName = "TK_StatusFilter";
};
template <> struct EnumTraits<TK_ValueFilter> : detail::OffNoYesTraits<TK_ValueFilter> {
    static constexpr std::string_view typeName = "TK_ValueFilter";
};
template <> struct EnumTraits<TK_PinFilter> : detail::OffNoYesTraits<TK_PinFilter> {
    static constexpr std::string_view typeName = "TK_PinFilter";
};
template <>
struct EnumTraits<TK_AttachmentsSmartFilter> : detail::OffNoYesTraits<TK_AttachmentsSmartFilter> {
    static constexpr std::string_view typeName = "TK_AttachmentsSmartFilter";
};

template <> struct EnumTraits<TK_ReminderFilter> {
    using enum TK_ReminderFilter;
    static constexpr std::string_view typeName = "TK_ReminderFilter";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_ReminderFilter>>({
        {off, "off", "Off"},
        {no, "no", "No"},
        {range, "range", "Range"},
        {relative, "relative", "Relative"},
        {overdue, "overdue", "Overdue"},
        {upcoming, "upcoming", "Upcoming"},
    });
};

template <> struct EnumTraits<TK_RelativeDate> {
    using enum TK_RelativeDate;
    static constexpr std::string_view typeName = "TK_RelativeDate";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_RelativeDate>>({
        {none, "none", "None"},
        {custom, "custom", "Custom"},
        {yesterday, "yesterday", "Yesterday"},
        {today, "today", "Today"},
        {tomorrow, "tomorrow", "Tomorrow"},
    });
};

template <> struct EnumTraits<TK_CategoryFilter> {
    using enum TK_CategoryFilter;
    static constexpr std::string_view typeName = "TK_CategoryFilter";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_CategoryFilter>>({
        {off, "off", "Off"},
        {yes, "yes", "Yes"},
    });
};

template <> struct EnumTraits<TK_SmartFilter> {
    using enum TK_SmartFilter;
    static constexpr std::string_view typeName = "TK_SmartFilter";
    static constexpr EnumStorage storage = EnumStorage::name;
    static constexpr auto cases = std::to_array<EnumCase<TK_SmartFilter>>({
        {completed, "completed", "Completed"},
        {notes, "notes", "Notes"},
        {url, "url", "URL"},
        {reminder, "reminder", "Reminder"},
        {category, "category", "Category"},
        {subtask, "subtask", "Subtask"},
        {tag, "tag", "Tag"},
        {priority, "priority", "Priority"},
        {status, "status", "Status"},
        {value, "value", "Value"},
        {pin, "pin", "Pin"},
        {attachments, "attachments", "Attachments"},
    });
};

static_assert(isWellFormedTable<TK_CompletedFilter>());
static_assert(isWellFormedTable<TK_NotesFilter>());
static_assert(isWellFormedTable<TK_URLFilter>());
static_assert(isWellFormedTable<TK_ReminderFilter>());
static_assert(isWellFormedTable<TK_RelativeDate>());
static_assert(isWellFormedTable<TK_CategoryFilter>());
static_assert(isWellFormedTable<TK_SubtaskFilter>());
static_assert(isWellFormedTable<TK_TagFilter>());
static_assert(isWellFormedTable<TK_PriorityFilter>());
static_assert(isWellFormedTable<TK_StatusFilter>());
static_assert(isWellFormedTable<TK_ValueFilter>());
static_assert(isWellFormedTable<TK_PinFilter>());
static_assert(isWellFormedTable<TK_AttachmentsSmartFilter>());
static_assert(isWellFormedTable<TK_SmartFilter>());

} // namespace tasket::rules
