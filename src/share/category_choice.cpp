#include "share/category_choice.h"

#include "platform/clock.h"
#include "platform/uuid.h"
#include "settings/settings_keys.h"

#include <algorithm>

namespace tasket::share {

using store::TK_Category;

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

} // namespace tasket::share
