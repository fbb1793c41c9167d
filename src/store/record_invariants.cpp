#include "store/record_invariants.h"

#include "objectstore/object_context.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/evaluator.h"

#include <stdexcept>

namespace tasket::store {

bool satisfies(const objectstore::ManagedObject& object, const objectstore::Predicate& predicate) {
    const auto* context = object.context();
    if (!context)
        throw std::invalid_argument("the object is no longer in a context");
    auto bound = objectstore::BoundPredicate::bind(predicate, context->model(),
                                                   object.entityDescription().index);
    if (!bound)
        throw std::invalid_argument(bound.error().message);
    return objectstore::evaluate(*bound, object);
}

} // namespace tasket::store
