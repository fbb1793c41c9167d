// A step of a task. It shares the task's scheduling, reminder and attachment
// fields and has its own tags, priority, status and values, but no list,
// board sections or calendar item: it is listed only through its task, and
// sortIndex is its one sort position (within that task).
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Subtask final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Subtask)
};

} // namespace tasket::store
