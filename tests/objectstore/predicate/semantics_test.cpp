// The meaning of predicates, through both evaluators at once: in memory over
// the objects an ObjectContext hands out, and in SQL over the rows the engine
// saved. On a small hand-made store each predicate gets its defined answer and
// each sort its defined order; on a random store (every attribute and
// relationship type, tricky text, random nils) both sides agree on random
// predicates from the whole grammar and on random sorts.
#include "objectstore/detail/sqlite.h"
#include "objectstore/object_context.h"
#include "objectstore/persistent_store.h"
#include "objectstore/predicate/evaluator.h"
#include "objectstore/predicate/sort_descriptor.h"
#include "objectstore/predicate/sql_compiler.h"
#include "objectstore/predicate/sql_functions.h"
#include "support/predicate_model.h"
#include "support/temp_dir.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

namespace tasket::objectstore {
namespace {

using platform::Errc;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Keys = std::set<std::int64_t>;

// ---- A store queried both ways ----

const Model& kModel = *tasket::testing::predicateTestModel();
std::uint32_t entityIndex(std::string_view name) {
    return kModel.entity(name)->index;
}

class TwoWayStore {
  public:
    /// An empty store in `file`; throws when the engine cannot open it.
    explicit TwoWayStore(const std::filesystem::path& file) : m_objects(kModel.entities().size()) {
        auto store = PersistentStore::open(file, tasket::testing::predicateTestModel());
        if (!store)
            throw std::runtime_error(store.error().message);
        m_context = ObjectContext::make(*store, ConcurrencyType::mainQueue);
        m_db = std::move(detail::Database::open(file, false).value());
        registerSqlFunctions(m_db->handle());
    }

    /// A new object of `entity`, keyed at the next save() (in insertion order if saved after each).
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
    void save() {
        if (auto saved = m_context->save(); !saved)
            throw std::runtime_error(saved.error().message);
    }
    /// The objects of `entity`, in the order they were inserted.
    const std::vector<ObjectPtr>& objects(std::uint32_t entity) const { return m_objects[entity]; }

    /// The keys of `entity` that `predicate` selects in memory, and in the SQL it compiles to.
    std::tuple<Keys, Keys, SqlPredicate> select(std::uint32_t entity,
                                                const BoundPredicate& predicate) const {
        Keys memory;
        for (const auto& object : m_objects[entity])
            if (evaluate(predicate, *object))
                memory.insert(object->objectID().key);
        const SqlPredicate sql = compileToSql(predicate);
        const auto stored =
            keys(entity, sql.joins,
                 "WHERE " + sql.where + (sql.repeatsRows ? " GROUP BY t0.pk" : ""), sql.bindings);
        Keys distinct(stored.begin(), stored.end());
        if (distinct.size() != stored.size())
            throw std::logic_error("SQL selects a row twice: " + sql.joins + " " + sql.where);
        return {memory, distinct, sql};
    }
    /// The keys of all of `entity` sorted by `descriptors` in SQL, and in memory.
    std::pair<std::vector<std::int64_t>, std::vector<std::int64_t>>
    sort(std::uint32_t entity, const std::vector<SortDescriptor>& descriptors) const {
        auto order = compileSort(descriptors, kModel, entity);
        auto comparator = ObjectComparator::make(descriptors, kModel, entity);
        if (!order || !comparator)
            throw std::runtime_error("sort refused");
        auto objects = m_objects[entity];
        std::ranges::sort(objects,
                          [&](const auto& a, const auto& b) { return (*comparator)(*a, *b); });
        std::vector<std::int64_t> memory;
        for (const auto& object : objects)
            memory.push_back(object->objectID().key);
        return {keys(entity, order->joins, "ORDER BY " + order->orderBy), memory};
    }
    /// Writes a copy of the store file to `file`, to keep beside a failing case.
    void copyTo(const std::filesystem::path& file) const {
        std::string path = file.string();
        for (std::size_t at = 0; (at = path.find('\'', at)) != std::string::npos; at += 2)
            path.insert(at, 1, '\'');
        (void)m_db->exec(fmt::format("VACUUM INTO '{}'", path));
    }

  private:
    // The keys of `entity` a query selects, in order, bound as the engine's fetches bind.
    std::vector<std::int64_t> keys(std::uint32_t entity, const std::string& joins,
                                   const std::string& clause,
                                   const std::vector<Value>& bindings = {}) const {
        const std::string sql = fmt::format("SELECT t0.pk FROM \"{}\" AS t0 {} {}",
                                            kModel.entity(entity).name, joins, clause);
        auto stmt = m_db->prepareOnce(sql);
        if (!stmt)
            throw std::runtime_error(fmt::format("{}: {}", stmt.error().message, sql));
        if (sqlite3_bind_parameter_count(stmt->get()) != static_cast<int>(bindings.size()))
            throw std::logic_error("the number of bindings does not match the ?s");
        for (std::size_t i = 0; i < bindings.size(); ++i)
            detail::Statement(stmt->get()).bind(static_cast<int>(i + 1), bindings[i]);
        std::vector<std::int64_t> out;
        int rc = 0;
        while ((rc = sqlite3_step(stmt->get())) == SQLITE_ROW)
            out.push_back(sqlite3_column_int64(stmt->get(), 0));
        if (rc != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(m_db->handle()));
        return out;
    }

    std::shared_ptr<ObjectContext> m_context;
    std::vector<std::vector<ObjectPtr>> m_objects; // by entity
    std::unique_ptr<detail::Database> m_db;        // a reader of the saved rows
};

// ---- A small hand-made store ----

const Date kMonday{700'000'000};
const Date kTuesday{700'086'400};
const Uuid kFirst = *Uuid::parse("00000000-0000-4000-8000-000000000001");
const Uuid kSecond = *Uuid::parse("A0000000-0000-4000-8000-000000000002");

// Tasks 1..6; folders 1 "Home" (child 3 "Sub"), 2 (no name); tags 1 "red",
// 2 (no label); steps 1..4 on tasks 1, 3, 3, 4 and step 5 on none; detail on task 1.
class SmallStore : public ::testing::Test {
  protected:
    void SetUp() override {
        using I = std::int64_t;
        const char* columns[] = {"title", "count", "score", "flag", "due",
                                 "start", "ident", "blob",  "big",  "note"};
        const std::vector<std::vector<Value>> rows = {
            {"Émile", I{1}, 1.0, true, kMonday, kMonday, kFirst, Bytes{}, I{9007199254740993}, ""},
            {"emile", I{2}, 2.5, false, kTuesday, kMonday, kSecond, Bytes{1, 2}, I{-5}, "x"},
            {},
            {"straße", I{3}, 3.0, true, kMonday},
            {"STRASSE", I{-1}, -0.5, false, kTuesday, kMonday},
            {"a*b", I{32767}, 1e300},
        };
        // Saved one by one, so that keys follow the order of insertion.
        auto make = [&](const char* entity, int count) {
            std::vector<ObjectPtr> made;
            while (count-- > 0 && made.emplace_back(store.insert(entity)))
                store.save();
            return made;
        };
        const auto t = make("Task", 6), f = make("Folder", 3), g = make("Tag", 2),
                   s = make("Step", 5), d = make("Detail", 1); // t[0] is task 1
        for (std::size_t i = 0; i < rows.size(); ++i)
            for (std::size_t c = 0; c < rows[i].size(); ++c)
                t[i]->setValue(columns[c], rows[i][c]);
        const std::tuple<ObjectPtr, const char*, Value> values[] = {
            {f[0], "name", "Home"}, {f[0], "rank", I{2}},   {f[1], "rank", I{5}},
            {f[2], "name", "Sub"},  {g[0], "label", "red"}, {g[0], "weight", 1.0},
            {s[0], "label", "a"},   {s[0], "done", true},   {s[1], "label", "B"},
            {s[1], "done", false},  {s[3], "label", "c"},   {s[3], "done", true},
            {s[4], "label", "a"},   {d[0], "text", "hello"}};
        for (const auto& [object, attribute, value] : values)
            object->setValue(attribute, value);
        const std::tuple<ObjectPtr, const char*, ObjectPtr> links[] = {
            {f[2], "parent", f[0]}, {t[0], "folder", f[0]}, {t[3], "folder", f[0]},
            {t[2], "folder", f[1]}, {t[5], "folder", f[2]}, {t[0], "tags", g[0]},
            {t[2], "tags", g[0]},   {t[2], "tags", g[1]},   {t[3], "tags", g[1]},
            {t[0], "detail", d[0]}, {s[0], "task", t[0]},   {s[1], "task", t[2]},
            {s[2], "task", t[2]},   {s[3], "task", t[3]}};
        for (const auto& [object, relationship, target] : links)
            TwoWayStore::relate(*object, relationship, target);
        store.save();
    }

    // The keys selected in memory, after checking that SQL selects the same.
    Keys both(std::string_view entity, const char* format,
              const std::vector<PredicateArgument>& arguments) {
        const auto index = entityIndex(entity);
        auto parsed = Predicate::parse(format, arguments);
        auto bound =
            parsed ? BoundPredicate::bind(*parsed, kModel, index) : std::unexpected(parsed.error());
        if (!bound) {
            ADD_FAILURE() << bound.error().message;
            return {};
        }
        const auto [memory, stored, sql] = store.select(index, *bound);
        EXPECT_EQ(stored, memory) << sql.joins << " WHERE " << sql.where;
        return memory;
    }

    tasket::testing::TempDir dir;
    TwoWayStore store{dir / "small.sqlite"};
};

struct Case {
    const char* format;
    std::vector<PredicateArgument> arguments;
    Keys expected;
    const char* entity = "Task";
};

TEST_F(SmallStore, BothEvaluatorsGiveTheDefinedMeaning) {
    const auto tag = entityIndex("Tag"), folder = entityIndex("Folder");
    const std::vector<Case> cases = {
        // nil
        {"title != 'x' AND NOT title CONTAINS 'x' AND NOT title IN {}", {}, {1, 2, 3, 4, 5, 6}},
        {"title = nil", {}, {3}},
        {"NOT (title = 'Émile')", {}, {2, 3, 4, 5, 6}},
        {"title < 'f'", {}, {2, 5, 6}},
        {"title >= nil OR title <= nil OR title IN {} OR title LIKE 'a\\\\*'", {}, {}},
        {"title CONTAINS nil OR title BEGINSWITH nil OR title LIKE nil", {}, {}},
        {"note = ''", {}, {1}},
        {"note = nil OR note = ''", {}, {1, 3, 4, 5, 6}},
        // text options
        {"title ==[c] 'émile'", {}, {1}},
        {"title ==[cd] 'EMILE'", {}, {1, 2}},
        {"title ==[d] 'Emile'", {}, {1}},
        {"title ==[c] 'strasse'", {}, {4, 5}},
        {"title CONTAINS[c] 'SS'", {}, {4, 5}},
        {"title CONTAINS 'SS'", {}, {5}},
        {"title BEGINSWITH[cd] 'e'", {}, {1, 2}},
        {"title ENDSWITH[c] 'E'", {}, {1, 2, 4, 5}},
        {"title LIKE[c] '?mile'", {}, {1, 2}},
        {"title LIKE 'st*e'", {}, {4}},
        {"title LIKE '*'", {}, {1, 2, 4, 5, 6}},
        {"title LIKE 'a\\\\*b'", {}, {6}},
        {"title IN {'emile', nil}", {}, {2, 3}},
        {"title IN[c] {'EMILE'}", {}, {2}},
        {"title BETWEEN[c] {'e', 'f'}", {}, {2}},
        // numbers, bools, dates, UUIDs, bytes
        {"score = 1", {}, {1}},
        {"score = %d", {true}, {1}},
        {"flag = 1", {}, {1, 4}},
        {"flag != true", {}, {2, 3, 5, 6}},
        {"count BETWEEN {3, 1}", {}, {}},
        {"count IN {-1, 2.0, nil}", {}, {2, 3, 5}},
        {"big = %@", {9007199254740992.0}, {}},
        {"big > %@", {9007199254740992.0}, {1}},
        {"big = %@", {std::int64_t{9007199254740993}}, {1}},
        {"start <= due", {}, {1, 2, 5}},
        {"start = due", {}, {1, 3, 6}},
        {"ident = %@", {kFirst.toString()}, {1}},
        {"ident IN %@", {std::vector<std::string>{kSecond.toString()}}, {2}},
        {"ident != %@", {kFirst}, {2, 3, 4, 5, 6}},
        {"blob = BYTES('')", {}, {1}},
        {"blob != nil", {}, {1, 2}},
        // to-one hops and the passive side of a one-to-one
        {"folder = nil", {}, {2, 5}},
        {"folder.name = nil", {}, {2, 3, 5}},
        {"folder.name != 'Home'", {}, {2, 3, 5, 6}},
        {"detail != nil", {}, {1}},
        {"folder = %@", {ObjectID{folder, 1}}, {1, 4}},
        // to-many
        {"ANY tags = nil", {}, {2, 5, 6}},
        {"tags = nil", {}, {2, 5, 6}},
        {"ANY tags != nil", {}, {1, 3, 4}},
        {"NONE tags = nil", {}, {1, 3, 4}},
        {"ANY tags.label = nil", {}, {3, 4}},
        {"ALL tags.label = 'red'", {}, {1, 2, 5, 6}},
        {"ALL tags = nil", {}, {2, 5, 6}},
        {"ANY tags.label IN %@", {ScalarList{}}, {}},
        {"tags.@count = 2", {}, {3}},
        {"ALL steps.done = true", {}, {1, 2, 4, 5, 6}},
        {"ANY steps.label = nil", {}, {3}},
        {"ANY 'B' = steps.label", {}, {3}},
        {"ANY steps.label < title", {}, {1, 4}},
        {"ANY folder.children.name = 'Sub'", {}, {1, 4}},
        {"folder.children.@count = 0", {}, {2, 3, 5, 6}},
        // ANY by an indexed column, under NOT too, with an ownerless step
        {"ANY steps.label = 'a'", {}, {1}},
        {"NOT (ANY steps.label IN {'a', 'c'})", {}, {2, 3, 5, 6}},
        {"NONE steps.label = 'a'", {}, {2, 3, 4, 5, 6}},
        {"ANY steps.label IN {'a', nil}", {}, {1, 3}},
        {"NOT (ANY folder.children.name = 'Sub')", {}, {2, 3, 5, 6}},
        {"NOT (ANY tags IN %@)", {std::vector<ObjectID>{{tag, 1}, {tag, 2}}}, {2, 5, 6}},
        // ... and joined, where task 3 matches through two elements
        {"ANY tags IN %@", {std::vector<ObjectID>{{tag, 1}, {tag, 2}}}, {1, 3, 4}},
        {"ANY steps.label IN {'B', nil} AND ANY tags = %@", {ObjectID{tag, 2}}, {3}},
        {"ANY tasks.folder = %@", {ObjectID{folder, 1}}, {1, 2}, "Tag"},
        // other entities and directions of the many-to-many
        {"tasks.@count = 2", {}, {1, 2}, "Tag"},
        {"parent = nil AND children.@count > 0", {}, {1}, "Folder"},
        {"task.detail = nil", {}, {2, 3, 4, 5}, "Step"},
        // constants
        {"TRUEPREDICATE AND NOT FALSEPREDICATE AND 1 = 1.0 AND 'a' < 'b'", {}, {1, 2, 3, 4, 5, 6}},
        {"tags.@count = steps.@count", {}, {1, 2, 3, 4, 5, 6}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        EXPECT_EQ(both(c.entity, c.format, c.arguments), c.expected);
    }
}

// Values go to bindings, never into the text. ANY = / IN on an indexed column draws the owners
// from the matching elements without a COALESCE that would hide the index (the table above checks
// that step 5, without an owner, changes no answer); anything else keeps EXISTS.
TEST_F(SmallStore, SqlTextHoldsNoValuesAndReachesIndexes) {
    auto where = [](const char* format, const std::vector<PredicateArgument>& arguments = {}) {
        auto sql = compileToSql(*Predicate::parse(format, arguments), kModel, entityIndex("Task"));
        return sql ? sql->where : std::string();
    };
    const std::pair<const char*, const char*> shapes[] = {
        {"ANY tags.label IN {'red'} OR flag = 1", "t0.pk IN (SELECT"},
        {"ANY tags.weight = 1", "EXISTS"},
        {"ANY tags.label ==[c] 'red'", "EXISTS"},
        {"ANY tags.label BEGINSWITH 'r'", "EXISTS"},
        {"ALL tags.label = 'red'", "EXISTS"},
        {"folder.name = 'f'", "t1.\"name\" = ?"}, // lets SQLite join from the folder
        {"NOT folder.name = 'f'", "t1.\"name\" IS ?"}};
    for (const auto& [format, shape] : shapes)
        EXPECT_THAT(where(format), HasSubstr(shape)) << format;
    EXPECT_THAT(where("ANY tags.label IN {'red'} OR flag = 1"), Not(HasSubstr("COALESCE")));
    // Required of every row, the same comparison joins the tags instead.
    const auto joined = compileToSql(*Predicate::parse("flag = 1 AND ANY tags.label IN {'red'}"),
                                     kModel, entityIndex("Task"));
    ASSERT_TRUE(joined);
    EXPECT_THAT(joined->joins, HasSubstr("JOIN \"Tag\" AS t1"));
    EXPECT_EQ(joined->where, "((t0.\"flag\" = ?) AND (t1.\"label\" IN (?)))");
    const std::string injected = where("title = %@ OR note CONTAINS[c] %@",
                                       {"Robert'); DROP TABLE \"Task\"; --", "x' OR 1=1 --"});
    EXPECT_THAT(injected, AllOf(Not(HasSubstr("Robert")), Not(HasSubstr("1=1"))));
}

TEST_F(SmallStore, SortsAlikeInSqlAndInMemory) {
    using C = SortDescriptor::Comparison;
    const std::pair<std::vector<SortDescriptor>, std::vector<std::int64_t>> cases[] = {
        {{{"title", true, C::plain}}, {3, 5, 6, 2, 4, 1}},
        {{{"title", false, C::plain}}, {1, 4, 2, 6, 5, 3}},
        {{{"title", true, C::localizedCaseInsensitive}}, {3, 6, 2, 1, 5, 4}},
        {{{"folder.name", true, C::plain}, {"count", false, C::plain}}, {2, 5, 3, 4, 1, 6}},
        // Ties follow the last key's direction: 1 and 4, 2 5 and 6 tie here.
        {{{"tags.@count", false, C::plain}}, {3, 4, 1, 6, 5, 2}},
        {{{"flag", true, C::plain}, {"score", true, C::plain}}, {3, 6, 5, 2, 1, 4}},
        {{{"detail.text", false, C::localizedCaseInsensitive}}, {1, 6, 5, 4, 3, 2}},
        {{}, {1, 2, 3, 4, 5, 6}},
    };
    const auto task = entityIndex("Task");
    for (const auto& [descriptors, expected] : cases) {
        const auto [sql, memory] = store.sort(task, descriptors);
        EXPECT_EQ(sql, expected) << (descriptors.empty() ? "none" : descriptors[0].keyPath);
        EXPECT_EQ(memory, expected) << (descriptors.empty() ? "none" : descriptors[0].keyPath);
    }
    EXPECT_FALSE(compileSort({{"tags.label", true, C::plain}}, kModel, task));
    EXPECT_FALSE(ObjectComparator::make({{"nope", true, C::plain}}, kModel, task));
}

// ---- A random store ----

using Random = std::mt19937_64;
using K = ValueKind;

const std::vector<std::string> kTexts = {
    "Émile",   "emile",   "ÉMILE",    "Emile",    "e\u0301mile", "straße",   "STRASSE",
    "Strasse", "strasse", "İstanbul", "istanbul", "ISTANBUL",    "",         "a",
    "A",       "ab",      "aB",       "b",        "ß",           "ss",       "ǅ",
    "ǆ",       "Zoë",     "zoe",      "naïve",    "NAIVE",       "a*b",      "x?y",
    "日本",    "Ω",       "ω",        "ﬁle",      "FILE",        "\xff\xfe", "tab\there",
    "it's",    "Home",    "home"};
const std::vector<std::string> kPatterns = {"*mile", "?mile", "É*",    "*ss*", "*",
                                            "?",     "a\\*b", "st*e",  "*i*",  "",
                                            "??",    "*ß",    "x\\?y", "*Ω*",  "e*e"};
const std::vector<std::int64_t> kIntegers = {-32768, -3, -1, 0, 1, 2, 3, 7, 100, 32767};
const std::vector<double> kDoubles = {-2.5, -1.0, 0.0, 0.5, 1.0, 2.0, 2.5, 3.0000001, 1e10, -1e300};
const std::vector<std::int64_t> kBigs = {
    9007199254740993, 9007199254740992, -9223372036854775807 - 1, 9223372036854775807, 0, 5};
const std::vector<double> kDates = {0.0,           700'000'000.0, 700'086'400.0,
                                    700'086'400.5, -86'400.0,     800'000'000.25};
const std::vector<Uuid> kUuids = {kFirst, kSecond,
                                  *Uuid::parse("ffffffff-0000-4000-8000-000000000003"),
                                  *Uuid::parse("12345678-9ABC-4DEF-8000-000000000004")};
const std::vector<Bytes> kBlobs = {Bytes{}, Bytes{1, 2}, Bytes{0xff}, Bytes{0, 0, 0}};

template <class T> const T& pick(Random& rng, const std::vector<T>& items) {
    return items[std::uniform_int_distribution<std::size_t>(0, items.size() - 1)(rng)];
}
bool chance(Random& rng, double p) {
    return std::bernoulli_distribution(p)(rng);
}
int between(Random& rng, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
}

// A random value of an attribute's type, nil at the rate `nils`.
Value draw(Random& rng, AttributeType type, double nils = 0.15) {
    using T = AttributeType;
    if (chance(rng, nils))
        return {};
    switch (type) {
    case T::String: return pick(rng, kTexts);
    case T::Int64: return pick(rng, kBigs);
    case T::Double:
        return chance(rng, 0.5) ? pick(rng, kDoubles) : static_cast<double>(pick(rng, kIntegers));
    case T::Bool: return chance(rng, 0.5);
    case T::Date: return Date{pick(rng, kDates)};
    case T::UUID: return pick(rng, kUuids);
    case T::Binary: return pick(rng, kBlobs);
    default: return pick(rng, kIntegers);
    }
}

// Objects of every entity with random attributes, related as the table says: folders in a
// tree, tasks in folders with tags, steps on the first half of the tasks only (so that many
// have none), details on tasks; some of each left unrelated.
void fill(TwoWayStore& store, Random& rng) {
    const std::pair<const char*, int> counts[] = {
        {"Folder", 60}, {"Tag", 40}, {"Task", 1200}, {"Step", 1500}, {"Detail", 500}};
    for (const auto& [entity, count] : counts)
        for (int i = 0; i < count; ++i)
            for (auto o = store.insert(entity); const auto& a : o->entityDescription().attributes)
                o->setValue(a.name, draw(rng, a.type));
    // Each object, with chance p, gets 1 to `most` of the first `of` targets (0: those before it).
    const std::tuple<const char*, const char*, const char*, double, int, int> links[] = {
        {"Folder", "parent", "Folder", 0.4, 1, 0},
        {"Task", "folder", "Folder", 0.8, 1, 60},
        {"Task", "tags", "Tag", 0.6, 4, 40},
        {"Step", "task", "Task", 0.95, 1, 601},
        {"Detail", "task", "Task", 0.9, 1, 1200}};
    for (const auto& [entity, relationship, target, p, most, of] : links) {
        const auto& objects = store.objects(entityIndex(entity));
        const auto& targets = store.objects(entityIndex(target));
        for (int i = 0; i < static_cast<int>(objects.size()); ++i)
            if ((of || i) && chance(rng, p))
                for (int n = between(rng, 1, most); n > 0; --n)
                    TwoWayStore::relate(
                        *objects[static_cast<std::size_t>(i)], relationship,
                        targets[static_cast<std::size_t>(between(rng, 0, (of ? of : i) - 1))]);
    }
    store.save();
}

// ---- Random predicates ----

struct Path {
    std::string text, target;                // the key path, and the entity of its objects
    K kind = K::number;                      // of the value at its end; object for a collection
    bool toMany = false, collection = false; // needs a quantifier; ends at a to-many
};

// The key paths compared, per entity: every hop the SQL compiler treats differently (to-one
// chains, to-many with and without a to-one after it, @count behind a to-one).
const std::vector<Path>& paths(const std::string& entity) {
    static const std::map<std::string, std::string> texts = {
        {"Task", "title note folder.name folder.parent.name detail.text count score flag big "
                 "folder.rank folder.archived tags.@count steps.@count folder.tasks.@count "
                 "folder.children.@count due start ident blob folder folder.parent detail "
                 "tags.label tags.weight steps.label steps.done steps.when folder.children.name "
                 "folder.tasks.title tags steps folder.children steps.task"},
        {"Folder", "name parent.name parent.parent.name rank archived parent.rank tasks.@count "
                   "children.@count parent children children.name tasks.title tasks.count "
                   "tasks.due tasks tasks.detail.text"},
        {"Tag", "label weight tasks.@count tasks.title tasks.flag tasks.due tasks.folder.name "
                "tasks.folder tasks"},
        {"Step", "label done when task.title task.folder.name task.detail.text task.count task "
                 "task.tags.label task.tags task.steps.@count"},
        {"Detail", "text task.title task"},
    };
    static const std::map<std::string, std::vector<Path>> table = [] {
        std::map<std::string, std::vector<Path>> out;
        for (const auto& [name, list] : texts) {
            std::istringstream words(list);
            for (std::string text; words >> text;) {
                const auto keyPath =
                    std::get<KeyPath>(Predicate::parse(text + " = nil")->comparison().lhs);
                const auto b = *resolveKeyPath(kModel, entityIndex(name), keyPath);
                out[name].push_back({text, kModel.entity(b.objectEntity).name, b.kind,
                                     b.toManyStep && !b.count, b.endsAtCollection()});
            }
        }
        return out;
    }();
    return table.at(entity);
}

// The operators by the kinds of value they take, in every spelling. `list`: the size of the
// {...} on the right, -1 for 0 to 4; `mirrors`: a constant may stand on the left of a to-many
// key path, and a second key path on the right.
struct Operator {
    std::vector<std::string> spellings;
    std::set<K> kinds;
    int list = 0;
    bool mirrors = false;
};
const std::set<K> kOrdered = {K::text, K::number, K::date};
const std::set<K> kAll = {K::text, K::number, K::date, K::uuid, K::binary, K::object};
const std::vector<Operator> kOperators = {
    {{"=", "==", "!=", "<>"}, kAll, 0, true},
    {{"<", "<=", "=<", ">", ">=", "=>"}, kOrdered, 0, true},
    {{"CONTAINS", "BEGINSWITH", "ENDSWITH", "LIKE"}, {K::text}},
    {{"IN"}, {K::text, K::number, K::date, K::uuid, K::object}, -1},
    {{"BETWEEN"}, kOrdered, 2},
};

class Generator {
  public:
    Generator(Random& rng, std::string entity) : m_rng(rng), m_entity(std::move(entity)) {}

    /// A random predicate, its arguments appended to `args`.
    std::string predicate(std::vector<PredicateArgument>& args, int depth = 0) {
        const double roll = std::uniform_real_distribution<double>(0, 1)(m_rng);
        if (depth < 3 && roll < 0.3) {
            const bool isAnd = chance(m_rng, 0.5);
            const std::string joiner = chance(m_rng, 0.3) ? (isAnd ? " && " : " || ")
                                                          : " " + word(isAnd ? "AND" : "OR") + " ";
            std::string out = "(";
            for (int n = between(m_rng, 2, 4), i = 0; i < n; ++i)
                out += (i ? joiner : "") + predicate(args, depth + 1);
            return out + ")";
        }
        if (depth < 3 && roll < 0.4)
            return (chance(m_rng, 0.5) ? word("NOT") + " " : std::string("!")) + "(" +
                   predicate(args, depth + 1) + ")";
        if (roll < 0.42)
            return anyWord({"TRUEPREDICATE", "FALSEPREDICATE"});
        return comparison(args);
    }

  private:
    // A keyword in a random letter case.
    std::string word(std::string_view keyword) {
        std::string out(keyword);
        const int style = between(m_rng, 0, 3);
        for (char& c : out)
            if (style == 1 || (style == 3 && chance(m_rng, 0.5)))
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return out;
    }
    std::string anyWord(const std::vector<std::string>& words) { return word(pick(m_rng, words)); }
    std::string nil() { return anyWord({"nil", "NULL"}); }

    std::string comparison(std::vector<PredicateArgument>& args) {
        const Path& path = pick(m_rng, paths(m_entity));
        const std::string quantifier =
            path.toMany ? anyWord({"ANY", "SOME", "ALL", "NONE"}) + " " : std::string();
        if (path.collection && chance(m_rng, 0.6)) // a bare "rel = nil" tests emptiness too
            return (chance(m_rng, 0.2) ? "" : quantifier) + path.text + " " +
                   pick(m_rng, kOperators[0].spellings) + " " + nil();
        std::vector<const Operator*> usable;
        for (const auto& op : kOperators)
            if (op.kinds.contains(path.kind))
                usable.push_back(&op);
        const Operator& op = *pick(m_rng, usable);
        const std::string& spelling = pick(m_rng, op.spellings);
        const std::string written =
            " " + word(spelling) +
            (path.kind == K::text ? anyWord({"", "", "[C]", "[D]", "[CD]", "[DC]"}) : "") + " ";
        if (op.list)
            return quantifier + path.text + written +
                   list(args, op.list < 0 ? between(m_rng, 0, 4) : op.list, path);
        std::vector<std::string> others; // key paths of the same kind without a to-many step
        for (const Path& other : paths(m_entity))
            if (other.kind == path.kind && !other.toMany)
                others.push_back(other.text);
        const double roll = std::uniform_real_distribution<double>(0, 1)(m_rng);
        if (kOrdered.contains(path.kind) && op.mirrors && roll < 0.15 && !others.empty())
            return quantifier + path.text + written + pick(m_rng, others);
        if (kOrdered.contains(path.kind) && spelling != "LIKE" && (op.mirrors || !path.toMany) &&
            roll < 0.3)
            return quantifier + constant(args, path) + written + path.text;
        return quantifier + path.text + written +
               constant(args, path, spelling == "LIKE" ? &kPatterns : nullptr);
    }

    // A value of the kind `path` yields, drawn as for an attribute of a type of that kind.
    Scalar value(const Path& path, const std::vector<std::string>* texts = nullptr) {
        using T = AttributeType;
        static const std::map<K, std::vector<T>> types = {
            {K::text, {T::String}},
            {K::date, {T::Date}},
            {K::uuid, {T::UUID}},
            {K::binary, {T::Binary}},
            {K::number, {T::Int16, T::Int64, T::Double, T::Bool}}};
        if (path.kind == K::object)
            return ObjectID{entityIndex(path.target), between(m_rng, 1, 70)};
        if (texts || (path.kind == K::uuid && chance(m_rng, 0.3)))
            return texts ? pick(m_rng, *texts) : pick(m_rng, kUuids).toString();
        const Value v = draw(m_rng, pick(m_rng, types.at(path.kind)), 0);
        return std::visit([](const auto& x) { return Scalar(x); }, v);
    }

    // nil, a literal, or a format argument with a specifier its type takes.
    std::string constant(std::vector<PredicateArgument>& args, const Path& path,
                         const std::vector<std::string>* texts = nullptr) {
        if (chance(m_rng, 0.08))
            return nil();
        const Scalar v = value(path, texts);
        if (chance(m_rng, 0.5))
            return toString(v);
        args.emplace_back(v);
        if (std::holds_alternative<bool>(v))
            return "%d";
        if (std::holds_alternative<std::int64_t>(v))
            return pick(m_rng, std::vector<std::string>{"%d", "%i", "%ld", "%@"});
        return std::holds_alternative<double>(v) && chance(m_rng, 0.5) ? "%f" : "%@";
    }

    // A list of constants (one in ten nil), written out or as one argument.
    std::string list(std::vector<PredicateArgument>& args, int size, const Path& path) {
        ScalarList items;
        for (int i = 0; i < size; ++i)
            items.push_back(chance(m_rng, 0.1) ? Scalar() : value(path));
        if (chance(m_rng, 0.5)) {
            args.emplace_back(items);
            return "%@";
        }
        std::string out = "{";
        for (std::size_t i = 0; i < items.size(); ++i)
            out += (i ? ", " : "") + (items[i].index() ? toString(items[i]) : nil());
        return out + "}";
    }

    Random& m_rng;
    std::string m_entity;
};

// A run draws TASKET_PROPERTY_COUNT predicates (10,000) from TASKET_PROPERTY_SEED (7) on the
// store drawn from TASKET_PROPERTY_STORE_SEED (20261121). A disagreement is reported in full and,
// when TASKET_PROPERTY_CASES names a folder, kept there with a copy of the store to replay it.
std::uint64_t fromEnvironment(const char* name, std::uint64_t fallback) {
    const char* text = std::getenv(name);
    return text && *text ? std::stoull(text) : fallback;
}

class RandomStore : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        s_store = std::make_unique<TwoWayStore>(s_dir / "random.sqlite");
        Random rng(s_storeSeed);
        fill(*s_store, rng);
    }
    static void TearDownTestSuite() { s_store.reset(); }

    // Writes the case to TASKET_PROPERTY_CASES, if set, and returns where.
    static std::string saveCase(const std::string& name, const std::string& text) {
        const char* folder = std::getenv("TASKET_PROPERTY_CASES");
        if (!folder || !*folder)
            return "(set TASKET_PROPERTY_CASES to a folder to keep it)";
        std::filesystem::create_directories(folder);
        const auto store =
            std::filesystem::path(folder) / fmt::format("store-{}.sqlite", s_storeSeed);
        if (!std::filesystem::exists(store))
            s_store->copyTo(store);
        const auto file = std::filesystem::path(folder) / name;
        std::ofstream(file) << text;
        return file.string();
    }

    static inline const std::uint64_t s_storeSeed =
        fromEnvironment("TASKET_PROPERTY_STORE_SEED", 20261121);
    static inline tasket::testing::TempDir s_dir;
    static inline std::unique_ptr<TwoWayStore> s_store;
};

TEST_F(RandomStore, SqlAndMemorySelectTheSameObjects) {
    const auto count = static_cast<int>(fromEnvironment("TASKET_PROPERTY_COUNT", 10'000));
    const std::uint64_t seed = fromEnvironment("TASKET_PROPERTY_SEED", 7);
    SCOPED_TRACE(
        fmt::format("TASKET_PROPERTY_SEED={} TASKET_PROPERTY_STORE_SEED={}", seed, s_storeSeed));
    const std::pair<const char*, int> share[] = {
        {"Task", 70}, {"Folder", 10}, {"Tag", 8}, {"Step", 8}, {"Detail", 4}};
    Random rng(seed);
    int failures = 0, nonTrivial = 0, drawn = 0;
    for (const auto& [entity, percent] : share) {
        Generator generator(rng, entity);
        const auto index = entityIndex(entity);
        for (int i = 0; i < count * percent / 100 && failures < 10; ++i, ++drawn) {
            std::vector<PredicateArgument> args;
            const std::string format = generator.predicate(args);
            auto parsed = Predicate::parse(format, args);
            ASSERT_TRUE(parsed) << format << ": " << parsed.error().message;
            auto bound = BoundPredicate::bind(*parsed, kModel, index);
            ASSERT_TRUE(bound) << parsed->toString() << ": " << bound.error().message;
            const auto [memory, stored, sql] = s_store->select(index, *bound);
            if (stored != memory) {
                ++failures;
                std::vector<std::int64_t> onlySql, onlyMemory;
                std::ranges::set_difference(stored, memory, std::back_inserter(onlySql));
                std::ranges::set_difference(memory, stored, std::back_inserter(onlyMemory));
                const std::string text = fmt::format(
                    "entity: {}\npredicate: {}\ndrawn: predicate {} of seed {}\nstore seed: {}\n"
                    "SQL: {} WHERE {}\nonly SQL selects: {}\nonly memory selects: {}\n",
                    entity, parsed->toString(), drawn, seed, s_storeSeed, sql.joins, sql.where,
                    fmt::join(onlySql, " "), fmt::join(onlyMemory, " "));
                ADD_FAILURE() << text << "saved: "
                              << saveCase(fmt::format("case-{}-{}.txt", seed, drawn), text);
            }
            if (!memory.empty() && memory.size() != s_store->objects(index).size())
                ++nonTrivial;
            // The canonical text means the same: it compiles to the same SQL.
            auto again = Predicate::parse(parsed->toString());
            auto sqlAgain =
                again ? compileToSql(*again, kModel, index) : std::unexpected(again.error());
            ASSERT_TRUE(sqlAgain) << parsed->toString() << ": " << sqlAgain.error().message;
            EXPECT_TRUE(again->toString() == parsed->toString() && sqlAgain->where == sql.where &&
                        sqlAgain->bindings == sql.bindings)
                << fmt::format("{}\n{}\n{}", parsed->toString(), sqlAgain->where, sql.where);
        }
    }
    // The generator must mostly produce predicates that split the store.
    EXPECT_GT(nonTrivial, drawn / 3);
}

// Sorted by one to three of the key paths above that give one value per object.
TEST_F(RandomStore, SqlAndMemorySortAlike) {
    using C = SortDescriptor::Comparison;
    Random rng(11);
    for (int i = 0; i < 300; ++i) {
        const std::string entity = pick(rng, std::vector<std::string>{"Task", "Folder", "Step"});
        std::vector<std::string> keys;
        for (const Path& path : paths(entity))
            if (!path.toMany && !path.collection &&
                (!path.text.ends_with("@count") || std::ranges::count(path.text, '.') < 2))
                keys.push_back(path.text);
        std::vector<SortDescriptor> descriptors;
        for (int n = between(rng, 1, 3); n > 0; --n)
            descriptors.push_back({pick(rng, keys), chance(rng, 0.5),
                                   chance(rng, 0.5) ? C::localizedCaseInsensitive : C::plain});
        const auto [sql, memory] = s_store->sort(entityIndex(entity), descriptors);
        ASSERT_EQ(sql, memory) << descriptors.front().keyPath;
    }
}

} // namespace
} // namespace tasket::objectstore
