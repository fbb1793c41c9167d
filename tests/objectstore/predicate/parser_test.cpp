// The language itself: every predicate string the product uses parses,
// binds to a model shaped like the task store and compiles to SQL that
// SQLite accepts; malformed text and wrong arguments fail with the offset;
// printing gives text that parses back to the same predicate.
#include "object_graph.h"
#include "objectstore/predicate/bound_predicate.h"
#include "objectstore/predicate/predicate.h"
#include "objectstore/predicate/sql_compiler.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tasket::objectstore {
namespace {

using platform::Errc;
using ::testing::HasSubstr;

// The store's task-facing entities, with the properties the predicates use.
const Model& taskModel() {
    static const Model model = [] {
        using T = AttributeType;
        Model m("Tasks", 1);
        auto attribute = [](EntityDescription& e, const char* name, T type) {
            e.attributes.push_back(AttributeDescription{name, type, true, {}, false});
        };
        auto relationship = [](EntityDescription& e, const char* name, const char* dest,
                               const char* inverse, bool toMany) {
            RelationshipDescription r;
            r.name = name;
            r.destination = dest;
            r.inverse = inverse;
            r.toMany = toMany;
            e.relationships.push_back(r);
        };
        auto& task = m.addEntity("TK_Task");
        for (const char* name : {"taskID", "title", "note", "url"})
            attribute(task, name, T::String);
        for (const char* name :
             {"isCompleted", "isStartDateRemindEnabled", "isRemindEnabled", "isPinned"})
            attribute(task, name, T::Bool);
        for (const char* name : {"startDate", "startDateAndTime", "dueDate", "dueDateAndTime"})
            attribute(task, name, T::Date);
        attribute(task, "attachments", T::Binary);
        attribute(task, "calendarType", T::Int16);
        relationship(task, "category", "TK_Category", "tasks", false);
        relationship(task, "customPriority", "TK_Priority", "tasks", false);
        relationship(task, "customStatus", "TK_Status", "tasks", false);
        relationship(task, "tags", "TK_Tag", "tasks", true);
        relationship(task, "values", "TK_AttributeValue", "tasks", true);
        relationship(task, "subtasks", "TK_Subtask", "task", true);
        relationship(task, "attachmentsArray", "TK_Attachment", "task", true);

        auto& category = m.addEntity("TK_Category");
        attribute(category, "categoryID", T::String);
        attribute(category, "title", T::String);
        attribute(category, "isArchived", T::Bool);
        attribute(category, "calendarType", T::Int16);
        relationship(category, "tasks", "TK_Task", "category", true);
        for (auto [entity, id] :
             {std::pair{"TK_Priority", "priorityID"}, {"TK_Status", "statusID"}}) {
            auto& e = m.addEntity(entity);
            attribute(e, id, T::String);
            relationship(e, "tasks", "TK_Task",
                         entity == std::string("TK_Priority") ? "customPriority" : "customStatus",
                         true);
        }
        auto& tag = m.addEntity("TK_Tag");
        attribute(tag, "tagID", T::String);
        relationship(tag, "tasks", "TK_Task", "tags", true);
        auto& value = m.addEntity("TK_AttributeValue");
        attribute(value, "identifier", T::UUID);
        relationship(value, "tasks", "TK_Task", "values", true);
        relationship(value, "attribute", "TK_Attribute", "values", false);
        auto& attr = m.addEntity("TK_Attribute");
        attribute(attr, "identifier", T::UUID);
        relationship(attr, "values", "TK_AttributeValue", "attribute", true);
        auto& subtask = m.addEntity("TK_Subtask");
        attribute(subtask, "subtaskID", T::String);
        attribute(subtask, "isStartDateRemindEnabled", T::Bool);
        attribute(subtask, "isRemindEnabled", T::Bool);
        attribute(subtask, "startDate", T::Date);
        attribute(subtask, "dueDate", T::Date);
        relationship(subtask, "task", "TK_Task", "subtasks", false);
        auto& attachment = m.addEntity("TK_Attachment");
        attribute(attachment, "identifier", T::String);
        relationship(attachment, "task", "TK_Task", "attachmentsArray", false);
        for (const char* entity : {"TK_Folder", "TK_SmartCategory", "TK_BoardSection"})
            attribute(m.addEntity(entity), "identifier", T::String);
        if (!m.finalize())
            throw std::logic_error("task model");
        return m;
    }();
    return model;
}

struct UsedPredicate {
    const char* entity;
    const char* format;
    std::vector<PredicateArgument> arguments;
};

const Date kDay{800'000'000};
const Uuid kValueID = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

std::vector<UsedPredicate> usedPredicates() {
    const std::vector<std::string> ids = {"A1", "B2"};
    return {
        {"TK_Folder", "identifier != nil", {}},
        {"TK_SmartCategory", "identifier != nil", {}},
        {"TK_Category", "categoryID != nil", {}},
        {"TK_Tag", "tagID != nil", {}},
        {"TK_Priority", "priorityID != nil", {}},
        {"TK_Status", "statusID != nil", {}},
        {"TK_Attribute", "identifier != nil", {}},
        {"TK_AttributeValue", "attribute != nil", {}},
        {"TK_BoardSection", "identifier != nil", {}},
        {"TK_Task",
         "taskID != nil AND taskID != '' AND category != nil AND category.categoryID != '' AND "
         "category.title != ''",
         {}},
        {"TK_Subtask", "subtaskID != nil", {}},
        {"TK_Attachment", "identifier != nil", {}},
        {"TK_Task", "title CONTAINS[c] %@", {"straße"}},
        {"TK_Category", "title CONTAINS[c] %@", {"Home"}},
        {"TK_Task", "isCompleted = %d", {true}},
        {"TK_Task", "isCompleted = %d", {false}},
        {"TK_Task", "note != nil AND note != ''", {}},
        {"TK_Task", "note = nil OR note = ''", {}},
        {"TK_Task", "url != nil AND url != ''", {}},
        {"TK_Task", "url = nil OR url = ''", {}},
        {"TK_Task", "isStartDateRemindEnabled = %d", {false}},
        {"TK_Task", "startDate BETWEEN {%@, %@}", {kDay, kDay.addingSeconds(86400)}},
        {"TK_Task", "startDate = %@", {kDay}},
        {"TK_Task", "startDateAndTime < %@", {kDay}},
        {"TK_Task", "startDateAndTime > %@", {kDay}},
        {"TK_Task", "isRemindEnabled = %d", {true}},
        {"TK_Task", "dueDate BETWEEN {%@, %@}", {kDay, kDay}},
        {"TK_Task", "dueDate = %@", {kDay}},
        {"TK_Task", "dueDateAndTime < %@", {kDay}},
        {"TK_Task", "dueDateAndTime > %@", {kDay}},
        {"TK_Task", "category != nil", {}},
        {"TK_Task", "category.categoryID IN %@", {ids}},
        {"TK_Task", "ANY subtasks != nil", {}},
        {"TK_Task", "ANY subtasks = nil", {}},
        {"TK_Task", "ANY tags = nil", {}},
        {"TK_Task", "ANY tags != nil", {}},
        {"TK_Task", "ANY tags.tagID IN %@", {ids}},
        {"TK_Task", "ANY tags.tagID IN %@", {std::vector<std::string>{"A1"}}},
        {"TK_Task", "customPriority = nil", {}},
        {"TK_Task", "customPriority != nil", {}},
        {"TK_Task", "customPriority.priorityID IN %@", {ids}},
        {"TK_Task", "customStatus = nil", {}},
        {"TK_Task", "customStatus != nil", {}},
        {"TK_Task", "customStatus.statusID IN %@", {ids}},
        {"TK_Task", "ANY values = nil", {}},
        {"TK_Task", "ANY values != nil", {}},
        {"TK_Task", "ANY values.identifier IN %@", {std::vector<Uuid>{kValueID}}},
        {"TK_Task", "ANY values.identifier IN %@", {ScalarList{}}},
        {"TK_Task", "isPinned = %d", {true}},
        {"TK_Task", "attachments != nil OR ANY attachmentsArray != nil", {}},
        {"TK_Task", "attachments = nil AND ANY attachmentsArray = nil", {}},
        {"TK_Task", "isStartDateRemindEnabled = true OR isRemindEnabled = true", {}},
        {"TK_Task", "ANY tags != nil", {}},
        {"TK_Task", "isPinned = true", {}},
        {"TK_Task", "category.categoryID = %@", {"A1"}},
        {"TK_Task", "customPriority.priorityID = %@", {"A1"}},
        {"TK_Task", "customStatus.statusID = %@", {"A1"}},
        {"TK_Task", "category.isArchived = false", {}},
        {"TK_Task",
         "(isStartDateRemindEnabled = true OR isRemindEnabled = true) AND startDate <= dueDate",
         {}},
        {"TK_Subtask",
         "(isStartDateRemindEnabled = true OR isRemindEnabled = true) AND startDate <= dueDate",
         {}},
        {"TK_Task", "calendarType = %d", {2}},
        {"TK_Category", "calendarType = %d", {1}},
        {"TK_AttributeValue", "identifier IN %@", {std::vector<Uuid>{kValueID}}},
        {"TK_Attribute", "identifier IN %@", {std::vector<std::string>{kValueID.toString()}}},
    };
}

TEST(PredicateLanguage, EveryPredicateTheProductUsesParsesBindsAndRuns) {
    const Model& model = taskModel();
    testing::ObjectGraph empty(model);
    tasket::testing::TempDir dir;
    testing::SqlMirror mirror(empty, dir / "tasks.sqlite");
    for (const auto& used : usedPredicates()) {
        SCOPED_TRACE(used.format);
        auto parsed = Predicate::parse(used.format, used.arguments);
        ASSERT_TRUE(parsed) << parsed.error().message;
        auto reparsed = Predicate::parse(parsed->toString());
        ASSERT_TRUE(reparsed) << parsed->toString() << ": " << reparsed.error().message;
        EXPECT_EQ(reparsed->toString(), parsed->toString());
        auto sql = compileToSql(*parsed, model, model.entity(used.entity)->index);
        ASSERT_TRUE(sql) << sql.error().message;
        EXPECT_NO_THROW(mirror.select(model.entity(used.entity)->index, *sql));
    }
}

struct BadInput {
    const char* format;
    std::vector<PredicateArgument> arguments;
    Errc code;
    const char* message; // a part of the message, naming the offset
};

TEST(PredicateLanguage, MalformedTextAndWrongArgumentsNameTheOffset) {
    const std::vector<BadInput> cases = {
        {"",
         {},
         Errc::parseError,
         "expected a key path or a value, found the end of the predicate at offset 0"},
        {"title ==", {}, Errc::parseError, "found the end of the predicate at offset 8"},
        {"title = 'abc", {}, Errc::parseError, "unterminated string starting at offset 8"},
        {"(title = 'a'", {}, Errc::parseError, "expected ')' to close the '(' at offset 0"},
        {"title CONTAINZ 'a'", {}, Errc::parseError, "expected a comparison operator"},
        {"title CONTAINZ 'a'", {}, Errc::parseError, "found 'CONTAINZ' at offset 6"},
        {"title = 'a' AND", {}, Errc::parseError, "at offset 15"},
        {"title = 'a' garbage",
         {},
         Errc::parseError,
         "expected AND, OR or the end of the predicate, found 'garbage' at offset 12"},
        {"title ~ 'a'", {}, Errc::parseError, "unexpected '~' at offset 6"},
        {"title =[x] 'a'", {}, Errc::parseError, "unknown comparison option 'x' at offset 8"},
        {"title =[] 'a'", {}, Errc::parseError, "empty comparison options at offset 7"},
        {"tags.@sum > 1", {}, Errc::parseError, "unsupported key path operator '@sum'"},
        {"tags.@count.x > 1", {}, Errc::parseError, "@count must end its key path at offset 11"},
        {"1abc = 2", {}, Errc::parseError, "malformed number at offset 0"},
        {"due = DATE('x')", {}, Errc::parseError, "expected seconds since the reference date"},
        {"ident = UUID('x')", {}, Errc::parseError, "malformed UUID at offset 13"},
        {"title = NOW()", {}, Errc::parseError, "unknown constant type 'NOW'"},
        {"title IN {1, title}",
         {},
         Errc::parseError,
         "expected a constant inside '{...}' at offset 13"},
        {"title = %x", {}, Errc::parseError, "unsupported format specifier at offset 8"},
        {"title = AND",
         {},
         Errc::parseError,
         "expected a key path or a value, found 'AND' at offset 8"},
        {"title = %@",
         {},
         Errc::invalidArgument,
         "too few arguments: %@ has no argument at offset 8"},
        {"title = %@",
         {"a", "b"},
         Errc::invalidArgument,
         "too many arguments: 2 given, the predicate uses 1"},
        {"count = %d",
         {"a"},
         Errc::invalidArgument,
         "argument for %d must be an integer or a bool at offset 8"},
        {"score = %f",
         {"a"},
         Errc::invalidArgument,
         "argument for %f must be a number at offset 8"},
        {"%K = 1", {"a b"}, Errc::invalidArgument, "argument for %K is not a key path"},
        {"%K = 1",
         {3},
         Errc::invalidArgument,
         "argument for %K must be a key path text at offset 0"},
        {"score = %@", {std::nan("")}, Errc::invalidArgument, "NaN"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        auto parsed = Predicate::parse(c.format, c.arguments);
        ASSERT_FALSE(parsed);
        EXPECT_EQ(parsed.error().code, c.code);
        EXPECT_THAT(parsed.error().message, HasSubstr(c.message));
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
