// Judging one record against a rule in memory: the domain's predicates
// (rules/predicates.h) evaluated on an object with its unsaved changes, as
// the store would select it once saved.
#pragma once

#include "objectstore/managed_object.h"
#include "objectstore/predicate/predicate.h"

namespace tasket::store {

/// Whether `object` satisfies `predicate`, evaluated in memory (unsaved
/// changes included). Throws std::invalid_argument when the predicate does
/// not fit the object's entity (a programming error).
bool satisfies(const objectstore::ManagedObject& object, const objectstore::Predicate& predicate);

} // namespace tasket::store
