// LocalDataFetchManager on the large store of bench_store.h: start-up until
// all twelve collections are published, in a fresh process each time, with
// the process's resident memory at that point; one task saved in a
// background context and merged until `tasks` is published again; and
// changing the lists' sort order. Run from the release preset.
#include "bench_store.h"
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "store/local_data_fetch_manager.h"

#include <benchmark/benchmark.h>
#include <fmt/core.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

using namespace tasket;
using store::CollectionKind;
using store::LocalDataFetchManager;
using store::TK_ObjectsSortOrder;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::string_view kProbeFlag = "--startup-probe";

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

double cpuMilliseconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Session {
    std::shared_ptr<store::LocalDataManager> data;
    std::shared_ptr<settings::CustomizationManager> customization;
    std::shared_ptr<settings::FocusManager> focus = std::make_shared<settings::FocusManager>();
    std::unique_ptr<LocalDataFetchManager> manager;

    explicit Session(const std::filesystem::path& folder)
        : data(store::LocalDataManager::make(folder)),
          customization(std::make_shared<settings::CustomizationManager>(
              std::make_shared<platform::InMemoryPreferencesSuite>(
                  std::string(settings::keys::kAppGroupSuite)),
              std::make_shared<platform::InMemoryPreferencesSuite>(
                  std::string(settings::keys::kStandardSuite)))) {}

    void start() {
        auto made = LocalDataFetchManager::make(data, customization, focus);
        if (!made)
            throw std::runtime_error(made.error().message);
        manager = std::move(*made);
        platform::MainQueue::shared().pump();
    }
};

// In the fresh process: opening the store, then the manager's start-up.
int probe(const std::filesystem::path& folder) {
    const double baseline = residentMegabytes();
    const double cpuStart = cpuMilliseconds();
    const auto start = Clock::now();
    Session session(folder);
    session.data->container();
    const double opened = millisecondsSince(start);
    session.start();
    const double published = millisecondsSince(start);
    const double cpu = cpuMilliseconds() - cpuStart;
    fmt::print("{} {} {} {} {}\n", opened, published, cpu, residentMegabytes(), baseline);
    return 0;
}

void BM_StartUpInFreshProcess(benchmark::State& state) {
    const auto folder = bench::benchStoreFolder();
    const std::string command =
        fmt::format("'/proc/{}/exe' {} '{}'", getpid(), kProbeFlag, folder.string());
    double open = 0, cpuTotal = 0, resident = 0, baseline = 0;
    for (auto _ : state) {
        FILE* pipe = popen(command.c_str(), "r");
        double opened = 0, published = 0, cpu = 0, rss = 0, base = 0;
        const int read =
            std::fscanf(pipe, "%lf %lf %lf %lf %lf", &opened, &published, &cpu, &rss, &base);
        if (pclose(pipe) != 0 || read != 5) {
            state.SkipWithError("the start-up probe failed");
            return;
        }
        state.SetIterationTime(published / 1000.0);
        open += opened;
        cpuTotal += cpu;
        resident = std::max(resident, rss);
        baseline = std::max(baseline, base);
    }
    // The machine may be shared: the process's own CPU time says what it cost.
    state.counters["cpu_ms"] = cpuTotal / static_cast<double>(state.iterations());
    state.counters["store_open_ms"] = open / static_cast<double>(state.iterations());
    state.counters["resident_MB"] = resident;
    state.counters["resident_before_MB"] = baseline;
}
BENCHMARK(BM_StartUpInFreshProcess)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

// One manager for the benchmarks that write, on a copy of the store.
Session& sharedSession() {
    static bench::ScratchCopy copy(bench::benchStoreFolder());
    static Session session(copy.path());
    if (!session.manager)
        session.start();
    return session;
}

// A background context of the session and the last save it announced,
// for the view context to merge.
struct BackgroundSaves {
    explicit BackgroundSaves(Session& session)
        : context(session.data->newBackgroundContext()),
          observer(platform::NotificationCenter::defaultCenter().addObserver(
              objectstore::kContextDidSaveNotification, context.get(),
              [this](const objectstore::ChangeSet& changes, const void*) { last = changes; })) {}
    BackgroundSaves(const BackgroundSaves&) = delete;
    BackgroundSaves& operator=(const BackgroundSaves&) = delete;

    std::shared_ptr<objectstore::ObjectContext> context;
    objectstore::ChangeSet last;
    platform::ObserverToken observer;
};

void BM_TaskInsertedAndMergedUntilTasksRepublished(benchmark::State& state) {
    Session& session = sharedSession();
    auto& view = *session.data->viewContext();
    const auto list = session.manager->categories().value().objectIDs().at(0);
    int published = 0;
    auto subscription = session.manager->tasks().subscribe([&](const auto&) { ++published; });
    BackgroundSaves background(session);
    int number = 0;
    for (auto _ : state) {
        background.context->performAndWait([&] {
            auto task = store::TK_Task::insertNew(*background.context);
            task->setTaskID(platform::Uuid::generate().toString());
            task->setTitle(fmt::format("Inserted {}", number++));
            task->setWhenCreated(platform::Date::fromSystem(std::chrono::system_clock::now()));
            task->setCategory(std::static_pointer_cast<store::TK_Category>(
                background.context->objectWithID(list)));
            if (!background.context->save())
                state.SkipWithError("the background save failed");
        });
        const int before = published;
        const auto start = Clock::now();
        view.mergeChanges(background.last);
        if (!platform::MainQueue::shared().runUntil([&] { return published > before; }))
            state.SkipWithError("nothing was published");
        state.SetIterationTime(millisecondsSince(start) / 1000.0);
    }
    state.counters["tasks"] = static_cast<double>(session.manager->tasks().value().size());
}
BENCHMARK(BM_TaskInsertedAndMergedUntilTasksRepublished)
    ->UseManualTime()
    ->Iterations(200)
    ->Unit(benchmark::kMicrosecond);

// A new list reaches the tasks' controller too: its predicate reads the
// list's identifier and title, so the engine fetches the tasks again.
void BM_ListInsertedAndMerged(benchmark::State& state) {
    Session& session = sharedSession();
    auto& view = *session.data->viewContext();
    BackgroundSaves background(session);
    int number = 0;
    for (auto _ : state) {
        background.context->performAndWait([&] {
            auto list = store::TK_Category::insertNew(*background.context);
            list->setCategoryID(platform::Uuid::generate().toString());
            list->setTitle(fmt::format("New list {}", number++));
            if (!background.context->save())
                state.SkipWithError("the background save failed");
        });
        const auto start = Clock::now();
        view.mergeChanges(background.last);
        platform::MainQueue::shared().pump();
        state.SetIterationTime(millisecondsSince(start) / 1000.0);
    }
}
BENCHMARK(BM_ListInsertedAndMerged)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_CategoriesSortOrderChanged(benchmark::State& state) {
    Session& session = sharedSession();
    auto& manager = *session.manager;
    const auto order = static_cast<TK_ObjectsSortOrder>(state.range(0));
    int published = 0;
    auto subscription = manager.categories().subscribe([&](const auto&) { ++published; });
    for (auto _ : state) {
        const int before = published;
        const auto start = Clock::now();
        if (!manager.setSortOrder(CollectionKind::categories, order))
            state.SkipWithError("sorting failed");
        if (!platform::MainQueue::shared().runUntil([&] { return published > before; }))
            state.SkipWithError("nothing was published");
        state.SetIterationTime(millisecondsSince(start) / 1000.0);
        // Back to the user's own order, untimed, so the next change is one.
        (void)manager.setSortOrder(CollectionKind::categories, TK_ObjectsSortOrder::custom);
        platform::MainQueue::shared().pump();
    }
    state.SetLabel(std::string(rules::caseName(order)));
    state.counters["lists"] = static_cast<double>(manager.categories().value().size());
}
BENCHMARK(BM_CategoriesSortOrderChanged)
    ->Arg(static_cast<int>(TK_ObjectsSortOrder::alphabetical))
    ->Arg(static_cast<int>(TK_ObjectsSortOrder::numberOfTasks))
    ->Arg(static_cast<int>(TK_ObjectsSortOrder::creationDate))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && argv[1] == kProbeFlag)
        return probe(argv[2]);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
