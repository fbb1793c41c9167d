// Registers the SQL functions and collations that compiled predicates and
// sort descriptors use, on each connection the engine opens.
#pragma once

struct sqlite3;

namespace tasket::objectstore::detail {
void registerSqlFunctions(sqlite3* db);
}
