// A task: an item of one list (category) with its scheduling, reminder and
// repetition fields, its memberships (tags, priority, status, values, board
// sections), its subtasks and attachments, and one sort position per kind of
// list. Due-date fields carry no due word (isAllDay, isRemindEnabled), the
// start-date ones do (isStartDateAllDay): the names are kept as they are.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Task final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Task)
};

} // namespace tasket::store
