#include "helpers/engine_fixture.h"
#include "objectstore/history.h"

#include <fstream>
#include <tuple>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;
using History = tasket::testing::EngineFixture;

// What a transaction holds is checked against the did-save in
// ContextTest.DidSaveAndHistoryCarryTheSameChangeSet; here: reading after a
// token, pruning, and merging a transaction into another context.
TEST_F(History, FetchesAfterATokenPrunesAndMergesIntoAnotherContext) {
    auto c = context();
    auto item = c->insertNewObject("Item");
    for (const char* title : {"", "t"}) {
        item->setValue("title", std::string(title));
        ASSERT_SAVED(c);
    }
    c->deleteObject(item);
    ASSERT_SAVED(c);
    auto all = store->historyAfter(std::nullopt);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 3u);
    const auto& [first, second, third] = std::tie((*all)[0], (*all)[1], (*all)[2]);
    EXPECT_LE(first.timestamp.secondsSinceReference, third.timestamp.secondsSinceReference);

    auto after = store->historyAfter(first.changes.token);
    ASSERT_EQ(after->size(), 2u);
    EXPECT_EQ(after->front().changes.token, second.changes.token);
    ASSERT_TRUE(store->deleteHistory(*second.changes.token));
    auto rest = store->historyAfter(std::nullopt);
    ASSERT_EQ(rest->size(), 1u);
    EXPECT_EQ(rest->front().changes.token, third.changes.token);
    EXPECT_EQ(*store->currentHistoryToken(), third.changes.token);

    auto reader = context();
    auto ghost = reader->objectWithID(item->objectID());
    reader->mergeChanges(rest->front().changes);
    EXPECT_TRUE(ghost->isDeleted());
    EXPECT_EQ(reader->registeredObject(item->objectID()), nullptr);

    TempDir untracked;
    auto plain = *PersistentStore::open(untracked / "h.sqlite", makeTestModel());
    auto p = ObjectContext::make(plain, ConcurrencyType::mainQueue);
    p->insertNewObject("Item");
    ASSERT_SAVED(p);
    EXPECT_TRUE(plain->historyAfter(std::nullopt)->empty());
}

TEST(HistoryToken, ArchiveRoundTripsAndRejectsAnythingElse) {
    for (std::int64_t v : {0LL, 1LL, 4096LL, 9223372036854775807LL}) {
        auto back = unarchiveToken(archiveToken(HistoryToken{v}));
        ASSERT_TRUE(back);
        EXPECT_EQ(back->value, v);
    }
    const auto good = archiveToken(HistoryToken{77});
    auto damaged = [&](std::size_t at, std::uint8_t to) {
        auto bytes = good;
        if (at < bytes.size())
            bytes[at] = to;
        else
            bytes.push_back(to);
        return bytes;
    };
    const std::vector<std::vector<std::uint8_t>> bad = {
        {},
        {'T', 'K'},
        std::vector<std::uint8_t>(17, 0),
        damaged(4, 2),                                      // another format version
        damaged(7, static_cast<std::uint8_t>(good[7] ^ 1)), // a flipped bit
        damaged(good.size(), 0)};                           // one byte more
    for (const auto& b : bad) {
        auto r = unarchiveToken(b);
        ASSERT_FALSE(r);
        EXPECT_EQ(r.error().code, Errc::parseError);
    }

    TempDir dir;
    EXPECT_FALSE(*readTokenFile(dir / "absent.token"));
    ASSERT_TRUE(writeTokenFile(dir / "t.token", HistoryToken{123}));
    EXPECT_EQ((*readTokenFile(dir / "t.token"))->value, 123);
    std::ofstream(dir / "garbage.token") << "<?xml version=\"1.0\"?><plist/>";
    auto garbage = readTokenFile(dir / "garbage.token");
    ASSERT_FALSE(garbage);
    EXPECT_NE(garbage.error().message.find("garbage.token"), std::string::npos);
}

// A deleted object leaves a tombstone with the attributes its entity
// preserves, cascaded deletions included; pruning history prunes them too.
TEST_F(History, DeletedObjectsLeaveTombstonesWithTheirPreservedValues) {
    auto c = context();
    auto list = c->insertNewObject("List");
    std::vector<ObjectPtr> items;
    for (const char* title : {"kept", "cascaded"}) {
        auto item = c->insertNewObject("Item");
        item->setValue("title", std::string(title));
        item->setValue("identifier", tasket::platform::Uuid::generate());
        items.push_back(item);
    }
    items[1]->setToOne(items[1]->propertyIndex("list"), list);
    ASSERT_SAVED(c);
    const auto before = *store->currentHistoryToken();
    const auto tombstone = [](const ObjectPtr& item) {
        return Tombstone{
            item->objectID(),
            {{"title", item->value("title")}, {"identifier", item->value("identifier")}}};
    };
    const std::vector expected{tombstone(items[0]), tombstone(items[1])};

    c->deleteObject(items[0]);
    ASSERT_SAVED(c);
    c->deleteObject(list); // the list preserves nothing; its cascaded item does
    ASSERT_SAVED(c);
    auto history = store->historyAfter(before);
    ASSERT_TRUE(history);
    ASSERT_EQ(history->size(), 2u);
    EXPECT_EQ((*history)[0].tombstones, std::vector{expected[0]});
    EXPECT_EQ((*history)[1].tombstones, std::vector{expected[1]});
    // Found by name, wherever the model lists it.
    EXPECT_EQ(*(*history)[0].tombstones[0].value("identifier"), items[0]->value("identifier"));
    EXPECT_EQ((*history)[0].tombstones[0].value("due"), nullptr);

    ASSERT_TRUE(store->deleteHistory(*(*history)[0].changes.token));
    history = store->historyAfter(std::nullopt);
    ASSERT_EQ(history->size(), 1u);
    EXPECT_EQ(history->front().tombstones, std::vector{expected[1]});
}
