// The store's side of the task predicates: a smart list's filter fields and
// chosen objects read into the plain value the rules build from, and the
// predicate of the tasks a smart list or a list's quick filter shows. Use
// on the records' context queue.
#pragma once

#include "objectstore/predicate/predicate.h"
#include "rules/smart_predicate.h"
#include "store/records.h"

#include <optional>

namespace tasket::store {

/// What `smartCategory` filters by, now. Chosen objects without an
/// identifier are left out.
rules::SmartFilterValues smartFilterValues(const TK_SmartCategory& smartCategory);

/// The tasks `smartCategory` shows at `time`.
objectstore::Predicate smartPredicate(const TK_SmartCategory& smartCategory,
                                      const rules::PredicateTime& time);

/// The quick filter of a task list (category, tag, priority, status or
/// value) at `time`; nothing when it shows every task.
template <class List>
std::optional<objectstore::Predicate> quickFilterPredicate(const List& list,
                                                           const rules::PredicateTime& time) {
    std::vector<rules::SmartFilterValues> custom;
    const auto filter = list.tasksFilterCase();
    if (filter == rules::TK_TasksFilter::custom)
        for (const auto& smartCategory : list.filters())
            custom.push_back(smartFilterValues(*smartCategory));
    return rules::quickFilterPredicate(filter, custom, time);
}

} // namespace tasket::store
