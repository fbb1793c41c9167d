#include "objectstore/predicate/sql_compiler.h"
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "store/local_data_fetch_manager.h"
#include "store/lookup.h"
#include "store/tk_data_model.h"
#include "support/sql.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

using namespace tasket::store;
using tasket::objectstore::ChangeSet;
using tasket::objectstore::kContextDidSaveNotification;
using tasket::objectstore::ObjectContext;
using tasket::objectstore::ObjectPtr;
using tasket::objectstore::Value;
using tasket::platform::Date;
using tasket::platform::InMemoryPreferencesSuite;
using tasket::platform::MainQueue;
using tasket::platform::NotificationCenter;
using tasket::platform::PreferenceValue;
using tasket::platform::Subscription;
using tasket::platform::Uuid;
using tasket::settings::CustomizationManager;
using tasket::settings::FocusManager;
using Kind = CollectionKind;
using Order = TK_ObjectsSortOrder;
using Direction = TK_ObjectsSortOrderDirection;
namespace keys = tasket::settings::keys;

namespace {

// Calls `f` with the published collection of `kind`.
template <class F> auto visit(const LocalDataFetchManager& m, Kind kind, F&& f) {
    switch (kind) {
    case Kind::folders: return f(m.folders());
    case Kind::smartCategories: return f(m.smartCategories());
    case Kind::categories: return f(m.categories());
    case Kind::tags: return f(m.tags());
    case Kind::priorities: return f(m.priorities());
    case Kind::statuses: return f(m.statuses());
    case Kind::attributes: return f(m.attributes());
    case Kind::values: return f(m.values());
    case Kind::sections: return f(m.sections());
    case Kind::tasks: return f(m.tasks());
    case Kind::subtasks: return f(m.subtasks());
    case Kind::attachments: return f(m.attachments());
    }
    throw std::invalid_argument("not a collection");
}

std::vector<std::string> titlesOf(const LocalDataFetchManager& m, Kind kind) {
    return visit(m, kind, [](const auto& published) {
        std::vector<std::string> out;
        for (const auto& record : published.value())
            out.push_back(record->title().value_or("<nil>"));
        return out;
    });
}

std::string kindName(Kind kind) {
    static const char* const names[] = {
        "folders",    "smartCategories", "categories", "tags",  "priorities", "statuses",
        "attributes", "values",          "sections",   "tasks", "subtasks",   "attachments"};
    return names[static_cast<std::size_t>(kind)];
}

// ---- Records, with what the collections read -----------------------------------------

// A record of `entity` with an identifier, a title, a creation date and
// (tasks have none) a sort index, under the names that entity gives them.
ObjectPtr insert(ObjectContext& c, std::string_view entity, const std::string& title,
                 double created = 0, std::int16_t sortIndex = 0) {
    static const std::map<std::string_view, std::pair<const char*, const char*>> keys = {
        {"TK_Folder", {"identifier", "creationDate"}},
        {"TK_SmartCategory", {"identifier", "creationDate"}},
        {"TK_Category", {"categoryID", "whenCreated"}},
        {"TK_Tag", {"tagID", "whenCreated"}},
        {"TK_Priority", {"priorityID", "whenCreated"}},
        {"TK_Status", {"statusID", "whenCreated"}},
        {"TK_Attribute", {"identifier", "whenCreated"}},
        {"TK_AttributeValue", {"identifier", "whenCreated"}},
        {"TK_Task", {"taskID", "whenCreated"}},
        {"TK_Subtask", {"subtaskID", "whenCreated"}}};
    const auto [idKey, createdKey] = keys.at(entity);
    auto o = c.insertNewObject(entity);
    o->setValue(idKey, entity.starts_with("TK_Attribute") ? Value(Uuid::generate())
                                                          : Value(Uuid::generate().toString()));
    o->setValue("title", title);
    o->setValue(createdKey, Date{created});
    if (entity != "TK_Task")
        o->setValue("sortIndex", std::int64_t{sortIndex});
    return o;
}

template <class Record> std::shared_ptr<Record> as(ObjectPtr o) {
    return std::static_pointer_cast<Record>(std::move(o));
}

template <class Record>
std::shared_ptr<Record> make(ObjectContext& c, const std::string& title, double created = 0) {
    return as<Record>(insert(c, Record::entityName, title, created));
}

std::shared_ptr<TK_Task> task(ObjectContext& c, const std::string& title,
                              const std::shared_ptr<TK_Category>& list, double created = 0) {
    auto o = make<TK_Task>(c, title, created);
    o->setCategory(list);
    return o;
}

std::shared_ptr<TK_Subtask> subtask(ObjectContext& c, const std::string& title,
                                    const std::shared_ptr<TK_Task>& parent, double created = 0) {
    auto o = make<TK_Subtask>(c, title, created);
    o->setTask(parent);
    return o;
}

std::shared_ptr<TK_AttributeValue> value(ObjectContext& c, const std::string& title,
                                         const std::shared_ptr<TK_Attribute>& owner,
                                         double created = 0) {
    auto o = make<TK_AttributeValue>(c, title, created);
    o->setAttribute(owner);
    return o;
}

// ---- The fixture ---------------------------------------------------------------------

class LocalDataFetchManagerTest : public ::testing::Test {
  protected:
    void TearDown() override { MainQueue::shared().pump(); }

    ObjectContext& view() { return *data->viewContext(); }
    void save() {
        auto saved = view().save();
        ASSERT_TRUE(saved) << saved.error().message;
    }
    std::unique_ptr<LocalDataFetchManager> start() {
        auto made = LocalDataFetchManager::make(data, customization, focus);
        EXPECT_TRUE(made) << made.error().message;
        MainQueue::shared().pump();
        return made ? std::move(*made) : nullptr;
    }

    tasket::testing::TempDir dir;
    std::shared_ptr<LocalDataManager> data = LocalDataManager::make(dir.path());
    std::shared_ptr<InMemoryPreferencesSuite> group =
        std::make_shared<InMemoryPreferencesSuite>(std::string(keys::kAppGroupSuite));
    std::shared_ptr<CustomizationManager> customization = std::make_shared<CustomizationManager>(
        group, std::make_shared<InMemoryPreferencesSuite>(std::string(keys::kStandardSuite)));
    std::shared_ptr<FocusManager> focus = std::make_shared<FocusManager>();
};

} // namespace

// ---- What each collection keeps ------------------------------------------------------
// (Which records each collection admits is the rules' own test; the merged
// saves below show the collections apply them.)

// A manager keeping only the lists never fetches the rest, even when a
// search, sort or merge would rebuild them, yet still writes sort settings.
TEST_F(LocalDataFetchManagerTest, KeepsOnlyTheCollectionsAskedFor) {
    auto inbox = make<TK_Category>(view(), "Inbox");
    task(view(), "in the inbox", inbox);
    save();
    auto made = LocalDataFetchManager::make(data, customization, focus,
                                            collectionKinds({Kind::categories}));
    ASSERT_TRUE(made) << made.error().message;
    auto& manager = **made;
    EXPECT_TRUE(manager.isKept(Kind::categories));
    EXPECT_FALSE(manager.isKept(Kind::tasks));
    EXPECT_EQ(titlesOf(manager, Kind::categories), std::vector<std::string>{"Inbox"});
    ASSERT_TRUE(manager.setTasksSearchText("inbox"));
    ASSERT_TRUE(manager.setSortOrder(Kind::tags, Order::alphabetical));
    task(view(), "another", inbox);
    save();
    MainQueue::shared().pump();
    EXPECT_TRUE(manager.tasks().value().empty());
    EXPECT_THROW((void)manager.controller(Kind::tasks), std::logic_error);
    EXPECT_EQ(manager.sortOrder(Kind::tags).value(), Order::alphabetical);
    EXPECT_EQ(group->integerValue(keys::kTagsSortOrder),
              static_cast<std::int64_t>(Order::alphabetical));
}

TEST_F(LocalDataFetchManagerTest, CollectionsLoadRowsOnlyWhenReached) {
    auto inbox = make<TK_Category>(view(), "Inbox");
    for (int i = 0; i < 50; ++i)
        task(view(), "task " + std::to_string(i), inbox, i);
    save();
    view().reset();
    auto manager = start();
    const auto tasks = manager->tasks().value();
    ASSERT_EQ(tasks.size(), 50u);
    EXPECT_EQ(tasks.loadedBatches(), 0u);
    EXPECT_EQ(tasks.at(10)->title(), "task 39"); // newest first
    EXPECT_EQ(tasks.loadedBatches(), 1u);
    EXPECT_THROW((void)tasks.at(50), std::out_of_range);
}

// The offered lists are asked of the store, rows unread, and are the ones
// isOfferedCategory takes, saved or not, in the collection's order.
TEST_F(LocalDataFetchManagerTest, OfferedListsAreAskedOfTheStoreWithoutReadingTheirRows) {
    const auto list = [&](const std::string& title, const std::function<void(TK_Category&)>& edit) {
        auto made = make<TK_Category>(view(), title);
        edit(*made);
        return made;
    };
    const auto none = [](TK_Category&) {};
    list("kept", none);
    list("archived", [](TK_Category& c) { c.setIsArchived(true); });
    list("", none);
    list("no identifier", [](TK_Category& c) { c.setCategoryID(std::string()); });
    auto renamed = list("renamed unsaved", none);
    auto archived = list("archived unsaved", none);
    save();
    renamed->setTitle(std::string());
    archived->setIsArchived(true);
    list("new unsaved", none);
    auto manager = start();
    const auto lists = manager->categories().value();
    const auto offered = offeredCategories(lists);
    EXPECT_EQ(lists.loadedBatches(), 0u);
    std::vector<std::string> titles, expected;
    for (const auto& category : offered)
        titles.push_back(category->title().value_or("<nil>"));
    for (const auto& category : lists)
        if (isOfferedCategory(*category))
            expected.push_back(category->title().value_or("<nil>"));
    EXPECT_EQ(titles, expected);
    std::ranges::sort(titles);
    EXPECT_EQ(titles, (std::vector<std::string>{"kept", "new unsaved"}));
}

namespace {

// What SQLite plans for the ordered fetch of `kind`'s controller, written as
// the context writes it.
std::string queryPlan(const LocalDataFetchManager& manager, Kind kind,
                      const std::filesystem::path& file) {
    namespace os = tasket::objectstore;
    const auto& request = manager.controller(kind).fetchRequest();
    const auto& model = *tkDataModel();
    const auto entity = model.entity(request.entityName)->index;
    const auto where = os::compileToSql(*request.predicate, model, entity);
    const auto order = os::compileSort(request.sortDescriptors, model, entity);
    EXPECT_TRUE(where && order);
    const std::string sql = "EXPLAIN QUERY PLAN SELECT t0.pk FROM \"" + request.entityName +
                            "\" AS t0 " + where->joins + " " + order->joins + " WHERE " +
                            where->where + " ORDER BY " + order->orderBy;
    std::string plan;
    for (const auto& step : tasket::testing::sqlRows(file, sql, 3))
        plan += step + "\n";
    return plan;
}

} // namespace

// The large collections start newest first; their fetch must read an index
// in order (no sorting) that carries what their filter reads (no row lookups).
TEST_F(LocalDataFetchManagerTest, LargeCollectionsReadTheirSortIndexInOrder) {
    auto manager = start();
    for (const Kind kind : {Kind::tasks, Kind::subtasks, Kind::attachments, Kind::sections}) {
        const std::string plan = queryPlan(*manager, kind, data->storeURL());
        EXPECT_NE(plan.find("USING COVERING INDEX _s_"), std::string::npos) << plan;
        EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;
    }
}

// ---- Sort settings ----------------------------------------------------------------------

// (That each kind reads its own keys is the golden test's.)
TEST_F(LocalDataFetchManagerTest, UnusableStoredSortSettingsReadAsTheDefaults) {
    const std::vector<std::pair<const char*, PreferenceValue>> cases = {
        {"a code that is no case", std::int64_t{2}},
        {"a negative code", std::int64_t{-1}},
        {"a text", "descending"},
        {"a double", 1.0},
    };
    for (const auto& [name, stored] : cases) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(group->update([&](auto& values) {
            values = {{std::string(keys::kFoldersSortOrderDirection), stored}};
        }));
        auto manager = start();
        EXPECT_EQ(manager->foldersSortOrderDirection().value(), kDefaultObjectsSortOrderDirection);
        EXPECT_EQ(manager->foldersSortOrder().value(), kDefaultObjectsSortOrder);
    }
}

namespace {

// One organising kind in the sort test, and how a task (or list, or value)
// comes to be counted by numberOfTasks for one of its objects.
struct SortCase {
    Kind kind;
    const char* entity;
    std::function<void(ObjectContext&, const ObjectPtr&)> holdOne;
    bool counts = true; // false: numberOfTasks leaves the tie-break to decide
};

std::vector<SortCase> sortCases() {
    using C = ObjectContext;
    using P = const ObjectPtr&;
    // A task that belongs to no list: counted, never listed.
    auto loose = [](C& c) { return as<TK_Task>(insert(c, TK_Task::entityName, "held")); };
    return {
        {Kind::folders, "TK_Folder",
         [](C& c, P o) { as<TK_Folder>(o)->addToCategories(make<TK_Category>(c, "held")); }},
        {Kind::smartCategories, "TK_SmartCategory", [](C&, P) {}, false},
        {Kind::categories, "TK_Category", [](C& c, P o) { task(c, "held", as<TK_Category>(o)); }},
        {Kind::tags, "TK_Tag", [=](C& c, P o) { loose(c)->addToTags(as<TK_Tag>(o)); }},
        {Kind::priorities, "TK_Priority",
         [=](C& c, P o) { loose(c)->setCustomPriority(as<TK_Priority>(o)); }},
        {Kind::statuses, "TK_Status",
         [=](C& c, P o) { loose(c)->setCustomStatus(as<TK_Status>(o)); }},
        {Kind::attributes, "TK_Attribute",
         [](C& c, P o) { value(c, "held", as<TK_Attribute>(o)); }},
        {Kind::values, "TK_AttributeValue",
         [=](C& c, P o) { loose(c)->addToValues(as<TK_AttributeValue>(o)); }},
    };
}

void PrintTo(const SortCase& c, std::ostream* out) {
    *out << kindName(c.kind);
}

class SortOrders : public LocalDataFetchManagerTest,
                   public ::testing::WithParamInterface<SortCase> {};

} // namespace

TEST_P(SortOrders, EveryOrderAndDirectionSortsAndIsWrittenBack) {
    const SortCase& c = GetParam();
    // Each order puts the three in a different sequence; case matters to a
    // code-point sort ("Banana" first) but not to the alphabetical one.
    auto add = [&](const std::string& title, double created, std::int16_t sortIndex, int n) {
        auto o = insert(view(), c.entity, title, created, sortIndex);
        if (c.kind == Kind::values) // listed only with an attribute
            as<TK_AttributeValue>(o)->setAttribute(make<TK_Attribute>(view(), "held"));
        for (int i = 0; i < n; ++i)
            c.holdOne(view(), o);
    };
    add("apple", 300, 1, 1);
    add("Banana", 100, 0, 2);
    add("cherry", 200, 2, 0);
    save();
    auto manager = start();
    const std::vector<std::string> newestFirst = {"apple", "cherry", "Banana"};
    const std::map<Order, std::vector<std::string>> ascending = {
        {Order::alphabetical, {"apple", "Banana", "cherry"}},
        {Order::numberOfTasks,
         c.counts ? std::vector<std::string>{"cherry", "apple", "Banana"} : newestFirst},
        {Order::creationDate, {"Banana", "cherry", "apple"}},
        {Order::custom, {"Banana", "apple", "cherry"}},
    };
    for (const auto& [order, expected] : ascending) {
        for (const auto direction : {Direction::ascending, Direction::descending}) {
            SCOPED_TRACE(std::string(tasket::rules::caseName(order)) + " " +
                         std::string(tasket::rules::caseName(direction)));
            ASSERT_TRUE(manager->setSortOrder(c.kind, order));
            ASSERT_TRUE(manager->setSortOrderDirection(c.kind, direction));
            auto want = expected;
            const bool onlyTieBreaks = order == Order::numberOfTasks && !c.counts;
            if (direction == Direction::descending && !onlyTieBreaks)
                std::reverse(want.begin(), want.end());
            std::vector<std::string> got;
            for (const auto& title : titlesOf(*manager, c.kind))
                if (title != "held")
                    got.push_back(title);
            EXPECT_EQ(got, want);
        }
    }
    // A restarted manager sorts as it was left: the choice was written.
    manager.reset();
    manager = start();
    EXPECT_EQ(manager->sortOrder(c.kind).value(), Order::custom);
    EXPECT_EQ(manager->sortOrderDirection(c.kind).value(), Direction::descending);
}

INSTANTIATE_TEST_SUITE_P(LocalDataFetchManager, SortOrders, ::testing::ValuesIn(sortCases()),
                         [](const auto& param) { return kindName(param.param.kind); });

// ---- Changes merged from another context -----------------------------------------------

TEST_F(LocalDataFetchManagerTest, MergedBackgroundSavesRepublishExactlyTheAffectedCollections) {
    auto inbox = make<TK_Category>(view(), "Inbox", 1);
    auto first = task(view(), "first", inbox, 1);
    auto size = make<TK_Attribute>(view(), "Size");
    save();
    const auto inboxID = inbox->objectID();
    const auto firstID = first->objectID();
    const auto sizeID = size->objectID();

    struct Case {
        const char* name;
        std::function<void(ObjectContext&)> change;
        std::set<Kind> republished;
    };
    using C = ObjectContext;
    const std::vector<Case> cases = {
        {"a task inserted into a list",
         [&](C& c) { task(c, "second", as<TK_Category>(c.objectWithID(inboxID)), 2); },
         {Kind::tasks}},
        {"a subtask inserted under a task",
         [&](C& c) { subtask(c, "step", as<TK_Task>(c.objectWithID(firstID))); },
         {Kind::subtasks}},
        {"a tag inserted", [](C& c) { insert(c, "TK_Tag", "new"); }, {Kind::tags}},
        {"a value without an attribute inserted", [](C& c) { value(c, "orphan", nullptr); }, {}},
        {"a value inserted for an attribute",
         [&](C& c) { value(c, "Large", as<TK_Attribute>(c.objectWithID(sizeID))); },
         {Kind::values}},
        {"a task's title changed",
         [&](C& c) { as<TK_Task>(c.objectWithID(firstID))->setTitle("renamed"); },
         {Kind::tasks}},
        {"a list's title emptied, which unlists its tasks",
         [&](C& c) { as<TK_Category>(c.objectWithID(inboxID))->setTitle(""); },
         {Kind::categories, Kind::tasks}},
    };

    auto manager = start();
    std::map<Kind, int> deliveries;
    std::vector<Subscription> subscriptions;
    auto count = [&](Kind kind) {
        return [&deliveries, kind](const auto&) { ++deliveries[kind]; };
    };
    for (std::size_t k = 0; k < kCollectionKindCount; ++k)
        subscriptions.push_back(visit(*manager, static_cast<Kind>(k), [&](const auto& published) {
            return published.subscribe(count(static_cast<Kind>(k)));
        }));

    auto background = data->newBackgroundContext();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        deliveries.clear();
        ChangeSet saved;
        auto observer = NotificationCenter::defaultCenter().addObserver(
            kContextDidSaveNotification, background.get(),
            [&](const ChangeSet& changes, const void*) { saved = changes; });
        background->performAndWait([&] {
            c.change(*background);
            auto ok = background->save();
            ASSERT_TRUE(ok) << ok.error().message;
        });
        view().mergeChanges(saved);
        MainQueue::shared().pump();
        std::set<Kind> republished;
        for (const auto& [kind, n] : deliveries)
            republished.insert(kind);
        EXPECT_EQ(republished, c.republished);
    }
    EXPECT_EQ(titlesOf(*manager, Kind::tasks), std::vector<std::string>{});
    EXPECT_EQ(titlesOf(*manager, Kind::values), (std::vector<std::string>{"Large"}));
}

// ---- Search and focus ------------------------------------------------------------------

TEST_F(LocalDataFetchManagerTest, SearchTextsAndFocusNarrowTheirCollectionsAndClearingRestores) {
    auto groceries = make<TK_Category>(view(), "Groceries", 3);
    auto work = make<TK_Category>(view(), "Work", 2);
    auto bags = make<TK_Category>(view(), "grocery bags", 1);
    auto milk = task(view(), "Buy milk", groceries, 3);
    task(view(), "buy bread", groceries, 2);
    task(view(), "Call the office", work, 1);
    task(view(), "Reuse bags", bags, 0);
    subtask(view(), "Skimmed", milk, 2);
    subtask(view(), "Ask about lactose-free", milk, 1);
    auto colour = make<TK_Attribute>(view(), "Colour", 2);
    value(view(), "Green grocer", colour, 2);
    value(view(), "Red", colour, 1);
    save();
    auto manager = start();

    using Setter = tasket::platform::Result<void> (LocalDataFetchManager::*)(std::string);
    struct Case {
        const char* name;
        Setter set;
        std::string text;
        std::map<Kind, std::vector<std::string>> narrowed; // every other collection stays
    };
    const std::vector<Case> cases = {
        {"objects",
         &LocalDataFetchManager::setObjectsSearchText,
         "GROC",
         {{Kind::categories, {"Groceries", "grocery bags"}},
          {Kind::values, {"Green grocer"}},
          {Kind::attributes, {}}}},
        {"tasks",
         &LocalDataFetchManager::setTasksSearchText,
         "buy",
         {{Kind::tasks, {"Buy milk", "buy bread"}}}},
        {"subtasks",
         &LocalDataFetchManager::setSubtasksSearchText,
         "LACTOSE",
         {{Kind::subtasks, {"Ask about lactose-free"}}}},
        {"a text nothing contains",
         &LocalDataFetchManager::setTasksSearchText,
         "zzz",
         {{Kind::tasks, {}}}},
    };
    std::map<Kind, std::vector<std::string>> everything;
    for (std::size_t k = 0; k < kCollectionKindCount; ++k)
        everything[static_cast<Kind>(k)] = titlesOf(*manager, static_cast<Kind>(k));

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE((manager.get()->*c.set)(c.text));
        for (const auto& [kind, all] : everything) {
            auto want = c.narrowed.count(kind) ? c.narrowed.at(kind) : all;
            EXPECT_EQ(titlesOf(*manager, kind), want) << kindName(kind);
        }
        ASSERT_TRUE((manager.get()->*c.set)(""));
        for (const auto& [kind, all] : everything)
            EXPECT_EQ(titlesOf(*manager, kind), all) << "restored " << kindName(kind);
    }
    EXPECT_EQ(manager->tasksSearchText().value(), "");

    // An active focus narrows the tasks to its lists, searching within them.
    struct Step {
        const char* name;
        std::function<void()> act;
        std::vector<std::string> tasks;
    };
    const std::vector<std::string> all = everything[Kind::tasks];
    const std::vector<Step> steps = {
        {"focused on two lists",
         [&] {
             focus->focus({*work->categoryID(), *bags->categoryID()});
         },
         {"Call the office", "Reuse bags"}},
        {"the selection changed",
         [&] { focus->focus({*groceries->categoryID()}); },
         {"Buy milk", "buy bread"}},
        {"searching within the focus",
         [&] { ASSERT_TRUE(manager->setTasksSearchText("office")); },
         {}},
        {"the search cleared",
         [&] { ASSERT_TRUE(manager->setTasksSearchText("")); },
         {"Buy milk", "buy bread"}},
        {"focused on no list at all", [&] { focus->focus({}); }, all},
        {"focused again", [&] { focus->focus({*work->categoryID()}); }, {"Call the office"}},
        {"the focus ended", [&] { focus->unfocus(); }, all},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        step.act();
        MainQueue::shared().pump();
        EXPECT_EQ(titlesOf(*manager, Kind::tasks), step.tasks);
    }

    // A search survives a change merged in: the new object is judged by it.
    ASSERT_TRUE(manager->setTasksSearchText("buy"));
    task(view(), "Buy eggs", groceries, 4);
    task(view(), "Sell the car", groceries, 5);
    save();
    EXPECT_EQ(titlesOf(*manager, Kind::tasks),
              (std::vector<std::string>{"Buy eggs", "Buy milk", "buy bread"}));
}
