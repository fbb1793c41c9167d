// A file or image attached to a task or a subtask, its content held inline.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Attachment final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Attachment)
};

} // namespace tasket::store
