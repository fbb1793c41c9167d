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

} // namespace tasket::store
