// A smart list: a saved filter over tasks. Its memberships (categories, tags,
// priorities, statuses, values, folders) place the smart list itself; its
// filter selections (filterCategories ... filterValues) are the objects its
// filters choose. The due-date filter is stored under the reminder names.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_SmartCategory final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_SmartCategory)
};

} // namespace tasket::store
