// The SQL functions and the collation that compiled predicates and sort
// descriptors call: tk_fold(text, options), tk_contains, tk_beginswith,
// tk_endswith and tk_like(text, part, options), and the collation
// TK_LOCALIZED. They run the same code as the in-memory evaluator.
#pragma once

struct sqlite3;

namespace tasket::objectstore {

/// Registers the functions and the collation on `db`; call it on every
/// connection that runs compiled predicates or sorts.
void registerSqlFunctions(sqlite3* db);

} // namespace tasket::objectstore
