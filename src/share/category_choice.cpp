#include "share/category_choice.h"

#include "platform/clock.h"
#include "platform/uuid.h"
#include "settings/settings_keys.h"

#include <algorithm>

namespace tasket::share {

using store::TK_Category;

std::shared_ptr<TK_Category>
defaultCategory(const store::FetchedCollection<TK_Category>& categories,
                objectstore::ObjectContext& context,
                const settings::CustomizationManager& customizationManager) {
    if (const auto chosen =
            customizationManager.appGroupSuite()->stringValue(settings::keys::kDefaultCategory))
        if (auto found = store::offeredCategoryWithID(categories, context, *chosen))
            return found;
    for (auto category : categories)
        if (store::isOfferedCategory(*category))
            return category;
    return nullptr;
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
