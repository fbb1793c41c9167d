// The entities other than the fetched one whose values a fetch request
// reads through relationships (in its predicate or sort key paths). Unsaved
// or merged changes to their objects can change the result.
#pragma once

#include "objectstore/fetch_request.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace tasket::objectstore::detail {

[[nodiscard]] std::set<std::uint32_t>
keyPathDependencies(const std::optional<BoundPredicate>& predicate,
                    const std::vector<SortDescriptor>& sort, const Model& model,
                    std::uint32_t entity);

/// The same, with the properties read on each of those entities, by name.
[[nodiscard]] std::map<std::uint32_t, std::set<std::string>>
keyPathReads(const std::optional<BoundPredicate>& predicate,
             const std::vector<SortDescriptor>& sort, const Model& model, std::uint32_t entity);

} // namespace tasket::objectstore::detail
