#include "store/modification_counter.h"

namespace tasket::store {

void raiseModificationCounters(objectstore::ObjectContext& context) {
    auto raise = [](const objectstore::ObjectPtr& object) {
        const auto property = object->entityDescription().propertyIndex(kNumberOfModificationsKey);
        // A save that sets the counter itself (an import, a copy received
        // from elsewhere) keeps the value it set.
        if (!property || object->isPropertyChanged(*property))
            return;
        // From the stored value, not this context's copy: another context
        // (the cloud's) may have stored a higher counter since this one read it.
        object->raiseOnSave(*property, kMaximumNumberOfModifications);
    };
    for (const auto& object : context.insertedObjects())
        raise(object);
    for (const auto& object : context.updatedObjects())
        raise(object);
}

std::optional<std::int64_t> modificationCounter(const objectstore::ManagedObject& object) {
    const auto property = object.entityDescription().propertyIndex(kNumberOfModificationsKey);
    if (!property)
        return std::nullopt;
    const auto* value = std::get_if<std::int64_t>(&object.value(*property));
    return value ? std::optional(*value) : std::nullopt;
}

} // namespace tasket::store
