// Between records and store objects. Filling copies each attribute of the
// store property the field table names and turns each relationship into the
// identifiers of its targets. Applying finds the object by the record's
// identifier (or creates it), checks every value against the store before
// writing any, sets the attributes, and keeps the relationships until
// finish(), which resolves them by identifier once every record of a batch
// has been applied, so a file may name an object before it defines it.
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "transfer/shared_records.h"

#include <array>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace tasket::transfer {

/// The record of `object`, whose entity must be R's (else std::logic_error).
/// Loads the targets of its relationships; use on the object's queue.
template <class R> [[nodiscard]] R recordFrom(const objectstore::ManagedObject& object);

/// The record of `object`, of the kind that matches its entity.
[[nodiscard]] AnyRecord recordFromObject(const objectstore::ManagedObject& object);

/// The relationships (store names) of `entity` whose targets its record
/// names: loading them with a batch of objects saves a query per object.
[[nodiscard]] std::vector<std::string> referencedRelationships(std::string_view entity);

/// The identifier `object` is named by in records ("" when it has none).
[[nodiscard]] std::string recordIdentifier(const objectstore::ManagedObject& object);

/// Applies records to one context, which the caller saves or rolls back.
class RecordApplier {
  public:
    struct Counts {
        std::array<std::size_t, kRecordKinds.size()> created{};
        std::array<std::size_t, kRecordKinds.size()> updated{};
    };

    /// Reads the identifiers of every object already stored. Fails with the
    /// store's error.
    [[nodiscard]] static platform::Result<RecordApplier> make(objectstore::ObjectContext& context);

    /// Writes the values of `record` into the object with its identifier,
    /// or a new one. Fails, changing nothing, when the identifier is empty
    /// or not a UUID where the store keeps one, or when a number does not
    /// fit the store's field; the message names the record and the key.
    [[nodiscard]] platform::Result<void> apply(const AnyRecord& record);

    /// Sets the relationships of every applied record. A target that no
    /// record and no stored object carries is left out; the returned lines
    /// name each one (record, key, identifier).
    [[nodiscard]] std::vector<std::string> finish();

    [[nodiscard]] const Counts& counts() const { return m_counts; }

  private:
    struct Link {
        objectstore::ObjectPtr owner;
        std::size_t property;
        std::uint32_t target; // entity index
        bool toMany;
        std::optional<Strings> identifiers; // nullopt: a to-many left as it is
        std::string who;                    // "TK_SharedTask \"ID\": \"tags\""
    };

    explicit RecordApplier(objectstore::ObjectContext& context) : m_context(&context) {}
    template <class R> platform::Result<void> applyRecord(const R& record, std::size_t kind);
    objectstore::ObjectPtr resolve(std::uint32_t entity, const std::string& identifier);

    objectstore::ObjectContext* m_context;
    // Per entity: identifier -> object, stored ones as faults until touched.
    std::vector<std::unordered_map<std::string, objectstore::ObjectID>> m_stored;
    std::vector<std::unordered_map<std::string, objectstore::ObjectPtr>> m_applied;
    std::vector<Link> m_links;
    Counts m_counts;
};

} // namespace tasket::transfer
