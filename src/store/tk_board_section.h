// A column of a board view, owned by exactly one of a category, smart list,
// tag, priority, status or value, with list actions of its own.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_BoardSection final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_BoardSection)
};

} // namespace tasket::store
