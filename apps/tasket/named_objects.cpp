#include "tasket/named_objects.h"

#include "rules/predicates.h"
#include "store/lookup.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <type_traits>
#include <vector>

namespace tasket::apps {

namespace predicates = rules::predicates;

namespace {

// Identifier key and the words a message uses, per kind.
template <class Record> struct Naming;
template <> struct Naming<store::TK_Category> {
    static constexpr std::string_view idKey = "categoryID", kind = "list", plural = "lists";
};
template <> struct Naming<store::TK_Tag> {
    static constexpr std::string_view idKey = "tagID", kind = "tag", plural = "tags";
};
template <> struct Naming<store::TK_Priority> {
    static constexpr std::string_view idKey = "priorityID", kind = "priority",
                                      plural = "priorities";
};
template <> struct Naming<store::TK_Status> {
    static constexpr std::string_view idKey = "statusID", kind = "status", plural = "statuses";
};
template <> struct Naming<store::TK_AttributeValue> {
    static constexpr std::string_view idKey = "identifier", kind = "value", plural = "values";
};
template <> struct Naming<store::TK_SmartCategory> {
    static constexpr std::string_view idKey = "identifier", kind = "smart list",
                                      plural = "smart lists";
};

constexpr std::size_t kTitlesShown = 12;

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

} // namespace

template <class Record>
platform::Result<std::shared_ptr<Record>> findNamed(objectstore::ObjectContext& context,
                                                    std::string_view nameOrID) {
    using N = Naming<Record>;
    auto request = Record::fetchRequest();
    const auto uuid = platform::Uuid::parse(nameOrID);
    if constexpr (std::is_same_v<Record, store::TK_AttributeValue>)
        request.predicate =
            uuid ? predicates::parsed("identifier == %@ OR title == %@", {*uuid, nameOrID})
                 : predicates::parsed("title == %@", {nameOrID});
    else
        request.predicate = predicates::parsed("%K ==[c] %@ OR title == %@",
                                               {std::string(N::idKey), nameOrID, nameOrID});
    auto found = context.fetch(request);
    if (!found)
        return std::unexpected(found.error());
    std::shared_ptr<Record> byTitle;
    for (const auto& object : *found) {
        const auto& id = object->value(N::idKey);
        const auto* text = std::get_if<std::string>(&id);
        const auto* typed = std::get_if<platform::Uuid>(&id);
        if ((text && sameIgnoringCase(*text, nameOrID)) || (typed && uuid && *typed == *uuid))
            return std::static_pointer_cast<Record>(object);
        if (!byTitle)
            byTitle = std::static_pointer_cast<Record>(object);
    }
    if (byTitle)
        return byTitle;

    auto all = Record::fetchRequest();
    all.predicate = predicates::parsed("title != nil AND title != ''");
    all.fetchLimit = kTitlesShown + 1;
    std::vector<std::string> titles;
    if (auto others = context.fetch(all))
        for (const auto& object : *others)
            if (const auto* title = std::get_if<std::string>(&object->value("title")))
                titles.push_back(titles.size() < kTitlesShown ? fmt::format("\"{}\"", *title)
                                                              : std::string("…"));
    return platform::fail(platform::Errc::notFound,
                          titles.empty()
                              ? fmt::format("there is no {} \"{}\": the store holds no {}", N::kind,
                                            nameOrID, N::plural)
                              : fmt::format("there is no {} \"{}\"; the {} are {}", N::kind,
                                            nameOrID, N::plural, fmt::join(titles, ", ")));
}

template platform::Result<std::shared_ptr<store::TK_Category>>
findNamed<store::TK_Category>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<store::TK_Tag>>
findNamed<store::TK_Tag>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<store::TK_Priority>>
findNamed<store::TK_Priority>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<store::TK_Status>>
findNamed<store::TK_Status>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<store::TK_AttributeValue>>
findNamed<store::TK_AttributeValue>(objectstore::ObjectContext&, std::string_view);
template platform::Result<std::shared_ptr<store::TK_SmartCategory>>
findNamed<store::TK_SmartCategory>(objectstore::ObjectContext&, std::string_view);

platform::Result<std::vector<std::shared_ptr<store::TK_Task>>>
findTasks(objectstore::ObjectContext& context, std::span<const std::string> identifiers) {
    std::vector<std::shared_ptr<store::TK_Task>> tasks;
    for (const auto& id : identifiers) {
        auto task = store::findByIdentifier<store::TK_Task>(context, id);
        if (!task)
            return std::unexpected(task.error());
        tasks.push_back(std::move(*task));
    }
    return tasks;
}

} // namespace tasket::apps
