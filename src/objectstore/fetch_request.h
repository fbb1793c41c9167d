// What to fetch: an entity, a predicate, a sort order, a window (limit and
// offset), a batch size, whether the context's unsaved changes count, and
// the kind of result (objects, identities, or a count), the relationships
// whose members are loaded with each batch, and the attributes read.
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
    /// Relationships of the entity (names) whose targets are loaded with
    /// the objects, one query per relationship and batch, instead of one
    /// query per object when each is first touched.
    std::vector<std::string> prefetchedRelationships;
    /// Attributes (names) read with the objects; none: all of them. The
    /// others are read, all at once, when one of them is first touched or
    /// the object is changed. Only the store's rows are read in part: an
    /// answer that counts unsaved changes reads whole rows.
    std::vector<std::string> propertiesToFetch;

    FetchRequest() = default;
    explicit FetchRequest(std::string entity) : entityName(std::move(entity)) {}
};

} // namespace tasket::objectstore
