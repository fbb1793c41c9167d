// A store of the predicate model that the predicate tests query both ways.
// Objects are made through an ObjectContext and saved by the engine, so the
// in-memory evaluator reads the objects the engine hands out and the
// compiled SQL reads the rows the engine wrote, in the engine's schema.
#pragma once

#include "objectstore/managed_object.h"
#include "objectstore/object_context.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/sort_descriptor.h"
#include "objectstore/predicate/sql_compiler.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

struct sqlite3;

namespace tasket::objectstore::testing {

/// The model of support/predicate_model.h.
const Model& testModel();
std::uint32_t entityIndex(std::string_view name);

class TwoWayStore {
  public:
    /// An empty store in `file`.
    explicit TwoWayStore(const std::filesystem::path& file);
    ~TwoWayStore();
    TwoWayStore(const TwoWayStore&) = delete;
    TwoWayStore& operator=(const TwoWayStore&) = delete;

    /// A new object of `entity`, stored by the next save(). Keys are given
    /// at the save: save after each insert for keys in insertion order.
    ObjectPtr insert(std::string_view entity);
    /// Adds `target` to `relationship` (replacing a to-one); the engine
    /// keeps the inverse.
    static void relate(ManagedObject& object, std::string_view relationship,
                       const ObjectPtr& target);
    /// Saves the changes; throws when the engine refuses them.
    void save();

    /// The objects of `entity`, in the order they were inserted.
    const std::vector<ObjectPtr>& objects(std::uint32_t entity) const { return m_objects[entity]; }
    /// The keys of the objects of `entity` that satisfy `predicate` in memory.
    std::set<std::int64_t> evaluate(std::uint32_t entity, const BoundPredicate& predicate) const;
    /// The keys of the rows of `entity` that the compiled predicate selects.
    std::set<std::int64_t> select(std::uint32_t entity, const SqlPredicate& predicate) const;
    /// The keys of the objects of `entity` sorted in memory by `comparator`.
    std::vector<std::int64_t> sorted(std::uint32_t entity,
                                     const ObjectComparator& comparator) const;
    /// The keys of all rows of `entity` in the compiled order.
    std::vector<std::int64_t> ordered(std::uint32_t entity, const SqlOrder& order) const;
    /// Writes a copy of the store file to `file`, to keep beside a failing case.
    void copyTo(const std::filesystem::path& file) const;

  private:
    std::shared_ptr<ObjectContext> m_context;
    std::vector<std::vector<ObjectPtr>> m_objects; // by entity
    sqlite3* m_db = nullptr;                       // a reader of the saved rows
};

} // namespace tasket::objectstore::testing
