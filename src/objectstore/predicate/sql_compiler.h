// Compiles a predicate to an SQL condition over the engine's schema: the
// main table is aliased t0, to-one hops become LEFT JOINs (aliases t1,
// t2, ...), a to-many step becomes an EXISTS subquery, or a list of owner
// keys when ANY picks the elements by an indexed column (or, for such a
// comparison that the whole predicate requires, the elements joined to
// t0, which may repeat a row). Values never enter
// the SQL text; they are bound in order to its ?s. It is a WHERE: a row
// is kept exactly when the predicate holds in memory. Under a NOT every
// term is 0 or 1, never NULL, so NOT keeps the in-memory meaning; outside
// one a term may be NULL where it means no (`x = ?` for a missing x),
// which lets SQLite start from a to-one target's index.
#pragma once

#include "objectstore/model/model.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/predicate.h"

#include <string>
#include <vector>

namespace tasket::objectstore {

struct SqlPredicate {
    /// JOIN and LEFT JOIN clauses to follow `FROM "Entity" AS t0`, separated by spaces;
    /// may be empty.
    std::string joins;
    /// Whether the joins can give a row of t0 more than once: a select
    /// then groups by t0.pk and a count counts distinct keys.
    bool repeatsRows = false;
    /// The condition for WHERE; "1" when everything matches.
    std::string where;
    /// One value per ? in joins then where: nil, int64, double, text or bytes.
    std::vector<Value> bindings;
};

/// Binds `predicate` to entity `entityIndex` and compiles it; fails as
/// BoundPredicate::bind does.
[[nodiscard]] Result<SqlPredicate> compileToSql(const Predicate& predicate, const Model& model,
                                                std::uint32_t entityIndex);

/// Compiles an already bound predicate.
[[nodiscard]] SqlPredicate compileToSql(const BoundPredicate& predicate);

} // namespace tasket::objectstore
