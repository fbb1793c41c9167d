// Reads bound key paths from objects through ObjectView: the value at the
// end of to-one hops (nil when a hop is missing), the elements reached
// through the one to-many step, and @count. Used by the evaluator and the
// in-memory sort.
#pragma once

#include "objectstore/model/object_view.h"
#include "objectstore/predicate/bound_predicate.h"

#include <functional>

namespace tasket::objectstore::detail {

class KeyPathReader {
  public:
    explicit KeyPathReader(const Model& model) : m_model(model) {}

    /// The value of a path without a to-many step, or its @count (0 when a
    /// hop before the counted relationship is missing).
    [[nodiscard]] Scalar value(const BoundKeyPath& path, const ObjectView& object) const;

    /// How many objects the path's to-many relationship holds (0 when a hop
    /// before it is missing).
    [[nodiscard]] std::size_t collectionSize(const BoundKeyPath& path,
                                             const ObjectView& object) const;

    /// Calls `visit` with the value reached from each element of the to-many
    /// step (the element's ID when the path ends there) until it returns false.
    void forEachElement(const BoundKeyPath& path, const ObjectView& object,
                        const std::function<bool(const Scalar&)>& visit) const;

  private:
    // Follows steps [from, to), all to-one; nullptr when a hop is missing.
    [[nodiscard]] std::shared_ptr<const ObjectView>
    follow(const BoundKeyPath& path, std::size_t from, std::size_t to,
           std::shared_ptr<const ObjectView> start) const;
    [[nodiscard]] Scalar tail(const BoundKeyPath& path, std::size_t from,
                              std::shared_ptr<const ObjectView> start) const;

    const Model& m_model;
};

} // namespace tasket::objectstore::detail
