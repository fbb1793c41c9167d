// How a model's entity and property names appear in SQL text: the schema
// names its tables and columns after them, and both the predicate compiler
// and the engine write statements against that schema.
#pragma once

#include <string>
#include <string_view>

namespace tasket::objectstore::detail {

/// "name" with inner quotes doubled.
[[nodiscard]] std::string quoteIdentifier(std::string_view name);

} // namespace tasket::objectstore::detail
