// The predicates that select tasks for a smart list, for a list's quick
// filter and for the members of one list. The builders work on plain
// values, so the store fills them from its records today and a transfer
// record can fill them later; "now" and the calendar come from the caller,
// which keeps a day boundary or a daylight-saving change testable.
#pragma once

#include "objectstore/predicate/predicate.h"
#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/uuid.h"
#include "rules/filter_enumerations.h"
#include "rules/list_view_enumerations.h"

#include <optional>
#include <string>
#include <vector>

namespace tasket::rules {

/// A smart list's filter fields, named as the smart list stores them, and
/// the identifiers of the objects its filters chose. An absent enumeration
/// restricts nothing, like off.
struct SmartFilterValues {
    std::optional<TK_CompletedFilter> completedFilter{};
    std::optional<TK_NotesFilter> notesFilter{};
    std::optional<TK_URLFilter> urlFilter{};
    std::optional<TK_ReminderFilter> startDateFilter{};
    std::optional<platform::Date> startDateFromDate{};
    std::optional<platform::Date> startDateToDate{};
    std::optional<TK_RelativeDate> startDateRelativeDate{};
    std::optional<TK_ReminderFilter> reminderFilter{};
    std::optional<platform::Date> reminderFromDate{};
    std::optional<platform::Date> reminderToDate{};
    std::optional<TK_RelativeDate> reminderRelativeDate{};
    std::optional<TK_CategoryFilter> categoryFilter{};
    std::optional<TK_SubtaskFilter> subtaskFilter{};
    std::optional<TK_TagFilter> tagFilter{};
    std::optional<TK_PriorityFilter> priorityFilter{};
    std::optional<TK_StatusFilter> statusFilter{};
    std::optional<TK_ValueFilter> valueFilter{};
    std::optional<TK_PinFilter> pinFilter{};
    std::optional<TK_AttachmentsSmartFilter> attachmentsFilter{};

    std::vector<std::string> filterCategoryIDs{};
    std::vector<std::string> filterTagIDs{};
    std::vector<std::string> filterPriorityIDs{};
    std::vector<std::string> filterStatusIDs{};
    std::vector<platform::Uuid> filterValueIDs{};
};

/// When a predicate is built: the moment and the user's calendar, whose
/// days the day-only dates are.
struct PredicateTime {
    platform::Date now;
    platform::Calendar calendar;
};

/// The AND of the sub-predicates the filters choose, dimension by dimension
/// in a fixed order; with every filter off, an empty AND (every task).
[[nodiscard]] objectstore::Predicate smartPredicate(const SmartFilterValues& filters,
                                                    const PredicateTime& time);

/// The quick filter of a list: nothing for all or an absent filter, the
/// filter's own predicate otherwise, and for custom the AND of the smart
/// predicates of the list's filter records (`customFilters`).
[[nodiscard]] std::optional<objectstore::Predicate>
quickFilterPredicate(std::optional<TK_TasksFilter> filter,
                     const std::vector<SmartFilterValues>& customFilters,
                     const PredicateTime& time);

// ---- Membership: the tasks of one list ---------------------------------------------

[[nodiscard]] objectstore::Predicate categoryMembership(std::string_view categoryID);
[[nodiscard]] objectstore::Predicate tagMembership(std::string_view tagID);
[[nodiscard]] objectstore::Predicate priorityMembership(std::string_view priorityID);
[[nodiscard]] objectstore::Predicate statusMembership(std::string_view statusID);
/// A value without an identifier has no tasks.
[[nodiscard]] objectstore::Predicate valueMembership(std::optional<platform::Uuid> identifier);

} // namespace tasket::rules
