// A list (category): the task-list block of view, sort and list-action fields,
// the calendar or reminders list it mirrors, and the tasks it holds. Deleting
// a category deletes its tasks and board sections.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Category final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Category)
};

} // namespace tasket::store
