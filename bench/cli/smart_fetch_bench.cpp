// A smart list of pending tasks with one tag that are overdue, fetched from
// a large task store the way `tasket tasks --smart` fetches it (the rules'
// predicate, compiled by the engine, newest first, walked in batches), every
// task's title and due moment read, against the SELECT a developer would
// write on a raw connection to the same file. Twice through the engine:
// reading only those attributes, as the hand-written SELECT does, and
// whole rows.
//
//   CLI_BENCH_STORE=/path/TK_Data.sqlite CLI_BENCH_TAG=tag7 smart_fetch_bench
#include "objectstore/object_context.h"
#include "objectstore/persistent_store.h"
#include "objectstore/predicate/sql_functions.h"
#include "platform/calendar.h"
#include "platform/clock.h"
#include "rules/predicates.h"
#include "rules/smart_predicate.h"
#include "store/records.h"
#include "store/tk_data_model.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

using namespace tasket;

namespace {

std::string environment(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    if (value)
        return value;
    if (fallback)
        return fallback;
    throw std::runtime_error(std::string("set ") + name);
}

const std::string kStore = environment("CLI_BENCH_STORE", nullptr);
const std::string kTag = environment("CLI_BENCH_TAG", "tag7");
const platform::Date kNow = platform::SystemClock().now();

std::shared_ptr<objectstore::ObjectContext> openContext() {
    auto store = objectstore::PersistentStore::open(kStore, store::tkDataModel(),
                                                    objectstore::StoreOptions{true, false});
    if (!store)
        throw std::runtime_error(store.error().message);
    return objectstore::ObjectContext::make(*store, objectstore::ConcurrencyType::mainQueue);
}

void smartFetchThroughTheEngine(benchmark::State& state, std::vector<std::string> attributes) {
    auto context = openContext();
    auto tagRequest = store::TK_Tag::fetchRequest();
    tagRequest.predicate = rules::predicates::parsed("title == %@", {kTag});
    const auto tag = context->fetch(tagRequest).value().at(0);
    const std::string tagID = static_cast<const store::TK_Tag&>(*tag).tagID().value_or("");
    const rules::PredicateTime time{kNow, platform::Calendar::current()};
    std::size_t rows = 0;
    for (auto _ : state) {
        const auto predicate =
            rules::smartPredicate({.completedFilter = rules::TK_CompletedFilter::no,
                                   .reminderFilter = rules::TK_ReminderFilter::overdue,
                                   .tagFilter = rules::TK_TagFilter::yes,
                                   .filterTagIDs = {tagID}},
                                  time);
        auto request = store::TK_Task::fetchRequest();
        request.predicate = objectstore::andPredicate({predicate, rules::predicates::validTask()});
        request.sortDescriptors = {{"whenCreated", false}};
        request.fetchBatchSize = 200;
        request.propertiesToFetch = attributes;
        rows = 0;
        auto walked = context->fetchEach(request, [&](const auto& batch) -> platform::Result<void> {
            for (const auto& object : batch) {
                const auto& task = static_cast<const store::TK_Task&>(*object);
                benchmark::DoNotOptimize(task.title());
                benchmark::DoNotOptimize(task.dueDateAndTime());
            }
            rows += batch.size();
            context->reset();
            return {};
        });
        if (!walked)
            throw std::runtime_error(walked.error().message);
    }
    state.counters["rows"] = static_cast<double>(rows);
}
void BM_SmartFetchThroughTheEngine(benchmark::State& state) {
    smartFetchThroughTheEngine(state, {"title", "dueDateAndTime"});
}
BENCHMARK(BM_SmartFetchThroughTheEngine)->Unit(benchmark::kMillisecond);

void BM_SmartFetchThroughTheEngineWholeRows(benchmark::State& state) {
    smartFetchThroughTheEngine(state, {});
}
BENCHMARK(BM_SmartFetchThroughTheEngineWholeRows)->Unit(benchmark::kMillisecond);

void BM_SmartFetchHandWritten(benchmark::State& state) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(kStore.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
        throw std::runtime_error("cannot open the store");
    objectstore::registerSqlFunctions(db);
    // The tag's rows first (its join-table key), then each task by key.
    const char* sql =
        "SELECT t.pk, t.title, t.dueDateAndTime FROM _J_TK_Tag_tasks j JOIN TK_Task t ON "
        "t.pk = j.dst WHERE j.src = (SELECT pk FROM TK_Tag WHERE title = ?2) AND "
        "t.isCompleted = 0 AND t.isRemindEnabled = 1 AND t.dueDateAndTime < ?1 "
        "ORDER BY t.whenCreated DESC";
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
    std::size_t rows = 0;
    for (auto _ : state) {
        sqlite3_bind_double(statement, 1, kNow.secondsSinceReference);
        sqlite3_bind_text(statement, 2, kTag.c_str(), -1, SQLITE_STATIC);
        rows = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            std::string title(reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)));
            benchmark::DoNotOptimize(title);
            benchmark::DoNotOptimize(sqlite3_column_double(statement, 2));
            ++rows;
        }
        sqlite3_reset(statement);
    }
    state.counters["rows"] = static_cast<double>(rows);
    sqlite3_finalize(statement);
    sqlite3_close(db);
}
BENCHMARK(BM_SmartFetchHandWritten)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
