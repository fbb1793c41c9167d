#include "objectstore/detail/sql_functions.h"

#include "objectstore/predicate/sql_functions.h"

namespace tasket::objectstore::detail {

void registerSqlFunctions(sqlite3* db) {
    tasket::objectstore::registerSqlFunctions(db);
}

} // namespace tasket::objectstore::detail
