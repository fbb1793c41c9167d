#include "objectstore/object_context.h"
#include "platform/main_queue.h"
#include "support/saved.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::platform::NotificationCenter;
using tasket::testing::makeTestModel;
using tasket::testing::TempDir;

namespace {

class ContextTest : public ::testing::Test {
  protected:
    void SetUp() override {
        auto s =
            PersistentStore::open(dir / "t.sqlite", makeTestModel(), StoreOptions{true, false});
        ASSERT_TRUE(s) << s.error().message;
        store = *s;
    }
    std::shared_ptr<ObjectContext> context(MergePolicy policy = MergePolicy::error) {
        auto c = ObjectContext::make(store, ConcurrencyType::mainQueue);
        c->setMergePolicy(policy);
        return c;
    }
    static std::string text(const ObjectPtr& o, const char* key) {
        const Value& v = o->value(key);
        return isNil(v) ? "<nil>" : std::get<std::string>(v);
    }
    static std::vector<std::string> titles(const std::vector<ObjectPtr>& objects,
                                           const char* key = "title") {
        std::vector<std::string> out;
        for (const auto& o : objects)
            out.push_back(text(o, key));
        std::sort(out.begin(), out.end());
        return out;
    }

    TempDir dir;
    std::shared_ptr<PersistentStore> store;
};

} // namespace

TEST_F(ContextTest, SavesEveryAttributeTypeAndReadsItBackAsFault) {
    auto writer = context();
    auto item = writer->insertNewObject("Item");
    EXPECT_TRUE(item->objectID().isTemporary());
    const auto uuid = Uuid::generate();
    item->setValue("title", std::string("Ünïcode ✓ \xF0\x9F\x93\x8E"));
    item->setValue("done", true);
    item->setValue("due", Date{12345.5});
    item->setValue("score", 2.25);
    item->setValue("identifier", uuid);
    item->setValue("blob", Bytes{0, 1, 2, 255});
    ASSERT_SAVED(writer);
    EXPECT_FALSE(item->objectID().isTemporary());
    EXPECT_FALSE(writer->hasChanges());

    auto reader = context();
    auto fault = reader->objectWithID(item->objectID());
    EXPECT_TRUE(fault->isFault());
    EXPECT_EQ(reader->objectWithID(item->objectID()), fault); // one object per identity
    EXPECT_EQ(text(fault, "title"), "Ünïcode ✓ \xF0\x9F\x93\x8E");
    EXPECT_FALSE(fault->isFault());
    EXPECT_EQ(fault->value("done"), Value(true));
    EXPECT_EQ(fault->value("due"), Value(Date{12345.5}));
    EXPECT_EQ(fault->value("score"), Value(2.25));
    EXPECT_EQ(fault->value("identifier"), Value(uuid));
    EXPECT_EQ(fault->value("blob"), Value(Bytes{0, 1, 2, 255}));
    auto empty = writer->insertNewObject("Item");
    empty->setValue("blob", Bytes{});
    ASSERT_SAVED(writer);
    EXPECT_EQ(reader->objectWithID(empty->objectID())->value("blob"),
              Value(Bytes{})); // empty, not nil

    auto missing = reader->existingObject(ObjectID{item->objectID().entity, 999});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, Errc::notFound);
}

TEST_F(ContextTest, RequiredAttributeAndInt16RangeAreChecked) {
    auto c = context();
    auto item = c->insertNewObject("Item");
    item->setValue("done", Value{});
    auto saved = c->save();
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().code, Errc::validation);
    EXPECT_TRUE(c->hasChanges()); // a failed save keeps the changes
    auto list = c->insertNewObject("List");
    EXPECT_THROW(list->setValue("sortIndex", std::int64_t(40000)), std::out_of_range);
}

TEST_F(ContextTest, RelationshipsKeepBothSidesAndPersist) {
    auto c = context();
    auto list = c->insertNewObject("List");
    auto other = c->insertNewObject("List");
    auto a = c->insertNewObject("Item");
    auto b = c->insertNewObject("Item");
    auto red = c->insertNewObject("Label");
    auto note = c->insertNewObject("Note");
    a->setValue("title", std::string("a"));
    b->setValue("title", std::string("b"));
    red->setValue("name", std::string("red"));
    const auto listP = *list->entityDescription().propertyIndex("items");
    const auto itemList = *a->entityDescription().propertyIndex("list");
    const auto labels = *a->entityDescription().propertyIndex("labels");
    const auto noteP = *a->entityDescription().propertyIndex("note");
    a->setToOne(itemList, list);
    list->addToMany(listP, b);
    a->addToMany(labels, red);
    b->addToMany(labels, red);
    a->setToOne(noteP, note);
    EXPECT_EQ(titles(list->toMany(listP)), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(b->toOne(itemList), list);
    EXPECT_EQ(red->toMany(*red->entityDescription().propertyIndex("items")).size(), 2u);
    EXPECT_EQ(note->toOne(*note->entityDescription().propertyIndex("item")), a);
    ASSERT_SAVED(c);

    // Move b to the other list, and give the note to b (one-to-one moves).
    b->setToOne(itemList, other);
    b->setToOne(noteP, note);
    EXPECT_EQ(a->toOne(noteP), nullptr);
    EXPECT_EQ(titles(list->toMany(listP)), (std::vector<std::string>{"a"}));
    ASSERT_SAVED(c);

    auto fresh = context();
    auto l = fresh->objectWithID(list->objectID());
    auto o = fresh->objectWithID(other->objectID());
    EXPECT_EQ(titles(l->toMany(listP)), (std::vector<std::string>{"a"}));
    EXPECT_EQ(titles(o->toMany(listP)), (std::vector<std::string>{"b"}));
    auto r = fresh->objectWithID(red->objectID());
    EXPECT_EQ(titles(r->toMany(*r->entityDescription().propertyIndex("items"))),
              (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(fresh->objectWithID(b->objectID())->toOneID(noteP), note->objectID());
    EXPECT_FALSE(fresh->objectWithID(a->objectID())->toOneID(noteP).isValid());
}

TEST_F(ContextTest, MemberSetsReadLaterSeeUnsavedMoves) {
    auto setup = context();
    auto first = setup->insertNewObject("List");
    auto second = setup->insertNewObject("List");
    auto stays = setup->insertNewObject("Item");
    auto moves = setup->insertNewObject("Item");
    stays->setValue("title", std::string("stays"));
    moves->setValue("title", std::string("moves"));
    const auto itemList = stays->propertyIndex("list");
    const auto items = first->propertyIndex("items");
    stays->setToOne(itemList, first);
    moves->setToOne(itemList, first);
    ASSERT_SAVED(setup);

    auto c = context();
    auto added = c->insertNewObject("Item");
    added->setValue("title", std::string("added"));
    added->setToOne(itemList,
                    c->objectWithID(first->objectID())); // neither list's members are read yet
    c->objectWithID(moves->objectID())->setToOne(itemList, c->objectWithID(second->objectID()));
    c->deleteObject(c->objectWithID(stays->objectID()));
    EXPECT_EQ(titles(c->objectWithID(first->objectID())->toMany(items)),
              (std::vector<std::string>{"added"}));
    EXPECT_EQ(titles(c->objectWithID(second->objectID())->toMany(items)),
              (std::vector<std::string>{"moves"}));
    c->rollback();
    EXPECT_EQ(titles(c->objectWithID(first->objectID())->toMany(items)),
              (std::vector<std::string>{"moves", "stays"}));
    EXPECT_TRUE(c->objectWithID(second->objectID())->toMany(items).empty());
}

TEST_F(ContextTest, DeleteRulesCascadeNullifyAndDeny) {
    auto c = context();
    auto person = c->insertNewObject("Person");
    auto list = c->insertNewObject("List");
    auto item = c->insertNewObject("Item");
    auto loose = c->insertNewObject("Item");
    auto note = c->insertNewObject("Note");
    auto label = c->insertNewObject("Label");
    const auto& ie = item->entityDescription();
    item->setToOne(*ie.propertyIndex("list"), list);
    item->setToOne(*ie.propertyIndex("note"), note);
    item->addToMany(*ie.propertyIndex("labels"), label);
    loose->addToMany(*ie.propertyIndex("labels"), label);
    list->setToOne(*list->entityDescription().propertyIndex("owner"), person);
    ASSERT_SAVED(c);

    // Deny: a person with lists cannot go.
    c->deleteObject(person);
    auto denied = c->save();
    ASSERT_FALSE(denied);
    EXPECT_EQ(denied.error().code, Errc::validation);
    c->rollback();
    EXPECT_FALSE(person->isDeleted());

    // Cascade list -> items -> note; nullify item -> labels.
    c->deleteObject(list);
    EXPECT_TRUE(item->isDeleted());
    EXPECT_TRUE(note->isDeleted());
    EXPECT_FALSE(loose->isDeleted());
    ASSERT_SAVED(c);
    auto fresh = context();
    auto l = fresh->objectWithID(label->objectID());
    EXPECT_EQ(l->toMany(*l->entityDescription().propertyIndex("items")).size(), 1u);
    EXPECT_FALSE(fresh->existingObject(item->objectID()));
    EXPECT_FALSE(fresh->existingObject(note->objectID()));
    auto p = fresh->objectWithID(person->objectID());
    EXPECT_TRUE(p->toMany(*p->entityDescription().propertyIndex("lists")).empty());
    fresh->deleteObject(p); // no lists left: allowed now
    EXPECT_SAVED(fresh);
}

TEST_F(ContextTest, RollbackRestoresValuesAndDropsInserts) {
    auto c = context();
    auto item = c->insertNewObject("Item");
    item->setValue("title", std::string("saved"));
    ASSERT_SAVED(c);
    item->setValue("title", std::string("edited"));
    auto extra = c->insertNewObject("Item");
    EXPECT_TRUE(c->hasChanges());
    EXPECT_EQ(c->updatedObjects().size(), 1u);
    EXPECT_EQ(c->insertedObjects().size(), 1u);
    c->rollback();
    EXPECT_FALSE(c->hasChanges());
    EXPECT_EQ(text(item, "title"), "saved");
    EXPECT_EQ(extra->context(), nullptr);
}

TEST_F(ContextTest, DidSaveNotificationCarriesPermanentIDs) {
    auto c = context();
    std::vector<SaveInfo> seen;
    auto token = NotificationCenter::defaultCenter().addObserver(
        kContextDidSaveNotification, c.get(), [&](const tasket::platform::Notification& n) {
            seen.push_back(std::any_cast<SaveInfo>(n.userInfo));
        });
    auto item = c->insertNewObject("Item");
    ASSERT_SAVED(c);
    item->setValue("title", std::string("x"));
    ASSERT_SAVED(c);
    c->deleteObject(item);
    ASSERT_SAVED(c);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].inserted, std::vector<ObjectID>{item->objectID()});
    ASSERT_EQ(seen[1].updated.size(), 1u);
    EXPECT_EQ(seen[1].updated[0].changedProperties, std::vector<std::string>{"title"});
    EXPECT_EQ(seen[2].deleted, std::vector<ObjectID>{item->objectID()});
    EXPECT_TRUE(seen[2].token > seen[1].token);
}

// Two contexts edit the same object; the second save meets the first one's
// newer version and resolves it by its merge policy.
TEST_F(ContextTest, EveryMergePolicyOnARealConflict) {
    struct Case {
        MergePolicy policy;
        bool saves;
        const char* title; // stored afterwards
        bool done;
    };
    const std::vector<Case> cases = {
        {MergePolicy::error, false, "first", false},
        {MergePolicy::mergeByPropertyObjectTrump, true, "first", true},
        {MergePolicy::overwrite, true, "stale", true},
        {MergePolicy::rollback, true, "first", false},
    };
    for (const auto& k : cases) {
        auto setup = context();
        auto item = setup->insertNewObject("Item");
        item->setValue("title", std::string("stale"));
        ASSERT_SAVED(setup);

        auto first = context();
        auto second = context(k.policy);
        auto a = first->objectWithID(item->objectID());
        auto b = second->objectWithID(item->objectID());
        (void)b->value("title"); // b reads the old version
        a->setValue("title", std::string("first"));
        ASSERT_SAVED(first);
        b->setValue("done", true);
        auto saved = second->save();
        EXPECT_EQ(saved.has_value(), k.saves) << static_cast<int>(k.policy);
        if (!saved) {
            EXPECT_EQ(saved.error().code, Errc::conflict);
        }

        auto check = context();
        auto stored = check->objectWithID(item->objectID());
        EXPECT_EQ(text(stored, "title"), k.title) << static_cast<int>(k.policy);
        EXPECT_EQ(stored->value("done"), Value(k.done)) << static_cast<int>(k.policy);
        if (k.saves) {
            EXPECT_EQ(text(b, "title"), k.title); // the context now holds what is stored
            EXPECT_FALSE(second->hasChanges());
            b->setValue("score", 1.0); // and can save again without a conflict
            EXPECT_SAVED(second);
        }
    }
}

TEST_F(ContextTest, MergeBringsOtherSavesInAndKeepsOwnChanges) {
    auto writer = context();
    auto item = writer->insertNewObject("Item");
    item->setValue("title", std::string("one"));
    auto list = writer->insertNewObject("List");
    ASSERT_SAVED(writer);

    auto view = context(MergePolicy::mergeByPropertyObjectTrump);
    auto mine = view->objectWithID(item->objectID());
    auto myList = view->objectWithID(list->objectID());
    const auto items = *myList->entityDescription().propertyIndex("items");
    EXPECT_TRUE(myList->toMany(items).empty());
    mine->setValue("score", 9.0); // pending here

    SaveInfo last;
    auto token = NotificationCenter::defaultCenter().addObserver(
        kContextDidSaveNotification, writer.get(), [&](const tasket::platform::Notification& n) {
            last = std::any_cast<SaveInfo>(n.userInfo);
        });
    item->setValue("title", std::string("two"));
    item->setToOne(*item->entityDescription().propertyIndex("list"), list);
    auto gone = writer->insertNewObject("Item");
    ASSERT_SAVED(writer);
    view->mergeChanges(last);
    EXPECT_EQ(text(mine, "title"), "two");
    EXPECT_EQ(mine->value("score"), Value(9.0));
    EXPECT_EQ(myList->toMany(items).size(), 1u);

    writer->deleteObject(gone);
    writer->deleteObject(item);
    ASSERT_SAVED(writer);
    auto ghost = view->objectWithID(gone->objectID());
    view->mergeChanges(last);
    EXPECT_TRUE(ghost->isDeleted());
    EXPECT_EQ(view->registeredObject(gone->objectID()), nullptr);
}

TEST_F(ContextTest, AutomaticMergeAndBackgroundQueue) {
    auto view = context();
    view->setAutomaticallyMergesChangesFromParent(true);
    auto background = ObjectContext::make(store, ConcurrencyType::privateQueue);
    ObjectID id;
    background->performAndWait([&] {
        auto item = background->insertNewObject("Item");
        item->setValue("title", std::string("from the background"));
        ASSERT_SAVED(background);
        id = item->objectID();
    });
    auto mine = view->objectWithID(id);
    EXPECT_EQ(text(mine, "title"), "from the background");
    background->performAndWait([&] {
        background->objectWithID(id)->setValue("title", std::string("changed"));
        ASSERT_SAVED(background);
    });
    EXPECT_TRUE(tasket::platform::MainQueue::shared().runUntil(
        [&] { return text(mine, "title") == "changed"; }));
}

TEST_F(ContextTest, ABrieflyLockedStoreDelaysTheSaveInsteadOfFailingIt) {
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((dir / "t.sqlite").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::thread holder([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
    });
    auto c = context();
    c->insertNewObject("Item");
    const auto start = std::chrono::steady_clock::now();
    auto saved = c->save();
    EXPECT_TRUE(saved) << saved.error().message;
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(300)); // it did wait
    holder.join();
    sqlite3_close(other);
}

TEST_F(ContextTest, InaccessibleFaultReadsAsDeleted) {
    auto c = context();
    auto item = c->insertNewObject("Item");
    ASSERT_SAVED(c);
    auto other = context();
    auto fault = other->objectWithID(item->objectID());
    c->deleteObject(item);
    ASSERT_SAVED(c);
    EXPECT_TRUE(isNil(fault->value("title")));
    EXPECT_TRUE(fault->isDeleted());
    other->setShouldDeleteInaccessibleFaults(false);
    auto strict = other->objectWithID(ObjectID{item->objectID().entity, 4242});
    EXPECT_THROW((void)strict->value("title"), std::runtime_error);
}
