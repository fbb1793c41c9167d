#include "platform/objectstore/detail/sql_functions.h"

namespace tasket::objectstore::detail {

void registerSqlFunctions(sqlite3*) {}

} // namespace tasket::objectstore::detail
