// A store of the predicate model that the predicate tests query both ways.
// Objects are made through an ObjectContext and saved by the engine, so the
// in-memory evaluator reads the objects the engine hands out and the
// compiled SQL reads the rows the engine wrote, in the engine's schema.
#pragma once

#include "objectstore/detail/sqlite.h"
#include "objectstore/object_context.h"
#include "objectstore/persistent_store.h"
#include "objectstore/predicate/evaluator.h"
#include "objectstore/predicate/sort_descriptor.h"
#include "objectstore/predicate/sql_compiler.h"
#include "objectstore/predicate/sql_functions.h"
#include "support/predicate_model.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

namespace tasket::objectstore::testing {

/// The model of support/predicate_model.h, and the index of one of its entities.
inline const Model& testModel() {
    return *tasket::testing::predicateTestModel();
}
inline std::uint32_t entityIndex(std::string_view name) {
    return testModel().entity(name)->index;
}

class TwoWayStore {
  public:
    /// An empty store in `file`; throws when the engine cannot open it.
    explicit TwoWayStore(const std::filesystem::path& file)
        : m_objects(testModel().entities().size()) {
        auto store = PersistentStore::open(file, tasket::testing::predicateTestModel());
        if (!store)
            throw std::runtime_error(store.error().message);
        m_context = ObjectContext::make(*store, ConcurrencyType::mainQueue);
        if (sqlite3_open(file.c_str(), &m_db) != SQLITE_OK)
            throw std::runtime_error("cannot open the store for reading");
        registerSqlFunctions(m_db);
    }
    ~TwoWayStore() { sqlite3_close(m_db); }
    TwoWayStore(const TwoWayStore&) = delete;
    TwoWayStore& operator=(const TwoWayStore&) = delete;

    /// A new object of `entity`, given its key by the next save(): save
    /// after each insert for keys in insertion order.
    ObjectPtr insert(std::string_view entity) {
        auto object = m_context->insertNewObject(entity);
        m_objects[object->entityDescription().index].push_back(object);
        return object;
    }
    /// Adds `target` to `relationship` (replacing a to-one); the engine keeps the inverse.
    static void relate(ManagedObject& object, std::string_view relationship,
                       const ObjectPtr& target) {
        const std::size_t property = object.propertyIndex(relationship);
        const auto& e = object.entityDescription();
        if (e.relationships[property - e.attributes.size()].toMany)
            object.addToMany(property, target);
        else
            object.setToOne(property, target);
    }
    /// Saves the changes; throws when the engine refuses them.
    void save() {
        if (auto saved = m_context->save(); !saved)
            throw std::runtime_error(saved.error().message);
    }
    /// The objects of `entity`, in the order they were inserted.
    const std::vector<ObjectPtr>& objects(std::uint32_t entity) const { return m_objects[entity]; }

    /// The keys of `entity` that `predicate` selects in memory and in SQL.
    struct Selection {
        std::set<std::int64_t> memory, stored;
        SqlPredicate sql;
    };
    Selection select(std::uint32_t entity, const BoundPredicate& predicate) const {
        Selection out{{}, {}, compileToSql(predicate)};
        for (const auto& object : m_objects[entity])
            if (evaluate(predicate, *object))
                out.memory.insert(object->objectID().key);
        for (auto key :
             keys(fmt::format("SELECT t0.pk FROM \"{}\" AS t0 {} WHERE {}",
                              testModel().entity(entity).name, out.sql.joins, out.sql.where),
                  out.sql.bindings))
            out.stored.insert(key);
        return out;
    }
    /// The keys of all of `entity` sorted by `descriptors` in SQL (first)
    /// and in memory; throws when either refuses the descriptors.
    std::pair<std::vector<std::int64_t>, std::vector<std::int64_t>>
    sort(std::uint32_t entity, const std::vector<SortDescriptor>& descriptors) const {
        auto order = compileSort(descriptors, testModel(), entity);
        auto comparator = ObjectComparator::make(descriptors, testModel(), entity);
        if (!order || !comparator)
            throw std::runtime_error("the sort descriptors are refused");
        auto objects = m_objects[entity];
        std::ranges::sort(objects,
                          [&](const auto& a, const auto& b) { return (*comparator)(*a, *b); });
        std::vector<std::int64_t> memory;
        for (const auto& object : objects)
            memory.push_back(object->objectID().key);
        return {keys(fmt::format("SELECT t0.pk FROM \"{}\" AS t0 {} ORDER BY {}",
                                 testModel().entity(entity).name, order->joins, order->orderBy)),
                memory};
    }
    /// Writes a copy of the store file to `file`, to keep beside a failing case.
    void copyTo(const std::filesystem::path& file) const {
        std::string path = file.string();
        for (std::size_t at = 0; (at = path.find('\'', at)) != std::string::npos; at += 2)
            path.insert(at, 1, '\'');
        keys(fmt::format("VACUUM INTO '{}'", path));
    }

  private:
    // The keys a query returns, in order, its values bound as the engine's fetches bind them.
    std::vector<std::int64_t> keys(const std::string& sql,
                                   const std::vector<Value>& bindings = {}) const {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(fmt::format("{}: {}", sqlite3_errmsg(m_db), sql));
        std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owned(stmt, sqlite3_finalize);
        if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(bindings.size()))
            throw std::logic_error("the number of bindings does not match the ?s");
        for (std::size_t i = 0; i < bindings.size(); ++i)
            detail::Statement(stmt).bind(static_cast<int>(i + 1), bindings[i]);
        std::vector<std::int64_t> out;
        int rc = 0;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW)
            out.push_back(sqlite3_column_int64(stmt, 0));
        if (rc != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(m_db));
        return out;
    }

    std::shared_ptr<ObjectContext> m_context;
    std::vector<std::vector<ObjectPtr>> m_objects; // by entity
    sqlite3* m_db = nullptr;                       // a reader of the saved rows
};

} // namespace tasket::objectstore::testing
