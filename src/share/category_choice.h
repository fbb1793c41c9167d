// Which list a shared task goes into first. The lists offered are those a
// task can be saved into (store/lookup.h). The preselected list is
// the user's default list when it is offered, else the first offered list
// in the user's order, else a new list made on the spot (saved only with
// the task).
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "rules/texts.h"
#include "settings/customization_manager.h"
#include "store/lookup.h"
#include "store/records.h"

#include <memory>
#include <string_view>
#include <vector>

namespace tasket::share {

/// The list named by the default-list setting when `categories` offers it,
/// else the first list `categories` offers (read from `context` a batch at
/// a time only that far); nullptr when it offers none.
std::shared_ptr<store::TK_Category>
defaultCategory(const store::FetchedCollection<store::TK_Category>& categories,
                objectstore::ObjectContext& context,
                const settings::CustomizationManager& customizationManager);

/// A new list in `context`, not saved; by default titled "New Category"
/// in the user's language.
std::shared_ptr<store::TK_Category>
insertNewCategory(objectstore::ObjectContext& context,
                  std::string_view title = rules::texts::kNewCategory.translated());

} // namespace tasket::share
