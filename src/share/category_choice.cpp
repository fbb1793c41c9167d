#include "share/category_choice.h"

#include "platform/clock.h"
#include "platform/uuid.h"
#include "settings/settings_keys.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace tasket::share {

using store::TK_Category;

bool isOfferedCategory(const TK_Category& category) {
    return !category.categoryID().value_or("").empty() && !category.title().value_or("").empty() &&
           !category.isArchived();
}

std::vector<std::shared_ptr<TK_Category>>
offeredCategories(const store::FetchedCollection<TK_Category>& categories) {
    std::vector<std::shared_ptr<TK_Category>> offered;
    for (auto category : categories) {
        if (isOfferedCategory(*category))
            offered.push_back(std::move(category));
    }
    return offered;
}

std::shared_ptr<TK_Category>
defaultCategory(const std::vector<std::shared_ptr<TK_Category>>& offered,
                const settings::CustomizationManager& customizationManager) {
    if (offered.empty())
        return nullptr;
    if (const auto chosen =
            customizationManager.appGroupSuite()->stringValue(settings::keys::kDefaultCategory)) {
        const auto match = std::ranges::find_if(
            offered, [&](const auto& category) { return category->categoryID() == *chosen; });
        if (match != offered.end())
            return *match;
    }
    return offered.front();
}

std::shared_ptr<TK_Category> insertNewCategory(objectstore::ObjectContext& context,
                                               std::string_view title) {
    auto category = TK_Category::insertNew(context);
    category->setCategoryID(platform::Uuid::generate().toString());
    category->setTitle(std::string(title));
    category->setWhenCreated(platform::Clock::shared().now());
    return category;
}

platform::Result<std::shared_ptr<TK_Category>>
findCategory(const std::vector<std::shared_ptr<TK_Category>>& offered, std::string_view nameOrID) {
    for (const auto& category : offered) {
        if (category->categoryID() == nameOrID)
            return category;
    }
    for (const auto& category : offered) {
        if (category->title() == nameOrID)
            return category;
    }
    std::vector<std::string> titles;
    for (const auto& category : offered)
        titles.push_back(fmt::format("\"{}\"", category->title().value_or("")));
    return platform::fail(
        platform::Errc::notFound,
        titles.empty() ? fmt::format("there is no list \"{}\": the store holds no lists", nameOrID)
                       : fmt::format("there is no list \"{}\"; the lists are {}", nameOrID,
                                     fmt::join(titles, ", ")));
}

} // namespace tasket::share
