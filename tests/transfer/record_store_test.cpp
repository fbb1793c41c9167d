// Records and the store: every table row against the model, export then
// import into an empty store, references that name nothing, records that
// do not fit, and a Taskwarrior export of the peers' task set.
#include "objectstore/predicate/predicate.h"
#include "store/records.h"
#include "support/store_fixture.h"
#include "transfer/record_codec.h"
#include "transfer/record_stream.h"
#include "transfer/taskwarrior_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <fstream>
#include <sstream>

namespace tasket::transfer {
namespace {

using objectstore::Predicate;
using objectstore::PredicateArgument;

const std::filesystem::path kData = TASKET_TRANSFER_DATA;

// The golden records, one file line each: a small store with every kind
// and every kind of reference.
std::string goldenFile() {
    std::string file;
    for (const auto& kind : kRecordKinds) {
        auto record =
            decodeKind(kind.name, testing::readFile(kData / (std::string(kind.name) + ".json")));
        file += recordLine(record.value()).value() + "\n";
    }
    return file;
}

class RecordStore : public testing::StoreFixture {
  protected:
    std::string exported(objectstore::ObjectContext& context) {
        std::ostringstream out;
        EXPECT_TRUE(exportRecords(context, {.list = std::nullopt, .batchSize = 3}, out));
        return out.str();
    }
    ImportReport imported(objectstore::ObjectContext& context, const std::string& file,
                          bool dryRun = false) {
        std::istringstream in(file);
        auto report = importRecords(context, in, dryRun);
        EXPECT_TRUE(report) << report.error().message;
        return report.value_or(ImportReport{});
    }
};

TEST_F(RecordStore, EveryReferenceNamesTheEntityOfItsStoreRelationship) {
    const auto& model = *store::tkDataModel();
    auto check = [&](auto kind) {
        using R = decltype(kind);
        const auto* entity = model.entity(RecordTraits<R>::kEntity);
        for (const auto& field : RecordTraits<R>::kFields) {
            const auto property = entity->propertyIndex(field.storeName);
            ASSERT_TRUE(property) << RecordTraits<R>::kName << "." << field.key;
            const bool reference = field.kind == FieldKind::Ref || field.kind == FieldKind::Refs;
            ASSERT_EQ(!entity->isAttribute(*property), reference) << field.key;
            if (reference) {
                EXPECT_EQ(entity->relationship(*property).destination, field.target) << field.key;
                EXPECT_EQ(entity->relationship(*property).toMany, field.kind == FieldKind::Refs);
            }
        }
    };
#define TK_SHARED_CALL(Record, Entity, contentType) check(Record{});
    TK_SHARED_RECORDS(TK_SHARED_CALL)
#undef TK_SHARED_CALL
}

TEST_F(RecordStore, ExportThenImportIntoAnEmptyStoreGivesTheSameObjects) {
    auto first = newContext();
    const auto report = imported(*first, goldenFile());
    EXPECT_TRUE(report.missing.empty()) << report.missing.front();
    for (std::size_t i = 0; i < kRecordKinds.size(); ++i)
        EXPECT_EQ(report.counts.created[i], 1u) << kRecordKinds[i].name;
    const std::string once = exported(*first);
    EXPECT_EQ(std::count(once.begin(), once.end(), '\n'), 12);
    // The golden task comes back as it went in: every value and reference.
    auto task = store::TK_Task::fetchRequest();
    auto tasks = first->fetch(task).value();
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(encode(recordFrom<TK_SharedTask>(*tasks.front())).value(),
              testing::readFile(kData / "TK_SharedTask.json"));

    testing::TempDir other;
    auto emptyStore =
        objectstore::PersistentStore::open(other / "TK_Data.sqlite", store::tkDataModel(),
                                           objectstore::StoreOptions{true, false})
            .value();
    auto second =
        objectstore::ObjectContext::make(emptyStore, objectstore::ConcurrencyType::mainQueue);
    imported(*second, once);
    EXPECT_EQ(exported(*second), once);
    // Importing again updates every object and creates none.
    const auto again = imported(*second, once, true);
    EXPECT_EQ(again.counts.created, RecordApplier::Counts{}.created);
    EXPECT_FALSE(second->hasChanges());
}

TEST_F(RecordStore, AMissingTargetIsReportedAndLeftOut) {
    auto context = newContext();
    TK_SharedTask task{.id = "T1"};
    task.tags = Strings{"NO-SUCH-TAG"};
    const auto report = imported(*context, recordLine(task).value() + "\n");
    ASSERT_EQ(report.missing.size(), 1u);
    EXPECT_NE(report.missing[0].find("NO-SUCH-TAG"), std::string::npos);
    EXPECT_NE(report.missing[0].find("\"tags\""), std::string::npos);
    EXPECT_EQ(context->count(store::TK_Task::fetchRequest()).value(), 1u);
}

TEST_F(RecordStore, ABadLineImportsNothing) {
    TK_SharedTask fine{.id = "T1"};
    TK_SharedTask tooLarge{.id = "T2"};
    tooLarge.categorySortIndex = 40000;
    TK_SharedAttribute notUuid{.id = "not a uuid"};
    const std::string good = recordLine(fine).value() + "\n";
    struct Case {
        std::string second;
        std::string_view message;
    };
    const std::vector<Case> cases = {
        {recordLine(tooLarge).value(), "line 2: TK_SharedTask \"T2\": \"categorySortIndex\""},
        {recordLine(notUuid).value(), "\"id\" is not a UUID"},
        {R"({"kind":"TK_SharedNothing","record":{}})", "unknown record kind"},
        {good.substr(0, good.size() / 2), "line 2: not valid JSON"},
    };
    for (const auto& c : cases) {
        auto context = newContext();
        std::istringstream in(good + c.second + "\n");
        auto report = importRecords(*context, in, false);
        ASSERT_FALSE(report) << c.second;
        EXPECT_THAT(report.error().message, ::testing::HasSubstr(c.message));
        EXPECT_FALSE(context->hasChanges());
        EXPECT_EQ(context->count(store::TK_Task::fetchRequest()).value(), 0u);
    }
}

// The peers' task set as `task export` printed it (300 tasks from
// gen_tasks.py): the nine counts of its meta file come out of the store.
TEST_F(RecordStore, TaskwarriorExportGivesThePeerCounts) {
    auto context = newContext();
    auto importer = Importer::make(*context).value();
    auto deleted =
        addTaskwarriorExport(importer, testing::readFile(kData / "taskwarrior_export.json"));
    ASSERT_TRUE(deleted) << deleted.error().message;
    ASSERT_TRUE(importer.finish(false));

    simdjson::dom::parser parser;
    const std::string metaText = testing::readFile(kData / "taskwarrior_export.json.meta.json");
    const auto meta = parser.parse(metaText).get_object().value();
    const auto now = platform::Date::fromUnix(meta["now"].get_double().value());
    auto count = [&](std::string_view format, std::vector<PredicateArgument> arguments) {
        auto request = store::TK_Task::fetchRequest();
        if (!format.empty())
            request.predicate = Predicate::parse(format, arguments).value();
        return static_cast<std::int64_t>(context->count(request).value());
    };
    std::int64_t assignments = 0;
    const auto allTags = context->fetch(store::TK_Tag::fetchRequest()).value();
    for (const auto& tag : allTags)
        assignments +=
            static_cast<std::int64_t>(tag->toManyIDs(tag->propertyIndex("tasks")).size());
    const std::string pendingTag7 = "isCompleted == %@ AND ANY tags.title == %@";
    const std::string likeTag7 = "isCompleted == %@ AND ANY tags.title CONTAINS %@";
    const std::vector<std::pair<std::string, std::int64_t>> got = {
        {"total", count("", {})},
        {"pending", count("isCompleted == %@", {false})},
        {"completed", count("isCompleted == %@", {true})},
        {"with_due", count("dueDateAndTime != nil", {})},
        {"pending_tag7", count(pendingTag7, {false, "tag7"})},
        {"pending_tag7_due_before_now",
         count(pendingTag7 + " AND dueDateAndTime < %@", {false, "tag7", now})},
        {"todoman_pending_cat_like_tag7", count(likeTag7, {false, "tag7"})},
        {"todoman_pending_cat_like_tag7_due_lt_now_plus_1h",
         count(likeTag7 + " AND dueDateAndTime < %@", {false, "tag7", now.addingSeconds(3600)})},
        {"tag_assignments", assignments},
    };
    for (const auto& [name, value] : got)
        EXPECT_EQ(value, meta["expected"][name].get_int64().value()) << name;
    // Projects became lists, found again by title on a second import.
    EXPECT_EQ(context->count(store::TK_Category::fetchRequest()).value(), 50u);
}

} // namespace
} // namespace tasket::transfer
