#include "store/smart_filters.h"

namespace tasket::store {

namespace {

// The identifiers of `objects` that have one.
template <class Record, class Read>
auto identifiers(const std::vector<std::shared_ptr<Record>>& objects, Read read) {
    std::vector<typename decltype(read(*objects.front()))::value_type> out;
    for (const auto& object : objects)
        if (auto identifier = read(*object))
            out.push_back(std::move(*identifier));
    return out;
}

} // namespace

rules::SmartFilterValues smartFilterValues(const TK_SmartCategory& s) {
    rules::SmartFilterValues v;
    v.completedFilter = s.completedFilterCase();
    v.notesFilter = s.notesFilterCase();
    v.urlFilter = s.urlFilterCase();
    v.startDateFilter = s.startDateFilterCase();
    v.startDateFromDate = s.startDateFromDate();
    v.startDateToDate = s.startDateToDate();
    v.startDateRelativeDate = s.startDateRelativeDateCase();
    v.reminderFilter = s.reminderFilterCase();
    v.reminderFromDate = s.reminderFromDate();
    v.reminderToDate = s.reminderToDate();
    v.reminderRelativeDate = s.reminderRelativeDateCase();
    v.categoryFilter = s.categoryFilterCase();
    v.subtaskFilter = s.subtaskFilterCase();
    v.tagFilter = s.tagFilterCase();
    v.priorityFilter = s.priorityFilterCase();
    v.statusFilter = s.statusFilterCase();
    v.valueFilter = s.valueFilterCase();
    v.pinFilter = s.pinFilterCase();
    v.attachmentsFilter = s.attachmentsFilterCase();
    v.filterCategoryIDs =
        identifiers(s.filterCategories(), [](const TK_Category& c) { return c.categoryID(); });
    v.filterTagIDs = identifiers(s.filterTags(), [](const TK_Tag& t) { return t.tagID(); });
    v.filterPriorityIDs =
        identifiers(s.filterPriorities(), [](const TK_Priority& p) { return p.priorityID(); });
    v.filterStatusIDs =
        identifiers(s.filterStatuses(), [](const TK_Status& t) { return t.statusID(); });
    v.filterValueIDs =
        identifiers(s.filterValues(), [](const TK_AttributeValue& a) { return a.identifier(); });
    return v;
}

objectstore::Predicate smartPredicate(const TK_SmartCategory& smartCategory,
                                      const rules::PredicateTime& time) {
    return rules::smartPredicate(smartFilterValues(smartCategory), time);
}

} // namespace tasket::store
