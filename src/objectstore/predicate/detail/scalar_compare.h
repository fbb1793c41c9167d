// Comparing constants and property values the way SQLite compares the
// stored columns: numbers exactly across integers, reals and bools, text by
// bytes (code points), dates as instants, UUIDs as their upper-case text.
// The in-memory evaluator and the in-memory sort both use it.
#pragma once

#include "objectstore/model/model.h"
#include "objectstore/predicate/predicate.h"

#include <optional>

namespace tasket::objectstore::detail {

/// An attribute value as the comparisons see it: NaN reads as nil (SQLite
/// stores it as NULL), integers of a Double attribute as doubles, UUID text
/// of a UUID attribute as a UUID.
[[nodiscard]] Scalar scalarFromValue(const Value& value, AttributeType type);

/// Orders two non-nil scalars of the same kind; text after folding with
/// `options`. nullopt when either is nil or their kinds differ.
[[nodiscard]] std::optional<int> compareScalars(const Scalar& a, const Scalar& b,
                                                std::uint8_t options);

/// Equality with nil equal only to nil.
[[nodiscard]] bool equalScalars(const Scalar& a, const Scalar& b, std::uint8_t options);

} // namespace tasket::objectstore::detail
