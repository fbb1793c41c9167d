// The calendar mirror into a vdir folder with 10,000 tasks in one list:
// the first mirror (every task a new .ics file), a sync after one task
// changed (also into CalDAV, with its requests), a sync after another
// CalDAV client changed one item, the write of that one task alone by a
// later program (what tasket does after its own save), and reading the 10,000
// items back. The first mirror also into a CalDAV account on a local
// Radicale, with the number of HTTP requests it took.
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/calendars/vdir_calendar_store.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "reminders/calendar_mirror.h"
#include "store/tk_data_model.h"
#include "support/radicale_server.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

namespace {

using namespace tasket;
constexpr int kTasks = 10'000;

struct Mirrored {
    testing::TempDir dir;
    std::unique_ptr<testing::RadicaleServer> server; // for CalDAV only
    std::shared_ptr<objectstore::ObjectContext> context;
    std::shared_ptr<platform::CalendarStore> calendars;
    std::unique_ptr<reminders::CalendarMirror> mirror;
    std::shared_ptr<store::TK_Category> list;

    explicit Mirrored(bool caldav = false, int tasks = kTasks) {
        auto opened = objectstore::PersistentStore::open(
            dir / "TK_Data.sqlite", store::tkDataModel(), objectstore::StoreOptions{true, false});
        context = objectstore::ObjectContext::make(opened.value(),
                                                   objectstore::ConcurrencyType::mainQueue);
        list = store::TK_Category::insertNew(*context);
        list->setCategoryID(std::string("LIST"));
        list->setTitle(std::string("Errands"));
        list->setCalendarType(rules::TK_CalendarType::reminder);
        const auto base = platform::Calendar::current().date({2026, 11, 23, 9, 0, 0, 0});
        for (int i = 0; i < tasks; ++i) {
            auto task = store::TK_Task::insertNew(*context);
            task->setTaskID(fmt::format("TASK-{:05}", i));
            task->setTitle(fmt::format("Task {} with a title of usual length", i));
            if (i % 2)
                task->setDueDateAndTime(base.addingSeconds(i * 3600.0));
            task->setCategory(list);
        }
        (void)context->save();
        if (caldav)
            server = std::make_unique<testing::RadicaleServer>();
        calendars = newStore();
        mirror = std::make_unique<reminders::CalendarMirror>(calendars, settings);
    }
    /// A calendar store over the same calendars, as another program opens it.
    std::shared_ptr<platform::CalendarStore> newStore() const {
        if (server)
            return std::make_shared<platform::CaldavCalendarStore>(
                std::vector<std::string>{server->url()},
                platform::CaldavOptions{server->netrcFile()});
        return std::make_shared<platform::VdirCalendarStore>(
            std::vector<std::filesystem::path>{dir / "calendars"});
    }
    std::shared_ptr<settings::CustomizationManager> settings =
        std::make_shared<settings::CustomizationManager>(
            std::make_shared<platform::InMemoryPreferencesSuite>("group"),
            std::make_shared<platform::InMemoryPreferencesSuite>("standard"));
};

void BM_MirrorTasksIntoVdir(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        Mirrored mirrored;
        state.ResumeTiming();
        const auto report = mirrored.mirror->sync(*mirrored.context).value();
        if (report.created != kTasks)
            state.SkipWithError("not every task was mirrored");
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_MirrorTasksIntoVdir)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_MirrorTasksIntoCaldav(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        Mirrored mirrored(true, static_cast<int>(state.range(0)));
        auto& caldav = static_cast<platform::CaldavCalendarStore&>(*mirrored.calendars);
        const auto before = caldav.requestCount();
        state.ResumeTiming();
        const auto report = mirrored.mirror->sync(*mirrored.context).value();
        state.counters["requests"] = static_cast<double>(caldav.requestCount() - before);
        if (report.created != state.range(0))
            state.SkipWithError("not every task was mirrored");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
// Radicale writes each item on its own, so the run takes minutes at 10,000.
BENCHMARK(BM_MirrorTasksIntoCaldav)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Arg(1'000)
    ->Arg(kTasks);

// A sync after one task changed, keeping its state as tasket does, into the
// vdir folder (10,000 tasks) and into the CalDAV account (1,000), with the
// HTTP requests each took.
void BM_SyncAfterOneChange(benchmark::State& state) {
    const bool caldav = state.range(0) == 1;
    Mirrored mirrored(caldav, caldav ? 1'000 : kTasks);
    mirrored.mirror->keepSyncStateIn(mirrored.dir / "state");
    (void)mirrored.mirror->sync(*mirrored.context);
    const auto task = mirrored.list->tasks().front();
    const auto requests = [&]() -> std::size_t {
        return caldav
                   ? static_cast<platform::CaldavCalendarStore&>(*mirrored.calendars).requestCount()
                   : 0;
    };
    const auto before = requests();
    int round = 0;
    for (auto _ : state) {
        task->setTitle(fmt::format("changed {}", ++round));
        const auto report = mirrored.mirror->sync(*mirrored.context).value();
        if (report.updated != 1)
            state.SkipWithError("the change was not written");
    }
    if (caldav)
        state.counters["requests"] =
            static_cast<double>(requests() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SyncAfterOneChange)->Unit(benchmark::kMillisecond)->ArgName("caldav")->Arg(0)->Arg(1);

// A sync after another client changed one item of the CalDAV account
// (1,000 tasks), with the state kept (only the changes since its token are
// read) and without (every item is read), with the HTTP requests each took.
void BM_SyncAfterAChangeElsewhere(benchmark::State& state) {
    Mirrored mirrored(true, 1'000);
    const bool kept = state.range(0) == 1;
    if (kept)
        mirrored.mirror->keepSyncStateIn(mirrored.dir / "state");
    (void)mirrored.mirror->sync(*mirrored.context);
    auto& caldav = static_cast<platform::CaldavCalendarStore&>(*mirrored.calendars);
    const auto id = mirrored.list->tasks().front()->calendarItemIdentifier().value();
    std::size_t requests = 0;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        // Another client, which reads the item as it is now.
        platform::CaldavCalendarStore theirs({mirrored.server->url()},
                                             {mirrored.server->netrcFile()});
        auto item = theirs.itemWithIdentifier(id).value();
        item.title = fmt::format("changed elsewhere {}", ++round);
        const auto saved = theirs.saveReminder(item, true);
        const auto before = caldav.requestCount();
        state.ResumeTiming();
        if (!saved) {
            state.SkipWithError(saved.error().message.c_str());
            break;
        }
        const auto report = mirrored.mirror->sync(*mirrored.context).value();
        requests += caldav.requestCount() - before;
        if (report.readBack != 1) {
            state.SkipWithError(fmt::format("{} read back", report.readBack).c_str());
            break;
        }
    }
    state.counters["requests"] =
        static_cast<double>(requests) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SyncAfterAChangeElsewhere)
    ->Unit(benchmark::kMillisecond)
    ->ArgName("state")
    ->Arg(0)
    ->Arg(1);

// The write of the one task a save changed, as a later program makes it
// after its own save (a new calendar store, with the state the last sync
// kept): into the vdir folder (10,000 tasks) and into the CalDAV account
// (1,000), with the HTTP requests it took.
void BM_WriteOneChangedTask(benchmark::State& state) {
    const bool caldav = state.range(0) == 1;
    Mirrored mirrored(caldav, caldav ? 1'000 : kTasks);
    mirrored.mirror->keepSyncStateIn(mirrored.dir / "state");
    (void)mirrored.mirror->sync(*mirrored.context);
    const auto task = mirrored.list->tasks().front();
    const std::vector<std::string> changed{task->taskID().value()};
    std::size_t requests = 0;
    int round = 0;
    for (auto _ : state) {
        task->setTitle(fmt::format("changed {}", ++round));
        (void)mirrored.context->save();
        const auto store = mirrored.newStore();
        reminders::CalendarMirror mirror(store, mirrored.settings);
        mirror.keepSyncStateIn(mirrored.dir / "state");
        if (const auto written = mirror.writeTasks(*mirrored.context, changed); !written) {
            state.SkipWithError(written.error().message.c_str());
            break;
        }
        if (caldav)
            requests += static_cast<platform::CaldavCalendarStore&>(*store).requestCount();
    }
    if (caldav)
        state.counters["requests"] =
            static_cast<double>(requests) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_WriteOneChangedTask)->Unit(benchmark::kMillisecond)->ArgName("caldav")->Arg(0)->Arg(1);

void BM_ReadBackItems(benchmark::State& state) {
    Mirrored mirrored;
    (void)mirrored.mirror->sync(*mirrored.context);
    for (auto _ : state) {
        const auto items = mirrored.calendars->items(platform::CalendarEntityType::reminder, {});
        if (items.value().size() != kTasks)
            state.SkipWithError("items went missing");
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_ReadBackItems)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
