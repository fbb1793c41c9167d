// A user-defined priority: a task list that a task or subtask joins through
// customPriority. Its list actions never point at priorities.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Priority final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Priority)
};

} // namespace tasket::store
