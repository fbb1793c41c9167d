// The automation entities' queries over a seeded store: identifiers (each
// kind by its own key, a value's by its UUID), suggestions, text; and the
// focus filter's configuration reaching a FocusManager that follows it.
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "services/automation_entities.h"
#include "settings/focus_filter.h"
#include "store/local_data_manager.h"
#include "store/records.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace tasket;
using namespace tasket::services;

namespace {

template <class Entity>
std::vector<std::string> titles(const platform::Result<std::vector<Entity>>& found) {
    EXPECT_TRUE(found) << found.error().message;
    std::vector<std::string> result;
    for (const auto& entity : found.value_or(std::vector<Entity>{}))
        result.push_back(entity.title);
    return result;
}

} // namespace

TEST(AutomationEntities, QueriesResolveSuggestAndSearch) {
    tasket::testing::TempDir dir;
    auto data = store::LocalDataManager::make(dir.path());
    auto& view = *data->viewContext();
    std::int16_t position = 0;
    const auto list = [&](const char* title, bool archived = false) {
        auto category = store::TK_Category::insertNew(view);
        category->setCategoryID(platform::Uuid::generate().toString());
        category->setTitle(title);
        category->setSortIndex(position++);
        category->setIsArchived(archived);
        return category;
    };
    const auto home = list("Home");
    list("Work");
    list("Old", true);
    auto tag = store::TK_Tag::insertNew(view);
    tag->setTagID("TAG-1");
    tag->setTitle("urgent");
    auto attribute = store::TK_Attribute::insertNew(view);
    auto value = store::TK_AttributeValue::insertNew(view);
    const auto valueID = platform::Uuid::generate();
    value->setIdentifier(valueID);
    value->setTitle("Large");
    value->setAttribute(attribute);
    double created = 0;
    const auto task = [&](const char* title, bool completed) {
        auto record = store::TK_Task::insertNew(view);
        record->setTaskID(platform::Uuid::generate().toString());
        record->setTitle(title);
        record->setIsCompleted(completed);
        record->setWhenCreated(platform::Date{++created});
        record->setCategory(home);
        return record;
    };
    const auto water = task("Water plants", false);
    task("Old chore", true);
    task("Read article", false);
    ASSERT_TRUE(view.save());

    TK_TasksAppEntityQuery tasks(view);
    TK_TasksListAppEntityQuery lists(view);
    TK_TasksListAppEntityQuery otherLists(view, false);
    TK_FocusFilterCategoryAppEntityQuery focusLists(view);
    const std::vector<std::string> someIDs = {*water->taskID(), "TAG-1", valueID.toString(),
                                              *home->categoryID(), "unknown"};
    using Titles = std::vector<std::string>;
    const std::tuple<const char*, Titles, Titles> cases[] = {
        {"tasks by id", titles(tasks.entities(someIDs)), {"Water plants"}},
        {"tasks suggested", titles(tasks.suggestedEntities()), {"Read article", "Water plants"}},
        {"tasks by text", titles(tasks.entities(std::string_view("AR"))), {"Read article"}},
        {"lists by id", titles(lists.entities(someIDs)), {"Home", "urgent", "Large"}},
        {"lists suggested", titles(lists.suggestedEntities()), {"Home", "Work", "urgent", "Large"}},
        {"lists without lists", titles(otherLists.suggestedEntities()), {"urgent", "Large"}},
        {"focus lists by id", titles(focusLists.entities(someIDs)), {"Home"}},
        {"focus lists suggested", titles(focusLists.suggestedEntities()), {"Home", "Work"}},
        {"focus by text",
         titles(focusLists.entities(std::string_view("o"))),
         {"Home", "Work", "Old"}},
    };
    for (const auto& [query, got, expected] : cases)
        EXPECT_EQ(got, expected) << query;

    const auto found = tasks.entities(someIDs);
    ASSERT_TRUE(found && found->size() == 1 && found->front().category);
    EXPECT_EQ(found->front().category->type, "category");
    EXPECT_EQ(found->front().category->id, *home->categoryID());

    // The focus filter's configuration reaches a manager following the suite.
    auto suite = std::make_shared<platform::InMemoryPreferencesSuite>("group");
    auto focus = std::make_shared<settings::FocusManager>();
    auto following = settings::followStoredFocus(focus, suite);
    ASSERT_TRUE(following);
    auto chosen = focusLists.entities(std::string_view("Home"));
    ASSERT_TRUE(TK_FocusFilter{*chosen}.perform(*suite));
    platform::MainQueue::shared().pump();
    EXPECT_TRUE(focus->isFocused().value());
    EXPECT_EQ(focus->categories().value(), std::vector{*home->categoryID()});
}
