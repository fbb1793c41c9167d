// The tasks a smart list, a quick filter and a list's membership select, on
// one small store in Berlin's calendar at 23:30 on the day before clocks go
// forward: the same answers from the compiled SQL (a fresh context's fetch)
// and from the in-memory evaluator (the saved objects themselves).
#include "objectstore/predicate/evaluator.h"
#include "rules/smart_predicate.h"
#include "store/smart_filters.h"
#include "store/tk_data_model.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace tasket::store;
using namespace tasket::rules;
using tasket::objectstore::BoundPredicate;
using tasket::objectstore::FetchRequest;
using tasket::objectstore::ObjectID;
using tasket::objectstore::Predicate;
using tasket::platform::Calendar;
using tasket::platform::Date;
using tasket::platform::Uuid;
using Names = std::set<std::string>;

namespace {

const Calendar kBerlin = Calendar::inZone("Europe/Berlin").value();
Date at(int day, int hour = 0, int minute = 0) {
    return kBerlin.date({.year = 2026, .month = 3, .day = day, .hour = hour, .minute = minute});
}
// 29 March 2026 is 23 hours long: adding 24 hours to now lands on the 30th.
const PredicateTime kTime{at(28, 23, 30), kBerlin};

const Names kAll{"due 09:00",     "due 23:59",    "due tomorrow",
                 "due yesterday", "starts today", "loose"};
Names allBut(Names removed) {
    Names out;
    for (const auto& name : kAll)
        if (!removed.contains(name))
            out.insert(name);
    return out;
}

class SmartFilters : public tasket::testing::StoreFixture {
  protected:
    void SetUp() override {
        StoreFixture::SetUp();
        context = newContext();
        auto work = list("Work"), home = list("Home");
        auto tagA = TK_Tag::insertNew(*context), tagB = TK_Tag::insertNew(*context);
        tagA->setTagID("TAG-A");
        tagB->setTagID("TAG-B");
        auto priority = TK_Priority::insertNew(*context);
        priority->setPriorityID("PRIORITY");
        auto status = TK_Status::insertNew(*context);
        status->setStatusID("STATUS");
        auto value = TK_AttributeValue::insertNew(*context);
        value->setIdentifier(valueID);

        auto t = task("due 09:00", work, at(28), at(28, 9));
        t->setNote("x");
        t->addToTags(tagA);
        t = task("due 23:59", home, at(28), at(28, 23, 59));
        t->setUrl("https://example.com");
        t->setIsPinned(true);
        t->addToTags(tagA);
        t->addToTags(tagB);
        t = task("due tomorrow", work, at(29), at(29));
        t->setIsCompleted(true);
        t->setCustomPriority(priority);
        t = task("due yesterday", home, at(27), at(27, 12));
        t->setNote("");
        t->setUrl("");
        t->setCustomStatus(status);
        t = task("starts today", work, {}, {});
        t->setIsStartDateRemindEnabled(true);
        t->setStartDate(at(28));
        t->setStartDateAndTime(at(28, 10));
        t->setAttachments(tasket::objectstore::Bytes{1});
        TK_Subtask::insertNew(*context)->setTask(t);
        t = task("loose", nullptr, {}, {});
        TK_Attachment::insertNew(*context)->setTask(t);
        t->addToValues(value);

        smart = TK_SmartCategory::insertNew(*context);
        smart->setCompletedFilter(TK_CompletedFilter::no);
        smart->setTagFilter(TK_TagFilter::yes);
        smart->addToFilterTags(tagB);
        ASSERT_SAVED(context);
    }

    std::shared_ptr<TK_Category> list(const std::string& id) {
        auto category = TK_Category::insertNew(*context);
        category->setCategoryID(id);
        return category;
    }
    std::shared_ptr<TK_Task> task(const std::string& title, const std::shared_ptr<TK_Category>& in,
                                  std::optional<Date> dueDay, std::optional<Date> due) {
        auto t = TK_Task::insertNew(*context);
        t->setTitle(title);
        t->setCategory(in);
        t->setIsRemindEnabled(due.has_value());
        t->setDueDate(dueDay);
        t->setDueDateAndTime(due);
        tasks.push_back(t);
        return t;
    }

    // The titles `predicate` selects in SQL and in memory.
    std::pair<Names, Names> selected(const Predicate& predicate) {
        FetchRequest request{"TK_Task"};
        request.predicate = predicate;
        auto ids = newContext()->fetchObjectIDs(request);
        EXPECT_TRUE(ids) << ids.error().message;
        const std::set<ObjectID> stored(ids->begin(), ids->end());
        const auto& model = *tkDataModel();
        auto bound = BoundPredicate::bind(predicate, model, model.entity("TK_Task")->index);
        EXPECT_TRUE(bound) << bound.error().message;
        Names sql, memory;
        for (const auto& t : tasks) {
            if (stored.contains(t->objectID()))
                sql.insert(*t->title());
            if (tasket::objectstore::evaluate(*bound, *t))
                memory.insert(*t->title());
        }
        return {sql, memory};
    }

    std::shared_ptr<tasket::objectstore::ObjectContext> context;
    std::vector<std::shared_ptr<TK_Task>> tasks;
    std::shared_ptr<TK_SmartCategory> smart;
    const Uuid valueID = Uuid::generate();
};

SmartFilterValues due(TK_ReminderFilter filter, std::optional<TK_RelativeDate> relative = {},
                      std::optional<Date> from = {}, std::optional<Date> to = {}) {
    return {.reminderFilter = filter,
            .reminderFromDate = from,
            .reminderToDate = to,
            .reminderRelativeDate = relative};
}

} // namespace

TEST_F(SmartFilters, BothEvaluatorsSelectWhatEachFilterMeans) {
    using enum TK_ReminderFilter;
    using R = TK_RelativeDate;
    using Q = TK_TasksFilter;
    const auto smartOf = [](const SmartFilterValues& v) { return smartPredicate(v, kTime); };
    const auto quick = [](Q filter, std::vector<SmartFilterValues> custom = {}) {
        return quickFilterPredicate(filter, custom, kTime).value();
    };
    const Names today{"due 09:00", "due 23:59"};
    struct Case {
        std::string name;
        Predicate predicate;
        Names expected;
    };
    const std::vector<Case> cases = {
        {"every filter off", smartOf({}), kAll},
        {"completed", smartOf({.completedFilter = TK_CompletedFilter::yes}), {"due tomorrow"}},
        {"not completed", smartOf({.completedFilter = TK_CompletedFilter::no}),
         allBut({"due tomorrow"})},
        {"notes", smartOf({.notesFilter = TK_NotesFilter::yes}), {"due 09:00"}},
        {"no notes: nil or empty", smartOf({.notesFilter = TK_NotesFilter::no}),
         allBut({"due 09:00"})},
        {"link", smartOf({.urlFilter = TK_URLFilter::yes}), {"due 23:59"}},
        {"no link", smartOf({.urlFilter = TK_URLFilter::no}), allBut({"due 23:59"})},
        // Day-only equality: 23:59 today is today, 00:00 tomorrow is not.
        {"due today", smartOf(due(relative, R::today)), today},
        {"relative none is today", smartOf(due(relative, R::none)), today},
        {"relative custom is today", smartOf(due(relative, R::custom)), today},
        {"due tomorrow across the clock change",
         smartOf(due(relative, R::tomorrow)),
         {"due tomorrow"}},
        {"due yesterday", smartOf(due(relative, R::yesterday)), {"due yesterday"}},
        // The full moment: earlier today is overdue and not upcoming.
        {"overdue", smartOf(due(overdue)), {"due 09:00", "due yesterday"}},
        {"upcoming", smartOf(due(upcoming)), {"due 23:59", "due tomorrow"}},
        {"no due reminder", smartOf(due(no)), {"starts today", "loose"}},
        {"range without ends is today", smartOf(due(range)), today},
        {"range of whole days",
         smartOf(due(range, {}, at(27, 18), at(28, 1))),
         {"due yesterday", "due 09:00", "due 23:59"}},
        {"range from after to", smartOf(due(range, {}, at(29), at(27))), {}},
        {"start today",
         smartOf({.startDateFilter = relative, .startDateRelativeDate = R::today}),
         {"starts today"}},
        {"start overdue", smartOf({.startDateFilter = overdue}), {"starts today"}},
        {"start range", smartOf({.startDateFilter = range, .startDateFromDate = at(29)}), {}},
        {"in any list", smartOf({.categoryFilter = TK_CategoryFilter::yes}), allBut({"loose"})},
        {"in chosen lists",
         smartOf({.categoryFilter = TK_CategoryFilter::yes, .filterCategoryIDs = {"Home"}}),
         {"due 23:59", "due yesterday"}},
        {"subtasks", smartOf({.subtaskFilter = TK_SubtaskFilter::yes}), {"starts today"}},
        {"no subtasks", smartOf({.subtaskFilter = TK_SubtaskFilter::no}), allBut({"starts today"})},
        {"tags", smartOf({.tagFilter = TK_TagFilter::yes}), today},
        {"chosen tags",
         smartOf({.tagFilter = TK_TagFilter::yes, .filterTagIDs = {"TAG-B", "X"}}),
         {"due 23:59"}},
        {"no tags", smartOf({.tagFilter = TK_TagFilter::no}), allBut(today)},
        {"priority", smartOf({.priorityFilter = TK_PriorityFilter::yes}), {"due tomorrow"}},
        {"no priority", smartOf({.priorityFilter = TK_PriorityFilter::no}),
         allBut({"due tomorrow"})},
        {"chosen status",
         smartOf({.statusFilter = TK_StatusFilter::yes, .filterStatusIDs = {"STATUS"}}),
         {"due yesterday"}},
        {"chosen values",
         smartOf({.valueFilter = TK_ValueFilter::yes, .filterValueIDs = {valueID}}),
         {"loose"}},
        {"no values", smartOf({.valueFilter = TK_ValueFilter::no}), allBut({"loose"})},
        {"pinned", smartOf({.pinFilter = TK_PinFilter::yes}), {"due 23:59"}},
        // The blob alone or attachment objects alone both count.
        {"attachments",
         smartOf({.attachmentsFilter = TK_AttachmentsSmartFilter::yes}),
         {"starts today", "loose"}},
        {"no attachments", smartOf({.attachmentsFilter = TK_AttachmentsSmartFilter::no}),
         allBut({"starts today", "loose"})},
        {"dimensions are ANDed",
         smartOf({.completedFilter = TK_CompletedFilter::no,
                  .notesFilter = TK_NotesFilter::no,
                  .reminderFilter = overdue,
                  .tagFilter = TK_TagFilter::no}),
         {"due yesterday"}},
        {"a smart list in the store", smartPredicate(*smart, kTime), {"due 23:59"}},
        {"quick: with reminder", quick(Q::withReminder), allBut({"loose"})},
        {"quick: with tags", quick(Q::withTags), today},
        {"quick: with subtasks", quick(Q::withSubtasks), {"starts today"}},
        {"quick: with status", quick(Q::withStatus), {"due yesterday"}},
        {"quick: pinned", quick(Q::pinned), {"due 23:59"}},
        {"quick: custom without filters", quick(Q::custom), kAll},
        {"quick: custom ANDs its filters",
         quick(Q::custom, {due(relative, R::today), {.urlFilter = TK_URLFilter::no}}),
         {"due 09:00"}},
        {"member of a list",
         categoryMembership("Work"),
         {"due 09:00", "due tomorrow", "starts today"}},
        {"member of a tag", tagMembership("TAG-A"), today},
        {"member of a priority", priorityMembership("PRIORITY"), {"due tomorrow"}},
        {"member of a status", statusMembership("STATUS"), {"due yesterday"}},
        {"member of a value", valueMembership(valueID), {"loose"}},
        {"member of a value without identifier", valueMembership(std::nullopt), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name + ": " + c.predicate.toString());
        const auto [sql, memory] = selected(c.predicate);
        EXPECT_EQ(sql, c.expected);
        EXPECT_EQ(memory, c.expected);
    }
    EXPECT_FALSE(quickFilterPredicate(Q::all, {}, kTime));
    EXPECT_FALSE(quickFilterPredicate(std::nullopt, {}, kTime));
}
