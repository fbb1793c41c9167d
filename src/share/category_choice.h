// Which lists a shared task can go into, and which one is preselected. A
// list is offered when a task saved in it would be listed: it has an
// identifier and a title (and it is not archived). The preselected list is
// the user's default list when it is offered, else the first offered list
// in the user's order, else a new list made on the spot (saved only with
// the task).
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "rules/texts.h"
#include "settings/customization_manager.h"
#include "store/fetched_collection.h"
#include "store/records.h"

#include <memory>
#include <string_view>
#include <vector>

namespace tasket::share {

/// Whether a task can be saved into `category` and be listed.
bool isOfferedCategory(const store::TK_Category& category);

/// The offered lists of `categories` (the user's order), in that order.
std::vector<std::shared_ptr<store::TK_Category>>
offeredCategories(const store::FetchedCollection<store::TK_Category>& categories);

/// The list named by the default-list setting when it is among `offered`,
/// else the first of `offered`; nullptr when `offered` is empty.
std::shared_ptr<store::TK_Category>
defaultCategory(const std::vector<std::shared_ptr<store::TK_Category>>& offered,
                const settings::CustomizationManager& customizationManager);

/// A new list in `context`, not saved; by default titled "New Category"
/// in the user's language.
std::shared_ptr<store::TK_Category>
insertNewCategory(objectstore::ObjectContext& context,
                  std::string_view title = rules::texts::kNewCategory.translated());

/// The list of `offered` whose identifier is `nameOrID`, else the first
/// whose title is `nameOrID`. Fails with notFound, naming it and the
/// offered titles.
[[nodiscard]] platform::Result<std::shared_ptr<store::TK_Category>>
findCategory(const std::vector<std::shared_ptr<store::TK_Category>>& offered,
             std::string_view nameOrID);

} // namespace tasket::share
