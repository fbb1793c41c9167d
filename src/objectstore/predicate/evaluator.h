// The in-memory evaluator: decides whether one object satisfies a bound
// predicate by reading it through ObjectView. It follows the same meaning
// as the compiled SQL (nil never equals a value, ordering against nil is
// false, ANY over an empty relationship is false), so that unsaved objects
// and stored rows are filtered alike.
#pragma once

#include "objectstore/model/object_view.h"
#include "objectstore/predicate/bound_predicate.h"

namespace tasket::objectstore {

/// Whether `object` (of the predicate's entity) satisfies `predicate`.
[[nodiscard]] bool evaluate(const BoundPredicate& predicate, const ObjectView& object);

} // namespace tasket::objectstore
