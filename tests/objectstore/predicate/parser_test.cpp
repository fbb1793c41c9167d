// The language itself: malformed text and wrong arguments fail with the
// offset; printing gives canonical text that parses back to the same
// predicate; empty compounds compile to constants.
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sql_compiler.h"
#include "two_way_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tasket::objectstore {
namespace {

using platform::Errc;
using ::testing::HasSubstr;

const Uuid kValueID = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

TEST(PredicateLanguage, MalformedTextAndWrongArgumentsNameTheOffset) {
    const std::pair<const char*, const char*> malformed[] = {
        {"", "expected a key path or a value, found the end of the predicate at offset 0"},
        {"title ==", "found the end of the predicate at offset 8"},
        {"title = 'abc", "unterminated string starting at offset 8"},
        {"(title = 'a'", "expected ')' to close the '(' at offset 0"},
        {"title CONTAINZ 'a'", "LIKE), found 'CONTAINZ' at offset 6"},
        {"title = 'a' AND", "at offset 15"},
        {"title = 'a' garbage",
         "expected AND, OR or the end of the predicate, found 'garbage' at offset 12"},
        {"title ~ 'a'", "unexpected '~' at offset 6"},
        {"title =[x] 'a'", "unknown comparison option 'x' at offset 8"},
        {"title =[] 'a'", "empty comparison options at offset 7"},
        {"tags.@sum > 1", "unsupported key path operator '@sum'"},
        {"tags.@count.x > 1", "@count must end its key path at offset 11"},
        {"1abc = 2", "malformed number at offset 0"},
        {"due = DATE('x')", "expected seconds since the reference date"},
        {"ident = UUID('x')", "malformed UUID at offset 13"},
        {"title = NOW()", "unknown constant type 'NOW'"},
        {"title IN {1, title}", "expected a constant inside '{...}' at offset 13"},
        {"title = %x", "unsupported format specifier at offset 8"},
        {"title = AND", "expected a key path or a value, found 'AND' at offset 8"},
        {"'x' CONTAINS ANY", "found 'ANY'"},
    };
    for (const auto& [format, message] : malformed) {
        auto parsed = Predicate::parse(format);
        ASSERT_FALSE(parsed) << format;
        EXPECT_EQ(parsed.error().code, Errc::parseError) << format;
        EXPECT_THAT(parsed.error().message, HasSubstr(message)) << format;
    }
    const std::tuple<const char*, std::vector<PredicateArgument>, const char*> wrongArguments[] = {
        {"title = %@", {}, "too few arguments: %@ has no argument at offset 8"},
        {"title = %@", {"a", "b"}, "too many arguments: 2 given, the predicate uses 1"},
        {"count = %d", {"a"}, "argument for %d must be an integer or a bool at offset 8"},
        {"score = %f", {"a"}, "argument for %f must be a number at offset 8"},
        {"%K = 1", {"a b"}, "argument for %K is not a key path"},
        {"%K = 1", {3}, "argument for %K must be a key path text at offset 0"},
        {"score = %@", {std::nan("")}, "NaN"},
    };
    for (const auto& [format, arguments, message] : wrongArguments) {
        auto parsed = Predicate::parse(format, arguments);
        ASSERT_FALSE(parsed) << format;
        EXPECT_EQ(parsed.error().code, Errc::invalidArgument) << format;
        EXPECT_THAT(parsed.error().message, HasSubstr(message)) << format;
    }
}

TEST(PredicateLanguage, DeepNestingIsRefusedNotOverflowed) {
    for (const std::string& prefix : {std::string(5000, '('), std::string(5000, '!')}) {
        auto parsed = Predicate::parse(prefix + "a = 1");
        ASSERT_FALSE(parsed);
        EXPECT_THAT(parsed.error().message, HasSubstr("nested too deeply"));
    }
}

struct Printed {
    const char* format;
    std::vector<PredicateArgument> arguments;
    const char* text;
};

TEST(PredicateLanguage, PrintsCanonicalTextThatParsesBack) {
    const std::vector<Printed> cases = {
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
        {"n = 1.0 OR n = -2 OR n = 1e3 OR n = 99999999999999999999 OR n = 1e999",
         {},
         "n == 1.0 OR n == -2 OR n == 1000.0 OR n == 1e+20 OR n == 1e999"},
        {"n = %f", {3}, "n == 3.0"},
        {"d = %@ AND u = %@",
         {Date{1.5}, kValueID},
         "d == DATE(1.5) AND u == UUID(\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\")"},
        {"b = %@ AND o = %@",
         {Bytes{0x0a, 0xff}, ObjectID{2, -7}},
         "b == BYTES(\"0aff\") AND o == OBJECT(2, -7)"},
        {"title IN %@", {ScalarList{"a", {}, std::int64_t{3}}}, "title IN {\"a\", nil, 3}"},
        {"title IN {}", {}, "title IN {}"},
        {"count BETWEEN {%d, %d}", {1, true}, "count BETWEEN {1, true}"},
        {"TRUEPREDICATE", {}, "TRUEPREDICATE"},
        {"FalsePredicate OR tags.@count > 2", {}, "FALSEPREDICATE OR tags.@count > 2"},
        {"'%@' = title", {}, "\"%@\" == title"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        auto parsed = Predicate::parse(c.format, c.arguments);
        ASSERT_TRUE(parsed) << parsed.error().message;
        EXPECT_EQ(parsed->toString(), c.text);
        auto again = Predicate::parse(parsed->toString());
        ASSERT_TRUE(again) << again.error().message;
        EXPECT_EQ(again->toString(), c.text);
    }
}

TEST(PredicateLanguage, EmptyCompoundsMatchEverythingOrNothing) {
    const Model& model = testing::testModel();
    const auto task = testing::entityIndex("Task");
    struct Case {
        Predicate predicate;
        const char* text;
        const char* where;
    };
    const std::vector<Case> cases = {
        {andPredicate({}), "TRUEPREDICATE", "1"},
        {orPredicate({}), "FALSEPREDICATE", "0"},
        {notPredicate(orPredicate({})), "NOT FALSEPREDICATE", "(NOT 0)"},
        {andPredicate({orPredicate({})}), "FALSEPREDICATE", "0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.predicate.toString(), c.text);
        auto sql = compileToSql(c.predicate, model, task);
        ASSERT_TRUE(sql);
        EXPECT_EQ(sql->where, c.where);
        EXPECT_TRUE(sql->joins.empty());
    }
}

} // namespace
} // namespace tasket::objectstore
