// Test support for the predicate tests: an in-memory object graph of the
// predicate model whose objects implement ObjectView, and a mirror of the
// same graph in a store file with the engine's own schema, so that one
// store can be queried both ways.
#pragma once

#include "objectstore/model/model.h"
#include "objectstore/model/object_view.h"
#include "objectstore/predicate/sort_descriptor.h"
#include "objectstore/predicate/sql_compiler.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

struct sqlite3;

namespace tasket::objectstore::testing {

/// The model of support/predicate_model.h.
const Model& testModel();
std::uint32_t entityIndex(std::string_view name);

class ObjectGraph;

class GraphObject final : public ObjectView {
  public:
    GraphObject(const ObjectGraph& graph, const EntityDescription& entity, ObjectID id);

    const EntityDescription& entityDescription() const override { return *m_entity; }
    ObjectID objectID() const override { return m_id; }
    Value attributeValue(std::size_t property) const override { return m_attributes[property]; }
    std::shared_ptr<const ObjectView> relatedObject(std::size_t property) const override;
    std::vector<std::shared_ptr<const ObjectView>>
    relatedObjects(std::size_t property) const override;

  private:
    friend class ObjectGraph;
    const ObjectGraph* m_graph;
    const EntityDescription* m_entity;
    ObjectID m_id;
    std::vector<Value> m_attributes;
    std::vector<std::vector<ObjectID>> m_related; // per relationship
};

class ObjectGraph {
  public:
    explicit ObjectGraph(const Model& model) : m_model(model), m_objects(model.entities().size()) {}

    std::shared_ptr<GraphObject> insert(std::string_view entity);
    void set(GraphObject& object, std::string_view attribute, Value value);
    /// Adds `target` to `relationship` (replacing a to-one) and keeps the inverse.
    void relate(GraphObject& object, std::string_view relationship, GraphObject& target);

    std::shared_ptr<const GraphObject> find(ObjectID id) const;
    const std::vector<std::shared_ptr<GraphObject>>& objects(std::uint32_t entity) const;
    const Model& model() const { return m_model; }

  private:
    void unlinkOne(GraphObject& object, std::size_t ri, ObjectID target);

    const Model& m_model;
    std::vector<std::vector<std::shared_ptr<GraphObject>>> m_objects; // by entity, then key - 1
};

/// The graph written to a store file the engine created, row for row.
class SqlMirror {
  public:
    SqlMirror(const ObjectGraph& graph, const std::filesystem::path& file);
    ~SqlMirror();
    SqlMirror(const SqlMirror&) = delete;
    SqlMirror& operator=(const SqlMirror&) = delete;

    /// The keys of the rows of `entity` that the compiled predicate selects.
    std::set<std::int64_t> select(std::uint32_t entity, const SqlPredicate& predicate) const;
    /// The keys of all rows of `entity` in the compiled order.
    std::vector<std::int64_t> ordered(std::uint32_t entity, const SqlOrder& order) const;
    /// Writes a copy of the store file to `file`, to keep beside a failing case.
    void copyTo(const std::filesystem::path& file) const;

  private:
    void exec(const std::string& sql) const;
    sqlite3* m_db = nullptr;
    const Model& m_model;
};

/// The keys of the objects of `entity` that satisfy `predicate` in memory.
std::set<std::int64_t> evaluateAll(const ObjectGraph& graph, std::uint32_t entity,
                                   const BoundPredicate& predicate);

} // namespace tasket::objectstore::testing
