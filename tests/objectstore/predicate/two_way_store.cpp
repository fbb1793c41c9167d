#include "two_way_store.h"

#include "objectstore/detail/sqlite.h"
#include "objectstore/persistent_store.h"
#include "objectstore/predicate/evaluator.h"
#include "objectstore/predicate/sql_functions.h"
#include "support/predicate_model.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <stdexcept>

namespace tasket::objectstore::testing {

namespace {

// The keys a query returns, in order.
std::vector<std::int64_t> keys(sqlite3* db, const std::string& sql,
                               const std::vector<Value>& bindings = {}) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
        throw std::runtime_error(fmt::format("{}: {}", sqlite3_errmsg(db), sql));
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owned(stmt, sqlite3_finalize);
    if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(bindings.size()))
        throw std::logic_error("the number of bindings does not match the ?s");
    for (std::size_t i = 0; i < bindings.size(); ++i) // as the engine's fetches bind them
        detail::Statement(stmt).bind(static_cast<int>(i + 1), bindings[i]);
    std::vector<std::int64_t> out;
    int rc = 0;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW)
        out.push_back(sqlite3_column_int64(stmt, 0));
    if (rc != SQLITE_DONE)
        throw std::runtime_error(sqlite3_errmsg(db));
    return out;
}

} // namespace

const Model& testModel() {
    return *tasket::testing::predicateTestModel();
}

std::uint32_t entityIndex(std::string_view name) {
    return testModel().entity(name)->index;
}

TwoWayStore::TwoWayStore(const std::filesystem::path& file)
    : m_objects(testModel().entities().size()) {
    auto store = PersistentStore::open(file, tasket::testing::predicateTestModel());
    if (!store)
        throw std::runtime_error(store.error().message);
    m_context = ObjectContext::make(*store, ConcurrencyType::mainQueue);
    if (sqlite3_open(file.c_str(), &m_db) != SQLITE_OK)
        throw std::runtime_error("cannot open the store for reading");
    registerSqlFunctions(m_db);
}

TwoWayStore::~TwoWayStore() {
    sqlite3_close(m_db);
}

ObjectPtr TwoWayStore::insert(std::string_view entity) {
    auto object = m_context->insertNewObject(entity);
    m_objects[object->entityDescription().index].push_back(object);
    return object;
}

void TwoWayStore::relate(ManagedObject& object, std::string_view relationship,
                         const ObjectPtr& target) {
    const std::size_t property = object.propertyIndex(relationship);
    const auto& e = object.entityDescription();
    if (e.relationships[property - e.attributes.size()].toMany)
        object.addToMany(property, target);
    else
        object.setToOne(property, target);
}

void TwoWayStore::save() {
    if (auto saved = m_context->save(); !saved)
        throw std::runtime_error(saved.error().message);
}

std::set<std::int64_t> TwoWayStore::evaluate(std::uint32_t entity,
                                             const BoundPredicate& predicate) const {
    std::set<std::int64_t> out;
    for (const auto& object : m_objects[entity])
        if (objectstore::evaluate(predicate, *object))
            out.insert(object->objectID().key);
    return out;
}

std::vector<std::int64_t> TwoWayStore::sorted(std::uint32_t entity,
                                              const ObjectComparator& comparator) const {
    auto objects = m_objects[entity];
    std::sort(objects.begin(), objects.end(),
              [&](const auto& a, const auto& b) { return comparator(*a, *b); });
    std::vector<std::int64_t> out;
    for (const auto& object : objects)
        out.push_back(object->objectID().key);
    return out;
}

std::set<std::int64_t> TwoWayStore::select(std::uint32_t entity,
                                           const SqlPredicate& predicate) const {
    const auto found =
        keys(m_db,
             fmt::format("SELECT t0.pk FROM \"{}\" AS t0 {} WHERE {}",
                         testModel().entity(entity).name, predicate.joins, predicate.where),
             predicate.bindings);
    return {found.begin(), found.end()};
}

std::vector<std::int64_t> TwoWayStore::ordered(std::uint32_t entity, const SqlOrder& order) const {
    return keys(m_db, fmt::format("SELECT t0.pk FROM \"{}\" AS t0 {} ORDER BY {}",
                                  testModel().entity(entity).name, order.joins, order.orderBy));
}

void TwoWayStore::copyTo(const std::filesystem::path& file) const {
    std::string path = file.string();
    for (std::size_t at = 0; (at = path.find('\'', at)) != std::string::npos; at += 2)
        path.insert(at, 1, '\'');
    keys(m_db, fmt::format("VACUUM INTO '{}'", path));
}

} // namespace tasket::objectstore::testing
