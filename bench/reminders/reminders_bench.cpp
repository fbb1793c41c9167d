// The full reschedule pass over the large store (100,000 tasks, 300,000
// subtasks) in which 30,000 tasks have their due reminder on and a start
// date before it, and 1,000 more a start after their due date (left out),
// written into the real queue file in one transaction. The first run fills
// the queue; the measured ones replace every request, as a pass after a
// restart does. Goal: under a second.
#include "collections/bench_store.h"
#include "objectstore/persistent_store.h"
#include "platform/notifications/notification_queue.h"
#include "reminders/reminder_store.h"
#include "store/tk_data_model.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <stdexcept>

namespace {

using namespace tasket;

// Switches the reminders on with plain SQL in the scratch copy.
void addReminders(const std::filesystem::path& storeFile) {
    sqlite3* db = nullptr;
    if (sqlite3_open(storeFile.c_str(), &db) != SQLITE_OK)
        throw std::runtime_error("cannot open " + storeFile.string());
    // 2030-01-01 and on, one task a minute; due an hour after the start.
    const char* sql = R"sql(
        UPDATE TK_Task SET isRemindEnabled = 1, startDate = 915148800 + pk * 60,
          startDateAndTime = 915148800 + pk * 60, dueDate = 915152400 + pk * 60,
          dueDateAndTime = 915152400 + pk * 60 WHERE pk % 100 < 30;
        UPDATE TK_Task SET isStartDateRemindEnabled = 1, startDate = 915152400 + pk * 60 + 86400,
          dueDate = 915152400 + pk * 60 WHERE pk % 100 = 30;)sql";
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        std::string text = message ? message : "?";
        sqlite3_free(message);
        sqlite3_close(db);
        throw std::runtime_error(text);
    }
    sqlite3_close(db);
}

// The large store with the reminders switched on, made once per run.
const std::filesystem::path& remindersStore() {
    static const bench::ScratchCopy copy(bench::benchStoreFolder());
    static const bool prepared = (addReminders(copy.path() / "TK_Data.sqlite"), true);
    (void)prepared;
    return copy.path();
}

// The share of the store: fetching what the pass selects, nothing scheduled.
void BM_FetchSelection(benchmark::State& state) {
    auto storeFile = objectstore::PersistentStore::open(remindersStore() / "TK_Data.sqlite",
                                                        store::tkDataModel(),
                                                        objectstore::StoreOptions{true, false});
    if (!storeFile) {
        state.SkipWithError("cannot open the store");
        return;
    }
    std::size_t found = 0;
    for (auto _ : state) {
        auto context =
            objectstore::ObjectContext::make(*storeFile, objectstore::ConcurrencyType::mainQueue);
        found = context->fetch(reminders::rescheduleTasksRequest())->size() +
                context->fetch(reminders::rescheduleSubtasksRequest())->size();
    }
    state.counters["records"] = static_cast<double>(found);
}
BENCHMARK(BM_FetchSelection)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_RescheduleAll(benchmark::State& state) {
    const auto& folder = remindersStore();
    auto storeFile = objectstore::PersistentStore::open(
        folder / "TK_Data.sqlite", store::tkDataModel(), objectstore::StoreOptions{true, false});
    auto queue = platform::NotificationQueue::open(folder / platform::NotificationQueue::kFileName);
    if (!storeFile || !queue) {
        state.SkipWithError("cannot open the store or the queue");
        return;
    }
    reminders::NotificationManager manager(**queue, *platform::Calendar::inZone("Europe/Berlin"),
                                           [] {
                                               return settings::TimeOfDay{9, 0};
                                           });
    reminders::PassCounts counts;
    for (auto _ : state) {
        // A new context each time: nothing of the last pass is cached.
        auto context =
            objectstore::ObjectContext::make(*storeFile, objectstore::ConcurrencyType::mainQueue);
        auto done = (*queue)->transaction([&]() -> platform::Result<> {
            auto passed = reminders::rescheduleAll(manager, *context);
            if (!passed)
                return std::unexpected(passed.error());
            counts = *passed;
            return {};
        });
        if (!done) {
            state.SkipWithError(done.error().message.c_str());
            return;
        }
    }
    state.counters["tasks"] = static_cast<double>(counts.tasks);
    state.counters["pending"] = static_cast<double>((*queue)->queued()->size());
}
BENCHMARK(BM_RescheduleAll)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
