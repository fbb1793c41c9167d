#include "store/lookup.h"

#include "rules/predicates.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>

namespace tasket::store {

namespace predicates = rules::predicates;

namespace {

template <class Record> struct Lookup;
template <> struct Lookup<TK_Task> {
    static constexpr std::string_view kind = "task";
    static constexpr std::string_view exactly = "taskID == %@";
    static objectstore::Predicate with(std::string_view id) { return predicates::taskWithID(id); }
};
template <> struct Lookup<TK_Subtask> {
    static constexpr std::string_view kind = "subtask";
    static constexpr std::string_view exactly = "subtaskID == %@";
    static objectstore::Predicate with(std::string_view id) {
        return predicates::subtaskWithID(id);
    }
};
template <> struct Lookup<TK_Category> {
    static constexpr std::string_view kind = "list";
    static constexpr std::string_view exactly = "categoryID == %@";
    static objectstore::Predicate with(std::string_view id) {
        return predicates::categoryWithID(id);
    }
};

} // namespace

template <class Record>
platform::Result<std::shared_ptr<Record>> findByIdentifier(objectstore::ObjectContext& context,
                                                           std::string_view identifier) {
    auto request = Record::fetchRequest();
    request.fetchLimit = 1;
    // The identifier as stored is found through the index; only a match
    // that differs in case needs every identifier folded.
    auto exactly = objectstore::Predicate::parse(Lookup<Record>::exactly, {identifier});
    if (!exactly)
        return std::unexpected(exactly.error());
    request.predicate = std::move(*exactly);
    auto found = context.fetch(request);
    if (found && found->empty()) {
        request.predicate = Lookup<Record>::with(identifier);
        found = context.fetch(request);
    }
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

bool isOfferedCategory(const TK_Category& category) {
    return !category.categoryID().value_or("").empty() && !category.title().value_or("").empty() &&
           !category.isArchived();
}

std::vector<std::shared_ptr<TK_Category>>
offeredCategories(const FetchedCollection<TK_Category>& categories) {
    std::vector<std::shared_ptr<TK_Category>> offered;
    for (auto category : categories) {
        if (isOfferedCategory(*category))
            offered.push_back(std::move(category));
    }
    return offered;
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
