// The modification counter every record carries (numberOfModifications):
// each local save that changes an object raises the stored value by one
// (whatever the saving context last read), saturating at the largest Int16.
// The cloud compares counters to decide which copy of an object wins, so
// only local edits raise it: a save that sets the counter itself keeps that
// value, and a context that writes what it received from the cloud clears
// its will-save hook.
#pragma once

#include "objectstore/object_context.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tasket::store {

inline constexpr std::string_view kNumberOfModificationsKey = "numberOfModifications";
inline constexpr std::int64_t kMaximumNumberOfModifications = 32'767;

/// Raises the counter of every inserted or updated object of `context` whose
/// entity has one and whose counter the save does not set itself (a will-save hook;
/// LocalDataManager installs it on every context of its container).
void raiseModificationCounters(objectstore::ObjectContext& context);

/// The counter `object` holds; nullopt when its entity has none or it is unset.
[[nodiscard]] std::optional<std::int64_t>
modificationCounter(const objectstore::ManagedObject& object);

} // namespace tasket::store
