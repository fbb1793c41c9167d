// The language itself: refusals name the offset; printing gives canonical text that parses
// back to the same predicate; empty compounds compile to constants.
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sql_compiler.h"
#include "support/predicate_model.h"

#include <gmock/gmock.h>

namespace tasket::objectstore {
namespace {

using platform::Errc;
using ::testing::HasSubstr;

std::string repeatedNot(int times) {
    std::string text;
    while (times-- > 0)
        text += "NOT ";
    return text;
}

const Uuid kValueID = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

// Malformed text is a parse error; a wrong argument, and an unknown key or a
// type mismatch when bound to Task, are invalid arguments. Each names its offset.
TEST(PredicateLanguage, MalformedTextWrongArgumentsAndTypeMismatchesAreRefused) {
    const auto P = Errc::parseError, A = Errc::invalidArgument;
    const auto model = tasket::testing::predicateTestModel();
    const std::string deep = "a = 1";
    const std::tuple<std::string, std::vector<PredicateArgument>, Errc, const char*> cases[] = {
        {"", {}, P, "expected a key path or a value, found the end of the predicate at offset 0"},
        {"title ==", {}, P, "found the end of the predicate at offset 8"},
        {"title = 'abc", {}, P, "unterminated string starting at offset 8"},
        {"(title = 'a'", {}, P, "expected ')' to close the '(' at offset 0"},
        {"title CONTAINZ 'a'", {}, P, "LIKE), found 'CONTAINZ' at offset 6"},
        {"title = 'a' AND", {}, P, "at offset 15"},
        {"title = 'a' garbage", {}, P, "or the end of the predicate, found 'garbage' at offset 12"},
        {"title ~ 'a'", {}, P, "unexpected '~' at offset 6"},
        {"title =[x] 'a'", {}, P, "unknown comparison option 'x' at offset 8"},
        {"title =[] 'a'", {}, P, "empty comparison options at offset 7"},
        {"tags.@sum > 1", {}, P, "unsupported key path operator '@sum'"},
        {"tags.@count.x > 1", {}, P, "@count must end its key path at offset 11"},
        {"1abc = 2", {}, P, "malformed number at offset 0"},
        {"due = DATE('x')", {}, P, "expected seconds since the reference date"},
        {"ident = UUID('x')", {}, P, "malformed UUID at offset 13"},
        {"title = NOW()", {}, P, "unknown constant type 'NOW'"},
        {"title IN {1, title}", {}, P, "expected a constant inside '{...}' at offset 13"},
        {"title = %x", {}, P, "unsupported format specifier at offset 8"},
        {"title = AND", {}, P, "expected a key path or a value, found 'AND' at offset 8"},
        {"'x' CONTAINS ANY", {}, P, "found 'ANY'"},
        {std::string(5000, '(') + deep, {}, P, "nested too deeply"}, // refused, not overflowed
        {std::string(5000, '!') + deep, {}, P, "nested too deeply"},
        {"title IN " + std::string(5000, '{'),
         {},
         P,
         "expected a constant inside '{...}' at offset 10"},
        {"a = 1 OR " + repeatedNot(39) + "a = 1 AND a = 2",
         {},
         P,
         "nested too deeply"}, // 41 levels
        {"title = %@", {}, A, "too few arguments: %@ has no argument at offset 8"},
        {"title = %@", {"a", "b"}, A, "too many arguments: 2 given, the predicate uses 1"},
        {"count = %d", {"a"}, A, "argument for %d must be an integer or a bool at offset 8"},
        {"score = %f", {"a"}, A, "argument for %f must be a number at offset 8"},
        {"%K = 1", {"a b"}, A, "argument for %K is not a key path"},
        {"%K = 1", {3}, A, "argument for %K must be a key path text at offset 0"},
        {"score = %@", {std::nan("")}, A, "NaN"},
        {"titel = 'x'", {}, A, "unknown key 'titel': Task has no property 'titel' (at offset 0)"},
        {"flag = 1 AND folder.nam = 'x'", {}, A, "Folder has no property 'nam' (at offset 13)"},
        {"title > 3", {}, A, "type mismatch: 'title' is text, compared with a number"},
        {"due = 3", {}, A, "'due' is a date, compared with a number"},
        {"folder.name.x = 1", {}, A, "Folder.name is an attribute and has no properties"},
        {"tags.label = 'x'", {}, A, "'tags.label' is a to-many key path and needs ANY, ALL, NONE"},
        {"ANY title = 'x'", {}, A, "need a key path through a to-many relationship"},
        {"ANY tags.tasks.title = 'x'", {}, A, "crosses more than one to-many relationship"},
        {"ANY tags.label = steps.label", {}, A, "one to-many key path only"},
        {"count CONTAINS 'a'", {}, A, "'count' is a number, compared with text"},
        {"title CONTAINS 3", {}, A, "compared with a number"},
        {"count ==[c] 1", {}, A, "[c]/[d] applies to text only"},
        {"ident = 'not a uuid'", {}, A, "\"not a uuid\" is not a UUID"},
        {"folder = %@",
         {ObjectID{model->entity("Tag")->index, 1}},
         A,
         "an object of Folder, compared with an object of Tag"},
        {"blob < BYTES('00')", {}, A, "binary data cannot be ordered"},
        {"ident > %@", {Uuid()}, A, "a UUID cannot be ordered"},
        {"title IN 'a'", {}, A, "IN needs a list {...} on the right"},
        {"title = {'a'}", {}, A, "a list can only follow IN or BETWEEN"},
        {"count BETWEEN {1}", {}, A, "BETWEEN needs a list of two values"},
        {"ANY tags.@count > 1", {}, A, "@count takes no ANY"},
        {"title.@count > 1", {}, A, "Task.title is an attribute"},
        {"folder.@count > 1", {}, A, "@count must follow a to-many relationship"},
        {"tags CONTAINS 'x'", {}, A, "type mismatch"},
    };
    for (const auto& [format, arguments, code, message] : cases) {
        auto parsed = Predicate::parse(format, arguments);
        auto bound = parsed ? BoundPredicate::bind(*parsed, *model, model->entity("Task")->index)
                            : std::unexpected(parsed.error());
        ASSERT_FALSE(bound) << format;
        EXPECT_EQ(bound.error().code, code) << format;
        EXPECT_THAT(bound.error().message, HasSubstr(message)) << format;
    }
}

TEST(PredicateLanguage, PrintsCanonicalTextThatParsesBack) {
    const auto nots = repeatedNot(38); // 40 levels, the most a tree may have
    const std::tuple<std::string, std::vector<PredicateArgument>, std::string> cases[] = {
        {"a = 1 OR " + nots + "a = 1 AND a = 2", {}, "a == 1 OR (" + nots + "a == 1 AND a == 2)"},
        {"a = 1 && b <> 2 || !(c =< 3)", {}, "(a == 1 AND b != 2) OR NOT c <= 3"},
        {"a = 1 and (b = 2 or c => 3)", {}, "a == 1 AND (b == 2 OR c >= 3)"},
        {"not (a = 1 AND b = 2)", {}, "NOT (a == 1 AND b == 2)"},
        {"some tags.label like[dc] 'x*'", {}, "ANY tags.label LIKE[cd] \"x*\""},
        {"NONE tags.label BeginsWith[C] \"a\"", {}, "NONE tags.label BEGINSWITH[c] \"a\""},
        {"x = NULL OR y = nil", {}, "x == nil OR y == nil"},
        {"x = YES AND y = NO AND z = TRUE", {}, "x == true AND y == false AND z == true"},
        {"#in = 1 AND a.#and = 2", {}, "#in == 1 AND a.#and == 2"},
        {"%K = %@", {"folder.name", "x"}, "folder.name == \"x\""},
        {"%K = 1", {"any"}, "#any == 1"},
        {"s = 'it\\'s \"q\"\\n'", {}, "s == \"it's \\\"q\\\"\\n\""},
        {"n = 1.0 OR n = -2 OR n = 1e3", {}, "n == 1.0 OR n == -2 OR n == 1000.0"},
        {"n = 99999999999999999999 OR n = 1e999", {}, "n == 1e+20 OR n == 1e999"},
        {"n = %f AND d = %@", {3, Date{1.5}}, "n == 3.0 AND d == DATE(1.5)"},
        {"u = %@", {kValueID}, "u == UUID(\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\")"},
        {"b = %@", {Bytes{0x0a, 0xff}}, "b == BYTES(\"0aff\")"},
        {"o = %@", {ObjectID{2, -7}}, "o == OBJECT(2, -7)"},
        {"title IN %@", {ScalarList{"a", {}, std::int64_t{3}}}, "title IN {\"a\", nil, 3}"},
        {"title IN {} OR '%@' = title", {}, "title IN {} OR \"%@\" == title"},
        {"count BETWEEN {%d, %d}", {1, true}, "count BETWEEN {1, true}"},
        {"TRUEPREDICATE AND FalsePredicate", {}, "TRUEPREDICATE AND FALSEPREDICATE"},
        {"tags.@count > 2", {}, "tags.@count > 2"},
    };
    for (const auto& [format, arguments, text] : cases) {
        auto parsed = Predicate::parse(format, arguments);
        ASSERT_TRUE(parsed) << format << ": " << parsed.error().message;
        EXPECT_EQ(parsed->toString(), text);
        auto again = Predicate::parse(text);
        ASSERT_TRUE(again) << text << ": " << again.error().message;
        EXPECT_EQ(again->toString(), text);
    }
}

TEST(PredicateLanguage, EmptyCompoundsMatchEverythingOrNothing) {
    const std::tuple<Predicate, const char*, const char*> cases[] = {
        {andPredicate({}), "TRUEPREDICATE", "1"},
        {orPredicate({}), "FALSEPREDICATE", "0"},
        {notPredicate(orPredicate({})), "NOT FALSEPREDICATE", "(NOT 0)"},
        {andPredicate({orPredicate({})}), "FALSEPREDICATE", "0"}};
    const auto model = tasket::testing::predicateTestModel();
    for (const auto& [predicate, text, where] : cases) {
        EXPECT_EQ(predicate.toString(), text);
        auto sql = compileToSql(predicate, *model, model->entity("Task")->index);
        EXPECT_EQ(sql ? sql->joins + sql->where : "refused", where) << text; // and no joins
    }
}

} // namespace
} // namespace tasket::objectstore
