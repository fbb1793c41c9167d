#include "objectstore/object_context.h"
#include "support/saved.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;

namespace {

class FetchTest : public ::testing::Test {
  protected:
    void SetUp() override {
        store = *PersistentStore::open(dir / "f.sqlite", makeTestModel());
        context = ObjectContext::make(store, ConcurrencyType::mainQueue);
        auto work = context->insertNewObject("List");
        work->setValue("title", std::string("Work"));
        auto home = context->insertNewObject("List");
        home->setValue("title", std::string("home"));
        const char* titles[] = {"delta", "Alpha", "charlie", "Bravo", "echo", "foxtrot"};
        for (int i = 0; i < 6; ++i) {
            auto item = context->insertNewObject("Item");
            item->setValue("title", std::string(titles[i]));
            item->setValue("done", i % 2 == 0);
            item->setValue("score", double(i));
            item->setToOne(item->propertyIndex("list"), i < 4 ? work : home);
        }
        ASSERT_SAVED(context);
    }

    FetchRequest
    request(const char* format, std::vector<PredicateArgument> args = {},
            std::vector<SortDescriptor> sort = {
                {"title", true, SortDescriptor::Comparison::localizedCaseInsensitive}}) {
        FetchRequest r("Item");
        if (format) {
            auto p = Predicate::parse(format, args);
            EXPECT_TRUE(p) << p.error().message;
            r.predicate = *p;
        }
        r.sortDescriptors = std::move(sort);
        return r;
    }

    std::vector<std::string> titles(const FetchRequest& r) {
        auto objects = context->fetch(r);
        EXPECT_TRUE(objects) << objects.error().message;
        std::vector<std::string> out;
        for (const auto& o : objects.value_or(std::vector<ObjectPtr>{}))
            out.push_back(std::get<std::string>(o->value("title")));
        return out;
    }

    TempDir dir;
    std::shared_ptr<PersistentStore> store;
    std::shared_ptr<ObjectContext> context;
};

} // namespace

TEST_F(FetchTest, PredicateSortWindowAndCount) {
    using V = std::vector<std::string>;
    EXPECT_EQ(titles(request(nullptr)),
              (V{"Alpha", "Bravo", "charlie", "delta", "echo", "foxtrot"}));
    EXPECT_EQ(titles(request("done == %d", {true})), (V{"charlie", "delta", "echo"}));
    EXPECT_EQ(titles(request("list.title ==[c] %@", {"WORK"})),
              (V{"Alpha", "Bravo", "charlie", "delta"}));
    EXPECT_EQ(titles(request("score BETWEEN {1, 3}", {}, {{"score", false}})),
              (V{"Bravo", "charlie", "Alpha"}));
    auto window = request(nullptr);
    window.fetchOffset = 1;
    window.fetchLimit = 2;
    EXPECT_EQ(titles(window), (V{"Bravo", "charlie"}));
    EXPECT_EQ(*context->count(request("done == NO")), 3u);
    EXPECT_EQ(*context->count(window), 2u);

    FetchRequest lists("List");
    lists.predicate = *Predicate::parse("ANY items.title BEGINSWITH[c] %@", {"ECH"});
    auto found = context->fetch(lists);
    ASSERT_TRUE(found);
    ASSERT_EQ(found->size(), 1u);
    EXPECT_EQ((*found)[0]->value("title"), Value(std::string("home")));
}

TEST_F(FetchTest, UnsavedChangesCountUnlessAskedNotTo) {
    using V = std::vector<std::string>;
    auto all = context->fetch(request(nullptr));
    ASSERT_TRUE(all);
    context->deleteObject((*all)[0]);                  // Alpha goes
    (*all)[1]->setValue("title", std::string("zulu")); // Bravo moves to the end
    (*all)[2]->setValue("done", false);                // charlie stops matching done
    auto added = context->insertNewObject("Item");
    added->setValue("title", std::string("Dingo"));
    added->setValue("done", true);
    EXPECT_EQ(titles(request(nullptr)),
              (V{"charlie", "delta", "Dingo", "echo", "foxtrot", "zulu"}));
    EXPECT_EQ(titles(request("done == YES")), (V{"delta", "Dingo", "echo"}));
    EXPECT_EQ(*context->count(request("done == YES")), 3u);
    auto stored = request("done == YES");
    stored.includesPendingChanges = false;
    EXPECT_EQ(titles(stored), (V{"charlie", "delta", "echo"}));
}

TEST_F(FetchTest, BatchedResultsLoadOneBatchAtATime) {
    auto fresh = ObjectContext::make(store, ConcurrencyType::mainQueue);
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
                                           {"Item", nullptr, "labels.name"}}) {
        FetchRequest r(c.entity);
        if (c.predicate)
            r.predicate = *Predicate::parse(c.predicate);
        r.sortDescriptors = {{c.sortKey}};
        auto result = context->fetch(r);
        EXPECT_FALSE(result) << c.entity << " " << (c.predicate ? c.predicate : "") << " "
                             << c.sortKey;
        if (!result) {
            EXPECT_EQ(result.error().code, Errc::invalidArgument);
        }
    }
}
