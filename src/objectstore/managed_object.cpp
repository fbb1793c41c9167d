#include "objectstore/managed_object.h"

#include "objectstore/object_context.h"
#include "platform/fatal.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace tasket::objectstore {

namespace {
const Value kNil;
const std::vector<ObjectID> kNoIDs;
} // namespace

ObjectIDSet::ObjectIDSet(std::vector<ObjectID> ids) {
    m_ids.reserve(ids.size());
    for (const auto& id : ids)
        insert(id);
}

bool ObjectIDSet::insert(ObjectID id) {
    if (!m_index.emplace(id, m_ids.size()).second)
        return false;
    m_ids.push_back(id);
    return true;
}

bool ObjectIDSet::erase(ObjectID id) {
    auto it = m_index.find(id);
    if (it == m_index.end())
        return false;
    const std::size_t at = it->second;
    m_index.erase(it);
    if (at + 1 != m_ids.size()) {
        m_ids[at] = m_ids.back();
        m_index[m_ids[at]] = at;
    }
    m_ids.pop_back();
    return true;
}

bool ManagedObject::isUpdated() const {
    return !m_inserted && !m_deleted &&
           std::find(m_changed.begin(), m_changed.end(), true) != m_changed.end();
}

bool ManagedObject::isPropertyChanged(std::size_t property) const {
    return property < m_changed.size() && m_changed[property];
}

std::vector<std::size_t> ManagedObject::changedProperties() const {
    std::vector<std::size_t> out;
    for (std::size_t i = 0; i < m_changed.size(); ++i)
        if (m_changed[i])
            out.push_back(i);
    return out;
}

std::size_t ManagedObject::propertyIndex(std::string_view name) const {
    auto index = m_entity->propertyIndex(name);
    if (!index)
        throw std::out_of_range(fmt::format("{} has no property '{}'", m_entity->name, name));
    return *index;
}

void ManagedObject::fire() const {
    if (!m_loaded && m_context)
        m_context->load(const_cast<ManagedObject&>(*this));
}

void ManagedObject::fireWhole() const {
    fire();
    if (m_unfetched && m_context)
        m_context->complete(const_cast<ManagedObject&>(*this));
}

const Value& ManagedObject::value(std::size_t attribute) const {
    fire();
    if (m_unfetched && (*m_unfetched).at(attribute))
        fireWhole();
    return m_loaded ? m_state.attributes.at(attribute) : kNil;
}

const Value& ManagedObject::value(std::string_view name) const {
    return value(propertyIndex(name));
}

void ManagedObject::setValue(std::string_view name, Value v) {
    setValue(propertyIndex(name), std::move(v));
}

void ManagedObject::setValue(std::size_t attribute, Value v) {
    if (!m_entity->isAttribute(attribute))
        throw std::invalid_argument(
            fmt::format("{}: property {} is not an attribute", m_entity->name, attribute));
    fireWhole();
    std::erase_if(m_raised, [&](const auto& raised) { return raised.first == attribute; });
    const auto& a = m_entity->attributes[attribute];
    if (a.type == AttributeType::Int16)
        if (const auto* i = std::get_if<std::int64_t>(&v); i && (*i < -32768 || *i > 32767))
            throw std::out_of_range(
                fmt::format("{}.{}: {} does not fit Int16", m_entity->name, a.name, *i));
    if (m_state.attributes[attribute] == v)
        return;
    willChange(attribute);
    m_state.attributes[attribute] = std::move(v);
}

void ManagedObject::raiseOnSave(std::size_t attribute, std::int64_t maximum) {
    const auto* current = std::get_if<std::int64_t>(&value(attribute));
    setValue(attribute, std::min((current ? *current : 0) + 1, maximum));
    willChange(attribute); // even at the maximum: the stored value may be lower
    m_raised.emplace_back(attribute, maximum);
}

void ManagedObject::willChange(std::size_t property) {
    if (!m_context)
        throw std::logic_error(fmt::format("{} is no longer in a context", m_entity->name));
    fireWhole(); // the snapshot and the save need every value
    if (!m_inserted && !m_snapshot)
        m_snapshot = m_state;
    m_changed[property] = true;
    m_context->markChanged(*this);
}

ObjectID ManagedObject::toOneID(std::size_t property) const {
    fire();
    const std::size_t ri = property - m_entity->attributes.size();
    if (m_entity->relationships.at(ri).toMany)
        throw std::invalid_argument(
            fmt::format("{}.{} is to-many", m_entity->name, m_entity->relationships[ri].name));
    return m_loaded ? m_state.toOne[ri] : ObjectID{};
}

ObjectPtr ManagedObject::toOne(std::size_t property) const {
    const ObjectID id = toOneID(property);
    return id.isValid() && m_context ? m_context->objectWithID(id) : nullptr;
}

void ManagedObject::setToOne(std::size_t property, const ObjectPtr& target) {
    fire();
    const std::size_t ri = property - m_entity->attributes.size();
    const auto& r = m_entity->relationships.at(ri);
    if (r.toMany)
        throw std::invalid_argument(fmt::format("{}.{} is to-many", m_entity->name, r.name));
    if (target && target->m_entity->index != r.destinationIndex)
        throw std::invalid_argument(
            fmt::format("{}.{} takes a {}", m_entity->name, r.name, r.destination));
    const ObjectID old = m_state.toOne[ri];
    const ObjectID now = target ? target->m_id : ObjectID{};
    if (old == now)
        return;
    willChange(property);
    m_state.toOne[ri] = now;
    linkInverse(ri, old, false);
    linkInverse(ri, now, true);
}

void ManagedObject::loadToMany(std::size_t ri) const {
    fire();
    if (m_state.toMany[ri])
        return;
    std::vector<ObjectID> ids;
    if (!m_id.isTemporary() && m_context) {
        auto keys = m_context->store().relatedKeys(m_id, m_entity->attributes.size() + ri);
        if (!keys)
            platform::fatal(fmt::format("{}.{} of {} cannot be read from the store: {}",
                                        m_entity->name, m_entity->relationships[ri].name, m_id.key,
                                        keys.error().message));
        const auto dest = m_entity->relationships[ri].destinationIndex;
        ids.reserve(keys->size());
        for (auto k : *keys)
            ids.push_back(ObjectID{dest, k});
    }
    m_state.toMany[ri] = ObjectIDSet(std::move(ids));
    if (m_context && m_entity->storage[ri] == RelationshipStorage::InverseColumn)
        m_context->overlayPendingMembers(const_cast<ManagedObject&>(*this), ri);
}

const std::vector<ObjectID>& ManagedObject::toManyIDs(std::size_t property) const {
    const std::size_t ri = property - m_entity->attributes.size();
    if (!m_entity->relationships.at(ri).toMany)
        throw std::invalid_argument(
            fmt::format("{}.{} is to-one", m_entity->name, m_entity->relationships[ri].name));
    loadToMany(ri);
    return m_state.toMany[ri] ? m_state.toMany[ri]->ids() : kNoIDs;
}

std::vector<ObjectPtr> ManagedObject::toMany(std::size_t property) const {
    std::vector<ObjectPtr> out;
    if (!m_context)
        return out;
    const auto& ids = toManyIDs(property);
    out.reserve(ids.size());
    for (const auto& id : ids)
        out.push_back(m_context->objectWithID(id));
    return out;
}

std::vector<std::shared_ptr<const ObjectView>>
ManagedObject::relatedObjects(std::size_t property) const {
    auto objects = toMany(property);
    return {objects.begin(), objects.end()};
}

void ManagedObject::addToMany(std::size_t property, const ObjectPtr& target) {
    const std::size_t ri = property - m_entity->attributes.size();
    const auto& r = m_entity->relationships.at(ri);
    if (!r.toMany)
        throw std::invalid_argument(fmt::format("{}.{} is to-one", m_entity->name, r.name));
    if (!target || target->m_entity->index != r.destinationIndex)
        throw std::invalid_argument(
            fmt::format("{}.{} takes a {}", m_entity->name, r.name, r.destination));
    const auto& back =
        m_context->model().entity(r.destinationIndex).relationship(r.inversePropertyIndex);
    if (!back.toMany) {
        target->setToOne(r.inversePropertyIndex, shared_from_this());
        return;
    }
    loadToMany(ri);
    if (m_state.toMany[ri]->contains(target->m_id))
        return;
    willChange(property);
    rawAdd(ri, target->m_id);
    linkInverse(ri, target->m_id, true);
}

void ManagedObject::removeFromMany(std::size_t property, const ObjectPtr& target) {
    const std::size_t ri = property - m_entity->attributes.size();
    const auto& r = m_entity->relationships.at(ri);
    if (!r.toMany || !target)
        return;
    const auto& back =
        m_context->model().entity(r.destinationIndex).relationship(r.inversePropertyIndex);
    if (!back.toMany) {
        if (target->toOneID(r.inversePropertyIndex) == m_id)
            target->setToOne(r.inversePropertyIndex, nullptr);
        return;
    }
    loadToMany(ri);
    if (!m_state.toMany[ri]->contains(target->m_id))
        return;
    willChange(property);
    rawRemove(ri, target->m_id);
    linkInverse(ri, target->m_id, false);
}

void ManagedObject::rawAdd(std::size_t ri, ObjectID id) {
    m_state.toMany[ri]->insert(id);
}

void ManagedObject::rawRemove(std::size_t ri, ObjectID id) {
    m_state.toMany[ri]->erase(id);
}

// Mirrors a change of relationship `ri` on the object `targetID`'s inverse.
void ManagedObject::linkInverse(std::size_t ri, ObjectID targetID, bool add) {
    if (!targetID.isValid() || !m_context)
        return;
    const auto& r = m_entity->relationships[ri];
    ObjectPtr target = m_context->objectWithID(targetID);
    const std::size_t ip = r.inversePropertyIndex;
    const std::size_t iri = ip - target->m_entity->attributes.size();
    const auto& back = target->m_entity->relationships[iri];
    if (target->m_deleted && add)
        return;
    if (back.toMany && target->m_entity->storage[iri] == RelationshipStorage::InverseColumn) {
        // This side holds the column; the other side's member set is only a
        // cache. Update it when loaded; a later load sees pending changes.
        if (target->m_state.toMany.size() > iri && target->m_state.toMany[iri]) {
            if (add)
                target->rawAdd(iri, m_id);
            else
                target->rawRemove(iri, m_id);
        }
        return;
    }
    target->fire();
    if (back.toMany) {
        target->loadToMany(iri);
        const bool present = target->m_state.toMany[iri]->contains(m_id);
        if (present == add)
            return;
        target->willChange(ip);
        if (add)
            target->rawAdd(iri, m_id);
        else
            target->rawRemove(iri, m_id);
        return;
    }
    // One-to-one: the target's previous partner loses it.
    const ObjectID previous = target->m_state.toOne[iri];
    if (add) {
        if (previous == m_id)
            return;
        if (previous.isValid()) {
            ObjectPtr other = m_context->objectWithID(previous);
            other->fire();
            if (other->m_state.toOne[ri] == targetID) {
                other->willChange(m_entity->attributes.size() + ri);
                other->m_state.toOne[ri] = ObjectID{};
            }
        }
        target->willChange(ip);
        target->m_state.toOne[iri] = m_id;
    } else if (previous == m_id) {
        target->willChange(ip);
        target->m_state.toOne[iri] = ObjectID{};
    }
}

} // namespace tasket::objectstore
