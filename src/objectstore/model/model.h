// The model description that drives the engine: entities, their attributes
// and relationships. The engine derives the SQL schema and every accessor
// from it and knows nothing else about the domain. A model is built, then
// finalized: finalize() checks it (every inverse pairs up, names are unique,
// defaults fit their types) and resolves names to indexes.
#pragma once

#include "objectstore/model/value.h"
#include "platform/error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::objectstore {

using platform::Result;
class ManagedObject;

enum class AttributeType { String, Date, Bool, Int16, Int32, Int64, Double, Binary, UUID };

enum class DeleteRule { Nullify, Cascade, Deny, NoAction };

[[nodiscard]] std::string_view toString(AttributeType type);

struct AttributeDescription {
    std::string name{};
    AttributeType type = AttributeType::String;
    bool optional = true;
    Value defaultValue{}; // nil: no default
    bool indexed = false; // an SQL index on the column
};

struct RelationshipDescription {
    std::string name{};
    std::string destination{}; // entity name
    std::string inverse{};     // relationship name on the destination
    bool toMany = false;
    DeleteRule deleteRule = DeleteRule::Nullify;
    bool optional = true;

    // Resolved by Model::finalize().
    std::uint32_t destinationIndex = 0;
    std::uint32_t inversePropertyIndex = 0; // property index on the destination
};

/// How a relationship is kept in SQL, decided at finalize().
enum class RelationshipStorage {
    ForeignKey,    // a to-one: a column on this entity's table
    InverseColumn, // a to-many (or the passive to-one) whose partner holds the column
    JoinTable,     // many-to-many: one join table owned by one side
    JoinTableInverse,
};

/// An SQL index that serves a sort: its rows are ordered by `orderedBy` and
/// then by the object, as sorts break ties, so a fetch sorted by those keys
/// (all ascending or all descending) reads the index in order instead of
/// sorting; `carried` columns ride along so a filter on them needs no row
/// lookup. Names are attributes or to-one relationships of the entity.
struct SortIndexDescription {
    std::vector<std::string> orderedBy;
    std::vector<std::string> carried{};
};

struct EntityDescription {
    std::string name{};
    std::vector<AttributeDescription> attributes;
    std::vector<RelationshipDescription> relationships;
    std::vector<SortIndexDescription> sortIndexes{};
    /// Attributes whose values persistent history keeps when an object is
    /// deleted (its tombstone), so a reader can still name what went away.
    std::vector<std::string> preservedOnDeletion{};
    /// Makes the object for a row of this entity (a typed record class);
    /// empty: a plain ManagedObject.
    std::function<std::shared_ptr<ManagedObject>()> makeObject;

    // Resolved by Model::finalize(). Properties are numbered attributes
    // first, then relationships: property i < attributes.size() is an
    // attribute, the rest index relationships[i - attributes.size()].
    std::uint32_t index = 0;
    std::vector<RelationshipStorage> storage; // per relationship
    std::vector<std::string> joinTables;      // per relationship; empty unless join

    [[nodiscard]] std::size_t propertyCount() const {
        return attributes.size() + relationships.size();
    }
    [[nodiscard]] bool isAttribute(std::size_t property) const {
        return property < attributes.size();
    }
    [[nodiscard]] const RelationshipDescription& relationship(std::size_t property) const {
        return relationships[property - attributes.size()];
    }
    /// The property index named `name`, or nullopt.
    [[nodiscard]] std::optional<std::size_t> propertyIndex(std::string_view property) const;
    [[nodiscard]] const std::string& propertyName(std::size_t property) const;
};

class Model {
  public:
    Model() = default;
    Model(std::string name, std::int32_t version) : m_name(std::move(name)), m_version(version) {}

    EntityDescription& addEntity(std::string name);

    /// Checks and resolves the description. A model must be finalized
    /// before a store uses it; errors name the entity and property.
    [[nodiscard]] Result<void> finalize();
    [[nodiscard]] bool isFinalized() const { return m_finalized; }

    [[nodiscard]] const std::string& name() const { return m_name; }
    /// The schema version written to PRAGMA user_version. Raise it when
    /// entities or attributes are added; a store with a higher version
    /// than the program's refuses to open.
    [[nodiscard]] std::int32_t version() const { return m_version; }
    [[nodiscard]] const std::vector<EntityDescription>& entities() const { return m_entities; }
    [[nodiscard]] const EntityDescription& entity(std::uint32_t index) const {
        return m_entities[index];
    }
    [[nodiscard]] const EntityDescription* entity(std::string_view name) const;

  private:
    std::string m_name;
    std::int32_t m_version = 1;
    std::vector<EntityDescription> m_entities;
    bool m_finalized = false;
};

} // namespace tasket::objectstore
