#include "store/records.h"

namespace tasket::store {

TK_RECORD_DEFINITIONS(TK_Status)

} // namespace tasket::store
