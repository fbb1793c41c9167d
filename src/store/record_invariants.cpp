#include "store/record_invariants.h"

#include "objectstore/object_context.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/evaluator.h"

#include <stdexcept>
#include <string>

namespace tasket::store {

namespace {

objectstore::Predicate parseFixed(std::string_view format) {
    auto parsed = objectstore::Predicate::parse(format);
    if (!parsed)
        throw std::logic_error("a fixed predicate does not parse: " + parsed.error().message);
    return *parsed;
}

} // namespace

const objectstore::Predicate& validTaskPredicate() {
    static const auto predicate = parseFixed(kValidTaskFormat);
    return predicate;
}

const objectstore::Predicate& listedSubtaskPredicate() {
    static const auto predicate = parseFixed(kListedSubtaskFormat);
    return predicate;
}

const objectstore::Predicate& hasNotesPredicate() {
    static const auto predicate = parseFixed(kHasNotesFormat);
    return predicate;
}

const objectstore::Predicate& hasLinkPredicate() {
    static const auto predicate = parseFixed(kHasLinkFormat);
    return predicate;
}

const objectstore::Predicate& hasAttachmentsPredicate() {
    static const auto predicate = parseFixed(kHasAttachmentsFormat);
    return predicate;
}

const objectstore::Predicate& hasNoAttachmentsPredicate() {
    static const auto predicate = parseFixed(kHasNoAttachmentsFormat);
    return predicate;
}

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
