#include "objectstore/model/model.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

std::string_view toString(AttributeType type) {
    switch (type) {
    case AttributeType::String: return "String";
    case AttributeType::Date: return "Date";
    case AttributeType::Bool: return "Bool";
    case AttributeType::Int16: return "Int16";
    case AttributeType::Int32: return "Int32";
    case AttributeType::Int64: return "Int64";
    case AttributeType::Double: return "Double";
    case AttributeType::Binary: return "Binary";
    case AttributeType::UUID: return "UUID";
    }
    return "?";
}

std::optional<std::size_t> EntityDescription::propertyIndex(std::string_view property) const {
    for (std::size_t i = 0; i < attributes.size(); ++i)
        if (attributes[i].name == property)
            return i;
    for (std::size_t i = 0; i < relationships.size(); ++i)
        if (relationships[i].name == property)
            return attributes.size() + i;
    return std::nullopt;
}

const std::string& EntityDescription::propertyName(std::size_t property) const {
    return isAttribute(property) ? attributes[property].name : relationship(property).name;
}

EntityDescription& Model::addEntity(std::string name) {
    m_finalized = false;
    auto& e = m_entities.emplace_back();
    e.name = std::move(name);
    return e;
}

const EntityDescription* Model::entity(std::string_view name) const {
    for (const auto& e : m_entities)
        if (e.name == name)
            return &e;
    return nullptr;
}

namespace {

bool defaultFits(const AttributeDescription& a) {
    const Value& v = a.defaultValue;
    if (isNil(v))
        return true;
    switch (a.type) {
    case AttributeType::String: return std::holds_alternative<std::string>(v);
    case AttributeType::Date: return std::holds_alternative<Date>(v);
    case AttributeType::Bool: return std::holds_alternative<bool>(v);
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64: return std::holds_alternative<std::int64_t>(v);
    case AttributeType::Double: return std::holds_alternative<double>(v);
    case AttributeType::Binary: return std::holds_alternative<Bytes>(v);
    case AttributeType::UUID: return std::holds_alternative<Uuid>(v);
    }
    return false;
}

bool reservedName(const std::string& n) {
    return n == "pk" || n.starts_with('_');
}

// Every name a sort index lists is a column of the entity's table: an
// attribute or a to-one relationship kept as a foreign key.
Result<void> checkSortIndexes(const EntityDescription& e) {
    for (const auto& index : e.sortIndexes) {
        if (index.orderedBy.empty())
            return fail(Errc::validation,
                        fmt::format("{}: a sort index orders by nothing", e.name));
        for (const auto* names : {&index.orderedBy, &index.carried})
            for (const auto& name : *names) {
                const auto property = e.propertyIndex(name);
                const bool column = property && (e.isAttribute(*property) ||
                                                 e.storage[*property - e.attributes.size()] ==
                                                     RelationshipStorage::ForeignKey);
                if (!column)
                    return fail(
                        Errc::validation,
                        fmt::format("{}.{}: a sort index names what is not a column of the entity "
                                    "(an attribute or a to-one relationship)",
                                    e.name, name));
            }
    }
    return {};
}

} // namespace

Result<void> Model::finalize() {
    // Names are few per entity: a linear look beats building a set, which
    // every program pays for at start.
    const auto firstUse = [](std::vector<std::string_view>& seen, std::string_view name) {
        if (std::ranges::find(seen, name) != seen.end())
            return false;
        seen.push_back(name);
        return true;
    };
    std::vector<std::string_view> entityNames;
    for (std::uint32_t i = 0; i < m_entities.size(); ++i) {
        auto& e = m_entities[i];
        e.index = i;
        if (e.name.empty() || reservedName(e.name) || !firstUse(entityNames, e.name))
            return fail(Errc::validation,
                        fmt::format("entity name '{}' is empty, reserved or used twice", e.name));
        std::vector<std::string_view> names;
        names.reserve(e.attributes.size() + e.relationships.size());
        for (const auto& a : e.attributes) {
            if (a.name.empty() || reservedName(a.name) || !firstUse(names, a.name))
                return fail(Errc::validation,
                            fmt::format("{}.{}: property name is empty, reserved or used twice",
                                        e.name, a.name));
            if (!defaultFits(a))
                return fail(Errc::validation, fmt::format("{}.{}: default value is not of type {}",
                                                          e.name, a.name, toString(a.type)));
        }
        for (const auto& r : e.relationships)
            if (r.name.empty() || reservedName(r.name) || !firstUse(names, r.name))
                return fail(Errc::validation,
                            fmt::format("{}.{}: property name is empty, reserved or used twice",
                                        e.name, r.name));
        for (const auto& kept : e.preservedOnDeletion)
            if (std::none_of(e.attributes.begin(), e.attributes.end(),
                             [&](const AttributeDescription& a) { return a.name == kept; }))
                return fail(Errc::validation,
                            fmt::format("{} preserves '{}', which is not one of its attributes",
                                        e.name, kept));
    }

    for (auto& e : m_entities) {
        e.storage.assign(e.relationships.size(), RelationshipStorage::ForeignKey);
        e.joinTables.assign(e.relationships.size(), std::string());
        for (std::size_t ri = 0; ri < e.relationships.size(); ++ri) {
            auto& r = e.relationships[ri];
            const EntityDescription* dest = entity(r.destination);
            if (!dest)
                return fail(Errc::validation,
                            fmt::format("{}.{}: destination entity '{}' does not exist", e.name,
                                        r.name, r.destination));
            r.destinationIndex = dest->index;
            auto inverse = dest->propertyIndex(r.inverse);
            if (r.inverse.empty() || !inverse || dest->isAttribute(*inverse))
                return fail(Errc::validation,
                            fmt::format("{}.{}: inverse '{}.{}' does not exist", e.name, r.name,
                                        r.destination, r.inverse));
            const auto& back = dest->relationship(*inverse);
            if (back.destination != e.name || back.inverse != r.name)
                return fail(
                    Errc::validation,
                    fmt::format("{}.{}: inverse '{}.{}' does not point back (it names {}.{})",
                                e.name, r.name, r.destination, r.inverse, back.destination,
                                back.inverse));
            r.inversePropertyIndex = static_cast<std::uint32_t>(*inverse);

            // The side that owns the storage of a symmetric pair is the one
            // whose (entity, relationship) sorts first.
            const bool ownsPair = std::tie(e.name, r.name) <= std::tie(dest->name, back.name);
            if (r.toMany && back.toMany) {
                e.storage[ri] = ownsPair ? RelationshipStorage::JoinTable
                                         : RelationshipStorage::JoinTableInverse;
                e.joinTables[ri] = ownsPair ? fmt::format("_J_{}_{}", e.name, r.name)
                                            : fmt::format("_J_{}_{}", dest->name, back.name);
            } else if (r.toMany) {
                e.storage[ri] = RelationshipStorage::InverseColumn;
            } else if (back.toMany) {
                e.storage[ri] = RelationshipStorage::ForeignKey;
            } else {
                e.storage[ri] =
                    ownsPair ? RelationshipStorage::ForeignKey : RelationshipStorage::InverseColumn;
            }
        }
        if (auto ok = checkSortIndexes(e); !ok)
            return ok;
    }
    m_finalized = true;
    return {};
}

} // namespace tasket::objectstore
