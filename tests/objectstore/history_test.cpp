#include "objectstore/history.h"
#include "objectstore/object_context.h"
#include "support/saved.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;

TEST(History, RecordsEachSaveAndFetchesAfterAToken) {
    TempDir dir;
    auto store =
        *PersistentStore::open(dir / "h.sqlite", makeTestModel(), StoreOptions{true, false});
    auto c = ObjectContext::make(store, ConcurrencyType::mainQueue);
    c->setName("Writer.Context");
    c->setTransactionAuthor("tests");
    auto item = c->insertNewObject("Item");
    auto list = c->insertNewObject("List");
    ASSERT_SAVED(c);
    item->setValue("title", std::string("t"));
    item->setToOne(*item->entityDescription().propertyIndex("list"), list);
    ASSERT_SAVED(c);
    c->deleteObject(item);
    ASSERT_SAVED(c);

    auto all = store->historyAfter(std::nullopt);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 3u);
    EXPECT_EQ((*all)[0].contextName, "Writer.Context");
    EXPECT_EQ((*all)[0].author, "tests");
    EXPECT_EQ((*all)[0].changes.size(), 2u);
    EXPECT_EQ((*all)[0].changes[0].type, ChangeType::insert);
    const auto& update = (*all)[1].changes;
    auto itemChange = std::find_if(update.begin(), update.end(), [&](const HistoryChange& ch) {
        return ch.object == item->objectID();
    });
    ASSERT_NE(itemChange, update.end());
    EXPECT_EQ(itemChange->changedProperties, (std::vector<std::string>{"title", "list"}));
    const auto& removal = (*all)[2].changes;
    ASSERT_EQ(removal.size(), 1u);
    EXPECT_TRUE(std::any_of(removal.begin(), removal.end(), [&](const HistoryChange& ch) {
        return ch.object == item->objectID() && ch.type == ChangeType::remove;
    }));

    auto after = store->historyAfter((*all)[0].token);
    ASSERT_EQ(after->size(), 2u);
    EXPECT_EQ(after->front().token, (*all)[1].token);
    ASSERT_TRUE(store->deleteHistory((*all)[1].token));
    auto rest = store->historyAfter(std::nullopt);
    ASSERT_EQ(rest->size(), 1u);
    EXPECT_EQ(rest->front().token, (*all)[2].token);
    EXPECT_EQ(store->currentHistoryToken()->value(), (*all)[2].token);

    // A transaction merges into another context like a did-save.
    auto reader = ObjectContext::make(store, ConcurrencyType::mainQueue);
    auto ghost = reader->objectWithID(item->objectID());
    reader->mergeChanges(saveInfo(rest->front(), store->model()));
    EXPECT_EQ(reader->registeredObject(item->objectID()), nullptr);
}

TEST(History, NothingIsRecordedWithoutTracking) {
    TempDir dir;
    auto store =
        *PersistentStore::open(dir / "h.sqlite", makeTestModel(), StoreOptions{false, false});
    auto c = ObjectContext::make(store, ConcurrencyType::mainQueue);
    c->insertNewObject("Item");
    ASSERT_SAVED(c);
    EXPECT_TRUE(store->historyAfter(std::nullopt)->empty());
}

TEST(HistoryToken, ArchiveRoundTripsAndRejectsAnythingElse) {
    for (std::int64_t v : {0LL, 1LL, 4096LL, 9223372036854775807LL}) {
        auto back = unarchiveToken(archiveToken(HistoryToken{v}));
        ASSERT_TRUE(back);
        EXPECT_EQ(back->value, v);
    }
    auto good = archiveToken(HistoryToken{77});
    std::vector<std::vector<std::uint8_t>> bad = {{}, {'T', 'K'}, std::vector<std::uint8_t>(17, 0)};
    auto versioned = good;
    versioned[4] = 2;
    bad.push_back(versioned);
    auto flipped = good;
    flipped[7] ^= 1;
    bad.push_back(flipped);
    auto longer = good;
    longer.push_back(0);
    bad.push_back(longer);
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
