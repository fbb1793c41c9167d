#include "helpers/engine_fixture.h"
#include "platform/main_queue.h"
#include "support/fatal_trap.h"

#include <sqlite3.h>

#include <chrono>
#include <set>
#include <thread>
#include <tuple>

using namespace tasket::objectstore;
using tasket::platform::Errc;
using tasket::platform::NotificationCenter;
using ContextTest = tasket::testing::EngineFixture;
using V = std::vector<std::string>;

TEST_F(ContextTest, SavesEveryAttributeTypeAndReadsItBackAsFault) {
    auto writer = context();
    auto item = make(*writer, "Item", "Ünïcode ✓ \xF0\x9F\x93\x8E");
    EXPECT_TRUE(item->objectID().isTemporary());
    const Value values[] = {true, Date{12345.5}, 2.25, Uuid::generate(), Bytes{0, 1, 2, 255}};
    const char* keys[] = {"done", "due", "score", "identifier", "blob"};
    for (std::size_t i = 0; i < 5; ++i)
        item->setValue(keys[i], values[i]);
    auto empty = make(*writer, "Item");
    empty->setValue("blob", Bytes{});
    ASSERT_SAVED(writer);
    EXPECT_FALSE(item->objectID().isTemporary());
    EXPECT_FALSE(writer->hasChanges());

    auto reader = context();
    auto fault = reader->objectWithID(item->objectID());
    EXPECT_TRUE(fault->isFault());
    EXPECT_EQ(reader->objectWithID(item->objectID()), fault); // one object per identity
    EXPECT_EQ(text(fault), "Ünïcode ✓ \xF0\x9F\x93\x8E");
    EXPECT_FALSE(fault->isFault());
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(fault->value(keys[i]), values[i]) << keys[i];
    EXPECT_EQ(reader->objectWithID(empty->objectID())->value("blob"), Value(Bytes{})); // not nil
    auto missing = reader->existingObject(ObjectID{item->objectID().entity, 999});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, Errc::notFound);

    auto invalid = make(*writer, "Item");
    invalid->setValue("done", Value{});
    auto saved = writer->save();
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().code, Errc::validation); // a required attribute
    EXPECT_TRUE(writer->hasChanges());               // a failed save keeps the changes
    EXPECT_THROW(make(*writer, "List")->setValue("sortIndex", std::int64_t(40000)),
                 std::out_of_range);
}

// Both sides of every kind of relationship stay in step, persist, and
// follow their delete rules: Deny (Person.lists), Cascade (List.items,
// Item.note) and Nullify (Item.labels).
TEST_F(ContextTest, RelationshipsKeepBothSidesPersistAndFollowDeleteRules) {
    auto c = context();
    auto list = make(*c, "List"), other = make(*c, "List");
    auto person = make(*c, "Person");
    other->setToOne(other->propertyIndex("owner"), person);
    auto a = make(*c, "Item", "a"), b = make(*c, "Item", "b");
    auto red = make(*c, "Label", "red");
    auto note = make(*c, "Note");
    const auto itemList = a->propertyIndex("list"), noteP = a->propertyIndex("note");
    a->setToOne(itemList, list);
    list->addToMany(list->propertyIndex("items"), b);
    a->addToMany(a->propertyIndex("labels"), red);
    b->addToMany(b->propertyIndex("labels"), red);
    a->setToOne(noteP, note);
    EXPECT_EQ(members(list, "items"), (V{"a", "b"}));
    EXPECT_EQ(b->toOne(itemList), list);
    EXPECT_EQ(members(red, "items"), (V{"a", "b"}));
    EXPECT_EQ(note->toOne(note->propertyIndex("item")), a);
    ASSERT_SAVED(c);

    // Move b to the other list, and give the note to b (one-to-one moves).
    b->setToOne(itemList, other);
    b->setToOne(noteP, note);
    EXPECT_EQ(a->toOne(noteP), nullptr);
    EXPECT_EQ(members(list, "items"), V{"a"});
    ASSERT_SAVED(c);

    auto fresh = context();
    EXPECT_EQ(members(fresh->objectWithID(list->objectID()), "items"), V{"a"});
    EXPECT_EQ(members(fresh->objectWithID(other->objectID()), "items"), V{"b"});
    EXPECT_EQ(members(fresh->objectWithID(red->objectID()), "items"), (V{"a", "b"}));
    EXPECT_EQ(fresh->objectWithID(b->objectID())->toOneID(noteP), note->objectID());
    EXPECT_FALSE(fresh->objectWithID(a->objectID())->toOneID(noteP).isValid());

    c->deleteObject(person);
    auto denied = c->save();
    ASSERT_FALSE(denied);
    EXPECT_EQ(denied.error().code, Errc::validation);
    c->rollback();
    EXPECT_FALSE(person->isDeleted());
    c->deleteObject(other); // and with it b and b's note; red keeps only a
    EXPECT_TRUE(b->isDeleted());
    EXPECT_TRUE(note->isDeleted());
    EXPECT_FALSE(a->isDeleted());
    ASSERT_SAVED(c);
    auto after = context();
    EXPECT_EQ(members(after->objectWithID(red->objectID()), "items"), V{"a"});
    EXPECT_FALSE(after->existingObject(b->objectID()));
    EXPECT_FALSE(after->existingObject(note->objectID()));
    auto p = after->objectWithID(person->objectID());
    EXPECT_TRUE(p->toMany(p->propertyIndex("lists")).empty());
    after->deleteObject(p); // no lists left: allowed now
    EXPECT_SAVED(after);
}

// Unsaved moves show in member sets read after them, and rollback undoes
// values, moves, deletions and insertions.
TEST_F(ContextTest, MemberSetsSeeUnsavedMovesAndRollbackUndoesThem) {
    auto setup = context();
    auto first = make(*setup, "List"), second = make(*setup, "List");
    auto stays = make(*setup, "Item", "stays"), moves = make(*setup, "Item", "moves");
    const auto itemList = stays->propertyIndex("list");
    stays->setToOne(itemList, first);
    moves->setToOne(itemList, first);
    ASSERT_SAVED(setup);

    auto c = context();
    auto added = make(*c, "Item", "added");
    added->setToOne(itemList, c->objectWithID(first->objectID())); // members not read yet
    auto moved = c->objectWithID(moves->objectID());
    moved->setToOne(itemList, c->objectWithID(second->objectID()));
    moved->setValue("title", std::string("edited"));
    c->deleteObject(c->objectWithID(stays->objectID()));
    EXPECT_EQ(c->updatedObjects().size(), 1u);
    EXPECT_EQ(c->insertedObjects().size(), 1u);
    EXPECT_EQ(c->deletedObjects().size(), 1u);
    EXPECT_EQ(members(c->objectWithID(first->objectID()), "items"), V{"added"});
    EXPECT_EQ(members(c->objectWithID(second->objectID()), "items"), V{"edited"});
    c->rollback();
    EXPECT_FALSE(c->hasChanges());
    EXPECT_EQ(added->context(), nullptr);
    EXPECT_EQ(text(moved), "moves");
    EXPECT_EQ(members(c->objectWithID(first->objectID()), "items"), (V{"moves", "stays"}));
    EXPECT_TRUE(members(c->objectWithID(second->objectID()), "items").empty());
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
    for (const auto& k : {Case{MergePolicy::error, false, "first", false},
                          Case{MergePolicy::mergeByPropertyObjectTrump, true, "first", true},
                          Case{MergePolicy::overwrite, true, "stale", true},
                          Case{MergePolicy::rollback, true, "first", false}}) {
        SCOPED_TRACE(static_cast<int>(k.policy));
        auto setup = context();
        auto item = make(*setup, "Item", "stale");
        ASSERT_SAVED(setup);
        auto first = context(), second = context(k.policy);
        auto a = first->objectWithID(item->objectID());
        auto b = second->objectWithID(item->objectID());
        (void)b->value("title"); // b reads the old version
        a->setValue("title", std::string("first"));
        ASSERT_SAVED(first);
        b->setValue("done", true);
        auto saved = second->save();
        EXPECT_EQ(saved ? std::optional<Errc>() : saved.error().code,
                  k.saves ? std::optional<Errc>() : Errc::conflict);

        auto check = context();
        auto stored = check->objectWithID(item->objectID());
        EXPECT_EQ(text(stored), k.title);
        EXPECT_EQ(stored->value("done"), Value(k.done));
        if (k.saves) {
            EXPECT_EQ(text(b), k.title); // the context now holds what is stored
            EXPECT_FALSE(second->hasChanges());
            b->setValue("score", 1.0); // and can save again without a conflict
            EXPECT_SAVED(second);
        }
    }
}

// A save's did-save change set and the history transaction it wrote say the
// same: permanent identities and changed property names.
TEST_F(ContextTest, DidSaveAndHistoryCarryTheSameChangeSet) {
    auto c = context();
    c->setName("Writer");
    c->setTransactionAuthor("tests");
    std::vector<ChangeSet> saves;
    auto token = NotificationCenter::defaultCenter().addObserver(
        kContextDidSaveNotification, c.get(),
        [&](const ChangeSet& changes, const void*) { saves.push_back(changes); });
    auto item = make(*c, "Item");
    auto list = make(*c, "List");
    ASSERT_SAVED(c);
    item->setValue("title", std::string("t"));
    item->setToOne(item->propertyIndex("list"), list);
    ASSERT_SAVED(c);
    c->deleteObject(item);
    ASSERT_SAVED(c);

    ASSERT_EQ(saves.size(), 3u);
    EXPECT_EQ(std::set<ObjectID>(saves[0].inserted.begin(), saves[0].inserted.end()),
              (std::set<ObjectID>{item->objectID(), list->objectID()}));
    EXPECT_EQ(saves[1].updated,
              (std::vector<UpdatedObject>{{item->objectID(), {"title", "list"}}}));
    EXPECT_EQ(saves[2].deleted, std::vector<ObjectID>{item->objectID()});
    EXPECT_TRUE(saves[2].token > saves[1].token);
    auto history = store->historyAfter(std::nullopt);
    ASSERT_TRUE(history);
    ASSERT_EQ(history->size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const ChangeSet& saved = saves[i];
        const ChangeSet& kept = (*history)[i].changes;
        EXPECT_EQ(saved.store, store.get());
        EXPECT_EQ(kept.store, store.get());
        EXPECT_EQ(
            std::tie(saved.token, saved.contextName, saved.author, saved.updated, saved.deleted),
            std::tie(kept.token, kept.contextName, kept.author, kept.updated, kept.deleted));
        EXPECT_EQ(std::set<ObjectID>(saved.inserted.begin(), saved.inserted.end()),
                  std::set<ObjectID>(kept.inserted.begin(), kept.inserted.end()));
    }
}

// The view merges the writer's saves by itself, on its queue, keeping its
// own pending changes; a merged deletion turns its objects into deleted ones.
TEST_F(ContextTest, AutomaticMergeBringsOtherSavesInAndKeepsOwnChanges) {
    auto writer = ObjectContext::make(store, ConcurrencyType::privateQueue);
    ObjectPtr item, list, gone;
    writer->performAndWait([&] {
        item = make(*writer, "Item", "one");
        list = make(*writer, "List");
        gone = make(*writer, "Item");
        ASSERT_SAVED(writer);
    });
    auto view = context(MergePolicy::mergeByPropertyObjectTrump);
    view->setAutomaticallyMergesChangesFromParent(true);
    auto mine = view->objectWithID(item->objectID());
    auto myList = view->objectWithID(list->objectID());
    EXPECT_TRUE(members(myList, "items").empty());
    mine->setValue("score", 9.0); // pending here
    auto ghost = view->objectWithID(gone->objectID());
    auto& mainQueue = tasket::platform::MainQueue::shared();

    writer->performAndWait([&] {
        item->setValue("title", std::string("two"));
        item->setToOne(item->propertyIndex("list"), list);
        ASSERT_SAVED(writer);
    });
    EXPECT_TRUE(mainQueue.runUntil([&] { return text(mine) == "two"; }));
    EXPECT_EQ(mine->value("score"), Value(9.0));
    EXPECT_EQ(members(myList, "items"), V{"two"});

    writer->performAndWait([&] {
        writer->deleteObject(gone);
        ASSERT_SAVED(writer);
    });
    EXPECT_TRUE(mainQueue.runUntil([&] { return ghost->isDeleted(); }));
    EXPECT_EQ(view->registeredObject(gone->objectID()), nullptr);
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
    EXPECT_SAVED(c);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    holder.join();
    sqlite3_close(other);
}

TEST_F(ContextTest, InaccessibleFaultReadsAsDeletedOrStops) {
    auto c = context();
    auto item = c->insertNewObject("Item");
    ASSERT_SAVED(c);
    auto other = context();
    auto fault = other->objectWithID(item->objectID());
    c->deleteObject(item);
    ASSERT_SAVED(c);
    EXPECT_TRUE(isNil(fault->value("title")));
    EXPECT_TRUE(fault->isDeleted());

    // Kept faults: loading them in a batch fails, touching one stops.
    other->setShouldDeleteInaccessibleFaults(false);
    auto strict = other->objectWithID(ObjectID{item->objectID().entity, 4242});
    auto fired = other->fireFaults({strict});
    ASSERT_FALSE(fired);
    EXPECT_EQ(fired.error().code, Errc::notFound);
    tasket::testing::FatalTrap trap;
    try {
        (void)strict->value("title");
        ADD_FAILURE() << "a gone row read without a stop";
    } catch (const tasket::testing::FatalStop& stop) {
        EXPECT_EQ(stop.message, "Item 4242 is no longer in the store");
    }
}
