// The record classes over the TK_Data model (entity and property names are
// in the golden table): typed accessors, relationships and delete rules;
// the domain's listing and content rules (rules/predicates.h) as the store
// applies them, in memory on unsaved objects and in SQL on saved ones,
// alike; and looking a record up by the identifier a person typed.
#include "rules/predicates.h"
#include "store/lookup.h"
#include "store/record_invariants.h"
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

using namespace tasket::store;
namespace predicates = tasket::rules::predicates;
namespace rules = tasket::rules;
using tasket::objectstore::Bytes;
using tasket::objectstore::FetchRequest;
using tasket::objectstore::ObjectContext;
using tasket::objectstore::ObjectID;
using tasket::objectstore::ObjectPtr;
using tasket::objectstore::Predicate;
using tasket::platform::Date;
using tasket::platform::Errc;
using tasket::platform::Uuid;

namespace {

class Records : public tasket::testing::StoreFixture {
  protected:
    void SetUp() override {
        StoreFixture::SetUp();
        writer = newContext();
    }
    // The same object as seen by a fresh context, read from the store.
    template <class R> std::shared_ptr<R> reread(const std::shared_ptr<R>& object) {
        if (!reader)
            reader = newContext();
        return std::dynamic_pointer_cast<R>(reader->objectWithID(object->objectID()));
    }
    template <class R>
    static bool holds(const std::vector<std::shared_ptr<R>>& objects, const std::shared_ptr<R>& o) {
        return std::any_of(objects.begin(), objects.end(),
                           [&](const auto& x) { return x->objectID() == o->objectID(); });
    }
    // What the store selects (compiled to SQL: the reading context has no
    // unsaved changes).
    std::set<ObjectID> fetched(std::string_view entity, const Predicate& predicate) const {
        FetchRequest request{std::string(entity)};
        request.predicate = predicate;
        auto ids = newContext()->fetchObjectIDs(request);
        EXPECT_TRUE(ids) << ids.error().message;
        return ids ? std::set<ObjectID>(ids->begin(), ids->end()) : std::set<ObjectID>();
    }

    std::shared_ptr<ObjectContext> writer;
    std::shared_ptr<ObjectContext> reader;
};

template <class Record> std::string found(ObjectContext& context, std::string_view id) {
    auto record = findByIdentifier<Record>(context, id);
    if (!record)
        return record.error().code == Errc::notFound ? record.error().message : "(failed)";
    return (*record)->title().value_or("");
}

} // namespace

// Every entity makes objects of the record class of its name, and the
// compile-time property indexes the accessors use are the engine's.
TEST(RecordSchema, EntitiesMakeTheirRecordClassWithTheEnginesPropertyIndexes) {
    using tasket::store::detail::Schema;
#define TK_TEST_INDEX(C, kind, name, ...)                                                          \
    EXPECT_EQ(tkDataModel()->entity(#C)->propertyIndex(#name), Schema<C>::Property::name)          \
        << #C "." #name;
#define TK_TEST_ENTITY(C)                                                                          \
    EXPECT_TRUE(std::dynamic_pointer_cast<C>(tkDataModel()->entity(#C)->makeObject())) << #C;      \
    TK_DATA_##C(TK_TEST_INDEX, C)
    TK_DATA_ENTITIES(TK_TEST_ENTITY)
#undef TK_TEST_ENTITY
#undef TK_TEST_INDEX
}

TEST_F(Records, TypedAttributesStartAtTheirDefaultsAndRoundTrip) {
    auto task = TK_Task::insertNew(*writer);
    EXPECT_EQ(task->title(), std::nullopt);
    EXPECT_FALSE(task->isCompleted());
    EXPECT_EQ(task->repeatIntervalTypeCase(), rules::TK_RepeatInterval::none);

    task->setTitle("Ünïcode ✓");
    task->setNote(std::string());
    task->setDueDateAndTime(Date{700000000.5});
    task->setIsCompleted(true);
    task->setIsStartDateRemindEnabled(true);
    task->setCategorySortIndex(-32768);
    task->setValueSortIndex(32767);
    task->setRepeatFrequency(2.5);
    task->setAttachments(Bytes{0, 1, 255});
    task->setRepeatIntervalType(rules::TK_RepeatInterval::hourly);
    auto subtask = TK_Subtask::insertNew(*writer);
    subtask->setAttachments(Bytes{});
    auto attribute = TK_Attribute::insertNew(*writer);
    const Uuid id = Uuid::generate();
    attribute->setIdentifier(id);
    ASSERT_SAVED(writer);

    auto read = reread(task);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->title(), "Ünïcode ✓");
    EXPECT_EQ(read->note(), std::string()); // empty is not nil
    EXPECT_EQ(read->dueDateAndTime(), Date{700000000.5});
    EXPECT_EQ(read->dueDate(), std::nullopt);
    EXPECT_TRUE(read->isCompleted());
    EXPECT_TRUE(read->isStartDateRemindEnabled());
    EXPECT_FALSE(read->isRemindEnabled()); // the due-date flag is its own field
    EXPECT_EQ(read->categorySortIndex(), -32768);
    EXPECT_EQ(read->valueSortIndex(), 32767);
    EXPECT_EQ(read->repeatFrequency(), 2.5);
    EXPECT_EQ(read->attachments(), (Bytes{0, 1, 255}));
    EXPECT_EQ(read->repeatIntervalTypeCase(), rules::TK_RepeatInterval::hourly);
    EXPECT_EQ(reread(subtask)->attachments(), Bytes{}); // empty, not nil
    EXPECT_EQ(reread(attribute)->identifier(), id);
}

// A code no case has (written by a newer program) is kept as it is.
TEST_F(Records, EnumerationFieldsKeepCodesTheyHaveNoCaseFor) {
    auto smart = TK_SmartCategory::insertNew(*writer);
    for (const std::int16_t code : {2, 6, -1}) {
        smart->setReminderFilter(code);
        EXPECT_EQ(smart->reminderFilter(), code);
        EXPECT_EQ(smart->reminderFilterCase(), rules::fromStored<rules::TK_ReminderFilter>(code));
    }
    EXPECT_EQ(smart->reminderRelativeDateCase(), rules::TK_RelativeDate::none);
}

// The generated accessors: a to-one set moves the record, a to-many adds
// and removes, both sides follow and the links persist; deleting a list or
// an attribute takes what it owns. (Which relationship each accessor names
// is the schema test's; inverses are the model's own validation and the
// transfer round trip's.)
TEST_F(Records, RelationshipsKeepBothSidesPersistAndDeletesTakeWhatIsOwned) {
    auto home = TK_Category::insertNew(*writer);
    auto work = TK_Category::insertNew(*writer);
    auto task = TK_Task::insertNew(*writer);
    auto tag = TK_Tag::insertNew(*writer);
    auto subtask = TK_Subtask::insertNew(*writer);
    auto attachment = TK_Attachment::insertNew(*writer);
    auto section = TK_BoardSection::insertNew(*writer);
    auto attribute = TK_Attribute::insertNew(*writer);
    auto value = TK_AttributeValue::insertNew(*writer);
    task->setCategory(home);
    task->setCategory(work); // moves
    task->addToTags(tag);
    tag->addToAddTasksToTags(tag); // a tag may name its own kind
    subtask->setTask(task);
    attachment->setTask(task);
    section->setCategory(work);
    value->setAttribute(attribute);
    EXPECT_TRUE(home->tasks().empty());
    EXPECT_TRUE(holds(work->tasks(), task));
    EXPECT_TRUE(holds(tag->tasks(), task));
    EXPECT_TRUE(holds(tag->tagAddTasksToTags(), tag));
    ASSERT_SAVED(writer);

    EXPECT_EQ(reread(task)->category()->objectID(), work->objectID());
    EXPECT_TRUE(holds(reread(tag)->addTasksToTags(), reread(tag)));
    task->removeFromTags(tag);
    EXPECT_TRUE(tag->tasks().empty());
    task->addToTags(tag);

    writer->deleteObject(work);
    writer->deleteObject(attribute);
    ASSERT_SAVED(writer);
    for (const auto& gone :
         std::vector<tasket::objectstore::ObjectPtr>{task, subtask, attachment, section, value})
        EXPECT_FALSE(newContext()->existingObject(gone->objectID()))
            << gone->entityDescription().name;
    EXPECT_TRUE(newContext()->existingObject(tag->objectID()));
}

TEST_F(Records, ValidTaskNeedsIdentifierAndACategoryWithIdentifierAndTitle) {
    struct Case {
        const char* name;
        std::optional<std::string> taskID;
        bool inCategory;
        std::optional<std::string> categoryID, title;
        bool valid;
    };
    const Case cases[] = {
        {"complete", "T", true, "C", "Home", true},
        {"no identifier", std::nullopt, true, "C", "Home", false},
        {"empty identifier", "", true, "C", "Home", false},
        {"no category", "T", false, std::nullopt, std::nullopt, false},
        {"category identifier empty", "T", true, "", "Home", false},
        {"category title empty", "T", true, "C", "", false},
        // nil is not the empty string: the rule as written lets these through
        {"category title nil", "T", true, "C", std::nullopt, true},
        {"category identifier nil", "T", true, std::nullopt, "Home", true},
    };
    std::set<ObjectID> valid;
    std::vector<std::shared_ptr<TK_Task>> tasks;
    for (const auto& c : cases) {
        auto task = TK_Task::insertNew(*writer);
        task->setTaskID(c.taskID);
        if (c.inCategory) {
            auto list = TK_Category::insertNew(*writer);
            list->setCategoryID(c.categoryID);
            list->setTitle(c.title);
            task->setCategory(list);
        }
        EXPECT_EQ(satisfies(*task, predicates::validTask()), c.valid) << c.name;
        tasks.push_back(task);
    }
    ASSERT_SAVED(writer);
    for (std::size_t i = 0; i < tasks.size(); ++i)
        if (cases[i].valid)
            valid.insert(tasks[i]->objectID());
    // Invalid tasks are stored all the same; the store leaves them out.
    EXPECT_EQ(fetched(TK_Task::entityName, Predicate()).size(), std::size(cases));
    EXPECT_EQ(fetched(TK_Task::entityName, predicates::validTask()), valid);
}

// nil is no identifier; the empty text is one.
TEST_F(Records, SubtaskIsListedByItsIdentifier) {
    auto subtask = TK_Subtask::insertNew(*writer);
    EXPECT_FALSE(satisfies(*subtask, predicates::listedSubtask()));
    subtask->setSubtaskID("");
    EXPECT_TRUE(satisfies(*subtask, predicates::listedSubtask()));
    // A rule that names what the entity does not have is a programming error.
    EXPECT_THROW(satisfies(*subtask, predicates::parsed("categorySortIndex == 3")),
                 std::invalid_argument);
}

// Identifiers are upper-case UUIDs; a lower-case one names the same record,
// a prefix or another kind's identifier names none.
TEST_F(Records, FindsEachKindByItsIdentifierIgnoringCase) {
    auto list = TK_Category::insertNew(*writer);
    list->setCategoryID("A1B2C3D4-0000-4000-8000-00000000000A");
    list->setTitle("Home");
    auto task = TK_Task::insertNew(*writer);
    task->setTaskID("A1B2C3D4-0000-4000-8000-00000000000B");
    task->setTitle("Water plants");
    task->setCategory(list);
    auto subtask = TK_Subtask::insertNew(*writer);
    subtask->setSubtaskID("A1B2C3D4-0000-4000-8000-00000000000C");
    subtask->setTitle("Fill the can");
    subtask->setTask(task);
    ASSERT_SAVED(writer);

    auto readBack = newContext();
    EXPECT_EQ(found<TK_Category>(*readBack, "a1b2c3d4-0000-4000-8000-00000000000a"), "Home");
    EXPECT_EQ(found<TK_Task>(*readBack, "A1B2C3D4-0000-4000-8000-00000000000B"), "Water plants");
    EXPECT_EQ(found<TK_Subtask>(*readBack, "a1b2c3d4-0000-4000-8000-00000000000c"), "Fill the can");
    EXPECT_EQ(found<TK_Task>(*readBack, "A1B2C3D4-0000-4000-8000-00000000000A"),
              "there is no task \"A1B2C3D4-0000-4000-8000-00000000000A\"");
    EXPECT_EQ(found<TK_Subtask>(*readBack, "A1B2C3D4"), "there is no subtask \"A1B2C3D4\"");
    EXPECT_EQ(found<TK_Category>(*readBack, ""), "there is no list \"\"");

    // Pending changes count: an unsaved task is found in its own context.
    auto draft = TK_Task::insertNew(*readBack);
    draft->setTaskID("A1B2C3D4-0000-4000-8000-00000000000D");
    draft->setTitle("Draft");
    EXPECT_EQ(found<TK_Task>(*readBack, "a1b2c3d4-0000-4000-8000-00000000000d"), "Draft");
}
