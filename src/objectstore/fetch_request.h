// What to fetch: an entity, a predicate, a sort order, a window (limit and
// offset), a batch size, whether the context's unsaved changes count, and
// the kind of result (objects, identities, or a count).
#pragma once

#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sort_descriptor.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tasket::objectstore {

enum class FetchResultType { objects, objectIDs, count };

struct FetchRequest {
    std::string entityName;
    std::optional<Predicate> predicate; // none: every object
    std::vector<SortDescriptor> sortDescriptors;
    std::size_t fetchLimit = 0; // 0: no limit
    std::size_t fetchOffset = 0;
    std::size_t fetchBatchSize = 0; // 0: load every row at once
    bool includesPendingChanges = true;
    FetchResultType resultType = FetchResultType::objects;

    FetchRequest() = default;
    explicit FetchRequest(std::string entity) : entityName(std::move(entity)) {}
};

} // namespace tasket::objectstore
