// A tag: a task list that tasks and subtasks join in any number, with the
// task-list block and the list actions every owner has.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Tag final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Tag)
};

} // namespace tasket::store
