// The meaning of predicates on a small hand-made store, checked through both
// evaluators at once: nil, text options, numbers across types, dates,
// to-one hops, ANY/ALL/NONE and @count, object identities; binding errors;
// and sorting.
#include "support/temp_dir.h"
#include "two_way_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tasket::objectstore {
namespace {

using platform::Errc;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Keys = std::set<std::int64_t>;

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
            testing::TwoWayStore::relate(*object, relationship, target);
        store.save();
    }

    // The keys selected in memory, after checking that SQL selects the same.
    Keys both(std::string_view entity, const char* format,
              const std::vector<PredicateArgument>& arguments) {
        const auto index = testing::entityIndex(entity);
        auto parsed = Predicate::parse(format, arguments);
        auto bound = parsed ? BoundPredicate::bind(*parsed, testing::testModel(), index)
                            : std::unexpected(parsed.error());
        if (!bound) {
            ADD_FAILURE() << bound.error().message;
            return {};
        }
        const auto [memory, stored, sql] = store.select(index, *bound);
        EXPECT_EQ(stored, memory) << sql.joins << " WHERE " << sql.where;
        return memory;
    }

    tasket::testing::TempDir dir;
    testing::TwoWayStore store{dir / "small.sqlite"};
};

struct Case {
    const char* format;
    std::vector<PredicateArgument> arguments;
    Keys expected;
    const char* entity = "Task";
};

TEST_F(SmallStore, BothEvaluatorsGiveTheDefinedMeaning) {
    const auto tag = testing::entityIndex("Tag"), folder = testing::entityIndex("Folder");
    const std::vector<Case> cases = {
        // nil
        {"title != 'x'", {}, {1, 2, 3, 4, 5, 6}},
        {"title = nil", {}, {3}},
        {"nil = title", {}, {3}},
        {"NOT (title = 'Émile')", {}, {2, 3, 4, 5, 6}},
        {"title < 'f'", {}, {2, 5, 6}},
        {"title >= nil OR title <= nil", {}, {}},
        {"title CONTAINS nil OR title BEGINSWITH nil OR title LIKE nil", {}, {}},
        {"NOT title CONTAINS 'x'", {}, {1, 2, 3, 4, 5, 6}},
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
        {"title LIKE 'a\\\\*'", {}, {}},
        {"title IN {'emile', nil}", {}, {2, 3}},
        {"title IN[c] {'EMILE'}", {}, {2}},
        {"title IN {}", {}, {}},
        {"NOT title IN {}", {}, {1, 2, 3, 4, 5, 6}},
        {"title BETWEEN[c] {'e', 'f'}", {}, {2}},
        // numbers, bools, dates, UUIDs, bytes
        {"count > 1.5", {}, {2, 4, 6}},
        {"score = 1", {}, {1}},
        {"score = %d", {true}, {1}},
        {"flag = 1", {}, {1, 4}},
        {"flag = YES", {}, {1, 4}},
        {"flag != true", {}, {2, 3, 5, 6}},
        {"count BETWEEN {1, 3}", {}, {1, 2, 4}},
        {"count BETWEEN {3, 1}", {}, {}},
        {"count IN {-1, 2.0, nil}", {}, {2, 3, 5}},
        {"score > count", {}, {2, 5, 6}},
        {"big = %@", {9007199254740992.0}, {}},
        {"big > %@", {9007199254740992.0}, {1}},
        {"big = %@", {std::int64_t{9007199254740993}}, {1}},
        {"due = %@", {kMonday}, {1, 4}},
        {"due < %@", {kTuesday}, {1, 4}},
        {"due BETWEEN {%@, %@}", {kMonday, kTuesday}, {1, 2, 4, 5}},
        {"start <= due", {}, {1, 2, 5}},
        {"start = due", {}, {1, 3, 6}},
        {"ident = %@", {kFirst.toString()}, {1}},
        {"ident IN %@", {std::vector<Uuid>{kFirst, kSecond}}, {1, 2}},
        {"ident IN %@", {std::vector<std::string>{kSecond.toString()}}, {2}},
        {"ident != %@", {kFirst}, {2, 3, 4, 5, 6}},
        {"blob = BYTES('')", {}, {1}},
        {"blob != nil", {}, {1, 2}},
        // to-one hops and the passive side of a one-to-one
        {"folder = nil", {}, {2, 5}},
        {"folder.name = nil", {}, {2, 3, 5}},
        {"folder.name != 'Home'", {}, {2, 3, 5, 6}},
        {"folder.name IN %@", {std::vector<std::string>{"Home", "Sub"}}, {1, 4, 6}},
        {"folder.parent.name = 'Home'", {}, {6}},
        {"folder.rank > count", {}, {1}},
        {"detail.text BEGINSWITH 'he'", {}, {1}},
        {"detail != nil", {}, {1}},
        {"folder = %@", {ObjectID{folder, 1}}, {1, 4}},
        {"folder IN %@", {std::vector<ObjectID>{{folder, 2}, {folder, 3}}}, {3, 6}},
        // to-many
        {"ANY tags = nil", {}, {2, 5, 6}},
        {"tags = nil", {}, {2, 5, 6}},
        {"ANY tags != nil", {}, {1, 3, 4}},
        {"NONE tags = nil", {}, {1, 3, 4}},
        {"ANY tags.label = nil", {}, {3, 4}},
        {"ALL tags.label = 'red'", {}, {1, 2, 5, 6}},
        {"NONE tags.label = 'red'", {}, {2, 4, 5, 6}},
        {"SOME tags.label ==[c] 'RED'", {}, {1, 3}},
        {"ALL tags = nil", {}, {2, 5, 6}},
        {"ANY tags IN %@", {std::vector<ObjectID>{{tag, 1}}}, {1, 3}},
        {"ANY tags.label IN %@", {ScalarList{}}, {}},
        {"tags.@count = 2", {}, {3}},
        {"tags.@count = steps.@count", {}, {1, 2, 3, 4, 5, 6}},
        {"steps.@count >= 2", {}, {3}},
        {"ANY steps.done = false", {}, {3}},
        {"ALL steps.done = true", {}, {1, 2, 4, 5, 6}},
        {"ANY steps.label = nil", {}, {3}},
        {"ANY 'B' = steps.label", {}, {3}},
        {"ANY steps.label < title", {}, {1, 4}},
        {"ANY steps.label >= 'a'", {}, {1, 4}},
        {"ANY folder.children.name = 'Sub'", {}, {1, 4}},
        {"folder.tasks.@count = 2", {}, {1, 4}},
        {"folder.children.@count = 0", {}, {2, 3, 5, 6}},
        // ANY by an indexed column, under NOT too, with an ownerless step
        {"ANY steps.label = 'a'", {}, {1}},
        {"NOT (ANY steps.label IN {'a', 'c'})", {}, {2, 3, 5, 6}},
        {"NONE steps.label = 'a'", {}, {2, 3, 4, 5, 6}},
        {"ANY steps.label IN {'a', nil}", {}, {1, 3}},
        {"NOT (ANY folder.children.name = 'Sub')", {}, {2, 3, 5, 6}},
        {"NOT (ANY tags IN %@)", {std::vector<ObjectID>{{tag, 1}, {tag, 2}}}, {2, 5, 6}},
        {"ANY tasks.folder = %@", {ObjectID{folder, 1}}, {1, 2}, "Tag"},
        // other entities and directions of the many-to-many
        {"ANY tasks.title BEGINSWITH 'É'", {}, {1}, "Tag"},
        {"tasks.@count = 2", {}, {1, 2}, "Tag"},
        {"parent = nil AND children.@count > 0", {}, {1}, "Folder"},
        {"task.detail = nil", {}, {2, 3, 4, 5}, "Step"},
        {"task.folder.name CONTAINS[c] 'HOME'", {}, {1, 4}, "Step"},
        {"task.title ==[cd] 'emile'", {}, {1}, "Detail"},
        // constants
        {"TRUEPREDICATE AND NOT FALSEPREDICATE", {}, {1, 2, 3, 4, 5, 6}},
        {"1 = 1.0 AND 'a' < 'b'", {}, {1, 2, 3, 4, 5, 6}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        EXPECT_EQ(both(c.entity, c.format, c.arguments), c.expected);
    }
}

TEST_F(SmallStore, BindingRejectsUnknownKeysAndTypeMismatches) {
    const auto tag = testing::entityIndex("Tag");
    const std::tuple<const char*, std::vector<PredicateArgument>, const char*> cases[] = {
        {"titel = 'x'", {}, "unknown key 'titel': Task has no property 'titel' (at offset 0)"},
        {"flag = 1 AND folder.nam = 'x'", {}, "Folder has no property 'nam' (at offset 13)"},
        {"title > 3", {}, "type mismatch: 'title' is text, compared with a number"},
        {"due = 3", {}, "'due' is a date, compared with a number"},
        {"folder.name.x = 1", {}, "Folder.name is an attribute and has no properties"},
        {"tags.label = 'x'", {}, "'tags.label' is a to-many key path and needs ANY, ALL, NONE"},
        {"ANY title = 'x'", {}, "need a key path through a to-many relationship"},
        {"ANY tags.tasks.title = 'x'", {}, "crosses more than one to-many relationship"},
        {"ANY tags.label = steps.label", {}, "one to-many key path only"},
        {"count CONTAINS 'a'", {}, "'count' is a number, compared with text"},
        {"title CONTAINS 3", {}, "compared with a number"},
        {"count ==[c] 1", {}, "[c]/[d] applies to text only"},
        {"ident = 'not a uuid'", {}, "\"not a uuid\" is not a UUID"},
        {"folder = %@", {ObjectID{tag, 1}}, "an object of Folder, compared with an object of Tag"},
        {"blob < BYTES('00')", {}, "binary data cannot be ordered"},
        {"ident > %@", {kFirst}, "a UUID cannot be ordered"},
        {"title IN 'a'", {}, "IN needs a list {...} on the right"},
        {"title = {'a'}", {}, "a list can only follow IN or BETWEEN"},
        {"count BETWEEN {1}", {}, "BETWEEN needs a list of two values"},
        {"ANY tags.@count > 1", {}, "@count takes no ANY"},
        {"title.@count > 1", {}, "Task.title is an attribute"},
        {"folder.@count > 1", {}, "@count must follow a to-many relationship"},
        {"tags CONTAINS 'x'", {}, "type mismatch"},
    };
    for (const auto& [format, arguments, message] : cases) {
        auto bound = BoundPredicate::bind(*Predicate::parse(format, arguments),
                                          testing::testModel(), testing::entityIndex("Task"));
        ASSERT_FALSE(bound) << format;
        EXPECT_EQ(bound.error().code, Errc::invalidArgument) << format;
        EXPECT_THAT(bound.error().message, HasSubstr(message)) << format;
    }
}

// Values go to bindings, never into the text. ANY = / IN on the elements or
// an indexed column of theirs draws the owners from the matching elements,
// without the COALESCE that would keep SQLite from the index (the table
// above checks that an element without an owner, like step 5, changes no
// answer); unindexed columns, folded text and other operators keep EXISTS.
TEST_F(SmallStore, SqlTextHoldsNoValuesAndReachesIndexes) {
    auto where = [](const char* format, const std::vector<PredicateArgument>& arguments = {}) {
        auto sql = compileToSql(*Predicate::parse(format, arguments), testing::testModel(),
                                testing::entityIndex("Task"));
        return sql ? sql->where : std::string();
    };
    const std::pair<const char*, const char*> shapes[] = {
        {"ANY tags.label IN {'red'}", "t0.pk IN (SELECT"},
        {"ANY tags.weight = 1", "EXISTS"},
        {"ANY tags.label ==[c] 'red'", "EXISTS"},
        {"ANY tags.label BEGINSWITH 'r'", "EXISTS"},
        {"ALL tags.label = 'red'", "EXISTS"},
    };
    for (const auto& [format, shape] : shapes)
        EXPECT_THAT(where(format), HasSubstr(shape)) << format;
    EXPECT_THAT(where("ANY tags.label IN {'red'}"), Not(HasSubstr("COALESCE")));
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
    const auto task = testing::entityIndex("Task");
    for (const auto& [descriptors, expected] : cases) {
        const auto [sql, memory] = store.sort(task, descriptors);
        EXPECT_EQ(sql, expected) << (descriptors.empty() ? "none" : descriptors[0].keyPath);
        EXPECT_EQ(memory, expected) << (descriptors.empty() ? "none" : descriptors[0].keyPath);
    }
    EXPECT_FALSE(compileSort({{"tags.label", true, C::plain}}, testing::testModel(), task));
    EXPECT_FALSE(ObjectComparator::make({{"nope", true, C::plain}}, testing::testModel(), task));
}

} // namespace
} // namespace tasket::objectstore
