#include "objectstore/predicate/detail/key_path_reader.h"

#include "objectstore/predicate/detail/scalar_compare.h"

namespace tasket::objectstore::detail {

namespace {

// ObjectView hands out shared pointers for related objects; the starting
// object is borrowed, so it is wrapped without ownership.
std::shared_ptr<const ObjectView> borrow(const ObjectView& object) {
    return std::shared_ptr<const ObjectView>(std::shared_ptr<const ObjectView>(), &object);
}

} // namespace

std::shared_ptr<const ObjectView>
KeyPathReader::follow(const BoundKeyPath& path, std::size_t from, std::size_t to,
                      std::shared_ptr<const ObjectView> start) const {
    auto current = std::move(start);
    for (std::size_t i = from; i < to && current; ++i)
        current = current->relatedObject(path.steps[i].property);
    return current;
}

Scalar KeyPathReader::tail(const BoundKeyPath& path, std::size_t from,
                           std::shared_ptr<const ObjectView> start) const {
    if (from == path.steps.size())
        return start->objectID();
    const auto owner = follow(path, from, path.steps.size() - 1, std::move(start));
    if (!owner)
        return {};
    const PropertyStep& last = path.steps.back();
    const EntityDescription& e = m_model.entity(last.entity);
    if (e.isAttribute(last.property))
        return scalarFromValue(owner->attributeValue(last.property),
                               e.attributes[last.property].type);
    auto related = owner->relatedObject(last.property);
    return related ? Scalar(related->objectID()) : Scalar();
}

Scalar KeyPathReader::value(const BoundKeyPath& path, const ObjectView& object) const {
    if (path.count)
        return static_cast<std::int64_t>(collectionSize(path, object));
    return tail(path, 0, borrow(object));
}

std::size_t KeyPathReader::collectionSize(const BoundKeyPath& path,
                                          const ObjectView& object) const {
    const std::size_t step = *path.toManyStep;
    const auto owner = follow(path, 0, step, borrow(object));
    return owner ? owner->relatedObjects(path.steps[step].property).size() : 0;
}

void KeyPathReader::forEachElement(const BoundKeyPath& path, const ObjectView& object,
                                   const std::function<bool(const Scalar&)>& visit) const {
    const std::size_t step = *path.toManyStep;
    const auto owner = follow(path, 0, step, borrow(object));
    if (!owner)
        return;
    for (const auto& element : owner->relatedObjects(path.steps[step].property))
        if (element && !visit(tail(path, step + 1, element)))
            return;
}

} // namespace tasket::objectstore::detail
