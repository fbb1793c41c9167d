// The engine against raw SQLite on the same schema and pragmas: bulk
// inserts in saves of 1,000, one small durable save, and reading history.
// Each engine figure has its raw twin in the same run; compare the pairs.
#include "objectstore/object_context.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <string>

using namespace tasket::objectstore;

namespace {

std::shared_ptr<Model> taskModel() {
    auto m = std::make_shared<Model>("Bench", 1);
    auto& list = m->addEntity("List");
    list.attributes = {{"title", AttributeType::String}};
    list.relationships = {{"tasks", "Task", "list", true, DeleteRule::Cascade}};
    auto& task = m->addEntity("Task");
    task.attributes = {{"taskID", AttributeType::String, true, {}, true},
                       {"title", AttributeType::String},
                       {"isCompleted", AttributeType::Bool, false, false},
                       {"dueDateAndTime", AttributeType::Date},
                       {"whenCreated", AttributeType::Date},
                       {"sortIndex", AttributeType::Int16, true, std::int64_t(0)}};
    task.relationships = {{"list", "List", "tasks", false, DeleteRule::Nullify}};
    (void)m->finalize();
    return m;
}

struct Folder {
    std::filesystem::path path;
    Folder() {
        std::string p = (std::filesystem::temp_directory_path() / "tasket-bench-XXXXXX").string();
        path = mkdtemp(p.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
};

constexpr int kSaveSize = 1000;

// The engine: objects inserted in a background context, saved every 1,000.
void engineInsert(benchmark::State& state, bool history) {
    const int total = static_cast<int>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        Folder folder;
        auto store = *PersistentStore::open(folder.path / "e.sqlite", taskModel(),
                                            StoreOptions{history, false});
        auto context = ObjectContext::make(store, ConcurrencyType::privateQueue);
        ObjectPtr list;
        context->performAndWait([&] {
            list = context->insertNewObject("List");
            (void)context->save();
        });
        const ObjectID listID = list->objectID();
        list.reset();
        state.ResumeTiming();
        context->performAndWait([&] {
            const auto& e = *store->model().entity("Task");
            const auto title = *e.propertyIndex("title"), id = *e.propertyIndex("taskID"),
                       done = *e.propertyIndex("isCompleted"),
                       due = *e.propertyIndex("dueDateAndTime"),
                       created = *e.propertyIndex("whenCreated"), listP = *e.propertyIndex("list");
            for (int i = 0; i < total; i += kSaveSize) {
                auto owner = context->objectWithID(listID);
                for (int j = i; j < i + kSaveSize; ++j) {
                    auto t = context->insertNewObject(e.index);
                    t->setValue(id, Uuid::generate().toString());
                    t->setValue(title, "Task number " + std::to_string(j));
                    t->setValue(done, j % 5 == 0);
                    t->setValue(due, Date{7e8 + j * 60.0});
                    t->setValue(created, Date{7e8});
                    t->setToOne(listP, owner);
                }
                if (!context->save())
                    state.SkipWithError("save failed");
                context->reset();
            }
        });
    }
    state.SetItemsProcessed(state.iterations() * total);
}

// Raw SQLite: the same rows through one prepared INSERT per save.
void rawInsert(benchmark::State& state) {
    const int total = static_cast<int>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        Folder folder;
        (void)PersistentStore::open(folder.path / "r.sqlite", taskModel()); // the same schema
        sqlite3* db = nullptr;
        sqlite3_open((folder.path / "r.sqlite").c_str(), &db);
        sqlite3_exec(db,
                     "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;"
                     "INSERT INTO List(pk, _version, title) VALUES(1, 1, NULL)",
                     nullptr, nullptr, nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db,
                           "INSERT INTO Task(pk, _version, taskID, title, isCompleted, "
                           "dueDateAndTime, whenCreated, "
                           "sortIndex, list) VALUES(?, 1, ?, ?, ?, ?, ?, 0, 1)",
                           -1, &insert, nullptr);
        state.ResumeTiming();
        for (int i = 0; i < total; i += kSaveSize) {
            sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
            for (int j = i; j < i + kSaveSize; ++j) {
                const std::string id = Uuid::generate().toString();
                const std::string title = "Task number " + std::to_string(j);
                sqlite3_bind_int64(insert, 1, j + 1);
                sqlite3_bind_text(insert, 2, id.c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_bind_text(insert, 3, title.c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_bind_int(insert, 4, j % 5 == 0);
                sqlite3_bind_double(insert, 5, 7e8 + j * 60.0);
                sqlite3_bind_double(insert, 6, 7e8);
                if (sqlite3_step(insert) != SQLITE_DONE)
                    state.SkipWithError(sqlite3_errmsg(db));
                sqlite3_reset(insert);
            }
            sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        }
        state.PauseTiming();
        sqlite3_finalize(insert);
        sqlite3_close(db);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * total);
}

void BM_EngineInsert(benchmark::State& s) {
    engineInsert(s, false);
}
void BM_EngineInsertWithHistory(benchmark::State& s) {
    engineInsert(s, true);
}
void BM_RawInsert(benchmark::State& s) {
    rawInsert(s);
}
BENCHMARK(BM_EngineInsert)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_EngineInsertWithHistory)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_RawInsert)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

// One object, one durable save (history on, as the application runs).
void BM_EngineSmallSave(benchmark::State& state) {
    Folder folder;
    auto store =
        *PersistentStore::open(folder.path / "s.sqlite", taskModel(), StoreOptions{true, false});
    auto context = ObjectContext::make(store, ConcurrencyType::privateQueue);
    context->performAndWait([&] {
        const auto& e = *store->model().entity("Task");
        const auto title = *e.propertyIndex("title");
        int n = 0;
        for (auto _ : state) {
            context->insertNewObject(e.index)->setValue(title, "one " + std::to_string(n++));
            if (!context->save())
                state.SkipWithError("save failed");
            context->reset();
        }
    });
}
BENCHMARK(BM_EngineSmallSave)->Unit(benchmark::kMicrosecond);

void BM_RawSmallSave(benchmark::State& state) {
    Folder folder;
    (void)PersistentStore::open(folder.path / "s.sqlite", taskModel());
    sqlite3* db = nullptr;
    sqlite3_open((folder.path / "s.sqlite").c_str(), &db);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr,
                 nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO Task(_version, title, isCompleted) VALUES(1, ?, 0)", -1,
                       &insert, nullptr);
    int n = 0;
    for (auto _ : state) {
        const std::string title = "one " + std::to_string(n++);
        sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
        sqlite3_bind_text(insert, 1, title.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
}
BENCHMARK(BM_RawSmallSave)->Unit(benchmark::kMicrosecond);

// 10,000 history transactions after a token.
void BM_HistoryAfterToken(benchmark::State& state) {
    Folder folder;
    auto store =
        *PersistentStore::open(folder.path / "h.sqlite", taskModel(), StoreOptions{true, false});
    auto context = ObjectContext::make(store, ConcurrencyType::privateQueue);
    {
        // Build 10,001 transactions quickly: durability off while setting up.
        sqlite3* db = nullptr;
        sqlite3_open((folder.path / "h.sqlite").c_str(), &db);
        sqlite3_exec(db, "PRAGMA synchronous=OFF; BEGIN", nullptr, nullptr, nullptr);
        for (int i = 0; i <= 10000; ++i) {
            const std::string sql =
                "INSERT INTO _history_transaction(timestamp, contextName, author) VALUES(" +
                std::to_string(7e8 + i) +
                ", 'Bench', 'bench'); INSERT INTO _history_change(token, "
                "entity, key, type, properties) VALUES(last_insert_rowid(), 'Task', " +
                std::to_string(i + 1) + ", 1, 'title,isCompleted')";
            sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
        }
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    const HistoryToken first{1};
    for (auto _ : state) {
        auto history = store->historyAfter(first);
        if (!history || history->size() != 10000)
            state.SkipWithError("wrong history");
        benchmark::DoNotOptimize(history);
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(BM_HistoryAfterToken)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
