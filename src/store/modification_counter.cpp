#include "store/modification_counter.h"

#include <algorithm>

namespace tasket::store {

void raiseModificationCounters(objectstore::ObjectContext& context) {
    auto raise = [](const objectstore::ObjectPtr& object) {
        const auto property = object->entityDescription().propertyIndex(kNumberOfModificationsKey);
        // A save that sets the counter itself (an import, a copy received
        // from elsewhere) keeps the value it set.
        if (!property || object->isPropertyChanged(*property))
            return;
        const auto* current = std::get_if<std::int64_t>(&object->value(*property));
        const std::int64_t value = current ? *current : 0;
        object->setValue(*property, std::min(value + 1, kMaximumNumberOfModifications));
    };
    for (const auto& object : context.insertedObjects())
        raise(object);
    for (const auto& object : context.updatedObjects())
        raise(object);
}

} // namespace tasket::store
