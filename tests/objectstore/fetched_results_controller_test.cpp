#include "helpers/engine_fixture.h"
#include "objectstore/fetched_results_controller.h"

#include <random>

using namespace tasket::objectstore;
using FetchedResultsControllerTest = tasket::testing::EngineFixture;

namespace {

FetchRequest openItems() {
    FetchRequest r("Item");
    r.predicate = *Predicate::parse("done == NO AND list.title != %@", {"Hidden"});
    r.sortDescriptors = {{"title", true, SortDescriptor::Comparison::localizedCaseInsensitive},
                         {"score", false}};
    r.fetchBatchSize = 20;
    return r;
}

} // namespace

TEST_F(FetchedResultsControllerTest, ReportsEachKindOfChange) {
    auto view = context();
    auto list = make(*view, "List", "Inbox");
    std::vector<ObjectPtr> items;
    for (const char* t : {"b", "d", "f"}) {
        items.push_back(make(*view, "Item", t));
        items.back()->setToOne(items.back()->propertyIndex("list"), list);
    }
    ASSERT_SAVED(view);
    FetchedResultsController controller(view, openItems());
    ASSERT_TRUE(controller.performFetch());
    std::vector<CollectionChange> seen;
    controller.setDelegate([&](const CollectionChange& c) { seen.push_back(c); });
    ASSERT_EQ(controller.size(), 3u);

    items[1]->setValue("score", 5.0); // d: same place
    view->processPendingChanges();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen.back().updated, std::vector<std::size_t>{1});

    items[0]->setValue("title", std::string("z")); // b moves to the end
    view->processPendingChanges();
    EXPECT_EQ(seen.back().moved, (std::vector<std::pair<std::size_t, std::size_t>>{{0, 2}}));

    items[2]->setValue("done", true); // f leaves
    auto added = make(*view, "Item", "a");
    added->setToOne(added->propertyIndex("list"), list);
    view->processPendingChanges();
    EXPECT_EQ(seen.back().deleted, std::vector<std::size_t>{1});
    EXPECT_EQ(seen.back().inserted, std::vector<std::size_t>{0});
    const auto fetchesBefore = controller.fetchCount();
    ASSERT_SAVED(view);
    EXPECT_EQ(controller.objectIDs(), *view->fetchObjectIDs(openItems()));

    list->setValue("sortIndex", std::int64_t(4)); // a list property the predicate does not read
    view->processPendingChanges();
    EXPECT_EQ(controller.fetchCount(), fetchesBefore);
    list->setValue("title", std::string("Hidden")); // the list hides everything: a re-fetch
    view->processPendingChanges();
    EXPECT_EQ(controller.size(), 0u);
    EXPECT_EQ(controller.fetchCount(), fetchesBefore + 1);
}

// Random transactions, local and merged; each reported change applied to the
// previous order must give the new order, and that must be what a fresh
// fetch returns.
TEST_F(FetchedResultsControllerTest, ChangeSetsMatchAFreshFetchOverRandomTransactions) {
    auto view = context(MergePolicy::mergeByPropertyObjectTrump);
    auto background = ObjectContext::make(store, ConcurrencyType::privateQueue);
    background->setMergePolicy(MergePolicy::mergeByPropertyObjectTrump);
    std::mt19937 random(7);
    const std::vector<std::string> titles = {"apple",  "Apple",   "Äpfel", "banana", "Banana",
                                             "cherry", "ćevapi",  "date",  "Émile",  "emile",
                                             "straße", "STRASSE", "zebra", ""};
    auto pick = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };

    std::vector<ObjectID> lists;
    for (const char* t : {"Inbox", "Work", "Hidden"}) {
        auto l = make(*view, "List", t);
        ASSERT_SAVED(view);
        lists.push_back(l->objectID());
    }
    FetchedResultsController controller(view, openItems());
    ASSERT_TRUE(controller.performFetch());
    std::vector<ObjectID> before = controller.objectIDs();
    int reported = 0;
    controller.setDelegate([&](const CollectionChange& c) {
        ASSERT_EQ(applyChange(before, c, controller.objectIDs()), controller.objectIDs());
        before = controller.objectIDs();
        ++reported;
    });
    auto randomItem = [&](ObjectContext& c) -> ObjectPtr {
        FetchRequest all("Item");
        auto ids = c.fetchObjectIDs(all);
        if (!ids || ids->empty())
            return nullptr;
        return c.objectWithID((*ids)[pick(ids->size())]);
    };
    auto edit = [&](ObjectContext& c) {
        switch (pick(6)) {
        case 0:
        case 1: {
            auto item = make(c, "Item", titles[pick(titles.size())]);
            item->setValue("done", pick(3) == 0);
            item->setValue("score", double(pick(5)));
            item->setToOne(item->propertyIndex("list"), c.objectWithID(lists[pick(lists.size())]));
            break;
        }
        case 2:
            if (auto item = randomItem(c))
                item->setValue("title", titles[pick(titles.size())]);
            break;
        case 3:
            if (auto item = randomItem(c)) {
                item->setValue("done", pick(2) == 0);
                item->setValue("score", double(pick(5)));
            }
            break;
        case 4:
            if (auto item = randomItem(c))
                c.deleteObject(item);
            break;
        case 5:
            if (pick(4) == 0)
                c.objectWithID(lists[pick(lists.size())])
                    ->setValue("title", std::string(pick(3) == 0 ? "Hidden" : "Visible"));
            else if (auto item = randomItem(c))
                item->setToOne(item->propertyIndex("list"),
                               c.objectWithID(lists[pick(lists.size())]));
            break;
        }
    };

    for (int round = 0; round < 1500; ++round) {
        const auto how = pick(3);
        if (how == 0) { // a local edit, announced before any save
            edit(*view);
            view->processPendingChanges();
        } else if (how == 1) { // a local edit, saved
            edit(*view);
            ASSERT_SAVED(view);
        } else { // another context saves; the view merges it
            ChangeSet info;
            auto token = tasket::platform::NotificationCenter::defaultCenter().addObserver(
                kContextDidSaveNotification, background.get(),
                [&](const ChangeSet& changes, const void*) { info = changes; });
            bool saved = true;
            background->performAndWait([&] {
                edit(*background);
                saved = background->save().has_value();
                background->reset();
            });
            if (!saved)
                continue;
            view->mergeChanges(info);
        }
        auto fresh = view->fetchObjectIDs(openItems());
        ASSERT_TRUE(fresh);
        ASSERT_EQ(controller.objectIDs(), *fresh) << "round " << round;
        ASSERT_EQ(before, *fresh) << "round " << round;
        if (pick(10) == 0)
            ASSERT_SAVED(view);
    }
    EXPECT_GT(reported, 500);
}
