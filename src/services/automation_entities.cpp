#include "services/automation_entities.h"

#include "rules/predicates.h"
#include "settings/focus_filter.h"
#include "store/records.h"

#include <algorithm>

namespace tasket::services {

namespace predicates = rules::predicates;
using objectstore::Predicate;
using objectstore::PredicateArgument;
using objectstore::SortDescriptor;
using platform::Result;

namespace {

// What differs between the kinds of task list: the identifier key, how a
// listed record is told apart, and the entity's type word.
template <class Record> struct ListKind;
template <> struct ListKind<store::TK_Category> {
    static constexpr std::string_view type = "category", key = "categoryID";
    static constexpr std::string_view listed = predicates::kListedCategory;
    static std::string id(const store::TK_Category& r) { return r.categoryID().value_or(""); }
};
template <> struct ListKind<store::TK_Tag> {
    static constexpr std::string_view type = "tag", key = "tagID";
    static constexpr std::string_view listed = predicates::kListedTag;
    static std::string id(const store::TK_Tag& r) { return r.tagID().value_or(""); }
};
template <> struct ListKind<store::TK_Priority> {
    static constexpr std::string_view type = "priority", key = "priorityID";
    static constexpr std::string_view listed = predicates::kListedPriority;
    static std::string id(const store::TK_Priority& r) { return r.priorityID().value_or(""); }
};
template <> struct ListKind<store::TK_Status> {
    static constexpr std::string_view type = "status", key = "statusID";
    static constexpr std::string_view listed = predicates::kListedStatus;
    static std::string id(const store::TK_Status& r) { return r.statusID().value_or(""); }
};
template <> struct ListKind<store::TK_AttributeValue> {
    static constexpr std::string_view type = "value", key = "identifier";
    static constexpr std::string_view listed = predicates::kListedValue;
    static std::string id(const store::TK_AttributeValue& r) {
        return r.identifier() ? r.identifier()->toString() : "";
    }
};

/// What a query asks for: identifiers, suggestions or a text.
struct Narrowing {
    std::span<const std::string> identifiers = {};
    std::optional<std::string_view> text = std::nullopt;
    bool suggested = false;
};

template <class Record>
Result<std::vector<std::shared_ptr<Record>>>
fetch(objectstore::ObjectContext& context, Predicate predicate, std::vector<SortDescriptor> order,
      std::size_t limit = 0) {
    auto request = Record::fetchRequest();
    request.predicate = std::move(predicate);
    request.sortDescriptors = std::move(order);
    request.fetchLimit = limit;
    auto found = context.fetch(request);
    if (!found)
        return std::unexpected(found.error());
    std::vector<std::shared_ptr<Record>> records;
    records.reserve(found->size());
    for (auto& object : *found)
        records.push_back(std::static_pointer_cast<Record>(std::move(object)));
    return records;
}

// The identifier argument for `key`: a value's identifier is a UUID, the
// others are texts; a text that is no UUID names no value.
template <class Record> PredicateArgument identifierArgument(std::span<const std::string> ids) {
    if constexpr (std::is_same_v<Record, store::TK_AttributeValue>) {
        std::vector<platform::Uuid> uuids;
        for (const auto& id : ids)
            if (auto uuid = platform::Uuid::parse(id))
                uuids.push_back(*uuid);
        return uuids;
    } else {
        return std::vector<std::string>(ids.begin(), ids.end());
    }
}

/// The task lists of kind `Record` that `narrowing` selects, by sort position.
template <class Record>
Result<std::vector<std::shared_ptr<Record>>> lists(objectstore::ObjectContext& context,
                                                   const Narrowing& narrowing) {
    using Kind = ListKind<Record>;
    Predicate predicate = narrowing.text ? predicates::titleContains(*narrowing.text)
                          : narrowing.suggested
                              ? predicates::parsed(Kind::listed)
                              : predicates::identifierIn(
                                    Kind::key, identifierArgument<Record>(narrowing.identifiers));
    auto found = fetch<Record>(context, std::move(predicate), {{.keyPath = "sortIndex"}});
    if (found && narrowing.suggested)
        std::erase_if(*found, [](const auto& record) { return record->isArchived(); });
    return found;
}

template <class Record> TK_TasksListAppEntity listEntity(const Record& record) {
    return {.id = ListKind<Record>::id(record),
            .title = record.title().value_or(""),
            .notes = record.notes().value_or(""),
            .color = record.color().value_or(""),
            .icon = record.icon().value_or(""),
            .type = std::string(ListKind<Record>::type)};
}

template <class Record>
Result<> appendLists(objectstore::ObjectContext& context, const Narrowing& narrowing,
                     std::vector<TK_TasksListAppEntity>& entities) {
    auto found = lists<Record>(context, narrowing);
    if (!found)
        return std::unexpected(found.error());
    for (const auto& record : *found)
        entities.push_back(listEntity(*record));
    return {};
}

Result<std::vector<TK_TasksListAppEntity>>
listEntities(objectstore::ObjectContext& context, const Narrowing& narrowing, bool includingLists) {
    std::vector<TK_TasksListAppEntity> entities;
    Result<> done;
    if (includingLists)
        done = appendLists<store::TK_Category>(context, narrowing, entities);
    for (auto append : {&appendLists<store::TK_Tag>, &appendLists<store::TK_Priority>,
                        &appendLists<store::TK_Status>, &appendLists<store::TK_AttributeValue>}) {
        if (done)
            done = append(context, narrowing, entities);
    }
    if (!done)
        return std::unexpected(done.error());
    return entities;
}

TK_TaskAppEntity taskEntity(const store::TK_Task& task) {
    TK_TaskAppEntity entity{.id = task.taskID().value_or(""),
                            .title = task.title().value_or(""),
                            .notes = task.note().value_or(""),
                            .color = task.color().value_or(""),
                            .isCompleted = task.isCompleted(),
                            .category = std::nullopt};
    if (const auto list = task.category())
        entity.category = listEntity(*list);
    return entity;
}

Result<std::vector<TK_TaskAppEntity>> taskEntities(objectstore::ObjectContext& context,
                                                   const Narrowing& narrowing) {
    Predicate predicate =
        narrowing.text ? predicates::titleContains(*narrowing.text)
        : narrowing.suggested
            ? predicates::notCompleted()
            : predicates::identifierIn("taskID",
                                       identifierArgument<store::TK_Task>(narrowing.identifiers));
    auto found = fetch<store::TK_Task>(
        context, std::move(predicate), {{.keyPath = "whenCreated", .ascending = false}},
        narrowing.suggested ? TK_TasksAppEntityQuery::kSuggestions : 0);
    if (!found)
        return std::unexpected(found.error());
    std::vector<TK_TaskAppEntity> entities;
    for (const auto& task : *found)
        entities.push_back(taskEntity(*task));
    return entities;
}

Result<std::vector<TK_FocusFilterCategoryAppEntity>>
focusEntities(objectstore::ObjectContext& context, const Narrowing& narrowing) {
    auto found = lists<store::TK_Category>(context, narrowing);
    if (!found)
        return std::unexpected(found.error());
    std::vector<TK_FocusFilterCategoryAppEntity> entities;
    for (const auto& list : *found)
        entities.push_back({.id = list->categoryID().value_or(""),
                            .title = list->title().value_or(""),
                            .notes = list->notes().value_or(""),
                            .icon = list->icon().value_or("")});
    return entities;
}

} // namespace

Result<> TK_FocusFilter::perform(platform::PreferencesSuite& suite) const {
    std::vector<std::string> ids;
    for (const auto& category : categories)
        ids.push_back(category.id);
    return settings::storeFocus(suite, ids);
}

Result<std::vector<TK_TaskAppEntity>>
TK_TasksAppEntityQuery::entities(std::span<const std::string> identifiers) {
    return taskEntities(m_context, {.identifiers = identifiers});
}
Result<std::vector<TK_TaskAppEntity>> TK_TasksAppEntityQuery::suggestedEntities() {
    return taskEntities(m_context, {.suggested = true});
}
Result<std::vector<TK_TaskAppEntity>> TK_TasksAppEntityQuery::entities(std::string_view text) {
    return taskEntities(m_context, {.text = text});
}

Result<std::vector<TK_TasksListAppEntity>>
TK_TasksListAppEntityQuery::entities(std::span<const std::string> identifiers) {
    return listEntities(m_context, {.identifiers = identifiers}, m_includingLists);
}
Result<std::vector<TK_TasksListAppEntity>> TK_TasksListAppEntityQuery::suggestedEntities() {
    return listEntities(m_context, {.suggested = true}, m_includingLists);
}
Result<std::vector<TK_TasksListAppEntity>>
TK_TasksListAppEntityQuery::entities(std::string_view text) {
    return listEntities(m_context, {.text = text}, m_includingLists);
}

Result<std::vector<TK_FocusFilterCategoryAppEntity>>
TK_FocusFilterCategoryAppEntityQuery::entities(std::span<const std::string> identifiers) {
    return focusEntities(m_context, {.identifiers = identifiers});
}
Result<std::vector<TK_FocusFilterCategoryAppEntity>>
TK_FocusFilterCategoryAppEntityQuery::suggestedEntities() {
    return focusEntities(m_context, {.suggested = true});
}
Result<std::vector<TK_FocusFilterCategoryAppEntity>>
TK_FocusFilterCategoryAppEntityQuery::entities(std::string_view text) {
    return focusEntities(m_context, {.text = text});
}

} // namespace tasket::services
