// How a store object becomes a cloud record and back. Each entity has one
// key table, derived from the TK_Data model: every attribute and
// relationship under the store's name, except where the cloud's records
// spell a key their own way (a folder's "note", "whenCreated", a task's
// "taskAttachmentsFilter", "addToTags", ...). Relationships travel as the
// identifiers of their targets (a to-one as a reference, a to-many as a
// list); objects under a shared category carry a parent reference to the
// record above them.
#pragma once

#include "objectstore/managed_object.h"
#include "objectstore/model/model.h"
#include "platform/cloud/cloud_database.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::cloud {

enum class CloudKeyKind { attribute, toOne, toMany };

struct CloudKey {
    std::string key;      // the record's field name
    std::size_t property; // the store property
    CloudKeyKind kind;
};

struct EntityKeys {
    const objectstore::EntityDescription* entity = nullptr;
    std::size_t identifier = 0; // the attribute that names objects (the record name)
    std::vector<CloudKey> keys;
    /// Where the record above this one is found: to-one relationships, the
    /// first set one wins; or the attribute naming the shared category.
    std::vector<std::size_t> parents;
    std::optional<std::size_t> sharedCategoryIdentifier;
};

/// The key table of `entity` (a TK_Data entity name); nullptr for others.
[[nodiscard]] const EntityKeys* entityKeys(std::string_view entity);
/// The cloud key of a store property ("notes" -> "note"), as the tables use.
[[nodiscard]] std::string cloudKeyFor(std::string_view entity, std::string_view property);

/// The identifier text of `object` (its record name); "" when it has none.
[[nodiscard]] std::string identifierOf(const objectstore::ManagedObject& object);

/// Every field of `object` under its key table, and its parent reference
/// when `underSharedCategory`. Use on the object's queue.
void writeFields(const objectstore::ManagedObject& object, bool underSharedCategory,
                 platform::CloudRecord& record);

/// A store value from a record's field for attribute `attribute` of
/// `entity`; nullopt when the field holds a value of another kind.
[[nodiscard]] std::optional<objectstore::Value>
storeValue(const objectstore::EntityDescription& entity, std::size_t attribute,
           const platform::CloudValue& field);

} // namespace tasket::cloud
