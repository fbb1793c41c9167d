// A user-defined status: a task list that a task or subtask joins through
// customStatus. Its list actions never point at statuses.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Status final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Status)
};

} // namespace tasket::store
