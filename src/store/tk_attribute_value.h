// One value of a custom attribute, and a full task list like a tag. A value
// whose attribute is nil is not listed.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_AttributeValue final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_AttributeValue)
};

} // namespace tasket::store
