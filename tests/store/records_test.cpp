// The record classes over the TK_Data model (entity and property names are
// in the golden table): typed accessors, relationships and delete rules.
#include "store/records.h"
#include "store/tk_data_model.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace tasket::store;
using tasket::objectstore::Bytes;
using tasket::objectstore::ObjectContext;
using tasket::platform::Date;
using tasket::platform::Uuid;
namespace rules = tasket::rules;

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

    std::shared_ptr<ObjectContext> writer;
    std::shared_ptr<ObjectContext> reader;
};

template <class R> void checkRecordClass(ObjectContext& writer, ObjectContext& reader) {
    SCOPED_TRACE(std::string(R::entityName));
    auto inserted = R::insertNew(writer);
    ASSERT_TRUE(inserted);
    EXPECT_EQ(inserted->entityDescription().name, R::entityName);
    EXPECT_EQ(R::fetchRequest().entityName, R::entityName);
    ASSERT_TRUE(writer.save());
    EXPECT_TRUE(std::dynamic_pointer_cast<R>(reader.objectWithID(inserted->objectID())));
}

} // namespace

TEST_F(Records, EveryEntityIsMadeAsTheRecordClassOfItsName) {
    auto readerContext = newContext();
#define TK_TEST_CHECK(Class) checkRecordClass<Class>(*writer, *readerContext);
    TK_DATA_ENTITIES(TK_TEST_CHECK)
#undef TK_TEST_CHECK
}

// The compile-time property indexes the accessors use are the engine's.
TEST(RecordSchema, PropertyIndexesAreTheEngines) {
    using tasket::store::detail::Schema;
#define TK_TEST_INDEX(C, kind, name, ...)                                                          \
    EXPECT_EQ(tkDataModel()->entity(#C)->propertyIndex(#name), Schema<C>::Property::name)          \
        << #C "." #name;
#define TK_TEST_ENTITY(C) TK_DATA_##C(TK_TEST_INDEX, C)
    TK_DATA_ENTITIES(TK_TEST_ENTITY)
#undef TK_TEST_ENTITY
#undef TK_TEST_INDEX
}

TEST_F(Records, TypedAttributesStartAtTheirDefaultsAndRoundTrip) {
    auto task = TK_Task::insertNew(*writer);
    EXPECT_EQ(task->title(), std::nullopt);
    EXPECT_FALSE(task->isCompleted());
    EXPECT_EQ(task->categorySortIndex(), 0);
    EXPECT_EQ(task->repeatFrequency(), 0.0);
    EXPECT_EQ(task->repeatIntervalTypeCase(), rules::TK_RepeatInterval::none);

    task->setTaskID("A1");
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
    EXPECT_TRUE(read->isFault());
    EXPECT_EQ(read->taskID(), "A1");
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
    EXPECT_EQ(read->repeatIntervalType(), 6);
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

TEST_F(Records, RelationshipsKeepBothSidesAndPersist) {
    auto home = TK_Category::insertNew(*writer);
    auto work = TK_Category::insertNew(*writer);
    auto task = TK_Task::insertNew(*writer);
    auto subtask = TK_Subtask::insertNew(*writer);
    auto tag = TK_Tag::insertNew(*writer);
    auto priority = TK_Priority::insertNew(*writer);
    auto status = TK_Status::insertNew(*writer);
    auto value = TK_AttributeValue::insertNew(*writer);
    auto section = TK_BoardSection::insertNew(*writer);
    auto smart = TK_SmartCategory::insertNew(*writer);
    auto attachment = TK_Attachment::insertNew(*writer);

    task->setCategory(home);
    task->setCategory(work); // moves
    subtask->setTask(task);
    task->addToTags(tag);
    subtask->setCustomStatus(status);
    attachment->setSubtask(subtask);
    section->setValue(value); // the section's owner
    section->addToTasks(task);
    smart->addToFilterTags(tag);
    home->setAddTasksToPriority(priority);
    section->addToRemoveTasksFromStatuses(status);
    tag->addToAddTasksToTags(tag); // a tag may name its own kind

    EXPECT_TRUE(home->tasks().empty());
    EXPECT_TRUE(holds(work->tasks(), task));
    EXPECT_TRUE(holds(task->subtasks(), subtask));
    EXPECT_TRUE(holds(tag->tasks(), task));
    EXPECT_TRUE(holds(status->subtasks(), subtask));
    EXPECT_TRUE(holds(subtask->attachmentsArray(), attachment));
    EXPECT_TRUE(holds(value->boardSections(), section));
    EXPECT_TRUE(holds(task->boardSections(), section));
    EXPECT_TRUE(holds(tag->filters(), smart));
    EXPECT_TRUE(smart->tags().empty()); // the smart list's own tags are another relationship
    EXPECT_TRUE(holds(priority->categoryAddTasksToPriority(), home));
    EXPECT_TRUE(holds(status->sectionRemoveTasksFromStatus(), section));
    EXPECT_TRUE(holds(tag->tagAddTasksToTags(), tag));
    ASSERT_SAVED(writer);

    EXPECT_EQ(reread(task)->category()->objectID(), work->objectID());
    EXPECT_EQ(reread(subtask)->task()->objectID(), task->objectID());
    EXPECT_EQ(reread(attachment)->subtask()->objectID(), subtask->objectID());
    EXPECT_EQ(reread(attachment)->task(), nullptr);
    EXPECT_EQ(reread(section)->value()->objectID(), value->objectID());
    EXPECT_EQ(reread(section)->category(), nullptr);
    EXPECT_EQ(reread(home)->addTasksToPriority()->objectID(), priority->objectID());
    EXPECT_TRUE(holds(reread(status)->sectionRemoveTasksFromStatus(), reread(section)));
    EXPECT_TRUE(holds(reread(tag)->addTasksToTags(), reread(tag)));

    task->removeFromTags(tag);
    EXPECT_TRUE(tag->tasks().empty());
    ASSERT_SAVED(writer);
    EXPECT_TRUE(newContext()->objectWithID(tag->objectID()) != nullptr);
    EXPECT_TRUE(std::dynamic_pointer_cast<TK_Tag>(newContext()->objectWithID(tag->objectID()))
                    ->tasks()
                    .empty());
}

TEST_F(Records, DeletingAListOrAnAttributeTakesWhatItOwns) {
    auto category = TK_Category::insertNew(*writer);
    auto task = TK_Task::insertNew(*writer);
    auto subtask = TK_Subtask::insertNew(*writer);
    auto attachment = TK_Attachment::insertNew(*writer);
    auto section = TK_BoardSection::insertNew(*writer);
    auto tag = TK_Tag::insertNew(*writer);
    auto attribute = TK_Attribute::insertNew(*writer);
    auto value = TK_AttributeValue::insertNew(*writer);
    task->setCategory(category);
    subtask->setTask(task);
    attachment->setTask(task);
    section->setCategory(category);
    task->addToTags(tag);
    value->setAttribute(attribute);
    ASSERT_SAVED(writer);

    writer->deleteObject(category);
    writer->deleteObject(attribute);
    ASSERT_SAVED(writer);
    for (const auto& gone :
         std::vector<tasket::objectstore::ObjectPtr>{task, subtask, attachment, section, value})
        EXPECT_FALSE(newContext()->existingObject(gone->objectID()))
            << gone->entityDescription().name;
    EXPECT_TRUE(newContext()->existingObject(tag->objectID()));
}
