#include "object_graph.h"

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

std::string quote(std::string_view name) {
    return fmt::format("\"{}\"", name);
}

void bindValue(sqlite3_stmt* stmt, int index, const Value& value) {
    struct Binder {
        sqlite3_stmt* stmt;
        int i;
        void operator()(std::monostate) const { sqlite3_bind_null(stmt, i); }
        void operator()(bool b) const { sqlite3_bind_int64(stmt, i, b ? 1 : 0); }
        void operator()(std::int64_t v) const { sqlite3_bind_int64(stmt, i, v); }
        void operator()(double d) const { sqlite3_bind_double(stmt, i, d); }
        void operator()(const std::string& s) const {
            sqlite3_bind_text64(stmt, i, s.data(), s.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        }
        void operator()(const Date& d) const {
            sqlite3_bind_double(stmt, i, d.secondsSinceReference);
        }
        void operator()(const Uuid& u) const {
            const std::string text = u.toString();
            sqlite3_bind_text64(stmt, i, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        }
        // An empty blob must stay a blob: a null pointer would bind NULL.
        void operator()(const Bytes& b) const {
            if (b.empty())
                sqlite3_bind_zeroblob(stmt, i, 0);
            else
                sqlite3_bind_blob64(stmt, i, b.data(), b.size(), SQLITE_TRANSIENT);
        }
    };
    std::visit(Binder{stmt, index}, value);
}

struct Statement {
    sqlite3_stmt* stmt = nullptr;
    Statement(sqlite3* db, const std::string& sql) {
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(fmt::format("{}: {}", sqlite3_errmsg(db), sql));
    }
    ~Statement() { sqlite3_finalize(stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
};

} // namespace

const Model& testModel() {
    return *tasket::testing::predicateTestModel();
}

std::uint32_t entityIndex(std::string_view name) {
    return testModel().entity(name)->index;
}

// ---- Graph ----

GraphObject::GraphObject(const ObjectGraph& graph, const EntityDescription& entity, ObjectID id)
    : m_graph(&graph), m_entity(&entity), m_id(id), m_attributes(entity.attributes.size()),
      m_related(entity.relationships.size()) {}

std::shared_ptr<const ObjectView> GraphObject::relatedObject(std::size_t property) const {
    const auto& ids = m_related[property - m_entity->attributes.size()];
    return ids.empty() ? nullptr : m_graph->find(ids.front());
}

std::vector<std::shared_ptr<const ObjectView>>
GraphObject::relatedObjects(std::size_t property) const {
    std::vector<std::shared_ptr<const ObjectView>> out;
    for (const auto& id : m_related[property - m_entity->attributes.size()])
        out.push_back(m_graph->find(id));
    return out;
}

std::shared_ptr<GraphObject> ObjectGraph::insert(std::string_view entity) {
    const EntityDescription* e = m_model.entity(entity);
    auto& list = m_objects[e->index];
    auto object = std::make_shared<GraphObject>(
        *this, *e, ObjectID{e->index, static_cast<std::int64_t>(list.size() + 1)});
    list.push_back(object);
    return object;
}

void ObjectGraph::set(GraphObject& object, std::string_view attribute, Value value) {
    object.m_attributes[*object.m_entity->propertyIndex(attribute)] = std::move(value);
}

void ObjectGraph::unlinkOne(GraphObject& object, std::size_t ri, ObjectID target) {
    auto& ids = object.m_related[ri];
    ids.erase(std::remove(ids.begin(), ids.end(), target), ids.end());
}

void ObjectGraph::relate(GraphObject& object, std::string_view name, GraphObject& target) {
    const EntityDescription& e = *object.m_entity;
    const std::size_t ri = *e.propertyIndex(name) - e.attributes.size();
    const RelationshipDescription& r = e.relationships[ri];
    const std::size_t back = r.inversePropertyIndex - target.m_entity->attributes.size();
    const bool backToMany = target.m_entity->relationships[back].toMany;
    if (!r.toMany)
        for (ObjectID old : std::vector<ObjectID>(object.m_related[ri])) {
            unlinkOne(*m_objects[old.entity][static_cast<std::size_t>(old.key - 1)], back,
                      object.m_id);
            unlinkOne(object, ri, old);
        }
    if (!backToMany)
        for (ObjectID old : std::vector<ObjectID>(target.m_related[back])) {
            unlinkOne(*m_objects[old.entity][static_cast<std::size_t>(old.key - 1)], ri,
                      target.m_id);
            unlinkOne(target, back, old);
        }
    auto& forward = object.m_related[ri];
    if (std::find(forward.begin(), forward.end(), target.m_id) != forward.end())
        return;
    forward.push_back(target.m_id);
    target.m_related[back].push_back(object.m_id);
}

std::shared_ptr<const GraphObject> ObjectGraph::find(ObjectID id) const {
    if (id.entity >= m_objects.size() || id.key < 1 ||
        static_cast<std::size_t>(id.key) > m_objects[id.entity].size())
        return nullptr;
    return m_objects[id.entity][static_cast<std::size_t>(id.key - 1)];
}

const std::vector<std::shared_ptr<GraphObject>>& ObjectGraph::objects(std::uint32_t entity) const {
    return m_objects.at(entity);
}

std::set<std::int64_t> evaluateAll(const ObjectGraph& graph, std::uint32_t entity,
                                   const BoundPredicate& predicate) {
    std::set<std::int64_t> keys;
    for (const auto& object : graph.objects(entity))
        if (evaluate(predicate, *object))
            keys.insert(object->objectID().key);
    return keys;
}

// ---- SQLite mirror ----

SqlMirror::SqlMirror(const ObjectGraph& graph, const std::filesystem::path& file)
    : m_model(graph.model()) {
    // The engine lays out the tables; the rows are written here directly.
    if (auto store = PersistentStore::open(file, {std::shared_ptr<void>(), &m_model}); !store)
        throw std::runtime_error(store.error().message);
    if (sqlite3_open(file.c_str(), &m_db) != SQLITE_OK)
        throw std::runtime_error("cannot open the mirror database");
    registerSqlFunctions(m_db);
    exec("BEGIN");
    for (const auto& e : m_model.entities()) {
        std::string columns = "pk, _version";
        std::string marks = "?, 1";
        for (const auto& a : e.attributes) {
            columns += ", " + quote(a.name);
            marks += ", ?";
        }
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey) {
                columns += ", " + quote(e.relationships[i].name);
                marks += ", ?";
            }
        Statement insert(
            m_db, fmt::format("INSERT INTO {}({}) VALUES({})", quote(e.name), columns, marks));
        for (const auto& object : graph.objects(e.index)) {
            sqlite3_reset(insert.stmt);
            int column = 1;
            sqlite3_bind_int64(insert.stmt, column++, object->objectID().key);
            for (std::size_t a = 0; a < e.attributes.size(); ++a)
                bindValue(insert.stmt, column++, object->attributeValue(a));
            for (std::size_t i = 0; i < e.relationships.size(); ++i) {
                if (e.storage[i] != RelationshipStorage::ForeignKey)
                    continue;
                auto related = object->relatedObject(e.attributes.size() + i);
                bindValue(insert.stmt, column++,
                          related ? Value(related->objectID().key) : Value());
            }
            if (sqlite3_step(insert.stmt) != SQLITE_DONE)
                throw std::runtime_error(sqlite3_errmsg(m_db));
        }
        for (std::size_t i = 0; i < e.relationships.size(); ++i) {
            if (e.storage[i] != RelationshipStorage::JoinTable)
                continue;
            Statement link(
                m_db, fmt::format("INSERT INTO {}(src, dst) VALUES(?, ?)", quote(e.joinTables[i])));
            for (const auto& object : graph.objects(e.index))
                for (const auto& related : object->relatedObjects(e.attributes.size() + i)) {
                    sqlite3_reset(link.stmt);
                    sqlite3_bind_int64(link.stmt, 1, object->objectID().key);
                    sqlite3_bind_int64(link.stmt, 2, related->objectID().key);
                    if (sqlite3_step(link.stmt) != SQLITE_DONE)
                        throw std::runtime_error(sqlite3_errmsg(m_db));
                }
        }
    }
    exec("COMMIT");
}

SqlMirror::~SqlMirror() {
    sqlite3_close(m_db);
}

void SqlMirror::exec(const std::string& sql) const {
    char* message = nullptr;
    if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        std::string text = message ? message : "?";
        sqlite3_free(message);
        throw std::runtime_error(text + ": " + sql);
    }
}

void SqlMirror::copyTo(const std::filesystem::path& file) const {
    std::string path = file.string();
    for (std::size_t at = 0; (at = path.find('\'', at)) != std::string::npos; at += 2)
        path.insert(at, 1, '\'');
    exec(fmt::format("VACUUM INTO '{}'", path));
}

std::set<std::int64_t> SqlMirror::select(std::uint32_t entity,
                                         const SqlPredicate& predicate) const {
    Statement query(m_db, fmt::format("SELECT t0.pk FROM {} AS t0 {} WHERE {}",
                                      quote(m_model.entity(entity).name), predicate.joins,
                                      predicate.where));
    if (sqlite3_bind_parameter_count(query.stmt) != static_cast<int>(predicate.bindings.size()))
        throw std::logic_error("the number of bindings does not match the ?s");
    for (std::size_t i = 0; i < predicate.bindings.size(); ++i)
        bindValue(query.stmt, static_cast<int>(i + 1), predicate.bindings[i]);
    std::set<std::int64_t> keys;
    int rc = 0;
    while ((rc = sqlite3_step(query.stmt)) == SQLITE_ROW)
        keys.insert(sqlite3_column_int64(query.stmt, 0));
    if (rc != SQLITE_DONE)
        throw std::runtime_error(sqlite3_errmsg(m_db));
    return keys;
}

std::vector<std::int64_t> SqlMirror::ordered(std::uint32_t entity, const SqlOrder& order) const {
    Statement query(m_db,
                    fmt::format("SELECT t0.pk FROM {} AS t0 {} ORDER BY {}",
                                quote(m_model.entity(entity).name), order.joins, order.orderBy));
    std::vector<std::int64_t> keys;
    while (sqlite3_step(query.stmt) == SQLITE_ROW)
        keys.push_back(sqlite3_column_int64(query.stmt, 0));
    return keys;
}

} // namespace tasket::objectstore::testing
