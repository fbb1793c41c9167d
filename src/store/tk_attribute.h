// A custom attribute: a named set of values (TK_AttributeValue) that tasks
// and subtasks carry. Deleting an attribute deletes its values.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Attribute final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Attribute)
};

} // namespace tasket::store
