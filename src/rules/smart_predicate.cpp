#include "rules/smart_predicate.h"

#include "rules/predicates.h"

namespace tasket::rules {

using objectstore::Predicate;
using platform::Date;
namespace p = predicates;

namespace {

// The texts of one date dimension: its reminder switch, the day-only field
// and the full moment.
struct DateTexts {
    std::string_view enabled;
    std::string_view dayBetween;
    std::string_view dayIs;
    std::string_view before;
    std::string_view after;
};

constexpr DateTexts kStartTexts{p::kStartReminderEnabled, p::kStartDayBetween, p::kStartDayIs,
                                p::kStartBefore, p::kStartAfter};
constexpr DateTexts kDueTexts{p::kDueReminderEnabled, p::kDueDayBetween, p::kDueDayIs,
                              p::kDueBefore, p::kDueAfter};

int dayOffset(std::optional<TK_RelativeDate> relative) {
    switch (relative.value_or(TK_RelativeDate::none)) {
    case TK_RelativeDate::yesterday: return -1;
    case TK_RelativeDate::tomorrow: return 1;
    case TK_RelativeDate::none:
    case TK_RelativeDate::custom:
    case TK_RelativeDate::today: break;
    }
    return 0;
}

void addDateFilter(std::vector<Predicate>& out, const DateTexts& texts,
                   std::optional<TK_ReminderFilter> filter, std::optional<Date> from,
                   std::optional<Date> to, std::optional<TK_RelativeDate> relative,
                   const PredicateTime& time) {
    const TK_ReminderFilter chosen = filter.value_or(TK_ReminderFilter::off);
    if (chosen == TK_ReminderFilter::off)
        return;
    out.push_back(p::parsed(texts.enabled, {chosen != TK_ReminderFilter::no}));
    const auto& calendar = time.calendar;
    switch (chosen) {
    case TK_ReminderFilter::off:
    case TK_ReminderFilter::no: break;
    case TK_ReminderFilter::range:
        out.push_back(p::parsed(texts.dayBetween, {calendar.startOfDay(from.value_or(time.now)),
                                                   calendar.startOfDay(to.value_or(time.now))}));
        break;
    case TK_ReminderFilter::relative:
        out.push_back(
            p::parsed(texts.dayIs,
                      {calendar.startOfDay(calendar.addingDays(time.now, dayOffset(relative)))}));
        break;
    case TK_ReminderFilter::overdue: out.push_back(p::parsed(texts.before, {time.now})); break;
    case TK_ReminderFilter::upcoming: out.push_back(p::parsed(texts.after, {time.now})); break;
    }
}

// The sub-predicate of a three-valued filter, or nothing when it is off.
template <class Filter>
void addOffNoYes(std::vector<Predicate>& out, std::optional<Filter> filter, const Predicate& whenNo,
                 const Predicate& whenYes) {
    if (filter == Filter::no)
        out.push_back(whenNo);
    else if (filter == Filter::yes)
        out.push_back(whenYes);
}

// "yes" narrowed to chosen objects when there are any.
template <class Filter, class ID>
void addChosen(std::vector<Predicate>& out, std::optional<Filter> filter, std::string_view no,
               std::string_view any, std::string_view anyOf, const std::vector<ID>& chosen) {
    if (filter == Filter::no)
        out.push_back(p::parsed(no));
    else if (filter == Filter::yes)
        out.push_back(chosen.empty() ? p::parsed(any) : p::parsed(anyOf, {chosen}));
}

} // namespace

Predicate smartPredicate(const SmartFilterValues& f, const PredicateTime& time) {
    std::vector<Predicate> parts;
    addOffNoYes(parts, f.completedFilter, p::parsed(p::kIsCompleted, {false}),
                p::parsed(p::kIsCompleted, {true}));
    addOffNoYes(parts, f.notesFilter, p::parsed(p::kHasNoNotes), p::hasNotes());
    addOffNoYes(parts, f.urlFilter, p::parsed(p::kHasNoLink), p::hasLink());
    addDateFilter(parts, kStartTexts, f.startDateFilter, f.startDateFromDate, f.startDateToDate,
                  f.startDateRelativeDate, time);
    addDateFilter(parts, kDueTexts, f.reminderFilter, f.reminderFromDate, f.reminderToDate,
                  f.reminderRelativeDate, time);
    if (f.categoryFilter == TK_CategoryFilter::yes)
        parts.push_back(f.filterCategoryIDs.empty() ? p::parsed(p::kInAnyCategory)
                                                    : p::inCategories(f.filterCategoryIDs));
    addOffNoYes(parts, f.subtaskFilter, p::parsed(p::kHasNoSubtasks), p::parsed(p::kHasSubtasks));
    addChosen(parts, f.tagFilter, p::kHasNoTags, p::kHasTags, p::kHasAnyOfTags, f.filterTagIDs);
    addChosen(parts, f.priorityFilter, p::kHasNoPriority, p::kHasPriority, p::kHasAnyOfPriorities,
              f.filterPriorityIDs);
    addChosen(parts, f.statusFilter, p::kHasNoStatus, p::kHasStatus, p::kHasAnyOfStatuses,
              f.filterStatusIDs);
    addChosen(parts, f.valueFilter, p::kHasNoValues, p::kHasValues, p::kHasAnyOfValues,
              f.filterValueIDs);
    addOffNoYes(parts, f.pinFilter, p::parsed(p::kIsPinned, {false}),
                p::parsed(p::kIsPinned, {true}));
    addOffNoYes(parts, f.attachmentsFilter, p::hasNoAttachments(), p::hasAttachments());
    return objectstore::andPredicate(std::move(parts));
}

std::optional<Predicate> quickFilterPredicate(std::optional<TK_TasksFilter> filter,
                                              const std::vector<SmartFilterValues>& customFilters,
                                              const PredicateTime& time) {
    if (!filter)
        return std::nullopt;
    switch (*filter) {
    case TK_TasksFilter::all: return std::nullopt;
    case TK_TasksFilter::withReminder: return p::parsed(p::kWithReminder);
    case TK_TasksFilter::withTags: return p::parsed(p::kHasTags);
    case TK_TasksFilter::withSubtasks: return p::parsed(p::kHasSubtasks);
    case TK_TasksFilter::withPriority: return p::parsed(p::kHasPriority);
    case TK_TasksFilter::withStatus: return p::parsed(p::kHasStatus);
    case TK_TasksFilter::withValues: return p::parsed(p::kHasValues);
    case TK_TasksFilter::pinned: return p::parsed(p::kPinned);
    case TK_TasksFilter::custom: {
        std::vector<Predicate> parts;
        parts.reserve(customFilters.size());
        for (const auto& filters : customFilters)
            parts.push_back(smartPredicate(filters, time));
        return objectstore::andPredicate(std::move(parts));
    }
    }
    return std::nullopt;
}

Predicate categoryMembership(std::string_view categoryID) {
    return p::parsed(p::kInCategory, {categoryID});
}

Predicate tagMembership(std::string_view tagID) {
    return p::parsed(p::kHasAnyOfTags, {std::vector<std::string>{std::string(tagID)}});
}

Predicate priorityMembership(std::string_view priorityID) {
    return p::parsed(p::kHasPriorityWithID, {priorityID});
}

Predicate statusMembership(std::string_view statusID) {
    return p::parsed(p::kHasStatusWithID, {statusID});
}

Predicate valueMembership(std::optional<platform::Uuid> identifier) {
    std::vector<platform::Uuid> identifiers;
    if (identifier)
        identifiers.push_back(*identifier);
    return p::parsed(p::kHasAnyOfValues, {identifiers});
}

} // namespace tasket::rules
