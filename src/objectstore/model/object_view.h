// What the engine's readers (the in-memory predicate evaluator, sorting,
// fetched-results controllers) see of an object: its entity, identity and
// property values. Managed objects implement it; so can test doubles that
// are real objects of another kind.
#pragma once

#include "objectstore/model/model.h"
#include "objectstore/model/value.h"

#include <memory>
#include <vector>

namespace tasket::objectstore {

class ObjectView {
  public:
    virtual ~ObjectView() = default;

    [[nodiscard]] virtual const EntityDescription& entityDescription() const = 0;
    [[nodiscard]] virtual ObjectID objectID() const = 0;

    /// The value of attribute `property` (an attribute index of the entity).
    [[nodiscard]] virtual Value attributeValue(std::size_t property) const = 0;
    /// The object a to-one relationship points at, or nullptr.
    [[nodiscard]] virtual std::shared_ptr<const ObjectView>
    relatedObject(std::size_t property) const = 0;
    /// The objects of a to-many relationship, in no particular order.
    [[nodiscard]] virtual std::vector<std::shared_ptr<const ObjectView>>
    relatedObjects(std::size_t property) const = 0;
};

} // namespace tasket::objectstore
