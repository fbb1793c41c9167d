// The domain's listing and content rules (rules/predicates.h) as the store
// applies them: in memory on unsaved objects and in SQL on saved ones, alike.
#include "rules/predicates.h"
#include "store/record_invariants.h"
#include "store/records.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace tasket::store;
namespace predicates = tasket::rules::predicates;
using tasket::objectstore::Bytes;
using tasket::objectstore::FetchRequest;
using tasket::objectstore::ObjectContext;
using tasket::objectstore::ObjectID;
using tasket::objectstore::ObjectPtr;
using tasket::objectstore::Predicate;

namespace {

class Invariants : public tasket::testing::StoreFixture {
  protected:
    void SetUp() override {
        StoreFixture::SetUp();
        context = newContext();
    }
    // What the store selects (compiled to SQL: the reading context has no
    // unsaved changes).
    std::set<ObjectID> fetched(std::string_view entity, const Predicate& predicate) const {
        FetchRequest request{std::string(entity)};
        request.predicate = predicate;
        auto ids = newContext()->fetchObjectIDs(request);
        EXPECT_TRUE(ids) << ids.error().message;
        return ids ? std::set<ObjectID>(ids->begin(), ids->end()) : std::set<ObjectID>();
    }

    std::shared_ptr<ObjectContext> context;
};

} // namespace

TEST_F(Invariants, ValidTaskNeedsIdentifierAndACategoryWithIdentifierAndTitle) {
    struct Case {
        const char* name;
        std::optional<std::string> taskID;
        bool inCategory;
        std::optional<std::string> categoryID, title;
        bool valid;
    };
    const Case cases[] = {
        {"complete", "T", true, "C", "Home", true},
        {"no identifier", std::nullopt, true, "C", "Home", false},
        {"empty identifier", "", true, "C", "Home", false},
        {"no category", "T", false, std::nullopt, std::nullopt, false},
        {"category identifier empty", "T", true, "", "Home", false},
        {"category title empty", "T", true, "C", "", false},
        // nil is not the empty string: the rule as written lets these through
        {"category title nil", "T", true, "C", std::nullopt, true},
        {"category identifier nil", "T", true, std::nullopt, "Home", true},
    };
    std::set<ObjectID> valid;
    std::vector<std::shared_ptr<TK_Task>> tasks;
    for (const auto& c : cases) {
        auto task = TK_Task::insertNew(*context);
        task->setTaskID(c.taskID);
        if (c.inCategory) {
            auto list = TK_Category::insertNew(*context);
            list->setCategoryID(c.categoryID);
            list->setTitle(c.title);
            task->setCategory(list);
        }
        EXPECT_EQ(satisfies(*task, predicates::validTask()), c.valid) << c.name;
        tasks.push_back(task);
    }
    ASSERT_SAVED(context);
    for (std::size_t i = 0; i < tasks.size(); ++i)
        if (cases[i].valid)
            valid.insert(tasks[i]->objectID());
    // Invalid tasks are stored all the same; the store leaves them out.
    EXPECT_EQ(fetched(TK_Task::entityName, Predicate()).size(), std::size(cases));
    EXPECT_EQ(fetched(TK_Task::entityName, predicates::validTask()), valid);
}

TEST_F(Invariants, NotesLinkAndAttachmentsOfTasksAndSubtasks) {
    struct Case {
        const char* name;
        std::optional<std::string> note, url;
        std::optional<Bytes> blob;
        int attachmentObjects;
        bool notes, link, attachments;
    };
    const Case cases[] = {
        {"nothing", std::nullopt, std::nullopt, std::nullopt, 0, false, false, false},
        {"empty texts", "", "", std::nullopt, 0, false, false, false},
        {"texts", "n", "https://example.org", std::nullopt, 0, true, true, false},
        {"older blob only", std::nullopt, std::nullopt, Bytes{1, 2}, 0, false, false, true},
        {"empty blob is still a blob", std::nullopt, std::nullopt, Bytes{}, 0, false, false, true},
        {"attachment objects only", std::nullopt, std::nullopt, std::nullopt, 2, false, false,
         true},
        {"both", std::nullopt, std::nullopt, Bytes{1}, 1, false, false, true},
    };
    const std::pair<const Predicate*, bool Case::*> predicates[] = {
        {&predicates::hasNotes(), &Case::notes},
        {&predicates::hasLink(), &Case::link},
        {&predicates::hasAttachments(), &Case::attachments},
    };
    std::map<std::pair<std::string, const Predicate*>, std::set<ObjectID>> expected;
    std::vector<std::pair<const Case*, ObjectPtr>> items;
    for (const auto& c : cases) {
        auto task = TK_Task::insertNew(*context);
        auto subtask = TK_Subtask::insertNew(*context);
        task->setNote(c.note);
        task->setUrl(c.url);
        task->setAttachments(c.blob);
        subtask->setNote(c.note);
        subtask->setUrl(c.url);
        subtask->setAttachments(c.blob);
        for (int i = 0; i < c.attachmentObjects; ++i) {
            TK_Attachment::insertNew(*context)->setTask(task);
            TK_Attachment::insertNew(*context)->setSubtask(subtask);
        }
        items.emplace_back(&c, task);
        items.emplace_back(&c, subtask);
    }
    for (const auto& [c, item] : items) {
        SCOPED_TRACE(std::string(c->name) + " on " + item->entityDescription().name);
        for (const auto& [predicate, holds] : predicates)
            EXPECT_EQ(satisfies(*item, *predicate), c->*holds);
        EXPECT_EQ(satisfies(*item, predicates::hasNoAttachments()), !c->attachments);
    }
    ASSERT_SAVED(context);
    for (const auto& [c, item] : items) {
        for (const auto& [predicate, holds] : predicates)
            if (c->*holds)
                expected[{item->entityDescription().name, predicate}].insert(item->objectID());
        if (!c->attachments)
            expected[{item->entityDescription().name, &predicates::hasNoAttachments()}].insert(
                item->objectID());
    }
    for (const std::string_view entity : {TK_Task::entityName, TK_Subtask::entityName})
        for (const Predicate* predicate :
             {&predicates::hasNotes(), &predicates::hasLink(), &predicates::hasAttachments(),
              &predicates::hasNoAttachments()})
            EXPECT_EQ(fetched(entity, *predicate), (expected[{std::string(entity), predicate}]))
                << entity << " " << predicate->toString();
}

// nil is no identifier; the empty text is one.
TEST_F(Invariants, SubtaskIsListedByItsIdentifier) {
    auto subtask = TK_Subtask::insertNew(*context);
    EXPECT_FALSE(satisfies(*subtask, predicates::listedSubtask()));
    subtask->setSubtaskID("");
    EXPECT_TRUE(satisfies(*subtask, predicates::listedSubtask()));
    // A rule that names what the entity does not have is a programming error.
    EXPECT_THROW(satisfies(*subtask, predicates::parsed("categorySortIndex == 3")),
                 std::invalid_argument);
}
