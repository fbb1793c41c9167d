// The property that lets the engine filter stored rows in SQL and unsaved
// objects in memory: on a random store (mixed-case and accented text,
// random nils, every attribute type, to-one, one-to-many, many-to-many and
// one-to-one relationships, empty and full) that the engine saved, the
// compiled SQL over its rows and the in-memory evaluator over its objects
// select exactly the same objects for random predicates drawn from the
// whole grammar, and sort them in the same order.
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sort_descriptor.h"
#include "objectstore/predicate/sql_compiler.h"
#include "support/temp_dir.h"
#include "two_way_store.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace tasket::objectstore {
namespace {

using Random = std::mt19937_64;

const std::vector<std::string> kTexts = {
    "Émile",   "emile",   "ÉMILE",    "Emile",    "e\u0301mile", "straße",   "STRASSE",
    "Strasse", "strasse", "İstanbul", "istanbul", "ISTANBUL",    "",         "a",
    "A",       "ab",      "aB",       "b",        "ß",           "ss",       "ǅ",
    "ǆ",       "Zoë",     "zoe",      "naïve",    "NAIVE",       "a*b",      "x?y",
    "日本",    "Ω",       "ω",        "ﬁle",      "FILE",        "\xff\xfe", "tab\there",
    "it's",    "Home",    "home",
};
const std::vector<std::string> kPatterns = {
    "*mile", "?mile", "É*", "*ss*", "*",     "?",   "a\\*b", "st*e",
    "*i*",   "",      "??", "*ß",   "x\\?y", "*Ω*", "e*e",
};
const std::vector<std::int64_t> kIntegers = {-32768, -3, -1, 0, 1, 2, 3, 7, 100, 32767};
const std::vector<double> kDoubles = {-2.5, -1.0, 0.0, 0.5, 1.0, 2.0, 2.5, 3.0000001, 1e10, -1e300};
const std::vector<std::int64_t> kBigs = {
    9007199254740993, 9007199254740992, -9223372036854775807 - 1, 9223372036854775807, 0, 5};
const std::vector<double> kDates = {0.0,           700'000'000.0, 700'086'400.0,
                                    700'086'400.5, -86'400.0,     800'000'000.25};
const std::vector<Uuid> kUuids = {
    *Uuid::parse("00000000-0000-4000-8000-000000000001"),
    *Uuid::parse("A0000000-0000-4000-8000-000000000002"),
    *Uuid::parse("ffffffff-0000-4000-8000-000000000003"),
    *Uuid::parse("12345678-9ABC-4DEF-8000-000000000004"),
};
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

// ---- The random store ----

constexpr int kTasks = 1200, kFolders = 60, kTags = 40, kSteps = 1500, kDetails = 500;

// A random value of an attribute's type; one in seven is nil.
Value draw(Random& rng, AttributeType type) {
    using T = AttributeType;
    if (chance(rng, 0.15))
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

// Objects of every entity with random attributes, folders in a random
// tree, tasks in random folders with random tags, steps on the first half
// of the tasks only (so that many have none), details on random tasks;
// some of each left unrelated.
void fill(testing::TwoWayStore& store, Random& rng) {
    const auto relate = &testing::TwoWayStore::relate;
    std::map<std::string, std::vector<ObjectPtr>> made;
    const std::pair<const char*, int> counts[] = {{"Folder", kFolders},
                                                  {"Tag", kTags},
                                                  {"Task", kTasks},
                                                  {"Step", kSteps},
                                                  {"Detail", kDetails}};
    for (const auto& [entity, count] : counts) {
        auto& objects = made[entity];
        for (int i = 0; i < count; ++i) {
            auto o = store.insert(entity);
            for (const auto& a : o->entityDescription().attributes)
                o->setValue(a.name, draw(rng, a.type));
            const std::string_view name = entity;
            if (name == "Folder" && !objects.empty() && chance(rng, 0.4))
                relate(*o, "parent", pick(rng, objects));
            if (name == "Task" && chance(rng, 0.8))
                relate(*o, "folder", pick(rng, made["Folder"]));
            if (name == "Task" && chance(rng, 0.6))
                for (int n = between(rng, 1, 4); n > 0; --n)
                    relate(*o, "tags", pick(rng, made["Tag"]));
            if (name == "Step" && chance(rng, 0.95))
                relate(*o, "task",
                       made["Task"][static_cast<std::size_t>(between(rng, 0, kTasks / 2))]);
            if (name == "Detail" && chance(rng, 0.9))
                relate(*o, "task", pick(rng, made["Task"]));
            objects.push_back(o);
        }
    }
    store.save();
}

// ---- Random predicates ----

enum class Kind { text, number, date, uuid, binary, object, collection };

struct PathInfo {
    std::string path;
    Kind kind = Kind::number;
    bool toMany = false; // needs a quantifier (or is a collection)
    std::string target;  // entity of objects
};

// What the model says a key path is: the kind of its end, whether it
// crosses a to-many relationship, and the entity its objects belong to.
PathInfo resolve(const std::string& entity, const std::string& path) {
    const Model& model = testing::testModel();
    const EntityDescription* e = model.entity(entity);
    PathInfo info{path, Kind::number, false, {}};
    std::istringstream parts(path);
    for (std::string part; std::getline(parts, part, '.');) {
        if (part == "@count") {
            info.kind = Kind::number;
            info.toMany = false;
            break;
        }
        const std::size_t index = *e->propertyIndex(part);
        if (index < e->attributes.size()) {
            using T = AttributeType;
            const T type = e->attributes[index].type;
            info.kind = type == T::String   ? Kind::text
                        : type == T::Date   ? Kind::date
                        : type == T::UUID   ? Kind::uuid
                        : type == T::Binary ? Kind::binary
                                            : Kind::number;
            break;
        }
        const RelationshipDescription& r = e->relationships[index - e->attributes.size()];
        e = &model.entity(r.destinationIndex);
        info.toMany = info.toMany || r.toMany;
        info.kind = r.toMany ? Kind::collection : Kind::object;
        info.target = e->name;
    }
    return info;
}

// The key paths the generator compares, per entity: every hop the SQL
// compiler treats differently (to-one chains, to-many with and without a
// to-one after it, @count behind a to-one).
const std::map<std::string, std::vector<PathInfo>>& paths() {
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
    static const std::map<std::string, std::vector<PathInfo>> table = [] {
        std::map<std::string, std::vector<PathInfo>> out;
        for (const auto& [entity, list] : texts) {
            std::istringstream words(list);
            for (std::string path; words >> path;)
                out[entity].push_back(resolve(entity, path));
        }
        return out;
    }();
    return table;
}

struct Generated {
    std::string format;
    std::vector<PredicateArgument> arguments;
};

class Generator {
  public:
    Generator(Random& rng, std::string entity) : m_rng(rng), m_entity(std::move(entity)) {}

    Generated next() {
        Generated g;
        g.format = predicate(g.arguments, 0);
        return g;
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

    std::string predicate(std::vector<PredicateArgument>& args, int depth) {
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
            return word(chance(m_rng, 0.5) ? "TRUEPREDICATE" : "FALSEPREDICATE");
        return comparison(args);
    }

    std::string comparison(std::vector<PredicateArgument>& args) {
        const PathInfo& path = pick(m_rng, paths().at(m_entity));
        std::string quantifier;
        if (path.toMany) {
            static const std::vector<std::string> kQuantifiers = {"ANY", "SOME", "ALL", "NONE"};
            quantifier = word(pick(m_rng, kQuantifiers)) + " ";
        }
        if (path.kind == Kind::collection) {
            if (chance(m_rng, 0.6)) {
                if (chance(m_rng, 0.2))
                    quantifier.clear(); // a bare "rel = nil" tests emptiness too
                return quantifier + path.path + (chance(m_rng, 0.5) ? " = " : " != ") + nil();
            }
            return quantifier + path.path + " " + objectTest(args, path.target);
        }
        switch (path.kind) {
        case Kind::text: return quantifier + textTest(args, path.path, path.toMany);
        case Kind::number: return quantifier + orderedTest(args, path.path, Kind::number);
        case Kind::date: return quantifier + orderedTest(args, path.path, Kind::date);
        case Kind::uuid: return quantifier + uuidTest(args, path.path);
        case Kind::binary: return quantifier + binaryTest(args, path.path);
        case Kind::object: return quantifier + path.path + " " + objectTest(args, path.target);
        case Kind::collection: break;
        }
        return "TRUEPREDICATE";
    }

    std::string nil() { return chance(m_rng, 0.5) ? word("nil") : word("NULL"); }

    std::string op(std::vector<std::string> spellings) { return pick(m_rng, spellings); }

    std::string equality() { return op({"=", "==", "!=", "<>"}); }
    std::string ordering() { return op({"<", "<=", "=<", ">", ">=", "=>", "=", "==", "!=", "<>"}); }

    // A path of the same kind on this entity with no to-many step.
    std::optional<std::string> otherPath(Kind kind) {
        std::vector<const PathInfo*> candidates;
        for (const auto& p : paths().at(m_entity))
            if (p.kind == kind && !p.toMany)
                candidates.push_back(&p);
        if (candidates.empty())
            return std::nullopt;
        return pick(m_rng, candidates)->path;
    }

    std::string quoted(const std::string& text) {
        const char quote = chance(m_rng, 0.5) ? '\'' : '"';
        std::string out(1, quote);
        for (char c : text) {
            if (c == quote || c == '\\')
                out += '\\';
            out += c;
        }
        return out + quote;
    }

    std::string textConstant(std::vector<PredicateArgument>& args,
                             const std::vector<std::string>& pool) {
        if (chance(m_rng, 0.08))
            return nil();
        const std::string& text = pick(m_rng, pool);
        if (chance(m_rng, 0.5)) {
            args.emplace_back(text);
            return "%@";
        }
        return quoted(text);
    }

    std::string options() {
        static const std::vector<std::string> kOptions = {"",     "",     "[c]", "[d]",
                                                          "[cd]", "[CD]", "[dc]"};
        return pick(m_rng, kOptions);
    }

    std::string list(std::vector<PredicateArgument>& args, int size,
                     const std::function<std::string()>& literal,
                     const std::function<Scalar()>& value) {
        if (chance(m_rng, 0.5)) {
            ScalarList items;
            for (int i = 0; i < size; ++i)
                items.push_back(chance(m_rng, 0.1) ? Scalar() : value());
            args.emplace_back(std::move(items));
            return "%@";
        }
        std::string out = "{";
        for (int i = 0; i < size; ++i)
            out += (i ? ", " : "") + (chance(m_rng, 0.1) ? nil() : literal());
        return out + "}";
    }

    std::string textTest(std::vector<PredicateArgument>& args, const std::string& path,
                         bool toMany) {
        const int choice = between(m_rng, 0, 9);
        const std::string opts = options();
        auto literal = [&] { return quoted(pick(m_rng, kTexts)); };
        auto value = [&] { return Scalar(pick(m_rng, kTexts)); };
        switch (choice) {
        case 0:
        case 1: return path + " " + ordering() + opts + " " + textConstant(args, kTexts);
        case 2: {
            static const std::vector<std::string> kWords = {"CONTAINS", "BEGINSWITH", "ENDSWITH"};
            return path + " " + word(pick(m_rng, kWords)) + opts + " " + textConstant(args, kTexts);
        }
        case 3: return path + " " + word("LIKE") + opts + " " + textConstant(args, kPatterns);
        case 4:
            return path + " " + word("IN") + opts + " " +
                   list(args, between(m_rng, 0, 4), literal, value);
        case 5: return path + " " + word("BETWEEN") + opts + " " + list(args, 2, literal, value);
        case 6:
            if (auto other = otherPath(Kind::text))
                return path + " " + ordering() + opts + " " + *other;
            [[fallthrough]];
        case 7: {
            // A constant on the left; a to-many path only with operators
            // that can be mirrored.
            static const std::vector<std::string> kWords = {"CONTAINS", "BEGINSWITH", "ENDSWITH",
                                                            "=",        "!=",         "<"};
            static const std::vector<std::string> kMirrored = {"=", "!=", "<", ">="};
            const std::string constant = textConstant(args, kTexts);
            return constant + " " + word(pick(m_rng, toMany ? kMirrored : kWords)) + opts + " " +
                   path;
        }
        default: return path + " " + equality() + opts + " " + textConstant(args, kTexts);
        }
    }

    std::string numberLiteral(std::vector<PredicateArgument>& args) {
        switch (between(m_rng, 0, 7)) {
        case 0: return fmt::format("{}", pick(m_rng, kIntegers));
        case 1: return toString(Scalar(pick(m_rng, kDoubles)));
        case 2: return word(pick(m_rng, std::vector<std::string>{"true", "false", "YES", "NO"}));
        case 3: args.emplace_back(pick(m_rng, kIntegers)); return chance(m_rng, 0.5) ? "%d" : "%ld";
        case 4: args.emplace_back(chance(m_rng, 0.5)); return "%d";
        case 5: args.emplace_back(pick(m_rng, kDoubles)); return chance(m_rng, 0.5) ? "%f" : "%@";
        case 6: args.emplace_back(pick(m_rng, kBigs)); return "%@";
        default: return chance(m_rng, 0.5) ? nil() : fmt::format("{}", pick(m_rng, kBigs));
        }
    }

    std::string dateLiteral(std::vector<PredicateArgument>& args) {
        const Date d{pick(m_rng, kDates)};
        if (chance(m_rng, 0.1))
            return nil();
        if (chance(m_rng, 0.6)) {
            args.emplace_back(d);
            return "%@";
        }
        return toString(Scalar(d));
    }

    std::string orderedTest(std::vector<PredicateArgument>& args, const std::string& path,
                            Kind kind) {
        // Arguments cannot sit inside a {...} literal list.
        auto literal = [&]() -> std::string {
            if (kind == Kind::date)
                return toString(Scalar(Date{pick(m_rng, kDates)}));
            std::vector<PredicateArgument> ignored;
            std::string text = numberLiteral(ignored);
            return text.starts_with('%') ? std::string("0") : text;
        };
        auto value = [&]() -> Scalar {
            if (kind == Kind::date)
                return Date{pick(m_rng, kDates)};
            return chance(m_rng, 0.5) ? Scalar(pick(m_rng, kIntegers))
                                      : Scalar(pick(m_rng, kDoubles));
        };
        auto constant = [&] {
            return kind == Kind::number ? numberLiteral(args) : dateLiteral(args);
        };
        switch (between(m_rng, 0, 6)) {
        case 0: return path + " " + word("BETWEEN") + " " + list(args, 2, literal, value);
        case 1:
            return path + " " + word("IN") + " " + list(args, between(m_rng, 0, 4), literal, value);
        case 2:
            if (auto other = otherPath(kind))
                return path + " " + ordering() + " " + *other;
            [[fallthrough]];
        case 3: return constant() + " " + ordering() + " " + path;
        default: return path + " " + ordering() + " " + constant();
        }
    }

    std::string uuidTest(std::vector<PredicateArgument>& args, const std::string& path) {
        const Uuid& u = pick(m_rng, kUuids);
        switch (between(m_rng, 0, 4)) {
        case 0: args.emplace_back(u); return path + " " + equality() + " %@";
        case 1: args.emplace_back(u.toString()); return path + " " + equality() + " %@";
        case 2: return path + " " + equality() + " " + toString(Scalar(u));
        case 3: return path + " " + equality() + " " + nil();
        default:
            args.emplace_back(std::vector<Uuid>{u, pick(m_rng, kUuids)});
            return path + " " + word("IN") + " %@";
        }
    }

    std::string binaryTest(std::vector<PredicateArgument>& args, const std::string& path) {
        if (chance(m_rng, 0.3))
            return path + " " + equality() + " " + nil();
        if (chance(m_rng, 0.5)) {
            args.emplace_back(pick(m_rng, kBlobs));
            return path + " " + equality() + " %@";
        }
        return path + " " + equality() + " " + toString(Scalar(pick(m_rng, kBlobs)));
    }

    ObjectID someObject(const std::string& entity) {
        return ObjectID{testing::entityIndex(entity), between(m_rng, 1, 70)};
    }

    std::string objectTest(std::vector<PredicateArgument>& args, const std::string& entity) {
        switch (between(m_rng, 0, 3)) {
        case 0: return equality() + " " + nil();
        case 1: args.emplace_back(someObject(entity)); return equality() + " %@";
        case 2: {
            std::vector<ObjectID> ids;
            for (int n = between(m_rng, 0, 5); n > 0; --n)
                ids.push_back(someObject(entity));
            args.emplace_back(ids);
            return word("IN") + " %@";
        }
        default: return equality() + " " + toString(Scalar(someObject(entity)));
        }
    }

    Random& m_rng;
    std::string m_entity;
};

// How a run is drawn, from the environment so that long runs can be
// scripted: TASKET_PROPERTY_COUNT predicates (10,000) from
// TASKET_PROPERTY_SEED (7) on the store drawn from
// TASKET_PROPERTY_STORE_SEED (20261121). A disagreement is reported in full
// and, when TASKET_PROPERTY_CASES names a folder, saved there with a copy of
// the store so that it can be replayed.
std::uint64_t fromEnvironment(const char* name, std::uint64_t fallback) {
    const char* text = std::getenv(name);
    return text && *text ? std::stoull(text) : fallback;
}

class RandomStore : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        s_storeSeed = fromEnvironment("TASKET_PROPERTY_STORE_SEED", 20261121);
        s_dir = new tasket::testing::TempDir();
        s_store = new testing::TwoWayStore(*s_dir / "random.sqlite");
        Random rng(s_storeSeed);
        fill(*s_store, rng);
    }
    static void TearDownTestSuite() {
        delete s_store;
        delete s_dir;
    }

    static std::string describeStore() {
        return fmt::format("store seed {}: {} tasks, {} folders, {} tags, {} steps, {} details",
                           s_storeSeed, kTasks, kFolders, kTags, kSteps, kDetails);
    }

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

    static inline std::uint64_t s_storeSeed = 0;
    static inline tasket::testing::TempDir* s_dir = nullptr;
    static inline testing::TwoWayStore* s_store = nullptr;
};

TEST_F(RandomStore, SqlAndMemorySelectTheSameObjects) {
    const auto count = static_cast<int>(fromEnvironment("TASKET_PROPERTY_COUNT", 10'000));
    const std::uint64_t seed = fromEnvironment("TASKET_PROPERTY_SEED", 7);
    SCOPED_TRACE(
        fmt::format("TASKET_PROPERTY_SEED={} TASKET_PROPERTY_STORE_SEED={}", seed, s_storeSeed));
    const std::vector<std::pair<const char*, int>> share = {
        {"Task", 70}, {"Folder", 10}, {"Tag", 8}, {"Step", 8}, {"Detail", 4}};
    Random rng(seed);
    int failures = 0, nonTrivial = 0, drawn = 0;
    for (const auto& [entity, percent] : share) {
        Generator generator(rng, entity);
        const auto index = testing::entityIndex(entity);
        const std::size_t all = s_store->objects(index).size();
        for (int i = 0; i < count * percent / 100 && failures < 10; ++i, ++drawn) {
            const Generated g = generator.next();
            auto parsed = Predicate::parse(g.format, g.arguments);
            ASSERT_TRUE(parsed) << g.format << ": " << parsed.error().message;
            auto bound = BoundPredicate::bind(*parsed, testing::testModel(), index);
            ASSERT_TRUE(bound) << parsed->toString() << ": " << bound.error().message;
            const auto memory = s_store->evaluate(index, *bound);
            const SqlPredicate sql = compileToSql(*bound);
            const auto stored = s_store->select(index, sql);
            if (stored != memory) {
                ++failures;
                std::vector<std::int64_t> onlySql, onlyMemory;
                std::ranges::set_difference(stored, memory, std::back_inserter(onlySql));
                std::ranges::set_difference(memory, stored, std::back_inserter(onlyMemory));
                const std::string text = fmt::format(
                    "entity: {}\npredicate: {}\ndrawn: predicate {} of seed {}\nstore: {}\n"
                    "SQL: {} WHERE {}\nonly SQL selects: {}\nonly memory selects: {}\n",
                    entity, parsed->toString(), drawn, seed, describeStore(), sql.joins, sql.where,
                    fmt::join(onlySql, " "), fmt::join(onlyMemory, " "));
                ADD_FAILURE() << text << "saved: "
                              << saveCase(fmt::format("case-{}-{}.txt", seed, drawn), text);
            }
            if (!memory.empty() && memory.size() != all)
                ++nonTrivial;
            // The canonical text means the same: it compiles to the same SQL.
            auto again = Predicate::parse(parsed->toString());
            ASSERT_TRUE(again) << parsed->toString() << ": " << again.error().message;
            EXPECT_EQ(again->toString(), parsed->toString());
            auto sqlAgain = compileToSql(*again, testing::testModel(), index);
            ASSERT_TRUE(sqlAgain) << parsed->toString() << ": " << sqlAgain.error().message;
            EXPECT_TRUE(sqlAgain->where == sql.where && sqlAgain->bindings == sql.bindings)
                << parsed->toString() << "\n"
                << sqlAgain->where << "\n"
                << sql.where;
        }
    }
    // The generator must mostly produce predicates that split the store.
    EXPECT_GT(nonTrivial, drawn / 3);
}

TEST_F(RandomStore, SqlAndMemorySortAlike) {
    using C = SortDescriptor::Comparison;
    const std::map<std::string, std::vector<std::string>> sortable = {
        {"Task",
         {"title", "note", "count", "score", "flag", "due", "start", "ident", "blob", "big",
          "folder.name", "folder.parent.rank", "detail.text", "tags.@count", "folder"}},
        {"Folder", {"name", "rank", "parent.name", "tasks.@count", "children.@count"}},
        {"Step", {"label", "when", "task.title", "task.folder.name"}},
    };
    Random rng(11);
    for (int i = 0; i < 300; ++i) {
        const auto& [entity, keys] = *std::next(sortable.begin(), between(rng, 0, 2));
        std::vector<SortDescriptor> descriptors;
        for (int n = between(rng, 1, 3); n > 0; --n)
            descriptors.push_back({pick(rng, keys), chance(rng, 0.5),
                                   chance(rng, 0.5) ? C::localizedCaseInsensitive : C::plain});
        const auto index = testing::entityIndex(entity);
        auto order = compileSort(descriptors, testing::testModel(), index);
        ASSERT_TRUE(order) << order.error().message;
        auto comparator = ObjectComparator::make(descriptors, testing::testModel(), index);
        ASSERT_TRUE(comparator);
        ASSERT_EQ(s_store->ordered(index, *order), s_store->sorted(index, *comparator))
            << order->orderBy;
    }
}

} // namespace
} // namespace tasket::objectstore
