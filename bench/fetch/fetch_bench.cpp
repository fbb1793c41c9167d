// Fetching from a store shaped like the task store: 100,000 tasks (20% done,
// due dates within 60 days either side of a fixed "now", 0-5 of 50 tags each,
// one of 10 categories), built once per process in a temporary folder. Every
// engine figure has a twin in the same run: hand-written SQL on a raw
// connection to the same file, with the engine's pragmas and SQL functions.
//
//  Compound*    isCompleted = NO AND ANY tags.tagID IN {3 tags} AND
//               dueDateAndTime < now, by due date: identities, then loaded
//               objects, against the SELECT a developer would write.
//  Contains*    title CONTAINS[c] over all 100,000 tasks, against instr() over
//               the same folding function tk_fold().
//  FirstBatch*  all 100,000 by creation date with batch size 20, until the
//               first object is loaded; FullFetch* the same with every
//               object loaded (rows read, for the raw twin).
//  Memory/*     the peak resident-set growth of the batched and the full
//               fetch, each in a fresh child process (see measureInChild).
//  Controller*  a fetched-results controller over 10,000 tasks told of one
//               edited due date, against running its whole fetch again.
//
// `fetch_bench --explain` prints the engine's SQL and the hand-written SQL of
// the compound and CONTAINS fetches with their query plans.
#include "objectstore/fetched_results_controller.h"
#include "objectstore/object_context.h"
#include "objectstore/predicate/sql_compiler.h"
#include "objectstore/predicate/sql_functions.h"
#include "platform/main_queue.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

extern char** environ;

using namespace tasket::objectstore;

namespace {

constexpr int kTasks = 100'000;
constexpr int kTags = 50;
constexpr int kCategories = 10;
constexpr double kDay = 86'400.0;
constexpr Date kNow{760'000'000.0}; // a fixed "now": early January 2025
constexpr int kBatchSize = 20;
constexpr std::string_view kChildFlag = "--measure-memory";

// ---------------------------------------------------------------- the store

std::shared_ptr<Model> benchModel() {
    auto m = std::make_shared<Model>("FetchBench", 1);
    auto& category = m->addEntity("Category");
    category.attributes = {{"categoryID", AttributeType::String, true, {}, true},
                           {"title", AttributeType::String}};
    category.relationships = {{"tasks", "Task", "category", true, DeleteRule::Cascade}};
    auto& tag = m->addEntity("Tag");
    tag.attributes = {{"tagID", AttributeType::String, true, {}, true},
                      {"title", AttributeType::String}};
    tag.relationships = {{"tasks", "Task", "tags", true, DeleteRule::Nullify}};
    auto& task = m->addEntity("Task");
    task.attributes = {{"taskID", AttributeType::String, true, {}, true},
                       {"title", AttributeType::String},
                       {"isCompleted", AttributeType::Bool, false, false},
                       {"dueDateAndTime", AttributeType::Date},
                       {"whenCreated", AttributeType::Date}};
    task.relationships = {{"category", "Category", "tasks", false, DeleteRule::Nullify},
                          {"tags", "Tag", "tasks", true, DeleteRule::Nullify}};
    if (!m->finalize())
        throw std::logic_error("the benchmark model does not finalize");
    return m;
}

struct Folder {
    std::filesystem::path path;
    Folder() {
        std::string p =
            (std::filesystem::temp_directory_path() / "tasket-fetch-bench-XXXXXX").string();
        if (!mkdtemp(p.data()))
            throw std::runtime_error("cannot create a temporary folder");
        path = p;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
};

class RawStatement {
  public:
    RawStatement(sqlite3* db, std::string_view sql) {
        if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &m_stmt, nullptr) !=
            SQLITE_OK)
            throw std::runtime_error(fmt::format("{}: {}", sqlite3_errmsg(db), sql));
    }
    ~RawStatement() { sqlite3_finalize(m_stmt); }
    RawStatement(const RawStatement&) = delete;
    RawStatement& operator=(const RawStatement&) = delete;
    sqlite3_stmt* get() const { return m_stmt; }
    void text(int index, std::string_view s) const {
        sqlite3_bind_text(m_stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
    }
    /// Steps once; throws on an error.
    bool row() const {
        const int rc = sqlite3_step(m_stmt);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(m_stmt)));
        return rc == SQLITE_ROW;
    }
    void reset() const { sqlite3_reset(m_stmt); }

  private:
    sqlite3_stmt* m_stmt = nullptr;
};

// A connection of our own to the store file, set up as the engine sets up
// its own: write-ahead log, full sync, foreign keys, the SQL functions.
class RawConnection {
  public:
    explicit RawConnection(const std::filesystem::path& file) {
        if (sqlite3_open_v2(file.c_str(), &m_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
            throw std::runtime_error("cannot open the store file");
        sqlite3_busy_timeout(m_db, 30000);
        exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;");
        registerSqlFunctions(m_db);
    }
    ~RawConnection() { sqlite3_close(m_db); }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;
    sqlite3* get() const { return m_db; }
    void exec(const std::string& sql) const {
        char* message = nullptr;
        if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
            std::string what = message ? message : "unknown error";
            sqlite3_free(message);
            throw std::runtime_error(what);
        }
    }

  private:
    sqlite3* m_db = nullptr;
};

std::string pseudoUuid(std::mt19937_64& random) {
    const std::uint64_t a = random(), b = random();
    return fmt::format("{:08X}-{:04X}-4{:03X}-{:04X}-{:012X}", a >> 32, (a >> 16) & 0xFFFF,
                       a & 0xFFF, 0x8000 | (b >> 48 & 0x3FFF), b & 0xFFFFFFFFFFFF);
}

// About a quarter of the titles have non-ASCII letters, so folding takes
// both of its paths.
const std::vector<std::string_view> kVerbs = {"Call", "Email", "Buy",     "Review",
                                              "Plan", "Fix",   "Write",   "Book",
                                              "Pay",  "Clean", "Prepare", "Schedule"};
const std::vector<std::string_view> kThings = {
    "report",  "invoice",       "groceries",  "dentist",       "car",          "garden",
    "slides",  "budget",        "Café order", "Straße permit", "Émile's gift", "Übersicht",
    "tickets", "meeting notes", "taxes",      "résumé"};

struct BenchData {
    Folder folder;
    std::filesystem::path file = folder.path / "fetch.sqlite";
    std::string joinTable; // tags: src = tag, dst = task
    std::vector<std::string> tagIDs;
    std::uint32_t taskEntity = 0, categoryEntity = 0;
};

// Schema from the engine, rows through raw inserts with durability off.
void fill(BenchData& data) {
    auto model = benchModel();
    const auto& task = *model->entity("Task");
    const auto tags = *task.propertyIndex("tags") - task.attributes.size();
    if (task.storage[tags] != RelationshipStorage::JoinTableInverse)
        throw std::logic_error("the tag join table is expected to belong to Tag");
    data.joinTable = task.joinTables[tags];
    data.taskEntity = task.index;
    data.categoryEntity = model->entity("Category")->index;
    if (!PersistentStore::open(data.file, model))
        throw std::runtime_error("cannot create the store");

    RawConnection db(data.file);
    db.exec("PRAGMA synchronous=OFF; PRAGMA foreign_keys=OFF; BEGIN");
    std::mt19937_64 random(20250101);
    auto uniform = [&](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };

    RawStatement category(db.get(),
                          R"(INSERT INTO "Category"(pk, categoryID, title) VALUES(?, ?, ?))");
    for (int i = 1; i <= kCategories; ++i) {
        sqlite3_bind_int(category.get(), 1, i);
        category.text(2, pseudoUuid(random));
        category.text(3, fmt::format("List {}", i));
        category.row();
        category.reset();
    }
    RawStatement tag(db.get(), R"(INSERT INTO "Tag"(pk, tagID, title) VALUES(?, ?, ?))");
    for (int i = 1; i <= kTags; ++i) {
        data.tagIDs.push_back(pseudoUuid(random));
        sqlite3_bind_int(tag.get(), 1, i);
        tag.text(2, data.tagIDs.back());
        tag.text(3, fmt::format("tag{}", i));
        tag.row();
        tag.reset();
    }
    RawStatement insert(
        db.get(), R"(INSERT INTO "Task"(pk, taskID, title, isCompleted, dueDateAndTime, whenCreated,
                                      category) VALUES(?, ?, ?, ?, ?, ?, ?))");
    RawStatement link(db.get(),
                      fmt::format(R"(INSERT INTO "{}"(src, dst) VALUES(?, ?))", data.joinTable));
    std::vector<int> tagOrder(kTags);
    for (int i = 0; i < kTags; ++i)
        tagOrder[static_cast<std::size_t>(i)] = i + 1;
    for (int i = 1; i <= kTasks; ++i) {
        sqlite3_bind_int(insert.get(), 1, i);
        insert.text(2, pseudoUuid(random));
        insert.text(3, fmt::format("{} {} {}", kVerbs[static_cast<std::size_t>(uniform(0, 11))],
                                   kThings[static_cast<std::size_t>(uniform(0, 15))], i));
        sqlite3_bind_int(insert.get(), 4, uniform(0, 4) == 0 ? 1 : 0);
        sqlite3_bind_double(insert.get(), 5,
                            kNow.secondsSinceReference + std::uniform_real_distribution<double>(
                                                             -60 * kDay, 60 * kDay)(random));
        sqlite3_bind_double(insert.get(), 6,
                            kNow.secondsSinceReference -
                                std::uniform_real_distribution<double>(0, 365 * kDay)(random));
        sqlite3_bind_int(insert.get(), 7, 1 + (i - 1) % kCategories);
        insert.row();
        insert.reset();
        const int count = uniform(0, 5);
        for (int k = 0; k < count; ++k) // a partial shuffle picks distinct tags
            std::swap(tagOrder[static_cast<std::size_t>(k)],
                      tagOrder[static_cast<std::size_t>(uniform(k, kTags - 1))]);
        for (int k = 0; k < count; ++k) {
            sqlite3_bind_int(link.get(), 1, tagOrder[static_cast<std::size_t>(k)]);
            sqlite3_bind_int(link.get(), 2, i);
            link.row();
            link.reset();
        }
    }
    db.exec("COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
}

const BenchData& benchData() {
    static BenchData data;
    static const bool filled = (fill(data), true);
    (void)filled;
    return data;
}

// The engine and the raw connection, opened once after the data exists.
struct Session {
    std::shared_ptr<PersistentStore> store;
    RawConnection raw;
    explicit Session(const BenchData& data)
        : store(*PersistentStore::open(data.file, benchModel())), raw(data.file) {}
};

Session& session() {
    static Session s(benchData());
    return s;
}

std::shared_ptr<ObjectContext> viewContext() {
    return ObjectContext::make(session().store, ConcurrencyType::mainQueue);
}

// ---------------------------------------------------------------- requests

ScalarList chosenTags() {
    const auto& ids = benchData().tagIDs;
    return {Scalar(ids[0]), Scalar(ids[1]), Scalar(ids[2])};
}

FetchRequest compoundRequest() {
    FetchRequest r("Task");
    r.predicate =
        *Predicate::parse("isCompleted = %d AND ANY tags.tagID IN %@ AND dueDateAndTime < %@",
                          {0, chosenTags(), kNow});
    r.sortDescriptors = {{"dueDateAndTime", true}};
    return r;
}

std::string compoundSql(std::string_view columns) {
    return fmt::format(R"(SELECT {} FROM "Task" AS t
        WHERE t.isCompleted = ?1 AND t.dueDateAndTime < ?2
          AND t.pk IN (SELECT j.dst FROM "{}" AS j JOIN "Tag" AS g ON g.pk = j.src WHERE g.tagID IN (?3, ?4, ?5))
        ORDER BY t.dueDateAndTime, t.pk)",
                       columns, benchData().joinTable);
}

void bindCompound(const RawStatement& s) {
    sqlite3_bind_int(s.get(), 1, 0);
    sqlite3_bind_double(s.get(), 2, kNow.secondsSinceReference);
    for (int i = 0; i < 3; ++i)
        s.text(3 + i, benchData().tagIDs[static_cast<std::size_t>(i)]);
}

constexpr const char* kNeedle = "Report"; // folds to "report"

FetchRequest containsRequest() {
    FetchRequest r("Task");
    r.predicate = *Predicate::parse("title CONTAINS[c] %@", {kNeedle});
    return r;
}

const char* const kContainsSql =
    R"(SELECT pk FROM "Task" WHERE instr(tk_fold(title, 1), ?1) > 0 ORDER BY pk)";

FetchRequest everythingRequest(std::size_t batchSize) {
    FetchRequest r("Task");
    r.sortDescriptors = {{"whenCreated", true}};
    r.fetchBatchSize = batchSize;
    return r;
}

// What a hand-written reader keeps of a task row.
struct TaskRow {
    std::int64_t pk = 0, version = 0;
    std::string taskID, title;
    bool isCompleted = false;
    double dueDateAndTime = 0, whenCreated = 0;
    std::int64_t category = 0;
};

constexpr const char* kRowColumns = "t.pk, t._version, t.taskID, t.title, t.isCompleted, "
                                    "t.dueDateAndTime, t.whenCreated, t.category";

std::string columnText(sqlite3_stmt* s, int col) {
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(s, col));
    return p ? std::string(p, static_cast<std::size_t>(sqlite3_column_bytes(s, col)))
             : std::string();
}

TaskRow readTaskRow(sqlite3_stmt* s) {
    return TaskRow{sqlite3_column_int64(s, 0),
                   sqlite3_column_int64(s, 1),
                   columnText(s, 2),
                   columnText(s, 3),
                   sqlite3_column_int(s, 4) != 0,
                   sqlite3_column_double(s, 5),
                   sqlite3_column_double(s, 6),
                   sqlite3_column_int64(s, 7)};
}

std::vector<std::int64_t> rawKeys(const RawStatement& s) {
    std::vector<std::int64_t> keys;
    while (s.row())
        keys.push_back(sqlite3_column_int64(s.get(), 0));
    s.reset();
    return keys;
}

std::vector<TaskRow> rawRows(const RawStatement& s) {
    std::vector<TaskRow> rows;
    while (s.row())
        rows.push_back(readTaskRow(s.get()));
    s.reset();
    return rows;
}

// The result sizes the raw SQL gives, which the engine must match.
std::size_t expectedCompound() {
    static const std::size_t n = [] {
        RawStatement s(session().raw.get(), compoundSql("t.pk"));
        bindCompound(s);
        return rawKeys(s).size();
    }();
    return n;
}

std::size_t expectedContains() {
    static const std::size_t n = [] {
        RawStatement s(session().raw.get(), kContainsSql);
        s.text(1, "report");
        return rawKeys(s).size();
    }();
    return n;
}

// ---------------------------------------------------------------- 1. compound fetch

// The engine fetching the identities `request` selects, checked against
// the count the hand-written SQL gives.
void engineIDs(benchmark::State& state, const FetchRequest& request, std::size_t expected) {
    auto context = viewContext();
    for (auto _ : state) {
        auto ids = context->fetchObjectIDs(request);
        if (!ids || ids->size() != expected)
            state.SkipWithError("the engine's result differs from the hand-written SQL's");
        benchmark::DoNotOptimize(ids);
    }
    state.counters["results"] = static_cast<double>(expected);
}

void BM_CompoundEngineIDs(benchmark::State& state) {
    engineIDs(state, compoundRequest(), expectedCompound());
}

void BM_CompoundRawIDs(benchmark::State& state) {
    RawStatement s(session().raw.get(), compoundSql("t.pk"));
    for (auto _ : state) {
        bindCompound(s);
        auto keys = rawKeys(s);
        benchmark::DoNotOptimize(keys);
    }
    state.counters["results"] = static_cast<double>(expectedCompound());
}

void BM_CompoundEngineObjects(benchmark::State& state) {
    auto context = viewContext();
    const FetchRequest request = compoundRequest();
    const std::size_t expected = expectedCompound();
    for (auto _ : state) {
        {
            auto objects = context->fetch(request);
            if (!objects || objects->size() != expected)
                state.SkipWithError("the engine's result differs from the hand-written SQL's");
            benchmark::DoNotOptimize(objects);
            state.PauseTiming();
        }
        context->reset(); // the next fetch loads every row again
        state.ResumeTiming();
    }
    state.counters["results"] = static_cast<double>(expected);
}

void BM_CompoundRawRows(benchmark::State& state) {
    RawStatement s(session().raw.get(), compoundSql(kRowColumns));
    for (auto _ : state) {
        bindCompound(s);
        {
            auto rows = rawRows(s);
            benchmark::DoNotOptimize(rows);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.counters["results"] = static_cast<double>(expectedCompound());
}

BENCHMARK(BM_CompoundEngineIDs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompoundRawIDs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompoundEngineObjects)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompoundRawRows)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------- 2. CONTAINS[c]

void BM_ContainsEngine(benchmark::State& state) {
    engineIDs(state, containsRequest(), expectedContains());
}

void BM_ContainsRaw(benchmark::State& state) {
    RawStatement s(session().raw.get(), kContainsSql);
    for (auto _ : state) {
        s.text(1, "report");
        auto keys = rawKeys(s);
        benchmark::DoNotOptimize(keys);
    }
    state.counters["results"] = static_cast<double>(expectedContains());
}

BENCHMARK(BM_ContainsEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ContainsRaw)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------- 3. batches

void BM_FirstBatchEngine(benchmark::State& state) {
    auto context = viewContext();
    const FetchRequest request = everythingRequest(kBatchSize);
    for (auto _ : state) {
        {
            auto results = context->fetchBatched(request);
            if (!results || results->size() != static_cast<std::size_t>(kTasks))
                state.SkipWithError("wrong result");
            else
                benchmark::DoNotOptimize(results->at(0));
            state.PauseTiming();
        }
        context->reset();
        state.ResumeTiming();
    }
}

// The ordered keys, then the first 20 rows by key.
void BM_FirstBatchRaw(benchmark::State& state) {
    RawStatement keys(session().raw.get(), R"(SELECT pk FROM "Task" ORDER BY whenCreated, pk)");
    std::string params;
    for (int i = 1; i <= kBatchSize; ++i)
        params += fmt::format("{}?{}", i > 1 ? ", " : "", i);
    RawStatement rows(
        session().raw.get(),
        fmt::format(R"(SELECT {} FROM "Task" AS t WHERE t.pk IN ({}))", kRowColumns, params));
    for (auto _ : state) {
        auto all = rawKeys(keys);
        for (int i = 0; i < kBatchSize; ++i)
            sqlite3_bind_int64(rows.get(), i + 1, all[static_cast<std::size_t>(i)]);
        auto batch = rawRows(rows);
        benchmark::DoNotOptimize(batch);
    }
}

void BM_FullFetchEngine(benchmark::State& state) {
    auto context = viewContext();
    const FetchRequest request = everythingRequest(0);
    for (auto _ : state) {
        {
            auto objects = context->fetch(request);
            if (!objects || objects->size() != static_cast<std::size_t>(kTasks))
                state.SkipWithError("wrong result");
            benchmark::DoNotOptimize(objects);
            state.PauseTiming();
        }
        context->reset();
        state.ResumeTiming();
    }
}

void BM_FullFetchRaw(benchmark::State& state) {
    RawStatement s(
        session().raw.get(),
        fmt::format(R"(SELECT {} FROM "Task" AS t ORDER BY t.whenCreated, t.pk)", kRowColumns));
    for (auto _ : state) {
        {
            auto rows = rawRows(s);
            benchmark::DoNotOptimize(rows);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
}

BENCHMARK(BM_FirstBatchEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FirstBatchRaw)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullFetchEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullFetchRaw)->Unit(benchmark::kMillisecond);

// Peak resident memory is monotonic within a process, and a forked child
// would inherit the parent's SQLite connections (and its peak), so each
// measurement runs in a fresh process: this program executed again with
// kChildFlag. The child opens the store, reads VmRSS from /proc/self/status,
// resets the high-water mark (writing 5 to /proc/self/clear_refs), runs the
// fetch, keeps the result alive and reads VmHWM. It reports the growth
// (VmHWM - VmRSS before) and the fetch's own time on standard output.
long statusKiB(std::string_view field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.starts_with(field))
            return std::stol(line.substr(field.size()));
    return -1;
}

int measureInChild(std::string_view variant, const std::filesystem::path& file) {
    tasket::platform::MainQueue::shared();
    auto store = PersistentStore::open(file, benchModel());
    if (!store)
        return 2;
    auto context = ObjectContext::make(*store, ConcurrencyType::mainQueue);
    const long before = statusKiB("VmRSS:");
    std::ofstream("/proc/self/clear_refs") << "5";
    const auto start = std::chrono::steady_clock::now();
    std::size_t size = 0;
    BatchedResults batched;
    std::vector<ObjectPtr> objects;
    if (variant == "batched") {
        batched = *context->fetchBatched(everythingRequest(kBatchSize));
        benchmark::DoNotOptimize(batched.at(0));
        size = batched.size();
    } else {
        objects = *context->fetch(everythingRequest(0));
        size = objects.size();
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long peak = statusKiB("VmHWM:");
    std::printf("%ld %.9f %zu\n", peak - before, seconds, size);
    return size == static_cast<std::size_t>(kTasks) ? 0 : 3;
}

struct ChildReport {
    long growthKiB = 0;
    double seconds = 0;
};

std::optional<ChildReport> runChild(const char* variant) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string program = self, flag(kChildFlag), variantText(variant),
                file = benchData().file.string();
    char* argv[] = {program.data(), flag.data(), variantText.data(), file.data(), nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, self.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    std::string output;
    char buffer[256];
    for (ssize_t n; spawned == 0 && (n = read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(n));
    close(pipeEnds[0]);
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0)
        return std::nullopt;
    ChildReport report;
    std::size_t size = 0;
    if (std::sscanf(output.c_str(), "%ld %lf %zu", &report.growthKiB, &report.seconds, &size) != 3)
        return std::nullopt;
    return report;
}

void BM_Memory(benchmark::State& state, const char* variant) {
    (void)session(); // the parent holds its connections, as the other benchmarks do
    double growth = 0;
    for (auto _ : state) {
        auto report = runChild(variant);
        if (!report) {
            state.SkipWithError("the measuring child failed");
            break;
        }
        state.SetIterationTime(report->seconds);
        growth = static_cast<double>(report->growthKiB) / 1024.0;
    }
    state.counters["rss_growth_MiB"] = growth;
}

BENCHMARK_CAPTURE(BM_Memory, batched, "batched")
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memory, full, "full")
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------- 4. controller

FetchRequest oneCategoryRequest() {
    FetchRequest r("Task");
    r.predicate = *Predicate::parse("category == %@", {ObjectID{benchData().categoryEntity, 3}});
    r.sortDescriptors = {{"dueDateAndTime", true}};
    r.fetchBatchSize = kBatchSize;
    return r;
}

// One task's due date moves between the two ends of the result and back;
// each edit is announced with processPendingChanges() and must reach the
// delegate without a fetch.
void BM_ControllerOneEdit(benchmark::State& state) {
    auto context = viewContext();
    FetchedResultsController controller(context, oneCategoryRequest());
    if (!controller.performFetch()) {
        state.SkipWithError("performFetch failed");
        return;
    }
    std::size_t calls = 0;
    controller.setDelegate([&](const CollectionChange&) { ++calls; });
    ObjectPtr task = controller.object(controller.size() / 2);
    const std::size_t due = task->propertyIndex("dueDateAndTime");
    bool early = true;
    std::size_t expected = 0;
    for (auto _ : state) {
        task->setValue(due, kNow.addingSeconds((early ? -61 : 61) * kDay));
        early = !early;
        context->processPendingChanges();
        tasket::platform::MainQueue::shared().pump(); // the no-longer-needed scheduled pass
        if (calls != ++expected) {
            state.SkipWithError("the delegate was not called");
            break;
        }
    }
    if (controller.fetchCount() != 1)
        state.SkipWithError("an edit re-ran the fetch");
    state.counters["results"] = static_cast<double>(controller.size());
    context->rollback();
}

void BM_ControllerRefetch(benchmark::State& state) {
    auto context = viewContext();
    FetchedResultsController controller(context, oneCategoryRequest());
    for (auto _ : state)
        if (!controller.performFetch())
            state.SkipWithError("performFetch failed");
    state.counters["results"] = static_cast<double>(controller.size());
}

void BM_ControllerFetchObjectIDs(benchmark::State& state) {
    auto context = viewContext();
    const FetchRequest request = oneCategoryRequest();
    for (auto _ : state) {
        auto ids = context->fetchObjectIDs(request);
        benchmark::DoNotOptimize(ids);
    }
}

BENCHMARK(BM_ControllerOneEdit)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ControllerRefetch)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ControllerFetchObjectIDs)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------- --explain

// The engine's statement as ObjectContext builds it for identities.
std::string engineSql(const FetchRequest& request) {
    const Model& model = session().store->model();
    const auto entity = model.entity(request.entityName)->index;
    const SqlPredicate where = *compileToSql(*request.predicate, model, entity);
    const SqlOrder order = *compileSort(request.sortDescriptors, model, entity);
    return fmt::format(R"(SELECT t0.pk FROM "{}" AS t0 {} {} WHERE {} ORDER BY {})",
                       request.entityName, where.joins, order.joins, where.where, order.orderBy);
}

void printPlan(const std::string& title, const std::string& sql) {
    fmt::print("{}:\n  {}\n", title, sql);
    RawStatement s(session().raw.get(), "EXPLAIN QUERY PLAN " + sql);
    while (s.row())
        fmt::print("    {} {}\n", sqlite3_column_int(s.get(), 1), columnText(s.get(), 3));
}

int explain() {
    printPlan("compound, engine", engineSql(compoundRequest()));
    printPlan("compound, hand-written", compoundSql("t.pk"));
    printPlan("contains, engine", engineSql(containsRequest()));
    printPlan("contains, hand-written", kContainsSql);
    printPlan("controller, engine", engineSql(oneCategoryRequest()));
    fmt::print("results: compound {}, contains {}\n", expectedCompound(), expectedContains());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    tasket::platform::MainQueue::shared(); // this thread is the main queue's
    if (argc == 4 && argv[1] == kChildFlag)
        return measureInChild(argv[2], argv[3]);
    if (argc == 2 && std::string_view(argv[1]) == "--explain")
        return explain();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
