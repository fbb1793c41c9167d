#include "store/lookup.h"

#include "platform/uuid.h"
#include "rules/predicates.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <string>
#include <unordered_set>

namespace tasket::store {

namespace predicates = rules::predicates;

namespace {

template <class Record> struct Lookup;
template <> struct Lookup<TK_Task> {
    static constexpr std::string_view kind = "task";
    static objectstore::Predicate with(std::string_view id) { return predicates::taskWithID(id); }
    static objectstore::Predicate exactly(std::string_view id) {
        return predicates::parsed(predicates::kTaskWithExactID, {id});
    }
};
template <> struct Lookup<TK_Subtask> {
    static constexpr std::string_view kind = "subtask";
    static objectstore::Predicate with(std::string_view id) {
        return predicates::subtaskWithID(id);
    }
    static objectstore::Predicate exactly(std::string_view id) {
        return predicates::parsed(predicates::kSubtaskWithExactID, {id});
    }
};
template <> struct Lookup<TK_Category> {
    static constexpr std::string_view kind = "list";
    static objectstore::Predicate with(std::string_view id) {
        return predicates::categoryWithID(id);
    }
    static objectstore::Predicate exactly(std::string_view id) {
        return predicates::parsed(predicates::kCategoryWithExactID, {id});
    }
};

} // namespace

template <class Record>
platform::Result<std::shared_ptr<Record>> findByIdentifier(objectstore::ObjectContext& context,
                                                           std::string_view identifier) {
    auto request = Record::fetchRequest();
    request.fetchLimit = 1;
    // Identifiers are stored as upper-case UUIDs: an exact match on that
    // form uses the identifier's index, where ignoring case reads every row.
    if (const auto uuid = platform::Uuid::parse(identifier)) {
        request.predicate = Lookup<Record>::exactly(uuid->toString());
        auto found = context.fetch(request);
        if (!found)
            return std::unexpected(found.error());
        if (!found->empty())
            return std::static_pointer_cast<Record>(found->front());
    }
    request.predicate = Lookup<Record>::with(identifier);
    auto found = context.fetch(request);
    if (!found)
        return std::unexpected(found.error());
    if (found->empty())
        return platform::fail(
            platform::Errc::notFound,
            fmt::format("there is no {} \"{}\"", Lookup<Record>::kind, identifier));
    return std::static_pointer_cast<Record>(found->front());
}

template platform::Result<std::shared_ptr<TK_Task>>
findByIdentifier<TK_Task>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<TK_Subtask>>
findByIdentifier<TK_Subtask>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<TK_Category>>
findByIdentifier<TK_Category>(objectstore::ObjectContext&, std::string_view);

namespace {

// isOfferedCategory as a predicate.
constexpr std::string_view kOfferedCategory =
    "categoryID != nil AND categoryID != '' AND title != nil AND title != '' AND isArchived != YES";

// The members of `categories` that `condition` takes, in their order. The
// store tells which, and their rows stay unread until used: reading a
// thousand lists' rows to see would take longer than the rest of the share
// form's start. Nullopt when the store cannot be asked.
std::optional<std::vector<std::shared_ptr<TK_Category>>>
matching(const FetchedCollection<TK_Category>& categories, objectstore::Predicate condition) {
    std::vector<std::shared_ptr<TK_Category>> found;
    if (categories.empty())
        return found;
    auto& context = *categories.context();
    objectstore::FetchRequest request{std::string(TK_Category::entityName)};
    request.predicate = std::move(condition);
    auto ids = context.fetchObjectIDs(request);
    if (!ids)
        return std::nullopt;
    const std::unordered_set<objectstore::ObjectID, objectstore::ObjectIDHash> taken(ids->begin(),
                                                                                     ids->end());
    for (const auto& id : categories.objectIDs())
        if (taken.contains(id))
            found.push_back(std::static_pointer_cast<TK_Category>(context.objectWithID(id)));
    return found;
}

} // namespace

bool isOfferedCategory(const TK_Category& category) {
    return !category.categoryID().value_or("").empty() && !category.title().value_or("").empty() &&
           !category.isArchived();
}

std::vector<std::shared_ptr<TK_Category>>
offeredCategories(const FetchedCollection<TK_Category>& categories) {
    if (auto offered =
            matching(categories, objectstore::Predicate::parse(kOfferedCategory).value()))
        return std::move(*offered);
    std::vector<std::shared_ptr<TK_Category>> offered;
    for (auto category : categories) // the rows then tell, or fail on their own path
        if (isOfferedCategory(*category))
            offered.push_back(std::move(category));
    return offered;
}

std::shared_ptr<TK_Category> offeredCategoryWithID(const FetchedCollection<TK_Category>& categories,
                                                   objectstore::ObjectContext& context,
                                                   std::string_view identifier) {
    const auto found = findByIdentifier<TK_Category>(context, identifier);
    if (!found || !isOfferedCategory(**found) ||
        std::ranges::find(categories.objectIDs(), (*found)->objectID()) ==
            categories.objectIDs().end())
        return nullptr;
    return *found;
}

platform::Result<std::shared_ptr<TK_Category>>
findList(const FetchedCollection<TK_Category>& categories, objectstore::ObjectContext& context,
         std::string_view nameOrID) {
    if (auto found = offeredCategoryWithID(categories, context, nameOrID))
        return found;
    // Of the lists with that title, the first in the user's order.
    if (auto titled = matching(categories, objectstore::Predicate::parse(
                                               fmt::format("{} AND title == %@", kOfferedCategory),
                                               {std::string(nameOrID)})
                                               .value()); // a constant text and a string argument
        titled && !titled->empty())
        return titled->front();
    return findList(offeredCategories(categories), nameOrID); // its failure names every list
}

platform::Result<std::shared_ptr<TK_Category>>
findList(const std::vector<std::shared_ptr<TK_Category>>& lists, std::string_view nameOrID) {
    for (const auto& category : lists) {
        if (category->categoryID() == nameOrID)
            return category;
    }
    for (const auto& category : lists) {
        if (category->title() == nameOrID)
            return category;
    }
    std::vector<std::string> titles;
    for (const auto& category : lists)
        titles.push_back(fmt::format("\"{}\"", category->title().value_or("")));
    return platform::fail(
        platform::Errc::notFound,
        titles.empty() ? fmt::format("there is no list \"{}\": the store holds no lists", nameOrID)
                       : fmt::format("there is no list \"{}\"; the lists are {}", nameOrID,
                                     fmt::join(titles, ", ")));
}

} // namespace tasket::store
