#include "helpers/engine_fixture.h"

using namespace tasket::objectstore;
using tasket::platform::Errc;
using V = std::vector<std::string>;

namespace {

// Six items in two lists: Alpha, Bravo, charlie, delta in Work; echo and
// foxtrot in home. Every other one is done; scores 0 to 5.
class FetchTest : public tasket::testing::EngineFixture {
  protected:
    void SetUp() override {
        EngineFixture::SetUp();
        view = context();
        auto work = make(*view, "List", "Work"), home = make(*view, "List", "home");
        const char* titles[] = {"delta", "Alpha", "charlie", "Bravo", "echo", "foxtrot"};
        for (int i = 0; i < 6; ++i) {
            auto item = make(*view, "Item", titles[i]);
            item->setValue("done", i % 2 == 0);
            item->setValue("score", double(i));
            item->setToOne(item->propertyIndex("list"), i < 4 ? work : home);
        }
        ASSERT_SAVED(view);
    }

    static FetchRequest
    request(const char* format, std::vector<PredicateArgument> args = {},
            std::vector<SortDescriptor> sort = {
                {"title", true, SortDescriptor::Comparison::localizedCaseInsensitive}}) {
        FetchRequest r("Item");
        if (format)
            r.predicate = Predicate::parse(format, args).value();
        r.sortDescriptors = std::move(sort);
        return r;
    }
    /// The titles `r` fetches, in order.
    V titles(const FetchRequest& r) {
        auto objects = view->fetch(r);
        EXPECT_TRUE(objects) << objects.error().message;
        V out;
        for (const auto& o : objects.value_or(std::vector<ObjectPtr>{}))
            out.push_back(text(o));
        return out;
    }

    std::shared_ptr<ObjectContext> view;
};

} // namespace

// (What each predicate and sort selects, in SQL and in memory alike, is the
// predicate library's semantics test; here the fetch's own window and count.)
TEST_F(FetchTest, PredicateSortWindowAndCount) {
    EXPECT_EQ(titles(request(nullptr)),
              (V{"Alpha", "Bravo", "charlie", "delta", "echo", "foxtrot"}));
    EXPECT_EQ(titles(request("done == %d", {true})), (V{"charlie", "delta", "echo"}));
    auto window = request(nullptr);
    window.fetchOffset = 1;
    window.fetchLimit = 2;
    EXPECT_EQ(titles(window), (V{"Bravo", "charlie"}));
    EXPECT_EQ(*view->count(request("done == NO")), 3u);
    EXPECT_EQ(*view->count(window), 2u);
    // A list with two pending items is selected, windowed and counted once.
    FetchRequest lists("List");
    lists.predicate = Predicate::parse("ANY items.done == NO").value();
    lists.sortDescriptors = {{"title", true, SortDescriptor::Comparison::localizedCaseInsensitive}};
    EXPECT_EQ(texts(view->fetch(lists).value()), (V{"Work", "home"}));
    EXPECT_EQ(*view->count(lists), 2u);
    lists.fetchOffset = 1;
    EXPECT_EQ(texts(view->fetch(lists).value()), (V{"Work"}));
    EXPECT_EQ(*view->count(lists), 1u);
    lists.fetchOffset = 0;
    lists.fetchBatchSize = 1; // the repeat opens a batch of its own
    EXPECT_EQ(titles(lists), (V{"home", "Work"}));
    V each;
    ASSERT_TRUE(view->fetchEach(lists, [&](const auto& batch) -> tasket::platform::Result<void> {
        for (const auto& o : batch)
            each.push_back(text(o));
        return {};
    }));
    EXPECT_EQ(each, (V{"home", "Work"}));
}

TEST_F(FetchTest, UnsavedChangesCountUnlessAskedNotTo) {
    auto all = view->fetch(request(nullptr));
    ASSERT_TRUE(all);
    view->deleteObject((*all)[0]);                     // Alpha goes
    (*all)[1]->setValue("title", std::string("zulu")); // Bravo moves to the end
    (*all)[2]->setValue("done", false);                // charlie stops matching done
    make(*view, "Item", "Dingo")->setValue("done", true);
    EXPECT_EQ(titles(request(nullptr)),
              (V{"charlie", "delta", "Dingo", "echo", "foxtrot", "zulu"}));
    EXPECT_EQ(titles(request("done == YES")), (V{"delta", "Dingo", "echo"}));
    EXPECT_EQ(*view->count(request("done == YES")), 3u);
    auto stored = request("done == YES");
    stored.includesPendingChanges = false;
    EXPECT_EQ(titles(stored), (V{"charlie", "delta", "echo"}));
}

TEST_F(FetchTest, BatchedResultsLoadOneBatchAtATime) {
    auto fresh = context();
    auto r = request(nullptr);
    r.fetchBatchSize = 2;
    auto results = fresh->fetchBatched(r);
    ASSERT_TRUE(results);
    EXPECT_EQ(results->size(), 6u);
    EXPECT_EQ(results->loadedBatches(), 0u);
    EXPECT_EQ(results->at(3)->value("title"), Value(std::string("delta")));
    EXPECT_EQ(results->loadedBatches(), 1u);
    EXPECT_TRUE(fresh->objectWithID(results->objectIDs()[0])->isFault());
    EXPECT_FALSE(fresh->registeredObject(results->objectIDs()[2])->isFault());

    // A walk in order reads ahead: the batch after a loaded one brings the next too.
    auto walked = context()->fetchBatched(r);
    ASSERT_TRUE(walked);
    EXPECT_EQ(walked->at(0)->value("title"), Value(std::string("Alpha")));
    EXPECT_EQ(walked->loadedBatches(), 1u);
    EXPECT_EQ(walked->at(2)->value("title"), Value(std::string("charlie")));
    EXPECT_EQ(walked->loadedBatches(), 3u);
    EXPECT_EQ(walked->at(5)->value("title"), Value(std::string("foxtrot")));
    // After a reset, a batch read before is read again whole.
    walked->context().reset();
    EXPECT_EQ(walked->at(4)->value("title"), Value(std::string("echo")));
    EXPECT_FALSE(walked->context().objectWithID(walked->objectIDs()[5])->isFault());
}

// A walk gives what fetch() gives, a batch at a time, whether it reads
// stored rows (the context reset between batches) or must count unsaved
// changes; an error from the walker ends it.
TEST_F(FetchTest, FetchEachWalksTheResultInBatches) {
    auto walk = [](ObjectContext& context, FetchRequest r, bool reset) {
        r.fetchBatchSize = 4;
        std::vector<V> batches;
        auto ok = context.fetchEach(
            r, [&](const std::vector<ObjectPtr>& batch) -> tasket::platform::Result<void> {
                V titles;
                for (const auto& o : batch) {
                    EXPECT_FALSE(o->isFault());
                    titles.push_back(text(o));
                }
                batches.push_back(titles);
                if (reset)
                    context.reset();
                return {};
            });
        EXPECT_TRUE(ok);
        return batches;
    };
    auto fresh = context();
    EXPECT_EQ(walk(*fresh, request(nullptr), true),
              (std::vector<V>{{"Alpha", "Bravo", "charlie", "delta"}, {"echo", "foxtrot"}}));
    auto window = request("done == NO");
    window.fetchOffset = 1;
    EXPECT_EQ(walk(*fresh, window, true), (std::vector<V>{{"Bravo", "foxtrot"}}));
    make(*view, "Item", "Aardvark");
    EXPECT_EQ(
        walk(*view, request(nullptr), false),
        (std::vector<V>{{"Aardvark", "Alpha", "Bravo", "charlie"}, {"delta", "echo", "foxtrot"}}));
    // The same walk inside each batch of itself: each has its own statement.
    auto inBatches = request(nullptr);
    inBatches.fetchBatchSize = 4;
    std::size_t outer = 0, inner = 0;
    ASSERT_TRUE(fresh->fetchEach(inBatches, [&](const auto& batch) {
        outer += batch.size();
        return fresh->fetchEach(inBatches,
                                [&](const auto& again) -> tasket::platform::Result<void> {
                                    inner += again.size();
                                    return {};
                                });
    }));
    EXPECT_EQ(outer, 6u);
    EXPECT_EQ(inner, 12u);
    int calls = 0;
    auto failed =
        fresh->fetchEach(request(nullptr), [&](const auto&) -> tasket::platform::Result<void> {
            ++calls;
            return tasket::platform::fail(Errc::cancelled, "enough");
        });
    EXPECT_FALSE(failed);
    EXPECT_EQ(calls, 1);
}

// Each way a relationship is stored, read for a whole fetch at once: the members one by one
// reading gives, loaded, and this context's unsaved moves counted.
TEST_F(FetchTest, PrefetchedRelationshipsMatchMembersReadOneByOne) {
    auto all = view->fetch(request(nullptr));
    ASSERT_TRUE(all);
    for (const auto& [item, label] :
         {std::pair{0, make(*view, "Label", "x")}, {4, make(*view, "Label", "y")}})
        (*all)[item]->addToMany((*all)[item]->propertyIndex("labels"), label);
    ASSERT_SAVED(view);
    auto targets = [](const ObjectPtr& o, std::size_t property) {
        if (!o->entityDescription().relationship(property).toMany)
            return std::vector<ObjectID>{o->toOneID(property)};
        return o->toManyIDs(property);
    };
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"Item", "labels", "title"}, // a join table
        {"Label", "items", "name"},  // its other side
        {"List", "items", "title"},  // the members' column
        {"Item", "list", "title"}};  // a column of its own
    for (const auto& [entity, relationship, sortKey] : cases) {
        auto prefetching = context(), plain = context();
        FetchRequest r(entity);
        r.sortDescriptors = {{sortKey}};
        r.prefetchedRelationships = {relationship};
        auto fetched = prefetching->fetch(r);
        r.prefetchedRelationships.clear();
        auto expected = plain->fetch(r);
        ASSERT_TRUE(fetched && expected && fetched->size() == expected->size()) << entity;
        for (std::size_t i = 0; i < fetched->size(); ++i) {
            const auto property = (*expected)[i]->propertyIndex(relationship);
            const auto ids = targets((*expected)[i], property);
            for (const auto& member : ids) // loaded with the fetch
                EXPECT_FALSE(prefetching->registeredObject(member)->isFault()) << relationship;
            EXPECT_EQ(targets((*fetched)[i], property), ids) << entity << "." << relationship;
        }
    }
    // echo moves from home to Work, unsaved, before either list's members are read.
    auto moving = context();
    FetchRequest lists("List");
    lists.sortDescriptors = {{"title"}};
    auto work = moving->fetch(lists).value().at(0);
    auto echo = moving->fetch(request("title == 'echo'")).value().at(0);
    echo->setToOne(echo->propertyIndex("list"), work);
    lists.prefetchedRelationships = {"items"};
    auto listed = moving->fetch(lists);
    ASSERT_TRUE(listed);
    EXPECT_EQ(members((*listed)[0], "items"), (V{"Alpha", "Bravo", "charlie", "delta", "echo"}));
    EXPECT_EQ(members((*listed)[1], "items"), V{"foxtrot"});
}

// A fetch naming its attributes loads only those (both ways of fetching);
// the rest is read when first touched, and before any change, so a change
// neither compares against nor writes a value that was never read.
TEST_F(FetchTest, PartialObjectsReadTheRestBeforeTheyAreReadOrChanged) {
    auto partial = context();
    auto r = request(nullptr);
    r.propertiesToFetch = {"title"};
    auto items = partial->fetch(r);
    ASSERT_TRUE(items && items->size() == 6);
    auto writer = context();
    auto alpha = writer->fetch(request("title == 'Alpha'")).value().at(0);
    alpha->setValue("score", 9.0);
    ASSERT_SAVED(writer);
    EXPECT_TRUE((*items)[0]->isPartial());
    EXPECT_EQ(text((*items)[0]), "Alpha");
    EXPECT_EQ((*items)[0]->value("score"), Value(9.0)); // read now, as stored now
    EXPECT_FALSE((*items)[0]->isPartial());
    (*items)[1]->setValue("score", Value{}); // Bravo's 3, unread: a real change
    (*items)[2]->setValue("title", std::string("Charlie"));
    ASSERT_SAVED(partial);
    auto fresh = context();
    const auto bravo = fresh->fetch(request("title == 'Bravo'")).value().at(0);
    EXPECT_TRUE(isNil(bravo->value("score")));
    const auto charlie = fresh->fetch(request("title == 'Charlie'")).value().at(0);
    EXPECT_EQ(charlie->value("score"), Value(2.0));
    EXPECT_EQ(charlie->value("done"), Value(true));
    r.fetchBatchSize = 4;
    r.propertiesToFetch = {"title", "done"};
    std::size_t walked = 0;
    ASSERT_TRUE(fresh->fetchEach(r, [&](const auto& batch) -> tasket::platform::Result<void> {
        for (const auto& o : batch)
            walked += o->isPartial() || o == bravo || o == charlie; // those two were whole
        fresh->reset();
        return {};
    }));
    EXPECT_EQ(walked, 6u);
}

TEST_F(FetchTest, BadRequestsAreErrorsNotCrashes) {
    struct Case {
        const char* entity;
        const char* predicate;
        const char* sortKey;
    };
    for (const auto& c : std::vector<Case>{{"Nope", nullptr, "title"},
                                           {"Item", "nosuchkey == 1", "title"},
                                           {"Item", "title > 3", "title"},
                                           {"Item", nullptr, "nosuchkey"},
                                           {"Item", nullptr, "labels.name"},
                                           {"Item", nullptr, nullptr},
                                           {"Item", nullptr, "labels"}}) {
        FetchRequest r(c.entity);
        if (c.predicate)
            r.predicate = *Predicate::parse(c.predicate);
        if (c.sortKey && c.sortKey != std::string("labels"))
            r.sortDescriptors = {{c.sortKey}};
        else // the attributes read: one unknown, one a relationship
            r.propertiesToFetch = {c.sortKey ? c.sortKey : "nosuchkey"};
        auto result = view->fetch(r);
        ASSERT_FALSE(result) << c.entity << " " << (c.predicate ? c.predicate : "") << " "
                             << (c.sortKey ? c.sortKey : "");
        EXPECT_EQ(result.error().code, Errc::invalidArgument);
    }
}
