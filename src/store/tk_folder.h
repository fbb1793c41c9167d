// A folder of lists: groups smart lists, categories, tags, priorities,
// statuses and attributes. A folder has no sharing fields and no task-list
// block; its creation instant is creationDate.
// Accessors are generated from tk_data_model.def (see detail/record_accessors.h).
#pragma once

#include "store/detail/record_accessors.h"

namespace tasket::store {

class TK_Folder final : public objectstore::ManagedObject {
  public:
    TK_RECORD_INTERFACE(TK_Folder)
};

} // namespace tasket::store
