// Costs of the predicate language on the paths the engine takes: parsing a
// format string, binding and compiling it to SQL, and evaluating it in
// memory on unsaved objects (text folding included).
#include "objectstore/model/model.h"
#include "objectstore/model/object_view.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/evaluator.h"
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sql_compiler.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>

using namespace tasket::objectstore;

namespace {

const char* const kValidTask = "taskID != nil AND taskID != '' AND category != nil AND "
                               "category.categoryID != '' AND category.title != ''";

const Model& model() {
    static const Model m = [] {
        Model out("Bench", 1);
        auto& task = out.addEntity("Task");
        for (const char* name : {"taskID", "title"})
            task.attributes.push_back(
                AttributeDescription{name, AttributeType::String, true, {}, false});
        RelationshipDescription category{"category",          "Category", "tasks", false,
                                         DeleteRule::Nullify, true,       0,       0};
        task.relationships.push_back(category);
        RelationshipDescription tags{"tags", "Category", "tagged", true, DeleteRule::Nullify,
                                     true,   0,          0};
        task.relationships.push_back(tags);
        auto& cat = out.addEntity("Category");
        for (const char* name : {"categoryID", "title"})
            cat.attributes.push_back(
                AttributeDescription{name, AttributeType::String, true, {}, false});
        cat.relationships.push_back(RelationshipDescription{"tasks", "Task", "category", true,
                                                            DeleteRule::Nullify, true, 0, 0});
        cat.relationships.push_back(RelationshipDescription{"tagged", "Task", "tags", true,
                                                            DeleteRule::Nullify, true, 0, 0});
        if (!out.finalize())
            throw std::logic_error("bench model");
        return out;
    }();
    return m;
}

// A plain object: attribute values and related objects held directly.
class Object final : public ObjectView {
  public:
    Object(std::uint32_t entity, std::int64_t key) : m_entity(entity), m_key(key) {}
    const EntityDescription& entityDescription() const override { return model().entity(m_entity); }
    ObjectID objectID() const override { return {m_entity, m_key}; }
    Value attributeValue(std::size_t property) const override { return values[property]; }
    std::shared_ptr<const ObjectView> relatedObject(std::size_t) const override { return toOne; }
    std::vector<std::shared_ptr<const ObjectView>> relatedObjects(std::size_t) const override {
        return toMany;
    }

    std::vector<Value> values{Value(), Value()};
    std::shared_ptr<const ObjectView> toOne;
    std::vector<std::shared_ptr<const ObjectView>> toMany;

  private:
    std::uint32_t m_entity;
    std::int64_t m_key;
};

std::vector<std::shared_ptr<Object>> objects(int count) {
    std::vector<std::shared_ptr<Object>> categories;
    for (int i = 0; i < 20; ++i) {
        auto c = std::make_shared<Object>(1, i + 1);
        c->values = {Value("C" + std::to_string(i)), Value(i % 2 ? "Straße Émile" : "")};
        categories.push_back(c);
    }
    std::vector<std::shared_ptr<Object>> tasks;
    for (int i = 0; i < count; ++i) {
        auto t = std::make_shared<Object>(0, i + 1);
        t->values = {Value("T" + std::to_string(i)),
                     Value(i % 3 ? "Buy milk at the ÉPICERIE" : "call emile")};
        t->toOne = categories[static_cast<std::size_t>(i) % categories.size()];
        for (int k = 0; k < i % 4; ++k)
            t->toMany.push_back(categories[static_cast<std::size_t>(i + k) % categories.size()]);
        tasks.push_back(t);
    }
    return tasks;
}

void parse(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(Predicate::parse(kValidTask));
}
BENCHMARK(parse);

void bindAndCompile(benchmark::State& state) {
    const Predicate p = *Predicate::parse(kValidTask);
    for (auto _ : state)
        benchmark::DoNotOptimize(compileToSql(p, model(), 0));
}
BENCHMARK(bindAndCompile);

void evaluateInMemory(benchmark::State& state, const char* format) {
    const auto bound = *BoundPredicate::bind(*Predicate::parse(format, {"épicerie"}), model(), 0);
    const auto tasks = objects(1000);
    for (auto _ : state) {
        int matched = 0;
        for (const auto& t : tasks)
            matched += evaluate(bound, *t) ? 1 : 0;
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(tasks.size()));
}
BENCHMARK_CAPTURE(evaluateInMemory, validTask,
                  "taskID != nil AND taskID != '' AND category != nil AND "
                  "category.categoryID != '' AND category.title != '' AND %@ != nil");
BENCHMARK_CAPTURE(evaluateInMemory, titleContainsCD, "title CONTAINS[cd] %@");
BENCHMARK_CAPTURE(evaluateInMemory, anyTagTitle, "ANY tags.title BEGINSWITH[c] %@");

} // namespace

BENCHMARK_MAIN();
