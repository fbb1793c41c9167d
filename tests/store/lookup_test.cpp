// Looking a task, subtask or list up by the identifier a person typed.
#include "store/lookup.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

using namespace tasket::store;
using tasket::platform::Errc;

namespace {

class Lookup : public tasket::testing::StoreFixture {};

template <class Record>
std::string found(tasket::objectstore::ObjectContext& context, std::string_view id) {
    auto record = findByIdentifier<Record>(context, id);
    if (!record)
        return record.error().code == Errc::notFound ? record.error().message : "(failed)";
    return (*record)->title().value_or("");
}

} // namespace

// Identifiers are upper-case UUIDs; a lower-case one names the same record,
// a prefix or another kind's identifier names none.
TEST_F(Lookup, FindsEachKindByItsIdentifierIgnoringCase) {
    auto context = newContext();
    auto list = TK_Category::insertNew(*context);
    list->setCategoryID("A1B2C3D4-0000-4000-8000-00000000000A");
    list->setTitle("Home");
    auto task = TK_Task::insertNew(*context);
    task->setTaskID("A1B2C3D4-0000-4000-8000-00000000000B");
    task->setTitle("Water plants");
    task->setCategory(list);
    auto subtask = TK_Subtask::insertNew(*context);
    subtask->setSubtaskID("A1B2C3D4-0000-4000-8000-00000000000C");
    subtask->setTitle("Fill the can");
    subtask->setTask(task);
    ASSERT_SAVED(context);

    auto reader = newContext();
    EXPECT_EQ(found<TK_Category>(*reader, "a1b2c3d4-0000-4000-8000-00000000000a"), "Home");
    EXPECT_EQ(found<TK_Task>(*reader, "A1B2C3D4-0000-4000-8000-00000000000B"), "Water plants");
    EXPECT_EQ(found<TK_Subtask>(*reader, "a1b2c3d4-0000-4000-8000-00000000000c"), "Fill the can");
    EXPECT_EQ(found<TK_Task>(*reader, "A1B2C3D4-0000-4000-8000-00000000000A"),
              "there is no task \"A1B2C3D4-0000-4000-8000-00000000000A\"");
    EXPECT_EQ(found<TK_Subtask>(*reader, "A1B2C3D4"), "there is no subtask \"A1B2C3D4\"");
    EXPECT_EQ(found<TK_Category>(*reader, ""), "there is no list \"\"");

    // Pending changes count: an unsaved task is found in its own context.
    auto draft = TK_Task::insertNew(*reader);
    draft->setTaskID("A1B2C3D4-0000-4000-8000-00000000000D");
    draft->setTitle("Draft");
    EXPECT_EQ(found<TK_Task>(*reader, "a1b2c3d4-0000-4000-8000-00000000000d"), "Draft");
}
